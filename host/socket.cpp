#define HOST_SYS_SOCKET_IMPLEMENTATION
#include <errno.h>
#include <stdint.h>
#include <sys/socket.h>

enum { MAX_DESCRIPTORS = 65536 };

// One byte per descriptor: 1 while its socket has SO_NOSIGPIPE set. Threads that use different
// sockets touch different bytes; the accesses are atomic for those that share one.
static uint8_t aNoSigPipe[MAX_DESCRIPTORS];

static int IsTracked(int hSocket) {
  return hSocket >= 0 && hSocket < MAX_DESCRIPTORS;
}

// A descriptor is used again after close(), which the stand-in does not see: start afresh.
static int NewSocket(int hSocket) {
  if (IsTracked(hSocket)) {
    __atomic_store_n(&aNoSigPipe[hSocket], (uint8_t)0, __ATOMIC_RELAXED);
  }
  return hSocket;
}

extern "C" {

int HOST_socket(int Domain, int Type, int Protocol) {
  return NewSocket(socket(Domain, Type, Protocol));
}

int HOST_accept(int hSocket, struct sockaddr* pAddr, socklen_t* pLength) {
  return NewSocket(accept(hSocket, pAddr, pLength));
}

int HOST_setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length) {
  if (Level != SOL_SOCKET || Name != SO_NOSIGPIPE) {
    return setsockopt(hSocket, Level, Name, pValue, Length);
  }
  int       Type       = 0;
  socklen_t TypeLength = sizeof(Type);
  if (getsockopt(hSocket, SOL_SOCKET, SO_TYPE, &Type, &TypeLength) != 0) {
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
  __atomic_store_n(&aNoSigPipe[hSocket], (uint8_t)(*(const int*)pValue != 0), __ATOMIC_RELAXED);
  return 0;
}

ssize_t HOST_send(int hSocket, const void* pBuffer, size_t NumBytes, int Flags) {
  if (IsTracked(hSocket) && __atomic_load_n(&aNoSigPipe[hSocket], __ATOMIC_RELAXED) != 0) {
    Flags |= MSG_NOSIGNAL;
  }
  return send(hSocket, pBuffer, NumBytes, Flags);
}
}
