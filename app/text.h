// app/text.h
// SPDX-License-Identifier: MIT
//
// How the tool reads what a user typed, in an argument or at the menu.

#ifndef APP_TEXT_H
#define APP_TEXT_H

#include <stdint.h>

// Non-zero when the two texts are equal but for the case of 'A' to 'Z'. No locale: bytes from 0x80
// on must be the same in both.
int CompareNoCase(const char* a, const char* b);

// Reads an unsigned decimal number. Leading TAB, LF, CR and SPACE are skipped. The digits end at
// the first other character, and the rest is ignored. The value wraps at 32 bits.
//
// 0: *pValue is set. -1: no digit where the number should start; *pValue is unchanged.
int32_t ParseDec(const char* sText, uint32_t* pValue);

#endif
