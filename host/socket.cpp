#define HOST_SYS_SOCKET_IMPLEMENTATION
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>

enum { MAX_DESCRIPTORS = 65536, TICKS_PER_SECOND = 100 };

// One byte per descriptor. Threads that use different sockets touch different bytes; the accesses are
// atomic for those that share one.
static uint8_t aNoSigPipe[MAX_DESCRIPTORS];      // 1 while the socket has SO_NOSIGPIPE set
static uint8_t aConnectFailed[MAX_DESCRIPTORS];  // 1 after a connect() that failed at once

static int IsTracked(int hSocket) {
  return hSocket >= 0 && hSocket < MAX_DESCRIPTORS;
}

static void SetMark(uint8_t* paMarks, int hSocket, int IsSet) {
  if (IsTracked(hSocket)) {
    __atomic_store_n(&paMarks[hSocket], (uint8_t)(IsSet != 0), __ATOMIC_RELAXED);
  }
}

static int HasMark(const uint8_t* paMarks, int hSocket) {
  return IsTracked(hSocket) && __atomic_load_n(&paMarks[hSocket], __ATOMIC_RELAXED) != 0;
}

// A descriptor is used again after close(), which the stand-in does not see: start afresh.
static int NewSocket(int hSocket) {
  SetMark(aNoSigPipe, hSocket, 0);
  SetMark(aConnectFailed, hSocket, 0);
  return hSocket;
}

// The socket's type, or -1 when it is no socket.
static int GetType(int hSocket) {
  int       Type   = 0;
  socklen_t Length = sizeof(Type);
  return getsockopt(hSocket, SOL_SOCKET, SO_TYPE, &Type, &Length) == 0 ? Type : -1;
}

// A part of a second becomes a whole one: 0 would mean a reset.
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
  SetMark(aConnectFailed, hSocket, Failed && GetType(hSocket) == SOCK_STREAM);
  errno = Error;
  return Result;
}

int HOST_select(int Num, fd_set* pRead, fd_set* pWrite, fd_set* pError, struct timeval* pTimeout) {
  for (int hSocket = 0; pWrite != NULL && hSocket < Num; hSocket++) {
    if (HasMark(aConnectFailed, hSocket)) {
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
    return -1;  // no socket
  }
  if (Length < sizeof(int)) {
    errno = EINVAL;
    return -1;
  }
  if (!IsTracked(hSocket)) {
    errno = EBADF;
    return -1;
  }
  SetMark(aNoSigPipe, hSocket, *(const int*)pValue);
  return 0;
}

ssize_t HOST_send(int hSocket, const void* pBuffer, size_t NumBytes, int Flags) {
  if (HasMark(aNoSigPipe, hSocket)) {
    Flags |= MSG_NOSIGNAL;
  }
  return send(hSocket, pBuffer, NumBytes, Flags);
}
}
