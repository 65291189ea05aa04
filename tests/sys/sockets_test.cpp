// SPDX-License-Identifier: MIT

// Making sockets, the server side, IPv6, and names.

#include <errno.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "tests/sys/support/closed_stdin.h"
#include "tests/sys/support/connections.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/loopback.h"
#include "tests/sys/support/measure.h"

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
    EXPECT_EQ(SYS_TCP_ERR_ABORTED,
              SYS_TCP_ConnectTimeout(LOOPBACK, Listener.Port, 10000, []() -> int32_t {
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
    EXPECT_EQ(SYS_SOCKET_ERR_OTHER, SYS_SOCKET_Send(Pair.hClient, "x", 1));
    EXPECT_EQ(0, SYS_SOCKET_Receive(Pair.hServer, &c, 1));
    EXPECT_EQ(1, SYS_SOCKET_Send(Pair.hServer, "y", 1));
    EXPECT_EQ(1, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  }
  {
    const CONNECTION Pair;
    SYS_SOCKET_Shutdown(Pair.hClient, 2);
    EXPECT_EQ(SYS_SOCKET_ERR_OTHER, SYS_SOCKET_Send(Pair.hClient, "x", 1));
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

TEST(SysTcpAccept, ReportsATimeOutAndAnErrorDifferently) {
  const LISTENER Listener;
  const int64_t  Start = GetMs();
  EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, SYS_TCP_AcceptTimeout(Listener.hSocket, 50));
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

TEST(SysTcpAccept, WaitsForItsTimeOutAndNoLonger) {
  const LISTENER Listener;
  const FAULT    TimeIsUp("select", 0, 0, 3);
  for (const uint32_t Timeout : {0u, 50u, 12345u}) {
    LastSelectTime = {-1, -1};
    EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, SYS_TCP_AcceptTimeout(Listener.hSocket, Timeout));
    EXPECT_EQ(Timeout, (uint32_t)(LastSelectTime.tv_sec * 1000 + LastSelectTime.tv_usec / 1000));
  }
}

// ---- IPv6 and dual stack ------------------------------------------------------------------------

TEST(SysTcpIPv6, ConnectsAndReportsThePeerOnBothSides) {
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

TEST(SysGetName, ReportsHostAndServiceAsTheSystemKnowsThem) {
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

TEST(SysGetName, IPv6ReportsHostAndServiceAsTheSystemKnowsThem) {
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
