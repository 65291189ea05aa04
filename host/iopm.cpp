// SPDX-License-Identifier: MIT

#include <IOKit/pwr_mgt/IOPMLib.h>

static uint32_t InForce;  // bit n: assertion n + 1
static uint32_t NumCreated;

IOReturn IOPMAssertionCreate(CFStringRef pType, IOPMAssertionLevel Level, IOPMAssertionID* pId) {
  if (pType == nullptr || Level != kIOPMAssertionLevelOn || NumCreated == 32) {
    return kIOReturnBadArgument;
  }
  InForce |= 1u << NumCreated;
  *pId = ++NumCreated;
  return kIOReturnSuccess;
}

IOReturn IOPMAssertionRelease(IOPMAssertionID Id) {
  if (Id < 1 || Id > NumCreated || (InForce & (1u << (Id - 1))) == 0) {
    return kIOReturnBadArgument;
  }
  InForce &= ~(1u << (Id - 1));
  return kIOReturnSuccess;
}
