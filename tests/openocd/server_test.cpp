// SPDX-License-Identifier: MIT

#include "openocd/server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "tests/openocd/scripted.h"

namespace {

// In the form in which the scripted program takes requests.
const char sLast[] = "list q0 [catch {the last one} e] $e";

// The same as a request whose answer nobody waits for.
const char sUnasked[] = "list q9 [catch {last} e] $e\x1A";

class OpenocdServer : public Scripted {
 protected:
  ~OpenocdServer() override {
    SERVER_End(&Server_, 1000);
    ExpectNothingLeft();
  }

  void Start(const std::string& sRules, const std::string& sLog = "") {
    Rules(sRules);
    ASSERT_TRUE(SERVER_Start(&Server_, SCRIPTED_OPENOCD, sLog.c_str(), sLast)) << Server_.acReason;
  }

  SERVER_RESULT Ask(const char* sCommand, int DeadlineMs = 5000) {
    memset(acAnswer_, '#', sizeof(acAnswer_));
    return SERVER_Request(&Server_, DeadlineMs, acAnswer_, sizeof(acAnswer_), "%s", sCommand);
  }

  SERVER Server_ = {};
  char   acAnswer_[256];
};

TEST_F(OpenocdServer, a_request_is_answered_with_its_result) {
  Start("");
  EXPECT_EQ(SERVER_OK, Ask("version"));
  EXPECT_STREQ("Open On-Chip Debugger 0.12.0", acAnswer_);
  EXPECT_EQ(SERVER_OK, Ask("x write_memory 0x20000000 32 {0xAFFE}"));
  EXPECT_STREQ("", acAnswer_);
  EXPECT_EQ(SERVER_OK, Ask("x read_memory 0x20000000 32 2"));
  EXPECT_STREQ("0xaffe 0x0", acAnswer_);
}

TEST_F(OpenocdServer, a_failed_command_is_told_from_a_good_one) {
  Start("bad 1 error {no such thing}\n");
  EXPECT_EQ(SERVER_REFUSED, Ask("bad"));
  EXPECT_STREQ("no such thing", acAnswer_);
  EXPECT_EQ(SERVER_OK, Ask("good"));
}

TEST_F(OpenocdServer, a_failed_command_comes_with_what_the_log_says_of_it) {
  Start("two 1 fail no such thing\n");
  EXPECT_EQ(SERVER_OK, Ask("one"));
  EXPECT_EQ(SERVER_REFUSED, Ask("two"));
  EXPECT_STREQ("no such thing", Server_.acError);
  EXPECT_EQ(SERVER_OK, Ask("three"));
  EXPECT_STREQ("", Server_.acError);
}

TEST_F(OpenocdServer, an_answer_in_single_bytes_is_an_answer) {
  Start("version 1 pieces 2\n");
  EXPECT_EQ(SERVER_OK, Ask("version"));
  EXPECT_STREQ("Open On-Chip Debugger 0.12.0", acAnswer_);
}

TEST_F(OpenocdServer, an_answer_may_be_late_up_to_the_deadline) {
  Start("version 1 delay 300\n");
  EXPECT_EQ(SERVER_OK, Ask("version", 2000));
  EXPECT_GE(ElapsedMs(), 299);
}

TEST_F(OpenocdServer,
       after_the_deadline_the_conversation_is_over_and_later_requests_return_at_once) {
  Start("version 1 silent\n");
  StartClock();
  EXPECT_EQ(SERVER_GONE, Ask("version", 200));
  EXPECT_GE(ElapsedMs(), 199);
  EXPECT_STREQ("OpenOCD does not answer", Server_.acReason);
  EXPECT_STREQ("", acAnswer_);
  EXPECT_FALSE(SERVER_IsAlive(&Server_));
  StartClock();
  EXPECT_EQ(SERVER_GONE, Ask("good"));
  EXPECT_LT(ElapsedMs(), 50);
  EXPECT_EQ(std::vector<std::string>{"version"}, Requests());
  ExpectNothingLeft();
}

TEST_F(OpenocdServer, an_answer_cut_in_the_middle_is_none) {
  Start("version 1 cut 9\n");
  EXPECT_EQ(SERVER_GONE, Ask("version", 200));
  EXPECT_STREQ("OpenOCD does not answer", Server_.acReason);
}

TEST_F(OpenocdServer, a_program_that_ends_is_noticed_at_once) {
  Start("version 1 exit 3\n");
  StartClock();
  EXPECT_EQ(SERVER_GONE, Ask("version"));
  EXPECT_LT(ElapsedMs(), 1000);
  EXPECT_STREQ("OpenOCD has ended", Server_.acReason);
}

TEST_F(OpenocdServer, a_program_that_ends_between_requests_is_noticed) {
  Start("one 1 before q1 0 {}\\e\ntwo 1 exit 0\n");
  EXPECT_EQ(SERVER_OK, Ask("one"));
  EXPECT_TRUE(SERVER_IsAlive(&Server_));
  kill(Programs()[0], SIGKILL);
  for (int i = 0; i < 1000 && SERVER_IsAlive(&Server_); i++) {
    usleep(1000);
  }
  EXPECT_FALSE(SERVER_IsAlive(&Server_));
  EXPECT_EQ(SERVER_GONE, Ask("three"));
}

TEST_F(OpenocdServer, a_program_that_cannot_be_run_is_noticed_at_the_first_request) {
  WriteFile("text", "#!/nonexistent/interpreter\n");
  ASSERT_TRUE(SERVER_Start(&Server_, Path("text").c_str(), "", sLast));
  EXPECT_EQ(SERVER_GONE, Ask("version"));
  EXPECT_STREQ("OpenOCD has ended", Server_.acReason);
}

TEST_F(OpenocdServer, text_of_a_users_file_before_the_answer_is_skipped) {
  Start("version 1 before hello\\nthere\nmore 1 before q2 0 {\\e and q9 0 other\\e\n");
  EXPECT_EQ(SERVER_OK, Ask("version"));
  EXPECT_STREQ("Open On-Chip Debugger 0.12.0", acAnswer_);
  EXPECT_EQ(SERVER_OK, Ask("more adapter speed 5"));
  EXPECT_EQ(SERVER_OK, Ask("command mode"));
  EXPECT_STREQ("exec", acAnswer_);
}

TEST_F(OpenocdServer, the_byte_that_ends_an_answer_may_stand_in_its_text) {
  Start("one 1 result {a\\eb\\e}\ntwo 1 raw \\e\\e\\eq2 0 {\\e}\\e\n");
  EXPECT_EQ(SERVER_OK, Ask("one"));
  EXPECT_STREQ(
      "a\x1A"
      "b\x1A",
      acAnswer_);
  EXPECT_EQ(SERVER_OK, Ask("two"));
  EXPECT_STREQ("\x1A", acAnswer_);
  EXPECT_EQ(SERVER_OK, Ask("version"));
}

TEST_F(OpenocdServer, rubbish_is_no_answer) {
  Start("one 1 raw \\e\\e{{{\"q\\eq1\\eq1 0\\e");
  EXPECT_EQ(SERVER_GONE, Ask("one", 300));
  EXPECT_STREQ("OpenOCD does not answer", Server_.acReason);
}

TEST_F(OpenocdServer, the_late_answer_to_another_request_is_not_taken_for_this_one) {
  Start("two 1 before q1 0 wrong\\e\n");
  EXPECT_EQ(SERVER_OK, Ask("one"));
  EXPECT_EQ(SERVER_OK, Ask("two adapter speed 5"));
  EXPECT_STREQ("", acAnswer_);
}

TEST_F(OpenocdServer, any_amount_of_text_before_an_answer_is_skipped) {
  std::string sText(900, 'x');
  std::string sRules;
  Start("one 1 before " + sText + "\n");
  for (int i = 0; i < 40; i++) {
    ASSERT_EQ(SERVER_OK, Ask("one"));
  }
}

TEST_F(OpenocdServer, a_flood_of_log_is_read_and_bounded) {
  Start("version 1 flood 400000\n", Path("log"));
  StartClock();
  EXPECT_EQ(SERVER_OK, Ask("version", 60000));
  SERVER_End(&Server_, 1000);
  const std::string sLog = ReadFile("log");
  EXPECT_LT(sLog.size(), size_t{17} << 20);
  EXPECT_GT(sLog.size(), size_t{16} << 20);
  EXPECT_EQ(0u, sLog.find("Error: line 0 of"));
  EXPECT_NE(std::string::npos, sLog.find("(the log is full: what follows is not kept)\n"));
}

TEST_F(OpenocdServer, a_flood_that_does_not_end_ends_with_the_deadline) {
  Start("version 1 flood 100000000\n");
  StartClock();
  EXPECT_EQ(SERVER_GONE, Ask("version", 500));
  EXPECT_LT(ElapsedMs(), 3000);
}

TEST_F(OpenocdServer, the_log_is_kept_and_added_to) {
  WriteFile("log", "before\n");
  Start("version 1 say hello\n", Path("log"));
  EXPECT_EQ(SERVER_OK, Ask("version"));
  SERVER_End(&Server_, 1000);
  EXPECT_EQ("before\nhello\n", ReadFile("log"));
}

TEST_F(OpenocdServer, a_log_that_cannot_be_written_is_told) {
  EXPECT_FALSE(SERVER_Start(&Server_, SCRIPTED_OPENOCD, "/nonexistent/log", sLast));
  EXPECT_STREQ("log = /nonexistent/log: No such file or directory", Server_.acReason);
}

TEST_F(OpenocdServer, an_end_with_grace_lets_the_program_end_by_itself) {
  Start("");
  EXPECT_EQ(SERVER_OK, Ask("version"));
  StartClock();
  SERVER_End(&Server_, 5000);
  EXPECT_LT(ElapsedMs(), 1000);
  ExpectNothingLeft();
  EXPECT_EQ(std::vector<std::string>{"version"}, Requests());
  SERVER_End(&Server_, 5000);
}

TEST_F(OpenocdServer, a_program_that_does_not_end_is_killed) {
  Start("deaf 1 deaf\n");
  EXPECT_EQ(SERVER_GONE, Ask("deaf", 100));
  ExpectNothingLeft();
  Start("deaf 1 before q2 0 {}\\e\n");
  EXPECT_EQ(SERVER_OK, Ask("version"));
  kill(Programs()[1], SIGSTOP);
  StartClock();
  SERVER_End(&Server_, 300);
  EXPECT_GE(ElapsedMs(), 299);
  EXPECT_LT(ElapsedMs(), 2000);
  ExpectNothingLeft();
}

// Of this process and of the children that it has waited for, in milliseconds.
int64_t CpuMs() {
  int64_t Us = 0;
  for (const auto Who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage Usage = {};
    getrusage(Who, &Usage);
    Us += (Usage.ru_utime.tv_sec + Usage.ru_stime.tv_sec) * 1000000 + Usage.ru_utime.tv_usec +
          Usage.ru_stime.tv_usec;
  }
  return Us / 1000;
}

// An end of file is always ready to be read: whoever waits for it in a loop keeps the processor busy.
TEST_F(OpenocdServer, waiting_for_a_program_that_has_closed_its_files_takes_no_processor_time) {
  for (const char* sFiles : {"", "01", "2", "012"}) {
    SCOPED_TRACE(sFiles);
    const std::string sRules = std::string("last 1 close ") + sFiles + "\n";
    const int64_t     Before = CpuMs();
    Start(sRules);
    StartClock();
    EXPECT_EQ(SERVER_GONE, Ask("last", 500));
    EXPECT_LT(ElapsedMs(), 2000);
    Start(sRules);
    EXPECT_EQ(SERVER_OK, Ask("version"));
    const auto Length = static_cast<ssize_t>(sizeof(sUnasked) - 1);
    EXPECT_EQ(Length, write(Server_.Child.Socket, sUnasked, sizeof(sUnasked) - 1));
    SERVER_End(&Server_, 500);
    EXPECT_LT(ElapsedMs(), 5000);
    EXPECT_LT(CpuMs() - Before, 150);
    ExpectNothingLeft();
  }
}

TEST_F(OpenocdServer, a_broken_conversation_raises_no_signal) {
  signal(SIGPIPE, SIG_DFL);
  Start("one 1 exit 0\n");
  EXPECT_EQ(SERVER_OK, Ask("version"));
  kill(Programs()[0], SIGKILL);
  usleep(100000);
  EXPECT_EQ(SERVER_GONE, Ask("version"));
}

TEST_F(OpenocdServer, it_works_for_a_tool_that_was_started_without_standard_files) {
  const int hIn = dup(STDIN_FILENO), hOut = dup(STDOUT_FILENO), hErr = dup(STDERR_FILENO);
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  Rules("");
  const bool Started = SERVER_Start(&Server_, SCRIPTED_OPENOCD, "", sLast);
  const bool Good    = Ask("version") == SERVER_OK;
  SERVER_End(&Server_, 1000);
  dup2(hIn, STDIN_FILENO);
  dup2(hOut, STDOUT_FILENO);
  dup2(hErr, STDERR_FILENO);
  close(hIn);
  close(hOut);
  close(hErr);
  EXPECT_TRUE(Started);
  EXPECT_TRUE(Good);
}

TEST_F(OpenocdServer, a_killed_process_has_its_last_command_carried_out_and_leaves_nothing) {
  for (const char* sRules : {"", "version 1 deaf\n"}) {
    std::filesystem::remove(Path("requests"));
    const pid_t Parent = fork();
    ASSERT_GE(Parent, 0);
    if (Parent == 0) {
      Start(sRules);
      Ask("version", 100000);
      for (;;) {
        pause();
      }
    }
    for (int i = 0; i < 5000 && Requests().empty(); i++) {
      usleep(1000);
    }
    ASSERT_EQ(1u, Programs().size());
    kill(Parent, SIGKILL);
    waitpid(Parent, nullptr, 0);
    StartClock();
    // The guard's child is nobody's zombie: the guard waits for it and init for the guard.
    while (kill(Programs()[0], 0) == 0 && ElapsedMs() < 5000) {
      usleep(1000);
    }
    EXPECT_LT(ElapsedMs(), 2500);
    EXPECT_EQ(*sRules == '\0' ? "the last one" : "version", Requests().back());
  }
}

// -- Over the network ----------------------------------------------------------------------------

// A server at a port of this machine that answers one connection with a text and hangs up.
class Listener {
 public:
  Listener() : hSocket_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in Address     = {};
    socklen_t   Length      = sizeof(Address);
    Address.sin_family      = AF_INET;
    Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, bind(hSocket_, reinterpret_cast<sockaddr*>(&Address), sizeof(Address)));
    EXPECT_EQ(0, listen(hSocket_, 1));
    EXPECT_EQ(0, getsockname(hSocket_, reinterpret_cast<sockaddr*>(&Address), &Length));
    Port = ntohs(Address.sin_port);
  }
  ~Listener() { close(hSocket_); }
  Listener(const Listener&)            = delete;
  Listener& operator=(const Listener&) = delete;

  int Accept() const { return accept(hSocket_, nullptr, nullptr); }

  uint32_t Port = 0;

 private:
  int hSocket_;
};

TEST_F(OpenocdServer, a_running_server_is_asked_over_the_network_and_left_running) {
  Listener Port;
  ASSERT_TRUE(SERVER_Connect(&Server_, "127.0.0.1", Port.Port)) << Server_.acReason;
  const int hSocket = Port.Accept();
  ASSERT_EQ(10, write(hSocket, "q1 0 good\x1A", 10));
  EXPECT_EQ(SERVER_OK, Ask("version"));
  EXPECT_STREQ("good", acAnswer_);
  char          acRequest[64] = "";
  const ssize_t NumRead       = read(hSocket, acRequest, sizeof(acRequest));
  EXPECT_EQ("list q1 [catch {version} e] $e\x1A",
            std::string(acRequest, static_cast<size_t>(NumRead)));
  SERVER_End(&Server_, 1000);
  EXPECT_EQ(0, read(hSocket, acRequest, sizeof(acRequest)));
  close(hSocket);
}

TEST_F(OpenocdServer, a_port_at_which_nobody_listens_is_told) {
  uint32_t Unused = 0;
  {
    const Listener Port;
    Unused = Port.Port;
  }
  EXPECT_FALSE(SERVER_Connect(&Server_, "127.0.0.1", Unused));
  EXPECT_STREQ("Connection refused", Server_.acReason);
  EXPECT_FALSE(SERVER_Connect(&Server_, "no.such.host.invalid", 6666));
  EXPECT_STRNE("", Server_.acReason);
}

TEST_F(OpenocdServer, a_server_that_hangs_up_is_noticed) {
  Listener Port;
  ASSERT_TRUE(SERVER_Connect(&Server_, "127.0.0.1", Port.Port));
  close(Port.Accept());
  EXPECT_EQ(SERVER_GONE, Ask("version"));
  EXPECT_STREQ("OpenOCD has ended", Server_.acReason);
}

}  // namespace
