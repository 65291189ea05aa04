// machorun/darwin_abi.h
// SPDX-License-Identifier: MIT
//
// Records and constants of Darwin on x86-64 that differ from Linux's and that a shim translates.
//
// tests/macho/darwin_abi_check.cpp is compiled for Darwin and compares every line with the system's
// headers.

#ifndef MACHORUN_DARWIN_ABI_H
#define MACHORUN_DARWIN_ABI_H

#include <stdint.h>

namespace darwin {

// -- Files ---------------------------------------------------------------------------------------

enum : uint32_t {
  FLAG_NONBLOCK  = 0x4,
  FLAG_APPEND    = 0x8,
  FLAG_SYNC      = 0x80,
  FLAG_NOFOLLOW  = 0x100,
  FLAG_CREAT     = 0x200,
  FLAG_TRUNC     = 0x400,
  FLAG_EXCL      = 0x800,
  FLAG_NOCTTY    = 0x20000,
  FLAG_DIRECTORY = 0x100000,
  FLAG_CLOEXEC   = 0x1000000,
};

enum : int32_t {
  FCNTL_FULLFSYNC     = 51,
  FCNTL_DUPFD_CLOEXEC = 67,
  MAP_ANONYMOUS_FLAG  = 0x1000,
  MSYNC_SYNC          = 0x10,
  SYSCONF_PAGESIZE    = 29,
  SYSCONF_NPROC_ONLN  = 58,
};

struct Timespec {
  int64_t Seconds;
  int64_t Nanoseconds;
};

struct Stat {
  int32_t  Device;
  uint16_t Mode;
  uint16_t NumLinks;
  uint64_t Inode;
  uint32_t User;
  uint32_t Group;
  int32_t  SpecialDevice;
  Timespec Access;
  Timespec Modification;
  Timespec Change;
  Timespec Birth;
  int64_t  Size;
  int64_t  Blocks;
  int32_t  BlockSize;
  uint32_t Flags;
  uint32_t Generation;
  int32_t  Spare;
  int64_t  Spares[2];
};

// -- Time ----------------------------------------------------------------------------------------

struct Timeval {
  int64_t Seconds;
  int32_t Microseconds;  // followed by four bytes of padding
};

enum : int32_t { CLOCK_ID_MONOTONIC = 6 };

// -- Locales -------------------------------------------------------------------------------------

enum : int32_t { CATEGORY_CTYPE = 2 };

// -- Threads -------------------------------------------------------------------------------------

// The first word of a statically initialised object.
enum : uint64_t {
  SIGNATURE_MUTEX           = 0x32AAABA7,
  SIGNATURE_MUTEX_RECURSIVE = 0x32AAABA2,
  SIGNATURE_COND            = 0x3CB0B1BB,
};

enum : int32_t {
  MUTEX_TYPE_NORMAL     = 0,
  MUTEX_TYPE_ERRORCHECK = 1,
  MUTEX_TYPE_RECURSIVE  = 2,
  THREAD_JOINABLE       = 1,
  THREAD_DETACHED       = 2,
};

// The smallest pthread object: signature and room for a pointer.
struct ThreadObject {
  uint64_t Signature;
  void*    pHost;
};

// What a thread's id points to. The macros of <pthread.h> themselves keep the list of the cleanup
// handlers in it, newest first; the rest is the system's.
struct CleanupHandler {
  void (*pfRoutine)(void*);
  void*           pArgument;
  CleanupHandler* pNext;
};

struct Thread {
  int64_t         Signature;
  CleanupHandler* pNewestHandler;
  uint8_t         aOpaque[8176];
};

// -- Sockets -------------------------------------------------------------------------------------

enum : int32_t {
  FAMILY_UNSPEC = 0,
  FAMILY_INET   = 2,
  FAMILY_INET6  = 30,

  LEVEL_SOCKET       = 0xFFFF,
  SOCKOPT_REUSEADDR  = 0x4,
  SOCKOPT_KEEPALIVE  = 0x8,
  SOCKOPT_BROADCAST  = 0x20,
  SOCKOPT_LINGER     = 0x80,  // counts in ticks of the kernel, 100 a second
  SOCKOPT_SNDBUF     = 0x1001,
  SOCKOPT_RCVBUF     = 0x1002,
  SOCKOPT_SNDTIMEO   = 0x1005,
  SOCKOPT_RCVTIMEO   = 0x1006,
  SOCKOPT_ERROR      = 0x1007,
  SOCKOPT_TYPE       = 0x1008,
  SOCKOPT_NOSIGPIPE  = 0x1022,
  SOCKOPT_LINGER_SEC = 0x1080,  // counts in seconds
  LEVEL_TCP          = 6,
  TCPOPT_NODELAY     = 1,
  LEVEL_IPV6         = 41,
  IPV6OPT_V6ONLY     = 27,

  MESSAGE_OOB      = 0x1,
  MESSAGE_PEEK     = 0x2,
  MESSAGE_WAITALL  = 0x40,
  MESSAGE_DONTWAIT = 0x80,
};

struct SockaddrIn {
  uint8_t  Length;
  uint8_t  Family;
  uint16_t Port;
  uint32_t Address;
  uint8_t  Zero[8];
};

struct SockaddrIn6 {
  uint8_t  Length;
  uint8_t  Family;
  uint16_t Port;
  uint32_t FlowInfo;
  uint8_t  Address[16];
  uint32_t ScopeId;
};

// -- Names ---------------------------------------------------------------------------------------

struct Addrinfo {
  int32_t   Flags;
  int32_t   Family;
  int32_t   SocketType;
  int32_t   Protocol;
  uint32_t  AddressLength;
  char*     sCanonicalName;
  void*     pAddress;
  Addrinfo* pNext;
};

enum : int32_t {
  AI_FLAG_PASSIVE     = 0x1,
  AI_FLAG_CANONNAME   = 0x2,
  AI_FLAG_NUMERICHOST = 0x4,
  AI_FLAG_ALL         = 0x100,
  AI_FLAG_ADDRCONFIG  = 0x400,
  AI_FLAG_V4MAPPED    = 0x800,
  AI_FLAG_NUMERICSERV = 0x1000,

  NI_FLAG_NOFQDN      = 0x1,
  NI_FLAG_NUMERICHOST = 0x2,
  NI_FLAG_NAMEREQD    = 0x4,
  NI_FLAG_NUMERICSERV = 0x8,
  NI_FLAG_DGRAM       = 0x10,

  EAI_CODE_AGAIN    = 2,
  EAI_CODE_BADFLAGS = 3,
  EAI_CODE_FAIL     = 4,
  EAI_CODE_FAMILY   = 5,
  EAI_CODE_MEMORY   = 6,
  EAI_CODE_NONAME   = 8,
  EAI_CODE_SERVICE  = 9,
  EAI_CODE_SOCKTYPE = 10,
  EAI_CODE_SYSTEM   = 11,
  EAI_CODE_OVERFLOW = 14,
};

// -- Terminals -----------------------------------------------------------------------------------

struct Termios {
  uint64_t InputFlags;
  uint64_t OutputFlags;
  uint64_t ControlFlags;
  uint64_t LocalFlags;
  uint8_t  ControlChars[20];
  uint64_t InputSpeed;
  uint64_t OutputSpeed;
};

enum : uint64_t {
  IN_IGNBRK  = 0x1,
  IN_BRKINT  = 0x2,
  IN_IGNPAR  = 0x4,
  IN_PARMRK  = 0x8,
  IN_INPCK   = 0x10,
  IN_ISTRIP  = 0x20,
  IN_INLCR   = 0x40,
  IN_IGNCR   = 0x80,
  IN_ICRNL   = 0x100,
  IN_IXON    = 0x200,
  IN_IXOFF   = 0x400,
  IN_IXANY   = 0x800,
  IN_IMAXBEL = 0x2000,
  IN_IUTF8   = 0x4000,

  OUT_OPOST  = 0x1,
  OUT_ONLCR  = 0x2,
  OUT_OXTABS = 0x4,
  OUT_OCRNL  = 0x10,
  OUT_ONOCR  = 0x20,
  OUT_ONLRET = 0x40,

  CTL_CS6        = 0x100,
  CTL_CS7        = 0x200,
  CTL_CSTOPB     = 0x400,
  CTL_CREAD      = 0x800,
  CTL_PARENB     = 0x1000,
  CTL_PARODD     = 0x2000,
  CTL_HUPCL      = 0x4000,
  CTL_CLOCAL     = 0x8000,
  CTL_CCTS_OFLOW = 0x10000,
  CTL_CRTS_IFLOW = 0x20000,

  LOC_ECHOKE  = 0x1,
  LOC_ECHOE   = 0x2,
  LOC_ECHOK   = 0x4,
  LOC_ECHO    = 0x8,
  LOC_ECHONL  = 0x10,
  LOC_ECHOPRT = 0x20,
  LOC_ECHOCTL = 0x40,
  LOC_ISIG    = 0x80,
  LOC_ICANON  = 0x100,
  LOC_IEXTEN  = 0x400,
  LOC_TOSTOP  = 0x400000,
  LOC_NOFLSH  = 0x80000000,
};

enum : int32_t {
  CHAR_VEOF     = 0,
  CHAR_VEOL     = 1,
  CHAR_VEOL2    = 2,
  CHAR_VERASE   = 3,
  CHAR_VWERASE  = 4,
  CHAR_VKILL    = 5,
  CHAR_VREPRINT = 6,
  CHAR_VINTR    = 8,
  CHAR_VQUIT    = 9,
  CHAR_VSUSP    = 10,
  CHAR_VSTART   = 12,
  CHAR_VSTOP    = 13,
  CHAR_VLNEXT   = 14,
  CHAR_VDISCARD = 15,
  CHAR_VMIN     = 16,
  CHAR_VTIME    = 17,

  SET_NOW   = 0,
  SET_DRAIN = 1,
  SET_FLUSH = 2,

  CHAR_VDSUSP  = 11,  // Linux lacks this one and the next
  CHAR_VSTATUS = 18,
  CHAR_NONE    = 0xFF,  // no such character; 0 on Linux

  FLUSH_IN   = 1,
  FLUSH_OUT  = 2,
  FLUSH_BOTH = 3,
};

enum : uint64_t {
  REQUEST_FIONREAD = 0x4004667F,
  REQUEST_FIONBIO  = 0x8004667E,
  REQUEST_EXCL     = 0x2000740D,
  REQUEST_NXCL     = 0x2000740E,
};
constexpr uint64_t REQUEST_SERIAL_SPEED = 0x80045402;  // IOKit's; not in the headers used here

// -- Processes -----------------------------------------------------------------------------------

enum : int32_t {
  SPAWN_CLOEXEC_DEFAULT = 0x4000,

  SIGNAL_BUS  = 10,
  SIGNAL_SYS  = 12,
  SIGNAL_CHLD = 20,
  SIGNAL_USR1 = 30,
  SIGNAL_USR2 = 31,
};

// -- Dynamic loader ------------------------------------------------------------------------------

enum : int32_t {
  DL_LAZY   = 0x1,
  DL_NOW    = 0x2,
  DL_LOCAL  = 0x4,
  DL_GLOBAL = 0x8,
};

}  // namespace darwin

#endif
