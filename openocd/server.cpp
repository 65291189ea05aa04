// SPDX-License-Identifier: MIT

#include "openocd/server.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "openocd/answer.h"
#include "openocd/file.h"
#include "openocd/text.h"

static const size_t   MAX_LOG_BYTES      = 16 << 20;
static const size_t   LOG_BYTES_AT_ONCE  = 64 << 10;  // then it is the answer's turn
static const int      LOG_PERIOD_MS      = 20;
static const uint32_t LOG_REQUESTS       = 256;  // after so many their lines are read in any case
static const int      CONNECT_TIMEOUT_MS = 5000;

// -- Log -----------------------------------------------------------------------------------------

// A lost adapter makes OpenOCD write without end: what goes beyond the limit is not kept.
static void KeepLog(SERVER* pServer, const char* pBytes, size_t Length) {
  if (pServer->pLog == NULL || pServer->LogBytes >= MAX_LOG_BYTES) {
    return;
  }
  pServer->LogBytes += Length;
  fwrite(pBytes, 1, Length, pServer->pLog);
  if (pServer->LogBytes >= MAX_LOG_BYTES) {
    fputs("\n(the log is full: what follows is not kept)\n", pServer->pLog);
  }
  fflush(pServer->pLog);
}

static void NoteLogLine(SERVER* pServer) {
  static const char sPrefix[]          = "Error: ";
  pServer->acLine[pServer->LineLength] = '\0';
  pServer->LineLength                  = 0;
  char* sLine                          = TEXT_Trim(pServer->acLine);
  if (strncmp(sLine, sPrefix, sizeof(sPrefix) - 1) == 0) {
    TEXT_Format(pServer->acError, sizeof(pServer->acError), "%s", sLine + sizeof(sPrefix) - 1);
  }
}

// Reads what the log holds, up to a limit. False at its end.
static bool DrainLog(void* pContext) {
  SERVER* pServer = static_cast<SERVER*>(pContext);
  char    acBytes[4096];
  for (size_t Total = 0; Total < LOG_BYTES_AT_ONCE;) {
    const ssize_t NumRead = read(pServer->Child.Log, acBytes, sizeof(acBytes));
    if (NumRead < 0 && errno == EINTR) {
      continue;
    }
    if (NumRead <= 0) {
      return NumRead != 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
    Total += static_cast<size_t>(NumRead);
    KeepLog(pServer, acBytes, static_cast<size_t>(NumRead));
    for (ssize_t i = 0; i < NumRead; i++) {
      if (acBytes[i] == '\n') {
        NoteLogLine(pServer);
      } else if (pServer->LineLength + 1 < sizeof(pServer->acLine)) {
        pServer->acLine[pServer->LineLength++] = acBytes[i];
      }
    }
  }
  return true;
}

// -- Begin and end -------------------------------------------------------------------------------

static void Begin(SERVER* pServer) {
  SERVER_End(pServer, 0);
  *pServer = SERVER{};
}

bool SERVER_Start(SERVER* pServer, const char* sProgram, const char* sLog,
                  const char* sLastCommand) {
  char acLastRequest[SERVER_MAX_REQUEST];
  Begin(pServer);
  if (*sLog != '\0') {
    pServer->pLog = FILE_OpenToAppend(sLog);
    if (pServer->pLog == NULL) {
      TEXT_Format(pServer->acReason, sizeof(pServer->acReason), "log = %s: %s", sLog,
                  strerror(errno));
      return false;
    }
  }
  // This process may end in the middle of a request: the first byte ends what was sent of it.
  TEXT_Format(acLastRequest, sizeof(acLastRequest), "%c%s%c", ANSWER_END, sLastCommand, ANSWER_END);
  pServer->IsChild = true;
  if (CHILD_Start(&pServer->Child, sProgram, acLastRequest) != 0) {
    TEXT_Format(pServer->acReason, sizeof(pServer->acReason), "%s cannot be started: %s", sProgram,
                strerror(errno));
    SERVER_End(pServer, 0);
    return false;
  }
  pServer->IsOpen = true;
  return true;
}

// 0, or an error number.
static int ConnectWithin(int Socket, const addrinfo* pAddress, int TimeoutMs) {
  fcntl(Socket, F_SETFD, FD_CLOEXEC);
  fcntl(Socket, F_SETFL, O_NONBLOCK);
  if (connect(Socket, pAddress->ai_addr, pAddress->ai_addrlen) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  pollfd    Poll  = {Socket, POLLOUT, 0};
  const int Ready = poll(&Poll, 1, TimeoutMs);
  if (Ready <= 0) {
    return ETIMEDOUT;
  }
  int       Error  = 0;
  socklen_t Length = sizeof(Error);
  getsockopt(Socket, SOL_SOCKET, SO_ERROR, &Error, &Length);
  return Error;
}

bool SERVER_Connect(SERVER* pServer, const char* sHost, uint32_t Port) {
  char      acPort[16];
  addrinfo  Hints  = {};
  addrinfo* pFirst = NULL;
  Begin(pServer);
  Hints.ai_socktype = SOCK_STREAM;
  TEXT_Format(acPort, sizeof(acPort), "%u", Port);
  const int Failed = getaddrinfo(sHost, acPort, &Hints, &pFirst);
  if (Failed != 0) {
    TEXT_Format(pServer->acReason, sizeof(pServer->acReason), "%s", gai_strerror(Failed));
    return false;
  }
  int Error  = 0;
  int Socket = -1;
  for (const addrinfo* p = pFirst; p != NULL && Socket < 0; p = p->ai_next) {
    Socket = socket(p->ai_family, p->ai_socktype, p->ai_protocol);
    Error  = Socket < 0 ? errno : ConnectWithin(Socket, p, CONNECT_TIMEOUT_MS);
    if (Socket >= 0 && Error != 0) {
      close(Socket);
      Socket = -1;
    }
  }
  freeaddrinfo(pFirst);
  if (Socket < 0) {
    TEXT_Format(pServer->acReason, sizeof(pServer->acReason), "%s", strerror(Error));
    return false;
  }
  const int One = 1;
  setsockopt(Socket, IPPROTO_TCP, TCP_NODELAY, &One, sizeof(One));
  pServer->Child.Socket = Socket;
  pServer->IsOpen       = true;
  return true;
}

void SERVER_End(SERVER* pServer, int GraceMs) {
  if (pServer->IsOpen && pServer->IsChild) {
    CHILD_End(&pServer->Child, GraceMs, DrainLog, pServer);
  } else if (pServer->IsOpen) {
    close(pServer->Child.Socket);
  }
  if (pServer->pLog != NULL) {
    fclose(pServer->pLog);
    pServer->pLog = NULL;
  }
  pServer->IsOpen = false;
}

bool SERVER_IsAlive(SERVER* pServer) {
  char Byte = 0;
  if (!pServer->IsOpen) {
    return false;
  }
  const ssize_t NumRead = recv(pServer->Child.Socket, &Byte, 1, MSG_PEEK);
  return NumRead > 0 ||
         (NumRead < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
}

// -- Requests ------------------------------------------------------------------------------------

static SERVER_RESULT Give(SERVER* pServer, const char* sReason) {
  TEXT_Format(pServer->acReason, sizeof(pServer->acReason), "%s", sReason);
  // What it said last may be the reason.
  if (pServer->IsChild) {
    DrainLog(pServer);
  }
  SERVER_End(pServer, 0);
  return SERVER_GONE;
}

// When the server is gone, write() must return an error; SIGPIPE would end the tool. No flag
// against the signal exists on all systems, so it is ignored during the call.
static ssize_t WriteQuietly(int Socket, const char* pBytes, size_t Length) {
  void (*pfOld)(int)    = signal(SIGPIPE, SIG_IGN);
  const ssize_t Written = write(Socket, pBytes, Length);
  const int     Error   = errno;
  signal(SIGPIPE, pfOld);
  errno = Error;
  return Written;
}

// Waits until the socket is ready; false when the time is over. Each poll() is short, and the log
// is read between them. poll() does not wait for the log too: OpenOCD writes a line with every
// answer, and each line would be one more wake-up.
static bool Wait(SERVER* pServer, short Events, int64_t EndMs) {
  const int64_t LeftMs = EndMs - TEXT_NowMs();
  pollfd        Socket = {pServer->Child.Socket, Events, 0};
  if (LeftMs <= 0) {
    return false;
  }
  if (poll(&Socket, 1, LeftMs < LOG_PERIOD_MS ? static_cast<int>(LeftMs) : LOG_PERIOD_MS) == 0 &&
      pServer->IsChild) {
    DrainLog(pServer);
  }
  return true;
}

static const char sLateText[]  = "OpenOCD does not answer";
static const char sEndedText[] = "OpenOCD has ended";

static const char* Send(SERVER* pServer, const char* pBytes, size_t Length, int64_t EndMs) {
  while (Length > 0) {
    const ssize_t Written = WriteQuietly(pServer->Child.Socket, pBytes, Length);
    if (Written > 0) {
      pBytes += Written;
      Length -= static_cast<size_t>(Written);
    } else if (Written < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
      return sEndedText;
    } else if (!Wait(pServer, POLLOUT, EndMs)) {
      return sLateText;
    }
  }
  return NULL;
}

// Looks for the answer in what was received, and forgets all up to its end. False when more must be
// received. The byte that ends an answer may be in a text too, so what comes before it stays.
static bool TakeAnswer(SERVER* pServer, int* pCode, char* pAnswer, size_t Size) {
  while (pServer->NumTried < pServer->NumReceived) {
    const size_t Length = pServer->NumTried++;
    if (pServer->acReceived[Length] == ANSWER_END &&
        ANSWER_Parse(pServer->acReceived, Length, pServer->Number, pCode, pAnswer, Size)) {
      pServer->NumReceived -= Length + 1;
      memmove(pServer->acReceived, pServer->acReceived + Length + 1, pServer->NumReceived);
      pServer->NumTried = 0;
      return true;
    }
  }
  return false;
}

static const char* Receive(SERVER* pServer, int* pCode, char* pAnswer, size_t Size, int64_t EndMs) {
  while (!TakeAnswer(pServer, pCode, pAnswer, Size)) {
    const size_t Room = sizeof(pServer->acReceived) - pServer->NumReceived;
    if (Room == 0) {
      // Only text that was not asked for is that long. The answer follows it, and may have begun.
      pServer->NumReceived = sizeof(pServer->acReceived) / 2;
      pServer->NumTried    = pServer->NumReceived;
      memcpy(pServer->acReceived, pServer->acReceived + pServer->NumReceived, pServer->NumReceived);
      continue;
    }
    // A server that writes without end would otherwise keep this loop busy for ever.
    if (TEXT_NowMs() >= EndMs) {
      return sLateText;
    }
    const ssize_t NumRead =
        recv(pServer->Child.Socket, pServer->acReceived + pServer->NumReceived, Room, 0);
    if (NumRead > 0) {
      pServer->NumReceived += static_cast<size_t>(NumRead);
    } else if (NumRead == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
      return sEndedText;
    } else if (!Wait(pServer, POLLIN, EndMs)) {
      return sLateText;
    }
  }
  return NULL;
}

SERVER_RESULT SERVER_Request(SERVER* pServer, int DeadlineMs, char* pAnswer, size_t Size,
                             const char* sFormat, ...) {
  char acCommand[SERVER_MAX_REQUEST];
  char acRequest[SERVER_MAX_REQUEST + 64];
  pAnswer[0] = '\0';
  if (!pServer->IsOpen) {
    return SERVER_GONE;
  }
  va_list Args;
  va_start(Args, sFormat);
  vsnprintf(acCommand, sizeof(acCommand), sFormat, Args);
  va_end(Args);
  pServer->Number++;
  pServer->acError[0] = '\0';
  TEXT_Format(acRequest, sizeof(acRequest), "list q%u [catch {%s} e] $e%c", pServer->Number,
              acCommand, ANSWER_END);
  const int64_t EndMs   = TEXT_NowMs() + DeadlineMs;
  int           Code    = 0;
  const char*   sReason = Send(pServer, acRequest, strlen(acRequest), EndMs);
  if (sReason == NULL) {
    sReason = Receive(pServer, &Code, pAnswer, Size, EndMs);
  }
  if (sReason != NULL) {
    pAnswer[0] = '\0';
    return Give(pServer, sReason);
  }
  if (pServer->IsChild && (Code != 0 || pServer->Number % LOG_REQUESTS == 0)) {
    DrainLog(pServer);
  }
  return Code == 0 ? SERVER_OK : SERVER_REFUSED;
}
