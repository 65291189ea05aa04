// SPDX-License-Identifier: MIT

#include "sys/path.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <libproc.h>
#include <string.h>
#include <sys/stat.h>

#include <string>

#include "tests/sys/support/temp_dir.h"

static bool IsDirectory(const std::string& sPath) {
  struct stat Status;
  return stat(sPath.c_str(), &Status) == 0 && S_ISDIR(Status.st_mode);
}

class SysPath : public testing::Test {
 protected:
  int32_t MakeDir(const std::string& sName) { return SYS_PATH_MakeDir(m_Dir.Path(sName).c_str()); }

  // A path of that many one-letter components.
  std::string Chain(int NumComponents) {
    std::string sName = "d";
    for (int i = 1; i < NumComponents; i++) {
      sName += "/d";
    }
    return sName;
  }

  TempDir m_Dir;
};

TEST_F(SysPath, MakeDirMakesTheParentsToo) {
  EXPECT_EQ(0, MakeDir("a/b/c"));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("a/b/c")));
  EXPECT_EQ(0, MakeDir("a/b/c"));
}

TEST_F(SysPath, MakeDirGivesThePermissions0775LessTheUmaskToAllItMakes) {
  {
    const Umask None(0);
    EXPECT_EQ(0, MakeDir("a/b"));
  }
  EXPECT_EQ(0775u, PermissionsOf(m_Dir.Path("a")));
  EXPECT_EQ(0775u, PermissionsOf(m_Dir.Path("a/b")));
  const Umask Others(027);
  EXPECT_EQ(0, MakeDir("a/c"));
  EXPECT_EQ(0750u, PermissionsOf(m_Dir.Path("a/c")));
  EXPECT_EQ(0775u, PermissionsOf(m_Dir.Path("a")));  // it existed before
}

TEST_F(SysPath, MakeDirTakesRepeatedAndTrailingSeparators) {
  EXPECT_EQ(0, MakeDir("a//b///c//"));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("a/b/c")));
  EXPECT_EQ(0, SYS_PATH_MakeDir("/"));
  EXPECT_EQ(0, SYS_PATH_MakeDir("//"));
}

TEST_F(SysPath, MakeDirTakesRelativePaths) {
  ASSERT_EQ(0, chdir(m_Dir.Path().c_str()));
  EXPECT_EQ(0, SYS_PATH_MakeDir("x"));
  EXPECT_EQ(0, SYS_PATH_MakeDir("y/z"));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("x")));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("y/z")));
  ASSERT_EQ(0, symlink("gone", m_Dir.Path("link").c_str()));
  EXPECT_EQ(0, SYS_PATH_MakeDir("link"));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("gone")));
  ASSERT_EQ(0, chdir("/"));
}

TEST_F(SysPath, MakeDirRefusesNullAndEmpty) {
  EXPECT_EQ(-1, SYS_PATH_MakeDir(nullptr));
  EXPECT_EQ(-1, SYS_PATH_MakeDir(""));
}

TEST_F(SysPath, MakeDirFailsWhereAFileIsInTheWay) {
  WriteFile(m_Dir.Path("f"), "");
  EXPECT_EQ(-1, MakeDir("f"));
  EXPECT_EQ(-1, MakeDir("f/x"));
}

TEST_F(SysPath, MakeDirFollowsLinks) {
  ASSERT_EQ(0, MakeDir("real"));
  ASSERT_EQ(0, symlink("real", m_Dir.Path("toreal").c_str()));
  ASSERT_EQ(0, symlink(m_Dir.Path("made/by").c_str(), m_Dir.Path("tomissing").c_str()));
  ASSERT_EQ(0, symlink("made/too", m_Dir.Path("torelative").c_str()));
  WriteFile(m_Dir.Path("f"), "");
  ASSERT_EQ(0, symlink("f", m_Dir.Path("tofile").c_str()));
  EXPECT_EQ(0, MakeDir("toreal"));
  EXPECT_EQ(0, MakeDir("toreal/below"));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("real/below")));
  EXPECT_EQ(0, MakeDir("tomissing/below"));
  EXPECT_TRUE(IsDirectory(m_Dir.Path("made/by/below")));
  EXPECT_EQ(0, MakeDir("torelative//"));  // separators after a link change nothing
  EXPECT_TRUE(IsDirectory(m_Dir.Path("made/too")));
  EXPECT_EQ(-1, MakeDir("tofile"));
}

TEST_F(SysPath, MakeDirEndsOnACircleOfLinks) {
  ASSERT_EQ(0, symlink("b", m_Dir.Path("a").c_str()));
  ASSERT_EQ(0, symlink("a", m_Dir.Path("b").c_str()));
  EXPECT_EQ(-1, MakeDir("a"));
  EXPECT_EQ(-1, MakeDir("a/x"));
}

TEST_F(SysPath, MakeDirMakes127MissingDirectoriesAndNotOneMore) {
  EXPECT_EQ(-1, MakeDir(Chain(128)));
  EXPECT_FALSE(IsDirectory(m_Dir.Path("d")));  // the nesting is checked before anything is made
  EXPECT_EQ(0, MakeDir(Chain(127)));
  EXPECT_EQ(0, MakeDir(Chain(128)));
}

TEST_F(SysPath, MakeDirRefusesPathsOf1024Characters) {
  std::string sPath = m_Dir.Path("a") + "/";
  while (sPath.size() < 1023) {
    sPath += "/";
  }
  EXPECT_EQ(0, SYS_PATH_MakeDir(sPath.c_str()));
  EXPECT_EQ(-1, SYS_PATH_MakeDir((sPath + "/").c_str()));
}

TEST_F(SysPath, MakeDirRefusesLinkTargetsThatComeTo1024Characters) {
  // The length of a relative target includes the directory of its link.
  std::string sTarget(1023 - (m_Dir.Path().size() + 1), '/');
  sTarget[0] = 'a';
  ASSERT_EQ(0, symlink(sTarget.c_str(), m_Dir.Path("fits").c_str()));
  EXPECT_EQ(0, MakeDir("fits"));
  sTarget[0] = 'b';
  sTarget += '/';
  ASSERT_EQ(0, symlink(sTarget.c_str(), m_Dir.Path("relative").c_str()));
  EXPECT_EQ(-1, MakeDir("relative"));
  EXPECT_FALSE(IsDirectory(m_Dir.Path("b")));
  ASSERT_EQ(0, symlink(std::string(1023, '/').c_str(), m_Dir.Path("longest").c_str()));
  EXPECT_EQ(0, MakeDir("longest"));
  // macOS makes no link with a longer target.
  if (symlink(std::string(1024, '/').c_str(), m_Dir.Path("absolute").c_str()) == 0) {
    EXPECT_EQ(-1, MakeDir("absolute"));
  } else {
    EXPECT_EQ(ENAMETOOLONG, errno);
  }
}

TEST_F(SysPath, MakeDirFailsWithoutPermission) {
  ASSERT_EQ(0, chmod(m_Dir.Path().c_str(), 0755));
  const Unprivileged User;
  if (getuid() == 0) {
    EXPECT_EQ(-1, MakeDir("a/b"));
  } else {
    EXPECT_EQ(-1, SYS_PATH_MakeDir("/quobe_no_such_directory/b"));
  }
}

// ---- Application support ------------------------------------------------------------------------

class SysPathHome : public SysPath {
 protected:
  void SetUp() override { setenv("HOME", m_Dir.Path().c_str(), 1); }
};

static const char Below[] = "/Library/Application Support/OSTREL";

TEST_F(SysPathHome, AppSupportDirIsMadeAndTold) {
  char acPath[512];
  ASSERT_EQ(0, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  EXPECT_EQ(m_Dir.Path() + Below, acPath);
  EXPECT_TRUE(IsDirectory(acPath));
}

TEST_F(SysPathHome, AppSupportDirInTenBytesIsTenCharactersWithoutTerminator) {
  char acPath[16];
  memset(acPath, '#', sizeof(acPath));
  ASSERT_EQ(0, SYS_PATH_GetAppSupportDir(acPath, 10));
  EXPECT_EQ(m_Dir.Path().substr(0, 10) + "######", std::string(acPath, sizeof(acPath)));
}

TEST_F(SysPathHome, AppSupportDirWritesNothingBehindItsTerminator) {
  char acPath[512];
  memset(acPath, '#', sizeof(acPath));
  ASSERT_EQ(0, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  for (size_t i = strlen(acPath) + 1; i < sizeof(acPath); i++) {
    ASSERT_EQ('#', acPath[i]);
  }
}

TEST_F(SysPathHome, AppSupportDirFailsForNullAndForNoRoom) {
  char c = '#';
  EXPECT_EQ(-1, SYS_PATH_GetAppSupportDir(nullptr, 512));
  EXPECT_EQ(-1, SYS_PATH_GetAppSupportDir(&c, 0));
  EXPECT_EQ('#', c);
}

TEST_F(SysPathHome, AppSupportDirFailsWithoutHome) {
  char acPath[512] = "#";
  unsetenv("HOME");
  EXPECT_EQ(-1, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  setenv("HOME", "", 1);
  EXPECT_EQ(-1, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  EXPECT_STREQ("#", acPath);
}

TEST_F(SysPathHome, AppSupportDirTakesAHomeOfOneCharacter) {
  ASSERT_EQ(0, chdir(m_Dir.Path().c_str()));
  setenv("HOME", "h", 1);
  char acPath[512];
  EXPECT_EQ(0, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  EXPECT_EQ(std::string("h") + Below, acPath);
  EXPECT_TRUE(IsDirectory(m_Dir.Path("h") + Below));
  ASSERT_EQ(0, chdir("/"));
}

TEST_F(SysPathHome, AppSupportDirFailsWhenItCannotBeMade) {
  char acPath[512] = "#";
  WriteFile(m_Dir.Path("Library"), "in the way");
  EXPECT_EQ(-1, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  EXPECT_STREQ("#", acPath);
}

TEST_F(SysPathHome, AppSupportDirRefusesAHomeTooLongFor512Bytes) {
  char        acPath[512] = "#";
  std::string sHome       = m_Dir.Path();
  while (sHome.size() + strlen(Below) < 511) {
    sHome += "/";
  }
  setenv("HOME", sHome.c_str(), 1);
  EXPECT_EQ(0, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  EXPECT_EQ(511u, strlen(acPath));
  setenv("HOME", (sHome + "/").c_str(), 1);
  acPath[0] = '#';
  EXPECT_EQ(-1, SYS_PATH_GetAppSupportDir(acPath, sizeof(acPath)));
  EXPECT_EQ('#', acPath[0]);
}

// ---- Data directory -----------------------------------------------------------------------------

TEST_F(SysPathHome, DataDirIsTheOneOfTheExecutable) {
  char acPath[512];
  SYS_PATH_GetDataDir(acPath, sizeof(acPath));
  char acExecutable[4096];
  ASSERT_GT(proc_pidpath(getpid(), acExecutable, sizeof(acExecutable)), 0);
  const std::string sExecutable = acExecutable;
  const std::string sDir        = sExecutable.substr(0, sExecutable.rfind('/') + 1);
  if (access(sDir.c_str(), W_OK) != 0) {
    GTEST_SKIP() << "SKIPPED, this user may not write to " << sDir;
  }
  EXPECT_EQ(sDir, acPath);
  // Tests that run beside this one try the same folder, each for a moment.
  bool IsLeft = true;
  for (int i = 0; IsLeft && i < 100; i++) {
    IsLeft = false;
    for (const auto& Entry : std::filesystem::directory_iterator(acPath)) {
      IsLeft = IsLeft || Entry.path().filename().string().rfind("OSTREL", 0) == 0;
    }
    usleep(IsLeft ? 20000 : 0);
  }
  EXPECT_FALSE(IsLeft);
  EXPECT_FALSE(IsDirectory(m_Dir.Path(".OSTREL")));
}

TEST_F(SysPathHome, DataDirAlwaysEndsWithATerminatorInTheLastByte) {
  char acPath[8];
  memset(acPath, '#', sizeof(acPath));
  SYS_PATH_GetDataDir(acPath, 4);
  EXPECT_EQ(3u, strlen(acPath));
  EXPECT_EQ('#', acPath[4]);
  SYS_PATH_GetDataDir(acPath, 1);
  EXPECT_EQ(0, acPath[0]);

  char acLong[600];
  memset(acLong, '#', sizeof(acLong));
  SYS_PATH_GetDataDir(acLong, 599);
  EXPECT_EQ(0, acLong[598]);
  EXPECT_EQ('#', acLong[599]);
}

TEST_F(SysPathHome, DataDirIgnoresNullAndNoRoom) {
  char c = '#';
  SYS_PATH_GetDataDir(nullptr, 10);
  SYS_PATH_GetDataDir(&c, 0);
  EXPECT_EQ('#', c);
}
