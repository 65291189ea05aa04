#include "silicon/l0_l1.h"
#include "sim/l0/l0.h"

namespace sim {

namespace l0 {

// -- Open questions ------------------------------------------------------------------------------

const VARIANT_ROW L0_SPARE_WORDS_WRITABLE = {
    .sName   = "l0_spare_words_writable",
    .Default = true,
    .sText   = "unused words of the L0 option page read as ones"};
const VARIANT_ROW L0_L1_REFUSE_PCROP_CLEAR = {
    .sName   = "l0_l1_refuse_pcrop_clear",
    .Default = false,
    .sText   = "at level 0 every write that would lift PCROP is refused"};
const VARIANT_ROW L0_L1_ALWAYS_ERASE_OPTIONS = {
    .sName   = "l0_l1_always_erase_options",
    .Default = false,
    .sText   = "an option word that is 0 is erased all the same before it is programmed"};
const VARIANT_ROW L1_ERRATUM_MASS_ERASE = {
    .sName   = "l1_erratum_mass_erase",
    .Default = false,
    .sText   = "L1 mass-erases when level 0 is written at level 0"};

static constexpr const VARIANT_ROW* apVariantsL0[] = {&OBL_TRANSFER_FAILS, &L0_SPARE_WORDS_WRITABLE,
                                                      &L0_L1_REFUSE_PCROP_CLEAR,
                                                      &L0_L1_ALWAYS_ERASE_OPTIONS};
static constexpr const VARIANT_ROW* apVariantsL1[] = {
    &OBL_TRANSFER_FAILS, &L0_L1_REFUSE_PCROP_CLEAR, &L0_L1_ALWAYS_ERASE_OPTIONS,
    &L1_ERRATUM_MASS_ERASE};

// -- Families ------------------------------------------------------------------------------------

static constexpr L0_FAMILY FamilyL0(const std::span<const REGISTER>& Registers) {
  return {.pSystem       = &SystemL0,
          .Variants      = apVariantsL0,
          .Registers     = Registers,
          .Base          = silicon::l0::BASE_L0,
          .PageBytes     = 128,
          .PecrWhileBusy = true,
          .NotZeroError  = SR_NOTZEROERR};
}

static constexpr L0_FAMILY FamilyL1(const std::span<const REGISTER>& Registers) {
  return {.pSystem           = &SystemL1,
          .Variants          = apVariantsL1,
          .Registers         = Registers,
          .Base              = silicon::l0::BASE_L1,
          .PageBytes         = 256,
          .NotZeroError      = SR_WRPERR,
          .PcropReadsFault   = true,
          .EraseTakesOptions = true,
          .pErratum          = &L1_ERRATUM_MASS_ERASE};
}

static const L0_FAMILY L0Cat12 = FamilyL0(RegistersL0Cat12), L0Cat35 = FamilyL0(RegistersL0Cat35),
                       L1Cat1 = FamilyL1(RegistersL1Cat1), L1Cat2 = FamilyL1(RegistersL1Cat2),
                       L1Cat3 = FamilyL1(RegistersL1Cat3), L1Cat45 = FamilyL1(RegistersL1Cat45);

// -- Devices -------------------------------------------------------------------------------------

static const L0_DEVICE aDevices[] = {
    {.pFacts = &silicon::STM32L011, .pFamily = &L0Cat12},
    {.pFacts = &silicon::STM32L031, .pFamily = &L0Cat12},
    {.pFacts = &silicon::STM32L053, .pFamily = &L0Cat35},
    {.pFacts = &silicon::STM32L073, .pFamily = &L0Cat35},
    {.pFacts = &silicon::STM32L100, .pFamily = &L1Cat1},
    {.pFacts = &silicon::STM32L100xBA, .pFamily = &L1Cat2},
    {.pFacts = &silicon::STM32L151, .pFamily = &L1Cat1},
    {.pFacts = &silicon::STM32L151xD, .pFamily = &L1Cat45},
    {.pFacts = &silicon::STM32L152, .pFamily = &L1Cat2},
    {.pFacts = &silicon::STM32L152xC, .pFamily = &L1Cat3},
    {.pFacts = &silicon::STM32L152xE, .pFamily = &L1Cat45},
};

}  // namespace l0

std::span<const DEVICE_ROW> DevicesL0() {
  static const auto Rows = DeviceRows<l0::aDevices, l0::ControllerL0>();
  return Rows;
}

}  // namespace sim
