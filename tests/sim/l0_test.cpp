// SPDX-License-Identifier: MIT

// L0 and L1: a row for each rule of the hardware. Addresses and keys as in the manuals.

#include "sim/catalog.h"
#include "sim/text.h"
#include "tests/sim/steps.h"

static const STEPS_WORDS Words = {
    {"unlock", "PEKEYR=89ABCDEF PEKEYR=02030405 OPTKEYR=FBEAD9C8 OPTKEYR=24252627"},
    {"unlock-program", "PRGKEYR=8C9DAEBF PRGKEYR=13141516"},
    {"launch", "PECR=40000"},
    {"rdp", "OPTION_RDP=$ finish"},
    {"unprotect", "unlock rdp:FF5500AA"},
    {"flags", "SR?$/33F00"},
};

#define ALL_L0   "L011 L031 L053 L073 "
#define ALL_L1   "L100 L100xBA L151 L151xCA L151xD L152 L152xC L152xE "
#define ALL      ALL_L0 ALL_L1
#define PCROP_L0 "L031 L053 L073 "  // with at least 8 sectors
#define PCROP_L1 "L152 L152xC "
#define PCROP    PCROP_L0 PCROP_L1

// -- What a manual prints ------------------------------------------------------------------------

static const STEPS_CASE aPrinted[] = {
    {"RegistersOfL0", ALL_L0, "empty",
     "register:ACR=0/7B register:PECR=7/0 register:SR=4/0 register:OPTR=807000AA/0 "
     "register:WRPROT1=0/0 register:WRPROT2=0/0 register:RCC_APB2ENR=0/4052A5 RCC_APB2ENR=400000 "
     "register:DBGMCU_CR=0/7 register:DBGMCU_APB1_FZ=0/80601C11"},
    {"RegistersOfL1", ALL_L1, "empty",
     "register:ACR=0/1F register:PECR=7/0 register:SR=C/0 register:WRPR1=0/0 register:WRPR2=0/0 "
     "register:WRPR3=0/0 register:WRPR4=0/0 register:DBGMCU_CR=0/E7 "
     "register:DBGMCU_APB1_FZ=0/601C3F"},
    {"UserOptionsOfL1", "L100 L100xBA L151 L151xCA L152 L152xC", "", "register:OBR=7800AA/0"},
    {"UserOptionsOfL1WithTwoBanks", "L151xD L152xE", "", "register:OBR=F800AA/0"},
    {"KeyRegistersReadZero", ALL, "",
     "unlock PDKEYR?0 PEKEYR?0 PRGKEYR?0 OPTKEYR?0 PDKEYR=12345678 PDKEYR?0"},
    {"AnOpenControlRegisterOfL0TakesItsBitsOnly", "L053 L073", "",
     "unlock unlock-program PECR=FFFBFFF8 PECR?438718 PECR=0 PECR?0"},
    {"CategoriesOneAndTwoOfL0HaveHalfArray", "L011 L031", "",
     "unlock unlock-program PECR=FFFBFFF8 PECR?4B8718"},
    {"AnOpenControlRegisterOfL1TakesItsBitsOnly", ALL_L1, "",
     "unlock unlock-program PECR=FFFBFFF8 PECR?38718 PECR=0 PECR?0"},
    {"FactoryWords", ALL, "", "@1FF80000?FF5500AA @1FF80008?FFFF0000 @1FF7FFFC?! error?none"},
    {"FactoryWordsOfL0", ALL_L0, "", "@1FF80004?7F8F8070 @1FF80020?!"},
    {"FactoryWordsOfL0WithThreeWordsOfSectors", "L073", "",
     "@1FF8000C?FFFF0000 @1FF80010?FFFF0000"},
    {"FactoryWordsOfL1", "L100 L100xBA L151 L152 L152xC", "", "@1FF80004?FF870078"},
    {"FactoryWordsOfL1WithTwoBanks", "L151xD L152xE", "", "@1FF80004?FF0700F8"},
    {"FourWordsOnCategoriesOneAndTwo", "L100 L100xBA L151 L152", "",
     "@1FF8000C?FFFF0000 @1FF80010?!"},
    {"SixWordsOnCategoryThree", "L152xC", "",
     "@1FF8000C?FFFF0000 @1FF80010?FFFF0000 @1FF80014?FFFF0000 @1FF80018?!"},
    {"EightWordsOnCategoryFour", "L151xD", "",
     "@1FF80014?FFFF0000 @1FF80018?FFFF0000 @1FF8001C?FFFF0000 @1FF80020?! @1FF80080?!"},
    {"TenWordsOnCategoryFive", "L152xE", "",
     "@1FF8001C?FFFF0000 @1FF80020?! @1FF8007C?! @1FF80080?FFFF0000 @1FF80084?FFFF0000 "
     "@1FF80088?!"},
    {"SizesL011", "L011", "",
     "memory:8000000=4000 memory:8080000=200 memory:20000000=800 @1FF8007C.2?10"},
    {"SizesL031", "L031", "", "memory:8000000=8000 memory:8080000=400 memory:20000000=2000"},
    {"SizesL053", "L053", "", "memory:8000000=10000 memory:8080000=800 memory:20000000=2000"},
    {"SizesL073", "L073", "",
     "memory:8000000=30000 memory:8080000=1800 memory:20000000=5000 @1FF8007C.2?C0"},
    {"SizesL100", "L100", "",
     "memory:8000000=20000 memory:8080000=800 memory:20000000=2800 @1FF8004C.2?80"},
    {"SizesL100xBA", "L100xBA", "", "memory:8000000=20000 memory:8080000=800 memory:20000000=4000"},
    {"SizesL151", "L151", "", "memory:8000000=20000 memory:8080000=1000 memory:20000000=4000"},
    {"SizesL152", "L152", "", "memory:8000000=20000 memory:8080000=1000 memory:20000000=4000"},
    {"SizesL152xC", "L152xC", "",
     "memory:8000000=40000 memory:8080000=2000 memory:20000000=8000 @1FF800CC.2?100"},
    // The size registers of these hold a code.
    {"SizesL151xCA", "L151xCA", "",
     "memory:8000000=40000 memory:8080000=2000 memory:20000000=8000 @1FF800CC.2?1"},
    {"SizesL151xD", "L151xD", "",
     "memory:8000000=60000 memory:8080000=3000 memory:20000000=C000 @1FF800CC.2?0"},
    // EEPROM begins where flash ends.
    {"SizesL152xE", "L152xE", "",
     "@7FFFFFC?! @8000000?ok @8083FFC?ok @8084000?! memory:20000000=14000 @1FF800CC.2?200"},
};
PLAY_CASES(SimL0Printed, aPrinted, Words);

TEST(SimL0, EachDeviceHasItsIdentityAndKeepsItOverAReset) {
  const struct {
    const char* sName;
    uint32_t    DevId, IdCode;
  } aRows[] = {
      {"L011", 0x457, 0x40015800}, {"L031", 0x425, 0x40015800},    {"L053", 0x417, 0x40015800},
      {"L073", 0x447, 0x40015800}, {"L100", 0x416, 0xE0042000},    {"L100xBA", 0x429, 0xE0042000},
      {"L151", 0x416, 0xE0042000}, {"L151xCA", 0x436, 0xE0042000}, {"L151xD", 0x436, 0xE0042000},
      {"L152", 0x429, 0xE0042000}, {"L152xC", 0x427, 0xE0042000},  {"L152xE", 0x437, 0xE0042000}};
  for (const auto& [sName, DevId, IdCode] : aRows) {
    const std::string sSteps =
        sim::Format("@%X?%X/FFF reset @%X?%X/FFF", IdCode, DevId, IdCode, DevId);
    PlayCase({"", sName, "", sSteps.c_str()}, {});
  }
  EXPECT_EQ(std::size(aRows), sim::DevicesL0.size());
}

// -- Locks ---------------------------------------------------------------------------------------

static const STEPS_CASE aLocks[] = {
    {"KeysOpenPelockThenTheOthers", ALL, "",
     "OPTKEYR=FBEAD9C8 OPTKEYR=24252627 PRGKEYR=8C9DAEBF PRGKEYR=13141516 PECR?7 PEKEYR=89ABCDEF "
     "PECR?7 PEKEYR=02030405 PECR?6 OPTKEYR=FBEAD9C8 PECR?6 OPTKEYR=24252627 PECR?2 "
     "PRGKEYR=8C9DAEBF PECR?2 PRGKEYR=13141516 PECR?0"},
    {"AWrongKeyIsABusErrorAndLocksUntilReset", ALL, "",
     "PEKEYR=02030405! PEKEYR=89ABCDEF! PEKEYR=02030405! PECR?7 reset unlock PECR?2"},
    {"EachLockDiesByItself", ALL, "",
     "PEKEYR=89ABCDEF PEKEYR=02030405 OPTKEYR=FBEAD9C8 OPTKEYR=FBEAD9C8! OPTKEYR=24252627! "
     "PRGKEYR=13141516! PRGKEYR=8C9DAEBF! PECR?6 reset unlock unlock-program PECR?0"},
    {"AThirdKeyToPekeyrClosesAllUntilReset", ALL, "",
     "unlock unlock-program PEKEYR=89ABCDEF! PECR?7 PEKEYR=89ABCDEF! PEKEYR=02030405! "
     "OPTKEYR=FBEAD9C8 PECR?7 reset unlock PECR?2"},
    {"AThirdKeyToOptkeyrClosesOptlockUntilReset", ALL, "",
     "unlock OPTKEYR=FBEAD9C8! PECR?6 OPTKEYR=FBEAD9C8! OPTKEYR=24252627! PECR?6 OPTION_USER=0 "
     "flags:100 reset unlock PECR?2"},
    {"AThirdKeyToPrgkeyrClosesPrglockUntilReset", ALL, "",
     "unlock unlock-program PRGKEYR=8C9DAEBF! PECR?2 PRGKEYR=8C9DAEBF! reset unlock "
     "unlock-program PECR?0"},
    {"EveryResetClosesTheLocks", ALL, "",
     "unlock unlock-program reset PECR?7 unlock unlock-program PECR?0 power PECR?7 unlock "
     "unlock-program PECR?0"},
    {"LockBitsAreSetBySoftwareAndNotCleared", ALL, "",
     "unlock PECR=0 PECR?2 PECR=7 PECR?7 PECR=18 PECR?7 unlock PECR?2 unlock-program PECR=4 "
     "PECR?4 OPTKEYR=FBEAD9C8 PECR?4 OPTKEYR=24252627 PECR=2 PECR?2 unlock-program PECR?0"},
    {"PelockSetsTheOtherLocks", ALL, "",
     "unlock unlock-program PECR=1 PECR?7 PEKEYR=89ABCDEF PECR?7 PEKEYR=02030405 PECR?6"},
    {"PelockClearsWhatWasAskedForAndNothingElse", ALL, "",
     "unlock PECR=38718 PECR?3871A PECR=38719 PECR?38407"},
    {"ADeadPelockClearsWhatWasAskedFor", ALL, "", "unlock PECR=318 PEKEYR=0! PECR?7"},
};
PLAY_CASES(SimL0Locks, aLocks, Words);

// -- Programming option words --------------------------------------------------------------------

static const STEPS_CASE aWords[] = {
    {"ALockedOptionWordIsRefusedWithWrperr", ALL, "",
     "OPTION_USER=0 flags:100 OPTION_RDP:FF5500AA SR=100 flags:0 unlock PECR=4 OPTION_USER=0 "
     "flags:100 SR=100 OPTKEYR=FBEAD9C8 OPTKEYR=24252627 OPTION_USER=0 SR?1/1"},
    {"AWordOfL0IsErasedAndProgrammedByWritingIt", ALL_L0, "",
     "unlock OPTION_WRP01=FFFF SR?1 OPTION_WRP01:FFFF0000 wait:6399us SR?1 wait:1us SR?6 "
     "OPTION_WRP01?FFFF SR=FFFFFFFD SR?6 SR=2 SR?4"},
    {"AWordOfL1IsErasedAndProgrammedByWritingIt", ALL_L1, "",
     "unlock OPTION_WRP01=FFFF SR?1 OPTION_WRP01:FFFF0000 wait:6399us SR?1 wait:1us SR?E "
     "OPTION_WRP01?FFFF SR=FFFFFFFD SR?E SR=2 SR?C"},
    {"TheErasePhaseIsLeftOutOverZero", ALL, "",
     "unlock OPTION_WRP01=0 finish OPTION_WRP01=FFFF0000 wait:3199us SR?1/1 wait:1us SR?0/1"},
    {"FtdwAsksForTheErasePhase", ALL, "",
     "unlock OPTION_WRP01=0 finish PECR=100 OPTION_WRP01=FFFF0000 wait:6399us SR?1/1 wait:1us "
     "SR?0/1"},
    {"OptionWordsAreAlwaysErasedWhereThatVariantIsChosen", ALL,
     "--variant l0_l1_always_erase_options=1",
     "unlock OPTION_WRP01=0 finish OPTION_WRP01=FFFF0000 wait:6399us SR?1/1 wait:1us SR?0/1"},
    {"EraseLeavesAWordOfZerosInOnePhase", ALL, "",
     "unlock PECR=200 OPTION_USER=FFFFFFFF wait:3199us SR?1/1 wait:1us SR?0/1 OPTION_USER?0 "
     "OPTION_RDP?FF5500AA"},
    {"TheLongestTimesAreAVariant", ALL, "--rdp 1 --variant timing_max=1",
     "unlock OPTION_USER=0 wait:7879us SR?1/1 wait:1us SR?0/1 OPTION_RDP=FF5500AA wait:99999us "
     "flash?kept wait:1us flash?erased"},
    {"AWriteWhileBusyHoldsTheBus", ALL, "",
     "unlock OPTION_WRP01=0 OPTION_USER=0 stalled?6400 hold:forever OPTION_WRP01=0! @8080000=0!"},
    {"ReadsOfOptionWordsFlashAndEepromWaitWhileBusy", ALL, "",
     "unlock OPTION_WRP01=0 wait:1ms OPTION_RDP?FF5500AA stalled?5400 OPTION_USER=0 @8000000?ok "
     "stalled?6400 OPTION_RDP=FF5500AA @8080000?ok stalled?6400 OPTION_RDP=FF5500AA @20000000?ok "
     "PECR?2 stalled?0"},
    {"TheComplementIsNotFormedByHardware", ALL, "",
     "unlock OPTION_USER=8070 finish OPTION_USER?8070 launch SR?800/800"},
    {"OptionWordsTakeWordsOnly", ALL, "",
     "unlock OPTION_WRP01.2=1234 flags:400 OPTION_WRP01.1=12 OPTION_WRP01?FFFF0000 SR=400 flags:0"},
    {"SpareWordsOfL0TakeWritesAndMeanNothing", "L011 L031 L053", "",
     "unlock OPTION_SPARE1=FFFF0000 finish @1FF80010?FFFF0000 @1FF8000C=FFFF finish launch flags:0 "
     "WRPROT1?0 WRPROT2?0 error?none unlock @1FF8001C=12345678 finish @1FF8001C?12345678"},
    {"SpareWordsReadAsOnesWhereThatVariantIsChosen", "L011 L031 L053",
     "--variant l0_spare_words_writable=0",
     "unlock @1FF8000C?FFFFFFFF @1FF80010=FFFF0000 flags:100 @1FF80010?FFFFFFFF "
     "OPTION_WRP01?FFFF0000"},
    {"PecrOfL1ChangesOnlyWhileIdle", ALL_L1, "", "unlock OPTION_WRP01=0 PECR=7 PECR?2"},
    {"PecrOfL0ChangesWhileBusyToo", ALL_L0, "", "unlock OPTION_WRP01=0 PECR=7 PECR?7"},
};
PLAY_CASES(SimL0Words, aWords, Words);

// -- Loading -------------------------------------------------------------------------------------

static const STEPS_CASE aLoading[] = {
    {"LaunchAndPowerOnLoadAndAResetDoesNot", ALL, "",
     "unlock rdp:FF4400BB reset level?0 stored?1 unlock launch level?1 PECR?7 halted?0 flash?kept "
     "unprotect reset level?1 stored?0 remark?some power level?0"},
    {"LaunchNeedsPelockOpen", ALL, "", "unlock rdp:FF4400BB PECR=7 launch level?0"},
    {"LaunchNeedsOptlockOpen", ALL, "",
     "unlock rdp:FF4400BB PECR=4 launch level?0 PECR?6 unlock-program launch level?0 PECR?4"},
    {"TheLaunchTransferMayFailAlthoughItWorked", ALL, "--variant obl_transfer_fails=1",
     "unlock rdp:FF4400BB PECR=40000! level?1"},
    {"WhatIsLoadedStaysOverAReset", "L073", "--wrp 0,17,47",
     "WRPROT1?20001 WRPROT2?8000 unlock OPTION_USER=FFFF0000 finish OPTION_WRP01=FFFF0000 finish "
     "reset OPTR?807000AA WRPROT1?20001 WRPROT2?8000 power OPTR?AA WRPROT1?20000"},
    {"TheUpperWordsOfABigL1AreLoadedToTheirRegisters", "L152xE", "--wrp 15,16,32,63,64,80,96,127",
     "WRPR1?18000 WRPR2?80000001 WRPR3?10001 WRPR4?80000001 @1FF80084?7FFF8000"},
    {"CategoryThreeHasTwoRegistersOfSectors", "L152xC", "--wrp 31,63",
     "WRPR1?80000000 WRPR2?80000000 WRPR3?0"},
    {"CategoryFourHasThreeRegistersOfSectors", "L151xD", "--wrp 32,95",
     "WRPR1?0 WRPR2?1 WRPR3?80000000 WRPR4?0"},
    {"UserBitsOfCategory1OfL0", "L011", "--user 0xFFFF", "OPTR?E07F00AA"},
    {"UserBitsOfCategories2And3OfL0", "L031 L053", "--user 0xFFFF", "OPTR?807F00AA"},
    {"UserBitsOfCategory5OfL0", "L073", "--user 0xFFFF", "OPTR?80FF00AA"},
    {"UserBitsOfL1", "L100 L152 L152xC", "--user 0xFFFF", "OBR?7F00AA"},
    {"UserBitsOfL1WithTwoBanks", "L151xD L152xE", "--user 0xFFFF", "OBR?FF00AA"},
    {"Category1OfL0ChoosesItsBootModeByOptions", "L011",
     "--option nBOOT_SEL=1 --option nBOOT0=1 --option nBOOT1=0",
     "OPTION_USER?9F8F6070 OPTR?607000AA"},
    {"TwoBanksOfL0ChooseTheirBootBank", "L073", "--option BFB2=1", "OPTR?80F000AA"},
    {"AMismatchIsReportedAtEveryResetUntilTheNextGoodLoad", ALL, "",
     "unlock OPTION_WRP01=0 finish flags:0 launch flags:800 error?OPTVERR SR=800 flags:0 reset "
     "flags:800 SR=800 unlock OPTION_WRP01=FFFF0000 finish flags:0 reset flags:800 remark?none "
     "error?OPTVERR unlock launch flags:0 error?none reset flags:0"},
    {"AMismatchOfTheUserWordHasAFlagOfItsOwn", "L151xD L152xC L152xE", "--mismatch user",
     "flags:1800 SR=1000 flags:800 reset flags:1800 level?0"},
    {"WhichSmallDevicesDoNotHave", ALL_L0 "L100 L100xBA L151 L152", "--mismatch user",
     "flags:800 level?0"},
    {"AMismatchOfTheUserWordLoadsItAsDeliveredOnL0", ALL_L0, "--user 0 --mismatch user",
     "OPTR?807000AA"},
    {"AMismatchOfTheUserWordLoadsItAsDeliveredOnL1", "L100 L152 L152xC", "--user 0 --mismatch user",
     "OBR?7800AA"},
    {"AMismatchOfTheFirstWordIsLevel1WithPcrop", ALL_L0, "--mismatch rdp",
     "level?1 stored?1 OPTR?807001BB flags:800"},
    {"AMismatchOfTheFirstWordIsLevel1WithPcropOnL1", PCROP_L1, "--mismatch rdp",
     "level?1 OBR?7801BB flags:800"},
    {"AMismatchOfTheFirstWordIsLevel1WherePcropDoesNotExist", "L100 L151", "--mismatch rdp",
     "level?1 OBR?7800BB flags:800"},
    {"TheModeBitNeedsItsComplementToo", ALL, "", "put:OPTION_RDP=FF5501AA power level?1 flags:800"},
    {"SoDoesTheBitAfterIt", ALL, "", "put:OPTION_RDP=5500AA power level?1 flags:800"},
    {"SoDoesLevel2", ALL, "", "put:OPTION_RDP=FF3200CC power level?1 flags:800"},
    {"AMismatchOfASectorWordLoadsZeros", "L053 L073", "--wrp all --mismatch OPTION_WRP01",
     "WRPROT1?0/FFFF flags:800 @8000000?ok"},
    {"AMismatchOfASectorWordIsPcropWhereThatIsOn", "L073", "--pcrop 40 --mismatch OPTION_WRP01",
     "WRPROT1?0/FFFF @8000000?0"},
    {"AMismatchOfASectorWordLoadsZerosOnL1", "L152 L152xC L152xE",
     "--wrp all --mismatch OPTION_WRP23", "WRPR1?FFFF flags:800"},
};
PLAY_CASES(SimL0Loading, aLoading, Words);

// -- Protection levels ---------------------------------------------------------------------------

static const STEPS_CASE aLevels[] = {
    {"AtLevel1FlashAndEepromAreClosed", ALL, "--rdp 1",
     "level?1 @8000000?! @8080000?! @1FF80000?ok @20000000?ok unlock unlock-program @8080000=0! "
     "@8000000=0! SR?0/1"},
    {"TakingTheProtectionAwayErasesWithThatWrite", ALL, "--rdp 1",
     "unlock OPTION_RDP=FF5500AA wait:59999us flash?kept wait:1us SR?1/1 flash?erased "
     "eeprom?erased @8000000?! stalled?0 finish OPTION_RDP?FF5500AA @8000000?! launch level?0 "
     "@8000000?0"},
    {"ItTakesTheOtherWordsAlongOnL1", "L100 L151 L152", "--rdp 1 --wrp all",
     "unprotect OPTION_RDP?FF5500AA OPTION_USER?0 OPTION_WRP01?0 OPTION_WRP23?0 launch flags:800 "
     "OBR?7800AA WRPR1?0"},
    {"AlsoThoseThatTheSmallOnesDoNotHave", "L151xD L152xC L152xE", "--rdp 1 --wrp all",
     "unprotect OPTION_WRP45?0 OPTION_WRP67?0 launch flags:1800 WRPR2?0 level?0"},
    {"ItLeavesTheOtherWordsOnL0", ALL_L0, "--rdp 1 --wrp 0",
     "unprotect OPTION_USER?7F8F8070 OPTION_WRP01?FFFE0001 launch flags:0"},
    {"WriteProtectionDoesNotStopTheEraseThatUnprotects", ALL, "--rdp 1 --wrp all",
     "unprotect flash?erased"},
    {"OtherValuesAtLevel1EraseNothing", ALL, "--rdp 1",
     "unlock rdp:0 rdp:FF4400BB rdp:FF5400AA rdp:FF5500AB OPTION_USER=FF5500AA finish flash?kept"},
    {"AtLevel0WritingLevel0AgainErasesNothing", ALL, "",
     "unlock rdp:0 rdp:FF5500AA launch flash?kept level?0"},
    {"ThatErasesOnL1WhereTheVariantIsChosen", ALL_L1, "--variant l1_erratum_mass_erase=1",
     "unprotect flash?erased"},
    {"ZeroInTheFirstWordIsLevel1WithAMismatch", ALL, "",
     "unlock rdp:0 launch level?1 SR?800/800 error?OPTVERR"},
    {"Level2IsTheValueCCWithItsComplement", ALL, "",
     "unlock rdp:FF3300CC stored?2 rdp:FF5500AA launch level?0 unlock rdp:FF3300CC launch level?2 "
     "@1FF80000?! PEKEYR=89ABCDEF!"},
    {"AByteCanBeAskedFor", "L053 L152", "--rdp 0x12", "OPTION_RDP?FFED0012 level?1"},
};
PLAY_CASES(SimL0Levels, aLevels, Words);

// -- PCROP ---------------------------------------------------------------------------------------

static const STEPS_CASE aPcrop[] = {
    {"PcropOfL0ReadsAsZeros", ALL_L0, "--pcrop 1",
     "@8000FFC?12345678 flags:0 @8001000?0 SR?2000/2000 SR=2000 @8001FFC?0 @8002000?12345678 "
     "@8080000?12345678"},
    {"PcropOfL1CannotBeRead", PCROP_L1, "--pcrop 1",
     "@8000FFC?12345678 flags:0 @8001000?! SR?2000/2000 SR=2000 flags:0 @8001FFC?! "
     "@8002000?12345678"},
    {"ABitThatIsZeroMeansPcrop", "L053 L073", "--pcrop 0,3",
     "OPTION_WRP01?9FFF6 WRPROT1?FFF6/FFFF OPTR?100/100"},
    {"ABitThatIsZeroMeansPcropOnL1", PCROP_L1, "--pcrop 0,3",
     "OPTION_WRP01?9FFF6 WRPR1?FFFFFFF6 OBR?100/100"},
    {"FactoryWordsWithTheModeBitHideTheWholeFlash", ALL_L0, "",
     "unlock rdp:FE5501AA launch level?0 @8000000?0 @8003FFC?0"},
    {"SectorsCanBeAddedAndNotTakenAway", "L053 L073 " PCROP_L1, "--pcrop 0,3",
     "unlock OPTION_WRP01=8FFF7 flags:100 OPTION_WRP01?9FFF6 SR=100 OPTION_WRP01=BFFF4 finish "
     "OPTION_USER=FFFF0000 finish flags:0 OPTION_WRP01?BFFF4"},
    {"SoAtLevel1", "L053 L073 " PCROP_L1, "--rdp 1 --pcrop 0,3",
     "unlock OPTION_WRP01=8FFF7 flags:100 SR=100 OPTION_WRP01=FFFF0000 flags:0"},
    {"TheSecondRegisterOfSectorsToo", "L073", "--pcrop 32",
     "unlock OPTION_WRP45=FFFF flags:100 SR=100 OPTION_WRP01=1FFFE flags:0"},
    {"TheUpperHalfOfTheRegisterToo", PCROP_L1, "--pcrop 16",
     "unlock OPTION_WRP23=FFFF flags:100 SR=100 OPTION_WRP01=1FFFE flags:0"},
    {"CategoryThreeCoversItsSecondRegister", "L152xC", "--pcrop 63",
     "@803EFFC?ok @803F000?! unlock OPTION_WRP67=FFFF flags:2100"},
    {"BitsThatAreNoSectorsAreFree", "L011", "--pcrop 0",
     "unlock OPTION_WRP01=FFFE flags:0 finish OPTION_WRP01=FFFF flags:100"},
    {"WordsThatMeanNothingAreFree", "L053", "--pcrop 0", "unlock @1FF8000C=FFFFFFFF flags:0"},
    {"WithoutPcropSectorsComeAndGo", ALL, "--wrp 0",
     "unlock OPTION_WRP01=FFFF0000 finish flags:0 OPTION_WRP01?FFFF0000 OPTION_WRP01=FFFE0001 "
     "flags:0"},
    {"PcropSectorsAreNeitherErasedNorProgrammed", PCROP, "empty --pcrop 1",
     "unlock unlock-program @8001000=1 flags:100 SR=100 PECR=208 @8001000=0 flags:100 SR=100 "
     "@8000FFC=0 flags:0"},
    {"PcropCanBeSwitchedOnAtAnyLevel", PCROP, "--rdp 0xBB",
     "unlock rdp:FE4401BB launch flash?kept reset unlock rdp:0 OPTION_RDP?0"},
    {"PcropOnAtLevel0", PCROP, "", "unlock rdp:FE5501AA launch level?0 flash?kept"},
    {"AtLevel0ItIsNotLiftedButAMoveToLevel1IsAccepted", ALL_L0 PCROP_L1, "--pcrop 0",
     "unlock rdp:FF5500AA flags:100 OPTION_RDP?FE5501AA SR=100 rdp:0 flags:0 OPTION_RDP?0"},
    {"EveryWriteThatLiftsItIsRefusedWhereThatVariantIsChosen", ALL_L0 PCROP_L1,
     "--pcrop 0 --variant l0_l1_refuse_pcrop_clear=1",
     "unlock rdp:0 flags:100 OPTION_RDP?FE5501AA"},
    {"OneToZeroLiftsIt", ALL_L0 PCROP_L1, "--rdp 1 --pcrop 0",
     "unprotect OPTION_RDP?FF5500AA launch level?0 flash?erased @8000000?0 SR?0/2000"},
    {"EvenWhereTheWordHasTheBit", ALL_L0 PCROP_L1, "--rdp 1 --pcrop 0",
     "unlock rdp:FE5501AA OPTION_RDP?FF5500AA flash?erased"},
    {"OthersHaveNoPcrop", "L100 L100xBA L151 L151xD L152xE", "",
     "unlock OPTION_WRP01=FFFE0001 finish rdp:FE5501AA launch level?0 OBR?0/100 @8000000?ok "
     "@8001000?ok unlock rdp:FF5500AA OPTION_WRP01=FFFF0000 flags:0"},
};
PLAY_CASES(SimL0Pcrop, aPcrop, Words);

// -- Flash and EEPROM ----------------------------------------------------------------------------

static const STEPS_CASE aMemories[] = {
    {"EepromIsWrittenOncePelockIsOpen", ALL, "",
     "@8080000=CAFEBABE flags:100 SR=100 PEKEYR=89ABCDEF PEKEYR=02030405 @8080000=CAFEBABE "
     "wait:6399us SR?1/1 wait:1us SR?0/1 @8080000?CAFEBABE @8080001.1=12 finish @8080002.2=3456 "
     "finish @8080000?345612BE flags:0"},
    {"AWordOfEepromIsErasedByRequest", ALL, "",
     "unlock PECR=210 @8080002.2=FFFF wait:3199us SR?1/1 wait:1us @8080000?0 @8080004?12345678 "
     "PECR=200 @8080004=7 finish @8080004?7 PECR=10 @8080004=8 finish @8080004?8"},
    {"FlashIsProgrammedOncePrglockIsOpen", ALL, "empty",
     "unlock @8000000=1 flags:100 SR=100 unlock-program @8000000.2=1 flags:400 SR=400 "
     "@8000000=CAFEBABE wait:3199us SR?1/1 wait:1us SR?0/1 @8000000?CAFEBABE"},
    {"AWordOfL0ThatIsNotErasedIsNotzeroerr", ALL_L0, "",
     "unlock unlock-program @8000000=1 flags:10000 @8000000?12345678"},
    {"AWordOfL1ThatIsNotErasedIsWrperr", ALL_L1, "",
     "unlock unlock-program @8000000=1 flags:100 @8000000?12345678"},
    {"APageOfL0IsErasedByRequest", ALL_L0, "",
     "unlock unlock-program PECR=200 @8000100=0 flags:10000 SR=10000 PECR=8 @8000100=0 flags:10000 "
     "SR=10000 PECR=208 @8000100.2=0 flags:400 SR=400 @800017C=1234 wait:3199us SR?1/1 wait:1us "
     "SR?2/3 @80000FC?12345678 @8000100?0 @800017C?0 @8000180?12345678"},
    {"APageOfL1IsErasedByRequest", ALL_L1, "",
     "unlock unlock-program PECR=200 @8000200=0 flags:100 SR=100 PECR=8 @8000200=0 flags:100 "
     "SR=100 PECR=208 @8000200.2=0 flags:400 SR=400 @80002FC=1234 wait:3199us SR?1/1 wait:1us "
     "SR?2/3 @80001FC?12345678 @8000200?0 @80002FC?0 @8000300?12345678"},
    {"AProtectedSectorIsNotErasedByRequest", ALL, "--wrp all",
     "unlock unlock-program PECR=208 @8000000=0 flags:100 finish flash?kept"},
};
PLAY_CASES(SimL0Memories, aMemories, Words);

TEST(SimL0, AProtectedSectorIsNotProgrammedAndCanBeRead) {
  const struct {
    const char* sName;
    uint32_t    Sector, NumSectors;
  } aRows[] = {{"L011", 3, 4},       {"L031", 7, 8},      {"L053", 15, 16},    {"L073", 16, 48},
               {"L073", 47, 48},     {"L100", 31, 32},    {"L152", 31, 32},    {"L152xC", 32, 64},
               {"L152xC", 63, 64},   {"L151xD", 95, 96},  {"L152xE", 32, 128}, {"L152xE", 64, 128},
               {"L152xE", 100, 128}, {"L152xE", 127, 128}};
  for (const auto& Row : aRows) {
    const uint32_t First = 0x1000 * Row.Sector, End = First + 0x1000;
    std::string    sSteps = "unlock unlock-program";
    for (const uint32_t Offset : {First - 4, First, End - 4, End}) {
      if (Offset < 0x1000 * Row.NumSectors) {
        sSteps += sim::Format(" @%X=1 finish flags:%s SR=100 @%X?ok", 0x08000000 + Offset,
                              Offset >= First && Offset < End ? "100" : "0", 0x08000000 + Offset);
      }
    }
    const std::string sState = sim::Format("empty --wrp %u", Row.Sector);
    PlayCase({"", Row.sName, sState.c_str(), sSteps.c_str()}, Words);
  }
}

// -- Watchdog and brown-out ----------------------------------------------------------------------

static const STEPS_CASE aWatchdog[] = {
    {"L0HasNoDebugBlockAtThePlaceOfTheOthers", ALL_L0, "",
     "@E0042008=1800! variant:unassigned_faults=0 @E0042008=1800 @E0042008?0 RCC_APB2ENR=400000 "
     "DBGMCU_APB1_FZ=1800 DBGMCU_APB1_FZ?1800"},
    {"AHardwareWatchdogIsNotFrozenByThatAddress", ALL_L0, "--rdp 1 --option WDG_SW=0",
     "@E0042008=1800! reset unlock wait:442ms resets?0 wait:2ms resets?1 PECR?7"},
    {"ItIsFrozenByItsBitWhileTheCoreIsHalted", ALL_L0, "--rdp 1 --option WDG_SW=0",
     "RCC_APB2ENR=400000 DBGMCU_APB1_FZ=1000 reset wait:5000ms resets?0 run wait:444ms resets?1"},
    {"OfL1Too", ALL_L1, "--rdp 1 --option IWDG_SW=0",
     "DBGMCU_APB1_FZ=1000 reset wait:5000ms resets?0 DBGMCU_APB1_FZ?1000 DBGMCU_APB1_FZ=FFFFEFFF "
     "reset wait:442ms resets?0 wait:2ms resets?1"},
    {"AWatchdogThatSoftwareStartsIsNotStartedByAReset", ALL, "--rdp 1", "wait:5000ms resets?0"},
};
PLAY_CASES(SimL0Watchdog, aWatchdog, Words);

// A device is in reset below the voltage that its options set.
TEST(SimL0, TheBrownOutLevelSetsTheVoltage) {
  const struct {
    const char* sDevices;
    uint32_t    Level, Millivolts;
  } aRows[] = {{"L053", 0, 1700},  {"L053", 7, 1700},    {"L152", 8, 1700},  {"L152", 9, 1940},
               {"L053", 10, 2300}, {"L152xE", 11, 2540}, {"L011", 12, 2770}, {"L073", 15, 2770}};
  for (const auto& Row : aRows) {
    const std::string sState = sim::Format("--option BOR_LEV=%u", Row.Level);
    const std::string sSteps =
        sim::Format("voltage:%u PECR?ok voltage:%u PECR?! voltage:3300 PECR?ok", Row.Millivolts,
                    Row.Millivolts - 1);
    PlayCase({"", Row.sDevices, sState.c_str(), sSteps.c_str()}, Words);
  }
}

// -- Operations that do not end ------------------------------------------------------------------

static const STEPS_CASE aCuts[] = {
    {"AWordThatIsCutInItsEraseHasLostHalfOfItsBits", ALL, "",
     "unlock OPTION_RDP=FF5500AA wait:3199us reset OPTION_RDP?55550000 level?0 power level?1"},
    {"AnEraseByRequestThatIsCutHasLostHalfOfItsBits", ALL, "",
     "unlock PECR=200 OPTION_RDP=0 wait:1600us reset OPTION_RDP?55550000 unlock PECR=210 "
     "@8080000=0 wait:1600us reset @8080000?10145450"},
    {"AWordThatIsCutInItsProgrammingHasNoComplement", ALL, "",
     "unlock OPTION_RDP=FF5500AA wait:3200us power OPTION_RDP?AA level?1 error?OPTVERR"},
    {"AnErasedWordIsCutInItsProgramming", ALL, "",
     "unlock OPTION_USER=0 finish OPTION_USER=FF870078 wait:100us power OPTION_USER?78 "
     "error?OPTVERR"},
    {"AWordOfEepromIsCutLikeAnOptionWord", ALL, "",
     "unlock @8080000=89ABCDEF wait:1ms reset @8080000?10145450 unlock @8080004=89ABCDEF wait:4ms "
     "reset @8080004?CDEF"},
    {"AMassEraseThatIsCutLeavesLevel1AndHasDoneItsPart", "L053", "--rdp 1",
     "unlock OPTION_RDP=FF5500AA wait:30ms reset OPTION_RDP?FF4400BB level?1 flash?partly "
     "eeprom?partly"},
    {"AMassEraseThatIsCutLateLeavesLevel1", ALL, "--rdp 1",
     "unlock OPTION_RDP=FF5500AA wait:59ms power level?1 flash?partly OPTION_WRP01?FFFF0000"},
    {"APageEraseThatIsCutHasDoneItsPart", ALL_L1, "",
     "unlock unlock-program PECR=208 @8000100=0 wait:1600us reset @80000FC?12345678 @8000100?0 "
     "@800017C?0 @8000180?10145450 @80001FC?10145450 @8000200?12345678"},
    {"WhatRanIsStillRunningWhenTheDeviceIsLoaded", ALL, "--rdp 1",
     "unlock unlock-program rdp:0 OPTION_RDP=FF5500AA wait:5ms save PECR?0 SR?1/1 flash?kept "
     "wait:54999us flash?kept wait:1us flash?erased finish OPTION_RDP?FF5500AA level?1"},
    {"KeysGoOnWhereTheyWere", ALL, "",
     "PEKEYR=89ABCDEF save PEKEYR=02030405 PECR?6 OPTKEYR=FBEAD9C8 PRGKEYR=8C9DAEBF save "
     "OPTKEYR=24252627 PRGKEYR=13141516 PECR?0"},
    {"ABadLoadIsRemembered", ALL, "--mismatch OPTION_WRP01", "SR=800 save flags:0 reset flags:800"},
};
PLAY_CASES(SimL0Cuts, aCuts, Words);

TEST(SimL0, StatesThatDoNotExistAreRefused) {
  const struct {
    const char* sName;
    uint32_t    NumSectors;
    bool        HasPcrop;
  } aRows[] = {{"L011", 4, true},    {"L031", 8, true},     {"L053", 16, true},
               {"L073", 48, true},   {"L100", 32, false},   {"L100xBA", 32, false},
               {"L151", 32, false},  {"L151xD", 96, false}, {"L152", 32, true},
               {"L152xC", 64, true}, {"L152xE", 128, false}};
  for (const auto& Row : aRows) {
    const std::string sSector  = sim::Format("--wrp %u", Row.NumSectors);
    const std::string sPcrop   = sim::Format("--pcrop %u", Row.NumSectors);
    const std::string sReason  = sim::Format("sector %u: this device has sectors 0 to %u",
                                             Row.NumSectors, Row.NumSectors - 1);
    const char*       sNoPcrop = "this device has no PCROP";
    ExpectRefused(Row.sName, "--secure", "this device has no secure area");
    ExpectRefused(Row.sName, "--pcrop-rdp 1", "this device has no PCROP_RDP bit");
    ExpectRefused(Row.sName, sSector.c_str(), sReason.c_str());
    ExpectRefused(Row.sName, sPcrop.c_str(), Row.HasPcrop ? sReason.c_str() : sNoPcrop);
    for (const char* sBoth : {"--pcrop 0 --wrp 1", "--pcrop 0 --wrp all"}) {
      ExpectRefused(Row.sName, sBoth,
                    Row.HasPcrop ? "the sector bits are either write protection or PCROP, not both"
                                 : sNoPcrop);
    }
    const std::string sLast = sim::Format("--wrp %u", Row.NumSectors - 1);
    PlayCase({"", Row.sName, sLast.c_str(), "remark?none error?none"}, Words);
  }
}
