// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <IOKit/pwr_mgt/IOPMLib.h>: only what the product calls.

#ifndef HOST_IOKIT_IOPMLIB_H
#define HOST_IOKIT_IOPMLIB_H

#include <IOKit/IOKitLib.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int      IOReturn;
typedef uint32_t IOPMAssertionID;
typedef uint32_t IOPMAssertionLevel;

#define kIOReturnSuccess              0
#define kIOReturnBadArgument          ((IOReturn)0xE00002C2)
#define kIOPMAssertionTypeNoIdleSleep CFSTR("NoIdleSleepAssertion")
#define kIOPMAssertionLevelOn         255

// Until IOPMAssertionRelease the machine does not fall asleep while nobody uses it. *pId gets the
// number to release. Both return kIOReturnSuccess or a reason; releasing a number twice is
// kIOReturnBadArgument.
// Left out: the sleep itself. The stand-in hands out numbers and records which are in force: one
// thread, at most 32 numbers in a process.
IOReturn IOPMAssertionCreate(CFStringRef pType, IOPMAssertionLevel Level, IOPMAssertionID* pId);
IOReturn IOPMAssertionRelease(IOPMAssertionID Id);

#ifdef __cplusplus
}
#endif

#endif
