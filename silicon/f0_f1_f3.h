// silicon/f0_f1_f3.h
// SPDX-License-Identifier: MIT
//
// STM32F0, F1 and F3. Eight option bytes, each with its complement, in 16 bytes at 0x1FFFF800;
// loaded into FLASH_OBR and FLASH_WRPR. Reference manuals RM0091 and RM0360 (F0), RM0008, RM0041,
// PM0063, PM0068 and PM0075 (F1), RM0313, RM0316, RM0364, RM0365 and RM0366 (F3).

#ifndef SILICON_F0_F1_F3_H
#define SILICON_F0_F1_F3_H

#include "silicon/device.h"

namespace silicon {

namespace f1 {

inline constexpr uint32_t OBR = 0x4002201C, WRPR = 0x40022020, OPTIONS = 0x1FFFF800;

}  // namespace f1

// -- Families ------------------------------------------------------------------------------------

inline constexpr FAMILY FamilyF0 = {.sName         = "STM32F0",
                                    .MenuRow       = 1,
                                    .Core          = CORTEX_M0,
                                    .Dpidr         = 0x0BB11477,
                                    .IdCode        = 0x40015800,
                                    .FlashSize     = 0x1FFFF7CC,
                                    .LevelRegister = f1::OBR,
                                    .LevelField    = Bits("RDPRT", 2, 1, LEVEL),
                                    .LevelCode     = LEVEL_STEPS};

inline constexpr FAMILY FamilyF1 = {.sName         = "STM32F1",
                                    .MenuRow       = 2,
                                    .Core          = CORTEX_M3,
                                    .Dpidr         = 0x1BA01477,
                                    .IdCode        = 0xE0042000,
                                    .FlashSize     = 0x1FFFF7E0,
                                    .Level0        = 0xA5,
                                    .Level2        = 0,
                                    .LevelRegister = f1::OBR,
                                    .LevelField    = Bit("RDPRT", 1, LEVEL),
                                    .LevelCode     = LEVEL_STEPS};

inline constexpr FAMILY FamilyF3 = {.sName         = "STM32F3",
                                    .MenuRow       = 4,
                                    .Core          = CORTEX_M4,
                                    .Dpidr         = 0x2BA01477,
                                    .IdCode        = 0xE0042000,
                                    .FlashSize     = 0x1FFFF7CC,
                                    .LevelRegister = f1::OBR,
                                    .LevelField    = Bits("RDPRT", 2, 1, LEVEL),
                                    .LevelCode     = LEVEL_STEPS};

// -- Option words --------------------------------------------------------------------------------

namespace f1 {

inline constexpr FIELDS UserF1 = {Bits("RDP", 7, 0, LEVEL), Bit("WDG_SW", 16), Bit("nRST_STOP", 17),
                                  Bit("nRST_STDBY", 18)};
inline constexpr FIELDS UserF1XL = {Bits("RDP", 7, 0, LEVEL), Bit("WDG_SW", 16),
                                    Bit("nRST_STOP", 17), Bit("nRST_STDBY", 18), Bit("BFB2", 19)};
inline constexpr FIELDS UserF0   = {Bits("RDP", 7, 0, LEVEL),   Bit("WDG_SW", 16),
                                    Bit("nRST_STOP", 17),       Bit("nRST_STDBY", 18),
                                    Bit("nBOOT1", 20),          Bit("VDDA_MONITOR", 21),
                                    Bit("RAM_PARITY_CHECK", 22)};
// F04x and F09x can choose the boot mode by options instead of a pin.
inline constexpr FIELDS UserF0BootBits = {
    Bits("RDP", 7, 0, LEVEL), Bit("WDG_SW", 16),           Bit("nRST_STOP", 17),
    Bit("nRST_STDBY", 18),    Bit("nBOOT0", 19),           Bit("nBOOT1", 20),
    Bit("VDDA_MONITOR", 21),  Bit("RAM_PARITY_CHECK", 22), Bit("BOOT_SEL", 23)};
inline constexpr FIELDS UserF37 = {Bits("RDP", 7, 0, LEVEL),    Bit("WDG_SW", 16),
                                   Bit("nRST_STOP", 17),        Bit("nRST_STDBY", 18),
                                   Bit("nBOOT1", 20),           Bit("VDDA_MONITOR", 21),
                                   Bit("RAM_PARITY_CHECK", 22), Bit("SDADC12_VDD_MONITOR", 23)};

// The user byte is at OBR 15:8 on F0 and F3, at OBR 9:2 on F1.
constexpr OPTION_WORD RdpUser(uint32_t Factory, uint8_t UserTo, const FIELDS& Fields) {
  return {.sName      = "OPTION_RDP_USER",
          .Stored     = OPTIONS,
          .Factory    = Factory,
          .Complement = IN_BYTES,
          .Loaded     = {{.Register = OBR, .High = 23, .Low = 16, .To = UserTo}},
          .Fields     = Fields};
}

// Data0 and Data1 follow the user byte in OBR.
constexpr OPTION_WORD Data(uint8_t Data0To) {
  return {.sName      = "OPTION_DATA",
          .Stored     = OPTIONS + 4,
          .Factory    = 0x00FF00FF,
          .Complement = IN_BYTES,
          .Loaded     = {{.Register = OBR, .High = 7, .Low = 0, .To = Data0To},
                         {.Register = OBR, .High = 23, .Low = 16, .To = uint8_t(Data0To + 8)}},
          .Fields     = {Bits("DATA0", 7, 0, DATA), Bits("DATA1", 23, 16, DATA)}};
}

inline constexpr OPTION_WORD Wrp0  = {.sName      = "OPTION_WRP01",
                                      .Stored     = OPTIONS + 8,
                                      .Factory    = 0x00FF00FF,
                                      .Complement = IN_BYTES,
                                      .Loaded = {{.Register = WRPR, .High = 7, .Low = 0, .To = 0}},
                                      .Fields = {Bits("WRP0", 7, 0, WRP)}};
inline constexpr OPTION_WORD Wrp01 = {
    .sName      = "OPTION_WRP01",
    .Stored     = OPTIONS + 8,
    .Factory    = 0x00FF00FF,
    .Complement = IN_BYTES,
    .Loaded     = {{.Register = WRPR, .High = 7, .Low = 0, .To = 0},
                   {.Register = WRPR, .High = 23, .Low = 16, .To = 8}},
    .Fields     = {Bits("WRP0", 7, 0, WRP), Bits("WRP1", 23, 16, WRP)}};
inline constexpr OPTION_WORD Wrp23 = {
    .sName      = "OPTION_WRP23",
    .Stored     = OPTIONS + 12,
    .Factory    = 0x00FF00FF,
    .Complement = IN_BYTES,
    .Loaded     = {{.Register = WRPR, .High = 7, .Low = 0, .To = 16},
                   {.Register = WRPR, .High = 23, .Low = 16, .To = 24}},
    .Fields     = {Bits("WRP2", 7, 0, WRP), Bits("WRP3", 23, 16, WRP)}};
// Devices with too little flash for WRP2 and WRP3 store the word all the same.
inline constexpr OPTION_WORD Spare = {
    .sName = "OPTION_SPARE", .Stored = OPTIONS + 12, .Factory = 0x00FF00FF, .Complement = IN_BYTES};

inline constexpr OPTION_WORD OptionsF03[] = {RdpUser(0x00FF55AA, 8, UserF0), Data(16), Wrp0, Spare};
inline constexpr OPTION_WORD OptionsF04[] = {RdpUser(0x00FF55AA, 8, UserF0BootBits), Data(16), Wrp0,
                                             Spare};
inline constexpr OPTION_WORD OptionsF05[] = {RdpUser(0x00FF55AA, 8, UserF0), Data(16), Wrp01,
                                             Spare};
inline constexpr OPTION_WORD OptionsF07[] = {RdpUser(0x00FF55AA, 8, UserF0), Data(16), Wrp01,
                                             Wrp23};
inline constexpr OPTION_WORD OptionsF09[] = {RdpUser(0x00FF55AA, 8, UserF0BootBits), Data(16),
                                             Wrp01, Wrp23};
inline constexpr OPTION_WORD OptionsF1[] = {RdpUser(0x00FF5AA5, 2, UserF1), Data(10), Wrp01, Wrp23};
inline constexpr OPTION_WORD OptionsF1XL[] = {RdpUser(0x00FF5AA5, 2, UserF1XL), Data(10), Wrp01,
                                              Wrp23};
inline constexpr OPTION_WORD OptionsF37[]  = {RdpUser(0x00FF55AA, 8, UserF37), Data(16), Wrp01,
                                              Wrp23};

// Backup registers of the RTC; those of F1 are in their own block, which protection leaves
// alone.
inline constexpr MEMORY Backup5  = Backup("backup", 0x40002850, 20);
inline constexpr MEMORY Backup16 = Backup("backup", 0x40002850, 64);
inline constexpr MEMORY Backup32 = Backup("backup", 0x40002850, 128);

constexpr MEMORY Ccm(uint32_t Bytes) {
  return {"ccm", 0x10000000, Bytes, SRAM, 0};
}

}  // namespace f1

// -- Devices -------------------------------------------------------------------------------------

// clang-format off

inline constexpr DEVICE STM32F030 = {
    .sName = "STM32F030", .sText = "F0, F03x and F030x4/x6, 32 KB flash",
    .pFamily = &FamilyF0, .IdCode = 0x10006444, .Options = f1::OptionsF03,
    .Memory = {Flash(32 * KB), Sram(4 * KB)}};
inline constexpr DEVICE STM32F042 = {
    .sName = "STM32F042", .sText = "F0, F04x and F070x6, 32 KB flash",
    .pFamily = &FamilyF0, .IdCode = 0x10006445, .Options = f1::OptionsF04,
    .Memory = {Flash(32 * KB), f1::Backup5, Sram(6 * KB)}};
inline constexpr DEVICE STM32F051 = {
    .sName = "STM32F051", .sText = "F0, F05x and F030x8, 64 KB flash",
    .pFamily = &FamilyF0, .IdCode = 0x20006440, .Options = f1::OptionsF05,
    .Memory = {Flash(64 * KB), f1::Backup5, Sram(8 * KB)}};
inline constexpr DEVICE STM32F072 = {
    .sName = "STM32F072", .sText = "F0, F07x and F070xB, 128 KB flash",
    .pFamily = &FamilyF0, .IdCode = 0x20016448, .Options = f1::OptionsF07,
    .Memory = {Flash(128 * KB), f1::Backup5, Sram(16 * KB)}};
inline constexpr DEVICE STM32F091 = {
    .sName = "STM32F091", .sText = "F0, F09x and F030xC, 256 KB flash",
    .pFamily = &FamilyF0, .IdCode = 0x10006442, .Options = f1::OptionsF09,
    .Memory = {Flash(256 * KB), f1::Backup5, Sram(32 * KB)}};
inline constexpr DEVICE STM32F100 = {
    .sName = "STM32F100", .sText = "F1 value line, medium density, 128 KB flash",
    .pFamily = &FamilyF1, .IdCode = 0x10016420, .Options = f1::OptionsF1,
    .Memory = {Flash(128 * KB), Sram(8 * KB)}};
inline constexpr DEVICE STM32F100xE = {
    .sName = "STM32F100xE", .sText = "F1 value line, high density, 512 KB flash",
    .pFamily = &FamilyF1, .IdCode = 0x10016428, .Options = f1::OptionsF1,
    .Memory = {Flash(512 * KB), Sram(32 * KB)}};
inline constexpr DEVICE STM32F103x6 = {
    .sName = "STM32F103x6", .sText = "F1 low density, 32 KB flash",
    .pFamily = &FamilyF1, .IdCode = 0x10006412, .Options = f1::OptionsF1,
    .Memory = {Flash(32 * KB), Sram(10 * KB)}};
inline constexpr DEVICE STM32F103 = {
    .sName = "STM32F103", .sText = "F1 medium density, 128 KB flash",
    .pFamily = &FamilyF1, .IdCode = 0x20036410, .Options = f1::OptionsF1,
    .Memory = {Flash(128 * KB), Sram(20 * KB)}};
inline constexpr DEVICE STM32F103xE = {
    .sName = "STM32F103xE", .sText = "F1 high density, 512 KB flash",
    .pFamily = &FamilyF1, .IdCode = 0x10036414, .Options = f1::OptionsF1,
    .Memory = {Flash(512 * KB), Sram(64 * KB)}};
inline constexpr DEVICE STM32F103xG = {
    .sName = "STM32F103xG", .sText = "F1 XL density with two banks, 1 MB flash",
    .pFamily = &FamilyF1, .IdCode = 0x10006430, .Options = f1::OptionsF1XL,
    .Memory = {Flash(1024 * KB), Sram(96 * KB)}};
inline constexpr DEVICE STM32F105 = {
    .sName = "STM32F105", .sText = "F1 connectivity line, 256 KB flash",
    .pFamily = &FamilyF1, .IdCode = 0x10016418, .Options = f1::OptionsF1,
    .Memory = {Flash(256 * KB), Sram(64 * KB)}};
inline constexpr DEVICE STM32F301 = {
    .sName = "STM32F301", .sText = "F3, F301 and F302x6/x8, 64 KB flash",
    .pFamily = &FamilyF3, .IdCode = 0x10006439, .Options = f1::OptionsF05,
    .Memory = {Flash(64 * KB), f1::Backup5, Sram(16 * KB)}};
inline constexpr DEVICE STM32F303 = {
    .sName = "STM32F303", .sText = "F3, F302 and F303xB/xC, 256 KB flash",
    .pFamily = &FamilyF3, .IdCode = 0x10036422, .Options = f1::OptionsF07,
    .Memory = {Flash(256 * KB), f1::Backup16, Sram(40 * KB), f1::Ccm(8 * KB)}};
inline constexpr DEVICE STM32F303xE = {
    .sName = "STM32F303xE", .sText = "F3, F302 and F303xD/xE, 512 KB flash",
    .pFamily = &FamilyF3, .IdCode = 0x10016446, .Options = f1::OptionsF07,
    .Memory = {Flash(512 * KB), f1::Backup16, Sram(64 * KB), f1::Ccm(16 * KB)}};
inline constexpr DEVICE STM32F334 = {
    .sName = "STM32F334", .sText = "F3, F334 and F303x6/x8, 64 KB flash",
    .pFamily = &FamilyF3, .IdCode = 0x10016438, .Options = f1::OptionsF05,
    .Memory = {Flash(64 * KB), f1::Backup5, Sram(12 * KB), f1::Ccm(4 * KB)}};
inline constexpr DEVICE STM32F373 = {
    .sName = "STM32F373", .sText = "F3, F37x, 256 KB flash",
    .pFamily = &FamilyF3, .IdCode = 0x20006432, .Options = f1::OptionsF37,
    .Memory = {Flash(256 * KB), f1::Backup32, Sram(32 * KB)}};

// clang-format on

}  // namespace silicon

#endif
