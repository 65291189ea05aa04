// SPDX-License-Identifier: MIT

#include "sim/dbgmcu.h"
#include "sim/f4/f4.h"

namespace sim {

namespace f4 {

using silicon::Bit;
using silicon::Bits;

// clang-format off

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW F4_LEVEL_AT_ONCE = {
    .sName = "f4_level_at_once", .Default = true,
    .sText = "F2, F4 and F7 protect as of the last reset"};
const VARIANT_ROW F4_OPTKEY_BUS_ERROR = {
    .sName = "f4_optkey_bus_error", .Default = false,
    .sText = "a wrong key in FLASH_OPTKEYR is a failed transfer"};
const VARIANT_ROW F4_DB1M_FREE_WITH_SPRMOD = {
    .sName = "f4_db1m_free_with_sprmod", .Default = true,
    .sText = "DB1M cannot change while SPRMOD is set"};

static constexpr const VARIANT_ROW* apVariants[]       = {&F4_LEVEL_AT_ONCE, &F4_OPTKEY_BUS_ERROR};
static constexpr const VARIANT_ROW* apVariantsOfDb1m[] = {&F4_LEVEL_AT_ONCE, &F4_OPTKEY_BUS_ERROR,
                                                          &F4_DB1M_FREE_WITH_SPRMOD};

// -- Flash controller ----------------------------------------------------------------------------

static constexpr REGISTER Acr = {
    .sName = "FLASH_ACR", .Address = BASE + ACR, .Writable = 0x00001F0F,
    .Fields = {Bits("LATENCY", 3, 0), Bit("PRFTEN", 8), Bit("ICEN", 9), Bit("DCEN", 10),
               Bit("ICRST", 11), Bit("DCRST", 12)}};
static constexpr REGISTER Keyr    = {.sName = "FLASH_KEYR", .Address = BASE + KEYR};
static constexpr REGISTER Optkeyr = {.sName = "FLASH_OPTKEYR", .Address = BASE + OPTKEYR};
static constexpr REGISTER Sr = {
    .sName = "FLASH_SR", .Address = BASE + SR, .ClearByOne = 0x000001F3,
    .Fields = {Bit("EOP", 0), Bit("OPERR", 1), Bit("WRPERR", 4), Bit("PGAERR", 5),
               Bit("PGPERR", 6), Bit("PGSERR", 7), Bit("RDERR", 8), Bit("BSY", 16)}};
static constexpr REGISTER SrOfF72 = {
    .sName = "FLASH_SR", .Address = BASE + SR, .ClearByOne = 0x000001F3,
    .Fields = {Bit("EOP", 0), Bit("OPERR", 1), Bit("WRPERR", 4), Bit("PGAERR", 5),
               Bit("PGPERR", 6), Bit("ERSERR", 7), Bit("RDERR", 8), Bit("BSY", 16)}};
// Where there can be two banks SNB has one bit more, and the second bank has its own erase bit.
static constexpr REGISTER CrWith(uint32_t Writable, const char* sEraseOfBank2) {
  return {.sName = "FLASH_CR", .Address = BASE + CR, .Reset = CR_LOCK, .Writable = Writable,
          .SetOnly = CR_STRT | CR_LOCK,
          .Fields = {Bit("PG", 0), Bit("SER", 1), Bit("MER", 2), Bits("SNB", 7, 3),
                     Bits("PSIZE", 9, 8), Bit(sEraseOfBank2, 15), Bit("STRT", 16),
                     Bit("EOPIE", 24), Bit("ERRIE", 25), Bit("LOCK", 31)}};
}
static constexpr REGISTER Cr           = CrWith(0x0300037F, "MER1");
static constexpr REGISTER CrOfTwoBanks = CrWith(0x030083FF, "MER1");
static constexpr REGISTER CrOfF76      = CrWith(0x030083FF, "MER2");

// OPTCR to OPTCR2 have the fields of the option words, OPTCR also its lock and start bits.
static constexpr REGISTER OptionRegister(const silicon::OPTION_WORD& Word, size_t Index) {
  constexpr const char* asNames[] = {"FLASH_OPTCR", "FLASH_OPTCR1", "FLASH_OPTCR2"};
  REGISTER Row = {.sName = asNames[Index], .Address = Word.Loaded[0].Register,
                  .Writable = Word.Fields.Mask(), .Fields = Word.Fields};
  if (Index == WORD_OPTCR) {
    Row.Reset = OPTCR_OPTLOCK;
    Row.SetOnly = OPTCR_OPTLOCK | OPTCR_OPTSTRT;
    Row.Fields = silicon::FIELDS{Bit("OPTLOCK", 0), Bit("OPTSTRT", 1)} + Word.Fields;
  }
  return Row;
}

// Where other parts of this generation have OPTCR1.
static constexpr REGISTER ReservedWord = {.sName = "reserved", .Address = BASE + OPTCR1};

static constexpr LOCK_ROW aLocks[] = {
    {.sState = "keys", .Register = KEYR, .First = {0x45670123, "KEY1"},
     .Second = {0xCDEF89AB, "KEY2"}, .Control = CR, .ClosedBit = CR_LOCK},
    {.sState = "option_keys", .Register = OPTKEYR, .First = {0x08192A3B, "OPTKEY1"},
     .Second = {0x4C5D6E7F, "OPTKEY2"}, .Control = OPTCR, .ClosedBit = OPTCR_OPTLOCK},
};

// -- Around it -----------------------------------------------------------------------------------

static constexpr REGISTER aSystem[] = {
    IdCodeAt(0xE0042000),
    {.sName = "DBGMCU_CR", .Address = 0xE0042004, .Writable = 0x000000E7,
     .Fields = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1), Bit("DBG_STANDBY", 2)}},
    FreezeAt("DBGMCU_APB1_FZ", 0xE0042008, 0x06E01DFF),
    {.sName = "DBGMCU_APB2_FZ", .Address = 0xE004200C, .Writable = 0x00070003},
    {.sName = "RCC_CR", .Address = 0x40023800, .Reset = 0x00000083, .Writable = 0x050D00F9,
     .Fields = {Bit("HSION", 0), Bit("HSIRDY", 1), Bits("HSITRIM", 7, 3), Bits("HSICAL", 15, 8),
                Bit("HSEON", 16), Bit("PLLON", 24)}},
};

// 4096 steps of 4 / 32 kHz; 262144 cycles of HSI.
static constexpr WATCHDOG_ROW Iwdg = {.ResetUs = 512000, .Freeze = 0xE0042008, .Bit = 12};
static constexpr WATCHDOG_ROW Wwdg = {.ResetUs = 16384, .Freeze = 0xE0042008, .Bit = 11};

static constexpr SYSTEM_BLOCK System = {
    .Registers = aSystem, .DebugFirst = 0xE0042000, .DebugLast = 0xE00420FF, .RccCr = 0x40023800,
    .Watchdogs = {Iwdg}};
static constexpr SYSTEM_BLOCK SystemF7 = {
    .Registers = aSystem, .DebugFirst = 0xE0042000, .DebugLast = 0xE00420FF, .RccCr = 0x40023800,
    .Watchdogs = {Iwdg, Wwdg}};

// -- Families ------------------------------------------------------------------------------------

static constexpr uint32_t aBrownOutMv[] = {2700, 2400, 2100, POWER_ON_MV};

// What the families differ in; registers for options are each device's own.
struct ROW {
  const SYSTEM_BLOCK& System;
  VARIANT_ROWS        Variants;
  const REGISTER&     Sr;
  const REGISTER&     Cr;
  PCROP_KIND          Pcrop = NO_PCROP;
};

static constexpr ROW F2F4         = {System, apVariants, Sr, Cr};
static constexpr ROW F4OfPcrop    = {System, apVariants, Sr, Cr, BY_SPRMOD};
static constexpr ROW F4OfTwoBanks = {System, apVariants, Sr, CrOfTwoBanks, BY_SPRMOD};
static constexpr ROW F4OfDb1m     = {System, apVariantsOfDb1m, Sr, CrOfTwoBanks, BY_SPRMOD};
static constexpr ROW F72          = {SystemF7, apVariants, SrOfF72, Cr, BY_OPTCR2};
static constexpr ROW F74          = {SystemF7, apVariants, Sr, Cr};
static constexpr ROW F76          = {SystemF7, apVariants, Sr, CrOfF76};

template <const silicon::DEVICE& Facts, const ROW& Row>
static constexpr auto aRegisters = [] {
  constexpr size_t NumOptions = Facts.Options.size();
  constexpr bool   IsReserved = Row.Pcrop == BY_SPRMOD && NumOptions == 1;
  std::array<REGISTER, 5 + NumOptions + IsReserved> Rows = {Acr, Keyr, Optkeyr, Row.Sr, Row.Cr};
  for (size_t i = 0; i < NumOptions; i++) {
    Rows[5 + i] = OptionRegister(Facts.Options[i], i);
  }
  if (IsReserved) {
    Rows.back() = ReservedWord;
  }
  return Rows;
}();

template <const silicon::DEVICE& Facts, const ROW& Row>
static constexpr F4_FAMILY Family = {
    .Common = {.pSystem = &Row.System, .Variants = Row.Variants, .Base = BASE,
               .Registers = aRegisters<Facts, Row>, .Locks = aLocks, .BrownOutMv = aBrownOutMv},
    .Pcrop = Row.Pcrop};

// -- Devices -------------------------------------------------------------------------------------

template <const silicon::DEVICE& Facts, const ROW& Row>
static constexpr DEVICE_ROW Device = DeviceRow<ControllerF4, Facts, Family<Facts, Row>>;

static constexpr DEVICE_ROW aDevices[] = {
    Device<silicon::STM32F207, F2F4>,      Device<silicon::STM32F401xC, F4OfPcrop>,
    Device<silicon::STM32F401, F4OfPcrop>, Device<silicon::STM32F407, F2F4>,
    Device<silicon::STM32F410, F4OfPcrop>, Device<silicon::STM32F411, F4OfPcrop>,
    Device<silicon::STM32F412, F4OfPcrop>, Device<silicon::STM32F413, F4OfPcrop>,
    Device<silicon::STM32F427, F4OfDb1m>,  Device<silicon::STM32F429, F4OfTwoBanks>,
    Device<silicon::STM32F446, F4OfPcrop>, Device<silicon::STM32F469, F4OfTwoBanks>,
    Device<silicon::STM32F723, F72>,       Device<silicon::STM32F746, F74>,
    Device<silicon::STM32F767, F76>,
};

// clang-format on

}  // namespace f4

constinit const std::span<const DEVICE_ROW> DevicesF4 = f4::aDevices;

}  // namespace sim
