// util/scan.h
//
// Scanners for line-oriented texts: numbers, versions, addresses, words, quoted values.
//
// Most take a cursor: the address of a pointer into a zero-terminated 8-bit text, moved past what
// was consumed, so that calls can be chained. Unless stated otherwise a failed scan leaves cursor
// and results untouched, pointers must not be NULL, and a result of 0 means success, -1 failure.
//
// White space is exactly SPACE, TAB, LF and CR; only UTIL_Trim has a wider set. A word ends at NUL,
// LF, CR or SPACE, not at TAB. Numbers wrap silently. A buffer size counts the terminator.
// No allocation, no locale, no state; any thread may call these on texts and cursors of its own.

#ifndef UTIL_SCAN_H
#define UTIL_SCAN_H

#include <stdint.h>

struct VERSION_INFO {
  char     Revision[4];  // "", "a" to "z", or "z01" to "z73"; terminated
  uint32_t Major;
  uint32_t Minor;
};

// Characters

// 1 for SPACE, TAB, LF and CR, else 0. Pass a text's bytes as unsigned values.
int32_t UTIL_IsWhite(uint32_t c);

void UTIL_SkipWhite(const char** ps);

// Takes the one character c. 0 and the cursor one further when it is the current one, else -1.
// A c of 0 matches the terminator; the cursor then stands behind the text and is used up.
int32_t UTIL_EatChar(const char** ps, char c);

// Index of the first c in s, -1 when there is none or c is 0.
int32_t UTIL_FindChar(const char* s, char c);

// 1 when s holds neither '"' nor a byte of 0x80 or above; the empty text gives 1.
int32_t UTIL_IsPlainString(const char* s);

// The same, but the empty text gives 0.
int32_t UTIL_IsPlainNonEmptyString(const char* s);

// Numbers

// Skips white space, takes one optional '-' (no '+'), then digits: hexadecimal behind "0x" or "0X"
// or when AlwaysHex is not 0 (with or without the prefix), else decimal. The value wraps in 64
// bits. The cursor is left on the first character that is no digit of that base.
// -1 when no digit is there; "0x" without a digit behind it is such a failure.
int32_t UTIL_ParseInt(const char** ps, int64_t* pValue, int32_t AlwaysHex);

// UTIL_ParseInt, decimal or "0x", of which the low 32 bits are stored. Failure is not reported:
// it stores 0 and leaves the cursor.
void UTIL_ParseInt32(const char** ps, int32_t* pValue);

// UTIL_ParseInt with hexadecimal digits always: "0123" is 0x123.
int32_t UTIL_ParseHex(const char** ps, uint64_t* pValue);

// The same, of which the low 32 bits are stored; a failure stores 0 and gives -1.
int32_t UTIL_ParseHex32(const char** ps, uint32_t* pValue);

// Reads the number that s begins with: decimal, or hexadecimal behind "0x" or "0X". No white space,
// no sign; what follows the digits does not matter. The value wraps in 32 bits.
// -1 when s does not begin with a decimal digit, or with "0x" and no hexadecimal digit behind it.
int32_t UTIL_ParseU32(const char* s, uint32_t* pValue);

// Versions and addresses

// Reads texts such as "V6.22a": white space, one optional 'V', major, '.', minor, and one more
// character as the revision, 'a' to 'z' giving 1 to 26 and the end of the text 0.
//
// Every result may be NULL. -1 when a number or the '.' is missing (a number that could not be read
// is stored as 0, the revision too), or when another character stands in the revision's place (it
// is then stored as it stands, sign-extended). In every case the results are stored and the cursor
// is left behind what was read.
int32_t UTIL_ParseVersion(const char** ps, uint32_t* pMajor, uint32_t* pMinor, uint32_t* pRevision);

// Splits Version, major * 10000 + minor * 100 + revision. Revisions 1 to 26 give "a" to "z", 27 to
// 99 give "z01" to "z73", 0 gives "". Nothing happens when pInfo is NULL.
void UTIL_DecodeVersion(VERSION_INFO* pInfo, uint32_t Version);

// Reads four numbers as UTIL_ParseInt does, separated by one '.' each; the first one lands in the
// low byte. pAddr may be NULL for a check of the syntax.
// On purpose no number is checked for its range: a part above 255 spills into the next byte. A
// caller that wants 0 to 255 only compares the text with what UTIL_FormatIPAddr makes of the
// result.
int32_t UTIL_ParseIPAddr(const char* s, uint32_t* pAddr);

// 0 when four numbers are there and each one, the last too, is followed by '.', which tells a
// dotted prefix from an address. The cursor is left where the scan stopped, whatever the result.
int32_t UTIL_CheckDottedNumbers(const char** ps);

// Words and values

// Skips white space and takes the word up to its end or up to Delimiter, which is not consumed.
// NULL on success. Else a constant text, with the cursor behind the white space and pBuffer empty:
//   "Maximum string length exceeded"  the word has BufferSize characters or more
//   "Expected a string"               there is no word
// BufferSize 0: pBuffer may be NULL, and every word, even none, is too long.
const char* UTIL_ParseToken(const char** ps, char* pBuffer, uint32_t BufferSize, char Delimiter);

// Skips white space and takes all up to Delimiter or the end of the text, later white space
// included. Delimiter is consumed, the terminator is not. What exceeds BufferSize - 1 characters is
// consumed and dropped. Returns 1 when something was dropped, else 0.
// BufferSize 0: pBuffer may be NULL, nothing is stored and the result is 1.
int32_t UTIL_ParseUntil(const char** ps, char* pBuffer, uint32_t BufferSize, char Delimiter);

// Reads one entry of a comma-separated list: white space, a value, white space, one optional ','
// and the white space behind it, so that the cursor stands on the next entry.
//
// A value in double quotes ends at the closing quote, which is consumed, or at NUL, LF or CR; a
// plain one at NUL, LF, CR or SPACE, or at a '"', which is consumed. A ',' is part of a value.
// When BufferSize - 1 characters are stored the scan stops where it is, on purpose: the rest of the
// value stays in the text, and so does a closing quote right behind them. The next call begins
// there and takes such a quote for an opening one: give a buffer of two characters more than the
// longest quoted value.
// Nothing happens when pBuffer is NULL or BufferSize is 0.
void UTIL_ParseQuotedString(const char** ps, char* pBuffer, uint32_t BufferSize);

// Reads the key of a line "key: value" (or such a value): white space, then a text in double quotes
// up to the closing quote, which is consumed (LF and CR belong to the text), or a plain one up to
// NUL, LF, CR, SPACE or ':', which is not. What exceeds BufferSize - 1 characters is consumed and
// dropped. An empty plain text is a success that leaves the cursor where it was, in front of the
// white space, which is to be skipped before the ':' can be taken.
//
// Returns 0, or all bits set when pBuffer is NULL, BufferSize is 0, or the closing quote is
// missing. In the last case pBuffer holds the characters up to the end WITHOUT a terminator behind
// them.
uint32_t UTIL_ParseValue(const char** ps, char* pBuffer, uint32_t BufferSize);

// Texts in place

// Cuts white space, here 0x09 to 0x0D and SPACE, off the ends that are asked for.
// The right end keeps the first character even when all is white space; so a text of one such
// character comes back unchanged when only the right end is trimmed. Both ends: left goes first.
void UTIL_Trim(char* s, int32_t TrimLeft, int32_t TrimRight);

// Replaces every '\' by '/'.
void UTIL_ConvertBackslashes(char* sPath);

// Appends '/' unless the path ends in '/' or '\' or the buffer has no room for it. An empty path
// becomes "/". Nothing changes when BufferSize is 0 or the path has no terminator within the
// buffer.
void UTIL_AddTrailingSlash(char* sPath, uint32_t BufferSize);

#endif
