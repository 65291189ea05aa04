// SPDX-License-Identifier: MIT

// STM32H7. tests/app checks the time-out of 20 s in simulated time; here the tool really waits
// once, under script/test --slow.

#include <stdlib.h>

#include "tests/tool/reset_transcript.h"

enum { MENU_H7 = 9 };

static const char Begin[] =
    "<WriteU32(0xE0042008, 0x00001800)>"
    "Reset target...<SetResetType(0)><SetResetDelay(0)><Reset()>O.K.\n"
    "Reset option bytes to factory settings...\n";

// Replaces the "b" in each address: the addresses of the two banks differ in that digit.
static std::string ForBank(int Bank, const char* sText) {
  std::string Text = sText;
  for (size_t At; (At = Text.find("52002b")) != std::string::npos;) {
    Text.replace(At, 6, Bank == 1 ? "520020" : "520021");
  }
  return Text;
}

static std::string PassOne(int Bank) {
  return ForBank(Bank,
                 "<Read(0x52002b18, 1)>"
                 "<WriteU32(0x52002b08, 0x08192A3B)><WriteU32(0x52002b08, 0x4C5D6E7F)>"
                 "<Read(0x52002b1C, 1)><WriteU32(0x52002b20, 0x25DBAA2A)>"
                 "<Read(0x52002b38, 1)><WriteU32(0x52002b3C, 0x000000FF)>"
                 "<Read(0x52002b18, 1)><WriteU32(0x52002b18, 0x00000002)>"
                 "<Read(0x52002b1C, 1)>"
                 "<WriteU32(0x52002b18, 0x00000003)>");
}

static std::string PassTwo(int Bank) {
  return ForBank(Bank,
                 "<Read(0x52002b18, 1)>"
                 "<WriteU32(0x52002b08, 0x08192A3B)><WriteU32(0x52002b08, 0x4C5D6E7F)>"
                 "<WriteU32(0x52002b20, 0x1416AAF0)><WriteU32(0x52002b2C, 0x000000FF)>"
                 "<WriteU32(0x52002b34, 0x800000FF)><WriteU32(0x52002b3C, 0x000000FF)>"
                 "<WriteU32(0x52002b44, 0x1FF00800)>"
                 "<Read(0x52002b18, 1)><WriteU32(0x52002b18, 0x00000002)>"
                 "<Read(0x52002b1C, 1)>");
}

static const char Done[] = "Option bytes reset to factory settings.\n<Reset()>";

static std::string Verify(int Bank) {
  return ForBank(Bank,
                 "<Read(0x52002b1C, 1)><Read(0x52002b28, 1)><Read(0x52002b30, 1)>"
                 "<Read(0x52002b38, 1)><Read(0x52002b40, 1)>");
}

// The script for a bank that is locked, unlocks, was write-protected and then reads back as given.
static std::string Bank(int Number, const std::string& Scar = "0x800000FF",
                        const std::string& Boot = "0x1FF00800") {
  return ForBank(Number, ("read 0x52002b18 1 0 1 0\n"
                          "read 0x52002b1C 0x25DB552A 0x25DB552A 0x1416AAF0\n"
                          "read 0x52002b38 0x000000F0 0x000000FF\n"
                          "read 0x52002b28 0x000000FF\n"
                          "read 0x52002b30 " +
                          Scar + "\nread 0x52002b40 " + Boot + "\n")
                             .c_str());
}

TEST(ResetH7, TwoPassesOverBothBanksAndTenReadBacks) {
  ExpectReset(MENU_H7, Bank(1) + Bank(2),
              Begin + PassOne(1) + PassOne(2) + PassTwo(1) + PassTwo(2) + Done + Verify(1) +
                  Verify(2) + "O.K.\n",
              0);
}

TEST(ResetH7, BankTwoScarWithoutDmesFailsEvenIfBankOneMatches) {
  ExpectReset(MENU_H7, Bank(1) + Bank(2, "0x000000FF"),
              Begin + PassOne(1) + PassOne(2) + PassTwo(1) + PassTwo(2) + Done + Verify(1) +
                  "<Read(0x5200211C, 1)><Read(0x52002128, 1)><Read(0x52002130, 1)>"
                  "Resetting option bytes failed.\n",
              255);
}

TEST(ResetH7, EachOfTheTenReadBacksCounts) {
  static const struct {
    const char* sOffset;
    const char* sFactory;
  } Registers[5] = {{"1C", "0x1416AAF0"},
                    {"28", "0x000000FF"},
                    {"30", "0x800000FF"},
                    {"38", "0x000000FF"},
                    {"40", "0x1FF00800"}};
  for (int Wrong = 0; Wrong < 10; Wrong++) {
    std::string Script = "read 0x52002018 0\nread 0x52002118 0\n";
    for (int i = 0; i < 10; i++) {
      const auto& Register = Registers[i % 5];
      Script += std::string("read 0x52002") + (i < 5 ? "0" : "1") + Register.sOffset + " ";
      // The status is read three times before, the write protection once.
      Script += i % 5 == 0 ? "0x1416AAF0*3 " : i % 5 == 3 ? "0xFF " : "";
      Script += std::string(i == Wrong ? "0x00010000" : Register.sFactory) + "\n";
    }
    const ToolResult Result = RunReset(MENU_H7, Script);
    EXPECT_NE(std::string::npos, Result.Output.find("Resetting option bytes failed.\n")) << Wrong;
    EXPECT_EQ(255, Result.Status) << Wrong;
  }
}

TEST(ResetH7, WriteProtectionKeepsItsUpperBits) {
  const ToolResult Result =
      RunReset(MENU_H7,
               "read 0x52002018 0\nread 0x52002118 0\nread 0x5200201C 0\nread 0x5200211C 0\n"
               "read 0x52002038 0xABCD0012\nread 0x52002138 0\n");
  EXPECT_NE(std::string::npos, Result.Transcript.find("<WriteU32(0x5200203C, 0xABCD00FF)>"));
}

TEST(ResetH7, FirstDifferenceEndsTheReadBack) {
  const ToolResult Result = RunReset(MENU_H7, Bank(1, "0x800000FF", "0x1FF00801") + Bank(2));
  EXPECT_NE(std::string::npos,
            Result.Transcript.find(Done + Verify(1) + "Resetting option bytes failed.\n"));
  EXPECT_EQ(255, Result.Status);
}

TEST(ResetH7, KeysAreNotWrittenToAnUnlockedBank) {
  const ToolResult Result =
      RunReset(MENU_H7,
               "read 0x52002018 0\nread 0x52002118 1\n"
               "read 0x5200201C 0x1416AAF0\nread 0x5200211C 0x1416AAF0\n"
               "read 0x52002028 0xFF\nread 0x52002128 0xFF\nread 0x52002030 0x800000FF\n"
               "read 0x52002130 0x800000FF\nread 0x52002038 0xFF\nread 0x52002138 0xFF\n"
               "read 0x52002040 0x1FF00800\nread 0x52002140 0x1FF00800\n");
  EXPECT_EQ(std::string::npos, Result.Transcript.find("WriteU32(0x52002008"));
  EXPECT_NE(std::string::npos, Result.Transcript.find("WriteU32(0x52002108"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetH7, LockIsSetWithTheControlValueReadBeforeTheStart) {
  // The upper bits of FLASH_OPTCR are kept; the value that the wait reads is not used.
  const ToolResult Result =
      RunReset(MENU_H7,
               "read 0x52002018 0x40000000\nread 0x52002118 0x40000000\n"
               "read 0x5200201C 0x1416AAF0\nread 0x5200211C 0x1416AAF0\n"
               "read 0x52002028 0xFF\nread 0x52002128 0xFF\nread 0x52002030 0x800000FF\n"
               "read 0x52002130 0x800000FF\nread 0x52002038 0xFF\nread 0x52002138 0xFF\n"
               "read 0x52002040 0x1FF00800\nread 0x52002140 0x1FF00800\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x52002018, 0x40000002)><Read(0x5200201C, 1)>"
                                   "<WriteU32(0x52002018, 0x40000003)>"));
  // The second pass does not lock.
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x52002018, 0x40000002)><Read(0x5200201C, 1)>"
                                   "<Read(0x52002118, 1)><WriteU32(0x52002120"));
}

TEST(ResetH7, BusyBankIsPolledAgain) {
  const ToolResult Result =
      RunReset(MENU_H7,
               "read 0x52002018 0\nread 0x52002118 0\n"
               "read 0x5200201C 0x1416AAF0 0x1416AAF1*2 0x1416AAF0\nread 0x5200211C 0x1416AAF0\n"
               "read 0x52002028 0xFF\nread 0x52002128 0xFF\nread 0x52002030 0x800000FF\n"
               "read 0x52002130 0x800000FF\nread 0x52002038 0xFF\nread 0x52002138 0xFF\n"
               "read 0x52002040 0x1FF00800\nread 0x52002140 0x1FF00800\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find(
                "<WriteU32(0x52002018, 0x00000002)><Read(0x5200201C, 1)><Read(0x5200201C, 1)>"
                "<Read(0x5200201C, 1)><WriteU32(0x52002018, 0x00000003)>"));
  EXPECT_EQ(0, Result.Status);
}

// Each read of the status begins with zero, so one that delivers nothing ends the wait.
TEST(ResetH7, StatusThatIsNotDeliveredCountsAsReady) {
  const ToolResult Result =
      RunReset(MENU_H7,
               "read 0x52002018 0\nread 0x52002118 0\n"
               "read 0x5200201C 0x1416AAF0 0x1416AAF1 0x1416AAF0\nfail-later 0x5200201C 2 -1\n"
               "read 0x5200211C 0x1416AAF0\n"
               "read 0x52002028 0xFF\nread 0x52002128 0xFF\nread 0x52002030 0x800000FF\n"
               "read 0x52002130 0x800000FF\nread 0x52002038 0xFF\nread 0x52002138 0xFF\n"
               "read 0x52002040 0x1FF00800\nread 0x52002140 0x1FF00800\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x52002018, 0x00000002)><Read(0x5200201C, 1)>"
                                   "<Read(0x5200201C, 1)><WriteU32(0x52002018, 0x00000003)>"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetH7, WordsAreTakenAsDeliveredWhateverTheResult) {
  // The first read of each register of bank 1 fails and delivers; later ones succeed.
  ExpectReset(MENU_H7,
              "read-fails 0x52002018 -1 1\nread 0x52002018 0 1 0\n"
              "read-fails 0x5200201C -1 0x25DB552A\nread 0x5200201C 0x25DB552A 0x1416AAF0\n"
              "read-fails 0x52002038 -1 0x000000F0\nread 0x52002038 0x000000FF\n"
              "read-fails 0x52002028 -1 0x000000FF\nread-fails 0x52002030 -1 0x800000FF\n"
              "read-fails 0x52002040 -1 0x1FF00800\n" +
                  Bank(2),
              Begin + PassOne(1) + PassOne(2) + PassTwo(1) + PassTwo(2) + Done + Verify(1) +
                  Verify(2) + "O.K.\n",
              0);
}

TEST(ResetH7, BusyForTwentySecondsEndsWithoutAMessageOrAReset) {
  if (getenv("QUOBE_SLOW_TESTS") == nullptr) {
    GTEST_SKIP() << "waits 20 s; runs under script/test --slow";
  }
  ToolRun Run;
  Run.Args        = {"-SetDeviceFamily", "9", "-Exit", "1"};
  Run.Script      = "read 0x52002018 0\nread 0x52002038 0xFF\nread 0x5200201C 0x1416AAF1\n";
  Run.TimeLimitMs = 60000;
  const ToolResult  Result = RunTool(Run);
  const std::string End    = "<Read(0x5200201C, 1)><IsOpen()><Close()>";
  EXPECT_EQ(End, Result.Transcript.substr(Result.Transcript.size() - End.size()));
  EXPECT_EQ("Reset option bytes to factory settings...\n",
            Result.Output.substr(Result.Output.size() - 42));
  EXPECT_EQ(255, Result.Status);
  EXPECT_GE(Result.ElapsedMs, 20000);
}
