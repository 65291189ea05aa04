// silicon/layout.h
// SPDX-License-Identifier: MIT
//
// What the bits and areas of protection cover in each device's flash.

#ifndef SILICON_LAYOUT_H
#define SILICON_LAYOUT_H

#include "silicon/catalog.h"

namespace silicon {

inline constexpr uint32_t FLASH_BASE = 0x08000000;

// How the flash is divided. Protection bits count sectors through all WRP fields of the device, from
// bit 0 of the first field up.
struct SECTOR_MAP {
  uint32_t UnitBytes = 0;      // of a sector or page; of the small ones where IsStepped
  bool     IsStepped = false;  // four small ones, one of 4 times, the others of 8 times the size
  uint32_t NumBanks  = 1;
  uint32_t SectorsPerBank = 0;  // numbers that belong to the first bank, where there are two
  uint32_t BankBytes      = 0;  // from bank to bank; 0: half of the flash
  uint32_t SectorsPerBit  = 1;
};

struct LAYOUT {
  const DEVICE* pDevice      = nullptr;
  const char*   sUnit        = "sector";
  SECTOR_MAP    Map          = {};
  uint32_t      ProtectedBit = 0;  // the value of a WRP bit that protects; of areas nothing is said
  uint32_t      RestFromBit  = 32;  // this bit covers all of the flash from its sector on

  // While (first option word AND SplitMask) is SplitValue, the flash is divided like this.
  uint32_t   SplitMask  = 0;
  uint32_t   SplitValue = 0;
  SECTOR_MAP Split      = {};

  // An area's START and END count such units of its bank. 0: no areas.
  uint32_t WrpAreaUnit   = 0;
  uint32_t PcropAreaUnit = 0;
  bool     EqualIsAll    = false;  // START = END is the whole bank
  // A device with more than one such name: the register at this address is not 0 on this one only.
  uint32_t TellBy = 0;
};

namespace layout {

// Sectors of 4 KB whatever the pages; the last bit, where it exists, covers the rest of the flash.
constexpr LAYOUT Of4KB(const DEVICE& Device) {
  return {.pDevice = &Device, .sUnit = "4 KB", .Map = {.UnitBytes = 4 * KB}, .RestFromBit = 31};
}
// On L0 and L1 a bit that is 1 protects.
constexpr LAYOUT OfL0(const DEVICE& Device) {
  return {.pDevice = &Device, .sUnit = "4 KB", .Map = {.UnitBytes = 4 * KB}, .ProtectedBit = 1};
}
constexpr LAYOUT Stepped(const DEVICE& Device, uint32_t UnitBytes) {
  return {.pDevice = &Device, .Map = {.UnitBytes = UnitBytes, .IsStepped = true}};
}
inline constexpr SECTOR_MAP TwoBanksOfF4 = {
    .UnitBytes = 16 * KB, .IsStepped = true, .NumBanks = 2, .SectorsPerBank = 12};
// Bank 2 is 1 MB above bank 1, however much flash there is.
constexpr LAYOUT OfH7(const DEVICE& Device, uint32_t NumBanks, uint32_t TellBy = 0) {
  return {.pDevice       = &Device,
          .Map           = {.UnitBytes      = 128 * KB,
                            .NumBanks       = NumBanks,
                            .SectorsPerBank = 8,
                            .BankBytes      = 1024 * KB},
          .PcropAreaUnit = 256,
          .EqualIsAll    = true,
          .TellBy        = TellBy};
}
constexpr LAYOUT OfL4(const DEVICE& Device, uint32_t NumBanks) {
  return {.pDevice       = &Device,
          .sUnit         = "page",
          .Map           = {.UnitBytes = 2 * KB, .NumBanks = NumBanks},
          .WrpAreaUnit   = 2 * KB,
          .PcropAreaUnit = 8};
}

}  // namespace layout

// clang-format off

inline constexpr LAYOUT aLayouts[] = {
    layout::Of4KB(STM32F030), layout::Of4KB(STM32F042), layout::Of4KB(STM32F051),
    layout::Of4KB(STM32F072), layout::Of4KB(STM32F091), layout::Of4KB(STM32F100),
    layout::Of4KB(STM32F100xE), layout::Of4KB(STM32F103x6), layout::Of4KB(STM32F103),
    layout::Of4KB(STM32F103xE), layout::Of4KB(STM32F103xG), layout::Of4KB(STM32F105),
    layout::Of4KB(STM32F301), layout::Of4KB(STM32F303), layout::Of4KB(STM32F303xE),
    layout::Of4KB(STM32F334), layout::Of4KB(STM32F373),
    layout::Stepped(STM32F207, 16 * KB), layout::Stepped(STM32F401xC, 16 * KB),
    layout::Stepped(STM32F401, 16 * KB), layout::Stepped(STM32F407, 16 * KB),
    layout::Stepped(STM32F410, 16 * KB), layout::Stepped(STM32F411, 16 * KB),
    layout::Stepped(STM32F412, 16 * KB), layout::Stepped(STM32F446, 16 * KB),
    layout::Stepped(STM32F723, 16 * KB), layout::Stepped(STM32F746, 32 * KB),
    // The last of 15 bits is for the last two sectors.
    {.pDevice = &STM32F413, .Map = {.UnitBytes = 16 * KB, .IsStepped = true}, .RestFromBit = 14},
    // DB1M makes two banks of 1 MB.
    {.pDevice = &STM32F427, .Map = {.UnitBytes = 16 * KB, .IsStepped = true},
     .SplitMask = 1u << 30, .SplitValue = 1u << 30, .Split = layout::TwoBanksOfF4},
    {.pDevice = &STM32F429, .Map = layout::TwoBanksOfF4},
    {.pDevice = &STM32F469, .Map = layout::TwoBanksOfF4},
    // nDBANK = 0 makes two banks, and a bit covers two sectors.
    {.pDevice = &STM32F767, .Map = {.UnitBytes = 32 * KB, .IsStepped = true},
     .SplitMask = 1u << 29, .SplitValue = 0,
     .Split = {.UnitBytes = 16 * KB, .IsStepped = true, .NumBanks = 2, .SectorsPerBank = 12,
               .SectorsPerBit = 2}},
    // What tells a second core is taken from the manuals: only its parts have a boot address for it.
    layout::OfH7(STM32H723, 1), layout::OfH7(STM32H743, 2),
    layout::OfH7(STM32H745, 2, h7::BOOT4_CUR), layout::OfH7(STM32H750, 2),
    layout::OfL0(STM32L011), layout::OfL0(STM32L031), layout::OfL0(STM32L053),
    layout::OfL0(STM32L073), layout::OfL0(STM32L100), layout::OfL0(STM32L100xBA),
    layout::OfL0(STM32L151), layout::OfL0(STM32L151xCA), layout::OfL0(STM32L151xD),
    layout::OfL0(STM32L152), layout::OfL0(STM32L152xC), layout::OfL0(STM32L152xE),
    layout::OfL4(STM32L433, 1), layout::OfL4(STM32L452, 1), layout::OfL4(STM32L476, 2),
    layout::OfL4(STM32L496, 2),
};

// clang-format on

static_assert(sizeof(aLayouts) / sizeof(aLayouts[0]) == sizeof(apDevices) / sizeof(apDevices[0]),
              "each device has a row");

}  // namespace silicon

#endif
