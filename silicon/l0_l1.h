// silicon/l0_l1.h
// SPDX-License-Identifier: MIT
//
// STM32L0 and L1. Option words of 32 bits at 0x1FF80000, value in the lower half and its
// complement, which software has to form, in the upper half; loaded into FLASH_OPTR (L1: FLASH_OBR)
// and the FLASH_WRPROTx (L1: FLASH_WRPRx) registers. Flash and EEPROM read as zeros when erased.
// Reference manuals RM0367, RM0376 and RM0377 (L0), RM0038 (L1).

#ifndef SILICON_L0_L1_H
#define SILICON_L0_L1_H

#include "silicon/device.h"

namespace silicon {

namespace l0 {

inline constexpr uint32_t BASE_L0 = 0x40022000, BASE_L1 = 0x40023C00, OPTIONS = 0x1FF80000;
inline constexpr uint32_t OPTR    = 0x1C;  // offset of the register with level and user options
inline constexpr uint32_t WRPROT1 = 0x20, WRPROT2 = 0x80, WRPROT3 = 0x84, WRPROT4 = 0x88;

}  // namespace l0

// -- Families ------------------------------------------------------------------------------------

inline constexpr FAMILY FamilyL0 = {.sName         = "STM32L0",
                                    .MenuRow       = 10,
                                    .Core          = CORTEX_M0PLUS,
                                    .Dpidr         = 0x0BC11477,
                                    .IdCode        = 0x40015800,
                                    .FlashSize     = 0x1FF8007C,
                                    .LevelRegister = l0::BASE_L0 + l0::OPTR,
                                    .LevelField    = Bits("RDPROT", 7, 0, LEVEL)};

// The size register of categories 1 and 2 is not where that of the others is.
constexpr FAMILY FamilyOfL1(uint32_t FlashSize) {
  return {.sName         = "STM32L1",
          .MenuRow       = 11,
          .Core          = CORTEX_M3,
          .Dpidr         = 0x2BA01477,
          .IdCode        = 0xE0042000,
          .FlashSize     = FlashSize,
          .LevelRegister = l0::BASE_L1 + l0::OPTR,
          .LevelField    = Bits("RDPRT", 7, 0, LEVEL)};
}
inline constexpr FAMILY FamilyL1      = FamilyOfL1(0x1FF8004C);  // categories 1 and 2
inline constexpr FAMILY FamilyL1Large = FamilyOfL1(0x1FF800CC);  // categories 3 to 6

// -- Option words --------------------------------------------------------------------------------

namespace l0 {

// sMode: the name of the bit that says whether the WRP words are write protection (0) or PCROP (1);
// nullptr for a device that has write protection only.
constexpr OPTION_WORD Rdp(uint32_t Base, const char* sMode) {
  OPTION_WORD Word = {.sName      = "OPTION_RDP",
                      .Stored     = OPTIONS,
                      .Factory    = 0xFF5500AA,
                      .Complement = IN_UPPER_HALF,
                      .Loaded     = {{.Register = Base + OPTR, .High = 7}},
                      .Fields     = {Bits("RDP", 7, 0, LEVEL)}};
  if (sMode != nullptr) {
    Word.Loaded[0].High   = 8;
    Word.Fields.aField[1] = Bit(sMode, 8, PCROP);
  }
  return Word;
}

// The register shows two pieces of the word. The bits between them are stored, but read as zeros in
// the register.
constexpr OPTION_WORD User(uint32_t Factory, LOADED Low, LOADED High, const FIELDS& Fields) {
  return {.sName      = "OPTION_USER",
          .Stored     = OPTIONS + 4,
          .Factory    = Factory,
          .Complement = IN_UPPER_HALF,
          .Loaded     = {Low, High},
          .Fields     = Fields};
}
constexpr LOADED UserBits(uint32_t Base, uint8_t High, uint8_t Low) {
  return {.Register = Base + OPTR, .High = High, .Low = Low, .To = uint8_t(Low + 16)};
}

// One bit for each sector of 4 KB. WRPROT: 1 is protected. As PCROP it is the other way round.
constexpr OPTION_WORD Wrp(const char* sName, uint32_t Offset, uint32_t Register, uint8_t To,
                          uint8_t NumBits = 16) {
  return {.sName      = sName,
          .Stored     = OPTIONS + Offset,
          .Factory    = 0xFFFF0000,
          .Complement = IN_UPPER_HALF,
          .Loaded     = {{.Register = Register, .High = 15, .To = To}},
          .Fields     = {Bits("WRP", uint8_t(NumBits - 1), 0, WRP)}};
}

// The rest of the option page of L0 can be written and means nothing.
constexpr OPTION_WORD Spare(const char* sName, uint32_t Offset) {
  return {.sName = sName, .Stored = OPTIONS + Offset};
}

inline constexpr OPTION_WORD RdpL0       = Rdp(BASE_L0, "WPRMOD");
inline constexpr OPTION_WORD RdpL1       = Rdp(BASE_L1, nullptr);
inline constexpr OPTION_WORD RdpL1Sprmod = Rdp(BASE_L1, "SPRMOD");

inline constexpr OPTION_WORD UserL0Cat1 =
    User(0x7F8F8070, UserBits(BASE_L0, 6, 0), UserBits(BASE_L0, 15, 13),
         {Bits("BOR_LEV", 3, 0), Bit("WDG_SW", 4), Bit("nRST_STOP", 5), Bit("nRST_STDBY", 6),
          Bit("nBOOT_SEL", 13), Bit("nBOOT0", 14), Bit("nBOOT1", 15)});
inline constexpr OPTION_WORD UserL0Cat23 =
    User(0x7F8F8070, UserBits(BASE_L0, 6, 0), UserBits(BASE_L0, 15, 15),
         {Bits("BOR_LEV", 3, 0), Bit("WDG_SW", 4), Bit("nRST_STOP", 5), Bit("nRST_STDBY", 6),
          Bit("nBOOT1", 15)});
inline constexpr OPTION_WORD UserL0Cat5 =
    User(0x7F8F8070, UserBits(BASE_L0, 7, 0), UserBits(BASE_L0, 15, 15),
         {Bits("BOR_LEV", 3, 0), Bit("WDG_SW", 4), Bit("nRST_STOP", 5), Bit("nRST_STDBY", 6),
          Bit("BFB2", 7), Bit("nBOOT1", 15)});
inline constexpr OPTION_WORD UserL1 =
    User(0xFF870078, UserBits(BASE_L1, 6, 0), {},
         {Bits("BOR_LEV", 3, 0), Bit("IWDG_SW", 4), Bit("nRST_STOP", 5), Bit("nRST_STDBY", 6)});
inline constexpr OPTION_WORD UserL1TwoBanks =
    User(0xFF0700F8, UserBits(BASE_L1, 7, 0), {},
         {Bits("BOR_LEV", 3, 0), Bit("IWDG_SW", 4), Bit("nRST_STOP", 5), Bit("nRST_STDBY", 6),
          Bit("nBFB2", 7)});

// clang-format off

inline constexpr OPTION_WORD OptionsL0Cat1[] = {
    RdpL0, UserL0Cat1, Wrp("OPTION_WRP01", 0x08, BASE_L0 + WRPROT1, 0, 4),
    Spare("OPTION_SPARE0", 0x0C), Spare("OPTION_SPARE1", 0x10), Spare("OPTION_SPARE2", 0x14),
    Spare("OPTION_SPARE3", 0x18), Spare("OPTION_SPARE4", 0x1C)};
inline constexpr OPTION_WORD OptionsL0Cat2[] = {
    RdpL0, UserL0Cat23, Wrp("OPTION_WRP01", 0x08, BASE_L0 + WRPROT1, 0, 8),
    Spare("OPTION_SPARE0", 0x0C), Spare("OPTION_SPARE1", 0x10), Spare("OPTION_SPARE2", 0x14),
    Spare("OPTION_SPARE3", 0x18), Spare("OPTION_SPARE4", 0x1C)};
inline constexpr OPTION_WORD OptionsL0Cat3[] = {
    RdpL0, UserL0Cat23, Wrp("OPTION_WRP01", 0x08, BASE_L0 + WRPROT1, 0),
    Spare("OPTION_SPARE0", 0x0C), Spare("OPTION_SPARE1", 0x10), Spare("OPTION_SPARE2", 0x14),
    Spare("OPTION_SPARE3", 0x18), Spare("OPTION_SPARE4", 0x1C)};
inline constexpr OPTION_WORD OptionsL0Cat5[] = {
    RdpL0, UserL0Cat5, Wrp("OPTION_WRP01", 0x08, BASE_L0 + WRPROT1, 0),
    Wrp("OPTION_WRP23", 0x0C, BASE_L0 + WRPROT1, 16), Wrp("OPTION_WRP45", 0x10, BASE_L0 + WRPROT2, 0),
    Spare("OPTION_SPARE0", 0x14), Spare("OPTION_SPARE1", 0x18), Spare("OPTION_SPARE2", 0x1C)};

inline constexpr OPTION_WORD Wrp01   = Wrp("OPTION_WRP01",   0x08, BASE_L1 + WRPROT1, 0);
inline constexpr OPTION_WORD Wrp23   = Wrp("OPTION_WRP23",   0x0C, BASE_L1 + WRPROT1, 16);
inline constexpr OPTION_WORD Wrp45   = Wrp("OPTION_WRP45",   0x10, BASE_L1 + WRPROT2, 0);
inline constexpr OPTION_WORD Wrp67   = Wrp("OPTION_WRP67",   0x14, BASE_L1 + WRPROT2, 16);
inline constexpr OPTION_WORD Wrp89   = Wrp("OPTION_WRP89",   0x18, BASE_L1 + WRPROT3, 0);
inline constexpr OPTION_WORD Wrp1011 = Wrp("OPTION_WRP1011", 0x1C, BASE_L1 + WRPROT3, 16);
inline constexpr OPTION_WORD Wrp1213 = Wrp("OPTION_WRP1213", 0x80, BASE_L1 + WRPROT4, 0);
inline constexpr OPTION_WORD Wrp1415 = Wrp("OPTION_WRP1415", 0x84, BASE_L1 + WRPROT4, 16);

inline constexpr OPTION_WORD OptionsL1[]       = {RdpL1, UserL1, Wrp01, Wrp23};
inline constexpr OPTION_WORD OptionsL1Sprmod[] = {RdpL1Sprmod, UserL1, Wrp01, Wrp23};
inline constexpr OPTION_WORD OptionsL1Cat3[]   = {RdpL1Sprmod, UserL1, Wrp01, Wrp23, Wrp45, Wrp67};
inline constexpr OPTION_WORD OptionsL1Cat3A[]  = {RdpL1, UserL1, Wrp01, Wrp23, Wrp45, Wrp67};
inline constexpr OPTION_WORD OptionsL1Cat4[]   = {RdpL1, UserL1TwoBanks, Wrp01, Wrp23, Wrp45, Wrp67,
                                                  Wrp89, Wrp1011};
inline constexpr OPTION_WORD OptionsL1Cat5[]   = {RdpL1, UserL1TwoBanks, Wrp01, Wrp23, Wrp45, Wrp67,
                                                  Wrp89, Wrp1011, Wrp1213, Wrp1415};

// clang-format on

constexpr MEMORY Eeprom(uint32_t Bytes) {
  return {"eeprom", 0x08080000, Bytes, EEPROM, 0};
}

}  // namespace l0

// -- Devices -------------------------------------------------------------------------------------

// clang-format off

inline constexpr DEVICE STM32L011 = {
    .sName = "STM32L011", .sText = "L0 category 1, 16 KB flash",
    .pFamily = &FamilyL0, .IdCode = 0x10086457, .Options = l0::OptionsL0Cat1,
    .Memory = {Flash(16 * KB, 0), l0::Eeprom(512), Sram(2 * KB)}};
inline constexpr DEVICE STM32L031 = {
    .sName = "STM32L031", .sText = "L0 category 2, 32 KB flash",
    .pFamily = &FamilyL0, .IdCode = 0x10086425, .Options = l0::OptionsL0Cat2,
    .Memory = {Flash(32 * KB, 0), l0::Eeprom(1 * KB), Sram(8 * KB)}};
inline constexpr DEVICE STM32L053 = {
    .sName = "STM32L053", .sText = "L0 category 3, 64 KB flash",
    .pFamily = &FamilyL0, .IdCode = 0x10386417, .Options = l0::OptionsL0Cat3,
    .Memory = {Flash(64 * KB, 0), l0::Eeprom(2 * KB), Sram(8 * KB)}};
inline constexpr DEVICE STM32L073 = {
    .sName = "STM32L073", .sText = "L0 category 5, 192 KB flash",
    .pFamily = &FamilyL0, .IdCode = 0x20086447, .Options = l0::OptionsL0Cat5,
    .Memory = {Flash(192 * KB, 0), l0::Eeprom(6 * KB), Sram(20 * KB)}};

inline constexpr DEVICE STM32L100 = {
    .sName = "STM32L100", .sText = "L1 category 1, L100xB, 128 KB flash",
    .pFamily = &FamilyL1, .IdCode = 0x10386416, .Options = l0::OptionsL1,
    .Memory = {Flash(128 * KB, 0), l0::Eeprom(2 * KB), Sram(10 * KB)}};
inline constexpr DEVICE STM32L100xBA = {
    .sName = "STM32L100xBA", .sText = "L1 category 2 without SPRMOD, L100xB-A, 128 KB flash",
    .pFamily = &FamilyL1, .IdCode = 0x10186429, .Options = l0::OptionsL1,
    .Memory = {Flash(128 * KB, 0), l0::Eeprom(2 * KB), Sram(16 * KB)}};
inline constexpr DEVICE STM32L151 = {
    .sName = "STM32L151", .sText = "L1 category 1, L151 and L152xB, 128 KB flash",
    .pFamily = &FamilyL1, .IdCode = 0x10386416, .Options = l0::OptionsL1,
    .Memory = {Flash(128 * KB, 0), l0::Eeprom(4 * KB), Sram(16 * KB)}};
inline constexpr DEVICE STM32L151xCA = {
    .sName = "STM32L151xCA", .sText = "L1 category 3 without SPRMOD, L151 and L152xC-A, 256 KB flash",
    .pFamily = &FamilyL1Large, .IdCode = 0x10186436, .SizeCode = 1, .Options = l0::OptionsL1Cat3A,
    .Memory = {Flash(256 * KB, 0), l0::Eeprom(8 * KB), Sram(32 * KB)}};
inline constexpr DEVICE STM32L151xD = {
    .sName = "STM32L151xD", .sText = "L1 category 4 with two banks, L151 and L152xD, 384 KB flash",
    .pFamily = &FamilyL1Large, .IdCode = 0x10186436, .SizeCode = 0, .Options = l0::OptionsL1Cat4,
    .Memory = {Flash(384 * KB, 0), l0::Eeprom(12 * KB), Sram(48 * KB)}};
inline constexpr DEVICE STM32L152 = {
    .sName = "STM32L152", .sText = "L1 category 2, L151 and L152xB-A, 128 KB flash",
    .pFamily = &FamilyL1, .IdCode = 0x10186429, .Options = l0::OptionsL1Sprmod,
    .Memory = {Flash(128 * KB, 0), l0::Eeprom(4 * KB), Sram(16 * KB)}};
inline constexpr DEVICE STM32L152xC = {
    .sName = "STM32L152xC", .sText = "L1 category 3, L151 and L152xC, 256 KB flash",
    .pFamily = &FamilyL1Large, .IdCode = 0x10186427, .Options = l0::OptionsL1Cat3,
    .Memory = {Flash(256 * KB, 0), l0::Eeprom(8 * KB), Sram(32 * KB)}};
inline constexpr DEVICE STM32L152xE = {
    .sName = "STM32L152xE", .sText = "L1 category 5 with two banks, 512 KB flash",
    .pFamily = &FamilyL1Large, .IdCode = 0x10006437, .Options = l0::OptionsL1Cat5,
    .Memory = {Flash(512 * KB, 0), l0::Eeprom(16 * KB), Sram(80 * KB)}};

// clang-format on

}  // namespace silicon

#endif
