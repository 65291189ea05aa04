// SPDX-License-Identifier: MIT

#include "options/areas.h"

#include <string.h>

static const uint32_t NUM_SMALL = 4;  // of a stepped map: small sectors before the one of 4 times
static const uint32_t MIDDLE    = 4;  // times a small one
static const uint32_t LARGE     = 8;

static uint32_t FlashBytes(const READING* pReading) {
  return pReading->HasFlashKb ? pReading->FlashKb * silicon::KB
                              : pReading->apCandidates[0]->Memory[0].Bytes;
}

// -- Sectors, one bit each -----------------------------------------------------------------------

static const silicon::SECTOR_MAP* MapOf(const READING* pReading) {
  const silicon::LAYOUT* pLayout = pReading->pLayout;
  const bool             IsSplit = pLayout->SplitMask != 0 &&
                       (pReading->aWord[0].Loaded & pLayout->SplitMask) == pLayout->SplitValue;
  return IsSplit ? &pLayout->Split : &pLayout->Map;
}

// Where a sector of a bank begins. One beyond the last gives the end of the last.
static uint32_t OffsetOf(const silicon::SECTOR_MAP* pMap, uint32_t Sector) {
  if (!pMap->IsStepped || Sector <= NUM_SMALL) {
    return Sector * pMap->UnitBytes;
  }
  return (NUM_SMALL + MIDDLE + (Sector - NUM_SMALL - 1) * LARGE) * pMap->UnitBytes;
}

static uint32_t BankBytes(const READING* pReading, const silicon::SECTOR_MAP* pMap) {
  const uint32_t Flash = FlashBytes(pReading);
  return pMap->NumBanks == 1 ? Flash : pMap->BankBytes != 0 ? pMap->BankBytes : Flash / 2;
}

// Adds the range, to the one before it where it continues that.
static void Add(AREAS* pAreas, const AREA& Area) {
  if (pAreas->NumAreas != 0) {
    AREA* pBefore = &pAreas->aArea[pAreas->NumAreas - 1];
    if (pBefore->Bank == Area.Bank && pBefore->Last + 1 == Area.First) {
      pBefore->Last = Area.Last;
      pBefore->End  = Area.End;
      return;
    }
  }
  if (pAreas->NumAreas < MAX_AREAS) {
    pAreas->aArea[pAreas->NumAreas++] = Area;
  }
}

// The sectors of one protection bit; Bit counts through all fields.
static void AddBit(const READING* pReading, uint32_t Bit, AREAS* pAreas) {
  const silicon::SECTOR_MAP* pMap    = MapOf(pReading);
  const bool                 HasTwo  = pMap->NumBanks == 2;
  const uint32_t             Sector  = Bit * pMap->SectorsPerBit;
  const uint32_t             PerBank = HasTwo ? pMap->SectorsPerBank : ~0u;
  const uint32_t             Bank    = Sector / PerBank;
  const uint32_t             InBank  = Sector % PerBank;
  const uint32_t             Bytes   = BankBytes(pReading, pMap);
  // Of flash that the device does not have, or not in this bank.
  const uint32_t InFlash = HasTwo && pMap->BankBytes != 0 && FlashBytes(pReading) < 2 * Bytes
                               ? FlashBytes(pReading) / 2
                               : Bytes;
  if (Bank >= pMap->NumBanks || OffsetOf(pMap, InBank) >= InFlash) {
    return;
  }
  AREA Area  = {};
  Area.Bank  = Bank + 1;
  Area.First = Sector;
  Area.Last  = Sector + pMap->SectorsPerBit - 1;
  Area.Start = silicon::FLASH_BASE + Bank * Bytes + OffsetOf(pMap, InBank);
  Area.End = silicon::FLASH_BASE + Bank * Bytes + OffsetOf(pMap, InBank + pMap->SectorsPerBit) - 1;
  if (Bit == pReading->pLayout->RestFromBit) {
    Area.End = silicon::FLASH_BASE + FlashBytes(pReading) - 1;
  }
  Add(pAreas, Area);
}

// All bits of the fields of this kind that have this value.
static void AddBits(const READING* pReading, silicon::FIELD_KIND Kind, uint32_t Protected,
                    AREAS* pAreas) {
  uint32_t FirstBit = 0;
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    for (const silicon::FIELD& Field : pReading->aWord[i].pRow->Fields) {
      uint32_t Value;
      if (Field.Kind != Kind || Field.Width() == 1) {
        continue;
      }
      if (READING_Current(pReading, &pReading->aWord[i], &Field, &Value) == 0) {
        for (uint32_t Bit = 0; Bit < Field.Width(); Bit++) {
          if ((Value >> Bit & 1) == Protected) {
            AddBit(pReading, FirstBit + Bit, pAreas);
          }
        }
      }
      FirstBit += Field.Width();
    }
  }
}

// The bit that turns write protection into PCROP; with it the bits count the other way round.
// NULL: the device has none. Otherwise *pIsSet is set.
static const silicon::FIELD* FindMode(const READING* pReading, bool* pIsSet) {
  static const char* const Names[] = {"SPRMOD", "WPRMOD"};
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    for (const char* sName : Names) {
      const silicon::FIELD* pField = READING_FindField(&pReading->aWord[i], sName);
      uint32_t              Value  = 0;
      if (pField != NULL) {
        READING_Current(pReading, &pReading->aWord[i], pField, &Value);
        *pIsSet = Value != 0;
        return pField;
      }
    }
  }
  return NULL;
}

// -- Areas with two ends -------------------------------------------------------------------------

static void AddArea(const READING* pReading, uint32_t Bank, uint32_t Unit, uint32_t First,
                    uint32_t Last, AREAS* pAreas) {
  const uint32_t Bytes = BankBytes(pReading, &pReading->pLayout->Map);
  if (pReading->pLayout->EqualIsAll && First == Last) {
    First = 0;
    Last  = FlashBytes(pReading) / pReading->pLayout->Map.NumBanks / Unit - 1;
  }
  if (First > Last) {
    return;
  }
  AREA Area  = {};
  Area.Bank  = Bank + 1;
  Area.First = First;
  Area.Last  = Last;
  Area.Start = silicon::FLASH_BASE + Bank * Bytes + First * Unit;
  Area.End   = silicon::FLASH_BASE + Bank * Bytes + (Last + 1) * Unit - 1;
  Add(pAreas, Area);
}

static bool EndsWith(const char* sText, const char* sEnd) {
  const size_t Length = strlen(sText);
  return Length >= strlen(sEnd) && strcmp(sText + Length - strlen(sEnd), sEnd) == 0;
}

// Each START with the END that follows it. A bank's words come one after the other, and the name of a
// word or field holds the number of its bank.
static void AddAreas(const READING* pReading, silicon::FIELD_KIND Kind, uint32_t Unit,
                     AREAS* pAreas) {
  uint32_t First   = 0;
  bool     HasEnds = false;
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    const uint32_t      Bank  = strpbrk(pWord->pRow->sName, "2") != NULL ? 1 : 0;
    for (const silicon::FIELD& Field : pWord->pRow->Fields) {
      uint32_t Value;
      if (Field.Kind != Kind || READING_Current(pReading, pWord, &Field, &Value) < 0) {
        continue;
      }
      if (EndsWith(Field.sName, "_START") || EndsWith(Field.sName, "_STRT")) {
        First   = Value;
        HasEnds = true;
      } else if (EndsWith(Field.sName, "_END") && HasEnds) {
        AddArea(pReading, Bank, Unit, First, Value, pAreas);
        HasEnds = false;
      }
    }
  }
}

void AREAS_Find(const READING* pReading, AREA_KIND Kind, AREAS* pAreas) {
  memset(pAreas, 0, sizeof(*pAreas));
  pAreas->sUnit = "area";
  if (pReading->NumCandidates == 0) {
    return;
  }
  const silicon::LAYOUT* pLayout   = pReading->pLayout;
  bool                   IsModeSet = false;
  const bool             HasMode   = FindMode(pReading, &IsModeSet) != NULL;
  if (Kind == AREAS_SECURE) {
    AddAreas(pReading, silicon::SECURE, pLayout->PcropAreaUnit, pAreas);
  } else if (Kind == AREAS_PCROP && pLayout->PcropAreaUnit != 0) {
    AddAreas(pReading, silicon::PCROP, pLayout->PcropAreaUnit, pAreas);
  } else if (Kind == AREAS_WRITE_PROTECTED && pLayout->WrpAreaUnit != 0) {
    pAreas->sUnit = pLayout->sUnit;
    AddAreas(pReading, silicon::WRP, pLayout->WrpAreaUnit, pAreas);
  } else if (Kind == AREAS_WRITE_PROTECTED) {
    pAreas->sUnit = pLayout->sUnit;
    if (!IsModeSet) {
      AddBits(pReading, silicon::WRP, pLayout->ProtectedBit, pAreas);
    }
  } else if (HasMode) {
    pAreas->sUnit = pLayout->sUnit;
    if (IsModeSet) {
      AddBits(pReading, silicon::WRP, 1 - pLayout->ProtectedBit, pAreas);
    }
  } else {
    pAreas->sUnit = pLayout->sUnit;
    AddBits(pReading, silicon::PCROP, 1, pAreas);
  }
}
