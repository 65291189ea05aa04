// SPDX-License-Identifier: MIT

// Sets a few values in the registry store, reads them back, and lists the key's values.
//
// The values go to "Library/Application Support/OSTREL" below HOME and stay there; a second run
// finds and overwrites them.

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "sys/registry.h"

static int SetSomeValues(RegistryKeyHandle* hKey) {
  const uint32_t    Speed    = 4000;
  const uint64_t    SerialNo = 0x123456789ABC;
  static const char Recent[] = "board.txt\0bench.txt\0";  // ends with an empty string

  return SYS_REG_SetValue(hKey, "Device", SYS_REG_TYPE_SZ, "STM32L0xxxx", 0) == SYS_REG_OK &&
         SYS_REG_SetValue(hKey, "Speed", SYS_REG_TYPE_DWORD, &Speed, sizeof(Speed)) == SYS_REG_OK &&
         SYS_REG_SetValue(hKey, "SerialNo", SYS_REG_TYPE_QWORD, &SerialNo, sizeof(SerialNo)) ==
             SYS_REG_OK &&
         SYS_REG_SetValue(hKey, "Recent", SYS_REG_TYPE_MULTI_SZ, Recent, sizeof(Recent)) ==
             SYS_REG_OK;
}

static void QuerySomeValues(RegistryKeyHandle* hKey) {
  uint32_t Speed;
  uint64_t SerialNo;
  char     acDevice[64];
  char     acRecent[256];
  uint32_t Type;
  uint32_t Size;

  Size = sizeof(acDevice);
  if (SYS_REG_QueryValue(hKey, "Device", &Type, acDevice, &Size) == SYS_REG_OK) {
    printf("Device: %s (%" PRIu32 " characters)\n", acDevice, Size);
  }
  Size = sizeof(Speed);
  if (SYS_REG_QueryValue(hKey, "Speed", &Type, &Speed, &Size) == SYS_REG_OK) {
    printf("Speed: %" PRIu32 " kHz\n", Speed);
  }
  Size = sizeof(SerialNo);
  if (SYS_REG_QueryValue(hKey, "SerialNo", &Type, &SerialNo, &Size) == SYS_REG_OK) {
    printf("SerialNo: %" PRIX64 "\n", SerialNo);
  }
  Size = sizeof(acRecent);
  if (SYS_REG_QueryValue(hKey, "Recent", &Type, acRecent, &Size) == SYS_REG_OK) {
    for (const char* s = acRecent; *s != 0; s += strlen(s) + 1) {
      printf("Recent: %s\n", s);
    }
  }
  if (SYS_REG_QueryValue(hKey, "Missing", &Type, NULL, NULL) == SYS_REG_NOT_FOUND) {
    printf("Missing: no such value\n");
  }
}

// The store has no function for this. An open key is an element of a document, and a value is an
// attribute with a companion that holds its type.
static void ListValues(const RegistryKeyHandle* hKey) {
  static const char Suffix[] = "_OSTRELRegType";
  char              acTypeName[256];

  for (const XmlAttribute* pAttr = SYS_XML_GetFirstAttr(hKey->pElement, NULL, 0); pAttr != NULL;
       pAttr                     = SYS_XML_GetNextAttr(pAttr)) {
    snprintf(acTypeName, sizeof(acTypeName), "%s%s", pAttr->sName, Suffix);
    const XmlAttribute* pType = SYS_XML_FindAttr(hKey->pElement, acTypeName);
    if (pType != NULL) {
      printf("%-22s %-10s %s\n", pType->sValue, pAttr->sName, pAttr->sValue);
    }
  }
}

int main(void) {
  RegistryKeyHandle* hKey = SYS_REG_OpenKey(HKEY_CURRENT_USER, "Software\\Registry Example");
  if (hKey == NULL || !SetSomeValues(hKey)) {
    fprintf(stderr, "The registry store cannot be used; is HOME set?\n");
    SYS_REG_CloseKey(hKey);
    return 1;
  }
  QuerySomeValues(hKey);
  ListValues(hKey);
  SYS_REG_CloseKey(hKey);
  SYS_REG_Flush();
  return 0;
}
