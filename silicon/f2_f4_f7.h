// silicon/f2_f4_f7.h
// SPDX-License-Identifier: MIT
//
// STM32F2, F4 and F7. Option bytes are loaded at reset into FLASH_OPTCR and, where they exist,
// FLASH_OPTCR1 and FLASH_OPTCR2, and are written there. Memory shows each half-word of a register
// in a double word of its own. Reference manuals RM0033 (F2), RM0090, RM0368, RM0383, RM0386, RM0390,
// RM0401, RM0402 and RM0430 (F4), RM0385, RM0410 and RM0431 (F7).

#ifndef SILICON_F2_F4_F7_H
#define SILICON_F2_F4_F7_H

#include "silicon/device.h"

namespace silicon {

namespace f4 {

inline constexpr uint32_t OPTCR = 0x40023C14, OPTCR1 = 0x40023C18, OPTCR2 = 0x40023C1C;

}  // namespace f4

// -- Families ------------------------------------------------------------------------------------

namespace f4 {

// What all have in common.
constexpr FAMILY Family(FAMILY Row) {
  Row.IdCode        = 0xE0042000;
  Row.LevelRegister = OPTCR;
  Row.LevelField    = Bits("RDP", 15, 8, LEVEL);
  return Row;
}

}  // namespace f4

// clang-format off

inline constexpr FAMILY FamilyF2 = f4::Family({
    .sName = "STM32F2", .MenuRow = 3, .Core = CORTEX_M3, .Dpidr = 0x2BA01477,
    .FlashSize = 0x1FFF7A22});
inline constexpr FAMILY FamilyF4 = f4::Family({
    .sName = "STM32F4", .MenuRow = 5, .Core = CORTEX_M4, .Dpidr = 0x2BA01477,
    .FlashSize = 0x1FFF7A22});
inline constexpr FAMILY FamilyF72 = f4::Family({
    .sName = "STM32F72", .MenuRow = 6, .Core = CORTEX_M7, .Dpidr = 0x5BA02477,
    .FlashSize = 0x1FF07A22});
inline constexpr FAMILY FamilyF74 = f4::Family({
    .sName = "STM32F74", .MenuRow = 7, .Core = CORTEX_M7, .Dpidr = 0x5BA02477,
    .FlashSize = 0x1FF0F442});
inline constexpr FAMILY FamilyF76 = f4::Family({
    .sName = "STM32F76", .MenuRow = 8, .Core = CORTEX_M7, .Dpidr = 0x5BA02477,
    .FlashSize = 0x1FF0F442});

// clang-format on

// -- Option words --------------------------------------------------------------------------------

namespace f4 {

// One bit of nWRP per sector; F413 has the last one for two.
constexpr FIELDS WithoutPcrop(uint8_t LastWrp) {
  return {Bits("BOR_LEV", 3, 2), Bit("WDG_SW", 5),          Bit("nRST_STOP", 6),
          Bit("nRST_STDBY", 7),  Bits("RDP", 15, 8, LEVEL), Bits("nWRP", LastWrp, 16, WRP)};
}
constexpr FIELDS WithSprmod(uint8_t LastWrp) {
  return {Bits("BOR_LEV", 3, 2),   Bit("WDG_SW", 5),          Bit("nRST_STOP", 6),
          Bit("nRST_STDBY", 7),    Bits("RDP", 15, 8, LEVEL), Bits("nWRP", LastWrp, 16, WRP),
          Bit("SPRMOD", 31, PCROP)};
}
inline constexpr FIELDS TwoBanks = {
    Bits("BOR_LEV", 3, 2),     Bit("BFB2", 4),       Bit("WDG_SW", 5),
    Bit("nRST_STOP", 6),       Bit("nRST_STDBY", 7), Bits("RDP", 15, 8, LEVEL),
    Bits("nWRP", 27, 16, WRP), Bit("DB1M", 30),      Bit("SPRMOD", 31, PCROP)};
inline constexpr FIELDS F72F74 = {
    Bits("BOR_LEV", 3, 2),     Bit("WWDG_SW", 4),     Bit("IWDG_SW", 5),
    Bit("nRST_STOP", 6),       Bit("nRST_STDBY", 7),  Bits("RDP", 15, 8, LEVEL),
    Bits("nWRP", 23, 16, WRP), Bit("IWDG_STDBY", 30), Bit("IWDG_STOP", 31)};
inline constexpr FIELDS F76 = {
    Bits("BOR_LEV", 3, 2),     Bit("WWDG_SW", 4),    Bit("IWDG_SW", 5),
    Bit("nRST_STOP", 6),       Bit("nRST_STDBY", 7), Bits("RDP", 15, 8, LEVEL),
    Bits("nWRP", 27, 16, WRP), Bit("nDBOOT", 28),    Bit("nDBANK", 29),
    Bit("IWDG_STDBY", 30),     Bit("IWDG_STOP", 31)};

// Bits 1:0 of the register are its lock and its start bit.
constexpr OPTION_WORD Optcr(uint32_t Stored, uint32_t Factory, const FIELDS& Fields) {
  return {.sName       = "OPTCR",
          .Stored      = Stored,
          .StoredUpper = Stored + 8,
          .Factory     = Factory,
          .Loaded      = {{.Register = OPTCR, .High = 31, .Low = 2, .To = 2}},
          .Fields      = Fields};
}
constexpr OPTION_WORD OptcrF4(uint32_t Factory, const FIELDS& Fields) {
  return Optcr(0x1FFFC000, Factory, Fields);
}
constexpr OPTION_WORD OptcrF7(uint32_t Factory, const FIELDS& Fields) {
  return Optcr(0x1FFF0000, Factory, Fields);
}

inline constexpr OPTION_WORD WrpOfBank2    = {.sName       = "OPTCR1",
                                              .Stored      = 0x1FFEC000,
                                              .StoredUpper = 0x1FFEC008,
                                              .Factory     = 0x0FFF0000,
                                              .Loaded      = {{.Register = OPTCR1}},
                                              .Fields      = {Bits("nWRP12", 27, 16, WRP)}};
inline constexpr OPTION_WORD BootAddresses = {
    .sName       = "OPTCR1",
    .Stored      = 0x1FFF0010,
    .StoredUpper = 0x1FFF0018,
    .Factory     = 0x00400080,
    .Loaded      = {{.Register = OPTCR1}},
    .Fields      = {Bits("BOOT_ADD0", 15, 0, BOOT), Bits("BOOT_ADD1", 31, 16, BOOT)}};
inline constexpr OPTION_WORD PcropSectors = {
    .sName   = "OPTCR2",
    .Stored  = 0x1FFF0020,
    .Factory = 0x80000000,
    .Loaded  = {{.Register = OPTCR2}},
    .Fields  = {Bits("PCROP", 7, 0, PCROP), Bit("PCROP_RDP", 31, PCROP)}};

// Bits of OPTCR above those of the last sector cannot be written and read as they were delivered:
// seen as 0 on F411 and as 1 on F446; taken to be 0 on F401 and F410, with ones up to bit 23.
inline constexpr OPTION_WORD OptionsF2F407[] = {OptcrF4(0x0FFFAAEC, WithoutPcrop(27))};
inline constexpr OPTION_WORD OptionsF401xC[] = {OptcrF4(0x00FFAAEC, WithSprmod(21))};
inline constexpr OPTION_WORD OptionsF401[]   = {OptcrF4(0x00FFAAEC, WithSprmod(23))};
inline constexpr OPTION_WORD OptionsF410[]   = {OptcrF4(0x00FFAAEC, WithSprmod(20))};
inline constexpr OPTION_WORD OptionsF412[]   = {OptcrF4(0x0FFFAAEC, WithSprmod(27))};
inline constexpr OPTION_WORD OptionsF413[]   = {OptcrF4(0x7FFFAAEC, WithSprmod(30))};
inline constexpr OPTION_WORD OptionsF446[]   = {OptcrF4(0x0FFFAAEC, WithSprmod(23))};
inline constexpr OPTION_WORD OptionsF42[]    = {OptcrF4(0x0FFFAAEC, TwoBanks), WrpOfBank2};
inline constexpr OPTION_WORD OptionsF72[]    = {OptcrF7(0xC0FFAAFC, F72F74), BootAddresses,
                                                PcropSectors};
inline constexpr OPTION_WORD OptionsF74[]    = {OptcrF7(0xC0FFAAFC, F72F74), BootAddresses};
inline constexpr OPTION_WORD OptionsF76[]    = {OptcrF7(0xFFFFAAFC, F76), BootAddresses};

inline constexpr MEMORY Backup4K = Backup("backup_sram", 0x40024000, 4 * KB);
inline constexpr MEMORY Ccm64K   = {"ccm", 0x10000000, 64 * KB, SRAM, 0};

}  // namespace f4

// -- Devices -------------------------------------------------------------------------------------

// clang-format off

inline constexpr DEVICE STM32F207 = {
    .sName = "STM32F207", .sText = "F2, 1 MB flash",
    .pFamily = &FamilyF2, .IdCode = 0x20036411, .Options = f4::OptionsF2F407,
    .Memory = {Flash(1024 * KB), f4::Backup4K, Sram(128 * KB)}};
inline constexpr DEVICE STM32F401xC = {
    .sName = "STM32F401xC", .sText = "F4, F401xB/xC with PCROP, 256 KB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10016423, .Options = f4::OptionsF401xC,
    .Memory = {Flash(256 * KB), Sram(64 * KB)}};
inline constexpr DEVICE STM32F401 = {
    .sName = "STM32F401", .sText = "F4, F401xD/xE with PCROP, 512 KB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10016433, .Options = f4::OptionsF401,
    .Memory = {Flash(512 * KB), Sram(96 * KB)}};
inline constexpr DEVICE STM32F407 = {
    .sName = "STM32F407", .sText = "F4, F405 and F407, 1 MB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10076413, .Options = f4::OptionsF2F407,
    .Memory = {Flash(1024 * KB), f4::Backup4K, Sram(128 * KB), f4::Ccm64K}};
inline constexpr DEVICE STM32F410 = {
    .sName = "STM32F410", .sText = "F4 with PCROP, 128 KB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10006458, .Options = f4::OptionsF410,
    .Memory = {Flash(128 * KB), Sram(32 * KB)}};
inline constexpr DEVICE STM32F411 = {
    .sName = "STM32F411", .sText = "F4 with PCROP, 512 KB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10006431, .Options = f4::OptionsF401,
    .Memory = {Flash(512 * KB), Sram(128 * KB)}};
inline constexpr DEVICE STM32F412 = {
    .sName = "STM32F412", .sText = "F4 with PCROP, 1 MB flash",
    .pFamily = &FamilyF4, .IdCode = 0x30006441, .Options = f4::OptionsF412,
    .Memory = {Flash(1024 * KB), Sram(256 * KB)}};
inline constexpr DEVICE STM32F413 = {
    .sName = "STM32F413", .sText = "F4 with PCROP and 15 protection bits, 1.5 MB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10006463, .Options = f4::OptionsF413,
    .Memory = {Flash(1536 * KB), f4::Backup4K, Sram(256 * KB)}};
inline constexpr DEVICE STM32F427 = {
    .sName = "STM32F427", .sText = "F4 with PCROP and one bank or two (DB1M), 1 MB flash",
    .pFamily = &FamilyF4, .IdCode = 0x20036419, .Options = f4::OptionsF42,
    .Memory = {Flash(1024 * KB), f4::Backup4K, Sram(192 * KB), f4::Ccm64K}};
inline constexpr DEVICE STM32F429 = {
    .sName = "STM32F429", .sText = "F4 with PCROP and two banks, 2 MB flash",
    .pFamily = &FamilyF4, .IdCode = 0x20036419, .Options = f4::OptionsF42,
    .Memory = {Flash(2048 * KB), f4::Backup4K, Sram(192 * KB), f4::Ccm64K}};
inline constexpr DEVICE STM32F446 = {
    .sName = "STM32F446", .sText = "F4 with PCROP, 512 KB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10006421, .Options = f4::OptionsF446,
    .Memory = {Flash(512 * KB), f4::Backup4K, Sram(128 * KB)}};
inline constexpr DEVICE STM32F469 = {
    .sName = "STM32F469", .sText = "F4 with PCROP and two banks, 2 MB flash",
    .pFamily = &FamilyF4, .IdCode = 0x10006434, .Options = f4::OptionsF42,
    .Memory = {Flash(2048 * KB), f4::Backup4K, Sram(320 * KB), f4::Ccm64K}};
inline constexpr DEVICE STM32F723 = {
    .sName = "STM32F723", .sText = "F7 with PCROP, 512 KB flash",
    .pFamily = &FamilyF72, .IdCode = 0x10006452, .Options = f4::OptionsF72,
    .Memory = {Flash(512 * KB), f4::Backup4K, Sram(256 * KB)}};
inline constexpr DEVICE STM32F746 = {
    .sName = "STM32F746", .sText = "F7, 1 MB flash",
    .pFamily = &FamilyF74, .IdCode = 0x10016449, .Options = f4::OptionsF74,
    .Memory = {Flash(1024 * KB), f4::Backup4K, Sram(320 * KB)}};
inline constexpr DEVICE STM32F767 = {
    .sName = "STM32F767", .sText = "F7 with one bank or two (nDBANK), 2 MB flash",
    .pFamily = &FamilyF76, .IdCode = 0x10016451, .Options = f4::OptionsF76,
    .Memory = {Flash(2048 * KB), f4::Backup4K, Sram(512 * KB)}};

// clang-format on

}  // namespace silicon

#endif
