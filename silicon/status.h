// silicon/status.h
// SPDX-License-Identifier: MIT
//
// The registers that show a family's options in force and its errors, and the flags in them. A
// device has those of them that its option words are loaded into, and the status registers.

#ifndef SILICON_STATUS_H
#define SILICON_STATUS_H

#include "silicon/catalog.h"

namespace silicon {

struct STATUS_REGISTER {
  const char* sName   = nullptr;
  uint32_t    Address = 0;
  FIELDS      Flags   = {};  // STATUS: an access was refused; UNSURE: see there
};

struct FAMILY_STATUS {
  uint32_t              MenuRow   = 0;
  ROWS<STATUS_REGISTER> Registers = {};

  // DBGMCU_IDCODE answers only while a clock is on that a reset switches off.
  bool HidesIdentity = false;
  // The stored words cannot be read at level 1.
  bool HidesOptions = false;
};

namespace status {

inline constexpr FIELDS SrF0F1F3 = {Bit("BSY", 0, UNSURE), Bit("PGERR", 2, STATUS),
                                    Bit("WRPRTERR", 4, STATUS)};
inline constexpr FIELDS SrF2F4   = {Bit("OPERR", 1, STATUS),  Bit("WRPERR", 4, STATUS),
                                    Bit("PGAERR", 5, STATUS), Bit("PGPERR", 6, STATUS),
                                    Bit("PGSERR", 7, STATUS), Bit("RDERR", 8, STATUS),
                                    Bit("BSY", 16, UNSURE)};
inline constexpr FIELDS SrF72    = {Bit("OPERR", 1, STATUS),  Bit("WRPERR", 4, STATUS),
                                    Bit("PGAERR", 5, STATUS), Bit("PGPERR", 6, STATUS),
                                    Bit("ERSERR", 7, STATUS), Bit("RDERR", 8, STATUS),
                                    Bit("BSY", 16, UNSURE)};
inline constexpr FIELDS SrH7     = {Bit("BSY", 0, UNSURE),     Bit("WRPERR", 17, STATUS),
                                    Bit("PGSERR", 18, STATUS), Bit("STRBERR", 19, STATUS),
                                    Bit("INCERR", 21, STATUS), Bit("RDPERR", 23, STATUS),
                                    Bit("RDSERR", 24, STATUS)};
inline constexpr FIELDS SrL0     = {Bit("BSY", 0, UNSURE),         Bit("WRPERR", 8, STATUS),
                                    Bit("PGAERR", 9, STATUS),      Bit("SIZERR", 10, STATUS),
                                    Bit("OPTVERR", 11, UNSURE),    Bit("RDERR", 13, STATUS),
                                    Bit("NOTZEROERR", 16, STATUS), Bit("FWWERR", 17, STATUS)};
inline constexpr FIELDS SrL1     = {Bit("BSY", 0, UNSURE),      Bit("WRPERR", 8, STATUS),
                                    Bit("PGAERR", 9, STATUS),   Bit("SIZERR", 10, STATUS),
                                    Bit("OPTVERR", 11, UNSURE), Bit("OPTVERRUSR", 12, UNSURE),
                                    Bit("RDERR", 13, STATUS)};
inline constexpr FIELDS SrL4     = {
        Bit("OPERR", 1, STATUS),    Bit("PROGERR", 3, STATUS), Bit("WRPERR", 4, STATUS),
        Bit("PGAERR", 5, STATUS),   Bit("SIZERR", 6, STATUS),  Bit("PGSERR", 7, STATUS),
        Bit("MISERR", 8, STATUS),   Bit("FASTERR", 9, STATUS), Bit("RDERR", 14, STATUS),
        Bit("OPTVERR", 15, UNSURE), Bit("BSY", 16, UNSURE)};

// clang-format off

inline constexpr STATUS_REGISTER F0F1F3[] = {
    {"FLASH_SR",  0x4002200C, SrF0F1F3},
    {"FLASH_OBR", f1::OBR, {Bit("OPTERR", 0, UNSURE)}},
    {"FLASH_WRPR", f1::WRPR}};
inline constexpr STATUS_REGISTER F2F4F7[] = {
    {"FLASH_SR", 0x40023C0C, SrF2F4},
    {"FLASH_OPTCR", f4::OPTCR}, {"FLASH_OPTCR1", f4::OPTCR1}};
inline constexpr STATUS_REGISTER F72[] = {
    {"FLASH_SR", 0x40023C0C, SrF72},
    {"FLASH_OPTCR", f4::OPTCR}, {"FLASH_OPTCR1", f4::OPTCR1}, {"FLASH_OPTCR2", f4::OPTCR2}};
inline constexpr STATUS_REGISTER H7[] = {
    {"FLASH_SR1", 0x52002010, SrH7},
    {"FLASH_OPTSR_CUR", h7::OPTSR_CUR,
     {Bit("OPT_BUSY", 0, UNSURE), Bit("OPTCHANGEERR", 30, UNSURE)}},
    {"FLASH_PRAR_CUR1", h7::PRAR_CUR}, {"FLASH_SCAR_CUR1", h7::SCAR_CUR},
    {"FLASH_WPSN_CUR1R", h7::WPSN_CUR},
    {"FLASH_BOOT_CURR", h7::BOOT_CUR}, {"FLASH_BOOT4_CUR", h7::BOOT4_CUR},
    {"FLASH_OPTSR2_CUR", h7::OPTSR2_CUR},
    {"FLASH_SR2", 0x52002010 + h7::BANK2, SrH7},
    {"FLASH_PRAR_CUR2", h7::PRAR_CUR + h7::BANK2}, {"FLASH_SCAR_CUR2", h7::SCAR_CUR + h7::BANK2},
    {"FLASH_WPSN_CUR2R", h7::WPSN_CUR + h7::BANK2}};
inline constexpr STATUS_REGISTER L0[] = {
    {"FLASH_SR", l0::BASE_L0 + 0x18, SrL0}, {"FLASH_OPTR", l0::BASE_L0 + l0::OPTR},
    {"FLASH_WRPROT1", l0::BASE_L0 + l0::WRPROT1}, {"FLASH_WRPROT2", l0::BASE_L0 + l0::WRPROT2}};
inline constexpr STATUS_REGISTER L1[] = {
    {"FLASH_SR", l0::BASE_L1 + 0x18, SrL1}, {"FLASH_OBR", l0::BASE_L1 + l0::OPTR},
    {"FLASH_WRPR1", l0::BASE_L1 + l0::WRPROT1}, {"FLASH_WRPR2", l0::BASE_L1 + l0::WRPROT2},
    {"FLASH_WRPR3", l0::BASE_L1 + l0::WRPROT3}, {"FLASH_WRPR4", l0::BASE_L1 + l0::WRPROT4}};
inline constexpr STATUS_REGISTER L4[] = {
    {"FLASH_SR", 0x40022010, SrL4}, {"FLASH_OPTR", l4::OPTR},
    {"FLASH_PCROP1SR", l4::PCROP1SR}, {"FLASH_PCROP1ER", l4::PCROP1ER},
    {"FLASH_WRP1AR", l4::WRP1AR}, {"FLASH_WRP1BR", l4::WRP1BR},
    {"FLASH_PCROP2SR", l4::PCROP2SR}, {"FLASH_PCROP2ER", l4::PCROP2ER},
    {"FLASH_WRP2AR", l4::WRP2AR}, {"FLASH_WRP2BR", l4::WRP2BR}};

// clang-format on

}  // namespace status

inline constexpr FAMILY_STATUS aFamilyStatus[] = {
    {.MenuRow = 1, .Registers = status::F0F1F3, .HidesIdentity = true},
    {.MenuRow = 2, .Registers = status::F0F1F3},
    {.MenuRow = 3, .Registers = status::F2F4F7, .HidesOptions = true},
    {.MenuRow = 4, .Registers = status::F0F1F3},
    {.MenuRow = 5, .Registers = status::F2F4F7, .HidesOptions = true},
    {.MenuRow = 6, .Registers = status::F72, .HidesOptions = true},
    {.MenuRow = 7, .Registers = status::F2F4F7, .HidesOptions = true},
    {.MenuRow = 8, .Registers = status::F2F4F7, .HidesOptions = true},
    {.MenuRow = 9, .Registers = status::H7},
    {.MenuRow = 10, .Registers = status::L0, .HidesIdentity = true},
    {.MenuRow = 11, .Registers = status::L1},
    {.MenuRow = 12, .Registers = status::L4},
};

static_assert(HasRowOfEachFamily(aFamilyStatus), "each family has a row");

}  // namespace silicon

#endif
