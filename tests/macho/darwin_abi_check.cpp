// SPDX-License-Identifier: MIT

// Compiled for Darwin with the system's own headers, and never run. It compiles only if every
// record and constant of the shims is as in those headers.

#include "machorun/darwin_abi.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stddef.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#define SAME(Ours, Theirs) \
  static_assert((unsigned long long)(Ours) == (unsigned long long)(Theirs), #Ours)
#define SAME_SIZE(Ours, Theirs) static_assert(sizeof(Ours) == sizeof(Theirs), #Ours)
#define SAME_PLACE(Ours, Field, Theirs, TheirField)                                            \
  static_assert(offsetof(Ours, Field) == offsetof(Theirs, TheirField) &&                       \
                    sizeof(((Ours*)nullptr)->Field) == sizeof(((Theirs*)nullptr)->TheirField), \
                #Ours "." #Field)

// Files
SAME(darwin::FLAG_NONBLOCK, O_NONBLOCK);
SAME(darwin::FLAG_APPEND, O_APPEND);
SAME(darwin::FLAG_SYNC, O_SYNC);
SAME(darwin::FLAG_NOFOLLOW, O_NOFOLLOW);
SAME(darwin::FLAG_CREAT, O_CREAT);
SAME(darwin::FLAG_TRUNC, O_TRUNC);
SAME(darwin::FLAG_EXCL, O_EXCL);
SAME(darwin::FLAG_NOCTTY, O_NOCTTY);
SAME(darwin::FLAG_DIRECTORY, O_DIRECTORY);
SAME(darwin::FLAG_CLOEXEC, O_CLOEXEC);
SAME(darwin::FCNTL_FULLFSYNC, F_FULLFSYNC);
SAME(darwin::FCNTL_DUPFD_CLOEXEC, F_DUPFD_CLOEXEC);
SAME(darwin::MAP_ANONYMOUS_FLAG, MAP_ANON);
SAME(darwin::MSYNC_SYNC, MS_SYNC);
SAME(darwin::SYSCONF_PAGESIZE, _SC_PAGESIZE);
SAME(darwin::SYSCONF_NPROC_ONLN, _SC_NPROCESSORS_ONLN);
SAME_SIZE(darwin::Stat, struct stat);
SAME_PLACE(darwin::Stat, Device, struct stat, st_dev);
SAME_PLACE(darwin::Stat, Mode, struct stat, st_mode);
SAME_PLACE(darwin::Stat, NumLinks, struct stat, st_nlink);
SAME_PLACE(darwin::Stat, Inode, struct stat, st_ino);
SAME_PLACE(darwin::Stat, User, struct stat, st_uid);
SAME_PLACE(darwin::Stat, Group, struct stat, st_gid);
SAME_PLACE(darwin::Stat, SpecialDevice, struct stat, st_rdev);
SAME_PLACE(darwin::Stat, Access, struct stat, st_atimespec);
SAME_PLACE(darwin::Stat, Modification, struct stat, st_mtimespec);
SAME_PLACE(darwin::Stat, Change, struct stat, st_ctimespec);
SAME_PLACE(darwin::Stat, Birth, struct stat, st_birthtimespec);
SAME_PLACE(darwin::Stat, Size, struct stat, st_size);
SAME_PLACE(darwin::Stat, Blocks, struct stat, st_blocks);
SAME_PLACE(darwin::Stat, BlockSize, struct stat, st_blksize);

// Time
SAME_SIZE(darwin::Timeval, struct timeval);
SAME_PLACE(darwin::Timeval, Seconds, struct timeval, tv_sec);
SAME_PLACE(darwin::Timeval, Microseconds, struct timeval, tv_usec);
SAME(darwin::CLOCK_ID_MONOTONIC, CLOCK_MONOTONIC);

// Threads
SAME(darwin::SIGNATURE_MUTEX, _PTHREAD_MUTEX_SIG_init);
SAME(darwin::SIGNATURE_MUTEX_RECURSIVE, _PTHREAD_RECURSIVE_MUTEX_SIG_init);
SAME(darwin::SIGNATURE_COND, _PTHREAD_COND_SIG_init);
SAME(darwin::MUTEX_TYPE_NORMAL, PTHREAD_MUTEX_NORMAL);
SAME(darwin::MUTEX_TYPE_ERRORCHECK, PTHREAD_MUTEX_ERRORCHECK);
SAME(darwin::MUTEX_TYPE_RECURSIVE, PTHREAD_MUTEX_RECURSIVE);
SAME(darwin::THREAD_JOINABLE, PTHREAD_CREATE_JOINABLE);
SAME(darwin::THREAD_DETACHED, PTHREAD_CREATE_DETACHED);
static_assert(sizeof(darwin::ThreadObject) <= sizeof(pthread_mutex_t), "");
static_assert(sizeof(darwin::ThreadObject) <= sizeof(pthread_mutexattr_t), "");
static_assert(sizeof(darwin::ThreadObject) <= sizeof(pthread_cond_t), "");
static_assert(sizeof(darwin::ThreadObject) <= sizeof(pthread_condattr_t), "");
static_assert(sizeof(darwin::ThreadObject) <= sizeof(pthread_attr_t), "");
SAME_SIZE(darwin::CleanupHandler, struct __darwin_pthread_handler_rec);
SAME_PLACE(darwin::CleanupHandler, pfRoutine, struct __darwin_pthread_handler_rec, __routine);
SAME_PLACE(darwin::CleanupHandler, pArgument, struct __darwin_pthread_handler_rec, __arg);
SAME_PLACE(darwin::CleanupHandler, pNext, struct __darwin_pthread_handler_rec, __next);
SAME_SIZE(darwin::Thread, struct _opaque_pthread_t);
SAME_PLACE(darwin::Thread, pNewestHandler, struct _opaque_pthread_t, __cleanup_stack);

// Locales
SAME(darwin::CATEGORY_CTYPE, LC_CTYPE);

// Sockets
SAME(darwin::FAMILY_UNSPEC, AF_UNSPEC);
SAME(darwin::FAMILY_INET, AF_INET);
SAME(darwin::FAMILY_INET6, AF_INET6);
SAME(darwin::LEVEL_SOCKET, SOL_SOCKET);
SAME(darwin::SOCKOPT_REUSEADDR, SO_REUSEADDR);
SAME(darwin::SOCKOPT_KEEPALIVE, SO_KEEPALIVE);
SAME(darwin::SOCKOPT_BROADCAST, SO_BROADCAST);
SAME(darwin::SOCKOPT_LINGER, SO_LINGER);
SAME(darwin::SOCKOPT_SNDBUF, SO_SNDBUF);
SAME(darwin::SOCKOPT_RCVBUF, SO_RCVBUF);
SAME(darwin::SOCKOPT_SNDTIMEO, SO_SNDTIMEO);
SAME(darwin::SOCKOPT_RCVTIMEO, SO_RCVTIMEO);
SAME(darwin::SOCKOPT_ERROR, SO_ERROR);
SAME(darwin::SOCKOPT_TYPE, SO_TYPE);
SAME(darwin::SOCKOPT_NOSIGPIPE, SO_NOSIGPIPE);
SAME(darwin::SOCKOPT_LINGER_SEC, SO_LINGER_SEC);
SAME(darwin::LEVEL_TCP, IPPROTO_TCP);
SAME(darwin::TCPOPT_NODELAY, TCP_NODELAY);
SAME(darwin::LEVEL_IPV6, IPPROTO_IPV6);
SAME(darwin::IPV6OPT_V6ONLY, IPV6_V6ONLY);
SAME(darwin::MESSAGE_OOB, MSG_OOB);
SAME(darwin::MESSAGE_PEEK, MSG_PEEK);
SAME(darwin::MESSAGE_WAITALL, MSG_WAITALL);
SAME(darwin::MESSAGE_DONTWAIT, MSG_DONTWAIT);
SAME_SIZE(darwin::SockaddrIn, struct sockaddr_in);
SAME_PLACE(darwin::SockaddrIn, Length, struct sockaddr_in, sin_len);
SAME_PLACE(darwin::SockaddrIn, Family, struct sockaddr_in, sin_family);
SAME_PLACE(darwin::SockaddrIn, Port, struct sockaddr_in, sin_port);
SAME_PLACE(darwin::SockaddrIn, Address, struct sockaddr_in, sin_addr);
SAME_SIZE(darwin::SockaddrIn6, struct sockaddr_in6);
SAME_PLACE(darwin::SockaddrIn6, Family, struct sockaddr_in6, sin6_family);
SAME_PLACE(darwin::SockaddrIn6, Port, struct sockaddr_in6, sin6_port);
SAME_PLACE(darwin::SockaddrIn6, FlowInfo, struct sockaddr_in6, sin6_flowinfo);
SAME_PLACE(darwin::SockaddrIn6, Address, struct sockaddr_in6, sin6_addr);
SAME_PLACE(darwin::SockaddrIn6, ScopeId, struct sockaddr_in6, sin6_scope_id);

// Names
SAME_SIZE(darwin::Addrinfo, struct addrinfo);
SAME_PLACE(darwin::Addrinfo, Flags, struct addrinfo, ai_flags);
SAME_PLACE(darwin::Addrinfo, Family, struct addrinfo, ai_family);
SAME_PLACE(darwin::Addrinfo, SocketType, struct addrinfo, ai_socktype);
SAME_PLACE(darwin::Addrinfo, Protocol, struct addrinfo, ai_protocol);
SAME_PLACE(darwin::Addrinfo, AddressLength, struct addrinfo, ai_addrlen);
SAME_PLACE(darwin::Addrinfo, sCanonicalName, struct addrinfo, ai_canonname);
SAME_PLACE(darwin::Addrinfo, pAddress, struct addrinfo, ai_addr);
SAME_PLACE(darwin::Addrinfo, pNext, struct addrinfo, ai_next);
SAME(darwin::AI_FLAG_PASSIVE, AI_PASSIVE);
SAME(darwin::AI_FLAG_CANONNAME, AI_CANONNAME);
SAME(darwin::AI_FLAG_NUMERICHOST, AI_NUMERICHOST);
SAME(darwin::AI_FLAG_ALL, AI_ALL);
SAME(darwin::AI_FLAG_ADDRCONFIG, AI_ADDRCONFIG);
SAME(darwin::AI_FLAG_V4MAPPED, AI_V4MAPPED);
SAME(darwin::AI_FLAG_NUMERICSERV, AI_NUMERICSERV);
SAME(darwin::NI_FLAG_NOFQDN, NI_NOFQDN);
SAME(darwin::NI_FLAG_NUMERICHOST, NI_NUMERICHOST);
SAME(darwin::NI_FLAG_NAMEREQD, NI_NAMEREQD);
SAME(darwin::NI_FLAG_NUMERICSERV, NI_NUMERICSERV);
SAME(darwin::NI_FLAG_DGRAM, NI_DGRAM);
SAME(darwin::EAI_CODE_AGAIN, EAI_AGAIN);
SAME(darwin::EAI_CODE_BADFLAGS, EAI_BADFLAGS);
SAME(darwin::EAI_CODE_FAIL, EAI_FAIL);
SAME(darwin::EAI_CODE_FAMILY, EAI_FAMILY);
SAME(darwin::EAI_CODE_MEMORY, EAI_MEMORY);
SAME(darwin::EAI_CODE_NONAME, EAI_NONAME);
SAME(darwin::EAI_CODE_SERVICE, EAI_SERVICE);
SAME(darwin::EAI_CODE_SOCKTYPE, EAI_SOCKTYPE);
SAME(darwin::EAI_CODE_SYSTEM, EAI_SYSTEM);
SAME(darwin::EAI_CODE_OVERFLOW, EAI_OVERFLOW);

// Terminals
SAME_SIZE(darwin::Termios, struct termios);
SAME_PLACE(darwin::Termios, InputFlags, struct termios, c_iflag);
SAME_PLACE(darwin::Termios, OutputFlags, struct termios, c_oflag);
SAME_PLACE(darwin::Termios, ControlFlags, struct termios, c_cflag);
SAME_PLACE(darwin::Termios, LocalFlags, struct termios, c_lflag);
SAME_PLACE(darwin::Termios, ControlChars, struct termios, c_cc);
SAME_PLACE(darwin::Termios, InputSpeed, struct termios, c_ispeed);
SAME_PLACE(darwin::Termios, OutputSpeed, struct termios, c_ospeed);
SAME(darwin::IN_IGNBRK, IGNBRK);
SAME(darwin::IN_BRKINT, BRKINT);
SAME(darwin::IN_IGNPAR, IGNPAR);
SAME(darwin::IN_PARMRK, PARMRK);
SAME(darwin::IN_INPCK, INPCK);
SAME(darwin::IN_ISTRIP, ISTRIP);
SAME(darwin::IN_INLCR, INLCR);
SAME(darwin::IN_IGNCR, IGNCR);
SAME(darwin::IN_ICRNL, ICRNL);
SAME(darwin::IN_IXON, IXON);
SAME(darwin::IN_IXOFF, IXOFF);
SAME(darwin::IN_IXANY, IXANY);
SAME(darwin::IN_IMAXBEL, IMAXBEL);
SAME(darwin::IN_IUTF8, IUTF8);
SAME(darwin::OUT_OPOST, OPOST);
SAME(darwin::OUT_ONLCR, ONLCR);
SAME(darwin::OUT_OXTABS, OXTABS);
SAME(darwin::OUT_OCRNL, OCRNL);
SAME(darwin::OUT_ONOCR, ONOCR);
SAME(darwin::OUT_ONLRET, ONLRET);
SAME(darwin::CTL_CS6, CS6);
SAME(darwin::CTL_CS7, CS7);
SAME(darwin::CTL_CSTOPB, CSTOPB);
SAME(darwin::CTL_CREAD, CREAD);
SAME(darwin::CTL_PARENB, PARENB);
SAME(darwin::CTL_PARODD, PARODD);
SAME(darwin::CTL_HUPCL, HUPCL);
SAME(darwin::CTL_CLOCAL, CLOCAL);
SAME(darwin::CTL_CCTS_OFLOW, CCTS_OFLOW);
SAME(darwin::CTL_CRTS_IFLOW, CRTS_IFLOW);
SAME(darwin::LOC_ECHOKE, ECHOKE);
SAME(darwin::LOC_ECHOE, ECHOE);
SAME(darwin::LOC_ECHOK, ECHOK);
SAME(darwin::LOC_ECHO, ECHO);
SAME(darwin::LOC_ECHONL, ECHONL);
SAME(darwin::LOC_ECHOPRT, ECHOPRT);
SAME(darwin::LOC_ECHOCTL, ECHOCTL);
SAME(darwin::LOC_ISIG, ISIG);
SAME(darwin::LOC_ICANON, ICANON);
SAME(darwin::LOC_IEXTEN, IEXTEN);
SAME(darwin::LOC_TOSTOP, TOSTOP);
SAME(darwin::LOC_NOFLSH, NOFLSH);
SAME(darwin::CHAR_VEOF, VEOF);
SAME(darwin::CHAR_VEOL, VEOL);
SAME(darwin::CHAR_VEOL2, VEOL2);
SAME(darwin::CHAR_VERASE, VERASE);
SAME(darwin::CHAR_VWERASE, VWERASE);
SAME(darwin::CHAR_VKILL, VKILL);
SAME(darwin::CHAR_VREPRINT, VREPRINT);
SAME(darwin::CHAR_VINTR, VINTR);
SAME(darwin::CHAR_VQUIT, VQUIT);
SAME(darwin::CHAR_VSUSP, VSUSP);
SAME(darwin::CHAR_VSTART, VSTART);
SAME(darwin::CHAR_VSTOP, VSTOP);
SAME(darwin::CHAR_VLNEXT, VLNEXT);
SAME(darwin::CHAR_VDISCARD, VDISCARD);
SAME(darwin::CHAR_VMIN, VMIN);
SAME(darwin::CHAR_VTIME, VTIME);
SAME(darwin::CHAR_VDSUSP, VDSUSP);
SAME(darwin::CHAR_VSTATUS, VSTATUS);
SAME(darwin::CHAR_NONE, _POSIX_VDISABLE);
SAME(darwin::SET_NOW, TCSANOW);
SAME(darwin::SET_DRAIN, TCSADRAIN);
SAME(darwin::SET_FLUSH, TCSAFLUSH);
SAME(darwin::FLUSH_IN, TCIFLUSH);
SAME(darwin::FLUSH_OUT, TCOFLUSH);
SAME(darwin::FLUSH_BOTH, TCIOFLUSH);
SAME(darwin::REQUEST_FIONREAD, FIONREAD);
SAME(darwin::REQUEST_FIONBIO, FIONBIO);
SAME(darwin::REQUEST_EXCL, TIOCEXCL);
SAME(darwin::REQUEST_NXCL, TIOCNXCL);

// Processes
SAME(darwin::SPAWN_CLOEXEC_DEFAULT, POSIX_SPAWN_CLOEXEC_DEFAULT);
SAME(darwin::SIGNAL_BUS, SIGBUS);
SAME(darwin::SIGNAL_SYS, SIGSYS);
SAME(darwin::SIGNAL_CHLD, SIGCHLD);
SAME(darwin::SIGNAL_USR1, SIGUSR1);
SAME(darwin::SIGNAL_USR2, SIGUSR2);

// Dynamic loader
SAME(darwin::DL_LAZY, RTLD_LAZY);
SAME(darwin::DL_NOW, RTLD_NOW);
SAME(darwin::DL_LOCAL, RTLD_LOCAL);
SAME(darwin::DL_GLOBAL, RTLD_GLOBAL);

// Error codes
#define NUMBER(Name, Value) static_assert(Name == Value, #Name);
#include "machorun/darwin_errno.inc"
#undef NUMBER
