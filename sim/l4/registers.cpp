#include <array>

#include "silicon/l4.h"
#include "sim/l4/l4.h"

namespace sim::l4 {

using silicon::Bit;
using silicon::Bits;

// -- Flash controller ----------------------------------------------------------------------------

// OPTSTRT, STRT and OBL_LAUNCH are the controller's business.
static constexpr uint32_t CR_ONE_BANK = 0x070407FF, CR_TWO_BANKS = CR_ONE_BANK | CR_BKER | CR_MER2;

static constexpr REGISTER aCommon[] = {
    {.sName    = "FLASH_ACR",
     .Address  = BASE + ACR,
     .Reset    = 0x00000600,
     .Writable = 0x00007F07,
     .Fields   = {Bits("LATENCY", 2, 0), Bit("PRFTEN", 8), Bit("ICEN", 9), Bit("DCEN", 10)}},
    {.sName = "FLASH_PDKEYR", .Address = BASE + PDKEYR},
    {.sName = "FLASH_KEYR", .Address = BASE + KEYR},
    {.sName = "FLASH_OPTKEYR", .Address = BASE + OPTKEYR},
    {.sName      = "FLASH_SR",
     .Address    = BASE + SR,
     .ClearByOne = SR_ERRORS | SR_EOP,
     .Fields     = {Bit("EOP", 0), Bit("OPERR", 1), Bit("PROGERR", 3), Bit("WRPERR", 4),
                    Bit("PGAERR", 5), Bit("SIZERR", 6), Bit("PGSERR", 7), Bit("MISERR", 8),
                    Bit("FASTERR", 9), Bit("RDERR", 14), Bit("OPTVERR", 15), Bit("BSY", 16)}},
    {.sName    = "FLASH_CR",
     .Address  = BASE + CR,
     .Reset    = CR_LOCK | CR_OPTLOCK,
     .Writable = CR_TWO_BANKS,
     .SetOnly  = CR_LOCK | CR_OPTLOCK,
     .Fields   = {Bit("PG", 0), Bit("PER", 1), Bit("MER1", 2), Bits("PNB", 10, 3), Bit("BKER", 11),
                  Bit("MER2", 15), Bit("STRT", 16), Bit("OPTSTRT", 17), Bit("FSTPG", 18),
                  Bit("EOPIE", 24), Bit("ERRIE", 25), Bit("RDERRIE", 26), Bit("OBL_LAUNCH", 27),
                  Bit("OPTLOCK", 30), Bit("LOCK", 31)}},
};
static constexpr size_t NUM_COMMON = std::size(aCommon);

static constexpr const char* apOptionNames[MAX_WORDS] = {
    "FLASH_OPTR",     "FLASH_PCROP1SR", "FLASH_PCROP1ER", "FLASH_WRP1AR", "FLASH_WRP1BR",
    "FLASH_PCROP2SR", "FLASH_PCROP2ER", "FLASH_WRP2AR",   "FLASH_WRP2BR"};

// A bit takes a write when it is an option; PCROP_RDP can be set and not cleared.
static constexpr REGISTER OptionRegister(const char* sName, const silicon::OPTION_WORD& Word) {
  REGISTER Row = {.sName = sName, .Address = Word.Loaded[0].Register, .Fields = Word.Fields};
  for (const silicon::FIELD& Field : Word.Fields) {
    const bool IsPcropRdp = Field.Kind == silicon::PCROP && Field.Mask() == PCROP_RDP;
    (IsPcropRdp ? Row.SetOnly : Row.Writable) |= Field.Mask();
  }
  return Row;
}

// A device with one bank reads zeros where the other's registers would be.
template <size_t NumWords>
static constexpr auto Table(const silicon::OPTION_WORD (&aWords)[NumWords]) {
  std::array<REGISTER, NUM_COMMON + MAX_WORDS> Rows;
  for (size_t i = 0; i < NUM_COMMON; i++) {
    Rows[i] = aCommon[i];
  }
  Rows[NUM_COMMON - 1].Writable = NumWords == MAX_WORDS ? CR_TWO_BANKS : CR_ONE_BANK;
  for (size_t i = 0; i < MAX_WORDS; i++) {
    Rows[NUM_COMMON + i] = i < NumWords
                               ? OptionRegister(apOptionNames[i], aWords[i])
                               : REGISTER{.sName   = "FLASH_RESERVED",
                                          .Address = silicon::l4::OptionsL47[i].Loaded[0].Register};
  }
  return Rows;
}

static constexpr auto TableL43 = Table(silicon::l4::OptionsL43);
static constexpr auto TableL47 = Table(silicon::l4::OptionsL47);
static constexpr auto TableL49 = Table(silicon::l4::OptionsL49);

constinit const std::span<const REGISTER> RegistersL43 = TableL43;
constinit const std::span<const REGISTER> RegistersL47 = TableL47;
constinit const std::span<const REGISTER> RegistersL49 = TableL49;

static constexpr LOCK_ROW aLocks[] = {
    {.sState        = "keys",
     .Register      = KEYR,
     .First         = {0x45670123, "KEY1"},
     .Second        = {0xCDEF89AB, "KEY2"},
     .Control       = CR,
     .ClosedBit     = CR_LOCK,
     .ThirdKeyKills = true},
    {.sState        = "option_keys",
     .Register      = OPTKEYR,
     .First         = {0x08192A3B, "OPTKEY1"},
     .Second        = {0x4C5D6E7F, "OPTKEY2"},
     .Control       = CR,
     .ClosedBit     = CR_OPTLOCK,
     .Behind        = FLASH_LOCK,
     .ThirdKeyKills = true},
};

constinit const std::span<const LOCK_ROW> Locks = aLocks;

// -- Around it -----------------------------------------------------------------------------------

static constexpr uint32_t FREEZE = 0xE0042008;

static constexpr REGISTER aSystem[] = {
    {.sName   = "DBGMCU_IDCODE",
     .Address = 0xE0042000,
     .Fields  = {Bits("DEV_ID", 11, 0), Bits("REV_ID", 31, 16)}},
    {.sName    = "DBGMCU_CR",
     .Address  = 0xE0042004,
     .Writable = 0x000000E7,
     .Fields   = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1), Bit("DBG_STANDBY", 2)}},
    {.sName    = "DBGMCU_APB1FZR1",
     .Address  = FREEZE,
     .Writable = 0x82E01C3F,
     .Fields   = {Bit("DBG_WWDG_STOP", 11), Bit("DBG_IWDG_STOP", 12)}},
};

static const uint64_t WATCHDOG_US = 512000;  // 4096 steps of 4 / 32 kHz
static const uint64_t WINDOW_US   = 65536;   // 64 steps of 4096 / 4 MHz

constinit const SYSTEM_BLOCK System = {
    .Registers  = aSystem,
    .DebugFirst = 0xE0042000,
    .DebugLast  = 0xE00420FF,
    .Watchdogs  = {{.ResetUs = WATCHDOG_US, .Freeze = FREEZE, .Bit = 12},
                   {.ResetUs = WINDOW_US, .Freeze = FREEZE, .Bit = 11}}};

}  // namespace sim::l4
