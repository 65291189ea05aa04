// SPDX-License-Identifier: MIT

#include "silicon/f0_f1_f3.h"
#include "sim/dbgmcu.h"
#include "sim/f1/f1.h"

namespace sim {

namespace f1 {

using silicon::Bit;
using silicon::Bits;
using silicon::FIELDS;

// clang-format off

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW F1_UNPROTECT_NEEDS_POWER_ON = {
    .sName = "f1_unprotect_needs_power_on", .Default = false,
    .sText = "F1 flash stays unreadable until power-on"};
const VARIANT_ROW F1_WRP_OF_FOUR_PAGES = {
    .sName = "f1_wrp_of_four_pages", .Default = false,
    .sText = "a WRP bit of the high-density value line covers 8 KB, not 4"};
const VARIANT_ROW F3_LOAD_ON_RESET = {
    .sName = "f3_load_on_reset", .Default = true,
    .sText = "F3 loads options at power-on and OBL_LAUNCH only"};

static constexpr const VARIANT_ROW* apVariantsF0[]   = {&OBL_TRANSFER_FAILS};
static constexpr const VARIANT_ROW* apVariantsF1[]   = {&F1_UNPROTECT_NEEDS_POWER_ON};
static constexpr const VARIANT_ROW* apVariantsF100[] = {&F1_UNPROTECT_NEEDS_POWER_ON,
                                                        &F1_WRP_OF_FOUR_PAGES};
static constexpr const VARIANT_ROW* apVariantsF3[]   = {&OBL_TRANSFER_FAILS, &F3_LOAD_ON_RESET};

// -- Flash controller ----------------------------------------------------------------------------

// What the families have in common. Of PRFTBE and PRFTBS only the former takes a write.
static constexpr REGISTER Acr = {
    .sName = "FLASH_ACR", .Address = BASE + ACR, .Reset = 0x00000030, .Writable = 0x00000017,
    .Fields = {Bits("LATENCY", 2, 0), Bit("PRFTBE", 4), Bit("PRFTBS", 5)}};
static constexpr REGISTER Keyr    = {.sName = "FLASH_KEYR", .Address = BASE + KEYR};
static constexpr REGISTER Optkeyr = {.sName = "FLASH_OPTKEYR", .Address = BASE + OPTKEYR};
static constexpr REGISTER Sr = {
    .sName = "FLASH_SR", .Address = BASE + SR, .ClearByOne = SR_PGERR | SR_WRPRTERR | SR_EOP,
    .Fields = {Bit("BSY", 0), Bit("PGERR", 2), Bit("WRPRTERR", 4), Bit("EOP", 5)}};
// Software can set LOCK and not clear it, clear OPTWRE and not set it; OPTWRE, STRT and OBL_LAUNCH
// are left to the controller's rules.
static constexpr FIELDS CrFields = {
    Bit("PG", 0), Bit("PER", 1), Bit("MER", 2), Bit("OPTPG", 4), Bit("OPTER", 5), Bit("STRT", 6),
    Bit("LOCK", 7), Bit("OPTWRE", 9), Bit("ERRIE", 10), Bit("EOPIE", 12)};
static constexpr REGISTER CrWith(const FIELDS& Fields) {
  return {.sName = "FLASH_CR", .Address = BASE + CR, .Reset = CR_LOCK, .Writable = 0x00001437,
          .SetOnly = CR_LOCK, .Fields = Fields};
}
static constexpr REGISTER CrF1   = CrWith(CrFields);
static constexpr REGISTER CrF0F3 = CrWith(CrFields + FIELDS{Bit("OBL_LAUNCH", 13)});
static constexpr REGISTER Ar = {.sName = "FLASH_AR", .Address = BASE + AR, .Writable = ~0u};
static constexpr REGISTER ObrF1 = {
    .sName = "FLASH_OBR", .Address = BASE + OBR,
    .Fields = {Bit("OPTERR", 0), Bit("RDPRT", 1), Bit("WDG_SW", 2), Bit("nRST_STOP", 3),
               Bit("nRST_STDBY", 4), Bits("DATA0", 17, 10), Bits("DATA1", 25, 18)}};
static constexpr REGISTER ObrF1XL = {
    .sName = "FLASH_OBR", .Address = BASE + OBR,
    .Fields = {Bit("OPTERR", 0), Bit("RDPRT", 1), Bit("WDG_SW", 2), Bit("nRST_STOP", 3),
               Bit("nRST_STDBY", 4), Bit("BFB2", 5), Bits("DATA0", 17, 10), Bits("DATA1", 25, 18)}};
static constexpr REGISTER ObrF0F3 = {
    .sName = "FLASH_OBR", .Address = BASE + OBR,
    .Fields = {Bit("OPTERR", 0), Bits("RDPRT", 2, 1), Bit("WDG_SW", 8), Bit("nRST_STOP", 9),
               Bit("nRST_STDBY", 10), Bit("nBOOT1", 12), Bit("VDDA_MONITOR", 13),
               Bit("RAM_PARITY_CHECK", 14), Bits("DATA0", 23, 16), Bits("DATA1", 31, 24)}};
static constexpr REGISTER Wrpr = {
    .sName = "FLASH_WRPR", .Address = BASE + WRPR, .Reset = ~0u, .Fields = {Bits("WRP", 31, 0)}};

// The second bank of XL density has no option bits.
static constexpr REGISTER Keyr2 = {.sName = "FLASH_KEYR2", .Address = BASE + BANK2 + KEYR};
static constexpr REGISTER Sr2 = {
    .sName = "FLASH_SR2", .Address = BASE + BANK2 + SR,
    .ClearByOne = SR_PGERR | SR_WRPRTERR | SR_EOP, .Fields = Sr.Fields};
static constexpr REGISTER Cr2 = {
    .sName = "FLASH_CR2", .Address = BASE + BANK2 + CR, .Reset = CR_LOCK, .Writable = 0x00001407,
    .SetOnly = CR_LOCK,
    .Fields = {Bit("PG", 0), Bit("PER", 1), Bit("MER", 2), Bit("STRT", 6), Bit("LOCK", 7),
               Bit("ERRIE", 10), Bit("EOPIE", 12)}};
static constexpr REGISTER Ar2 = {
    .sName = "FLASH_AR2", .Address = BASE + BANK2 + AR, .Writable = ~0u};

static constexpr REGISTER aRegistersF0F3[] = {Acr, Keyr, Optkeyr, Sr, CrF0F3, Ar, ObrF0F3, Wrpr};
static constexpr REGISTER aRegistersF1[]   = {Acr, Keyr, Optkeyr, Sr, CrF1, Ar, ObrF1, Wrpr};
static constexpr REGISTER aRegistersF1XL[] = {Acr, Keyr, Optkeyr, Sr, CrF1, Ar, ObrF1XL, Wrpr,
                                              Keyr2, Sr2, Cr2, Ar2};

// All locks take the same pair of keys.
static constexpr KEY KEY1 = {0x45670123, "KEY1"}, KEY2 = {0xCDEF89AB, "KEY2"};

static constexpr LOCK_ROW aLocks[] = {
    {.sState = "keys", .Register = KEYR, .First = KEY1, .Second = KEY2,
     .Control = CR, .ClosedBit = CR_LOCK},
    {.sState = "option_keys", .Register = OPTKEYR, .First = KEY1, .Second = KEY2,
     .Control = CR, .OpenBit = CR_OPTWRE, .Behind = FLASH_LOCK},
    {.sState = "keys_2", .Register = BANK2 + KEYR, .First = KEY1, .Second = KEY2,
     .Control = BANK2 + CR, .ClosedBit = CR_LOCK},
};
static constexpr auto LocksOfOneBank = std::span(aLocks).first(BANK2_LOCK);

// -- Around it -----------------------------------------------------------------------------------

static constexpr REGISTER RccCr = {
    .sName = "RCC_CR", .Address = 0x40021000, .Reset = 0x00000083, .Writable = 0x010D00F9,
    .Fields = {Bit("HSION", 0), Bit("HSIRDY", 1), Bits("HSITRIM", 7, 3), Bits("HSICAL", 15, 8),
               Bit("HSEON", 16), Bit("HSEBYP", 18), Bit("CSSON", 19), Bit("PLLON", 24)}};

static constexpr REGISTER aSystemF0[] = {
    IdCodeAt(0x40015800),
    {.sName = "DBGMCU_CR", .Address = 0x40015804, .Writable = 0x00000006,
     .Fields = {Bit("DBG_STOP", 1), Bit("DBG_STANDBY", 2)}},
    FreezeAt("DBGMCU_APB1_FZ", 0x40015808, 0x02201D33),
    RccCr,
    {.sName = "RCC_APB2ENR", .Address = 0x40021018, .Writable = 0x00475A01,
     .Fields = {Bit("SYSCFGEN", 0), Bit("DBGMCUEN", 22)}},
};

static constexpr REGISTER aSystemF1[] = {
    IdCodeAt(0xE0042000),
    {.sName = "DBGMCU_CR", .Address = 0xE0042004, .Writable = 0x003FFFE7,
     .Fields = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1), Bit("DBG_STANDBY", 2),
                Bit("DBG_IWDG_STOP", 8), Bit("DBG_WWDG_STOP", 9)}},
    RccCr,
};

static constexpr REGISTER aSystemF3[] = {
    IdCodeAt(0xE0042000),
    {.sName = "DBGMCU_CR", .Address = 0xE0042004, .Writable = 0x000000E7,
     .Fields = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1), Bit("DBG_STANDBY", 2)}},
    FreezeAt("DBGMCU_APB1_FZ", 0xE0042008, 0x42601C3F),
    RccCr,
};

static const uint64_t WATCHDOG_US = 410000;  // 4096 steps of 4 / 40 kHz

static constexpr SYSTEM_BLOCK SystemF0 = {
    .Registers = aSystemF0, .DebugFirst = 0x40015800, .DebugLast = 0x400158FF,
    .Gate = 0x40021018, .GateBit = 22, .RccCr = 0x40021000,
    .Watchdogs = {{.ResetUs = WATCHDOG_US, .Freeze = 0x40015808, .Bit = 12}}};
static constexpr SYSTEM_BLOCK SystemF1 = {
    .Registers = aSystemF1, .DebugFirst = 0xE0042000, .DebugLast = 0xE00420FF, .RccCr = 0x40021000,
    .Watchdogs = {{.ResetUs = WATCHDOG_US, .Freeze = 0xE0042004, .Bit = 8}}};
static constexpr SYSTEM_BLOCK SystemF3 = {
    .Registers = aSystemF3, .DebugFirst = 0xE0042000, .DebugLast = 0xE00420FF, .RccCr = 0x40021000,
    .Watchdogs = {{.ResetUs = WATCHDOG_US, .Freeze = 0xE0042008, .Bit = 12}}};

// -- Families ------------------------------------------------------------------------------------

static const uint32_t KB = silicon::KB;

static constexpr FAMILY AllF0 = {
    .pSystem = &SystemF0, .Variants = apVariantsF0, .Base = BASE, .Registers = aRegistersF0F3,
    .Locks = LocksOfOneBank};
static constexpr FAMILY AllF1 = {
    .pSystem = &SystemF1, .Variants = apVariantsF1, .Base = BASE, .Registers = aRegistersF1,
    .Locks = LocksOfOneBank};
static constexpr FAMILY F1Xl = {
    .pSystem = &SystemF1, .Variants = apVariantsF1, .Base = BASE, .Registers = aRegistersF1XL,
    .Locks = aLocks};
static constexpr FAMILY F100HighDensity = {
    .pSystem = &SystemF1, .Variants = apVariantsF100, .Base = BASE, .Registers = aRegistersF1,
    .Locks = LocksOfOneBank};
static constexpr FAMILY AllF3 = {
    .pSystem = &SystemF3, .Variants = apVariantsF3, .Base = BASE, .Registers = aRegistersF0F3,
    .Locks = LocksOfOneBank};

static constexpr F1_FAMILY F0OfSmallPages = {
    .Common = AllF0, .Loading = LOAD_ON_LAUNCH, .WordAccessOnly = true, .PageBytes = 1 * KB};
static constexpr F1_FAMILY F0OfLargePages = {
    .Common = AllF0, .Loading = LOAD_ON_LAUNCH, .WordAccessOnly = true, .PageBytes = 2 * KB};
static constexpr F1_FAMILY F1OfSmallPages  = {.Common = AllF1, .PageBytes = 1 * KB};
static constexpr F1_FAMILY F1OfLargePages  = {.Common = AllF1, .PageBytes = 2 * KB};
static constexpr F1_FAMILY F100OfLargePages = {
    .Common = F100HighDensity, .WrpStepUnknown = true, .PageBytes = 2 * KB};
static constexpr F1_FAMILY F1OfTwoBanks = {
    .Common = F1Xl, .PageBytes = 2 * KB, .BankBytes = 512 * KB};
static constexpr F1_FAMILY F3 = {
    .Common = AllF3, .Loading = LOAD_ON_BOTH, .WordAccessOnly = true, .PageBytes = 2 * KB};

// clang-format on

// -- Devices -------------------------------------------------------------------------------------

template <const silicon::DEVICE& Facts, const F1_FAMILY& Family>
static constexpr DEVICE_ROW Row = DeviceRow<ControllerF1, Facts, Family>;

static constexpr DEVICE_ROW aDevices[] = {
    Row<silicon::STM32F030, F0OfSmallPages>,
    Row<silicon::STM32F042, F0OfSmallPages>,
    Row<silicon::STM32F051, F0OfSmallPages>,
    Row<silicon::STM32F072, F0OfLargePages>,
    Row<silicon::STM32F091, F0OfLargePages>,
    Row<silicon::STM32F100, F1OfSmallPages>,
    Row<silicon::STM32F100xE, F100OfLargePages>,
    Row<silicon::STM32F103x6, F1OfSmallPages>,
    Row<silicon::STM32F103, F1OfSmallPages>,
    Row<silicon::STM32F103xE, F1OfLargePages>,
    Row<silicon::STM32F103xG, F1OfTwoBanks>,
    Row<silicon::STM32F105, F1OfLargePages>,
    Row<silicon::STM32F301, F3>,
    Row<silicon::STM32F303, F3>,
    Row<silicon::STM32F303xE, F3>,
    Row<silicon::STM32F334, F3>,
    Row<silicon::STM32F373, F3>,
};

}  // namespace f1

constinit const std::span<const DEVICE_ROW> DevicesF1 = f1::aDevices;

}  // namespace sim
