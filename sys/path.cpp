#include "sys/path.h"

#include <errno.h>
#include <fcntl.h>
#include <libproc.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sys/files.h"
#include "util/format.h"

static const uint32_t LONG_PATH_SIZE = 1024;  // Darwin's PATH_MAX
static const uint32_t MAX_NESTING    = 128;   // calls of MakeDir inside each other
static const mode_t   PERMISSIONS    = 0775;

static int32_t MakeDir(char* sPath, uint32_t Nesting);

// Non-zero when Length characters and a terminator fit.
static int Fits(size_t Length, uint32_t BufferSize) {
  return Length < BufferSize;
}

// Stores "$HOME" and sBelow. 0, or -1 without HOME or when it does not fit SYS_PATH_SIZE: a path
// that was cut would name another place.
static int32_t BuildBelowHome(char* pBuffer, const char* sBelow) {
  const char* sHome = getenv("HOME");
  if (sHome == NULL || sHome[0] == 0 || !Fits(strlen(sHome) + strlen(sBelow), SYS_PATH_SIZE)) {
    return -1;
  }
  UTIL_snprintf(pBuffer, (int32_t)SYS_PATH_SIZE, "%s%s", sHome, sBelow);
  return 0;
}

// Copies the text and its terminator, BufferSize bytes at most; a longer text is not terminated.
static void CopyBytes(char* pBuffer, const char* sText, uint32_t BufferSize) {
  const size_t NumBytes = strlen(sText) + 1;
  memcpy(pBuffer, sText, NumBytes < BufferSize ? NumBytes : BufferSize);
}

// Length of sPath without its trailing separators, which is 0 for "/" and "".
static size_t LengthWithoutSlashes(const char* sPath, size_t Length) {
  while (Length > 0 && sPath[Length - 1] == '/') {
    Length--;
  }
  return Length;
}

// Length of the part in front of the last component: "/a//b" gives 2, "/a" and "a" give 0.
static size_t ParentLength(const char* sPath) {
  size_t Length = strlen(sPath);
  while (Length > 0 && sPath[Length - 1] != '/') {
    Length--;
  }
  return LengthWithoutSlashes(sPath, Length);
}

// Makes what the symbolic link sPath leads to. A relative target starts at the link's directory.
static int32_t MakeLinkTarget(const char* sPath, uint32_t Nesting) {
  char          acTarget[LONG_PATH_SIZE];
  const ssize_t NumBytes = readlink(sPath, acTarget, sizeof(acTarget));
  if (NumBytes < 0 || !Fits((size_t)NumBytes, LONG_PATH_SIZE)) {
    return -1;
  }
  acTarget[NumBytes] = 0;
  if (acTarget[0] == '/') {
    return MakeDir(acTarget, Nesting);
  }
  // Up to and with the separator in front of the link's own name.
  const char*  pSlash    = strrchr(sPath, '/');
  const size_t DirLength = pSlash == NULL ? 0 : (size_t)(pSlash - sPath) + 1;
  if (!Fits(DirLength + (size_t)NumBytes, LONG_PATH_SIZE)) {
    return -1;
  }
  memmove(acTarget + DirLength, acTarget, (size_t)NumBytes + 1);
  memcpy(acTarget, sPath, DirLength);
  return MakeDir(acTarget, Nesting);
}

// Makes everything above sPath, which is cut for the time being and whole again on return.
static int32_t MakeParent(char* sPath, uint32_t Nesting) {
  const size_t Length = ParentLength(sPath);
  if (Length == 0) {
    return 0;  // the root of the file system, or the current directory
  }
  const char Saved     = sPath[Length];
  sPath[Length]        = 0;
  const int32_t Result = MakeDir(sPath, Nesting);
  sPath[Length]        = Saved;
  return Result;
}

static int32_t MakeDir(char* sPath, uint32_t Nesting) {
  if (Nesting > MAX_NESTING) {
    return -1;
  }
  struct stat Status;
  if (lstat(sPath, &Status) == 0) {
    if (S_ISLNK(Status.st_mode)) {
      return MakeLinkTarget(sPath, Nesting + 1);
    }
    return S_ISDIR(Status.st_mode) ? 0 : -1;
  }
  if (errno != ENOENT || MakeParent(sPath, Nesting + 1) != 0) {
    return -1;
  }
  // Another process may make the same directory at this moment: what counts is that it is there.
  mkdir(sPath, PERMISSIONS);
  return stat(sPath, &Status) == 0 && S_ISDIR(Status.st_mode) ? 0 : -1;
}

int32_t SYS_PATH_MakeDir(const char* sPath) {
  char acPath[LONG_PATH_SIZE];
  if (sPath == NULL || sPath[0] == 0 || !Fits(strlen(sPath), LONG_PATH_SIZE)) {
    return -1;
  }
  CopyBytes(acPath, sPath, LONG_PATH_SIZE);
  const size_t Length = LengthWithoutSlashes(acPath, strlen(acPath));
  if (Length == 0) {
    return 0;  // only separators: the root of the file system
  }
  acPath[Length] = 0;
  return MakeDir(acPath, 1);
}

int32_t SYS_PATH_GetAppSupportDir(char* pBuffer, uint32_t BufferSize) {
  char acPath[SYS_PATH_SIZE];
  if (pBuffer == NULL || BufferSize == 0 ||
      BuildBelowHome(acPath, "/Library/Application Support/OSTREL") != 0 ||
      SYS_PATH_MakeDir(acPath) != 0) {
    return -1;
  }
  CopyBytes(pBuffer, acPath, BufferSize);
  return 0;
}

// Stores the executable's directory with its trailing "/". 0, or -1 when it cannot be told or does
// not fit SYS_PATH_SIZE.
static int32_t BuildExecutableDir(char* pBuffer) {
  char acPath[4 * LONG_PATH_SIZE];  // what proc_pidpath() takes at the most
  if (proc_pidpath(getpid(), acPath, sizeof(acPath)) <= 0) {
    return -1;
  }
  char* pSlash = strrchr(acPath, '/');
  if (pSlash == NULL || !Fits((size_t)(pSlash - acPath) + 1, SYS_PATH_SIZE)) {
    return -1;
  }
  pSlash[1] = 0;
  CopyBytes(pBuffer, acPath, SYS_PATH_SIZE);
  return 0;
}

// Non-zero when a file can be made in sDir. It is opened again by its name, as any user of the
// directory will do.
static int IsWritableDir(const char* sDir) {
  char acFile[SYS_PATH_SIZE + sizeof("/OSTRELXXXXXX")];
  UTIL_snprintf(acFile, (int32_t)sizeof(acFile), "%s/OSTRELXXXXXX", sDir);
  const int32_t hTemp = mkstemp(acFile);
  if (hTemp < 0) {
    return 0;
  }
  SYS_FILE_Close(hTemp);
  const int32_t hFile = SYS_FILE_Open(acFile, SYS_FILE_WRITE | SYS_FILE_CREATE | SYS_FILE_TRUNCATE);
  SYS_FILE_Close(hFile);
  SYS_FILE_Delete(acFile);
  return hFile >= 0;
}

void SYS_PATH_GetDataDir(char* pBuffer, uint32_t BufferSize) {
  char acDir[SYS_PATH_SIZE];
  if (pBuffer == NULL || BufferSize == 0) {
    return;
  }
  if (BuildExecutableDir(acDir) != 0 || !IsWritableDir(acDir)) {
    if (BuildBelowHome(acDir, "/.OSTREL") == 0) {
      mkdir(acDir, PERMISSIONS);  // whether it can be written to is for its user to find out
    } else {
      acDir[0] = 0;
    }
  }
  CopyBytes(pBuffer, acDir, BufferSize);
  pBuffer[BufferSize - 1] = 0;
}
