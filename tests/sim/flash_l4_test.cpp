// L4x6: one test per rule of the hardware. Addresses and keys as in the manual.

#include "tests/sim/part.h"

static const uint32_t KEYR = 0x40022008, OPTKEYR = 0x4002200C, SR = 0x40022010, CR = 0x40022014,
                      OPTR = 0x40022020, PCROP1SR = 0x40022024, PCROP1ER = 0x40022028,
                      WRP1AR = 0x4002202C, WRP1BR = 0x40022030, PCROP2SR = 0x40022044,
                      PCROP2ER = 0x40022048, WRP2AR = 0x4002204C, WRP2BR = 0x40022050;
static const uint32_t FLASH = 0x08000000, BANK2 = 0x08080000, BSY = 0x10000;

static void Unlock(Part* pPart) {
  pPart->Write(KEYR, 0x45670123);
  pPart->Write(KEYR, 0xCDEF89AB);
  pPart->Write(OPTKEYR, 0x08192A3B);
  pPart->Write(OPTKEYR, 0x4C5D6E7F);
}

static void ProgramAndLoad(Part* pPart) {
  pPart->Write(CR, 0x00020000);
  pPart->Finish();
  pPart->Write(CR, 0x08000000);
}

// Pages of bank 1 and bank 2 that can only be executed.
static sim::CREATE_REQUEST Pcrop(uint32_t Level, uint32_t PcropRdp) {
  sim::CREATE_REQUEST Request;
  Request.Level    = Level;
  Request.Pcrop    = {2, 3, 300};
  Request.PcropRdp = PcropRdp;
  return Request;
}

TEST(SimFlashL4, RegistersHaveTheirResetValues) {
  Part Device("STM32L476");
  EXPECT_EQ(0x415u, Device.Read(0xE0042000) & 0xFFF);
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(PCROP1SR));
  EXPECT_EQ(0x0FFF0000u, Device.Read(PCROP1ER));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(PCROP2SR));
  EXPECT_EQ(0xFFFF0000u, Device.Read(PCROP2ER));
  for (const uint32_t Register : {WRP1AR, WRP1BR, WRP2AR, WRP2BR}) {
    EXPECT_EQ(0x000000FFu, Device.Read(Register) & 0x00FF00FF);
  }
}

TEST(SimFlashL4, OptlockOpensOnlyBehindLock) {
  Part Device("STM32L476");
  Device.Write(OPTKEYR, 0x08192A3B);
  Device.Write(OPTKEYR, 0x4C5D6E7F);
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(CR));
  Device.Write(CR, 0x80000000);  // setting LOCK sets OPTLOCK
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
}

TEST(SimFlashL4, AWrongKeyFaultsAndLocksUntilReset) {
  Part Device("STM32L476");
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x08192A3B));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  Device.Reset();
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(CR));
}

TEST(SimFlashL4, KeysOnAnOpenLockCloseItUntilReset) {
  Part Device("STM32L476");
  Unlock(&Device);
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  EXPECT_EQ(0x80000000u, Device.Read(CR) & 0x80000000);
}

TEST(SimFlashL4, OptionRegistersNeedOptlockOpen) {
  Part Device("STM32L476");
  Device.Write(OPTR, 0);
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
  Unlock(&Device);
  Device.Write(OPTR, 0);
  EXPECT_EQ(0xFC408800u, Device.Read(OPTR));  // bits that do not exist stay ones
}

TEST(SimFlashL4, WithoutOptstrtTheValuesAreLostAtReset) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF800);
  Device.Reset();
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
}

TEST(SimFlashL4, ProgrammedOptionsAreNotInForceBeforeLaunchOrPowerOn) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8BB);
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(BSY, Device.Read(SR));
  Device.Wait(79);
  EXPECT_EQ(BSY, Device.Read(SR));
  Device.Wait(2);
  EXPECT_EQ(0u, Device.Read(SR) & BSY);
  EXPECT_EQ(0xFFEFF8BBu, Device.Stored(0));
  EXPECT_EQ(0, Device.Level());
  Device.Reset();
  EXPECT_EQ(0, Device.Level());
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
  Unlock(&Device);
  Device.Write(CR, 0x08000000);
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(0xFFEFF8BBu, Device.Read(OPTR));
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  EXPECT_FALSE(Device.Device.CoreHalted());
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashL4, LaunchNeedsOptlockOpen) {
  Part Device("STM32L476");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x08000000);
  EXPECT_EQ(0x40000000u, Device.Read(CR) & 0xC0000000);  // no reset took place
}

TEST(SimFlashL4, OptstrtWhileBusyIsPgserr) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(CR, 0x00020000);
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(0x80u, Device.Read(SR) & 0x80);
}

TEST(SimFlashL4, APendingErrorStopsTheNextStart) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(CR, 0x00020000);
  Device.Write(CR, 0x00020000);
  Device.Finish();
  Device.Write(OPTR, 0xFFEFF8BB);
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(0u, Device.Read(SR) & BSY);
  EXPECT_EQ(0xFFEFF8AAu, Device.Stored(0));
  Device.Write(SR, 0xC1FB);
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(BSY, Device.Read(SR));
}

TEST(SimFlashL4, AtLevel1FlashSram2AndBackupRegistersAreClosed) {
  Part Device("STM32L476", AtLevel(1));
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_FALSE(Device.CanRead(0x10000000));
  EXPECT_FALSE(Device.CanRead(0x40002850));
  EXPECT_TRUE(Device.CanRead(0x20000000));
  EXPECT_TRUE(Device.CanRead(OPTR));
}

TEST(SimFlashL4, OneToZeroErasesFlashSram2AndBackupRegisters) {
  Part Device("STM32L476", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0, Device.Level());
  EXPECT_TRUE(Device.Device.IsFlashErased());
  for (const sim::Memory& Each : Device.Device.Memories()) {
    EXPECT_TRUE(Each.Row().Kind == sim::SRAM || Each.IsErased()) << Each.Row().sName;
  }
}

TEST(SimFlashL4, TheOtherStepsEraseNothing) {
  for (const uint32_t Rdp : {0x00u, 0xAAu}) {
    Part Device("STM32L476");
    Unlock(&Device);
    Device.Write(OPTR, 0xFFEFF800 | Rdp);
    ProgramAndLoad(&Device);
    EXPECT_FALSE(Device.FlashErased());
  }
  sim::CREATE_REQUEST Request;
  Request.Rdp = 0xBB;
  Part Device("STM32L476", Request);
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF800);
  ProgramAndLoad(&Device);
  EXPECT_EQ(1, Device.Level());
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashL4, PcropReadsAsZeroWithRderr) {
  Part Device("STM32L476", Pcrop(0, 0));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 2 * 2048 - 4));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0u, Device.Read(FLASH + 2 * 2048));
  EXPECT_EQ(0x4000u, Device.Read(SR));
  Device.Write(SR, 0x4000);
  EXPECT_EQ(0u, Device.Read(BANK2 + 44 * 2048));
  EXPECT_EQ(0x4000u, Device.Read(SR));
}

TEST(SimFlashL4, AShrinkingPcropAreaStaysAndIsNoError) {
  Part           Device("STM32L476", Pcrop(0, 0));
  const uint32_t Start = Device.Read(PCROP1SR), End = Device.Read(PCROP1ER);
  Unlock(&Device);
  Device.Write(PCROP1SR, 0xFFFFFFFF);
  Device.Write(PCROP1ER, 0);
  Device.Write(WRP1AR, 0x00050001);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(Start, Device.Read(PCROP1SR));
  EXPECT_EQ(End, Device.Read(PCROP1ER));
  EXPECT_EQ(0x00050001u, Device.Read(WRP1AR) & 0x00FF00FF);  // the rest is programmed
}

TEST(SimFlashL4, PcropMayGrow) {
  Part Device("STM32L476", Pcrop(0, 0));
  Unlock(&Device);
  Device.Write(PCROP1SR, 0x0000);
  Device.Write(PCROP1ER, 0xFFFF);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0xFFFF0000u, Device.Read(PCROP1SR));
  EXPECT_EQ(0xFFFFu, Device.Read(PCROP1ER) & 0xFFFF);
}

TEST(SimFlashL4, PcropRdpCanBeSetAndNotCleared) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(PCROP1ER, 0x80000000);
  Device.Write(PCROP1ER, 0);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0x80000000u, Device.Read(PCROP1ER) & 0x80000000);
  Unlock(&Device);
  Device.Write(PCROP1ER, 0);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0x80000000u, Device.Read(PCROP1ER) & 0x80000000);
}

TEST(SimFlashL4, WithPcropRdpUnprotectingWipesTheAreaAndItsDefinition) {
  Part Device("STM32L476", Pcrop(1, 1));
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Device);
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(PCROP1SR));
  EXPECT_EQ(0x0FFF0000u, Device.Read(PCROP1ER));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(PCROP2SR));
}

TEST(SimFlashL4, WithoutPcropRdpUnprotectingSparesTheArea) {
  Part           Device("STM32L476", Pcrop(1, 0));
  const uint32_t Start = Device.Read(PCROP1SR);
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0, Device.Level());
  EXPECT_EQ(3u * 2048, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  EXPECT_EQ(Start, Device.Read(PCROP1SR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
}

TEST(SimFlashL4, WithoutAnAreaUnprotectingClearsPcropRdp) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.PcropRdp            = 1;
  Part Device("STM32L476", Request);
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Device);
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_EQ(0u, Device.Read(PCROP1ER) & 0x80000000);
}

TEST(SimFlashL4, WriteProtectionStopsErasesByRequestAndNotUnprotecting) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {0, 1, 2};
  Part Device("STM32L476", Request);
  EXPECT_EQ(0x00020000u, Device.Read(WRP1AR) & 0x00FF00FF);
  Unlock(&Device);
  Device.Write(CR, 0x00010004);  // MER1
  EXPECT_EQ(0x10u, Device.Read(SR));
  Device.Write(SR, 0x10);
  Device.Write(CR, 0x0001001A);  // PER, page 3
  Device.Finish();
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 3 * 2048));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 2 * 2048));
  Request.Level = 1;
  Part Protected("STM32L476", Request);
  Unlock(&Protected);
  Protected.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Protected);
  EXPECT_TRUE(Protected.FlashErased());
}

TEST(SimFlashL4, AMismatchForcesTheDefaults) {
  sim::CREATE_REQUEST Request;
  Request.sMismatch = "rdp";
  Part Device("STM32L476", Request);
  EXPECT_EQ(0x8000u, Device.Read(SR));
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(0u, Device.Read(PCROP1SR) & 0xFFFF);
  EXPECT_EQ(0xFFFFu, Device.Read(PCROP1ER) & 0xFFFF);
  EXPECT_EQ(0u, Device.Read(OPTR) & 0x700);
}

TEST(SimFlashL4, EachWordInMemoryIsFollowedByItsComplement) {
  Part Device("STM32L476");
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(0x1FFF7800));
  EXPECT_EQ(0x00100755u, Device.Read(0x1FFF7804));
  EXPECT_EQ(0x0FFF0000u, Device.Read(0x1FFF7810));
  EXPECT_EQ(0xF000FFFFu, Device.Read(0x1FFF7814));
  EXPECT_EQ(0xFFFF0000u, Device.Read(0x1FFFF810));
}

TEST(SimFlashL4, AHardwareWatchdogRunsWhileTheCoreRuns) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.User                = 0xFFEEF800;  // IWDG_SW 0
  Part Device("STM32L476", Request);
  Device.Write(0xE0042008, 0x1800);
  Device.Reset();
  Device.Wait(2000);
  EXPECT_EQ(0, Device.Device.WatchdogResets());  // halted and frozen
  Unlock(&Device);
  Device.Write(CR, 0x08000000);  // reload: the core runs
  Device.Wait(600);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
}

TEST(SimFlashL4, Level2ShutsTheDebugPort) {
  Part Device("STM32L476", AtLevel(2));
  EXPECT_FALSE(Device.CanRead(OPTR));
}
