// SPDX-License-Identifier: MIT

#include "tests/sys/support/faults.h"

#include <IOKit/pwr_mgt/IOPMLib.h>
#include <errno.h>
#include <fcntl.h>
#include <libproc.h>
#include <mach/mach_time.h>
#include <pthread.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

std::vector<LOG_CALL> LogCalls;
ASSERTION_CALLS       LastAssertion;
int                   LastOpenFlags;
int                   LastFlush;
int                   LastLineWhen;
struct termios        LastLine;

thread_local uint32_t        LastSleepUs;
thread_local struct timespec LastPause;
thread_local struct timeval  LastSelectTime;

struct addrinfo LastHints;
struct timespec RefusedWaitEnd;
bool            IsClockFake;
uint64_t        FakeTicks;
uint32_t        FakeRatio[2] = {1, 1};
int64_t         FakeTime;

std::atomic<bool> IsTimeOfDayFake;
std::atomic<bool> IsTimeMovedByPauses;
struct timeval    FakeTimeOfDay;

std::string FakeExecutable;
int         MallocFill = -1;
size_t      MaxRead;

static thread_local FAULT* pInnermost;

std::vector<OPTION_CALL>& GetOptionCalls() {
  static thread_local std::vector<OPTION_CALL> Calls;
  return Calls;
}

FAULT::FAULT(const char* sName, int Error, uint32_t Skip, uint32_t Count)
    : m_sName(sName), m_Error(Error), m_Skip(Skip), m_Count(Count), m_pOuter(pInnermost) {
  pInnermost = this;
}

FAULT::~FAULT() {
  pInnermost = m_pOuter;
}

bool FAULT::Take(const char* sName, int* pError) {
  bool IsTaken = false;
  for (FAULT* p = pInnermost; p != nullptr; p = p->m_pOuter) {
    if (strcmp(p->m_sName, sName) == 0) {
      const uint32_t Index = p->m_NumCalls++;
      if (!IsTaken && Index >= p->m_Skip && Index - p->m_Skip < p->m_Count) {
        *pError = p->m_Error;
        IsTaken = true;
      }
    }
  }
  return IsTaken;
}

static long FailWithErrno(int Error) {
  errno = Error;
  return Error == 0 ? 0 : -1;
}

#define WRAP(Result, Name, Params, Args, Failure) \
  extern "C" Result __real_##Name Params;         \
  extern "C" Result __wrap_##Name Params;         \
  extern "C" Result __wrap_##Name Params {        \
    int Error = 0;                                \
    if (FAULT::Take(#Name, &Error)) {             \
      return (Result)(Failure);                   \
    }                                             \
    return __real_##Name Args;                    \
  }

// Calls that fail with -1 and errno, with an error number as their result, with a null result.
#define SETS_ERRNO(Result, Name, Params, Args) \
  WRAP(Result, Name, Params, Args, FailWithErrno(Error))
#define RETURNS_ERROR(Result, Name, Params, Args) WRAP(Result, Name, Params, Args, Error)
#define RETURNS_NULL(Result, Name, Params, Args) \
  WRAP(Result, Name, Params, Args, FailWithErrno(Error) * 0)

SETS_ERRNO(int, HOST_socket, (int Domain, int Type, int Protocol), (Domain, Type, Protocol))
SETS_ERRNO(int, HOST_accept, (int hSocket, struct sockaddr* pAddr, socklen_t* pLength),
           (hSocket, pAddr, pLength))
SETS_ERRNO(int, bind, (int hSocket, const struct sockaddr* pAddr, socklen_t Length),
           (hSocket, pAddr, Length))
SETS_ERRNO(ssize_t, HOST_send, (int hSocket, const void* p, size_t NumBytes, int Flags),
           (hSocket, p, NumBytes, Flags))
SETS_ERRNO(ssize_t, recv, (int hSocket, void* p, size_t NumBytes, int Flags),
           (hSocket, p, NumBytes, Flags))
SETS_ERRNO(ssize_t, read, (int hFile, void* p, size_t NumBytes),
           (hFile, p, MaxRead == 0 || MaxRead > NumBytes ? NumBytes : MaxRead))
SETS_ERRNO(ssize_t, write, (int hFile, const void* p, size_t NumBytes), (hFile, p, NumBytes))
SETS_ERRNO(off_t, lseek, (int hFile, off_t Offset, int Origin), (hFile, Offset, Origin))
SETS_ERRNO(int, fstat, (int hFile, struct stat* pStatus), (hFile, pStatus))
SETS_ERRNO(int, ftruncate, (int hFile, off_t Size), (hFile, Size))
SETS_ERRNO(int, stat, (const char* sPath, struct stat* pStatus), (sPath, pStatus))
SETS_ERRNO(int, lstat, (const char* sPath, struct stat* pStatus), (sPath, pStatus))
SETS_ERRNO(int, mkdir, (const char* sPath, mode_t Mode), (sPath, Mode))
SETS_ERRNO(int, mkstemp, (char* sPath), (sPath))
SETS_ERRNO(ssize_t, readlink, (const char* sPath, char* pTarget, size_t Size),
           (sPath, pTarget, Size))
SETS_ERRNO(void*, mmap, (void* p, size_t Length, int Access, int Flags, int hFile, off_t Offset),
           (p, Length, Access, Flags, hFile, Offset))
SETS_ERRNO(int, sysctlbyname, (const char* sName, void* p, size_t* pSize, void* pNew, size_t Size),
           (sName, p, pSize, pNew, Size))

RETURNS_ERROR(int, pthread_mutexattr_init, (pthread_mutexattr_t * p), (p))
RETURNS_ERROR(int, pthread_mutexattr_settype, (pthread_mutexattr_t * p, int Type), (p, Type))
RETURNS_ERROR(int, pthread_mutexattr_destroy, (pthread_mutexattr_t * p), (p))
RETURNS_ERROR(int, pthread_mutex_init, (pthread_mutex_t * p, const pthread_mutexattr_t* pAttr),
              (p, pAttr))
RETURNS_ERROR(int, pthread_mutex_destroy, (pthread_mutex_t * p), (p))
RETURNS_ERROR(int, pthread_mutex_lock, (pthread_mutex_t * p), (p))
RETURNS_ERROR(int, pthread_mutex_trylock, (pthread_mutex_t * p), (p))
RETURNS_ERROR(int, pthread_mutex_unlock, (pthread_mutex_t * p), (p))
RETURNS_ERROR(int, pthread_cond_init, (pthread_cond_t * p, const pthread_condattr_t* pAttr),
              (p, pAttr))
RETURNS_ERROR(int, pthread_cond_destroy, (pthread_cond_t * p), (p))
RETURNS_ERROR(int, pthread_cond_signal, (pthread_cond_t * p), (p))
RETURNS_ERROR(int, pthread_cond_wait, (pthread_cond_t * p, pthread_mutex_t* pMutex), (p, pMutex))
RETURNS_ERROR(int, pthread_attr_init, (pthread_attr_t * p), (p))
RETURNS_ERROR(int, pthread_attr_setdetachstate, (pthread_attr_t * p, int State), (p, State))
RETURNS_ERROR(int, pthread_create,
              (pthread_t * pId, const pthread_attr_t* pAttr, void* (*pf)(void*), void* pArg),
              (pId, pAttr, pf, pArg))
RETURNS_ERROR(int, pthread_cancel, (pthread_t Id), (Id))
RETURNS_ERROR(int, posix_spawnattr_init, (posix_spawnattr_t * p), (p))
RETURNS_ERROR(int, posix_spawnattr_destroy, (posix_spawnattr_t * p), (p))
RETURNS_ERROR(int, HOST_posix_spawnattr_setflags, (posix_spawnattr_t * p, short Flags), (p, Flags))
RETURNS_ERROR(int, HOST_posix_spawn,
              (pid_t * pPid, const char* sPath, const posix_spawn_file_actions_t* pActions,
               const posix_spawnattr_t* pAttr, char* const* pasArgs, char* const* pasEnv),
              (pPid, sPath, pActions, pAttr, pasArgs, pasEnv))
RETURNS_ERROR(kern_return_t, IOObjectRelease, (io_object_t hObject), (hObject))

RETURNS_NULL(void*, realloc, (void* p, size_t Size), (p, Size))
RETURNS_NULL(CFMutableDictionaryRef, IOServiceMatching, (const char* sName), (sName))
RETURNS_NULL(io_object_t, IOIteratorNext, (io_iterator_t hIterator), (hIterator))
RETURNS_NULL(Boolean, CFStringGetCString,
             (CFStringRef pString, char* pBuffer, CFIndex Size, CFStringEncoding Encoding),
             (pString, pBuffer, Size, Encoding))

extern "C" {

// Makes the call before it fails: after an error there may still be an iterator to release.
kern_return_t __real_IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef, io_iterator_t*);
kern_return_t __wrap_IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef, io_iterator_t*);
kern_return_t __wrap_IOServiceGetMatchingServices(mach_port_t hPort, CFDictionaryRef pMatching,
                                                  io_iterator_t* phIterator) {
  const kern_return_t Result = __real_IOServiceGetMatchingServices(hPort, pMatching, phIterator);
  int                 Error  = 0;
  return FAULT::Take("IOServiceGetMatchingServices", &Error) ? Error : Result;
}

int __real_select(int Num, fd_set* pR, fd_set* pW, fd_set* pE, struct timeval* pTime);
int __wrap_select(int Num, fd_set* pR, fd_set* pW, fd_set* pE, struct timeval* pTime);
int __wrap_select(int Num, fd_set* pR, fd_set* pW, fd_set* pE, struct timeval* pTime) {
  LastSelectTime = pTime != nullptr ? *pTime : timeval{-1, -1};
  int Error      = 0;
  return FAULT::Take("select", &Error) ? (int)FailWithErrno(Error)
                                       : __real_select(Num, pR, pW, pE, pTime);
}

int __real_bind(int hSocket, const struct sockaddr* pAddr, socklen_t Length);
int __real_connect(int hSocket, const struct sockaddr* pAddr, socklen_t Length);
int __wrap_connect(int hSocket, const struct sockaddr* pAddr, socklen_t Length);
int __wrap_connect(int hSocket, const struct sockaddr* pAddr, socklen_t Length) {
  int Error = 0;
  if (FAULT::Take("connect", &Error)) {
    return (int)FailWithErrno(Error);
  }
  if (FAULT::Take("connect, to itself", &Error) && __real_bind(hSocket, pAddr, Length) != 0) {
    return -1;
  }
  return __real_connect(hSocket, pAddr, Length);
}

int __real_usleep(useconds_t Microseconds);
int __wrap_usleep(useconds_t Microseconds);
int __wrap_usleep(useconds_t Microseconds) {
  LastSleepUs = Microseconds;
  int Error   = 0;
  return FAULT::Take("usleep", &Error) ? (int)FailWithErrno(Error) : __real_usleep(Microseconds);
}

void* __real_malloc(size_t Size);
void* __wrap_malloc(size_t Size);
void* __wrap_malloc(size_t Size) {
  int Error = 0;
  if (FAULT::Take("malloc", &Error)) {
    errno = Error;
    return nullptr;
  }
  void* pMem = __real_malloc(Size);
  if (MallocFill >= 0 && pMem != nullptr) {
    memset(pMem, MallocFill, Size);
  }
  return pMem;
}

int __real_nanosleep(const struct timespec* pPause, struct timespec* pLeft);
int __wrap_nanosleep(const struct timespec* pPause, struct timespec* pLeft);
int __wrap_nanosleep(const struct timespec* pPause, struct timespec* pLeft) {
  LastPause = *pPause;
  int Error = 0;
  if (FAULT::Take("nanosleep", &Error)) {
    return (int)FailWithErrno(Error);
  }
  if (IsTimeOfDayFake && IsTimeMovedByPauses) {
    const struct timeval Pause = {pPause->tv_sec, (suseconds_t)(pPause->tv_nsec / 1000)};
    timeradd(&FakeTimeOfDay, &Pause, &FakeTimeOfDay);
    return 0;
  }
  return __real_nanosleep(pPause, pLeft);
}

// Closes before it fails: a failed close() closes the descriptor too.
int __real_close(int hFile);
int __wrap_close(int hFile);
int __wrap_close(int hFile) {
  const int Result = __real_close(hFile);
  int       Error  = 0;
  return FAULT::Take("close", &Error) ? (int)FailWithErrno(Error) : Result;
}

int __real_HOST_setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length);
int __wrap_HOST_setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length);
int __wrap_HOST_setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length) {
  if (Length == sizeof(int)) {
    GetOptionCalls().push_back({Level, Name, *(const int*)pValue});
  }
  int Error = 0;
  if (FAULT::Take("HOST_setsockopt", &Error)) {
    errno = Error;
    return -1;
  }
  return __real_HOST_setsockopt(hSocket, Level, Name, pValue, Length);
}

int __real_HOST_ioctl(int hFile, unsigned long Request, ...);
int __wrap_HOST_ioctl(int hFile, unsigned long Request, ...);
int __wrap_HOST_ioctl(int hFile, unsigned long Request, ...) {
  va_list Args;
  va_start(Args, Request);
  void* pArg = va_arg(Args, void*);
  va_end(Args);
  int Error = 0;
  if (FAULT::Take("HOST_ioctl", &Error)) {
    errno = Error;
    return -1;
  }
  return __real_HOST_ioctl(hFile, Request, pArg);
}

int __real_open(const char* sPath, int Flags, ...);
int __wrap_open(const char* sPath, int Flags, ...);
int __wrap_open(const char* sPath, int Flags, ...) {
  va_list Args;
  va_start(Args, Flags);
  const unsigned Mode = va_arg(Args, unsigned);
  va_end(Args);
  LastOpenFlags = Flags;
  int Error     = 0;
  if (FAULT::Take("open", &Error)) {
    errno = Error;
    return -1;
  }
  return __real_open(sPath, Flags, Mode);
}

// Has a name with two addresses, which a machine may not have.
int __real_getaddrinfo(const char* sName, const char* sService, const struct addrinfo* pHints,
                       struct addrinfo** ppResults);
int __wrap_getaddrinfo(const char* sName, const char* sService, const struct addrinfo* pHints,
                       struct addrinfo** ppResults);
int __wrap_getaddrinfo(const char* sName, const char* sService, const struct addrinfo* pHints,
                       struct addrinfo** ppResults) {
  LastHints = *pHints;
  int Error = 0;
  if (FAULT::Take("getaddrinfo", &Error)) {
    return Error;
  }
  if (strcmp(sName, "two-addresses.test") != 0) {
    return __real_getaddrinfo(sName, sService, pHints, ppResults);
  }
  Error = __real_getaddrinfo("192.0.2.1", sService, pHints, ppResults);
  return Error != 0 ? Error
                    : __real_getaddrinfo("192.0.2.2", sService, pHints, &(*ppResults)->ai_next);
}

void __wrap_syslog(int Priority, const char* sFormat, ...);
void __wrap_syslog(int Priority, const char* sFormat, ...) {
  char    acText[4096];
  va_list Args;
  va_start(Args, sFormat);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  vsnprintf(acText, sizeof(acText), sFormat, Args);
#pragma GCC diagnostic pop
  va_end(Args);
  LogCalls.push_back({Priority, sFormat, acText});
}

IOReturn __real_IOPMAssertionCreate(CFStringRef, IOPMAssertionLevel, IOPMAssertionID*);
IOReturn __wrap_IOPMAssertionCreate(CFStringRef, IOPMAssertionLevel, IOPMAssertionID*);
IOReturn __wrap_IOPMAssertionCreate(CFStringRef pType, IOPMAssertionLevel Level,
                                    IOPMAssertionID* pId) {
  int Error = 0;
  if (FAULT::Take("IOPMAssertionCreate", &Error)) {
    return Error;
  }
  char acType[64] = "";
  CFStringGetCString(pType, acType, sizeof(acType), kCFStringEncodingUTF8);
  const IOReturn Result = __real_IOPMAssertionCreate(pType, Level, pId);
  LastAssertion         = {acType, Level, *pId, 0};
  return Result;
}

IOReturn __real_IOPMAssertionRelease(IOPMAssertionID Id);
IOReturn __wrap_IOPMAssertionRelease(IOPMAssertionID Id);
IOReturn __wrap_IOPMAssertionRelease(IOPMAssertionID Id) {
  int Error                = 0;
  LastAssertion.ReleasedId = Id;
  return FAULT::Take("IOPMAssertionRelease", &Error) ? Error : __real_IOPMAssertionRelease(Id);
}

int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
int __wrap_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
int __wrap_pthread_cond_timedwait(pthread_cond_t* p, pthread_mutex_t* pMutex,
                                  const struct timespec* pUntil) {
  int Error = 0;
  if (FAULT::Take("pthread_cond_timedwait", &Error)) {
    RefusedWaitEnd = *pUntil;
    return Error;
  }
  const int Result = __real_pthread_cond_timedwait(p, pMutex, pUntil);
  return Result == 0 && FAULT::Take("pthread_cond_timedwait, woken", &Error) ? Error : Result;
}

int __real_proc_pidpath(int Pid, void* pBuffer, uint32_t Size);
int __wrap_proc_pidpath(int Pid, void* pBuffer, uint32_t Size);
int __wrap_proc_pidpath(int Pid, void* pBuffer, uint32_t Size) {
  int Error = 0;
  if (FAULT::Take("proc_pidpath", &Error)) {
    errno = Error;
    return 0;
  }
  if (FakeExecutable.empty()) {
    return __real_proc_pidpath(Pid, pBuffer, Size);
  }
  return snprintf((char*)pBuffer, Size, "%s", FakeExecutable.c_str());
}

int __real_tcflush(int hLine, int Queue);
int __wrap_tcflush(int hLine, int Queue);
int __wrap_tcflush(int hLine, int Queue) {
  LastFlush = Queue;
  return __real_tcflush(hLine, Queue);
}

int __real_tcsetattr(int hLine, int When, const struct termios* pLine);
int __wrap_tcsetattr(int hLine, int When, const struct termios* pLine);
int __wrap_tcsetattr(int hLine, int When, const struct termios* pLine) {
  LastLine     = *pLine;
  LastLineWhen = When;
  int Error    = 0;
  return FAULT::Take("tcsetattr", &Error) ? (int)FailWithErrno(Error)
                                          : __real_tcsetattr(hLine, When, pLine);
}

uint64_t __real_mach_absolute_time(void);
uint64_t __wrap_mach_absolute_time(void);
uint64_t __wrap_mach_absolute_time(void) {
  return IsClockFake ? FakeTicks : __real_mach_absolute_time();
}

int __real_mach_timebase_info(mach_timebase_info_data_t* pInfo);
int __wrap_mach_timebase_info(mach_timebase_info_data_t* pInfo);
int __wrap_mach_timebase_info(mach_timebase_info_data_t* pInfo) {
  if (!IsClockFake) {
    return __real_mach_timebase_info(pInfo);
  }
  pInfo->numer = FakeRatio[0];
  pInfo->denom = FakeRatio[1];
  return 0;
}

int __real_gettimeofday(struct timeval* pTime, void* pZone);
int __wrap_gettimeofday(struct timeval* pTime, void* pZone);
int __wrap_gettimeofday(struct timeval* pTime, void* pZone) {
  int Error = 0;
  if (FAULT::Take("gettimeofday", &Error)) {
    return (int)FailWithErrno(Error);
  }
  if (!IsTimeOfDayFake) {
    return __real_gettimeofday(pTime, pZone);
  }
  *pTime = FakeTimeOfDay;
  return 0;
}

time_t __real_time(time_t* pTime);
time_t __wrap_time(time_t* pTime);
time_t __wrap_time(time_t* pTime) {
  return IsClockFake ? (time_t)FakeTime : __real_time(pTime);
}
}
