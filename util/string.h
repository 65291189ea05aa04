// util/string.h
// SPDX-License-Identifier: MIT
//
// Bounded operations on texts, comparisons of bytes, and the copy of record arrays between two
// versions of a layout.
//
// Texts are zero-terminated and 8-bit. A buffer size includes the terminator. Case folding is plain
// ASCII: only 'A'..'Z' and 'a'..'z' change, bytes of 0x80 and above never do. Pointers must not be
// NULL unless stated otherwise. No allocation, no locale, no state; any thread may call these on
// its own buffers.

#ifndef UTIL_STRING_H
#define UTIL_STRING_H

#include <stdint.h>
#include <string.h>

// Bounded copies

// Copies at most BufferSize - 1 characters of sSource to pDest and terminates.
//
// Does nothing when either pointer is NULL or BufferSize is 0. The two must not overlap. Bytes of
// pDest after the terminator stay as they are.
void UTIL_CopyString(char* pDest, const char* sSource, uint32_t BufferSize);

// Copies as UTIL_CopyString does; the last argument is ignored.
void UTIL_CopyStringEx(char* pDest, const char* sSource, uint32_t BufferSize, uint32_t Unused);

// Appends as much of sSource as fits to the text in pDest and terminates.
//
// Nothing changes when the buffer is full, when BufferSize is 0, or when pDest has no terminator
// within BufferSize bytes. The two must not overlap.
void UTIL_AppendString(char* pDest, const char* sSource, uint32_t BufferSize);

// Appends at most MaxChars characters of sSource; otherwise UTIL_AppendString.
//
// sSource needs no terminator within MaxChars characters. When nothing is to be appended, nothing
// is written.
void UTIL_AppendStringN(char* pDest, const char* sSource, uint32_t MaxChars, uint32_t BufferSize);

// Lengths

// Returns the length of a text in characters, without the terminator.
inline uint32_t UTIL_StrLen(const char* s) {
  return (uint32_t)strlen(s);
}

// Returns the length of a text, at most MaxLen; no byte after that many counts.
inline uint32_t UTIL_StrNLen(const char* s, uint32_t MaxLen) {
  return (uint32_t)strnlen(s, MaxLen);
}

// Comparisons that ignore case. Each returns 0 when equal, else A minus B of the first characters
// that differ, folded to lower case and taken as signed.

// Compares two texts, ignoring case.
//
// It stops at the first difference or the end of sA. A text that is the beginning of the other one
// is less, unless the other goes on with a byte of 0x80 or above.
int32_t UTIL_StrCaseCmp(const char* sA, const char* sB);

// Compares at most MaxChars characters of two texts, ignoring case; 0 for a MaxChars of 0.
int32_t UTIL_StrNCaseCmp(const char* sA, const char* sB, uint32_t MaxChars);

// Compares exactly NumBytes bytes, ignoring case; a zero among them is a byte like any other.
int32_t UTIL_MemCaseCmp(const void* pA, const void* pB, uint32_t NumBytes);

// Comparisons of bytes

// Compares bytes: 0 when equal, else A minus B of the first ones that differ, taken as unsigned.
int32_t UTIL_MemCmp(const void* pA, const void* pB, uint32_t NumBytes);

// Returns the index of the first byte that differs, -1 when all are equal or NumBytes is below 1.
int32_t UTIL_FindDiff(const void* pA, const void* pB, int32_t NumBytes);

// Returns the same index, ignoring case.
int32_t UTIL_FindDiffNoCase(const void* pA, const void* pB, int32_t NumBytes);

// Checks a fill: returns the index of the first byte that is not Value, -1 when there is none.
//
// The result for a NumBytes of 0 is -1. An index above 0x7FFFFFFF is returned as that number.
int32_t UTIL_FindNotEqual(const void* pBuffer, uint8_t Value, uint32_t NumBytes);

// Characters

// Returns a character in upper case.
char UTIL_ToUpper(char c);

// Returns a character in lower case.
constexpr char UTIL_ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? (char)(c + 0x20) : c;
}

// Converts a text to upper or lower case, in place.
void UTIL_StrToUpper(char* s);
void UTIL_StrToLower(char* s);

// Tells whether a character is 0x20 to 0x7E: 1 or 0.
int32_t UTIL_IsPrintable(char c);

// Returns the upper-case hexadecimal digit of the low 4 bits of Value.
char UTIL_HexDigit(uint32_t Value);

// Replaces every Old in a text by New, in place.
//
// An Old of 0 finds nothing. A New of 0 ends the text at the first place; later ones are replaced
// too.
void UTIL_ReplaceChar(char* s, char Old, char New);

// Reverses the order of NumBytes bytes, in place.
void UTIL_ReverseBytes(void* pBuffer, uint32_t NumBytes);

// Converts an array of records between two versions of a layout that share their leading fields.
//
// Each record receives the bytes that both layouts have; the rest of a larger destination record is
// filled with zeros. A SourceRecordSize of 0 clears the whole destination. Record sizes are in
// bytes. Nothing happens when a pointer is NULL or when DestRecordSize or NumRecords is 0. The
// arrays may overlap only when both record sizes are equal.
void UTIL_CopyStructArray(void* pDest, uint32_t DestRecordSize, const void* pSource,
                          uint32_t SourceRecordSize, uint32_t NumRecords);

#endif
