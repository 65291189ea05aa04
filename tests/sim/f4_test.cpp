// SPDX-License-Identifier: MIT

// F2, F4 and F7: a row for each rule of the hardware. Addresses and keys as in the manuals.

#include "sim/catalog.h"
#include "sim/request.h"
#include "sim/text.h"
#include "sim/verdict.h"
#include "tests/sim/steps.h"

static const STEPS_WORDS Words = {
    {"unlock", "OPTKEYR=08192A3B OPTKEYR=4C5D6E7F"},
    {"unlock-flash", "KEYR=45670123 KEYR=CDEF89AB"},
    {"program", "OPTCR=$ finish"},
    {"erase", "unlock-flash CR=$ finish"},
};

#define SPRMOD_ONE_BANK "F401xC F401 F410 F411 F412 F413 F446 "
#define TWO_BANKS       "F427 F429 F469 "
#define ALL_F4          "F407 " SPRMOD_ONE_BANK TWO_BANKS
#define ALL_F7          "F723 F746 F767"
#define ALL             "F207 " ALL_F4 ALL_F7
#define WITH_BACKUP     "F207 F407 F413 F446 " TWO_BANKS ALL_F7

// -- What a manual prints ------------------------------------------------------------------------

struct DEVICE_CASE {
  const char* sName;
  uint32_t    DevId, Optcr, OptcrOnes, CrOnes;  // OPTCR as delivered, and the bits that take ones
  const char* sMore;
};

TEST(SimF4, EachDeviceHasItsIdentityItsFactoryWordsAndItsBits) {
  const char* const sBank2    = "OPTCR1?FFF0000 unlock register:OPTCR1=FFF0000/FFF0000 @40023C1C?!";
  const char* const sReserved = "@40023C18?0 @40023C18=FFFFFFFF @40023C18?0 @40023C1C?!";
  const char* const sF7 =
      "OPTCR1?00400080 unlock OPTCR1=FFFFFFFF OPTCR1?FFFFFFFF OPTCR1=0 OPTCR1?0";
  const DEVICE_CASE aCases[] = {
      {"F207", 0x411, 0x0FFFAAED, 0x0FFFFFEC, 0x0300037F, "@40023C18?!"},
      {"F401xC", 0x423, 0x00FFAAED, 0x003FFFEC | 0x80000000, 0x0300037F, sReserved},
      {"F401", 0x433, 0x00FFAAED, 0x80FFFFEC, 0x0300037F, sReserved},
      {"F407", 0x413, 0x0FFFAAED, 0x0FFFFFEC, 0x0300037F, "@40023C18?!"},
      {"F410", 0x458, 0x00FFAAED, 0x801FFFEC, 0x0300037F, sReserved},
      {"F411", 0x431, 0x00FFAAED, 0x80FFFFEC, 0x0300037F, sReserved},
      {"F412", 0x441, 0x0FFFAAED, 0x8FFFFFEC, 0x0300037F, sReserved},
      {"F413", 0x463, 0x7FFFAAED, 0xFFFFFFEC, 0x0300037F, sReserved},
      {"F427", 0x419, 0x0FFFAAED, 0xCFFFFFFC, 0x030083FF, sBank2},
      {"F429", 0x419, 0x0FFFAAED, 0xCFFFFFFC, 0x030083FF, sBank2},
      {"F446", 0x421, 0x0FFFAAED, 0x80FFFFEC, 0x0300037F, sReserved},
      {"F469", 0x434, 0x0FFFAAED, 0xCFFFFFFC, 0x030083FF, sBank2},
      {"F723", 0x452, 0xC0FFAAFD, 0xC0FFFFFC, 0x0300037F, sF7},
      {"F746", 0x449, 0xC0FFAAFD, 0xC0FFFFFC, 0x0300037F, sF7},
      {"F767", 0x451, 0xFFFFAAFD, 0xFFFFFFFC, 0x030083FF, sF7},
  };
  for (const DEVICE_CASE& Case : aCases) {
    PlayCase({"", Case.sName, "",
              sim::Format("@E0042000?%X/FFF reset @E0042000?%X/FFF OPTCR?%X OPTCR:%X CR?80000000 "
                          "SR?0 %s reset unlock unlock-flash OPTCR=0 OPTCR?%X OPTCR=FFFFFFFC "
                          "OPTCR?%X CR=7FFEFFFF CR?%X CR=0 CR?0 register:ACR=0/1F0F KEYR?0 "
                          "OPTKEYR?0",
                          Case.DevId, Case.DevId, Case.Optcr, Case.Optcr - 1, Case.sMore,
                          Case.Optcr & ~Case.OptcrOnes & ~1u, (Case.Optcr & ~1u) | Case.OptcrOnes,
                          Case.CrOnes)
                  .c_str()},
             Words);
  }
  EXPECT_EQ(std::size(aCases), sim::DevicesF4.size());
}

static const STEPS_CASE aPrinted[] = {
    {"SizesF207", "F207", "",
     "memory:8000000=100000 memory:20000000=20000 memory:40024000=1000 @1FFF7A22.2?400"},
    {"SizesF401xC", "F401xC", "", "memory:8000000=40000 memory:20000000=10000 @40024000?!"},
    {"SizesF401", "F401", "", "memory:8000000=80000 memory:20000000=18000 @1FFF7A22.2?200"},
    {"SizesF407", "F407", "",
     "memory:8000000=100000 memory:20000000=20000 memory:10000000=10000 memory:40024000=1000"},
    {"SizesF410", "F410", "", "memory:8000000=20000 memory:20000000=8000 @40024000?!"},
    {"SizesF411", "F411", "", "memory:8000000=80000 memory:20000000=20000 @40024000?!"},
    {"SizesF412", "F412", "", "memory:8000000=100000 memory:20000000=40000 @40024000?!"},
    {"SizesF413", "F413", "", "memory:8000000=180000 memory:20000000=40000 memory:40024000=1000"},
    {"SizesF427", "F427", "", "memory:8000000=100000 memory:20000000=30000 memory:40024000=1000"},
    {"SizesF429", "F429", "",
     "memory:8000000=200000 memory:20000000=30000 memory:10000000=10000 @1FFF7A22.2?800"},
    {"SizesF446", "F446", "", "memory:8000000=80000 memory:20000000=20000 memory:40024000=1000"},
    {"SizesF469", "F469", "", "memory:8000000=200000 memory:20000000=50000 memory:40024000=1000"},
    {"SizesF723", "F723", "",
     "memory:8000000=80000 memory:20000000=40000 memory:40024000=1000 @1FF07A22.2?200"},
    {"SizesF746", "F746", "",
     "memory:8000000=100000 memory:20000000=50000 memory:40024000=1000 @1FF0F442.2?400"},
    {"SizesF767", "F767", "",
     "memory:8000000=200000 memory:20000000=80000 memory:40024000=1000 @1FF0F442.2?800"},
    {"SramIsLostWithPowerAndBackupSramIsNot", "F407", "",
     "power @20000000?0 @10000000?0 @40024000?12345678"},
    {"DebugRegistersOutliveAResetAndNotPowerOff", "F407 F723", "",
     "@E0042000=0 @E0042000?400/C00 DBGMCU_CR=FFFFFFFF DBGMCU_APB1_FZ=FFFFFFFF "
     "DBGMCU_APB2_FZ=FFFFFFFF reset DBGMCU_CR?E7 DBGMCU_APB1_FZ?6E01DFF DBGMCU_APB2_FZ?70003 power "
     "DBGMCU_CR?0 DBGMCU_APB1_FZ?0 DBGMCU_APB2_FZ?0"},
    {"HsiIsReadyWhereItIsOn", "F407", "",
     "RCC_CR?83 RCC_CR=80 RCC_CR?80 RCC_CR=81 RCC_CR?83 RCC_CR.1=80 RCC_CR?80 reset RCC_CR?83"},
    {"PcropOfF723HasARegisterOfItsOwn", "F723", "",
     "OPTCR2?80000000 unlock OPTCR2=FFFFFFFF OPTCR2?800000FF OPTCR2=0 OPTCR2?0"},
    {"NobodyElseHasOptcr2", "F746 F767 F429", "", "@40023C1C?!"},
    {"AddressesHaveToFitTheirSize", "F407", "",
     "@8000002?! @20000001.2?! @20000002=0! @20000003.2=0! @20000003.1=AB @20000002.2?AB34"},
};
PLAY_CASES(SimF4Printed, aPrinted, Words);

// -- Locks ---------------------------------------------------------------------------------------

static const STEPS_CASE aLocks[] = {
    {"OptionKeysClearOptlock", ALL, "", "OPTCR=0 OPTCR?AA01/FF01 unlock OPTCR?AA00/FF01"},
    {"AFailedAttemptKeepsOptlockUntilReset", ALL, "",
     "OPTKEYR=4C5D6E7F unlock OPTCR?1/1 reset unlock OPTCR?0/1"},
    {"AWrongOptionKeyIsABusErrorWhereThatVariantIsChosen", "F407",
     "--variant f4_optkey_bus_error=1", "OPTKEYR=1! OPTKEYR=08192A3B! OPTCR?1/1"},
    {"AWrongFlashKeyIsABusErrorAndLocksUntilReset", ALL, "",
     "KEYR=1! KEYR=45670123! KEYR=CDEF89AB! CR?80000000 reset unlock-flash CR?0"},
    {"KeysAfterTheRightOnesDoNothing", "F407", "", "unlock unlock OPTCR?0/1 unlock-flash CR?0"},
    {"LocksAreSetBySoftwareAndOpenedByKeys", "F407", "",
     "unlock OPTCR=0FFFAAED OPTCR?1/1 OPTCR=0FFF00EC OPTCR?0FFFAAED unlock OPTCR?0FFFAAEC "
     "unlock-flash CR=80000000 CR?80000000 CR=1 CR?80000000 unlock-flash CR?0"},
    {"EveryResetClosesTheLocks", "F407", "",
     "unlock unlock-flash ACR=705 reset CR?80000000 OPTCR?1/1 ACR?0 unlock unlock-flash power "
     "CR?80000000 OPTCR?1/1"},
    {"ALockedControlRegisterTakesNothingAndSetsNoFlag", "F407", "",
     "CR=10004 CR?80000000 SR?0 @8000000=0 SR?0 flash?kept"},
    {"BitsThatDoNotExistKeepTheirValue", "F207 F407", "", "unlock OPTCR=FFFFAAFC OPTCR?0FFFAAEC"},
    {"NarrowWritesChangeTheirBytesOnly", "F407", "",
     "unlock OPTCR.2=55EC OPTCR?0FFF55EC OPTCR+2.2=0F0F OPTCR?0F0F55EC OPTCR+1.1=AA OPTCR?0F0FAAEC "
     "OPTCR.1=EE SR?10000 OPTCR+2.2=0FFF SR?0 OPTCR:0F0FAAEC"},
};
PLAY_CASES(SimF4Locks, aLocks, Words);

// -- Changing options ----------------------------------------------------------------------------

static const STEPS_CASE aOptions[] = {
    {"ValuesWithoutOptstrtAreLostAtReset", "F412", "",
     "unlock OPTCR=0FFF55EC OPTCR?0FFF55EC reset OPTCR?0FFFAAED"},
    {"AnOptionWriteKeepsBusyForHundredsOfMilliseconds", "F407", "",
     "unlock OPTCR=0FF0AAEE SR?10000 OPTCR?2/2 wait:399999us SR?10000 wait:1us SR?0 OPTCR?0FF0AAEC "
     "reset OPTCR?0FF0AAED flash?kept"},
    {"AWriteToOptcrWhileBusyWaitsForTheEnd", "F407", "",
     "unlock OPTCR=0FF0AAEE OPTCR=0FFFAAEC SR?0 stalled?400000 OPTCR?0FFFAAEC reset "
     "OPTCR?0FF0AAED"},
    {"OtherControlRegistersWaitAsWellAndKeysDoNot", "F429", "",
     "unlock-flash unlock OPTCR=0FF0AAEE unlock SR?10000 stalled?0 CR=300 SR?0 stalled?400000 "
     "CR?300 OPTCR=0FF0AAEE OPTCR1=30000 SR?0 stalled?400000 OPTCR1?30000"},
    {"AWriteThatWaitsForEverFailsAndTheOptionsAreStored", "F429", "--pcrop 0,1,13",
     "hold:forever unlock OPTCR1=8FFF0000 OPTCR=8FFFBBE2 wait:25000ms SR?10000 OPTCR=0FFFAAEE! "
     "reset SR?0 OPTCR?8FFFBBE1 OPTCR1?0FFF0000 flash?kept"},
    {"OptionsAreErasedUntilTheirWriteHasEnded", "F207 F407 F412 F427", "",
     "unlock OPTCR=0FFFAAEE wait:100ms reset OPTCR?FFFFED/FFFFED level?1 @8000000?! flash?kept "
     "power "
     "unlock OPTCR=0FFFAAEE wait:399ms power OPTCR?FFFFED/FFFFED level?1"},
    {"ErasedOptionsOfTwoBanksAreAllPcrop", "F429 F469", "",
     "unlock OPTCR=0FFFAAEE wait:300ms reset OPTCR?CFFFFFFD OPTCR1?0FFF0000"},
    {"ErasedOptionsOfF723", "F723", "",
     "unlock OPTCR=C0FFAAFE reset OPTCR?C0FFFFFD OPTCR1?FFFFFFFF OPTCR2?800000FF"},
    {"BootAddressesAreStoredAndCanBeCreated", ALL_F7,
     "--option BOOT_ADD0=0x1234 --option BOOT_ADD1=0x5678",
     "OPTCR1?56781234 unlock OPTCR1=400080 OPTCR.1=FE finish reset OPTCR1?400080"},
    {"UserBitsAreTakenInTheirPlaces", "F207 F407 F412 F413 F429", "--user 0", "OPTCR?FAA01/FFFFF"},
    {"UserBitsOfTwoBanks", TWO_BANKS, "--user 0xFFFFFFFF", "OPTCR?4FFFAAFD"},
    {"UserBitsOfF723", "F723 F746", "--user 0", "OPTCR?00FFAA01"},
    {"UserBitsOfF767", "F767", "--user 0", "OPTCR?0FFFAA01"},
    {"AllUserBitsOfF767", "F767", "--user 0xFFFFFFFF", "OPTCR?FFFFAAFD"},
    {"AChangeThatRunsWhenTheDeviceIsSavedGoesOn", "F723", "--rdp 1",
     "unlock OPTCR1=12345678 OPTCR2=80000003 OPTCR=C0FEBBFE save SR?10000 wait:400ms SR?0 "
     "OPTCR:C0FEBBFC OPTCR1:12345678 OPTCR2:80000003 OPTCR?C0FEBBFC"},
    {"TheLevelInForceIsSaved", "F407", "--variant f4_level_at_once=0",
     "unlock program:0FFFBBEE save level?0 stored?1 reset level?1"},
};
PLAY_CASES(SimF4Options, aOptions, Words);

// -- Levels --------------------------------------------------------------------------------------

static const STEPS_CASE aLevels[] = {
    {"EveryOtherByteIsLevel1", ALL, "--rdp 0x00", "level?1"},
    {"A5IsLevel1", ALL, "--rdp 0xA5", "level?1"},
    {"FFIsLevel1", ALL, "--rdp 0xFF", "level?1"},
    {"Level2ShutsTheDebugPort", ALL, "--rdp 0xCC", "level?2 OPTCR?! OPTKEYR=08192A3B!"},
    {"AlsoToAWriteThatWaitedForIt", ALL, "",
     "unlock OPTCR+1.1=CC OPTCR.1=EE OPTCR+1.1=AA! finish level?2 stored?2"},
    {"AtLevel1FlashIsClosedAndOptcrIsOpen", ALL, "--rdp 1",
     "@8000000?! @20000000?ok OPTCR?BB00/FF00"},
    {"AtLevel1BackupSramIsClosed", WITH_BACKUP, "--rdp 1", "@40024000?! @40024000=0!"},
    {"AtLevel1FlashIsNeitherProgrammedNorErased", ALL, "--rdp 1",
     "unlock-flash CR=201 @8000000=0! CR=10002 SR?10 flash?kept"},
    {"OneToZeroErasesFlashThenProgramsTheOptions", "F207 F407 F412 F413", "--rdp 1",
     "unlock OPTCR=0FFFAAEE wait:16000ms SR?10000 flash?erased stored?1 wait:400ms SR?0 level?0 "
     "@8000000?FFFFFFFF OPTCR:0FFFAAEC"},
    {"OneToZeroWipesBackupSram", WITH_BACKUP, "--rdp 1",
     "unlock OPTCR+1.1=AA OPTCR.1=EE finish backup_sram?erased flash?erased level?0"},
    {"TheOtherStepsEraseNothing", "F407 F446 F429", "",
     "unlock program:0FFFAAEE program:0FFF55EE program:0FFF00EE reset level?1 flash?kept"},
    {"WriteProtectionDoesNotStopTheEraseOfOneToZero", "F429", "--rdp 1 --wrp all",
     "OPTCR?BBED OPTCR1?0 unlock program:0FFFAAEE flash?erased"},
    {"AResetDuringTheMassEraseKeepsTheOptions", "F407", "--rdp 1",
     "unlock OPTCR=0FFFAAEE wait:5000ms reset SR?0 OPTCR?0FFFBBED flash?partly"},
    {"AProgrammedLevelIsInForceAtOnce", ALL, "",
     "unlock OPTCR+1.1=BB OPTCR.1=EE finish @8000000?! remark?none"},
    {"OrAfterResetWhereThatVariantIsChosen", ALL, "--variant f4_level_at_once=0",
     "unlock OPTCR+1.1=BB OPTCR.1=EE finish @8000000?12345678 remark?some reset @8000000?! "
     "remark?none"},
    {"WhatWasUnprotectedOnceIsUnprotectedAgain", "F429", "--rdp 1",
     "unlock OPTCR1=0FFF0000 program:0FFFAAEE SR?0 reset OPTCR?0FFFAAED unlock OPTCR1=0FFF0000 "
     "program:0FFFAAEE SR?0 reset OPTCR?0FFFAAED flash?erased"},
    {"F413LosesTheProtectionBitsThatOthersDoNotHave", "F413", "",
     "unlock program:0FFFAAEE reset OPTCR?0FFFAAED unlock-flash CR=10062 SR?10"},
};
PLAY_CASES(SimF4Levels, aLevels, Words);

// -- PCROP ---------------------------------------------------------------------------------------

static const STEPS_CASE aPcrop[] = {
    {"WithSprmodASectorBitOf1ForbidsReadingIt", "F429 F469", "--pcrop 0,1,13",
     "OPTCR?8003AAED OPTCR1?20000 @8000000?0 SR?100 SR=100 @8008000?12345678 SR?0 @8104000?0"},
    {"WithSprmodOnOneBank", SPRMOD_ONE_BANK, "--pcrop 0,1",
     "OPTCR?8003AAED/800FFFFD @8000000?0 SR?100 @8008000?12345678"},
    {"AtLevel0ItIsNotLiftedAndTheWholeChangeIsCancelled", "F429", "--pcrop 0,1,13",
     "unlock OPTCR1=0FFF0000 OPTCR=0FFFAAE0 OPTCR=0FFFAAE2 SR?10 OPTCR?0/2 reset OPTCR?8003AAED "
     "OPTCR1?20000"},
    {"OneBankKeepsEverythingWhenItIsNotLifted", SPRMOD_ONE_BANK, "--pcrop 0,1 --option BOR_LEV=1",
     "unlock OPTCR=0FFFAAEC OPTCR=0FFFAAEE SR?10 reset OPTCR?8003AAE5/800FFFFD flash?kept"},
    {"ASectorCannotLeaveWhileItStays", "F429", "--pcrop 0,1,13", "unlock OPTCR=8001AAEE SR?10"},
    {"NorOneOfTheSecondBank", "F429", "--pcrop 0,1,13",
     "unlock OPTCR1=10000 OPTCR=8003AAEE SR?10 OPTCR?0/2 reset OPTCR1?20000"},
    {"ItMayGrowAtAnyLevel", "F429", "--pcrop 0,1,13",
     "unlock OPTCR1=0FFF0000 program:8FFFBBE2 SR?0 level?1 flash?kept"},
    {"UserOptionsMayChangeMeanwhile", "F429", "--pcrop 0,1,13",
     "unlock program:8003AAA2 SR?0 reset OPTCR?8003AAA1"},
    {"ItLeavesTogetherWithOneToZero", "F429", "--rdp 1 --pcrop 0,1,13",
     "unlock OPTCR1=0FFF0000 program:0FFFAAEE reset OPTCR?0FFFAAED OPTCR1?0FFF0000 flash?erased"},
    {"ItLeavesOneBankTogetherWithOneToZero", SPRMOD_ONE_BANK, "--rdp 1 --pcrop 0,1",
     "unlock program:0FFFAAEE SR?0 reset OPTCR?1FAAED/801FFFFD flash?erased"},
    {"AnEarlierProgrammedLevelCountsAtOnce", "F429", "--pcrop 0,1,13",
     "unlock OPTCR1=8FFF0000 program:8FFFBBE2 OPTCR1=0FFF0000 program:0FFFAAEE SR?0 flash?erased"},
    {"OrAfterResetWhereThatVariantIsChosen", "F429", "--pcrop 0,1,13 --variant f4_level_at_once=0",
     "unlock OPTCR1=8FFF0000 program:8FFFBBE2 OPTCR1=0FFF0000 program:0FFFAAEE SR?10 flash?kept"},
    {"ItsSectorsAreNeitherErasedNorProgrammed", "F429 F723 F411", "--pcrop 0",
     "unlock-flash CR=10002 SR?10 SR=10 CR=10004 SR?10 SR=10 CR=201 @8000000=0 SR?10 flash?kept"},
    {"BitsOfF723CanBeSetAndNotCleared", "F723", "",
     "unlock OPTCR2=80000003 program:C0FFAAFE OPTCR2=80000004 program:C0FFAAFE reset "
     "OPTCR2?80000007 "
     "@8000000?0 SR?100"},
    {"F723KeepsItAtLevel0", "F723", "--pcrop 0 --pcrop-rdp 1",
     "unlock OPTCR2=0 OPTCR1=400080 program:C0FFAAFE SR?0 reset OPTCR2?80000001 flash?kept"},
    {"UnprotectingF723WipesItWithPcropRdp", "F723", "--rdp 1 --pcrop 0,1 --pcrop-rdp 1",
     "unlock program:C0FFAAFE level?0 flash?erased OPTCR2?80000000"},
    {"UnprotectingF723SparesItWithoutPcropRdp", "F723", "--rdp 1 --pcrop 0,1 --pcrop-rdp 0",
     "unlock program:C0FFAAFE level?0 flash?partly OPTCR2?3 @8000000?0 @8008000?FFFFFFFF"},
    {"Db1mMayChangeMeanwhile", "F427", "--pcrop 0 --option DB1M=1",
     "unlock program:8001AAEE SR?0 reset OPTCR?8001AAED"},
    {"OrNotWhereThatVariantIsChosen", "F427",
     "--pcrop 0 --option DB1M=1 --variant f4_db1m_free_with_sprmod=0",
     "unlock program:8001AAEE SR?10 reset OPTCR?C001AAED"},
};
PLAY_CASES(SimF4Pcrop, aPcrop, Words);

// -- Option bytes in memory ----------------------------------------------------------------------

static const STEPS_CASE aMemory[] = {
    {"StoredOptionsAreReadInMemory", "F207 F407", "",
     "@1FFFC000?FFFFAAFF @1FFFC004?FFFFFFFF @1FFFC008?FFFFFFFF @1FFFC010?! @1FFEC008?!"},
    {"ThoseOfTwoBanksToo", "F429", "--pcrop 0,1,13",
     "@1FFFC000?FFFFAAEF @1FFFC008?FFFFB003 @1FFEC000?FFFFFFFF @1FFEC008?FFFFF002"},
    {"ThoseOfF7Too", "F723", "--pcrop 0 --pcrop-rdp 0",
     "@1FFF0000?FFFFAAFF @1FFF0008?FFFFFFFF @1FFF0010?FFFF0080 @1FFF0018?FFFF0040 "
     "@1FFF0020?7FFFFF01"},
    {"OtherF7HaveNoPcropWord", "F746 F767", "", "@1FFF0018?FFFF0040 @1FFF0020?!"},
    {"TheyAreClosedAtLevel1", "F407 F723", "--rdp 1", "@1FFFC000?! @1FFF0000?! @1FFFC000=0!"},
    {"TheyFollowTheChangeAndNotTheRegister", "F407", "",
     "unlock OPTCR=0FF0AAEC @1FFFC008?FFFFFFFF OPTCR=0FF0AAEE @1FFFC008?FFFFFFF0 stalled?400000"},
    {"WritesThereAreRefused", "F407", "",
     "@1FFFC000=0 SR?0 unlock-flash CR=201 @1FFFC000=0 SR?10 @1FFFC000?FFFFAAFF"},
};
PLAY_CASES(SimF4Memory, aMemory, Words);

// -- Main flash ----------------------------------------------------------------------------------

static const STEPS_CASE aFlash[] = {
    {"ProgrammingClearsBitsAndTakesItsTime", "F407", "empty",
     "unlock-flash CR=101 @8000002.2=0F0F SR?10000 @8000000?0F0FFFFF stalled?16 SR?0 "
     "@8000002.2=FF00 @8000000?0F00FFFF stalled?16 variant:timing_max=1 @8000000.2=0 "
     "@8000000?0F000000 "
     "stalled?100 CR=1 @8000005.1=21 @8000004?FFFF21FF SR?0"},
    {"ProgrammingNeedsTheAccessSizeOfPsize", "F407", "empty",
     "unlock-flash CR=201 @8000000=CAFEBABE finish @8000000?CAFEBABE @8000004.2=1234 SR?40 "
     "@8000004?FFFFFFFF"},
    {"ProgrammingWithoutPgIsASequenceAndAParallelismError", "F407 F411 F746", "empty",
     "unlock-flash @8000000=0 SR?C0 @8000000?FFFFFFFF"},
    {"AProtectedSectorIsNotProgrammed", "F407", "empty --wrp 1",
     "unlock-flash CR=201 @8004000=0 SR?10 SR=10 @8003FFC=0 @8008000=0 @8003FFC?0 "
     "@8004000?FFFFFFFF "
     "@8008000?0"},
    {"AProtectedSectorIsNotErased", "F407 F411 F429 F746", "--wrp 1",
     "unlock-flash CR=1000A SR?10 SR=10 CR=10004 SR?10 SR=10 CR=10012 SR?10000 finish "
     "@8007FFC?12345678/FFFFFFFF"},
    {"EopAndOperrAreSetOnlyWhereTheirInterruptsAreEnabled", "F407", "--wrp 1",
     "unlock-flash CR=10012 CR?10000/10000 finish SR?0 CR?12 CR=1000A SR?10 SR=F3 CR=3010012 "
     "finish "
     "SR?1 CR?3000012 SR=1 CR=301000A SR?12 CR?300000A SR=F3 SR?0"},
    {"FlagsAreClearedByWritingOnesToThemAlone", "F429", "--pcrop 0",
     "unlock-flash @8000000?0 @8000000=0 CR=10002 SR?1D0 SR=0 SR?1D0 SR=80 SR?150 SR=10002 SR?150"},
    {"AnEraseOfNothingStartsNothing", "F407", "", "unlock-flash CR=10000 CR?0 SR?0 flash?kept"},
    {"AnEraseOfSectorAndFlashAtOnceIsRefused", "F407 F429", "",
     "unlock-flash CR=10006 CR?6 SR?10 flash?kept"},
    {"ThereIsNoSectorAfterTheLast", "F207 F407", "", "unlock-flash CR=10062 SR?10 flash?kept"},
    {"NoneBetweenTheBanksNorAfterThem", "F429", "",
     "unlock-flash CR=10062 SR?10 SR=10 CR=1007A SR?10 SR=10 CR=100E2 SR?10 flash?kept"},
    {"EachBankIsErasedByItsOwnBit", "F429", "",
     "erase:18000 @80FFFFC?12345678 @8100000?FFFFFFFF CR=10004 finish flash?erased"},
    {"BothBanksAreErasedTogether", "F429", "", "erase:18004 flash?erased"},
    {"ProtectionOfABankStopsItsEraseAlone", "F429", "--wrp 23",
     "unlock-flash CR=18000 SR?10 CR=10004 SR?10010"},
    {"TheSecondBanksBitDoesNothingWhereThereIsOneBank", "F767 F427", "",
     "unlock-flash CR=18000 SR?0 CR=10004 finish flash?erased"},
    {"TheLastTwoSectorsOfF413ShareABit", "F413", "--wrp 14",
     "OPTCR?3FFFAAED unlock-flash CR=10072 SR?10 SR=10 CR=1007A SR?10 SR=10 CR=1006A SR?10000"},
    {"WithNdbank0F767HasTwoBanksFromTheNextResetOn", "F767", "",
     "unlock program:DFF7AAFE flash?kept erase:10082 SR?10 SR=10 reset unlock-flash CR=10082 "
     "finish "
     "@8100000?FFFFFFFF @8103FFC?FFFFFFFF @8104000?12345678 CR=1002A finish SR?0 CR=10032 SR?10 "
     "SR=10 "
     "CR=1003A SR?10 SR=10 CR=10042 finish SR?0 CR=18000 finish @81FFFFC?FFFFFFFF "
     "@8000000?12345678"},
    {"WithDb1mF427HasTwoBanks", "F427", "--option DB1M=1 --wrp 13",
     "OPTCR1?FFD0000 unlock-flash CR=10082 finish @8080000?FFFFFFFF @8083FFC?FFFFFFFF "
     "@8084000?12345678 CR=1008A SR?10 SR=10 CR=10042 SR?10 SR=10 CR=10092 finish SR?0 "
     "@8088000?FFFFFFFF CR=10004 finish @807FFFC?FFFFFFFF @80FFFFC?12345678"},
    {"WithoutDb1mItHasOne", "F427", "",
     "unlock-flash CR=10082 SR?10 SR=10 CR=1005A finish SR?0 "
     "@80DFFFC?12345678 @80E0000?FFFFFFFF @80FFFFC?FFFFFFFF"},
    {"LiftingDb1mChangesTheLayoutAndNotTheContent", "F427", "--option DB1M=1",
     "unlock program:0FFFAAEE reset OPTCR?0FFFAAED flash?kept unlock-flash CR=10082 SR?10"},
    {"EveryReadWaitsOnOneBank", "F407 F427", "",
     "unlock-flash CR=1005A @8000000?12345678 stalled?2000000"},
    {"ABankIsReadableWhileTheOtherErases", "F429", "",
     "unlock-flash CR=10082 @8000000?12345678 stalled?0 @8100000?FFFFFFFF stalled?400000 CR=10002 "
     "@8100004?FFFFFFFF stalled?0 @8000000?FFFFFFFF stalled?400000"},
    {"AlsoOnF427WithDb1m", "F427", "--option DB1M=1",
     "unlock-flash CR=10082 @8000000?12345678 stalled?0 @8080000?FFFFFFFF stalled?400000"},
    {"AlsoOnF767WithNdbank0", "F767", "--option nDBANK=0",
     "unlock-flash CR=10082 @8000000?12345678 stalled?0 @8100000?FFFFFFFF stalled?400000"},
    {"NotWhileBothAreErasedNorWhileOptionsChange", "F429", "",
     "unlock-flash CR=18004 @8000000?FFFFFFFF stalled?16000000 unlock OPTCR=0FFFAAEE @8100000?ok "
     "stalled?400000"},
};
PLAY_CASES(SimF4Flash, aFlash, Words);

TEST(SimF4, SectorsLieWhereTheManualsPutThem) {
  const struct {
    const char* sName;
    uint32_t    Code, First, Bytes;
  } aRows[] = {
      {"F207", 0, 0x00000, 0x4000},    {"F207", 3, 0x0C000, 0x4000},
      {"F207", 4, 0x10000, 0x10000},   {"F207", 5, 0x20000, 0x20000},
      {"F207", 11, 0xE0000, 0x20000},  {"F410", 4, 0x10000, 0x10000},
      {"F401xC", 5, 0x20000, 0x20000}, {"F401", 7, 0x60000, 0x20000},
      {"F411", 7, 0x60000, 0x20000},   {"F446", 7, 0x60000, 0x20000},
      {"F412", 11, 0xE0000, 0x20000},  {"F413", 12, 0x100000, 0x20000},
      {"F413", 15, 0x160000, 0x20000}, {"F429", 11, 0xE0000, 0x20000},
      {"F429", 16, 0x100000, 0x4000},  {"F469", 20, 0x110000, 0x10000},
      {"F429", 27, 0x1E0000, 0x20000}, {"F723", 7, 0x60000, 0x20000},
      {"F746", 1, 0x08000, 0x8000},    {"F746", 4, 0x20000, 0x20000},
      {"F746", 7, 0xC0000, 0x40000},   {"F767", 11, 0x1C0000, 0x40000},
  };
  for (const auto& Row : aRows) {
    const uint32_t First = 0x08000000 + Row.First, End = First + Row.Bytes;
    std::string    sSteps = sim::Format("erase:%X @%X?FFFFFFFF @%X?FFFFFFFF flash?partly",
                                        0x10002 | Row.Code << 3, First, End - 4);
    sSteps += Row.First != 0 ? sim::Format(" @%X?12345678", First - 4) : "";
    const uint32_t Size = sim::FindDevice(Row.sName)->pFacts->Memory[0].Bytes;
    sSteps += Row.First + Row.Bytes < Size ? sim::Format(" @%X?12345678", End) : "";
    PlayCase({"", Row.sName, "", sSteps.c_str()}, Words);
  }
}

TEST(SimF4, ErasesTakeTheirTimeBySizeAndParallelism) {
  const struct {
    const char* sName;
    uint32_t    Control, Ms, LongestMs;
  } aRows[] = {
      {"F407", 0x10002, 400, 800},     {"F407", 0x10102, 300, 600},
      {"F407", 0x10202, 250, 500},     {"F407", 0x10302, 250, 500},
      {"F407", 0x10022, 1200, 2400},   {"F407", 0x10122, 700, 1400},
      {"F407", 0x10222, 550, 1100},    {"F407", 0x1002A, 2000, 4000},
      {"F407", 0x1012A, 1300, 2600},   {"F407", 0x1022A, 1000, 2000},
      {"F407", 0x10004, 16000, 32000}, {"F407", 0x10104, 11000, 22000},
      {"F407", 0x10204, 8000, 16000},  {"F407", 0x10304, 8000, 16000},
      {"F411", 0x10004, 8000, 16000},  {"F401xC", 0x10004, 4000, 8000},
      {"F446", 0x10204, 4000, 8000},   {"F429", 0x18004, 16000, 32000},
      {"F429", 0x10004, 16000, 32000}, {"F413", 0x10004, 16000, 32000},
      {"F746", 0x10002, 400, 800},     {"F746", 0x1003A, 2000, 4000},
  };
  for (const auto& Row : aRows) {
    for (const bool Longest : {false, true}) {
      const uint32_t    Ms     = Longest ? Row.LongestMs : Row.Ms;
      const std::string sState = sim::Format("--variant timing_max=%d", Longest);
      PlayCase({"", Row.sName, sState.c_str(),
                sim::Format("unlock-flash CR=%X wait:%ums SR?10000 flash?kept wait:1ms SR?0 "
                            "@8000000?ok",
                            Row.Control, Ms - 1)
                    .c_str()},
               Words);
    }
  }
}

TEST(SimF4, UnprotectingTakesTheTimesOfItsSteps) {
  const struct {
    const char* sName;
    uint32_t    Psize, Ms, LongestMs;
  } aRows[] = {{"F407", 0, 16400, 32800}, {"F407", 1, 11400, 22800}, {"F407", 2, 8400, 16800},
               {"F407", 3, 8400, 16800},  {"F411", 0, 8400, 16800},  {"F401xC", 0, 4400, 8800},
               {"F429", 0, 16400, 32800}};
  for (const auto& Row : aRows) {
    for (const bool Longest : {false, true}) {
      const uint32_t    Ms     = Longest ? Row.LongestMs : Row.Ms;
      const std::string sState = sim::Format("--rdp 1 --variant timing_max=%d", Longest);
      const std::string sSteps =
          sim::Format("unlock-flash CR=%X unlock OPTCR=0FFFAAEE wait:%ums SR?10000 wait:1ms SR?0",
                      Row.Psize << 8, Ms - 1);
      PlayCase({"", Row.sName, sState.c_str(), sSteps.c_str()}, Words);
    }
  }
}

// -- Operations that do not end ------------------------------------------------------------------

static const STEPS_CASE aCuts[] = {
    {"AMassEraseHasDoneItsPart", "F407", "",
     "unlock-flash CR=10004 wait:8000ms reset @8000000?FFFFFFFF @807FFFC?FFFFFFFF "
     "@8080000?BABEFEFA "
     "@8080080?12345678 flash?partly"},
    {"TwoBanksHaveDoneTheSamePart", "F429", "",
     "unlock-flash CR=18004 wait:4000ms power @803FFFC?FFFFFFFF @8040000?BABEFEFA "
     "@8040080?12345678 "
     "@813FFFC?FFFFFFFF @8140000?BABEFEFA @8140080?12345678"},
    {"ASectorEraseHasDoneItsPart", "F407", "",
     "unlock-flash CR=1000A wait:200ms reset @8003FFC?12345678 @8004000?FFFFFFFF @8005FFC?FFFFFFFF "
     "@8006000?BABEFEFA @8006080?12345678 @8008000?12345678"},
    {"AWordHasLostSomeOfItsBits", "F407", "empty",
     "unlock-flash CR=201 @8000000=0 reset @8000000?AAAAAAAA"},
    {"UnprotectingF723SparesPcropSectors", "F723", "--rdp 1 --pcrop 0 --pcrop-rdp 0",
     "unlock OPTCR=C0FFAAFE wait:1000ms reset level?1 in-use?475136 put:OPTCR=C0FFAAFC reset "
     "@8000000?0 @8004000?FFFFFFFF @800FFFC?FFFFFFFF @8010080?12345678"},
    {"BackupSramIsKeptWhenUnprotectingIsCut", "F407", "--rdp 1",
     "unlock OPTCR=0FFFAAEE wait:15999ms reset level?1 backup_sram?kept"},
};
PLAY_CASES(SimF4Cuts, aCuts, Words);

// -- Watchdogs and supply ------------------------------------------------------------------------

static const STEPS_CASE aWatchdog[] = {
    {"AHardwareWatchdogCutsUnprotecting", "F407 F411 F429", "--rdp 1 --option WDG_SW=0",
     "reset unlock OPTCR=0FFFAAEE wait:511ms resets?0 wait:2ms resets?1 OPTCR?1/1 level?1"},
    {"AWriteThatWaitsIsDoneOnceItHasCut", "F407 F411 F429", "--rdp 1 --option WDG_SW=0",
     "reset unlock OPTCR=0FFFAAEE unlock-flash CR=300 stalled?512000 resets?1 CR?80000000 level?1"},
    {"NotWhileItIsFrozen", "F407 F411 F429", "--rdp 1 --option WDG_SW=0",
     "DBGMCU_APB1_FZ=1800 reset unlock OPTCR=0FFFAAEE wait:20000ms resets?0 level?0 flash?erased"},
    {"ItsOptionNeedsAReset", "F407", "",
     "reset unlock program:0FFFAACE wait:600ms resets?0 reset wait:600ms resets?1"},
    {"TheIndependentOneOfF7IsCalledIwdg", ALL_F7, "--rdp 1 --option IWDG_SW=0",
     "reset wait:511ms resets?0 wait:2ms resets?1"},
    {"TheWindowWatchdogOfF7BitesAfter16ms", ALL_F7, "--rdp 1 --option WWDG_SW=0",
     "reset wait:16383us resets?0 wait:1us resets?1 wait:16384us resets?2"},
    {"ItCutsAnOptionWrite", ALL_F7, "--option WWDG_SW=0",
     "reset unlock OPTCR.1=FE wait:20ms resets?1 level?1"},
    {"NotWhileTheWindowWatchdogIsFrozen", ALL_F7, "--rdp 1 --option WWDG_SW=0",
     "DBGMCU_APB1_FZ=1800 reset wait:5000ms resets?0"},
    {"TheOtherFreezeBitDoesNotHelp", ALL_F7, "--rdp 1 --option WWDG_SW=0",
     "DBGMCU_APB1_FZ=1000 reset wait:17ms resets?1"},
    {"F42xHasNoSuchOption", TWO_BANKS, "--rdp 1 --option BFB2=0", "reset wait:1000ms resets?0"},
};
PLAY_CASES(SimF4Watchdog, aWatchdog, Words);

// Below these voltages the device resets itself.
static const STEPS_CASE aSupply[] = {
    {"BorLev0", ALL, "--option BOR_LEV=0",
     "voltage:2700 powered?1 voltage:2699 powered?0 voltage:3300 powered?1"},
    {"BorLev1", ALL, "--option BOR_LEV=1",
     "voltage:2400 powered?1 voltage:2399 powered?0 voltage:3300 powered?1"},
    {"BorLev2", ALL, "--option BOR_LEV=2",
     "voltage:2100 powered?1 voltage:2099 powered?0 voltage:3300 powered?1"},
    {"BorLev3", ALL, "--option BOR_LEV=3",
     "voltage:1700 powered?1 voltage:1699 powered?0 voltage:3300 powered?1"},
};
PLAY_CASES(SimF4Supply, aSupply, Words);

// -- Verdicts and requests -----------------------------------------------------------------------

TEST(SimF4, OptionsThatWaitForAResetAreNotFactoryState) {
  sim::Device         Device(*sim::FindDevice("F407"));
  sim::CREATE_REQUEST Request;
  std::string         sError;
  Request.Options = {{"BOR_LEV", 1}};
  ASSERT_TRUE(sim::Prepare(&Device, Request, &sError)) << sError;
  Device.PowerOn();
  EXPECT_TRUE(Device.Write(0x40023C08, 4, 0x08192A3B) && Device.Write(0x40023C08, 4, 0x4C5D6E7F));
  EXPECT_TRUE(Device.Write(0x40023C14, 4, 0x0FFFAAEE));
  Device.AdvanceTo(Device.NowUs() + 1000000);
  EXPECT_EQ(std::vector<std::string>{"OPTCR.BOR_LEV is 3 and 1 in force"},
            sim::Judge(Device).Differences);
  Device.SystemReset(true, "test");
  EXPECT_TRUE(sim::Judge(Device).AtFactory());
}

TEST(SimF4, HalfWordsInMemoryAreNamedWithoutTheFieldsOfTheRegister) {
  const sim::Device Device(*sim::FindDevice("F723"));
  for (const uint32_t Address : {0x1FFF0000u, 0x1FFF0008u}) {
    EXPECT_STREQ("OPTCR", Device.Describe(Address)->sName);
    EXPECT_EQ("", sim::DecodeFields(Device.Describe(Address)->Fields, 0xFFFFFFFF));
  }
  EXPECT_EQ("PCROP=01 PCROP_RDP",
            sim::DecodeFields(Device.Describe(0x1FFF0020)->Fields, 0x80000001));
  EXPECT_EQ(
      "OPTLOCK BOR_LEV=3 WWDG_SW IWDG_SW nRST_STOP nRST_STDBY RDP=AA nWRP=FF IWDG_STDBY IWDG_STOP",
      sim::DecodeFields(Device.Describe(0x40023C14)->Fields, 0xC0FFAAFD));
  EXPECT_EQ("ERSERR", sim::DecodeFields(Device.Describe(0x40023C0C)->Fields, 0x80));
}

TEST(SimF4, StatesThatADeviceCannotHaveAreRefused) {
  const char* const sEither = "the sector bits are either write protection or PCROP, not both";
  ExpectRefused("F429", "--secure", "this device has no secure area");
  ExpectRefused("F429", "--mismatch rdp", "this device shows no complements of its option bytes");
  ExpectRefused("F429", "--wrp 24", "sector 24: this device has sectors 0 to 23");
  ExpectRefused("F429", "--pcrop 24", "sector 24: this device has sectors 0 to 23");
  ExpectRefused("F429", "--pcrop-rdp 1", "this device has no PCROP_RDP bit");
  ExpectRefused("F429", "--pcrop 1 --wrp 2", sEither);
  ExpectRefused("F411", "--pcrop 1 --wrp 2", sEither);
  ExpectRefused("F411", "--wrp 8", "sector 8: this device has sectors 0 to 7");
  ExpectRefused("F410", "--wrp 5", "sector 5: this device has sectors 0 to 4");
  ExpectRefused("F413", "--wrp 15", "sector 15: this device has sectors 0 to 14");
  ExpectRefused("F407", "--option DB1M=1", "this device has no option DB1M");
  ExpectRefused("F723", "--pcrop 8", "sector 8: this device has sectors 0 to 7");
  for (const char* sName : {"F207", "F407", "F746", "F767"}) {
    ExpectRefused(sName, "--pcrop 1", "this device has no PCROP");
  }
}
