// SPDX-License-Identifier: MIT

// STM32F0, F1 and F3. Addresses and values are those of the reference manuals.

#include "tests/tool/reset_transcript.h"

enum { MENU_F0 = 1, MENU_F1 = 2, MENU_F3 = 4 };

static const char HsiReady[]  = "read 0x40021000 0x00000083\n";
static const char ReadyOnce[] = "read 0x4002200C 0\n";

static const char Reset[] =
    "Reset target...<SetResetType(0)><SetResetDelay(0)><Reset()>O.K.\n"
    "Reset option bytes to factory settings...";
static const char UnlockAndErase[] =
    "<WriteU32(0x40022004, 0x45670123)><WriteU32(0x40022004, 0xCDEF89AB)>"
    "<WriteU32(0x40022008, 0x45670123)><WriteU32(0x40022008, 0xCDEF89AB)>"
    "<WriteU32(0x40022010, 0x00000220)><WriteU32(0x40022010, 0x00000260)>"
    "<Read(0x4002200C, 1)>"
    "<WriteU32(0x40022010, 0x00000200)><WriteU32(0x40022010, 0x00000210)>";
static const char Verify[] = "<Reset()><Read(0x1FFFF800, 4)>";

TEST(ResetF1, WritesRdpA5AndVerifiesTheBlock) {
  ExpectReset(MENU_F1,
              std::string(HsiReady) + ReadyOnce +
                  "block 0x1FFFF800 0xFFFF5AA5 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n",
              std::string("<WriteU32(0xE0042004, 0x00000300)>") + Reset + "<Read(0x40021000, 1)>" +
                  UnlockAndErase + "<WriteU16(0x1FFFF800, 0x00A5)><Read(0x4002200C, 1)>" + Verify +
                  "O.K.\n",
              0);
}

TEST(ResetF0, WritesRdpAAAndIsNotReloaded) {
  ExpectReset(MENU_F0,
              std::string(HsiReady) + ReadyOnce +
                  "block 0x1FFFF800 0xFFFF55AA 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n",
              std::string("<WriteU32(0x40015808, 0x00001800)>") + Reset + "<Read(0x40021000, 1)>" +
                  UnlockAndErase + "<WriteU16(0x1FFFF800, 0x00AA)><Read(0x4002200C, 1)>" + Verify +
                  "O.K.\n",
              0);
}

TEST(ResetF0, IsNotVerifiedAgainstTheF1Pattern) {
  const ToolResult Result =
      RunReset(MENU_F0, std::string(HsiReady) + ReadyOnce +
                            "block 0x1FFFF800 0xFFFF5AA5 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n");
  EXPECT_NE(std::string::npos, Result.Output.find("Resetting option bytes failed.\n"));
  EXPECT_EQ(255, Result.Status);
}

TEST(ResetF3, ReloadsTheOptionBytesBeforeTheReset) {
  ExpectReset(MENU_F3,
              std::string(HsiReady) + ReadyOnce +
                  "block 0x1FFFF800 0xFFFF55AA 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n",
              std::string("<WriteU32(0xE0042008, 0x00001800)>") + Reset + "<Read(0x40021000, 1)>" +
                  UnlockAndErase +
                  "<WriteU16(0x1FFFF800, 0x00AA)><Read(0x4002200C, 1)>"
                  "<WriteU32(0x40022010, 0x00002000)><Read(0x4002200C, 1)>" +
                  Verify + "O.K.\n",
              0);
}

TEST(ResetF1, AnyDifferingByteFailsTheVerification) {
  for (int Byte = 0; Byte < 16; Byte++) {
    uint32_t aWords[4] = {0xFFFF5AA5, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    aWords[Byte / 4] &= ~(0xFFu << (Byte % 4 * 8));  // a byte of 0x00
    const ToolResult Result =
        RunReset(MENU_F1, std::string(HsiReady) + ReadyOnce + "block 0x1FFFF800 " +
                              std::to_string(aWords[0]) + " " + std::to_string(aWords[1]) + " " +
                              std::to_string(aWords[2]) + " " + std::to_string(aWords[3]) + "\n");
    EXPECT_NE(std::string::npos,
              Result.Transcript.find("<Read(0x1FFFF800, 4)>Resetting option bytes failed.\n"))
        << Byte;
    EXPECT_EQ(255, Result.Status) << Byte;
  }
}

TEST(ResetF1, HsiThatIsOffIsStartedWithItsTrimAndWaitedFor) {
  const ToolResult Result = RunReset(
      MENU_F1, std::string("read 0x40021000 0x01000000 0x01000081 0x01000081 0x01000083\n") +
                   ReadyOnce + "block 0x1FFFF800 0xFFFF5AA5 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("...<Read(0x40021000, 1)><WriteU32(0x40021000, 0x01000081)>"
                                   "<Read(0x40021000, 1)><Read(0x40021000, 1)><Read(0x40021000, 1)>"
                                   "<WriteU32(0x40022004, 0x45670123)>"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF1, HsiThatIsOnButNotReadyIsStartedToo) {
  const ToolResult Result =
      RunReset(MENU_F1, std::string("read 0x40021000 0x00000001 0x00000083\n") + ReadyOnce +
                            "block 0x1FFFF800 0xFFFF5AA5 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n");
  EXPECT_NE(std::string::npos, Result.Transcript.find("<WriteU32(0x40021000, 0x00000081)>"));
}

TEST(ResetF3, EachStepWaitsForBusyToClear) {
  const ToolResult Result =
      RunReset(MENU_F3, std::string(HsiReady) + "read 0x4002200C 1*3 0x20 1*2 0x20 1 0\n" +
                            "block 0x1FFFF800 0xFFFF55AA 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF\n");
  const std::string Sr = "<Read(0x4002200C, 1)>";
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x40022010, 0x00000260)>" + Sr + Sr + Sr + Sr +
                                   "<WriteU32(0x40022010, 0x00000200)>"));
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU16(0x1FFFF800, 0x00AA)>" + Sr + Sr + Sr +
                                   "<WriteU32(0x40022010, 0x00002000)>" + Sr + Sr + "<Reset()>"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF1, BlockIsTakenAsDeliveredWhateverTheResult) {
  const ToolResult Result =
      RunReset(MENU_F1, std::string(HsiReady) + ReadyOnce +
                            "read-fails 0x1FFFF800 -1 0xFFFF5AA5 0xFFFFFFFF*3\n");
  EXPECT_NE(std::string::npos, Result.Transcript.find("<Read(0x1FFFF800, 4)>O.K.\n"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF1, FailedReadsOfTheClockControlAreUsedAsDelivered) {
  const ToolResult Result = RunReset(
      MENU_F1, std::string("read-fails 0x40021000 -1 0x01000000\nread-fails 0x40021000 -1 1\n"
                           "read-fails 0x40021000 -1\nread-fails 0x40021000 -1 3\n") +
                   ReadyOnce + "block 0x1FFFF800 0xFFFF5AA5 0xFFFFFFFF*3\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("...<Read(0x40021000, 1)><WriteU32(0x40021000, 0x01000081)>"
                                   "<Read(0x40021000, 1)><Read(0x40021000, 1)><Read(0x40021000, 1)>"
                                   "<WriteU32(0x40022004, 0x45670123)>"));
  EXPECT_EQ(0, Result.Status);
}

// Each read of the status begins with zero, so one that delivers nothing ends the wait.
TEST(ResetF1, StatusThatIsNotDeliveredCountsAsReady) {
  const ToolResult Result =
      RunReset(MENU_F1, std::string(HsiReady) +
                            "read 0x4002200C 1 0\nfail-later 0x4002200C 1 -1\n"
                            "block 0x1FFFF800 0xFFFF5AA5 0xFFFFFFFF*3\n");
  EXPECT_NE(std::string::npos, Result.Transcript.find("<WriteU32(0x40022010, 0x00000260)>"
                                                      "<Read(0x4002200C, 1)><Read(0x4002200C, 1)>"
                                                      "<WriteU32(0x40022010, 0x00000200)>"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF1, BlockThatIsNotDeliveredIsAFailedVerification) {
  const ToolResult Result =
      RunReset(MENU_F1, std::string(HsiReady) + ReadyOnce + "read-fails 0x1FFFF800 -1\n");
  EXPECT_NE(std::string::npos, Result.Output.find("Resetting option bytes failed.\n"));
  EXPECT_EQ(255, Result.Status);
}
