// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <IOKit/IOKitLib.h>: the search for serial lines, and only what the product
// calls of it.
//
// The services are serial lines with one property, the path of the call-out device. They come from
//  - the environment variable HOST_CALLOUT_DEVICES, when it is set: paths with a ':' between two;
//    an empty path is a service without the property;
//  - else the machine's USB serial devices, ttyX of which is given as "/dev/cu.usb-ttyX". The
//    device node of that name is made by a udev rule:
//      SUBSYSTEM=="tty", SUBSYSTEMS=="usb", SYMLINK+="cu.usb-%k"
// Left out: every other class of services, other properties, notifications, more than 15 services
// held at a time, threads.

#ifndef HOST_IOKIT_IOKITLIB_H
#define HOST_IOKIT_IOKITLIB_H

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int          kern_return_t;
typedef unsigned int mach_port_t;
typedef mach_port_t  io_object_t;
typedef io_object_t  io_iterator_t;
typedef io_object_t  io_service_t;
typedef io_object_t  io_registry_entry_t;
typedef uint32_t     IOOptionBits;

#define KERN_SUCCESS          0
#define KERN_INVALID_ARGUMENT 4
#define IO_OBJECT_NULL        ((io_object_t)0)

extern const mach_port_t kIOMasterPortDefault;

// A dictionary that matches services of the class sName. To be released, or given to
// IOServiceGetMatchingServices, which does that.
CFMutableDictionaryRef IOServiceMatching(const char* sName);

// Looks up the services that match and consumes one reference of pMatching, also when it fails.
// *phIterator gets an iterator, to be released, or IO_OBJECT_NULL when nothing matches.
kern_return_t IOServiceGetMatchingServices(mach_port_t hMasterPort, CFDictionaryRef pMatching,
                                           io_iterator_t* phIterator);

// The next service, to be released; IO_OBJECT_NULL at the end.
io_object_t IOIteratorNext(io_iterator_t hIterator);

// Releases one reference. Returns KERN_INVALID_ARGUMENT for anything that is not an object.
kern_return_t IOObjectRelease(io_object_t hObject);

// A copy of the property, to be released; NULL when the service has no such property.
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t hEntry, CFStringRef pKey,
                                          CFAllocatorRef pAllocator, IOOptionBits Options);

#ifdef __cplusplus
}
#endif

#endif
