// F0, F1 and F3: one test per rule of the hardware. Addresses and keys as in the manuals.

#include "tests/sim/part.h"

static const uint32_t KEYR = 0x40022004, OPTKEYR = 0x40022008, SR = 0x4002200C, CR = 0x40022010,
                      AR = 0x40022014, OBR = 0x4002201C, WRPR = 0x40022020;
static const uint32_t OPTIONS = 0x1FFFF800, FLASH = 0x08000000;

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

static void ProgramRdp(Part* pPart, uint32_t Value) {
  pPart->Write(CR, 0x200);
  pPart->Write(CR, 0x210);
  EXPECT_TRUE(pPart->TryWrite(OPTIONS, Value, 2));
}

TEST(SimFlashF1, RegistersHaveTheirResetValues) {
  Part F103("STM32F103", {}, false);
  EXPECT_EQ(0x00000080u, F103.Read(CR));
  EXPECT_EQ(0u, F103.Read(SR));
  EXPECT_EQ(0u, F103.Read(KEYR));
  EXPECT_EQ(0u, F103.Read(OPTKEYR));
  EXPECT_EQ(0x03FFFFFCu, F103.Read(OBR));
  EXPECT_EQ(0xFFFFFFFFu, F103.Read(WRPR));
  EXPECT_EQ(0x20036410u, F103.Read(0xE0042000));
  EXPECT_EQ(0x83u, F103.Read(0x40021000) & 0xFFu);
  Part F051("STM32F051");
  EXPECT_EQ(0x440u, F051.Read(0x40015800) & 0xFFF);
  Part F303("STM32F303");
  EXPECT_EQ(0x422u, F303.Read(0xE0042000) & 0xFFF);
}

TEST(SimFlashF1, FactoryOptionBytesAreAsDelivered) {
  Part F103("STM32F103");
  EXPECT_EQ(0x00FF5AA5u, F103.Read(OPTIONS));
  EXPECT_EQ(0x00FF00FFu, F103.Read(OPTIONS + 4));
  EXPECT_EQ(0x00FF00FFu, F103.Read(OPTIONS + 8));
  EXPECT_EQ(0x00FF00FFu, F103.Read(OPTIONS + 12));
  Part F303("STM32F303");
  EXPECT_EQ(0x00FF55AAu, F303.Read(OPTIONS));
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

TEST(SimFlashF1, EveryResetClosesTheLocks) {
  Part Device("STM32F303");
  Unlock(&Device);
  Device.Reset();
  EXPECT_EQ(0x80u, Device.Read(CR));
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
  const uint32_t Before = Device.Read(CR);
  Device.Write(CR, 0x200);
  EXPECT_EQ(Before, Device.Read(CR));
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
}

TEST(SimFlashF1, ATargetThatIsNotErasedIsSkippedWithAnError) {
  Part Device("STM32F103");
  Unlock(&Device);
  ProgramRdp(&Device, 0x0000);
  EXPECT_EQ(0x00FF5AA5u, Device.Read(OPTIONS));
  EXPECT_EQ(0x14u, Device.Read(SR) & 0x14);
  Device.Write(SR, 0x14);  // written with 1: cleared
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
  Device.Write(CR, 0x010);
  EXPECT_TRUE(Device.TryWrite(OPTIONS, 0xA5, 2));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTIONS));
}

TEST(SimFlashF1, AtLevel1FlashIsClosedAndOptionBytesAreOpen) {
  for (const char* sName : {"STM32F051", "STM32F103", "STM32F303"}) {
    Part Device(sName, AtLevel(1));
    EXPECT_EQ(1, Device.Level()) << sName;
    EXPECT_FALSE(Device.CanRead(FLASH)) << sName;
    EXPECT_TRUE(Device.CanRead(OPTIONS)) << sName;
    EXPECT_TRUE(Device.CanRead(CR)) << sName;
    EXPECT_TRUE(Device.CanRead(0x20000000)) << sName;
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
  for (const char* sName : {"STM32F051", "STM32F103", "STM32F303"}) {
    Part Device(sName, AtLevel(1));
    Unlock(&Device);
    EraseOptions(&Device);
    ProgramRdp(&Device, strcmp(sName, "STM32F103") == 0 ? 0xA5 : 0xAA);
    Device.Finish();
    Device.Reset();
    const bool IsF0 = strcmp(sName, "STM32F051") == 0;
    EXPECT_EQ(IsF0 ? 1 : 0, Device.Level()) << sName;
    Device.PowerCycle();
    EXPECT_EQ(0, Device.Level()) << sName;
  }
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
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF1, MainFlashTakesHalfWordsIntoErasedPlacesOnly) {
  Part Device("STM32F103", {}, false);
  Unlock(&Device);
  Device.Write(CR, 0x001);
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0xBEEF, 2));
  Device.Finish();
  EXPECT_EQ(0xBEEFFFFFu, Device.Read(FLASH));
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0x1234, 2));
  EXPECT_EQ(0x04u, Device.Read(SR) & 0x04);
  EXPECT_FALSE(Device.TryWrite(FLASH + 4, 0x12345678, 4));
}

TEST(SimFlashF1, RegistersOfF0AndF3TakeWordsOnly) {
  Part F303("STM32F303");
  EXPECT_FALSE(F303.TryWrite(CR, 0x80, 2));
  Part F103("STM32F103");
  EXPECT_TRUE(F103.TryWrite(CR, 0x80, 2));
}

TEST(SimFlashF1, FreezeOfF0IsLostWithoutTheClockOfItsBlock) {
  Part Device("STM32F051");
  Device.Write(0x40015808, 0x1800);
  EXPECT_EQ(0u, Device.Read(0x40015808));
  Device.Write(0x40021018, 1u << 22);
  Device.Write(0x40015808, 0x1800);
  EXPECT_EQ(0x1800u, Device.Read(0x40015808));
}

TEST(SimFlashF1, FreezeSurvivesASystemResetAndNotAPowerCycle) {
  Part Device("STM32F103");
  Device.Write(0xE0042004, 0x300);
  Device.Reset();
  EXPECT_EQ(0x300u, Device.Read(0xE0042004));
  Device.PowerCycle();
  EXPECT_EQ(0u, Device.Read(0xE0042004));
}

TEST(SimFlashF1, AHardwareWatchdogBitesUnlessFrozenWithTheCoreHalted) {
  sim::CREATE_REQUEST Request;
  Request.Level = 1;
  Request.User  = 0xFE;  // WDG_SW 0
  Part Device("STM32F103", Request);
  Device.Reset();  // halted, not frozen
  Unlock(&Device);
  Device.Wait(700);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  EXPECT_EQ(0x80u, Device.Read(CR));  // which closed the locks

  Part Frozen("STM32F103", Request);
  Frozen.Write(0xE0042004, 0x300);
  Frozen.Reset();
  Frozen.Wait(5000);
  EXPECT_EQ(0, Frozen.Device.WatchdogResets());
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

TEST(SimFlashF1, Level2ShutsTheDebugPort) {
  for (const char* sName : {"STM32F051", "STM32F303"}) {
    Part Device(sName, AtLevel(2));
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
  Device.PowerCycle();
  EXPECT_TRUE(Device.CanRead(FLASH));
}
