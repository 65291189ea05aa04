// SPDX-License-Identifier: MIT

#include "sys/registry_store.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sys/files.h"
#include "sys/memory.h"
#include "sys/path.h"
#include "util/scan.h"
#include "util/string.h"

namespace {

struct RegistryRootSlot {
  XmlDocument* pDoc;         // NULL while not loaded
  char*        pSnapshot;    // the text right after loading, not terminated; NULL without one
  uint32_t     SnapshotLen;  // in bytes
};

}  // namespace

static const uintptr_t FIRST_ROOT = 0x80000000;
static const uintptr_t LAST_ROOT  = 0x80000006;
static const uint32_t  NUM_SLOTS  = 3;

static RegistryRootSlot  aSlot[NUM_SLOTS];
static const char* const asFileName[NUM_SLOTS] = {
    "OSTREL_REG_HKEY_CLASSES_ROOT.xml",
    "OSTREL_REG_HKEY_CURRENT_USER.xml",
    "OSTREL_REG_HKEY_LOCAL_MACHINE.xml",
};

// The HOME below which the directory was last found or made. While it is the same, an operation on
// a loaded root need not look for the directory again; a flush does.
static char acKnownHome[SYS_PATH_SIZE];

static const char EmptyStore[] = "<Registry>\r\n</Registry>";

// Another process may hold a file for a moment.
static const uint32_t OPEN_RETRIES  = 3;
static const uint32_t OPEN_DELAY_MS = 5;

// Stores the path of a root's file (Slot: 0 to NUM_SLOTS - 1) in a buffer of SYS_PATH_SIZE bytes.
// The directory is made when it is missing. 0, or -1 when that fails or the path does not fit.
static int32_t BuildFilePath(uint32_t Slot, char* pPath) {
  if (SYS_PATH_GetAppSupportDir(pPath, SYS_PATH_SIZE) != 0) {
    return -1;
  }
  UTIL_AddTrailingSlash(pPath, SYS_PATH_SIZE);
  if (strlen(pPath) + strlen(asFileName[Slot]) >= SYS_PATH_SIZE) {
    return -1;  // cut, it would name another file
  }
  UTIL_AppendString(pPath, asFileName[Slot], SYS_PATH_SIZE);
  UTIL_ConvertBackslashes(pPath);
  return 0;
}

static int32_t OpenFile(const char* sPath, uint32_t Mode) {
  return SYS_FILE_OpenRegular(sPath, Mode, OPEN_RETRIES, OPEN_DELAY_MS);
}

// Makes sPath a valid empty store after it could not be loaded. Only a text that was read and found
// wrong is given up: a file that could not be read this time may hold good values.
static int32_t MakeValidStore(const char* sPath, int32_t LoadError) {
  uint32_t Mode = SYS_FILE_READ | SYS_FILE_WRITE | SYS_FILE_CREATE;
  if (LoadError != SYS_XML_ERR_FILE && LoadError != SYS_XML_ERR_MEMORY) {
    Mode |= SYS_FILE_TRUNCATE;
  }
  const int32_t hFile = OpenFile(sPath, Mode);
  if (hFile < 0) {
    return -1;
  }
  // Only an empty file is written to: one that could not be read keeps its text. Whether the write
  // worked shows when the file is loaded again.
  if (SYS_FILE_Seek(hFile, 0, SEEK_END) == 0) {
    SYS_FILE_Write(hFile, EmptyStore, (uint32_t)strlen(EmptyStore));
  }
  SYS_FILE_Close(hFile);
  return 0;
}

// The document's text in a buffer that the caller frees, its length in *pLength. NULL without
// memory and when the text is too long to be written.
static char* AllocText(const XmlDocument* pDoc, uint32_t* pLength) {
  // For the longest text that is written. Without memory StoreDoc() gets NULL and fails.
  char*         pText  = (char*)SYS_MEM_Alloc(SYS_XML_MAX_TEXT);
  const int32_t Length = SYS_XML_StoreDoc(pDoc, pText, SYS_XML_MAX_TEXT);
  if (Length < 0) {
    SYS_MEM_Free(pText);
    return NULL;
  }
  *pLength = (uint32_t)Length;
  return pText;
}

// Keeps the document's text as it is now, in as much memory as it needs. Without a snapshot the
// root counts as changed.
static void TakeSnapshot(RegistryRootSlot* pSlot) {
  char* pText = AllocText(pSlot->pDoc, &pSlot->SnapshotLen);
  if (pText != NULL) {
    pSlot->pSnapshot = (char*)SYS_MEM_Realloc(pText, pSlot->SnapshotLen);
    if (pSlot->pSnapshot == NULL) {  // realloc() left the old block
      SYS_MEM_Free(pText);
    }
  }
}

// Loads a root's document. If that fails, makes the file a valid empty store and tries once more.
// Returns 0, or -1.
static int32_t LoadRoot(RegistryRootSlot* pSlot, const char* sPath) {
  int32_t Error;
  pSlot->pDoc = SYS_XML_LoadDoc(sPath, &Error);
  if (pSlot->pDoc == NULL && MakeValidStore(sPath, Error) == 0) {
    pSlot->pDoc = SYS_XML_LoadDoc(sPath, NULL);
  }
  if (pSlot->pDoc == NULL) {
    return -1;
  }
  TakeSnapshot(pSlot);
  return 0;
}

int32_t SYS_REGSTORE_IsRoot(const RegistryKeyHandle* hKey) {
  return (uintptr_t)hKey >= FIRST_ROOT && (uintptr_t)hKey <= LAST_ROOT;
}

// Non-zero while HOME is what it was when the directory was last looked for.
static int IsHomeKnown(void) {
  const char* sHome = getenv("HOME");
  return sHome != NULL && sHome[0] != 0 && strcmp(sHome, acKnownHome) == 0;
}

// Makes sure that the root can be used: its directory exists and its document is loaded. Returns 0,
// or -1.
static int32_t Open(uint32_t Slot) {
  char acPath[SYS_PATH_SIZE];
  if (aSlot[Slot].pDoc != NULL && IsHomeKnown()) {
    return 0;
  }
  if (BuildFilePath(Slot, acPath) != 0) {
    return -1;
  }
  UTIL_CopyString(acKnownHome, getenv("HOME"), sizeof(acKnownHome));  // fits, as acPath does
  return aSlot[Slot].pDoc != NULL ? 0 : LoadRoot(&aSlot[Slot], acPath);
}

int32_t SYS_REGSTORE_Resolve(const RegistryKeyHandle* hKey, RegistryKeyHandle* pKey) {
  if (hKey == NULL) {
    return -1;
  }
  if (!SYS_REGSTORE_IsRoot(hKey)) {
    *pKey = *hKey;  // an open key; only a root's value is not an address
    return 0;
  }
  const uint32_t Slot = (uint32_t)((uintptr_t)hKey - FIRST_ROOT);
  if (Slot >= NUM_SLOTS || Open(Slot) != 0) {
    return -1;
  }
  pKey->pDoc     = aSlot[Slot].pDoc;
  pKey->pElement = SYS_XML_GetRoot(aSlot[Slot].pDoc);
  return 0;
}

static int IsUnchanged(const RegistryRootSlot* pSlot, const char* pText, uint32_t Length) {
  return pSlot->pSnapshot != NULL && pSlot->SnapshotLen == Length &&
         memcmp(pSlot->pSnapshot, pText, Length) == 0;
}

// Errors are not reported: required. The file is emptied as it is opened, so a failed write loses
// it.
static void WriteRoot(uint32_t Slot, const char* pText, uint32_t Length) {
  char acPath[SYS_PATH_SIZE];
  if (BuildFilePath(Slot, acPath) != 0) {
    return;
  }
  const int32_t hFile = OpenFile(acPath, SYS_FILE_WRITE | SYS_FILE_CREATE | SYS_FILE_TRUNCATE);
  if (hFile >= 0) {
    SYS_FILE_Write(hFile, pText, Length);
    SYS_FILE_Close(hFile);
  }
}

void SYS_REG_Flush(void) {
  for (uint32_t Slot = 0; Slot < NUM_SLOTS; Slot++) {
    RegistryRootSlot* pSlot = &aSlot[Slot];
    if (pSlot->pDoc == NULL) {
      continue;
    }
    // The whole text is compared: values that were changed and changed back are no change.
    uint32_t Length;
    char*    pText = AllocText(pSlot->pDoc, &Length);
    if (pText != NULL && !IsUnchanged(pSlot, pText, Length)) {
      WriteRoot(Slot, pText, Length);
    }
    SYS_MEM_Free(pText);
    SYS_XML_FreeDoc(pSlot->pDoc);
    SYS_MEM_Free(pSlot->pSnapshot);
    memset(pSlot, 0, sizeof(*pSlot));
  }
}
