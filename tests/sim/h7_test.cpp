// SPDX-License-Identifier: MIT

// H7: a row for each rule of the hardware. Addresses and keys as in the manuals.

#include "sim/catalog.h"
#include "sim/request.h"
#include "sim/text.h"
#include "sim/verdict.h"
#include "tests/sim/steps.h"

static const STEPS_WORDS Words = {
    {"unlock", "OPTKEYR=08192A3B OPTKEYR=4C5D6E7F"},
    {"unlock1", "KEYR1=45670123 KEYR1=CDEF89AB"},
    {"unlock2", "KEYR2=45670123 KEYR2=CDEF89AB"},
    {"start", "OPTCR=2 finish"},
    {"unprotect", "unlock OPTSR_PRG+1.1=AA start"},
    {"refused", "OPTSR_CUR?40000000/40000000 error?OPTCHANGEERR remark?some"},
    {"accepted", "OPTSR_CUR?0/40000000 error?none remark?none"},
    {"pass1-of-view1", "unlock OPTSR_PRG+1.1=AA WPSN_PRG1R=FF start OPTCR=3"},
    {"pass1", "pass1-of-view1 unlock OPTSR_PRG2+1.1=AA WPSN_PRG2R=FF OPTCR2=2 finish OPTCR2=3"},
    {"pass2-of-view1",
     "unlock OPTSR_PRG=1416AAF0 PRAR_PRG1=FF SCAR_PRG1=800000FF WPSN_PRG1R=FF BOOT_PRGR=1FF00800 "
     "start"},
    {"pass2",
     "pass2-of-view1 OPTSR_PRG2=1416AAF0 PRAR_PRG2=FF SCAR_PRG2=800000FF WPSN_PRG2R=FF "
     "BOOT_PRGR2=1FF00800 OPTCR2=2 finish reset"},
    {"as-expected",
     "OPTSR_CUR?1416AAF0 PRAR_CUR1?FF SCAR_CUR1?800000FF WPSN_CUR1R?FF BOOT_CURR?1FF00800 "
     "OPTSR_CUR2?1416AAF0 PRAR_CUR2?FF SCAR_CUR2?800000FF WPSN_CUR2R?FF BOOT_CURR2?1FF00800"},
};

#define TWO_BANKS "H743 H745 H750 "
#define ALL       TWO_BANKS "H723"

// -- What a manual prints ------------------------------------------------------------------------

static const STEPS_CASE aPrinted[] = {
    {"H743", "H743", "",
     "@5C001000?450/FFF OPTCR?1 as-expected OPTSR_PRG?1416AAF0 CR1?31 SR1?0 CR2?31 SR2?0 OPTCCR?0 "
     "OPTSR:1416AAF0 PRAR1:FF SCAR1:800000FF WPSN1:FF PRAR2:FF SCAR2:800000FF WPSN2:FF "
     "BOOT:1FF00800"},
    {"H750", "H750", "", "@5C001000?450/FFF OPTCR?1 as-expected OPTSR_PRG?1416AAF0"},
    {"H745", "H745", "",
     "@5C001000?450/FFF OPTSR_CUR?17C6AAF0 SCAR_CUR1?FF SCAR_CUR2?FF BOOT_CURR?1FF00800 "
     "BOOT4_CURR?10000810 BOOT4_PRGR?10000810"},
    {"H723", "H723", "",
     "@5C001000?483/FFF OPTCR?1 OPTSR_CUR?179EAAF0 PRAR_CUR1?FF SCAR_CUR1?800000FF WPSN_CUR1R?FF "
     "BOOT_CURR?1FF00800 OPTSR2_CUR?0"},
    {"DeliveredAsPrintedWhereThatVariantIsChosen", "H743 H750",
     "--variant h7_delivered_by_manual=1",
     "OPTSR_CUR?1406AAF0 SCAR_CUR1?FF SCAR_CUR2?FF PRAR_CUR1?FF"},
    {"OrWithoutDmes", "H723", "--variant h723_delivered_without_dmes=1",
     "OPTSR_CUR?179EAAF0 SCAR_CUR1?FF"},
    {"BitsOfH743", "H743", "",
     "unlock OPTSR_PRG=0 OPTSR_PRG?14000020 OPTSR_PRG=FFFFFFFF OPTSR_PRG?B43EFFFC"},
    {"BitsOfH745", "H745", "",
     "unlock OPTSR_PRG=0 OPTSR_PRG?14000000 OPTSR_PRG=FFFFFFFF OPTSR_PRG?B7FEFFFC "
     "register:BOOT4_PRGR=10000810/FFFFFFFF"},
    {"BitsOfH750", "H750", "",
     "unlock OPTSR_PRG=0 OPTSR_PRG?14000020 OPTSR_PRG=FFFFFFFF OPTSR_PRG?343EFFFC"},
    {"BitsOfH723", "H723", "",
     "unlock OPTSR_PRG=0 OPTSR_PRG?17800020 OPTSR_PRG=FFFFFFFF OPTSR_PRG?37BEFFFC "
     "register:OPTSR2_PRG=0/7"},
    {"BitsOfH723WhereThatVariantIsChosen", "H723", "--variant h723_spare_bits_writable=1",
     "unlock OPTSR_PRG=0 OPTSR_PRG?14000020 OPTSR_PRG=FFFFFFFF OPTSR_PRG?37BEFFFC"},
    {"OtherOptionBits", ALL, "",
     "unlock PRAR_PRG1=0 PRAR_PRG1?0 PRAR_PRG1=FFFFFFFF PRAR_PRG1?8FFF0FFF SCAR_PRG1=0 SCAR_PRG1?0 "
     "SCAR_PRG1=FFFFFFFF SCAR_PRG1?8FFF0FFF WPSN_PRG1R=0 WPSN_PRG1R?0 WPSN_PRG1R=FFFFFFFF "
     "WPSN_PRG1R?FF BOOT_PRGR=0 BOOT_PRGR?0 BOOT_PRGR=FFFFFFFF BOOT_PRGR?FFFFFFFF"},
    {"OptionBitsOfTheSecondBank", TWO_BANKS, "",
     "unlock PRAR_PRG2=0 PRAR_PRG2?0 PRAR_PRG2=FFFFFFFF PRAR_PRG2?8FFF0FFF SCAR_PRG2=0 SCAR_PRG2?0 "
     "SCAR_PRG2=FFFFFFFF SCAR_PRG2?8FFF0FFF WPSN_PRG2R=0 WPSN_PRG2R?0 WPSN_PRG2R=FFFFFFFF "
     "WPSN_PRG2R?FF BOOT_PRGR2=0 BOOT_PRGR?0 BOOT_PRGR2=FFFFFFFF BOOT_PRGR2?FFFFFFFF"},
    {"ValuesInForceAreForReadingOnly", TWO_BANKS, "",
     "unlock OPTSR_CUR=0 OPTSR_CUR?AA00/FF00 PRAR_CUR1=0 PRAR_CUR1?FF SCAR_CUR2=0 SCAR_CUR2?FF/FF "
     "WPSN_CUR2R=0 WPSN_CUR2R?FF BOOT_CURR=0 BOOT_CURR?1FF00800"},
    {"ControlBits", TWO_BANKS, "",
     "unlock1 CR1=FFFFFF3E CR1?1073E CR1=1 CR1?1 KEYR1?0 unlock2 CR2=FFFFFF3E CR2?1073E CR2=1 "
     "CR2?1 "
     "KEYR2?0 OPTKEYR?0 unlock OPTCR=FFFFFFEC OPTCR?40000000"},
    {"SizesH743", "H743 H745", "",
     "memory:8000000=200000 memory:20000000=20000 memory:38800000=1000 memory:58004050=80 "
     "memory:24000000=80000 memory:0=10000 memory:30000000=48000 memory:38000000=10000 "
     "@1FF1E880.2?800 power @20000000?0 @38800000?12345678"},
    {"SizesH750", "H750", "", "memory:8000000=200000 memory:38800000=1000 @1FF1E880.2?80"},
    {"SizesH723", "H723", "",
     "memory:8000000=100000 memory:20000000=20000 memory:38800000=1000 memory:24000000=50000 "
     "memory:0=10000 memory:30000000=8000 memory:38000000=4000 @1FF1E880.2?400"},
    {"H750AnswersForItsFirstSectorOnlyWhereThatVariantIsChosen", "H750",
     "--variant h750_flash_ends_at_128k=1",
     "@801FFFC?12345678 @8020000?! @8100000?! unlock1 CR1=32 @8020000=0! SR1?0"},
    {"DebugRegistersOutliveAResetAndNotPowerOff", ALL, "",
     "@5C001000=0 DBGMCU_CR=FFFFFFFF DBGMCU_APB3FZ1=FFFFFFFF DBGMCU_APB4FZ1=FFFFFFFF reset "
     "@5C001000?400/C00 DBGMCU_CR?700007 DBGMCU_APB3FZ1?40 DBGMCU_APB4FZ1?50780 power DBGMCU_CR?0 "
     "DBGMCU_APB3FZ1?0 DBGMCU_APB4FZ1?0"},
    {"ThereIsNoDebugBlockAtThePlaceOfTheOthers", ALL, "", "@E0042008=1800! @E0042008?!"},
};
PLAY_CASES(SimH7Printed, aPrinted, Words);

// -- Locks and views -----------------------------------------------------------------------------

static const STEPS_CASE aLocks[] = {
    {"OptkeyrOptcrOptsrAndBootAreOneRegisterAtTwoAddresses", TWO_BANKS, "",
     "OPTKEYR=08192A3B OPTKEYR2=4C5D6E7F OPTCR?0 OPTCR2?0 OPTSR_PRG2.1=E0 OPTSR_PRG?E0/FF "
     "BOOT_PRGR2=12345678 BOOT_PRGR?12345678 WPSN_PRG2R=0 WPSN_PRG1R?FF"},
    {"AWrongKeyIsABusErrorAndLocksUntilReset", ALL, "",
     "OPTKEYR=4C5D6E7F! OPTKEYR=08192A3B! OPTCR?1 reset unlock OPTCR?0"},
    {"SoIsAThirdKey", ALL, "", "unlock OPTKEYR=08192A3B! OPTCR?1 OPTKEYR=08192A3B! OPTCR?1"},
    {"SoIsAnotherRegisterBetweenTheKeys", ALL, "",
     "OPTKEYR=08192A3B OPTCCR=0 OPTKEYR=4C5D6E7F! OPTCR?1 reset KEYR1=45670123 OPTKEYR=08192A3B "
     "KEYR1=CDEF89AB! OPTKEYR=4C5D6E7F! OPTCR?1 CR1?31"},
    {"AndTheOtherBanksKeys", TWO_BANKS, "",
     "KEYR1=45670123 KEYR2=45670123 KEYR1=CDEF89AB! CR1?31 reset OPTKEYR=08192A3B KEYR2=45670123 "
     "OPTKEYR=4C5D6E7F! OPTCR?1 reset KEYR2=45670123 KEYR1=45670123 KEYR2=CDEF89AB! CR2?31"},
    {"SoIsAKeyThatIsNoWord", ALL, "",
     "OPTKEYR=08192A3B OPTKEYR.2=6E7F! OPTCR?1 reset KEYR1.2=123! KEYR1=45670123! CR1?31"},
    {"EachBankHasKeysOfItsOwn", TWO_BANKS, "",
     "unlock1 CR1?30 CR2?31 KEYR2=CDEF89AB! KEYR2=45670123! CR1?30 reset CR1?31 unlock2 CR2?30"},
    {"AThirdKeyLocksABankUntilReset", ALL, "",
     "unlock1 KEYR1=45670123! CR1?31 KEYR1=45670123! power unlock1 CR1?30"},
    {"LocksAreSetBySoftwareAndOpenedByKeys", ALL, "",
     "unlock OPTCR=1 OPTCR?1 unlock OPTCR?0 unlock1 CR1=31 CR1?31 CR1=2 CR1?31 unlock1 CR1?30"},
    {"PrgRegistersAreClosedWhileOptlockIsSet", ALL, "",
     "OPTSR_PRG=0 WPSN_PRG1R=0 OPTCR=2 OPTSR_PRG?AA00/FF00 WPSN_PRG1R?FF OPTCR?1"},
    {"H723HasNoSecondView", "H723", "",
     "unlock @5200210C?0 @52002118?0 @5200211C?0 @52002120=0 @52002138?0 @52002118=2 SR1?0 "
     "OPTSR_CUR?179EAAF0 OPTCR?0 @52002200?!"},
    {"WhichFaultsWhereThatVariantIsChosen", "H723", "--variant h723_second_view_faults=1",
     "@5200211C?! @52002118=2!"},
    {"Bank2OfH750HasNoOptionsWhereThatVariantIsChosen", "H750",
     "--variant h750_bank2_has_no_options=1",
     "unlock PRAR_PRG2=0 PRAR_PRG2?0 PRAR_CUR2?0 SCAR_CUR2?0 WPSN_CUR2R?0 OPTSR_CUR2?1416AAF0 "
     "start "
     "SR2?0 PRAR2:FF accepted"},
};
PLAY_CASES(SimH7Locks, aLocks, Words);

// -- Changes -------------------------------------------------------------------------------------

static const STEPS_CASE aChanges[] = {
    {"NothingDifferentMeansNothingIsDone", ALL, "", "unlock OPTCR=2 OPTSR_CUR?0/1 OPTCR?0"},
    {"AChangeIsBusyAndThenInForceWithoutReset", "H743 H745", "",
     "unlock WPSN_PRG1R=FE WPSN_PRG2R=7F OPTCR=2 OPTSR_CUR?1/1 WPSN_CUR1R?FF wait:300ms "
     "OPTSR_CUR?0/1 WPSN_CUR1R?FE WPSN_CUR2R?7F"},
    {"StartAndLockInOneWrite", ALL, "",
     "unlock WPSN_PRG1R=FE OPTCR=3 finish WPSN_CUR1R?FE OPTCR?1"},
    {"NothingElseIsTakenMeanwhile", ALL, "",
     "unlock WPSN_PRG1R=FE OPTCR=2 OPTCR?2 WPSN_PRG1R=0 WPSN_PRG1R?FE OPTCR=2 wait:300ms "
     "OPTSR_CUR?0/1 OPTCR?0 WPSN_CUR1R?FE"},
    {"ReadsOfBothBanksWaitMeanwhile", TWO_BANKS, "",
     "unlock WPSN_PRG1R=FE OPTCR=2 @8100000?12345678 stalled?300000"},
    {"PrgIsReloadedAtEveryReset", ALL, "",
     "unlock WPSN_PRG1R=0 BOOT_PRGR=0 reset WPSN_PRG1R?FF BOOT_PRGR?1FF00800"},
    {"AResetKeepsTheOldValues", "H743 H745 H723", "--rdp 1",
     "unlock OPTSR_PRG+1.1=AA OPTCR=2 wait:1000ms reset OPTSR_CUR?0/1 level?1 OPTCR?1 "
     "flash?partly"},
    {"BorLevIsInForceAtOnceAndAWriteThatWaitedFindsNoPower", "H743", "",
     "voltage:2500 unlock OPTSR_PRG.1=FC OPTCR=2 @20000000=0 @8000000=0! powered?0"},
    {"SoDoesALossOfPower", ALL, "",
     "unlock WPSN_PRG1R=FE OPTCR=2 wait:200ms power WPSN_CUR1R?FF WPSN_PRG1R?FF"},
    {"BootAddressesCanBeCreatedAndChanged", ALL,
     "--option BOOT_ADD0=0x1234 --option BOOT_ADD1=0x5678",
     "BOOT_CURR?56781234 unlock BOOT_PRGR=1FF00800 start BOOT_CURR?1FF00800"},
    {"SoCanThoseOfTheOtherCore", "H745", "--option BOOT_CM4_ADD1=0x1234",
     "BOOT4_CURR?12340810 unlock BOOT4_PRGR=10000810 start BOOT4_CURR?10000810"},
    {"SoCanTheMemoryOptionsOfH723", "H723", "--option TCM_AXI_SHARED=2",
     "OPTSR2_CUR?2 unlock OPTSR2_PRG=4 start OPTSR2_CUR?4"},
    {"AnErrorIsClearedThroughOptccrAndStaysOverAReset", "H743 H723", "--pcrop 1-2 --pcrop-rdp 0",
     "unlock PRAR_PRG1=FF start refused reset refused OPTCCR=3FFFFFFF refused OPTCCR=40000000 "
     "accepted"},
    {"AnErrorGoesWithPowerAndDoesNotStopTheNextChange", ALL, "--pcrop 1-2",
     "unlock PRAR_PRG1=FF start refused PRAR_PRG1=05FF0200 WPSN_PRG1R=FE start WPSN_CUR1R?FE "
     "refused "
     "power accepted"},
    {"OrWithAResetWhereThatVariantIsChosen", ALL,
     "--pcrop 1-2 --variant h7_error_cleared_on_reset=1",
     "unlock PRAR_PRG1=FF start reset accepted"},
    {"SwappedBanksExchangeTheirViewsAtTheNextReset", "H743 H745", "",
     "unlock OPTSR_PRG+3.1=94 WPSN_PRG1R=FE start OPTSR_CUR?80000000/80000000 WPSN_CUR1R?FE "
     "OPTCR?0 "
     "reset OPTCR?80000001 WPSN_CUR1R?FF WPSN_CUR2R?FE"},
    {"SwappedBanksExchangeMemoryAndProtection", "H743", "",
     "unlock1 CR1=B4 finish unlock OPTSR_PRG=9416AAF0 PRAR_PRG1=00030002 start @8000000?FFFFFFFF "
     "reset "
     "@8100000?FFFFFFFF @8000000?12345678 @8000200?12345678 @8100200?! SR1?0 SR2?800000 power "
     "@8100000?FFFFFFFF"},
    {"SwappedBanksAreProgrammedThroughTheirViews", "H743", "empty --user 0x9416AAF0",
     "unlock2 CR2=32 @8100020=0 @8100024=4 CR2=72 finish @8100024?4 @8000024?FFFFFFFF"},
    {"H750AndH723HaveNoBanksToSwap", "H750 H723", "",
     "unlock OPTSR_PRG+3.1=94 OPTSR_PRG?0/80000000 reset OPTCR?1"},
};
PLAY_CASES(SimH7Changes, aChanges, Words);

TEST(SimH7, AChangeTakesItsTime) {
  const struct {
    const char* sState;
    uint32_t    Psize, Ms;
  } aRows[] = {
      {"--rdp 0 --variant timing_max=0", 3, 300},   {"--rdp 0 --variant timing_max=1", 3, 600},
      {"--rdp 1 --variant timing_max=0", 3, 5300},  {"--rdp 1 --variant timing_max=1", 3, 10600},
      {"--rdp 1 --variant timing_max=0", 2, 6300},  {"--rdp 1 --variant timing_max=0", 1, 8300},
      {"--rdp 1 --variant timing_max=0", 0, 13300}, {"--rdp 1 --variant timing_max=1", 0, 26600}};
  for (const auto& Row : aRows) {
    PlayCase({"", ALL, Row.sState,
              sim::Format("unlock1 CR1=%X unlock WPSN_PRG1R=FE OPTSR_PRG+1.1=AA OPTCR=2 wait:%ums "
                          "OPTSR_CUR?1/1 wait:1ms OPTSR_CUR?AA00/FF01 SR1?0",
                          Row.Psize << 4, Row.Ms - 1)
                  .c_str()},
             Words);
  }
}

// -- Levels and areas ----------------------------------------------------------------------------

static const STEPS_CASE aLevels[] = {
    {"AtLevel1FlashAndBackupAreClosed", TWO_BANKS, "--rdp 1",
     "@8000000?! SR1?800000 @8100000?! SR2?800000 @38800000?! @38800000=0! @58004050?! "
     "@20000000?ok OPTSR_CUR?ok"},
    {"AtLevel1TheOneBankIsClosed", "H723", "--rdp 1", "@8000000?! SR1?800000 @38800000?!"},
    {"AtLevel1FlashIsNeitherProgrammedNorErased", ALL, "--rdp 1",
     "unlock1 CR1=32 @8000000=0 SR1?20000 CCR1=20000 CR1=B4 SR1?20000 flash?kept"},
    {"OneToZeroErasesTheFlashAndBackup", ALL, "--rdp 1",
     "unlock OPTSR_PRG+1.1=AA OPTCR=2 wait:4999ms OPTSR_CUR?1/1 flash?kept finish level?0 "
     "flash?erased "
     "backup_sram?erased backup?erased"},
    {"OneToZeroErasesWhatH750DoesNotAnswerFor", "H750", "--rdp 1",
     "unprotect flash?erased flash_beyond?erased"},
    {"RaisingTheLevelErasesNothing", ALL, "", "unlock OPTSR_PRG+1.1=BB start level?1 flash?kept"},
    {"WriteProtectionDoesNotStopTheErase", ALL, "--rdp 1 --wrp all", "unprotect flash?erased"},
    {"Level2ShutsTheDebugPort", ALL, "--rdp 2", "level?2 OPTSR_CUR?!"},
    {"PcropMayGrowAndNotShrink", ALL, "--pcrop 1-2",
     "PRAR_CUR1?05FF0200 @8020000?! @8000000?12345678 unlock PRAR_PRG1=07FF0100 start "
     "PRAR_CUR1?07FF0100 PRAR_PRG1=FF WPSN_PRG1R=0 start refused PRAR_CUR1?07FF0100 WPSN_CUR1R?FF "
     "PRAR_PRG1?FF"},
    {"NorInTheSecondBank", TWO_BANKS, "--pcrop 9",
     "PRAR_CUR1?FF PRAR_CUR2?03FF0200 unlock PRAR_PRG2=FF start refused PRAR_CUR2?03FF0200"},
    {"ItLeavesWithOneToZeroWhenDmepIsSet", ALL, "--rdp 1 --pcrop 1-2 --pcrop-rdp 1",
     "unlock OPTSR_PRG+1.1=AA PRAR_PRG1=FF start accepted PRAR_CUR1?FF flash?erased"},
    {"OrWhenTheChangeSetsDmep", ALL, "--rdp 1 --pcrop 1-2",
     "unlock OPTSR_PRG+1.1=AA PRAR_PRG1=800000FF start accepted PRAR_CUR1?800000FF flash?erased"},
    {"NotWithoutDmep", ALL, "--rdp 1 --pcrop 1-2",
     "unlock OPTSR_PRG+1.1=AA PRAR_PRG1=FF start refused PRAR_CUR1?05FF0200 flash?kept"},
    {"UnprotectingSparesItsSectorsWithoutDmep", "H743 H745 H723", "--rdp 1 --pcrop 1-2",
     "unprotect level?0 flash?partly @8000000?FFFFFFFF @8060000?FFFFFFFF @8020000?! "
     "PRAR_CUR1?05FF0200"},
    {"WithDmepItIsWipedAndKeepsItsBounds", ALL, "--rdp 1 --pcrop 1-2 --pcrop-rdp 1",
     "unprotect flash?erased PRAR_CUR1?85FF0200"},
    {"DmepAndDmesCanBeSetFreelyAndNotClearedAlone", "H743 H745 H723", "",
     "unlock PRAR_PRG1=800000FF SCAR_PRG1=800000FF start PRAR_CUR1?800000FF accepted PRAR_PRG1=FF "
     "start refused OPTCCR=40000000 PRAR_PRG1=800000FF SCAR_PRG1=FF start refused"},
    {"TheyMayGoTogetherWithOneToZero", "H743", "--rdp 1 --pcrop 1-2 --pcrop-rdp 1",
     "unlock OPTSR_PRG+1.1=AA PRAR_PRG1=FF PRAR_PRG2=FF SCAR_PRG1=FF start accepted PRAR_CUR1?FF "
     "PRAR_CUR2?FF SCAR_CUR1?FF flash?erased"},
    {"AnAreaHidesItsUnitsAndNoOthers", "H743", "",
     "unlock PRAR_PRG1=00030002 PRAR_PRG2=00050005 start @80001FC?ok @8000200?! @80003FC?! "
     "@8000400?ok @8100000?! @81FFFFC?! SR1?800000 SR2?800000"},
    {"ASecureAreaIsHiddenAndNotChangedByADebugger", ALL, "--secure",
     "SCAR_CUR1?81FF0000 OPTSR_CUR?200000/200000 @8000000?! SR1?1000000 @8020000?ok unlock "
     "SCAR_PRG1=800000FF start refused"},
    {"ADebuggerMakesNoSecureArea", ALL, "",
     "unlock SCAR_PRG1=81FF0000 start refused SCAR_CUR1?FF/FFFFFFF"},
    {"NorMovesOneEvenWithOneToZero", ALL, "--rdp 1 --secure",
     "unlock OPTSR_PRG+1.1=AA SCAR_PRG1=83FF0000 start refused level?1"},
    {"ASecureAreaLeavesWithOneToZero", ALL, "--rdp 1 --secure",
     "unlock OPTSR_PRG.2=AAF0 OPTSR_PRG+2.1=16 SCAR_PRG1=800000FF start accepted "
     "OPTSR_CUR?16AAF0/3FFFFF SCAR_CUR1?800000FF flash?erased"},
    {"ASecureAreaThatStaysIsWipedAndKeepsItsBounds", ALL, "--rdp 1 --secure",
     "unprotect level?0 flash?erased SCAR_CUR1?81FF0000 @8000000?! SR1?1000000 @8020000?ok"},
    {"ASecureAreaOfEitherBankCanBeCreated", TWO_BANKS,
     "--option SCAR2.SEC_AREA_START=0 --option SCAR2.SEC_AREA_END=0x1FF",
     "@8000000?ok @8100000?! SR2?1000000"},
    {"SecurityIsClearedOnlyWithoutASecureArea", "H743", "--secure",
     "unlock OPTSR_PRG=1416AAF0 start refused"},
    {"NorWithOneInTheSecondBank", "H743",
     "--option SECURITY=1 --option SCAR2.SEC_AREA_START=2 --option SCAR2.SEC_AREA_END=3",
     "unlock OPTSR_PRG=1416AAF0 start refused"},
    {"NorWithAPcropArea", "H743", "--pcrop 1-2 --user 0x1436AAF0",
     "unlock OPTSR_PRG=1416AAF0 start refused"},
    {"ItIsClearedWhenTheAreaIsWiped", "H743", "--rdp 1 --pcrop 1-2 --pcrop-rdp 1 --user 0x1436AAF0",
     "unlock OPTSR_PRG=1416AAF0 start OPTSR_CUR?1416AAF0"},
    {"AndWhereThereIsNone", "H743", "--user 0x1436AAF0",
     "unlock OPTSR_PRG=1416AAF0 start OPTSR_CUR?1416AAF0"},
};
PLAY_CASES(SimH7Levels, aLevels, Words);

// Which new bounds cover the old ones: everything else is a shrinking.
TEST(SimH7, APcropAreaMayOnlyCoverMoreThanBefore) {
  const struct {
    uint32_t Old, New;
    bool     Allowed;
  } aRows[] = {
      {0x05FF0200, 0x05FF0200, true},  {0x05FF0200, 0x05FF0100, true},
      {0x05FF0200, 0x06FF0200, true},  {0x05FF0200, 0x05FF0300, false},
      {0x05FF0200, 0x04FF0200, false}, {0x05FF0200, 0x00FF0100, false},
      {0x05FF0200, 0x03000300, true},  // start and end the same: the whole bank
      {0x03000300, 0x0FFF0000, false}, {0x03000300, 0x04000400, true},
      {0x000000FF, 0x05FF0200, true},  {0x05FF0200, 0x000000FF, false},
      {0x000000FF, 0x00000FFF, true},  // neither is an area
  };
  for (const auto& [Old, New, Allowed] : aRows) {
    PlayCase(
        {"", "H743", "",
         sim::Format("unlock PRAR_PRG1=%X start PRAR_CUR1?%X PRAR_PRG1=%X start %s PRAR_CUR1?%X",
                     Old, Old, New, Allowed ? "accepted" : "refused", Allowed ? New : Old)
             .c_str()},
        Words);
  }
}

TEST(SimH7, UnprotectingSparesAnAreaOfEitherKindInEitherBank) {
  for (const char* sArea : {"PRAR1", "SCAR1", "PRAR2", "SCAR2"}) {
    for (const uint32_t Wipe : {0u, 0x80000000u}) {
      const uint32_t Hidden = sArea[4] == '1' ? 0x08000000 : 0x08100000;
      PlayCase({"", "H743 H745", "--rdp 1",
                sim::Format("put:%s=%X power unprotect level?0 flash?%s @%X?! @%X?FFFFFFFF", sArea,
                            0x00030002 | Wipe, Wipe != 0 ? "erased" : "partly", Hidden + 0x200,
                            Hidden + 0x400)
                    .c_str()},
               Words);
    }
  }
}

TEST(SimH7, ASecureAreaLeavesWhereDmesIsSetBeforeOrByTheChange) {
  for (const uint32_t Old : {0u, 0x80000000u}) {
    for (const uint32_t New : {0u, 0x80000000u}) {
      const bool Leaves = (Old | New) != 0;
      PlayCase({"", "H743", "--rdp 1",
                sim::Format("put:SCAR1=%X power unlock OPTSR_PRG+1.1=AA SCAR_PRG1=%X start %s "
                            "SCAR_CUR1?%X flash?%s",
                            0x00030002 | Old, 0xFF | New, Leaves ? "accepted" : "refused",
                            Leaves ? 0xFF | New : 0x00030002, Leaves ? "erased" : "kept")
                    .c_str()},
               Words);
    }
  }
}

// -- What a sequence of two passes leads to ------------------------------------------------------

static const STEPS_CASE aPasses[] = {
    {"EveryPlainStateComesToTheseValues", "H743 H750", "",
     "pass1 pass2 as-expected flash?kept pass1 pass2 as-expected"},
    {"AlsoFromLevel1", "H743 H750", "--rdp 1",
     "pass1 pass2 as-expected flash?erased pass1 pass2 as-expected"},
    {"AlsoWithAllUserBitsAway", "H743 H750", "--rdp 1 --wrp all --user 0x10",
     "pass1 pass2 as-expected flash?erased pass1 pass2 as-expected"},
    {"AlsoFromThePrintedValues", "H743 H750", "--variant h7_delivered_by_manual=1",
     "pass1 pass2 as-expected"},
    {"AlsoWithOtherBootAddresses", "H743 H750", "--option BOOT_ADD0=0 --option BOOT_ADD1=0",
     "pass1 pass2 as-expected"},
    {"PcropStaysWhateverTheLevel", "H743 H750", "--rdp 0 --pcrop 1-2",
     "pass1 level?0 pass2 PRAR_CUR1?05FF0200 refused"},
    {"AlsoFromLevel1WithDmep", "H743 H750", "--rdp 1 --pcrop 1-2 --pcrop-rdp 1",
     "pass1 level?0 pass2 PRAR_CUR1?85FF0200 refused"},
    {"AlsoFromLevel1WithoutDmep", "H743 H750", "--rdp 1 --pcrop 1-2",
     "pass1 level?0 pass2 PRAR_CUR1?05FF0200 refused"},
    {"OfThePcropOfBank2OnlyTheOtherHalfIsDone", "H743", "--pcrop 8 --user 0x10",
     "pass1 pass2 OPTSR_CUR?5416AAF0 PRAR_CUR2?01FF0000"},
    {"DmepStays", "H743", "--pcrop-rdp 1", "pass1 pass2 PRAR_CUR1?800000FF refused"},
    {"ASecureAreaAndSecurityStay", "H743", "--rdp 1 --secure",
     "pass1 pass2 SCAR_CUR1?81FF0000 OPTSR_CUR?200000/200000"},
    {"BanksAreUnswapped", "H743", "--rdp 1 --user 0x9416AAF0",
     "OPTCR?80000001 pass1 pass2 OPTCR?1 as-expected"},
    {"H745LosesBothBootEnables", "H745", "--rdp 1",
     "OPTSR_CUR?C00000/C00000 pass1 pass2 as-expected OPTSR_CUR?0/3C00000 BOOT4_CURR?10000810"},
    {"H723KeepsItsSpareBits", "H723", "--rdp 1 --wrp all",
     "pass1-of-view1 pass2-of-view1 reset level?0 OPTSR_CUR?1796AAF0 WPSN_CUR1R?FF flash?erased "
     "accepted"},
    {"H723GetsTheValueWhereThatVariantIsChosen", "H723",
     "--rdp 1 --variant h723_spare_bits_writable=1",
     "pass1-of-view1 pass2-of-view1 reset OPTSR_CUR?1416AAF0 @5200211C?0"},
};
PLAY_CASES(SimH7Passes, aPasses, Words);

// -- Main flash ----------------------------------------------------------------------------------

static const STEPS_CASE aFlash[] = {
    {"AFlashWordIsProgrammedWhenItIsFull", ALL, "empty",
     "unlock1 CR1=10032 @8000020=0 @8000024=11111111 @8000028=22222222 @800002C=33333333 "
     "@8000030=44444444 @8000034=55555555 @8000038=66666666 SR1?2 @8000020?FFFFFFFF "
     "@800003C=77777777 SR1?7 OPTSR_CUR?0/1 OPTCR?0/2 @8000038?66666666 stalled?100 "
     "@800003C?77777777 @8000020?0 @8000040?FFFFFFFF SR1?10000 CCR1=10000 SR1?0"},
    {"FwProgramsAFlashWordThatIsNotFull", TWO_BANKS, "empty",
     "unlock2 CR2=42 CR2?2 @8100022.2=1234 @8100025.1=56 SR2?2 SR1?0 CR2=2 SR2?2 CR2=42 CR2?42 "
     "@8100020?1234FFFF stalled?290 @8100024?FFFF56FF CR2?2 SR2?0"},
    {"AnEraseGoesBeforeWhatWasCollected", ALL, "",
     "unlock1 CR1=32 @8000000=0 CR1=1F4 SR1?7 wait:1000ms SR1?2 CR1?134 @8020000?FFFFFFFF "
     "@8000000?12345678"},
    {"ProgrammingOnlyClearsBits", ALL, "empty",
     "unlock1 CR1=32 @8000000=FFFF0F0F CR1=72 finish @8000000=F0FFFFF CR1=72 finish "
     "@8000000?F0F0F0F"},
    {"AWriteWithoutPgIsASequenceErrorOfItsBank", TWO_BANKS, "empty",
     "@8000000=0 SR1?40000 @8100000=0 SR2?40000 CCR1=40000 SR1?0 SR2?40000 flash?erased"},
    {"AProtectedSectorIsNotProgrammed", ALL, "empty --pcrop 1-2 --wrp 3",
     "unlock1 CR1=32 @8020000=0 SR1?20000 CCR1=20000 @8040000=0 SR1?20000 CCR1=20000 @8060000=0 "
     "SR1?20000"},
    {"AByteWrittenTwiceAndAnotherFlashWordAreErrors", ALL, "empty",
     "unlock1 CR1=32 @8000000=11111111 @8000000=22222222 SR1?80002 CCR1=80000 @8000020=0 "
     "SR1?200002 "
     "CCR1=200000 CR1=72 finish @8000000?11111111 @8000020?FFFFFFFF"},
    {"NothingStartsBeforeSequenceAndInconsistencyErrorsAreCleared", ALL, "empty",
     "unlock1 @8000000=0 SR1?40000 CR1=32 @8000000=0 SR1?40000 CR1=B4 CR1?34 SR1?40000 CCR1=40000 "
     "CR1=32 @8000000=0 @8000020=0 SR1?200002 CR1=72 CR1?32 SR1?200002 CCR1=200000 CR1=72 finish "
     "@8000000?0"},
    {"OtherErrorsDoNotStopAnything", ALL, "--wrp 1",
     "unlock1 CR1=1B4 SR1?20000 CR1=B4 SR1?20005 finish @8000000?FFFFFFFF"},
    {"AResetForgetsWhatWasCollected", ALL, "empty",
     "unlock1 CR1=32 @8000000=0 reset SR1?0 unlock1 CR1=72 SR1?0 @8000000?FFFFFFFF"},
    {"MerErasesBothBanksWhenAllLocksAreOpen", "H743 H745 H750", "",
     "unlock OPTCR=10 SR1?0 unlock1 OPTCR=10 SR1?0 unlock2 OPTCR=10 SR1?5 SR2?5 OPTSR_CUR?0/1 "
     "finish "
     "flash?erased CR1?30"},
    {"MerWaitsForTheErrorsOfBothBanksToBeCleared", "H743", "",
     "unlock unlock1 unlock2 @8000000=0 @8100000=0 OPTCR=10 SR1?40000 CCR1=40000 OPTCR=10 SR1?0 "
     "SR2?40000 flash?kept CCR2=40000 OPTCR=10 SR1?5 SR2?5"},
    {"MerNeedsTheOptionLockToo", "H743", "", "unlock1 unlock2 OPTCR=10 SR1?0 flash?kept"},
    {"H723HasNoMer", "H723", "", "unlock unlock1 OPTCR=10 SR1?0 flash?kept"},
    {"WhatIsWriteProtectedInPartIsNotErasedAtAll", "H743", "--wrp 2",
     "unlock1 unlock2 unlock CR1=2B4 SR1?20000 CCR1=20000 CR1=B8 SR1?20000 CR1?38 CCR1=20000 "
     "OPTCR=10 "
     "SR1?20000 SR2?20000 flash?kept CR2=B8 SR2?20005"},
    {"NorWhatIsInAnArea", "H743", "--pcrop 2",
     "unlock1 unlock2 unlock CR1=2B4 SR1?20000 CCR1=20000 CR1=B8 SR1?20000 OPTCR=10 SR2?20000"},
    {"NorWhatIsSecure", "H743", "--secure",
     "unlock1 unlock2 unlock CR1=B4 SR1?20000 CCR1=20000 CR1=B8 SR1?20000 OPTCR=10 SR2?20000"},
    {"AControlWriteWaitsForTheRunningOperation", ALL, "",
     "unlock1 CR1=B4 CR1=30 stalled?1000000 SR1?0 CR1?30"},
    {"OptionsAreNotChangedWhileFlashIsErased", ALL, "",
     "unlock WPSN_PRG1R=FE unlock1 CR1=B4 OPTCR=2 OPTSR_CUR?0/1 finish WPSN_CUR1R?FF"},
    {"ABankIsReadableWhileTheOtherErases", TWO_BANKS, "",
     "unlock2 CR2=B8 @8000000?12345678 stalled?0 @8100000?FFFFFFFF stalled?5000000 unlock1 CR1=B4 "
     "@8100000?FFFFFFFF stalled?0 @8000000?FFFFFFFF stalled?1000000"},
    {"ReadsOfTheOneBankWait", "H723", "", "unlock1 CR1=B4 @8080000?12345678 stalled?1000000"},
};
PLAY_CASES(SimH7Flash, aFlash, Words);

TEST(SimH7, ErasesTakeWhatTheyAreToldAndTheirTime) {
  const struct {
    uint32_t Control, Max, Ms, First, Bytes;
  } aRows[] = {
      {0x0B4, 0, 1000, 0x00000, 0x20000},  {0x1B4, 0, 1000, 0x20000, 0x20000},
      {0x7B4, 1, 2000, 0xE0000, 0x20000},  {0x084, 0, 2000, 0x00000, 0x20000},
      {0x094, 0, 1800, 0x00000, 0x20000},  {0x0A4, 0, 1100, 0x00000, 0x20000},
      {0x0B8, 0, 5000, 0x00000, 0x100000}, {0x088, 1, 26000, 0x00000, 0x100000},
  };
  for (const auto& Row : aRows) {
    for (const uint32_t Bank : {1u, 2u}) {
      const uint32_t    First = 0x07F00000 + Bank * 0x100000 + Row.First, End = First + Row.Bytes;
      const std::string sState = sim::Format("--variant timing_max=%u", Row.Max);
      std::string       sSteps = sim::Format(
                "unlock%u CR%u=%X CR%u?%X SR%u?0 wait:%ums SR%u?5 wait:1ms SR%u?0 CR%u?%X "
                      "@%X?FFFFFFFF @%X?FFFFFFFF backup_sram?kept flash?partly",
                Bank, Bank, Row.Control, Bank, Row.Control, 3 - Bank, Row.Ms - 1, Bank, Bank, Bank,
                Row.Control & ~0x80u, First, End - 4);
      for (const uint32_t Outside : {First - 4, End}) {
        sSteps += Outside >= 0x08000000 && Outside < 0x08200000
                      ? sim::Format(" @%X?12345678", Outside)
                      : "";
      }
      PlayCase({"", "H743 H745", sState.c_str(), sSteps.c_str()}, Words);
    }
  }
}

TEST(SimH7, ProgrammingTakesItsTimeByPsize) {
  const uint32_t aUs[] = {290, 180, 130, 100};
  for (uint32_t Psize = 0; Psize < 4; Psize++) {
    for (const uint32_t Max : {0u, 1u}) {
      const std::string sState = sim::Format("empty --variant timing_max=%u", Max);
      const std::string sSteps =
          sim::Format("unlock1 CR1=%X @8000000=0 CR1=%X @8000000?0 stalled?%u", 0x02 | Psize << 4,
                      0x42 | Psize << 4, aUs[Psize] * (Max + 1));
      PlayCase({"", ALL, sState.c_str(), sSteps.c_str()}, Words);
    }
  }
}

// -- Operations that do not end, watchdog, supply, state -----------------------------------------

static const STEPS_CASE aCuts[] = {
    {"ABankEraseHasDoneItsPart", "H743", "",
     "unlock2 CR2=B8 wait:2500ms reset @8000000?12345678 @8100000?FFFFFFFF @817F3FC?FFFFFFFF "
     "@8180000?12345678"},
    {"ASectorEraseHasDoneItsPart", ALL, "",
     "unlock1 CR1=1B4 wait:500ms power @801FFFC?12345678 @8020000?FFFFFFFF @802FFFC?FFFFFFFF "
     "@8030000?BABEFEFA @8030080?12345678 @8040000?12345678"},
    {"AFlashWordIsThereInPart", ALL, "empty",
     "unlock1 CR1=32 @8000000=0 @8000010=0 @8000014=0 CR1=72 wait:60us reset @8000000?0 @8000010?0 "
     "@8000014?FFFFFFFF"},
    {"UnprotectingSparesWhatItHadToSpare", "H743 H745 H723", "--rdp 1 --pcrop 0",
     "unlock OPTSR_PRG+1.1=AA OPTCR=2 wait:1000ms reset level?1 flash?partly backup_sram?kept "
     "put:OPTSR=1416AAF0 power @8000000?! @8020000?FFFFFFFF @80FFFFC?12345678"},
    {"AHardwareWatchdogCutsUnprotecting", ALL, "--rdp 1 --option IWDG1_SW=0",
     "reset unlock OPTSR_PRG+1.1=AA OPTCR=2 wait:511ms resets?0 wait:2ms resets?1 level?1 "
     "OPTSR_CUR?0/1 OPTCR?1 flash?partly"},
    {"NotWhileItIsFrozen", ALL, "--rdp 1 --option IWDG1_SW=0",
     "DBGMCU_APB4FZ1=40000 reset unprotect resets?0 level?0 flash?erased"},
    {"WhatRanWhenTheDeviceIsSavedGoesOn", ALL, "--rdp 1",
     "unlock OPTSR_PRG+1.1=AA BOOT_PRGR=0 OPTCR=2 wait:1000ms save OPTSR_CUR?1/1 finish level?0 "
     "BOOT_CURR?0 flash?erased"},
    {"LocksErrorsAndACollectedWordAreSaved", "H743", "--pcrop 1-2 --user 0x9416AAF0",
     "unlock1 unlock2 unlock PRAR_PRG2=FF OPTCR=2 CR1=32 @80E0040=10 @80E0044=11 @80E0048=12 "
     "@80E004C=13 @80E0050=14 @80E0054=15 @80E0058=16 save refused OPTCR?80000000 CR1?32 CR2?30 "
     "SR1?2 "
     "PRAR_PRG2?FF KEYR1=45670123! KEYR2=45670123! OPTKEYR=08192A3B! @80E005C=17 finish "
     "@80E0040?10 @80E0044?10 @80E0048?10 @80E004C?10 @80E0050?10 @80E0054?10 @80E0058?10 "
     "@80E005C?10"},
};
PLAY_CASES(SimH7Cuts, aCuts, Words);

// Below these voltages the device resets itself.
static const STEPS_CASE aSupply[] = {
    {"BorLev0", ALL, "--option BOR_LEV=0",
     "voltage:1700 powered?1 voltage:1699 powered?0 voltage:3300 powered?1"},
    {"BorLev1", ALL, "--option BOR_LEV=1",
     "voltage:2100 powered?1 voltage:2099 powered?0 voltage:3300 powered?1"},
    {"BorLev2", ALL, "--option BOR_LEV=2",
     "voltage:2400 powered?1 voltage:2399 powered?0 voltage:3300 powered?1"},
    {"BorLev3", ALL, "--option BOR_LEV=3",
     "voltage:2700 powered?1 voltage:2699 powered?0 voltage:3300 powered?1"},
};
PLAY_CASES(SimH7Supply, aSupply, Words);

static std::vector<std::string> Differences(const char* sName, uint32_t Optsr) {
  sim::Device         Device(*sim::FindDevice(sName));
  sim::CREATE_REQUEST Request;
  std::string         sError;
  EXPECT_TRUE(sim::Prepare(&Device, Request, &sError)) << sError;
  Device.PowerOn();
  EXPECT_TRUE(sim::Judge(Device).AtFactory()) << sName;
  EXPECT_TRUE(Device.Write(0x52002008, 4, 0x08192A3B) && Device.Write(0x52002008, 4, 0x4C5D6E7F) &&
              Device.Write(0x52002020, 4, Optsr) && Device.Write(0x52002018, 4, 2));
  Device.AdvanceTo(Device.NowUs() + 1000000);
  return sim::Judge(Device).Differences;
}

TEST(SimH7, AVerdictNamesWhatDiffersAndWhatWaitsForAReset) {
  EXPECT_EQ((std::vector<std::string>{"OPTSR.ST_RAM_SIZE is 2, not 0", "OPTSR.BCM4 is 0, not 1",
                                      "OPTSR.BCM7 is 0, not 1", "OPTSR.nRST_STOP_D2 is 0, not 1",
                                      "OPTSR.nRST_STBY_D2 is 0, not 1"}),
            Differences("H745", 0x1416AAF0));
  EXPECT_EQ((std::vector<std::string>{"OPTSR.SWAP_BANK_OPT is 1, not 0"}),
            Differences("H743", 0x9416AAF0));
}

TEST(SimH7, StatesThatADeviceCannotHaveAreRefused) {
  for (const char* sName : {"H743", "H745", "H750"}) {
    ExpectRefused(sName, "--mismatch rdp", "this device shows no complements of its option bytes");
    ExpectRefused(sName, "--pcrop 8,10", "the sectors of a bank must be one area");
    ExpectRefused(sName, "--wrp 16", "sector 16: this device has sectors 0 to 15");
    ExpectRefused(sName, "--pcrop 16", "sector 16: this device has sectors 0 to 15");
  }
  ExpectRefused("H723", "--wrp 8", "sector 8: this device has sectors 0 to 7");
  ExpectRefused("H723", "--option SWAP_BANK_OPT=1", "this device has no option SWAP_BANK_OPT");
  PlayCase({"", "H743", "--rdp 2 --wrp 0,9 --pcrop 3,8,9",
            "OPTSR:1416CCF0 PRAR1:07FF0600 SCAR1:800000FF WPSN1:FE PRAR2:03FF0000 SCAR2:800000FF "
            "WPSN2:FD BOOT:1FF00800"},
           Words);
  PlayCase({"", "H743", "--rdp 2 --wrp all --pcrop all --pcrop-rdp 1 --user 0xFFFFFFFF",
            "OPTSR:B43ECCFC PRAR1:8FFF0000 WPSN1:0 PRAR2:8FFF0000 WPSN2:0"},
           Words);
}
