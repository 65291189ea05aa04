// util/value_text.h
// SPDX-License-Identifier: MIT
//
// Texts for values that people read: sizes, durations, addresses, floats and dumps of memory.
//
// A buffer size includes the terminator. A text that does not fit is cut and terminated; nothing is
// written beyond the buffer. Pointers must not be NULL unless stated otherwise. No allocation, no
// state; any thread may call these. A fraction is printed by the C library's snprintf, so its
// decimal point is that of the process's locale.

#ifndef UTIL_VALUE_TEXT_H
#define UTIL_VALUE_TEXT_H

#include <stdint.h>

// One region of a memory: NumBlocks blocks of BlockSize bytes. NumBlocks 0 ends a list of regions.
struct MEMORY_REGION {
  uint32_t NumBlocks;
  uint32_t BlockSize;
  uint32_t Extra;  // for the list's owner; not part of a total
};

// Formats a size in bytes, never rounded: "0 Bytes", "1 Byte", "1.5 KB", "2 KB", "1025 MB", "3 GB".
//
// The unit (1024 bytes, its square or its cube) is the largest in which the size is whole or, for
// positive sizes, a whole number of halves; else bytes. Negative sizes: "-2 KB", "-1536 Bytes". Of
// a whole number with more than 32 bits the low 32 are shown. A half number above 2^52 has the
// digits that a double holds. The 's' of "Bytes" is left out when it does not fit. Nothing is
// written when BufferSize is 0.
void UTIL_FormatSize(int64_t Size, char* pBuffer, uint32_t BufferSize);

// Formats the sizes of several memories, as in "64 KB + 1.5 MB".
//
// There is one text for each of the NumLists lists of regions; a NULL list counts as 0 bytes.
// Without lists the text is "-". Returns the sum of all lists in 32 bits. The result is 0 when
// there are no lists, and also for a BufferSize of 1, which gives the empty text, and of 0, which
// leaves pBuffer unchanged.
uint32_t UTIL_FormatSizeList(const MEMORY_REGION* const* papList, uint32_t NumLists, char* pBuffer,
                             uint32_t BufferSize);

// The next three return the address of the terminator. They store it even for a BufferSize of 0, so
// pBuffer must hold at least one byte.

// Formats a duration in microseconds, as in "1:02:03.004 005".
//
// These are hours, minutes, seconds, milliseconds, a blank and microseconds. Hours of 0 are left
// out, and then minutes of 0. Hours wrap in 32 bits and are shown as signed.
char* UTIL_FormatTime(uint64_t Microseconds, char* pBuffer, uint32_t BufferSize);

// Formats an IPv4 address, as in "192.168.1.2"; the low byte of Addr comes first.
//
// That text is 0x0201A8C0 here. An address of sys/sockets.h has the first number in the high byte
// (0xC0A80102): swap its bytes (UTIL_SwapU32) first, or "2.1.168.192" is the text.
char* UTIL_FormatIPAddr(uint32_t Addr, char* pBuffer, uint32_t BufferSize);

// Formats a MAC address of 6 bytes with a separator, as in "00:1A:2B:3C:4D:5E".
char* UTIL_FormatMACAddr(const uint8_t* pAddr, char Separator, char* pBuffer, uint32_t BufferSize);

// Formats the bits of an IEEE-754 single with up to six significant digits, as in "3.14159".
//
// Other texts: "1", "-0.5", "1.4013E-45", "0.0", "-0.0", "Infinite", "-Infinite", "NaNq" (quiet)
// and "NaNs" (signalling). The text is the same on every machine. Always returns 0. Nothing is
// written when BufferSize is 0.
int32_t UTIL_FormatFloatBits(char* pBuffer, uint32_t BufferSize, uint32_t Bits);

// Dumps bytes as hexadecimal digits in lines, as in "00 1A FF ".
//
// Each byte gives two digits and a blank. A line has BytesPerLine bytes; 0 puts all into one line.
// A full line, the last one too, ends in CR LF; a partial last line ends in its blank. With
// ShowAddr not 0 each line begins with the low 32 bits of its address, as in "0x20000000: ".
//
// Output stops before the first address, byte or line end that does not fit as a whole. The text is
// terminated if there is room for it. Returns the characters written, the terminator included if it
// was. When NumBytes is 0 nothing is written and the result is 0. pBuffer may be NULL when
// BufferSize is 0.
uint32_t UTIL_HexDump(char* pBuffer, uint32_t BufferSize, const void* pData, uint32_t NumBytes,
                      int32_t ShowAddr, uint64_t Addr, uint32_t BytesPerLine);

#endif
