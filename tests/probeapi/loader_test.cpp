// SPDX-License-Identifier: MIT

// Where the loader looks, and in which order. The loader is compiled into this test with stand-ins
// for its system calls; they report whatever modules and files a test needs.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <libproc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

void SetHandle();  // as if another thread had loaded the library

namespace {

struct {
  bool                     HasModule;
  std::string              Module;  // what dladdr reports
  bool                     NullModule;
  bool                     OpenedMeanwhile;  // by another thread, during dladdr
  int                      PidPathResult;
  std::string              Executable;  // what proc_pidpath reports
  std::string              Present;     // the one file that can be opened
  std::vector<std::string> Tried;
  std::vector<int>         Modes;
  int                      NumModuleQuestions;
} World;

int FakeDladdr(const void*, Dl_info* pInfo) {
  World.NumModuleQuestions++;
  pInfo->dli_fname = World.NullModule ? nullptr : World.Module.c_str();
  if (World.OpenedMeanwhile) {
    SetHandle();
  }
  return World.HasModule ? 1 : 0;
}

int FakeProcPidPath(int Pid, void* pBuffer, uint32_t BufferSize) {
  EXPECT_EQ(getpid(), Pid);
  EXPECT_EQ(4096u, BufferSize);
  memset(pBuffer, 'x',
         BufferSize);  // it may write the whole buffer, and leave rubbish when it fails
  if (World.Executable.size() < BufferSize) {
    memcpy(pBuffer, World.Executable.c_str(), World.Executable.size() + 1);
  }
  return World.PidPathResult;
}

void* FakeDlopen(const char* sPath, int Mode) {
  World.Tried.push_back(sPath);
  World.Modes.push_back(Mode);
  return World.Present == sPath ? &World : nullptr;
}

}  // namespace

#define dladdr       FakeDladdr
#define proc_pidpath FakeProcPidPath
#define dlopen       FakeDlopen
#include "probeapi/loader.cpp"
#undef dladdr
#undef proc_pidpath
#undef dlopen

void SetHandle() {
  APILOADER_hLib = &World;
}

static const char Installed[] = "/Applications/OSTREL/Quobe/libquobearm.dylib";
static const char Versioned[] = "/Applications/OSTREL/Quobe/libquobearm.5.dylib";

class Loader : public testing::Test {
 protected:
  void SetUp() override {
    World               = {};
    World.HasModule     = true;
    World.Module        = "/m/bin/tool";
    World.Executable    = "/e/bin/tool";
    World.PidPathResult = 1;
    APILOADER_hLib      = nullptr;
  }
  // The candidates of a search that fails.
  static std::vector<std::string> Candidates() {
    testing::internal::CaptureStdout();
    EXPECT_EQ(1, APILOADER_Load(0));
    EXPECT_EQ("Could not open Quobe shared library.\n", testing::internal::GetCapturedStdout());
    return World.Tried;
  }
};

TEST_F(Loader, TriesTheSixPlacesInOrder) {
  EXPECT_EQ(
      (std::vector<std::string>{"/m/bin/libquobearm.dylib", "/m/bin/../../../libquobearm.dylib",
                                "/e/bin/libquobearm.dylib", "/e/bin/../../../libquobearm.dylib",
                                Installed, Versioned}),
      Candidates());
}

TEST_F(Loader, OpensLazilyAndWithNoOtherFlag) {
  Candidates();
  for (const int Mode : World.Modes) {
    EXPECT_EQ(1, Mode);
    EXPECT_EQ(RTLD_LAZY, Mode);
  }
}

TEST_F(Loader, StopsAtTheFirstThatOpensAndKeepsItsHandle) {
  const std::vector<std::string> All = Candidates();
  for (size_t i = 0; i < All.size(); i++) {
    SetUp();
    World.Present = All[i];
    EXPECT_EQ(0, APILOADER_Load(0));
    EXPECT_EQ(i + 1, World.Tried.size());
    EXPECT_EQ(&World, APILOADER_hLib);
  }
}

TEST_F(Loader, SecondCallAfterSuccessDoesNoWork) {
  World.Present = Installed;
  EXPECT_EQ(0, APILOADER_Load(1));
  const size_t NumTried = World.Tried.size();
  EXPECT_EQ(0, APILOADER_Load(1));
  EXPECT_EQ(NumTried, World.Tried.size());
  EXPECT_EQ(1, World.NumModuleQuestions);
}

TEST_F(Loader, FailedSearchIsMadeAgain) {
  Candidates();
  EXPECT_EQ(nullptr, APILOADER_hLib);
  World.Present = Versioned;
  EXPECT_EQ(0, APILOADER_Load(0));
}

TEST_F(Loader, UnknownOrEmptyModulePathIsSkipped) {
  const std::vector<std::string> Rest = {"/e/bin/libquobearm.dylib",
                                         "/e/bin/../../../libquobearm.dylib", Installed, Versioned};
  World.HasModule                     = false;
  EXPECT_EQ(Rest, Candidates());
  SetUp();
  World.Module = "";
  EXPECT_EQ(Rest, Candidates());
}

TEST_F(Loader, ModuleWithoutAPathIsSkipped) {
  World.NullModule = true;
  EXPECT_EQ("/e/bin/libquobearm.dylib", Candidates().at(0));
}

TEST_F(Loader, LibraryOpenedByAnotherThreadMeanwhileIsTaken) {
  World.OpenedMeanwhile = true;
  EXPECT_EQ(0, APILOADER_Load(0));
  EXPECT_TRUE(World.Tried.empty());
}

TEST_F(Loader, ExecutablePathThatFillsTheBufferIsSkipped) {
  World.Executable    = std::string(4096, 'x');  // no terminator within the buffer
  World.PidPathResult = 4096;
  EXPECT_EQ(4u, Candidates().size());
}

TEST_F(Loader, UnknownOrEmptyExecutablePathIsSkipped) {
  const std::vector<std::string> Rest = {"/m/bin/libquobearm.dylib",
                                         "/m/bin/../../../libquobearm.dylib", Installed, Versioned};
  World.PidPathResult                 = 0;
  EXPECT_EQ(Rest, Candidates());
  SetUp();
  World.PidPathResult = -1;
  EXPECT_EQ(Rest, Candidates());
  SetUp();
  World.Executable = "";
  EXPECT_EQ(Rest, Candidates());
}

TEST_F(Loader, SeparatorAtPositionZeroIsNotExamined) {
  World.Module     = "/x";
  World.Executable = "tool";
  EXPECT_EQ((std::vector<std::string>{"/xlibquobearm.dylib", "/x../../../libquobearm.dylib",
                                      "toollibquobearm.dylib", "tool../../../libquobearm.dylib",
                                      Installed, Versioned}),
            Candidates());
}

TEST_F(Loader, LastSeparatorOfEitherKindEndsTheDirectory) {
  World.Module     = "a\\b/c\\tool";
  World.Executable = "a\\b/tool";
  EXPECT_EQ("a\\b/c\\libquobearm.dylib", Candidates().at(0));
  EXPECT_EQ("a\\b/libquobearm.dylib", World.Tried.at(2));
}

TEST_F(Loader, TrailingSeparatorIsKept) {
  World.Module = "/m/bin/";
  EXPECT_EQ("/m/bin/libquobearm.dylib", Candidates().at(0));
}

// A path of the given length in a short directory.
static std::string PathOfLength(size_t Length) {
  return "/d/" + std::string(Length - 3, 'n');
}

TEST_F(Loader, PathOf511CharactersIsUsedAndOf512Skipped) {
  World.Module     = PathOfLength(511);
  World.Executable = PathOfLength(511);
  EXPECT_EQ(6u, Candidates().size());
  EXPECT_EQ("/d/libquobearm.dylib", World.Tried.at(0));
  SetUp();
  World.Module = PathOfLength(512);
  EXPECT_EQ("/e/bin/libquobearm.dylib", Candidates().at(0));
  SetUp();
  World.Executable = PathOfLength(512);
  EXPECT_EQ(4u, Candidates().size());
  SetUp();
  World.Executable = PathOfLength(4095);
  EXPECT_EQ(4u, Candidates().size());
}

// A path whose directory has the given length, its last separator included.
static std::string PathWithDirectory(size_t Length) {
  return "/" + std::string(Length - 2, 'd') + "/t";
}

TEST_F(Loader, CandidateOf511CharactersIsTried) {
  World.HasModule  = false;
  World.Executable = PathWithDirectory(485);
  EXPECT_EQ(511u, Candidates().at(1).size());
}

TEST_F(Loader, CandidateOf512CharactersEndsTheProcess) {
  World.Module = PathWithDirectory(486);
  EXPECT_EXIT(APILOADER_Load(0), testing::KilledBySignal(SIGABRT), "");
  World.Module = PathWithDirectory(495);
  EXPECT_EXIT(APILOADER_Load(0), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(Loader, LongDirectoryWorksForTheFirstCandidate) {
  World.Module  = PathWithDirectory(494);
  World.Present = World.Module.substr(0, 494) + "libquobearm.dylib";
  EXPECT_EQ(0, APILOADER_Load(0));
  EXPECT_EQ(511u, World.Tried.at(0).size());
}

TEST_F(Loader, ExitingFormPrintsOneLineAndEndsWithStatusOne) {
  // EXPECT_EXIT reads standard error, so standard output goes there too.
  EXPECT_EXIT(
      {
        dup2(2, 1);
        APILOADER_Load(1);
      },
      testing::ExitedWithCode(1), "^Could not open Quobe shared library\\. Exiting now\\.\n$");
}

TEST_F(Loader, TryLoadReturnsZeroOrMinusOne) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, APILOADER_TryLoad());
  EXPECT_EQ("Could not open Quobe shared library.\n", testing::internal::GetCapturedStdout());
  World.Present = Installed;
  EXPECT_EQ(0, APILOADER_TryLoad());
  EXPECT_EQ(0, APILOADER_TryLoad());
}
