// F2, F4 and F7: one test per rule of the hardware. Addresses and keys as in the manuals.

#include "tests/sim/part.h"

static const uint32_t KEYR = 0x40023C04, OPTKEYR = 0x40023C08, SR = 0x40023C0C, CR = 0x40023C10,
                      OPTCR = 0x40023C14, OPTCR1 = 0x40023C18;
static const uint32_t FLASH = 0x08000000, BSY = 0x10000, WRPERR = 0x10, RDERR = 0x100;

static void Unlock(Part* pPart) {
  pPart->Write(OPTKEYR, 0x08192A3B);
  pPart->Write(OPTKEYR, 0x4C5D6E7F);
}

static void Program(Part* pPart, uint32_t Optcr) {
  pPart->Write(OPTCR, Optcr);
  pPart->Write(OPTCR, Optcr | 2);
  pPart->Finish();
}

static sim::CREATE_REQUEST Pcrop(uint32_t Level) {
  sim::CREATE_REQUEST Request;
  Request.Level = Level;
  Request.Pcrop = {0, 1, 13};
  return Request;
}

TEST(SimFlashF4, RegistersHaveTheirResetValues) {
  Part F407("STM32F407");
  EXPECT_EQ(0x413u, F407.Read(0xE0042000) & 0xFFF);
  EXPECT_EQ(0x0FFFAAEDu, F407.Read(OPTCR));
  EXPECT_EQ(0x80000000u, F407.Read(CR));
  EXPECT_EQ(0u, F407.Read(SR));
  EXPECT_FALSE(F407.CanRead(OPTCR1));
  Part F429("STM32F429");
  EXPECT_EQ(0x419u, F429.Read(0xE0042000) & 0xFFF);
  EXPECT_EQ(0x0FFFAAEDu, F429.Read(OPTCR));
  EXPECT_EQ(0x0FFF0000u, F429.Read(OPTCR1));
}

TEST(SimFlashF4, OptionKeysClearOptlock) {
  Part Device("STM32F407");
  Device.Write(OPTCR, 0x0FFFFFEC);  // locked: ignored
  EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));
  Unlock(&Device);
  EXPECT_EQ(0x0FFFAAECu, Device.Read(OPTCR));
}

TEST(SimFlashF4, AFailedAttemptKeepsOptlockUntilReset) {
  Part Device("STM32F407");
  Device.Write(OPTKEYR, 0x4C5D6E7F);  // wrong order; no bus error named for this register
  Unlock(&Device);
  EXPECT_EQ(1u, Device.Read(OPTCR) & 1);
  Device.Reset();
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(OPTCR) & 1);
}

TEST(SimFlashF4, AWrongFlashKeyIsABusErrorAndLocksUntilReset) {
  Part Device("STM32F407");
  EXPECT_FALSE(Device.TryWrite(KEYR, 1));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  Device.Reset();
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  EXPECT_EQ(0u, Device.Read(CR));
  Device.Write(CR, 0x80000000);
  EXPECT_EQ(0x80000000u, Device.Read(CR));
}

TEST(SimFlashF4, OptlockIsSetBySoftwareAndOnlyTheKeysOpenIt) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFFAAED);
  EXPECT_EQ(1u, Device.Read(OPTCR) & 1);
  Device.Write(OPTCR, 0x0FFF00EC);
  EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));
}

TEST(SimFlashF4, ValuesWithoutOptstrtAreLostAtReset) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFF55EC);
  EXPECT_EQ(0x0FFF55ECu, Device.Read(OPTCR));
  Device.Reset();
  EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));
}

TEST(SimFlashF4, AnOptionWriteKeepsBusyForHundredsOfMilliseconds) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FF0AAEE);  // value and OPTSTRT in one word
  EXPECT_EQ(BSY, Device.Read(SR));
  EXPECT_EQ(2u, Device.Read(OPTCR) & 2);
  Device.Wait(390);
  EXPECT_EQ(BSY, Device.Read(SR));
  Device.Wait(20);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x0FF0AAECu, Device.Read(OPTCR));
  Device.Reset();
  EXPECT_EQ(0x0FF0AAEDu, Device.Read(OPTCR));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, AWriteToOptcrWhileBusyWaitsForTheEnd) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FF0AAEE);
  Device.Write(OPTCR, 0x0FFFAAEC);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(400000u, Device.Device.TakeStalledUs());
  EXPECT_EQ(0x0FFFAAECu, Device.Read(OPTCR));
  Device.Reset();
  EXPECT_EQ(0x0FF0AAEDu, Device.Read(OPTCR));
}

TEST(SimFlashF4, OtherControlRegistersWaitAsWellAndKeysDoNot) {
  Part Device("STM32F429");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  for (const uint32_t Register : {CR, OPTCR1}) {
    Unlock(&Device);
    Device.Write(OPTCR, 0x0FF0AAEE);
    Unlock(&Device);
    EXPECT_EQ(BSY, Device.Read(SR));
    Device.Write(Register, 0x00030300);
    EXPECT_EQ(0u, Device.Read(SR));
    EXPECT_EQ(400000u, Device.Device.TakeStalledUs());
    EXPECT_EQ(Register == CR ? 0x0300u : 0x00030000u, Device.Read(Register));
  }
}

TEST(SimFlashF4, BitsThatDoNotExistKeepTheirValue) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0xFFFFAAFC);
  EXPECT_EQ(0x0FFFAAECu, Device.Read(OPTCR));  // SPRMOD, DB1M, BFB2 are not on this device
}

TEST(SimFlashF4, TheByteChoosesTheLevel) {
  for (const uint32_t Rdp : {0x00u, 0x55u, 0xABu, 0xBBu, 0xFFu}) {
    sim::CREATE_REQUEST Request;
    Request.Rdp = Rdp;
    EXPECT_EQ(1, Part("STM32F407", Request).Level());
  }
  sim::CREATE_REQUEST Request;
  Request.Rdp = 0xCC;
  EXPECT_EQ(2, Part("STM32F407", Request).Level());
}

TEST(SimFlashF4, AtLevel1FlashAndBackupSramAreClosedToTheDebugger) {
  Part Device("STM32F407", AtLevel(1));
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_FALSE(Device.CanRead(0x40024000));
  EXPECT_TRUE(Device.CanRead(0x20000000));
  EXPECT_TRUE(Device.CanRead(OPTCR));
}

TEST(SimFlashF4, OneToZeroErasesFlashAndBackupSramThenProgramsTheOptions) {
  Part Device("STM32F407", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFFAAEC);
  Device.Write(OPTCR, 0x0FFFAAEE);
  Device.Wait(15000);
  EXPECT_EQ(BSY, Device.Read(SR));
  EXPECT_EQ(0x0FFFBBECu, Device.Stored(0));
  Device.Wait(1500);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_TRUE(Device.Erased(sim::BACKUP));
  EXPECT_EQ(0x0FFFAAECu, Device.Stored(0));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
}

TEST(SimFlashF4, TheOtherStepsBetweenLevelsEraseNothing) {
  for (const uint32_t Rdp : {0xAAu, 0x55u}) {
    Part Device("STM32F407");
    Unlock(&Device);
    Program(&Device, 0x0FFF00EC | Rdp << 8);
    Device.Reset();
    EXPECT_FALSE(Device.FlashErased());
  }
  Part Device("STM32F407", AtLevel(1));
  Unlock(&Device);
  Program(&Device, 0x0FFF00EC);
  EXPECT_FALSE(Device.FlashErased());
  EXPECT_EQ(1, Device.Level());
}

TEST(SimFlashF4, WriteProtectionDoesNotStopTheEraseOfOneToZero) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.WrpAll              = true;
  Part Device("STM32F429", Request);
  EXPECT_EQ(0x0000BBEDu, Device.Read(OPTCR));
  EXPECT_EQ(0u, Device.Read(OPTCR1));
  Unlock(&Device);
  Program(&Device, 0x0FFFAAEC);
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashF4, MassEraseByRequestIsStoppedByWriteProtection) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {11};
  Part Device("STM32F407", Request);
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x10004);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, AResetDuringTheMassEraseKeepsTheOptions) {
  Part Device("STM32F407", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFFAAEE);
  Device.Wait(5000);
  Device.Reset();
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x0FFFBBEDu, Device.Read(OPTCR));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, AResetDuringTheOptionWriteLeavesThemErasedAndThusLevel1) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFFAAEE);
  Device.Wait(100);
  Device.Reset();
  EXPECT_EQ(0x0FFFFFEDu, Device.Read(OPTCR));
  EXPECT_EQ(1, Device.Level());
  EXPECT_FALSE(Device.CanRead(FLASH));
}

TEST(SimFlashF4, WithoutSprmodASectorBitOf0Protects) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {1};
  Part Device("STM32F429", Request);
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x1000A);  // SER, sector 1
  EXPECT_EQ(WRPERR, Device.Read(SR));
  Device.Write(SR, WRPERR);
  Device.Write(CR, 0x10012);  // sector 2
  EXPECT_EQ(BSY, Device.Read(SR));
  Device.Finish();
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 0x4000));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x8000));
}

TEST(SimFlashF4, WithSprmodASectorBitOf1ForbidsReadingIt) {
  Part Device("STM32F429", Pcrop(0));
  EXPECT_EQ(0x8003AAEDu, Device.Read(OPTCR));
  EXPECT_EQ(0x00020000u, Device.Read(OPTCR1));
  EXPECT_EQ(0u, Device.Read(FLASH));
  EXPECT_EQ(RDERR, Device.Read(SR));
  Device.Write(SR, RDERR);
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 0x8000));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0u, Device.Read(FLASH + 0x104000));  // sector 13, the second bank's second
}

TEST(SimFlashF4, PcropIsNotLiftedAtLevel0AndTheWholeChangeIsCancelled) {
  Part Device("STM32F429", Pcrop(0));
  Unlock(&Device);
  Device.Write(OPTCR1, 0x0FFF0000);
  Device.Write(OPTCR, 0x0FFFAAE0);
  Device.Write(OPTCR, 0x0FFFAAE2);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  Device.Reset();
  EXPECT_EQ(0x8003AAEDu, Device.Read(OPTCR));
  EXPECT_EQ(0x00020000u, Device.Read(OPTCR1));
}

TEST(SimFlashF4, ASectorCannotLeavePcropWhileItStays) {
  Part Device("STM32F429", Pcrop(0));
  Unlock(&Device);
  Device.Write(OPTCR, 0x8001AAEE);
  EXPECT_EQ(WRPERR, Device.Read(SR));
}

TEST(SimFlashF4, PcropMayGrowAtAnyLevel) {
  Part Device("STM32F429", Pcrop(0));
  Unlock(&Device);
  Device.Write(OPTCR1, 0x0FFF0000);
  Program(&Device, 0x8FFFBBE0);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(1, Device.Level());
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, PcropLeavesTogetherWithOneToZero) {
  Part Device("STM32F429", Pcrop(1));
  Unlock(&Device);
  Device.Write(OPTCR1, 0x0FFF0000);
  Program(&Device, 0x0FFFAAEC);
  Device.Reset();
  EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));
  EXPECT_EQ(0x0FFF0000u, Device.Read(OPTCR1));
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashF4, AnEarlierProgrammedLevelCountsAtOnceUnlessTheVariantSaysAfterReset) {
  for (const uint32_t AtOnce : {1u, 0u}) {
    Part Device("STM32F429", Pcrop(0));
    EXPECT_TRUE(Device.Device.SetVariant("f4_level_at_once", AtOnce));
    Unlock(&Device);
    Device.Write(OPTCR1, 0x8FFF0000);
    Program(&Device, 0x8FFFBBE0);
    Device.Write(OPTCR1, 0x0FFF0000);
    Program(&Device, 0x0FFFAAEC);
    EXPECT_EQ(AtOnce ? 0u : WRPERR, Device.Read(SR));
    EXPECT_EQ(AtOnce == 1, Device.FlashErased());
  }
}

TEST(SimFlashF4, TheLongestTimesAreTwiceTheTypical) {
  Part Device("STM32F407", AtLevel(1));
  EXPECT_TRUE(Device.Device.SetVariant("timing_max", 1));
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFFAAEE);
  Device.Wait(31000);
  EXPECT_EQ(BSY, Device.Read(SR));
  Device.Wait(2000);
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashF4, AHardwareWatchdogBreaksTheMassEraseUnlessFrozen) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.User                = 0xCC;  // WDG_SW 0
  for (const bool Freeze : {false, true}) {
    Part Device("STM32F407", Request);
    if (Freeze) {
      Device.Write(0xE0042008, 0x1800);
    }
    Device.Reset();
    Unlock(&Device);
    Device.Write(OPTCR, 0x0FFFAAEE);
    Device.Wait(20000);
    EXPECT_EQ(Freeze, Device.FlashErased());
    EXPECT_EQ(Freeze ? 0 : 1, Device.Level());
    EXPECT_EQ(Freeze, Device.Device.WatchdogResets() == 0);
  }
}

TEST(SimFlashF4, Level2ShutsTheDebugPort) {
  Part Device("STM32F429", AtLevel(2));
  EXPECT_FALSE(Device.CanRead(OPTCR));
  EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0x08192A3B));
}

TEST(SimFlashF4, ProgrammingNeedsTheAccessSizeOfPsize) {
  Part Device("STM32F407", {}, false);
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x201);  // PG, PSIZE x32
  Device.Write(FLASH, 0xCAFEBABE);
  Device.Finish();
  EXPECT_EQ(0xCAFEBABEu, Device.Read(FLASH));
  EXPECT_TRUE(Device.TryWrite(FLASH + 4, 0x1234, 2));
  EXPECT_EQ(0x40u, Device.Read(SR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 4));
}

// -- The other devices of the kind

static const uint32_t OPTCR2 = 0x40023C1C;

TEST(SimFlashF4, IdentitiesAndDeliveredValuesOfAllDevices) {
  struct {
    const char* sName;
    uint32_t    DevId, Optcr;
  } const aExpected[] = {
      {"STM32F207", 0x411, 0x0FFFAAED}, {"STM32F407", 0x413, 0x0FFFAAED},
      {"STM32F413", 0x463, 0x7FFFAAED}, {"STM32F429", 0x419, 0x0FFFAAED},
      {"STM32F469", 0x434, 0x0FFFAAED}, {"STM32F723", 0x452, 0xC0FFAAFD},
      {"STM32F746", 0x449, 0xC0FFAAFD}, {"STM32F767", 0x451, 0xFFFFAAFD},
  };
  for (const auto& Expected : aExpected) {
    Part Device(Expected.sName);
    EXPECT_EQ(Expected.DevId, Device.Read(0xE0042000) & 0xFFF) << Expected.sName;
    EXPECT_EQ(Expected.Optcr, Device.Read(OPTCR)) << Expected.sName;
  }
}

TEST(SimFlashF4, F7HasBootAddressesInOptcr1) {
  for (const char* sName : {"STM32F723", "STM32F746", "STM32F767"}) {
    Part Device(sName);
    EXPECT_EQ(0x00400080u, Device.Read(OPTCR1)) << sName;
    Unlock(&Device);
    Device.Write(OPTCR1, 0x12345678);
    Program(&Device, Device.Read(OPTCR));
    Device.Reset();
    EXPECT_EQ(0x12345678u, Device.Read(OPTCR1)) << sName;
  }
  EXPECT_FALSE(Part("STM32F207").CanRead(OPTCR1));
  EXPECT_FALSE(Part("STM32F746").CanRead(OPTCR2));
}

TEST(SimFlashF4, F2IsUnprotectedLikeF4) {
  Part Device("STM32F207", AtLevel(1));
  Unlock(&Device);
  Program(&Device, 0x0FFFAAEC);
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_EQ(0, Device.Level());
}

TEST(SimFlashF4, F413LosesTheProtectionBitsThatOtherDevicesDoNotHave) {
  Part Device("STM32F413");
  Unlock(&Device);
  Program(&Device, 0x0FFFAAEC);
  Device.Reset();
  EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));  // nWRP12 to 14 are 0: protected
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x10062);  // SER, sector 12
  EXPECT_EQ(WRPERR, Device.Read(SR));
}

TEST(SimFlashF4, F723PcropBitsCanBeSetAndNotCleared) {
  Part Device("STM32F723");
  EXPECT_EQ(0x80000000u, Device.Read(OPTCR2));
  Unlock(&Device);
  Device.Write(OPTCR2, 0x80000003);
  Program(&Device, 0xC0FFAAFC);
  Device.Write(OPTCR2, 0x80000004);
  Program(&Device, 0xC0FFAAFC);
  Device.Reset();
  EXPECT_EQ(0x80000007u, Device.Read(OPTCR2));
  EXPECT_EQ(0u, Device.Read(FLASH));  // execute-only
  EXPECT_EQ(RDERR, Device.Read(SR));
}

TEST(SimFlashF4, F723UnprotectingWipesPcropSectorsOnlyWithPcropRdp) {
  for (const uint32_t PcropRdp : {0u, 1u}) {
    sim::CREATE_REQUEST Request = AtLevel(1);
    Request.Pcrop               = {0, 1};
    Request.PcropRdp            = PcropRdp;
    Part Device("STM32F723", Request);
    Unlock(&Device);
    Program(&Device, 0xC0FFAAFC);
    EXPECT_EQ(0, Device.Level());
    EXPECT_EQ(PcropRdp == 1, Device.FlashErased());
    EXPECT_EQ(PcropRdp == 1 ? 0x80000000u : 0x00000003u, Device.Read(OPTCR2));
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x8000));
  }
}

TEST(SimFlashF4, SectorsOfF74xAreTwiceAsLarge) {
  Part Device("STM32F746");
  Device.Write(KEYR, 0x45670123);
  Device.Write(KEYR, 0xCDEF89AB);
  Device.Write(CR, 0x1000A);  // SER, sector 1
  Device.Finish();
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 0x7FFC));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x8000));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0xFFFC));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 0x10000));
}

// -- Registers, bit by bit

static void UnlockFlash(Part* pPart) {
  pPart->Write(KEYR, 0x45670123);
  pPart->Write(KEYR, 0xCDEF89AB);
}

static sim::CREATE_REQUEST OnePcropSector(uint32_t Level, uint32_t PcropRdp) {
  sim::CREATE_REQUEST Request = AtLevel(Level);
  Request.Pcrop               = {0};
  Request.PcropRdp            = PcropRdp;
  return Request;
}

TEST(SimFlashF4, EachDeviceHasItsOwnOptionBits) {
  struct {
    const char* sName;
    uint32_t    Zeros, Ones;        // OPTCR after writing all zeros, all ones, unlocked
    uint32_t    Control, Control1;  // CR and OPTCR1 likewise, all ones
    uint32_t    Optcr1;
  } const aExpected[] = {
      {"STM32F207", 0x00000000, 0x0FFFFFEC, 0x0300037F, 0, 0},
      {"STM32F407", 0x00000000, 0x0FFFFFEC, 0x0300037F, 0, 0},
      {"STM32F413", 0x00000000, 0xFFFFFFEC, 0x0300037F, 0, 0},
      {"STM32F429", 0x00000000, 0xCFFFFFFC, 0x030083FF, 0x0FFF0000, 1},
      {"STM32F469", 0x00000000, 0xCFFFFFFC, 0x030083FF, 0x0FFF0000, 1},
      {"STM32F723", 0x00000000, 0xC0FFFFFC, 0x0300037F, 0xFFFFFFFF, 1},
      {"STM32F746", 0x00000000, 0xC0FFFFFC, 0x0300037F, 0xFFFFFFFF, 1},
      {"STM32F767", 0x00000000, 0xFFFFFFFC, 0x030083FF, 0xFFFFFFFF, 1},
  };
  for (const auto& Expected : aExpected) {
    Part Device(Expected.sName);
    Unlock(&Device);
    Device.Write(OPTCR, 0);
    EXPECT_EQ(Expected.Zeros, Device.Read(OPTCR)) << Expected.sName;
    Device.Write(OPTCR, 0xFFFFFFFC);
    EXPECT_EQ(Expected.Ones, Device.Read(OPTCR)) << Expected.sName;
    UnlockFlash(&Device);
    Device.Write(CR, 0x7FFEFFFF);  // neither LOCK nor STRT
    EXPECT_EQ(Expected.Control, Device.Read(CR)) << Expected.sName;
    if (Expected.Optcr1 != 0) {
      Device.Write(OPTCR1, 0);
      EXPECT_EQ(0u, Device.Read(OPTCR1)) << Expected.sName;
      Device.Write(OPTCR1, 0xFFFFFFFF);
      EXPECT_EQ(Expected.Control1, Device.Read(OPTCR1)) << Expected.sName;
    }
  }
  Part Device("STM32F723");
  Unlock(&Device);
  Device.Write(OPTCR2, 0xFFFFFFFF);
  EXPECT_EQ(0x800000FFu, Device.Read(OPTCR2));
}

TEST(SimFlashF4, KeyRegistersReadAsZero) {
  Part Device("STM32F407");
  UnlockFlash(&Device);
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(KEYR));
  EXPECT_EQ(0u, Device.Read(OPTKEYR));
}

TEST(SimFlashF4, KeysAfterTheRightOnesDoNothing) {
  Part Device("STM32F407");
  Unlock(&Device);
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(OPTCR) & 1);
}

TEST(SimFlashF4, AWrongOptionKeyIsABusErrorWhereThatVariantIsChosen) {
  Part Device("STM32F407");
  EXPECT_TRUE(Device.Device.SetVariant("f4_optkey_bus_error", 1));
  EXPECT_FALSE(Device.TryWrite(OPTKEYR, 1));
  EXPECT_FALSE(Device.TryWrite(OPTKEYR, 0x08192A3B));
  EXPECT_EQ(1u, Device.Read(OPTCR) & 1);
}

TEST(SimFlashF4, EveryResetClosesTheLocks) {
  Part Device("STM32F407");
  UnlockFlash(&Device);
  Unlock(&Device);
  Device.Write(0x40023C00, 0x705);
  Device.Reset();
  EXPECT_EQ(0x80000000u, Device.Read(CR));
  EXPECT_EQ(1u, Device.Read(OPTCR) & 1);
  EXPECT_EQ(0u, Device.Read(0x40023C00));
  UnlockFlash(&Device);
  Device.PowerCycle();
  EXPECT_EQ(0x80000000u, Device.Read(CR));
}

TEST(SimFlashF4, TheControlRegisterTakesNothingWhileLocked) {
  Part Device("STM32F407");
  Device.Write(CR, 0x10004);
  EXPECT_EQ(0x80000000u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_FALSE(Device.Device.Flash().Busy());
  Device.Write(FLASH, 0);  // no flag is set by what a lock keeps away
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH));
}

TEST(SimFlashF4, ErrorFlagsAreClearedByWritingOnesToThemAlone) {
  Part Device("STM32F429", Pcrop(0));
  UnlockFlash(&Device);
  Device.Read(FLASH);            // RDERR
  Device.Write(FLASH, 0);        // PGSERR: PG is not set
  Device.Write(CR, 0x00010002);  // WRPERR: sector 0
  EXPECT_EQ(RDERR | 0x80 | WRPERR, Device.Read(SR));
  Device.Write(SR, 0);
  EXPECT_EQ(RDERR | 0x80 | WRPERR, Device.Read(SR));
  Device.Write(SR, 0x80);
  EXPECT_EQ(RDERR | WRPERR, Device.Read(SR));
  Device.Write(SR, BSY | 0x2);  // read-only, and not set
  EXPECT_EQ(RDERR | WRPERR, Device.Read(SR));
}

TEST(SimFlashF4, EopAndOperrAreSetOnlyWhereTheirInterruptsAreEnabled) {
  for (const bool Enabled : {false, true}) {
    sim::CREATE_REQUEST Request;
    Request.Wrp = {1};
    Part           Device("STM32F407", Request);
    const uint32_t Enable = Enabled ? 0x03000000 : 0;
    UnlockFlash(&Device);
    Device.Write(CR, Enable | 0x10012);  // sector 2
    EXPECT_EQ(0x10000u, Device.Read(CR) & 0x10000);
    Device.Finish();
    EXPECT_EQ(Enabled ? 1u : 0u, Device.Read(SR));
    EXPECT_EQ(0u, Device.Read(CR) & 0x10000);
    Device.Write(SR, 1);
    Device.Write(CR, Enable | 0x1000A);  // sector 1 is protected
    EXPECT_EQ(Enabled ? WRPERR | 2 : WRPERR, Device.Read(SR));
    EXPECT_EQ(0u, Device.Read(CR) & 0x10000);
    Device.Write(SR, 0xF3);
    EXPECT_EQ(0u, Device.Read(SR));
  }
}

TEST(SimFlashF4, NarrowWritesChangeTheirBytesOnly) {
  Part Device("STM32F407");
  Unlock(&Device);
  EXPECT_TRUE(Device.TryWrite(OPTCR, 0x55EC, 2));
  EXPECT_EQ(0x0FFF55ECu, Device.Read(OPTCR));
  EXPECT_TRUE(Device.TryWrite(OPTCR + 2, 0x0F0F, 2));
  EXPECT_EQ(0x0F0F55ECu, Device.Read(OPTCR));
  EXPECT_TRUE(Device.TryWrite(OPTCR + 1, 0xAA, 1));
  EXPECT_EQ(0x0F0FAAECu, Device.Read(OPTCR));
  EXPECT_TRUE(Device.TryWrite(OPTCR, 0xEE, 1));  // OPTSTRT
  EXPECT_EQ(BSY, Device.Read(SR));
  EXPECT_TRUE(Device.TryWrite(OPTCR + 2, 0x0FFF, 2));  // waits, and does not start again
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x0F0FAAECu, Device.Stored(0));
}

TEST(SimFlashF4, AnAddressThatIsNoMultipleOfTheSizeFails) {
  Part     Device("STM32F407");
  uint32_t Value = 0;
  EXPECT_FALSE(Device.CanRead(FLASH + 2));
  EXPECT_FALSE(Device.Device.Read(0x20000001, 2, &Value));
  EXPECT_FALSE(Device.TryWrite(0x20000002, 0, 4));
  EXPECT_FALSE(Device.TryWrite(0x20000003, 0, 2));
  EXPECT_TRUE(Device.TryWrite(0x20000003, 0xAB, 1));
  EXPECT_EQ(0xABu, Device.Read(0x20000000) >> 24);
  EXPECT_TRUE(Device.Device.Read(0x20000002, 2, &Value));
  EXPECT_EQ(0xAB00u, Value & 0xFF00);
}

// -- Option changes

TEST(SimFlashF4, OptionBytesAreErasedAllOnesWhenTheirWriteIsCutShort) {
  for (const uint32_t Ms : {100u, 300u}) {  // while erasing, while programming
    for (const bool Power : {false, true}) {
      Part Device("STM32F429");
      Unlock(&Device);
      Device.Write(OPTCR, 0x0FFFAAEE);
      Device.Wait(Ms);
      Power ? Device.PowerCycle() : Device.Reset();
      EXPECT_EQ(0xCFFFFFFDu, Device.Read(OPTCR));  // also SPRMOD: all sectors execute-only
      EXPECT_EQ(0x0FFF0000u, Device.Read(OPTCR1));
      EXPECT_EQ(1, Device.Level());
      EXPECT_FALSE(Device.FlashErased());
    }
  }
  Part Device("STM32F723");
  Unlock(&Device);
  Device.Write(OPTCR, 0xC0FFAAFE);
  Device.Reset();
  EXPECT_EQ(0xC0FFFFFDu, Device.Read(OPTCR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(OPTCR1));
  EXPECT_EQ(0x800000FFu, Device.Read(OPTCR2));
}

TEST(SimFlashF4, AnOptionWriteIsOverInTheTimesOfItsSteps) {
  struct {
    const char* sName;
    uint32_t    Max, Psize, Level, Ms;
  } const aExpected[] = {
      {"STM32F407", 0, 0, 0, 400},   {"STM32F407", 1, 0, 0, 800},   {"STM32F407", 0, 0, 1, 16400},
      {"STM32F407", 0, 1, 1, 11400}, {"STM32F407", 0, 2, 1, 8400},  {"STM32F407", 0, 3, 1, 8400},
      {"STM32F407", 1, 0, 1, 32800}, {"STM32F407", 1, 1, 1, 22800}, {"STM32F407", 1, 2, 1, 16800},
      {"STM32F407", 1, 3, 1, 16800},
  };
  for (const auto& Expected : aExpected) {
    Part Device(Expected.sName, AtLevel(Expected.Level));
    EXPECT_TRUE(Device.Device.SetVariant("timing_max", Expected.Max));
    UnlockFlash(&Device);
    Device.Write(CR, Expected.Psize << 8);
    Unlock(&Device);
    Device.Write(OPTCR, 0x0FFFAAEE);
    Device.Wait(Expected.Ms - 1);
    EXPECT_EQ(BSY, Device.Read(SR)) << Expected.Ms;
    Device.Wait(1);
    EXPECT_EQ(0u, Device.Read(SR)) << Expected.Ms;
  }
}

TEST(SimFlashF4, AControllerThatStaysBusyHasNeverthelessStoredTheOptions) {
  Part Device("STM32F429", Pcrop(0));
  Device.Device.Flash().HoldBusy(sim::FOREVER);
  Unlock(&Device);
  Device.Write(OPTCR1, 0x8FFF0000);
  Device.Write(OPTCR, 0x8FFFBBE2);
  Device.Wait(25000);
  EXPECT_EQ(BSY, Device.Read(SR));
  EXPECT_FALSE(Device.TryWrite(OPTCR, 0x0FFFAAEE));  // the bus waits for ever
  Device.Reset();
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x8FFFBBE1u, Device.Read(OPTCR));  // level 1, all sectors PCROP, highest brown-out
  EXPECT_EQ(0x0FFF0000u, Device.Read(OPTCR1));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, ASectorOfTheSecondBankCannotLeavePcropEither) {
  Part Device("STM32F429", Pcrop(0));
  Unlock(&Device);
  Device.Write(OPTCR1, 0x00010000);
  Device.Write(OPTCR, 0x8003AAEE);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  EXPECT_EQ(0u, Device.Read(OPTCR) & 2);
  Device.Reset();
  EXPECT_EQ(0x00020000u, Device.Read(OPTCR1));
}

TEST(SimFlashF4, UserOptionsMayChangeWhileSprmodStays) {
  Part Device("STM32F429", Pcrop(0));
  Unlock(&Device);
  Program(&Device, 0x8003AAA0);
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Reset();
  EXPECT_EQ(0x8003AAA1u, Device.Read(OPTCR));
}

TEST(SimFlashF4, F413WithPcropAtLevel0IsNotChangedAtAll) {
  Part Device("STM32F413", Pcrop(0));
  EXPECT_EQ(0u, Device.Read(FLASH));
  EXPECT_EQ(RDERR, Device.Read(SR));
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FFFAAEC);
  Device.Write(OPTCR, 0x0FFFAAEE);  // cancelled: RDP reads AA, and nothing changed
  EXPECT_EQ(RDERR | WRPERR, Device.Read(SR));
  Device.Reset();
  EXPECT_EQ(0xA003AAEDu, Device.Read(OPTCR));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, F413LosesPcropTogetherWithOneToZero) {
  Part Device("STM32F413", Pcrop(1));
  Unlock(&Device);
  Program(&Device, 0x0FFFAAEC);
  Device.Reset();
  EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashF4, PcropSectorsAreNeitherErasedNorProgrammedByRequest) {
  Part F429("STM32F429", Pcrop(0));
  Part F723("STM32F723", OnePcropSector(0, 1));
  for (Part* pDevice : {&F429, &F723}) {
    UnlockFlash(pDevice);
    for (const uint32_t Control : {0x10002u, 0x10004u}) {  // its sector, the whole flash
      pDevice->Write(CR, Control);
      EXPECT_EQ(WRPERR, pDevice->Read(SR));
      pDevice->Write(SR, WRPERR);
    }
    pDevice->Write(CR, 0x201);
    pDevice->Write(FLASH, 0);
    EXPECT_EQ(WRPERR, pDevice->Read(SR));
    EXPECT_FALSE(pDevice->Device.Flash().Busy());
    EXPECT_FALSE(pDevice->FlashErased());
  }
}

TEST(SimFlashF4, F723WithPcropKeepsItAtLevel0) {
  Part Device("STM32F723", OnePcropSector(0, 1));
  Unlock(&Device);
  Device.Write(OPTCR2, 0);
  Device.Write(OPTCR1, 0x00400080);
  Program(&Device, 0xC0FFAAFC);
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Reset();
  EXPECT_EQ(0x80000001u, Device.Read(OPTCR2));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, F723SparesPcropSectorsAlsoWhenTheEraseIsCutShort) {
  Part Device("STM32F723", OnePcropSector(1, 0));
  Unlock(&Device);
  Device.Write(OPTCR, 0xC0FFAAFE);
  Device.Wait(1000);
  Device.Reset();
  EXPECT_EQ(1, Device.Level());
  sim::Memory* pFlash = Device.Device.FindMemory(sim::MAIN_FLASH);
  EXPECT_EQ(0x12345678u, pFlash->WordAt(FLASH + 0x3FFC));
  EXPECT_EQ(0xFFFFFFFFu, pFlash->WordAt(FLASH + 0x4000));
  EXPECT_FALSE(Device.Erased(sim::BACKUP));
}

TEST(SimFlashF4, BootAddressesAndUserBitsAreRewrittenByTheSameChange) {
  Part Device("STM32F746", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTCR1, 0x00000040);
  Program(&Device, 0xC0FFBB00);
  Device.Write(OPTCR1, 0x00400080);
  Program(&Device, 0xC0FFAAFC);
  Device.Reset();
  EXPECT_EQ(0x00400080u, Device.Read(OPTCR1));
  EXPECT_EQ(0xC0FFAAFDu, Device.Read(OPTCR));
}

TEST(SimFlashF4, ADeviceThatWasUnprotectedOnceIsUnprotectedAgain) {
  Part Device("STM32F429", AtLevel(1));
  for (int i = 0; i < 2; i++) {
    Unlock(&Device);
    Device.Write(OPTCR1, 0x0FFF0000);
    Program(&Device, 0x0FFFAAEC);
    EXPECT_EQ(0u, Device.Read(SR));
    Device.Reset();
    EXPECT_EQ(0x0FFFAAEDu, Device.Read(OPTCR));
    EXPECT_TRUE(Device.FlashErased());
  }
}

TEST(SimFlashF4, AProgrammedLevelIsInForceAtOnceUnlessTheVariantSaysAfterReset) {
  for (const uint32_t AtOnce : {1u, 0u}) {
    Part Device("STM32F407");
    EXPECT_TRUE(Device.Device.SetVariant("f4_level_at_once", AtOnce));
    Unlock(&Device);
    Program(&Device, 0x0FFFBBEC);
    EXPECT_EQ(AtOnce == 0, Device.CanRead(FLASH));
    EXPECT_EQ(AtOnce == 0, !Device.Device.Flash().Remarks().empty());
    Device.Reset();
    EXPECT_FALSE(Device.CanRead(FLASH));
    EXPECT_EQ("", Device.Device.Flash().Remarks());
  }
}

TEST(SimFlashF4, ChangingTheWatchdogOptionNeedsAReset) {
  Part Device("STM32F407");
  Device.Reset();
  Unlock(&Device);
  Program(&Device, 0x0FFFAACC);  // WDG_SW 0
  EXPECT_FALSE(Device.Device.Flash().WatchdogByHardware());
  Device.Reset();
  EXPECT_TRUE(Device.Device.Flash().WatchdogByHardware());
}

// -- Option bytes in memory

TEST(SimFlashF4, StoredOptionsAreReadInMemory) {
  Part F407("STM32F407");
  EXPECT_EQ(0xFFFFAAFFu, F407.Read(0x1FFFC000));
  EXPECT_EQ(0xFFFFFFFFu, F407.Read(0x1FFFC004));
  EXPECT_EQ(0xFFFFFFFFu, F407.Read(0x1FFFC008));
  EXPECT_FALSE(F407.CanRead(0x1FFFC010));
  EXPECT_FALSE(F407.CanRead(0x1FFEC008));
  Part F429("STM32F429", Pcrop(0));
  EXPECT_EQ(0xFFFFAAEFu, F429.Read(0x1FFFC000));
  EXPECT_EQ(0xFFFFB003u, F429.Read(0x1FFFC008));
  EXPECT_EQ(0xFFFFFFFFu, F429.Read(0x1FFEC000));
  EXPECT_EQ(0xFFFFF002u, F429.Read(0x1FFEC008));
  Part F723("STM32F723", OnePcropSector(0, 0));
  EXPECT_EQ(0xFFFFAAFFu, F723.Read(0x1FFF0000));
  EXPECT_EQ(0xFFFFFFFFu, F723.Read(0x1FFF0008));
  EXPECT_EQ(0xFFFF0080u, F723.Read(0x1FFF0010));
  EXPECT_EQ(0xFFFF0040u, F723.Read(0x1FFF0018));
  EXPECT_EQ(0x7FFFFF01u, F723.Read(0x1FFF0020));
  EXPECT_FALSE(Part("STM32F746").CanRead(0x1FFF0020));
  EXPECT_STREQ("OPTION_WRP", F723.Device.Describe(0x1FFF0008)->sName);
}

TEST(SimFlashF4, StoredOptionsInMemoryAreClosedAtLevel1) {
  Part Device("STM32F407", AtLevel(1));
  EXPECT_FALSE(Device.CanRead(0x1FFFC000));
  EXPECT_FALSE(Device.TryWrite(0x1FFFC000, 0));
}

TEST(SimFlashF4, StoredOptionsInMemoryFollowTheChangeAndNotTheRegister) {
  Part Device("STM32F407");
  Unlock(&Device);
  Device.Write(OPTCR, 0x0FF0AAEC);
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(0x1FFFC008));
  Device.Write(OPTCR, 0x0FF0AAEE);
  EXPECT_EQ(0xFFFFFFF0u, Device.Read(0x1FFFC008));  // waits for the end
  EXPECT_EQ(400000u, Device.Device.TakeStalledUs());
}

TEST(SimFlashF4, WritesToOptionMemoryAreRefused) {
  Part Device("STM32F407");
  Device.Write(0x1FFFC000, 0);
  EXPECT_EQ(0u, Device.Read(SR));  // locked: as if nothing had been written
  UnlockFlash(&Device);
  Device.Write(CR, 0x201);
  Device.Write(0x1FFFC000, 0);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  EXPECT_EQ(0xFFFFAAFFu, Device.Read(0x1FFFC000));
}

// -- Main flash by request

TEST(SimFlashF4, ProgrammingClearsBitsAndTakesItsTime) {
  Part Device("STM32F407", {}, false);
  UnlockFlash(&Device);
  Device.Write(CR, 0x101);  // PG, PSIZE x16
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0x0F0F, 2));
  EXPECT_EQ(BSY, Device.Read(SR));
  EXPECT_EQ(0x0F0FFFFFu, Device.Read(FLASH));  // the read waits
  EXPECT_EQ(16u, Device.Device.TakeStalledUs());
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_TRUE(Device.TryWrite(FLASH + 2, 0xFF00, 2));
  EXPECT_EQ(0x0F00FFFFu, Device.Read(FLASH));
  EXPECT_TRUE(Device.Device.SetVariant("timing_max", 1));
  EXPECT_TRUE(Device.TryWrite(FLASH, 0, 2));
  Device.Read(FLASH);
  EXPECT_EQ(116u, Device.Device.TakeStalledUs());
  Device.Write(CR, 0x001);  // x8
  EXPECT_TRUE(Device.TryWrite(FLASH + 5, 0x21, 1));
  EXPECT_EQ(0xFFFF21FFu, Device.Read(FLASH + 4));
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashF4, ProgrammingWithoutPgIsASequenceError) {
  Part Device("STM32F407", {}, false);
  UnlockFlash(&Device);
  Device.Write(FLASH, 0);
  EXPECT_EQ(0x80u, Device.Read(SR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
}

TEST(SimFlashF4, AProtectedSectorIsNotProgrammed) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {1};
  Part Device("STM32F407", Request, false);
  UnlockFlash(&Device);
  Device.Write(CR, 0x201);
  Device.Write(FLASH + 0x4000, 0);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  Device.Write(SR, WRPERR);
  Device.Write(FLASH + 0x3FFC, 0);
  Device.Write(FLASH + 0x8000, 0);
  EXPECT_EQ(0u, Device.Read(FLASH + 0x3FFC));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x4000));
  EXPECT_EQ(0u, Device.Read(FLASH + 0x8000));
}

TEST(SimFlashF4, AtLevel1FlashIsNeitherProgrammedNorErased) {
  Part Device("STM32F407", AtLevel(1));
  UnlockFlash(&Device);
  Device.Write(CR, 0x201);
  EXPECT_FALSE(Device.TryWrite(FLASH, 0));
  Device.Write(CR, 0x10002);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  EXPECT_FALSE(Device.TryWrite(0x40024000, 0));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, ErasesTakeTheirTime) {
  struct {
    uint32_t Control, Max, Ms;
  } const aExpected[] = {{0x00010002, 0, 1000},  {0x00010002, 1, 4000},  {0x00010004, 0, 16000},
                         {0x00010104, 0, 11000}, {0x00010204, 0, 8000},  {0x00010304, 0, 8000},
                         {0x00010004, 1, 32000}, {0x00010104, 1, 22000}, {0x00010204, 1, 16000}};
  for (const auto& Expected : aExpected) {
    Part Device("STM32F407");
    EXPECT_TRUE(Device.Device.SetVariant("timing_max", Expected.Max));
    UnlockFlash(&Device);
    Device.Write(CR, Expected.Control);
    Device.Wait(Expected.Ms - 1);
    EXPECT_EQ(BSY, Device.Read(SR));
    Device.Wait(1);
    EXPECT_EQ(0u, Device.Read(SR));
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
    EXPECT_EQ((Expected.Control & 4) != 0, Device.FlashErased());
    EXPECT_FALSE(Device.Erased(sim::BACKUP));  // that goes with the protection only
  }
}

TEST(SimFlashF4, EraseByRequestCutShortHasErasedAPart) {
  Part Mass("STM32F407"), Sector("STM32F407");
  UnlockFlash(&Mass);
  Mass.Write(CR, 0x10004);
  Mass.Wait(100);
  Mass.Reset();
  EXPECT_EQ(0xFFFFFFFFu, Mass.Read(FLASH));
  EXPECT_EQ(0x12345678u, Mass.Read(FLASH + 0xFFFFC));
  UnlockFlash(&Sector);
  Sector.Write(CR, 0x1000A);
  Sector.Reset();
  EXPECT_EQ(0x12345678u, Sector.Read(FLASH + 0x3FFC));
  EXPECT_EQ(0xFFFFFFFFu, Sector.Read(FLASH + 0x4000));
  EXPECT_EQ(0x12345678u, Sector.Read(FLASH + 0x8000));
}

TEST(SimFlashF4, AnEraseOfNothingStartsNothing) {
  Part Device("STM32F407");
  UnlockFlash(&Device);
  Device.Write(CR, 0x10000);
  EXPECT_EQ(0u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Write(CR, 0x10062);  // there is no sector 12
  EXPECT_EQ(WRPERR, Device.Read(SR));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashF4, EachBankIsErasedByItsOwnBit) {
  for (const uint32_t Control : {0x10004u, 0x18000u, 0x18004u}) {
    Part Device("STM32F429");
    UnlockFlash(&Device);
    Device.Write(CR, Control);
    Device.Finish();
    EXPECT_EQ((Control & 4) != 0, Device.Read(FLASH + 0xFFFFC) == 0xFFFFFFFF);
    EXPECT_EQ((Control & 0x8000) != 0, Device.Read(FLASH + 0x100000) == 0xFFFFFFFF);
  }
  sim::CREATE_REQUEST Request;
  Request.Wrp = {23};
  Part Device("STM32F429", Request);
  UnlockFlash(&Device);
  Device.Write(CR, 0x18000);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  Device.Write(CR, 0x10004);  // nothing is protected in the first bank
  EXPECT_EQ(BSY | WRPERR, Device.Read(SR));
}

TEST(SimFlashF4, SectorsLieWhereTheManualsPutThem) {
  struct {
    const char* sName;
    uint32_t    Number, First, Bytes;
  } const aExpected[] = {
      {"STM32F207", 0, 0x00000, 0x4000},    {"STM32F207", 3, 0x0C000, 0x4000},
      {"STM32F207", 4, 0x10000, 0x10000},   {"STM32F207", 5, 0x20000, 0x20000},
      {"STM32F207", 11, 0xE0000, 0x20000},  {"STM32F413", 12, 0x100000, 0x20000},
      {"STM32F413", 15, 0x160000, 0x20000}, {"STM32F429", 11, 0xE0000, 0x20000},
      {"STM32F429", 16, 0x100000, 0x4000},  {"STM32F469", 20, 0x110000, 0x10000},
      {"STM32F429", 27, 0x1E0000, 0x20000}, {"STM32F723", 7, 0x60000, 0x20000},
      {"STM32F746", 4, 0x20000, 0x20000},   {"STM32F746", 7, 0xC0000, 0x40000},
      {"STM32F767", 11, 0x1C0000, 0x40000},
  };
  for (const auto& Expected : aExpected) {
    Part Device(Expected.sName);
    UnlockFlash(&Device);
    Device.Write(CR, 0x10002 | Expected.Number << 3);
    Device.Finish();
    const uint32_t First = FLASH + Expected.First;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(First)) << Expected.sName << Expected.Number;
    EXPECT_EQ(0xFFFFFFFFu, Device.Read(First + Expected.Bytes - 4)) << Expected.Number;
    sim::Memory* pFlash = Device.Device.FindMemory(sim::MAIN_FLASH);
    EXPECT_EQ(pFlash->Row().Bytes - Expected.Bytes, pFlash->BytesInUse()) << Expected.Number;
  }
  for (const uint32_t Number : {12u, 15u, 28u}) {  // between the banks, and behind them
    Part Device("STM32F429");
    UnlockFlash(&Device);
    Device.Write(CR, 0x10002 | Number << 3);
    EXPECT_EQ(WRPERR, Device.Read(SR)) << Number;
  }
}

TEST(SimFlashF4, TheLastTwoSectorsOfF413ShareAProtectionBit) {
  sim::CREATE_REQUEST Request;
  Request.Wrp = {14};
  for (const uint32_t Number : {13u, 14u, 15u}) {
    Part Device("STM32F413", Request);
    EXPECT_EQ(0x3FFFAAEDu, Device.Read(OPTCR));
    UnlockFlash(&Device);
    Device.Write(CR, 0x10002 | Number << 3);
    EXPECT_EQ(Number == 13 ? BSY : WRPERR, Device.Read(SR)) << Number;
  }
}

TEST(SimFlashF4, WithNdbank0F767HasTwoBanksFromTheNextResetOn) {
  Part Device("STM32F767");
  Unlock(&Device);
  Program(&Device, 0xDFF7AAFC);  // nDBANK 0, the fourth protection bit 0
  EXPECT_FALSE(Device.FlashErased());
  Device.Reset();
  UnlockFlash(&Device);
  Device.Write(CR, 0x10002 | 16 << 3);  // the second bank's first sector: 16 KB
  Device.Finish();
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x100000));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x103FFC));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH + 0x104000));
  for (const uint32_t Number : {5u, 6u, 7u, 8u}) {  // each bit is for two sectors
    Device.Write(CR, 0x10002 | Number << 3);
    EXPECT_EQ(Number == 6 || Number == 7 ? WRPERR : 0u, Device.Read(SR) & WRPERR) << Number;
    Device.Finish();
    Device.Write(SR, WRPERR);
  }
  Device.Write(CR, 0x18000);  // MER2
  Device.Finish();
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x1FFFFC));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH));
}

TEST(SimFlashF4, TheSecondBanksEraseBitDoesNothingWhereThereIsOneBank) {
  Part Device("STM32F767");
  UnlockFlash(&Device);
  Device.Write(CR, 0x18000);
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Write(CR, 0x10004);
  Device.Finish();
  EXPECT_TRUE(Device.FlashErased());
}

// -- Around the flash controller

TEST(SimFlashF4, MemoriesLieWhereTheManualsPutThem) {
  struct {
    const char* sName;
    uint32_t    FlashKB, SramKB;
  } const aExpected[] = {
      {"STM32F207", 1024, 128}, {"STM32F407", 1024, 128}, {"STM32F413", 1536, 256},
      {"STM32F429", 2048, 192}, {"STM32F469", 2048, 320}, {"STM32F723", 512, 256},
      {"STM32F746", 1024, 320}, {"STM32F767", 2048, 512},
  };
  for (const auto& Expected : aExpected) {
    Part           Device(Expected.sName);
    const uint32_t aMemories[][2] = {
        {FLASH, Expected.FlashKB}, {0x20000000, Expected.SramKB}, {0x40024000, 4}};
    for (const auto& [Base, KB] : aMemories) {
      EXPECT_FALSE(Device.CanRead(Base - 4)) << Expected.sName;
      EXPECT_TRUE(Device.CanRead(Base)) << Expected.sName;
      EXPECT_TRUE(Device.CanRead(Base + KB * 1024 - 4)) << Expected.sName;
      EXPECT_FALSE(Device.CanRead(Base + KB * 1024)) << Expected.sName;
    }
    EXPECT_EQ(0u, Device.Read(0x20000000)) << "lost with power";
    EXPECT_EQ(0x12345678u, Device.Read(0x40024000)) << "kept without";
  }
}

TEST(SimFlashF4, DebugRegistersOutliveAResetAndNotPowerOff) {
  Part Device("STM32F407");
  Device.Write(0xE0042000, 0);
  EXPECT_EQ(0x10076413u, Device.Read(0xE0042000));
  const uint32_t aExpected[][2] = {
      {0xE0042004, 0x000000E7}, {0xE0042008, 0x06E01DFF}, {0xE004200C, 0x00070003}};
  for (const auto& [Address, Ones] : aExpected) {
    EXPECT_EQ(0u, Device.Read(Address));
    Device.Write(Address, 0xFFFFFFFF);
    EXPECT_EQ(Ones, Device.Read(Address));
    Device.Reset();
    EXPECT_EQ(Ones, Device.Read(Address));
  }
  Device.PowerCycle();
  for (const auto& [Address, Ones] : aExpected) {
    EXPECT_EQ(0u, Device.Read(Address));
  }
  EXPECT_EQ(0x10076413u, Device.Read(0xE0042000));
}

TEST(SimFlashF4, HsiIsReadyWhereItIsOn) {
  Part Device("STM32F407");
  EXPECT_EQ(0x83u, Device.Read(0x40023800));
  Device.Write(0x40023800, 0x00000080);
  EXPECT_EQ(0x80u, Device.Read(0x40023800));
  Device.Write(0x40023800, 0x00000081);
  EXPECT_EQ(0x83u, Device.Read(0x40023800));
  EXPECT_TRUE(Device.TryWrite(0x40023800, 0x80, 1));
  EXPECT_EQ(0x80u, Device.Read(0x40023800));
  Device.Reset();
  EXPECT_EQ(0x83u, Device.Read(0x40023800));
}

TEST(SimFlashF4, WordsAreNamedAndDeliveredAsTheManualsHaveThem) {
  const sim::Device Device(*sim::FindDevice("STM32F723"));
  ASSERT_EQ(3u, Device.Flash().Words().size());
  EXPECT_STREQ("OPTCR", Device.Flash().Words()[0].sName);
  EXPECT_STREQ("OPTCR2", Device.Flash().Words()[2].sName);
  EXPECT_EQ(0xC0FFAAFCu, Device.Flash().Stored(0));
  EXPECT_EQ(0x00400080u, Device.Flash().Stored(1));
  EXPECT_EQ(0x80000000u, Device.Flash().Stored(2));
  EXPECT_EQ("BOR_LEV=3 WWDG_SW IWDG_SW nRST_STOP nRST_STDBY RDP=AA nWRP=FF IWDG_STDBY IWDG_STOP",
            sim::DecodeFields(Device.Flash().Words()[0].sFields, 0xC0FFAAFC));
}

TEST(SimFlashF4, DeliveredWordsAreTheFactoryValues) {
  struct {
    const char*           sName;
    std::vector<uint32_t> Words;
  } const aExpected[] = {
      {"STM32F207", {0x0FFFAAEC}},
      {"STM32F407", {0x0FFFAAEC}},
      {"STM32F413", {0x7FFFAAEC}},
      {"STM32F429", {0x0FFFAAEC, 0x0FFF0000}},
      {"STM32F469", {0x0FFFAAEC, 0x0FFF0000}},
      {"STM32F723", {0xC0FFAAFC, 0x00400080, 0x80000000}},
      {"STM32F746", {0xC0FFAAFC, 0x00400080}},
      {"STM32F767", {0xFFFFAAFC, 0x00400080}},
  };
  for (const auto& Expected : aExpected) {
    const sim::Device Device(*sim::FindDevice(Expected.sName));
    ASSERT_EQ(Expected.Words.size(), Device.Flash().Words().size()) << Expected.sName;
    for (size_t i = 0; i < Expected.Words.size(); i++) {
      EXPECT_EQ(Expected.Words[i], Device.Flash().Stored(static_cast<int>(i))) << Expected.sName;
      EXPECT_EQ(Expected.Words[i], Device.Flash().Words()[i].Factory) << Expected.sName;
    }
  }
}

TEST(SimFlashF4, AChangeThatRunsWhenTheDeviceIsSavedIsDoneWhenItIsLoaded) {
  Part Device("STM32F723", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTCR1, 0x12345678);
  Device.Write(OPTCR2, 0x80000003);
  Device.Write(OPTCR, 0xC0FEBBFE);
  sim::KeyFile File;
  Device.Device.SaveTo(&File);
  sim::Device Again(*sim::FindDevice("STM32F723"));
  std::string sError;
  ASSERT_TRUE(Again.LoadFrom(File, &sError)) << sError;
  EXPECT_EQ(0xC0FEBBFCu, Again.Flash().Stored(0));
  EXPECT_EQ(0x12345678u, Again.Flash().Stored(1));
  EXPECT_EQ(0x80000003u, Again.Flash().Stored(2));
  uint32_t Value = 0;
  EXPECT_TRUE(Again.Read(OPTCR, 4, &Value));
  EXPECT_EQ(0xC0FEBBFCu, Value);  // still unlocked
}

TEST(SimFlashF4, StatesThatADeviceCannotHaveAreRefused) {
  sim::CREATE_REQUEST Secure, Mismatch, Sector, PcropRdp, Both, Pcrop;
  Secure.Secure      = true;
  Mismatch.sMismatch = "rdp";
  Sector.Wrp         = {24};
  PcropRdp.PcropRdp  = 1;
  Both.Pcrop         = {1};
  Both.Wrp           = {2};
  Pcrop.Pcrop        = {24};
  for (const sim::CREATE_REQUEST& Request : {Secure, Mismatch, Sector, PcropRdp, Both, Pcrop}) {
    sim::Device Device(*sim::FindDevice("STM32F429"));
    std::string sError;
    EXPECT_FALSE(Device.Flash().Configure(Request, &sError));
    EXPECT_FALSE(sError.empty());
    EXPECT_EQ(0x0FFFAAECu, Device.Flash().Stored(0));
  }
  std::string sError;
  Sector.Wrp = {23};
  sim::Device Device(*sim::FindDevice("STM32F429"));
  EXPECT_TRUE(Device.Flash().Configure(Sector, &sError));
  EXPECT_EQ(0x07FF0000u, Device.Flash().Stored(1));
  EXPECT_EQ(0x0FFFAAECu, Device.Flash().Stored(0));
}

TEST(SimFlashF4, UserOptionsAreTakenInTheirPlaces) {
  struct {
    const char* sName;
    uint32_t    Optcr;
  } const aExpected[] = {{"STM32F207", 0x0FFFAA01},
                         {"STM32F413", 0x7FFFAA01},
                         {"STM32F429", 0x0FFFAA01},
                         {"STM32F723", 0x00FFAA01},
                         {"STM32F767", 0x0FFFAA01}};
  for (const auto& Expected : aExpected) {
    sim::CREATE_REQUEST Request;
    Request.User = 0;
    EXPECT_EQ(Expected.Optcr, Part(Expected.sName, Request).Read(OPTCR)) << Expected.sName;
  }
  sim::CREATE_REQUEST Request;
  Request.User = 0xFFFFFFFF;
  EXPECT_EQ(0x4FFFAAFDu, Part("STM32F429", Request).Read(OPTCR));
  EXPECT_EQ(0xFFFFAAFDu, Part("STM32F767", Request).Read(OPTCR));
}
