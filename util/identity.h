// util/identity.h
//
// Structures that cross the probe's interface, and texts that say who made this and where it runs.
//
// Such a structure begins with its own size: unsigned 32 bit, in bytes, itself included. A caller
// built against an older or newer layout can so still exchange it. All texts are constant. No
// allocation, no state; any thread may call these.

#ifndef UTIL_IDENTITY_H
#define UTIL_IDENTITY_H

#include <stdint.h>

// Copies the payload of one structure to another one that may have a different size: the bytes that
// both have; the rest of a larger destination is filled with zeros. The destination's size field
// stays as it is.
//
// Nothing is copied, and nobody is told, when the destination's size field is below 4, above 4100
// or not a multiple of 4. A source size below 4 counts as a payload without end, so that the source
// must then hold as many bytes as the destination. pDest, pSource and sName, the structure's name,
// must not be NULL. The two must not overlap; they need no alignment.
void UTIL_CopyAPIStruct(void* pDest, const void* pSource, const char* sName);

// The name of an operating system: 0x1000 to 0x1008 for the versions of Windows, 0x2000 for Linux,
// 0x3000 for macOS; "Unknown" for every other id.
const char* UTIL_GetOSName(uint32_t Id);

// Set by the build: QUOBE_IDENTITY_YEAR, QUOBE_IDENTITY_COMPANY and QUOBE_IDENTITY_URL.
const char* UTIL_GetYear();  // four digits
const char* UTIL_GetCompanyName();
const char* UTIL_GetCompanyURL();

#endif
