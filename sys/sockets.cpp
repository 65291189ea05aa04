// SPDX-License-Identifier: MIT

// Mostly one call of the system for each function. Where a call has an odd side, the reason for
// going around it is at that place. IPv4 addresses and ports change their byte order here and
// nowhere else.

#include "sys/sockets.h"

#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stddef.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sys/clock.h"
#include "sys/wait_ready.h"

static const uint32_t CONNECT_POLL_US = 10000;  // one wait for a pending connect
static const uint32_t ERROR_PAUSE_MS  = 10;     // after a wait that failed

// Between the starts of two refused attempts. The pause that is left of it is cut to whole
// milliseconds; with the attempts themselves and the sleep's own delay that gives about 10 ms.
static const uint64_t RETRY_SPACING_US = 9001;

namespace {

// The states of one connect() in SYS_TCP_ConnectTimeout.
enum ATTEMPT_STATE {
  ATTEMPT_DUE,        // not started; also after a refusal
  ATTEMPT_PENDING,    // connect() has started
  ATTEMPT_REFUSED,    // it failed
  ATTEMPT_CONNECTED,  // it succeeded
  ATTEMPT_IMPOSSIBLE  // no socket can be made
};

struct ATTEMPT {
  ATTEMPT_STATE State;
  int32_t       hSocket;  // open while PENDING, REFUSED and CONNECTED
  uint64_t      Start;    // by SYS_TIME_GetUs
};

}  // namespace

static int SetFlag(int hSocket, int Level, int Name, int Value) {
  return setsockopt(hSocket, Level, Name, &Value, sizeof(Value));
}

static int SetIoctl(int hSocket, unsigned long Request, int Value) {
  return ioctl(hSocket, Request, &Value);
}

// Darwin's record begins with a length byte. It may stay 0: each call is given the length beside
// it.
static struct sockaddr_in MakeAddrIPv4(uint32_t Addr, uint16_t Port) {
  struct sockaddr_in SockAddr = {};
  SockAddr.sin_family         = AF_INET;
  SockAddr.sin_addr.s_addr    = htonl(Addr);
  SockAddr.sin_port           = htons(Port);
  return SockAddr;
}

static struct sockaddr_in6 MakeAddrIPv6(const uint8_t* pAddr, uint16_t Port) {
  struct sockaddr_in6 SockAddr = {};
  SockAddr.sin6_family         = AF_INET6;
  SockAddr.sin6_port           = htons(Port);
  memcpy(&SockAddr.sin6_addr, pAddr, sizeof(SockAddr.sin6_addr));
  return SockAddr;
}

// Sets the options of every TCP socket. Returns hSocket, which may be -1.
static int32_t WithStreamOptions(int hSocket) {
  // Errors are ignored: without the options the socket still works.
  if (hSocket >= 0) {
    SetFlag(hSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetFlag(hSocket, SOL_SOCKET, SO_NOSIGPIPE, 1);
  }
  return hSocket;
}

// Lets an IPv6 socket reach IPv4 peers too, if DualStack asks for it. Returns hSocket, which may be
// -1.
static int32_t WithDualStack(int hSocket, int32_t DualStack) {
  if (hSocket >= 0 && DualStack != 0) {
    SetFlag(hSocket, IPPROTO_IPV6, IPV6_V6ONLY, 0);  // the default is a setting of the system
  }
  return hSocket;
}

int32_t SYS_UDP_CreateIPv4(void) {
  return socket(AF_INET, SOCK_DGRAM, 0);
}

int32_t SYS_UDP_CreateIPv6(int32_t DualStack) {
  return WithDualStack(socket(AF_INET6, SOCK_DGRAM, 0), DualStack);
}

int32_t SYS_TCP_CreateIPv4(void) {
  return WithStreamOptions(socket(AF_INET, SOCK_STREAM, 0));
}

int32_t SYS_TCP_CreateIPv6(int32_t DualStack) {
  return WithDualStack(WithStreamOptions(socket(AF_INET6, SOCK_STREAM, 0)), DualStack);
}

int32_t SYS_SOCKET_Close(int32_t hSocket) {
  return close(hSocket);
}

// The values of How belong to this interface and are translated; an unknown one reaches no call.
void SYS_SOCKET_Shutdown(int32_t hSocket, int32_t How) {
  switch (How) {
    case SYS_SHUTDOWN_RECEIVE:
      shutdown(hSocket, SHUT_RD);
      break;
    case SYS_SHUTDOWN_SEND:
      shutdown(hSocket, SHUT_WR);
      break;
    case SYS_SHUTDOWN_BOTH:
      shutdown(hSocket, SHUT_RDWR);
      break;
    default:
      break;
  }
}

int32_t SYS_TCP_ListenIPv4(int32_t hSocket, uint32_t Addr, uint16_t Port, int32_t Backlog) {
  // Without SO_REUSEADDR a server could not be started again for minutes after it closed a
  // connection.
  const struct sockaddr_in SockAddr = MakeAddrIPv4(Addr, Port);
  if (SetFlag(hSocket, SOL_SOCKET, SO_REUSEADDR, 1) != 0 ||
      bind(hSocket, (const struct sockaddr*)&SockAddr, sizeof(SockAddr)) != 0) {
    return -1;
  }
  return listen(hSocket, Backlog);
}

int32_t SYS_TCP_ListenIPv6(int32_t hSocket, const uint8_t* pAddr, uint16_t Port, int32_t Backlog) {
  // Required: without SO_REUSEADDR, unlike the IPv4 form.
  const struct sockaddr_in6 SockAddr = MakeAddrIPv6(pAddr, Port);
  if (bind(hSocket, (const struct sockaddr*)&SockAddr, sizeof(SockAddr)) != 0) {
    return -1;
  }
  return listen(hSocket, Backlog);
}

int32_t SYS_TCP_Accept(int32_t hSocket) {
  return WithStreamOptions(accept(hSocket, NULL, NULL));
}

int32_t SYS_TCP_AcceptTimeout(int32_t hSocket, uint32_t Timeout) {
  // A connection that ends between the two calls makes the accept wait for the next one: the header
  // says so, because accept() takes no time-out.
  const int32_t NumReady = SYS_SOCKET_WaitReadable(hSocket, Timeout);
  if (NumReady == 0) {
    return SYS_TCP_ERR_TIMEOUT;
  }
  return NumReady < 0 ? -1 : SYS_TCP_Accept(hSocket);
}

int32_t SYS_SOCKET_ConnectIPv4(int32_t hSocket, uint32_t Addr, uint16_t Port) {
  const struct sockaddr_in SockAddr = MakeAddrIPv4(Addr, Port);
  return connect(hSocket, (const struct sockaddr*)&SockAddr, sizeof(SockAddr));
}

int32_t SYS_SOCKET_ConnectIPv6(int32_t hSocket, const uint8_t* pAddr, uint16_t Port) {
  const struct sockaddr_in6 SockAddr = MakeAddrIPv6(pAddr, Port);
  return connect(hSocket, (const struct sockaddr*)&SockAddr, sizeof(SockAddr));
}

// When nobody listens on a port of this machine and the system happens to choose that port for the
// near end, TCP connects the socket to itself. A client that keeps trying meets this sooner or
// later.
static int IsConnectedToItself(int hSocket) {
  struct sockaddr_in Own    = {};
  socklen_t          Length = sizeof(Own);
  uint32_t           PeerAddr;
  uint16_t           PeerPort;
  getsockname(hSocket, (struct sockaddr*)&Own, &Length);
  SYS_SOCKET_GetPeerIPv4(hSocket, &PeerAddr, &PeerPort);
  return ntohl(Own.sin_addr.s_addr) == PeerAddr && ntohs(Own.sin_port) == PeerPort;
}

// Ends a refused attempt, and sleeps so that the next one starts about 10 ms after this one did.
static void EndRefused(ATTEMPT* pAttempt) {
  // Reset on close: a socket connected to itself would otherwise hold the port for minutes.
  SYS_SOCKET_SetLinger(pAttempt->hSocket, 0);
  close(pAttempt->hSocket);
  pAttempt->State        = ATTEMPT_DUE;
  const uint64_t Elapsed = SYS_TIME_GetUsSince(pAttempt->Start);
  if (Elapsed < RETRY_SPACING_US) {
    SYS_Sleep((uint32_t)((RETRY_SPACING_US - Elapsed) / 1000));
  }
}

// Makes a non-blocking socket and starts a connect().
static void StartAttempt(ATTEMPT* pAttempt, uint32_t Addr, uint16_t Port) {
  pAttempt->Start   = SYS_TIME_GetUs();
  pAttempt->hSocket = SYS_TCP_CreateIPv4();
  if (pAttempt->hSocket < 0) {
    pAttempt->State = ATTEMPT_IMPOSSIBLE;
    return;
  }
  if (!SYS_WAIT_IsSelectable(pAttempt->hSocket)) {
    close(pAttempt->hSocket);
    errno           = EMFILE;  // for the caller: the process has too many descriptors open
    pAttempt->State = ATTEMPT_IMPOSSIBLE;
    return;
  }
  SYS_SOCKET_SetNonBlocking(pAttempt->hSocket);
  // Darwin never reports a socket writable whose connect() failed at once. Waiting for it would use
  // up the whole time-out, so any error other than these two is a failure here.
  const int32_t Result   = SYS_SOCKET_ConnectIPv4(pAttempt->hSocket, Addr, Port);
  const int     IsFailed = Result != 0 && errno != EINPROGRESS && errno != EINTR;
  pAttempt->State        = IsFailed ? ATTEMPT_REFUSED : ATTEMPT_PENDING;
}

// Waits up to 10 ms for the end of a pending attempt.
static void PollAttempt(ATTEMPT* pAttempt) {
  const int32_t hSocket  = pAttempt->hSocket;
  const int32_t NumReady = SYS_WAIT_Writable(hSocket, timeval{0, CONNECT_POLL_US});
  if (NumReady < 0 && errno != EINTR) {
    SYS_Sleep(ERROR_PAUSE_MS);  // the wait failed at once: without a pause the loop would spin
  }
  if (NumReady <= 0) {
    return;
  }
  // Writable means connected or refused. Sending 0 bytes succeeds only when it is connected.
  SYS_SOCKET_SetBlocking(hSocket);
  const int IsConnected = send(hSocket, "", 0, 0) == 0 && !IsConnectedToItself(hSocket);
  pAttempt->State       = IsConnected ? ATTEMPT_CONNECTED : ATTEMPT_REFUSED;
}

int32_t SYS_TCP_ConnectTimeout(uint32_t Addr, uint16_t Port, uint32_t Timeout,
                               int32_t (*pfIsAborted)(void)) {
  // Each pass takes one attempt a step further, about every 10 ms, and then looks whether to give
  // up.
  const uint64_t Start   = SYS_TIME_GetMs();
  ATTEMPT        Attempt = {};
  int32_t        Result  = 0;
  while (Result == 0) {
    if (Attempt.State == ATTEMPT_DUE) {
      StartAttempt(&Attempt, Addr, Port);
    }
    if (Attempt.State == ATTEMPT_IMPOSSIBLE) {
      return -1;
    }
    if (Attempt.State == ATTEMPT_PENDING) {
      PollAttempt(&Attempt);
    }
    if (Attempt.State == ATTEMPT_CONNECTED) {
      return Attempt.hSocket;
    }
    if (Attempt.State == ATTEMPT_REFUSED) {
      EndRefused(&Attempt);
    }
    // Only after an attempt: a Timeout of 0 makes one too. An abort is asked for first, so that the
    // caller's reason wins when both apply.
    if (pfIsAborted != NULL && pfIsAborted() != 0) {
      Result = SYS_TCP_ERR_ABORTED;
    } else if (SYS_TIME_GetMs() - Start > Timeout) {
      Result = SYS_TCP_ERR_TIMEOUT;
    }
  }
  if (Attempt.State == ATTEMPT_PENDING) {
    close(Attempt.hSocket);
  }
  return Result;
}

int32_t SYS_SOCKET_Send(int32_t hSocket, const void* pData, uint32_t NumBytes) {
  // Required: errors other than EAGAIN are not told apart.
  const ssize_t NumSent = send(hSocket, pData, NumBytes, 0);
  if (NumSent < 0) {
    return errno == EAGAIN ? SYS_SOCKET_ERR_WOULD_BLOCK : SYS_SOCKET_ERR_OTHER;
  }
  return (int32_t)NumSent;
}

int32_t SYS_SOCKET_Receive(int32_t hSocket, void* pBuffer, uint32_t NumBytes) {
  const ssize_t NumReceived = recv(hSocket, pBuffer, NumBytes, 0);
  if (NumReceived >= 0) {
    return (int32_t)NumReceived;
  }
  switch (errno) {
    case EAGAIN:
      return SYS_SOCKET_ERR_WOULD_BLOCK;
    case ETIMEDOUT:
      return SYS_SOCKET_ERR_TIMED_OUT;
    case ENETRESET:
      return SYS_SOCKET_ERR_NET_RESET;
    case EINTR:
      return SYS_SOCKET_ERR_INTERRUPTED;
    default:
      return SYS_SOCKET_ERR_OTHER;
  }
}

// Does not go on after EINTR or EAGAIN: part of the contract, so that a time-out ends it.
int32_t SYS_SOCKET_ReceiveExactly(int32_t hSocket, void* pBuffer, uint32_t NumBytes) {
  uint8_t* pDest   = (uint8_t*)pBuffer;
  uint32_t NumLeft = NumBytes;
  while (NumLeft > 0) {
    const ssize_t NumReceived = recv(hSocket, pDest, NumLeft, 0);
    if (NumReceived <= 0) {
      return -1;
    }
    pDest += NumReceived;
    NumLeft -= (uint32_t)NumReceived;
  }
  return (int32_t)NumBytes;
}

int32_t SYS_SOCKET_IsDataPending(int32_t hSocket) {
  int NumBytes = 0;  // FIONREAD stores an int
  return ioctl(hSocket, FIONREAD, &NumBytes) == 0 && NumBytes > 0;
}

int32_t SYS_SOCKET_WaitReadable(int32_t hSocket, uint32_t Timeout) {
  return SYS_WAIT_Readable(hSocket, SYS_WAIT_SplitMs(Timeout));
}

int32_t SYS_SOCKET_WaitWritable(int32_t hSocket, uint32_t Timeout) {
  return SYS_WAIT_Writable(hSocket, SYS_WAIT_SplitMs(Timeout));
}

int32_t SYS_SOCKET_AllowBroadcast(int32_t hSocket) {
  return SetFlag(hSocket, SOL_SOCKET, SO_BROADCAST, 1);
}

int32_t SYS_SOCKET_SetReceiveBufferSize(int32_t hSocket, int32_t NumBytes) {
  return SetFlag(hSocket, SOL_SOCKET, SO_RCVBUF, NumBytes);
}

int32_t SYS_SOCKET_EnableKeepAlive(int32_t hSocket) {
  return SetFlag(hSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
}

int32_t SYS_SOCKET_SetBlocking(int32_t hSocket) {
  return SetIoctl(hSocket, FIONBIO, 0);
}

int32_t SYS_SOCKET_SetNonBlocking(int32_t hSocket) {
  return SetIoctl(hSocket, FIONBIO, 1);
}

// By SO_LINGER_SEC: SO_LINGER counts in ticks of 10 ms on macOS. An error is not reported:
// required.
static int32_t SetLingerOption(int hSocket, int OnOff, uint32_t Seconds) {
  const struct linger Linger = {OnOff, (int)Seconds};
  setsockopt(hSocket, SOL_SOCKET, SO_LINGER_SEC, &Linger, sizeof(Linger));
  return 0;
}

int32_t SYS_SOCKET_SetLinger(int32_t hSocket, uint32_t Milliseconds) {
  uint32_t Seconds = Milliseconds / 1000 + (Milliseconds % 1000 >= 500);
  if (Seconds == 0 && Milliseconds > 0) {
    Seconds = 1;  // 0 seconds would reset the connection, which only 0 ms asks for
  }
  return SetLingerOption(hSocket, 1, Seconds);
}

int32_t SYS_SOCKET_SetNoLinger(int32_t hSocket) {
  return SetLingerOption(hSocket, 0, 0);
}

int32_t SYS_SOCKET_SetTimeouts(int32_t hSocket, uint32_t SendTimeout, uint32_t ReceiveTimeout) {
  const struct timeval Send    = SYS_WAIT_SplitMs(SendTimeout);
  const struct timeval Receive = SYS_WAIT_SplitMs(ReceiveTimeout);
  // Required: the result is that of the second call alone, which is made in any case.
  setsockopt(hSocket, SOL_SOCKET, SO_SNDTIMEO, &Send, sizeof(Send));
  return setsockopt(hSocket, SOL_SOCKET, SO_RCVTIMEO, &Receive, sizeof(Receive));
}

// A socket without a peer leaves the zeros in the record.
void SYS_SOCKET_GetPeerIPv4(int32_t hSocket, uint32_t* pAddr, uint16_t* pPort) {
  struct sockaddr_in SockAddr = {};
  socklen_t          Length   = sizeof(SockAddr);
  getpeername(hSocket, (struct sockaddr*)&SockAddr, &Length);
  *pAddr = ntohl(SockAddr.sin_addr.s_addr);
  if (pPort != NULL) {
    *pPort = ntohs(SockAddr.sin_port);
  }
}

void SYS_SOCKET_GetPeerIPv6(int32_t hSocket, uint8_t* pAddr, uint16_t* pPort) {
  struct sockaddr_in6 SockAddr = {};
  socklen_t           Length   = sizeof(SockAddr);
  getpeername(hSocket, (struct sockaddr*)&SockAddr, &Length);
  memcpy(pAddr, &SockAddr.sin6_addr, sizeof(SockAddr.sin6_addr));
  if (pPort != NULL) {
    *pPort = ntohs(SockAddr.sin6_port);
  }
}

// Copies the first address that the system's resolver gives to pSockAddr. It sorts them by how well
// they can be reached.
static int32_t Resolve(const char* sName, int Family, int Flags, void* pSockAddr, size_t Size) {
  struct addrinfo  Hints    = {};
  struct addrinfo* pResults = NULL;
  Hints.ai_family           = Family;
  Hints.ai_socktype         = SOCK_STREAM;  // without it each address comes once per kind of socket
  Hints.ai_flags            = Flags;
  if (getaddrinfo(sName, NULL, &Hints, &pResults) != 0) {
    return -1;
  }
  memcpy(pSockAddr, pResults->ai_addr, Size);  // of the family asked for, so at least Size bytes
  freeaddrinfo(pResults);
  return 0;
}

int32_t SYS_NET_ResolveIPv4(const char* sName, uint32_t* pAddr) {
  struct sockaddr_in SockAddr;
  if (Resolve(sName, AF_INET, 0, &SockAddr, sizeof(SockAddr)) != 0) {
    return -1;
  }
  *pAddr = ntohl(SockAddr.sin_addr.s_addr);
  return 0;
}

int32_t SYS_NET_ResolveIPv6(const char* sName, int32_t AllowMapped, uint8_t* pAddr) {
  // Without the flag a name that has IPv4 addresses only is a failure.
  struct sockaddr_in6 SockAddr;
  const int           Flags = AllowMapped != 0 ? AI_V4MAPPED : 0;
  if (Resolve(sName, AF_INET6, Flags, &SockAddr, sizeof(SockAddr)) != 0) {
    return -1;
  }
  memcpy(pAddr, &SockAddr.sin6_addr, sizeof(SockAddr.sin6_addr));
  return 0;
}

// getnameinfo() has its own error numbers, some of them positive; here each of them is -1.
static int32_t GetName(const void* pSockAddr, socklen_t Size, char* pHost, uint32_t HostSize,
                       char* pService, uint32_t ServiceSize) {
  return getnameinfo((const struct sockaddr*)pSockAddr, Size, pHost, HostSize, pService,
                     ServiceSize, 0) == 0
             ? 0
             : -1;
}

int32_t SYS_NET_GetNameIPv4(uint32_t Addr, uint16_t Port, char* pHost, uint32_t HostSize,
                            char* pService, uint32_t ServiceSize) {
  const struct sockaddr_in SockAddr = MakeAddrIPv4(Addr, Port);
  return GetName(&SockAddr, sizeof(SockAddr), pHost, HostSize, pService, ServiceSize);
}

int32_t SYS_NET_GetNameIPv6(const uint8_t* pAddr, uint16_t Port, char* pHost, uint32_t HostSize,
                            char* pService, uint32_t ServiceSize) {
  const struct sockaddr_in6 SockAddr = MakeAddrIPv6(pAddr, Port);
  return GetName(&SockAddr, sizeof(SockAddr), pHost, HostSize, pService, ServiceSize);
}
