// silicon/l4.h
// SPDX-License-Identifier: MIT
//
// STM32L4. Option registers from FLASH_OPTR on, one set of protection areas for each bank; stored as
// words at 0x1FFF7800 and 0x1FFFF808, each followed by its complement. Bits that do not exist read as
// ones, in FLASH_PCROP1ER as laid down. Reference manuals RM0351 (L47x, L49x) and RM0394 (L43x, L45x).

#ifndef SILICON_L4_H
#define SILICON_L4_H

#include "silicon/device.h"

namespace silicon {

namespace l4 {

inline constexpr uint32_t OPTR = 0x40022020, PCROP1SR = 0x40022024, PCROP1ER = 0x40022028,
                          WRP1AR = 0x4002202C, WRP1BR = 0x40022030, PCROP2SR = 0x40022044,
                          PCROP2ER = 0x40022048, WRP2AR = 0x4002204C, WRP2BR = 0x40022050;

}  // namespace l4

// -- Families ------------------------------------------------------------------------------------

inline constexpr FAMILY FamilyL4 = {.sName         = "STM32L4",
                                    .MenuRow       = 12,
                                    .Core          = CORTEX_M4,
                                    .Dpidr         = 0x2BA01477,
                                    .IdCode        = 0xE0042000,
                                    .FlashSize     = 0x1FFF75E0,
                                    .LevelRegister = l4::OPTR,
                                    .LevelField    = Bits("RDP", 7, 0, LEVEL)};

// -- Option words --------------------------------------------------------------------------------

namespace l4 {

constexpr OPTION_WORD Word(const char* sName, uint32_t Stored, uint32_t Register, uint32_t Factory,
                           const FIELDS& Fields) {
  return {.sName      = sName,
          .Stored     = Stored,
          .Factory    = Factory,
          .Complement = IN_NEXT_WORD,
          .Loaded     = {{.Register = Register}},
          .Fields     = Fields};
}

// clang-format off

inline constexpr FIELDS OptrL47 = {
    Bits("RDP", 7, 0, LEVEL), Bits("BOR_LEV", 10, 8), Bit("nRST_STOP", 12), Bit("nRST_STDBY", 13),
    Bit("nRST_SHDW", 14), Bit("IWDG_SW", 16), Bit("IWDG_STOP", 17), Bit("IWDG_STDBY", 18),
    Bit("WWDG_SW", 19), Bit("BFB2", 20), Bit("DUALBANK", 21), Bit("nBOOT1", 23),
    Bit("SRAM2_PE", 24), Bit("SRAM2_RST", 25)};
inline constexpr FIELDS OptrL49 = {
    Bits("RDP", 7, 0, LEVEL), Bits("BOR_LEV", 10, 8), Bit("nRST_STOP", 12), Bit("nRST_STDBY", 13),
    Bit("nRST_SHDW", 14), Bit("IWDG_SW", 16), Bit("IWDG_STOP", 17), Bit("IWDG_STDBY", 18),
    Bit("WWDG_SW", 19), Bit("BFB2", 20), Bit("DUALBANK", 21), Bit("nBOOT1", 23),
    Bit("SRAM2_PE", 24), Bit("SRAM2_RST", 25), Bit("nSWBOOT0", 26), Bit("nBOOT0", 27)};
inline constexpr FIELDS OptrL43 = {
    Bits("RDP", 7, 0, LEVEL), Bits("BOR_LEV", 10, 8), Bit("nRST_STOP", 12), Bit("nRST_STDBY", 13),
    Bit("nRST_SHDW", 14), Bit("IWDG_SW", 16), Bit("IWDG_STOP", 17), Bit("IWDG_STDBY", 18),
    Bit("WWDG_SW", 19), Bit("nBOOT1", 23), Bit("SRAM2_PE", 24), Bit("SRAM2_RST", 25),
    Bit("nSWBOOT0", 26), Bit("nBOOT0", 27)};

// Areas from START to END, both inclusive; no area where START is above END. PCROP counts in 8 bytes,
// WRP in pages of 2 KB.
inline constexpr OPTION_WORD Pcrop1Sr = Word("PCROP1SR", 0x1FFF7808, PCROP1SR, 0xFFFFFFFF,
    {Bits("PCROP1_STRT", 15, 0, PCROP)});
inline constexpr OPTION_WORD Pcrop1Er = Word("PCROP1ER", 0x1FFF7810, PCROP1ER, 0x0FFF0000,
    {Bits("PCROP1_END", 15, 0, PCROP), Bit("PCROP_RDP", 31, PCROP)});
inline constexpr OPTION_WORD Wrp1Ar = Word("WRP1AR", 0x1FFF7818, WRP1AR, 0xFF00FFFF,
    {Bits("WRP1A_STRT", 7, 0, WRP), Bits("WRP1A_END", 23, 16, WRP)});
inline constexpr OPTION_WORD Wrp1Br = Word("WRP1BR", 0x1FFF7820, WRP1BR, 0xFF00FFFF,
    {Bits("WRP1B_STRT", 7, 0, WRP), Bits("WRP1B_END", 23, 16, WRP)});
inline constexpr OPTION_WORD Pcrop2Sr = Word("PCROP2SR", 0x1FFFF808, PCROP2SR, 0xFFFFFFFF,
    {Bits("PCROP2_STRT", 15, 0, PCROP)});
inline constexpr OPTION_WORD Pcrop2Er = Word("PCROP2ER", 0x1FFFF810, PCROP2ER, 0xFFFF0000,
    {Bits("PCROP2_END", 15, 0, PCROP)});
inline constexpr OPTION_WORD Wrp2Ar = Word("WRP2AR", 0x1FFFF818, WRP2AR, 0xFF00FFFF,
    {Bits("WRP2A_STRT", 7, 0, WRP), Bits("WRP2A_END", 23, 16, WRP)});
inline constexpr OPTION_WORD Wrp2Br = Word("WRP2BR", 0x1FFFF820, WRP2BR, 0xFF00FFFF,
    {Bits("WRP2B_STRT", 7, 0, WRP), Bits("WRP2B_END", 23, 16, WRP)});

inline constexpr OPTION_WORD OptionsL47[] = {
    Word("OPTR", 0x1FFF7800, OPTR, 0xFFEFF8AA, OptrL47), Pcrop1Sr, Pcrop1Er, Wrp1Ar, Wrp1Br,
    Pcrop2Sr, Pcrop2Er, Wrp2Ar, Wrp2Br};
inline constexpr OPTION_WORD OptionsL49[] = {
    Word("OPTR", 0x1FFF7800, OPTR, 0xFFEFF8AA, OptrL49), Pcrop1Sr, Pcrop1Er, Wrp1Ar, Wrp1Br,
    Pcrop2Sr, Pcrop2Er, Wrp2Ar, Wrp2Br};
// One bank of 128 pages: fields are a bit narrower.
inline constexpr OPTION_WORD OptionsL43[] = {
    Word("OPTR", 0x1FFF7800, OPTR, 0xFFFFF8AA, OptrL43),
    Word("PCROP1SR", 0x1FFF7808, PCROP1SR, 0xFFFFFFFF, {Bits("PCROP1_STRT", 14, 0, PCROP)}),
    Word("PCROP1ER", 0x1FFF7810, PCROP1ER, 0x0FFF8000,
         {Bits("PCROP1_END", 14, 0, PCROP), Bit("PCROP_RDP", 31, PCROP)}),
    Word("WRP1AR", 0x1FFF7818, WRP1AR, 0xFF80FFFF,
         {Bits("WRP1A_STRT", 6, 0, WRP), Bits("WRP1A_END", 22, 16, WRP)}),
    Word("WRP1BR", 0x1FFF7820, WRP1BR, 0xFF80FFFF,
         {Bits("WRP1B_STRT", 6, 0, WRP), Bits("WRP1B_END", 22, 16, WRP)})};

// One bank of 256 pages: fields as wide as those of a bank of two.
inline constexpr OPTION_WORD OptionsL45[] = {
    Word("OPTR", 0x1FFF7800, OPTR, 0xFFFFF8AA, OptrL43), Pcrop1Sr, Pcrop1Er, Wrp1Ar, Wrp1Br};

// clang-format on

inline constexpr MEMORY BackupRegisters = Backup("backup", 0x40002850, 128);

constexpr MEMORY Sram2(uint32_t Bytes) {
  return Backup("sram2", 0x10000000, Bytes);
}

}  // namespace l4

// -- Devices -------------------------------------------------------------------------------------

// clang-format off

inline constexpr DEVICE STM32L433 = {
    .sName = "STM32L433", .sText = "L4, L43x and L44x with one bank, 256 KB flash",
    .pFamily = &FamilyL4, .IdCode = 0x10016435, .Options = l4::OptionsL43,
    .Memory = {Flash(256 * KB), l4::Sram2(16 * KB), l4::BackupRegisters, Sram(48 * KB)}};
inline constexpr DEVICE STM32L452 = {
    .sName = "STM32L452", .sText = "L4, L45x and L46x with one bank, 512 KB flash",
    .pFamily = &FamilyL4, .IdCode = 0x10016462, .Options = l4::OptionsL45,
    .Memory = {Flash(512 * KB), l4::Sram2(32 * KB), l4::BackupRegisters, Sram(128 * KB)}};
inline constexpr DEVICE STM32L476 = {
    .sName = "STM32L476", .sText = "L4x6, two banks, 1 MB flash",
    .pFamily = &FamilyL4, .IdCode = 0x10076415, .Options = l4::OptionsL47,
    .Memory = {Flash(1024 * KB), l4::Sram2(32 * KB), l4::BackupRegisters, Sram(96 * KB)}};
inline constexpr DEVICE STM32L496 = {
    .sName = "STM32L496", .sText = "L4, L49x and L4Ax, two banks, 1 MB flash",
    .pFamily = &FamilyL4, .IdCode = 0x20006461, .Options = l4::OptionsL49,
    .Memory = {Flash(1024 * KB), l4::Sram2(64 * KB), l4::BackupRegisters, Sram(256 * KB)}};

// clang-format on

}  // namespace silicon

#endif
