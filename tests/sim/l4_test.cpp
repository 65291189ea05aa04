// SPDX-License-Identifier: MIT

// L4: a row for each rule of the hardware. Addresses and keys as in the manuals.

#include "sim/catalog.h"
#include "sim/text.h"
#include "tests/sim/steps.h"

static const STEPS_WORDS Words = {
    {"unlock", "KEYR=45670123 KEYR=CDEF89AB OPTKEYR=08192A3B OPTKEYR=4C5D6E7F"},
    {"start", "CR=20000"},
    {"launch", "CR=8000000"},
    {"load", "start finish launch"},
    {"optr", "unlock OPTR=$ load"},
    {"erase", "CR=$ CR=0001$"},
};

#define ALL  "L433 L452 L476 L496"
#define ONE  "L433 L452"
#define DUAL "L476 L496"

// -- What a manual prints ------------------------------------------------------------------------

static const STEPS_CASE aPrinted[] = {
    {"Registers", ALL, "empty",
     "register:ACR=600/7F07 SR?0/1FFFF register:CR=C0000000/0 register:PCROP1SR=FFFFFFFF/0 "
     "register:DBGMCU_CR=0/E7 register:DBGMCU_APB1FZR1=0/82E01C3F"},
    {"LockedOptionRegistersOfTwoBanks", DUAL, "empty",
     "register:OPTR=FFEFF8AA/0 register:PCROP1ER=FFF0000/0 register:WRP1AR=FF00FFFF/0 "
     "register:WRP1BR=FF00FFFF/0 register:PCROP2SR=FFFFFFFF/0 register:PCROP2ER=FFFF0000/0 "
     "register:WRP2AR=FF00FFFF/0 register:WRP2BR=FF00FFFF/0"},
    {"OptionRegistersOfTwoBanks", DUAL, "empty",
     "unlock register:PCROP1SR=FFFFFFFF/FFFF register:WRP1AR=FF00FFFF/FF00FF "
     "register:WRP1BR=FF00FFFF/FF00FF register:PCROP2SR=FFFFFFFF/FFFF "
     "register:PCROP2ER=FFFF0000/FFFF register:WRP2AR=FF00FFFF/FF00FF "
     "register:WRP2BR=FF00FFFF/FF00FF PCROP1ER=FFFFFFFF PCROP1ER?8FFFFFFF CR=37FCFFFF CR?7048FFF "
     "CR=0 CR?0"},
    {"OptrOfL47", "L476", "empty", "unlock register:OPTR=FFEFF8AA/3BF77FF"},
    {"OptrOfL49", "L496", "empty", "unlock register:OPTR=FFEFF8AA/FBF77FF"},
    {"OptionRegistersOfOneBank", "L433", "empty",
     "unlock register:OPTR=FFFFF8AA/F8F77FF register:PCROP1SR=FFFFFFFF/7FFF "
     "register:WRP1AR=FF80FFFF/7F007F register:WRP1BR=FF80FFFF/7F007F PCROP1ER?FFF8000 "
     "PCROP1ER=FFFFFFFF PCROP1ER?8FFFFFFF CR=37FCFFFF CR?70407FF"},
    {"OptionRegistersOfOneBankOf256Pages", "L452", "empty",
     "unlock register:OPTR=FFFFF8AA/F8F77FF register:PCROP1SR=FFFFFFFF/FFFF "
     "register:WRP1AR=FF00FFFF/FF00FF register:WRP1BR=FF00FFFF/FF00FF PCROP1ER?FFF0000 "
     "PCROP1ER=FFFFFFFF PCROP1ER?8FFFFFFF CR=37FCFFFF CR?70407FF"},
    {"WhereASecondBankWouldBeZerosAreRead", ONE, "",
     "unlock @40022044=FFFFFFFF @40022044?0 @40022048=0 @40022048?0 @4002204C=FFFFFFFF @4002204C?0 "
     "@40022050=FFFFFFFF @40022050?0"},
    {"KeyRegistersReadZero", ALL, "", "unlock PDKEYR=4152637 PDKEYR?0 KEYR?0 OPTKEYR?0"},
    {"EachWordInMemoryIsFollowedByItsComplement", DUAL, "",
     "@1FFF7800?FFEFF8AA @1FFF7804?100755 @1FFF7810?FFF0000 @1FFF7814?F000FFFF @1FFFF810?FFFF0000 "
     "@1FFFF814?FFFF @1FFF77FC?! @1FFF7828?! @1FFFF804?! @1FFFF828?!"},
    {"OneBankHasOneSetOfWords", "L433", "",
     "@1FFF7800?FFFFF8AA @1FFF7804?755 @1FFF7820?FF80FFFF @1FFF7824?7F0000 @1FFFF808?!"},
    {"WordsInMemoryAreNotWritten", ALL, "",
     "unlock @1FFF7808=0 SR?10 @1FFF7808?FFFFFFFF @1FFF780C?0"},
    {"OneBankShowsThatItHadNoProgramWhenItLoaded", ONE, "empty",
     "SR?20000 reset SR?20000 unlock CR=1 @8000000=1 @8000004=2 finish CR=0 SR?20000 launch SR?0 "
     "save SR?0"},
    {"TwoBanksDoNotShowIt", DUAL, "empty", "SR?0"},
    {"SizesL433", "L433", "",
     "memory:8000000=40000 memory:10000000=4000 memory:20000000=C000 memory:40002850=80 "
     "@1FFF75E0.2?100"},
    {"SizesL452", "L452", "",
     "memory:8000000=80000 memory:10000000=8000 memory:20000000=20000 memory:40002850=80 "
     "@1FFF75E0.2?200"},
    {"SizesL476", "L476", "",
     "memory:8000000=100000 memory:10000000=8000 memory:20000000=18000 memory:40002850=80"},
    {"SizesL496", "L496", "",
     "memory:8000000=100000 memory:10000000=10000 memory:20000000=40000 @1FFF75E0.2?400"},
    {"IdentityL433", "L433", "", "@E0042000?435/FFF reset @E0042000?435/FFF"},
    {"IdentityL452", "L452", "", "@E0042000?462/FFF reset @E0042000?462/FFF"},
    {"IdentityL476", "L476", "", "@E0042000?415/FFF reset @E0042000?415/FFF"},
    {"IdentityL496", "L496", "", "@E0042000?461/FFF reset @E0042000?461/FFF"},
};
PLAY_CASES(SimL4Printed, aPrinted, Words);

// -- Locks ---------------------------------------------------------------------------------------

static const STEPS_CASE aLocks[] = {
    {"OptlockOpensOnlyBehindLock", ALL, "",
     "OPTKEYR=08192A3B OPTKEYR=4C5D6E7F CR?C0000000 unlock CR?0"},
    {"LockSetsOptlock", ALL, "",
     "unlock CR=80000000 CR?C0000000 CR=0 CR?C0000000 KEYR=45670123 CR?C0000000 KEYR=CDEF89AB "
     "OPTKEYR=08192A3B CR?40000000 OPTKEYR=4C5D6E7F CR?0"},
    {"OptlockIsSetAloneAndOpensAgain", ALL, "",
     "unlock CR=40000000 CR?40000000 OPTKEYR=08192A3B CR?40000000 OPTKEYR=4C5D6E7F CR?0"},
    {"EveryResetClosesTheLocks", ALL, "",
     "unlock power CR?C0000000 unlock CR?0 reset CR?C0000000 unlock CR?0"},
    {"AWrongKeyFaultsAndLocksUntilReset", ALL, "",
     "KEYR=08192A3B! KEYR=45670123! KEYR=CDEF89AB! CR?C0000000 reset unlock CR?0"},
    {"AWrongOptionKeyKeepsOptlockUntilReset", ALL, "",
     "KEYR=45670123 KEYR=CDEF89AB OPTKEYR=08192A3B OPTKEYR=08192A3B! OPTKEYR=08192A3B! "
     "OPTKEYR=4C5D6E7F! CR?40000000 reset unlock CR?0"},
    {"AKeyToAnOpenLockClosesBothUntilReset", ALL, "",
     "unlock KEYR=45670123! CR?C0000000 OPTR=0 OPTR?AA/FF KEYR=45670123! KEYR=CDEF89AB! "
     "CR?C0000000 reset unlock CR?0"},
    {"AKeyToAnOpenOptlockClosesItUntilReset", ALL, "",
     "unlock CR=1 OPTKEYR=08192A3B! CR?40000001 OPTKEYR=08192A3B! OPTKEYR=4C5D6E7F! CR?40000001"},
    {"OptionRegistersNeedOptlockOpen", DUAL, "",
     "OPTR=0 OPTR?FFEFF8AA KEYR=45670123 KEYR=CDEF89AB OPTR=0 WRP2BR=0 OPTR?FFEFF8AA "
     "WRP2BR?FF00FFFF OPTKEYR=08192A3B OPTKEYR=4C5D6E7F WRP2BR=0 WRP2BR?FF00FF00"},
    {"OptstrtNeedsOptlockOpen", ALL, "", "KEYR=45670123 KEYR=CDEF89AB start SR?0 CR?40000000"},
    {"LaunchNeedsOptlockOpen", ALL, "",
     "optr:FFFFF8BB reset KEYR=45670123 KEYR=CDEF89AB launch CR?40000000"},
};
PLAY_CASES(SimL4Locks, aLocks, Words);

// -- Programming and loading options -------------------------------------------------------------

static const STEPS_CASE aOptions[] = {
    {"OptionRegistersTakeNothingWhileBusy", ALL, "",
     "unlock start CR?20000 WRP1AR=0 WRP1AR?FF/FF CR=80000000 CR?20000 SR?10000 finish CR?0 SR?0"},
    {"EopIsSetOnRequestOnly", ALL, "", "unlock CR=1020000 finish SR?1 SR=FFFFFFFE SR?1 SR=1 SR?0"},
    {"OperrIsSetOnRequestOnly", ALL, "",
     "unlock start CR=20000 SR?10080 finish SR=80 CR=2020000 CR=2020000 SR?10082 finish SR=82 "
     "SR?0"},
    {"OptionsTakeTheirTime", ALL, "", "unlock start wait:79999us SR?10000 wait:1us SR?0"},
    {"OptionsTakeTheirLongestTime", ALL, "--variant timing_max=1",
     "unlock start wait:99999us SR?10000 wait:1us SR?0"},
    {"WithoutOptstrtTheValuesAreLostAtReset", ALL, "", "unlock OPTR=0 reset OPTR?AA/FF"},
    {"ProgrammedOptionsAreNotInForceBeforeALoad", DUAL, "",
     "unlock OPTR=FFEFF8BB start OPTR:FFEFF8AA finish OPTR:FFEFF8BB level?0 stored?1 remark?some "
     "reset level?0 OPTR?FFEFF8AA unlock launch level?1 OPTR?FFEFF8BB CR?C0000000 halted?0 "
     "flash?kept remark?none"},
    {"ALaunchLoadsOnce", ALL, "",
     "unlock launch unlock OPTR=FFFFF8BB start finish remark?some reset level?0 stored?1 power "
     "level?1 remark?none"},
    {"TheLaunchTransferMayFailAlthoughItWorked", ALL, "--variant obl_transfer_fails=1",
     "unlock OPTR=FFFFF8BB start finish CR=8000000! CR?C0000000 level?1"},
    {"AllOptionRegistersAreProgrammedAndLoadedTogether", DUAL, "",
     "unlock OPTR=FFEFFCBB PCROP1SR=10 PCROP1ER=80000020 WRP1AR=120010 WRP1BR=220020 PCROP2SR=30 "
     "PCROP2ER=40 WRP2AR=320030 WRP2BR=420040 start finish "
     "@1FFF7800?FFEFFCBB @1FFF7808?FFFF0010 @1FFF7810?8FFF0020 @1FFF7818?FF12FF10 "
     "@1FFF7820?FF22FF20 @1FFFF808?FFFF0030 @1FFFF810?FFFF0040 @1FFFF818?FF32FF30 "
     "@1FFFF820?FF42FF40 @1FFF7804?100344 @1FFFF824?BD00BF launch OPTR?FFEFFCBB PCROP1SR?FFFF0010 "
     "PCROP1ER?8FFF0020 WRP1AR?FF12FF10 WRP1BR?FF22FF20 PCROP2SR?FFFF0030 PCROP2ER?FFFF0040 "
     "WRP2AR?FF32FF30 WRP2BR?FF42FF40"},
    {"OptstrtWhileBusyIsPgserr", ALL, "", "unlock start CR=20000 SR?10080"},
    {"APendingErrorStopsTheNextStart", DUAL, "",
     "unlock start start finish OPTR=FFEFF8BB start SR?80 OPTR:FFEFF8AA SR=C1FB SR?0 start "
     "SR?10000"},
    {"APendingErrorStopsErasesAndProgramsToo", ALL, "empty --pcrop 2",
     "@8001000?0 SR?4000/1FFFF unlock start SR?4080/1FFFF SR=80 erase:0002 SR?4080/1FFFF "
     "SR=80 CR=1 @8000000=1 SR?4080/1FFFF SR=4080 @8000000=1 @8000004=1 SR?10000/1FFFF"},
    {"ReadsOfTheOptionWordsWaitWhileBusy", ALL, "",
     "unlock OPTR=FFFFF8BB start wait:30ms stored?0 @1FFF7800?BB/FF stalled?50000"},
    {"OptrBit20OfASingleBankIsAConstantOne", ONE, "", "optr:FFEFF8AA OPTR?FFFFF8AA OPTR:FFFFF8AA"},
    {"OptrBit20OfASingleBankIsStoredWhereThatVariantIsChosen", ONE,
     "--variant l43_optr_bit_20_stored=1",
     "optr:FFEFF8AA OPTR?FFEFF8AA OPTR:FFEFF8AA optr:FFFFF8AA OPTR?FFFFF8AA"},
    {"AMismatchForcesItsOwnWord", DUAL, "--wrp all --mismatch PCROP2ER",
     "level?0 SR?8000 OPTR?FFEFF8AA PCROP1SR?FFFFFFFF PCROP2SR?FFFFFFFF PCROP2ER?FFFFFFFF "
     "WRP2AR?FFFFFF00"},
    {"AMismatchOfTheLevelForcesItAndTheUserOptions", DUAL, "--wrp 3 --mismatch rdp",
     "SR?8000 level?1 stored?1 error?OPTVERR OPTR?FFFFF8FF WRP1AR?FF03FF03 PCROP1SR?FFFFFFFF"},
    {"AMismatchOfAnAreaEndForcesIt", "L433", "--mismatch PCROP1SR --mismatch WRP1AR",
     "SR?8000 level?0 PCROP1SR?FFFF8000 PCROP1ER?FFF8000 WRP1AR?FF80FFFF"},
    {"AMismatchForcesAllWordsWhereThatVariantIsChosen", DUAL,
     "--mismatch rdp --variant l4_mismatch_by_word=0",
     "SR?8000 level?1 stored?1 error?OPTVERR OPTR?FFFFF8FF PCROP1SR?FFFF0000 "
     "PCROP1ER?FFFFFFF WRP1AR?FF00FFFF WRP1BR?FF00FFFF PCROP2SR?FFFF0000 PCROP2ER?FFFFFFFF "
     "WRP2AR?FF00FFFF WRP2BR?FF00FFFF"},
    {"AMismatchForcesAllWordsOfOneBankWhereThatVariantIsChosen", "L433",
     "--wrp all --mismatch WRP1BR --variant l4_mismatch_by_word=0",
     "SR?8000 level?1 OPTR?FFFFF8FF PCROP1SR?FFFF8000 PCROP1ER?FFFFFFF WRP1AR?FF80FFFF"},
    {"AMismatchIsReportedAtEveryResetUntilTheNextGoodLoad", ALL, "--mismatch WRP1AR",
     "SR?8000 SR=8000 SR?0 reset SR?8000 unlock start SR?8080 SR=C1FB start finish reset SR?8000 "
     "remark?none error?OPTVERR unlock launch SR?0 error?none"},
};
PLAY_CASES(SimL4Options, aOptions, Words);

// Whatever flag it is, but for EOP: nothing starts.
TEST(SimL4, AnyPendingErrorStopsOptions) {
  for (uint32_t Bit = 0; Bit < 16; Bit++) {
    const bool        Exists = (0xC3FB >> Bit & 1) != 0;
    const std::string sSteps =
        sim::Format("file:register.FLASH_SR=0x%X unlock start SR?%X/10080", Exists ? 1u << Bit : 0,
                    Exists && Bit != 0 ? 0x80 : 0x10000);
    PlayCase({"", ALL, "", sSteps.c_str()}, Words);
  }
}

// -- Protection levels ---------------------------------------------------------------------------

static const STEPS_CASE aLevels[] = {
    {"AtLevel1FlashSram2AndBackupRegistersAreClosed", ALL, "--rdp 1",
     "level?1 @8000000?! @10000000?! @40002850?! @20000000?ok OPTR?ok @1FFF7800?ok unlock CR=1 "
     "@8000000=0! @10000000=0! erase:0002 SR?10 SR=10 erase:0004 SR?10 flash?kept"},
    {"TakingTheProtectionAwayErasesFlashSram2AndBackupRegisters", ALL, "--rdp 1",
     "optr:FFFFF8AA level?0 flash?erased sram2?erased backup?erased sram?kept"},
    {"ItTakesTheTimeOfBothBanks", DUAL, "--rdp 1",
     "unlock OPTR=FFEFF8AA start wait:43999us flash?kept wait:1us flash?erased OPTR:FFEFF8BB "
     "wait:79999us SR?10000 wait:1us SR?0 OPTR:FFEFF8AA level?1"},
    {"ItTakesTheTimeOfOneBankWhereThereIsOne", "L433", "--rdp 1",
     "unlock OPTR=FFFFF8AA start wait:21999us flash?kept wait:1us flash?erased"},
    {"ItTakesTheLongestTimeOfBothBanks", DUAL, "--rdp 1 --variant timing_max=1",
     "unlock OPTR=FFEFF8AA start wait:49999us flash?kept wait:1us flash?erased"},
    {"TheOtherStepsEraseNothing", ALL, "",
     "optr:FFFFF8AA flash?kept optr:FFFFF800 level?1 flash?kept optr:FFFFF8BB level?1 flash?kept"},
    {"AByteCanBeAskedFor", "L476", "--rdp 0x55", "OPTR?FFEFF855 level?1"},
    {"Level2ShutsTheDebugPort", ALL, "--rdp 2", "level?2 OPTR?! @20000000?! KEYR=45670123!"},
    {"WriteProtectionDoesNotStopTheEraseThatUnprotects", ALL, "--rdp 1 --wrp all",
     "optr:FFFFF8AA flash?erased WRP1AR?0/7F"},
};
PLAY_CASES(SimL4Levels, aLevels, Words);

// -- PCROP ---------------------------------------------------------------------------------------

#define TWO_AREAS "--pcrop 2,3,300 --pcrop-rdp 0"

static const STEPS_CASE aPcrop[] = {
    {"PcropReadsAsZeroWithRderr", DUAL, TWO_AREAS,
     "@8000FFC?12345678 SR?0 @8001000?0 SR?4000 SR=4000 @8001FFC?0 SR?4000 SR=4000 "
     "@8002000?12345678 @8095FFC?12345678 SR?0 @8096000?0 SR?4000"},
    {"PcropOfOneBank", "L433", "--pcrop 127",
     "@803F7FC?12345678 SR?0 @803F800?0 SR?4000 PCROP1SR?FFFFFF00 PCROP1ER?FFFFFFF"},
    {"PcropIsNeitherErasedNorProgrammed", DUAL, "empty " TWO_AREAS,
     "unlock erase:0012 SR?10 SR=10 erase:001A SR?10 SR=10 erase:0962 SR?10 SR=10 erase:0004 SR?10 "
     "SR=10 erase:8000 SR?10 SR=10 erase:8004 SR?10 SR=10 CR=1 @8001000=1 SR?10"},
    {"AnAreaMayBeginAndEndWithinAPage", ALL, "",
     "unlock PCROP1SR=2FF PCROP1ER=300 load @80017F4?12345678 @80017F8?0 @8001804?0 "
     "@8001808?12345678 SR=4000 unlock erase:0012 SR?10 SR=10 erase:001A SR?10 SR=10 erase:0004 "
     "SR?10 SR=10 OPTR=FFFFF8BB load optr:FFFFF8AA @80017F4?12345678 @8001808?12345678 "
     "@8000FFC?FFFFFFFF @8002000?FFFFFFFF flash?partly"},
    {"AShrinkingAreaStaysAndIsNoError", DUAL, TWO_AREAS,
     "unlock PCROP1SR=FFFFFFFF PCROP1ER=0 PCROP2SR=FFFFFFFF WRP1AR=50001 load SR?0 "
     "PCROP1SR?FFFF0200 PCROP1ER?FFF03FF PCROP2SR?FFFF2C00 WRP1AR?FF05FF01"},
    {"AnAreaShrinksAtNeitherEnd", DUAL, TWO_AREAS,
     "unlock PCROP1SR=201 PCROP2SR=2C01 load PCROP1SR?FFFF0200 PCROP2SR?FFFF2C00 unlock "
     "PCROP1ER=3FE PCROP2ER=2CFE load PCROP1ER?FFF03FF PCROP2ER?FFFF2CFF"},
    {"NorAtLevel1", DUAL, "--rdp 1 " TWO_AREAS,
     "unlock PCROP1SR=201 PCROP2ER=2CFE load PCROP1SR?FFFF0200 PCROP2ER?FFFF2CFF"},
    {"AnAreaThatStaysDoesNotStopPcropRdp", DUAL, TWO_AREAS,
     "unlock PCROP1SR=201 PCROP1ER=80000000 load PCROP1ER?8FFF03FF"},
    {"AnAreaMayGrow", DUAL, TWO_AREAS,
     "unlock PCROP1SR=0 PCROP1ER=FFFF load PCROP1SR?FFFF0000 PCROP1ER?FFFFFFF PCROP2SR?FFFF2C00 "
     "PCROP2ER?FFFF2CFF unlock PCROP2SR=2BFF load PCROP2SR?FFFF2BFF unlock PCROP2ER=2D00 load "
     "PCROP2ER?FFFF2D00"},
    {"ANewAreaMayBeAnywhere", DUAL, "",
     "unlock PCROP2SR=5 PCROP2ER=5 load @8080028?0 @8080030?12345678 @8080024?12345678"},
    {"AnEmptyAreaHoldsNoPlace", ALL, "--option PCROP1_STRT=0x10 --option PCROP1_END=5",
     "unlock PCROP1SR=20 PCROP1ER=30 load PCROP1SR?20/FF PCROP1ER?30/FF"},
    {"PcropRdpCanBeSetAndNotCleared", ALL, "",
     "unlock PCROP1ER=80000000 PCROP1ER=0 load PCROP1ER?80000000/80000000 unlock PCROP1ER=0 load "
     "PCROP1ER?80000000/80000000"},
    {"WithPcropRdpUnprotectingWipesTheAreaAndItsDefinition", DUAL,
     "--rdp 1 --pcrop 2,3,300 --pcrop-rdp 1",
     "optr:FFEFF8AA flash?erased PCROP1SR?FFFFFFFF PCROP1ER?FFF0000 PCROP2SR?FFFFFFFF "
     "PCROP2ER?FFFF0000"},
    {"WithPcropRdpUnprotectingWipesTheAreaOfOneBank", "L433", "--rdp 1 --pcrop all --pcrop-rdp 1",
     "optr:FFFFF8AA flash?erased PCROP1SR?FFFFFFFF PCROP1ER?FFF8000"},
    {"PcropRdpCountsAsItIsLoaded", DUAL, "--rdp 1 " TWO_AREAS,
     "unlock PCROP1ER=8FFF03FF OPTR=FFEFF8AA load flash?partly PCROP1ER?8FFF03FF"},
    {"WithoutPcropRdpUnprotectingSparesTheArea", DUAL, "--rdp 1 " TWO_AREAS,
     "optr:FFEFF8AA level?0 PCROP1SR?FFFF0200 @8000FFC?FFFFFFFF @8002000?FFFFFFFF "
     "@8095FFC?FFFFFFFF @8096800?FFFFFFFF @8001000?0 sram2?erased in-use?6144"},
    {"AFirstPageIsSpared", ALL, "--rdp 1 --pcrop 0", "optr:FFFFF8AA in-use?2048 backup?erased"},
    {"ALastPageOfABankIsSpared", DUAL, "--rdp 1 --pcrop 255", "optr:FFEFF8AA in-use?2048"},
    {"AFirstPageOfTheSecondBankIsSpared", DUAL, "--rdp 1 --pcrop 256", "optr:FFEFF8AA in-use?2048"},
    {"ALastPageIsSpared", DUAL, "--rdp 1 --pcrop 511", "optr:FFEFF8AA in-use?2048"},
    {"WithoutAnAreaUnprotectingClearsPcropRdp", ALL, "--rdp 1 --pcrop-rdp 1",
     "optr:FFFFF8AA flash?erased PCROP1ER?0/80000000"},
};
PLAY_CASES(SimL4Pcrop, aPcrop, Words);

// -- Write protection and flash ------------------------------------------------------------------

static const STEPS_CASE aFlash[] = {
    {"WriteProtectionStopsErases", ALL, "--wrp 0-2",
     "WRP1AR?20000/7F007F unlock CR=10004 SR?10 SR=10 erase:0002 SR?10 SR=10 CR=1001A finish "
     "@8001800?FFFFFFFF @8001000?12345678"},
    {"TwoAreasOfABankAreAAndB", ALL, "--wrp 5,7-9",
     "WRP1AR?50005/7F007F WRP1BR?90007/7F007F unlock erase:002A SR?10 SR=10 erase:003A SR?10 SR=10 "
     "erase:0032 SR?10000"},
    {"TheSecondAreaOfTheSecondBank", DUAL, "--wrp 256,300-301", "WRP2AR?FF00FF00 WRP2BR?FF2DFF2C"},
    {"APageOrABankIsErasedAndNothingElse", DUAL, "",
     "unlock erase:0002 CR?10002 finish CR?2 in-use?1046528 @80007FC?FFFFFFFF @8000800?12345678 "
     "erase:07FA finish @807F800?FFFFFFFF in-use?1044480 erase:0802 finish @8080000?FFFFFFFF "
     "in-use?1042432 erase:0FFA finish @80FFFFC?FFFFFFFF in-use?1040384 erase:8000 finish "
     "in-use?520192 @8080000?FFFFFFFF erase:0004 finish flash?erased sram2?kept backup?kept"},
    {"BothBanksAreErasedTogether", DUAL, "",
     "unlock erase:8004 wait:21999us SR?10000 wait:1us SR?0 flash?erased"},
    {"OneBankIsErasedByItself", ONE, "", "unlock erase:0004 wait:22ms flash?erased"},
    {"TheLastPageOfOneBank", "L433", "",
     "unlock erase:03FA finish in-use?260096 @803F800?FFFFFFFF"},
    {"OneBankHasNoOther", ONE, "", "unlock erase:8000 SR?0 CR?0 flash?kept"},
    {"NothingIsErasedWithoutARequest", ALL, "", "unlock erase:0000 SR?0"},
    {"APageEraseTakesItsTime", ALL, "", "unlock erase:0002 wait:21999us SR?10000 wait:1us SR?0"},
    {"APageEraseTakesItsLongestTime", ALL, "--variant timing_max=1",
     "unlock erase:0002 wait:24999us SR?10000 wait:1us SR?0"},
    {"FlashTakesDoubleWords", ALL, "empty",
     "unlock CR=1 @8000008=11111111 SR?0/1FFFF @8000008?FFFFFFFF @800000C=22222222 "
     "SR?10000/1FFFF wait:81us SR?10000/1FFFF wait:1us SR?0/1FFFF @8000008?11111111 "
     "@800000C?22222222 in-use?8"},
    {"OnlyZerosAreProgrammedOverIt", ALL, "",
     "unlock CR=1 @8000008=1 @800000C=0 SR?8 @8000008?12345678 SR=8 @8000008=0 @800000C=0 finish "
     "SR?0 @8000008?0 @800000C?0"},
    {"OneHalfInUseIsInTheWay", ALL, "empty",
     "file:memory.flash.0x08000010=00000001 file:memory.flash.0x0800001C=00000001 unlock CR=1 "
     "@8000010=2 @8000014=2 SR?8/1FFFF SR=8 @8000018=2 "
     "@800001C=2 SR?8/1FFFF"},
    {"BothHalvesBelongTogether", ALL, "empty",
     "unlock CR=1 @8000004=1 SR?20/1FFFF SR=20 @8000000=1 @8000000=2 SR?20/1FFFF SR=20 "
     "@8000000=1 @8000008=2 SR?20/1FFFF SR=20 @8000000=1 @800000C=2 SR?20/1FFFF SR=20 "
     "@8000000.1=1 SR?40/1FFFF SR=40 @8000000.2=1 SR?40/1FFFF flash?erased"},
    {"AHalfWaitsAsLongAsPgIsSet", ALL, "empty",
     "unlock CR=1 @8000000=1 CR=1 @8000004=2 finish @8000000?1 @8000004?2"},
    {"ItIsForgottenWithPg", ALL, "empty",
     "unlock CR=1 @8000000=1 CR=0 CR=1 @8000004=2 SR?20/1FFFF"},
    {"ItIsForgottenAtAReset", ALL, "empty",
     "unlock CR=1 @8000000=1 reset unlock CR=1 @8000004=2 SR?20/1FFFF"},
    {"ProgrammingNeedsLockOpenAndPg", ALL, "empty",
     "@8000000=1 SR?80/1FFFF SR=80 unlock @8000000=1 SR?80/1FFFF SR=80 CR=80000001 @8000000=1 "
     "SR?80/1FFFF"},
    {"AWriteWhileBusyHoldsTheBus", ALL, "empty",
     "unlock CR=20001 @8000000=1 stalled?80000 hold:forever @8000004=1 @8000008=1!"},
    {"ProgrammingTakesItsLongestTime", ALL, "empty --variant timing_max=1",
     "unlock CR=1 @8000000=1 @8000004=1 wait:90us SR?10000/1FFFF wait:1us SR?0/1FFFF"},
};
PLAY_CASES(SimL4Flash, aFlash, Words);

TEST(SimL4, EachOfTheFourAreasProtectsItsPages) {
  const char* const apAreas[] = {"WRP1AR", "WRP1BR", "WRP2AR", "WRP2BR"};
  for (int Area = 0; Area < 4; Area++) {
    std::string sSteps = sim::Format("unlock %s=60005 load unlock CR=1", apAreas[Area]);
    for (const int Bank : {0, 1}) {
      for (const int Page : {4, 5, 6, 7}) {
        const bool Protected = Bank == Area / 2 && (Page == 5 || Page == 6);
        const int  Address   = 0x08000000 + Bank * 0x80000 + Page * 0x800;
        sSteps += sim::Format(" @%X=1 @%X=1 finish SR?%s SR=90", Address, Address + 4,
                              Protected ? "90" : "0");
      }
    }
    PlayCase({"", DUAL, "empty", sSteps.c_str()}, Words);
  }
}

// Where one bank ends and the other begins.
TEST(SimL4, WriteProtectionEndsWithItsBank) {
  for (const uint32_t Protected : {0u, 255u, 256u, 511u}) {
    for (const uint32_t Page : {0u, 255u, 256u, 511u}) {
      const std::string sState = sim::Format("--wrp %u", Protected);
      const std::string sSteps =
          sim::Format("unlock erase:%04X SR?%s", 2 | (Page % 256) << 3 | (Page / 256) << 11,
                      Page == Protected ? "10" : "10000");
      PlayCase({"", DUAL, sState.c_str(), sSteps.c_str()}, Words);
    }
  }
}

// -- Watchdogs and brown-out ---------------------------------------------------------------------

static const STEPS_CASE aWatchdogs[] = {
    {"AHardwareWatchdogRunsWhileTheCoreRuns", ALL, "--rdp 1 --option IWDG_SW=0",
     "DBGMCU_APB1FZR1=1800 reset wait:2000ms resets?0 unlock launch wait:511ms resets?0 wait:2ms "
     "resets?1 DBGMCU_APB1FZR1=FFFFEFFF reset wait:511ms resets?1 wait:2ms resets?2"},
    {"AWindowWatchdogIsFaster", ALL, "--rdp 1 --option WWDG_SW=0",
     "DBGMCU_APB1FZR1=1800 reset wait:2000ms resets?0 unlock launch wait:65ms resets?0 wait:1ms "
     "resets?1 DBGMCU_APB1FZR1=FFFFF7FF reset wait:65ms resets?1 wait:1ms resets?2"},
    {"AWindowWatchdogCutsTheOptions", ALL, "--rdp 1 --option WWDG_SW=0",
     "reset unlock OPTR=FFFFF8AA start wait:200ms resets?3 CR?C0000000 level?1"},
    {"WatchdogsThatSoftwareStartsAreNotStartedByAReset", ALL, "--rdp 1", "wait:5000ms resets?0"},
    {"FreezeSurvivesASystemResetAndNotAPowerCycle", ALL, "",
     "DBGMCU_APB1FZR1=1800 reset DBGMCU_APB1FZR1?1800 power DBGMCU_APB1FZR1?0"},
};
PLAY_CASES(SimL4Watchdogs, aWatchdogs, Words);

// A device is in reset below the voltage that its options set.
TEST(SimL4, TheBrownOutLevelSetsTheVoltage) {
  const uint32_t aMillivolts[] = {1700, 2000, 2200, 2500, 2800, 2800, 2800, 2800};
  for (uint32_t Level = 0; Level < 8; Level++) {
    const std::string sState = sim::Format("--option BOR_LEV=%u", Level);
    const std::string sSteps = sim::Format("voltage:%u CR?ok voltage:%u CR?! voltage:3300 CR?ok",
                                           aMillivolts[Level], aMillivolts[Level] - 1);
    PlayCase({"", ALL, sState.c_str(), sSteps.c_str()}, Words);
  }
}

// -- Operations that do not end ------------------------------------------------------------------

static const STEPS_CASE aCuts[] = {
    {"OptionsThatAreCutInTheirEraseMatchNothing", DUAL, "",
     "unlock OPTR=FFEFF8BB start wait:39ms power SR?8000 level?1 OPTR:FFEFFAAA @1FFF7804?AABAAFFF "
     "WRP2BR:FFAAFFFF"},
    {"OptionsThatAreCutAtTheirFirstWordHaveNoComplement", DUAL, "",
     "unlock OPTR=FFEFF8BB start wait:40ms power SR?8000 level?1 OPTR:FFEFF8BB @1FFF7804?FFFFFFFF "
     "PCROP1SR:FFFFFFFF WRP2BR:FFFFFFFF"},
    {"OptionsThatAreCutLaterHaveSomeGoodWords", DUAL, "",
     "unlock OPTR=FFEFF8AA WRP1AR=10000 start wait:54ms power error?OPTVERR @1FFF7804?100755 "
     "@1FFF7818?FF01FF00 @1FFF781C?FFFFFFFF WRP1BR:FFFFFFFF"},
    {"APageEraseThatIsCutHasDoneItsPart", ALL, "",
     "unlock erase:0012 wait:11ms reset @8000FFC?12345678 @8001000?FFFFFFFF @80013FC?FFFFFFFF "
     "@8001400?BABEFEFA @8001480?12345678"},
    {"AMassEraseThatIsCutHasDoneItsPart", DUAL, "",
     "unlock erase:8004 wait:11ms reset in-use?524288 @807FFFC?FFFFFFFF @8080000?12345678"},
    {"UnprotectingThatIsCutSparesPcropAndLeavesLevel1", DUAL, "--rdp 1 " TWO_AREAS,
     "unlock OPTR=FFEFF8AA start wait:22ms power level?1 in-use?528384 backup?kept"},
    {"ADoubleWordThatIsCutHasItsLowerHalf", ALL, "empty",
     "unlock CR=1 @8000000=1 @8000004=2 wait:40us reset @8000000?1 @8000004?FFFFFFFF"},
    {"WhatRanIsStillRunningWhenTheDeviceIsLoaded", DUAL, "--rdp 1 " TWO_AREAS,
     "unlock OPTR=FFEFF8AA start wait:5ms save CR?20000 SR?10000 flash?kept finish in-use?6144 "
     "OPTR:FFEFF8AA level?1 save launch level?0"},
    {"AHalfThatWaitsIsKept", ALL, "empty",
     "unlock CR=1 @8000000=1 save @8000004=2 finish @8000000?1 @8000004?2"},
    {"ABadLoadIsRemembered", ALL, "--mismatch rdp", "SR=8000 save SR?0 reset SR?8000"},
    {"KeysGoOnWhereTheyWere", ALL, "",
     "KEYR=45670123 save KEYR=CDEF89AB OPTKEYR=08192A3B save OPTKEYR=4C5D6E7F CR?0"},
};
PLAY_CASES(SimL4Cuts, aCuts, Words);

TEST(SimL4, AFileThatNamesAPlaceOutsideTheFlashDoesNoHarm) {
  const struct {
    const char *sKind, *sArgument;
  } aRunning[] = {
      {"0", "0x09000000"},
      {"1", "0x09000000"},
      {"4", "0x080FFFFC"},  // the second half of the double word would lie outside
  };
  for (const auto& Running : aRunning) {
    sim::Device  Device(*sim::FindDevice("STM32L476"));
    sim::KeyFile File;
    std::string  sError;
    File.Add("powered", "1");
    File.Add("running.0.kind", Running.sKind);
    File.Add("running.0.argument", Running.sArgument);
    EXPECT_TRUE(Device.LoadFrom(File, &sError)) << sError;
    Device.AdvanceTo(1000000);
    EXPECT_FALSE(Device.Flash().Busy());
  }
}

TEST(SimL4, AFileWithALowerHalfBeforeTheFlashDoesNoHarm) {
  sim::Device  Device(*sim::FindDevice("STM32L476"));
  sim::KeyFile File;
  std::string  sError;
  uint32_t     Status = 0;
  Device.PowerOn();
  File.Add("state.first_half", "0x07FFFFFC");
  File.Add("state.keys", "2");
  File.Add("register.FLASH_CR", "0x00000001");
  ASSERT_TRUE(Device.LoadFrom(File, &sError)) << sError;
  EXPECT_TRUE(Device.Write(0x08000000, 4, 0));
  EXPECT_TRUE(Device.Read(0x40022010, 4, &Status));
  EXPECT_EQ(0x20u, Status);  // PGAERR: it is no upper half
}

TEST(SimL4, StatesThatDoNotExistAreRefused) {
  for (const char* sName : {"L433", "L452", "L476", "L496"}) {
    ExpectRefused(sName, "--secure", "this device has no secure area");
    ExpectRefused(sName, "--wrp 10,12,14",
                  "the write-protected pages of a bank must be one or two areas");
    ExpectRefused(sName, "--pcrop 1,3", "the PCROP pages of a bank must be one area");
  }
  ExpectRefused("L433", "--wrp 128", "sector 128: this device has sectors 0 to 127");
  ExpectRefused("L476", "--pcrop 512", "sector 512: this device has sectors 0 to 511");
}

static const STEPS_CASE aStates[] = {
    {"EverythingAtOnce", "L476", "--wrp all --pcrop all --pcrop-rdp 1 --rdp 0x55 --user 0",
     "OPTR?FC408855 PCROP1SR?FFFF0000 PCROP1ER?8FFFFFFF WRP1AR?FFFFFF00 PCROP2SR?FFFF0000 "
     "PCROP2ER?FFFFFFFF WRP2AR?FFFFFF00"},
    {"PagesInAnyOrder", DUAL, "--wrp 7,5,6,511",
     "WRP1AR?FF07FF05 WRP1BR?FF00FFFF WRP2AR?FFFFFFFF WRP2BR?FF00FFFF"},
    {"EachFieldByItsName", DUAL,
     "--option WRP2B_STRT=1 --option WRP2B_END=2 --option PCROP2_STRT=3 --option BFB2=1",
     "WRP2BR?FF02FF01 PCROP2SR?FFFF0003 OPTR?FFFFF8AA"},
    {"ThoseOfTheBootMode", "L433 L496", "--option nSWBOOT0=0 --option nBOOT0=0", "OPTR?0/C000000"},
    {"AMismatchInAnyWord", DUAL, "--mismatch WRP2BR --mismatch user",
     "@1FFFF824?FF0001 @1FFF7804?100754 error?OPTVERR"},
};
PLAY_CASES(SimL4States, aStates, Words);
