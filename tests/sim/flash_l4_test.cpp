// L4x6: one test per rule of the hardware. Addresses and keys as in the manual.

#include "tests/sim/part.h"

static const uint32_t KEYR = 0x40022008, OPTKEYR = 0x4002200C, SR = 0x40022010, CR = 0x40022014,
                      OPTR = 0x40022020, PCROP1SR = 0x40022024, PCROP1ER = 0x40022028,
                      WRP1AR = 0x4002202C, WRP1BR = 0x40022030, PCROP2SR = 0x40022044,
                      PCROP2ER = 0x40022048, WRP2AR = 0x4002204C, WRP2BR = 0x40022050;
static const uint32_t FLASH = 0x08000000, BANK2 = 0x08080000, BSY = 0x10000;
static const uint32_t OPTION_REGISTERS[] = {OPTR,     PCROP1SR, PCROP1ER, WRP1AR, WRP1BR,
                                            PCROP2SR, PCROP2ER, WRP2AR,   WRP2BR};

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

// An erase of pages or banks, by the bits of CR.
static void Erase(Part* pPart, uint32_t Bits) {
  pPart->Write(CR, Bits);
  pPart->Write(CR, 0x00010000 | Bits);
}

TEST(SimFlashL4, RegistersHaveTheirResetValuesAndWritableBits) {
  Part Device("STM32L476", {}, false);
  ExpectRegisters(&Device, {{0x40022000, 0x600, 0x7F07},
                            {SR, 0, 0},
                            {CR, 0xC0000000, 0},  // locked
                            {OPTR, 0xFFEFF8AA, 0},
                            {PCROP1SR, 0xFFFFFFFF, 0},
                            {PCROP1ER, 0x0FFF0000, 0},
                            {WRP1AR, 0xFF00FFFF, 0},
                            {WRP1BR, 0xFF00FFFF, 0},
                            {PCROP2SR, 0xFFFFFFFF, 0},
                            {PCROP2ER, 0xFFFF0000, 0},
                            {WRP2AR, 0xFF00FFFF, 0},
                            {WRP2BR, 0xFF00FFFF, 0},
                            {0xE0042000, 0x10076415, 0},
                            {0xE0042004, 0, 0x000000E7},
                            {0xE0042008, 0, 0x82E01C3F}});
  Unlock(&Device);
  ExpectRegisters(&Device, {{OPTR, 0xFFEFF8AA, 0x03BF77FF},
                            {PCROP1SR, 0xFFFFFFFF, 0x0000FFFF},
                            {WRP1AR, 0xFF00FFFF, 0x00FF00FF},
                            {WRP1BR, 0xFF00FFFF, 0x00FF00FF},
                            {PCROP2SR, 0xFFFFFFFF, 0x0000FFFF},
                            {PCROP2ER, 0xFFFF0000, 0x0000FFFF},
                            {WRP2AR, 0xFF00FFFF, 0x00FF00FF},
                            {WRP2BR, 0xFF00FFFF, 0x00FF00FF}});
  Device.Write(PCROP1ER, 0xFFFFFFFF);
  EXPECT_EQ(0x8FFFFFFFu, Device.Read(PCROP1ER));
  Device.Write(CR, 0x37FCFFFF);  // all but the locks, OBL_LAUNCH, OPTSTRT and STRT
  EXPECT_EQ(0x07048FFFu, Device.Read(CR));
  Device.Write(CR, 0);
  EXPECT_EQ(0u, Device.Read(CR));
}

TEST(SimFlashL4, TheIdentityStaysOverAReset) {
  const struct {
    const char* sName;
    uint32_t    Address, Id;
  } aRows[] = {{"STM32L476", 0xE0042000, 0x10076415}};
  for (const auto& Row : aRows) {
    Part Device(Row.sName);
    Device.Reset();
    EXPECT_EQ(Row.Id, Device.Read(Row.Address)) << Row.sName;
  }
}

TEST(SimFlashL4, KeyRegistersReadZero) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(0x40022004, 0x04152637);  // PDKEYR
  for (const uint32_t Register : {0x40022004u, KEYR, OPTKEYR}) {
    EXPECT_EQ(0u, Device.Read(Register));
  }
}

TEST(SimFlashL4, MemoriesHaveTheirSizes) {
  Part Device("STM32L476");
  ExpectMemory(&Device, FLASH, 0x100000);
  ExpectMemory(&Device, 0x10000000, 0x8000);  // SRAM2
  ExpectMemory(&Device, 0x20000000, 0x18000);
  ExpectMemory(&Device, 0x40002850, 128);
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
  Device.Write(CR, 0);
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  Unlock(&Device);  // no wrong sequence: both were closed
  EXPECT_EQ(0u, Device.Read(CR));
  Device.PowerCycle();
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(CR));
  Device.Write(CR, 0x40000000);
  EXPECT_EQ(0x40000000u, Device.Read(CR));
  Device.Write(OPTKEYR, 0x08192A3B);
  EXPECT_EQ(0x40000000u, Device.Read(CR));
  Device.Write(OPTKEYR, 0x4C5D6E7F);
  EXPECT_EQ(0u, Device.Read(CR));
  Device.Write(CR, 0x80000000);
  Device.Write(KEYR, 0x45670123);
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(OPTKEYR, 0x08192A3B);
  EXPECT_EQ(0x40000000u, Device.Read(CR));
}

TEST(SimFlashL4, AWrongOptionKeyKeepsOptlockUntilReset) {
  Part Device("STM32L476");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(OPTKEYR, 0x08192A3B);
  EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0x08192A3B));
  EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0x08192A3B));
  EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0x4C5D6E7F));
  EXPECT_EQ(0x40000000u, Device.Read(CR));
  Device.Reset();
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(CR));
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
  EXPECT_EQ(0xC0000000u, Device.Read(CR));  // and OPTLOCK with it
  Device.Write(OPTR, 0);
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0xCDEF89AB));
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
  Part Options("STM32L476");
  Unlock(&Options);
  Options.Write(CR, 1);  // leaves the locks as they are
  EXPECT_FALSE(Options.TryWrite(OPTKEYR, 0x08192A3B));
  EXPECT_EQ(0x40000001u, Options.Read(CR));
}

TEST(SimFlashL4, OptionRegistersNeedOptlockOpen) {
  Part Device("STM32L476");
  Device.Write(OPTR, 0);
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
  Unlock(&Device);
  Device.Write(OPTR, 0);
  EXPECT_EQ(0xFC408800u, Device.Read(OPTR));  // bits that do not exist stay ones
}

TEST(SimFlashL4, OptionRegistersTakeNothingWhileBusy) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(0x00020000u, Device.Read(CR));  // OPTSTRT until it is done
  Device.Write(OPTR, 0);
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(OPTR));
  Device.Write(CR, 0x80000000);
  EXPECT_EQ(0x00020000u, Device.Read(CR));
  EXPECT_EQ(BSY, Device.Read(SR));  // which is no error
  Device.Finish();
  EXPECT_EQ(0u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashL4, EopIsSetOnRequestOnly) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(CR, 0x01020000);  // with EOPIE
  Device.Finish();
  EXPECT_EQ(1u, Device.Read(SR));
  Device.Write(SR, 0xFFFFFFFE);
  EXPECT_EQ(1u, Device.Read(SR));
  Device.Write(SR, 1);
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashL4, OperationsTakeTheirTimes) {
  for (const bool Max : {false, true}) {
    Part Device("STM32L476", AtLevel(1));
    EXPECT_TRUE(Device.Device.SetVariant("timing_max", Max));
    Unlock(&Device);
    Device.Write(OPTR, 0xFFEFF8AA);
    Device.Write(CR, 0x00020000);
    Device.WaitUs(Max ? 49999 : 43999);  // both banks
    EXPECT_FALSE(Device.FlashErased());
    Device.WaitUs(1);
    EXPECT_TRUE(Device.FlashErased());
    EXPECT_EQ(0xFFEFF8BBu, Device.Stored(0));
    Device.WaitUs(Max ? 99999 : 79999);
    EXPECT_EQ(BSY, Device.Read(SR));
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(SR));
    EXPECT_EQ(0xFFEFF8AAu, Device.Stored(0));
    Device.Write(CR, 0x08000000);
    Unlock(&Device);
    Erase(&Device, 0x002);
    Device.WaitUs(Max ? 24999 : 21999);
    EXPECT_EQ(BSY, Device.Read(SR));
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(SR));
    Device.Write(CR, 1);
    Device.Write(FLASH, 1);
    Device.Write(FLASH + 4, 2);
    Device.WaitUs(Max ? 90 : 81);
    EXPECT_EQ(BSY, Device.Read(SR));
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(SR));
  }
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
  EXPECT_TRUE(Device.Device.Flash().Remarks().empty());
}

TEST(SimFlashL4, ALaunchLoadsOnce) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(CR, 0x08000000);
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8BB);
  Device.Write(CR, 0x00020000);
  Device.Finish();
  EXPECT_FALSE(Device.Device.Flash().Remarks().empty());
  Device.Reset();
  EXPECT_EQ(0, Device.Level());
  EXPECT_EQ(1, Device.Device.Flash().StoredLevel());
  Device.PowerCycle();
  EXPECT_EQ(1, Device.Level());
}

TEST(SimFlashL4, TheLaunchTransferMayFailAlthoughItWorked) {
  Part Device("STM32L476");
  EXPECT_TRUE(Device.Device.SetVariant("obl_transfer_fails", 1));
  Unlock(&Device);
  EXPECT_FALSE(Device.TryWrite(CR, 0x08000000));
  EXPECT_EQ(0xC0000000u, Device.Read(CR));
}

TEST(SimFlashL4, AllOptionRegistersAreProgrammedTogetherAndLoadedTogether) {
  Part           Device("STM32L476");
  const uint32_t aValues[] = {0xFFEFFCBB, 0xFFFF0010, 0x8FFF0020, 0xFF12FF10, 0xFF22FF20,
                              0xFFFF0030, 0xFFFF0040, 0xFF32FF30, 0xFF42FF40};
  const uint32_t aPlaces[] = {0x1FFF7800, 0x1FFF7808, 0x1FFF7810, 0x1FFF7818, 0x1FFF7820,
                              0x1FFFF808, 0x1FFFF810, 0x1FFFF818, 0x1FFFF820};
  Unlock(&Device);
  for (int i = 0; i < 9; i++) {
    Device.Write(OPTION_REGISTERS[i], aValues[i]);
  }
  Device.Write(CR, 0x00020000);
  Device.Finish();
  for (int i = 0; i < 9; i++) {
    EXPECT_EQ(aValues[i], Device.Read(aPlaces[i])) << i;
    EXPECT_EQ(~aValues[i], Device.Read(aPlaces[i] + 4)) << i;
  }
  Device.Write(CR, 0x08000000);
  for (int i = 0; i < 9; i++) {
    EXPECT_EQ(aValues[i], Device.Read(OPTION_REGISTERS[i])) << i;
  }
}

TEST(SimFlashL4, LaunchNeedsOptlockOpen) {
  Part Device("STM32L476");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x08000000);
  EXPECT_EQ(0x40000000u, Device.Read(CR) & 0xC0000000);  // no reset took place
}

TEST(SimFlashL4, OptstrtNeedsOptlockOpen) {
  Part Device("STM32L476");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x40000000u, Device.Read(CR));
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

// Whatever flag it is: nothing begins, and PGSERR comes on top.
TEST(SimFlashL4, AnyPendingErrorStopsOptionsErasesAndPrograms) {
  Part Device("STM32L476", Pcrop(0, 0), false);
  EXPECT_EQ(0u, Device.Read(FLASH + 2 * 2048));  // RDERR
  Unlock(&Device);
  Device.Write(CR, 0x00020000);
  EXPECT_EQ(0x4080u, Device.Read(SR));
  Device.Write(SR, 0x80);
  Erase(&Device, 0x002);
  EXPECT_EQ(0x4080u, Device.Read(SR));
  Device.Write(SR, 0x80);
  Device.Write(CR, 1);
  Device.Write(FLASH, 1);
  EXPECT_EQ(0x4080u, Device.Read(SR));
  Device.Write(SR, 0x4080);
  Device.Write(FLASH, 1);
  Device.Write(FLASH + 4, 1);
  EXPECT_EQ(BSY, Device.Read(SR));
  for (uint32_t Bit = 0; Bit < 16; Bit++) {
    Part           Other("STM32L476");
    const uint32_t Flag = 1u << Bit;
    EXPECT_TRUE(Other.Device.Flash().LoadLine("register.FLASH_SR", Flag & 0xC3FB));
    Unlock(&Other);
    Other.Write(CR, 0x00020000);
    EXPECT_EQ((Flag & 0xC3FA) == 0, (Other.Read(SR) & BSY) != 0) << Bit;
  }
}

TEST(SimFlashL4, AtLevel1FlashSram2AndBackupRegistersAreClosed) {
  Part Device("STM32L476", AtLevel(1));
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_FALSE(Device.CanRead(0x10000000));
  EXPECT_FALSE(Device.CanRead(0x40002850));
  EXPECT_TRUE(Device.CanRead(0x20000000));
  EXPECT_TRUE(Device.CanRead(OPTR));
  EXPECT_TRUE(Device.CanRead(0x1FFF7800));
  Unlock(&Device);
  Device.Write(CR, 1);
  EXPECT_FALSE(Device.TryWrite(FLASH, 0));
  EXPECT_FALSE(Device.TryWrite(0x10000000, 0));
  Erase(&Device, 0x002);
  EXPECT_EQ(0x10u, Device.Read(SR));
  Device.Write(SR, 0x10);
  Erase(&Device, 0x8004);
  EXPECT_EQ(0x10u, Device.Read(SR));
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
  EXPECT_EQ(0u, Device.Read(FLASH + 4 * 2048 - 4));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 4 * 2048));
  EXPECT_EQ(0x4000u, Device.Read(SR));
  Device.Write(SR, 0x4000);
  EXPECT_EQ(0x12345678u, Device.Read(BANK2 + 44 * 2048 - 4));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0u, Device.Read(BANK2 + 44 * 2048));
  EXPECT_EQ(0x4000u, Device.Read(SR));
}

TEST(SimFlashL4, PcropIsNeitherErasedNorProgrammed) {
  Part Device("STM32L476", Pcrop(0, 0), false);
  Unlock(&Device);
  for (const uint32_t Bits : {0x0012u, 0x001Au, 0x0962u, 0x0004u, 0x8000u, 0x8004u}) {
    Erase(&Device, Bits);  // pages 2, 3 and 300, each bank, both
    EXPECT_EQ(0x10u, Device.Read(SR)) << Bits;
    Device.Write(SR, 0x10);
  }
  Device.Write(CR, 1);
  Device.Write(FLASH + 2 * 2048, 1);
  EXPECT_EQ(0x10u, Device.Read(SR));
}

// Areas count in 8 bytes: a page of which any part is execute-only is not erased.
TEST(SimFlashL4, APcropAreaMayBeginAndEndWithinAPage) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(PCROP1SR, 2 * 256 + 255);
  Device.Write(PCROP1ER, 3 * 256);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 3 * 2048 - 12));
  EXPECT_EQ(0u, Device.Read(FLASH + 3 * 2048 - 8));
  EXPECT_EQ(0u, Device.Read(FLASH + 3 * 2048 + 4));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 3 * 2048 + 8));
  Device.Write(SR, 0x4000);
  Unlock(&Device);
  for (const uint32_t Bits : {0x0012u, 0x001Au, 0x0004u}) {
    Erase(&Device, Bits);
    EXPECT_EQ(0x10u, Device.Read(SR)) << Bits;
    Device.Write(SR, 0x10);
  }
  Device.Write(OPTR, 0xFFEFF8BB);
  ProgramAndLoad(&Device);
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Device);
  EXPECT_EQ(2u * 2048, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 3 * 2048 - 12));
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

TEST(SimFlashL4, APcropAreaShrinksAtNeitherEndOfNeitherBank) {
  const struct {
    uint32_t Register, Value;
  } aWrites[] = {{PCROP1SR, 0xFFFF0201},
                 {PCROP1ER, 0x03FE},
                 {PCROP2SR, 0xFFFF2C01},
                 {PCROP2ER, 0xFFFF2CFE},
                 {PCROP2SR, 0xFFFFFFFF}};
  for (const auto& Each : aWrites) {
    for (const uint32_t Level : {0u, 1u}) {
      Part           Device("STM32L476", Pcrop(Level, 0));
      const uint32_t Before = Device.Read(Each.Register);
      Unlock(&Device);
      Device.Write(Each.Register, Each.Value);
      ProgramAndLoad(&Device);
      EXPECT_EQ(Before, Device.Read(Each.Register)) << Each.Register;
    }
  }
  Part Device("STM32L476", Pcrop(0, 0));
  Unlock(&Device);
  Device.Write(PCROP1SR, 0xFFFF0201);
  Device.Write(PCROP1ER, 0x80000000);  // PCROP_RDP is set all the same
  ProgramAndLoad(&Device);
  EXPECT_EQ(0x8FFF03FFu, Device.Read(PCROP1ER));
}

TEST(SimFlashL4, PcropMayGrow) {
  Part Device("STM32L476", Pcrop(0, 0));
  Unlock(&Device);
  Device.Write(PCROP1SR, 0x0000);
  Device.Write(PCROP1ER, 0xFFFF);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0xFFFF0000u, Device.Read(PCROP1SR));
  EXPECT_EQ(0xFFFFu, Device.Read(PCROP1ER) & 0xFFFF);
  EXPECT_EQ(0xFFFF2C00u, Device.Read(PCROP2SR));
  EXPECT_EQ(0xFFFF2CFFu, Device.Read(PCROP2ER));
  Unlock(&Device);
  Device.Write(PCROP2SR, 0x2BFF);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0xFFFF2BFFu, Device.Read(PCROP2SR));
  Unlock(&Device);
  Device.Write(PCROP2ER, 0x2D00);
  ProgramAndLoad(&Device);
  EXPECT_EQ(0xFFFF2D00u, Device.Read(PCROP2ER));
  // Where there is none, an area may be made anywhere.
  Part New("STM32L476");
  Unlock(&New);
  New.Write(PCROP2SR, 5);
  New.Write(PCROP2ER, 5);
  ProgramAndLoad(&New);
  EXPECT_EQ(0u, New.Read(BANK2 + 40));
  EXPECT_EQ(0x12345678u, New.Read(BANK2 + 48));
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
  EXPECT_EQ(0xFFFF0000u, Device.Read(PCROP2ER));
}

TEST(SimFlashL4, PcropRdpCountsAsItIsLoaded) {
  Part Device("STM32L476", Pcrop(1, 0));
  Unlock(&Device);
  Device.Write(PCROP1ER, 0x8FFF03FF);
  Device.Write(OPTR, 0xFFEFF8AA);
  ProgramAndLoad(&Device);
  EXPECT_EQ(3u * 2048, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  EXPECT_EQ(0x8FFF03FFu, Device.Read(PCROP1ER));
}

TEST(SimFlashL4, AnAreaInEitherBankIsSpared) {
  for (const uint32_t Page : {0u, 255u, 256u, 511u}) {
    sim::CREATE_REQUEST Request = AtLevel(1);
    Request.Pcrop               = {Page};
    Part Device("STM32L476", Request);
    Unlock(&Device);
    Device.Write(OPTR, 0xFFEFF8AA);
    ProgramAndLoad(&Device);
    EXPECT_EQ(2048u, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse()) << Page;
    EXPECT_TRUE(Device.Erased(sim::BACKUP));
  }
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

TEST(SimFlashL4, EachOfTheFourAreasProtectsItsPages) {
  for (const uint32_t Register : {WRP1AR, WRP1BR, WRP2AR, WRP2BR}) {
    Part Device("STM32L476", {}, false);
    Unlock(&Device);
    Device.Write(Register, 0x00060005);
    ProgramAndLoad(&Device);
    Unlock(&Device);
    Device.Write(CR, 1);
    for (const uint32_t Bank : {0u, 1u}) {
      const bool HasArea = (Register >= PCROP2SR) == (Bank == 1);
      for (const uint32_t Page : {4u, 5u, 6u, 7u}) {
        const uint32_t Address = FLASH + Bank * 0x80000 + Page * 2048;
        Device.Write(Address, 1);
        Device.TryWrite(Address + 4, 1);
        Device.Finish();
        const bool Protected = HasArea && (Page == 5 || Page == 6);
        EXPECT_EQ(Protected, Device.Read(SR) != 0) << Register << " " << Bank << " " << Page;
        Device.Write(SR, 0x90);
      }
    }
  }
}

// Where one bank ends and the other begins.
TEST(SimFlashL4, WriteProtectionEndsWithItsBank) {
  for (const uint32_t Protected : {0u, 255u, 256u, 511u}) {
    sim::CREATE_REQUEST Request;
    Request.Wrp = {Protected};
    for (const uint32_t Page : {0u, 255u, 256u, 511u}) {
      Part Device("STM32L476", Request);
      Unlock(&Device);
      Erase(&Device, 2 | (Page % 256) << 3 | (Page / 256) << 11);
      EXPECT_EQ(Page == Protected ? 0x10u : BSY, Device.Read(SR)) << Protected << " " << Page;
    }
  }
}

TEST(SimFlashL4, APageOrABankIsErasedAndNothingElse) {
  const struct {
    uint32_t Bits, First, End;
  } aRows[] = {{0x0002, 0, 1},   {0x07FA, 255, 256}, {0x0802, 256, 257}, {0x0FFA, 511, 512},
               {0x0004, 0, 256}, {0x8000, 256, 512}, {0x8004, 0, 512}};
  for (const auto& Row : aRows) {
    Part         Device("STM32L476");
    sim::Memory* pFlash = Device.Device.FindMemory(sim::MAIN_FLASH);
    Unlock(&Device);
    Erase(&Device, Row.Bits);
    EXPECT_EQ(0x00010000u | Row.Bits, Device.Read(CR)) << Row.Bits;
    Device.Finish();
    EXPECT_EQ(Row.Bits, Device.Read(CR)) << Row.Bits;
    EXPECT_EQ((512 - (Row.End - Row.First)) * 2048, pFlash->BytesInUse()) << Row.Bits;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + Row.First * 2048)) << Row.Bits;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + Row.End * 2048 - 4)) << Row.Bits;
    EXPECT_FALSE(Device.Erased(sim::BACKUP));
  }
  Part Device("STM32L476");
  Unlock(&Device);
  Erase(&Device, 0);
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashL4, FlashTakesDoubleWords) {
  Part Device("STM32L476", {}, false);
  Unlock(&Device);
  Device.Write(CR, 1);
  Device.Write(FLASH + 8, 0x11111111);
  EXPECT_EQ(0u, Device.Read(SR));  // waits for the upper half
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 8));
  Device.Write(FLASH + 12, 0x22222222);
  EXPECT_EQ(BSY, Device.Read(SR));
  Device.Finish();
  EXPECT_EQ(0x11111111u, Device.Read(FLASH + 8));
  EXPECT_EQ(0x22222222u, Device.Read(FLASH + 12));
  EXPECT_EQ(8u, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  // Once more over it: refused, but for zeros.
  for (const uint32_t Value : {0x00000001u, 0x00000000u}) {
    Device.Write(FLASH + 8, Value);
    Device.Write(FLASH + 12, 0);
    EXPECT_EQ(Value != 0 ? 0x08u : BSY, Device.Read(SR));
    Device.Finish();
    Device.Write(SR, 0x08);
  }
  EXPECT_EQ(0u, Device.Read(FLASH + 8));
  EXPECT_EQ(0u, Device.Read(FLASH + 12));
  // One half is enough to be in the way.
  for (const uint32_t Used : {16u, 20u}) {
    Device.Device.FindMemory(sim::MAIN_FLASH)->Erase();
    Device.Device.FindMemory(sim::MAIN_FLASH)->WordAt(FLASH + Used) = 1;
    Device.Write(FLASH + 16, 2);
    Device.Write(FLASH + 20, 2);
    EXPECT_EQ(0x08u, Device.Read(SR));
    Device.Write(SR, 0x08);
  }
}

TEST(SimFlashL4, BothHalvesOfADoubleWordBelongTogether) {
  Part Device("STM32L476", {}, false);
  Unlock(&Device);
  Device.Write(CR, 1);
  Device.Write(FLASH + 4, 1);  // begins with the upper half
  EXPECT_EQ(0x20u, Device.Read(SR));
  Device.Write(SR, 0x20);
  for (const uint32_t Second : {0u, 8u, 12u}) {
    Device.Write(FLASH, 1);
    Device.Write(FLASH + Second, 2);
    EXPECT_EQ(0x20u, Device.Read(SR)) << Second;
    Device.Write(SR, 0x20);
  }
  for (const uint32_t Size : {1u, 2u}) {
    EXPECT_TRUE(Device.TryWrite(FLASH, 1, Size));
    EXPECT_EQ(0x40u, Device.Read(SR));
    Device.Write(SR, 0x40);
  }
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashL4, AHalfWaitsAsLongAsPgIsSet) {
  Part Device("STM32L476", {}, false);
  Unlock(&Device);
  Device.Write(CR, 1);
  Device.Write(FLASH, 1);
  Device.Write(CR, 1);
  Device.Write(FLASH + 4, 2);
  Device.Finish();
  EXPECT_EQ(1u, Device.Read(FLASH));
  EXPECT_EQ(2u, Device.Read(FLASH + 4));
}

TEST(SimFlashL4, AHalfThatWaitsIsForgotten) {
  for (const bool ByReset : {false, true}) {
    Part Device("STM32L476", {}, false);
    Unlock(&Device);
    Device.Write(CR, 1);
    Device.Write(FLASH, 1);
    if (ByReset) {
      Device.Reset();
      Unlock(&Device);
    } else {
      Device.Write(CR, 0);
    }
    Device.Write(CR, 1);
    Device.Write(FLASH + 4, 2);
    EXPECT_EQ(0x20u, Device.Read(SR));
  }
}

TEST(SimFlashL4, ProgrammingNeedsLockOpenAndPg) {
  Part Device("STM32L476", {}, false);
  Device.Write(FLASH, 1);
  EXPECT_EQ(0x80u, Device.Read(SR));
  Device.Write(SR, 0x80);
  Unlock(&Device);
  Device.Write(FLASH, 1);
  EXPECT_EQ(0x80u, Device.Read(SR));
  Device.Write(SR, 0x80);
  Device.Write(CR, 0x80000001);  // PG, and LOCK again
  Device.Write(FLASH, 1);
  EXPECT_EQ(0x80u, Device.Read(SR));
}

TEST(SimFlashL4, AWriteWhileBusyHoldsTheBus) {
  Part Device("STM32L476", {}, false);
  Unlock(&Device);
  Device.Write(CR, 0x00020001);
  const uint64_t Before = Device.Device.NowUs();
  Device.Write(FLASH, 1);
  EXPECT_EQ(80000u, Device.Device.NowUs() - Before);
  Device.Device.Flash().HoldBusy(sim::FOREVER);
  Device.Write(FLASH + 4, 1);
  EXPECT_FALSE(Device.TryWrite(FLASH + 8, 1));
}

TEST(SimFlashL4, AMismatchForcesTheDefaults) {
  sim::CREATE_REQUEST Request;
  Request.sMismatch = "rdp";
  Part Device("STM32L476", Request);
  EXPECT_EQ(0x8000u, Device.Read(SR));
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(0u, Device.Read(PCROP1SR) & 0xFFFF);
  EXPECT_EQ(0xFFFFu, Device.Read(PCROP1ER) & 0xFFFF);
  const uint32_t aForced[] = {0xFFFFF8FF, 0xFFFF0000, 0x0FFFFFFF, 0xFF00FFFF, 0xFF00FFFF,
                              0xFFFF0000, 0xFFFFFFFF, 0xFF00FFFF, 0xFF00FFFF};
  for (int i = 0; i < 9; i++) {
    EXPECT_EQ(aForced[i], Device.Read(OPTION_REGISTERS[i])) << i;
  }
  EXPECT_FALSE(Device.Device.Flash().Remarks().empty());
  EXPECT_EQ(1, Device.Device.Flash().StoredLevel());
}

TEST(SimFlashL4, OptionsThatAreCutShortAreErasedAndMatchNothing) {
  Part Device("STM32L476");
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8BB);
  Device.Write(CR, 0x00020000);
  Device.Wait(1);
  Device.PowerCycle();
  EXPECT_EQ(0x8000u, Device.Read(SR));
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(0xFFFFFFFFu, Device.Stored(0));
  EXPECT_EQ(0xFFFFFFFFu, Device.Stored(8));
}

TEST(SimFlashL4, AnEraseThatIsCutShortHasDoneHalf) {
  const struct {
    uint32_t Bits, First, NumPages;
  } aRows[] = {{0x0012, 2, 1}, {0x0004, 0, 128}, {0x8000, 256, 128}, {0x8004, 0, 256}};
  for (const auto& Row : aRows) {
    Part         Device("STM32L476");
    sim::Memory* pFlash = Device.Device.FindMemory(sim::MAIN_FLASH);
    Unlock(&Device);
    Erase(&Device, Row.Bits);
    Device.Wait(1);
    Device.Reset();
    EXPECT_EQ((512 - Row.NumPages) * 2048, pFlash->BytesInUse()) << Row.Bits;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + Row.First * 2048)) << Row.Bits;
  }
  // On the way to level 0: execute-only pages are spared here too, and level 1 stays.
  Part Device("STM32L476", Pcrop(1, 0));
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  Device.Write(CR, 0x00020000);
  Device.Wait(1);
  Device.PowerCycle();
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ((256u + 2) * 2048, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  EXPECT_FALSE(Device.Erased(sim::BACKUP));
}

TEST(SimFlashL4, EachWordInMemoryIsFollowedByItsComplement) {
  ExpectFactoryWords("STM32L476");
  Part Device("STM32L476");
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(0x1FFF7800));
  EXPECT_EQ(0x00100755u, Device.Read(0x1FFF7804));
  EXPECT_EQ(0x0FFF0000u, Device.Read(0x1FFF7810));
  EXPECT_EQ(0xF000FFFFu, Device.Read(0x1FFF7814));
  EXPECT_EQ(0xFFFF0000u, Device.Read(0x1FFFF810));
  EXPECT_FALSE(Device.CanRead(0x1FFF7800 - 4));
  EXPECT_FALSE(Device.CanRead(0x1FFF7828));
  EXPECT_FALSE(Device.CanRead(0x1FFFF804));
  EXPECT_FALSE(Device.CanRead(0x1FFFF828));
  Device.Write(0x1FFF7800, 0);  // not by writing there
  EXPECT_EQ(0x10u, Device.Read(SR));
  EXPECT_EQ(0xFFEFF8AAu, Device.Read(0x1FFF7800));
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
  Device.Wait(511);
  EXPECT_EQ(0, Device.Device.WatchdogResets());
  Device.Wait(2);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  Device.Write(0xE0042008, ~0x1000u);  // the freeze bits of all others
  Device.Reset();
  Device.Wait(511);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  Device.Wait(2);
  EXPECT_EQ(2, Device.Device.WatchdogResets());
  Part Software("STM32L476", AtLevel(1));
  Software.Wait(5000);
  EXPECT_EQ(0, Software.Device.WatchdogResets());
}

TEST(SimFlashL4, FreezeSurvivesASystemResetAndNotAPowerCycle) {
  Part Device("STM32L476");
  Device.Write(0xE0042008, 0x1800);
  Device.Reset();
  EXPECT_EQ(0x1800u, Device.Read(0xE0042008));
  Device.PowerCycle();
  EXPECT_EQ(0u, Device.Read(0xE0042008));
}

TEST(SimFlashL4, ADeviceIsFoundAsItWasLeft) {
  Part Device("STM32L476", Pcrop(1, 0));
  Unlock(&Device);
  Device.Write(OPTR, 0xFFEFF8AA);
  Device.Write(CR, 0x00020000);
  Part Other("STM32L476");
  Device.CopyTo(&Other);  // what ran is done by then
  EXPECT_EQ(3u * 2048, Other.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  EXPECT_EQ(0xFFEFF8AAu, Other.Stored(0));
  EXPECT_EQ(1, Other.Level());
  Other.Write(CR, 0x08000000);  // the locks are open
  EXPECT_EQ(0, Other.Level());
  Unlock(&Other);
  Other.Write(CR, 1);
  Other.Write(FLASH, 1);
  Part Third("STM32L476", {}, false);
  Other.CopyTo(&Third);
  Third.Write(FLASH + 4, 2);
  Third.Finish();
  EXPECT_EQ(1u, Third.Read(FLASH));
  EXPECT_EQ(2u, Third.Read(FLASH + 4));
  // Keys go on where they were.
  Part Half("STM32L476");
  Half.Write(KEYR, 0x45670123);
  Part Fourth("STM32L476");
  Half.CopyTo(&Fourth);
  Fourth.Write(KEYR, 0xCDEF89AB);
  Fourth.Write(OPTKEYR, 0x08192A3B);
  Part Fifth("STM32L476");
  Fourth.CopyTo(&Fifth);
  Fifth.Write(OPTKEYR, 0x4C5D6E7F);
  EXPECT_EQ(0u, Fifth.Read(CR));
}

TEST(SimFlashL4, AFileThatNamesAPlaceOutsideTheFlashDoesNoHarm) {
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
  }
}

TEST(SimFlashL4, AFileWithALowerHalfBeforeTheFlashDoesNoHarm) {
  Part         Device("STM32L476");
  sim::KeyFile File;
  std::string  sError;
  File.Add("powered", "1");
  File.Add("state.first_half", "0x07FFFFFC");
  ASSERT_TRUE(Device.Device.LoadFrom(File, &sError)) << sError;
  Unlock(&Device);
  Device.Write(CR, 1);
  Device.Write(0x08000000, 0);
  Device.Finish();
  EXPECT_EQ(0x20u, Device.Read(SR));  // PGAERR: it is no upper half
}

TEST(SimFlashL4, StatesThatDoNotExistAreRefused) {
  sim::CREATE_REQUEST Secure, Mismatch, Beyond, Apart, Area;
  Secure.Secure      = true;
  Mismatch.sMismatch = "user";
  Beyond.Wrp         = {512};
  Apart.Wrp          = {256, 258};
  Area.Pcrop         = {1, 3};
  for (const sim::CREATE_REQUEST& Request : {Secure, Mismatch, Beyond, Apart, Area}) {
    ExpectRefused("STM32L476", Request);
  }
  sim::CREATE_REQUEST All;
  All.WrpAll   = true;
  All.PcropAll = true;
  All.PcropRdp = 1;
  All.Rdp      = 0x155;
  All.User     = 0;
  Part Device("STM32L476", All);
  EXPECT_EQ(0xFC408855u, Device.Read(OPTR));
  EXPECT_EQ(0xFFFF0000u, Device.Read(PCROP1SR));
  EXPECT_EQ(0x8FFFFFFFu, Device.Read(PCROP1ER));
  EXPECT_EQ(0xFFFFFF00u, Device.Read(WRP1AR));
  EXPECT_EQ(0xFFFF0000u, Device.Read(PCROP2SR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(PCROP2ER));
  EXPECT_EQ(0xFFFFFF00u, Device.Read(WRP2AR));
  sim::CREATE_REQUEST Some;
  Some.Wrp = {7, 5, 6, 511};
  Part Pages("STM32L476", Some);
  EXPECT_EQ(0xFF07FF05u, Pages.Read(WRP1AR));
  EXPECT_EQ(0xFFFFFFFFu, Pages.Read(WRP2AR));
}

TEST(SimFlashL4, Level2ShutsTheDebugPort) {
  Part Device("STM32L476", AtLevel(2));
  EXPECT_EQ(2, Device.Level());
  EXPECT_FALSE(Device.CanRead(OPTR));
}
