// SPDX-License-Identifier: MIT

#include "silicon/f0_f1_f3.h"
#include "sim/f1/f1.h"

namespace sim {

namespace f1 {

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

// -- Families ------------------------------------------------------------------------------------

static const uint32_t KB = silicon::KB;

static const F1_FAMILY F0OfSmallPages = {
    .pSystem = &SystemF0, .Variants = apVariantsF0, .Registers = RegistersF0F3, .Locks = Locks,
    .Loading = LOAD_ON_LAUNCH, .WordAccessOnly = true, .PageBytes = 1 * KB};
static const F1_FAMILY F0OfLargePages = {
    .pSystem = &SystemF0, .Variants = apVariantsF0, .Registers = RegistersF0F3, .Locks = Locks,
    .Loading = LOAD_ON_LAUNCH, .WordAccessOnly = true, .PageBytes = 2 * KB};
static const F1_FAMILY F1OfSmallPages = {
    .pSystem = &SystemF1, .Variants = apVariantsF1, .Registers = RegistersF1, .Locks = Locks,
    .PageBytes = 1 * KB};
static const F1_FAMILY F1OfLargePages = {
    .pSystem = &SystemF1, .Variants = apVariantsF1, .Registers = RegistersF1, .Locks = Locks,
    .PageBytes = 2 * KB};
static const F1_FAMILY F100OfLargePages = {
    .pSystem = &SystemF1, .Variants = apVariantsF100, .Registers = RegistersF1, .Locks = Locks,
    .WrpStepUnknown = true, .PageBytes = 2 * KB};
static const F1_FAMILY F1OfTwoBanks = {
    .pSystem = &SystemF1, .Variants = apVariantsF1, .Registers = RegistersF1XL, .Locks = LocksXL,
    .PageBytes = 2 * KB, .BankBytes = 512 * KB};
static const F1_FAMILY F3 = {
    .pSystem = &SystemF3, .Variants = apVariantsF3, .Registers = RegistersF0F3, .Locks = Locks,
    .Loading = LOAD_ON_BOTH, .WordAccessOnly = true, .PageBytes = 2 * KB};

// clang-format on

// -- Devices -------------------------------------------------------------------------------------

static const F1_DEVICE aDevices[] = {
    {.pFacts = &silicon::STM32F030, .pFamily = &F0OfSmallPages},
    {.pFacts = &silicon::STM32F042, .pFamily = &F0OfSmallPages},
    {.pFacts = &silicon::STM32F051, .pFamily = &F0OfSmallPages},
    {.pFacts = &silicon::STM32F072, .pFamily = &F0OfLargePages},
    {.pFacts = &silicon::STM32F091, .pFamily = &F0OfLargePages},
    {.pFacts = &silicon::STM32F100, .pFamily = &F1OfSmallPages},
    {.pFacts = &silicon::STM32F100xE, .pFamily = &F100OfLargePages},
    {.pFacts = &silicon::STM32F103x6, .pFamily = &F1OfSmallPages},
    {.pFacts = &silicon::STM32F103, .pFamily = &F1OfSmallPages},
    {.pFacts = &silicon::STM32F103xE, .pFamily = &F1OfLargePages},
    {.pFacts = &silicon::STM32F103xG, .pFamily = &F1OfTwoBanks},
    {.pFacts = &silicon::STM32F105, .pFamily = &F1OfLargePages},
    {.pFacts = &silicon::STM32F301, .pFamily = &F3},
    {.pFacts = &silicon::STM32F303, .pFamily = &F3},
    {.pFacts = &silicon::STM32F303xE, .pFamily = &F3},
    {.pFacts = &silicon::STM32F334, .pFamily = &F3},
    {.pFacts = &silicon::STM32F373, .pFamily = &F3},
};

}  // namespace f1

std::span<const DEVICE_ROW> DevicesF1() {
  static const auto Rows = DeviceRows<f1::aDevices, f1::ControllerF1>();
  return Rows;
}

}  // namespace sim
