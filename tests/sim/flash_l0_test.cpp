// L0 and L1: one test per rule of the hardware. Addresses and keys as in the manuals.

#include "tests/sim/part.h"

static const uint32_t OPTIONS = 0x1FF80000, FLASH = 0x08000000, EEPROM = 0x08080000;

// The same registers at two bases.
struct Regs {
  explicit Regs(const char* sName)
      : Base(strncmp(sName, "STM32L0", 7) == 0 ? 0x40022000 : 0x40023C00),
        PECR(Base + 0x04),
        PEKEYR(Base + 0x0C),
        PRGKEYR(Base + 0x10),
        OPTKEYR(Base + 0x14),
        SR(Base + 0x18),
        OPTR(Base + 0x1C),
        WRPROT(Base + 0x20) {}
  uint32_t Base, PECR, PEKEYR, PRGKEYR, OPTKEYR, SR, OPTR, WRPROT;
};

struct PartL : Part {
  explicit PartL(const char* sName, const sim::CREATE_REQUEST& Request = {})
      : Part(sName, Request), R(sName) {}

  void Unlock() {
    Write(R.PEKEYR, 0x89ABCDEF);
    Write(R.PEKEYR, 0x02030405);
    Write(R.OPTKEYR, 0xFBEAD9C8);
    Write(R.OPTKEYR, 0x24252627);
  }
  void Option(uint32_t Offset, uint32_t Value) {
    Write(OPTIONS + Offset, Value);
    Finish();
  }
  void Launch() { TryWrite(R.PECR, 0x40000); }

  void UnlockProgram() {
    Write(R.PRGKEYR, 0x8C9DAEBF);
    Write(R.PRGKEYR, 0x13141516);
  }
  uint32_t Errors() { return Read(R.SR) & 0x00033F00; }

  Regs R;
};

static const char* const aDevices[] = {"STM32L053", "STM32L073", "STM32L152", "STM32L152xE"};
// Those that have PCROP: it is not on the big L1.
static const char* const aPcropDevices[] = {"STM32L053", "STM32L073", "STM32L152"};

static bool IsL1(const char* sName) {
  return strncmp(sName, "STM32L1", 7) == 0;
}

TEST(SimFlashL0, RegistersHaveTheirResetValuesAndWritableBits) {
  for (const char* sName : {"STM32L053", "STM32L073"}) {
    const bool IsL053 = strcmp(sName, "STM32L053") == 0;
    PartL      L0(sName);
    ExpectRegisters(&L0, {{0x40022000, 0, 0x7B},
                          {0x40022004, 7, 0},  // locked
                          {0x40022018, 4, 0},
                          {0x4002201C, 0x807000AA, 0},
                          {0x40022020, 0, 0},
                          {0x40022080, 0, 0},
                          {0x40015800, IsL053 ? 0x10386417u : 0x20086447u, 0},
                          {0x40021034, 0, 0x004052A5}});
    L0.Write(0x40021034, 1u << 22);  // the clock of DBGMCU
    ExpectRegisters(&L0, {{0x40015804, 0, 0x00000007}, {0x40015808, 0, 0x80601C11}});
  }
  for (const char* sName : {"STM32L152", "STM32L152xE"}) {
    const bool IsXE = strcmp(sName, "STM32L152xE") == 0;
    PartL      L1(sName);
    ExpectRegisters(&L1, {{0x40023C00, 0, 0x1F},
                          {0x40023C04, 7, 0},
                          {0x40023C18, 0xC, 0},
                          {0x40023C1C, IsXE ? 0x00F800AAu : 0x007800AAu, 0},
                          {0x40023C20, 0, 0},
                          {0x40023C80, 0, 0},
                          {0x40023C84, 0, 0},
                          {0x40023C88, 0, 0},
                          {0xE0042000, IsXE ? 0x10006437u : 0x10186429u, 0},
                          {0xE0042004, 0, 0x000000E7},
                          {0xE0042008, 0, 0x00601C3F}});
  }
}

TEST(SimFlashL0, TheIdentityStaysOverAReset) {
  const struct {
    const char* sName;
    uint32_t    Address, Id;
  } aRows[] = {{"STM32L053", 0x40015800, 0x10386417},
               {"STM32L073", 0x40015800, 0x20086447},
               {"STM32L152", 0xE0042000, 0x10186429},
               {"STM32L152xE", 0xE0042000, 0x10006437}};
  for (const auto& Row : aRows) {
    Part Device(Row.sName);
    Device.Reset();
    EXPECT_EQ(Row.Id, Device.Read(Row.Address)) << Row.sName;
  }
}

TEST(SimFlashL0, KeyRegistersReadZero) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    for (const uint32_t Offset : {0x08u, 0x0Cu, 0x10u, 0x14u}) {
      EXPECT_EQ(0u, Device.Read(Device.R.Base + Offset)) << sName;
    }
    Device.Write(Device.R.Base + 0x08, 0x12345678);  // PDKEYR
    EXPECT_EQ(0u, Device.Read(Device.R.Base + 0x08)) << sName;
  }
}

TEST(SimFlashL0, MemoriesHaveTheirSizes) {
  const struct {
    const char* sName;
    uint32_t    FlashKB, EepromKB, SramKB;
  } aRows[] = {{"STM32L053", 64, 2, 8},
               {"STM32L073", 192, 6, 20},
               {"STM32L152", 128, 4, 16},
               {"STM32L152xE", 512, 16, 80}};
  for (const auto& Row : aRows) {
    PartL      Device(Row.sName);
    const bool Adjacent = Row.FlashKB == 512;  // there EEPROM begins where flash ends
    EXPECT_TRUE(Device.CanRead(FLASH + Row.FlashKB * 1024 - 4)) << Row.sName;
    EXPECT_EQ(Adjacent, Device.CanRead(FLASH + Row.FlashKB * 1024)) << Row.sName;
    EXPECT_EQ(Adjacent, Device.CanRead(EEPROM - 4)) << Row.sName;
    EXPECT_EQ(Row.FlashKB * 1024, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
    EXPECT_TRUE(Device.CanRead(EEPROM + Row.EepromKB * 1024 - 4)) << Row.sName;
    EXPECT_FALSE(Device.CanRead(EEPROM + Row.EepromKB * 1024)) << Row.sName;
    ExpectMemory(&Device, 0x20000000, Row.SramKB * 1024);
  }
}

TEST(SimFlashL0, DeliveredOptionWords) {
  for (const char* sName : aDevices) {
    ExpectFactoryWords(sName);
  }
  const struct {
    const char*           sName;
    uint32_t              User;
    std::vector<uint32_t> Wrp;  // offsets
    uint32_t              Behind;
  } aRows[] = {{"STM32L053", 0x7F8F8070, {0x08}, 0x14},
               {"STM32L073", 0x7F8F8070, {0x08, 0x0C, 0x10}, 0x14},
               {"STM32L152", 0xFF870078, {0x08, 0x0C}, 0x10},
               {"STM32L152xE", 0xFF0700F8, {0x08, 0x0C, 0x10, 0x14, 0x18, 0x1C, 0x80, 0x84}, 0x88}};
  for (const auto& Row : aRows) {
    PartL Device(Row.sName);
    EXPECT_EQ(0xFF5500AAu, Device.Read(OPTIONS)) << Row.sName;
    EXPECT_EQ(Row.User, Device.Read(OPTIONS + 4)) << Row.sName;
    for (const uint32_t Offset : Row.Wrp) {
      EXPECT_EQ(0xFFFF0000u, Device.Read(OPTIONS + Offset)) << Row.sName << " " << Offset;
    }
    EXPECT_FALSE(Device.CanRead(OPTIONS + Row.Behind)) << Row.sName;
    EXPECT_FALSE(Device.CanRead(OPTIONS - 4)) << Row.sName;
  }
  PartL Big("STM32L152xE");
  EXPECT_FALSE(Big.CanRead(OPTIONS + 0x20));
  EXPECT_FALSE(Big.CanRead(OPTIONS + 0x7C));
}

TEST(SimFlashL0, KeysOpenPelockThenOptlock) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Write(Device.R.OPTKEYR, 0xFBEAD9C8);  // PELOCK is closed: does not count
    Device.Write(Device.R.OPTKEYR, 0x24252627);
    EXPECT_EQ(7u, Device.Read(Device.R.PECR));
    Device.Write(Device.R.PEKEYR, 0x89ABCDEF);
    Device.Write(Device.R.PEKEYR, 0x02030405);
    EXPECT_EQ(6u, Device.Read(Device.R.PECR));
    Device.Write(Device.R.OPTKEYR, 0xFBEAD9C8);
    Device.Write(Device.R.OPTKEYR, 0x24252627);
    EXPECT_EQ(2u, Device.Read(Device.R.PECR));
    Device.Write(Device.R.PRGKEYR, 0x8C9DAEBF);
    Device.Write(Device.R.PRGKEYR, 0x13141516);
    EXPECT_EQ(0u, Device.Read(Device.R.PECR));
  }
}

TEST(SimFlashL0, AWrongKeyIsABusErrorAndLocksUntilReset) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    EXPECT_FALSE(Device.TryWrite(Device.R.PEKEYR, 0x02030405));
    EXPECT_FALSE(Device.TryWrite(Device.R.PEKEYR, 0x89ABCDEF));
    EXPECT_EQ(7u, Device.Read(Device.R.PECR));
    Device.Reset();
    Device.Unlock();
    EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  }
}

TEST(SimFlashL0, EachLockDiesByItself) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Write(Device.R.PEKEYR, 0x89ABCDEF);
    Device.Write(Device.R.PEKEYR, 0x02030405);
    Device.Write(Device.R.OPTKEYR, 0xFBEAD9C8);
    EXPECT_FALSE(Device.TryWrite(Device.R.OPTKEYR, 0xFBEAD9C8));
    EXPECT_FALSE(Device.TryWrite(Device.R.OPTKEYR, 0x24252627));
    EXPECT_FALSE(Device.TryWrite(Device.R.PRGKEYR, 0x13141516));
    EXPECT_FALSE(Device.TryWrite(Device.R.PRGKEYR, 0x8C9DAEBF));
    EXPECT_EQ(6u, Device.Read(Device.R.PECR)) << sName;
    Device.Reset();
    Device.Unlock();
    Device.UnlockProgram();
    EXPECT_EQ(0u, Device.Read(Device.R.PECR)) << sName;
  }
}

TEST(SimFlashL0, AnOpenControlRegisterTakesItsBitsOnly) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.UnlockProgram();
    Device.Write(Device.R.PECR, 0xFFFBFFF8);  // all but the locks and OBL_LAUNCH
    EXPECT_EQ(IsL1(sName) ? 0x00038718u : 0x00838718u, Device.Read(Device.R.PECR)) << sName;
    Device.Write(Device.R.PECR, 0);
    EXPECT_EQ(0u, Device.Read(Device.R.PECR)) << sName;
  }
}

TEST(SimFlashL0, APowerCycleClosesTheLocks) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.UnlockProgram();
    Device.PowerCycle();
    EXPECT_EQ(7u, Device.Read(Device.R.PECR)) << sName;
    Device.Unlock();  // no wrong sequence
    Device.UnlockProgram();
    EXPECT_EQ(0u, Device.Read(Device.R.PECR)) << sName;
  }
}

TEST(SimFlashL0, LockBitsAreSetBySoftwareAndNotCleared) {
  PartL Device("STM32L053");
  Device.Unlock();
  Device.Write(Device.R.PECR, 0);
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PECR, 7);
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PECR, 0x18);  // closed: no bit is taken
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
  Device.Unlock();
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  Device.UnlockProgram();
  Device.Write(Device.R.PECR, 4);
  EXPECT_EQ(4u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.OPTKEYR, 0xFBEAD9C8);
  EXPECT_EQ(4u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.OPTKEYR, 0x24252627);
  Device.Write(Device.R.PECR, 2);
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PRGKEYR, 0x8C9DAEBF);
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PRGKEYR, 0x13141516);
  EXPECT_EQ(0u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PECR, 1);  // PELOCK takes the others along
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PEKEYR, 0x89ABCDEF);
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
}

TEST(SimFlashL0, ALockedOptionWordIsRefusedWithWrperr) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Write(OPTIONS + 4, 0);
    EXPECT_EQ(0x100u, Device.Read(Device.R.SR) & 0x100);
    EXPECT_NE(0u, Device.Read(OPTIONS + 4));
    Device.Write(Device.R.SR, 0x100);
    EXPECT_EQ(0u, Device.Read(Device.R.SR) & 0x100);
  }
}

TEST(SimFlashL0, AWordIsErasedAndProgrammedByWritingIt) {
  for (const char* sName : aDevices) {
    PartL          Device(sName);
    const uint32_t Idle = IsL1(sName) ? 0xC : 0x4;
    Device.Unlock();
    Device.Write(OPTIONS + 8, 0x0000FFFF);
    EXPECT_EQ(1u, Device.Read(Device.R.SR));  // BSY, and high voltage has not ended
    EXPECT_EQ(0xFFFF0000u, Device.Read(OPTIONS + 8));
    Device.WaitUs(6399);  // two phases of 3.2 ms
    EXPECT_EQ(1u, Device.Read(Device.R.SR));
    Device.WaitUs(1);
    EXPECT_EQ(Idle | 2, Device.Read(Device.R.SR));  // EOP
    EXPECT_EQ(0x0000FFFFu, Device.Read(OPTIONS + 8));
    Device.Write(Device.R.SR, ~2u);
    EXPECT_EQ(Idle | 2, Device.Read(Device.R.SR));
    Device.Write(Device.R.SR, 2);
    EXPECT_EQ(Idle, Device.Read(Device.R.SR));
  }
}

TEST(SimFlashL0, TheErasePhaseIsLeftOutOverZeroUnlessFixIsSet) {
  for (const uint32_t Fix : {0u, 0x100u}) {
    PartL Device("STM32L152");
    Device.Unlock();
    Device.Option(8, 0);
    Device.Write(Device.R.PECR, 2 | Fix);
    Device.Write(OPTIONS + 8, 0xFFFF0000);
    Device.WaitUs(Fix ? 6399 : 3199);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1);
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(Device.R.SR) & 1);
  }
}

TEST(SimFlashL0, TheLongestTimesAreAVariant) {
  PartL Device("STM32L073", AtLevel(1));
  EXPECT_TRUE(Device.Device.SetVariant("timing_max", 1));
  Device.Unlock();
  Device.Write(OPTIONS + 4, 0);
  Device.WaitUs(7879);
  EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1);
  Device.WaitUs(1);
  EXPECT_EQ(0u, Device.Read(Device.R.SR) & 1);
  Device.Write(OPTIONS, 0xFF5500AA);
  Device.WaitUs(99999);
  EXPECT_FALSE(Device.FlashErased());
  Device.WaitUs(1);
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashL0, AWriteWhileBusyHoldsTheBus) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Write(OPTIONS + 8, 0);
  const uint64_t Before = Device.Device.NowUs();
  Device.Write(OPTIONS + 12, 0);
  EXPECT_EQ(6400u, Device.Device.NowUs() - Before);
  Device.Device.Flash().HoldBusy(sim::FOREVER);
  EXPECT_FALSE(Device.TryWrite(OPTIONS + 8, 0));
  EXPECT_FALSE(Device.TryWrite(EEPROM, 0));
}

TEST(SimFlashL0, TheComplementIsNotFormedByHardware) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Option(4, 0x00008070);
  EXPECT_EQ(0x00008070u, Device.Read(OPTIONS + 4));
  Device.Launch();
  EXPECT_EQ(0x800u, Device.Read(Device.R.SR) & 0x800);  // OPTVERR
  EXPECT_EQ(0x807000AAu, Device.Read(Device.R.OPTR));   // and the default is loaded
}

TEST(SimFlashL0, OptionWordsTakeWordsOnly) {
  PartL Device("STM32L053");
  Device.Unlock();
  EXPECT_TRUE(Device.TryWrite(OPTIONS + 4, 0x1234, 2));
  EXPECT_EQ(0x400u, Device.Errors());
  EXPECT_TRUE(Device.TryWrite(OPTIONS + 4, 0x12, 1));
  EXPECT_EQ(0x7F8F8070u, Device.Read(OPTIONS + 4));
  Device.Write(Device.R.SR, 0x400);
  EXPECT_EQ(0u, Device.Errors());
}

TEST(SimFlashL0, AnOptionWordNeedsPelockAndOptlockOpen) {
  PartL Device("STM32L152");
  Device.Unlock();
  Device.Write(Device.R.PECR, 4);
  Device.Write(OPTIONS + 4, 0);
  EXPECT_EQ(0x100u, Device.Errors());
  Device.Write(Device.R.SR, 0x100);
  Device.Unlock();
  Device.Write(OPTIONS + 4, 0);
  EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1);
}

TEST(SimFlashL0, OptionsAreLoadedByLaunchAndPowerOnAndNotByReset) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.Option(0, 0xFF4400BB);
    Device.Reset();
    EXPECT_EQ(0, Device.Level()) << sName;
    Device.Unlock();
    Device.Launch();
    EXPECT_EQ(1, Device.Level()) << sName;
    EXPECT_EQ(7u, Device.Read(Device.R.PECR)) << sName;  // it was a reset
    EXPECT_FALSE(Device.Device.CoreHalted());
    EXPECT_FALSE(Device.FlashErased());
    Device.Unlock();
    Device.Option(0, 0xFF5500AA);
    Device.Reset();
    EXPECT_EQ(1, Device.Level()) << sName;  // the launch loaded once, a reset does not
    EXPECT_EQ(0, Device.Device.Flash().StoredLevel()) << sName;
    EXPECT_FALSE(Device.Device.Flash().Remarks().empty());
    Device.PowerCycle();
    EXPECT_EQ(0, Device.Level()) << sName;
  }
}

TEST(SimFlashL0, WhatIsLoadedStaysOverAReset) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {0, 17, 47};
  PartL Device("STM32L073", Request);
  EXPECT_EQ(0x00020001u, Device.Read(Device.R.WRPROT));
  EXPECT_EQ(0x8000u, Device.Read(0x40022080));
  Device.Unlock();
  Device.Option(4, 0xFFFF0000);
  Device.Option(8, 0xFFFF0000);
  Device.Reset();
  EXPECT_EQ(0x807000AAu, Device.Read(Device.R.OPTR));
  EXPECT_EQ(0x00020001u, Device.Read(Device.R.WRPROT));
  EXPECT_EQ(0x8000u, Device.Read(0x40022080));
  Device.PowerCycle();
  EXPECT_EQ(0x000000AAu, Device.Read(Device.R.OPTR));
  EXPECT_EQ(0x00020000u, Device.Read(Device.R.WRPROT));
}

TEST(SimFlashL0, TheUpperWordsOfABigL1AreLoadedToTheirRegisters) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {15, 16, 32, 63, 64, 80, 96, 127};
  PartL Device("STM32L152xE", Request);
  EXPECT_EQ(0x00018000u, Device.Read(0x40023C20));
  EXPECT_EQ(0x80000001u, Device.Read(0x40023C80));
  EXPECT_EQ(0x00010001u, Device.Read(0x40023C84));
  EXPECT_EQ(0x80000001u, Device.Read(0x40023C88));
  EXPECT_EQ(0x7FFF8000u, Device.Read(OPTIONS + 0x84));
}

TEST(SimFlashL0, LaunchNeedsPecrOpen) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Option(0, 0xFF4400BB);
  Device.Write(Device.R.PECR, 7);
  Device.Launch();
  EXPECT_EQ(0, Device.Level());
}

TEST(SimFlashL0, TheLaunchTransferMayFailAlthoughItWorked) {
  PartL Device("STM32L073");
  EXPECT_TRUE(Device.Device.SetVariant("obl_transfer_fails", 1));
  Device.Unlock();
  Device.Option(0, 0xFF4400BB);
  EXPECT_FALSE(Device.TryWrite(Device.R.PECR, 0x40000));
  EXPECT_EQ(1, Device.Level());
}

TEST(SimFlashL0, AtLevel1FlashAndEepromAreClosed) {
  for (const char* sName : aDevices) {
    PartL Device(sName, AtLevel(1));
    EXPECT_FALSE(Device.CanRead(FLASH));
    EXPECT_FALSE(Device.CanRead(EEPROM));
    EXPECT_TRUE(Device.CanRead(OPTIONS));
    EXPECT_TRUE(Device.CanRead(0x20000000));
    Device.Unlock();
    Device.UnlockProgram();
    EXPECT_FALSE(Device.TryWrite(EEPROM, 0));
    EXPECT_FALSE(Device.TryWrite(FLASH, 0));
    EXPECT_FALSE(Device.Device.Flash().Busy());
  }
}

TEST(SimFlashL0, OneToZeroErasesFlashAndEepromWithThatWrite) {
  for (const char* sName : aDevices) {
    PartL Device(sName, AtLevel(1));
    Device.Unlock();
    Device.Write(OPTIONS, 0xFF5500AA);
    Device.WaitUs(59999);
    EXPECT_FALSE(Device.FlashErased()) << sName;
    Device.WaitUs(1);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1) << sName;  // the word itself comes behind
    Device.Finish();
    EXPECT_EQ(0xFF5500AAu, Device.Read(OPTIONS)) << sName;
    EXPECT_TRUE(Device.FlashErased()) << sName;
    EXPECT_TRUE(Device.Erased(sim::EEPROM)) << sName;
    EXPECT_FALSE(Device.CanRead(FLASH));  // until loaded
    Device.Launch();
    EXPECT_EQ(0u, Device.Read(FLASH));  // erased is zero on these families
  }
}

TEST(SimFlashL0, OneToZeroTakesTheOtherWordsAlongOnL1Only) {
  PartL L152("STM32L152", AtLevel(1));
  L152.Unlock();
  L152.Option(0, 0xFF5500AA);
  EXPECT_EQ(0xFF5500AAu, L152.Read(OPTIONS));
  EXPECT_EQ(0u, L152.Read(OPTIONS + 4));
  EXPECT_EQ(0u, L152.Read(OPTIONS + 8));
  L152.Launch();
  EXPECT_EQ(0x800u, L152.Read(L152.R.SR) & 0x800);
  EXPECT_EQ(0x007800AAu, L152.Read(L152.R.OPTR));
  EXPECT_EQ(0u, L152.Read(L152.R.WRPROT));
  PartL L073("STM32L073", AtLevel(1));
  L073.Unlock();
  L073.Option(0, 0xFF5500AA);
  EXPECT_EQ(0x7F8F8070u, L073.Read(OPTIONS + 4));
  EXPECT_EQ(0xFFFF0000u, L073.Read(OPTIONS + 8));
  L073.Launch();
  EXPECT_EQ(0u, L073.Errors());
}

TEST(SimFlashL0, WriteProtectionDoesNotStopTheEraseThatUnprotects) {
  for (const char* sName : aDevices) {
    sim::CREATE_REQUEST Request = AtLevel(1);
    Request.WrpAll              = true;
    PartL Device(sName, Request);
    Device.Unlock();
    Device.Option(0, 0xFF5500AA);
    EXPECT_TRUE(Device.FlashErased()) << sName;
  }
}

TEST(SimFlashL0, OtherValuesAtLevel1EraseNothing) {
  for (const char* sName : aDevices) {
    PartL Device(sName, AtLevel(1));
    Device.Unlock();
    for (const uint32_t Value : {0x00000000u, 0xFF4400BBu, 0xFF5400AAu, 0xFF5500ABu}) {
      Device.Option(0, Value);
    }
    Device.Option(4, 0xFF5500AA);
    EXPECT_FALSE(Device.FlashErased()) << sName;
  }
}

TEST(SimFlashL0, AtLevel0WritingLevel0AgainErasesNothing) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.Option(0, 0);
    Device.Option(0, 0xFF5500AA);
    Device.Launch();
    EXPECT_FALSE(Device.FlashErased());
    EXPECT_EQ(0, Device.Level());
  }
  for (const char* sName : aDevices) {
    PartL Erratum(sName);
    EXPECT_TRUE(Erratum.Device.SetVariant("l1_erratum_mass_erase", 1));
    Erratum.Unlock();
    Erratum.Option(0, 0xFF5500AA);
    EXPECT_EQ(IsL1(sName), Erratum.FlashErased()) << sName;
  }
}

TEST(SimFlashL0, ZeroInTheFirstWordIsLevel1WithAMismatch) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Option(0, 0);
  Device.Launch();
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(0x800u, Device.Read(Device.R.SR) & 0x800);
  EXPECT_EQ(0x100u, Device.Read(Device.R.OPTR) & 0x100);  // WPRMOD by default
  PartL Big("STM32L152xE");
  Big.Unlock();
  Big.Option(0, 0);
  Big.Launch();
  EXPECT_EQ(1, Big.Level());
  EXPECT_EQ(0u, Big.Read(Big.R.OPTR) & 0x100);  // which a big L1 does not have
}

TEST(SimFlashL0, AWrongComplementOfTheFirstWordIsLevel1) {
  for (const char* sName : aDevices) {
    for (const uint32_t Value : {0xFF5400AAu, 0xFF5501AAu, 0x005500AAu, 0xFF3200CCu}) {
      PartL Device(sName);
      Device.Corrupt("OPTION_RDP", Value);
      EXPECT_EQ(1, Device.Device.Flash().StoredLevel());
      Device.PowerCycle();
      EXPECT_EQ(1, Device.Level()) << sName;
      EXPECT_EQ(0x800u, Device.Errors()) << sName;
      EXPECT_FALSE(Device.Device.Flash().Remarks().empty());
    }
  }
}

TEST(SimFlashL0, OptverrComesBackAtEachLoad) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Option(4, 0);
  EXPECT_EQ(0u, Device.Errors());
  Device.Launch();
  EXPECT_EQ(0x800u, Device.Errors());
  Device.Write(Device.R.SR, 0x800);
  EXPECT_EQ(0u, Device.Errors());
  Device.PowerCycle();
  EXPECT_EQ(0x800u, Device.Errors());
  Device.Unlock();
  Device.Option(4, 0x7F8F8070);
  Device.Launch();
  EXPECT_EQ(0u, Device.Errors());
  EXPECT_TRUE(Device.Device.Flash().Remarks().empty());
}

TEST(SimFlashL0, AMismatchOfAWriteProtectionWordMeansAllProtectedOnL0) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Option(8, 0);
  Device.Launch();
  EXPECT_EQ(0xFFFFu, Device.Read(Device.R.WRPROT));
}

TEST(SimFlashL0, Level2IsTheValueCCWithItsComplement) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.Option(0, 0xFF3300CC);
    EXPECT_EQ(2, Device.Device.Flash().StoredLevel());
    Device.Option(0, 0xFF5500AA);  // written and not loaded: can still be taken back
    Device.Launch();
    EXPECT_EQ(0, Device.Level());
    Device.Unlock();
    Device.Option(0, 0xFF3300CC);
    Device.Launch();
    EXPECT_EQ(2, Device.Level());
    EXPECT_FALSE(Device.CanRead(OPTIONS));
    EXPECT_FALSE(Device.TryWrite(Device.R.PEKEYR, 0x89ABCDEF));
  }
}

static sim::CREATE_REQUEST Pcrop(uint32_t Level) {
  sim::CREATE_REQUEST Request;
  Request.Level = Level;
  Request.Pcrop = {0};
  return Request;
}

TEST(SimFlashL0, PcropHidesItsSectors) {
  PartL L073("STM32L073", Pcrop(0));
  EXPECT_EQ(0u, L073.Read(FLASH));
  EXPECT_EQ(0x2000u, L073.Read(L073.R.SR) & 0x2000);  // RDERR
  EXPECT_EQ(0x12345678u, L073.Read(FLASH + 4096));
  PartL L152("STM32L152", Pcrop(0));
  EXPECT_FALSE(L152.CanRead(FLASH));
  EXPECT_TRUE(L152.CanRead(FLASH + 4096));
  EXPECT_EQ(0xCu, L152.Read(L152.R.SR));  // and no flag for it
}

TEST(SimFlashL0, PcropSectorsCanBeAddedAndNotTakenAway) {
  for (const char* sName : aPcropDevices) {
    for (const uint32_t Level : {0u, 1u}) {
      sim::CREATE_REQUEST Request = Pcrop(Level);
      Request.Pcrop               = {0, 3};
      PartL       Device(sName, Request);
      std::string sEvents;
      Device.Device.OnEvent = [&sEvents](const std::string& sText) { sEvents += sText; };
      Device.Unlock();
      Device.Option(8, 0xFFFE0001);
      EXPECT_NE(std::string::npos, sEvents.find("write refused")) << sName;
      EXPECT_EQ(0x100u, Device.Errors()) << sName;
      EXPECT_EQ(0xFFF60009u, Device.Read(OPTIONS + 8)) << sName;
      Device.Write(Device.R.SR, 0x100);
      Device.Option(8, 0xFFF0000F);
      Device.Option(4, 0xFF8F0070);  // no word of sectors
      EXPECT_EQ(0u, Device.Errors()) << sName;
      Device.Launch();
      EXPECT_EQ(0xFu, Device.Read(Device.R.WRPROT)) << sName;
    }
  }
  // The second register.
  sim::CREATE_REQUEST Far = Pcrop(0);
  Far.Pcrop               = {32};
  PartL L073("STM32L073", Far);
  L073.Unlock();
  L073.Option(16, 0xFFFF0000);
  EXPECT_EQ(0x100u, L073.Errors());
  L073.Write(L073.R.SR, 0x100);
  L073.Option(8, 0xFFFE0001);
  EXPECT_EQ(0u, L073.Errors());
  // The upper half of the register.
  sim::CREATE_REQUEST Request = Pcrop(0);
  Request.Pcrop               = {16};
  PartL L152("STM32L152", Request);
  L152.Unlock();
  L152.Option(12, 0xFFFF0000);
  EXPECT_EQ(0x100u, L152.Errors());
  L152.Write(L152.R.SR, 0x100);
  L152.Option(8, 0xFFFE0001);
  EXPECT_EQ(0u, L152.Errors());
  // Words that mean nothing are free.
  PartL L053("STM32L053", Pcrop(0));
  L053.Unlock();
  L053.Option(12, 0x00000000);
  EXPECT_EQ(0u, L053.Errors());
  // Without PCROP sectors come and go.
  sim::CREATE_REQUEST Wrp;
  Wrp.Wrp = {0};
  PartL Free("STM32L073", Wrp);
  Free.Unlock();
  Free.Option(8, 0xFFFF0000);
  EXPECT_EQ(0u, Free.Errors());
  EXPECT_EQ(0xFFFF0000u, Free.Read(OPTIONS + 8));
}

TEST(SimFlashL0, PcropCanBeSwitchedOnAtAnyTime) {
  for (const uint32_t Level : {0u, 1u}) {
    PartL Device("STM32L152", AtLevel(Level));
    Device.Unlock();
    Device.Option(0, 0xFE4401BB);
    Device.Launch();
    EXPECT_EQ(0x100u, Device.Read(Device.R.OPTR) & 0x100);
    EXPECT_FALSE(Device.FlashErased());
  }
}

TEST(SimFlashL0, ABigL1HasNoPcrop) {
  PartL Device("STM32L152xE");
  Device.Unlock();
  Device.Option(8, 0xFFFE0001);
  Device.Option(0, 0xFE5501AA);
  Device.Launch();
  EXPECT_EQ(0, Device.Level());
  EXPECT_EQ(0x00F800AAu, Device.Read(Device.R.OPTR));
  EXPECT_TRUE(Device.CanRead(FLASH));
  Device.Unlock();
  Device.Option(0, 0xFF5500AA);
  Device.Option(8, 0xFFFF0000);
  EXPECT_EQ(0u, Device.Errors());
}

TEST(SimFlashL0, AtLevel0PcropIsNotLiftedButAMoveToLevel1IsAccepted) {
  for (const char* sName : aPcropDevices) {
    PartL Device(sName, Pcrop(0));
    Device.Unlock();
    Device.Option(0, 0xFF5500AA);
    EXPECT_EQ(0x100u, Device.Read(Device.R.SR) & 0x100) << sName;
    EXPECT_EQ(0xFE5501AAu, Device.Read(OPTIONS)) << sName;
    Device.Write(Device.R.SR, 0x100);
    Device.Option(0, 0);
    EXPECT_EQ(0u, Device.Read(Device.R.SR) & 0x100) << sName;
    EXPECT_EQ(0u, Device.Read(OPTIONS)) << sName;
  }
}

TEST(SimFlashL0, EveryWriteThatLiftsPcropIsRefusedWhereThatVariantIsChosen) {
  PartL Device("STM32L073", Pcrop(0));
  EXPECT_TRUE(Device.Device.SetVariant("l0_l1_refuse_pcrop_clear", 1));
  Device.Unlock();
  Device.Option(0, 0);
  EXPECT_EQ(0x100u, Device.Read(Device.R.SR) & 0x100);
  EXPECT_EQ(0xFE5501AAu, Device.Read(OPTIONS));
}

// The erase takes the flag along even where the word that is written has it.
TEST(SimFlashL0, OneToZeroLiftsPcrop) {
  for (const char* sName : aPcropDevices) {
    for (const uint32_t Value : {0xFF5500AAu, 0xFE5501AAu}) {
      PartL Device(sName, Pcrop(1));
      Device.Unlock();
      Device.Option(0, Value);
      EXPECT_EQ(0xFF5500AAu, Device.Read(OPTIONS)) << sName;
      Device.Launch();
      EXPECT_EQ(0u, Device.Read(Device.R.OPTR) & 0x100) << sName;
      EXPECT_TRUE(Device.FlashErased());
    }
  }
}

TEST(SimFlashL0, SpareWordsOfSmallL0TakeWritesUnlessTheVariantSaysNo) {
  PartL Device("STM32L053");
  Device.Unlock();
  Device.Option(0x10, 0xFFFF0000);
  EXPECT_EQ(0xFFFF0000u, Device.Read(OPTIONS + 0x10));
  Device.Option(0x0C, 0x0000FFFF);
  Device.Launch();
  EXPECT_EQ(0u, Device.Read(Device.R.SR) & 0x800);
  EXPECT_EQ(0u, Device.Read(Device.R.WRPROT));
  PartL Closed("STM32L053");
  EXPECT_TRUE(Closed.Device.SetVariant("l0_spare_words_writable", 0));
  Closed.Unlock();
  EXPECT_EQ(0xFFFFFFFFu, Closed.Read(OPTIONS + 0x0C));
  Closed.Option(0x10, 0xFFFF0000);
  EXPECT_EQ(0x100u, Closed.Errors());
  EXPECT_EQ(0xFFFFFFFFu, Closed.Read(OPTIONS + 0x10));
  EXPECT_EQ(0xFFFF0000u, Closed.Read(OPTIONS + 0x08));
}

TEST(SimFlashL0, PecrOfL1ChangesOnlyWhileIdle) {
  PartL Device("STM32L152");
  Device.Unlock();
  Device.Write(OPTIONS + 8, 0);
  Device.Write(Device.R.PECR, 7);
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  PartL L0("STM32L073");
  L0.Unlock();
  L0.Write(OPTIONS + 8, 0);
  L0.Write(L0.R.PECR, 7);
  EXPECT_EQ(7u, L0.Read(L0.R.PECR));
}

TEST(SimFlashL0, APowerCutDuringAWordLeavesItErased) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Write(OPTIONS, 0xFF5500AA);
  Device.Wait(1);
  Device.PowerCycle();
  EXPECT_EQ(0u, Device.Read(OPTIONS));
  EXPECT_EQ(1, Device.Level());
}

TEST(SimFlashL0, AMassEraseThatIsCutShortLeavesLevel1) {
  for (const char* sName : aDevices) {
    PartL          Device(sName, AtLevel(1));
    const uint32_t Bytes = Device.Device.FindMemory(sim::MAIN_FLASH)->Row().Bytes;
    Device.Unlock();
    Device.Write(OPTIONS, 0xFF5500AA);
    Device.Wait(1);
    Device.Reset();
    EXPECT_EQ(0xFF4400BBu, Device.Read(OPTIONS)) << sName;
    EXPECT_EQ(1, Device.Level()) << sName;
    EXPECT_EQ(Bytes / 2, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse()) << sName;
    EXPECT_FALSE(Device.Erased(sim::EEPROM)) << sName;
  }
}

TEST(SimFlashL0, ThereIsNoDebugBlockOfL0AtThePlaceOfTheOthers) {
  PartL Device("STM32L073");
  EXPECT_FALSE(Device.TryWrite(0xE0042008, 0x1800));
  EXPECT_TRUE(Device.Device.SetVariant("unassigned_faults", 0));
  EXPECT_TRUE(Device.TryWrite(0xE0042008, 0x1800));
  EXPECT_EQ(0u, Device.Read(0xE0042008));
  Device.Write(0x40021034, 1u << 22);
  Device.Write(0x40015808, 0x1800);
  EXPECT_EQ(0x1800u, Device.Read(0x40015808));
}

TEST(SimFlashL0, AHardwareWatchdogIsNotFrozenByThatAddress) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.User                = 0x8060;  // WDG_SW 0
  PartL Device("STM32L073", Request);
  Device.TryWrite(0xE0042008, 0x1800);
  Device.Reset();
  Device.Unlock();
  Device.Wait(442);
  EXPECT_EQ(0, Device.Device.WatchdogResets());
  Device.Wait(2);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
  PartL Software("STM32L073", AtLevel(1));
  Software.Wait(5000);
  EXPECT_EQ(0, Software.Device.WatchdogResets());
}

TEST(SimFlashL0, AHardwareWatchdogIsFrozenByItsBitWithTheCoreHalted) {
  for (const char* sName : aDevices) {
    sim::CREATE_REQUEST Request = AtLevel(1);
    Request.User                = IsL1(sName) ? 0x68 : 0x8060;
    PartL          Device(sName, Request);
    const uint32_t Freeze = IsL1(sName) ? 0xE0042008 : 0x40015808;
    if (!IsL1(sName)) {
      Device.Write(0x40021034, 1u << 22);
    }
    Device.Write(Freeze, 1u << 12);
    Device.Reset();
    Device.Wait(5000);
    EXPECT_EQ(0, Device.Device.WatchdogResets()) << sName;
    EXPECT_EQ(1u << 12, IsL1(sName) ? Device.Read(Freeze) : 1u << 12) << sName;
    if (IsL1(sName)) {
      Device.Write(Freeze, ~(1u << 12));
      Device.Reset();
      Device.Wait(442);
      EXPECT_EQ(0, Device.Device.WatchdogResets()) << sName;
      Device.Wait(2);
      EXPECT_EQ(1, Device.Device.WatchdogResets()) << sName;
    }
  }
}

TEST(SimFlashL0, EepromIsWrittenOncePelockIsOpen) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Write(EEPROM, 0xCAFEBABE);
    EXPECT_EQ(0x100u, Device.Errors()) << sName;
    Device.Write(Device.R.SR, 0x100);
    Device.Write(Device.R.PEKEYR, 0x89ABCDEF);
    Device.Write(Device.R.PEKEYR, 0x02030405);
    Device.Write(EEPROM, 0xCAFEBABE);
    Device.WaitUs(6399);  // erase and program
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1) << sName;
    Device.Finish();
    EXPECT_EQ(0xCAFEBABEu, Device.Read(EEPROM)) << sName;
    EXPECT_TRUE(Device.TryWrite(EEPROM + 1, 0x12, 1));
    Device.Finish();
    EXPECT_TRUE(Device.TryWrite(EEPROM + 2, 0x3456, 2));
    Device.Finish();
    EXPECT_EQ(0x345612BEu, Device.Read(EEPROM)) << sName;
    EXPECT_EQ(0u, Device.Errors()) << sName;
  }
}

TEST(SimFlashL0, FlashIsProgrammedOncePrglockIsOpen) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.Write(FLASH, 1);
    EXPECT_EQ(0x100u, Device.Errors()) << sName;
    Device.Write(Device.R.SR, 0x100);
    Device.UnlockProgram();
    Device.Device.FindMemory(sim::MAIN_FLASH)->Erase();
    EXPECT_TRUE(Device.TryWrite(FLASH, 1, 2));
    EXPECT_EQ(0x400u, Device.Errors()) << sName;
    Device.Write(Device.R.SR, 0x400);
    Device.Write(FLASH, 0xCAFEBABE);
    Device.WaitUs(3199);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1) << sName;
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(Device.R.SR) & 1) << sName;
    EXPECT_EQ(0xCAFEBABEu, Device.Read(FLASH)) << sName;
    Device.Write(FLASH, 1);  // no longer erased
    EXPECT_EQ(IsL1(sName) ? 0x100u : 0x10000u, Device.Errors()) << sName;
    EXPECT_EQ(0xCAFEBABEu, Device.Read(FLASH)) << sName;
  }
}

// ERASE with PROG: the page in which a word is written, whatever the word.
TEST(SimFlashL0, APageOfFlashIsErasedByRequest) {
  for (const char* sName : aDevices) {
    const uint32_t Page = IsL1(sName) ? 256 : 128;
    PartL          Device(sName);
    Device.Unlock();
    Device.UnlockProgram();
    for (const uint32_t Half : {0x200u, 0x8u}) {  // neither bit is a request by itself
      Device.Write(Device.R.PECR, Half);
      Device.Write(FLASH + 2 * Page, 0);
      EXPECT_EQ(IsL1(sName) ? 0x100u : 0x10000u, Device.Errors()) << sName;
      Device.Write(Device.R.SR, 0x10100);
    }
    Device.Write(Device.R.PECR, 0x208);
    EXPECT_TRUE(Device.TryWrite(FLASH + 2 * Page, 0, 2));
    EXPECT_EQ(0x400u, Device.Errors()) << sName;
    Device.Write(Device.R.SR, 0x400);
    const uint32_t Before = Device.Read(FLASH + 2 * Page - 4);
    const uint32_t Behind = Device.Read(FLASH + 3 * Page);
    Device.Write(FLASH + 3 * Page - 4, 0x12345678);
    Device.WaitUs(3199);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1) << sName;
    Device.WaitUs(1);
    EXPECT_EQ(2u, Device.Read(Device.R.SR) & 3) << sName;  // EOP
    for (uint32_t Offset = 2 * Page; Offset < 3 * Page; Offset += 4) {
      EXPECT_EQ(0u, Device.Read(FLASH + Offset)) << sName << " " << Offset;
    }
    EXPECT_NE(0u, Before);
    EXPECT_EQ(Before, Device.Read(FLASH + 2 * Page - 4)) << sName;
    EXPECT_NE(0u, Behind);
    EXPECT_EQ(Behind, Device.Read(FLASH + 3 * Page)) << sName;
  }
}

TEST(SimFlashL0, AnErasedPageIsLostAlsoWhenTheEraseIsCutShort) {
  PartL Device("STM32L053");
  Device.Unlock();
  Device.UnlockProgram();
  Device.Write(Device.R.PECR, 0x208);
  Device.Write(FLASH, 0);
  Device.Device.SystemReset(false, "test");
  EXPECT_EQ(0u, Device.Read(FLASH));
  EXPECT_EQ(0u, Device.Read(FLASH + 124));
  EXPECT_NE(0u, Device.Read(FLASH + 128));
}

TEST(SimFlashL0, AProtectedSectorIsNotErasedByRequest) {
  sim::CREATE_REQUEST Request;
  Request.WrpAll = true;
  PartL Device("STM32L152", Request);
  Device.Unlock();
  Device.UnlockProgram();
  Device.Write(Device.R.PECR, 0x208);
  Device.Write(FLASH, 0);
  EXPECT_EQ(0x100u, Device.Errors());
  Device.Finish();
  EXPECT_NE(0u, Device.Read(FLASH));
}

// ERASE with DATA: one word, in one phase.
TEST(SimFlashL0, AWordOfEepromIsErasedByRequest) {
  for (const char* sName : aDevices) {
    PartL Device(sName);
    Device.Unlock();
    Device.Write(EEPROM, 0x11223344);
    Device.Finish();
    Device.Write(EEPROM + 4, 0x55667788);
    Device.Finish();
    Device.Write(Device.R.PECR, 0x210);
    EXPECT_TRUE(Device.TryWrite(EEPROM + 2, 0xFFFF, 2));
    Device.WaitUs(3199);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1) << sName;
    Device.WaitUs(1);
    EXPECT_EQ(0u, Device.Read(EEPROM)) << sName;
    EXPECT_EQ(0x55667788u, Device.Read(EEPROM + 4)) << sName;
    Device.Write(Device.R.PECR, 0x200);
    Device.Write(EEPROM + 4, 7);
    Device.Finish();
    EXPECT_EQ(7u, Device.Read(EEPROM + 4)) << sName;
  }
}

TEST(SimFlashL0, AProtectedSectorIsNotProgrammed) {
  const struct {
    const char* sName;
    uint32_t    Sector;
  } aRows[] = {{"STM32L053", 15},   {"STM32L073", 16},    {"STM32L073", 47},
               {"STM32L152", 31},   {"STM32L152xE", 100}, {"STM32L152xE", 127},
               {"STM32L152xE", 32}, {"STM32L152xE", 64}};
  for (const auto& Row : aRows) {
    sim::CREATE_REQUEST Request;
    Request.Wrp = {Row.Sector};
    PartL          Device(Row.sName, Request);
    const uint32_t Bytes = Device.Device.FindMemory(sim::MAIN_FLASH)->Row().Bytes;
    const uint32_t First = 4096 * Row.Sector, End = First + 4096;
    Device.Device.FindMemory(sim::MAIN_FLASH)->Erase();
    Device.Unlock();
    Device.UnlockProgram();
    for (const uint32_t Offset : {First - 4, First, End - 4, End}) {
      if (Offset >= Bytes) {
        continue;
      }
      Device.Write(FLASH + Offset, 1);
      Device.Finish();
      EXPECT_EQ(Offset >= First && Offset < End ? 0x100u : 0u, Device.Errors())
          << Row.sName << " " << Offset;
      Device.Write(Device.R.SR, 0x100);
      EXPECT_TRUE(Device.CanRead(FLASH + Offset));  // protected from writing, and from that only
    }
  }
}

// Beyond the last register of sector bits nothing is protected.
TEST(SimFlashL0, WhatHasNoSectorBitIsFree) {
  sim::CREATE_REQUEST Request;
  Request.WrpAll = true;
  PartL Device("STM32L053", Request);
  EXPECT_EQ(0xFFFFu, Device.Read(Device.R.WRPROT));
  EXPECT_EQ(0u, Device.Read(0x40022080));
}

TEST(SimFlashL0, ADeviceIsFoundAsItWasLeft) {
  PartL Device("STM32L073", AtLevel(1));
  Device.Unlock();
  Device.UnlockProgram();
  Device.Option(0, 0);
  PartL Other("STM32L073");
  Device.CopyTo(&Other);
  EXPECT_EQ(1, Other.Level());
  EXPECT_EQ(0u, Other.Read(Other.R.PECR));
  EXPECT_FALSE(Other.TryWrite(FLASH, 0));
  Other.Write(OPTIONS, 0xFF5500AA);
  PartL Third("STM32L073");
  Other.CopyTo(&Third);  // what ran is done by then
  EXPECT_TRUE(Third.FlashErased());
  EXPECT_EQ(0xFF5500AAu, Third.Read(OPTIONS));
  // Keys go on where they were.
  PartL Half("STM32L073");
  Half.Write(Half.R.PEKEYR, 0x89ABCDEF);
  PartL Fourth("STM32L073");
  Half.CopyTo(&Fourth);
  Fourth.Write(Fourth.R.PEKEYR, 0x02030405);
  EXPECT_EQ(6u, Fourth.Read(Fourth.R.PECR));
  Fourth.Write(Fourth.R.OPTKEYR, 0xFBEAD9C8);
  Fourth.Write(Fourth.R.PRGKEYR, 0x8C9DAEBF);
  PartL Fifth("STM32L073");
  Fourth.CopyTo(&Fifth);
  Fifth.Write(Fifth.R.OPTKEYR, 0x24252627);
  Fifth.Write(Fifth.R.PRGKEYR, 0x13141516);
  EXPECT_EQ(0u, Fifth.Read(Fifth.R.PECR));
}

TEST(SimFlashL0, StatesThatDoNotExistAreRefused) {
  const struct {
    const char* sName;
    uint32_t    NumSectors;
  } aRows[] = {{"STM32L053", 16}, {"STM32L073", 48}, {"STM32L152", 32}, {"STM32L152xE", 128}};
  for (const auto& Row : aRows) {
    sim::CREATE_REQUEST Secure, Choice, Sector, Area, Both;
    Secure.Secure   = true;
    Choice.PcropRdp = 1;
    Sector.Wrp      = {Row.NumSectors};
    Area.Pcrop      = {Row.NumSectors};
    Both.Pcrop      = {0};
    Both.Wrp        = {1};
    for (const sim::CREATE_REQUEST& Request : {Secure, Choice, Sector, Area, Both}) {
      ExpectRefused(Row.sName, Request);
    }
    Both.Wrp.clear();
    Both.WrpAll = true;
    ExpectRefused(Row.sName, Both);
    sim::CREATE_REQUEST Last;
    Last.Wrp = {Row.NumSectors - 1};
    PartL Device(Row.sName, Last);
    EXPECT_TRUE(Device.Device.Flash().Remarks().empty());
  }
  sim::CREATE_REQUEST Pcrop;
  Pcrop.PcropAll = true;
  ExpectRefused("STM32L152xE", Pcrop);
  PartL All("STM32L152", Pcrop);
  EXPECT_EQ(0xFFFFFFFFu, All.Read(All.R.WRPROT));
  sim::CREATE_REQUEST Mismatch;
  Mismatch.sMismatch = "user";
  PartL User("STM32L152", Mismatch);
  EXPECT_EQ(0x800u, User.Errors());
  EXPECT_EQ(0, User.Level());
  Mismatch.sMismatch = "rdp";
  PartL Rdp("STM32L152", Mismatch);
  EXPECT_EQ(1, Rdp.Level());
  sim::CREATE_REQUEST Byte;
  Byte.Rdp = 0x112;
  PartL Other("STM32L152", Byte);
  EXPECT_EQ(0xFFED0012u, Other.Read(OPTIONS));
}
