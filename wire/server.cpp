// SPDX-License-Identifier: MIT

#include "wire/server.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

namespace wire {

int Listen(int* pPort) {
  const int   Listener    = socket(AF_INET, SOCK_STREAM, 0);
  const int   One         = 1;
  sockaddr_in Address     = {};
  socklen_t   Length      = sizeof(Address);
  Address.sin_family      = AF_INET;
  Address.sin_port        = htons(static_cast<uint16_t>(*pPort));
  Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (Listener < 0) {
    return -1;
  }
  setsockopt(Listener, SOL_SOCKET, SO_REUSEADDR, &One, sizeof(One));
  if (bind(Listener, reinterpret_cast<sockaddr*>(&Address), sizeof(Address)) != 0 ||
      listen(Listener, 4) != 0 ||
      getsockname(Listener, reinterpret_cast<sockaddr*>(&Address), &Length) != 0) {
    close(Listener);
    return -1;
  }
  *pPort = ntohs(Address.sin_port);
  return Listener;
}

// False at the end of the connection, and when it shall not go on.
static bool ReceiveReport(int Socket, uint8_t* pReport, const std::function<bool()>& GoesOn) {
  int NumBytes = 0;
  while (NumBytes < REPORT_SIZE) {
    const ssize_t NumRead =
        recv(Socket, pReport + NumBytes, static_cast<size_t>(REPORT_SIZE - NumBytes), 0);
    if (NumRead == 0 || (NumRead < 0 && errno != EINTR) || !GoesOn()) {
      return false;
    }
    NumBytes += NumRead > 0 ? static_cast<int>(NumRead) : 0;
  }
  return true;
}

// Returns false when the adapter is unplugged.
static bool ServeHost(int Socket, Adapter* pAdapter, const std::function<bool()>& GoesOn) {
  uint8_t aRequest[REPORT_SIZE];
  uint8_t aAnswer[REPORT_SIZE];
  while (ReceiveReport(Socket, aRequest, GoesOn)) {
    const int Length = pAdapter->Execute(aRequest, aAnswer);
    if (Length < 0) {
      return false;
    }
    if (Length > 0 && send(Socket, aAnswer, sizeof(aAnswer), MSG_NOSIGNAL) < 0) {
      break;
    }
  }
  return true;
}

void Serve(int Listener, Adapter* pAdapter, const std::function<bool()>& GoesOn) {
  bool IsPlugged = true;
  while (IsPlugged && GoesOn()) {
    const int Socket = accept(Listener, nullptr, nullptr);
    if (Socket < 0 && errno == EINTR) {
      continue;
    }
    if (Socket < 0) {
      return;
    }
    const int One = 1;
    setsockopt(Socket, IPPROTO_TCP, TCP_NODELAY, &One, sizeof(One));
    IsPlugged = ServeHost(Socket, pAdapter, GoesOn);
    // What was on the wires is over; the chip and its debug port stay as they are.
    pAdapter->Disconnect();
    close(Socket);
  }
}

}  // namespace wire
