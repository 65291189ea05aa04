// silicon/device.h
// SPDX-License-Identifier: MIT
//
// Facts about STM32 devices that more than one program needs: how a device is identified, which
// memories it has, which option words it stores, where they are read and what is in them as
// delivered. Data only: all of it is constant, nothing allocates, any thread may read it. Names are
// those of the reference manuals, addresses are those of the debugger's bus.
//
// One header per group of families holds the rows (silicon/f0_f1_f3.h, ...); silicon/catalog.h
// lists all devices.

#ifndef SILICON_DEVICE_H
#define SILICON_DEVICE_H

#include <stddef.h>
#include <stdint.h>

namespace silicon {

inline constexpr uint32_t KB = 1024;

// An array of rows and its length, for a range-based for. No C++ library: a product that is built
// for a system without one reads these headers too.
template <class ROW>
struct ROWS {
  const ROW* pFirst = nullptr;
  size_t     Number = 0;

  constexpr ROWS() = default;
  template <size_t N>
  constexpr ROWS(const ROW (&aRows)[N]) : pFirst(aRows), Number(N) {}

  constexpr const ROW* begin() const { return pFirst; }
  constexpr const ROW* end() const { return pFirst + Number; }
  constexpr size_t     size() const { return Number; }
  constexpr const ROW& operator[](size_t i) const { return pFirst[i]; }
};

// -- Fields of a word or register ----------------------------------------------------------------

enum FIELD_KIND : uint8_t {
  USER,    // an option that changes how the device starts or runs
  LEVEL,   // the read protection level
  WRP,     // write protection: one bit per sector, or an end of an area
  PCROP,   // code that can be executed and not read
  SECURE,  // a secure area or what belongs to it
  BOOT,    // a boot address
  DATA,    // bytes that are the user's own
  STATUS,  // no option: shows a state
  UNSURE   // no option: while it is set, what is in force may not be what is stored
};

struct FIELD {
  const char* sName = nullptr;
  uint8_t     High  = 0;  // bits High:Low of the word
  uint8_t     Low   = 0;
  FIELD_KIND  Kind  = USER;

  constexpr uint32_t Width() const { return High - Low + 1u; }
  constexpr uint32_t Mask() const { return (Width() == 32 ? ~0u : (1u << Width()) - 1) << Low; }
  constexpr uint32_t Get(uint32_t Word) const { return (Word & Mask()) >> Low; }
  constexpr uint32_t Put(uint32_t Word, uint32_t Value) const {
    return (Word & ~Mask()) | (Value << Low & Mask());
  }
};

constexpr FIELD Bit(const char* sName, uint8_t Bit, FIELD_KIND Kind = USER) {
  return {sName, Bit, Bit, Kind};
}
constexpr FIELD Bits(const char* sName, uint8_t High, uint8_t Low, FIELD_KIND Kind = USER) {
  return {sName, High, Low, Kind};
}

// The fields of one word, from bit 0 up. A range-based for visits those that are given.
struct FIELDS {
  FIELD aField[22];

  constexpr const FIELD* begin() const { return aField; }
  constexpr const FIELD* end() const {
    const FIELD* pEnd = aField;
    while (pEnd < aField + sizeof(aField) / sizeof(aField[0]) && pEnd->sName != nullptr) {
      pEnd++;
    }
    return pEnd;
  }

  // The bits of all fields, or of the fields of one kind.
  constexpr uint32_t Mask() const {
    uint32_t Bits = 0;
    for (const FIELD& Field : *this) {
      Bits |= Field.Mask();
    }
    return Bits;
  }
  constexpr uint32_t Mask(FIELD_KIND Kind) const {
    uint32_t Bits = 0;
    for (const FIELD& Field : *this) {
      Bits |= Field.Kind == Kind ? Field.Mask() : 0;
    }
    return Bits;
  }
};

// All fields of both, which have to fit.
constexpr FIELDS operator+(FIELDS First, const FIELDS& Second) {
  size_t i = static_cast<size_t>(First.end() - First.begin());
  for (const FIELD& Field : Second) {
    First.aField[i++] = Field;
  }
  return First;
}

// -- Option words --------------------------------------------------------------------------------

// What a device stores beside a value, to find out whether it was programmed to its end.
enum COMPLEMENT : uint8_t {
  NO_COMPLEMENT,  // nothing that the bus shows
  IN_BYTES,       // bits 15:8 are the complement of 7:0, bits 31:24 that of 23:16; FFFF is erased
  IN_UPPER_HALF,  // bits 31:16 are the complement of 15:0
  IN_NEXT_WORD    // the word after it
};

// Where the value in force is found: bits High:Low of the option word are in the register from bit
// To up.
struct LOADED {
  uint32_t Register = 0;  // 0: no such place
  uint8_t  High     = 31;
  uint8_t  Low      = 0;
  uint8_t  To       = 0;
};

struct OPTION_WORD {
  const char* sName       = nullptr;
  uint32_t    Stored      = 0;  // where the stored word is read; 0: through registers only
  uint32_t    StoredUpper = 0;  // where its upper half-word is, when apart from the lower one
  uint32_t    Factory     = 0;  // as delivered, with the complement where that is in the word
  COMPLEMENT  Complement  = NO_COMPLEMENT;
  LOADED      Loaded[2]   = {};
  FIELDS      Fields      = {};  // none: the word is stored and means nothing
};

// -- Memories ------------------------------------------------------------------------------------

enum MEMORY_KIND : uint8_t {
  MAIN_FLASH,
  EEPROM,
  BACKUP,  // on the backup supply, or SRAM2: kept over a reset, wiped when protection is lifted
  SRAM     // lost with power, of no concern to protection
};

struct MEMORY {
  const char* sName  = nullptr;
  uint32_t    Base   = 0;
  uint32_t    Bytes  = 0;
  MEMORY_KIND Kind   = SRAM;
  uint32_t    Erased = 0;  // a word of it after an erase
};

constexpr MEMORY Flash(uint32_t Bytes, uint32_t Erased = 0xFFFFFFFF) {
  return {"flash", 0x08000000, Bytes, MAIN_FLASH, Erased};
}
constexpr MEMORY Sram(uint32_t Bytes) {
  return {"sram", 0x20000000, Bytes, SRAM, 0};
}
constexpr MEMORY Backup(const char* sName, uint32_t Base, uint32_t Bytes) {
  return {sName, Base, Bytes, BACKUP, 0};
}

// -- Families and devices ------------------------------------------------------------------------

enum CORE : uint8_t { CORTEX_M0, CORTEX_M0PLUS, CORTEX_M3, CORTEX_M4, CORTEX_M7 };

enum LEVEL_CODE : uint8_t {
  LEVEL_BYTE,  // the register shows the stored byte
  LEVEL_STEPS  // 0 level 0, 1 level 1, 3 level 2
};

struct FAMILY {
  const char* sName   = nullptr;
  uint32_t    MenuRow = 0;  // the entry of the unlock tool's menu, 1 to 12
  CORE        Core    = CORTEX_M3;
  uint32_t    Dpidr   = 0;  // identity of the SW-DP

  uint32_t IdCode    = 0;  // address of DBGMCU_IDCODE
  uint32_t FlashSize = 0;  // address of the half-word with the size of the flash in KB

  // Read protection: the byte that is level 0, the byte that is level 2 (0: no level 2). Every
  // other byte is level 1, and so is a byte whose complement is wrong.
  uint8_t Level0 = 0xAA;
  uint8_t Level2 = 0xCC;

  // Where the level in force is read.
  uint32_t   LevelRegister = 0;
  FIELD      LevelField    = {};
  LEVEL_CODE LevelCode     = LEVEL_BYTE;
};

inline constexpr uint32_t SIZE_IN_KB = ~0u;

struct DEVICE {
  const char*       sName      = nullptr;
  const char*       sText      = nullptr;
  const FAMILY*     pFamily    = nullptr;
  uint32_t          IdCode     = 0;           // DEV_ID 11:0; REV_ID 31:16 as seen on one part
  uint32_t          SizeCode   = SIZE_IN_KB;  // what the size register holds
  ROWS<OPTION_WORD> Options    = {};
  MEMORY            Memory[11] = {};  // main flash first; unused rows have no bytes
};

}  // namespace silicon

#endif
