// SPDX-License-Identifier: MIT

// Connecting with a time-out.

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/own_namespace.h"
#include "tests/sys/support/connections.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/loopback.h"
#include "tests/sys/support/measure.h"
#include "tests/sys/support/refusing_port.h"

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
  EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, Result);
  EXPECT_GE(Elapsed, 500);
  EXPECT_LT(Elapsed, 5000);
  EXPECT_GE(NumAttempts, 1u);
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
  EXPECT_EQ(SYS_TCP_ERR_ABORTED,
            SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000,
                                   []() -> int32_t { return ++NumAskedForAbort == 3; }));
  EXPECT_EQ(3, NumAskedForAbort);
  EXPECT_LT(GetMs() - Start, 5000);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// The clock stands still until a test moves it.
static void FakeClock() {
  FakeTicks   = 1152921504606846976;
  IsClockFake = true;
}

static uint32_t JumpUs;  // how far the clock moves between an attempt and its refusal

static const uint32_t NO_PAUSE = 0xFFFFFFFF;

// Returns the pause in microseconds. The first wait reports nothing, the second one a refusal.
static uint32_t PauseAfterAttemptOf(uint32_t Microseconds) {
  const REFUSING_PORT Refusing;
  JumpUs           = Microseconds;
  NumAskedForAbort = 0;
  FakeClock();
  uint32_t NumPauses;
  {
    const FAULT        Pending("connect", EINPROGRESS);
    const FAULT        FirstWait("select", 0);
    const CALL_COUNTER Pauses("usleep");
    EXPECT_EQ(SYS_TCP_ERR_ABORTED,
              SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000, []() -> int32_t {
                FakeTicks += JumpUs * 1000ull;
                return ++NumAskedForAbort == 2;
              }));
    NumPauses = Pauses.GetNumCalls();
  }
  IsClockFake = false;
  EXPECT_LE(NumPauses, 1u);
  return NumPauses == 0 ? NO_PAUSE : LastSleepUs;
}

// Each attempt is refused at once and takes 10 ms of the fake clock.
TEST(SysTcpConnectTimeout, RefusedAttemptsGoOnUntilTheTimeOutIsPast) {
  const FAULT Refused("connect", ECONNREFUSED, 0, 1000);
  const FAULT Pause("usleep", 0, 0, 1000);
  FakeClock();
  const int32_t Result = SYS_TCP_ConnectTimeout(LOOPBACK, 5000, 500, []() -> int32_t {
    FakeTicks += 10000000;
    return 0;
  });
  IsClockFake          = false;
  EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, Result);
  EXPECT_EQ(51u, Refused.GetNumCalls());
  EXPECT_EQ(51u, Pause.GetNumCalls());
  EXPECT_EQ(9000u, LastSleepUs);
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
  const FAULT         Pending("connect", EINPROGRESS);
  LastSelectTime = {};
  EXPECT_EQ(SYS_TCP_ERR_ABORTED,
            SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000, []() -> int32_t { return 1; }));
  EXPECT_EQ(0, LastSelectTime.tv_sec);
  EXPECT_EQ(10000, LastSelectTime.tv_usec);
}

// In progress, interrupted, or connected at once: one attempt, and each wait is for its end.
TEST(SysTcpConnectTimeout, ConnectThatHasNotFailedIsWaitedFor) {
  const REFUSING_PORT Refusing;
  for (const int Error : {EINPROGRESS, EINTR, 0}) {
    NumAskedForAbort = 0;
    const FAULT        Started("connect", Error);
    const FAULT        Waits("select", 0, 0, 3);
    const CALL_COUNTER Attempts("HOST_socket");
    const CALL_COUNTER Pauses("usleep");
    EXPECT_EQ(SYS_TCP_ERR_ABORTED,
              SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000,
                                     []() -> int32_t { return ++NumAskedForAbort == 3; }));
    EXPECT_EQ(3u, Waits.GetNumCalls()) << Error;
    EXPECT_EQ(1u, Attempts.GetNumCalls()) << Error;
    EXPECT_EQ(0u, Pauses.GetNumCalls()) << Error;
  }
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
  EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, Result);
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
  EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, Result);
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
  EXPECT_EQ(SYS_TCP_ERR_ABORTED, Result);
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

// After EINTR the connection is still being made, as after EINPROGRESS. Only a wait shows its end.
TEST(SysTcpConnectTimeout, ConnectThatIsPendingOrInterruptedIsWaitedFor) {
  for (const int Error : {EINPROGRESS, EINTR}) {
    const REFUSING_PORT Refusing;
    uint32_t            NumWaits;
    {
      const FAULT        Fault("connect", Error);
      const CALL_COUNTER Waits("select");
      EXPECT_EQ(SYS_TCP_ERR_ABORTED, SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 60000,
                                                            []() -> int32_t { return 1; }));
      NumWaits = Waits.GetNumCalls();
    }
    EXPECT_EQ(1u, NumWaits) << Error;
  }
}

// The near end has the address 127.0.0.1.
TEST(SysTcpConnectTimeout, PeerAtAnotherAddressOfThisMachineIsNotTheSocketItself) {
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

// The system chooses the peer's own port for the near end in one of some thousand attempts; the
// test makes it do so. The address is one that nothing else uses.
static const CALL_COUNTER* pAttempts;

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
    pAttempts   = &Attempts;
    Result      = SYS_TCP_ConnectTimeout(0x7F000009, Port, 60000,
                                         []() -> int32_t { return pAttempts->GetNumCalls() == 3; });
    NumAttempts = Attempts.GetNumCalls();
  }
  EXPECT_EQ(SYS_TCP_ERR_ABORTED, Result);
  EXPECT_EQ(3u, NumAttempts);
  EXPECT_EQ(NumBefore, CountDescriptors());
  const int32_t      hServer = SYS_TCP_CreateIPv4();
  struct sockaddr_in Addr    = GetLoopbackIPv4();
  Addr.sin_addr.s_addr       = htonl(0x7F000009);
  Addr.sin_port              = htons(Port);
  EXPECT_EQ(0, bind(hServer, (struct sockaddr*)&Addr, sizeof(Addr))) << "without SO_REUSEADDR";
  SYS_SOCKET_Close(hServer);
}

// A listener whose backlog is full drops further connections: a peer that does not answer.
class SILENT_PEER {
 public:
  SILENT_PEER() : m_Listener(0) {
    for (int& hFiller : m_ahFillers) {
      hFiller = SYS_TCP_CreateIPv4();
      SYS_SOCKET_SetNonBlocking(hFiller);
      SYS_SOCKET_ConnectIPv4(hFiller, LOOPBACK, m_Listener.Port);
    }
    usleep(20000);
  }
  ~SILENT_PEER() {
    for (const int hFiller : m_ahFillers) {
      close(hFiller);
    }
  }
  SILENT_PEER(const SILENT_PEER&)            = delete;
  SILENT_PEER& operator=(const SILENT_PEER&) = delete;

  uint16_t GetPort() const { return m_Listener.Port; }

 private:
  LISTENER m_Listener;
  int      m_ahFillers[4];
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
  EXPECT_EQ(SYS_TCP_ERR_TIMEOUT, Result);
  EXPECT_EQ(1u, NumAttempts);
  EXPECT_GE(Elapsed, 150);
  EXPECT_LT(Elapsed, 5000);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

TEST(SysTcpConnectTimeout, AbortEndsTheWaitForASilentPeer) {
  const SILENT_PEER Silent;
  const int         NumBefore = CountDescriptors();
  const int64_t     Start     = GetMs();
  EXPECT_EQ(SYS_TCP_ERR_ABORTED, SYS_TCP_ConnectTimeout(LOOPBACK, Silent.GetPort(), 60000,
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

// A wait that fails returns at once. Only after a signal is it repeated without a pause.
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

// Runs Body while a peer accepts each connection and resets it at once.
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
      ASSERT_TRUE(Result >= 0 || Result == SYS_TCP_ERR_TIMEOUT) << Result;
      if (Result >= 0) {
        NumConnected++;
        SYS_SOCKET_Close(Result);
      }
    }
    EXPECT_GT(NumConnected, 0);
  });
}

// Without the pauses between attempts: ten thousand of them would take 90 seconds.
TEST(SysTcpConnectTimeout, TenThousandAttemptsLeaveNoDescriptor) {
  const REFUSING_PORT Refusing;
  const int           NumBefore   = CountDescriptors();
  uint32_t            NumAttempts = 0;
  while (NumAttempts < 9000) {
    const FAULT        Pause("usleep", 0, 0, 1000000);
    const CALL_COUNTER Attempts("HOST_socket");
    ASSERT_EQ(SYS_TCP_ERR_TIMEOUT, SYS_TCP_ConnectTimeout(LOOPBACK, Refusing.Port, 100, nullptr));
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

// The test's own network, in which packets to a neighbour are lost. Exit status 77: not allowed.
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
  const bool IsGood = Result == SYS_TCP_ERR_TIMEOUT && Aborted == SYS_TCP_ERR_ABORTED &&
                      Elapsed >= 150 && Elapsed < 5000 && CountDescriptors() == NumBefore;
  return IsGood ? 0 : 1;
}

TEST(SysTcpConnectTimeout, PeerInANetworkThatDropsEveryPacketTimesOut) {
  const pid_t Child = fork();
  ASSERT_GE(Child, 0);
  if (Child == 0) {
    _exit(ConnectIntoTheVoid());
  }
  int Status = 0;
  ASSERT_EQ(Child, waitpid(Child, &Status, 0));
  ASSERT_TRUE(WIFEXITED(Status));
  if (WEXITSTATUS(Status) == 77) {
    GTEST_SKIP() << "SKIPPED, no network namespace available";
  }
  EXPECT_EQ(0, WEXITSTATUS(Status));
}
