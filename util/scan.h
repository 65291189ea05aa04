// util/scan.h
// SPDX-License-Identifier: MIT
//
// Scanners for line-oriented texts: numbers, versions, addresses, words and quoted values.
//
// Most take a cursor: the address of a pointer into a zero-terminated 8-bit text, which is moved
// past what was consumed, so that calls can be chained. Unless stated otherwise: a failed scan
// leaves cursor and results unchanged, pointers must not be NULL, and a result of 0 means success,
// -1 failure.
//
// White space is exactly SPACE, TAB, LF and CR; only UTIL_Trim has a wider set. A word ends at NUL,
// LF, CR or SPACE, but not at TAB. Numbers wrap without notice. A buffer size includes the
// terminator. No allocation, no locale, no state; any thread may call these on its own texts and
// cursors.

#ifndef UTIL_SCAN_H
#define UTIL_SCAN_H

#include <stdint.h>

struct VERSION_INFO {
  char     Revision[4];  // "", "a" to "z", or "z01" to "z73"; terminated
  uint32_t Major;
  uint32_t Minor;
};

// Characters

// Tells whether a character is SPACE, TAB, LF or CR: 1 or 0. Pass a byte of a text as unsigned.
int32_t UTIL_IsWhite(uint32_t c);

// Moves the cursor past white space.
void UTIL_SkipWhite(const char** ps);

// Takes the character c if it is the next one.
//
// A c of 0 matches the terminator. The cursor is then after the text and must not be used again.
int32_t UTIL_EatChar(const char** ps, char c);

// Returns the index of the first c in s, -1 when there is none or c is 0.
int32_t UTIL_FindChar(const char* s, char c);

// Tells whether a text has neither '"' nor a byte of 0x80 or above: 1 or 0. The empty text gives 1.
int32_t UTIL_IsPlainString(const char* s);

// Tells the same, but the empty text gives 0.
int32_t UTIL_IsPlainNonEmptyString(const char* s);

// Numbers

// Reads an integer of 64 bits, decimal or hexadecimal.
//
// White space is skipped, then one optional '-' is taken (no '+'), then digits. They are
// hexadecimal after "0x" or "0X", or when AlwaysHex is not 0 (with or without the prefix); else
// decimal. The value wraps in 64 bits. The cursor is left on the first character that is not a
// digit of that base. Fails when there is no digit. "0x" without a digit after it is such a
// failure.
int32_t UTIL_ParseInt(const char** ps, int64_t* pValue, int32_t AlwaysHex);

// Reads an integer as UTIL_ParseInt does and stores its low 32 bits, without a status.
//
// A failure stores 0 and leaves the cursor.
void UTIL_ParseInt32(const char** ps, int32_t* pValue);

// Reads a hexadecimal number of 64 bits, with or without "0x"; otherwise UTIL_ParseInt.
int32_t UTIL_ParseHex(const char** ps, uint64_t* pValue);

// Reads a hexadecimal number as UTIL_ParseHex does and stores its low 32 bits.
//
// A failure stores 0 and returns -1.
int32_t UTIL_ParseHex32(const char** ps, uint32_t* pValue);

// Reads the number that a text begins with: decimal, or hexadecimal after "0x" or "0X".
//
// White space and signs are not accepted. What follows the digits does not matter. The value wraps
// in 32 bits. Fails when s does not begin with a decimal digit, or when "0x" has no digit after it.
int32_t UTIL_ParseU32(const char* s, uint32_t* pValue);

// Versions and addresses

// Reads a version such as "V6.22a".
//
// White space, one optional 'V', the major number, '.', the minor number, and one more character
// for the revision: 'a' to 'z' give 1 to 26, the end of the text gives 0. Results may be NULL.
//
// Returns -1 when a number or the '.' is missing (a missing number is stored as 0, and the revision
// then too), or when the revision is another character (it is stored as it is, sign-extended). In
// every case all results are stored and the cursor is past what was read.
int32_t UTIL_ParseVersion(const char** ps, uint32_t* pMajor, uint32_t* pMinor, uint32_t* pRevision);

// Splits an encoded version: major * 10000 + minor * 100 + revision.
//
// Revisions 1 to 26 give "a" to "z", 27 to 99 give "z01" to "z73", 0 gives "". Nothing happens when
// pInfo is NULL.
void UTIL_DecodeVersion(VERSION_INFO* pInfo, uint32_t Version);

// Reads an IPv4 address such as "192.168.1.2"; the first number goes to the low byte.
//
// The four numbers are read as by UTIL_ParseInt, with one '.' between them. No number is checked
// for its range: a part above 255 spills into the next byte, and callers rely on it. To accept 0 to
// 255 only, compare the text with what UTIL_FormatIPAddr makes of the result. pAddr may be NULL, to
// check the syntax alone.
//
// "192.168.1.2" gives 0x0201A8C0. sys/sockets.h has the first number in the high byte (0xC0A80102):
// swap the bytes (UTIL_SwapU32) before passing the result on to SYS.
int32_t UTIL_ParseIPAddr(const char* s, uint32_t* pAddr);

// Checks for four numbers with a '.' after each one, the last one too.
//
// The last '.' tells a dotted prefix from an address. The cursor is left where the scan stopped,
// whatever the result.
int32_t UTIL_CheckDottedNumbers(const char** ps);

// Words and values

// Reads a word up to its end or up to Delimiter, after white space.
//
// Returns NULL on success; the cursor is then on the character that ended the word. Else it returns
// one of two constant texts, the cursor is past the white space, and pBuffer is empty:
//   "Maximum string length exceeded"  the word has BufferSize characters or more
//   "Expected a string"               there is no word
// With a BufferSize of 0 pBuffer may be NULL, and every word, even an empty one, is too long.
const char* UTIL_ParseToken(const char** ps, char* pBuffer, uint32_t BufferSize, char Delimiter);

// Reads a value up to Delimiter or the end of the text, after white space.
//
// White space within the value belongs to it. Delimiter is consumed, the terminator is not.
// Characters beyond BufferSize - 1 are consumed and dropped. Returns 1 when characters were
// dropped, else 0. With a BufferSize of 0 pBuffer may be NULL, nothing is stored and the result is
// 1.
int32_t UTIL_ParseUntil(const char** ps, char* pBuffer, uint32_t BufferSize, char Delimiter);

// Reads one entry of a comma-separated list, quoted or plain.
//
// White space, a value, white space, one optional ',' and the white space after it are consumed, so
// the cursor is on the next entry. A value in double quotes ends at the closing quote, which is
// consumed, or at NUL, LF or CR. A plain value ends at NUL, LF, CR or SPACE, or at a '"', which is
// consumed. A ',' is part of a value.
//
// When BufferSize - 1 characters are stored, the scan stops: the rest of the value stays in the
// text, a closing quote right after them too. The next call would read that quote as an opening
// one; make the buffer two larger than the longest quoted value. Callers rely on this rule. Nothing
// happens when pBuffer is NULL or BufferSize is 0.
void UTIL_ParseQuotedString(const char** ps, char* pBuffer, uint32_t BufferSize);

// Reads the key of a line "key: value" up to the colon, quoted or plain.
//
// White space is skipped. A key in double quotes ends at the closing quote, which is consumed; LF
// and CR belong to it. A plain key ends before NUL, LF, CR, SPACE or ':'. Characters beyond
// BufferSize - 1 are consumed and dropped. An empty plain key is a success that leaves the cursor
// where it was, before the white space: skip that before you take the ':'.
//
// Returns 0, or all bits set when pBuffer is NULL, BufferSize is 0, or the closing quote is
// missing. In the last case the cursor is unchanged and pBuffer holds the characters up to the end
// WITHOUT a terminator after them.
uint32_t UTIL_ParseValue(const char** ps, char* pBuffer, uint32_t BufferSize);

// Texts in place

// Trims white space, here 0x09 to 0x0D and SPACE, from the left or right end of a text, or both.
//
// The right end keeps the first character even when all is white space, so a text of one such
// character does not change when only the right end is trimmed. With both ends, left goes first.
void UTIL_Trim(char* s, int32_t TrimLeft, int32_t TrimRight);

// Replaces every '\' of a path by '/'.
void UTIL_ConvertBackslashes(char* sPath);

// Appends '/' to a path unless it ends in '/' or '\' or the buffer has no room.
//
// An empty path becomes "/". Nothing changes when BufferSize is 0 or the path has no terminator
// within the buffer.
void UTIL_AddTrailingSlash(char* sPath, uint32_t BufferSize);

#endif
