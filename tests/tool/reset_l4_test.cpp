// SPDX-License-Identifier: MIT

// STM32L4x6.

#include "tests/tool/reset_transcript.h"

enum { MENU_L4 = 12 };

static const char Ready[] = "read 0x40022010 0\nread 0x40022014 0xC0000000\n";

static const char Begin[] =
    "<WriteU32(0xE0042008, 0x00001800)>"
    "Reset target...<SetResetDelay(0)><Reset()>O.K.\n"
    "Reset option bytes to factory settings...\n"
    "Resetting FLASH_OPTR...\n"
    "<Read(0x40022020, 1)>";
static const char Unlock[] =
    "<WriteU32(0x40022008, 0x45670123)><WriteU32(0x40022008, 0xCDEF89AB)>"
    "<WriteU32(0x4002200C, 0x08192A3B)><WriteU32(0x4002200C, 0x4C5D6E7F)>"
    "<WriteU32(0x40022010, 0x0000C1FB)>";
static const char Launch[] =
    "<Read(0x40022014, 1)><WriteU32(0x40022014, 0xC0020000)>"
    "<Read(0x40022010, 1)>"
    "<Read(0x40022014, 1)><WriteU32(0x40022014, 0xC8000000)>"
    "Reset target...<Reset()>O.K.\n";
static const char Areas[] =
    "Resetting Write protection (WRP) and PCROP..."
    "<WriteU32(0x40022008, 0x45670123)><WriteU32(0x40022008, 0xCDEF89AB)>"
    "<WriteU32(0x4002200C, 0x08192A3B)><WriteU32(0x4002200C, 0x4C5D6E7F)>"
    "<WriteU32(0x40022010, 0x0000C1FB)>"
    "<WriteU32(0x40022024, 0xFFFFFFFF)><WriteU32(0x40022028, 0x00000000)>"
    "<WriteU32(0x40022044, 0xFFFFFFFF)><WriteU32(0x40022048, 0x00000000)>"
    "<WriteU32(0x4002202C, 0x000000FF)><WriteU32(0x40022030, 0x000000FF)>"
    "<WriteU32(0x4002204C, 0x000000FF)><WriteU32(0x40022050, 0x000000FF)>"
    "O.K.\n";
static const char Done[] = "Option bytes reset to factory settings.\n";

static std::string FactoryOptr() {
  return std::string(Unlock) + "<WriteU32(0x40022020, 0xFFEFF8AA)>" + Launch +
         "<Read(0x40022020, 1)>";
}

TEST(ResetL4, LevelZeroGoesThroughLevelOneAndResetsFourTimes) {
  ExpectReset(MENU_L4, std::string(Ready) + "read 0x40022020 0xFFEFF8AA\n",
              std::string(Begin) + Unlock + "<WriteU32(0x40022020, 0xFFEFF800)>" + Launch +
                  FactoryOptr() + Areas + Launch + Done,
              0);
}

TEST(ResetL4, LowByte55IsProgrammedStraightToFactory) {
  ExpectReset(MENU_L4, std::string(Ready) + "read 0x40022020 0xFFEFF855 0xFFEFF8AA\n",
              std::string(Begin) + FactoryOptr() + Areas + Launch + Done, 0);
}

TEST(ResetL4, ReadBackThatDiffersEndsTheRunBeforeTheProtectionAreas) {
  ExpectReset(MENU_L4, std::string(Ready) + "read 0x40022020 0xFFEFF800 0xFFEFF8AB\n",
              std::string(Begin) + FactoryOptr() + "Could not reset OPTR...\n", 255);
}

TEST(ResetL4, EachOfTheTestedBitsLeadsThroughLevelOne) {
  for (const char* sRdp : {"0xFFEFF802", "0xFFEFF808", "0xFFEFF820", "0xFFEFF880"}) {
    const ToolResult Result =
        RunReset(MENU_L4, std::string(Ready) + "read 0x40022020 " + sRdp + " 0xFFEFF8AA\n");
    EXPECT_NE(std::string::npos, Result.Transcript.find("<WriteU32(0x40022020, 0xFFEFF800)>"))
        << sRdp;
  }
}

TEST(ResetL4, WholeProtectionByteIsClearedOnTheWay) {
  for (const char* sOptr : {"0xFFEFF8CC", "0xFFEFF8FF"}) {
    const ToolResult Result =
        RunReset(MENU_L4, std::string(Ready) + "read 0x40022020 " + sOptr + " 0xFFEFF8AA\n");
    EXPECT_NE(std::string::npos, Result.Transcript.find("<WriteU32(0x40022020, 0xFFEFF800)>"))
        << sOptr;
  }
}

TEST(ResetL4, AllBitsOfTheReadBackAreCompared) {
  for (const char* sOptr : {"0x7FEFF8AA", "0xFFEEF8AA", "0xFFEF78AA"}) {
    const ToolResult Result =
        RunReset(MENU_L4, std::string(Ready) + "read 0x40022020 0xFFEFF800 " + sOptr + "\n");
    EXPECT_NE(std::string::npos, Result.Output.find("Could not reset OPTR...\n")) << sOptr;
    EXPECT_EQ(255, Result.Status);
  }
}

TEST(ResetL4, BusyIsPolledUntilItClears) {
  const ToolResult Result =
      RunReset(MENU_L4,
               "read 0x40022010 0x10000*5 0x8000 0\nread 0x40022014 0xC0000000\n"
               "read 0x40022020 0xFFEFF800 0xFFEFF8AA\n");
  std::string Polls;
  for (int i = 0; i < 6; i++) {
    Polls += "<Read(0x40022010, 1)>";
  }
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x40022014, 0xC0020000)>" + Polls +
                                   "<Read(0x40022014, 1)><WriteU32(0x40022014, 0xC8000000)>"));
}

TEST(ResetL4, WordsAreTakenAsDeliveredWhateverTheResult) {
  ExpectReset(MENU_L4,
              "read 0x40022010 0\nread-fails 0x40022014 -1 0xC0000000\n"
              "read 0x40022014 0xC0000000\n"
              "read-fails 0x40022020 -1 0xFFEFF8AA\nread-fails 0x40022020 -1 0xFFEFF8AA\n",
              std::string(Begin) + Unlock + "<WriteU32(0x40022020, 0xFFEFF800)>" + Launch +
                  FactoryOptr() + Areas + Launch + Done,
              0);
}

TEST(ResetL4, StatusThatIsNotDeliveredCountsAsReady) {
  const ToolResult Result =
      RunReset(MENU_L4,
               "read 0x40022010 0x10000 0\nfail-later 0x40022010 1 -1\n"
               "read 0x40022014 0xC0000000\nread 0x40022020 0xFFEFF800 0xFFEFF8AA\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x40022014, 0xC0020000)><Read(0x40022010, 1)>"
                                   "<Read(0x40022010, 1)><Read(0x40022014, 1)>"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetL4, FirstWordThatIsNotDeliveredGoesStraightToFactory) {
  const ToolResult Result = RunReset(
      MENU_L4, std::string(Ready) + "read-fails 0x40022020 -1\nread 0x40022020 0xFFEFF8AA\n");
  EXPECT_EQ(0u, ResetPart(Result).find(std::string(Begin) + FactoryOptr()));
  EXPECT_EQ(0, Result.Status);
}
