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

  Regs R;
};

static const char* const aDevices[] = {"STM32L053", "STM32L073", "STM32L152"};

TEST(SimFlashL0, RegistersHaveTheirResetValues) {
  PartL L073("STM32L073");
  EXPECT_EQ(0x447u, L073.Read(0x40015800) & 0xFFF);
  EXPECT_EQ(0x7u, L073.Read(L073.R.PECR));
  EXPECT_EQ(0x4u, L073.Read(L073.R.SR));
  EXPECT_EQ(0x807000AAu, L073.Read(L073.R.OPTR));
  EXPECT_EQ(0u, L073.Read(L073.R.WRPROT));
  PartL L152("STM32L152");
  EXPECT_EQ(0x429u, L152.Read(0xE0042000) & 0xFFF);
  EXPECT_EQ(0x7u, L152.Read(L152.R.PECR));
  EXPECT_EQ(0xCu, L152.Read(L152.R.SR));
  EXPECT_EQ(0x007800AAu, L152.Read(L152.R.OPTR));
  EXPECT_EQ(0x417u, PartL("STM32L053").Read(0x40015800) & 0xFFF);
}

TEST(SimFlashL0, DeliveredOptionWords) {
  PartL L073("STM32L073");
  EXPECT_EQ(0xFF5500AAu, L073.Read(OPTIONS));
  EXPECT_EQ(0x7F8F8070u, L073.Read(OPTIONS + 4));
  for (uint32_t Offset = 8; Offset <= 16; Offset += 4) {
    EXPECT_EQ(0xFFFF0000u, L073.Read(OPTIONS + Offset));
  }
  PartL L152("STM32L152");
  EXPECT_EQ(0xFF870078u, L152.Read(OPTIONS + 4));
  EXPECT_EQ(0xFF0700F8u, PartL("STM32L152xE").Read(OPTIONS + 4));
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

TEST(SimFlashL0, LockBitsAreSetBySoftwareAndNotCleared) {
  PartL Device("STM32L053");
  Device.Unlock();
  Device.Write(Device.R.PECR, 0);
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
  Device.Write(Device.R.PECR, 7);
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
  Device.Unlock();
  EXPECT_EQ(2u, Device.Read(Device.R.PECR));
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
    PartL Device(sName);
    Device.Unlock();
    Device.Write(OPTIONS + 8, 0x0000FFFF);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1);
    EXPECT_EQ(0xFFFF0000u, Device.Read(OPTIONS + 8));
    Device.Wait(6);  // two phases of 3.2 ms
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1);
    Device.Wait(1);
    EXPECT_EQ(0u, Device.Read(Device.R.SR) & 1);
    EXPECT_EQ(0x0000FFFFu, Device.Read(OPTIONS + 8));
  }
}

TEST(SimFlashL0, TheErasePhaseIsLeftOutOverZero) {
  PartL Device("STM32L152");
  Device.Unlock();
  Device.Option(8, 0);
  Device.Write(OPTIONS + 8, 0xFFFF0000);
  Device.Wait(4);
  EXPECT_EQ(0u, Device.Read(Device.R.SR) & 1);
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
  EXPECT_EQ(0x400u, Device.Read(Device.R.SR) & 0x400);
  EXPECT_EQ(0x7F8F8070u, Device.Read(OPTIONS + 4));
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
  }
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
  }
}

TEST(SimFlashL0, OneToZeroErasesFlashAndEepromWithThatWrite) {
  for (const char* sName : aDevices) {
    PartL Device(sName, AtLevel(1));
    Device.Unlock();
    Device.Write(OPTIONS, 0xFF5500AA);
    Device.Wait(40);
    EXPECT_EQ(1u, Device.Read(Device.R.SR) & 1) << sName;
    Device.Finish();
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
  PartL Erratum("STM32L152");
  EXPECT_TRUE(Erratum.Device.SetVariant("l1_erratum_mass_erase", 1));
  Erratum.Unlock();
  Erratum.Option(0, 0xFF5500AA);
  EXPECT_TRUE(Erratum.FlashErased());
}

TEST(SimFlashL0, ZeroInTheFirstWordIsLevel1WithAMismatch) {
  PartL Device("STM32L073");
  Device.Unlock();
  Device.Option(0, 0);
  Device.Launch();
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(0x800u, Device.Read(Device.R.SR) & 0x800);
  EXPECT_EQ(0x100u, Device.Read(Device.R.OPTR) & 0x100);  // WPRMOD by default
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
    EXPECT_TRUE(Device.CanRead(OPTIONS));  // written and not loaded: can still be taken back
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
}

TEST(SimFlashL0, AtLevel0PcropIsNotLiftedButAMoveToLevel1IsAccepted) {
  for (const char* sName : aDevices) {
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

TEST(SimFlashL0, OneToZeroLiftsPcrop) {
  for (const char* sName : aDevices) {
    PartL Device(sName, Pcrop(1));
    Device.Unlock();
    Device.Option(0, 0xFF5500AA);
    Device.Launch();
    EXPECT_EQ(0u, Device.Read(Device.R.OPTR) & 0x100) << sName;
    EXPECT_TRUE(Device.FlashErased());
  }
}

TEST(SimFlashL0, SpareWordsOfSmallL0TakeWritesUnlessTheVariantSaysNo) {
  PartL Device("STM32L053");
  Device.Unlock();
  Device.Option(0x10, 0xFFFF0000);
  EXPECT_EQ(0xFFFF0000u, Device.Read(OPTIONS + 0x10));
  Device.Launch();
  EXPECT_EQ(0u, Device.Read(Device.R.SR) & 0x800);
  PartL Closed("STM32L053");
  EXPECT_TRUE(Closed.Device.SetVariant("l0_spare_words_writable", 0));
  Closed.Unlock();
  Closed.Option(0x10, 0xFFFF0000);
  EXPECT_EQ(0xFFFFFFFFu, Closed.Read(OPTIONS + 0x10));
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
  Device.Wait(600);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  EXPECT_EQ(7u, Device.Read(Device.R.PECR));
}

TEST(SimFlashL0, EepromTakesWordsOncePelockIsOpen) {
  PartL Device("STM32L053");
  Device.Write(EEPROM, 0xCAFEBABE);
  EXPECT_EQ(0x100u, Device.Read(Device.R.SR) & 0x100);
  Device.Unlock();
  Device.Write(EEPROM, 0xCAFEBABE);
  Device.Finish();
  EXPECT_EQ(0xCAFEBABEu, Device.Read(EEPROM));
}
