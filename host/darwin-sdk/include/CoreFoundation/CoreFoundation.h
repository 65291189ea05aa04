// SPDX-License-Identifier: MIT

// Declarations of CoreFoundation, for cross building: only what the product calls.

#ifndef COREFOUNDATION_COREFOUNDATION_H
#define COREFOUNDATION_COREFOUNDATION_H

#include <MacTypes.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const void*                  CFTypeRef;
typedef const struct __CFAllocator*  CFAllocatorRef;
typedef const struct __CFString*     CFStringRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary*       CFMutableDictionaryRef;
typedef signed long                  CFIndex;
typedef uint32_t                     CFStringEncoding;

#define kCFStringEncodingUTF8 ((CFStringEncoding)0x08000100)

extern const CFAllocatorRef kCFAllocatorDefault;

#define CFSTR(sText) ((CFStringRef)__builtin___CFStringMakeConstantString("" sText ""))

void    CFRelease(CFTypeRef Object);
Boolean CFStringGetCString(CFStringRef String, char* pBuffer, CFIndex BufferSize,
                           CFStringEncoding Encoding);
void CFDictionarySetValue(CFMutableDictionaryRef Dictionary, const void* pKey, const void* pValue);

#ifdef __cplusplus
}
#endif

#endif
