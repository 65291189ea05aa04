// util/identity.h
// SPDX-License-Identifier: MIT
//
// Structures that cross the probe's interface, and constant texts about the system and the maker.
//
// Such a structure begins with its own size: unsigned 32 bit, in bytes, the size field included. So
// callers that were built against an older or newer layout can still exchange it. No allocation, no
// state; any thread may call these.

#ifndef UTIL_IDENTITY_H
#define UTIL_IDENTITY_H

#include <stdint.h>

// Copies a structure that begins with its size to one that may have another size.
//
// The bytes after the size field that both structures have are copied; the rest of a larger
// destination is filled with zeros. The destination's size field does not change.
//
// Nothing is copied, and no error is reported, when the destination's size field is below 4, above
// 4100 or not a multiple of 4. A source size below 4 counts as unlimited: the source must then hold
// as many bytes as the destination. pDest, pSource and sName, the structure's name, must not be
// NULL. The structures must not overlap; they need no alignment.
void UTIL_CopyAPIStruct(void* pDest, const void* pSource, const char* sName);

// Returns the name of an operating system.
//
// 0x1000 to 0x1008 are the versions of Windows, 0x2000 is Linux, 0x3000 macOS. The name of any
// other id is "Unknown".
const char* UTIL_GetOSName(uint32_t Id);

// Returns a text set when the build is configured: a year of four digits, the maker's name, the
// maker's web address (QUOBE_IDENTITY_YEAR, QUOBE_IDENTITY_COMPANY and QUOBE_IDENTITY_URL).
const char* UTIL_GetYear();
const char* UTIL_GetCompanyName();
const char* UTIL_GetCompanyURL();

#endif
