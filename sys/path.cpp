// SPDX-License-Identifier: MIT

// A path that does not fit is refused and never cut: a cut path names another file or directory.

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
static const mode_t   PERMISSIONS    = 0775;  // of new directories, less the umask

static int32_t MakeDir(char* sPath, uint32_t Nesting);

// Returns non-zero when Length characters and a terminator fit.
static int Fits(size_t Length, uint32_t BufferSize) {
  return Length < BufferSize;
}

// Stores "$HOME" followed by sBelow. Returns 0, or -1 without HOME or when the path does not fit
// SYS_PATH_SIZE: a path that was cut would name another directory.
static int32_t BuildBelowHome(char* pBuffer, const char* sBelow) {
  const char* sHome = getenv("HOME");
  if (sHome == NULL || sHome[0] == 0 || !Fits(strlen(sHome) + strlen(sBelow), SYS_PATH_SIZE)) {
    return -1;
  }
  UTIL_snprintf(pBuffer, (int32_t)SYS_PATH_SIZE, "%s%s", sHome, sBelow);
  return 0;
}

// Copies the text and its terminator, at most BufferSize bytes. A longer text is not terminated:
// UTIL_CopyString would put a terminator in place of the last character that fits.
static void CopyBytes(char* pBuffer, const char* sText, uint32_t BufferSize) {
  const size_t NumBytes = strlen(sText) + 1;
  memcpy(pBuffer, sText, NumBytes < BufferSize ? NumBytes : BufferSize);
}

// Returns the length of sPath without trailing separators: 0 for "/" and "".
static size_t LengthWithoutSlashes(const char* sPath, size_t Length) {
  while (Length > 0 && sPath[Length - 1] == '/') {
    Length--;
  }
  return Length;
}

// Returns the length of the part before the last component: 2 for "/a//b", 0 for "/a" and "a".
static size_t ParentLength(const char* sPath) {
  size_t Length = strlen(sPath);
  while (Length > 0 && sPath[Length - 1] != '/') {
    Length--;
  }
  return LengthWithoutSlashes(sPath, Length);
}

// Makes the directory that the symbolic link sPath points to. A relative target starts at the
// link's own directory.
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
  // The link's directory: sPath up to and including its last separator.
  const char*  pSlash    = strrchr(sPath, '/');
  const size_t DirLength = pSlash == NULL ? 0 : (size_t)(pSlash - sPath) + 1;
  if (!Fits(DirLength + (size_t)NumBytes, LONG_PATH_SIZE)) {
    return -1;
  }
  // In place: the target moves up, and the directory goes before it.
  memmove(acTarget + DirLength, acTarget, (size_t)NumBytes + 1);
  memcpy(acTarget, sPath, DirLength);
  return MakeDir(acTarget, Nesting);
}

// Makes the directories above sPath. sPath is cut there during the call, and restored on return.
static int32_t MakeParent(char* sPath, uint32_t Nesting) {
  const size_t Length = ParentLength(sPath);
  if (Length == 0) {
    return 0;  // the root of the file system or the current directory: both exist
  }
  const char Saved     = sPath[Length];
  sPath[Length]        = 0;
  const int32_t Result = MakeDir(sPath, Nesting);
  sPath[Length]        = Saved;
  return Result;
}

// Nesting counts the calls of MakeDir that are inside each other. Its limit ends a circle of links.
static int32_t MakeDir(char* sPath, uint32_t Nesting) {
  if (Nesting > MAX_NESTING) {
    return -1;
  }
  // lstat(), because stat() of a link without a target says that nothing is there, and mkdir() then
  // fails. Such a link gets its target made.
  struct stat Status;
  if (lstat(sPath, &Status) == 0) {
    if (S_ISLNK(Status.st_mode)) {
      return MakeLinkTarget(sPath, Nesting + 1);
    }
    return S_ISDIR(Status.st_mode) ? 0 : -1;
  }
  // Any error but "does not exist" (no permission, a file in the path) would come again.
  if (errno != ENOENT || MakeParent(sPath, Nesting + 1) != 0) {
    return -1;
  }
  // Another process may make the same directory at this moment, and mkdir() then fails. What counts
  // is that the directory exists.
  mkdir(sPath, PERMISSIONS);
  return stat(sPath, &Status) == 0 && S_ISDIR(Status.st_mode) ? 0 : -1;
}

int32_t SYS_PATH_MakeDir(const char* sPath) {
  char acPath[LONG_PATH_SIZE];
  if (sPath == NULL || sPath[0] == 0 || !Fits(strlen(sPath), LONG_PATH_SIZE)) {
    return -1;
  }
  CopyBytes(acPath, sPath, LONG_PATH_SIZE);  // a copy, because MakeParent() cuts it
  const size_t Length = LengthWithoutSlashes(acPath, strlen(acPath));
  if (Length == 0) {
    return 0;  // only separators: the root of the file system exists
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

// Stores the executable's directory with a trailing "/". Returns 0, or -1 when it is unknown or
// does not fit SYS_PATH_SIZE.
static int32_t BuildExecutableDir(char* pBuffer) {
  char acPath[4 * LONG_PATH_SIZE];  // the largest buffer that proc_pidpath() accepts
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

// Returns non-zero when a file can be made in sDir. The file is opened again by its name, because
// the directory's users will open their files that way.
static int IsWritableDir(const char* sDir) {
  char acFile[SYS_PATH_SIZE + sizeof("/OSTRELXXXXXX")];
  UTIL_snprintf(acFile, (int32_t)sizeof(acFile), "%s/OSTRELXXXXXX", sDir);
  const int32_t hTemp = mkstemp(acFile);
  if (hTemp < 0) {
    return 0;
  }
  // mkstemp() made an empty file with a name that no other file had.
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
      mkdir(acDir, PERMISSIONS);  // a failure shows when the caller uses the directory
    } else {
      acDir[0] = 0;
    }
  }
  CopyBytes(pBuffer, acDir, BufferSize);
  pBuffer[BufferSize - 1] = 0;
}
