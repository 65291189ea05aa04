// SPDX-License-Identifier: MIT

// Asks for one thing that the runner does not translate:
//
//   untranslated_value NAME
//
// Prints "started" first, and "went on" if the runner did not stop it.

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tests/sys/support/pty.h"

static void SetLine(uint64_t MoreControl, speed_t MoreSpeed) {
  PTY            Pty;
  struct termios Line;
  PTY_Open(&Pty);
  tcgetattr(Pty.hKeep, &Line);
  Line.c_cflag = (Line.c_cflag & ~(tcflag_t)(CCTS_OFLOW | CRTS_IFLOW)) | MoreControl;
  Line.c_ospeed += MoreSpeed;
  tcsetattr(Pty.hKeep, TCSANOW, &Line);
}

static void SetOption(int Level, int Name) {
  const int One = 1;
  setsockopt(socket(AF_INET, SOCK_STREAM, 0), Level, Name, &One, sizeof(One));
}

static void OpenFlag(void) {
  open("/dev/null", O_RDONLY | O_SYMLINK);
}
static void OpenBothWays(void) {
  open("/dev/null", O_WRONLY | O_RDWR);
}
static void SeekHole(void) {
  lseek(0, 0, SEEK_HOLE);
}
static void FileLock(void) {
  fcntl(0, F_GETLK, NULL);
}
static void StatusFlag(void) {
  fcntl(0, F_SETFL, O_ASYNC);
}
static void MapFlag(void) {
  mmap(NULL, 1, PROT_READ, MAP_PRIVATE | MAP_ANON | MAP_NOCACHE, -1, 0);
}
static void SyncFlag(void) {
  msync(NULL, 0, MS_KILLPAGES);
}
static void ConfigurationName(void) {
  sysconf(_SC_OPEN_MAX);
}
static void SystemName(void) {
  int    Count;
  size_t Size = sizeof(Count);
  sysctlbyname("hw.ncpu", &Count, &Size, NULL, 0);
}
static void SocketFamily(void) {
  socket(AF_UNIX, SOCK_STREAM, 0);
}
static void SocketType(void) {
  socket(AF_INET, SOCK_STREAM | 0x800, 0);
}
static void SocketOption(void) {
  SetOption(SOL_SOCKET, SO_REUSEPORT);
}
static void SocketLevel(void) {
  SetOption(1, SO_REUSEADDR);
}
static void MessageFlag(void) {
  send(0, "", 0, MSG_EOR);
}
static void SocketAddress(void) {
  struct sockaddr Addr;
  memset(&Addr, 0, sizeof(Addr));
  bind(0, &Addr, sizeof(Addr));
}
static void LookupFlag(void) {
  struct addrinfo  Hints;
  struct addrinfo* pFirst;
  memset(&Hints, 0, sizeof(Hints));
  Hints.ai_flags = AI_V4MAPPED_CFG;
  getaddrinfo("127.0.0.1", NULL, &Hints, &pFirst);
}
static void NameFlag(void) {
  struct sockaddr_in Addr;
  memset(&Addr, 0, sizeof(Addr));
  Addr.sin_family = AF_INET;
  getnameinfo((struct sockaddr*)&Addr, sizeof(Addr), NULL, 0, NULL, 0, NI_WITHSCOPEID);
}
static void LineSpeed(void) {
  SetLine(0, 1);
}
static void FlowControl(void) {
  SetLine(CCTS_OFLOW, 0);
}
static void LineAction(void) {
  struct termios Line;
  memset(&Line, 0, sizeof(Line));
  tcsetattr(0, TCSANOW | TCSASOFT, &Line);
}
static void FlushQueue(void) {
  tcflush(0, 0);
}
static void TerminalRequest(void) {
  ioctl(0, TIOCSBRK, NULL);
}
static void SignalNumber(void) {
  signal(SIGINFO, SIG_IGN);
}
static void SignalHandler(void) {
  signal(SIGUSR1, [](int) {});
}
static void WaitOption(void) {
  int Status;
  waitpid(-1, &Status, WUNTRACED);
}
static void SpawnFlag(void) {
  posix_spawnattr_t Attr;
  char* const       asNone[] = {NULL};
  posix_spawnattr_init(&Attr);
  posix_spawnattr_setflags(&Attr, POSIX_SPAWN_START_SUSPENDED);
  posix_spawn(NULL, "/nowhere", NULL, &Attr, asNone, asNone);
}
static void LoaderMode(void) {
  dlopen("/nowhere", RTLD_LAZY | RTLD_NOLOAD);
}
static void LoaderNoMode(void) {
  dlopen("/nowhere", RTLD_LOCAL);
}
static void LoaderItself(void) {
  dlopen(NULL, RTLD_LAZY);
}
static void LoaderHandle(void) {
  dlsym(RTLD_DEFAULT, "puts");
}

static void DoNothing(void*) {}

static void* ReadWithHandler(void* pArg) {
  char Byte;
  pthread_cleanup_push(DoNothing, NULL);
  read(((const PTY*)pArg)->hMaster, &Byte, 1);
  pthread_cleanup_pop(0);
  return NULL;
}

// A thread that is cancelled in a call that would not run its handlers.
static void CancelledElsewhere(void) {
  static PTY     Pty;
  pthread_t      Id;
  struct timeval Limit = {10, 0};
  PTY_Open(&Pty);
  pthread_create(&Id, NULL, ReadWithHandler, &Pty);
  pthread_cancel(Id);
  select(0, NULL, NULL, NULL, &Limit);
}

#define CASE(Name) \
  { #Name, Name }
static const struct {
  const char* sName;
  void (*pfAsk)(void);
} Cases[] = {
    CASE(OpenFlag),        CASE(OpenBothWays),      CASE(SeekHole),
    CASE(FileLock),        CASE(StatusFlag),        CASE(MapFlag),
    CASE(SyncFlag),        CASE(ConfigurationName), CASE(SystemName),
    CASE(SocketFamily),    CASE(SocketType),        CASE(SocketOption),
    CASE(SocketLevel),     CASE(MessageFlag),       CASE(LookupFlag),
    CASE(NameFlag),        CASE(SocketAddress),     CASE(LineSpeed),
    CASE(FlowControl),     CASE(LineAction),        CASE(FlushQueue),
    CASE(TerminalRequest), CASE(SignalNumber),      CASE(SignalHandler),
    CASE(WaitOption),      CASE(SpawnFlag),         CASE(LoaderMode),
    CASE(LoaderNoMode),    CASE(LoaderItself),      CASE(CancelledElsewhere),
    CASE(LoaderHandle),
};

int main(int NumArgs, char** pasArgs) {
  for (const auto& Case : Cases) {
    if (NumArgs == 2 && strcmp(Case.sName, pasArgs[1]) == 0) {
      puts("started");
      Case.pfAsk();
      puts("went on");
      return 0;
    }
  }
  return 2;
}
