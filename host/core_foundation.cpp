// SPDX-License-Identifier: MIT

#include "host/core_foundation.h"

#include <stdlib.h>
#include <string.h>

enum { MAX_ENTRIES = 8 };  // more entries than a matching dictionary of the product has

struct __CFDictionary {
  HOST_CF_OBJECT Object;
  uint32_t       NumEntries;
  CFStringRef    apKeys[MAX_ENTRIES];
  CFStringRef    apValues[MAX_ENTRIES];
};

static CFTypeRef Retain(CFTypeRef pObject) {
  HOST_CF_OBJECT* p = (HOST_CF_OBJECT*)pObject;
  if (p->Count != 0) {
    p->Count++;
  }
  return pObject;
}

static void FreeString(void* pObject) {
  __CFString* pString = (__CFString*)pObject;
  free((void*)pString->sText);
  free(pString);
}

static void FreeDictionary(void* pObject) {
  __CFDictionary* pDict = (__CFDictionary*)pObject;
  for (uint32_t i = 0; i < pDict->NumEntries; i++) {
    CFRelease(pDict->apKeys[i]);
    CFRelease(pDict->apValues[i]);
  }
  free(pDict);
}

CFStringRef HOST_CF_CreateString(const char* sText) {
  __CFString* pString    = (__CFString*)malloc(sizeof(__CFString));
  pString->Object.Count  = 1;
  pString->Object.pfFree = FreeString;
  pString->sText         = strdup(sText);
  return pString;
}

CFMutableDictionaryRef HOST_CF_CreateDictionary(void) {
  __CFDictionary* pDict = (__CFDictionary*)calloc(1, sizeof(__CFDictionary));
  pDict->Object.Count   = 1;
  pDict->Object.pfFree  = FreeDictionary;
  return pDict;
}

// Returns the index of sKey, or the number of entries if it is missing.
static uint32_t FindKey(CFDictionaryRef pDict, const char* sKey) {
  uint32_t i = 0;
  while (i < pDict->NumEntries && strcmp(pDict->apKeys[i]->sText, sKey) != 0) {
    i++;
  }
  return i;
}

const char* HOST_CF_GetText(CFDictionaryRef pDict, const char* sKey) {
  const uint32_t i = FindKey(pDict, sKey);
  return i < pDict->NumEntries ? pDict->apValues[i]->sText : nullptr;
}

void CFRelease(CFTypeRef pObject) {
  HOST_CF_OBJECT* p = (HOST_CF_OBJECT*)pObject;
  if (p->Count != 0 && --p->Count == 0) {
    p->pfFree(p);
  }
}

Boolean CFStringGetCString(CFStringRef pString, char* pBuffer, CFIndex BufferSize,
                           CFStringEncoding Encoding) {
  const size_t Size = strlen(pString->sText) + 1;
  if (Encoding != kCFStringEncodingUTF8 || BufferSize < (CFIndex)Size) {
    return 0;
  }
  memcpy(pBuffer, pString->sText, Size);
  return 1;
}

void CFDictionarySetValue(CFMutableDictionaryRef pDict, const void* pKey, const void* pValue) {
  const uint32_t i = FindKey(pDict, ((CFStringRef)pKey)->sText);
  if (i == MAX_ENTRIES) {
    abort();
  }
  if (i < pDict->NumEntries) {
    CFRelease(pDict->apValues[i]);
  } else {
    pDict->apKeys[i] = (CFStringRef)Retain(pKey);
    pDict->NumEntries++;
  }
  pDict->apValues[i] = (CFStringRef)Retain(pValue);
}
