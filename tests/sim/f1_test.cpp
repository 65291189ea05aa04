// SPDX-License-Identifier: MIT

// F0, F1 and F3: a row for each rule of the hardware. Addresses and keys as in the manuals.

#include "sim/catalog.h"
#include "sim/text.h"
#include "tests/sim/steps.h"

static const STEPS_WORDS Words = {
    {"unlock", "KEYR=45670123 KEYR=CDEF89AB OPTKEYR=45670123 OPTKEYR=CDEF89AB"},
    {"unlock2", "KEYR2=45670123 KEYR2=CDEF89AB"},
    {"erase-options", "CR=220 CR=260 finish"},
    {"program-rdp", "CR=200 CR=210 OPTION_RDP_USER.2=$"},
    {"unprotect", "unlock erase-options program-rdp:%off finish"},
    {"flash-full", "@8000000?12345678"},
};

#define ALL_F0 "F030 F042 F051 F072 F091 "
#define ALL_F1 "F100 F100xE F103x6 F103 F103xE F103xG F105 "
#define ALL_F3 "F301 F303 F303xE F334 F373"
#define ALL    ALL_F0 ALL_F1 ALL_F3
#define TRIO   "F051 F103 F303"

// -- What a manual prints ------------------------------------------------------------------------

static const STEPS_CASE aPrinted[] = {
    {"RegistersOfF0", ALL_F0, "empty",
     "register:ACR=30/17 register:SR=0/0 register:CR=80/0 register:AR=0/FFFFFFFF "
     "register:WRPR=FFFFFFFF/0 register:RCC_APB2ENR=0/475A01 RCC_APB2ENR=400000 "
     "register:DBGMCU_CR=0/6 register:DBGMCU_APB1_FZ=0/2201D33"},
    {"RegistersOfF1", ALL_F1, "empty",
     "register:ACR=30/17 register:SR=0/0 register:CR=80/0 register:AR=0/FFFFFFFF "
     "register:OBR=3FFFFFC/0 register:WRPR=FFFFFFFF/0 register:DBGMCU_CR=0/3FFFE7"},
    {"RegistersOfF3", ALL_F3, "empty",
     "register:ACR=30/17 register:SR=0/0 register:CR=80/0 register:AR=0/FFFFFFFF "
     "register:OBR=FFFFFF00/0 register:WRPR=FFFFFFFF/0 register:DBGMCU_CR=0/E7 "
     "register:DBGMCU_APB1_FZ=0/42601C3F"},
    {"RegistersOfTheSecondBank", "F103xG", "empty",
     "register:SR2=0/0 register:CR2=80/0 register:AR2=0/FFFFFFFF unlock2 CR2=FFFFDF3F CR2?1407"},
    {"OnlyXlDensityHasASecondBank", "F103 F103xE F105 F303", "", "@40022044?! @40022050?!"},
    {"KeyRegistersReadZero", ALL, "", "unlock KEYR?0 OPTKEYR?0"},
    {"HsiIsReadyWhenItIsOn", TRIO, "",
     "RCC_CR?83 RCC_CR=FFFFFFFF RCC_CR?10D00FB RCC_CR=0 RCC_CR?0 reset RCC_CR?83"},
    {"AnOpenControlRegisterTakesItsBitsOnly", ALL, "", "unlock CR=FFFFDF3F CR?1637 CR=200 CR?200"},
    {"RegistersOfF0AndF3TakeWordsOnly", ALL_F0 ALL_F3, "",
     "CR.2=80! CR.2?! SR.1?! KEYR.2=123! KEYR=45670123 KEYR=CDEF89AB CR?0"},
    {"RegistersOfF1TakeHalfWordsToo", ALL_F1, "", "CR.2=80 CR.2?80"},
    {"FactoryWordsOfF1", ALL_F1, "",
     "OPTION_RDP_USER?FF5AA5 OPTION_DATA?FF00FF OPTION_WRP01?FF00FF OPTION_WRP23?FF00FF"},
    {"FactoryWordsOfF0AndF3", ALL_F0 ALL_F3, "",
     "@1FFFF800?FF55AA @1FFFF804?FF00FF @1FFFF808?FF00FF @1FFFF80C?FF00FF error?none"},
    {"TheSizeOfTheFlashCanBeRead", "F051 F303", "", "@1FFFF7CC.2?ok"},
    {"SizesF030", "F030", "", "memory:8000000=8000 memory:20000000=1000 @1FFFF7CC.2?20"},
    {"SizesF042", "F042", "", "memory:8000000=8000 memory:20000000=1800 memory:40002850=14"},
    {"SizesF051", "F051", "",
     "memory:8000000=10000 memory:20000000=2000 memory:40002850=14 memory:1FFFF800=10"},
    {"SizesF072", "F072", "", "memory:8000000=20000 memory:20000000=4000"},
    {"SizesF091", "F091", "", "memory:8000000=40000 memory:20000000=8000"},
    {"SizesF100", "F100", "", "memory:8000000=20000 memory:20000000=2000"},
    {"SizesF100xE", "F100xE", "", "memory:8000000=80000 memory:20000000=8000"},
    {"SizesF103x6", "F103x6", "", "memory:8000000=8000 memory:20000000=2800 @1FFFF7E0.2?20"},
    {"SizesF103", "F103", "",
     "memory:8000000=20000 memory:20000000=5000 memory:1FFFF800=10 @1FFFF7E0?FFFF0080"},
    {"SizesF103xE", "F103xE", "", "memory:8000000=80000 memory:20000000=10000"},
    {"SizesF103xG", "F103xG", "", "memory:8000000=100000 memory:20000000=18000 @1FFFF7E0.2?400"},
    {"SizesF105", "F105", "", "memory:8000000=40000 memory:20000000=10000"},
    {"SizesF301", "F301", "", "memory:8000000=10000 memory:20000000=4000"},
    {"SizesF303", "F303", "",
     "memory:8000000=40000 memory:20000000=A000 memory:40002850=40 memory:10000000=2000"},
    {"SizesF303xE", "F303xE", "",
     "memory:8000000=80000 memory:20000000=10000 memory:10000000=4000"},
    {"SizesF334", "F334", "", "memory:8000000=10000 memory:20000000=3000 memory:10000000=1000"},
    {"SizesF373", "F373", "", "memory:8000000=40000 memory:20000000=8000 memory:40002850=80"},
};
PLAY_CASES(SimF1Printed, aPrinted, Words);

TEST(SimF1, EachDeviceHasItsIdentityAndKeepsItOverAReset) {
  const struct {
    const char* sName;
    uint32_t    DevId, IdCode;
  } aRows[] = {
      {"F030", 0x444, 0x40015800},   {"F042", 0x445, 0x40015800},   {"F051", 0x440, 0x40015800},
      {"F072", 0x448, 0x40015800},   {"F091", 0x442, 0x40015800},   {"F100", 0x420, 0xE0042000},
      {"F100xE", 0x428, 0xE0042000}, {"F103x6", 0x412, 0xE0042000}, {"F103", 0x410, 0xE0042000},
      {"F103xE", 0x414, 0xE0042000}, {"F103xG", 0x430, 0xE0042000}, {"F105", 0x418, 0xE0042000},
      {"F301", 0x439, 0xE0042000},   {"F303", 0x422, 0xE0042000},   {"F303xE", 0x446, 0xE0042000},
      {"F334", 0x438, 0xE0042000},   {"F373", 0x432, 0xE0042000}};
  for (const auto& [sName, DevId, IdCode] : aRows) {
    const std::string sRead = sim::Format("@%X?%X/FFF", IdCode, DevId);
    PlayCase({"", sName, "", (sRead + " reset " + sRead).c_str()}, {});
  }
  EXPECT_EQ(std::size(aRows), sim::DevicesF1.size());
}

// -- Locks ---------------------------------------------------------------------------------------

static const STEPS_CASE aLocks[] = {
    {"TheRightKeysOpenLockThenOptwre", TRIO, "",
     "OPTKEYR=45670123 OPTKEYR=CDEF89AB CR?80 KEYR=45670123 CR?80 KEYR=CDEF89AB CR?0 "
     "OPTKEYR=45670123 OPTKEYR=CDEF89AB CR?200"},
    {"AWrongFirstKeyFaultsAtOnceAndLocksUntilReset", TRIO, "",
     "KEYR=12345678! KEYR=45670123! KEYR=CDEF89AB! CR?80 reset unlock CR?200"},
    {"AWrongSecondKeyFaultsThere", TRIO, "", "KEYR=45670123 KEYR=45670123! KEYR=CDEF89AB! CR?80"},
    {"AWrongFirstOptionKeyKeepsOptwreClosed", TRIO, "",
     "KEYR=45670123 KEYR=CDEF89AB OPTKEYR=CDEF89AB! OPTKEYR=45670123! OPTKEYR=CDEF89AB! CR?0 reset "
     "unlock CR?200"},
    {"AWrongSecondOptionKeyKeepsOptwreClosed", TRIO, "",
     "KEYR=45670123 KEYR=CDEF89AB OPTKEYR=45670123 OPTKEYR=45670123! OPTKEYR=CDEF89AB! CR?0"},
    {"LockIsSetBySoftwareAndOpenedByKeys", TRIO, "",
     "unlock CR=280 CR?280 CR=200 CR?280 KEYR=45670123 CR?280 KEYR=CDEF89AB CR?200"},
    {"EveryResetClosesTheLocks", TRIO, "",
     "unlock reset CR?80 unlock CR?200 power CR?80 unlock CR?200"},
    {"ALockedControlRegisterIgnoresWritesWithoutAnError", TRIO, "",
     "CR=220 CR=260 CR?80 SR?0 OPTION_DATA?FF00FF"},
    {"OptwreCanBeClearedBySoftwareAndNotSet", TRIO, "",
     "KEYR=45670123 KEYR=CDEF89AB CR=200 CR?0 OPTKEYR=45670123 OPTKEYR=CDEF89AB CR?200 CR=0 CR?0"},
    {"LockIsObeyedByTheWriteThatSetsIt", TRIO, "", "unlock CR=2E0 CR?2A0 SR?0 OPTION_DATA?FF00FF"},
    {"NothingIsProgrammedWhenLockIsSetTogetherWithOptpg", TRIO, "",
     "unlock erase-options SR=20 CR=290 CR?290 OPTION_DATA.2=12 SR?10 finish OPTION_DATA?FFFFFFFF"},
    {"EachBankHasALockOfItsOwn", "F103xG", "",
     "unlock CR2?80 unlock2 CR2?0 CR2=80 CR2?80 CR?200 KEYR2=1! KEYR2=45670123! CR?200"},
};
PLAY_CASES(SimF1Locks, aLocks, Words);

// -- Erasing and programming options -------------------------------------------------------------

static const STEPS_CASE aOptions[] = {
    {"OptionEraseTakesTimeAndLeavesAllOnes", ALL, "",
     "unlock CR=220 CR=260 SR?1/1 wait:19999us SR?1/1 CR?260 OPTION_DATA:FF00FF wait:1us SR?0/1 "
     "@1FFFF800?FFFFFFFF @1FFFF804?FFFFFFFF @1FFFF808?FFFFFFFF @1FFFF80C?FFFFFFFF CR?220"},
    {"ReadsOfTheOptionBytesWaitForTheErase", ALL, "",
     "unlock CR=220 CR=260 wait:5ms OPTION_DATA?FFFFFFFF stalled?15000 OPTION_DATA?FFFFFFFF "
     "stalled?0"},
    {"OperationsTakeTheirLongestTimes", TRIO, "--variant timing_max=1",
     "unlock CR=220 CR=260 wait:39999us SR?1/1 wait:1us SR?0/1 CR=210 OPTION_RDP_USER.2=A5 "
     "wait:69us SR?1/1 wait:1us SR?0/1 reset"},
    {"OperationsTakeTheirTimes", TRIO, "",
     "unlock erase-options CR=210 OPTION_RDP_USER.2=A5 wait:52us SR?1/1 wait:1us SR?0/1 CR=4 CR=44 "
     "wait:19999us SR?1/1 wait:1us SR?0/1 flash?erased"},
    {"WritesToRegistersAreIgnoredWhileBusy", TRIO, "",
     "unlock CR=220 CR=260 CR=200 CR?260 AR=8000000 AR?0 KEYR=0 finish CR?220"},
    {"AWriteToFlashWhileBusyHoldsTheBus", TRIO, "",
     "unlock CR=220 CR=270 OPTION_DATA.2=12 stalled?20000 finish OPTION_DATA?FFFFED12"},
    {"AWriteThatWaitsForEverFails", TRIO, "",
     "unlock hold:forever CR=220 CR=270 wait:1ms OPTION_DATA.2=12! @8000000.2=12!"},
    {"OptionEraseNeedsOptwreAndStrt", TRIO, "",
     "KEYR=45670123 KEYR=CDEF89AB CR=60 SR?0 CR?20 OPTKEYR=45670123 OPTKEYR=CDEF89AB CR=220 SR?0 "
     "CR=240 SR?0"},
    {"EopTellsTheEndAndIsClearedByOne", TRIO, "",
     "unlock erase-options SR?20 SR=1F SR?20 SR=20 SR?0 CR=210 OPTION_RDP_USER.2=12 SR?1 finish "
     "SR?20"},
    {"NothingIsErasedOrProgrammedWithoutHsi", TRIO, "",
     "unlock RCC_CR=80 CR=220 CR=260 SR?0 CR?220 RCC_CR=81 erase-options RCC_CR=80 program-rdp:A5 "
     "finish OPTION_RDP_USER?FFFFFFFF"},
    {"AnErasedRdpProtectsOnlyAfterTheNextLoad", TRIO, "",
     "unlock erase-options flash-full level?0 power @8000000?! level?1 flash?kept"},
    {"HardwareFormsTheComplement", TRIO, "",
     "unlock erase-options program-rdp:7700 finish OPTION_RDP_USER?FFFFFF00 CR?210"},
    {"ATargetThatIsNotErasedIsSkippedWithAnError", TRIO, "",
     "unlock program-rdp:0 OPTION_RDP_USER.1?%off SR?14 SR=4 SR?10 SR=10 SR?0"},
    {"OptionBytesTakeHalfWordsOnly", TRIO, "",
     "unlock erase-options CR=210 @1FFFF800.1=AA! @1FFFF800=55AA! OPTION_RDP_USER?FFFFFFFF"},
    {"ProgrammingNeedsOptpgAndOptwre", TRIO, "",
     "unlock erase-options CR=200 OPTION_DATA.2=A5 SR?10/10 OPTION_DATA?FFFFFFFF SR=10 CR=10 "
     "OPTION_DATA.2=A5 SR?10/10 OPTION_DATA?FFFFFFFF"},
};
PLAY_CASES(SimF1Options, aOptions, Words);

// -- Protection levels ---------------------------------------------------------------------------

static const STEPS_CASE aLevels[] = {
    {"AtLevel1FlashIsClosedAndOptionBytesAreOpen", ALL, "--rdp 1",
     "level?1 @8000000?! OPTION_DATA?ok CR?ok @20000000?ok OBR?2/2"},
    {"AtLevel1BackupRegistersAreClosedInBothDirections", "F042 F051 F072 F303 F373", "--rdp 1",
     "@40002850?! @40002850=1!"},
    {"TakingTheProtectionAwayErasesTheFlashFirst", ALL, "--rdp 1",
     "unlock erase-options flash?kept program-rdp:%off SR?1/1 OPTION_RDP_USER:FFFFFFFF finish "
     "flash?erased level?1 @8000000?! power level?0 @8000000?FFFFFFFF"},
    {"UnprotectingWipesTheBackupRegisters", "F042 F051 F303 F373", "--rdp 1",
     "unprotect backup?erased"},
    {"WriteProtectionDoesNotStopTheEraseThatUnprotects", ALL, "--rdp 1 --wrp all",
     "unprotect flash?erased"},
    {"OtherOptionBytesAndOtherLevelsEraseNothing", TRIO, "--rdp 1",
     "unlock erase-options program-rdp:12 finish OPTION_WRP01.2=%off finish flash?kept"},
    {"AtLevel0ProgrammingRdpAgainErasesNothing", TRIO, "", "unprotect flash?kept"},
    {"OnF1LevelZeroIsA5AndNothingElse", "F103 F100 F105", "--rdp 0xAA", "level?1"},
    {"F1HasNoLevel2", "F103 F103xG", "--rdp 0xCC", "level?1 CR?ok"},
    {"OnF0AndF3LevelZeroIsAAAndNothingElse", "F051 F303", "--rdp 0xA5", "level?1"},
    {"Level2ShutsTheDebugPort", "F042 F051 F303 F373", "--rdp 2",
     "level?2 CR?! @20000000?! KEYR=45670123!"},
    {"AtLevel1TheDebuggerCannotEraseOrProgram", TRIO, "--rdp 1",
     "unlock CR=4 CR=44 SR?4 SR=4 AR=8000000 CR=42 SR?4 SR=4 CR=1 @8000000.2=0 SR?4 flash?kept"},
};
PLAY_CASES(SimF1Levels, aLevels, Words);

// -- Loading -------------------------------------------------------------------------------------

static const STEPS_CASE aLoading[] = {
    {"EveryOptionByteIsLoadedToItsPlaceOnF0AndF3", "F072 F091 F303 F373", "",
     "unlock erase-options CR=210 @1FFFF800.2=AA finish @1FFFF802.2=F9 finish @1FFFF804.2=12 "
     "finish "
     "@1FFFF806.2=34 finish @1FFFF808.2=FE finish @1FFFF80A.2=FD finish @1FFFF80C.2=FB finish "
     "@1FFFF80E.2=F7 finish @1FFFF800?06F955AA @1FFFF804?CB34ED12 @1FFFF808?02FD01FE "
     "@1FFFF80C?08F704FB power OBR?3412F900 WRPR?F7FBFDFE"},
    {"EveryOptionByteIsLoadedToItsPlaceOnF1", "F103 F103xG", "",
     "unlock erase-options CR=210 @1FFFF800.2=A5 finish @1FFFF802.2=F9 finish @1FFFF804.2=12 "
     "finish "
     "@1FFFF806.2=34 finish @1FFFF808.2=FE finish @1FFFF80A.2=FD finish @1FFFF80C.2=FB finish "
     "@1FFFF80E.2=F7 finish reset OBR?D04BE4 WRPR?F7FBFDFE"},
    {"SmallDevicesHaveTwoWriteProtectionBytes", "F051 F301 F334", "",
     "unlock erase-options CR=210 @1FFFF80C.2=FB finish @1FFFF80A.2=FD finish power WRPR?FFFFFDFF"},
    {"TheSmallestHaveOne", "F030 F042", "",
     "unlock erase-options CR=210 @1FFFF80A.2=FD finish @1FFFF808.2=FE finish power WRPR?FFFFFFFE"},
    {"ASystemResetLoadsOnF1AndF3", ALL_F1 ALL_F3, "--rdp 1", "unprotect reset level?0"},
    {"ASystemResetDoesNotLoadOnF0", ALL_F0, "--rdp 1",
     "unprotect level?1 reset level?1 stored?0 remark?some power level?0 remark?none"},
    {"WhatIsLoadedStaysOverAResetThatDoesNotLoad", "F051", "--rdp 1 --wrp 0 --user 0xFB",
     "unprotect reset OBR?FFFFFB02 WRPR?FFFFFFFE @8000000?! power OBR?FFFFFF00 WRPR?FFFFFFFF"},
    {"F3LoadsOnlyByLaunchWhereThatVariantIsChosen", ALL_F3, "--rdp 1 --variant f3_load_on_reset=0",
     "unprotect reset level?1 unlock CR=2000 level?0"},
    {"LaunchResetsTheDeviceAndNeedsNoOptwre", ALL_F0 ALL_F3, "--rdp 1",
     "unprotect CR=2000 level?0 CR?80 SR?0 halted?0"},
    {"ALaunchLoadsOnce", "F051", "",
     "KEYR=45670123 KEYR=CDEF89AB CR=2000 unlock erase-options reset level?0"},
    {"LaunchNeedsLockOpen", "F051", "", "unlock erase-options CR=80 CR=2000 level?0"},
    {"TheLaunchTransferMayFailAlthoughItWorked", "F051 F303", "--variant obl_transfer_fails=1",
     "unlock CR=2000! CR?80"},
    {"F1HasNoLaunchBit", ALL_F1, "--rdp 1", "unlock CR=2200 CR?200"},
    {"AMismatchOfRdpIsLevel1", ALL, "--mismatch rdp", "level?1 stored?1 OBR?1/1 error?OPTERR"},
    {"AMismatchOfTheUserByteCountsAsFF", "F051 F303", "--user 0xF8 --mismatch user",
     "level?0 OBR?FFFFFF01"},
    {"AMismatchOfTheUserByteCountsAsFFOnF1", "F103", "--user 0xF8 --mismatch user",
     "level?0 OBR?3FFFFFD"},
    {"AnyByteCanHaveAMismatch", "F103 F105",
     "--option DATA0=0x12 --option DATA1=0x12 --option WRP0=0 --option WRP1=0 --option WRP2=0 "
     "--option WRP3=0 --mismatch DATA0 --mismatch DATA1 --mismatch WRP0 --mismatch WRP1 "
     "--mismatch WRP2 --mismatch WRP3",
     "OBR?3FFFFFD WRPR?FFFFFFFF"},
    {"WhatIsNotAnOptionNeedsNoComplement", "F030 F042 F051 F301 F334", "",
     "unlock erase-options CR=210 @1FFFF80C.2=12 wait:40us power @1FFFF80C?FFFFFF12 OBR?0/1 "
     "error?none"},
    {"NorDoesTheByteAfterTheOnlyOneForSectors", "F030 F042", "",
     "unlock erase-options CR=210 @1FFFF80A.2=12 wait:40us power @1FFFF808?FF12FFFF OBR?0/1 "
     "error?none WRPR?FFFFFFFF"},
    {"AnErasedPairIsNoMismatch", "F103", "",
     "unprotect reset OBR?3FFFFFC WRPR?FFFFFFFF error?none"},
    {"DataBytesAreTheUsers", "F072 F303", "--option DATA0=0x12 --option DATA1=0x34",
     "OPTION_DATA?CB34ED12 OBR?3412FF00"},
    {"F042AndF091ChooseTheirBootModeByOptions", "F042 F091",
     "--option BOOT_SEL=0 --option nBOOT0=0", "OPTION_RDP_USER?887755AA OBR?FFFF7700"},
    {"XlDensityChoosesItsBootBank", "F103xG", "--option BFB2=0", "OBR?3FFFFDC"},
    {"F1FlashStaysClosedUntilPowerOnWhereThatVariantIsChosen", "F103",
     "--rdp 1 --variant f1_unprotect_needs_power_on=1",
     "unprotect reset level?0 @8000000?! remark?some power @8000000?ok remark?none"},
};
PLAY_CASES(SimF1Loading, aLoading, Words);

// -- Main flash ----------------------------------------------------------------------------------

static const STEPS_CASE aFlash[] = {
    {"WriteProtectionStopsPageAndMassErase", "F103", "--wrp 0,31",
     "WRPR?7FFFFFFE unlock CR=2 AR=8000000 CR=42 SR?10 SR=10 AR=8001000 CR=42 finish "
     "@8001000?FFFFFFFF @8001400?12345678 SR=34 CR=4 CR=44 SR?10 @8000000?12345678"},
    {"APageOf1KB", "F030 F042 F051 F100 F103x6 F103", "",
     "unlock AR=8000C64 CR=2 CR=42 CR?42 finish CR?2 @8000BFC?12345678 @8000C00?FFFFFFFF "
     "@8000FFC?FFFFFFFF @8001000?12345678"},
    {"APageOf2KB", "F072 F091 F100xE F103xE F103xG F105 " ALL_F3, "",
     "unlock AR=8001864 CR=2 CR=42 CR?42 finish CR?2 @80017FC?12345678 @8001800?FFFFFFFF "
     "@8001FFC?FFFFFFFF @8002000?12345678"},
    {"MassEraseTakesTheFlashAndNoBackupRegisters", "F051 F303 F373", "",
     "unlock CR=4 CR=44 CR?44 finish flash?erased backup?kept"},
    {"MainFlashTakesHalfWordsIntoErasedPlacesOnly", TRIO, "empty",
     "unlock CR=1 @8000002.2=BEEF finish @8000000?BEEFFFFF @8000000.2=CAFE finish "
     "@8000000?BEEFCAFE "
     "@8000002.2=1234 SR?4/4 @8000004=12345678! @8000004.1=12! @8000002.2=0 finish "
     "@8000000?CAFE"},
    {"MainFlashNeedsLockOpenAndPg", TRIO, "empty",
     "@8000000.2=1234 unlock @8000000.2=1234 CR=1 CR=81 @8000000.2=1234 finish flash?erased"},
    {"ReadsOfTheFlashWaitForAnOperation", TRIO, "",
     "unlock AR=8000800 CR=2 CR=42 wait:8ms flash-full stalled?12000"},
    {"OneBankStaysReadableWhileTheOtherErases", "F103xG", "",
     "unlock unlock2 AR2=8080000 CR2=2 CR2=42 SR2?1 SR?0 flash-full stalled?0 @8080000?FFFFFFFF "
     "stalled?20000 CR2?2 SR2?20 AR=8000000 CR=2 CR=42 SR?1 SR2?20 @8080800?12345678 stalled?0 "
     "@8000000?FFFFFFFF stalled?20000"},
    {"AnOptionByteKeepsTheFirstBankBusyOnly", "F103xG", "",
     "unlock erase-options CR=200 CR=210 OPTION_DATA.2=12 SR?1/1 SR2?0 @8080000?12345678 stalled?0 "
     "flash-full stalled?53 SR?0/1"},
    {"ABankIsErasedAloneAndUnprotectingTakesBoth", "F103xG", "",
     "unlock unlock2 CR2=4 CR2=44 finish @807FFFC?12345678 @8080000?FFFFFFFF @80FFFFC?FFFFFFFF "
     "CR=4 "
     "CR=44 finish flash?erased"},
    {"ASecondBankIsProgrammedThroughItsOwnRegisters", "F103xG", "empty",
     "unlock unlock2 CR=1 @8080000.2=1234 finish @8080000?FFFFFFFF CR2=1 @8080000.2=1234 finish "
     "@8080000?FFFF1234 SR2?20 @8080000.2=5678 SR2?24 SR?0"},
};
PLAY_CASES(SimF1Flash, aFlash, Words);

// A bit stands for 4 KB, the last one also for everything after it.
TEST(SimF1, AProtectedSectorIsNotProgrammed) {
  const struct {
    const char* sName;
    uint32_t    Bit, First, End, FlashBytes;
    const char* sVariant;
  } aRows[] = {{"F030", 7, 0x7000, 0x8000, 0x8000, ""},
               {"F051", 0, 0, 0x1000, 0x10000, ""},
               {"F051", 15, 0xF000, 0x10000, 0x10000, ""},
               {"F091", 30, 0x1E000, 0x1F000, 0x40000, ""},
               {"F091", 31, 0x1F000, 0x40000, 0x40000, ""},
               {"F103x6", 7, 0x7000, 0x8000, 0x8000, ""},
               {"F103", 1, 0x1000, 0x2000, 0x20000, ""},
               {"F103", 8, 0x8000, 0x9000, 0x20000, ""},
               {"F103", 16, 0x10000, 0x11000, 0x20000, ""},
               {"F103", 24, 0x18000, 0x19000, 0x20000, ""},
               {"F103", 31, 0x1F000, 0x20000, 0x20000, ""},
               {"F100xE", 31, 0x1F000, 0x80000, 0x80000, ""},
               {"F100xE", 30, 0x3C000, 0x3E000, 0x80000, "--variant f1_wrp_of_four_pages=1"},
               {"F103xE", 30, 0x1E000, 0x1F000, 0x80000, ""},
               {"F105", 31, 0x1F000, 0x40000, 0x40000, ""},
               {"F301", 15, 0xF000, 0x10000, 0x10000, ""},
               {"F303", 2, 0x2000, 0x3000, 0x40000, ""},
               {"F303", 31, 0x1F000, 0x40000, 0x40000, ""}};
  for (const auto& Row : aRows) {
    std::string sSteps = sim::Format("WRPR?%X unlock CR=1", ~(1u << Row.Bit));
    for (const uint32_t Offset :
         {Row.First - 2, Row.First, Row.First + 0x800, Row.End - 2, Row.End}) {
      if (Offset < Row.FlashBytes) {
        const bool Protected = Offset >= Row.First && Offset < Row.End;
        // Zeros, which can be written more than once.
        sSteps +=
            sim::Format(" @%X.2=0 finish SR?%d SR=34", 0x08000000 + Offset, Protected ? 10 : 20);
      }
    }
    const std::string sState = sim::Format("empty --wrp %u %s", Row.Bit, Row.sVariant);
    PlayCase({"", Row.sName, sState.c_str(), sSteps.c_str()}, Words);
  }
}

// -- Watchdog ------------------------------------------------------------------------------------

static const STEPS_CASE aWatchdog[] = {
    {"FreezeOfF0IsLostWithoutTheClockOfItsBlock", ALL_F0, "",
     "DBGMCU_APB1_FZ=1800 DBGMCU_APB1_FZ?0 RCC_APB2ENR=400000 DBGMCU_APB1_FZ=1800 "
     "DBGMCU_APB1_FZ?1800"},
    {"FreezeOfF0NeedsNoClockWhereThatVariantIsChosen", "F051", "--variant f0_dbgmcu_gated=0",
     "DBGMCU_APB1_FZ=1800 DBGMCU_APB1_FZ?1800"},
    {"FreezeSurvivesASystemResetAndNotAPowerCycle", "F103", "",
     "DBGMCU_CR=300 reset DBGMCU_CR?300 power DBGMCU_CR?0"},
    {"AHardwareWatchdogBitesAndClosesTheLocks", TRIO, "--rdp 1 --user 0xFE",
     "reset unlock wait:409ms resets?0 wait:2ms resets?1 CR?80"},
    {"FreezeStopsItOnF1WhileTheCoreIsHalted", "F103", "--rdp 1 --user 0xFE",
     "DBGMCU_CR=100 reset wait:5000ms resets?0 run wait:411ms resets?1"},
    {"FreezeStopsItOnF3WhileTheCoreIsHalted", "F303", "--rdp 1 --user 0xFE",
     "DBGMCU_APB1_FZ=1000 reset wait:5000ms resets?0 DBGMCU_APB1_FZ=800 wait:411ms resets?1"},
    {"FreezeStopsItOnF0WhileTheCoreIsHalted", "F051",
     "--rdp 1 --user 0xFE --variant f0_dbgmcu_gated=0",
     "DBGMCU_APB1_FZ=1000 reset wait:5000ms resets?0"},
    {"AWatchdogThatSoftwareStartsIsNotStartedByAReset", TRIO, "--rdp 1",
     "reset wait:5000ms resets?0"},
};
PLAY_CASES(SimF1Watchdog, aWatchdog, Words);

// -- Operations that do not end ------------------------------------------------------------------

static const STEPS_CASE aCuts[] = {
    {"AnOptionEraseThatIsCutLateLeavesErasedBytes", TRIO, "",
     "unlock CR=220 CR=260 wait:11ms reset SR?0 OPTION_RDP_USER?FFFFFFFF power level?1"},
    {"AnOptionEraseThatIsCutEarlyLeavesBytesWithoutTheirComplements", "F103 F303", "",
     "unlock CR=220 CR=260 wait:1ms reset level?1 error?OPTERR OPTION_DATA?AAFFAAFF"},
    {"AnOptionByteThatIsCutLateHasNoComplement", "F103 F303", "",
     "unlock erase-options CR=210 OPTION_DATA.2=12 wait:40us reset OPTION_DATA?FFFFFF12 "
     "error?OPTERR"},
    {"AnOptionByteThatIsCutEarlyIsErased", TRIO, "",
     "unlock erase-options CR=210 OPTION_DATA.2=12 wait:10us reset OPTION_DATA?FFFFFFFF"},
    {"AMassEraseThatIsCutHasDoneItsPart", "F103", "",
     "unlock CR=4 CR=44 wait:10ms reset @8000000?FFFFFFFF @800FFFC?FFFFFFFF @8010000?BABEFEFA "
     "@8010080?12345678"},
    {"APageEraseThatIsCutHasDoneItsPart", "F103", "",
     "unlock AR=8000400 CR=2 CR=42 wait:15ms power @80003FC?12345678 @8000400?FFFFFFFF "
     "@80006FC?FFFFFFFF @8000700?BABEFEFA @8000780?12345678"},
    {"AHalfWordOfTheFlashThatIsCutHasItsLowerByte", "F103", "empty",
     "unlock CR=1 @8000002.2=1234 wait:30us reset @8000000?FF34FFFF"},
    {"UnprotectingThatIsCutIsStillProtected", ALL_F1 ALL_F3, "--rdp 1",
     "unlock erase-options program-rdp:%off wait:10ms reset level?1 OPTION_RDP_USER?FFFFFFFF "
     "flash?partly"},
    {"WhatRanIsStillRunningWhenTheDeviceIsLoaded", TRIO, "--rdp 1",
     "unlock erase-options program-rdp:%off wait:5ms save SR?1/1 flash?kept wait:14999us "
     "flash?kept "
     "wait:1us flash?erased finish save SR?0/1 CR?210 stored?0"},
    {"LocksAreFoundAsTheyWereLeft", TRIO, "", "unlock save CR?200 OPTKEYR=1 CR?200 KEYR=1 CR?200"},
};
PLAY_CASES(SimF1Cuts, aCuts, Words);

TEST(SimF1, StatesThatDoNotExistAreRefused) {
  for (const char* sName : {"F030", "F051", "F103", "F303"}) {
    ExpectRefused(sName, "--pcrop all", "this device has no PCROP");
    ExpectRefused(sName, "--pcrop 0", "this device has no PCROP");
    ExpectRefused(sName, "--secure", "this device has no secure area");
    ExpectRefused(sName, "--pcrop-rdp 1", "this device has no PCROP_RDP bit");
    ExpectRefused(sName, "--option SPRMOD=1", "this device has no option SPRMOD");
    ExpectRefused(sName, "--option DATA0=0x100", "0x100 does not fit into DATA0");
    ExpectRefused(sName, "--mismatch SPRMOD", "this device has no option SPRMOD");
    ExpectRefused(sName, "--variant f4_level_at_once=1",
                  "\"f4_level_at_once=1\" is no value for --variant");
  }
  ExpectRefused("F103", "--rdp 2", "this device has no level 2");
  ExpectRefused("F103", "--wrp 32", "sector 32: this device has sectors 0 to 31");
  ExpectRefused("F103x6", "--wrp 8", "sector 8: this device has sectors 0 to 7");
  ExpectRefused("F051", "--wrp 16", "sector 16: this device has sectors 0 to 15");
  ExpectRefused("F030", "--wrp 8", "sector 8: this device has sectors 0 to 7");
}
