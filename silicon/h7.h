// silicon/h7.h
// SPDX-License-Identifier: MIT
//
// STM32H7 of DEV_ID 0x450 and 0x483. Option values are held twice: in force (_CUR) and to be
// programmed (_PRG, 4 above). Nothing but these registers shows them. Reference manuals RM0433
// (H743, H750), RM0399 (H745) and RM0468 (H723).

#ifndef SILICON_H7_H
#define SILICON_H7_H

#include "silicon/device.h"

namespace silicon {

namespace h7 {

// The values in force; of the second bank's at BANK2 only PRAR, SCAR and WPSN are its own.
inline constexpr uint32_t OPTSR_CUR = 0x5200201C, PRAR_CUR = 0x52002028, SCAR_CUR = 0x52002030,
                          WPSN_CUR = 0x52002038, BOOT_CUR = 0x52002040, BOOT4_CUR = 0x52002048,
                          OPTSR2_CUR = 0x52002070;
inline constexpr uint32_t BANK2      = 0x100;

}  // namespace h7

inline constexpr FAMILY FamilyH7 = {.sName         = "STM32H7",
                                    .MenuRow       = 9,
                                    .Core          = CORTEX_M7,
                                    .Dpidr         = 0x6BA02477,
                                    .IdCode        = 0x5C001000,
                                    .FlashSize     = 0x1FF1E880,
                                    .LevelRegister = h7::OPTSR_CUR,
                                    .LevelField    = Bits("RDP", 15, 8, LEVEL)};

// -- Option words --------------------------------------------------------------------------------

namespace h7 {

constexpr OPTION_WORD Word(const char* sName, uint32_t Current, uint32_t Factory,
                           const FIELDS& Fields) {
  return {.sName = sName, .Factory = Factory, .Loaded = {{.Register = Current}}, .Fields = Fields};
}

// Bits that are no fields read as delivered. H723 has one bank and H750 one that is announced, so
// there is nothing to swap.
inline constexpr FIELDS OptsrOneBank = {Bits("BOR_LEV", 3, 2),       Bit("IWDG1_SW", 4),
                                        Bit("nRST_STOP_D1", 6),      Bit("nRST_STBY_D1", 7),
                                        Bits("RDP", 15, 8, LEVEL),   Bit("FZ_IWDG_STOP", 17),
                                        Bit("FZ_IWDG_SDBY", 18),     Bits("ST_RAM_SIZE", 20, 19),
                                        Bit("SECURITY", 21, SECURE), Bit("IO_HSLV", 29)};
inline constexpr FIELDS Optsr743     = OptsrOneBank + FIELDS{Bit("SWAP_BANK_OPT", 31)};
inline constexpr FIELDS Optsr745     = {
        Bits("BOR_LEV", 3, 2),       Bit("IWDG1_SW", 4),      Bit("IWDG2_SW", 5),
        Bit("nRST_STOP_D1", 6),      Bit("nRST_STBY_D1", 7),  Bits("RDP", 15, 8, LEVEL),
        Bit("FZ_IWDG_STOP", 17),     Bit("FZ_IWDG_SDBY", 18), Bits("ST_RAM_SIZE", 20, 19),
        Bit("SECURITY", 21, SECURE), Bit("BCM4", 22),         Bit("BCM7", 23),
        Bit("nRST_STOP_D2", 24),     Bit("nRST_STBY_D2", 25), Bit("IO_HSLV", 29),
        Bit("SWAP_BANK_OPT", 31)};

// An area is START to END in units of 256 bytes; none where START is above END.
inline constexpr FIELDS Prar   = {Bits("PROT_AREA_START", 11, 0, PCROP),
                                  Bits("PROT_AREA_END", 27, 16, PCROP), Bit("DMEP", 31, PCROP)};
inline constexpr FIELDS Scar   = {Bits("SEC_AREA_START", 11, 0, SECURE),
                                  Bits("SEC_AREA_END", 27, 16, SECURE), Bit("DMES", 31, SECURE)};
inline constexpr FIELDS Wpsn   = {Bits("WRPSn", 7, 0, WRP)};
inline constexpr FIELDS Boot   = {Bits("BOOT_ADD0", 15, 0, BOOT), Bits("BOOT_ADD1", 31, 16, BOOT)};
inline constexpr FIELDS Boot4  = {Bits("BOOT_CM4_ADD0", 15, 0, BOOT),
                                  Bits("BOOT_CM4_ADD1", 31, 16, BOOT)};
inline constexpr FIELDS Optsr2 = {Bits("TCM_AXI_SHARED", 1, 0), Bit("CPUFREQ_BOOST", 2)};

struct TWO_BANKS {
  OPTION_WORD aWord[8];
};

constexpr TWO_BANKS TwoBanks(uint32_t OptsrFactory, const FIELDS& Optsr, uint32_t ScarFactory) {
  return {{Word("OPTSR", OPTSR_CUR, OptsrFactory, Optsr), Word("PRAR1", PRAR_CUR, 0x000000FF, Prar),
           Word("SCAR1", SCAR_CUR, ScarFactory, Scar), Word("WPSN1", WPSN_CUR, 0x000000FF, Wpsn),
           Word("PRAR2", PRAR_CUR + BANK2, 0x000000FF, Prar),
           Word("SCAR2", SCAR_CUR + BANK2, ScarFactory, Scar),
           Word("WPSN2", WPSN_CUR + BANK2, 0x000000FF, Wpsn),
           Word("BOOT", BOOT_CUR, 0x1FF00800, Boot)}};
}

// Of H743 and H750 the words that are found; as printed, OPTSR is 0x1406AAF0 and SCAR 0x000000FF.
inline constexpr TWO_BANKS   Options743   = TwoBanks(0x1416AAF0, Optsr743, 0x800000FF);
inline constexpr TWO_BANKS   Options750   = TwoBanks(0x1416AAF0, OptsrOneBank, 0x800000FF);
inline constexpr TWO_BANKS   BothCores    = TwoBanks(0x17C6AAF0, Optsr745, 0x000000FF);
inline constexpr OPTION_WORD Options745[] = {
    BothCores.aWord[0], BothCores.aWord[1], BothCores.aWord[2],
    BothCores.aWord[3], BothCores.aWord[4], BothCores.aWord[5],
    BothCores.aWord[6], BothCores.aWord[7], Word("BOOT4", BOOT4_CUR, 0x10000810, Boot4)};
inline constexpr OPTION_WORD Options723[] = {Word("OPTSR", OPTSR_CUR, 0x179EAAF0, OptsrOneBank),
                                             Word("PRAR1", PRAR_CUR, 0x000000FF, Prar),
                                             Word("SCAR1", SCAR_CUR, 0x800000FF, Scar),
                                             Word("WPSN1", WPSN_CUR, 0x000000FF, Wpsn),
                                             Word("BOOT", BOOT_CUR, 0x1FF00800, Boot),
                                             Word("OPTSR2", OPTSR2_CUR, 0x00000000, Optsr2)};

// Wiped together with the flash when protection is lifted.
inline constexpr MEMORY BackupSram  = Backup("backup_sram", 0x38800000, 4 * KB);
inline constexpr MEMORY BackupOfRtc = Backup("backup", 0x58004050, 128);
// H750 has the flash of an H743 and answers for the first sector only.
inline constexpr MEMORY FlashBeyond = {"flash_beyond", 0x08020000, (2048 - 128) * KB, MAIN_FLASH,
                                       0xFFFFFFFF};

constexpr MEMORY AxiSram(uint32_t Bytes) {
  return {"axi_sram", 0x24000000, Bytes, SRAM, 0};
}
inline constexpr MEMORY Itcm  = {"itcm", 0x00000000, 64 * KB, SRAM, 0};
inline constexpr MEMORY Sram1 = {"sram1", 0x30000000, 128 * KB, SRAM, 0};
inline constexpr MEMORY Sram2 = {"sram2", 0x30020000, 128 * KB, SRAM, 0};
inline constexpr MEMORY Sram3 = {"sram3", 0x30040000, 32 * KB, SRAM, 0};
inline constexpr MEMORY Sram4 = {"sram4", 0x38000000, 64 * KB, SRAM, 0};
// Those of H723 are smaller, the second one follows the first at once.
inline constexpr MEMORY Sram1Of723 = {"sram1", 0x30000000, 16 * KB, SRAM, 0};
inline constexpr MEMORY Sram2Of723 = {"sram2", 0x30004000, 16 * KB, SRAM, 0};
inline constexpr MEMORY Sram4Of723 = {"sram4", 0x38000000, 16 * KB, SRAM, 0};

}  // namespace h7

// -- Devices -------------------------------------------------------------------------------------

// clang-format off

inline constexpr DEVICE STM32H723 = {
    .sName = "STM32H723", .sText = "H7 with one bank, H72x and H73x, 1 MB flash",
    .pFamily = &FamilyH7, .IdCode = 0x10016483, .Options = h7::Options723,
    .Memory = {Flash(1024 * KB), h7::BackupSram, h7::BackupOfRtc, Sram(128 * KB),
               h7::AxiSram(320 * KB), h7::Itcm, h7::Sram1Of723, h7::Sram2Of723, h7::Sram4Of723}};
inline constexpr DEVICE STM32H743 = {
    .sName = "STM32H743", .sText = "H7 with two banks, PCROP and secure areas, 2 MB flash",
    .pFamily = &FamilyH7, .IdCode = 0x20036450, .Options = h7::Options743.aWord,
    .Memory = {Flash(2048 * KB), h7::BackupSram, h7::BackupOfRtc, Sram(128 * KB),
               h7::AxiSram(512 * KB), h7::Itcm, h7::Sram1, h7::Sram2, h7::Sram3, h7::Sram4}};
inline constexpr DEVICE STM32H745 = {
    .sName = "STM32H745", .sText = "H7 with two cores and two banks, 2 MB flash",
    .pFamily = &FamilyH7, .IdCode = 0x20036450, .Options = h7::Options745,
    .Memory = {Flash(2048 * KB), h7::BackupSram, h7::BackupOfRtc, Sram(128 * KB),
               h7::AxiSram(512 * KB), h7::Itcm, h7::Sram1, h7::Sram2, h7::Sram3, h7::Sram4}};
inline constexpr DEVICE STM32H750 = {
    .sName = "STM32H750", .sText = "H7 value line, 128 KB flash",
    .pFamily = &FamilyH7, .IdCode = 0x20036450, .Options = h7::Options750.aWord,
    .Memory = {Flash(128 * KB), h7::BackupSram, h7::BackupOfRtc, Sram(128 * KB),
               h7::AxiSram(512 * KB), h7::Itcm, h7::Sram1, h7::Sram2, h7::Sram3, h7::Sram4,
               h7::FlashBeyond}};

// clang-format on

}  // namespace silicon

#endif
