// openocd/text.h
// SPDX-License-Identifier: MIT
//
// Bounded text helpers. A size counts the terminator; results are always terminated.

#ifndef OPENOCD_TEXT_H
#define OPENOCD_TEXT_H

#include <stddef.h>
#include <stdint.h>

// printf into a buffer. Text that does not fit is cut.
void TEXT_Format(char* pBuffer, size_t Size, const char* sFormat, ...)
    __attribute__((format(printf, 3, 4)));

// The same at the end of what the buffer holds.
void TEXT_Append(char* pBuffer, size_t Size, const char* sFormat, ...)
    __attribute__((format(printf, 3, 4)));

// ASCII case is ignored.
bool TEXT_EqualNoCase(const char* sA, const char* sB);

// The whole text as a decimal number. False when it is empty, holds anything but digits, or exceeds
// 32 bits; *pValue is left alone then.
bool TEXT_ParseU32(const char* sText, uint32_t* pValue);

// Whether a text may become a part of a Tcl command as it stands: at least one character, all of
// them letters, digits or one of . _ : / -
bool TEXT_IsPlain(const char* sText);

// Removes blanks, tabs and line ends at both ends of a text; returns where it begins then.
char* TEXT_Trim(char* sText);

// Makes a blank of each control character, so that a text of any origin is one line.
void TEXT_MakeOneLine(char* sText);

// Milliseconds and microseconds of a clock that only moves forward.
int64_t TEXT_NowMs();
int64_t TEXT_NowUs();

#endif
