// options/reading.h
// SPDX-License-Identifier: MIT
//
// What was read from a device: which one it is, its option words as stored and in force, and its
// status. Reads only: no write, no reset and no halt, and no read that the device would refuse with
// an error flag, as of flash at level 1 or in PCROP.
//
// The probe is open, SWD is selected and the target has power. One thread.

#ifndef OPTIONS_READING_H
#define OPTIONS_READING_H

#include <stdint.h>

#include "silicon/layout.h"
#include "silicon/status.h"

static constexpr uint32_t MAX_CANDIDATES  = 12;
static constexpr uint32_t MAX_REGISTERS   = 48;  // of all families
static constexpr uint32_t MAX_WORDS       = 12;
static constexpr uint32_t NUM_FLASH_WORDS = 4;
static constexpr int32_t  LEVEL_UNKNOWN   = -1;

enum FOUND_BY : uint8_t {
  FOUND_BY_NOTHING,
  FOUND_BY_OPTION,  // the user named the family
  FOUND_BY_DEVICE
};

enum COMPLEMENT_STATE : uint8_t {
  COMPLEMENT_NONE,  // not stored, or not readable
  COMPLEMENT_RIGHT,
  COMPLEMENT_WRONG,
  COMPLEMENT_ERASED  // value and complement are erased, which loads as all ones
};

struct REGISTER_READING {
  const silicon::STATUS_REGISTER* pRow;
  uint32_t                        MenuRow;  // of its family
  bool                            IsRead;
  uint32_t                        Value;
};

struct WORD_READING {
  const silicon::OPTION_WORD* pRow;
  uint32_t                    Loaded;      // in force, at the bits of LoadedMask
  uint32_t                    LoadedMask;  // the bits that registers show
  uint32_t                    SilentMask;  // the bits of registers that did not answer
  bool                        HasStored;
  bool                        IsSilent;  // the word or its complement was asked for in vain
  uint32_t                    Stored;    // as memory shows it
  COMPLEMENT_STATE            Complement;
};

struct READING {
  const silicon::FAMILY*        pFamily;        // NULL: not found
  const silicon::FAMILY_STATUS* pFamilyStatus;  // NULL: not found
  FOUND_BY                      FoundBy;
  bool                          IsOtherFamily;  // the device is not of the family that was named

  bool     HasIdCode;
  uint32_t IdCode;
  bool     IsKnown;  // identified, and described in silicon/

  // The devices that it can be, the most inclusive one first. None: the device is not described.
  const silicon::DEVICE* apCandidates[MAX_CANDIDATES];
  uint32_t               NumCandidates;
  const silicon::LAYOUT* pLayout;  // of the first; NULL without one
  bool                   HasFlashKb;
  uint32_t               FlashKb;

  int32_t Level;        // in force; or LEVEL_UNKNOWN
  int32_t StoredLevel;  // or LEVEL_UNKNOWN

  REGISTER_READING aRegister[MAX_REGISTERS];
  uint32_t         NumRegisters;
  WORD_READING     aWord[MAX_WORDS];  // of the first candidate, in the order of its rows
  uint32_t         NumWords;

  bool        HasFlash;
  uint32_t    aFlash[NUM_FLASH_WORDS];
  bool        IsErased;      // the words read as after an erase
  const char* sFlashUnread;  // why they were not read
};

// Reads the device. MenuRow: the family that the user named; 0: none.
// 0: read. -1: no read was answered at all; the debug port is closed.
int32_t READING_Take(uint32_t MenuRow, READING* pReading);

// A field's value in force. 0: *pValue is set. -1: no register shows it, or not for certain.
int32_t READING_Loaded(const READING* pReading, const WORD_READING* pWord,
                       const silicon::FIELD* pField, uint32_t* pValue);

// A field's stored value. 0: *pValue is set. -1: it could not be read.
int32_t READING_Stored(const WORD_READING* pWord, const silicon::FIELD* pField, uint32_t* pValue);

// The value in force if it is shown, else the stored one. 0: *pValue is set. -1: neither.
int32_t READING_Current(const READING* pReading, const WORD_READING* pWord,
                        const silicon::FIELD* pField, uint32_t* pValue);

// 1: every value that could be read is the factory value. 0: one is not. -1: none could be read.
int32_t READING_IsFactory(const READING* pReading, const WORD_READING* pWord,
                          const silicon::FIELD* pField);

// 1: fields, complements and level are as delivered, and nothing puts that in doubt. 0: not.
// -1: the device is not described.
int32_t READING_IsAllFactory(const READING* pReading);

// The word of that name; NULL if the device has none.
const WORD_READING* READING_FindWord(const READING* pReading, const char* sName);

// The word's field of that name; NULL if it has none.
const silicon::FIELD* READING_FindField(const WORD_READING* pWord, const char* sName);

// True for a flag of the register that is set.
bool READING_IsSet(const REGISTER_READING* pRegister, const silicon::FIELD* pFlag);

#endif
