// util/format.h
// SPDX-License-Identifier: MIT
//
// The formatting engine: text into a caller's buffer, never beyond it.
//
// It formats integers, characters, strings and pointers; it has no floating point. It differs from
// printf as listed below, and callers rely on each difference. No allocation, no locale, no state;
// any thread may call it.
//
// Format:   %  [digits: width]  [. [digits]: precision]  [l...]  conversion
//
//   d i      signed: '-' first, then the fill, then the digits; the '-' does not count in the width
//   u        unsigned decimal
//   x X      unsigned hexadecimal, lower or upper case, without a prefix
//   p        the low 32 bits of a pointer as 'x' in a field of 8; the width is ignored
//   c        one character; width and precision are ignored
//   s        zero-terminated text, whole; width and precision are ignored; must not be NULL
//   %%       one '%'
//
// - The fill is always spaces. A leading '0' of the width is only a digit: "%08X" of 0x1A gives six
//   spaces and 1A. Leading zeros come from the precision: "%.4x" of 0x1F gives 001f. A precision of
//   0 or 1 changes nothing, and zero prints as "0".
// - Without 'l' or with one the argument has 32 bits (of a long its low 32 bits), with two or more
// 64
//   bits.
// - Any other conversion, flag or modifier ('-', '+', '#', '*', 'h', 'z', 'f', ...) is dropped: it
//   gives no output and takes no argument, and the text after it goes on ("%-5d" gives "5d").
// - A '%' whose conversion is cut off by the end of the format gives nothing.
// - Width and precision saturate at 2147483647. What does not fit in the buffer is dropped.

#ifndef UTIL_FORMAT_H
#define UTIL_FORMAT_H

#include <stdarg.h>
#include <stdint.h>

// Formats a text with an argument list, cut at BufferSize - 1 characters.
//
// BufferSize is the number of bytes at pBuffer, the terminator included. The terminator is always
// stored, for a size of 0 or less at pBuffer[0], so pBuffer must hold at least one byte. Bytes
// after the terminator stay as they are. Arguments of the part that is cut off are still consumed.
// Returns the address of the terminator: pBuffer plus the number of characters stored.
char* UTIL_vsnprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, va_list Args);

// Formats a text with the arguments in the call; otherwise UTIL_vsnprintf.
char* UTIL_snprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, ...);

#endif
