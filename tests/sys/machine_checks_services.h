// SPDX-License-Identifier: MIT

// Checks what threads, sockets, serial ports, clock and small services promise. Uses C headers
// only, for a program without a test library: the macOS program that runs on another system's
// kernel.
//
// CheckServices() runs all checks, prints each failure with its line, and returns their number. It
// takes about a second of real time, because waits and sleeps are measured. It connects to
// 127.0.0.1 and ::1 only; the listener for both families can be reached at all addresses of the
// machine while it exists. No descriptor, file, thread or child remains; the system log keeps one
// message.

#ifndef TESTS_SYS_MACHINE_CHECKS_SERVICES_H
#define TESTS_SYS_MACHINE_CHECKS_SERVICES_H

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "sys/clock.h"
#include "sys/misc.h"
#include "sys/serial.h"
#include "sys/sockets.h"
#include "sys/thread.h"
#include "tests/sys/support/loopback.h"
#include "tests/sys/support/pty.h"

static int NumServiceFailures;

#define CHECK_SERVICE(Condition)                                     \
  do {                                                               \
    if (!(Condition)) {                                              \
      printf("%s:%d: failed: %s\n", __FILE__, __LINE__, #Condition); \
      NumServiceFailures++;                                          \
    }                                                                \
  } while (0)

static const uint32_t LoopbackIPv4      = 0x7F000001;
static const uint8_t  aLoopbackIPv6[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

// ---- Threads ------------------------------------------------------------------------------------

struct OTHER_THREAD {
  SYS_MUTEX* pMutex;
  SYS_EVENT* pDone;
  int32_t    LockResult;
  int32_t    UnlockResult;
  int        IsOver;  // set after its last use of the event, which may then be destroyed
};

static void* LockWhatIsHeld(void* pArg) {
  OTHER_THREAD* p = (OTHER_THREAD*)pArg;
  p->LockResult   = SYS_MUTEX_Lock(p->pMutex, 50);
  p->UnlockResult = SYS_MUTEX_Unlock(p->pMutex);
  SYS_EVENT_Set(p->pDone);
  __atomic_store_n(&p->IsOver, 1, __ATOMIC_RELEASE);
  return NULL;
}

static void SetDone(void* pArg) {
  OTHER_THREAD* p = (OTHER_THREAD*)pArg;
  SYS_EVENT_Set(p->pDone);
  __atomic_store_n(&p->IsOver, 1, __ATOMIC_RELEASE);
}

static void WaitUntilOver(OTHER_THREAD* p) {
  for (int i = 0; i < 10000 && !__atomic_load_n(&p->IsOver, __ATOMIC_ACQUIRE); i++) {
    SYS_Sleep(1);
  }
  CHECK_SERVICE(__atomic_load_n(&p->IsOver, __ATOMIC_ACQUIRE) != 0);
}

static void CheckMutexes(void) {
  SYS_MUTEX* apMutexes[64];
  for (int i = 0; i < 64; i++) {
    apMutexes[i] = SYS_MUTEX_Create("a name that is longer than the thirty-one characters kept");
    CHECK_SERVICE(apMutexes[i] != NULL);
  }
  CHECK_SERVICE(SYS_MUTEX_Create("65th") == NULL);
  SYS_MUTEX* const pSlot = apMutexes[5];
  SYS_MUTEX_Destroy(&apMutexes[5]);
  CHECK_SERVICE(apMutexes[5] == NULL);
  apMutexes[5] = SYS_MUTEX_Create(NULL);
  CHECK_SERVICE(apMutexes[5] == pSlot);

  OTHER_THREAD Other = {apMutexes[5], SYS_EVENT_Create(0, 0), -1, -1, 0};
  CHECK_SERVICE(SYS_MUTEX_Lock(apMutexes[5], SYS_WAIT_FOREVER) == 0);
  CHECK_SERVICE(SYS_THREAD_Start(LockWhatIsHeld, &Other, NULL) != 0);
  CHECK_SERVICE(SYS_EVENT_Wait(Other.pDone, 20000) == 0);
  WaitUntilOver(&Other);
  CHECK_SERVICE(Other.LockResult == 258);
  CHECK_SERVICE(Other.UnlockResult == 1);
  CHECK_SERVICE(SYS_MUTEX_Lock(apMutexes[5], 0) == 0);
  CHECK_SERVICE(SYS_MUTEX_Unlock(apMutexes[5]) == 0);
  CHECK_SERVICE(SYS_MUTEX_Unlock(apMutexes[5]) == 0);
  CHECK_SERVICE(SYS_MUTEX_Unlock(apMutexes[5]) == 1);
  SYS_EVENT_Destroy(Other.pDone);
  for (int i = 0; i < 64; i++) {
    SYS_MUTEX_Destroy(&apMutexes[i]);
  }
  CHECK_SERVICE(SYS_MUTEX_Lock(NULL, 0) == -1);

  static SYS_LOCK Lock;
  CHECK_SERVICE(SYS_LOCK_Lock(&Lock, 0) == -1);
  CHECK_SERVICE(SYS_LOCK_Create(&Lock) == 0);
  CHECK_SERVICE(SYS_LOCK_Lock(&Lock, SYS_WAIT_FOREVER) == 0);
  CHECK_SERVICE(SYS_LOCK_Lock(&Lock, 10) == 0);
  CHECK_SERVICE(SYS_LOCK_Unlock(&Lock) == 0);
  CHECK_SERVICE(SYS_LOCK_Unlock(&Lock) == 0);
  SYS_LOCK_Destroy(&Lock);
}

static void CheckEvents(void) {
  SYS_EVENT* apEvents[64];
  for (int i = 0; i < 64; i++) {
    apEvents[i] = SYS_EVENT_Create(0, 1);
    CHECK_SERVICE(apEvents[i] != SYS_EVENT_INVALID);
  }
  CHECK_SERVICE(SYS_EVENT_Create(0, 0) == SYS_EVENT_INVALID);
  SYS_EVENT* const pEvent = apEvents[9];
  SYS_EVENT_Destroy(pEvent);
  CHECK_SERVICE(SYS_EVENT_Create(0, 1) == pEvent);
  CHECK_SERVICE(SYS_EVENT_Create(1, 0) == SYS_EVENT_INVALID);

  CHECK_SERVICE(SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER) == 0);
  const uint32_t Start = SYS_GetTickCount();
  CHECK_SERVICE(SYS_EVENT_Wait(pEvent, 50) == 258);
  CHECK_SERVICE(SYS_GetTickCount() - Start >= 45);
  SYS_EVENT_Set(pEvent);
  SYS_EVENT_Set(pEvent);
  CHECK_SERVICE(SYS_EVENT_Wait(pEvent, 50) == 0);
  CHECK_SERVICE(SYS_EVENT_Wait(pEvent, 0) == 258);
  OTHER_THREAD Other = {NULL, pEvent, 0, 0, 0};
  pthread_t    Id    = 0;
  CHECK_SERVICE(SYS_THREAD_StartCall(SetDone, &Other, &Id) != 0);
  CHECK_SERVICE(Id != 0);
  CHECK_SERVICE(SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER) == 0);
  WaitUntilOver(&Other);
  for (int i = 0; i < 64; i++) {
    SYS_EVENT_Destroy(apEvents[i]);
  }
  CHECK_SERVICE(SYS_EVENT_Wait(pEvent, 0) == -1);
  CHECK_SERVICE(SYS_EVENT_Wait(NULL, 0) == -1);

  uint32_t Code = 0;
  CHECK_SERVICE(SYS_THREAD_GetExitCode(SYS_THREAD_GetCurrentId(), &Code) == 1);
  CHECK_SERVICE(Code == 259);
  CHECK_SERVICE(SYS_PROCESS_GetId() == getpid());
}

// Runs when the waiting thread is cancelled, after the handler of SYS_EVENT_Wait.
static void NoteCancelled(void* pArg) {
  __atomic_store_n(&((OTHER_THREAD*)pArg)->IsOver, 1, __ATOMIC_RELEASE);
}

static void WaitInVain(void* pArg) {
  OTHER_THREAD* p = (OTHER_THREAD*)pArg;
  pthread_cleanup_push(NoteCancelled, p);
  p->LockResult = SYS_EVENT_Wait(p->pDone, p->LockResult == 0 ? SYS_WAIT_FOREVER : 60000);
  pthread_cleanup_pop(0);
}

// A thread cancelled while it waits leaves the event unchanged and unlocked.
static void CheckCancel(void) {
  for (int32_t HasLimit = 0; HasLimit < 2; HasLimit++) {
    OTHER_THREAD    Waiter = {NULL, SYS_EVENT_Create(0, 0), HasLimit, 0, 0};
    const pthread_t Id     = SYS_THREAD_StartCall(WaitInVain, &Waiter, NULL);
    CHECK_SERVICE(Id != 0);
    SYS_Sleep(20);
    CHECK_SERVICE(__atomic_load_n(&Waiter.IsOver, __ATOMIC_ACQUIRE) == 0);
    CHECK_SERVICE(SYS_THREAD_Cancel(Id) == 0);
    WaitUntilOver(&Waiter);
    CHECK_SERVICE(Waiter.LockResult == HasLimit);  // the wait has not returned

    // In another thread: this one would wait for ever if the event were still locked.
    OTHER_THREAD Setter = {NULL, Waiter.pDone, 0, 0, 0};
    CHECK_SERVICE(SYS_THREAD_StartCall(SetDone, &Setter, NULL) != 0);
    WaitUntilOver(&Setter);
    if (__atomic_load_n(&Setter.IsOver, __ATOMIC_ACQUIRE)) {
      CHECK_SERVICE(SYS_EVENT_Wait(Waiter.pDone, 0) == 0);
      SYS_EVENT_Destroy(Waiter.pDone);
    }
  }
}

// ---- Sockets ------------------------------------------------------------------------------------

static uint16_t GetLocalPort(int32_t hSocket) {
  struct sockaddr_in6 Addr;  // the port is at the same place in both records
  socklen_t           Length = sizeof(Addr);
  memset(&Addr, 0, sizeof(Addr));
  CHECK_SERVICE(getsockname(hSocket, (struct sockaddr*)&Addr, &Length) == 0);
  return ntohs(Addr.sin6_port);
}

static int32_t AbortAtOnce(void) {
  return 1;
}

// Both ends of a connection work, and a broken connection does not end the process.
static void CheckConnection(int32_t hClient, int32_t hServer) {
  char acBuffer[8] = "#######";
  CHECK_SERVICE(hClient >= 0 && hServer >= 0);
  CHECK_SERVICE(SYS_SOCKET_WaitReadable(hServer, 20) == 0);
  CHECK_SERVICE(SYS_SOCKET_IsDataPending(hServer) == 0);
  CHECK_SERVICE(SYS_SOCKET_Send(hClient, "abcdef", 6) == 6);
  CHECK_SERVICE(SYS_SOCKET_WaitReadable(hServer, 10000) == 1);
  CHECK_SERVICE(SYS_SOCKET_IsDataPending(hServer) == 1);
  CHECK_SERVICE(SYS_SOCKET_ReceiveExactly(hServer, acBuffer, 6) == 6);
  CHECK_SERVICE(strcmp(acBuffer, "abcdef#") == 0);
  CHECK_SERVICE(SYS_SOCKET_WaitWritable(hClient, 0) == 1);

  CHECK_SERVICE(SYS_SOCKET_SetNonBlocking(hClient) == 0);
  CHECK_SERVICE(SYS_SOCKET_Receive(hClient, acBuffer, 1) == -2);
  CHECK_SERVICE(SYS_SOCKET_SetBlocking(hClient) == 0);
  CHECK_SERVICE(SYS_SOCKET_SetTimeouts(hClient, 1000, 50) == 0);
  const uint32_t Start = SYS_GetTickCount();
  CHECK_SERVICE(SYS_SOCKET_Receive(hClient, acBuffer, 1) == -2);
  CHECK_SERVICE(SYS_GetTickCount() - Start >= 45);  // it waited, so it is blocking again
  CHECK_SERVICE(SYS_SOCKET_EnableKeepAlive(hClient) == 0);
  CHECK_SERVICE(SYS_SOCKET_SetReceiveBufferSize(hClient, 65536) == 0);

  int       NoDelay = 0;
  socklen_t Length  = sizeof(NoDelay);
  CHECK_SERVICE(getsockopt(hServer, IPPROTO_TCP, TCP_NODELAY, &NoDelay, &Length) == 0);
  CHECK_SERVICE(NoDelay != 0);

  SYS_SOCKET_SetLinger(hServer, 0);
  CHECK_SERVICE(SYS_SOCKET_Close(hServer) == 0);
  int32_t Result = 0;
  for (int i = 0; i < 100 && Result >= 0; i++) {
    Result = SYS_SOCKET_Send(hClient, "x", 1);
    SYS_Sleep(1);
  }
  CHECK_SERVICE(Result == -1);
  CHECK_SERVICE(SYS_SOCKET_Send(hClient, "x", 1) == -1);
  CHECK_SERVICE(SYS_SOCKET_Close(hClient) == 0);
}

static void CheckIPv4(void) {
  const int32_t hListener = SYS_TCP_CreateIPv4();
  CHECK_SERVICE(SYS_TCP_ListenIPv4(hListener, LoopbackIPv4, 0, 4) == 0);
  const uint16_t Port = GetLocalPort(hListener);
  CHECK_SERVICE(SYS_TCP_AcceptTimeout(hListener, 20) == -2);
  const int32_t hClient = SYS_TCP_ConnectTimeout(LoopbackIPv4, Port, 10000, NULL);
  uint32_t      Addr    = 0;
  uint16_t      Peer    = 0;
  SYS_SOCKET_GetPeerIPv4(hClient, &Addr, &Peer);
  CHECK_SERVICE(Addr == LoopbackIPv4);
  CHECK_SERVICE(Peer == Port);
  CheckConnection(hClient, SYS_TCP_AcceptTimeout(hListener, 10000));
  CHECK_SERVICE(SYS_SOCKET_Close(hListener) == 0);

  // A port that is in use but on which nothing listens.
  const int32_t      hBound = SYS_TCP_CreateIPv4();
  struct sockaddr_in Bound;
  memset(&Bound, 0, sizeof(Bound));
  Bound.sin_family      = AF_INET;
  Bound.sin_addr.s_addr = htonl(LoopbackIPv4);
  CHECK_SERVICE(bind(hBound, (struct sockaddr*)&Bound, sizeof(Bound)) == 0);
  const uint16_t Refusing = GetLocalPort(hBound);
  const uint32_t Start    = SYS_GetTickCount();
  CHECK_SERVICE(SYS_TCP_ConnectTimeout(LoopbackIPv4, Refusing, 60, NULL) == -2);
  CHECK_SERVICE(SYS_GetTickCount() - Start >= 60);
  CHECK_SERVICE(SYS_TCP_ConnectTimeout(LoopbackIPv4, Refusing, 60000, AbortAtOnce) == -3);
  SYS_SOCKET_Close(hBound);
}

static void CheckIPv6(void) {
  if (!HasLoopbackIPv6()) {
    printf("IPv6: SKIPPED, not available\n");
    return;
  }
  const int32_t hListener = SYS_TCP_CreateIPv6(1);
  const uint8_t aAny[16]  = {0};
  CHECK_SERVICE(SYS_TCP_ListenIPv6(hListener, aAny, 0, 4) == 0);
  const uint16_t Port    = GetLocalPort(hListener);
  const int32_t  hClient = SYS_TCP_CreateIPv6(0);
  CHECK_SERVICE(SYS_SOCKET_ConnectIPv6(hClient, aLoopbackIPv6, Port) == 0);
  uint8_t  aAddr[16] = {0};
  uint16_t Peer      = 0;
  SYS_SOCKET_GetPeerIPv6(hClient, aAddr, &Peer);
  CHECK_SERVICE(memcmp(aAddr, aLoopbackIPv6, 16) == 0);
  CHECK_SERVICE(Peer == Port);
  CheckConnection(hClient, SYS_TCP_Accept(hListener));

  const int32_t hOverIPv4 = SYS_TCP_CreateIPv4();
  CHECK_SERVICE(SYS_SOCKET_ConnectIPv4(hOverIPv4, LoopbackIPv4, Port) == 0);
  const int32_t hServer = SYS_TCP_Accept(hListener);
  SYS_SOCKET_GetPeerIPv6(hServer, aAddr, NULL);
  CHECK_SERVICE(memcmp(aAddr, "\0\0\0\0\0\0\0\0\0\0\xFF\xFF\x7F\0\0\1", 16) == 0);
  CheckConnection(hOverIPv4, hServer);
  SYS_SOCKET_Close(hListener);
}

static void CheckNames(void) {
  uint32_t Addr = 0;
  if (IsLocalhostKnown()) {
    CHECK_SERVICE(SYS_NET_ResolveIPv4("localhost", &Addr) == 0);
    CHECK_SERVICE(Addr == LoopbackIPv4);
  } else {
    printf("localhost: SKIPPED, this machine does not know the name\n");
  }
  CHECK_SERVICE(SYS_NET_ResolveIPv4("192.0.2.7", &Addr) == 0);
  CHECK_SERVICE(Addr == 0xC0000207);
  uint8_t aAddr[16] = {0};
  CHECK_SERVICE(SYS_NET_ResolveIPv6("::1", 0, aAddr) == 0);
  CHECK_SERVICE(memcmp(aAddr, aLoopbackIPv6, 16) == 0);
  CHECK_SERVICE(SYS_NET_ResolveIPv6("127.0.0.1", 0, aAddr) == -1);
  CHECK_SERVICE(SYS_NET_ResolveIPv6("127.0.0.1", 1, aAddr) == 0);
  CHECK_SERVICE(memcmp(aAddr, "\0\0\0\0\0\0\0\0\0\0\xFF\xFF\x7F\0\0\1", 16) == 0);
  char                     acExpected[256] = "";
  char                     acHost[256]     = "";
  char                     acService[8]    = "";
  const struct sockaddr_in Loopback        = GetLoopbackIPv4();
  const int32_t            IsUnknown =
      GetSystemsName(&Loopback, sizeof(Loopback), acExpected, sizeof(acExpected));
  CHECK_SERVICE(SYS_NET_GetNameIPv4(LoopbackIPv4, 54321, acHost, sizeof(acHost), acService,
                                    sizeof(acService)) == IsUnknown);
  CHECK_SERVICE(strcmp(acHost, acExpected) == 0);
  CHECK_SERVICE(SYS_NET_GetNameIPv4(LoopbackIPv4, 54321, NULL, 0, acService, sizeof(acService)) ==
                0);
  CHECK_SERVICE(strcmp(acService, "54321") == 0);
}

// ---- A serial port ------------------------------------------------------------------------------

// The settings by the system's own names, whose bits differ between systems.
static void CheckLine(int hLine) {
  struct termios Line;
  memset(&Line, 0, sizeof(Line));
  CHECK_SERVICE(tcgetattr(hLine, &Line) == 0);
  CHECK_SERVICE((Line.c_iflag & (tcflag_t)(IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR |
                                           ICRNL | IXON | IXOFF | IMAXBEL)) == 0);
  CHECK_SERVICE((Line.c_iflag & IGNBRK) != 0);
  CHECK_SERVICE((Line.c_iflag & IXANY) != 0);
  CHECK_SERVICE((Line.c_oflag & ONLCR) == 0);
  CHECK_SERVICE((Line.c_cflag & CSIZE) == CS8);
  CHECK_SERVICE((Line.c_cflag & (tcflag_t)(CSTOPB | PARENB | CCTS_OFLOW | CRTS_IFLOW)) == 0);
  CHECK_SERVICE((Line.c_cflag & CREAD) != 0);
  CHECK_SERVICE((Line.c_cflag & CLOCAL) != 0);
  CHECK_SERVICE((Line.c_lflag & (tcflag_t)(ECHOKE | ECHOE | ECHOK | ECHO | ECHONL | ECHOPRT |
                                           ECHOCTL | ISIG | ICANON | IEXTEN)) == 0);
  CHECK_SERVICE((Line.c_lflag & NOFLSH) != 0);
  CHECK_SERVICE(Line.c_cc[VMIN] == 0);
  CHECK_SERVICE(Line.c_cc[VTIME] == 1);
}

static void CheckSerialPort(void) {
  PTY Pty;
  PTY_Open(&Pty);
  if (Pty.hKeep < 0) {
    printf("serial port: SKIPPED, no pseudo-terminal available\n");
    return;
  }
  if (SYS_SERIAL_SetSpeed(Pty.hKeep, 9600) != 0 && errno == ENOTTY) {
    printf("serial port: SKIPPED, a pseudo-terminal has no speed here\n");
    PTY_Close(&Pty);
    return;
  }
  struct termios Line;
  memset(&Line, 0, sizeof(Line));
  CHECK_SERVICE(tcgetattr(Pty.hKeep, &Line) == 0);
  Line.c_iflag |= ICRNL | IXON | IXANY | ISTRIP | INLCR;
  Line.c_oflag |= OPOST | ONLCR;
  Line.c_cflag |= CSTOPB;
  Line.c_lflag |= ICANON | ECHO | ISIG | IEXTEN | NOFLSH;
  CHECK_SERVICE(tcsetattr(Pty.hKeep, TCSANOW, &Line) == 0);

  SYS_SERIAL_PORT* pPort = SYS_SERIAL_Open(Pty.acName, 115200);
  CHECK_SERVICE(pPort != NULL);
  if (pPort != NULL) {
    const int32_t hPort = SYS_SERIAL_GetDescriptor(pPort);
    CheckLine(hPort);
    CHECK_SERVICE((fcntl(hPort, F_GETFD) & FD_CLOEXEC) != 0);
    CHECK_SERVICE(SYS_SERIAL_SetSpeed(hPort, 9600) == 0);
    CHECK_SERVICE(SYS_SERIAL_SetSpeed(hPort, 0) == -1);

    char acBuffer[8] = "#######";
    CHECK_SERVICE(SYS_SERIAL_Read(pPort, acBuffer, 1, 0) == 0);
    CHECK_SERVICE(SYS_SERIAL_Read(pPort, acBuffer, 1, 50) == 0);
    CHECK_SERVICE(write(Pty.hMaster, "a\r\n\x03\x11", 5) == 5);
    int32_t NumRead = 0;
    while (NumRead < 5) {
      const int32_t Result =
          SYS_SERIAL_Read(pPort, acBuffer + NumRead, (uint32_t)(5 - NumRead), 10000);
      if (Result <= 0) {
        break;
      }
      NumRead += Result;
    }
    CHECK_SERVICE(NumRead == 5);
    CHECK_SERVICE(memcmp(acBuffer, "a\r\n\x03\x11##", 7) == 0);
    CHECK_SERVICE(SYS_SERIAL_Write(pPort, "b\r\n", 3) == 3);
    CHECK_SERVICE(read(Pty.hMaster, acBuffer, sizeof(acBuffer)) == 3);
    CHECK_SERVICE(memcmp(acBuffer, "b\r\n", 3) == 0);
    SYS_SERIAL_Close(pPort);
  }
  CHECK_SERVICE(SYS_SERIAL_Open(Pty.acName, 0) == NULL);  // prints the message
  CHECK_SERVICE(SYS_SERIAL_Open("cu.usbNoSuchThing", 9600) == NULL);
  PTY_Close(&Pty);
}

// ---- Starting a program, clock, the rest --------------------------------------------------------

// Runs a script that reports whether it inherited descriptor 9, which is open in this process.
static void CheckSpawn(void) {
  char acScript[] = "/tmp/quobe_services_XXXXXX";
  char acAnswer[64];
  int  hFile = mkstemp(acScript);
  CHECK_SERVICE(hFile >= 0);
  snprintf(acAnswer, sizeof(acAnswer), "%s.answer", acScript);
  setenv("QUOBE_ANSWER", acAnswer, 1);
  static const char sScript[] =
      "#!/bin/sh\n"
      "if { true >&9; } 2>/dev/null; then a=open; else a=closed; fi\n"
      "echo $a $# >\"$QUOBE_ANSWER.new\" && mv \"$QUOBE_ANSWER.new\" \"$QUOBE_ANSWER\"\n";
  CHECK_SERVICE(write(hFile, sScript, sizeof(sScript) - 1) == (ssize_t)sizeof(sScript) - 1);
  CHECK_SERVICE(chmod(acScript, 0700) == 0);
  close(hFile);

  CHECK_SERVICE(dup2(1, 9) == 9);
  CHECK_SERVICE(SYS_StartProgram(acScript) == 0);
  close(9);
  char acText[16] = "";
  for (int i = 0; i < 1000 && acText[0] == 0; i++) {
    SYS_Sleep(10);
    hFile = open(acAnswer, O_RDONLY);
    if (hFile >= 0) {
      CHECK_SERVICE(read(hFile, acText, sizeof(acText) - 1) > 0);
      close(hFile);
    }
  }
  CHECK_SERVICE(strcmp(acText, "closed 0\n") == 0);
  CHECK_SERVICE(waitpid(-1, NULL, 0) > 0);
  CHECK_SERVICE(SYS_StartProgram("/no/such/program") == ENOENT);
  unlink(acScript);
  unlink(acAnswer);
  unsetenv("QUOBE_ANSWER");
}

static void CheckClock(void) {
  const uint32_t Start   = SYS_GetTickCount();
  const uint64_t StartUs = SYS_TIME_GetUs();
  CHECK_SERVICE(SYS_TIME_GetMs() < 60000);
  CHECK_SERVICE(SYS_Sleep(30) == 0);
  CHECK_SERVICE(SYS_GetTickCount() - Start >= 30);
  CHECK_SERVICE(SYS_GetTickCount() - Start < 30000);
  CHECK_SERVICE(SYS_TIME_GetUsSince(StartUs) >= 30000);

  setenv("TZ", "EAST-14", 1);  // 14 hours ahead
  tzset();
  SYS_CALENDAR_TIME Local = {0, 0, 0, 0, 0, 0, 9};
  SYS_CALENDAR_TIME Utc   = {0, 0, 0, 0, 0, 0, 9};
  SYS_GetLocalTime(&Local);
  SYS_GetUTCTime(&Utc);
  CHECK_SERVICE(Utc.Year >= 2024 && Utc.Month >= 1 && Utc.Month <= 12 && Utc.Day >= 1);
  CHECK_SERVICE(Local.Year + 1 >= Utc.Year && Local.Year <= Utc.Year + 1);
  CHECK_SERVICE(Local.Milliseconds == 0 && Utc.Milliseconds == 0);
  const int HoursAhead = (Local.Hour + 24 - Utc.Hour) % 24;
  CHECK_SERVICE(HoursAhead == 14 || HoursAhead == 13);  // 13: an hour began in between
  unsetenv("TZ");

  uint32_t Date = 0;
  uint32_t Time = 0;
  CHECK_SERVICE(SYS_ParseBuildStamp(SYS_BUILD_STAMP, &Date, &Time) == 0);
  CHECK_SERVICE(Date >= 240101 && Time < 240000);
}

static void CheckSmallServices(void) {
  uint8_t aFirst[32]  = {0};
  uint8_t aSecond[32] = {0};
  CHECK_SERVICE(SYS_GetRandom(aFirst, sizeof(aFirst)) == 0);
  CHECK_SERVICE(SYS_GetRandom(aSecond, sizeof(aSecond)) == 0);
  CHECK_SERVICE(memcmp(aFirst, aSecond, sizeof(aFirst)) != 0);
  CHECK_SERVICE(SYS_GetNumProcessors() > 0);
  SYS_Log("checked");
  SYS_PreventIdleSleep();
  SYS_AllowIdleSleep();
}

static inline int CheckServices(void) {
  NumServiceFailures = 0;
  CheckMutexes();
  CheckEvents();
  CheckCancel();
  CheckIPv4();
  CheckIPv6();
  CheckNames();
  CheckSerialPort();
  CheckSpawn();
  CheckClock();
  CheckSmallServices();
  return NumServiceFailures;
}

#endif
