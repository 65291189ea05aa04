#include <array>

#include "silicon/l0_l1.h"
#include "sim/l0/l0.h"

namespace sim::l0 {

using silicon::Bit;
using silicon::Bits;

// -- Flash controller ----------------------------------------------------------------------------

// PELOCK, PRGLOCK and OPTLOCK can be set by software, keys clear them. OBL_LAUNCH is the controller's
// business.
static constexpr uint32_t LOCKS = PECR_PELOCK | PECR_PRGLOCK | PECR_OPTLOCK;

static constexpr silicon::FIELDS PecrL0 = {
    Bit("PELOCK", 0),        Bit("PRGLOCK", 1),   Bit("OPTLOCK", 2), Bit("PROG", 3),
    Bit("DATA", 4),          Bit("FIX", 8),       Bit("ERASE", 9),   Bit("FPRG", 10),
    Bit("PARALLELBANK", 15), Bit("EOPIE", 16),    Bit("ERRIE", 17),  Bit("OBL_LAUNCH", 18),
    Bit("HALF_ARRAY", 19),   Bit("NZDISABLE", 22)};
static constexpr silicon::FIELDS PecrL1 = {
    Bit("PELOCK", 0),        Bit("PRGLOCK", 1), Bit("OPTLOCK", 2), Bit("PROG", 3),
    Bit("DATA", 4),          Bit("FTDW", 8),    Bit("ERASE", 9),   Bit("FPRG", 10),
    Bit("PARALLELBANK", 15), Bit("EOPIE", 16),  Bit("ERRIE", 17),  Bit("OBL_LAUNCH", 18)};
static constexpr silicon::FIELDS SrL0 = {
    Bit("BSY", 0),    Bit("EOP", 1),         Bit("ENDHV", 2),   Bit("READY", 3),
    Bit("WRPERR", 8), Bit("PGAERR", 9),      Bit("SIZERR", 10), Bit("OPTVERR", 11),
    Bit("RDERR", 13), Bit("NOTZEROERR", 16), Bit("FWWERR", 17)};
static constexpr silicon::FIELDS SrL1 = {
    Bit("BSY", 0),         Bit("EOP", 1),    Bit("ENDHV", 2),   Bit("READY", 3),
    Bit("WRPERR", 8),      Bit("PGAERR", 9), Bit("SIZERR", 10), Bit("OPTVERR", 11),
    Bit("OPTVERRUSR", 12), Bit("RDERR", 13)};

static constexpr uint32_t FLAGS = SR_EOP | SR_WRPERR | SR_PGAERR | SR_SIZERR | SR_OPTVERR;

static constexpr REGISTER Plain(const char* sName, uint32_t Address,
                                const silicon::FIELDS& Fields = {}) {
  return {.sName = sName, .Address = Address, .Fields = Fields};
}

static constexpr auto TableL0(uint32_t PecrWritable) {
  constexpr uint32_t Base = silicon::l0::BASE_L0;
  return std::array{
      REGISTER{.sName    = "FLASH_ACR",
               .Address  = Base + ACR,
               .Writable = 0x0000007B,
               .Fields = {Bit("LATENCY", 0), Bit("PRFTEN", 1), Bit("SLEEP_PD", 3), Bit("RUN_PD", 4),
                          Bit("DISAB_BUF", 5), Bit("PRE_READ", 6)}},
      REGISTER{.sName    = "FLASH_PECR",
               .Address  = Base + PECR,
               .Reset    = LOCKS,
               .Writable = PecrWritable,
               .SetOnly  = LOCKS,
               .Fields   = PecrL0},
      Plain("FLASH_PDKEYR", Base + PDKEYR),
      Plain("FLASH_PEKEYR", Base + PEKEYR),
      Plain("FLASH_PRGKEYR", Base + PRGKEYR),
      Plain("FLASH_OPTKEYR", Base + OPTKEYR),
      REGISTER{.sName      = "FLASH_SR",
               .Address    = Base + SR,
               .Reset      = SR_ENDHV,
               .ClearByOne = FLAGS | SR_RDERR | SR_NOTZEROERR | SR_FWWERR,
               .Fields     = SrL0},
      Plain("FLASH_OPTR", Base + OPTR,
            {Bits("RDPROT", 7, 0), Bit("WPRMOD", 8), Bits("BOR_LEV", 19, 16), Bit("WDG_SW", 20),
             Bit("nRST_STOP", 21), Bit("nRST_STDBY", 22), Bit("BFB2", 23), Bit("nBOOT_SEL", 29),
             Bit("nBOOT0", 30), Bit("nBOOT1", 31)}),
      Plain("FLASH_WRPROT1", Base + WRPROT1, {Bits("WRPROT", 31, 0)}),
      Plain("FLASH_WRPROT2", Base + WRPROT2, {Bits("WRPROT", 15, 0)}),
  };
}

static constexpr auto TableL1(uint32_t FurtherFlags) {
  constexpr uint32_t Base = silicon::l0::BASE_L1;
  return std::array{
      REGISTER{.sName    = "FLASH_ACR",
               .Address  = Base + ACR,
               .Writable = 0x0000001F,
               .Fields = {Bit("LATENCY", 0), Bit("PRFTEN", 1), Bit("ACC64", 2), Bit("SLEEP_PD", 3),
                          Bit("RUN_PD", 4)}},
      REGISTER{.sName    = "FLASH_PECR",
               .Address  = Base + PECR,
               .Reset    = LOCKS,
               .Writable = 0x00038718,
               .SetOnly  = LOCKS,
               .Fields   = PecrL1},
      Plain("FLASH_PDKEYR", Base + PDKEYR),
      Plain("FLASH_PEKEYR", Base + PEKEYR),
      Plain("FLASH_PRGKEYR", Base + PRGKEYR),
      Plain("FLASH_OPTKEYR", Base + OPTKEYR),
      REGISTER{.sName      = "FLASH_SR",
               .Address    = Base + SR,
               .Reset      = SR_ENDHV | SR_READY,
               .ClearByOne = FLAGS | FurtherFlags,
               .Fields     = SrL1},
      Plain("FLASH_OBR", Base + OPTR,
            {Bits("RDPRT", 7, 0), Bit("SPRMOD", 8), Bits("BOR_LEV", 19, 16), Bit("IWDG_SW", 20),
             Bit("nRST_STOP", 21), Bit("nRST_STDBY", 22), Bit("nBFB2", 23)}),
      Plain("FLASH_WRPR1", Base + WRPROT1, {Bits("WRP", 31, 0)}),
      Plain("FLASH_WRPR2", Base + WRPROT2, {Bits("WRP", 31, 0)}),
      Plain("FLASH_WRPR3", Base + WRPROT3, {Bits("WRP", 31, 0)}),
      Plain("FLASH_WRPR4", Base + WRPROT4, {Bits("WRP", 31, 0)}),
  };
}

static constexpr auto TableL0Cat12 = TableL0(0x004B8718);  // with HALF_ARRAY
static constexpr auto TableL0Cat35 = TableL0(0x00438718);
static constexpr auto TableL1Cat1  = TableL1(0);
static constexpr auto TableL1Cat2  = TableL1(SR_RDERR);
static constexpr auto TableL1Cat3  = TableL1(SR_RDERR | SR_OPTVERRUSR);
static constexpr auto TableL1Cat45 = TableL1(SR_OPTVERRUSR);

constinit const std::span<const REGISTER> RegistersL0Cat12 = TableL0Cat12;
constinit const std::span<const REGISTER> RegistersL0Cat35 = TableL0Cat35;
constinit const std::span<const REGISTER> RegistersL1Cat1  = TableL1Cat1;
constinit const std::span<const REGISTER> RegistersL1Cat2  = TableL1Cat2;
constinit const std::span<const REGISTER> RegistersL1Cat3  = TableL1Cat3;
constinit const std::span<const REGISTER> RegistersL1Cat45 = TableL1Cat45;

static constexpr LOCK_ROW aLocks[] = {
    {.sState        = "keys",
     .Register      = PEKEYR,
     .First         = {0x89ABCDEF, "PEKEY1"},
     .Second        = {0x02030405, "PEKEY2"},
     .Control       = PECR,
     .ClosedBit     = PECR_PELOCK,
     .ThirdKeyKills = true},
    {.sState        = "program_keys",
     .Register      = PRGKEYR,
     .First         = {0x8C9DAEBF, "PRGKEY1"},
     .Second        = {0x13141516, "PRGKEY2"},
     .Control       = PECR,
     .ClosedBit     = PECR_PRGLOCK,
     .Behind        = FLASH_LOCK,
     .ThirdKeyKills = true},
    {.sState        = "option_keys",
     .Register      = OPTKEYR,
     .First         = {0xFBEAD9C8, "OPTKEY1"},
     .Second        = {0x24252627, "OPTKEY2"},
     .Control       = PECR,
     .ClosedBit     = PECR_OPTLOCK,
     .Behind        = FLASH_LOCK,
     .ThirdKeyKills = true},
};

constinit const std::span<const LOCK_ROW> Locks = aLocks;

// -- Around it -----------------------------------------------------------------------------------

static constexpr silicon::FIELDS IdFields     = {Bits("DEV_ID", 11, 0), Bits("REV_ID", 31, 16)};
static constexpr silicon::FIELDS DebugFields  = {Bit("DBG_SLEEP", 0), Bit("DBG_STOP", 1),
                                                 Bit("DBG_STANDBY", 2)};
static constexpr silicon::FIELDS FreezeFields = {Bit("DBG_WWDG_STOP", 11),
                                                 Bit("DBG_IWDG_STOP", 12)};

static constexpr REGISTER aSystemL0[] = {
    {.sName = "DBGMCU_IDCODE", .Address = 0x40015800, .Fields = IdFields},
    {.sName = "DBGMCU_CR", .Address = 0x40015804, .Writable = 0x00000007, .Fields = DebugFields},
    {.sName    = "DBGMCU_APB1_FZ",
     .Address  = 0x40015808,
     .Writable = 0x80601C11,
     .Fields   = FreezeFields},
    {.sName    = "RCC_APB2ENR",
     .Address  = 0x40021034,
     .Writable = 0x004052A5,
     .Fields   = {Bit("SYSCFGEN", 0), Bit("DBGEN", 22)}},
};

static constexpr REGISTER aSystemL1[] = {
    {.sName = "DBGMCU_IDCODE", .Address = 0xE0042000, .Fields = IdFields},
    {.sName = "DBGMCU_CR", .Address = 0xE0042004, .Writable = 0x000000E7, .Fields = DebugFields},
    {.sName    = "DBGMCU_APB1_FZ",
     .Address  = 0xE0042008,
     .Writable = 0x00601C3F,
     .Fields   = FreezeFields},
};

static const uint64_t WATCHDOG_US = 443000;  // 4096 steps of 4 / 37 kHz

constinit const SYSTEM_BLOCK SystemL0 = {
    .Registers  = aSystemL0,
    .DebugFirst = 0x40015800,
    .DebugLast  = 0x400158FF,
    .Gate       = 0x40021034,
    .GateBit    = 22,
    .Watchdogs  = {{.ResetUs = WATCHDOG_US, .Freeze = 0x40015808, .Bit = 12}}};
constinit const SYSTEM_BLOCK SystemL1 = {
    .Registers  = aSystemL1,
    .DebugFirst = 0xE0042000,
    .DebugLast  = 0xE00420FF,
    .Watchdogs  = {{.ResetUs = WATCHDOG_US, .Freeze = 0xE0042008, .Bit = 12}}};

}  // namespace sim::l0
