// SPDX-License-Identifier: MIT

// What SYS asks of the system, in that system's numbers.

#include "tests/macho/macho_fixture.h"

namespace {

class MachOSysCalls : public MachO {
 protected:
  // The lines of the trace that begin with the expression.
  std::vector<std::string> Calls(const std::string& Area, const std::string& Begin,
                                 const std::vector<std::string>& Environment = {}) const {
    const Outcome Result =
        Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/sys_calls", Environment, Area);
    EXPECT_EQ(0, Result.Status) << Result.Output;
    return LinesWith(Result.Trace, Begin);
  }
};

using Lines = std::vector<std::string>;

// O_WRONLY 0x1, O_RDWR 0x2, O_CREAT 0x200, O_TRUNC 0x400, O_EXCL 0x800, O_CLOEXEC 0x1000000
TEST_F(MachOSysCalls, OpenModesBecomeOpenFlags) {
  EXPECT_EQ((Lines{
                "open(13, 0x1000202, 0644) = open",
                "open(93, 0x1000a02, 0644) = open",
                "open(b3, 0x1000a02, 0644) = open",
                "open(01, 0x1000000) = error",
                "open(02, 0x1000001) = error",
                "open(03, 0x1000002) = error",
                "open(32, 0x1000601, 0644) = open",
                "open(23, 0x1000402) = error",
                "open(43, 0x1000002) = error",
                "open(80, 0x1000000) = error",
                "open(13, 0x1000002) = open",
            }),
            Calls("files", "open"));
}

// O_NONBLOCK 0x4: a pipe without a partner is not waited for. O_TRUNC is left to ftruncate().
TEST_F(MachOSysCalls, FilesThatMayBePipesAreOpenedWithoutWaiting) {
  EXPECT_EQ((Lines{"open(regular, 0x1000205, 0644) = open", "open(regular, 0x1000006) = open",
                   "open(regular, 0x1000004) = open"}),
            Calls("regular", "open"));
}

// PROT_READ 1 and PROT_WRITE 2; MAP_SHARED 1; MS_SYNC 0x10
TEST_F(MachOSysCalls, ViewIsMappedFromThePageSharedForReadingAndWriting) {
  EXPECT_EQ((Lines{"mmap(length 914, 0x3, 0x1, offset 4096)", "msync(length 914, 0x10)"}),
            Calls("files", "m(map|sync)"));
}

// ICANON is 0x100; TCSANOW is 0.
TEST_F(MachOSysCalls, ConsoleLosesLineEditingAndNothingElse) {
  EXPECT_EQ((Lines{"tcsetattr(0, in 0xffffffff, out 0xffffffff, ctl 0xffffffff, loc 0xfffffeff, "
                   "min 1, time 0)"}),
            Calls("console", "tcsetattr", {"MACHORUN_TERMINAL_FLAGS=0xFFFFFFFF"}));
}

TEST_F(MachOSysCalls, ConsoleCountsTheKeysOfStandardInput) {
  EXPECT_EQ("0 keys, then 2\n",
            Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/sys_calls", {}, "console").Output);
}

TEST_F(MachOSysCalls, SerialPortIsOpenedForReadingAndWritingWithoutControlOfTheProcess) {
  const Lines Opened = Calls("serial", "open");
  ASSERT_EQ(2u, Opened.size());  // the first one is the test's own
  EXPECT_TRUE(std::regex_match(Opened[1], std::regex("open\\(/dev/.*, 0x1020002\\) = open")))
      << Opened[1];
}

TEST_F(MachOSysCalls, SerialSettingsClearAndSetTheirBitsAndNoOther) {
  EXPECT_EQ((Lines{"tcsetattr(0, in 0xffffd803, out 0xd, ctl 0xfffcebff, loc 0xdffffa00, min 0, "
                   "time 1)"}),
            Calls("serial", "tcsetattr", {"MACHORUN_TERMINAL_FLAGS=0xFFFFFFFF"}));
  EXPECT_EQ((Lines{"tcsetattr(0, in 0x1, out 0x0, ctl 0x8b00, loc 0x0, min 0, time 1)"}),
            Calls("serial", "tcsetattr", {"MACHORUN_TERMINAL_FLAGS=0"}));
}

TEST_F(MachOSysCalls, SerialPortIsMadeExclusiveSetUpSpedUpAndFlushedInThatOrder) {
  const Lines Made = Calls("serial", "ioctl|tcsetattr|tcflush");
  ASSERT_EQ(4u, Made.size());
  EXPECT_EQ("ioctl(TIOCEXCL)", Made[0]);
  EXPECT_EQ(0u, Made[1].find("tcsetattr(0,"));
  EXPECT_EQ("ioctl(serial speed, 115200)", Made[2]);
  EXPECT_EQ("tcflush(3)", Made[3]);
}

TEST_F(MachOSysCalls, UsbSerialPortsAreFoundByTheirCalloutPathsAndGivenBack) {
  const Outcome Result =
      Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/sys_calls",
          {"HOST_CALLOUT_DEVICES=/dev/cu.usbmodem1::/dev/cu.Bluetooth:/dev/cu.usbserial-2:"
           "/dev/cu.usbmodem3"},
          "ports");
  EXPECT_EQ(
      "Modem at path: /dev/cu.usbmodem1\n"
      "Modem at path: /dev/cu.usbserial-2\n"
      "Modem at path: /dev/cu.usbmodem3\n"
      "3 found, first cu.usbmodem1, second cu.usbserial-2, third #\n",
      Result.Output);
  EXPECT_EQ((Lines{"IOServiceGetMatchingServices: IOProviderClass = IOSerialBSDClient",
                   "IOServiceGetMatchingServices: IOSerialBSDClientType = IOSerialStream"}),
            LinesWith(Result.Trace, "IOService"));
  EXPECT_EQ((Lines{"held at exit: 0 objects, 0 iterators, 0 services, 0 assertions"}),
            LinesWith(Result.Trace, "held"));
}

TEST_F(MachOSysCalls, RandomBytesComeFromADescriptorThatNoChildInherits) {
  EXPECT_EQ((Lines{"open(/dev/random, 0x1000000) = open"}), Calls("services", "open"));
}

TEST_F(MachOSysCalls, LogEntryIsOfTheUserAtDebugLevelAndPaddedTo128) {
  EXPECT_EQ((Lines{"syslog(15, [" + std::string(124, ' ') + "text])"}),
            Calls("services", "syslog"));
}

TEST_F(MachOSysCalls, ProgramStartsWithoutOurDescriptors) {
  EXPECT_EQ((Lines{"posix_spawn(/no/such/program, 0x4000)"}), Calls("services", "posix_spawn"));
}

TEST_F(MachOSysCalls, IdleSleepIsPreventedOnceByAnAssertionThatIsOn) {
  EXPECT_EQ((Lines{"IOPMAssertionCreate(NoIdleSleepAssertion, 255) = 32769",
                   "IOPMAssertionRelease(32769)"}),
            Calls("services", "IOPM"));
  EXPECT_EQ((Lines{"held at exit: 0 objects, 0 iterators, 0 services, 0 assertions"}),
            Calls("services", "held"));
}

TEST_F(MachOSysCalls, ThreadsAreDetached) {
  EXPECT_EQ((Lines{"pthread_create(detached)"}), Calls("services", "pthread"));
}

TEST_F(MachOSysCalls, SocketsHaveTheirFamilyTypeAndStandardOptions) {
  EXPECT_EQ((Lines{
                "socket(2, 1, 0)",
                "setsockopt(0x6, 0x1, 1 0)",           // TCP_NODELAY
                "setsockopt(0xffff, 0x1022, 1 0)",     // SO_NOSIGPIPE
                "setsockopt(0xffff, 0x20, 1 0)",       // SO_BROADCAST
                "setsockopt(0xffff, 0x8, 1 0)",        // SO_KEEPALIVE
                "setsockopt(0xffff, 0x1002, 4096 0)",  // SO_RCVBUF
                "setsockopt(0xffff, 0x1080, 1 2)",     // SO_LINGER_SEC on, 2 s
                "setsockopt(0xffff, 0x1080, 0 0)",
                "setsockopt(0xffff, 0x1005, 2 s 345000 us)",  // SO_SNDTIMEO
                "setsockopt(0xffff, 0x1006, 0 s 67000 us)",   // SO_RCVTIMEO
                "setsockopt(0xffff, 0x4, 1 0)",               // SO_REUSEADDR
                "socket(30, 1, 0)",
                "setsockopt(0x6, 0x1, 1 0)",
                "setsockopt(0xffff, 0x1022, 1 0)",
                "setsockopt(0x29, 0x1b, 0 0)",  // IPV6_V6ONLY
                "socket(2, 2, 0)",
                "socket(30, 2, 0)",
                "setsockopt(0x29, 0x1b, 0 0)",
            }),
            Calls("sockets", "(set)?sock"));
}

// 224.0.0.1 cannot be a peer: connect() fails at once. Each call of the abort callback follows a
// new attempt.
TEST_F(MachOSysCalls, AConnectThatFailsAtOnceIsFollowedByTheNextAttempt) {
  EXPECT_EQ((Lines{"socket(2, 1, 0)", "socket(2, 1, 0)", "socket(2, 1, 0)"}),
            Calls("connect", "socket"));
}

// AI_V4MAPPED is 0x800, AF_INET6 is 30.
TEST_F(MachOSysCalls, MappedAddressesAreAskedFor) {
  EXPECT_EQ((Lines{"getaddrinfo(127.0.0.1, flags 0x800, family 30, type 1)"}),
            Calls("sockets", "getaddrinfo"));
}

// FD_SET calls this function, which macOS 10.13 to 10.15 lack. Nothing else may be missing.
TEST_F(MachOSysCalls, ProgramsStartAndSelectWithoutWhatOlderSystemsLack) {
  const std::string Checks = Need("QUOBE_TEST_MACHO") + "/tests/macho/machine_checks";
  const Outcome     Older =
      Run(Checks, {"MACHORUN_WITHOUT=___darwin_check_fd_set_overflow", "MACHORUN_CLOCK_STEP_US=0"});
  EXPECT_EQ(0, Older.Status) << Older.Output;
  EXPECT_EQ(126, Run(Checks, {"MACHORUN_WITHOUT=___stack_chk_guard"}).Status);
}

// A tick of mach_absolute_time() is 125/3 ns on arm64. This needs real time: one that is 40 times
// too short or too long fails the checks.
TEST_F(MachOSysCalls, TimeIsMeasuredByTheLengthOfATick) {
  const Outcome Result = Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/machine_checks",
                             {"MACHORUN_TIMEBASE=125/3", "MACHORUN_CLOCK_STEP_US=0"});
  EXPECT_EQ(0, Result.Status) << Result.Output;
}

}  // namespace
