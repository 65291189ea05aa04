// SPDX-License-Identifier: MIT

#include "openocd/child.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "openocd/text.h"

static const int  GUARD_GRACE_MS = 1000;  // for OpenOCD after this process has died
static const int  GUARD_STEP_US  = 10000;
static const int  MAX_INHERITED  = 256;  // files that a parent may have left open
static const char KILL_NOW       = 'k';  // the tool's words to the guard
static const char LEAVE          = 'l';

// -- Where it is ---------------------------------------------------------------------------------

static bool IsProgram(const char* sPath) {
  struct stat Info = {};
  return stat(sPath, &Info) == 0 && S_ISREG(Info.st_mode) && access(sPath, X_OK) == 0;
}

bool CHILD_Find(const char* sConfigured, char* pPath, size_t Size) {
  static const char* const aHomebrew[] = {"/opt/homebrew/bin/openocd", "/usr/local/bin/openocd"};
  if (*sConfigured != '\0') {
    TEXT_Format(pPath, Size, "%s", sConfigured);
    return IsProgram(pPath);
  }
  const char* sNext = getenv("PATH");
  while (sNext != NULL && *sNext != '\0') {
    const size_t Length = strcspn(sNext, ":");
    TEXT_Format(pPath, Size, "%.*s/openocd", static_cast<int>(Length), sNext);
    if (Length > 0 && IsProgram(pPath)) {
      return true;
    }
    sNext += Length + (sNext[Length] == ':');
  }
  for (const char* sPath : aHomebrew) {
    TEXT_Format(pPath, Size, "%s", sPath);
    if (IsProgram(pPath)) {
      return true;
    }
  }
  return false;
}

// -- Start ---------------------------------------------------------------------------------------

// With "noinit" nothing happens before it is asked for. No port but the pipe: several can run at once.
static const char* const aArguments[] = {
    "openocd", "-c", "noinit", "-c", "tcl_port pipe; gdb_port disabled; telnet_port disabled",
    NULL};

[[noreturn]] static void RunProgram(const char* sProgram, int Socket, int Log) {
  dup2(Socket, STDIN_FILENO);
  dup2(Socket, STDOUT_FILENO);
  dup2(Log, STDERR_FILENO);
  for (int File = STDERR_FILENO + 1; File < MAX_INHERITED; File++) {
    close(File);
  }
  signal(SIGPIPE, SIG_DFL);
  // execv() leaves the texts alone; its type is older than const.
  execv(sProgram, const_cast<char* const*>(aArguments));
  _exit(127);
}

// Waits until OpenOCD is gone, and kills it when the time is over.
static void Reap(pid_t Child, int GraceMs) {
  for (int LeftUs = GraceMs * 1000; LeftUs > 0; LeftUs -= GUARD_STEP_US) {
    if (waitpid(Child, NULL, WNOHANG) != 0) {
      return;
    }
    usleep(GUARD_STEP_US);
  }
  kill(Child, SIGKILL);
  waitpid(Child, NULL, 0);
}

// The files between the tool, the guard and OpenOCD.
enum { OUR_SOCKET, ITS_SOCKET, OUR_LOG, ITS_LOG, ITS_LIFE, OUR_LIFE, NUM_FILES };

static void CloseAllBut(int Socket, int Life) {
  const int Null = open("/dev/null", O_RDWR);
  for (int File = 0; File < MAX_INHERITED; File++) {
    if (File <= STDERR_FILENO) {
      dup2(Null, File);
    } else if (File != Socket && File != Life) {
      close(File);
    }
  }
}

// Waits for a word of the tool or for its death, after which it makes the last request in its place.
// Returns how long OpenOCD has to end by itself.
static int WaitForEnd(int Socket, int Life, const char* sLastRequest) {
  char    Byte     = 0;
  bool    HasLeft  = false;
  ssize_t NumBytes = -1;
  while (NumBytes != 0) {
    NumBytes = read(Life, &Byte, 1);
    if (NumBytes == 1 && Byte == KILL_NOW) {
      return 0;
    }
    if (NumBytes == 1) {
      HasLeft = true;
      close(Socket);
    } else if (NumBytes < 0 && errno != EINTR) {
      break;
    }
  }
  if (!HasLeft) {
    const ssize_t Ignored = write(Socket, sLastRequest, strlen(sLastRequest));
    (void)Ignored;
    // The answer still finds a reader, so that OpenOCD ends for one reason only.
    shutdown(Socket, SHUT_WR);
  }
  return GUARD_GRACE_MS;
}

// Runs in a fork of the tool: only calls that are safe there, and none of the tool's files kept open.
[[noreturn]] static void RunGuard(const char* sProgram, const char* sLastRequest,
                                  const int* pFiles) {
  setsid();
  signal(SIGCHLD, SIG_DFL);
  const pid_t Child = fork();
  if (Child == 0) {
    RunProgram(sProgram, pFiles[ITS_SOCKET], pFiles[ITS_LOG]);
  }
  // Kept open by the guard itself, however high its number, this one would never show the tool's end.
  close(pFiles[OUR_LIFE]);
  CloseAllBut(pFiles[OUR_SOCKET], pFiles[ITS_LIFE]);
  signal(SIGPIPE, SIG_IGN);
  const int GraceMs = WaitForEnd(pFiles[OUR_SOCKET], pFiles[ITS_LIFE], sLastRequest);
  if (Child > 0) {
    Reap(Child, GraceMs);
  }
  _exit(0);
}

static void CloseAll(const int* pFiles, int Count) {
  for (int i = 0; i < Count; i++) {
    if (pFiles[i] >= 0) {
      close(pFiles[i]);
    }
  }
}

// A tool that was started without standard files gets their numbers for the next files it opens; in
// the child these would be overwritten.
static bool MoveUp(int* pFile) {
  if (*pFile <= STDERR_FILENO) {
    const int Moved = fcntl(*pFile, F_DUPFD, STDERR_FILENO + 1);
    close(*pFile);
    *pFile = Moved;
  }
  return *pFile >= 0 && fcntl(*pFile, F_SETFD, FD_CLOEXEC) == 0;
}

static bool OpenFiles(int* pSockets, int* pLog, int* pLife) {
  bool Good =
      socketpair(AF_UNIX, SOCK_STREAM, 0, pSockets) == 0 && pipe(pLog) == 0 && pipe(pLife) == 0;
  for (int i = 0; i < 2 && Good; i++) {
    Good = MoveUp(&pSockets[i]) && MoveUp(&pLog[i]) && MoveUp(&pLife[i]);
  }
  return Good;
}

int CHILD_Start(CHILD* pChild, const char* sProgram, const char* sLastRequest) {
  int aFiles[NUM_FILES] = {-1, -1, -1, -1, -1, -1};
  if (!OpenFiles(&aFiles[OUR_SOCKET], &aFiles[OUR_LOG], &aFiles[ITS_LIFE])) {
    CloseAll(aFiles, NUM_FILES);
    return -1;
  }
  pChild->Guard = fork();
  if (pChild->Guard == 0) {
    RunGuard(sProgram, sLastRequest, aFiles);
  }
  const int Error = errno;
  close(aFiles[ITS_SOCKET]);
  close(aFiles[ITS_LOG]);
  close(aFiles[ITS_LIFE]);
  pChild->Socket = aFiles[OUR_SOCKET];
  pChild->Log    = aFiles[OUR_LOG];
  pChild->Life   = aFiles[OUR_LIFE];
  fcntl(pChild->Socket, F_SETFL, O_NONBLOCK);
  fcntl(pChild->Log, F_SETFL, O_NONBLOCK);
  if (pChild->Guard < 0) {
    close(pChild->Socket);
    close(pChild->Log);
    close(pChild->Life);
    errno = Error;
    return -1;
  }
  return 0;
}

// -- End -----------------------------------------------------------------------------------------

// The guard may be gone, and SIGPIPE must not end the tool.
static void TellGuard(const CHILD* pChild, char Word) {
  void (*pfOld)(int)    = signal(SIGPIPE, SIG_IGN);
  const ssize_t Ignored = write(pChild->Life, &Word, 1);
  (void)Ignored;
  signal(SIGPIPE, pfOld);
}

void CHILD_End(CHILD* pChild, int GraceMs, bool (*pfDrain)(void* pContext), void* pContext) {
  const int64_t EndMs = TEXT_NowMs() + GraceMs;
  TellGuard(pChild, LEAVE);
  close(pChild->Socket);
  bool    LogIsOpen = GraceMs > 0;
  int64_t LeftMs    = GraceMs;
  while (LogIsOpen && LeftMs > 0) {
    pollfd Log = {pChild->Log, POLLIN, 0};
    poll(&Log, 1, static_cast<int>(LeftMs));
    LogIsOpen = pfDrain(pContext);
    LeftMs    = EndMs - TEXT_NowMs();
  }
  if (LogIsOpen || GraceMs == 0) {
    TellGuard(pChild, KILL_NOW);
  }
  close(pChild->Life);
  close(pChild->Log);
  while (waitpid(pChild->Guard, NULL, 0) < 0 && errno == EINTR) {
  }
}
