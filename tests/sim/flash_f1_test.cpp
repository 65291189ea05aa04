// F0, F1 and F3: one test per rule of the hardware. Addresses and keys as in the manuals.

#include "tests/sim/part.h"

static const uint32_t ACR = 0x40022000, KEYR = 0x40022004, OPTKEYR = 0x40022008, SR = 0x4002200C,
                      CR = 0x40022010, AR = 0x40022014, OBR = 0x4002201C, WRPR = 0x40022020;
static const uint32_t OPTIONS = 0x1FFFF800, FLASH = 0x08000000, RCC_CR = 0x40021000;

static void Unlock(Part* pPart) {
  pPart->Write(KEYR, 0x45670123);
  pPart->Write(KEYR, 0xCDEF89AB);
  pPart->Write(OPTKEYR, 0x45670123);
  pPart->Write(OPTKEYR, 0xCDEF89AB);
}

static void EraseOptions(Part* pPart) {
  pPart->Write(CR, 0x220);
  pPart->Write(CR, 0x260);
  pPart->Finish();
}

static void Program(Part* pPart, uint32_t Offset, uint32_t Value) {
  pPart->Write(CR, 0x200);
  pPart->Write(CR, 0x210);
  EXPECT_TRUE(pPart->TryWrite(OPTIONS + Offset, Value, 2));
}

static void ProgramRdp(Part* pPart, uint32_t Value) {
  Program(pPart, 0, Value);
}

// The value of the RDP byte that is level 0.
static uint32_t RdpOff(const char* sName) {
  return strcmp(sName, "STM32F103") == 0 ? 0xA5 : 0xAA;
}

static const char* const aDevices[] = {"STM32F051", "STM32F103", "STM32F303"};

TEST(SimFlashF1, RegistersHaveTheirResetValuesAndWritableBits) {
  Part F051("STM32F051", {}, false);
  ExpectRegisters(&F051, {{ACR, 0x30, 0x17},
                          {SR, 0, 0},
                          {CR, 0x80, 0},  // locked
                          {AR, 0, 0xFFFFFFFF},
                          {OBR, 0xFFFFFF00, 0},
                          {WRPR, 0xFFFFFFFF, 0},
                          {0x40015800, 0x20006440, 0},
                          {0x40021018, 0, 0x00475A01}});
  F051.Write(0x40021018, 1u << 22);  // the clock of DBGMCU
  ExpectRegisters(&F051, {{0x40015804, 0, 0x00000006}, {0x40015808, 0, 0x02201D33}});
  Part F103("STM32F103", {}, false);
  ExpectRegisters(&F103, {{ACR, 0x30, 0x17},
                          {SR, 0, 0},
                          {CR, 0x80, 0},
                          {AR, 0, 0xFFFFFFFF},
                          {OBR, 0x03FFFFFC, 0},
                          {WRPR, 0xFFFFFFFF, 0},
                          {0xE0042000, 0x20036410, 0},
                          {0xE0042004, 0, 0x003FFFE7}});
  Part F303("STM32F303", {}, false);
  ExpectRegisters(&F303, {{ACR, 0x30, 0x17},
                          {SR, 0, 0},
                          {CR, 0x80, 0},
                          {AR, 0, 0xFFFFFFFF},
                          {OBR, 0xFFFFFF00, 0},
                          {WRPR, 0xFFFFFFFF, 0},
                          {0xE0042000, 0x10036422, 0},
                          {0xE0042004, 0, 0x000000E7},
                          {0xE0042008, 0, 0x42601C3F}});
}

TEST(SimFlashF1, TheIdentityStaysOverAReset) {
  const struct {
    const char* sName;
    uint32_t    Address, Id;
  } aRows[] = {{"STM32F051", 0x40015800, 0x20006440},
               {"STM32F103", 0xE0042000, 0x20036410},
               {"STM32F303", 0xE0042000, 0x10036422}};
  for (const auto& Row : aRows) {
    Part Device(Row.sName);
    Device.Reset();
    EXPECT_EQ(Row.Id, Device.Read(Row.Address)) << Row.sName;
  }
}

TEST(SimFlashF1, KeyRegistersReadZero) {
  for (const char* sName : aDevices) {
    Part Device(sName);
    Unlock(&Device);
    EXPECT_EQ(0u, Device.Read(KEYR));
    EXPECT_EQ(0u, Device.Read(OPTKEYR));
  }
}

TEST(SimFlashF1, HsiIsReadyWhenItIsOn) {
  for (const char* sName : aDevices) {
    Part Device(sName);
    EXPECT_EQ(0x00000083u, Device.Read(RCC_CR));
    Device.Write(RCC_CR, 0xFFFFFFFF);
    EXPECT_EQ(0x010D00FBu, Device.Read(RCC_CR));
    Device.Write(RCC_CR, 0);
    EXPECT_EQ(0u, Device.Read(RCC_CR));
    Device.Reset();
    EXPECT_EQ(0x00000083u, Device.Read(RCC_CR));
  }
}

TEST(SimFlashF1, OptionWordsAndRegistersHaveNames) {
  Part F303("STM32F303");
  EXPECT_STREQ("FLASH_CR", F303.Device.Describe(CR)->sName);
  EXPECT_STREQ("OPTION_RDP_USER", F303.Device.Describe(OPTIONS)->sName);
  EXPECT_STREQ("OPTION_DATA", F303.Device.Describe(OPTIONS + 4)->sName);
  EXPECT_STREQ("OPTION_WRP01", F303.Device.Describe(OPTIONS + 8)->sName);
  EXPECT_STREQ("OPTION_WRP23", F303.Device.Describe(OPTIONS + 12)->sName);
  Part F051("STM32F051");
  EXPECT_STREQ("OPTION_SPARE", F051.Device.Describe(OPTIONS + 12)->sName);
}

TEST(SimFlashF1, MemoriesHaveTheirSizes) {
  Part F051("STM32F051");
  ExpectMemory(&F051, FLASH, 0x10000);
  ExpectMemory(&F051, 0x20000000, 0x2000);
  ExpectMemory(&F051, 0x40002850, 20);  // five backup registers
  ExpectMemory(&F051, OPTIONS, 16);
  Part F103("STM32F103");
  ExpectMemory(&F103, FLASH, 0x20000);
  ExpectMemory(&F103, 0x20000000, 0x5000);
  ExpectMemory(&F103, OPTIONS, 16);
  Part F303("STM32F303");
  ExpectMemory(&F303, FLASH, 0x40000);
  ExpectMemory(&F303, 0x20000000, 0xA000);
  ExpectMemory(&F303, 0x40002850, 64);
}

TEST(SimFlashF1, FactoryOptionBytesAreAsDelivered) {
  for (const char* sName : aDevices) {
    ExpectFactoryWords(sName);
  }
  Part F103("STM32F103");
  EXPECT_EQ(0x00FF5AA5u, F103.Read(OPTIONS));
  EXPECT_EQ(0x00FF00FFu, F103.Read(OPTIONS + 4));
  EXPECT_EQ(0x00FF00FFu, F103.Read(OPTIONS + 8));
  EXPECT_EQ(0x00FF00FFu, F103.Read(OPTIONS + 12));
  Part F303("STM32F303");
  EXPECT_EQ(0x00FF55AAu, F303.Read(OPTIONS));
  EXPECT_EQ(0x00FF00FFu, F303.Read(OPTIONS + 12));
  Part F051("STM32F051");
  EXPECT_EQ(0x00FF55AAu, F051.Read(OPTIONS));
  EXPECT_EQ(0x00FF00FFu, F051.Read(OPTIONS + 8));
  EXPECT_EQ(0xFFFFFFFFu, F051.Read(OPTIONS + 12));  // no such option bytes
}

TEST(SimFlashF1, TheRightKeysOpenLockThenOptwre) {
  Part Device("STM32F103");
  Device.Write(OPTKEYR, 0x45670123);  // LOCK still closed: does not count
  Device.Write(OPTKEYR, 0xCDEF89AB);
  EXPECT_EQ(0x80u, Device.Read(CR));
  Device.Write(KEYR, 0x45670123);
  EXPECT_EQ(0x80u, Device.Read(CR));
  Device.Write(KEYR, 0xCDEF89AB);
  EXPECT_EQ(0u, Device.Read(CR));
  Device.Write(OPTKEYR, 0x45670123);
  Device.Write(OPTKEYR, 0xCDEF89AB);
  EXPECT_EQ(0x200u, Device.Read(CR));
}

TEST(SimFlashF1, AWrongFirstKeyFaultsAtOnceAndLocksUntilReset) {
  Part Device("STM32F103");
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x12345678));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0xCDEF89AB));
  EXPECT_EQ(0x80u, Device.Read(CR));
  Device.Reset();
  Unlock(&Device);
  EXPECT_EQ(0x200u, Device.Read(CR));
}

TEST(SimFlashF1, AWrongSecondKeyFaultsThere) {
  Part Device("STM32F303");
  Device.Write(KEYR, 0x45670123);
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0xCDEF89AB));
  EXPECT_EQ(0x80u, Device.Read(CR));
}

TEST(SimFlashF1, AWrongOptionKeyKeepsOptwreClosedUntilReset) {
  for (const uint32_t First : {0x45670123u, 0xCDEF89ABu}) {
    Part Device("STM32F051");
    Device.Write(KEYR, 0x45670123);
    Device.Write(KEYR, 0xCDEF89AB);
    EXPECT_EQ(First == 0x45670123u, Device.TryWrite(OPTKEYR, First));
    EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0x45670123));
    EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0xCDEF89AB));
    EXPECT_EQ(0u, Device.Read(CR));
    Device.Reset();
    Unlock(&Device);
    EXPECT_EQ(0x200u, Device.Read(CR));
  }
}

TEST(SimFlashF1, LockIsSetBySoftwareAndOpenedByKeys) {
  Part Device("STM32F103");
  Unlock(&Device);
  Device.Write(CR, 0x280);
  EXPECT_EQ(0x280u, Device.Read(CR));  // OPTWRE is none of its business
  Device.Write(CR, 0x200);
  EXPECT_EQ(0x280u, Device.Read(CR));
  Device.Write(KEYR, 0x45670123);
  EXPECT_EQ(0x280u, Device.Read(CR));
  Device.Write(KEYR, 0xCDEF89AB);
  EXPECT_EQ(0x200u, Device.Read(CR));
}

TEST(SimFlashF1, AnOpenControlRegisterTakesItsBitsOnly) {
  for (const char* sName : aDevices) {
    Part Device(sName);
    Unlock(&Device);
    Device.Write(CR, 0xFFFFDF3F);  // all but STRT, LOCK and OBL_LAUNCH
    EXPECT_EQ(0x00001637u, Device.Read(CR)) << sName;
    Device.Write(CR, 0x200);
    EXPECT_EQ(0x200u, Device.Read(CR)) << sName;
  }
}

TEST(SimFlashF1, EveryResetClosesTheLocks) {
  Part Device("STM32F303");
  Unlock(&Device);
  Device.Reset();
  EXPECT_EQ(0x80u, Device.Read(CR));
  Unlock(&Device);  // no wrong sequence: the locks were closed
  EXPECT_EQ(0x200u, Device.Read(CR));
  Device.PowerCycle();
  EXPECT_EQ(0x80u, Device.Read(CR));
  Unlock(&Device);
  EXPECT_EQ(0x200u, Device.Read(CR));
}

TEST(SimFlashF1, ALockedControlRegisterIgnoresWritesWithoutAnError) {
  Part Device("STM32F103");
  Device.Write(CR, 0x220);
  Device.Write(CR, 0x260);
  EXPECT_EQ(0x80u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x00FF5AA5u, Device.Read(OPTIONS));
}

TEST(SimFlashF1, OptwreCanBeClearedBySoftwareAndNotSet) {
  Part Device("STM32F103");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x200);
  EXPECT_EQ(0u, Device.Read(CR));
  Device.Write(OPTKEYR, 0x45670123);
  Device.Write(OPTKEYR, 0xCDEF89AB);
  EXPECT_EQ(0x200u, Device.Read(CR));
  Device.Write(CR, 0x000);
  EXPECT_EQ(0u, Device.Read(CR));
}

TEST(SimFlashF1, OptionEraseTakesTimeAndLeavesAllOnes) {
  Part Device("STM32F103");
  Unlock(&Device);
  Device.Write(CR, 0x220);
  Device.Write(CR, 0x260);
  EXPECT_EQ(1u, Device.Read(SR) & 1);
  Device.Wait(19);
  EXPECT_EQ(1u, Device.Read(SR) & 1);
  EXPECT_EQ(0x00FF5AA5u, Device.Read(OPTIONS));
  Device.Wait(22);
  EXPECT_EQ(0u, Device.Read(SR) & 1);
  for (uint32_t i = 0; i < 4; i++) {
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS + 4 * i));
  }
  EXPECT_EQ(0x220u, Device.Read(CR));  // STRT is gone, OPTER stays
}

TEST(SimFlashF1, WritesToRegistersAreIgnoredWhileBusy) {
  Part Device("STM32F103");
  Unlock(&Device);
  Device.Write(CR, 0x220);
  Device.Write(CR, 0x260);
  EXPECT_EQ(0x260u, Device.Read(CR));
  Device.Write(CR, 0x200);
  EXPECT_EQ(0x260u, Device.Read(CR));
  Device.Write(AR, FLASH);
  EXPECT_EQ(0u, Device.Read(AR));
  EXPECT_TRUE(Device.TryWrite(KEYR, 0));  // no key, and no wrong one
  Device.Finish();
  EXPECT_EQ(0x220u, Device.Read(CR));
}

TEST(SimFlashF1, AWriteToFlashWhileBusyHoldsTheBus) {
  Part Device("STM32F103");
  Unlock(&Device);
  Device.Write(CR, 0x220);
  Device.Write(CR, 0x270);  // erase, and programming allowed behind it
  const uint64_t Before = Device.Device.NowUs();
  EXPECT_TRUE(Device.TryWrite(OPTIONS + 4, 0x12, 2));
  EXPECT_EQ(20000u, Device.Device.NowUs() - Before);
  Device.Finish();
  EXPECT_EQ(0xFFFFED12u, Device.Read(OPTIONS + 4));
  Device.Write(CR, 0x260);
  Device.Device.Flash().HoldBusy(sim::FOREVER);
  EXPECT_FALSE(Device.TryWrite(OPTIONS + 4, 0x12, 2));
  EXPECT_FALSE(Device.TryWrite(FLASH, 0x12, 2));
}

TEST(SimFlashF1, OptionEraseNeedsOptwreAndStrt) {
  Part Device("STM32F303");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x060);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x20u, Device.Read(CR));
  Device.Write(OPTKEYR, 0x45670123);
  Device.Write(OPTKEYR, 0xCDEF89AB);
  Device.Write(CR, 0x220);
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Write(CR, 0x240);  // nothing to be started
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashF1, EopTellsTheEndAndIsClearedByOne) {
  Part Device("STM32F103");
  Unlock(&Device);
  EraseOptions(&Device);
  EXPECT_EQ(0x20u, Device.Read(SR));
  Device.Write(SR, 0x1F);
  EXPECT_EQ(0x20u, Device.Read(SR));
  Device.Write(SR, 0x20);
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Write(CR, 0x210);
  EXPECT_TRUE(Device.TryWrite(OPTIONS, 0xA5, 2));
  EXPECT_EQ(1u, Device.Read(SR));
  Device.Finish();
  EXPECT_EQ(0x20u, Device.Read(SR));
}

TEST(SimFlashF1, OperationsTakeTheirTimes) {
  for (const uint32_t Max : {0u, 1u}) {
    Part Device("STM32F103");
    EXPECT_TRUE(Device.Device.SetVariant("timing_max", Max));
    Unlock(&Device);
    Device.Write(CR, 0x220);
    Device.Write(CR, 0x260);
    Device.WaitUs(Max ? 39999 : 19999);
    EXPECT_EQ(1u, Device.Read(SR) & 1);
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(SR) & 1);
    Device.Write(CR, 0x210);
    EXPECT_TRUE(Device.TryWrite(OPTIONS, 0xA5, 2));
    Device.WaitUs(Max ? 69 : 52);
    EXPECT_EQ(1u, Device.Read(SR) & 1);
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(SR) & 1);
    Device.Write(CR, 0x004);
    Device.Write(CR, 0x044);
    Device.WaitUs(Max ? 39999 : 19999);
    EXPECT_EQ(1u, Device.Read(SR) & 1);
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(SR) & 1);
    EXPECT_TRUE(Device.FlashErased());
  }
}

TEST(SimFlashF1, NothingIsErasedOrProgrammedWithoutHsi) {
  Part Device("STM32F103");
  Unlock(&Device);
  Device.Write(RCC_CR, 0x80);
  Device.Write(CR, 0x220);
  Device.Write(CR, 0x260);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x220u, Device.Read(CR));
  Device.Write(RCC_CR, 0x81);
  EraseOptions(&Device);
  Device.Write(RCC_CR, 0x80);
  ProgramRdp(&Device, 0xA5);
  Device.Finish();
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
}

TEST(SimFlashF1, AnErasedRdpProtectsOnlyAfterTheNextLoad) {
  Part Device("STM32F103");
  Unlock(&Device);
  EraseOptions(&Device);
  EXPECT_TRUE(Device.CanRead(FLASH));
  EXPECT_EQ(0u, Device.Read(OBR) & 2);
  Device.Reset();
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_EQ(2u, Device.Read(OBR) & 2);
  EXPECT_FALSE(Device.FlashErased());  // raising the level erases nothing
}

TEST(SimFlashF1, HardwareFormsTheComplement) {
  Part Device("STM32F103");
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0x00A5);
  Device.Finish();
  EXPECT_EQ(0xFFFF5AA5u, Device.Read(OPTIONS));
  EXPECT_EQ(0x210u, Device.Read(CR));
}

TEST(SimFlashF1, EveryOptionByteIsLoadedToItsPlace) {
  for (const char* sName : aDevices) {
    Part Device(sName);
    Unlock(&Device);
    EraseOptions(&Device);
    const uint32_t aBytes[] = {RdpOff(sName), 0xF9, 0x12, 0x34, 0xFE, 0xFD, 0xFB, 0xF7};
    for (uint32_t i = 0; i < 8; i++) {
      Program(&Device, 2 * i, aBytes[i]);
      Device.Finish();
    }
    EXPECT_EQ(0x06F90000u, Device.Read(OPTIONS) & 0xFFFF0000) << sName;
    EXPECT_EQ(0xCB34ED12u, Device.Read(OPTIONS + 4)) << sName;
    EXPECT_EQ(0x02FD01FEu, Device.Read(OPTIONS + 8)) << sName;
    EXPECT_EQ(0x08F704FBu, Device.Read(OPTIONS + 12)) << sName;
    Device.PowerCycle();
    const bool IsF1 = RdpOff(sName) == 0xA5;
    EXPECT_EQ(IsF1 ? 0xF9u << 2 | 0x12u << 10 | 0x34u << 18 : 0x3412F900u, Device.Read(OBR))
        << sName;
    // F0 has sectors for two bytes only.
    EXPECT_EQ(strcmp(sName, "STM32F051") == 0 ? 0xFFFFFDFEu : 0xF7FBFDFEu, Device.Read(WRPR))
        << sName;
  }
}

TEST(SimFlashF1, ATargetThatIsNotErasedIsSkippedWithAnError) {
  Part Device("STM32F103");
  Unlock(&Device);
  ProgramRdp(&Device, 0x0000);
  EXPECT_EQ(0x00FF5AA5u, Device.Read(OPTIONS));
  EXPECT_EQ(0x14u, Device.Read(SR) & 0x14);
  Device.Write(SR, 0x04);  // written with 1: cleared
  EXPECT_EQ(0x10u, Device.Read(SR) & 0x14);
  Device.Write(SR, 0x10);
  EXPECT_EQ(0u, Device.Read(SR) & 0x14);
}

TEST(SimFlashF1, OptionBytesTakeHalfWordsOnly) {
  Part Device("STM32F303");
  Unlock(&Device);
  EraseOptions(&Device);
  Device.Write(CR, 0x210);
  EXPECT_FALSE(Device.TryWrite(OPTIONS, 0xAA, 1));
  EXPECT_FALSE(Device.TryWrite(OPTIONS, 0x55AA, 4));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
}

TEST(SimFlashF1, ProgrammingNeedsOptpgAndOptwre) {
  Part Device("STM32F103");
  Unlock(&Device);
  EraseOptions(&Device);
  Device.Write(CR, 0x200);
  EXPECT_TRUE(Device.TryWrite(OPTIONS, 0xA5, 2));
  EXPECT_EQ(0x10u, Device.Read(SR) & 0x10);
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
  Device.Write(SR, 0x10);
  Device.Write(CR, 0x010);
  EXPECT_TRUE(Device.TryWrite(OPTIONS, 0xA5, 2));
  EXPECT_EQ(0x10u, Device.Read(SR) & 0x10);
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
}

TEST(SimFlashF1, AtLevel1FlashIsClosedAndOptionBytesAreOpen) {
  for (const char* sName : aDevices) {
    Part Device(sName, AtLevel(1));
    EXPECT_EQ(1, Device.Level()) << sName;
    EXPECT_FALSE(Device.CanRead(FLASH)) << sName;
    EXPECT_TRUE(Device.CanRead(OPTIONS)) << sName;
    EXPECT_TRUE(Device.CanRead(CR)) << sName;
    EXPECT_TRUE(Device.CanRead(0x20000000)) << sName;
    // Backup registers where there are any: closed in both directions.
    EXPECT_FALSE(Device.CanRead(0x40002850)) << sName;
    EXPECT_FALSE(Device.TryWrite(0x40002850, 1)) << sName;
    EXPECT_EQ(RdpOff(sName) == 0xA5 ? 0x03FFFFFEu : 0xFFFFFF02u, Device.Read(OBR)) << sName;
  }
}

TEST(SimFlashF1, TakingTheProtectionAwayErasesTheFlashFirst) {
  Part Device("STM32F303", AtLevel(1));
  Unlock(&Device);
  EraseOptions(&Device);
  EXPECT_FALSE(Device.FlashErased());
  ProgramRdp(&Device, 0xAA);
  EXPECT_EQ(1u, Device.Read(SR) & 1);
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
  Device.Finish();
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_TRUE(Device.Erased(sim::BACKUP));
  EXPECT_EQ(0xFFFF55AAu, Device.Read(OPTIONS));
  EXPECT_FALSE(Device.CanRead(FLASH));  // still the loaded level
  Device.Reset();
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
}

TEST(SimFlashF1, WriteProtectionDoesNotStopTheEraseThatUnprotects) {
  for (const char* sName : aDevices) {
    sim::CREATE_REQUEST Request = AtLevel(1);
    Request.WrpAll              = true;
    Part Device(sName, Request);
    Unlock(&Device);
    EraseOptions(&Device);
    ProgramRdp(&Device, RdpOff(sName));
    Device.Finish();
    EXPECT_TRUE(Device.FlashErased()) << sName;
  }
}

TEST(SimFlashF1, OtherOptionBytesAndOtherLevelsEraseNothing) {
  for (const char* sName : aDevices) {
    Part Device(sName, AtLevel(1));
    Unlock(&Device);
    EraseOptions(&Device);
    ProgramRdp(&Device, 0x12);
    Device.Finish();
    Program(&Device, 8, RdpOff(sName));
    Device.Finish();
    EXPECT_FALSE(Device.FlashErased()) << sName;
  }
}

TEST(SimFlashF1, AtLevel0ProgrammingRdpAgainErasesNothing) {
  Part Device("STM32F103");
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0xA5);
  Device.Finish();
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF1, TheF1UnprotectValueIsA5AndNothingElse) {
  sim::CREATE_REQUEST Request;
  Request.Rdp = 0xAA;
  Part F103("STM32F103", Request);
  EXPECT_EQ(1, F103.Level());
  Request.Rdp = 0xCC;
  Part Again("STM32F103", Request);
  EXPECT_EQ(1, Again.Level());  // no level 2 on F1
  Request.Rdp = 0xA5;
  Part F303("STM32F303", Request);
  EXPECT_EQ(1, F303.Level());
}

TEST(SimFlashF1, ASystemResetLoadsOnF1AndF3AndNotOnF0) {
  for (const char* sName : aDevices) {
    Part Device(sName, AtLevel(1));
    Unlock(&Device);
    EraseOptions(&Device);
    ProgramRdp(&Device, RdpOff(sName));
    Device.Finish();
    Device.Reset();
    const bool IsF0 = strcmp(sName, "STM32F051") == 0;
    EXPECT_EQ(IsF0 ? 1 : 0, Device.Level()) << sName;
    Device.PowerCycle();
    EXPECT_EQ(0, Device.Level()) << sName;
  }
}

TEST(SimFlashF1, WhatIsLoadedStaysOverAResetThatDoesNotLoad) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.Wrp                 = {0};
  Request.User                = 0xFB;
  Part Device("STM32F051", Request);
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0xAA);
  Device.Finish();
  EXPECT_EQ(0, Device.Device.Flash().StoredLevel());
  EXPECT_FALSE(Device.Device.Flash().Remarks().empty());
  Device.Reset();
  EXPECT_EQ(0xFFFFFB02u, Device.Read(OBR));
  EXPECT_EQ(0xFFFFFFFEu, Device.Read(WRPR));
  EXPECT_FALSE(Device.CanRead(FLASH));
  Device.PowerCycle();
  EXPECT_EQ(0xFFFFFF00u, Device.Read(OBR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(WRPR));
  EXPECT_TRUE(Device.Device.Flash().Remarks().empty());
}

TEST(SimFlashF1, F3LoadsOnlyByLaunchWhereThatVariantIsChosen) {
  Part Device("STM32F303", AtLevel(1));
  EXPECT_TRUE(Device.Device.SetVariant("f3_load_on_reset", 0));
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0xAA);
  Device.Finish();
  Device.Reset();
  EXPECT_EQ(1, Device.Level());
  Unlock(&Device);
  Device.Write(CR, 0x2000);
  EXPECT_EQ(0, Device.Level());
}

TEST(SimFlashF1, LaunchResetsTheDeviceAndNeedsNoOptwre) {
  Part Device("STM32F051", AtLevel(1));
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0xAA);
  Device.Finish();
  Device.Write(CR, 0x2000);
  EXPECT_EQ(0, Device.Level());
  EXPECT_EQ(0x80u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_FALSE(Device.Device.CoreHalted());
}

TEST(SimFlashF1, ALaunchLoadsOnce) {
  Part Device("STM32F051");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x2000);
  Unlock(&Device);
  EraseOptions(&Device);
  Device.Reset();
  EXPECT_EQ(0, Device.Level());  // a plain reset again loads nothing
}

TEST(SimFlashF1, LaunchNeedsLockOpen) {
  Part Device("STM32F051");
  Unlock(&Device);
  EraseOptions(&Device);
  Device.Write(CR, 0x80);
  Device.Write(CR, 0x2000);
  EXPECT_EQ(0, Device.Level());
}

TEST(SimFlashF1, TheLaunchTransferMayFailAlthoughItWorked) {
  Part Device("STM32F303");
  EXPECT_TRUE(Device.Device.SetVariant("obl_transfer_fails", 1));
  Unlock(&Device);
  EXPECT_FALSE(Device.TryWrite(CR, 0x2000));
  EXPECT_EQ(0x80u, Device.Read(CR));
}

TEST(SimFlashF1, F1HasNoLaunchBit) {
  Part Device("STM32F103", AtLevel(1));
  Unlock(&Device);
  Device.Write(CR, 0x2200);
  EXPECT_EQ(0x200u, Device.Read(CR));
}

TEST(SimFlashF1, AMismatchSetsOpterrAndCountsAsFF) {
  sim::CREATE_REQUEST Request;
  Request.sMismatch = "rdp";
  Part Rdp("STM32F303", Request);
  EXPECT_EQ(1, Rdp.Level());
  EXPECT_EQ(1u, Rdp.Read(OBR) & 1);
  Request.sMismatch = "user";
  Request.User      = 0xF8;
  Part User("STM32F303", Request);
  EXPECT_EQ(0, User.Level());
  EXPECT_EQ(1u, User.Read(OBR) & 1);
  EXPECT_EQ(0xFFu, User.Read(OBR) >> 8 & 0xFF);
  Part Clean("STM32F303");
  EXPECT_EQ(0u, Clean.Read(OBR) & 1);
}

TEST(SimFlashF1, AnyByteCanHaveAMismatch) {
  const struct {
    const char* sWord;
    uint32_t    Value;
  } aWords[] = {{"OPTION_DATA", 0x00FF0012},  {"OPTION_DATA", 0x001200FF},
                {"OPTION_WRP01", 0x00FF00FE}, {"OPTION_WRP01", 0x00FE00FF},
                {"OPTION_WRP23", 0x00FF00FE}, {"OPTION_WRP23", 0x00FE00FF}};
  for (const auto& Word : aWords) {
    Part Device("STM32F103");
    Device.Corrupt(Word.sWord, Word.Value);
    Device.Reset();
    EXPECT_EQ(0x03FFFFFDu, Device.Read(OBR)) << Word.sWord;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(WRPR)) << Word.sWord;
  }
}

TEST(SimFlashF1, WhatCountsOfAStoredWordIsWhatTheLoaderTakes) {
  Part Device("STM32F303");
  Device.Corrupt("OPTION_RDP_USER", 0x00FE54AA);
  Device.Corrupt("OPTION_DATA", 0x807FED12);
  EXPECT_EQ(0x00FF00FFu, Device.Device.Flash().Effective(0));
  EXPECT_EQ(0x007F0012u, Device.Device.Flash().Effective(1));
  EXPECT_EQ(1, Device.Device.Flash().StoredLevel());
}

TEST(SimFlashF1, AnErasedPairIsNoMismatch) {
  Part Device("STM32F103");
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0xA5);
  Device.Finish();
  Device.Reset();
  EXPECT_EQ(0x03FFFFFCu, Device.Read(OBR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(WRPR));
}

TEST(SimFlashF1, WriteProtectionIsLoadedAndStopsPageAndMassErase) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {0, 31};
  Part Device("STM32F103", Request);
  EXPECT_EQ(0x7FFFFFFEu, Device.Read(WRPR));
  Unlock(&Device);
  Device.Write(CR, 0x002);
  Device.Write(AR, FLASH);
  Device.Write(CR, 0x042);
  EXPECT_EQ(0x10u, Device.Read(SR));
  Device.Write(SR, 0x10);
  Device.Write(AR, FLASH + 4096);
  Device.Write(CR, 0x042);
  Device.Finish();
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 4096));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 5120));  // the next page of 1 KB
  Device.Write(CR, 0x004);
  Device.Write(CR, 0x044);
  EXPECT_EQ(0x10u, Device.Read(SR) & 0x10);
  EXPECT_EQ(0x12345678u, Device.Read(FLASH));
}

TEST(SimFlashF1, AtLevel1TheDebuggerCannotEraseOrProgram) {
  Part Device("STM32F103", AtLevel(1));
  Unlock(&Device);
  Device.Write(CR, 0x004);
  Device.Write(CR, 0x044);
  EXPECT_EQ(0x04u, Device.Read(SR));
  Device.Write(SR, 0x04);
  Device.Write(AR, FLASH);
  Device.Write(CR, 0x042);
  EXPECT_EQ(0x04u, Device.Read(SR));
  Device.Write(SR, 0x04);
  Device.Write(CR, 0x001);
  EXPECT_TRUE(Device.TryWrite(FLASH, 0, 2));
  EXPECT_EQ(0x04u, Device.Read(SR));
  EXPECT_EQ(0x20000u, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
}

TEST(SimFlashF1, APageEraseTakesOnePage) {
  for (const char* sName : aDevices) {
    Part           Device(sName);
    const uint32_t Page = strcmp(sName, "STM32F303") == 0 ? 2048 : 1024;
    Unlock(&Device);
    Device.Write(AR, FLASH + 3 * Page + 100);
    Device.Write(CR, 0x002);
    Device.Write(CR, 0x042);
    EXPECT_EQ(0x42u, Device.Read(CR)) << sName;
    Device.Finish();
    EXPECT_EQ(0x02u, Device.Read(CR)) << sName;
    EXPECT_EQ(0x12345678u, Device.Read(FLASH + 3 * Page - 4)) << sName;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 3 * Page)) << sName;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 4 * Page - 4)) << sName;
    EXPECT_EQ(0x12345678u, Device.Read(FLASH + 4 * Page)) << sName;
  }
}

TEST(SimFlashF1, MassEraseTakesTheFlashAndNoBackupRegisters) {
  Part Device("STM32F303");
  Unlock(&Device);
  Device.Write(CR, 0x004);
  Device.Write(CR, 0x044);
  EXPECT_EQ(0x44u, Device.Read(CR));
  Device.Finish();
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_FALSE(Device.Erased(sim::BACKUP));
}

// A bit stands for 4 KB, the last one also for all that lies behind.
TEST(SimFlashF1, AProtectedSectorIsNotProgrammed) {
  const struct {
    const char* sName;
    uint32_t    Bit, First, End;
  } aRows[] = {{"STM32F051", 0, 0, 0x1000},         {"STM32F051", 15, 0xF000, 0x10000},
               {"STM32F103", 1, 0x1000, 0x2000},    {"STM32F103", 7, 0x7000, 0x8000},
               {"STM32F103", 8, 0x8000, 0x9000},    {"STM32F103", 16, 0x10000, 0x11000},
               {"STM32F103", 23, 0x17000, 0x18000}, {"STM32F103", 24, 0x18000, 0x19000},
               {"STM32F103", 31, 0x1F000, 0x20000}, {"STM32F303", 2, 0x2000, 0x3000},
               {"STM32F303", 30, 0x1E000, 0x1F000}, {"STM32F303", 31, 0x1F000, 0x40000}};
  for (const auto& Row : aRows) {
    sim::CREATE_REQUEST Request;
    Request.Wrp = {Row.Bit};
    Part Device(Row.sName, Request, false);
    EXPECT_EQ(~(1u << Row.Bit), Device.Read(WRPR)) << Row.sName;
    const uint32_t Bytes = Device.Device.FindMemory(sim::MAIN_FLASH)->Row().Bytes;
    Unlock(&Device);
    Device.Write(CR, 0x001);
    for (const uint32_t Offset :
         {Row.First - 2, Row.First, Row.First + 0x1000, Row.End - 2, Row.End}) {
      if (Offset >= Bytes) {
        continue;
      }
      const bool Protected = Offset >= Row.First && Offset < Row.End;
      // Zeros, which can be written more than once.
      EXPECT_TRUE(Device.TryWrite(FLASH + Offset, 0, 2));
      Device.Finish();
      EXPECT_EQ(Protected ? 0x10u : 0x20u, Device.Read(SR)) << Row.sName << " " << Offset;
      Device.Write(SR, 0x34);
    }
  }
}

TEST(SimFlashF1, MainFlashTakesHalfWordsIntoErasedPlacesOnly) {
  Part Device("STM32F103", {}, false);
  Unlock(&Device);
  Device.Write(CR, 0x001);
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0xBEEF, 2));
  Device.Finish();
  EXPECT_EQ(0xBEEFFFFFu, Device.Read(FLASH));
  EXPECT_TRUE(Device.TryWrite(FLASH, 0xCAFE, 2));
  Device.Finish();
  EXPECT_EQ(0xBEEFCAFEu, Device.Read(FLASH));
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0x1234, 2));
  EXPECT_EQ(0x04u, Device.Read(SR) & 0x04);
  EXPECT_FALSE(Device.TryWrite(FLASH + 4, 0x12345678, 4));
  EXPECT_FALSE(Device.TryWrite(FLASH + 4, 0x12, 1));
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0, 2));  // all zeros can be written over anything
  Device.Finish();
  EXPECT_EQ(0x0000CAFEu, Device.Read(FLASH));
}

TEST(SimFlashF1, MainFlashNeedsLockOpenAndPg) {
  Part Device("STM32F103", {}, false);
  EXPECT_TRUE(Device.TryWrite(FLASH, 0x1234, 2));
  Unlock(&Device);
  EXPECT_TRUE(Device.TryWrite(FLASH, 0x1234, 2));
  Device.Write(CR, 0x001);
  Device.Write(CR, 0x081);
  EXPECT_TRUE(Device.TryWrite(FLASH, 0x1234, 2));
  Device.Finish();
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashF1, RegistersOfF0AndF3TakeWordsOnly) {
  Part F303("STM32F303");
  EXPECT_FALSE(F303.TryWrite(CR, 0x80, 2));
  EXPECT_FALSE(F303.TryRead(CR, 2));
  Part F051("STM32F051");
  EXPECT_FALSE(F051.TryWrite(CR, 0x80, 1));
  EXPECT_FALSE(F051.TryRead(SR, 1));
  Part F103("STM32F103");
  EXPECT_TRUE(F103.TryWrite(CR, 0x80, 2));
  EXPECT_TRUE(F103.TryRead(CR, 2));
}

TEST(SimFlashF1, FreezeOfF0IsLostWithoutTheClockOfItsBlock) {
  Part Device("STM32F051");
  Device.Write(0x40015808, 0x1800);
  EXPECT_EQ(0u, Device.Read(0x40015808));
  Device.Write(0x40021018, 1u << 22);
  Device.Write(0x40015808, 0x1800);
  EXPECT_EQ(0x1800u, Device.Read(0x40015808));
  Part Open("STM32F051");
  EXPECT_TRUE(Open.Device.SetVariant("f0_dbgmcu_gated", 0));
  Open.Write(0x40015808, 0x1800);
  EXPECT_EQ(0x1800u, Open.Read(0x40015808));
}

TEST(SimFlashF1, FreezeSurvivesASystemResetAndNotAPowerCycle) {
  const struct {
    const char* sName;
    uint32_t    Freeze;
  } aRows[] = {{"STM32F051", 0x40015808}, {"STM32F103", 0xE0042004}, {"STM32F303", 0xE0042008}};
  for (const auto& Row : aRows) {
    Part Device(Row.sName);
    EXPECT_TRUE(Device.Device.SetVariant("f0_dbgmcu_gated", 0));
    Device.Write(Row.Freeze, 0x1900);
    const uint32_t Frozen = Device.Read(Row.Freeze);
    EXPECT_NE(0u, Frozen) << Row.sName;
    Device.Reset();
    EXPECT_EQ(Frozen, Device.Read(Row.Freeze)) << Row.sName;
    Device.PowerCycle();
    EXPECT_EQ(0u, Device.Read(Row.Freeze)) << Row.sName;
  }
}

TEST(SimFlashF1, AHardwareWatchdogBitesUnlessFrozenWithTheCoreHalted) {
  const struct {
    const char* sName;
    uint32_t    Freeze, Bit;
  } aRows[] = {{"STM32F051", 0x40015808, 1u << 12},
               {"STM32F103", 0xE0042004, 1u << 8},
               {"STM32F303", 0xE0042008, 1u << 12}};
  for (const auto& Row : aRows) {
    sim::CREATE_REQUEST Request = AtLevel(1);
    Request.User                = 0xFE;  // WDG_SW 0
    Part Device(Row.sName, Request);
    EXPECT_TRUE(Device.Device.SetVariant("f0_dbgmcu_gated", 0));
    Device.Write(Row.Freeze, ~Row.Bit);  // the freeze bits of all others
    Device.Reset();                      // halted, not frozen
    Unlock(&Device);
    Device.Wait(409);
    EXPECT_EQ(0, Device.Device.WatchdogResets()) << Row.sName;
    Device.Wait(2);
    EXPECT_EQ(1, Device.Device.WatchdogResets()) << Row.sName;
    EXPECT_EQ(0x80u, Device.Read(CR)) << Row.sName;  // which closed the locks

    Device.Write(Row.Freeze, Row.Bit);
    Device.Reset();
    Device.Wait(5000);
    EXPECT_EQ(1, Device.Device.WatchdogResets()) << Row.sName;
  }
  Part Software("STM32F103", AtLevel(1));
  Software.Wait(5000);
  EXPECT_EQ(0, Software.Device.WatchdogResets());
}

TEST(SimFlashF1, AResetDuringTheOptionEraseLeavesThemErased) {
  Part Device("STM32F103");
  Unlock(&Device);
  Device.Write(CR, 0x220);
  Device.Write(CR, 0x260);
  Device.Reset();
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
  EXPECT_EQ(1, Device.Level());
}

TEST(SimFlashF1, WhatIsCutShortHasAlreadyBegun) {
  Part Mass("STM32F103");
  Unlock(&Mass);
  Mass.Write(CR, 0x004);
  Mass.Write(CR, 0x044);
  Mass.Reset();
  EXPECT_EQ(0xFFFFFFFFu, Mass.Read(FLASH));
  EXPECT_EQ(0xFFFFFFFFu, Mass.Read(FLASH + 0xFFFC));
  EXPECT_EQ(0x12345678u, Mass.Read(FLASH + 0x10000));
  Part Page("STM32F103");
  Unlock(&Page);
  Page.Write(AR, FLASH);
  Page.Write(CR, 0x042);
  Page.PowerCycle();
  EXPECT_EQ(0xFFFFFFFFu, Page.Read(FLASH));
  EXPECT_EQ(0x12345678u, Page.Read(FLASH + 1024));
  // Unprotecting: the erase comes first, so the protection is still there.
  Part Level1("STM32F103", AtLevel(1));
  Unlock(&Level1);
  EraseOptions(&Level1);
  ProgramRdp(&Level1, 0xA5);
  Level1.Reset();
  EXPECT_EQ(1, Level1.Level());
  EXPECT_EQ(0xFFFFFFFFu, Level1.Read(OPTIONS));
}

TEST(SimFlashF1, ADeviceIsFoundAsItWasLeft) {
  Part Device("STM32F051", AtLevel(1));
  Unlock(&Device);
  EraseOptions(&Device);
  Part Other("STM32F051");
  Device.CopyTo(&Other);
  EXPECT_EQ(1, Other.Level());
  ProgramRdp(&Other, 0xAA);  // the locks are open
  Part Third("STM32F051");
  Other.CopyTo(&Third);  // what ran is done by then
  EXPECT_EQ(0xFFFF55AAu, Third.Read(OPTIONS));
  EXPECT_TRUE(Third.FlashErased());
}

TEST(SimFlashF1, StatesThatDoNotExistAreRefused) {
  for (const char* sName : aDevices) {
    sim::CREATE_REQUEST All, Some, Secure, Choice, Sector;
    All.PcropAll    = true;
    Some.Pcrop      = {0};
    Secure.Secure   = true;
    Choice.PcropRdp = 1;
    Sector.Wrp      = {strcmp(sName, "STM32F051") == 0 ? 16u : 32u};
    for (const sim::CREATE_REQUEST& Request : {All, Some, Secure, Choice, Sector}) {
      ExpectRefused(sName, Request);
    }
  }
  ExpectRefused("STM32F103", AtLevel(2));
}

TEST(SimFlashF1, Level2ShutsTheDebugPort) {
  for (const char* sName : {"STM32F051", "STM32F303"}) {
    Part Device(sName, AtLevel(2));
    EXPECT_EQ(2, Device.Level());
    EXPECT_FALSE(Device.CanRead(CR));
    EXPECT_FALSE(Device.CanRead(0x20000000));
    EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  }
}

TEST(SimFlashF1, F1FlashStaysClosedUntilPowerOnWhereThatVariantIsChosen) {
  Part Device("STM32F103", AtLevel(1));
  EXPECT_TRUE(Device.Device.SetVariant("f1_unprotect_needs_power_on", 1));
  Unlock(&Device);
  EraseOptions(&Device);
  ProgramRdp(&Device, 0xA5);
  Device.Finish();
  Device.Reset();
  EXPECT_EQ(0, Device.Level());
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_FALSE(Device.Device.Flash().Remarks().empty());
  Device.PowerCycle();
  EXPECT_TRUE(Device.CanRead(FLASH));
  EXPECT_TRUE(Device.Device.Flash().Remarks().empty());
}
