// SPDX-License-Identifier: MIT

// Runs the example programs as a user does.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "tests/sys/support/loopback.h"
#include "tests/sys/support/pty.h"
#include "tests/sys/support/refusing_port.h"

// A program running with its standard output and error in a pipe.
class PROGRAM {
 public:
  explicit PROGRAM(std::vector<std::string> Args) {
    int aPipe[2];
    EXPECT_EQ(0, pipe(aPipe));
    m_Pid = fork();
    if (m_Pid == 0) {
      dup2(aPipe[1], 1);
      dup2(aPipe[1], 2);
      close(aPipe[0]);
      close(aPipe[1]);
      std::vector<char*> Pointers;
      for (std::string& sArg : Args) {
        Pointers.push_back(sArg.data());
      }
      Pointers.push_back(nullptr);
      execv(Pointers[0], Pointers.data());
      _exit(127);
    }
    close(aPipe[1]);
    m_pOutput = fdopen(aPipe[0], "r");
  }
  ~PROGRAM() {
    fclose(m_pOutput);
    if (m_Pid > 0) {
      kill(m_Pid, SIGKILL);
      waitpid(m_Pid, nullptr, 0);
    }
  }
  PROGRAM(const PROGRAM&)            = delete;
  PROGRAM& operator=(const PROGRAM&) = delete;

  // Returns the next line that it prints, or the rest when it has ended.
  std::string ReadLine() {
    char acLine[256] = "";
    return fgets(acLine, sizeof(acLine), m_pOutput) != nullptr ? acLine : "";
  }
  // Before that the signal would end the program silently.
  void WaitUntilItCatches(int Signal) const {
    const std::string sPath = "/proc/" + std::to_string(m_Pid) + "/status";
    const auto        Start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - Start < std::chrono::seconds(20)) {
      std::ifstream Status(sPath);
      for (std::string sLine; std::getline(Status, sLine);) {
        if (sLine.rfind("SigCgt:", 0) == 0 &&
            (std::stoull(sLine.substr(7), nullptr, 16) >> (Signal - 1) & 1) != 0) {
          return;
        }
      }
      usleep(1000);
    }
    ADD_FAILURE() << "the program does not catch signal " << Signal;
  }
  void Interrupt() const { kill(m_Pid, SIGINT); }
  int  WaitForExit() {
     int Status = -1;
     waitpid(m_Pid, &Status, 0);
     m_Pid = -1;
     return WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
  }

 private:
  pid_t m_Pid;
  FILE* m_pOutput;
};

static std::string PortFrom(const std::string& sLine) {
  const std::string sPrefix = "listening on port ";
  EXPECT_EQ(sPrefix, sLine.substr(0, sPrefix.size()));
  return sLine.substr(sPrefix.size(), sLine.size() - sPrefix.size() - 1);
}

TEST(ExampleTcpEcho, ClientsGetTheirTextBack) {
  PROGRAM           Server({TCP_ECHO_SERVER, "0", "2"});
  const std::string sPort = PortFrom(Server.ReadLine());
  for (const char* sText : {"hello", "good bye"}) {
    PROGRAM Client({TCP_ECHO_CLIENT, "127.0.0.1", sPort, "10000", sText});
    ASSERT_EQ(std::string(sText) + "\n", Client.ReadLine()) << "the server would wait for ever";
    EXPECT_EQ(0, Client.WaitForExit());
  }
  EXPECT_EQ(0, Server.WaitForExit());
}

// A client that resets its connection before its text can be sent back.
static void SendAndGoAway(uint16_t Port) {
  const int          hSocket = socket(AF_INET, SOCK_STREAM, 0);
  struct sockaddr_in Addr    = GetLoopbackIPv4();
  Addr.sin_port              = htons(Port);
  ASSERT_EQ(0, connect(hSocket, (struct sockaddr*)&Addr, sizeof(Addr)));
  ASSERT_EQ(4, send(hSocket, "gone", 4, 0));
  const struct linger Reset = {1, 0};
  setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Reset, sizeof(Reset));
  close(hSocket);
}

TEST(ExampleTcpEcho, ServerOutlivesClientsThatGoAway) {
  PROGRAM           Server({TCP_ECHO_SERVER});
  const std::string sPort = PortFrom(Server.ReadLine());
  for (int i = 0; i < 8; i++) {  // the server's backlog
    SendAndGoAway((uint16_t)std::stoi(sPort));
  }
  PROGRAM Client({TCP_ECHO_CLIENT, "127.0.0.1", sPort, "10000", "still there?"});
  EXPECT_EQ("still there?\n", Client.ReadLine());
  EXPECT_EQ(0, Client.WaitForExit());
}

TEST(ExampleTcpEcho, ClientGivesUpOnAServerThatIsNotThere) {
  const REFUSING_PORT Refusing;
  PROGRAM Client({TCP_ECHO_CLIENT, "127.0.0.1", std::to_string(Refusing.Port), "50", "anyone?"});
  EXPECT_EQ("tcp_echo_client: timed out\n", Client.ReadLine());
  EXPECT_EQ(1, Client.WaitForExit());
}

TEST(ExampleTcpEcho, InterruptEndsTheWaitForAServer) {
  const REFUSING_PORT Refusing;
  PROGRAM Client({TCP_ECHO_CLIENT, "127.0.0.1", std::to_string(Refusing.Port), "60000", "anyone?"});
  Client.WaitUntilItCatches(SIGINT);
  Client.Interrupt();
  EXPECT_EQ("tcp_echo_client: interrupted\n", Client.ReadLine());
  EXPECT_EQ(1, Client.WaitForExit());
}

TEST(ExampleSerialEcho, SendsBackWhatComesIn) {
  PTY Pty;
  PTY_Open(&Pty);
  ASSERT_GE(Pty.hKeep, 0) << "no pseudo-terminal available";
  PROGRAM Echo({SERIAL_ECHO, Pty.acName, "9600"});
  EXPECT_EQ(std::string("echoing on ") + Pty.acName + "\n", Echo.ReadLine());
  ASSERT_EQ(7, write(Pty.hMaster, "a\r\n\x03ok\x04", 7));
  char    acReply[8] = "";
  ssize_t NumRead    = 0;
  while (NumRead < 6) {
    struct pollfd Poll = {Pty.hMaster, POLLIN, 0};
    ASSERT_EQ(1, poll(&Poll, 1, 10000));
    const ssize_t Result = read(Pty.hMaster, acReply + NumRead, sizeof(acReply) - (size_t)NumRead);
    ASSERT_GT(Result, 0);
    NumRead += Result;
  }
  EXPECT_EQ(6, NumRead);
  EXPECT_EQ(0, memcmp("a\r\n\x03ok", acReply, 6));
  EXPECT_EQ(0, Echo.WaitForExit());
  PTY_Close(&Pty);
}

TEST(ExampleSerialEcho, EndsWhenTheDeviceIsGone) {
  PTY Pty;
  PTY_Open(&Pty);
  ASSERT_GE(Pty.hKeep, 0) << "no pseudo-terminal available";
  fcntl(Pty.hMaster, F_SETFD, FD_CLOEXEC);  // the program must not inherit the other end
  PROGRAM Echo({SERIAL_ECHO, Pty.acName, "9600"});
  EXPECT_EQ(std::string("echoing on ") + Pty.acName + "\n", Echo.ReadLine());
  PTY_Close(&Pty);
  EXPECT_EQ(1, Echo.WaitForExit());
}

TEST(ExampleSerialEcho, TakesTheFirstUsbPortWhenNoneIsNamed) {
  setenv("HOST_CALLOUT_DEVICES", "/dev/cu.Bluetooth:/dev/cu.usbNoSuchThing", 1);
  PROGRAM Missing({SERIAL_ECHO});
  EXPECT_EQ("serial_echo: cannot open cu.usbNoSuchThing\n", Missing.ReadLine());
  EXPECT_EQ("Modem at path: /dev/cu.usbNoSuchThing\n", Missing.ReadLine());
  EXPECT_EQ(1, Missing.WaitForExit());
  setenv("HOST_CALLOUT_DEVICES", "", 1);
  PROGRAM None({SERIAL_ECHO});
  EXPECT_EQ("serial_echo: no USB serial port found\n", None.ReadLine());
  EXPECT_EQ(1, None.WaitForExit());
  unsetenv("HOST_CALLOUT_DEVICES");
}
