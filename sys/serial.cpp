// SPDX-License-Identifier: MIT

#include "sys/serial.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/serial/IOSerialKeys.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "sys/memory.h"
#include "sys/serial_settings.h"
#include "sys/wait_ready.h"
#include "util/format.h"
#include "util/string.h"

struct SYS_SERIAL_PORT {
  int32_t hPort;
};

enum { CALLOUT_PATH_SIZE = 512, DEVICE_PATH_SIZE = 128 };

// A line has two devices on macOS: opening tty.* waits for a carrier, opening cu.*, the call-out
// device, does not.
static const char UsbCalloutPrefix[] = "/dev/cu.usb";

// Stores the path of a service's call-out device. Returns 0 when it has none or the path does not
// fit.
static int GetCalloutPath(io_object_t hService, char* pPath) {
  CFTypeRef pProperty =
      IORegistryEntryCreateCFProperty(hService, CFSTR(kIOCalloutDeviceKey), kCFAllocatorDefault, 0);
  if (pProperty == NULL) {
    return 0;
  }
  const int HasPath =
      CFStringGetCString((CFStringRef)pProperty, pPath, CALLOUT_PATH_SIZE, kCFStringEncodingUTF8);
  CFRelease(pProperty);
  return HasPath;
}

// Stores the names of up to Capacity ports. Returns how many there are, which may be more.
static uint32_t ListUsbPorts(io_iterator_t hIterator, SYS_SERIAL_NAME* paNames, uint32_t Capacity) {
  uint32_t NumFound = 0;
  char     acPath[CALLOUT_PATH_SIZE];
  for (;;) {
    const io_object_t hService = IOIteratorNext(hIterator);
    if (hService == IO_OBJECT_NULL) {
      return NumFound;
    }
    if (GetCalloutPath(hService, acPath) &&
        strncmp(acPath, UsbCalloutPrefix, sizeof(UsbCalloutPrefix) - 1) == 0) {
      printf("Modem at path: %s\n", acPath);  // required also beyond Capacity
      if (NumFound < Capacity) {
        UTIL_CopyString(paNames[NumFound].ac, acPath + strlen("/dev/"), SYS_SERIAL_NAME_SIZE);
      }
      NumFound++;
    }
    IOObjectRelease(hService);
  }
}

// The search finds serial lines of every kind; ListUsbPorts selects by the path.
uint32_t SYS_SERIAL_Enumerate(SYS_SERIAL_NAME* paNames, uint32_t Capacity) {
  // Results other than the dictionary are objects of the kernel: each one received is released.
  CFMutableDictionaryRef pMatching = IOServiceMatching(kIOSerialBSDServiceValue);
  if (pMatching == NULL) {
    return 0;
  }
  CFDictionarySetValue(pMatching, CFSTR(kIOSerialBSDTypeKey), CFSTR(kIOSerialBSDAllTypes));
  io_iterator_t hIterator = IO_OBJECT_NULL;
  const int     HasFailed =  // the call releases pMatching, also when it fails
      IOServiceGetMatchingServices(kIOMasterPortDefault, pMatching, &hIterator) != KERN_SUCCESS;
  if (hIterator == IO_OBJECT_NULL) {
    return 0;
  }
  const uint32_t NumFound = HasFailed ? 0 : ListUsbPorts(hIterator, paNames, Capacity);
  IOObjectRelease(hIterator);
  return NumFound;
}

// Sets the line to raw, 8 data bits, no parity, 1 stop bit. Unsupported settings are ignored.
static void SetUpLine(int32_t hPort) {
  struct termios Line = {};
  tcgetattr(hPort, &Line);  // if it fails, the zeros are changed in its place
  Line.c_iflag     = (Line.c_iflag & ~INPUT_CLEARED) | INPUT_SET;
  Line.c_oflag     = Line.c_oflag & OUTPUT_KEPT;
  Line.c_cflag     = (Line.c_cflag & ~CONTROL_CLEARED) | CONTROL_SET;
  Line.c_lflag     = Line.c_lflag & ~LOCAL_CLEARED;
  Line.c_cc[VMIN]  = 0;
  Line.c_cc[VTIME] = 1;  // tenths of a second: with VMIN 0 a read ends then, with or without data
  tcsetattr(hPort, TCSANOW, &Line);
}

SYS_SERIAL_PORT* SYS_SERIAL_Open(const char* sName, uint32_t BaudRate) {
  char acPath[DEVICE_PATH_SIZE];
  if (strlen(sName) > sizeof(acPath) - sizeof("/dev/")) {
    return NULL;  // cut, the name could be another device's
  }
  UTIL_snprintf(acPath, sizeof(acPath), "/dev/%s", sName);
  // O_NOCTTY: without it a hang-up of the line could end the process.
  const int32_t hPort = open(acPath, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (hPort < 0) {
    return NULL;
  }
  if (!SYS_WAIT_IsSelectable(hPort)) {
    close(hPort);
    return NULL;
  }
  // Exclusive use first, so that no other process can open the port while it is being set up. The
  // speed last: on macOS setting the attributes would reset it.
  ioctl(hPort, TIOCEXCL, NULL);
  SetUpLine(hPort);
  if (SYS_SERIAL_SetSpeed(hPort, BaudRate) != 0) {
    puts("ERROR while writing port settings.");
    close(hPort);
    return NULL;
  }
  tcflush(hPort, TCIOFLUSH);  // what came in at another speed is rubbish
  SYS_SERIAL_PORT* pPort = (SYS_SERIAL_PORT*)SYS_MEM_Alloc(sizeof(SYS_SERIAL_PORT));
  if (pPort == NULL) {
    close(hPort);
    return NULL;
  }
  pPort->hPort = hPort;
  return pPort;
}

// This request takes any rate. The terminal attributes are made for the traditional ones.
int32_t SYS_SERIAL_SetSpeed(int32_t hPort, uint32_t BaudRate) {
  return ioctl(hPort, SPEED_REQUEST, &BaudRate);
}

int32_t SYS_SERIAL_GetDescriptor(const SYS_SERIAL_PORT* pPort) {
  return pPort->hPort;
}

int32_t SYS_SERIAL_Read(SYS_SERIAL_PORT* pPort, void* pBuffer, uint32_t NumBytes,
                        uint32_t Timeout) {
  // The wait is done here: a read alone ends after a tenth of a second (VTIME) whatever Timeout is.
  const int32_t NumReady = SYS_WAIT_Readable(pPort->hPort, SYS_WAIT_SplitMs(Timeout));
  if (NumReady < 1) {  // 0: the time is over; -1: an error
    return NumReady;
  }
  return (int32_t)read(pPort->hPort, pBuffer, NumBytes);
}

int32_t SYS_SERIAL_Write(SYS_SERIAL_PORT* pPort, const void* pData, uint32_t NumBytes) {
  return (int32_t)write(pPort->hPort, pData, NumBytes);
}

void SYS_SERIAL_Close(SYS_SERIAL_PORT* pPort) {
  close(pPort->hPort);
  SYS_MEM_Free(pPort);
}
