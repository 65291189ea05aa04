#include "silicon/l4.h"
#include "sim/l4/l4.h"

namespace sim {

namespace l4 {

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW L43_OPTR_BIT_20_STORED = {
    .sName   = "l43_optr_bit_20_stored",
    .Default = false,
    .sText   = "FLASH_OPTR bit 20 of single-bank L4 keeps what is written, instead of reading 1"};
const VARIANT_ROW L4_MISMATCH_BY_WORD = {
    .sName   = "l4_mismatch_by_word",
    .Default = false,
    .sText   = "L4 forces only the option word whose complement is wrong, not all of them"};

static constexpr const VARIANT_ROW* apVariants[]    = {&OBL_TRANSFER_FAILS, &L4_MISMATCH_BY_WORD};
static constexpr const VARIANT_ROW* apVariantsL43[] = {&OBL_TRANSFER_FAILS, &L4_MISMATCH_BY_WORD,
                                                       &L43_OPTR_BIT_20_STORED};

// -- Families ------------------------------------------------------------------------------------

static const L4_FAMILY L43 = {.pSystem   = &System,
                              .Variants  = apVariantsL43,
                              .Registers = RegistersL43,
                              .NumBanks  = 1,
                              .pSpareBit = &L43_OPTR_BIT_20_STORED};
static const L4_FAMILY L47 = {
    .pSystem = &System, .Variants = apVariants, .Registers = RegistersL47, .NumBanks = 2};
static const L4_FAMILY L49 = {
    .pSystem = &System, .Variants = apVariants, .Registers = RegistersL49, .NumBanks = 2};

// -- Devices -------------------------------------------------------------------------------------

static const L4_DEVICE aDevices[] = {
    {.pFacts = &silicon::STM32L433, .pFamily = &L43},
    {.pFacts = &silicon::STM32L476, .pFamily = &L47},
    {.pFacts = &silicon::STM32L496, .pFamily = &L49},
};

}  // namespace l4

std::span<const DEVICE_ROW> DevicesL4() {
  static const auto Rows = DeviceRows<l4::aDevices, l4::ControllerL4>();
  return Rows;
}

}  // namespace sim
