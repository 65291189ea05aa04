// SPDX-License-Identifier: MIT

#include "util/identity.h"

#include <string.h>

#include "util/arith.h"
#include "util/format.h"

// What a build says of its maker unless it is configured otherwise.
#ifndef QUOBE_IDENTITY_YEAR
#define QUOBE_IDENTITY_YEAR "2026"
#endif
#ifndef QUOBE_IDENTITY_COMPANY
#define QUOBE_IDENTITY_COMPANY "OSTREL"
#endif
#ifndef QUOBE_IDENTITY_URL
#define QUOBE_IDENTITY_URL "https://www.ostrel.example"
#endif

static const uint32_t SIZE_FIELD  = 4;
static const uint32_t MAX_PAYLOAD = 0x1000;

// A system by the number that stands for it in the interface.
struct OS_ROW {
  uint32_t    Id;
  const char* sName;
};

static const OS_ROW aOS[] = {
    {0x1000, "Windows"},      {0x1001, "Windows 2000"},  {0x1002, "Windows XP"},
    {0x1003, "Windows XP64"}, {0x1004, "Windows Vista"}, {0x1005, "Windows 7"},
    {0x1006, "Windows 8"},    {0x1007, "Windows 8.1"},   {0x1008, "Windows 10"},
    {0x2000, "Linux"},        {0x3000, "macOS"},
};

// The number of bytes after the size field. A size below 4, that of the field itself, wraps to a
// huge number.
static uint32_t PayloadSize(const void* pStruct) {
  uint32_t Size;
  memcpy(&Size, pStruct, sizeof(Size));  // the structure may be unaligned
  return Size - SIZE_FIELD;
}

void UTIL_CopyAPIStruct(void* pDest, const void* pSource, const char* sName) {
  const uint32_t DestSize = PayloadSize(pDest);
  // The source's size is not checked: no more is read than the destination has room for.
  if (DestSize > MAX_PAYLOAD || DestSize % 4 != 0) {
    // For a debugger: nothing here can report an error to the caller.
    char acError[256];
    UTIL_snprintf(acError, sizeof(acError),
                  "UTIL_CopyAPIStruct(): Illegal size of struct %s: %d bytes.", sName, DestSize);
    return;
  }
  const uint32_t SourceSize = PayloadSize(pSource);
  const uint32_t NumBytes   = UTIL_MinU32(SourceSize, DestSize);
  uint8_t*       pPayload   = (uint8_t*)pDest + SIZE_FIELD;
  memcpy(pPayload, (const uint8_t*)pSource + SIZE_FIELD, NumBytes);
  memset(pPayload + NumBytes, 0, DestSize - NumBytes);  // fields that the source does not know
}

const char* UTIL_GetOSName(uint32_t Id) {
  for (const OS_ROW& Row : aOS) {
    if (Row.Id == Id) {
      return Row.sName;
    }
  }
  return "Unknown";
}

const char* UTIL_GetYear() {
  return QUOBE_IDENTITY_YEAR;
}

const char* UTIL_GetCompanyName() {
  return QUOBE_IDENTITY_COMPANY;
}

const char* UTIL_GetCompanyURL() {
  return QUOBE_IDENTITY_URL;
}
