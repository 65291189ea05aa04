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
