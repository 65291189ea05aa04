// SPDX-License-Identifier: MIT

// The rows of L4: registers, locks, what is around the controller, switches, families, devices.

#include <algorithm>
#include <array>

#include "silicon/l4.h"
#include "sim/dbgmcu.h"
#include "sim/l4/l4.h"

namespace sim {

namespace l4 {

using silicon::Bit;
using silicon::Bits;

// clang-format off

// -- Flash controller ----------------------------------------------------------------------------

// OPTSTRT, STRT and OBL_LAUNCH are left to the controller's rules.
static constexpr uint32_t CR_ONE_BANK = 0x070407FF, CR_TWO_BANKS = CR_ONE_BANK | CR_BKER | CR_MER2;

static constexpr REGISTER aCommon[] = {
    {.sName = "FLASH_ACR", .Address = BASE + ACR, .Reset = 0x00000600, .Writable = 0x00007F07,
     .Fields = {Bits("LATENCY", 2, 0), Bit("PRFTEN", 8), Bit("ICEN", 9), Bit("DCEN", 10)}},
    {.sName = "FLASH_PDKEYR", .Address = BASE + PDKEYR},
    {.sName = "FLASH_KEYR", .Address = BASE + KEYR},
    {.sName = "FLASH_OPTKEYR", .Address = BASE + OPTKEYR},
    {.sName = "FLASH_SR", .Address = BASE + SR, .ClearByOne = SR_ERRORS | SR_EOP,
     .Fields = {Bit("EOP", 0), Bit("OPERR", 1), Bit("PROGERR", 3), Bit("WRPERR", 4), Bit("PGAERR", 5),
                Bit("SIZERR", 6), Bit("PGSERR", 7), Bit("MISERR", 8), Bit("FASTERR", 9),
                Bit("RDERR", 14), Bit("OPTVERR", 15), Bit("BSY", 16), Bit("PEMPTY", 17)}},
    {.sName = "FLASH_CR", .Address = BASE + CR, .Reset = CR_LOCK | CR_OPTLOCK,
     .SetOnly = CR_LOCK | CR_OPTLOCK,
     .Fields = {Bit("PG", 0), Bit("PER", 1), Bit("MER1", 2), Bits("PNB", 10, 3), Bit("BKER", 11),
                Bit("MER2", 15), Bit("STRT", 16), Bit("OPTSTRT", 17), Bit("FSTPG", 18),
                Bit("EOPIE", 24), Bit("ERRIE", 25), Bit("RDERRIE", 26), Bit("OBL_LAUNCH", 27),
                Bit("OPTLOCK", 30), Bit("LOCK", 31)}},
};
static constexpr size_t NUM_COMMON = std::size(aCommon);

static constexpr const char* apOptionNames[MAX_WORDS] = {
    "FLASH_OPTR", "FLASH_PCROP1SR", "FLASH_PCROP1ER", "FLASH_WRP1AR", "FLASH_WRP1BR",
    "FLASH_PCROP2SR", "FLASH_PCROP2ER", "FLASH_WRP2AR", "FLASH_WRP2BR"};

// Option bits take a write, PCROP_RDP can be set and not cleared. A device with one bank reads zeros
// where the other's registers would be.
template <size_t NumWords>
static constexpr auto Table(const silicon::OPTION_WORD (&aWords)[NumWords]) {
  std::array<REGISTER, NUM_COMMON + MAX_WORDS> Rows;
  std::copy(std::begin(aCommon), std::end(aCommon), Rows.begin());
  Rows[NUM_COMMON - 1].Writable = NumWords == MAX_WORDS ? CR_TWO_BANKS : CR_ONE_BANK;
  for (size_t i = 0; i < MAX_WORDS; i++) {
    REGISTER& Row = Rows[NUM_COMMON + i];
    Row.sName     = i < NumWords ? apOptionNames[i] : "FLASH_RESERVED";
    Row.Address   = silicon::l4::OptionsL47[i].Loaded[0].Register;
    Row.Fields    = i < NumWords ? aWords[i].Fields : silicon::FIELDS{};
    for (const silicon::FIELD& Field : Row.Fields) {
      (i == WORD_PCROP_END && Field.Mask() == PCROP_RDP ? Row.SetOnly : Row.Writable) |= Field.Mask();
    }
  }
  return Rows;
}

static constexpr LOCK_ROW aLocks[] = {
    {.sState = "keys", .Register = KEYR, .First = {0x45670123, "KEY1"},
     .Second = {0xCDEF89AB, "KEY2"}, .Control = CR, .ClosedBit = CR_LOCK, .ThirdKeyKills = true},
    {.sState = "option_keys", .Register = OPTKEYR, .First = {0x08192A3B, "OPTKEY1"},
     .Second = {0x4C5D6E7F, "OPTKEY2"}, .Control = CR, .ClosedBit = CR_OPTLOCK,
     .Behind = FLASH_LOCK, .FollowsIt = true, .ThirdKeyKills = true},
};

// -- Around it -----------------------------------------------------------------------------------

static constexpr uint32_t FREEZE = 0xE0042008;

static constexpr REGISTER aSystem[] = {
    IdCodeAt(0xE0042000),
    {.sName = "DBGMCU_CR", .Address = 0xE0042004, .Writable = 0x000000E7,
     .Fields = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1), Bit("DBG_STANDBY", 2)}},
    FreezeAt("DBGMCU_APB1FZR1", FREEZE, 0x82E01C3F),
};

// 4096 steps of 4 / 32 kHz; 64 steps of 4096 / 4 MHz.
static constexpr SYSTEM_BLOCK System = {
    .Registers = aSystem, .DebugFirst = 0xE0042000, .DebugLast = 0xE00420FF,
    .Watchdogs = {{.ResetUs = 512000, .Freeze = FREEZE, .Bit = 12},
                  {.ResetUs = 65536, .Freeze = FREEZE, .Bit = 11}}};

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW L43_OPTR_BIT_20_STORED = {
    .sName = "l43_optr_bit_20_stored", .Default = false,
    .sText = "FLASH_OPTR bit 20 of single-bank L4 keeps what is written, instead of reading 1"};
const VARIANT_ROW L4_MISMATCH_BY_WORD = {
    .sName = "l4_mismatch_by_word", .Default = true,
    .sText = "one wrong complement makes L4 force all option words, not its own only"};

static constexpr const VARIANT_ROW* apVariants[]    = {&OBL_TRANSFER_FAILS, &L4_MISMATCH_BY_WORD};
static constexpr const VARIANT_ROW* apVariantsL43[] = {&OBL_TRANSFER_FAILS, &L4_MISMATCH_BY_WORD,
                                                       &L43_OPTR_BIT_20_STORED};

// -- Families and devices ------------------------------------------------------------------------

static constexpr auto TableL43 = Table(silicon::l4::OptionsL43);
static constexpr auto TableL45 = Table(silicon::l4::OptionsL45);
static constexpr auto TableL47 = Table(silicon::l4::OptionsL47);
static constexpr auto TableL49 = Table(silicon::l4::OptionsL49);

static constexpr uint32_t aBrownOutMv[] = {POWER_ON_MV, 2000, 2200, 2500, 2800};

static constexpr FAMILY Common(VARIANT_ROWS Variants, std::span<const REGISTER> Registers) {
  return {.pSystem = &System, .Variants = Variants, .Base = BASE, .Registers = Registers,
          .Locks = aLocks, .BrownOutMv = aBrownOutMv};
}

static constexpr L4_FAMILY L43 = {.Common = Common(apVariantsL43, TableL43), .NumBanks = 1,
                                  .pSpareBit = &L43_OPTR_BIT_20_STORED};
static constexpr L4_FAMILY L45 = {.Common = Common(apVariantsL43, TableL45), .NumBanks = 1,
                                  .pSpareBit = &L43_OPTR_BIT_20_STORED};
static constexpr L4_FAMILY L47 = {.Common = Common(apVariants, TableL47), .NumBanks = 2};
static constexpr L4_FAMILY L49 = {.Common = Common(apVariants, TableL49), .NumBanks = 2};

static constexpr DEVICE_ROW aDevices[] = {
    DeviceRow<ControllerL4, silicon::STM32L433, L43>,
    DeviceRow<ControllerL4, silicon::STM32L452, L45>,
    DeviceRow<ControllerL4, silicon::STM32L476, L47>,
    DeviceRow<ControllerL4, silicon::STM32L496, L49>,
};

// clang-format on

}  // namespace l4

constinit const std::span<const DEVICE_ROW> DevicesL4 = l4::aDevices;

}  // namespace sim
