// SPDX-License-Identifier: MIT

// STM32L0 and L1.

#include "tests/tool/reset_transcript.h"

enum { MENU_L0 = 10, MENU_L1 = 11 };

struct Registers {
  std::string Pecr, Pekeyr, Optkeyr, Sr;
};
static const Registers L0 = {"0x40022004", "0x4002200C", "0x40022014", "0x40022018"};
static const Registers L1 = {"0x40023C04", "0x40023C0C", "0x40023C14", "0x40023C18"};

static std::string Write(const std::string& Address, const std::string& Value) {
  return "<WriteU32(" + Address + ", " + Value + ")>";
}

static std::string Unlock(const Registers& R) {
  return Write(R.Pekeyr, "0x89ABCDEF") + Write(R.Pekeyr, "0x02030405") +
         Write(R.Optkeyr, "0xFBEAD9C8") + Write(R.Optkeyr, "0x24252627");
}

static std::string Option(const Registers& R, const std::string& Address,
                          const std::string& Value) {
  return Write(Address, Value) + "<Read(" + R.Sr + ", 1)>";
}

static std::string Reload(const Registers& R) {
  return Write(R.Pecr, "0x00040000") + "<Reset()>";
}

static const char Reset[] =
    "Reset target...<SetResetType(0)><SetResetDelay(0)><Reset()>O.K.\n"
    "Reset option bytes to factory settings...";

static std::string StageOne(const Registers& R) {
  return Unlock(R) + Write(R.Sr, "0x00000F00") + Option(R, "0x1FF80000", "0x00000000") +
         Option(R, "0x1FF80000", "0xFF5500AA") + Reload(R);
}

static std::string AttemptL0() {
  return Reset + StageOne(L0) + Unlock(L0) + Write(L0.Sr, "0x00000F00") +
         Option(L0, "0x1FF80004", "0x00000000") + Option(L0, "0x1FF80008", "0x00000000") +
         Option(L0, "0x1FF8000C", "0x00000000") + Option(L0, "0x1FF80010", "0x00000000") +
         Option(L0, "0x1FF80004", "0x7F8F8070") + Option(L0, "0x1FF80008", "0xFFFF0000") +
         Option(L0, "0x1FF8000C", "0xFFFF0000") + Option(L0, "0x1FF80010", "0xFFFF0000") +
         Reload(L0) + Unlock(L0) + "<Read(0x1FF80000, 5)>";
}

static const char FreezeWatchdogs[] = "<WriteU32(0xE0042008, 0x00001800)>";
static const char ReadyL0[]         = "read 0x40022018 0\n";
static const char ReadyL1[]         = "read 0x40023C18 0\n";
static const char GoodL0[] =
    "block 0x1FF80000 0xFF5500AA 0x7F8F8070 0xFFFF0000 0xFFFF0000 0xFFFF0000\n";
static const char BadFifthL0[] =
    "block 0x1FF80000 0xFF5500AA 0x7F8F8070 0xFFFF0000 0xFFFF0000 0xFFFF0001\n";

TEST(ResetL0, GoodFirstAttemptLocksAndPrintsResetOnce) {
  ExpectReset(MENU_L0, std::string(ReadyL0) + GoodL0,
              FreezeWatchdogs + AttemptL0() + Write(L0.Pecr, "0x00000007") + "O.K.\n", 0);
}

TEST(ResetL0, FifthWordThatDiffersMakesASecondAttempt) {
  ExpectReset(MENU_L0, std::string(ReadyL0) + BadFifthL0 + GoodL0,
              FreezeWatchdogs + AttemptL0() +
                  "Resetting option bytes failed first try, attempting 2nd try.\n" + AttemptL0() +
                  Write(L0.Pecr, "0x00000007") + "O.K.\n",
              0);
}

TEST(ResetL0, TwoFailuresAreReportedInWordsOnly) {
  ExpectReset(MENU_L0, std::string(ReadyL0) + BadFifthL0,
              FreezeWatchdogs + AttemptL0() +
                  "Resetting option bytes failed first try, attempting 2nd try.\n" + AttemptL0() +
                  "Resetting option bytes failed.\n",
              0);
}

TEST(ResetL0, ReadBackIsTakenAsDeliveredWhateverTheResult) {
  ExpectReset(MENU_L0,
              std::string(ReadyL0) +
                  "read-fails 0x1FF80000 -1 0xFF5500AA 0x7F8F8070 0xFFFF0000*3\n" + BadFifthL0,
              FreezeWatchdogs + AttemptL0() + Write(L0.Pecr, "0x00000007") + "O.K.\n", 0);
}

TEST(ResetL0, ReadBackThatIsNotDeliveredIsAFailedAttempt) {
  const ToolResult Result =
      RunReset(MENU_L0, std::string(ReadyL0) + "read-fails 0x1FF80000 -1\n" + GoodL0);
  EXPECT_NE(std::string::npos, Result.Output.find("failed first try"));
  EXPECT_EQ("O.K.\n", Result.Output.substr(Result.Output.size() - 5));
}

TEST(ResetL0, EachOptionWriteWaitsForBusyToClear) {
  const ToolResult Result =
      RunReset(MENU_L0, std::string("read 0x40022018 1 1 0 0x0D 0\n") + GoodL0);
  const std::string Sr = "<Read(0x40022018, 1)>";
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x1FF80000, 0x00000000)>" + Sr + Sr + Sr +
                                   "<WriteU32(0x1FF80000, 0xFF5500AA)>" + Sr + Sr +
                                   "<WriteU32(0x40022004, 0x00040000)><Reset()>"));
}

// Each read of the status begins with zero, so one that delivers nothing ends the wait.
TEST(ResetL0, StatusIsTakenAsDeliveredElseAsReady) {
  const ToolResult Result =
      RunReset(MENU_L0, std::string("read 0x40022018 1 0\nfail-later 0x40022018 1 -1 1\n"
                                    "read-fails 0x40022018 -1\n") +
                            GoodL0);
  const std::string Sr = "<Read(0x40022018, 1)>";
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x1FF80000, 0x00000000)>" + Sr + Sr + Sr +
                                   "<WriteU32(0x1FF80000, 0xFF5500AA)>" + Sr +
                                   "<WriteU32(0x40022004, 0x00040000)><Reset()>"));
}

static std::string AttemptL1() {
  return FreezeWatchdogs + std::string(Reset) + StageOne(L1) + Unlock(L1) +
         Write(L1.Sr, "0x00000F00") + Option(L1, "0x1FF80004", "0x00000000") +
         Option(L1, "0x1FF80008", "0x00000000") + Option(L1, "0x1FF8000C", "0x00000000") +
         Option(L1, "0x1FF80004", "0xFF870078") + Option(L1, "0x1FF80008", "0xFFFF0000") +
         Option(L1, "0x1FF8000C", "0xFFFF0000") + Reload(L1) + Unlock(L1) + "<Read(0x1FF80000, 4)>";
}

TEST(ResetL1, GoodReadBackLocksPecrWithSeven) {
  ExpectReset(
      MENU_L1,
      std::string(ReadyL1) + "block 0x1FF80000 0xFF5500AA 0xFF870078 0xFFFF0000 0xFFFF0000\n",
      AttemptL1() + Write(L1.Pecr, "0x00000007") + "O.K.\n", 0);
}

TEST(ResetL1, AnyOtherReadBackDoesNotWritePecrAndEndsWithStatusZero) {
  const char* const Good[4] = {"0xFF5500AA", "0xFF870078", "0xFFFF0000", "0xFFFF0000"};
  for (int i = 0; i < 4; i++) {
    std::string Block = "block 0x1FF80000";
    for (int k = 0; k < 4; k++) {
      Block += std::string(" ") + (k == i ? "0xFF0700F8" : Good[k]);
    }
    ExpectReset(MENU_L1, std::string(ReadyL1) + Block + "\n",
                AttemptL1() + "Resetting option bytes failed.\n", 0);
  }
}
