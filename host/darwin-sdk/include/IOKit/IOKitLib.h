// SPDX-License-Identifier: MIT

// Declarations of IOKit, for cross building: only what the product calls.

#ifndef IOKIT_IOKITLIB_H
#define IOKIT_IOKITLIB_H

#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef mach_port_t   io_object_t;
typedef io_object_t   io_iterator_t;
typedef io_object_t   io_service_t;
typedef io_object_t   io_registry_entry_t;
typedef kern_return_t IOReturn;
typedef uint32_t      IOOptionBits;

#define IO_OBJECT_NULL ((io_object_t)0)

extern const mach_port_t kIOMasterPortDefault;

CFMutableDictionaryRef IOServiceMatching(const char* sClass);

// Takes over the reference to Matching.
kern_return_t IOServiceGetMatchingServices(mach_port_t MasterPort, CFDictionaryRef Matching,
                                           io_iterator_t* pIterator);

// Returns 0 after the last one.
io_object_t   IOIteratorNext(io_iterator_t Iterator);
kern_return_t IOObjectRelease(io_object_t Object);

// NULL when there is no such property; else the caller releases the result.
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t Entry, CFStringRef Key,
                                          CFAllocatorRef Allocator, IOOptionBits Options);

#ifdef __cplusplus
}
#endif

#endif
