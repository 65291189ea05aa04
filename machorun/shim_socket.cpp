// SPDX-License-Identifier: MIT

// Sockets: address records, option numbers, message flags, waiting.

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <set>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"
#include "machorun/socket_address.h"

// -- Addresses -----------------------------------------------------------------------------------

int FamilyToHost(int Family) {
  switch (Family) {
    case darwin::FAMILY_UNSPEC:
      return AF_UNSPEC;
    case darwin::FAMILY_INET:
      return AF_INET;
    case darwin::FAMILY_INET6:
      return AF_INET6;
    default:
      Unknown("address family %d", Family);
  }
}

int FamilyToDarwin(int Family) {
  switch (Family) {
    case AF_INET:
      return darwin::FAMILY_INET;
    case AF_INET6:
      return darwin::FAMILY_INET6;
    default:
      return darwin::FAMILY_UNSPEC;
  }
}

// The address's own length byte is ignored; the length given to the call counts.
socklen_t AddressToHost(const void* pAddress, uint32_t Length, HostAddress* pHost) {
  memset(pHost, 0, sizeof(*pHost));
  const auto* pV4 = static_cast<const darwin::SockaddrIn*>(pAddress);
  const auto* pV6 = static_cast<const darwin::SockaddrIn6*>(pAddress);
  if (Length >= sizeof(*pV4) && pV4->Family == darwin::FAMILY_INET) {
    pHost->V4.sin_family      = AF_INET;
    pHost->V4.sin_port        = pV4->Port;
    pHost->V4.sin_addr.s_addr = pV4->Address;
    return sizeof(pHost->V4);
  }
  if (Length >= sizeof(*pV6) && pV6->Family == darwin::FAMILY_INET6) {
    pHost->V6.sin6_family   = AF_INET6;
    pHost->V6.sin6_port     = pV6->Port;
    pHost->V6.sin6_flowinfo = pV6->FlowInfo;
    pHost->V6.sin6_scope_id = pV6->ScopeId;
    memcpy(&pHost->V6.sin6_addr, pV6->Address, sizeof(pV6->Address));
    return sizeof(pHost->V6);
  }
  Unknown("socket address of family %d and %u bytes", Length >= 2 ? pV4->Family : -1, Length);
}

uint32_t AddressToDarwin(const sockaddr* pHost, void* pAddress, uint32_t Room) {
  union {
    darwin::SockaddrIn  V4;
    darwin::SockaddrIn6 V6;
  } Result        = {};
  uint32_t Length = 0;
  if (pHost->sa_family == AF_INET) {
    const auto* pV4   = reinterpret_cast<const sockaddr_in*>(pHost);
    Length            = sizeof(Result.V4);
    Result.V4.Length  = sizeof(Result.V4);
    Result.V4.Family  = darwin::FAMILY_INET;
    Result.V4.Port    = pV4->sin_port;
    Result.V4.Address = pV4->sin_addr.s_addr;
  } else if (pHost->sa_family == AF_INET6) {
    const auto* pV6    = reinterpret_cast<const sockaddr_in6*>(pHost);
    Length             = sizeof(Result.V6);
    Result.V6.Length   = sizeof(Result.V6);
    Result.V6.Family   = darwin::FAMILY_INET6;
    Result.V6.Port     = pV6->sin6_port;
    Result.V6.FlowInfo = pV6->sin6_flowinfo;
    Result.V6.ScopeId  = pV6->sin6_scope_id;
    memcpy(Result.V6.Address, &pV6->sin6_addr, sizeof(Result.V6.Address));
  }
  memcpy(pAddress, &Result, Length < Room ? Length : Room);
  return Length;
}

namespace {

// -- Sockets that must not raise SIGPIPE ---------------------------------------------------------

std::mutex    QuietLock;
std::set<int> QuietSockets;

bool IsQuiet(int Socket) {
  const std::lock_guard<std::mutex> Guard(QuietLock);
  return QuietSockets.count(Socket) != 0;
}

void SetQuiet(int Socket, bool Quiet) {
  const std::lock_guard<std::mutex> Guard(QuietLock);
  if (Quiet) {
    QuietSockets.insert(Socket);
  } else {
    QuietSockets.erase(Socket);
  }
}

// -- Sockets whose connect() failed at once -------------------------------------------------------

// Darwin never reports such a socket writable; Linux does.
std::set<int> FailedSockets;  // guarded by QuietLock

void SetFailed(int Socket, bool Failed) {
  const std::lock_guard<std::mutex> Guard(QuietLock);
  if (Failed) {
    FailedSockets.insert(Socket);
  } else {
    FailedSockets.erase(Socket);
  }
}

void DropFailed(fd_set* pWrite) {
  const std::lock_guard<std::mutex> Guard(QuietLock);
  for (const int Socket : FailedSockets) {
    if (Socket < FD_SETSIZE) {
      FD_CLR(Socket, pWrite);
    }
  }
}

// -- Options -------------------------------------------------------------------------------------

constexpr int TICKS_PER_SECOND = 100;

enum class Value { Flag, Number, Linger, LingerTicks, Time, Error, BufferSize, Quiet };

struct Option {
  int   DarwinLevel, DarwinName;
  int   HostLevel, HostName;
  Value What;
};

constexpr Option Options[] = {
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_REUSEADDR, SOL_SOCKET, SO_REUSEADDR, Value::Flag},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_KEEPALIVE, SOL_SOCKET, SO_KEEPALIVE, Value::Flag},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_BROADCAST, SOL_SOCKET, SO_BROADCAST, Value::Flag},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_LINGER, SOL_SOCKET, SO_LINGER, Value::LingerTicks},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_LINGER_SEC, SOL_SOCKET, SO_LINGER, Value::Linger},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_SNDBUF, SOL_SOCKET, SO_SNDBUF, Value::BufferSize},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_RCVBUF, SOL_SOCKET, SO_RCVBUF, Value::BufferSize},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_SNDTIMEO, SOL_SOCKET, SO_SNDTIMEO, Value::Time},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_RCVTIMEO, SOL_SOCKET, SO_RCVTIMEO, Value::Time},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_ERROR, SOL_SOCKET, SO_ERROR, Value::Error},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_TYPE, SOL_SOCKET, SO_TYPE, Value::Number},
    {darwin::LEVEL_SOCKET, darwin::SOCKOPT_NOSIGPIPE, 0, 0, Value::Quiet},
    {darwin::LEVEL_TCP, darwin::TCPOPT_NODELAY, IPPROTO_TCP, TCP_NODELAY, Value::Flag},
    {darwin::LEVEL_IPV6, darwin::IPV6OPT_V6ONLY, IPPROTO_IPV6, IPV6_V6ONLY, Value::Flag},
};

const Option& FindOption(int Level, int Name) {
  for (const Option& Row : Options) {
    if (Row.DarwinLevel == Level && Row.DarwinName == Name) {
      return Row;
    }
  }
  Unknown("socket option 0x%x of level 0x%x", static_cast<unsigned>(Name),
          static_cast<unsigned>(Level));
}

int SetOption(int Socket, int Level, int Name, const void* pValue, uint32_t Size) {
  const Option& Row = FindOption(Level, Name);
  if (Row.What == Value::Time) {
    darwin::Timeval Time;
    if (Size != sizeof(Time)) {
      errno = EINVAL;
      return -1;
    }
    memcpy(&Time, pValue, sizeof(Time));
    const struct timeval Host = {Time.Seconds, Time.Microseconds};
    Trace("setsockopt(0x%x, 0x%x, %ld s %d us)", static_cast<unsigned>(Level),
          static_cast<unsigned>(Name), static_cast<long>(Time.Seconds), Time.Microseconds);
    return setsockopt(Socket, Row.HostLevel, Row.HostName, &Host, sizeof(Host));
  }
  int aNumbers[2] = {};
  if (Size < sizeof(int) || Size > sizeof(aNumbers)) {
    errno = EINVAL;
    return -1;
  }
  memcpy(aNumbers, pValue, Size);
  Trace("setsockopt(0x%x, 0x%x, %d %d)", static_cast<unsigned>(Level), static_cast<unsigned>(Name),
        aNumbers[0], aNumbers[1]);
  if (Row.What == Value::Quiet) {
    if (fcntl(Socket, F_GETFD) < 0) {
      return -1;
    }
    SetQuiet(Socket, aNumbers[0] != 0);
    return 0;
  }
  if (Row.What == Value::LingerTicks) {
    // This system counts whole seconds. A part of one is rounded up: 0 would mean a reset.
    const bool IsPart = aNumbers[1] % TICKS_PER_SECOND != 0;
    aNumbers[1]       = aNumbers[1] / TICKS_PER_SECOND + (IsPart ? 1 : 0);
  }
  return setsockopt(Socket, Row.HostLevel, Row.HostName, aNumbers, Size);
}

int GetOption(int Socket, int Level, int Name, void* pValue, uint32_t* pSize) {
  const Option& Row = FindOption(Level, Name);
  if (Row.What == Value::Time) {
    struct timeval Host;
    socklen_t      HostSize    = sizeof(Host);
    const int      Result      = getsockopt(Socket, Row.HostLevel, Row.HostName, &Host, &HostSize);
    const darwin::Timeval Time = {Host.tv_sec, static_cast<int32_t>(Host.tv_usec)};
    if (Result == 0 && *pSize >= sizeof(Time)) {
      memcpy(pValue, &Time, sizeof(Time));
      *pSize = sizeof(Time);
    }
    return Result;
  }
  int       aNumbers[2] = {};
  socklen_t Size        = sizeof(aNumbers);
  if (Row.What == Value::Quiet) {
    aNumbers[0] = IsQuiet(Socket) ? 1 : 0;
    Size        = sizeof(int);
  } else if (getsockopt(Socket, Row.HostLevel, Row.HostName, aNumbers, &Size) != 0) {
    return -1;
  }
  if (Row.What == Value::Flag && aNumbers[0] != 0 && Level == darwin::LEVEL_SOCKET) {
    aNumbers[0] = Name;  // Darwin returns a flag as its bit, not as 1
  } else if (Row.What == Value::LingerTicks) {
    aNumbers[1] *= TICKS_PER_SECOND;
  } else if (Row.What == Value::BufferSize) {
    aNumbers[0] /= 2;  // this system doubles the size asked for
  } else if (Row.What == Value::Error) {
    aNumbers[0] = aNumbers[0] == 0 ? 0 : ToDarwinErrno(aNumbers[0]);
  }
  *pSize = *pSize < Size ? *pSize : Size;
  memcpy(pValue, aNumbers, *pSize);
  return 0;
}

// -- Calls ---------------------------------------------------------------------------------------

int Create(int Family, int Type, int Protocol) {
  Trace("socket(%d, %d, %d)", Family, Type, Protocol);
  if (Type < SOCK_STREAM || Type > SOCK_RAW) {  // 1 to 3; on Linux it may also contain flags
    Unknown("socket type 0x%x", static_cast<unsigned>(Type));
  }
  return socket(FamilyToHost(Family), Type, Protocol);
}

int CreatePair(int Family, int Type, int Protocol, int* pSockets) {
  if (Family != AF_UNIX || Type != SOCK_STREAM) {  // these two numbers are the same
    Unknown("socket pair of family %d and type 0x%x", Family, static_cast<unsigned>(Type));
  }
  return socketpair(Family, Type, Protocol, pSockets);
}

int Bind(int Socket, const void* pAddress, uint32_t Length) {
  HostAddress     Host;
  const socklen_t HostLength = AddressToHost(pAddress, Length, &Host);
  return bind(Socket, &Host.Any, HostLength);
}

int Connect(int Socket, const void* pAddress, uint32_t Length) {
  HostAddress     Host;
  const socklen_t HostLength = AddressToHost(pAddress, Length, &Host);
  const int       Result     = connect(Socket, &Host.Any, HostLength);
  const int       Error      = errno;
  int             Type       = 0;
  socklen_t       TypeLength = sizeof(Type);
  getsockopt(Socket, SOL_SOCKET, SO_TYPE, &Type, &TypeLength);
  SetFailed(Socket, Result != 0 && Error != EINPROGRESS && Error != EINTR && Type == SOCK_STREAM);
  errno = Error;
  return Result;
}

int Accept(int Socket, void* pAddress, uint32_t* pLength) {
  HostAddress Host;
  socklen_t   HostLength = sizeof(Host);
  const int   Accepted   = accept(Socket, &Host.Any, &HostLength);
  if (Accepted >= 0) {
    if (pAddress != nullptr) {
      *pLength = AddressToDarwin(&Host.Any, pAddress, *pLength);
    }
    // On Darwin an accepted socket inherits "non-blocking" from the listening one.
    const int Flags = fcntl(Socket, F_GETFL);
    if ((Flags & O_NONBLOCK) != 0) {
      fcntl(Accepted, F_SETFL, fcntl(Accepted, F_GETFL) | O_NONBLOCK);
    }
  }
  return Accepted;
}

template <int (*pfCall)(int, sockaddr*, socklen_t*)>
int GetName(int Socket, void* pAddress, uint32_t* pLength) {
  HostAddress Host;
  socklen_t   HostLength = sizeof(Host);
  const int   Result     = pfCall(Socket, &Host.Any, &HostLength);
  if (Result == 0) {
    *pLength = AddressToDarwin(&Host.Any, pAddress, *pLength);
  }
  return Result;
}

int HostPeerName(int Socket, sockaddr* p, socklen_t* pLength) {
  return getpeername(Socket, p, pLength);
}
int HostSocketName(int Socket, sockaddr* p, socklen_t* pLength) {
  return getsockname(Socket, p, pLength);
}

constexpr FlagPair MessageFlags[] = {
    {darwin::MESSAGE_OOB, MSG_OOB},
    {darwin::MESSAGE_PEEK, MSG_PEEK},
    {darwin::MESSAGE_WAITALL, MSG_WAITALL},
    {darwin::MESSAGE_DONTWAIT, MSG_DONTWAIT},
};

int MessageToHost(int Socket, int Flags) {
  const auto Host =
      static_cast<int>(FlagsToHost(static_cast<uint32_t>(Flags), MessageFlags, "message flags"));
  return IsQuiet(Socket) ? Host | MSG_NOSIGNAL : Host;
}

ssize_t Send(int Socket, const void* pData, size_t Length, int Flags) {
  return send(Socket, pData, Length, MessageToHost(Socket, Flags));
}

ssize_t Receive(int Socket, void* pData, size_t Length, int Flags) {
  return recv(
      Socket, pData, Length,
      static_cast<int>(FlagsToHost(static_cast<uint32_t>(Flags), MessageFlags, "message flags")));
}

// The record is the same, and so are the events up to POLLNVAL. The count has 32 bits on Darwin.
int Poll(pollfd* pFiles, uint32_t Count, int TimeoutMs) {
  for (uint32_t i = 0; i < Count; i++) {
    if ((pFiles[i].events & ~(POLLIN | POLLPRI | POLLOUT)) != 0) {
      Unknown("poll events 0x%x", static_cast<unsigned>(pFiles[i].events));
    }
  }
  return poll(pFiles, Count, TimeoutMs);
}

// The sets have the same layout. Darwin leaves the time unchanged; Linux does not.
int Select(int Num, fd_set* pRead, fd_set* pWrite, fd_set* pError, const darwin::Timeval* pTime) {
  if (pWrite != nullptr) {
    DropFailed(pWrite);
  }
  if (pTime == nullptr) {
    return select(Num, pRead, pWrite, pError, nullptr);
  }
  if (pTime->Seconds < 0 || pTime->Microseconds < 0 || pTime->Microseconds >= 1000000) {
    errno = EINVAL;  // Linux would carry the rest over to the seconds
    return -1;
  }
  struct timeval Host = {pTime->Seconds, pTime->Microseconds};
  return select(Num, pRead, pWrite, pError, &Host);
}

// Called by FD_SET, FD_CLR and FD_ISSET of newer headers: 1 when the descriptor is within the set.
int CheckSetOverflow(int Descriptor, const void*, int) {
  return Descriptor >= 0 && Descriptor < 1024 ? 1 : 0;
}

const Shim Table[] = {
    Bound("_socket", &Create),
    Bound("_socketpair", &CreatePair),
    Bound("_poll", &Poll),
    Bound("_bind", &Bind),
    Bound("_connect", &Connect),
    Bound("_accept", &Accept),
    Bound("_getpeername", &GetName<&HostPeerName>),
    Bound("_getsockname", &GetName<&HostSocketName>),
    Bound("_setsockopt", &SetOption),
    Bound("_getsockopt", &GetOption),
    Bound("_send", &Send),
    Bound("_recv", &Receive),
    Bound("_select$1050", &Select),
    Bound("___darwin_check_fd_set_overflow", &CheckSetOverflow),
};

}  // namespace

void ForgetSocket(int Descriptor) {
  SetQuiet(Descriptor, false);
  SetFailed(Descriptor, false);
}

std::span<const Shim> SocketShims() {
  return Table;
}
