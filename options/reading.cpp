// SPDX-License-Identifier: MIT

#include "options/reading.h"

#include <string.h>

#include "options/areas.h"
#include "options/identify.h"

// -- Registers -----------------------------------------------------------------------------------

// True when one of the device's words is loaded into the register, or it has flags.
static bool IsOfDevice(const READING* pReading, const silicon::STATUS_REGISTER& Row) {
  if (pReading->NumCandidates == 0 || Row.Flags.begin() != Row.Flags.end()) {
    // The second bank's status register is not on a device with one bank.
    return pReading->pLayout == NULL || pReading->pLayout->Map.NumBanks != 1 ||
           strcmp(Row.sName, "FLASH_SR2") != 0;
  }
  for (const silicon::OPTION_WORD& Word : pReading->apCandidates[0]->Options) {
    for (const silicon::LOADED& Loaded : Word.Loaded) {
      if (Loaded.Register == Row.Address) {
        return true;
      }
    }
  }
  return false;
}

// Returns the number of reads that were answered.
static uint32_t ReadRegisters(READING* pReading, const silicon::FAMILY_STATUS& Family) {
  uint32_t NumRead = 0;
  for (const silicon::STATUS_REGISTER& Row : Family.Registers) {
    if (IsOfDevice(pReading, Row) && pReading->NumRegisters < MAX_REGISTERS) {
      REGISTER_READING* pRegister = &pReading->aRegister[pReading->NumRegisters++];
      pRegister->pRow             = &Row;
      pRegister->MenuRow          = Family.MenuRow;
      pRegister->IsRead           = IDENTIFY_ReadWord(Row.Address, &pRegister->Value) == 0;
      NumRead += pRegister->IsRead;
    }
  }
  return NumRead;
}

// Without a family, those of all families that answer. One address is one register of most devices.
static uint32_t ReadAllRegisters(READING* pReading) {
  uint32_t NumRead = 0;
  for (const silicon::FAMILY_STATUS& Row : silicon::aFamilyStatus) {
    const uint32_t First = pReading->NumRegisters;
    bool           IsNew = true;
    for (uint32_t i = 0; i < First; i++) {
      IsNew = IsNew && pReading->aRegister[i].pRow->Address != Row.Registers[0].Address;
    }
    if (IsNew) {
      const uint32_t Answered = ReadRegisters(pReading, Row);
      NumRead += Answered;
      pReading->NumRegisters = Answered == 0 ? First : pReading->NumRegisters;
    }
  }
  return NumRead;
}

static int32_t ValueOfRegister(const READING* pReading, uint32_t Address, uint32_t* pValue) {
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    const REGISTER_READING* pRegister = &pReading->aRegister[i];
    if (pRegister->pRow->Address == Address && pRegister->IsRead) {
      *pValue = pRegister->Value;
      return 0;
    }
  }
  return -1;
}

bool READING_IsSet(const REGISTER_READING* pRegister, const silicon::FIELD* pFlag) {
  return pRegister->IsRead && pFlag->Get(pRegister->Value) != 0;
}

static bool IsFlagSet(const READING* pReading, const char* sFlag) {
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    for (const silicon::FIELD& Flag : pReading->aRegister[i].pRow->Flags) {
      if (strcmp(Flag.sName, sFlag) == 0 && READING_IsSet(&pReading->aRegister[i], &Flag)) {
        return true;
      }
    }
  }
  return false;
}

// -- Levels --------------------------------------------------------------------------------------

static int32_t LevelOfByte(const silicon::FAMILY* pFamily, uint32_t Byte) {
  if (Byte == pFamily->Level0) {
    return 0;
  }
  return pFamily->Level2 != 0 && Byte == pFamily->Level2 ? 2 : 1;
}

static int32_t LevelInForce(const READING* pReading) {
  uint32_t Value;
  if (ValueOfRegister(pReading, pReading->pFamily->LevelRegister, &Value) < 0) {
    return LEVEL_UNKNOWN;
  }
  const uint32_t Level = pReading->pFamily->LevelField.Get(Value);
  if (pReading->pFamily->LevelCode == silicon::LEVEL_BYTE) {
    return LevelOfByte(pReading->pFamily, Level);
  }
  return Level == 0 ? 0 : Level == 3 ? 2 : 1;
}

static int32_t StoredLevel(const READING* pReading) {
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    for (const silicon::FIELD& Field : pWord->pRow->Fields) {
      if (Field.Kind == silicon::LEVEL && pWord->HasStored) {
        // A wrong complement loads as level 1. In bytes only the level's own one counts.
        const bool IsByte  = pWord->pRow->Complement == silicon::IN_BYTES;
        const bool IsWrong = IsByte ? ((pWord->Stored ^ pWord->Stored >> 8) & 0xFF) != 0xFF
                                    : pWord->Complement == COMPLEMENT_WRONG;
        return IsWrong ? 1 : LevelOfByte(pReading->pFamily, Field.Get(pWord->Stored));
      }
    }
  }
  return LEVEL_UNKNOWN;
}

// -- Option words --------------------------------------------------------------------------------

static void PutLoaded(const READING* pReading, WORD_READING* pWord) {
  for (const silicon::LOADED& Piece : pWord->pRow->Loaded) {
    uint32_t Value;
    if (Piece.Register == 0) {
      continue;
    }
    const silicon::FIELD Place = silicon::Bits("", Piece.High, Piece.Low);
    if (ValueOfRegister(pReading, Piece.Register, &Value) == 0) {
      pWord->LoadedMask |= Place.Mask();
      pWord->Loaded = Place.Put(pWord->Loaded, Value >> Piece.To);
    } else {
      pWord->SilentMask |= Place.Mask();
    }
  }
}

static COMPLEMENT_STATE StateOfBytes(uint32_t Word) {
  COMPLEMENT_STATE State = COMPLEMENT_ERASED;
  for (uint32_t Half = Word, i = 0; i < 2; i++, Half >>= 16) {
    if ((Half & 0xFFFF) != 0xFFFF) {
      if (((Half ^ Half >> 8) & 0xFF) != 0xFF) {
        return COMPLEMENT_WRONG;
      }
      State = COMPLEMENT_RIGHT;
    }
  }
  return State;
}

static COMPLEMENT_STATE StateOf(WORD_READING* pWord) {
  uint32_t Complement;
  switch (pWord->pRow->Complement) {
    case silicon::IN_BYTES:
      return StateOfBytes(pWord->Stored);
    case silicon::IN_UPPER_HALF:
      Complement = ~pWord->Stored >> 16;
      return Complement == (pWord->Stored & 0xFFFF) ? COMPLEMENT_RIGHT : COMPLEMENT_WRONG;
    case silicon::IN_NEXT_WORD:
      if (IDENTIFY_ReadWord(pWord->pRow->Stored + 4, &Complement) < 0) {
        pWord->IsSilent = true;
        return COMPLEMENT_NONE;
      }
      return Complement == ~pWord->Stored ? COMPLEMENT_RIGHT : COMPLEMENT_WRONG;
    default:
      return COMPLEMENT_NONE;
  }
}

// The candidate's word at the same place; NULL if it has none that means something.
static const silicon::OPTION_WORD* SameWord(const silicon::DEVICE*      pDevice,
                                            const silicon::OPTION_WORD* pRow) {
  for (const silicon::OPTION_WORD& Word : pDevice->Options) {
    const bool IsSame =
        Word.Stored == pRow->Stored && Word.Loaded[0].Register == pRow->Loaded[0].Register;
    if (IsSame && Word.Fields.begin() != Word.Fields.end()) {
      return &Word;
    }
  }
  return NULL;
}

static bool IsCommonWord(const READING* pReading, const silicon::OPTION_WORD* pRow) {
  for (uint32_t i = 0; i < pReading->NumCandidates; i++) {
    if (SameWord(pReading->apCandidates[i], pRow) == NULL) {
      return false;
    }
  }
  return true;
}

static bool IsCommonField(const READING* pReading, const silicon::OPTION_WORD* pRow,
                          const silicon::FIELD* pField) {
  for (uint32_t i = 1; i < pReading->NumCandidates; i++) {
    const silicon::OPTION_WORD* pSame  = SameWord(pReading->apCandidates[i], pRow);
    bool                        HasOne = false;
    if (pSame != NULL) {
      for (const silicon::FIELD& Field : pSame->Fields) {
        HasOne =
            HasOne || (strcmp(Field.sName, pField->sName) == 0 && Field.Mask() == pField->Mask());
      }
    }
    if (!HasOne) {
      return false;
    }
  }
  return true;
}

static void ReadStored(const READING* pReading, WORD_READING* pWord) {
  const silicon::OPTION_WORD* pRow = pWord->pRow;
  // A read that is refused would set an error flag.
  if (pRow->Stored == 0 || (pReading->pFamilyStatus->HidesOptions && pReading->Level != 0)) {
    return;
  }
  uint32_t Upper   = 0;
  pWord->HasStored = IDENTIFY_ReadWord(pRow->Stored, &pWord->Stored) == 0;
  if (pWord->HasStored && pRow->StoredUpper != 0) {
    pWord->HasStored = IDENTIFY_ReadWord(pRow->StoredUpper, &Upper) == 0;
    pWord->Stored    = (pWord->Stored & 0xFFFF) | Upper << 16;
  }
  pWord->IsSilent = !pWord->HasStored;
  if (pWord->HasStored && IsCommonWord(pReading, pRow)) {
    pWord->Complement = StateOf(pWord);
  }
}

static void ReadWords(READING* pReading) {
  for (const silicon::OPTION_WORD& Row : pReading->apCandidates[0]->Options) {
    if (pReading->NumWords < MAX_WORDS) {
      WORD_READING* pWord = &pReading->aWord[pReading->NumWords++];
      pWord->pRow         = &Row;
      PutLoaded(pReading, pWord);
      ReadStored(pReading, pWord);
    }
  }
}

// -- Flash ---------------------------------------------------------------------------------------

static bool IsCovered(const READING* pReading, AREA_KIND Kind) {
  AREAS Areas;
  AREAS_Find(pReading, Kind, &Areas);
  for (uint32_t i = 0; i < Areas.NumAreas; i++) {
    if (Areas.aArea[i].Start <= silicon::FLASH_BASE) {
      return true;
    }
  }
  return false;
}

// NULL: the flash can be read without a refusal.
static const char* WhyNotToRead(const READING* pReading) {
  if (pReading->NumCandidates == 0) {
    return "what protects the flash of this device is not known";
  }
  if (pReading->Level != 0) {
    return "protected: the device would refuse the read and set an error flag";
  }
  if (IsFlagSet(pReading, "BSY") || IsFlagSet(pReading, "OPT_BUSY")) {
    return "the flash controller is busy";
  }
  if (IsCovered(pReading, AREAS_PCROP) || IsCovered(pReading, AREAS_SECURE)) {
    return "the first sector is execute-only or secure";
  }
  return NULL;
}

static void ReadFlash(READING* pReading) {
  pReading->sFlashUnread = WhyNotToRead(pReading);
  if (pReading->sFlashUnread != NULL) {
    return;
  }
  pReading->IsErased = true;
  for (uint32_t i = 0; i < NUM_FLASH_WORDS; i++) {
    if (IDENTIFY_ReadWord(silicon::FLASH_BASE + 4 * i, &pReading->aFlash[i]) < 0) {
      pReading->sFlashUnread = "the read was refused";
      return;
    }
    pReading->IsErased =
        pReading->IsErased && pReading->aFlash[i] == pReading->apCandidates[0]->Memory[0].Erased;
  }
  pReading->HasFlash = true;
}

int32_t READING_Take(uint32_t MenuRow, READING* pReading) {
  memset(pReading, 0, sizeof(*pReading));
  pReading->Level       = LEVEL_UNKNOWN;
  pReading->StoredLevel = LEVEL_UNKNOWN;
  IDENTIFY_Device(MenuRow, pReading);
  const uint32_t NumRead = pReading->pFamily != NULL
                               ? ReadRegisters(pReading, *pReading->pFamilyStatus)
                               : ReadAllRegisters(pReading);
  if (NumRead == 0) {
    return -1;
  }
  if (pReading->pFamily != NULL) {
    pReading->Level = LevelInForce(pReading);
    if (pReading->NumCandidates != 0) {
      ReadWords(pReading);
      pReading->StoredLevel = StoredLevel(pReading);
    }
  }
  ReadFlash(pReading);
  return 0;
}

// -- What was read -------------------------------------------------------------------------------

int32_t READING_Loaded(const READING* pReading, const WORD_READING* pWord,
                       const silicon::FIELD* pField, uint32_t* pValue) {
  // A register of a device that lacks the field may show anything there.
  if ((pField->Mask() & ~pWord->LoadedMask) != 0 || !IsCommonField(pReading, pWord->pRow, pField)) {
    return -1;
  }
  *pValue = pField->Get(pWord->Loaded);
  return 0;
}

int32_t READING_Stored(const WORD_READING* pWord, const silicon::FIELD* pField, uint32_t* pValue) {
  if (!pWord->HasStored) {
    return -1;
  }
  *pValue = pField->Get(pWord->Stored);
  return 0;
}

int32_t READING_Current(const READING* pReading, const WORD_READING* pWord,
                        const silicon::FIELD* pField, uint32_t* pValue) {
  if (READING_Loaded(pReading, pWord, pField, pValue) == 0) {
    return 0;
  }
  return READING_Stored(pWord, pField, pValue);
}

int32_t READING_IsFactory(const READING* pReading, const WORD_READING* pWord,
                          const silicon::FIELD* pField) {
  const uint32_t Factory   = pField->Get(pWord->pRow->Factory);
  uint32_t       Loaded    = Factory;
  uint32_t       Stored    = Factory;
  const int32_t  HasLoaded = READING_Loaded(pReading, pWord, pField, &Loaded);
  const int32_t  HasStored = READING_Stored(pWord, pField, &Stored);
  if (HasLoaded < 0 && HasStored < 0) {
    return -1;
  }
  return Loaded == Factory && Stored == Factory;
}

int32_t READING_IsAllFactory(const READING* pReading) {
  if (pReading->NumCandidates == 0) {
    return -1;
  }
  bool IsFactory = pReading->Level == 0 && !pReading->IsOtherFamily;
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    IsFactory = IsFactory && pWord->Complement != COMPLEMENT_WRONG && !pWord->IsSilent;
    for (const silicon::FIELD& Field : pWord->pRow->Fields) {
      IsFactory = IsFactory && READING_IsFactory(pReading, pWord, &Field) == 1;
    }
  }
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    IsFactory = IsFactory && pReading->aRegister[i].IsRead;
    for (const silicon::FIELD& Flag : pReading->aRegister[i].pRow->Flags) {
      IsFactory = IsFactory &&
                  (Flag.Kind != silicon::UNSURE || !READING_IsSet(&pReading->aRegister[i], &Flag));
    }
  }
  return IsFactory;
}

const WORD_READING* READING_FindWord(const READING* pReading, const char* sName) {
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    if (strcmp(pReading->aWord[i].pRow->sName, sName) == 0) {
      return &pReading->aWord[i];
    }
  }
  return NULL;
}

const silicon::FIELD* READING_FindField(const WORD_READING* pWord, const char* sName) {
  for (const silicon::FIELD& Field : pWord->pRow->Fields) {
    if (strcmp(Field.sName, sName) == 0) {
      return &Field;
    }
  }
  return NULL;
}
