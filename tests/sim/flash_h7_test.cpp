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
