// util/string.h
//
// Bounded operations on zero-terminated 8-bit texts.
//
// A buffer size always counts the terminator. No allocation, no locale, no state; any thread may
// call these on buffers of its own.

#ifndef UTIL_STRING_H
#define UTIL_STRING_H

#include <stdint.h>

// Copies at most BufferSize - 1 characters of sSource to pDest and terminates.
// Does nothing when either pointer is NULL or BufferSize is 0. The two must not overlap.
void UTIL_CopyString(char* pDest, const char* sSource, uint32_t BufferSize);

#endif
