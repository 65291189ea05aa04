// SPDX-License-Identifier: MIT

// Values that the runner translates and the product does not use: each is read back and must be
// what macOS would return. Prints each failure; exit status 0 when there was none.

#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tests/sys/support/pty.h"

static int NumFailed;

#define CHECK(Condition)                                \
  do {                                                  \
    if (!(Condition)) {                                 \
      printf("%d: failed: %s\n", __LINE__, #Condition); \
      NumFailed++;                                      \
    }                                                   \
  } while (0)

static int GetLinger(int hSocket, int Name) {
  struct linger Linger = {0, 0};
  socklen_t     Length = sizeof(Linger);
  CHECK(getsockopt(hSocket, SOL_SOCKET, Name, &Linger, &Length) == 0);
  CHECK(Linger.l_onoff != 0);
  return Linger.l_linger;
}

// A hundred ticks are a second; a part of one is not lost.
static void CheckLinger(void) {
  const int           hSocket = socket(AF_INET, SOCK_STREAM, 0);
  const struct linger Ticks   = {1, 201};
  const struct linger Seconds = {1, 7};
  CHECK(setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Ticks, sizeof(Ticks)) == 0);
  CHECK(GetLinger(hSocket, SO_LINGER_SEC) == 3);
  CHECK(GetLinger(hSocket, SO_LINGER) == 300);
  CHECK(setsockopt(hSocket, SOL_SOCKET, SO_LINGER_SEC, &Seconds, sizeof(Seconds)) == 0);
  CHECK(GetLinger(hSocket, SO_LINGER_SEC) == 7);
  CHECK(close(hSocket) == 0);
}

// "No such character" is 255. 0 is an ordinary character, except for the two counts.
static void CheckControlChars(void) {
  PTY            Pty;
  struct termios Line;
  PTY_Open(&Pty);
  CHECK(tcgetattr(Pty.hKeep, &Line) == 0);
  CHECK(Line.c_cc[VINTR] == 3);
  CHECK(Line.c_cc[VEOL] == _POSIX_VDISABLE);
  CHECK(Line.c_cc[VDSUSP] == _POSIX_VDISABLE);
  Line.c_cc[VINTR] = _POSIX_VDISABLE;
  Line.c_cc[VMIN]  = 0;
  Line.c_cc[VTIME] = 0xFF;
  CHECK(tcsetattr(Pty.hKeep, TCSANOW, &Line) == 0);
  memset(&Line, '#', sizeof(Line));
  CHECK(tcgetattr(Pty.hKeep, &Line) == 0);
  CHECK(Line.c_cc[VINTR] == _POSIX_VDISABLE);
  CHECK(Line.c_cc[VMIN] == 0);
  CHECK(Line.c_cc[VTIME] == 0xFF);
  // Both the former character and 0 are data for the line.
  Line.c_lflag &= ~(tcflag_t)(ICANON | ECHO);
  Line.c_cc[VMIN]  = 2;
  Line.c_cc[VTIME] = 0;
  CHECK(tcsetattr(Pty.hKeep, TCSANOW, &Line) == 0);
  char acRead[2] = {'#', '#'};
  CHECK(write(Pty.hMaster, "\3\0", 2) == 2);
  CHECK(read(Pty.hKeep, acRead, 2) == 2);
  CHECK(memcmp(acRead, "\3\0", 2) == 0);
  PTY_Close(&Pty);
}

// The status of a child uses this system's signal numbers.
static void CheckSignal(const char* sName, int Signal) {
  char              acCommand[32];
  char              acShell[] = "/bin/sh", acOption[] = "-c";
  char* const       asArgs[] = {acShell, acOption, acCommand, NULL};
  char* const       asNone[] = {NULL};
  posix_spawnattr_t Attr     = NULL;
  pid_t             Pid      = 0;
  int               Status   = 0;
  snprintf(acCommand, sizeof(acCommand), "kill -%s $$", sName);
  CHECK(posix_spawnattr_setflags(&Attr, 0) != 0);  // not initialised
  CHECK(posix_spawn(&Pid, acShell, NULL, &Attr, asArgs, asNone) == 0);
  CHECK(waitpid(Pid, &Status, 0) == Pid);
  CHECK(WIFSIGNALED(Status) && WTERMSIG(Status) == Signal);
}

static void* TellSelf(void* pResult) {
  __atomic_store_n((pthread_t*)pResult, pthread_self(), __ATOMIC_RELEASE);
  return NULL;
}

// In real time, whatever the runner's clock does.
static void Pause(void) {
  struct timeval Millisecond = {0, 1000};
  select(0, NULL, NULL, NULL, &Millisecond);
}

static void CheckIds(void) {
  pthread_t Other = NULL;
  pthread_t Id;
  CHECK(pthread_self() == pthread_self());
  CHECK(pthread_create(&Id, NULL, TellSelf, &Other) == 0);
  for (int i = 0; i < 10000 && __atomic_load_n(&Other, __ATOMIC_ACQUIRE) == NULL; i++) {
    Pause();
  }
  CHECK(Other == Id && Id != pthread_self());
  for (int i = 0; i < 10000 && pthread_cancel(Id) == 0; i++) {
    Pause();
  }
  CHECK(pthread_cancel(Id) != 0);  // it has ended
}

int main(void) {
  CheckLinger();
  CheckControlChars();
  CheckSignal("USR1", SIGUSR1);
  CheckSignal("BUS", SIGBUS);
  CheckSignal("KILL", SIGKILL);
  CheckIds();
  return NumFailed == 0 ? 0 : 1;
}
