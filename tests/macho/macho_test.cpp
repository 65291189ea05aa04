// The macOS executable in the runner: what only shows there. That it behaves as the Linux executable
// does is shown by running tests/tool a second time.
//
// Not registered with ctest: script/macos builds the Mach-O files first and then runs this with
//   QUOBE_TEST_MACHO    folder of the x86-64 files
//   QUOBE_TEST_TOOL     the universal executable
//   QUOBE_TEST_RUNNER   tests/macho/machorun

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
  const Outcome Result = Run(Need("QUOBE_TEST_MACHO") + "/tests/macho/untranslated_value");
  EXPECT_EQ(126, Result.Status);
  EXPECT_NE(std::string::npos, Result.Output.find("not translated: open flags 0x200000"));
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
