// The macOS executable in the runner: what only shows there. That it behaves as the Linux
// executable does is shown by running tests/tool a second time.
//
// Not registered with ctest: script/macos builds the Mach-O files first and then runs this with
//   QUOBE_TEST_MACHO    folder of the x86-64 files
//   QUOBE_TEST_TOOL     the universal executable
//   QUOBE_TEST_RUNNER   tests/macho/machorun
//   QUOBE_TEST_RELEASE  folder of the Linux build

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string Need(const char* sName) {
  const char* sValue = getenv(sName);
  if (sValue == nullptr) {
    throw std::runtime_error(std::string(sName) + " is not set; run this by script/macos");
  }
  return sValue;
}

std::string ReadFile(const std::string& Path) {
  std::ifstream     File(Path, std::ios::binary);
  std::stringstream Text;
  Text << File.rdbuf();
  return Text.str();
}

// The lines whose beginning matches the expression.
std::vector<std::string> LinesWith(const std::string& Text, const std::string& Begin) {
  const std::regex         Expression("(" + Begin + ").*");
  std::istringstream       Stream(Text);
  std::vector<std::string> Lines;
  for (std::string Line; std::getline(Stream, Line);) {
    if (std::regex_match(Line, Expression)) {
      Lines.push_back(Line);
    }
  }
  return Lines;
}

struct Outcome {
  int         Status = -1;  // exit status; 128 + number for a signal
  std::string Output;       // standard output and error
  std::string Trace;

  std::vector<std::string> Candidates() const { return LinesWith(Trace, "dlopen"); }
};

class MachO : public ::testing::Test {
 protected:
  void SetUp() override {
    char acFolder[] = "/tmp/quobe-macho-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(acFolder));
    Folder = acFolder;
  }

  void TearDown() override {
    const std::string Command = "rm -rf '" + Folder + "'";
    EXPECT_EQ(0, system(Command.c_str()));
  }

  // Arguments are words without quotes in them.
  Outcome Run(const std::string& File, const std::vector<std::string>& Environment = {},
              const std::string& Arguments = "") const {
    // The braces keep the shell's own word about a child that a signal ended.
    std::string Command =
        "cd '" + Folder + "' && rm -f trace && { echo 0 | env MACHORUN_TRACE=trace";
    for (const std::string& Entry : Environment) {
      Command += " '" + Entry + "'";
    }
    Command += " '" + Need("QUOBE_TEST_RUNNER") + "' '" + File + "' " + Arguments +
               " >out 2>&1; } 2>shell";
    Outcome   Result;
    const int Status = system(Command.c_str());
    Result.Status    = WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
    Result.Output    = ReadFile(Folder + "/out");
    Result.Trace     = ReadFile(Folder + "/trace");
    return Result;
  }

  Outcome RunTool(const std::vector<std::string>& Environment) const {
    return Run(Need("QUOBE_TEST_TOOL"), Environment);
  }

  std::string Folder;
};

std::string Opened(const std::string& Path) {
  return "dlopen(" + Path + ", 0x1) = null";
}

const std::string FirstInstalled = Opened("/Applications/OSTREL/Quobe/libquobearm.dylib");
const std::string LastInstalled  = Opened("/Applications/OSTREL/Quobe/libquobearm.5.dylib");

// An absolute path of Length characters whose directory is "/d/" so that candidates stay short.
std::string LongPath(size_t Length) {
  return "/d/" + std::string(Length - 3, 'n');
}

constexpr int STATUS_ABORTED = 128 + 6;

TEST_F(MachO, LibraryIsLookedForInSixPlacesInOrderAndLazily) {
  const Outcome Result =
      RunTool({"MACHORUN_DLADDR=/module/bin/tool", "MACHORUN_PIDPATH=/exe/bin/tool"});
  EXPECT_EQ((std::vector<std::string>{
                Opened("/module/bin/libquobearm.dylib"),
                Opened("/module/bin/../../../libquobearm.dylib"),
                Opened("/exe/bin/libquobearm.dylib"),
                Opened("/exe/bin/../../../libquobearm.dylib"),
                FirstInstalled,
                LastInstalled,
            }),
            Result.Candidates());
  EXPECT_EQ(1, Result.Status);
  EXPECT_EQ(1u,
            LinesWith(Result.Output, "Could not open Quobe shared library. Exiting now.").size());
}

TEST_F(MachO, ExecutablePathIsAskedForWith4096Bytes) {
  EXPECT_EQ((std::vector<std::string>{"proc_pidpath(self, 4096)"}),
            LinesWith(RunTool({}).Trace, "proc_pidpath"));
}

TEST_F(MachO, ModulePathWithoutADirectoryStaysInFrontOfTheFileName) {
  for (const std::string Path : {"/x", "tool"}) {
    const Outcome Result = RunTool({"MACHORUN_DLADDR=" + Path, "MACHORUN_PIDPATH=!fail"});
    EXPECT_EQ((std::vector<std::string>{
                  Opened(Path + "libquobearm.dylib"),
                  Opened(Path + "../../../libquobearm.dylib"),
                  FirstInstalled,
                  LastInstalled,
              }),
              Result.Candidates());
  }
}

TEST_F(MachO, BackslashSeparatesToo) {
  const Outcome Result = RunTool({"MACHORUN_DLADDR=/a\\b\\tool", "MACHORUN_PIDPATH=!fail"});
  ASSERT_EQ(4u, Result.Candidates().size());
  EXPECT_EQ(Opened("/a\\b\\libquobearm.dylib"), Result.Candidates()[0]);
}

TEST_F(MachO, ModuleThatIsUnknownOrHasNoPathIsSkipped) {
  for (const std::string Answer : {"!fail", "!null", ""}) {
    const Outcome Result = RunTool({"MACHORUN_DLADDR=" + Answer, "MACHORUN_PIDPATH=/exe/bin/tool"});
    ASSERT_EQ(4u, Result.Candidates().size()) << Answer;
    EXPECT_EQ(Opened("/exe/bin/libquobearm.dylib"), Result.Candidates()[0]);
  }
}

TEST_F(MachO, ExecutableThatIsUnknownOrHasNoPathIsSkipped) {
  for (const std::string Answer : {"!fail", ""}) {
    const Outcome Result = RunTool({"MACHORUN_DLADDR=!fail", "MACHORUN_PIDPATH=" + Answer});
    EXPECT_EQ((std::vector<std::string>{FirstInstalled, LastInstalled}), Result.Candidates());
  }
}

TEST_F(MachO, ModulePathOf511CharactersIsUsedAndOf512Skipped) {
  const Outcome Longest =
      RunTool({"MACHORUN_DLADDR=" + LongPath(511), "MACHORUN_PIDPATH=/exe/bin/tool"});
  ASSERT_EQ(6u, Longest.Candidates().size());
  EXPECT_EQ(Opened("/d/libquobearm.dylib"), Longest.Candidates()[0]);

  const Outcome TooLong =
      RunTool({"MACHORUN_DLADDR=" + LongPath(512), "MACHORUN_PIDPATH=/exe/bin/tool"});
  ASSERT_EQ(4u, TooLong.Candidates().size());
  EXPECT_EQ(Opened("/exe/bin/libquobearm.dylib"), TooLong.Candidates()[0]);
}

TEST_F(MachO, ExecutablePathOf511CharactersIsUsedAndOf512Skipped) {
  const Outcome Longest = RunTool({"MACHORUN_DLADDR=!fail", "MACHORUN_PIDPATH=" + LongPath(511)});
  ASSERT_EQ(4u, Longest.Candidates().size());
  EXPECT_EQ(Opened("/d/libquobearm.dylib"), Longest.Candidates()[0]);

  for (const size_t Length : {512u, 4095u}) {
    const Outcome TooLong =
        RunTool({"MACHORUN_DLADDR=!fail", "MACHORUN_PIDPATH=" + LongPath(Length)});
    EXPECT_EQ((std::vector<std::string>{FirstInstalled, LastInstalled}), TooLong.Candidates());
  }
}

// A directory of N characters gives a first candidate of N + 17 and a second one of N + 26.
TEST_F(MachO, CandidateOf512CharactersEndsTheProcessAndIsNotOpenedCut) {
  const auto RunWithDirectory = [&](size_t Length) {
    return RunTool(
        {"MACHORUN_DLADDR=/" + std::string(Length - 2, 'd') + "/tool", "MACHORUN_PIDPATH=!fail"});
  };
  const Outcome BothFit = RunWithDirectory(511 - 26);
  EXPECT_EQ(4u, BothFit.Candidates().size());
  EXPECT_EQ(1, BothFit.Status);

  const Outcome FirstFits = RunWithDirectory(512 - 26);
  EXPECT_EQ(1u, FirstFits.Candidates().size());
  EXPECT_EQ(STATUS_ABORTED, FirstFits.Status);

  const Outcome NoneFits = RunWithDirectory(512 - 17);
  EXPECT_EQ(0u, NoneFits.Candidates().size());
  EXPECT_EQ(STATUS_ABORTED, NoneFits.Status);
}

TEST_F(MachO, LibraryIsALibraryOfThatSystem) {
  const std::string Library = Need("QUOBE_TEST_MACHO") + "/tests/macho/libquobearm.dylib";
  ASSERT_EQ(0, symlink(Library.c_str(), (Folder + "/libquobearm.dylib").c_str()));
  const Outcome Result = RunTool({"MACHORUN_DLADDR=" + Folder + "/tool", "MACHORUN_PIDPATH=!fail"});
  EXPECT_EQ((std::vector<std::string>{"dlopen(" + Folder + "/libquobearm.dylib, 0x1) = open"}),
            Result.Candidates());
  EXPECT_EQ(1u, LinesWith(Result.Output, "the Mach-O library was called").size());
  EXPECT_EQ(0, Result.Status);
}

TEST_F(MachO, PendingErrorIsDroppedBeforeAFunctionIsLookedUp) {
  const std::string Library = Need("QUOBE_TEST_MACHO") + "/tests/macho/libquobearm.dylib";
  ASSERT_EQ(0, symlink(Library.c_str(), (Folder + "/libquobearm.dylib").c_str()));
  // The places before this one leave an error behind.
  const Outcome Result =
      RunTool({"MACHORUN_DLADDR=/nowhere/bin/tool", "MACHORUN_PIDPATH=" + Folder + "/tool"});
  EXPECT_EQ(
      (std::vector<std::string>{"dlerror() = text", "dlsym(QUOBEARM_IsOpen)", "dlerror() = null"}),
      LinesWith(Result.Trace, "dl(error|sym)"));
  EXPECT_EQ(0, Result.Status);
}

// -- The simulated probe --------------------------------------------------------------------------

// What a shell command prints.
std::string Shell(const std::string& Command) {
  std::string Text;
  FILE*       pOutput = popen(("{ " + Command + "\n} 2>&1").c_str(), "r");
  if (pOutput == nullptr) {
    throw std::runtime_error("no shell");
  }
  char acPart[4096];
  while (fgets(acPart, sizeof(acPart), pOutput) != nullptr) {
    // The two executables were not compiled in the same second.
    if (strncmp(acPart, "Compiled ", 9) != 0) {
      Text += acPart;
    }
  }
  pclose(pOutput);
  return Text;
}

// The number in the menu for a device of the bench.
int MenuNumber(const std::string& Device) {
  static const struct {
    const char* sBegin;
    int         Number;
  } Families[] = {
      {"STM32F0", 1},  {"STM32F1", 2},  {"STM32F2", 3},  {"STM32F3", 4},  {"STM32F4", 5},
      {"STM32F72", 6}, {"STM32F73", 6}, {"STM32F74", 7}, {"STM32F75", 7}, {"STM32F76", 8},
      {"STM32F77", 8}, {"STM32H7", 9},  {"STM32L0", 10}, {"STM32L1", 11}, {"STM32L4", 12},
  };
  for (const auto& Row : Families) {
    if (Device.rfind(Row.sBegin, 0) == 0) {
      return Row.Number;
    }
  }
  return 0;
}

// Runs START TOOL on a new bench with DEVICE, which is protected and has a program in its flash.
const char RunOnNewBench[] = R"(
  rm -rf "$STAGE" && mkdir "$STAGE" && cp "$TOOL" "$RELEASE/sim/libquobearm.dylib" "$STAGE" || exit
  export QUOBE_BENCH="$STAGE/bench"
  bench="$RELEASE/sim/quobe-bench"
  "$bench" create $DEVICE --rdp 1 --flash full && "$bench" set time=fast || exit
  $START "$STAGE/quobe-unlock" -SetDeviceFamily $NUMBER -Exit 1 $MORE
  echo "exit $?"
  "$bench" show --expect-factory
)";

TEST_F(MachO, SimulatedDevicesEndUpAsWithTheLinuxExecutable) {
  const std::string  Release = Need("QUOBE_TEST_RELEASE");
  std::istringstream Devices(Shell("\"$QUOBE_TEST_RELEASE/sim/quobe-bench\" devices"));
  int                NumDevices = 0;
  setenv("RELEASE", Release.c_str(), 1);
  setenv("STAGE", (Folder + "/stage").c_str(), 1);
  for (std::string Line; std::getline(Devices, Line) && Line.rfind("STM32", 0) == 0;) {
    const std::string Device = Line.substr(0, Line.find(' '));
    ASSERT_NE(0, MenuNumber(Device)) << Device;
    setenv("DEVICE", Device.c_str(), 1);
    setenv("NUMBER", std::to_string(MenuNumber(Device)).c_str(), 1);
    setenv("START", "", 1);
    setenv("TOOL", (Release + "/quobe-unlock").c_str(), 1);
    const std::string OnLinux = Shell(RunOnNewBench);
    setenv("START", Need("QUOBE_TEST_RUNNER").c_str(), 1);
    setenv("TOOL", Need("QUOBE_TEST_TOOL").c_str(), 1);
    const std::string OnMacOS = Shell(RunOnNewBench);
    EXPECT_EQ(OnLinux, OnMacOS) << Device;
    EXPECT_NE(std::string::npos, OnMacOS.find("Connecting to Quobe via USB...O.K.")) << OnMacOS;
    EXPECT_NE(std::string::npos, OnMacOS.find("exit 0\n")) << OnMacOS;
    NumDevices++;
  }
  EXPECT_GT(NumDevices, 0);
}

// The pauses of a run, each as often as it is made in a row told once.
std::vector<std::string> PausesWith(const std::string& Folder, const char* sDevice) {
  const std::string Trace = Folder + "/pauses";
  setenv("RELEASE", Need("QUOBE_TEST_RELEASE").c_str(), 1);
  setenv("STAGE", (Folder + "/stage").c_str(), 1);
  setenv("DEVICE", sDevice, 1);
  setenv("NUMBER", std::to_string(MenuNumber(sDevice)).c_str(), 1);
  setenv(
      "START",
      ("env MACHORUN_TRACE=" + Trace + " MACHORUN_CLOCK_STEP_US=1000 " + Need("QUOBE_TEST_RUNNER"))
          .c_str(),
      1);
  setenv("TOOL", Need("QUOBE_TEST_TOOL").c_str(), 1);
  setenv("MORE", "-SetPowerTarget 1", 1);
  const std::string Output = Shell(RunOnNewBench);
  unsetenv("MORE");
  EXPECT_NE(std::string::npos, Output.find("exit 0\n")) << Output;
  std::vector<std::string> Pauses = LinesWith(ReadFile(Trace), "usleep");
  Pauses.erase(std::unique(Pauses.begin(), Pauses.end()), Pauses.end());
  return Pauses;
}

// 200 ms for the supply; then each of the three programmings is polled every 5 ms and its reload
// given 200 ms.
TEST_F(MachO, PausesWithAnL4AreThoseOfItsPollsAndReloads) {
  EXPECT_EQ(
      (std::vector<std::string>{"usleep(200000)", "usleep(5000)", "usleep(200000)", "usleep(5000)",
                                "usleep(200000)", "usleep(5000)", "usleep(200000)"}),
      PausesWith(Folder, "STM32L476"));
}

// The supply's and the polls' are the same.
TEST_F(MachO, PausesWithAnH7AreOf200Milliseconds) {
  EXPECT_EQ((std::vector<std::string>{"usleep(200000)"}), PausesWith(Folder, "STM32H743"));
}

TEST_F(MachO, PauseAfterAWrongCommandLineIsOf3Seconds) {
  const Outcome Result = Run(Need("QUOBE_TEST_TOOL"), {"MACHORUN_CLOCK_STEP_US=1000"}, "-Speed x");
  EXPECT_EQ((std::vector<std::string>{"usleep(3000000)"}), LinesWith(Result.Trace, "usleep"));
}

// -- What SYS asks of the system, in that system's numbers --------------------------------------

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
TEST_F(MachOSysCalls, WhatMayBeAPipeIsOpenedWithoutWaiting) {
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
                "setsockopt(0xffff, 0x80, 1 2)",       // SO_LINGER on, 2 s
                "setsockopt(0xffff, 0x80, 0 0)",
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

// AI_V4MAPPED is 0x800, AF_INET6 is 30.
TEST_F(MachOSysCalls, MappedAddressesAreAskedFor) {
  EXPECT_EQ((Lines{"getaddrinfo(127.0.0.1, flags 0x800, family 30, type 1)"}),
            Calls("sockets", "getaddrinfo"));
}

// macOS 10.13 to 10.15 lack this one, which FD_SET asks for. Nothing else may be missing.
TEST_F(MachOSysCalls, ProgramsStartAndSelectWithoutWhatOlderSystemsLack) {
  const std::string Checks = Need("QUOBE_TEST_MACHO") + "/tests/macho/machine_checks";
  const Outcome     Older =
      Run(Checks, {"MACHORUN_WITHOUT=___darwin_check_fd_set_overflow", "MACHORUN_CLOCK_STEP_US=0"});
  EXPECT_EQ(0, Older.Status) << Older.Output;
  EXPECT_EQ(126, Run(Checks, {"MACHORUN_WITHOUT=___stack_chk_guard"}).Status);
}

// A tick of mach_absolute_time() is 125/3 ns where the processor is an arm64 one. Only real time
// tells: a time that is 40 times too short or too long fails the checks.
TEST_F(MachOSysCalls, TimeIsMeasuredByTheLengthOfATick) {
  const Outcome Result = Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/machine_checks",
                             {"MACHORUN_TIMEBASE=125/3", "MACHORUN_CLOCK_STEP_US=0"});
  EXPECT_EQ(0, Result.Status) << Result.Output;
}

// -- The runner itself ---------------------------------------------------------------------------

TEST_F(MachO, RunnerRefusesAnImportThatIsInNoListByName) {
  const Outcome Result = Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/unvetted_import");
  EXPECT_EQ(126, Result.Status);
  EXPECT_NE(std::string::npos, Result.Output.find("_getrlimit"));
  EXPECT_EQ(std::string::npos, Result.Output.find("started"));

  const Outcome List =
      Run("--imports", {}, Need("QUOBE_TEST_MACHO") + "/tests/macho/unvetted_import");
  EXPECT_EQ(1, List.Status);
  EXPECT_TRUE(std::regex_search(List.Output, std::regex("_getrlimit +libSystem.B.dylib +REFUSED")));
}

TEST_F(MachO, RunnerStopsAtAValueThatItDoesNotTranslate) {
  static const struct {
    const char *sAsked, *sMessage;
  } Cases[] = {
      {"OpenFlag", "open flags 0x200000"},
      {"OpenBothWays", "open flags 0x3, for writing only and for both"},
      {"SeekHole", "lseek origin 3"},
      {"FileLock", "fcntl request 7"},
      {"StatusFlag", "fcntl flags 0x40"},
      {"MapFlag", "mmap flags 0x400"},
      {"SyncFlag", "msync flags 0x4"},
      {"ConfigurationName", "sysconf name 5"},
      {"SystemName", "sysctl hw.ncpu"},
      {"SocketFamily", "address family 1"},
      {"SocketType", "socket type 0x801"},
      {"SocketOption", "socket option 0x200 of level 0xffff"},
      {"SocketLevel", "socket option 0x4 of level 0x1"},
      {"MessageFlag", "message flags 0x8"},
      {"SocketAddress", "socket address of family 0 and 16 bytes"},
      {"LookupFlag", "getaddrinfo flags 0x200"},
      {"NameFlag", "getnameinfo flags 0x20"},
      {"LineSpeed", "tcsetattr with another line speed"},
      {"FlowControl", "hardware flow control in one direction"},
      {"LineAction", "tcsetattr action 16"},
      {"FlushQueue", "tcflush queue 0"},
      {"TerminalRequest", "ioctl request 0x2000747b"},
      {"SignalNumber", "signal 29"},
      {"SignalHandler", "a handler for signal 30"},
      {"WaitOption", "waitpid option 0x2"},
      {"SpawnFlag", "posix_spawn flag 0x80"},
      {"LoaderMode", "dlopen mode 0x11"},
      {"LoaderNoMode", "dlopen mode 0x4"},
      {"LoaderItself", "dlopen of the program itself"},
      {"LoaderHandle", "dlsym with the special handle -2"},
      {"CancelledElsewhere", "a thread that ended with a cleanup handler not called"},
  };
  for (const auto& Case : Cases) {
    const Outcome Result =
        Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/untranslated_value", {}, Case.sAsked);
    EXPECT_EQ(126, Result.Status) << Case.sAsked;
    EXPECT_EQ("started\nmachorun: not translated: " + std::string(Case.sMessage) + "\n",
              Result.Output)
        << Case.sAsked;
  }
}

TEST_F(MachO, RunnerTranslatesBothWays) {
  const Outcome Result = Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/translated_values");
  EXPECT_EQ("", Result.Output);
  EXPECT_EQ(0, Result.Status);
}

TEST_F(MachO, RunnerRefusesAFileThatIsCutShort) {
  const std::string Whole = ReadFile(Need("QUOBE_TEST_MACHO") + "/quobe-unlock");
  for (const size_t Length : {0ul, 3ul, 31ul, 40ul, 1000ul, 5000ul, Whole.size() / 2}) {
    std::ofstream(Folder + "/cut", std::ios::binary) << Whole.substr(0, Length);
    EXPECT_EQ(126, Run(Folder + "/cut").Status) << Length;
  }
}

TEST_F(MachO, RunnerRefusesWhatIsNoMachOFile) {
  EXPECT_EQ(126, Run("/bin/true").Status);
  EXPECT_EQ(126, Run("/nonexistent").Status);
}

}  // namespace
