// util/string.h
//
// Bounded operations on zero-terminated 8-bit texts, byte-wise comparisons, and the copy of record
// arrays between two versions of a layout.
//
// A buffer size always counts the terminator. Case folding is plain ASCII: only 'A'..'Z' and
// 'a'..'z' change, bytes of 0x80 and above never do. Pointers must not be NULL unless stated
// otherwise. No allocation, no locale, no state; any thread may call these on buffers of its own.

#ifndef UTIL_STRING_H
#define UTIL_STRING_H

#include <stdint.h>
#include <string.h>

// Bounded copies

// Copies at most BufferSize - 1 characters of sSource to pDest and terminates.
// Does nothing when either pointer is NULL or BufferSize is 0. The two must not overlap.
void UTIL_CopyString(char* pDest, const char* sSource, uint32_t BufferSize);

// The same with one more argument, which is ignored.
void UTIL_CopyStringEx(char* pDest, const char* sSource, uint32_t BufferSize, uint32_t Unused);

// Appends as much of sSource as fits behind the text in pDest and terminates.
// Nothing changes when the buffer is already full, when BufferSize is 0, or when pDest holds no
// terminator within BufferSize bytes. The two must not overlap.
void UTIL_AppendString(char* pDest, const char* sSource, uint32_t BufferSize);

// The same for at most MaxChars characters of sSource, which needs no terminator among them.
// When nothing is to be appended, nothing is written.
void UTIL_AppendStringN(char* pDest, const char* sSource, uint32_t MaxChars, uint32_t BufferSize);

// Lengths, in characters without the terminator

inline uint32_t UTIL_StrLen(const char* s) {
  return (uint32_t)strlen(s);
}

// At most MaxLen, and no byte behind that many is read.
inline uint32_t UTIL_StrNLen(const char* s, uint32_t MaxLen) {
  return (uint32_t)strnlen(s, MaxLen);
}

// Comparisons that ignore case. Each returns 0 when equal, else the first differing characters,
// folded to lower case and taken as signed, A minus B.

// Up to the first difference or the end of sA. A text that is the beginning of the other one is
// the lesser, unless the other goes on with a byte of 0x80 or above.
int32_t UTIL_StrCaseCmp(const char* sA, const char* sB);

// The same over at most MaxChars characters; 0 for a MaxChars of 0.
int32_t UTIL_StrNCaseCmp(const char* sA, const char* sB, uint32_t MaxChars);

// Exactly NumBytes bytes; a zero among them is a byte like any other.
int32_t UTIL_MemCaseCmp(const void* pA, const void* pB, uint32_t NumBytes);

// Comparisons of bytes

// Returns 0 when equal, else the first differing bytes, taken as unsigned, A minus B.
int32_t UTIL_MemCmp(const void* pA, const void* pB, uint32_t NumBytes);

// Returns the index of the first byte that differs, -1 when all are equal or NumBytes is below 1.
int32_t UTIL_FindDiff(const void* pA, const void* pB, int32_t NumBytes);

// The same, ignoring case.
int32_t UTIL_FindDiffNoCase(const void* pA, const void* pB, int32_t NumBytes);

// A fill check: returns the index of the first byte that is not Value, -1 when there is none or
// NumBytes is 0. An index above 0x7FFFFFFF is returned as that number.
int32_t UTIL_FindNotEqual(const void* pBuffer, uint8_t Value, uint32_t NumBytes);

// Characters

char           UTIL_ToUpper(char c);
constexpr char UTIL_ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? (char)(c + 0x20) : c;
}

// In place, up to the terminator.
void UTIL_StrToUpper(char* s);
void UTIL_StrToLower(char* s);

// 1 for 0x20 to 0x7E, else 0.
int32_t UTIL_IsPrintable(char c);

// The upper-case hexadecimal digit of the low 4 bits of Value.
char UTIL_HexDigit(uint32_t Value);

// Replaces every Old in s by New, in place. An Old of 0 finds nothing; a New of 0 ends the text at
// the first place, the later ones being replaced too.
void UTIL_ReplaceChar(char* s, char Old, char New);

// Reverses the order of NumBytes bytes in place: byte i trades places with byte NumBytes - 1 - i.
void UTIL_ReverseBytes(void* pBuffer, uint32_t NumBytes);

// Converts an array of records between two versions of a layout that share their leading fields.
//
// Each record receives the bytes that both layouts have; the rest of a larger destination record
// is filled with zeros. A SourceRecordSize of 0 clears the whole destination.
// Record sizes are in bytes. Nothing happens when a pointer is NULL or when DestRecordSize or
// NumRecords is 0. The arrays may overlap only when both record sizes are equal.
void UTIL_CopyStructArray(void* pDest, uint32_t DestRecordSize, const void* pSource,
                          uint32_t SourceRecordSize, uint32_t NumRecords);

#endif
