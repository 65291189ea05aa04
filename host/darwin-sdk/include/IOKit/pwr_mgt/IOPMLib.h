// SPDX-License-Identifier: MIT

// Declarations of IOKit's power management, for cross building: only what the product calls.

#ifndef IOKIT_PWR_MGT_IOPMLIB_H
#define IOKIT_PWR_MGT_IOPMLIB_H

#include <IOKit/IOKitLib.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t IOPMAssertionID;
typedef uint32_t IOPMAssertionLevel;

enum { kIOPMAssertionLevelOff = 0, kIOPMAssertionLevelOn = 255 };

#define kIOPMAssertionTypeNoIdleSleep CFSTR("NoIdleSleepAssertion")

IOReturn IOPMAssertionCreate(CFStringRef Type, IOPMAssertionLevel Level, IOPMAssertionID* pId);
IOReturn IOPMAssertionRelease(IOPMAssertionID Id);

#ifdef __cplusplus
}
#endif

#endif
