// SPDX-License-Identifier: MIT

// The macOS executable in the runner: what can be seen only there. script/macos also runs
// tests/tool with it, which shows that it behaves as the Linux executable does.

#include "tests/macho/macho_fixture.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

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

TEST_F(MachO, FileNameIsAppendedToAModulePathWithoutADirectory) {
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

TEST_F(MachO, AProbeLibraryInMachOFormIsOpened) {
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

// Darwin enables vector components for a thread when it first uses them, which a signal handler may do
// between the two questions: the size must be the later answer.
TEST_F(MachO, VectorRegistersAreSizedAfterTheirComponentsAreKnown) {
  const std::string AskComponents("\x0f\x01\xd0", 3);  // xgetbv
  const std::string AskSize("\xb8\x0d\x00\x00\x00\x31\xc9\x0f\xa2",
                            9);  // cpuid, leaf 0xD, subleaf 0
  const std::string Code = ReadFile(Need("QUOBE_TEST_MACHO") + "/quobe-unlock");
  const size_t      Size = Code.find(AskSize);
  ASSERT_NE(std::string::npos, Size);
  // The choice of instructions for UTIL asks for the components too; it is elsewhere.
  const size_t Components = Code.rfind(AskComponents, Size);
  ASSERT_NE(std::string::npos, Components);
  EXPECT_GT(24u, Size - Components);  // a few instructions before
  EXPECT_EQ(std::string::npos, Code.find(AskSize, Size + 1));
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

// Runs START TOOL on a new bench with DEVICE, which is protected and has a program in its flash. START
// is words of a command line, quoted where they need it.
const char RunOnNewBench[] = R"(
  rm -rf "$STAGE" && mkdir "$STAGE" && cp "$TOOL" "$RELEASE/sim/libquobearm.dylib" "$STAGE" || exit
  export QUOBE_BENCH="$STAGE/bench"
  bench="$RELEASE/sim/quobe-bench"
  "$bench" create $DEVICE --rdp 1 --flash full && "$bench" set time=fast || exit
  eval "$START" '"$STAGE/quobe-unlock" -SetDeviceFamily $NUMBER -Exit 1 $MORE'
  echo "exit $?"
  "$bench" show --expect-factory
)";

TEST_F(MachO, SimulatedDevicesEndUpAsWithTheLinuxExecutable) {
  const std::string  Release = Need("QUOBE_TEST_RELEASE");
  std::istringstream Devices(Shell("\"$QUOBE_TEST_RELEASE/sim/quobe-bench\" devices"));
  int                NumDevices = 0, NumFreed = 0;
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
    setenv("START", ("'" + Need("QUOBE_TEST_RUNNER") + "'").c_str(), 1);
    setenv("TOOL", Need("QUOBE_TEST_TOOL").c_str(), 1);
    const std::string OnMacOS = Shell(RunOnNewBench);
    EXPECT_EQ(OnLinux, OnMacOS) << Device;
    EXPECT_NE(std::string::npos, OnMacOS.find("Connecting to Quobe via USB...O.K.")) << OnMacOS;
    NumFreed += OnMacOS.find("exit 0\n") != std::string::npos;  // some parts end with a mismatch
    NumDevices++;
  }
  EXPECT_GT(NumDevices, 0);
  EXPECT_GT(2 * NumFreed, NumDevices);
}

// The pauses of a run; equal ones in a row count as one.
std::vector<std::string> PausesWith(const std::string& Folder, const char* sDevice) {
  const std::string Trace = Folder + "/pauses";
  setenv("RELEASE", Need("QUOBE_TEST_RELEASE").c_str(), 1);
  setenv("STAGE", (Folder + "/stage").c_str(), 1);
  setenv("DEVICE", sDevice, 1);
  setenv("NUMBER", std::to_string(MenuNumber(sDevice)).c_str(), 1);
  const std::string Start = "env 'MACHORUN_TRACE=" + Trace + "' MACHORUN_CLOCK_STEP_US=1000 '" +
                            Need("QUOBE_TEST_RUNNER") + "'";
  setenv("START", Start.c_str(), 1);
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

// The pauses for the supply and between polls are equal.
TEST_F(MachO, PausesWithAnH7AreOf200Milliseconds) {
  EXPECT_EQ((std::vector<std::string>{"usleep(200000)"}), PausesWith(Folder, "STM32H743"));
}

TEST_F(MachO, PauseAfterAWrongCommandLineIsOf3Seconds) {
  const Outcome Result = Run(Need("QUOBE_TEST_TOOL"), {"MACHORUN_CLOCK_STEP_US=1000"}, "-Speed x");
  EXPECT_EQ((std::vector<std::string>{"usleep(3000000)"}), LinesWith(Result.Trace, "usleep"));
}

// -- The runner itself ---------------------------------------------------------------------------

TEST_F(MachO, RunnerNamesTheImportThatItRefuses) {
  const Outcome Result = Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/unvetted_import");
  EXPECT_EQ(126, Result.Status);
  EXPECT_NE(std::string::npos, Result.Output.find("_getrlimit"));
  EXPECT_EQ(std::string::npos, Result.Output.find("started"));

  const Outcome List =
      Run("--imports", {}, "'" + Need("QUOBE_TEST_MACHO") + "/tests/macho/unvetted_import'");
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

TEST_F(MachO, RunnerRefusesAFileThatIsNotMachO) {
  EXPECT_EQ(126, Run("/bin/true").Status);
  EXPECT_EQ(126, Run("/nonexistent").Status);
}

}  // namespace
