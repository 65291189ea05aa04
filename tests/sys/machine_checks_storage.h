// SPDX-License-Identifier: MIT

// Checks what files, views, directories, the XML document and the registry store promise. Uses C
// headers only, for a program without a test library: the macOS program that runs on another
// system's kernel.
//
// CheckStorage() runs all checks, prints each failure with its line, and returns their number. It
// works in its own directory below /tmp, which it removes, and sets HOME.

#ifndef TESTS_SYS_MACHINE_CHECKS_STORAGE_H
#define TESTS_SYS_MACHINE_CHECKS_STORAGE_H

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "sys/dynbuffer.h"
#include "sys/files.h"
#include "sys/memory.h"
#include "sys/path.h"
#include "sys/registry.h"
#include "sys/xml.h"

static int  NumStorageFailures;
static char acStorageDir[] = "/tmp/quobe_storage_XXXXXX";

#define CHECK_STORAGE(Condition)                                     \
  do {                                                               \
    if (!(Condition)) {                                              \
      printf("%s:%d: failed: %s\n", __FILE__, __LINE__, #Condition); \
      NumStorageFailures++;                                          \
    }                                                                \
  } while (0)

// ---- Files as texts -----------------------------------------------------------------------------

static const char* StoragePath(const char* sName) {
  static char acPath[512];
  snprintf(acPath, sizeof(acPath), "%s/%s", acStorageDir, sName);
  return acPath;
}

static void PutText(const char* sName, const char* sText) {
  FILE* pFile = fopen(StoragePath(sName), "wb");
  if (pFile != NULL) {
    fwrite(sText, 1, strlen(sText), pFile);
    fclose(pFile);
  }
}

// Returns non-zero when the file holds exactly these bytes.
static int HoldsBytes(const char* sName, const char* pBytes, size_t NumBytes) {
  static char acBuffer[8192];
  FILE*       pFile = fopen(StoragePath(sName), "rb");
  if (pFile == NULL) {
    return 0;
  }
  const size_t NumRead = fread(acBuffer, 1, sizeof(acBuffer), pFile);
  fclose(pFile);
  return NumRead == NumBytes && memcmp(acBuffer, pBytes, NumBytes) == 0;
}

static int HoldsText(const char* sName, const char* sText) {
  return HoldsBytes(sName, sText, strlen(sText));
}

// ---- Memory and files ---------------------------------------------------------------------------

static void CheckMemory(void) {
  void* pMem = SYS_MEM_Alloc(100);
  CHECK_STORAGE(pMem != NULL);
  memset(pMem, 0x5A, 100);
  pMem = SYS_MEM_Realloc(pMem, 100000);
  CHECK_STORAGE(pMem != NULL && ((const uint8_t*)pMem)[99] == 0x5A);
  SYS_MEM_FreeAndClear(&pMem);
  CHECK_STORAGE(pMem == NULL);
  SYS_MEM_Free(NULL);
}

static void CheckOpenModes(void) {
  char    acBuffer[8];
  int32_t hFile;

  hFile = SYS_FILE_Open(StoragePath("f"), 0x01);
  CHECK_STORAGE(hFile == -1);
  hFile = SYS_FILE_Open(StoragePath("f"), 0x13);
  CHECK_STORAGE(hFile >= 0);
  CHECK_STORAGE(SYS_FILE_Write(hFile, "0123456789", 10) == 10);
  CHECK_STORAGE(SYS_FILE_Seek(hFile, -4, SEEK_END) == 6);
  CHECK_STORAGE(SYS_FILE_Read(hFile, acBuffer, 8) == 4);
  CHECK_STORAGE(memcmp(acBuffer, "6789", 4) == 0);
  CHECK_STORAGE(SYS_FILE_Seek(hFile, 3, SEEK_SET) == 3);
  CHECK_STORAGE(SYS_FILE_GetSize(hFile) == 10);
  CHECK_STORAGE(SYS_FILE_Seek(hFile, 0, SEEK_CUR) == 3);
  CHECK_STORAGE(SYS_FILE_Truncate(hFile, 5) == 0);
  CHECK_STORAGE(SYS_FILE_Close(hFile) == 0);
  CHECK_STORAGE(SYS_FILE_Close(hFile) == -1);
  CHECK_STORAGE(HoldsText("f", "01234"));

  CHECK_STORAGE(SYS_FILE_Open(StoragePath("f"), 0x93) == -1);  // exclusive
  CHECK_STORAGE(SYS_FILE_Open(StoragePath("f"), 0xB3) == -1);  // exclusive never empties
  CHECK_STORAGE(HoldsText("f", "01234"));
  hFile = SYS_FILE_Open(StoragePath("f"), 0x42);
  CHECK_STORAGE(SYS_FILE_Write(hFile, "x", 1) == 1);  // at the end
  CHECK_STORAGE(SYS_FILE_Read(hFile, acBuffer, 1) == -1);
  SYS_FILE_Close(hFile);
  CHECK_STORAGE(HoldsText("f", "01234x"));
  hFile = SYS_FILE_Open(StoragePath("f"), 0x22);
  SYS_FILE_Close(hFile);
  CHECK_STORAGE(HoldsText("f", ""));

  CHECK_STORAGE(SYS_FILE_OpenRetry(StoragePath("none"), 0x01, 2, 1) == -1);
  CHECK_STORAGE(SYS_FILE_OpenRegular(acStorageDir, 0x01, 0, 0) == -1);
  CHECK_STORAGE(SYS_FILE_OpenRegular("/dev/null", 0x03, 0, 0) == -1);
  CHECK_STORAGE(SYS_FILE_Exists(StoragePath("f")) == 1);
  CHECK_STORAGE(SYS_FILE_Delete(StoragePath("f")) == 0);
  CHECK_STORAGE(SYS_FILE_Exists(StoragePath("f")) == 0);
  CHECK_STORAGE(SYS_FILE_GetSize(-1) == 0xFFFFFFFF);
}

static void CheckViews(void) {
  static char acWant[5010];
  PutText("v", "abc");
  const int32_t hFile = SYS_FILE_Open(StoragePath("v"), 0x03);
  char*         pView = (char*)SYS_FILE_MapView(hFile, 5000, 10);
  CHECK_STORAGE(pView != NULL);
  if (pView == NULL) {
    return;
  }
  CHECK_STORAGE((uintptr_t)pView % (uintptr_t)sysconf(_SC_PAGESIZE) ==
                5000 % (uintptr_t)sysconf(_SC_PAGESIZE));
  memcpy(acWant, "abc", 3);
  acWant[5009] = ' ';
  CHECK_STORAGE(HoldsBytes("v", acWant, sizeof(acWant)));
  pView[0] = acWant[5000] = 'V';
  CHECK_STORAGE(SYS_FILE_FlushView(pView, 10) == 0);
  CHECK_STORAGE(HoldsBytes("v", acWant, sizeof(acWant)));
  CHECK_STORAGE(SYS_FILE_UnmapView(pView, 10) == 0);
  CHECK_STORAGE(SYS_FILE_MapView(hFile, 0, 0) == NULL);
  CHECK_STORAGE(SYS_FILE_MapView(hFile, UINT64_MAX, 1) == NULL);
  SYS_FILE_Close(hFile);
  CHECK_STORAGE(SYS_FILE_MapView(-1, 0, 1) == NULL);
  SYS_FILE_Delete(StoragePath("v"));
}

static void CheckDirectories(void) {
  char acPath[512];
  CHECK_STORAGE(SYS_PATH_MakeDir(StoragePath("a/b//c/")) == 0);
  CHECK_STORAGE(SYS_PATH_MakeDir(StoragePath("a/b/c")) == 0);
  PutText("a/b/f", "");
  CHECK_STORAGE(SYS_PATH_MakeDir(StoragePath("a/b/f")) == -1);
  CHECK_STORAGE(SYS_PATH_MakeDir(StoragePath("a/b/f/x")) == -1);
  CHECK_STORAGE(symlink("b/d", StoragePath("a/link")) == 0);
  CHECK_STORAGE(SYS_PATH_MakeDir(StoragePath("a/link")) == 0);
  PutText("a/b/d/g", "made");
  CHECK_STORAGE(HoldsText("a/link/g", "made"));
  CHECK_STORAGE(symlink("loop", StoragePath("a/loop")) == 0);
  CHECK_STORAGE(SYS_PATH_MakeDir(StoragePath("a/loop")) == -1);
  unlink(StoragePath("a/b/d/g"));
  unlink(StoragePath("a/b/f"));
  unlink(StoragePath("a/link"));
  unlink(StoragePath("a/loop"));
  rmdir(StoragePath("a/b/d"));
  rmdir(StoragePath("a/b/c"));
  rmdir(StoragePath("a/b"));
  CHECK_STORAGE(rmdir(StoragePath("a")) == 0);

  unsetenv("HOME");
  CHECK_STORAGE(SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)) == -1);
  setenv("HOME", acStorageDir, 1);
  CHECK_STORAGE(SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)) == 0);
  CHECK_STORAGE(strcmp(acPath, StoragePath("Library/Application Support/OSTREL")) == 0);
  memset(acPath, '#', sizeof(acPath));
  SYS_PATH_GetDataDir(acPath, 100);
  CHECK_STORAGE(acPath[0] == '/' && acPath[99] == 0 && acPath[100] == '#');
}

// ---- DYNBUFFER and XML --------------------------------------------------------------------------

static void CheckDynBuffer(void) {
  DYNBUFFER Buffer;
  CHECK_STORAGE(DynBufferCreate(&Buffer, NULL, 100, 4, 0xA5) == 0);
  CHECK_STORAGE(DynBufferAppend(&Buffer, "", 0) == -3);
  CHECK_STORAGE(DynBufferAppend(&Buffer, "abcdef", 6) == 0);
  CHECK_STORAGE(Buffer.AllocSize == 8 && Buffer.HighestIndex == 5 && Buffer.pData[7] == 0xA5);
  CHECK_STORAGE(DynBufferWriteAt(&Buffer, 99, "z", 1) == 0);
  CHECK_STORAGE(DynBufferWriteAt(&Buffer, 100, "z", 1) == -3);
  CHECK_STORAGE(memcmp(Buffer.pData, "abcdef\xA5\xA5", 8) == 0);
  CHECK_STORAGE(DynBufferFree(&Buffer) == 0 && Buffer.pData == NULL);
}

static void CheckXml(void) {
  static const char sIn[]  = "<!-- c -->\n<R a = \"1\"><K/>\n<L b=\"<'>\"></L></R>";
  static const char sOut[] = "<R a=\"1\">\r\n  <K/>\r\n  <L b=\"<'>\"/>\r\n</R>\r\n";
  char              acText[100];
  int32_t           Error = 1;
  XmlDocument*      pDoc  = SYS_XML_ParseDoc(sIn, &Error);
  CHECK_STORAGE(pDoc != NULL && Error == 0);
  CHECK_STORAGE(SYS_XML_StoreDoc(pDoc, acText, sizeof(acText)) == (int32_t)strlen(sOut));
  CHECK_STORAGE(memcmp(acText, sOut, strlen(sOut)) == 0);
  CHECK_STORAGE(SYS_XML_StoreDoc(pDoc, acText, 10) == -2);
  SYS_XML_FreeDoc(pDoc);
  CHECK_STORAGE(SYS_XML_ParseDoc("<R></S>", &Error) == NULL && Error == -7);
  CHECK_STORAGE(SYS_XML_LoadDoc(acStorageDir, &Error) == NULL && Error == -10);
}

// ---- Registry store -----------------------------------------------------------------------------

#define STORAGE_USER_FILE "Library/Application Support/OSTREL/OSTREL_REG_HKEY_CURRENT_USER.xml"

static time_t GetTimeOf(const char* sName) {
  struct stat Status;
  return stat(StoragePath(sName), &Status) == 0 ? Status.st_mtime : 0;
}

static void CheckRegistry(void) {
  static const char sStored[] =
      "<Registry Speed=\"0x12345678\" Speed_OSTRELRegType=\"SYS_REG_TYPE_DWORD\">\r\n"
      "  <Software>\r\n"
      "    <MyKey>\r\n"
      "      <x-y N=\"a\" N_OSTRELRegMltStr1=\"bc\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\""
      " T=\"text\" T_OSTRELRegType=\"SYS_REG_TYPE_SZ\""
      " Q=\"0x0000000012345678\" Q_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>\r\n"
      "    </MyKey>\r\n"
      "  </Software>\r\n"
      "</Registry>\r\n";
  static const uint8_t aDword[4] = {0x78, 0x56, 0x34, 0x12};
  const struct timeval aOld[2]   = {{1000000, 0}, {1000000, 0}};
  RegistryKeyHandle*   hUser     = HKEY_CURRENT_USER;
  RegistryKeyHandle*   hKey;
  char                 acData[16];
  uint32_t             Type = 77;
  uint32_t             Size = 3;

  CHECK_STORAGE(SYS_REG_QueryValue(hUser, "Speed", &Type, NULL, NULL) == 2 && Type == 77);
  CHECK_STORAGE(HoldsText(STORAGE_USER_FILE, "<Registry>\r\n</Registry>"));
  CHECK_STORAGE(SYS_REG_SetValue(hUser, "Sp eed", 4, aDword, 4) == 0);
  hKey = SYS_REG_OpenKey(hUser, "Software\\My Key\\x-y");
  CHECK_STORAGE(hKey != NULL);
  CHECK_STORAGE(SYS_REG_SetValue(hKey, "N", 7, "a\0bc\0", 6) == 0);
  CHECK_STORAGE(SYS_REG_SetValue(hKey, "N", 7, "a\0bc\0", 5) == 1);
  CHECK_STORAGE(SYS_REG_SetValue(hKey, "T", 1, "text", 0) == 0);
  CHECK_STORAGE(SYS_REG_SetValue(hKey, "Q", 11, aDword, 4) == 0);
  CHECK_STORAGE(SYS_REG_SetValue(hKey, "B", 3, aDword, 4) == 1);
  CHECK_STORAGE(SYS_REG_SetValue(hKey, "T.T", 1, "", 0) == 1);
  SYS_REG_CloseKey(hKey);
  SYS_REG_Flush();
  CHECK_STORAGE(HoldsText(STORAGE_USER_FILE, sStored));

  CHECK_STORAGE(utimes(StoragePath(STORAGE_USER_FILE), aOld) == 0);
  CHECK_STORAGE(SYS_REG_QueryValue(hUser, "Speed", &Type, acData, &Size) == 234);
  Size = sizeof(acData);
  CHECK_STORAGE(SYS_REG_QueryValue(hUser, "Speed", &Type, acData, &Size) == 0);
  CHECK_STORAGE(Type == 4 && Size == 4 && memcmp(acData, aDword, 4) == 0);
  hKey = SYS_REG_OpenKey(hUser, "Software\\MyKey\\x-y");
  Size = 6;
  memset(acData, '#', sizeof(acData));
  CHECK_STORAGE(SYS_REG_QueryValue(hKey, "N", &Type, acData, &Size) == 0);
  CHECK_STORAGE(Type == 7 && Size == 4 && memcmp(acData, "a\0bc\0\0##", 8) == 0);
  Size = 4;
  CHECK_STORAGE(SYS_REG_QueryValue(hKey, "T", &Type, acData, &Size) == 0);
  CHECK_STORAGE(Type == 1 && Size == 4 && memcmp(acData, "tex\0", 4) == 0);
  SYS_REG_CloseKey(hKey);
  SYS_REG_Flush();
  CHECK_STORAGE(GetTimeOf(STORAGE_USER_FILE) == 1000000);  // unchanged, so not written

  CHECK_STORAGE(SYS_REG_DeleteValue(hUser, "Speed") == 0);
  CHECK_STORAGE(SYS_REG_DeleteValue(hUser, "Speed") == 1);
  SYS_REG_Flush();
  CHECK_STORAGE(GetTimeOf(STORAGE_USER_FILE) > 1000000);
  CHECK_STORAGE(SYS_REG_OpenKey((RegistryKeyHandle*)(uintptr_t)0x80000003u, "a") == NULL);

  PutText(STORAGE_USER_FILE, "<Registry>not XML</Registry>");
  CHECK_STORAGE(SYS_REG_QueryValue(hUser, "T", &Type, NULL, NULL) == 2);
  SYS_REG_Flush();
  CHECK_STORAGE(HoldsText(STORAGE_USER_FILE, "<Registry>\r\n</Registry>"));

  unlink(StoragePath(STORAGE_USER_FILE));
  rmdir(StoragePath("Library/Application Support/OSTREL"));
  rmdir(StoragePath("Library/Application Support"));
  CHECK_STORAGE(rmdir(StoragePath("Library")) == 0);
}

static int CheckStorage(void) {
  NumStorageFailures = 0;
  if (mkdtemp(acStorageDir) == NULL) {
    printf("%s: cannot be made\n", acStorageDir);
    return 1;
  }
  CheckMemory();
  CheckOpenModes();
  CheckViews();
  CheckDirectories();
  CheckDynBuffer();
  CheckXml();
  CheckRegistry();
  rmdir(StoragePath(".OSTREL"));  // made when the executable's own directory is not writable
  CHECK_STORAGE(rmdir(acStorageDir) == 0);
  return NumStorageFailures;
}

#endif
