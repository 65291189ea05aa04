// SPDX-License-Identifier: MIT

#include <IOKit/IOKitLib.h>
#include <IOKit/serial/IOSerialKeys.h>
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "host/core_foundation.h"

enum { MAX_OBJECTS = 16, MAX_LIST = 8192 };

// An iterator or a service; the handle is the slot's index plus 1. An iterator's text is the list
// of remaining paths, each followed by ':'; a service's text is its path.
struct IO_OBJECT {
  char*       sText;  // NULL: the slot is free
  const char* sNext;  // iterator: the rest of the list
};

const mach_port_t kIOMasterPortDefault = 0;

static IO_OBJECT aObjects[MAX_OBJECTS];

static io_object_t NewObject(const char* sText, size_t Length) {
  for (uint32_t i = 0; i < MAX_OBJECTS; i++) {
    if (aObjects[i].sText == nullptr) {
      aObjects[i].sText = strndup(sText, Length);
      aObjects[i].sNext = aObjects[i].sText;
      return i + 1;
    }
  }
  return IO_OBJECT_NULL;
}

static IO_OBJECT* GetObject(io_object_t hObject) {
  const bool IsObject =
      hObject >= 1 && hObject <= MAX_OBJECTS && aObjects[hObject - 1].sText != nullptr;
  return IsObject ? &aObjects[hObject - 1] : nullptr;
}

// A tty is a USB serial device when its device is on a bus "usb" or "usb-serial".
static bool IsUsb(const char* sTty) {
  char acLink[512];
  char acTarget[512];
  snprintf(acLink, sizeof(acLink), "/sys/class/tty/%s/device/subsystem", sTty);
  const ssize_t Length = readlink(acLink, acTarget, sizeof(acTarget) - 1);
  if (Length <= 0) {
    return false;
  }
  acTarget[Length] = 0;
  return strstr(acTarget, "/usb") != nullptr;
}

static void ListMachine(char* pList) {
  DIR* pDir = opendir("/sys/class/tty");
  if (pDir == nullptr) {
    return;
  }
  size_t Length = 0;
  for (const dirent* p = readdir(pDir); p != nullptr; p = readdir(pDir)) {
    if (p->d_name[0] != '.' && IsUsb(p->d_name) && Length + 64 < MAX_LIST) {
      Length += (size_t)snprintf(pList + Length, 64, "/dev/cu.usb-%.32s:", p->d_name);
    }
  }
  closedir(pDir);
}

CFMutableDictionaryRef IOServiceMatching(const char* sName) {
  CFMutableDictionaryRef pDict  = HOST_CF_CreateDictionary();
  CFStringRef            pClass = HOST_CF_CreateString(sName);
  CFDictionarySetValue(pDict, CFSTR("IOProviderClass"), pClass);
  CFRelease(pClass);
  return pDict;
}

static bool Matches(CFDictionaryRef pMatching, const char* sKey, const char* sWanted) {
  const char* sValue = HOST_CF_GetText(pMatching, sKey);
  return sValue != nullptr && strcmp(sValue, sWanted) == 0;
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef pMatching,
                                           io_iterator_t* phIterator) {
  char        acList[MAX_LIST] = "";
  const char* sConfigured      = getenv("HOST_CALLOUT_DEVICES");
  if (!Matches(pMatching, "IOProviderClass", kIOSerialBSDServiceValue) ||
      !Matches(pMatching, kIOSerialBSDTypeKey, kIOSerialBSDAllTypes)) {
    // services of other classes do not exist here
  } else if (sConfigured == nullptr) {
    ListMachine(acList);
  } else if (sConfigured[0] != 0) {
    snprintf(acList, sizeof(acList), "%s:", sConfigured);
  }
  CFRelease(pMatching);
  *phIterator = acList[0] != 0 ? NewObject(acList, strlen(acList)) : IO_OBJECT_NULL;
  return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t hIterator) {
  IO_OBJECT*  pIterator = GetObject(hIterator);
  const char* sEnd      = pIterator != nullptr ? strchr(pIterator->sNext, ':') : nullptr;
  if (sEnd == nullptr) {
    return IO_OBJECT_NULL;
  }
  const char* sPath = pIterator->sNext;
  pIterator->sNext  = sEnd + 1;
  return NewObject(sPath, (size_t)(sEnd - sPath));
}

kern_return_t IOObjectRelease(io_object_t hObject) {
  IO_OBJECT* pObject = GetObject(hObject);
  if (pObject == nullptr) {
    return KERN_INVALID_ARGUMENT;
  }
  free(pObject->sText);
  pObject->sText = nullptr;
  return KERN_SUCCESS;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t hEntry, CFStringRef pKey,
                                          CFAllocatorRef, IOOptionBits) {
  const IO_OBJECT* pService = GetObject(hEntry);
  char             acKey[sizeof(kIOCalloutDeviceKey)];
  if (pService == nullptr || pService->sText[0] == 0 ||
      !CFStringGetCString(pKey, acKey, sizeof(acKey), kCFStringEncodingUTF8) ||
      strcmp(acKey, kIOCalloutDeviceKey) != 0) {
    return nullptr;
  }
  return HOST_CF_CreateString(pService->sText);
}
