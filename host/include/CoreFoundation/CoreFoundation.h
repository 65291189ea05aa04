// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <CoreFoundation/CoreFoundation.h>: strings and dictionaries, and of those
// only what the product calls.
//
// The Darwin contract: objects are reference counted. An object from a function with Create in its
// name needs one CFRelease, a constant string none. A dictionary retains what is put into it.
// Left out: allocators (only kCFAllocatorDefault), encodings other than UTF-8, keys that are not
// strings.

#ifndef HOST_COREFOUNDATION_H
#define HOST_COREFOUNDATION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef long          CFIndex;
typedef uint32_t      CFStringEncoding;

typedef const void*                  CFTypeRef;
typedef const struct __CFAllocator*  CFAllocatorRef;
typedef const struct __CFString*     CFStringRef;
typedef struct __CFDictionary*       CFMutableDictionaryRef;
typedef const struct __CFDictionary* CFDictionaryRef;

#define kCFAllocatorDefault   ((CFAllocatorRef)0)
#define kCFStringEncodingUTF8 ((CFStringEncoding)0x08000100)

// The beginning of every object. Count is 0 for a constant, which is never freed.
struct HOST_CF_OBJECT {
  uint32_t Count;
  void (*pfFree)(void* pObject);
};

struct __CFString {
  struct HOST_CF_OBJECT Object;
  const char*           sText;
};

// A constant string from a literal.
#define CFSTR(sLiteral)                                              \
  ([]() -> CFStringRef {                                             \
    static const struct __CFString Constant = {{0, 0}, sLiteral ""}; \
    return &Constant;                                                \
  }())

// pObject must not be NULL.
void CFRelease(CFTypeRef pObject);

// Copies the text and its terminator. Returns 0 when it does not fit into BufferSize bytes; the
// buffer's contents are then undefined.
Boolean CFStringGetCString(CFStringRef pString, char* pBuffer, CFIndex BufferSize,
                           CFStringEncoding Encoding);

// Sets the value of pKey to pValue. Both are retained.
void CFDictionarySetValue(CFMutableDictionaryRef pDict, const void* pKey, const void* pValue);

#ifdef __cplusplus
}
#endif

#endif
