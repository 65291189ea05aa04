// SPDX-License-Identifier: MIT

#include <array>

#include "silicon/l0_l1.h"
#include "sim/dbgmcu.h"
#include "sim/l0/l0.h"

namespace sim {

namespace l0 {

using silicon::Bit;
using silicon::Bits;

// clang-format off

// -- Flash controller ----------------------------------------------------------------------------

// Locks are set by software and cleared by keys; OBL_LAUNCH is left to the controller's rules.
static constexpr uint32_t LOCKS = PECR_PELOCK | PECR_PRGLOCK | PECR_OPTLOCK;
static constexpr uint32_t HALF_ARRAY = 1u << 19, NZDISABLE = 1u << 22;

// Pecr and Flags: bits of PECR and SR that this category has on top of those that all have. L0 has
// the first two registers of sector bits.
static constexpr auto Table(bool IsL1, uint32_t Pecr, uint32_t Flags) {
  const uint32_t Base = IsL1 ? silicon::l0::BASE_L1 : silicon::l0::BASE_L0;
  return std::array{
      REGISTER{.sName = "FLASH_ACR", .Address = Base + ACR, .Writable = IsL1 ? 0x1Fu : 0x7Bu,
               .Fields = {Bit("LATENCY", 0), Bit("PRFTEN", 1), Bit("ACC64", 2), Bit("SLEEP_PD", 3),
                          Bit("RUN_PD", 4)}},
      REGISTER{.sName = "FLASH_PECR", .Address = Base + PECR, .Reset = LOCKS,
               .Writable = 0x00038718 | Pecr, .SetOnly = LOCKS,
               .Fields = {Bit("PELOCK", 0), Bit("PRGLOCK", 1), Bit("OPTLOCK", 2), Bit("PROG", 3),
                          Bit("DATA", 4), Bit(IsL1 ? "FTDW" : "FIX", 8), Bit("ERASE", 9),
                          Bit("FPRG", 10), Bit("PARALLELBANK", 15), Bit("EOPIE", 16),
                          Bit("ERRIE", 17), Bit("OBL_LAUNCH", 18), Bit("HALF_ARRAY", 19),
                          Bit("NZDISABLE", 22)}},
      REGISTER{.sName = "FLASH_PDKEYR", .Address = Base + PDKEYR},
      REGISTER{.sName = "FLASH_PEKEYR", .Address = Base + PEKEYR},
      REGISTER{.sName = "FLASH_PRGKEYR", .Address = Base + PRGKEYR},
      REGISTER{.sName = "FLASH_OPTKEYR", .Address = Base + OPTKEYR},
      REGISTER{.sName = "FLASH_SR", .Address = Base + SR, .Reset = SR_ENDHV | (IsL1 ? SR_READY : 0),
               .ClearByOne = SR_EOP | SR_WRPERR | SR_PGAERR | SR_SIZERR | SR_OPTVERR | Flags,
               .Fields = {Bit("BSY", 0), Bit("EOP", 1), Bit("ENDHV", 2), Bit("READY", 3),
                          Bit("WRPERR", 8), Bit("PGAERR", 9), Bit("SIZERR", 10), Bit("OPTVERR", 11),
                          Bit("OPTVERRUSR", 12), Bit("RDERR", 13), Bit("NOTZEROERR", 16),
                          Bit("FWWERR", 17)}},
      REGISTER{.sName = IsL1 ? "FLASH_OBR" : "FLASH_OPTR", .Address = Base + OPTR,
               .Fields = {Bits(IsL1 ? "RDPRT" : "RDPROT", 7, 0), Bit(IsL1 ? "SPRMOD" : "WPRMOD", 8),
                          Bits("BOR_LEV", 19, 16), Bit(IsL1 ? "IWDG_SW" : "WDG_SW", 20),
                          Bit("nRST_STOP", 21), Bit("nRST_STDBY", 22),
                          Bit(IsL1 ? "nBFB2" : "BFB2", 23), Bit("nBOOT_SEL", 29), Bit("nBOOT0", 30),
                          Bit("nBOOT1", 31)}},
      REGISTER{.sName = IsL1 ? "FLASH_WRPR1" : "FLASH_WRPROT1", .Address = Base + WRPROT1},
      REGISTER{.sName = IsL1 ? "FLASH_WRPR2" : "FLASH_WRPROT2", .Address = Base + WRPROT2},
      REGISTER{.sName = "FLASH_WRPR3", .Address = Base + WRPROT3},
      REGISTER{.sName = "FLASH_WRPR4", .Address = Base + WRPROT4}};
}

static constexpr uint32_t FLAGS_L0 = SR_RDERR | SR_NOTZEROERR | SR_FWWERR;

static constexpr LOCK_ROW aLocks[] = {
    {.sState = "keys", .Register = PEKEYR, .First = {0x89ABCDEF, "PEKEY1"},
     .Second = {0x02030405, "PEKEY2"}, .Control = PECR, .ClosedBit = PECR_PELOCK,
     .ThirdKeyKills = true},
    {.sState = "program_keys", .Register = PRGKEYR, .First = {0x8C9DAEBF, "PRGKEY1"},
     .Second = {0x13141516, "PRGKEY2"}, .Control = PECR, .ClosedBit = PECR_PRGLOCK,
     .Behind = FLASH_LOCK, .FollowsIt = true, .ThirdKeyKills = true},
    {.sState = "option_keys", .Register = OPTKEYR, .First = {0xFBEAD9C8, "OPTKEY1"},
     .Second = {0x24252627, "OPTKEY2"}, .Control = PECR, .ClosedBit = PECR_OPTLOCK,
     .Behind = FLASH_LOCK, .FollowsIt = true, .ThirdKeyKills = true},
};

// -- Around it -----------------------------------------------------------------------------------

static constexpr silicon::FIELDS DebugFields = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1),
                                                Bit("DBG_STANDBY", 2)};

static constexpr REGISTER aSystemL0[] = {
    IdCodeAt(0x40015800),
    {.sName = "DBGMCU_CR", .Address = 0x40015804, .Writable = 0x00000007, .Fields = DebugFields},
    FreezeAt("DBGMCU_APB1_FZ", 0x40015808, 0x80601C11),
    {.sName = "RCC_APB2ENR", .Address = 0x40021034, .Writable = 0x004052A5,
     .Fields = {Bit("SYSCFGEN", 0), Bit("DBGEN", 22)}},
};

static constexpr REGISTER aSystemL1[] = {
    IdCodeAt(0xE0042000),
    {.sName = "DBGMCU_CR", .Address = 0xE0042004, .Writable = 0x000000E7, .Fields = DebugFields},
    FreezeAt("DBGMCU_APB1_FZ", 0xE0042008, 0x00601C3F),
};

static const uint64_t WATCHDOG_US = 443000;  // 4096 steps of 4 / 37 kHz

static constexpr SYSTEM_BLOCK SystemL0 = {
    .Registers = aSystemL0, .DebugFirst = 0x40015800, .DebugLast = 0x400158FF,
    .Gate = 0x40021034, .GateBit = 22,
    .Watchdogs = {{.ResetUs = WATCHDOG_US, .Freeze = 0x40015808, .Bit = 12}}};
static constexpr SYSTEM_BLOCK SystemL1 = {
    .Registers = aSystemL1, .DebugFirst = 0xE0042000, .DebugLast = 0xE00420FF,
    .Watchdogs = {{.ResetUs = WATCHDOG_US, .Freeze = 0xE0042008, .Bit = 12}}};

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW L0_SPARE_WORDS_WRITABLE = {
    .sName = "l0_spare_words_writable", .Default = true,
    .sText = "unused words of the L0 option page read as ones"};
const VARIANT_ROW L0_L1_REFUSE_PCROP_CLEAR = {
    .sName = "l0_l1_refuse_pcrop_clear", .Default = false,
    .sText = "at level 0 every write that would lift PCROP is refused"};
const VARIANT_ROW L0_L1_ALWAYS_ERASE_OPTIONS = {
    .sName = "l0_l1_always_erase_options", .Default = false,
    .sText = "an option word that is 0 is erased all the same before it is programmed"};
const VARIANT_ROW L1_ERRATUM_MASS_ERASE = {
    .sName = "l1_erratum_mass_erase", .Default = false,
    .sText = "L1 mass-erases when level 0 is written at level 0"};

static constexpr const VARIANT_ROW* apVariantsL0[] = {
    &OBL_TRANSFER_FAILS, &L0_L1_REFUSE_PCROP_CLEAR, &L0_L1_ALWAYS_ERASE_OPTIONS,
    &L0_SPARE_WORDS_WRITABLE};
static constexpr const VARIANT_ROW* apVariantsL1[] = {
    &OBL_TRANSFER_FAILS, &L0_L1_REFUSE_PCROP_CLEAR, &L0_L1_ALWAYS_ERASE_OPTIONS,
    &L1_ERRATUM_MASS_ERASE};

// -- Families and devices ------------------------------------------------------------------------

// BOR_LEV below 8 is off.
static constexpr uint32_t aBrownOutMv[] = {
    POWER_ON_MV, POWER_ON_MV, POWER_ON_MV, POWER_ON_MV, POWER_ON_MV, POWER_ON_MV, POWER_ON_MV,
    POWER_ON_MV, 1690, 1940, 2300, 2540, 2770};

static constexpr L0_FAMILY FamilyL0(std::span<const REGISTER> Registers) {
  return {.Common = {.pSystem = &SystemL0, .Variants = apVariantsL0,
                     .Base = silicon::l0::BASE_L0, .Registers = Registers, .Locks = aLocks,
                     .BrownOutMv = aBrownOutMv},
          .PageBytes = 128, .PecrWhileBusy = true, .NotZeroError = SR_NOTZEROERR};
}

static constexpr L0_FAMILY FamilyL1(std::span<const REGISTER> Registers) {
  return {.Common = {.pSystem = &SystemL1, .Variants = apVariantsL1,
                     .Base = silicon::l0::BASE_L1, .Registers = Registers, .Locks = aLocks,
                     .BrownOutMv = aBrownOutMv},
          .PageBytes = 256, .NotZeroError = SR_WRPERR, .PcropReadsFault = true,
          .EraseTakesOptions = true, .pErratum = &L1_ERRATUM_MASS_ERASE};
}

// clang-format on

static constexpr auto TableL0Cat12 = Table(false, NZDISABLE | HALF_ARRAY, FLAGS_L0);
static constexpr auto TableL0Cat35 = Table(false, NZDISABLE, FLAGS_L0);
static constexpr auto TableL1Cat1  = Table(true, 0, 0);
static constexpr auto TableL1Cat2  = Table(true, 0, SR_RDERR);
static constexpr auto TableL1Cat3  = Table(true, 0, SR_RDERR | SR_OPTVERRUSR);
static constexpr auto TableL1Cat45 = Table(true, 0, SR_OPTVERRUSR);

static constexpr L0_FAMILY L0Cat12 = FamilyL0(std::span(TableL0Cat12).first(10)),
                           L0Cat35 = FamilyL0(std::span(TableL0Cat35).first(10)),
                           L1Cat1 = FamilyL1(TableL1Cat1), L1Cat2 = FamilyL1(TableL1Cat2),
                           L1Cat3 = FamilyL1(TableL1Cat3), L1Cat45 = FamilyL1(TableL1Cat45);

template <const silicon::DEVICE& Facts, const L0_FAMILY& Family>
static constexpr DEVICE_ROW Row = DeviceRow<ControllerL0, Facts, Family>;

static constexpr DEVICE_ROW aDevices[] = {
    Row<silicon::STM32L011, L0Cat12>,   Row<silicon::STM32L031, L0Cat12>,
    Row<silicon::STM32L053, L0Cat35>,   Row<silicon::STM32L073, L0Cat35>,
    Row<silicon::STM32L100, L1Cat1>,    Row<silicon::STM32L100xBA, L1Cat2>,
    Row<silicon::STM32L151, L1Cat1>,    Row<silicon::STM32L151xCA, L1Cat45>,
    Row<silicon::STM32L151xD, L1Cat45>, Row<silicon::STM32L152, L1Cat2>,
    Row<silicon::STM32L152xC, L1Cat3>,  Row<silicon::STM32L152xE, L1Cat45>,
};

}  // namespace l0

constinit const std::span<const DEVICE_ROW> DevicesL0 = l0::aDevices;

}  // namespace sim
