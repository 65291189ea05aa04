#include "sys/sockets.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/own_namespace.h"
#include "tests/sys/closed_stdin.h"
#include "tests/sys/faults.h"
#include "tests/sys/high_descriptors.h"
#include "tests/sys/loopback.h"
#include "tests/sys/measure.h"
#include "tests/sys/refusing_port.h"

static const uint32_t LOOPBACK      = 0x7F000001;  // 127.0.0.1
static const uint8_t  aLoopback6[]  = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
static const uint8_t  aAny6[16]     = {};
static const uint8_t  aMapped[]     = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 127, 0, 0, 1};
static const int      NO_SIGNAL_OPT = 0x1022;

static uint16_t GetPort(int hSocket) {
  struct sockaddr_in6 Addr   = {};  // the port is at the same place in both families
  socklen_t           Length = sizeof(Addr);
  EXPECT_EQ(0, getsockname(hSocket, (struct sockaddr*)&Addr, &Length));
  return ntohs(Addr.sin6_port);
}

static int GetOption(int hSocket, int Level, int Name) {
  int       Value  = -1;
  socklen_t Length = sizeof(Value);
  EXPECT_EQ(0, getsockopt(hSocket, Level, Name, &Value, &Length));
  return Value;
}

// A listening socket on 127.0.0.1 and its port.
struct LISTENER {
  int32_t  hSocket;
  uint16_t Port;

  explicit LISTENER(int32_t Backlog = 16) : hSocket(SYS_TCP_CreateIPv4()) {
    EXPECT_EQ(0, SYS_TCP_ListenIPv4(hSocket, LOOPBACK, 0, Backlog));
    Port = GetPort(hSocket);
  }
  ~LISTENER() { close(hSocket); }
  LISTENER(const LISTENER&)            = delete;
  LISTENER& operator=(const LISTENER&) = delete;
};

// Two ends of a connection.
struct CONNECTION {
  int32_t hClient;
  int32_t hServer;

  CONNECTION() {
    const LISTENER Listener;
    hClient = SYS_TCP_CreateIPv4();
    EXPECT_EQ(0, SYS_SOCKET_ConnectIPv4(hClient, LOOPBACK, Listener.Port));
    hServer = SYS_TCP_Accept(Listener.hSocket);
    EXPECT_GE(hServer, 0);
  }
  ~CONNECTION() {
    CloseServer();
    close(hClient);
  }
  CONNECTION(const CONNECTION&)            = delete;
  CONNECTION& operator=(const CONNECTION&) = delete;

  void CloseServer() {
    if (hServer >= 0) {
      close(hServer);
      hServer = -1;
    }
  }
};

// ---- Making and closing -------------------------------------------------------------------------

TEST(SysSocket, EachKindIsMadeWithItsFamilyTypeAndOptions) {
  const std::vector<OPTION_CALL> None;
  const std::vector<OPTION_CALL> Stream     = {{IPPROTO_TCP, TCP_NODELAY, 1},
                                               {SOL_SOCKET, NO_SIGNAL_OPT, 1}};
  const std::vector<OPTION_CALL> Dual       = {{IPPROTO_IPV6, IPV6_V6ONLY, 0}};
  const std::vector<OPTION_CALL> StreamDual = {Stream[0], Stream[1], Dual[0]};
  const struct {
    int32_t (*pfCreate)();
    int                             Family;
    int                             Type;
    const std::vector<OPTION_CALL>* pOptions;
  } Cases[] = {
      {[] { return SYS_UDP_CreateIPv4(); }, AF_INET, SOCK_DGRAM, &None},
      {[] { return SYS_UDP_CreateIPv6(0); }, AF_INET6, SOCK_DGRAM, &None},
      {[] { return SYS_UDP_CreateIPv6(1); }, AF_INET6, SOCK_DGRAM, &Dual},
      {[] { return SYS_TCP_CreateIPv4(); }, AF_INET, SOCK_STREAM, &Stream},
      {[] { return SYS_TCP_CreateIPv6(0); }, AF_INET6, SOCK_STREAM, &Stream},
      {[] { return SYS_TCP_CreateIPv6(1); }, AF_INET6, SOCK_STREAM, &StreamDual},
  };
  for (const auto& Case : Cases) {
    GetOptionCalls().clear();
    const int32_t hSocket = Case.pfCreate();
    ASSERT_GE(hSocket, 0);
    EXPECT_TRUE(GetOptionCalls() == *Case.pOptions) << Case.Family << " " << Case.Type;
    EXPECT_EQ(Case.Family, GetOption(hSocket, SOL_SOCKET, SO_DOMAIN));
    EXPECT_EQ(Case.Type, GetOption(hSocket, SOL_SOCKET, SO_TYPE));
    EXPECT_EQ(0, SYS_SOCKET_Close(hSocket));
    EXPECT_EQ(-1, SYS_SOCKET_Close(hSocket));

    GetOptionCalls().clear();
    int32_t hNone;
    {
      const FAULT Fault("HOST_socket", EMFILE);
      hNone = Case.pfCreate();
    }
    EXPECT_EQ(-1, hNone);
    EXPECT_TRUE(GetOptionCalls().empty()) << "no options on what is no socket";
  }
}

TEST(SysSocket, DescriptorZeroIsOneLikeAnyOther) {
  const std::vector<OPTION_CALL> Stream     = {{IPPROTO_TCP, TCP_NODELAY, 1},
                                               {SOL_SOCKET, NO_SIGNAL_OPT, 1}};
  std::vector<OPTION_CALL>       StreamDual = Stream;
  StreamDual.push_back({IPPROTO_IPV6, IPV6_V6ONLY, 0});
  const LISTENER     Listener;
  const CLOSED_STDIN Stdin;
  GetOptionCalls().clear();
  EXPECT_EQ(0, SYS_TCP_CreateIPv6(1));
  EXPECT_TRUE(GetOptionCalls() == StreamDual);
  SYS_SOCKET_Close(0);

  GetOptionCalls().clear();
  EXPECT_EQ(0, SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 10000, nullptr));
  EXPECT_TRUE(GetOptionCalls() == Stream);
  EXPECT_EQ(1, SYS_SOCKET_WaitWritable(0, 0));
  SYS_SOCKET_Close(0);
  const int NumBefore = CountDescriptors();
  {
    const FAULT StillPending("select", 0, 0, 2);
    EXPECT_EQ(-3, SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 10000, []() -> int32_t {
      static int NumAsked;
      return ++NumAsked == 2;
    }));
  }
  EXPECT_EQ(NumBefore, CountDescriptors());

  GetOptionCalls().clear();
  EXPECT_EQ(0, SYS_TCP_Accept(Listener.hSocket));
  EXPECT_TRUE(GetOptionCalls() == Stream);
}

TEST(SysSocket, ErrorsOfTheOptionsAreNotExamined) {
  int32_t hSocket;
  {
    const FAULT Fault("HOST_setsockopt", ENOPROTOOPT, 0, 3);
    hSocket = SYS_TCP_CreateIPv6(1);
  }
  EXPECT_GE(hSocket, 0);
  SYS_SOCKET_Close(hSocket);
}

TEST(SysSocket, ShutdownEndsTheDirectionsAskedForAndNothingElse) {
  char c;
  {
    const CONNECTION Pair;
    SYS_SOCKET_Shutdown(Pair.hClient, 3);
    SYS_SOCKET_Shutdown(Pair.hClient, -1);
    EXPECT_EQ(1, SYS_SOCKET_Send(Pair.hServer, "x", 1));
    EXPECT_EQ(1, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
    SYS_SOCKET_Shutdown(Pair.hClient, 0);
    EXPECT_EQ(0, SYS_SOCKET_Receive(Pair.hClient, &c, 1)) << "receiving is over";
    EXPECT_EQ(1, SYS_SOCKET_Send(Pair.hClient, "y", 1)) << "sending is not";
  }
  {
    const CONNECTION Pair;
    SYS_SOCKET_Shutdown(Pair.hClient, 1);
    EXPECT_EQ(-1, SYS_SOCKET_Send(Pair.hClient, "x", 1));
    EXPECT_EQ(0, SYS_SOCKET_Receive(Pair.hServer, &c, 1));
    EXPECT_EQ(1, SYS_SOCKET_Send(Pair.hServer, "y", 1));
    EXPECT_EQ(1, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  }
  {
    const CONNECTION Pair;
    SYS_SOCKET_Shutdown(Pair.hClient, 2);
    EXPECT_EQ(-1, SYS_SOCKET_Send(Pair.hClient, "x", 1));
    EXPECT_EQ(0, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  }
}

// ---- Server side --------------------------------------------------------------------------------

TEST(SysTcpListen, IPv4ReusesItsPortAndIPv6DoesNotAskTo) {
  const LISTENER Listener;
  EXPECT_EQ(1, GetOption(Listener.hSocket, SOL_SOCKET, SO_REUSEADDR));
  if (!HasLoopbackIPv6()) {
    GTEST_SKIP() << "SKIPPED, this machine has no address ::1";
  }
  const int32_t h6 = SYS_TCP_CreateIPv6(0);
  EXPECT_EQ(0, SYS_TCP_ListenIPv6(h6, aLoopback6, 0, 4));
  EXPECT_EQ(0, GetOption(h6, SOL_SOCKET, SO_REUSEADDR));
  EXPECT_EQ(1, GetOption(h6, SOL_SOCKET, SO_ACCEPTCONN));
  SYS_SOCKET_Close(h6);
}

TEST(SysTcpListen, BindsToThePortAndAddressGiven) {
  uint16_t Port;
  {
    const LISTENER Once;
    Port = Once.Port;
  }
  const int32_t hSocket = SYS_TCP_CreateIPv4();
  ASSERT_EQ(0, SYS_TCP_ListenIPv4(hSocket, 0x7F000005, Port, 4));
  struct sockaddr_in Addr   = {};
  socklen_t          Length = sizeof(Addr);
  getsockname(hSocket, (struct sockaddr*)&Addr, &Length);
  EXPECT_EQ(0, memcmp(&Addr.sin_addr, "\x7F\x00\x00\x05", 4));
  EXPECT_EQ(Port, ntohs(Addr.sin_port));
  SYS_SOCKET_Close(hSocket);
}

TEST(SysTcpListen, AnyFailedStepIsAFailure) {
  const int32_t  hSocket = SYS_TCP_CreateIPv4();
  const int32_t  h6      = SYS_TCP_CreateIPv6(0);
  const LISTENER Taken;
  int32_t        Result;
  {
    const FAULT Fault("HOST_setsockopt", EINVAL);
    Result = SYS_TCP_ListenIPv4(hSocket, LOOPBACK, 0, 4);
  }
  EXPECT_EQ(-1, Result);
  EXPECT_EQ(-1, SYS_TCP_ListenIPv4(hSocket, LOOPBACK, Taken.Port, 4)) << "taken";
  EXPECT_EQ(-1, SYS_TCP_ListenIPv4(hSocket, 0x08080808, 0, 4)) << "not of this machine";
  {
    const FAULT Fault("bind", EADDRINUSE);
    Result = SYS_TCP_ListenIPv6(h6, aLoopback6, 0, 4);
  }
  EXPECT_EQ(-1, Result);
  const int32_t hDatagram = SYS_UDP_CreateIPv4();
  EXPECT_EQ(-1, SYS_TCP_ListenIPv4(hDatagram, LOOPBACK, 0, 4)) << "the result of listen()";
  SYS_SOCKET_Close(hDatagram);
  SYS_SOCKET_Close(h6);
  SYS_SOCKET_Close(hSocket);
}

TEST(SysTcpAccept, GivesTheConnectionTheStreamOptions) {
  const LISTENER Listener;
  const int32_t  hClient = SYS_TCP_CreateIPv4();
  ASSERT_EQ(0, SYS_SOCKET_ConnectIPv4(hClient, LOOPBACK, Listener.Port));
  GetOptionCalls().clear();
  const int32_t hServer = SYS_TCP_AcceptTimeout(Listener.hSocket, 10000);
  ASSERT_GE(hServer, 0);
  const std::vector<OPTION_CALL> Stream = {{IPPROTO_TCP, TCP_NODELAY, 1},
                                           {SOL_SOCKET, NO_SIGNAL_OPT, 1}};
  EXPECT_TRUE(GetOptionCalls() == Stream);
  EXPECT_NE(0, GetOption(hServer, IPPROTO_TCP, TCP_NODELAY));
  SYS_SOCKET_Close(hServer);
  SYS_SOCKET_Close(hClient);
}

TEST(SysTcpAccept, AConnectionThatCannotBeTakenIsAnErrorAndGetsNoOptions) {
  const LISTENER Listener;
  const int32_t  hClient = SYS_TCP_CreateIPv4();
  ASSERT_EQ(0, SYS_SOCKET_ConnectIPv4(hClient, LOOPBACK, Listener.Port));
  GetOptionCalls().clear();
  int32_t Result;
  int32_t WithTimeout;
  {
    const FAULT Fault("HOST_accept", EMFILE, 0, 2);
    Result      = SYS_TCP_Accept(Listener.hSocket);
    WithTimeout = SYS_TCP_AcceptTimeout(Listener.hSocket, 10000);
  }
  EXPECT_EQ(-1, Result);
  EXPECT_EQ(-1, WithTimeout);
  EXPECT_TRUE(GetOptionCalls().empty());
  SYS_SOCKET_Close(hClient);
}

TEST(SysTcpAccept, TellsATimeOutFromAnError) {
  const LISTENER Listener;
  const int64_t  Start = GetMs();
  EXPECT_EQ(-2, SYS_TCP_AcceptTimeout(Listener.hSocket, 50));
  EXPECT_GE(GetMs() - Start, 49);
  EXPECT_EQ(-1, SYS_TCP_AcceptTimeout(-1, 50));
  EXPECT_EQ(-1, SYS_TCP_Accept(-1));
  int32_t Result;
  {
    const FAULT Fault("select", EINTR);
    Result = SYS_TCP_AcceptTimeout(Listener.hSocket, 50);
  }
  EXPECT_EQ(-1, Result);
}

// ---- IPv6 and dual stack ------------------------------------------------------------------------

TEST(SysTcpIPv6, ConnectsAndTellsThePeerOnBothSides) {
  if (!HasLoopbackIPv6()) {
    GTEST_SKIP() << "SKIPPED, this machine has no address ::1";
  }
  const int32_t hListener = SYS_TCP_CreateIPv6(0);
  ASSERT_EQ(0, SYS_TCP_ListenIPv6(hListener, aLoopback6, 0, 4));
  const uint16_t Port    = GetPort(hListener);
  const int32_t  hClient = SYS_TCP_CreateIPv6(0);
  ASSERT_EQ(0, SYS_SOCKET_ConnectIPv6(hClient, aLoopback6, Port));
  const int32_t hServer = SYS_TCP_Accept(hListener);
  ASSERT_GE(hServer, 0);
  uint8_t  aAddr[18];
  uint16_t PeerPort = 0;
  memset(aAddr, 0xAA, sizeof(aAddr));
  SYS_SOCKET_GetPeerIPv6(hClient, aAddr, &PeerPort);
  EXPECT_EQ(0, memcmp(aLoopback6, aAddr, 16));
  EXPECT_EQ(0xAA, aAddr[16]);
  EXPECT_EQ(Port, PeerPort);
  SYS_SOCKET_GetPeerIPv6(hServer, aAddr, nullptr);
  EXPECT_EQ(0, memcmp(aLoopback6, aAddr, 16));
  SYS_SOCKET_Close(hServer);
  SYS_SOCKET_Close(hClient);
  SYS_SOCKET_Close(hListener);
}

TEST(SysTcpIPv6, DualStackListenerIsReachedOverIPv4) {
  const int32_t hListener = SYS_TCP_CreateIPv6(1);
  ASSERT_EQ(0, SYS_TCP_ListenIPv6(hListener, aAny6, 0, 4));
  const int32_t hClient = SYS_TCP_CreateIPv4();
  ASSERT_EQ(0, SYS_SOCKET_ConnectIPv4(hClient, LOOPBACK, GetPort(hListener)));
  const int32_t hServer = SYS_TCP_Accept(hListener);
  ASSERT_GE(hServer, 0);
  uint8_t aAddr[16] = {};
  SYS_SOCKET_GetPeerIPv6(hServer, aAddr, nullptr);
  EXPECT_EQ(0, memcmp(aMapped, aAddr, 16));
  SYS_SOCKET_Close(hServer);
  SYS_SOCKET_Close(hClient);
  SYS_SOCKET_Close(hListener);
}

TEST(SysTcpIPv6, DualStackUdpSocketSendsToIPv4) {
  const int32_t      hReceiver = SYS_UDP_CreateIPv4();
  struct sockaddr_in Addr      = {};
  Addr.sin_family              = AF_INET;
  Addr.sin_addr.s_addr         = htonl(LOOPBACK);
  ASSERT_EQ(0, bind(hReceiver, (struct sockaddr*)&Addr, sizeof(Addr)));
  const int32_t hSender = SYS_UDP_CreateIPv6(1);
  ASSERT_EQ(0, SYS_SOCKET_ConnectIPv6(hSender, aMapped, GetPort(hReceiver)));
  EXPECT_EQ(4, SYS_SOCKET_Send(hSender, "ping", 4));
  char acBuffer[8];
  ASSERT_EQ(1, SYS_SOCKET_WaitReadable(hReceiver, 10000));
  EXPECT_EQ(4, SYS_SOCKET_Receive(hReceiver, acBuffer, sizeof(acBuffer)));
  SYS_SOCKET_Close(hSender);
  SYS_SOCKET_Close(hReceiver);
}

TEST(SysPeer, IPv4AddressAndPortAreInHostOrder) {
  const LISTENER Listener;
  const int32_t  hClient = SYS_TCP_CreateIPv4();
  ASSERT_EQ(0, SYS_SOCKET_ConnectIPv4(hClient, LOOPBACK, Listener.Port));
  uint32_t Addr = 0;
  uint16_t Port = 0;
  SYS_SOCKET_GetPeerIPv4(hClient, &Addr, &Port);
  EXPECT_EQ(0x7F000001u, Addr);
  EXPECT_EQ(Listener.Port, Port);
  Addr = 0;
  SYS_SOCKET_GetPeerIPv4(hClient, &Addr, nullptr);
  EXPECT_EQ(0x7F000001u, Addr);
  SYS_SOCKET_Close(hClient);
}

TEST(SysPeer, WithoutAConnectionThereAreZeros) {
  uint32_t Addr = 1;
  uint16_t Port = 1;
  uint8_t  a6[16];
  memset(a6, 0xAA, sizeof(a6));
  SYS_SOCKET_GetPeerIPv4(-1, &Addr, &Port);
  EXPECT_EQ(0u, Addr);
  EXPECT_EQ(0, Port);
  Port = 1;
  SYS_SOCKET_GetPeerIPv6(-1, a6, &Port);
  EXPECT_EQ(0, memcmp(aAny6, a6, 16));
  EXPECT_EQ(0, Port);
}

// ---- Transfer -----------------------------------------------------------------------------------

TEST(SysSocketReceive, TellsErrorsApart) {
  const CONNECTION Pair;
  const struct {
    int     Error;
    int32_t Result;
  } Cases[] = {{EAGAIN, -2}, {ETIMEDOUT, -3}, {ENETRESET, -4}, {EINTR, -5}, {ECONNRESET, -1}};
  for (const auto& Case : Cases) {
    char    c;
    int32_t Result;
    {
      const FAULT Fault("recv", Case.Error);
      Result = SYS_SOCKET_Receive(Pair.hClient, &c, 1);
    }
    EXPECT_EQ(Case.Result, Result) << strerror(Case.Error);
  }
}

TEST(SysSocketReceive, GivesWhatIsThereAndZeroAtTheEnd) {
  CONNECTION Pair;
  char       acBuffer[8] = "#######";
  EXPECT_EQ(3, SYS_SOCKET_Send(Pair.hServer, "abc", 3));
  EXPECT_EQ(3, SYS_SOCKET_Receive(Pair.hClient, acBuffer, 8));
  EXPECT_STREQ("abc####", acBuffer);
  Pair.CloseServer();
  EXPECT_EQ(0, SYS_SOCKET_Receive(Pair.hClient, acBuffer, 8));
}

TEST(SysSocketReceive, NonBlockingAndTimedOutBothGiveMinus2) {
  const CONNECTION Pair;
  char             c;
  EXPECT_EQ(0, SYS_SOCKET_SetNonBlocking(Pair.hClient));
  EXPECT_EQ(-2, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  EXPECT_EQ(0, SYS_SOCKET_SetBlocking(Pair.hClient));
  EXPECT_EQ(0, SYS_SOCKET_SetTimeouts(Pair.hClient, 7000, 50));
  const int64_t Start = GetMs();
  EXPECT_EQ(-2, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  EXPECT_GE(GetMs() - Start, 40);
}

TEST(SysSocketSend, FullSocketGivesMinus2AndOtherErrorsMinus1) {
  const CONNECTION        Pair;
  const std::vector<char> Data(1 << 20, 'x');
  EXPECT_EQ(0, SYS_SOCKET_SetNonBlocking(Pair.hClient));
  int32_t Result = 0;
  for (int i = 0; i < 100 && Result >= 0; i++) {
    Result = SYS_SOCKET_Send(Pair.hClient, Data.data(), 1 << 20);
  }
  EXPECT_EQ(-2, Result);
  EXPECT_EQ(-1, SYS_SOCKET_Send(-1, "x", 1));
}

TEST(SysSocketWait, FullSocketIsNotWritable) {
  const CONNECTION        Pair;
  const std::vector<char> Data(1 << 20, 'x');
  EXPECT_EQ(0, SYS_SOCKET_SetNonBlocking(Pair.hClient));
  int32_t Result = 1;
  for (int i = 0; i < 100 && Result != 0; i++) {  // the peer's side may still be filling up
    while (SYS_SOCKET_Send(Pair.hClient, Data.data(), 1 << 20) > 0) {
    }
    Result = SYS_SOCKET_WaitWritable(Pair.hClient, 20);
  }
  EXPECT_EQ(0, Result);
}

// Both ends: one made by a create, one accepted.
TEST(SysSocketSend, BrokenConnectionIsAnErrorAndNoSignal) {
  for (const bool IsAccepted : {false, true}) {
    CONNECTION    Pair;
    const int32_t hOpen   = IsAccepted ? Pair.hServer : Pair.hClient;
    int32_t&      hClosed = IsAccepted ? Pair.hClient : Pair.hServer;
    SYS_SOCKET_SetLinger(hClosed, 0);
    close(hClosed);
    hClosed        = -1;
    int32_t Result = 0;
    for (int i = 0; i < 100 && Result >= 0; i++) {
      Result = SYS_SOCKET_Send(hOpen, "x", 1);
    }
    EXPECT_EQ(-1, Result);
    EXPECT_EQ(-1, SYS_SOCKET_Send(hOpen, "x", 1)) << "and again, with EPIPE";
    EXPECT_EQ(EPIPE, errno);
  }
}

// What the stand-in must not make better than it is: without the option there is the signal.
TEST(SysSocketSendDeathTest, SocketWithoutTheOptionRaisesTheSignal) {
  EXPECT_EXIT(
      {
        signal(SIGPIPE, SIG_DFL);
        int aSockets[2];
        socketpair(AF_UNIX, SOCK_STREAM, 0, aSockets);
        close(aSockets[0]);
        SYS_SOCKET_Send(aSockets[1], "x", 1);
        exit(0);
      },
      testing::KilledBySignal(SIGPIPE), "");
}

TEST(SysReceiveExactly, CollectsWhatComesInPieces) {
  const CONNECTION Pair;
  std::thread      Sender([&] {
    for (const char* sPiece : {"ab", "cde", "f"}) {
      EXPECT_EQ((int32_t)strlen(sPiece),
                     SYS_SOCKET_Send(Pair.hServer, sPiece, (uint32_t)strlen(sPiece)));
      usleep(5000);
    }
  });
  char             acBuffer[8] = "#######";
  EXPECT_EQ(6, SYS_SOCKET_ReceiveExactly(Pair.hClient, acBuffer, 6));
  EXPECT_STREQ("abcdef#", acBuffer);
  EXPECT_EQ(0, SYS_SOCKET_ReceiveExactly(Pair.hClient, acBuffer, 0));
  Sender.join();
}

TEST(SysReceiveExactly, PeerThatClosesTooEarlyIsAFailure) {
  CONNECTION Pair;
  char       acBuffer[8];
  EXPECT_EQ(3, SYS_SOCKET_Send(Pair.hServer, "abc", 3));
  Pair.CloseServer();
  EXPECT_EQ(-1, SYS_SOCKET_ReceiveExactly(Pair.hClient, acBuffer, 4));
  EXPECT_EQ(-1, SYS_SOCKET_ReceiveExactly(-1, acBuffer, 4));
}

TEST(SysSocketWait, TellsDataRoomAndTheirAbsence) {
  const CONNECTION Pair;
  EXPECT_EQ(0, SYS_SOCKET_IsDataPending(Pair.hClient));
  const int64_t Start = GetMs();
  EXPECT_EQ(0, SYS_SOCKET_WaitReadable(Pair.hClient, 50));
  EXPECT_GE(GetMs() - Start, 49);
  EXPECT_EQ(0, SYS_SOCKET_WaitReadable(Pair.hClient, 0));
  EXPECT_EQ(1, SYS_SOCKET_WaitWritable(Pair.hClient, 0));
  SYS_SOCKET_Send(Pair.hServer, "x", 1);
  EXPECT_EQ(1, SYS_SOCKET_WaitReadable(Pair.hClient, 10000));
  EXPECT_EQ(1, SYS_SOCKET_IsDataPending(Pair.hClient));
  EXPECT_EQ(0, SYS_SOCKET_IsDataPending(-1));
}

TEST(SysSocketWait, TimeOutIsSplitIntoSecondsAndMicroseconds) {
  const CONNECTION Pair;
  const int64_t    Start = GetMs();
  EXPECT_EQ(0, SYS_SOCKET_WaitReadable(Pair.hClient, 1100));
  const int64_t Elapsed = GetMs() - Start;
  EXPECT_GE(Elapsed, 1099);
  EXPECT_LT(Elapsed, 10000);
}

// select() sets have 1024 bits; a descriptor behind them must not be set.
TEST(SysSocketWait, DescriptorsThatSelectDoesNotKnowAreRefused) {
  const LISTENER         Listener;
  const HIGH_DESCRIPTORS High;
  if (!High.AreThere()) {
    GTEST_SKIP() << "SKIPPED, not 2048 descriptors to be had";
  }
  const int32_t hHigh = SYS_UDP_CreateIPv4();
  EXPECT_EQ(1024, hHigh);
  for (const int32_t hUnknown : {hHigh, -1}) {
    errno = 0;
    EXPECT_EQ(-1, SYS_SOCKET_WaitReadable(hUnknown, 0));
    EXPECT_EQ(EBADF, errno);
    errno = 0;
    EXPECT_EQ(-1, SYS_SOCKET_WaitWritable(hUnknown, 0));
    EXPECT_EQ(EBADF, errno);
  }
  SYS_SOCKET_Close(hHigh);
  const int NumBefore = CountDescriptors();
  errno               = 0;
  EXPECT_EQ(-1, SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 1000, nullptr));
  EXPECT_EQ(EMFILE, errno);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// ---- Options ------------------------------------------------------------------------------------

TEST(SysSocketOptions, LingerRoundsToSecondsButNeverDownToAReset) {
  const int32_t hSocket = SYS_TCP_CreateIPv4();
  const struct {
    uint32_t Milliseconds;
    int      Seconds;
  } Cases[] = {{0, 0},
               {1, 1},
               {499, 1},
               {500, 1},
               {999, 1},
               {1000, 1},
               {1499, 1},
               {1500, 2},
               {2499, 2},
               {2500, 3},
               {4294967295, 4294967}};
  for (const auto& Case : Cases) {
    struct linger Linger = {0, -1};
    socklen_t     Length = sizeof(Linger);
    EXPECT_EQ(0, SYS_SOCKET_SetLinger(hSocket, Case.Milliseconds));
    getsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Linger, &Length);
    EXPECT_EQ(1, Linger.l_onoff);
    EXPECT_EQ(Case.Seconds, Linger.l_linger) << Case.Milliseconds;
  }
  struct linger Linger = {1, -1};
  socklen_t     Length = sizeof(Linger);
  EXPECT_EQ(0, SYS_SOCKET_SetNoLinger(hSocket));
  getsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Linger, &Length);
  EXPECT_EQ(0, Linger.l_onoff);
  SYS_SOCKET_Close(hSocket);
  EXPECT_EQ(0, SYS_SOCKET_SetLinger(-1, 100)) << "0 always";
  EXPECT_EQ(0, SYS_SOCKET_SetNoLinger(-1));
}

TEST(SysSocketOptions, LingerOfZeroResetsTheConnectionOnClose) {
  CONNECTION Pair;
  char       c;
  SYS_SOCKET_SetLinger(Pair.hServer, 0);
  Pair.CloseServer();
  ASSERT_EQ(1, SYS_SOCKET_WaitReadable(Pair.hClient, 10000));
  EXPECT_EQ(-1, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  EXPECT_EQ(ECONNRESET, errno);
}

TEST(SysSocketOptions, SendTimeOutComesFirstReceiveTimeOutSecond) {
  const int32_t  hSocket = SYS_TCP_CreateIPv4();
  struct timeval Time    = {};
  socklen_t      Length  = sizeof(Time);
  EXPECT_EQ(0, SYS_SOCKET_SetTimeouts(hSocket, 1500, 2040));
  getsockopt(hSocket, SOL_SOCKET, SO_SNDTIMEO, &Time, &Length);
  EXPECT_EQ(1, Time.tv_sec);
  EXPECT_EQ(500000, Time.tv_usec);
  getsockopt(hSocket, SOL_SOCKET, SO_RCVTIMEO, &Time, &Length);
  EXPECT_EQ(2, Time.tv_sec);
  EXPECT_EQ(40000, Time.tv_usec);
  EXPECT_EQ(0, SYS_SOCKET_SetTimeouts(hSocket, 0, 3600000));
  getsockopt(hSocket, SOL_SOCKET, SO_RCVTIMEO, &Time, &Length);
  EXPECT_EQ(3600, Time.tv_sec);
  EXPECT_EQ(0, Time.tv_usec);
  int32_t FirstFails;
  int32_t SecondFails;
  {
    const FAULT Fault("HOST_setsockopt", EDOM);
    FirstFails = SYS_SOCKET_SetTimeouts(hSocket, 1, 1);
  }
  {
    const FAULT Fault("HOST_setsockopt", EDOM, 1);
    SecondFails = SYS_SOCKET_SetTimeouts(hSocket, 1, 1);
  }
  EXPECT_EQ(0, FirstFails);
  EXPECT_EQ(-1, SecondFails);
  SYS_SOCKET_Close(hSocket);
}

TEST(SysSocketOptions, SwitchesReachTheSocket) {
  const int32_t hTcp = SYS_TCP_CreateIPv4();
  const int32_t hUdp = SYS_UDP_CreateIPv4();
  EXPECT_EQ(0, GetOption(hUdp, SOL_SOCKET, SO_BROADCAST));
  EXPECT_EQ(0, SYS_SOCKET_AllowBroadcast(hUdp));
  EXPECT_EQ(1, GetOption(hUdp, SOL_SOCKET, SO_BROADCAST));
  EXPECT_EQ(0, GetOption(hTcp, SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(0, SYS_SOCKET_EnableKeepAlive(hTcp));
  EXPECT_EQ(1, GetOption(hTcp, SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(0, SYS_SOCKET_SetReceiveBufferSize(hTcp, 50000));
  EXPECT_EQ(100000, GetOption(hTcp, SOL_SOCKET, SO_RCVBUF)) << "the kernel tells twice of it";
  EXPECT_EQ(0, SYS_SOCKET_SetNonBlocking(hTcp));
  EXPECT_NE(0, fcntl(hTcp, F_GETFL) & O_NONBLOCK);
  EXPECT_EQ(0, SYS_SOCKET_SetBlocking(hTcp));
  EXPECT_EQ(0, fcntl(hTcp, F_GETFL) & O_NONBLOCK);
  SYS_SOCKET_Close(hTcp);
  SYS_SOCKET_Close(hUdp);
  EXPECT_EQ(-1, SYS_SOCKET_AllowBroadcast(-1));
  EXPECT_EQ(-1, SYS_SOCKET_EnableKeepAlive(-1));
  EXPECT_EQ(-1, SYS_SOCKET_SetReceiveBufferSize(-1, 1));
  EXPECT_EQ(-1, SYS_SOCKET_SetNonBlocking(-1));
  EXPECT_EQ(-1, SYS_SOCKET_SetBlocking(-1));
}

// ---- Connecting with a time-out -----------------------------------------------------------------

TEST(SysTcpConnectTimeout, GivesAConnectedBlockingSocketWithTheStreamOptions) {
  const LISTENER Listener;
  GetOptionCalls().clear();
  const int32_t hClient = SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 10000, nullptr);
  ASSERT_GE(hClient, 0);
  const std::vector<OPTION_CALL> Stream = {{IPPROTO_TCP, TCP_NODELAY, 1},
                                           {SOL_SOCKET, NO_SIGNAL_OPT, 1}};
  EXPECT_TRUE(GetOptionCalls() == Stream);
  EXPECT_EQ(0, fcntl(hClient, F_GETFL) & O_NONBLOCK);
  const int32_t hServer = SYS_TCP_AcceptTimeout(Listener.hSocket, 10000);
  char          acBuffer[4];
  EXPECT_EQ(4, SYS_SOCKET_Send(hClient, "ping", 4));
  EXPECT_EQ(4, SYS_SOCKET_ReceiveExactly(hServer, acBuffer, 4));
  SYS_SOCKET_Close(hServer);
  SYS_SOCKET_Close(hClient);
}

TEST(SysTcpConnectTimeout, RefusingPeerIsTriedEveryTenMillisecondsUntilTheTimeOut) {
  const REFUSING_PORT Refusing;
  const int           NumBefore = CountDescriptors();
  const int64_t       Start     = GetMs();
  int32_t             Result;
  uint32_t            NumAttempts;
  uint32_t            NumSleeps;
  {
    const CALL_COUNTER Attempts("HOST_socket");
    const CALL_COUNTER Sleeps("usleep");
    Result      = SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 500, nullptr);
    NumAttempts = Attempts.GetNumCalls();
    NumSleeps   = Sleeps.GetNumCalls();
  }
  const int64_t Elapsed = GetMs() - Start;
  EXPECT_EQ(-2, Result);
  EXPECT_GE(Elapsed, 500);
  EXPECT_LT(Elapsed, 5000);
  EXPECT_GE(NumAttempts, 2u);
  EXPECT_LE(NumAttempts, (uint32_t)Elapsed / 8 + 1) << "no tight loop: 8 ms at least between two";
  EXPECT_LE(NumSleeps, NumAttempts);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

static std::atomic<int> NumAskedForAbort;

TEST(SysTcpConnectTimeout, AbortEndsAPendingConnect) {
  const REFUSING_PORT Refusing;
  const int           NumBefore = CountDescriptors();
  NumAskedForAbort              = 0;
  const int64_t Start           = GetMs();
  EXPECT_EQ(-3, SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000,
                                       []() -> int32_t { return ++NumAskedForAbort == 3; }));
  EXPECT_EQ(3, NumAskedForAbort);
  EXPECT_LT(GetMs() - Start, 5000);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// The clock stands still but for what a test puts on.
static void FakeClock() {
  FakeTicks   = 1152921504606846976;
  IsClockFake = true;
}

static uint32_t JumpUs;  // by how much the clock goes on between an attempt and its refusal

static const uint32_t NO_PAUSE = 0xFFFFFFFF;

// In microseconds. The first wait is over with nothing to see, the second finds the attempt
// refused.
static uint32_t PauseAfterAttemptOf(uint32_t Microseconds) {
  const REFUSING_PORT Refusing;
  JumpUs           = Microseconds;
  NumAskedForAbort = 0;
  FakeClock();
  uint32_t NumPauses;
  {
    const FAULT        FirstWait("select", 0);
    const CALL_COUNTER Pauses("usleep");
    EXPECT_EQ(-3, SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000, []() -> int32_t {
      FakeTicks += JumpUs * 1000ull;
      return ++NumAskedForAbort == 2;
    }));
    NumPauses = Pauses.GetNumCalls();
  }
  IsClockFake = false;
  EXPECT_LE(NumPauses, 1u);
  return NumPauses == 0 ? NO_PAUSE : LastSleepUs;
}

TEST(SysTcpConnectTimeout, PauseMakesARefusalUpToTenMillisecondsInWholeOnes) {
  EXPECT_EQ(9000u, PauseAfterAttemptOf(0));
  EXPECT_EQ(9000u, PauseAfterAttemptOf(1));
  EXPECT_EQ(8000u, PauseAfterAttemptOf(2));
  EXPECT_EQ(1000u, PauseAfterAttemptOf(8001));
  EXPECT_EQ(0u, PauseAfterAttemptOf(8002));
  EXPECT_EQ(0u, PauseAfterAttemptOf(9000));
  EXPECT_EQ(NO_PAUSE, PauseAfterAttemptOf(9001));
  EXPECT_EQ(NO_PAUSE, PauseAfterAttemptOf(10000));
}

TEST(SysTcpConnectTimeout, WaitsTenMillisecondsAtATime) {
  const REFUSING_PORT Refusing;
  LastSelectTime = {};
  EXPECT_EQ(-3,
            SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000, []() -> int32_t { return 1; }));
  EXPECT_EQ(0, LastSelectTime.tv_sec);
  EXPECT_EQ(10000, LastSelectTime.tv_usec);
}

TEST(SysTcpConnectTimeout, TimeOutOfZeroMakesOneAttempt) {
  const REFUSING_PORT Refusing;
  int32_t             Result;
  uint32_t            NumAttempts;
  {
    const CALL_COUNTER Attempts("HOST_socket");
    Result      = SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 0, nullptr);
    NumAttempts = Attempts.GetNumCalls();
  }
  EXPECT_EQ(-2, Result);
  EXPECT_EQ(1u, NumAttempts);

  const LISTENER Listener;
  const int32_t  hClient = SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 0, nullptr);
  EXPECT_GE(hClient, 0);
  SYS_SOCKET_Close(hClient);
}

TEST(SysTcpConnectTimeout, GoesOnWhileNoMoreThanTheTimeOutHasPassed) {
  const REFUSING_PORT Refusing;
  NumAskedForAbort = 0;
  FakeClock();
  const int32_t Result = SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 700, []() -> int32_t {
    FakeTicks += ++NumAskedForAbort == 1 ? 700000000 : 1000000;
    return 0;
  });
  IsClockFake          = false;
  EXPECT_EQ(-2, Result);
  EXPECT_EQ(2, NumAskedForAbort) << "on at 700 ms, over at 701 ms";
}

TEST(SysTcpConnectTimeout, AbortCountsMoreThanATimeOutAtTheSameMoment) {
  const REFUSING_PORT Refusing;
  FakeClock();
  const int32_t Result = SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 700, []() -> int32_t {
    FakeTicks += 5000000000;
    return 1;
  });
  IsClockFake          = false;
  EXPECT_EQ(-3, Result);
}

TEST(SysTcpConnectTimeout, ConnectThatFailsAtOnceIsARefusalLikeAnyOther) {
  const LISTENER Listener;
  const int      NumBefore = CountDescriptors();
  int32_t        hClient;
  uint32_t       NumAttempts;
  {
    const FAULT Fault("connect", ENETUNREACH, 0, 2);
    hClient     = SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 20000, nullptr);
    NumAttempts = Fault.GetNumCalls();
  }
  EXPECT_GE(hClient, 0);
  EXPECT_EQ(3u, NumAttempts);
  SYS_SOCKET_Close(hClient);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// What the system does by itself once in some thousand attempts: the port is picked for this end.
// The address is one that nobody else uses.
// The near end has 127.0.0.1 then.
TEST(SysTcpConnectTimeout, PeerAtAnotherAddressOfThisMachineIsNoneOfItself) {
  const int32_t      hServer = SYS_TCP_CreateIPv4();
  struct sockaddr_in Addr    = {};
  socklen_t          Length  = sizeof(Addr);
  ASSERT_EQ(0, SYS_TCP_ListenIPv4(hServer, 0x7F000009, 0, 1));
  ASSERT_EQ(0, getsockname(hServer, (struct sockaddr*)&Addr, &Length));
  const int32_t hClient = SYS_TCP_ConnectTimeout(0x7F000009, ntohs(Addr.sin_port), 10000, nullptr);
  EXPECT_GE(hClient, 0);
  SYS_SOCKET_Close(hClient);
  SYS_SOCKET_Close(hServer);
}

TEST(SysTcpConnectTimeout, SocketConnectedToItselfIsARefusalAndFreesThePort) {
  uint16_t Port;
  {
    const LISTENER Once;
    Port = Once.Port;
  }
  const int NumBefore = CountDescriptors();
  int32_t   Result;
  uint32_t  NumAttempts;
  {
    const FAULT        Itself("connect, to itself", 0, 0, 2);
    const CALL_COUNTER Attempts("HOST_socket");
    Result      = SYS_TCP_ConnectTimeout(0x7F000009, Port, 200, nullptr);
    NumAttempts = Attempts.GetNumCalls();
  }
  EXPECT_EQ(-2, Result);
  EXPECT_GE(NumAttempts, 2u);
  EXPECT_EQ(NumBefore, CountDescriptors());
  const int32_t      hServer = SYS_TCP_CreateIPv4();
  struct sockaddr_in Addr    = GetLoopbackIPv4();
  Addr.sin_addr.s_addr       = htonl(0x7F000009);
  Addr.sin_port              = htons(Port);
  EXPECT_EQ(0, bind(hServer, (struct sockaddr*)&Addr, sizeof(Addr))) << "without SO_REUSEADDR";
  SYS_SOCKET_Close(hServer);
}

// A listener whose backlog is full drops what else comes in: a peer that says nothing at all.
class SILENT_PEER {
 public:
  SILENT_PEER() : _Listener(0) {
    for (int& hFiller : _ahFillers) {
      hFiller = SYS_TCP_CreateIPv4();
      SYS_SOCKET_SetNonBlocking(hFiller);
      SYS_SOCKET_ConnectIPv4(hFiller, LOOPBACK, _Listener.Port);
    }
    usleep(20000);
  }
  ~SILENT_PEER() {
    for (const int hFiller : _ahFillers) {
      close(hFiller);
    }
  }
  SILENT_PEER(const SILENT_PEER&)            = delete;
  SILENT_PEER& operator=(const SILENT_PEER&) = delete;

  uint16_t GetPort() const { return _Listener.Port; }

 private:
  LISTENER _Listener;
  int      _ahFillers[4];
};

TEST(SysTcpConnectTimeout, SilentPeerTimesOutInOneAttempt) {
  const SILENT_PEER Silent;
  const int         NumBefore = CountDescriptors();
  const int64_t     Start     = GetMs();
  int32_t           Result;
  uint32_t          NumAttempts;
  {
    const CALL_COUNTER Attempts("HOST_socket");
    Result      = SYS_TCP_ConnectTimeout(LOOPBACK, Silent.GetPort(), 150, nullptr);
    NumAttempts = Attempts.GetNumCalls();
  }
  const int64_t Elapsed = GetMs() - Start;
  EXPECT_EQ(-2, Result);
  EXPECT_EQ(1u, NumAttempts);
  EXPECT_GE(Elapsed, 150);
  EXPECT_LT(Elapsed, 5000);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

TEST(SysTcpConnectTimeout, AbortEndsTheWaitForASilentPeer) {
  const SILENT_PEER Silent;
  const int         NumBefore = CountDescriptors();
  const int64_t     Start     = GetMs();
  EXPECT_EQ(-3, SYS_TCP_ConnectTimeout(LOOPBACK, Silent.GetPort(), 60000,
                                       []() -> int32_t { return -1; }));
  EXPECT_LT(GetMs() - Start, 5000);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

TEST(SysTcpConnectTimeout, PeerThatComesUpLaterIsReached) {
  REFUSING_PORT Port;
  std::thread   Server([&] {
    usleep(60000);
    EXPECT_EQ(0, listen(Port.hSocket, 4));
  });
  const int32_t hClient = SYS_TCP_ConnectTimeout(LOOPBACK, Port.Port, 20000, nullptr);
  Server.join();
  EXPECT_GE(hClient, 0);
  SYS_SOCKET_Close(hClient);
}

TEST(SysTcpConnectTimeout, NoSocketIsAFailureAtOnce) {
  int32_t Result;
  {
    const FAULT Fault("HOST_socket", EMFILE);
    Result = SYS_TCP_ConnectTimeout(LOOPBACK, 1, 60000, nullptr);
  }
  EXPECT_EQ(-1, Result);
}

TEST(SysTcpConnectTimeout, WaitThatASignalInterruptsGoesOn) {
  const LISTENER Listener;
  int32_t        hClient;
  uint32_t       NumAttempts;
  {
    const FAULT        Fault("select", EINTR, 0, 3);
    const CALL_COUNTER Attempts("HOST_socket");
    hClient     = SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 10000, nullptr);
    NumAttempts = Attempts.GetNumCalls();
  }
  EXPECT_GE(hClient, 0);
  EXPECT_EQ(1u, NumAttempts);
  SYS_SOCKET_Close(hClient);
}

// A wait that fails does not wait: only a signal's is tried again at once.
TEST(SysTcpConnectTimeout, WaitThatFailsDoesNotSpin) {
  const LISTENER Listener;
  for (const int Error : {EINTR, EBADF}) {
    int32_t  hClient;
    uint32_t NumSleeps;
    {
      const FAULT        Fault("select", Error, 0, 3);
      const CALL_COUNTER Sleeps("usleep");
      LastSleepUs = 0;
      hClient     = SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 10000, nullptr);
      NumSleeps   = Sleeps.GetNumCalls();
    }
    EXPECT_GE(hClient, 0);
    EXPECT_EQ(Error == EINTR ? 0u : 3u, NumSleeps);
    EXPECT_EQ(Error == EINTR ? 0u : 10000u, LastSleepUs);
    SYS_SOCKET_Close(hClient);
  }
}

// Runs Body while a peer accepts each connection and closes it at once, by a reset.
template <typename BODY>
static void WithClosingPeer(BODY Body) {
  const LISTENER    Listener(128);
  std::atomic<bool> IsDone{false};
  std::thread       Peer([&] {
    while (!IsDone) {
      const int32_t hServer = SYS_TCP_AcceptTimeout(Listener.hSocket, 10);
      if (hServer >= 0) {
        SYS_SOCKET_SetLinger(hServer, 0);
        SYS_SOCKET_Close(hServer);
      }
    }
  });
  Body(Listener.Port);
  IsDone = true;
  Peer.join();
}

TEST(SysTcpConnectTimeout, PeerThatClosesAtOnceGivesASocketOrATimeOut) {
  WithClosingPeer([](uint16_t Port) {
    int NumConnected = 0;
    for (int i = 0; i < 50; i++) {
      const int32_t Result = SYS_TCP_ConnectTimeout(LOOPBACK, Port, 2000, nullptr);
      ASSERT_TRUE(Result >= 0 || Result == -2) << Result;
      if (Result >= 0) {
        NumConnected++;
        SYS_SOCKET_Close(Result);
      }
    }
    EXPECT_GT(NumConnected, 0);
  });
}

// The pauses between attempts are left out here: ten thousand would take 90 seconds.
TEST(SysTcpConnectTimeout, TenThousandAttemptsLeaveNoDescriptor) {
  const REFUSING_PORT Refusing;
  const int           NumBefore   = CountDescriptors();
  uint32_t            NumAttempts = 0;
  while (NumAttempts < 9000) {
    const FAULT        Pause("usleep", 0, 0, 1000000);
    const CALL_COUNTER Attempts("HOST_socket");
    ASSERT_EQ(-2, SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 100, nullptr));
    NumAttempts += Attempts.GetNumCalls();
  }
  EXPECT_EQ(NumBefore, CountDescriptors());
  WithClosingPeer([&](uint16_t Port) {
    const int NumWithPeer = CountDescriptors();
    int       NumLeft     = 1000;
    while (NumLeft > 0) {
      const FAULT        Pause("usleep", 0, 0, 1000000);
      const CALL_COUNTER Attempts("HOST_socket");
      const int32_t      Result = SYS_TCP_ConnectTimeout(LOOPBACK, Port, 2000, nullptr);
      if (Result >= 0) {
        SYS_SOCKET_SetLinger(Result, 0);
        SYS_SOCKET_Close(Result);
      }
      NumLeft -= (int)Attempts.GetNumCalls();
    }
    // The peer may hold one connection at this moment.
    EXPECT_LE(CountDescriptors(), NumWithPeer + 1);
  });
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// A network of the test's own, in which packets to a neighbour vanish. Exit status 77: not allowed.
static int ConnectIntoTheVoid() {
  if (!EnterOwnNamespace(CLONE_NEWNET)) {
    return 77;
  }
  if (system("ip link set lo up && ip route add 198.51.100.0/24 dev lo") != 0) {
    return 77;
  }
  const int     NumBefore = CountDescriptors();
  const int64_t Start     = GetMs();
  const int32_t Result    = SYS_TCP_ConnectTimeout(0xC6336401, 5000, 150, nullptr);
  const int64_t Elapsed   = GetMs() - Start;
  const int32_t Aborted =
      SYS_TCP_ConnectTimeout(0xC6336401, 5000, 60000, []() -> int32_t { return 1; });
  const bool IsGood = Result == -2 && Aborted == -3 && Elapsed >= 150 && Elapsed < 5000 &&
                      CountDescriptors() == NumBefore;
  return IsGood ? 0 : 1;
}

TEST(SysTcpConnectTimeout, PeerBehindANetworkThatDropsEveryPacketTimesOut) {
  const pid_t Child = fork();
  ASSERT_GE(Child, 0);
  if (Child == 0) {
    _exit(ConnectIntoTheVoid());
  }
  int Status = 0;
  ASSERT_EQ(Child, waitpid(Child, &Status, 0));
  ASSERT_TRUE(WIFEXITED(Status));
  if (WEXITSTATUS(Status) == 77) {
    GTEST_SKIP() << "SKIPPED, no network namespace to be had here";
  }
  EXPECT_EQ(0, WEXITSTATUS(Status));
}

// ---- Names --------------------------------------------------------------------------------------

TEST(SysResolve, LocalhostIsTheLoopbackAddress) {
  if (!IsLocalhostKnown()) {
    GTEST_SKIP() << "SKIPPED, this machine does not know the name \"localhost\"";
  }
  uint32_t Addr = 0;
  EXPECT_EQ(0, SYS_NET_ResolveIPv4("localhost", &Addr));
  EXPECT_EQ(0x7F000001u, Addr);
}

TEST(SysResolve, TakesAddressesInTextForm) {
  uint32_t Addr = 0;
  EXPECT_EQ(0, SYS_NET_ResolveIPv4("192.0.2.7", &Addr));
  EXPECT_EQ(0xC0000207u, Addr);
  uint8_t aAddr[18];
  memset(aAddr, 0xAA, sizeof(aAddr));
  EXPECT_EQ(0, SYS_NET_ResolveIPv6("::1", 0, aAddr));
  EXPECT_EQ(0, memcmp(aLoopback6, aAddr, 16));
  EXPECT_EQ(0xAA, aAddr[16]);
}

TEST(SysResolve, AsksForStreamSocketsOfTheOneFamily) {
  const struct {
    int32_t (*pfResolve)();
    int Family;
    int Flags;
  } Cases[] = {
      {[] {
         uint32_t Addr;
         return SYS_NET_ResolveIPv4("127.0.0.1", &Addr);
       },
       AF_INET, 0},
      {[] {
         uint8_t aAddr[16];
         return SYS_NET_ResolveIPv6("::1", 0, aAddr);
       },
       AF_INET6, 0},
      {[] {
         uint8_t aAddr[16];
         return SYS_NET_ResolveIPv6("::1", 1, aAddr);
       },
       AF_INET6, AI_V4MAPPED},
  };
  for (const auto& Case : Cases) {
    LastHints = {};
    EXPECT_EQ(0, Case.pfResolve());
    EXPECT_EQ(Case.Family, LastHints.ai_family);
    EXPECT_EQ(SOCK_STREAM, LastHints.ai_socktype);
    EXPECT_EQ(Case.Flags, LastHints.ai_flags);
  }
}

TEST(SysResolve, IPv4ResultsAreMappedOnlyWhenAllowed) {
  uint8_t aAddr[16];
  memset(aAddr, 0xAA, sizeof(aAddr));
  EXPECT_EQ(-1, SYS_NET_ResolveIPv6("127.0.0.1", 0, aAddr));
  EXPECT_EQ(0xAA, aAddr[0]) << "as before";
  EXPECT_EQ(0, SYS_NET_ResolveIPv6("127.0.0.1", 1, aAddr));
  EXPECT_EQ(0, memcmp(aMapped, aAddr, 16));
}

TEST(SysResolve, FirstOfSeveralAddressesCounts) {
  uint32_t Addr = 0;
  EXPECT_EQ(0, SYS_NET_ResolveIPv4("two-addresses.test", &Addr));
  EXPECT_EQ(0xC0000201u, Addr);
}

TEST(SysResolve, WhatHasNoAddressIsAFailureAndChangesNothing) {
  uint32_t Addr = 5;
  EXPECT_EQ(-1, SYS_NET_ResolveIPv4("::1", &Addr));
  EXPECT_EQ(-1, SYS_NET_ResolveIPv4("", &Addr));
  int32_t Result;
  {
    const FAULT Fault("getaddrinfo", EAI_AGAIN);
    Result = SYS_NET_ResolveIPv4("127.0.0.1", &Addr);
  }
  EXPECT_EQ(-1, Result);
  EXPECT_EQ(5u, Addr);
}

TEST(SysGetName, TellsHostAndServiceAsTheSystemKnowsThem) {
  char                     acExpected[NI_MAXHOST] = "";
  char                     acHost[NI_MAXHOST]     = "";
  char                     acService[8]           = "";
  const struct sockaddr_in Addr                   = GetLoopbackIPv4();
  const int IsUnknown = GetSystemsName(&Addr, sizeof(Addr), acExpected, sizeof(acExpected));
  EXPECT_EQ(IsUnknown, SYS_NET_GetNameIPv4(LOOPBACK, 54321, acHost, sizeof(acHost), acService,
                                           sizeof(acService)));
  EXPECT_STREQ(acExpected, acHost);
  EXPECT_EQ(0, SYS_NET_GetNameIPv4(LOOPBACK, 54321, nullptr, 0, acService, sizeof(acService)));
  EXPECT_STREQ("54321", acService);
}

TEST(SysGetName, IPv6TellsHostAndServiceAsTheSystemKnowsThem) {
  char                      acExpected[NI_MAXHOST] = "";
  char                      acHost[NI_MAXHOST]     = "";
  char                      acService[8]           = "";
  const struct sockaddr_in6 Addr                   = GetLoopbackIPv6();
  const int IsUnknown = GetSystemsName(&Addr, sizeof(Addr), acExpected, sizeof(acExpected));
  EXPECT_EQ(IsUnknown, SYS_NET_GetNameIPv6(aLoopback6, 54321, acHost, sizeof(acHost), acService,
                                           sizeof(acService)));
  EXPECT_STREQ(acExpected, acHost);
  EXPECT_EQ(0, SYS_NET_GetNameIPv6(aLoopback6, 54321, nullptr, 0, acService, sizeof(acService)));
  EXPECT_STREQ("54321", acService);
}

TEST(SysGetName, NameThatDoesNotFitIsAFailure) {
  char acHost[5] = "####";
  char acService[8];
  EXPECT_EQ(-1, SYS_NET_GetNameIPv4(LOOPBACK, 54321, acHost, 4, acService, sizeof(acService)));
  EXPECT_EQ(0, acHost[4]);
  EXPECT_EQ(-1, SYS_NET_GetNameIPv6(aLoopback6, 54321, acHost, 2, acService, sizeof(acService)));
}
