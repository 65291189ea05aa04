// H7: one test per rule of the hardware. Addresses and keys as in the manual.

#include "tests/sim/part.h"

static const uint32_t OPTKEYR = 0x52002008, OPTCR = 0x52002018, OPTSR_CUR = 0x5200201C,
                      OPTSR_PRG = 0x52002020, OPTCCR = 0x52002024, PRAR_CUR = 0x52002028,
                      PRAR_PRG = 0x5200202C, SCAR_CUR = 0x52002030, SCAR_PRG = 0x52002034,
                      WPSN_CUR = 0x52002038, WPSN_PRG = 0x5200203C, BOOT_CUR = 0x52002040,
                      BOOT_PRG = 0x52002044, VIEW2 = 0x100;
static const uint32_t FLASH = 0x08000000, BANK2 = 0x08100000;
static const uint32_t CHANGE_ERROR = 1u << 30;

static void Unlock(Part* pPart) {
  pPart->Write(OPTKEYR, 0x08192A3B);
  pPart->Write(OPTKEYR, 0x4C5D6E7F);
}

static void Start(Part* pPart) {
  pPart->Write(OPTCR, 2);
  pPart->Finish();
}

static uint32_t WithRdp(Part* pPart, uint32_t Rdp) {
  return (pPart->Read(OPTSR_CUR) & 0xFFFF00FF) | Rdp << 8;
}

static sim::CREATE_REQUEST Pcrop(uint32_t Level, uint32_t Dmep) {
  sim::CREATE_REQUEST Request;
  Request.Level    = Level;
  Request.Pcrop    = {1, 2};
  Request.PcropRdp = Dmep;
  return Request;
}

TEST(SimFlashH7, RegistersHaveTheirResetValues) {
  Part Device("STM32H743");
  EXPECT_EQ(0x450u, Device.Read(0x5C001000) & 0xFFF);
  EXPECT_EQ(1u, Device.Read(OPTCR));
  EXPECT_EQ(0x1416AAF0u, Device.Read(OPTSR_CUR));
  EXPECT_EQ(0x1416AAF0u, Device.Read(OPTSR_PRG));
  for (const uint32_t View : {0u, VIEW2}) {
    EXPECT_EQ(0x000000FFu, Device.Read(PRAR_CUR + View));
    EXPECT_EQ(0x800000FFu, Device.Read(SCAR_CUR + View));
    EXPECT_EQ(0x000000FFu, Device.Read(WPSN_CUR + View));
    EXPECT_EQ(0x1FF00800u, Device.Read(BOOT_CUR + View));
  }
}

TEST(SimFlashH7, DeliveredAsPrintedWhereThatVariantIsChosen) {
  sim::Device Target(*sim::FindDevice("STM32H743"));
  ASSERT_TRUE(Target.SetVariant("h7_delivered_by_manual", 1));
  std::string sError;
  ASSERT_TRUE(Target.Flash().Configure({}, &sError));
  EXPECT_EQ(0x1406AAF0u, Target.Flash().Stored(0));
  EXPECT_EQ(0x000000FFu, Target.Flash().Stored(2));
}

TEST(SimFlashH7, OptkeyrOptcrAndOptsrAreOneRegisterAtTwoAddresses) {
  Part Device("STM32H743");
  Device.Write(OPTKEYR, 0x08192A3B);
  Device.Write(OPTKEYR + VIEW2, 0x4C5D6E7F);
  EXPECT_EQ(0u, Device.Read(OPTCR));
  EXPECT_EQ(0u, Device.Read(OPTCR + VIEW2));
  Device.Write(OPTSR_PRG + VIEW2, 0x1416AAE0);
  EXPECT_EQ(0x1416AAE0u, Device.Read(OPTSR_PRG));
  Device.Write(BOOT_PRG + VIEW2, 0x12345678);
  EXPECT_EQ(0x12345678u, Device.Read(BOOT_PRG));
  Device.Write(WPSN_PRG + VIEW2, 0);
  EXPECT_EQ(0xFFu, Device.Read(WPSN_PRG));  // this one is each bank's own
}

TEST(SimFlashH7, KeysAreSpoiltByAnythingOutOfOrder) {
  Part Wrong("STM32H743");
  EXPECT_FALSE(Wrong.TryWrite(OPTKEYR, 0x4C5D6E7F));
  EXPECT_FALSE(Wrong.TryWrite(OPTKEYR, 0x08192A3B));
  Wrong.Reset();
  Unlock(&Wrong);
  EXPECT_EQ(0u, Wrong.Read(OPTCR));
  EXPECT_FALSE(Wrong.TryWrite(OPTKEYR, 0x08192A3B));  // a third key
  EXPECT_EQ(1u, Wrong.Read(OPTCR));

  Part Between("STM32H743");
  Between.Write(OPTKEYR, 0x08192A3B);
  Between.Write(OPTCCR, 0);  // another register between the keys
  EXPECT_FALSE(Between.TryWrite(OPTKEYR, 0x4C5D6E7F));
  EXPECT_EQ(1u, Between.Read(OPTCR));

  Part Narrow("STM32H743");
  Narrow.Write(OPTKEYR, 0x08192A3B);
  EXPECT_FALSE(Narrow.TryWrite(OPTKEYR, 0x6E7F, 2));
  EXPECT_EQ(1u, Narrow.Read(OPTCR));
}

TEST(SimFlashH7, PrgRegistersAreClosedWhileOptlockIsSet) {
  Part Device("STM32H743");
  Device.Write(OPTSR_PRG, 0);
  Device.Write(WPSN_PRG, 0);
  Device.Write(OPTCR, 2);
  EXPECT_EQ(0x1416AAF0u, Device.Read(OPTSR_PRG));
  EXPECT_EQ(0xFFu, Device.Read(WPSN_PRG));
  EXPECT_EQ(1u, Device.Read(OPTCR));
}

TEST(SimFlashH7, BitsThatAreNotOptionsStayAsTheyAre) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x03C0AAF1);
  EXPECT_EQ(0x1400AAF0u, Device.Read(OPTSR_PRG));
}

TEST(SimFlashH7, NothingDifferentMeansNothingIsDone) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(OPTCR, 2);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
  EXPECT_EQ(0u, Device.Read(OPTCR));
}

TEST(SimFlashH7, AChangeIsBusyAndThenInForceWithoutReset) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(WPSN_PRG, 0xFE);
  Device.Write(WPSN_PRG + VIEW2, 0x7F);
  Device.Write(OPTCR, 2);
  EXPECT_EQ(1u, Device.Read(OPTSR_CUR) & 1);
  EXPECT_EQ(0xFFu, Device.Read(WPSN_CUR));
  Device.Wait(310);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
  EXPECT_EQ(0xFEu, Device.Read(WPSN_CUR));
  EXPECT_EQ(0x7Fu, Device.Read(WPSN_CUR + VIEW2));  // one start serves both banks
}

TEST(SimFlashH7, StartAndLockInOneWrite) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(WPSN_PRG, 0xFE);
  Device.Write(OPTCR, 3);
  Device.Finish();
  EXPECT_EQ(0xFEu, Device.Read(WPSN_CUR));
  EXPECT_EQ(1u, Device.Read(OPTCR));
}

TEST(SimFlashH7, PrgIsReloadedAtResetUnlessTheVariantSaysNo) {
  for (const uint32_t Reloaded : {1u, 0u}) {
    Part Device("STM32H743");
    EXPECT_TRUE(Device.Device.SetVariant("h7_prg_reloaded_on_reset", Reloaded));
    Unlock(&Device);
    Device.Write(WPSN_PRG, 0);
    Device.Reset();
    EXPECT_EQ(Reloaded ? 0xFFu : 0u, Device.Read(WPSN_PRG));
  }
}

TEST(SimFlashH7, AResetDuringAChangeKeepsTheOldValues) {
  Part Device("STM32H743", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Device.Write(OPTCR, 2);
  Device.Wait(1000);
  Device.Reset();
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
  EXPECT_EQ(1, Device.Level());
  EXPECT_EQ(1u, Device.Read(OPTCR));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashH7, AtLevel1FlashAndBackupAreClosed) {
  Part Device("STM32H743", AtLevel(1));
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_EQ(1u << 23, Device.Read(0x52002010));  // RDPERR, bank 1
  EXPECT_FALSE(Device.CanRead(BANK2));
  EXPECT_EQ(1u << 23, Device.Read(0x52002110));
  EXPECT_FALSE(Device.CanRead(0x38800000));
  EXPECT_FALSE(Device.CanRead(0x58004050));
  EXPECT_TRUE(Device.CanRead(0x20000000));
  EXPECT_TRUE(Device.CanRead(OPTSR_CUR));
}

TEST(SimFlashH7, OneToZeroErasesBothBanksAndBackup) {
  Part Device("STM32H743", AtLevel(1));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Device.Write(OPTCR, 2);
  Device.Wait(4900);
  EXPECT_EQ(1u, Device.Read(OPTSR_CUR) & 1);
  Device.Finish();
  EXPECT_EQ(0, Device.Level());
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_TRUE(Device.Erased(sim::BACKUP));
  EXPECT_EQ(0u, Device.Read(0x58004050));  // the backup registers went, too
}

TEST(SimFlashH7, RaisingTheLevelIsFreeAndErasesNothing) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xBB));
  Start(&Device);
  EXPECT_EQ(1, Device.Level());
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashH7, PcropMayGrowAndNotShrink) {
  Part Device("STM32H743", Pcrop(0, 0));
  EXPECT_EQ(0x05FF0200u, Device.Read(PRAR_CUR));
  EXPECT_FALSE(Device.CanRead(FLASH + 0x20000));
  EXPECT_TRUE(Device.CanRead(FLASH));
  Unlock(&Device);
  Device.Write(PRAR_PRG, 0x07FF0100);
  Start(&Device);
  EXPECT_EQ(0x07FF0100u, Device.Read(PRAR_CUR));
  Device.Write(PRAR_PRG, 0x000000FF);
  Device.Write(WPSN_PRG, 0x00);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ(0x07FF0100u, Device.Read(PRAR_CUR));
  EXPECT_EQ(0xFFu, Device.Read(WPSN_CUR));        // the whole change was given up
  EXPECT_EQ(0x000000FFu, Device.Read(PRAR_PRG));  // and what was written stays
}

TEST(SimFlashH7, ChangeErrorIsClearedThroughOptccrAndStaysOverAReset) {
  Part Device("STM32H743", Pcrop(0, 0));
  Unlock(&Device);
  Device.Write(PRAR_PRG, 0x000000FF);
  Start(&Device);
  Device.Reset();
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  Device.Write(OPTCCR, CHANGE_ERROR);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
}

TEST(SimFlashH7, PcropLeavesWithOneToZeroWhenDmepIsSet) {
  for (const uint32_t Dmep : {1u, 0u}) {
    Part Device("STM32H743", Pcrop(1, Dmep));
    Unlock(&Device);
    Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
    Device.Write(PRAR_PRG, 0x000000FF);
    Device.Write(PRAR_PRG + VIEW2, 0x000000FF);
    Start(&Device);
    EXPECT_EQ(Dmep == 0, (Device.Read(OPTSR_CUR) & CHANGE_ERROR) != 0);
    EXPECT_EQ(Dmep == 1 ? 0x000000FFu : 0x05FF0200u, Device.Read(PRAR_CUR));
    EXPECT_EQ(Dmep == 1, Device.FlashErased());
  }
}

TEST(SimFlashH7, UnprotectingSparesPcropSectorsWithoutDmep) {
  Part Device("STM32H743", Pcrop(1, 0));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Start(&Device);
  EXPECT_EQ(0, Device.Level());
  EXPECT_EQ(0x40000u, Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
  EXPECT_EQ(0x05FF0200u, Device.Read(PRAR_CUR));
}

TEST(SimFlashH7, UnprotectingWithDmepWipesTheAreaAndKeepsItsBounds) {
  Part Device("STM32H743", Pcrop(1, 1));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Start(&Device);
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_EQ(0x85FF0200u, Device.Read(PRAR_CUR));
}

TEST(SimFlashH7, DmepAndDmesCanBeSetFreelyAndNotClearedAlone) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(PRAR_PRG, 0x800000FF);
  Start(&Device);
  EXPECT_EQ(0x800000FFu, Device.Read(PRAR_CUR));
  Device.Write(PRAR_PRG, 0x000000FF);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  Part Secure("STM32H743");
  Unlock(&Secure);
  Secure.Write(SCAR_PRG, 0x000000FF);
  Start(&Secure);
  EXPECT_EQ(CHANGE_ERROR, Secure.Read(OPTSR_CUR) & CHANGE_ERROR);
}

TEST(SimFlashH7, ASecureAreaIsHiddenAndNotChangedByADebugger) {
  sim::CREATE_REQUEST Request;
  Request.Secure = true;
  Part Device("STM32H743", Request);
  EXPECT_EQ(0x81FF0000u, Device.Read(SCAR_CUR));
  EXPECT_NE(0u, Device.Read(OPTSR_CUR) & (1u << 21));
  EXPECT_FALSE(Device.CanRead(FLASH));
  Unlock(&Device);
  Device.Write(SCAR_PRG, 0x800000FF);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
}

TEST(SimFlashH7, SecurityIsClearedOnlyWithoutProtectedAreas) {
  sim::CREATE_REQUEST Request;
  Request.Secure = true;
  Part Device("STM32H743", Request);
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x1416AAF0);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);

  Request.Secure = false;
  Request.User   = 0x1436AAF0;
  Part Free("STM32H743", Request);
  Unlock(&Free);
  Free.Write(OPTSR_PRG, 0x1416AAF0);
  Start(&Free);
  EXPECT_EQ(0x1416AAF0u, Free.Read(OPTSR_CUR));
}

TEST(SimFlashH7, ASecureAreaLeavesWithOneToZero) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.Secure              = true;
  Part Device("STM32H743", Request);
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x1416AAF0);
  Device.Write(SCAR_PRG, 0x800000FF);
  Start(&Device);
  EXPECT_EQ(0x1416AAF0u, Device.Read(OPTSR_CUR));
  EXPECT_EQ(0x800000FFu, Device.Read(SCAR_CUR));
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashH7, SwappedBanksExchangeTheirViewsAtTheNextReset) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x9416AAF0);
  Device.Write(WPSN_PRG, 0xFE);
  Start(&Device);
  EXPECT_EQ(0x9416AAF0u, Device.Read(OPTSR_CUR));
  EXPECT_EQ(0xFEu, Device.Read(WPSN_CUR));
  EXPECT_EQ(0u, Device.Read(OPTCR) & 0x80000000);
  Device.Reset();
  EXPECT_EQ(0x80000001u, Device.Read(OPTCR));
  EXPECT_EQ(0xFFu, Device.Read(WPSN_CUR));
  EXPECT_EQ(0xFEu, Device.Read(WPSN_CUR + VIEW2));
}

TEST(SimFlashH7, ThereIsNoDebugBlockAtThePlaceOfTheOthers) {
  Part Device("STM32H743");
  EXPECT_FALSE(Device.TryWrite(0xE0042008, 0x1800));
}

TEST(SimFlashH7, AHardwareWatchdogBreaksTheEraseUnlessFrozen) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.User                = 0x1416AAE0;  // IWDG1_SW 0
  for (const bool Freeze : {false, true}) {
    Part Device("STM32H743", Request);
    if (Freeze) {
      Device.Write(0x5C001054, 1u << 18);
    }
    Device.Reset();
    Unlock(&Device);
    Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
    Device.Write(OPTCR, 2);
    Device.Wait(8000);
    EXPECT_EQ(Freeze ? 0 : 1, Device.Level());
    EXPECT_EQ(Freeze, Device.FlashErased());
  }
}

TEST(SimFlashH7, Level2ShutsTheDebugPort) {
  Part Device("STM32H743", AtLevel(2));
  EXPECT_FALSE(Device.CanRead(OPTSR_CUR));
}

// -- Registers, bit by bit

static const uint32_t KEYR = 0x52002004, CR = 0x5200200C, SR = 0x52002010, CCR = 0x52002014;
static const uint32_t BSY_QW = 0x5, WBNE = 0x2, EOP = 1u << 16, WRPERR = 1u << 17,
                      PGSERR = 1u << 18, STRBERR = 1u << 19, INCERR = 1u << 21, RDPERR = 1u << 23,
                      RDSERR = 1u << 24;

static void UnlockBank(Part* pPart, uint32_t View = 0) {
  pPart->Write(KEYR + View, 0x45670123);
  pPart->Write(KEYR + View, 0xCDEF89AB);
}

static sim::CREATE_REQUEST Secure(uint32_t Level) {
  sim::CREATE_REQUEST Request = AtLevel(Level);
  Request.Secure              = true;
  return Request;
}

TEST(SimFlashH7, EachRegisterHasItsOwnBits) {
  Part Device("STM32H743");
  EXPECT_EQ(0x31u, Device.Read(CR));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0u, Device.Read(OPTCCR));
  Unlock(&Device);
  const uint32_t aExpected[][3] = {
      {OPTSR_PRG, 0x14000020, 0xB43EFFFC}, {PRAR_PRG, 0, 0x8FFF0FFF},
      {SCAR_PRG, 0, 0x8FFF0FFF},           {WPSN_PRG, 0, 0xFF},
      {BOOT_PRG, 0, 0xFFFFFFFF},
  };
  for (const uint32_t View : {0u, VIEW2}) {
    for (const auto& [Address, Zeros, Ones] : aExpected) {
      Device.Write(Address + View, 0);
      EXPECT_EQ(Zeros, Device.Read(Address + View)) << Address + View;
      Device.Write(Address + View, 0xFFFFFFFF);
      EXPECT_EQ(Ones, Device.Read(Address + View)) << Address + View;
      const uint32_t Current = Device.Read(Address + View - 4);
      Device.Write(Address + View - 4, ~Current);  // values in force are for reading only
      EXPECT_EQ(Current, Device.Read(Address + View - 4)) << Address + View;
    }
    UnlockBank(&Device, View);
    Device.Write(CR + View, 0xFFFFFF3E);  // neither LOCK, FW nor START
    EXPECT_EQ(0x0001073Eu, Device.Read(CR + View));
    Device.Write(CR + View, 1);
    EXPECT_EQ(1u, Device.Read(CR + View));
    EXPECT_EQ(0u, Device.Read(KEYR + View));
    EXPECT_EQ(0u, Device.Read(OPTKEYR + View));
  }
  Device.Write(OPTCR, 0xFFFFFFEC);  // neither OPTLOCK, OPTSTART nor MER
  EXPECT_EQ(0x40000000u, Device.Read(OPTCR));
}

TEST(SimFlashH7, EachBankHasKeysOfItsOwn) {
  Part Device("STM32H743");
  UnlockBank(&Device);
  EXPECT_EQ(0x30u, Device.Read(CR));
  EXPECT_EQ(0x31u, Device.Read(CR + VIEW2));
  EXPECT_FALSE(Device.TryWrite(KEYR + VIEW2, 0xCDEF89AB));
  EXPECT_FALSE(Device.TryWrite(KEYR + VIEW2, 0x45670123));
  EXPECT_EQ(0x30u, Device.Read(CR));
  Device.Reset();
  EXPECT_EQ(0x31u, Device.Read(CR));
  UnlockBank(&Device, VIEW2);
  EXPECT_EQ(0x30u, Device.Read(CR + VIEW2));
}

TEST(SimFlashH7, AnotherKeyRegisterBetweenTheKeysSpoilsThemToo) {
  const uint32_t aRegisters[] = {KEYR, KEYR + VIEW2, OPTKEYR};
  for (const uint32_t First : aRegisters) {
    for (const uint32_t Second : aRegisters) {
      if (First == Second) {
        continue;
      }
      Part           Device("STM32H743");
      const uint32_t Key1 = First == OPTKEYR ? 0x08192A3B : 0x45670123;
      const uint32_t Key2 = First == OPTKEYR ? 0x4C5D6E7F : 0xCDEF89AB;
      Device.Write(First, Key1);
      Device.Write(Second, Second == OPTKEYR ? 0x08192A3B : 0x45670123);
      EXPECT_FALSE(Device.TryWrite(First, Key2)) << First << " " << Second;
      EXPECT_EQ(1u, Device.Read(First == OPTKEYR ? OPTCR : First + CR - KEYR) & 1);
    }
  }
}

TEST(SimFlashH7, AThirdKeyOrANarrowOneLocksABankUntilReset) {
  Part Device("STM32H743");
  UnlockBank(&Device);
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  EXPECT_EQ(0x31u, Device.Read(CR));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  Device.Reset();
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x0123, 2));
  EXPECT_FALSE(Device.TryWrite(KEYR, 0x45670123));
  EXPECT_EQ(0x31u, Device.Read(CR));
  Device.PowerCycle();
  UnlockBank(&Device);
  EXPECT_EQ(0x30u, Device.Read(CR));
}

TEST(SimFlashH7, ALockThatSoftwareClosedIsOpenedByTheKeys) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(OPTCR, 1);
  EXPECT_EQ(1u, Device.Read(OPTCR));
  Unlock(&Device);
  EXPECT_EQ(0u, Device.Read(OPTCR));
  UnlockBank(&Device);
  Device.Write(CR, 0x31);
  EXPECT_EQ(0x31u, Device.Read(CR));
  Device.Write(CR, 0x02);  // locked
  EXPECT_EQ(0x31u, Device.Read(CR));
  UnlockBank(&Device);
  EXPECT_EQ(0x30u, Device.Read(CR));
}

// -- Option changes

TEST(SimFlashH7, WhileAChangeRunsNothingElseIsTakenAndOptstartReadsAsOne) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(WPSN_PRG, 0xFE);
  Device.Write(OPTCR, 2);
  EXPECT_EQ(2u, Device.Read(OPTCR));
  Device.Write(WPSN_PRG, 0x00);
  EXPECT_EQ(0xFEu, Device.Read(WPSN_PRG));
  Device.Write(OPTCR, 2);
  Device.Wait(300);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
  EXPECT_EQ(0u, Device.Read(OPTCR));
  EXPECT_EQ(0xFEu, Device.Read(WPSN_CUR));
}

TEST(SimFlashH7, AChangeTakesItsTime) {
  struct {
    uint32_t Level, Max, Psize, Ms;
  } const aExpected[] = {
      {0, 0, 3, 300},  {0, 1, 3, 600},  {1, 0, 3, 5300},  {1, 1, 3, 10600},
      {1, 0, 2, 6300}, {1, 0, 1, 8300}, {1, 0, 0, 13300}, {1, 1, 0, 26600},
  };
  for (const auto& Expected : aExpected) {
    Part Device("STM32H743", AtLevel(Expected.Level));
    EXPECT_TRUE(Device.Device.SetVariant("timing_max", Expected.Max));
    UnlockBank(&Device);
    Device.Write(CR, Expected.Psize << 4);
    Unlock(&Device);
    Device.Write(OPTSR_PRG, 0x1416AAE0);
    Device.Write(OPTCR, 2);
    Device.Wait(Expected.Ms - 1);
    EXPECT_EQ(1u, Device.Read(OPTSR_CUR) & 1) << Expected.Ms;
    Device.Wait(1);
    EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1) << Expected.Ms;
    EXPECT_EQ(0u, Device.Read(SR));
  }
}

TEST(SimFlashH7, AnEraseCutShortSparesWhatItHadToSpare) {
  for (const bool Power : {false, true}) {
    Part Device("STM32H743", Pcrop(1, 0));
    Unlock(&Device);
    Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
    Device.Write(OPTCR, 2);
    Device.Wait(1000);
    Power ? Device.PowerCycle() : Device.Reset();
    EXPECT_EQ(1, Device.Level());
    sim::Memory* pFlash = Device.Device.FindMemory(sim::MAIN_FLASH);
    EXPECT_EQ(0xFFFFFFFFu, pFlash->WordAt(FLASH));
    EXPECT_EQ(0x12345678u, pFlash->WordAt(FLASH + 0x20000));
    EXPECT_EQ(0x12345678u, pFlash->WordAt(BANK2 + 0xFFFFC));
    EXPECT_FALSE(Device.Erased(sim::BACKUP));
  }
}

TEST(SimFlashH7, APowerCutDuringTheOptionWriteKeepsTheOldValues) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(WPSN_PRG, 0xFE);
  Device.Write(OPTCR, 2);
  Device.Wait(200);
  Device.PowerCycle();
  EXPECT_EQ(0xFFu, Device.Read(WPSN_CUR));
  EXPECT_EQ(0xFFu, Device.Read(WPSN_PRG));
}

TEST(SimFlashH7, ChangeErrorGoesWithPowerAndDoesNotStopTheNextChange) {
  Part Device("STM32H743", Pcrop(0, 0));
  Unlock(&Device);
  Device.Write(PRAR_PRG, 0x000000FF);
  Start(&Device);
  EXPECT_NE("", Device.Device.Flash().Remarks());
  Device.Write(OPTCCR, 0x3FFFFFFF);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  Device.Write(PRAR_PRG, 0x05FF0200);
  Device.Write(WPSN_PRG, 0xFE);
  Start(&Device);
  EXPECT_EQ(0xFEu, Device.Read(WPSN_CUR));
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  Device.PowerCycle();
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ("", Device.Device.Flash().Remarks());
}

TEST(SimFlashH7, ChangeErrorIsClearedByAResetWhereThatVariantIsChosen) {
  Part Device("STM32H743", Pcrop(0, 0));
  EXPECT_TRUE(Device.Device.SetVariant("h7_error_cleared_on_reset", 1));
  Unlock(&Device);
  Device.Write(PRAR_PRG, 0x000000FF);
  Start(&Device);
  Device.Reset();
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
}

TEST(SimFlashH7, AStoppedPcropAreaOfTheSecondBankRefusesTheChangeToo) {
  sim::CREATE_REQUEST Request;
  Request.Pcrop = {9};
  Part Device("STM32H743", Request);
  EXPECT_EQ(0x000000FFu, Device.Read(PRAR_CUR));
  EXPECT_EQ(0x03FF0200u, Device.Read(PRAR_CUR + VIEW2));
  Unlock(&Device);
  Device.Write(PRAR_PRG + VIEW2, 0x000000FF);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ(0x03FF0200u, Device.Read(PRAR_CUR + VIEW2));
}

// Which new bounds cover the old ones: everything else is a shrinking.
TEST(SimFlashH7, APcropAreaMayOnlyCoverMoreThanBefore) {
  struct {
    uint32_t Old, New;
    bool     Allowed;
  } const aExpected[] = {
      {0x05FF0200, 0x05FF0200, true},  {0x05FF0200, 0x05FF0100, true},
      {0x05FF0200, 0x06FF0200, true},  {0x05FF0200, 0x05FF0300, false},
      {0x05FF0200, 0x04FF0200, false}, {0x05FF0200, 0x00FF0100, false},
      {0x05FF0200, 0x03000300, true},  // start and end the same: the whole bank
      {0x03000300, 0x0FFF0000, false}, {0x03000300, 0x04000400, true},
      {0x000000FF, 0x05FF0200, true},  {0x05FF0200, 0x000000FF, false},
      {0x000000FF, 0x00000FFF, true},  // neither is an area
  };
  for (const auto& Expected : aExpected) {
    Part Device("STM32H743");
    Unlock(&Device);
    Device.Write(PRAR_PRG, Expected.Old);
    Start(&Device);
    ASSERT_EQ(Expected.Old, Device.Read(PRAR_CUR));
    Device.Write(PRAR_PRG, Expected.New);
    Start(&Device);
    EXPECT_EQ(!Expected.Allowed, (Device.Read(OPTSR_CUR) & CHANGE_ERROR) != 0) << Expected.New;
    EXPECT_EQ(Expected.Allowed ? Expected.New : Expected.Old, Device.Read(PRAR_CUR));
  }
}

TEST(SimFlashH7, AnAreaHidesItsUnitsAndNoOthers) {
  Part Device("STM32H743", {}, false);
  Unlock(&Device);
  Device.Write(PRAR_PRG, 0x00030002);          // 0x200 to 0x3FF
  Device.Write(PRAR_PRG + VIEW2, 0x00050005);  // the whole bank
  Start(&Device);
  EXPECT_TRUE(Device.CanRead(FLASH + 0x1FC));
  EXPECT_FALSE(Device.CanRead(FLASH + 0x200));
  EXPECT_FALSE(Device.CanRead(FLASH + 0x3FC));
  EXPECT_TRUE(Device.CanRead(FLASH + 0x400));
  EXPECT_FALSE(Device.CanRead(BANK2));
  EXPECT_FALSE(Device.CanRead(BANK2 + 0xFFFFC));
  EXPECT_EQ(RDPERR, Device.Read(SR));
  EXPECT_EQ(RDPERR, Device.Read(SR + VIEW2));
}

TEST(SimFlashH7, DmepInTheNewValueWipesAsWell) {
  Part Device("STM32H743", Pcrop(1, 0));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Device.Write(PRAR_PRG, 0x800000FF);
  Start(&Device);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ(0x800000FFu, Device.Read(PRAR_CUR));
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashH7, DmepAndDmesMayGoTogetherWithOneToZero) {
  Part Device("STM32H743", Pcrop(1, 1));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Device.Write(PRAR_PRG, 0x000000FF);
  Device.Write(PRAR_PRG + VIEW2, 0x000000FF);
  Device.Write(SCAR_PRG, 0x000000FF);
  Start(&Device);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ(0x000000FFu, Device.Read(PRAR_CUR));
  EXPECT_EQ(0x000000FFu, Device.Read(PRAR_CUR + VIEW2));
  EXPECT_EQ(0x000000FFu, Device.Read(SCAR_CUR));
  EXPECT_TRUE(Device.FlashErased());
}

TEST(SimFlashH7, ADebuggerMakesNoSecureAreaAndMovesNone) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(SCAR_PRG, 0x81FF0000);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ(0x800000FFu, Device.Read(SCAR_CUR));
  Part Protected("STM32H743", Secure(1));
  Unlock(&Protected);
  Protected.Write(OPTSR_PRG, WithRdp(&Protected, 0xAA));
  Protected.Write(SCAR_PRG, 0x83FF0000);  // not even with one to zero
  Start(&Protected);
  EXPECT_EQ(CHANGE_ERROR, Protected.Read(OPTSR_CUR) & CHANGE_ERROR);
  EXPECT_EQ(1, Protected.Level());
}

TEST(SimFlashH7, ASecureAreaThatStaysIsWipedAndKeepsItsBounds) {
  Part Device("STM32H743", Secure(1));
  Unlock(&Device);
  Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
  Start(&Device);
  EXPECT_EQ(0, Device.Level());
  EXPECT_TRUE(Device.FlashErased());
  EXPECT_EQ(0x81FF0000u, Device.Read(SCAR_CUR));
  EXPECT_FALSE(Device.CanRead(FLASH));
  EXPECT_EQ(RDSERR, Device.Read(SR));
  EXPECT_TRUE(Device.CanRead(FLASH + 0x20000));
}

TEST(SimFlashH7, SecurityStaysWhileAPcropAreaDoes) {
  sim::CREATE_REQUEST Request = Pcrop(0, 0);
  Request.User                = 0x1436AAF0;
  Part Device("STM32H743", Request);
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x1416AAF0);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
  Request.Level    = 1;
  Request.PcropRdp = 1;
  Part Wiped("STM32H743", Request);
  Unlock(&Wiped);
  Wiped.Write(OPTSR_PRG, 0x1416AAF0);
  Start(&Wiped);
  EXPECT_EQ(0x1416AAF0u, Wiped.Read(OPTSR_CUR));
}

TEST(SimFlashH7, SwappedBanksExchangeMemoryAndProtectionWithTheirViews) {
  Part Device("STM32H743", {}, false);
  Device.Device.FindMemory(sim::MAIN_FLASH)->WordAt(FLASH) = 0xCAFEBABE;
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x9416AAF0);
  Device.Write(PRAR_PRG, 0x00030002);
  Start(&Device);
  EXPECT_EQ(0xCAFEBABEu, Device.Read(FLASH));
  Device.Reset();
  EXPECT_EQ(0xCAFEBABEu, Device.Read(BANK2));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
  EXPECT_TRUE(Device.CanRead(FLASH + 0x200));
  EXPECT_FALSE(Device.CanRead(BANK2 + 0x200));
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(RDPERR, Device.Read(SR + VIEW2));
  UnlockBank(&Device, VIEW2);
  Device.Write(CR + VIEW2, 0x32);
  for (uint32_t i = 0; i < 32; i += 4) {
    Device.Write(BANK2 + 0x20 + i, i);
  }
  Device.Finish();
  EXPECT_EQ(4u, Device.Read(BANK2 + 0x24));
  Device.PowerCycle();
  EXPECT_EQ(0xCAFEBABEu, Device.Read(BANK2));  // still swapped
}

// -- What the sequence of two passes leads to, written out

static void PassOne(Part* pPart) {
  for (const uint32_t View : {0u, VIEW2}) {
    Unlock(pPart);
    pPart->Write(OPTSR_PRG + View, WithRdp(pPart, 0xAA));
    pPart->Write(WPSN_PRG + View, 0xFF);
    pPart->Write(OPTCR + View, 2);
    pPart->Finish();
    pPart->Write(OPTCR + View, 3);
  }
}

static void PassTwo(Part* pPart) {
  Unlock(pPart);
  for (const uint32_t View : {0u, VIEW2}) {
    pPart->Write(OPTSR_PRG + View, 0x1416AAF0);
    pPart->Write(PRAR_PRG + View, 0x000000FF);
    pPart->Write(SCAR_PRG + View, 0x800000FF);
    pPart->Write(WPSN_PRG + View, 0xFF);
    pPart->Write(BOOT_PRG + View, 0x1FF00800);
    pPart->Write(OPTCR + View, 2);
    pPart->Finish();
  }
  pPart->Reset();
}

static std::vector<uint32_t> Values(Part* pPart) {
  std::vector<uint32_t> Read;
  for (const uint32_t View : {0u, VIEW2}) {
    for (const uint32_t Address : {OPTSR_CUR, PRAR_CUR, SCAR_CUR, WPSN_CUR, BOOT_CUR}) {
      Read.push_back(pPart->Read(Address + View));
    }
  }
  return Read;
}

static const std::vector<uint32_t> aFactory = {0x1416AAF0, 0xFF, 0x800000FF, 0xFF, 0x1FF00800,
                                               0x1416AAF0, 0xFF, 0x800000FF, 0xFF, 0x1FF00800};

TEST(SimFlashH7, TwoPassesBringEveryPlainStateToFactoryValues) {
  sim::CREATE_REQUEST Worst = AtLevel(1);
  Worst.WrpAll              = true;
  Worst.User                = 0x10;
  for (const sim::CREATE_REQUEST& Request : {sim::CREATE_REQUEST(), AtLevel(1), Worst}) {
    Part Device("STM32H743", Request);
    for (int i = 0; i < 2; i++) {  // also from the state that the first time left
      PassOne(&Device);
      PassTwo(&Device);
      EXPECT_EQ(aFactory, Values(&Device));
      EXPECT_EQ(Request.Level.has_value(), Device.FlashErased());
    }
  }
  sim::Device Printed(*sim::FindDevice("STM32H743"));
  Part        Device("STM32H743");
  EXPECT_TRUE(Device.Device.SetVariant("h7_delivered_by_manual", 1));
  std::string sError;
  EXPECT_TRUE(Device.Device.Flash().Configure({}, &sError));
  Device.PowerCycle();
  PassOne(&Device);
  PassTwo(&Device);
  EXPECT_EQ(aFactory, Values(&Device));
}

TEST(SimFlashH7, TwoPassesCannotLiftPcropWhateverDmepAndLevel) {
  for (const uint32_t Dmep : {0u, 1u}) {
    for (const uint32_t Level : {0u, 1u}) {
      Part Device("STM32H743", Pcrop(Level, Dmep));
      PassOne(&Device);
      EXPECT_EQ(0, Device.Level());
      PassTwo(&Device);
      EXPECT_EQ(0x05FF0200u, Device.Read(PRAR_CUR) & 0x0FFF0FFF);
      EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
    }
  }
  sim::CREATE_REQUEST Request;  // of the second bank only: the first bank's part is done
  Request.Pcrop = {8};
  Request.User  = 0x10;
  Part Device("STM32H743", Request);
  PassOne(&Device);
  PassTwo(&Device);
  EXPECT_EQ(0x1416AAF0u, Device.Read(OPTSR_CUR) & ~CHANGE_ERROR);
  EXPECT_EQ(0x01FF0000u, Device.Read(PRAR_CUR + VIEW2));
}

TEST(SimFlashH7, TwoPassesCannotClearDmepNorASecureAreaNorSecurity) {
  Part Dmep("STM32H743");
  Unlock(&Dmep);
  Dmep.Write(PRAR_PRG, 0x800000FF);
  Start(&Dmep);
  Dmep.Reset();
  PassOne(&Dmep);
  PassTwo(&Dmep);
  EXPECT_EQ(0x800000FFu, Dmep.Read(PRAR_CUR));
  Part Area("STM32H743", Secure(1));
  PassOne(&Area);
  PassTwo(&Area);
  EXPECT_EQ(0x81FF0000u, Area.Read(SCAR_CUR));
  EXPECT_NE(0u, Area.Read(OPTSR_CUR) & (1u << 21));
}

TEST(SimFlashH7, TwoPassesUnswapTheBanks) {
  sim::CREATE_REQUEST Request = AtLevel(1);
  Request.User                = 0x9416AAF0;
  Part Device("STM32H743", Request);
  EXPECT_EQ(0x80000001u, Device.Read(OPTCR));
  PassOne(&Device);
  PassTwo(&Device);
  EXPECT_EQ(1u, Device.Read(OPTCR));
  EXPECT_EQ(aFactory, Values(&Device));
}

// -- Main flash by request

TEST(SimFlashH7, AFlashWordIsProgrammedWhenItIsFull) {
  Part Device("STM32H743", {}, false);
  UnlockBank(&Device);
  Device.Write(CR, 0x00010032);  // PG, x64, EOPIE
  for (uint32_t i = 0; i < 28; i += 4) {
    Device.Write(FLASH + 0x20 + i, 0x11111111 * (i / 4));
    EXPECT_EQ(WBNE, Device.Read(SR));
  }
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x20));
  Device.Write(FLASH + 0x3C, 0x77777777);
  EXPECT_EQ(BSY_QW | WBNE, Device.Read(SR));
  EXPECT_EQ(0u, Device.Read(SR + VIEW2));
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
  EXPECT_EQ(0u, Device.Read(OPTCR) & 2);
  EXPECT_EQ(0x66666666u, Device.Read(FLASH + 0x38));  // waits
  EXPECT_EQ(100u, Device.Device.TakeStalledUs());
  EXPECT_EQ(0x77777777u, Device.Read(FLASH + 0x3C));
  EXPECT_EQ(0u, Device.Read(FLASH + 0x20));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x40));
  EXPECT_EQ(EOP, Device.Read(SR));
  Device.Write(CCR, EOP);
  EXPECT_EQ(0u, Device.Read(SR));
}

TEST(SimFlashH7, FwProgramsAFlashWordThatIsNotFull) {
  Part Device("STM32H743", {}, false);
  UnlockBank(&Device, VIEW2);
  Device.Write(CR + VIEW2, 0x42);  // FW with nothing to write; PSIZE x8
  EXPECT_EQ(0x02u, Device.Read(CR + VIEW2));
  EXPECT_TRUE(Device.TryWrite(BANK2 + 0x22, 0x1234, 2));
  EXPECT_TRUE(Device.TryWrite(BANK2 + 0x25, 0x56, 1));
  EXPECT_EQ(WBNE, Device.Read(SR + VIEW2));
  EXPECT_EQ(0u, Device.Read(SR));
  Device.Write(CR + VIEW2, 0x02);  // no FW, so the rest is waited for
  EXPECT_EQ(WBNE, Device.Read(SR + VIEW2));
  Device.Write(CR + VIEW2, 0x42);
  EXPECT_EQ(0x42u, Device.Read(CR + VIEW2));
  EXPECT_EQ(0x1234FFFFu, Device.Read(BANK2 + 0x20));
  EXPECT_EQ(290u, Device.Device.TakeStalledUs());
  EXPECT_EQ(0xFFFF56FFu, Device.Read(BANK2 + 0x24));
  EXPECT_EQ(0x02u, Device.Read(CR + VIEW2));
  EXPECT_EQ(0u, Device.Read(SR + VIEW2));  // EOP only where its interrupt is enabled
}

TEST(SimFlashH7, AnEraseGoesBeforeWhatWasCollected) {
  Part Device("STM32H743");
  UnlockBank(&Device);
  Device.Write(CR, 0x32);
  Device.Write(FLASH, 0);
  Device.Write(CR, 0x1F4);  // START, FW, SER, sector 1
  EXPECT_EQ(BSY_QW | WBNE, Device.Read(SR));
  Device.Wait(1000);
  EXPECT_EQ(WBNE, Device.Read(SR));
  EXPECT_EQ(0x134u, Device.Read(CR));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x20000));
  EXPECT_EQ(0x12345678u, Device.Read(FLASH));
}

TEST(SimFlashH7, ProgrammingOnlyClearsBits) {
  Part Device("STM32H743", {}, false);
  UnlockBank(&Device);
  for (const uint32_t Value : {0xFFFF0F0Fu, 0x0F0FFFFFu}) {
    Device.Write(CR, 0x32);
    Device.Write(FLASH, Value);
    Device.Write(CR, 0x72);
    Device.Finish();
  }
  EXPECT_EQ(0x0F0F0F0Fu, Device.Read(FLASH));
}

TEST(SimFlashH7, AWrongWriteToFlashSetsItsFlagAndIsLost) {
  sim::CREATE_REQUEST Request = Pcrop(0, 0);  // sectors 1 and 2
  Request.Wrp                 = {3};
  Part Device("STM32H743", Request, false);
  Device.Write(FLASH, 0);  // locked, so PG is not set
  EXPECT_EQ(PGSERR, Device.Read(SR));
  Device.Write(BANK2, 0);
  EXPECT_EQ(PGSERR, Device.Read(SR + VIEW2));
  Device.Write(CCR, PGSERR);
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(PGSERR, Device.Read(SR + VIEW2));
  UnlockBank(&Device);
  Device.Write(CR, 0x32);
  for (const uint32_t Sector : {1u, 2u, 3u}) {
    Device.Write(FLASH + Sector * 0x20000, 0);
    EXPECT_EQ(WRPERR, Device.Read(SR)) << Sector;
    Device.Write(CCR, WRPERR);
  }
  Device.Write(FLASH, 0x11111111);
  Device.Write(FLASH, 0x22222222);  // twice
  EXPECT_EQ(STRBERR | WBNE, Device.Read(SR));
  Device.Write(CCR, STRBERR);
  Device.Write(FLASH + 0x20, 0);  // another flash word
  EXPECT_EQ(INCERR | WBNE, Device.Read(SR));
  Device.Write(CR, 0x72);
  Device.Finish();
  EXPECT_EQ(0x11111111u, Device.Read(FLASH));
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH + 0x20));
}

TEST(SimFlashH7, AResetForgetsWhatWasCollected) {
  Part Device("STM32H743", {}, false);
  UnlockBank(&Device);
  Device.Write(CR, 0x32);
  Device.Write(FLASH, 0);
  Device.Reset();
  EXPECT_EQ(0u, Device.Read(SR));
  UnlockBank(&Device);
  Device.Write(CR, 0x72);
  EXPECT_FALSE(Device.Device.Flash().Busy());
  EXPECT_EQ(0xFFFFFFFFu, Device.Read(FLASH));
}

TEST(SimFlashH7, ErasesTakeWhatTheyAreToldAndTheirTime) {
  struct {
    uint32_t Control, Max, Ms, First, Bytes;
  } const aExpected[] = {
      {0x0B4, 0, 1000, 0x00000, 0x20000},  {0x1B4, 0, 1000, 0x20000, 0x20000},
      {0x7B4, 1, 2000, 0xE0000, 0x20000},  {0x084, 0, 2000, 0x00000, 0x20000},
      {0x094, 0, 1800, 0x00000, 0x20000},  {0x0A4, 0, 1100, 0x00000, 0x20000},
      {0x0B8, 0, 5000, 0x00000, 0x100000}, {0x088, 1, 26000, 0x00000, 0x100000},
  };
  for (const auto& Expected : aExpected) {
    for (const uint32_t Bank : {0u, 1u}) {
      Part Device("STM32H743");
      EXPECT_TRUE(Device.Device.SetVariant("timing_max", Expected.Max));
      UnlockBank(&Device, Bank * VIEW2);
      Device.Write(CR + Bank * VIEW2, Expected.Control);
      EXPECT_EQ(Expected.Control, Device.Read(CR + Bank * VIEW2));
      EXPECT_EQ(0u, Device.Read(SR + (1 - Bank) * VIEW2));
      Device.Wait(Expected.Ms - 1);
      EXPECT_EQ(BSY_QW, Device.Read(SR + Bank * VIEW2));
      Device.Wait(1);
      EXPECT_EQ(0u, Device.Read(SR + Bank * VIEW2));
      EXPECT_EQ(Expected.Control & ~0x80u, Device.Read(CR + Bank * VIEW2));
      const uint32_t First = FLASH + Bank * 0x100000 + Expected.First;
      EXPECT_EQ(0xFFFFFFFFu, Device.Read(First));
      EXPECT_EQ(0xFFFFFFFFu, Device.Read(First + Expected.Bytes - 4));
      EXPECT_EQ(0x200000u - Expected.Bytes,
                Device.Device.FindMemory(sim::MAIN_FLASH)->BytesInUse());
      EXPECT_FALSE(Device.Erased(sim::BACKUP));
    }
  }
}

TEST(SimFlashH7, MerErasesBothBanksWhenAllLocksAreOpen) {
  for (const uint32_t Open : {0u, 1u, 2u, 3u}) {
    Part Device("STM32H743");
    if ((Open & 1) != 0) {
      UnlockBank(&Device);
    }
    if ((Open & 2) != 0) {
      UnlockBank(&Device, VIEW2);
    }
    Device.Write(OPTCR, 0x10);  // locked
    EXPECT_FALSE(Device.Device.Flash().Busy());
    Unlock(&Device);
    Device.Write(OPTCR, 0x10);
    EXPECT_EQ(Open == 3 ? BSY_QW : 0u, Device.Read(SR));
    EXPECT_EQ(Open == 3 ? BSY_QW : 0u, Device.Read(SR + VIEW2));
    EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
    Device.Finish();
    EXPECT_EQ(Open == 3, Device.FlashErased());
    EXPECT_EQ(0u, Device.Read(CR) & 0x80);
  }
}

TEST(SimFlashH7, WhatIsProtectedInPartIsNotErasedAtAll) {
  sim::CREATE_REQUEST Wrp = AtLevel(0), Area = Pcrop(0, 1);
  Wrp.Wrp = {2};
  for (const sim::CREATE_REQUEST& Request : {Wrp, Area, Secure(0)}) {
    Part Device("STM32H743", Request);
    UnlockBank(&Device);
    UnlockBank(&Device, VIEW2);
    Unlock(&Device);
    const uint32_t Sector = Request.Secure ? 0 : 2;
    Device.Write(CR, 0xB4 | Sector << 8);
    EXPECT_EQ(WRPERR, Device.Read(SR));
    Device.Write(CCR, WRPERR);
    Device.Write(CR, 0xB8);
    EXPECT_EQ(WRPERR, Device.Read(SR));
    EXPECT_EQ(0x38u, Device.Read(CR));
    Device.Write(CCR, WRPERR);
    Device.Write(OPTCR, 0x10);
    EXPECT_EQ(WRPERR, Device.Read(SR));
    EXPECT_EQ(WRPERR, Device.Read(SR + VIEW2));
    EXPECT_FALSE(Device.Device.Flash().Busy());
    Device.Write(CR + VIEW2, 0xB8);  // the other bank is free
    EXPECT_EQ(BSY_QW | WRPERR, Device.Read(SR + VIEW2));
  }
}

TEST(SimFlashH7, AtLevel1FlashIsNeitherProgrammedNorErased) {
  Part Device("STM32H743", AtLevel(1));
  UnlockBank(&Device);
  Device.Write(CR, 0x32);
  Device.Write(FLASH, 0);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  Device.Write(CCR, WRPERR);
  Device.Write(CR, 0xB4);
  EXPECT_EQ(WRPERR, Device.Read(SR));
  EXPECT_FALSE(Device.Device.Flash().Busy());
  EXPECT_FALSE(Device.TryWrite(0x38800000, 0));
  EXPECT_FALSE(Device.FlashErased());
}

TEST(SimFlashH7, AnEraseByRequestCutShortHasErasedAPart) {
  Part Bank("STM32H743");
  UnlockBank(&Bank, VIEW2);
  Bank.Write(CR + VIEW2, 0xB8);
  Bank.Wait(100);
  Bank.Reset();
  EXPECT_EQ(0x12345678u, Bank.Read(FLASH));
  EXPECT_EQ(0xFFFFFFFFu, Bank.Read(BANK2));
  EXPECT_EQ(0x12345678u, Bank.Read(BANK2 + 0xFFFFC));
  Part Sector("STM32H743");
  UnlockBank(&Sector);
  Sector.Write(CR, 0x1B4);
  Sector.Reset();
  EXPECT_EQ(0x12345678u, Sector.Read(FLASH));
  EXPECT_EQ(0xFFFFFFFFu, Sector.Read(FLASH + 0x20000));
  EXPECT_EQ(0x12345678u, Sector.Read(FLASH + 0x40000));
}

TEST(SimFlashH7, AControlWriteWaitsForTheRunningOperation) {
  Part Device("STM32H743");
  UnlockBank(&Device);
  Device.Write(CR, 0xB4);
  Device.Write(CR, 0x30);
  EXPECT_EQ(1000000u, Device.Device.TakeStalledUs());
  EXPECT_EQ(0u, Device.Read(SR));
  EXPECT_EQ(0x30u, Device.Read(CR));
}

TEST(SimFlashH7, OptionsAreNotChangedWhileFlashIsErased) {
  Part Device("STM32H743");
  Unlock(&Device);
  Device.Write(WPSN_PRG, 0xFE);
  UnlockBank(&Device);
  Device.Write(CR, 0xB4);
  Device.Write(OPTCR, 2);
  EXPECT_EQ(0u, Device.Read(OPTSR_CUR) & 1);
  Device.Finish();
  EXPECT_EQ(0xFFu, Device.Read(WPSN_CUR));
}

TEST(SimFlashH7, ProgrammingTakesItsTimeByPsize) {
  const uint32_t aUs[] = {290, 180, 130, 100};
  for (uint32_t Psize = 0; Psize < 4; Psize++) {
    Part Device("STM32H743", {}, false);
    UnlockBank(&Device);
    for (const uint32_t Max : {0u, 1u}) {
      EXPECT_TRUE(Device.Device.SetVariant("timing_max", Max));
      Device.Write(CR, 0x02 | Psize << 4);
      Device.Write(FLASH + Max * 0x20, 0);
      Device.Write(CR, 0x42 | Psize << 4);
      Device.Device.TakeStalledUs();
      Device.Read(FLASH);
      EXPECT_EQ(aUs[Psize] * (Max + 1), Device.Device.TakeStalledUs());
    }
  }
}

// -- Areas that unprotecting spares or wipes, bank by bank

static void Put(Part* pPart, const char* sOption, uint32_t Value) {
  EXPECT_TRUE(pPart->Device.Flash().LoadLine(std::string("option.") + sOption, Value));
  pPart->PowerCycle();
}

TEST(SimFlashH7, UnprotectingSparesAnAreaOfEitherKindInEitherBank) {
  struct {
    const char* sOption;
    uint32_t    Hidden;
  } const aExpected[] = {{"PRAR1", FLASH}, {"SCAR1", FLASH}, {"PRAR2", BANK2}, {"SCAR2", BANK2}};
  for (const auto& Expected : aExpected) {
    for (const uint32_t Wipe : {0u, 0x80000000u}) {
      Part Device("STM32H743", AtLevel(1));
      Put(&Device, Expected.sOption, 0x00030002 | Wipe);
      Unlock(&Device);
      Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
      Start(&Device);
      EXPECT_EQ(0, Device.Level());
      sim::Memory* pFlash = Device.Device.FindMemory(sim::MAIN_FLASH);
      EXPECT_EQ(Wipe != 0 ? 0u : 0x200u, pFlash->BytesInUse()) << Expected.sOption;
      EXPECT_EQ(Wipe != 0, pFlash->WordAt(Expected.Hidden + 0x200) == 0xFFFFFFFF);
    }
  }
}

TEST(SimFlashH7, ASecureAreaLeavesWhereDmesIsSetBeforeOrByTheChange) {
  for (const uint32_t Old : {0u, 0x80000000u}) {
    for (const uint32_t New : {0u, 0x80000000u}) {
      Part Device("STM32H743", AtLevel(1));
      Put(&Device, "SCAR1", 0x00030002 | Old);
      Unlock(&Device);
      Device.Write(OPTSR_PRG, WithRdp(&Device, 0xAA));
      Device.Write(SCAR_PRG, 0x000000FF | New);
      Start(&Device);
      EXPECT_EQ((Old | New) == 0, (Device.Read(OPTSR_CUR) & CHANGE_ERROR) != 0);
      EXPECT_EQ((Old | New) != 0, Device.FlashErased());
      EXPECT_EQ((Old | New) != 0 ? 0x000000FF | New : 0x00030002, Device.Read(SCAR_CUR));
    }
  }
}

TEST(SimFlashH7, ASecureAreaOfTheSecondBankKeepsSecurity) {
  Part Device("STM32H743");
  Put(&Device, "SCAR2", 0x80030002);
  Put(&Device, "OPTSR", 0x1436AAF0);
  Unlock(&Device);
  Device.Write(OPTSR_PRG, 0x1416AAF0);
  Start(&Device);
  EXPECT_EQ(CHANGE_ERROR, Device.Read(OPTSR_CUR) & CHANGE_ERROR);
}

// -- Around the flash controller

TEST(SimFlashH7, MemoriesLieWhereTheManualPutsThem) {
  Part           Device("STM32H743");
  const uint32_t aMemories[][2] = {
      {FLASH, 2 << 20}, {0x20000000, 128 << 10}, {0x38800000, 4 << 10}, {0x58004050, 128}};
  for (const auto& [Base, Bytes] : aMemories) {
    EXPECT_FALSE(Device.CanRead(Base - 4));
    EXPECT_TRUE(Device.CanRead(Base));
    EXPECT_TRUE(Device.CanRead(Base + Bytes - 4));
    EXPECT_FALSE(Device.CanRead(Base + Bytes));
  }
  EXPECT_EQ(0u, Device.Read(0x20000000));
  EXPECT_EQ(0x12345678u, Device.Read(0x38800000));
}

TEST(SimFlashH7, DebugRegistersOutliveAResetAndNotPowerOff) {
  Part Device("STM32H743");
  Device.Write(0x5C001000, 0);
  EXPECT_EQ(0x20036450u, Device.Read(0x5C001000));
  const uint32_t aExpected[][2] = {
      {0x5C001004, 0x00700007}, {0x5C001034, 0x00000040}, {0x5C001054, 0x00050780}};
  for (const auto& [Address, Ones] : aExpected) {
    EXPECT_EQ(0u, Device.Read(Address));
    Device.Write(Address, 0xFFFFFFFF);
    Device.Reset();
    EXPECT_EQ(Ones, Device.Read(Address));
  }
  Device.PowerCycle();
  for (const auto& [Address, Ones] : aExpected) {
    EXPECT_EQ(0u, Device.Read(Address));
  }
}

TEST(SimFlashH7, DeliveredWordsAreTheFactoryValues) {
  const sim::Device Device(*sim::FindDevice("STM32H743"));
  const uint32_t    aWords[] = {0x1416AAF0, 0xFF,       0x800000FF, 0xFF,
                                0xFF,       0x800000FF, 0xFF,       0x1FF00800};
  for (int i = 0; i < 8; i++) {
    EXPECT_EQ(aWords[i], Device.Flash().Stored(i));
  }
}

TEST(SimFlashH7, LocksErrorsSwapAndACollectedWordAreSaved) {
  sim::CREATE_REQUEST Request = Pcrop(0, 0);
  Request.User                = 0x9416AAF0;  // swapped
  Part Device("STM32H743", Request);
  UnlockBank(&Device);
  UnlockBank(&Device, VIEW2);
  Unlock(&Device);
  Device.Write(PRAR_PRG + VIEW2, 0x000000FF);
  Device.Write(OPTCR, 2);
  Device.Write(CR, 0x32);
  for (uint32_t i = 0; i < 7; i++) {
    Device.Write(FLASH + 0xE0040 + 4 * i, 0x10 + i);
  }
  sim::KeyFile File;
  Device.Device.SaveTo(&File);
  sim::Device Again(*sim::FindDevice("STM32H743"));
  std::string sError;
  ASSERT_TRUE(Again.LoadFrom(File, &sError)) << sError;
  for (uint32_t Address = 0x52002004; Address < 0x52002148; Address += 4) {
    uint32_t Value = 0;
    if (Again.Read(Address, 4, &Value)) {
      EXPECT_EQ(Device.Read(Address), Value) << Address;
    }
  }
  uint32_t Value = 0;
  EXPECT_TRUE(Again.Read(OPTSR_CUR, 4, &Value));
  EXPECT_EQ(CHANGE_ERROR, Value & CHANGE_ERROR);
  EXPECT_TRUE(Again.Read(SR, 4, &Value));
  EXPECT_EQ(WBNE, Value);
  for (const uint32_t Register : {KEYR, KEYR + VIEW2, OPTKEYR}) {
    EXPECT_FALSE(Again.Write(Register, 4, 0x45670123));  // a third key: they were open
  }
  EXPECT_TRUE(Again.Write(FLASH + 0xE005C, 4, 0x17));  // the eighth word
  Again.AdvanceTo(Again.NowUs() + 1000);
  for (uint32_t i = 0; i < 8; i++) {
    EXPECT_TRUE(Again.Read(FLASH + 0xE0040 + 4 * i, 4, &Value));
    EXPECT_EQ((0x10 + i) & 0x12345678, Value) << i;
  }
}

TEST(SimFlashH7, CreatedStatesAreExactlyThose) {
  sim::CREATE_REQUEST Request = AtLevel(2);
  Request.Wrp                 = {0, 9};
  Request.Pcrop               = {3, 8, 9};
  sim::Device Device(*sim::FindDevice("STM32H743"));
  std::string sError;
  EXPECT_TRUE(Device.Flash().Configure(Request, &sError)) << sError;
  const uint32_t aWords[] = {0x1416CCF0, 0x07FF0600, 0x800000FF, 0xFE,
                             0x03FF0000, 0x800000FF, 0xFD,       0x1FF00800};
  for (int i = 0; i < 8; i++) {
    EXPECT_EQ(aWords[i], Device.Flash().Stored(i)) << i;
  }
  Request.PcropAll = Request.WrpAll = true;
  Request.PcropRdp                  = 1;
  Request.User                      = 0xFFFFFFFF;
  EXPECT_TRUE(Device.Flash().Configure(Request, &sError)) << sError;
  EXPECT_EQ(0xB43ECCFCu, Device.Flash().Stored(0));
  EXPECT_EQ(0x8FFF0000u, Device.Flash().Stored(1));
  EXPECT_EQ(0x00u, Device.Flash().Stored(3));
  EXPECT_EQ(0x8FFF0000u, Device.Flash().Stored(4));
  EXPECT_EQ(0x00u, Device.Flash().Stored(6));
  sim::CREATE_REQUEST Mismatch, Split, Wrp, Pcrop;
  Mismatch.sMismatch = "rdp";
  Split.Pcrop        = {8, 10};
  Wrp.Wrp            = {16};
  Pcrop.Pcrop        = {16};
  for (const sim::CREATE_REQUEST& Each : {Mismatch, Split, Wrp, Pcrop}) {
    sError.clear();
    EXPECT_FALSE(Device.Flash().Configure(Each, &sError));
    EXPECT_FALSE(sError.empty());
  }
}
