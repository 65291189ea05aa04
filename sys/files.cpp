// SPDX-License-Identifier: MIT

#include "sys/files.h"

#include <fcntl.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sys/clock.h"

static const int PERMISSIONS = 0644;

// A mode of this interface as flags of open().
static int TranslateMode(uint32_t Mode) {
  int Flags = O_CLOEXEC;
  if ((Mode & SYS_FILE_WRITE) == 0) {
    Flags |= O_RDONLY;
  } else {
    Flags |= (Mode & SYS_FILE_READ) != 0 ? O_RDWR : O_WRONLY;
  }
  if ((Mode & SYS_FILE_CREATE) != 0 && (Mode & SYS_FILE_EXCLUSIVE) != 0) {
    return Flags | O_CREAT | O_EXCL;  // the file is new, so SYS_FILE_TRUNCATE has nothing to do
  }
  if ((Mode & SYS_FILE_CREATE) != 0) {
    Flags |= O_CREAT;
  }
  if ((Mode & SYS_FILE_TRUNCATE) != 0) {
    Flags |= O_TRUNC;
  }
  return Flags;
}

// Opens a file; MoreFlags are added to those of the mode. Returns the descriptor, or -1.
static int32_t OpenWithFlags(const char* sPath, uint32_t Mode, int MoreFlags) {
  if (sPath == NULL) {
    return -1;
  }
  const int32_t hFile = open(sPath, TranslateMode(Mode) | MoreFlags, PERMISSIONS);
  if (hFile >= 0 && (Mode & SYS_FILE_AT_END) != 0) {
    lseek(hFile, 0, SEEK_END);  // may fail: a pipe has no position and is opened all the same
  }
  return hFile;
}

int32_t SYS_FILE_Open(const char* sPath, uint32_t Mode) {
  return OpenWithFlags(sPath, Mode, 0);
}

// Returns non-zero when the open file is a regular one and, if Mode asks for it, was emptied.
static int IsGoodRegular(int32_t hFile, uint32_t Mode) {
  struct stat Status;
  return fstat(hFile, &Status) == 0 && S_ISREG(Status.st_mode) &&
         ((Mode & SYS_FILE_TRUNCATE) == 0 || ftruncate(hFile, 0) == 0);
}

// O_NONBLOCK keeps open() from blocking on a FIFO; regular files ignore it. The file is truncated
// only after fstat() has shown that it is a regular one.
static int32_t OpenRegularOnce(const char* sPath, uint32_t Mode) {
  const int32_t hFile = OpenWithFlags(sPath, Mode & ~(uint32_t)SYS_FILE_TRUNCATE, O_NONBLOCK);
  if (hFile >= 0 && !IsGoodRegular(hFile, Mode)) {
    close(hFile);
    return -1;
  }
  return hFile;
}

// Calls pfOpen once and up to NumRetries times more, until it succeeds.
static int32_t Retry(int32_t (*pfOpen)(const char*, uint32_t), const char* sPath, uint32_t Mode,
                     uint32_t NumRetries, uint32_t DelayMs) {
  int32_t hFile = pfOpen(sPath, Mode);
  while (hFile < 0 && NumRetries > 0) {
    if (DelayMs != 0) {
      SYS_Sleep(DelayMs);
    }
    hFile = pfOpen(sPath, Mode);
    NumRetries--;
  }
  return hFile;
}

int32_t SYS_FILE_OpenRetry(const char* sPath, uint32_t Mode, uint32_t NumRetries,
                           uint32_t DelayMs) {
  return Retry(SYS_FILE_Open, sPath, Mode, NumRetries, DelayMs);
}

int32_t SYS_FILE_OpenRegular(const char* sPath, uint32_t Mode, uint32_t NumRetries,
                             uint32_t DelayMs) {
  return Retry(OpenRegularOnce, sPath, Mode, NumRetries, DelayMs);
}

int32_t SYS_FILE_Exists(const char* sPath) {
  // Opened, not looked up: whether a file can be read is decided by more than its permissions.
  const int32_t hFile = OpenWithFlags(sPath, SYS_FILE_READ, O_NONBLOCK);
  if (hFile < 0) {
    return 0;
  }
  close(hFile);
  return 1;
}

int32_t SYS_FILE_Read(int32_t hFile, void* pBuffer, uint32_t NumBytes) {
  return (int32_t)read(hFile, pBuffer, NumBytes);
}

int32_t SYS_FILE_Write(int32_t hFile, const void* pBuffer, uint32_t NumBytes) {
  return (int32_t)write(hFile, pBuffer, NumBytes);
}

int32_t SYS_FILE_Close(int32_t hFile) {
  return close(hFile);
}

int64_t SYS_FILE_Seek(int32_t hFile, int64_t Offset, int32_t Origin) {
  return lseek(hFile, Offset, Origin);
}

int32_t SYS_FILE_Truncate(int32_t hFile, int64_t Size) {
  return ftruncate(hFile, Size);
}

// Returns the size in 64 bits, or -1 for a descriptor without a position. The position is
// unchanged.
static int64_t MeasureFile(int32_t hFile) {
  const int64_t Position = lseek(hFile, 0, SEEK_CUR);
  const int64_t Size     = lseek(hFile, 0, SEEK_END);
  lseek(hFile, Position, SEEK_SET);
  return Size;
}

uint32_t SYS_FILE_GetSize(int32_t hFile) {
  return (uint32_t)MeasureFile(hFile);
}

int32_t SYS_FILE_Delete(const char* sPath) {
  return unlink(sPath);
}

// Returns how far Value is above a page boundary. Mappings begin on one.
static uint32_t GetSlack(uint64_t Value) {
  return (uint32_t)(Value % (uint64_t)sysconf(_SC_PAGESIZE));
}

void* SYS_FILE_MapView(int32_t hFile, uint64_t Offset, uint32_t NumBytes) {
  if (Offset > (uint64_t)INT64_MAX - NumBytes) {
    return NULL;  // file positions are signed 64 bit
  }
  // The mapping begins on the page boundary below Offset, and the view Slack bytes above it. The
  // other functions find that boundary again from the view's address.
  const uint32_t Slack = GetSlack(Offset);
  const int64_t  End   = (int64_t)(Offset + NumBytes);
  if (End > MeasureFile(hFile)) {
    // Accessing a page beyond the end of the file raises SIGBUS. The byte is a space: part of the
    // contract.
    if (lseek(hFile, End - 1, SEEK_SET) < 0 || write(hFile, " ", 1) != 1) {
      return NULL;
    }
  }
  void* pMapping = mmap(NULL, (size_t)Slack + NumBytes, PROT_READ | PROT_WRITE, MAP_SHARED, hFile,
                        (int64_t)(Offset - Slack));
  if (pMapping == MAP_FAILED) {
    return NULL;
  }
  return (uint8_t*)pMapping + Slack;
}

int32_t SYS_FILE_UnmapView(void* pView, uint32_t NumBytes) {
  const uint32_t Slack = GetSlack((uintptr_t)pView);
  return munmap((uint8_t*)pView - Slack, (size_t)Slack + NumBytes);
}

int32_t SYS_FILE_FlushView(void* pView, uint32_t NumBytes) {
  const uint32_t Slack = GetSlack((uintptr_t)pView);
  return msync((uint8_t*)pView - Slack, (size_t)Slack + NumBytes, MS_SYNC);
}
