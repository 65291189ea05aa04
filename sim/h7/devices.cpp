// SPDX-License-Identifier: MIT

#include <algorithm>
#include <array>

#include "silicon/h7.h"
#include "sim/dbgmcu.h"
#include "sim/h7/h7.h"

namespace sim {

namespace h7 {

using silicon::Bit;
using silicon::Bits;
using silicon::FIELDS;

// clang-format off

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW H7_ERROR_CLEARED_ON_RESET = {
    .sName = "h7_error_cleared_on_reset", .Default = false, .sText = "a reset clears OPTCHANGEERR"};

static constexpr VARIANT_ROW H7_DELIVERED_BY_MANUAL = {
    .sName = "h7_delivered_by_manual", .Default = false,
    .sText = "delivered with ST_RAM_SIZE 0 and DMES 0, as printed"};
static constexpr VARIANT_ROW H723_DELIVERED_WITHOUT_DMES = {
    .sName = "h723_delivered_without_dmes", .Default = false,
    .sText = "delivered with DMES 0, as seen on one board"};
static constexpr VARIANT_ROW H723_SPARE_BITS_WRITABLE = {
    .sName = "h723_spare_bits_writable", .Default = false,
    .sText = "bits 25:23 of OPTSR take what is written"};
static constexpr VARIANT_ROW H723_SECOND_VIEW_FAULTS = {
    .sName = "h723_second_view_faults", .Default = false,
    .sText = "no answer where others have the second view of the registers"};
static constexpr VARIANT_ROW H750_BANK2_HAS_NO_OPTIONS = {
    .sName = "h750_bank2_has_no_options", .Default = false,
    .sText = "PRAR, SCAR and WPSN of the second bank read 0"};
static constexpr VARIANT_ROW H750_FLASH_ENDS_AT_128K = {
    .sName = "h750_flash_ends_at_128k", .Default = false,
    .sText = "no flash after the first 128 KB"};

static constexpr const VARIANT_ROW* apVariants743[] = {&H7_ERROR_CLEARED_ON_RESET,
                                                       &H7_DELIVERED_BY_MANUAL};
static constexpr const VARIANT_ROW* apVariants745[] = {&H7_ERROR_CLEARED_ON_RESET};
static constexpr const VARIANT_ROW* apVariants750[] = {
    &H7_ERROR_CLEARED_ON_RESET, &H7_DELIVERED_BY_MANUAL, &H750_BANK2_HAS_NO_OPTIONS,
    &H750_FLASH_ENDS_AT_128K};
static constexpr const VARIANT_ROW* apVariants723[] = {
    &H7_ERROR_CLEARED_ON_RESET, &H723_DELIVERED_WITHOUT_DMES, &H723_SPARE_BITS_WRITABLE,
    &H723_SECOND_VIEW_FAULTS};

// -- Registers -----------------------------------------------------------------------------------

static constexpr FIELDS SrFields = {
    Bit("BSY", 0), Bit("WBNE", 1), Bit("QW", 2), Bit("EOP", 16), Bit("WRPERR", 17),
    Bit("PGSERR", 18), Bit("STRBERR", 19), Bit("INCERR", 21), Bit("RDPERR", 23), Bit("RDSERR", 24)};
static constexpr FIELDS CcrFields = {
    Bit("CLR_EOP", 16), Bit("CLR_WRPERR", 17), Bit("CLR_PGSERR", 18), Bit("CLR_STRBERR", 19),
    Bit("CLR_INCERR", 21), Bit("CLR_RDPERR", 23), Bit("CLR_RDSERR", 24)};
static constexpr FIELDS CrFields = {
    Bit("LOCK", 0), Bit("PG", 1), Bit("SER", 2), Bit("BER", 3), Bits("PSIZE", 5, 4), Bit("FW", 6),
    Bit("START", 7), Bits("SNB", 10, 8), Bit("EOPIE", 16)};
static constexpr FIELDS OptcrFields = {
    Bit("OPTLOCK", 0), Bit("OPTSTART", 1), Bit("MER", 4), Bit("OPTCHANGEERRIE", 30),
    Bit("SWAP_BANK", 31)};

// The two registers of an option word: in force, and to program.
static constexpr REGISTER Cur(const char* sName, uint32_t Offset, const FIELDS& Fields) {
  return {.sName = sName, .Address = BASE + Offset, .Fields = Fields};
}
static constexpr REGISTER Prg(const char* sName, uint32_t Offset, const FIELDS& Fields) {
  return {.sName = sName, .Address = BASE + Offset, .Writable = Fields.Mask(), .Fields = Fields};
}

using VIEW = std::array<REGISTER, 17>;

static constexpr VIEW View1(const FIELDS& Optsr) {
  using silicon::h7::Prar, silicon::h7::Scar, silicon::h7::Wpsn, silicon::h7::Boot;
  return {{
      {.sName = "FLASH_KEYR1", .Address = BASE + KEYR},
      {.sName = "FLASH_OPTKEYR", .Address = BASE + OPTKEYR},
      {.sName = "FLASH_CR1", .Address = BASE + CR, .Reset = 0x00000031, .Writable = 0x0001073E,
       .SetOnly = CR_LOCK | CR_FW | CR_START, .Fields = CrFields},
      {.sName = "FLASH_SR1", .Address = BASE + SR, .Fields = SrFields},
      {.sName = "FLASH_CCR1", .Address = BASE + CCR, .Fields = CcrFields},
      {.sName = "FLASH_OPTCR", .Address = BASE + OPTCR, .Reset = OPTCR_OPTLOCK,
       .Writable = 0x40000000, .SetOnly = OPTCR_OPTLOCK, .Fields = OptcrFields},
      Cur("FLASH_OPTSR_CUR", OPTSR_CUR,
          FIELDS{Bit("OPT_BUSY", 0)} + Optsr + FIELDS{Bit("OPTCHANGEERR", 30)}),
      Prg("FLASH_OPTSR_PRG", OPTSR_PRG, Optsr),
      {.sName = "FLASH_OPTCCR", .Address = BASE + OPTCCR, .Fields = {Bit("CLR_OPTCHANGEERR", 30)}},
      Cur("FLASH_PRAR_CUR1", PRAR_CUR, Prar), Prg("FLASH_PRAR_PRG1", PRAR_PRG, Prar),
      Cur("FLASH_SCAR_CUR1", SCAR_CUR, Scar), Prg("FLASH_SCAR_PRG1", SCAR_PRG, Scar),
      Cur("FLASH_WPSN_CUR1R", WPSN_CUR, Wpsn), Prg("FLASH_WPSN_PRG1R", WPSN_PRG, Wpsn),
      Cur("FLASH_BOOT_CURR", BOOT_CUR, Boot), Prg("FLASH_BOOT_PRGR", BOOT_PRG, Boot),
  }};
}

static constexpr VIEW View2(VIEW Rows) {
  constexpr const char* asNames[] = {
      "FLASH_KEYR2", "FLASH_OPTKEYR2", "FLASH_CR2", "FLASH_SR2", "FLASH_CCR2", "FLASH_OPTCR2",
      "FLASH_OPTSR_CUR2", "FLASH_OPTSR_PRG2", "FLASH_OPTCCR2", "FLASH_PRAR_CUR2",
      "FLASH_PRAR_PRG2", "FLASH_SCAR_CUR2", "FLASH_SCAR_PRG2", "FLASH_WPSN_CUR2R",
      "FLASH_WPSN_PRG2R", "FLASH_BOOT_CURR2", "FLASH_BOOT_PRGR2"};
  for (size_t i = 0; i < Rows.size(); i++) {
    Rows[i].sName = asNames[i];
    Rows[i].Address += VIEW2;
  }
  return Rows;
}

template <size_t N, size_t M>
static constexpr std::array<REGISTER, N + M> operator+(const std::array<REGISTER, N>& First,
                                                       const std::array<REGISTER, M>& Second) {
  std::array<REGISTER, N + M> All;
  std::copy(First.begin(), First.end(), All.begin());
  std::copy(Second.begin(), Second.end(), All.begin() + N);
  return All;
}

static constexpr VIEW aView743 = View1(silicon::h7::Optsr743);
static constexpr VIEW aView745 = View1(silicon::h7::Optsr745);
static constexpr VIEW aView750 = View1(silicon::h7::OptsrOneBank);

static constexpr std::array<REGISTER, 2> aBoot4  = {
    Cur("FLASH_BOOT4_CURR", BOOT4_CUR, silicon::h7::Boot4),
    Prg("FLASH_BOOT4_PRGR", BOOT4_PRG, silicon::h7::Boot4)};
static constexpr std::array<REGISTER, 2> aOptsr2 = {
    Cur("FLASH_OPTSR2_CUR", OPTSR2_CUR, silicon::h7::Optsr2),
    Prg("FLASH_OPTSR2_PRG", OPTSR2_PRG, silicon::h7::Optsr2)};

static constexpr auto aRegisters743 = aView743 + View2(aView743);
static constexpr auto aRegisters745 = aView745 + View2(aView745) + aBoot4;
static constexpr auto aRegisters750 = aView750 + View2(aView750);
static constexpr auto aRegisters723 = aView750 + aOptsr2;

static constexpr KEY KEY1 = {0x45670123, "KEY1"}, KEY2 = {0xCDEF89AB, "KEY2"};

static constexpr LOCK_ROW aLocks[] = {
    {.sState = "keys_1", .Register = KEYR, .First = KEY1, .Second = KEY2, .Control = CR,
     .ClosedBit = CR_LOCK, .ThirdKeyKills = true},
    {.sState = "option_keys", .Register = OPTKEYR, .Alias = VIEW2 + OPTKEYR,
     .First = {0x08192A3B, "OPTKEY1"}, .Second = {0x4C5D6E7F, "OPTKEY2"}, .Control = OPTCR,
     .ClosedBit = OPTCR_OPTLOCK, .ThirdKeyKills = true},
    {.sState = "keys_2", .Register = VIEW2 + KEYR, .First = KEY1, .Second = KEY2,
     .Control = VIEW2 + CR, .ClosedBit = CR_LOCK, .ThirdKeyKills = true},
};

// -- Around it -----------------------------------------------------------------------------------

static constexpr REGISTER aSystem[] = {
    IdCodeAt(0x5C001000),
    {.sName = "DBGMCU_CR", .Address = 0x5C001004, .Writable = 0x00700007,
     .Fields = {Bit("DBGSLEEP_D1", 0), Bit("DBGSTOP_D1", 1), Bit("DBGSTBY_D1", 2)}},
    {.sName = "DBGMCU_APB3FZ1", .Address = 0x5C001034, .Writable = 0x00000040,
     .Fields = {Bit("WWDG1", 6)}},
    {.sName = "DBGMCU_APB4FZ1", .Address = 0x5C001054, .Writable = 0x00050780,
     .Fields = {Bit("WDGLSD1", 18)}},
};

// 4096 steps of 4 / 32 kHz.
static constexpr SYSTEM_BLOCK System = {
    .Registers = aSystem, .DebugFirst = 0x5C001000, .DebugLast = 0x5C0010FF,
    .Watchdogs = {{.ResetUs = 512000, .Freeze = 0x5C001054, .Bit = 18}}};

// -- Families and devices ------------------------------------------------------------------------

static constexpr uint32_t aBrownOutMv[] = {POWER_ON_MV, 2100, 2400, 2700};

static constexpr FAMILY Common(VARIANT_ROWS Variants, std::span<const REGISTER> Registers,
                               std::span<const LOCK_ROW> Locks) {
  return {.pSystem = &System, .Variants = Variants, .Base = BASE, .Registers = Registers,
          .Locks = Locks, .BrownOutMv = aBrownOutMv};
}

static constexpr H7_FAMILY H743 = {
    .Common = Common(apVariants743, aRegisters743, aLocks),
    .pOtherDelivery = &H7_DELIVERED_BY_MANUAL, .OtherOptsr = 0x1406AAF0, .OtherScar = 0x000000FF};
static constexpr H7_FAMILY H745 = {
    .Common = Common(apVariants745, aRegisters745, aLocks)};
static constexpr H7_FAMILY H750 = {
    .Common = Common(apVariants750, aRegisters750, aLocks),
    .pOtherDelivery = &H7_DELIVERED_BY_MANUAL, .OtherOptsr = 0x1406AAF0, .OtherScar = 0x000000FF,
    .pBank2HasNoOptions = &H750_BANK2_HAS_NO_OPTIONS,
    .pFlashEndsAsStated = &H750_FLASH_ENDS_AT_128K};
static constexpr H7_FAMILY H723 = {
    .Common = Common(apVariants723, aRegisters723, std::span(aLocks).first(BANK2_LOCK)),
    .NumBanks = 1,
    .pOtherDelivery = &H723_DELIVERED_WITHOUT_DMES, .OtherOptsr = 0x179EAAF0,
    .OtherScar = 0x000000FF, .pSpareBitsWritable = &H723_SPARE_BITS_WRITABLE,
    .pSecondViewFaults = &H723_SECOND_VIEW_FAULTS};

static constexpr DEVICE_ROW aDevices[] = {
    DeviceRow<ControllerH7, silicon::STM32H723, H723>,
    DeviceRow<ControllerH7, silicon::STM32H743, H743>,
    DeviceRow<ControllerH7, silicon::STM32H745, H745>,
    DeviceRow<ControllerH7, silicon::STM32H750, H750>,
};

// clang-format on

}  // namespace h7

constinit const std::span<const DEVICE_ROW> DevicesH7 = h7::aDevices;

}  // namespace sim
