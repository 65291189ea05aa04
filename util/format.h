// util/format.h
//
// The formatting engine: text into a caller's buffer, never beyond it.
//
// It knows integers, characters, strings and pointers, and nothing with floating point. It is not
// printf: the differences below are intended and callers rely on them. No allocation, no locale,
// no static state; any thread may call it.
//
// Format:   %  [digits: width]  [. [digits]: precision]  [l...]  conversion
//
//   d i      signed: '-' first, then the fill, then the digits; the '-' is not counted in the width
//   u        unsigned decimal
//   x X      unsigned hexadecimal, lower or upper case, no prefix
//   p        low 32 bits of a pointer as 'x' in a field of 8; the width given is ignored
//   c        one character; width and precision ignored
//   s        zero-terminated text, whole; width and precision ignored; must not be NULL
//   %%       one '%'
//
// - The fill is always spaces: a leading '0' of the width is only a digit ("%08X" of 0x1A gives six
//   spaces and 1A). Leading zeros come from the precision ("%.4x" of 0x1F gives 001f); a precision
//   of 0 or 1 changes nothing, and zero prints as "0".
// - No or one 'l' takes a 32-bit argument (of a long its low 32 bits), two or more a 64-bit one.
// - Any other conversion, flag or modifier ('-', '+', '#', '*', 'h', 'z', 'f', ...) is dropped
//   without output and without taking an argument; the text goes on behind it ("%-5d" gives "5d").
// - A '%' that the end of the format cuts off before its conversion gives nothing.
// - Width and precision saturate at 2147483647; what they ask for beyond the buffer is dropped.

#ifndef UTIL_FORMAT_H
#define UTIL_FORMAT_H

#include <stdarg.h>
#include <stdint.h>

// Formats into pBuffer, cutting the text at BufferSize - 1 characters; arguments of the part that
// is cut are still consumed.
//
// BufferSize: bytes at pBuffer, the terminator counted. The terminator is always stored, even for a
// size of 0 or less (then at pBuffer[0]), so pBuffer must hold at least one byte.
// Returns the address of the terminator: pBuffer plus the number of characters stored.
char* UTIL_vsnprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, va_list Args);

// The same with the arguments in the call.
char* UTIL_snprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, ...);

#endif
