// SPDX-License-Identifier: MIT

#define HOST_SYS_SOCKET_IMPLEMENTATION
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>

enum { MAX_DESCRIPTORS = 65536, TICKS_PER_SECOND = 100 };

// What is known of a descriptor, a bit each
enum {
  NO_SIGPIPE     = 1,  // SO_NOSIGPIPE is set
  CONNECT_FAILED = 2,  // a connect() failed at once
};

// A byte per descriptor. Threads that use different sockets touch different bytes; the accesses are
// atomic for those that share one. A page of the table takes memory only when one of its
// sockets is made.
static uint8_t aMarks[MAX_DESCRIPTORS];

static int IsTracked(int hSocket) {
  return hSocket >= 0 && hSocket < MAX_DESCRIPTORS;
}

static void SetMark(int hSocket, uint8_t Mark, int IsSet) {
  if (!IsTracked(hSocket)) {
    return;
  }
  if (IsSet) {
    __atomic_fetch_or(&aMarks[hSocket], Mark, __ATOMIC_RELAXED);
  } else {
    __atomic_fetch_and(&aMarks[hSocket], (uint8_t)~Mark, __ATOMIC_RELAXED);
  }
}

static int HasMark(int hSocket, uint8_t Mark) {
  return IsTracked(hSocket) && (__atomic_load_n(&aMarks[hSocket], __ATOMIC_RELAXED) & Mark) != 0;
}

// The stand-in does not see close(), so a descriptor may still carry the marks of a former socket.
static int NewSocket(int hSocket) {
  SetMark(hSocket, NO_SIGPIPE | CONNECT_FAILED, 0);
  return hSocket;
}

// Returns the socket's type, or -1 for anything that is not a socket.
static int GetType(int hSocket) {
  int       Type   = 0;
  socklen_t Length = sizeof(Type);
  return getsockopt(hSocket, SOL_SOCKET, SO_TYPE, &Type, &Length) == 0 ? Type : -1;
}

// A part of a second becomes a whole second, because 0 would mean a reset.
static int SetLingerTicks(int hSocket, const void* pValue, socklen_t Length) {
  struct linger Linger;
  if (Length < sizeof(Linger)) {
    errno = EINVAL;
    return -1;
  }
  memcpy(&Linger, pValue, sizeof(Linger));
  const int Rest  = Linger.l_linger % TICKS_PER_SECOND;
  Linger.l_linger = Linger.l_linger / TICKS_PER_SECOND + (Rest != 0);
  return setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Linger, sizeof(Linger));
}

extern "C" {

int HOST_socket(int Domain, int Type, int Protocol) {
  return NewSocket(socket(Domain, Type, Protocol));
}

int HOST_accept(int hSocket, struct sockaddr* pAddr, socklen_t* pLength) {
  return NewSocket(accept(hSocket, pAddr, pLength));
}

int HOST_connect(int hSocket, const struct sockaddr* pAddr, socklen_t Length) {
  const int Result = connect(hSocket, pAddr, Length);
  const int Error  = errno;
  const int Failed = Result != 0 && Error != EINPROGRESS && Error != EINTR;
  SetMark(hSocket, CONNECT_FAILED, Failed && GetType(hSocket) == SOCK_STREAM);
  errno = Error;
  return Result;
}

int HOST_select(int Num, fd_set* pRead, fd_set* pWrite, fd_set* pError, struct timeval* pTimeout) {
  for (int hSocket = 0; pWrite != NULL && hSocket < Num; hSocket++) {
    if (HasMark(hSocket, CONNECT_FAILED)) {
      FD_CLR(hSocket, pWrite);
    }
  }
  return select(Num, pRead, pWrite, pError, pTimeout);
}

int HOST_getsockopt(int hSocket, int Level, int Name, void* pValue, socklen_t* pLength) {
  const int IsSeconds = Level == SOL_SOCKET && Name == SO_LINGER_SEC;
  const int IsTicks   = Level == SOL_SOCKET && Name == SO_LINGER;
  const int Result    = getsockopt(hSocket, Level, IsSeconds ? SO_LINGER : Name, pValue, pLength);
  if (IsTicks && Result == 0 && *pLength == sizeof(struct linger)) {
    ((struct linger*)pValue)->l_linger *= TICKS_PER_SECOND;
  }
  return Result;
}

int HOST_setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length) {
  if (Level == SOL_SOCKET && Name == SO_LINGER) {
    return SetLingerTicks(hSocket, pValue, Length);
  }
  if (Level == SOL_SOCKET && Name == SO_LINGER_SEC) {
    return setsockopt(hSocket, SOL_SOCKET, SO_LINGER, pValue, Length);
  }
  if (Level != SOL_SOCKET || Name != SO_NOSIGPIPE) {
    return setsockopt(hSocket, Level, Name, pValue, Length);
  }
  if (GetType(hSocket) < 0) {
    return -1;  // not a socket
  }
  if (Length < sizeof(int)) {
    errno = EINVAL;
    return -1;
  }
  if (!IsTracked(hSocket)) {
    errno = EBADF;
    return -1;
  }
  SetMark(hSocket, NO_SIGPIPE, *(const int*)pValue);
  return 0;
}

ssize_t HOST_send(int hSocket, const void* pBuffer, size_t NumBytes, int Flags) {
  if (HasMark(hSocket, NO_SIGPIPE)) {
    Flags |= MSG_NOSIGNAL;
  }
  return send(hSocket, pBuffer, NumBytes, Flags);
}
}
