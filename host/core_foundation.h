// SPDX-License-Identifier: MIT

// The part of the stand-in's CoreFoundation that is for its IOKit only.

#ifndef HOST_CORE_FOUNDATION_H
#define HOST_CORE_FOUNDATION_H

#include <CoreFoundation/CoreFoundation.h>

// A string with a copy of the text, to be released.
CFStringRef HOST_CF_CreateString(const char* sText);

// An empty dictionary, to be released.
CFMutableDictionaryRef HOST_CF_CreateDictionary(void);

// Returns the text of the string at sKey, or NULL if there is none.
const char* HOST_CF_GetText(CFDictionaryRef pDict, const char* sKey);

#endif
