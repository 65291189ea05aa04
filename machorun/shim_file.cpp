// SPDX-License-Identifier: MIT

// Files: open flags, file status, descriptor control, mapped memory.

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"

namespace {

constexpr FlagPair OpenFlags[] = {
    {O_WRONLY, O_WRONLY},
    {O_RDWR, O_RDWR},
    {darwin::FLAG_NONBLOCK, O_NONBLOCK},
    {darwin::FLAG_APPEND, O_APPEND},
    {darwin::FLAG_SYNC, O_SYNC},
    {darwin::FLAG_NOFOLLOW, O_NOFOLLOW},
    {darwin::FLAG_CREAT, O_CREAT},
    {darwin::FLAG_TRUNC, O_TRUNC},
    {darwin::FLAG_EXCL, O_EXCL},
    {darwin::FLAG_NOCTTY, O_NOCTTY},
    {darwin::FLAG_DIRECTORY, O_DIRECTORY},
    {darwin::FLAG_CLOEXEC, O_CLOEXEC},
};

// Variadic on Darwin. The third argument is in the same register for both kinds of function.
int Open(const char* sPath, uint32_t Flags, uint32_t Mode) {
  if ((Flags & O_ACCMODE) == O_ACCMODE) {
    Unknown("open flags 0x%x, for writing only and for both", Flags);  // Linux would open it
  }
  const auto HostFlags  = static_cast<int>(FlagsToHost(Flags, OpenFlags, "open flags"));
  const int  Descriptor = open(sPath, HostFlags, Mode & 07777);
  if ((Flags & darwin::FLAG_CREAT) != 0) {
    Trace("open(%s, 0x%x, 0%o) = %s", sPath, Flags, Mode, Descriptor < 0 ? "error" : "open");
  } else {
    Trace("open(%s, 0x%x) = %s", sPath, Flags, Descriptor < 0 ? "error" : "open");
  }
  return Descriptor;
}

// SEEK_HOLE and SEEK_DATA have each other's numbers on Darwin, so they are not passed on.
off_t Seek(int Descriptor, off_t Offset, int Origin) {
  if (Origin > SEEK_END) {
    Unknown("lseek origin %d", Origin);
  }
  return lseek(Descriptor, Offset, Origin);
}

int Close(int Descriptor) {
  ForgetSocket(Descriptor);
  return close(Descriptor);
}

darwin::Timespec Time(const struct timespec& Host) {
  return {Host.tv_sec, Host.tv_nsec};
}

int Status(int Result, const struct stat& Host, darwin::Stat* pStat) {
  if (Result != 0) {
    return Result;
  }
  memset(pStat, 0, sizeof(*pStat));
  pStat->Device        = static_cast<int32_t>(Host.st_dev);
  pStat->Mode          = static_cast<uint16_t>(Host.st_mode);
  pStat->NumLinks      = static_cast<uint16_t>(Host.st_nlink);
  pStat->Inode         = Host.st_ino;
  pStat->User          = Host.st_uid;
  pStat->Group         = Host.st_gid;
  pStat->SpecialDevice = static_cast<int32_t>(Host.st_rdev);
  pStat->Access        = Time(Host.st_atim);
  pStat->Modification  = Time(Host.st_mtim);
  pStat->Change        = Time(Host.st_ctim);
  pStat->Birth         = Time(Host.st_ctim);
  pStat->Size          = Host.st_size;
  pStat->Blocks        = Host.st_blocks;
  pStat->BlockSize     = static_cast<int32_t>(Host.st_blksize);
  return 0;
}

int StatusOfPath(const char* sPath, darwin::Stat* pStat) {
  struct stat Host;
  return Status(stat(sPath, &Host), Host, pStat);
}

int StatusOfLink(const char* sPath, darwin::Stat* pStat) {
  struct stat Host;
  return Status(lstat(sPath, &Host), Host, pStat);
}

int StatusOfDescriptor(int Descriptor, darwin::Stat* pStat) {
  struct stat Host;
  return Status(fstat(Descriptor, &Host), Host, pStat);
}

int SetTimes(const char* sPath, const darwin::Timeval* pTimes) {
  if (pTimes == nullptr) {
    return utimes(sPath, nullptr);
  }
  const struct timeval aHost[2] = {{pTimes[0].Seconds, pTimes[0].Microseconds},
                                   {pTimes[1].Seconds, pTimes[1].Microseconds}};
  return utimes(sPath, aHost);
}

int Control(int Descriptor, int Request, uint64_t Argument) {
  switch (Request) {
    case F_DUPFD:  // 0 to 4 are the same
    case F_GETFD:
    case F_SETFD:
      return fcntl(Descriptor, Request, Argument);
    case F_GETFL: {
      const int Flags = fcntl(Descriptor, F_GETFL);
      return Flags < 0 ? -1
                       : static_cast<int>(FlagsToDarwin(static_cast<uint64_t>(Flags), OpenFlags));
    }
    case F_SETFL:
      return fcntl(Descriptor, F_SETFL,
                   static_cast<int>(FlagsToHost(Argument, OpenFlags, "fcntl flags")));
    case darwin::FCNTL_FULLFSYNC:
      return fsync(Descriptor);
    case darwin::FCNTL_DUPFD_CLOEXEC:
      return fcntl(Descriptor, F_DUPFD_CLOEXEC, Argument);
    default:
      Unknown("fcntl request %d", Request);
  }
}

constexpr FlagPair MapFlags[] = {
    {MAP_SHARED, MAP_SHARED},
    {MAP_PRIVATE, MAP_PRIVATE},
    {darwin::MAP_ANONYMOUS_FLAG, MAP_ANONYMOUS},
};

void* Map(void* pWanted, size_t Length, int Protection, int Flags, int Descriptor, off_t Offset) {
  Trace("mmap(length %zu, 0x%x, 0x%x, offset %ld)", Length, static_cast<unsigned>(Protection),
        static_cast<unsigned>(Flags), static_cast<long>(Offset));
  return mmap(pWanted, Length, Protection,
              static_cast<int>(FlagsToHost(static_cast<uint32_t>(Flags), MapFlags, "mmap flags")),
              Descriptor, Offset);
}

constexpr FlagPair SyncFlags[] = {
    {MS_ASYNC, MS_ASYNC},
    {MS_INVALIDATE, MS_INVALIDATE},
    {darwin::MSYNC_SYNC, MS_SYNC},
};

int Sync(void* pStart, size_t Length, int Flags) {
  Trace("msync(length %zu, 0x%x)", Length, static_cast<unsigned>(Flags));
  const uint64_t HostFlags = FlagsToHost(static_cast<uint32_t>(Flags), SyncFlags, "msync flags");
  // On Darwin, neither flag means "wait for it".
  return msync(
      pStart, Length,
      static_cast<int>((HostFlags & (MS_ASYNC | MS_SYNC)) == 0 ? HostFlags | MS_SYNC : HostFlags));
}

long Configuration(int Name) {
  switch (Name) {
    case darwin::SYSCONF_PAGESIZE:
      return sysconf(_SC_PAGESIZE);
    case darwin::SYSCONF_NPROC_ONLN:
      return sysconf(_SC_NPROCESSORS_ONLN);
    default:
      Unknown("sysconf name %d", Name);
  }
}

int OpenTerminalMaster(uint32_t Flags) {
  return posix_openpt(static_cast<int>(FlagsToHost(Flags, OpenFlags, "posix_openpt flags")));
}

const Shim Table[] = {
    Bound("_open", &Open),
    Bound("_lseek", &Seek),
    Bound("_close", &Close),
    Bound("_stat$INODE64", &StatusOfPath),
    Bound("_lstat$INODE64", &StatusOfLink),
    Bound("_fstat$INODE64", &StatusOfDescriptor),
    Bound("_utimes", &SetTimes),
    Bound("_fcntl", &Control),
    Bound("_mmap", &Map),
    Bound("_msync", &Sync),
    Bound("_sysconf", &Configuration),
    Bound("_posix_openpt", &OpenTerminalMaster),
};

}  // namespace

std::span<const Shim> FileShims() {
  return Table;
}
