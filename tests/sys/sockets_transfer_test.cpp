// SPDX-License-Identifier: MIT

// Sending, receiving, waiting, and the options of a socket.

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "tests/sys/support/connections.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/high_descriptors.h"
#include "tests/sys/support/measure.h"

// ---- Transfer -----------------------------------------------------------------------------------

TEST(SysSocketReceive, ReportsEachErrorByItsOwnResult) {
  const CONNECTION Pair;
  const struct {
    int     Error;
    int32_t Result;
  } Cases[] = {{EAGAIN, SYS_SOCKET_ERR_WOULD_BLOCK},
               {ETIMEDOUT, SYS_SOCKET_ERR_TIMED_OUT},
               {ENETRESET, SYS_SOCKET_ERR_NET_RESET},
               {EINTR, SYS_SOCKET_ERR_INTERRUPTED},
               {ECONNRESET, SYS_SOCKET_ERR_OTHER}};
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
  EXPECT_EQ(SYS_SOCKET_ERR_WOULD_BLOCK, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
  EXPECT_EQ(0, SYS_SOCKET_SetBlocking(Pair.hClient));
  EXPECT_EQ(0, SYS_SOCKET_SetTimeouts(Pair.hClient, 7000, 50));
  const int64_t Start = GetMs();
  EXPECT_EQ(SYS_SOCKET_ERR_WOULD_BLOCK, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
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
  EXPECT_EQ(SYS_SOCKET_ERR_WOULD_BLOCK, Result);
  EXPECT_EQ(SYS_SOCKET_ERR_OTHER, SYS_SOCKET_Send(-1, "x", 1));
}

TEST(SysSocketWait, FullSocketIsNotWritable) {
  const CONNECTION        Pair;
  const std::vector<char> Data(1 << 20, 'x');
  EXPECT_EQ(0, SYS_SOCKET_SetNonBlocking(Pair.hClient));
  int32_t Result = 1;
  for (int i = 0; i < 100 && Result != 0; i++) {  // the peer's buffer may not be full yet
    while (SYS_SOCKET_Send(Pair.hClient, Data.data(), 1 << 20) > 0) {
    }
    Result = SYS_SOCKET_WaitWritable(Pair.hClient, 20);
  }
  EXPECT_EQ(0, Result);
}

// For both ends: one was created, the other accepted.
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
    EXPECT_EQ(SYS_SOCKET_ERR_OTHER, Result);
    EXPECT_EQ(SYS_SOCKET_ERR_OTHER, SYS_SOCKET_Send(hOpen, "x", 1)) << "and again, with EPIPE";
    EXPECT_EQ(EPIPE, errno);
  }
}

// Without the option the signal is raised, also with the stand-in.
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

TEST(SysSocketWait, ReportsDataRoomAndTheirAbsence) {
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
  const struct {
    uint32_t       Timeout;
    struct timeval Time;
  } Cases[] = {{0, {0, 0}}, {999, {0, 999000}}, {1000, {1, 0}}, {0xFFFFFFFF, {4294967, 295000}}};
  for (const auto& Case : Cases) {
    for (const bool IsForReading : {true, false}) {
      const FAULT TimeIsUp("select", 0);
      LastSelectTime = {-1, -1};
      EXPECT_EQ(0, IsForReading ? SYS_SOCKET_WaitReadable(Pair.hClient, Case.Timeout)
                                : SYS_SOCKET_WaitWritable(Pair.hClient, Case.Timeout));
      EXPECT_EQ(Case.Time.tv_sec, LastSelectTime.tv_sec) << Case.Timeout;
      EXPECT_EQ(Case.Time.tv_usec, LastSelectTime.tv_usec) << Case.Timeout;
    }
  }
}

// A set of select() has 1024 bits; no bit may be set beyond them.
TEST(SysSocketWait, DescriptorsThatSelectDoesNotKnowAreRefused) {
  const LISTENER         Listener;
  const HIGH_DESCRIPTORS High;
  if (!High.AreThere()) {
    GTEST_SKIP() << "SKIPPED, 2048 descriptors not available";
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
    getsockopt(hSocket, SOL_SOCKET, SO_LINGER_SEC, &Linger, &Length);
    EXPECT_EQ(1, Linger.l_onoff);
    EXPECT_EQ(Case.Seconds, Linger.l_linger) << Case.Milliseconds;
  }
  struct linger Linger = {1, -1};
  socklen_t     Length = sizeof(Linger);
  EXPECT_EQ(0, SYS_SOCKET_SetNoLinger(hSocket));
  getsockopt(hSocket, SOL_SOCKET, SO_LINGER_SEC, &Linger, &Length);
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
  EXPECT_EQ(SYS_SOCKET_ERR_OTHER, SYS_SOCKET_Receive(Pair.hClient, &c, 1));
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
  EXPECT_EQ(100000, GetOption(hTcp, SOL_SOCKET, SO_RCVBUF)) << "the kernel reports twice the size";
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
