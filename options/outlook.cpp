// SPDX-License-Identifier: MIT

#include "options/outlook.h"

#include <string.h>

// The values that the tool writes are repeated here, as what is known about its sequences from
// outside. tests/options holds this module against what the tool does to simulated devices.

// -- Shared steps --------------------------------------------------------------------------------

static void AddLeft(OUTLOOK* pOutlook, const WORD_READING* pWord, const silicon::FIELD* pField,
                    uint32_t Value, const char* sWhy) {
  if (pOutlook->NumLeft < MAX_LEFT) {
    LEFT* pLeft   = &pOutlook->aLeft[pOutlook->NumLeft++];
    pLeft->pWord  = pWord;
    pLeft->pField = pField;
    pLeft->Value  = Value;
    pLeft->sWhy   = sWhy;
  }
}

// The word takes this value: what of it is not the factory's.
static void LeaveWritten(OUTLOOK* pOutlook, const WORD_READING* pWord, uint32_t Written,
                         const char* sWhy) {
  for (const silicon::FIELD& Field : pWord->pRow->Fields) {
    if (Field.Get(Written) != Field.Get(pWord->pRow->Factory)) {
      AddLeft(pOutlook, pWord, &Field, Field.Get(Written), sWhy);
    }
  }
}

// A field that nothing writes keeps its value.
static void LeaveField(const READING* pReading, OUTLOOK* pOutlook, const WORD_READING* pWord,
                       const silicon::FIELD* pField, const char* sWhy) {
  uint32_t Value;
  if (READING_Current(pReading, pWord, pField, &Value) == 0 &&
      Value != pField->Get(pWord->pRow->Factory)) {
    AddLeft(pOutlook, pWord, pField, Value, sWhy);
  }
}

static void LeaveWord(const READING* pReading, OUTLOOK* pOutlook, const WORD_READING* pWord,
                      const char* sWhy) {
  for (const silicon::FIELD& Field : pWord->pRow->Fields) {
    LeaveField(pReading, pOutlook, pWord, &Field, sWhy);
  }
}

static void LeaveAll(const READING* pReading, OUTLOOK* pOutlook, const char* sWhy) {
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    LeaveWord(pReading, pOutlook, &pReading->aWord[i], sWhy);
  }
}

// The value of a field that is found by name; 0 if the device has none.
static uint32_t ValueOf(const READING* pReading, const char* sWord, const char* sField) {
  const WORD_READING*   pWord  = READING_FindWord(pReading, sWord);
  const silicon::FIELD* pField = pWord != NULL ? READING_FindField(pWord, sField) : NULL;
  uint32_t              Value  = 0;
  if (pField != NULL) {
    READING_Current(pReading, pWord, pField, &Value);
  }
  return Value;
}

static bool HasField(const READING* pReading, const char* sWord, const char* sField) {
  const WORD_READING* pWord = READING_FindWord(pReading, sWord);
  return pWord != NULL && READING_FindField(pWord, sField) != NULL;
}

// Lifting level 1 is what erases.
static void SetErase(const READING* pReading, OUTLOOK* pOutlook) {
  pOutlook->ErasesFlash = pReading->Level == LEVEL_UNKNOWN ? OUTLOOK_UNKNOWN
                          : pReading->Level == 0           ? OUTLOOK_NO
                                                           : OUTLOOK_YES;
  pOutlook->sWhy        = pReading->Level == 0 ? "Level 0 is kept, and the flash with it."
                                               : "Lifting level 1 erases the flash.";
}

// -- F0, F1, F3 ----------------------------------------------------------------------------------

static void OutlookF1F3(const READING* pReading, OUTLOOK* pOutlook) {
  SetErase(pReading, pOutlook);
}

// The option bytes are loaded at power-on only. Erased bytes load as all ones.
static void OutlookF0(const READING* pReading, OUTLOOK* pOutlook) {
  SetErase(pReading, pOutlook);
  pOutlook->NeedsPowerCycle = pReading->Level != 0;
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    for (const silicon::FIELD& Field : pReading->aWord[i].pRow->Fields) {
      uint32_t   Loaded;
      const bool HasLoaded   = READING_Loaded(pReading, &pReading->aWord[i], &Field, &Loaded) == 0;
      const uint32_t Factory = Field.Get(pReading->aWord[i].pRow->Factory);
      if ((HasLoaded && Loaded != Factory) ||
          (!HasLoaded && READING_IsFactory(pReading, &pReading->aWord[i], &Field) == 0)) {
        pOutlook->NeedsPowerCycle = true;
      }
    }
  }
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    for (const silicon::FIELD& Flag : pReading->aRegister[i].pRow->Flags) {
      if (strcmp(Flag.sName, "OPTERR") == 0 && READING_IsSet(&pReading->aRegister[i], &Flag)) {
        pOutlook->NeedsPowerCycle = true;
      }
    }
  }
  if (pOutlook->NeedsPowerCycle) {
    pOutlook->sWhy =
        pReading->Level != 0
            ? "Lifting level 1 erases the flash. F0 loads its options at power-on."
            : "Level 0 is kept, and the flash with it. F0 loads its options at power-on.";
  }
}

// -- F2, F4, F7 ----------------------------------------------------------------------------------

namespace {
struct WRITTEN_ROW {
  uint32_t MenuRow;
  uint32_t Optcr;
  uint32_t Optcr1;
};
}  // namespace

static const WRITTEN_ROW WrittenTable[] = {
    {3, 0x0FFFAAEC, 0x0FFF0000}, {5, 0x0FFFAAEC, 0x0FFF0000}, {6, 0xC0FFAAFC, 0x00400080},
    {7, 0xC0FFAAFC, 0x00400080}, {8, 0xFFFFAAFC, 0x00400080},
};

// OPTCR2 is not written. The change from level 1 to level 0 removes its PCROP if PCROP_RDP is set.
static void LeaveOptcr2(const READING* pReading, OUTLOOK* pOutlook) {
  const WORD_READING* pWord = READING_FindWord(pReading, "OPTCR2");
  if (pWord == NULL || (pReading->Level == 1 && ValueOf(pReading, "OPTCR2", "PCROP_RDP") != 0)) {
    return;
  }
  LeaveWord(pReading, pOutlook, pWord, "PCROP stays: FLASH_OPTCR2 is not written");
}

static void OutlookF2F4F7(const READING* pReading, OUTLOOK* pOutlook) {
  SetErase(pReading, pOutlook);
  const bool HasTwoBanks = HasField(pReading, "OPTCR1", "nWRP12");
  if (pReading->Level == 0 && ValueOf(pReading, "OPTCR", "SPRMOD") != 0) {
    if (!HasTwoBanks) {
      pOutlook->sWhy = "PCROP cannot be lifted at level 0: the device refuses the whole change.";
      LeaveAll(pReading, pOutlook, "the change is refused");
      return;
    }
    pOutlook->ErasesFlash = OUTLOOK_YES;
    pOutlook->sWhy        = "PCROP is lifted by way of level 1, which erases the flash.";
  }
  for (const WRITTEN_ROW& Row : WrittenTable) {
    if (Row.MenuRow == pReading->pFamily->MenuRow) {
      LeaveWritten(pOutlook, READING_FindWord(pReading, "OPTCR"), Row.Optcr,
                   "the value for the family is written");
      const WORD_READING* pOptcr1 = READING_FindWord(pReading, "OPTCR1");
      if (pOptcr1 != NULL) {
        LeaveWritten(pOutlook, pOptcr1, Row.Optcr1, "the value for the family is written");
      }
    }
  }
  LeaveOptcr2(pReading, pOutlook);
}

// -- H7 ------------------------------------------------------------------------------------------

static bool IsArea(uint32_t Word) {
  return (Word & 0xFFF) <= (Word >> 16 & 0xFFF);
}

// A change that takes away what a bank protects is refused unless it lifts the level, and the level
// is lifted in an earlier change.
static bool IsBankRefused(const READING* pReading, const char* sPrar, const char* sScar) {
  const WORD_READING* pPrar = READING_FindWord(pReading, sPrar);
  const WORD_READING* pScar = READING_FindWord(pReading, sScar);
  if (pPrar == NULL) {
    return false;
  }
  const bool HasDmep = (pPrar->Loaded & 1u << 31) != 0;
  return IsArea(pPrar->Loaded) || HasDmep || IsArea(pScar->Loaded);
}

static void OutlookH7(const READING* pReading, OUTLOOK* pOutlook) {
  static const char WRITTEN[] = "the value for one core is written";
  static const char REFUSED[] = "the change is refused, as it does not lift the level";
  SetErase(pReading, pOutlook);
  if (ValueOf(pReading, "OPTSR", "IWDG1_SW") == 0 && pReading->Level != 0) {
    pOutlook->Possible    = OUTLOOK_UNKNOWN;
    pOutlook->ErasesFlash = OUTLOOK_UNKNOWN;
    pOutlook->sWhy = "The hardware watchdog is on and cuts the erase short; what is left is open.";
    return;
  }
  const bool Refused1 = IsBankRefused(pReading, "PRAR1", "SCAR1");
  const bool Refused2 = IsBankRefused(pReading, "PRAR2", "SCAR2");
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord   = &pReading->aWord[i];
    const char*         sName   = pWord->pRow->sName;
    const bool          IsBank2 = strcmp(sName, "PRAR2") == 0 || strcmp(sName, "SCAR2") == 0;
    if (strncmp(sName, "WPSN", 4) == 0) {
      continue;  // lifted with the level
    }
    if (strcmp(sName, "BOOT4") == 0 || strcmp(sName, "OPTSR2") == 0) {
      LeaveWord(pReading, pOutlook, pWord, "not written");
    } else if (Refused1 || Refused2) {
      // A value that was refused stays in its register. So a refusal for bank 1 makes the change of
      // bank 2 fail too, while bank 1 is changed when the reason is in bank 2 alone.
      for (const silicon::FIELD& Field : pWord->pRow->Fields) {
        if (Field.Kind != silicon::LEVEL && (Refused1 || IsBank2)) {
          LeaveField(pReading, pOutlook, pWord, &Field, REFUSED);
        }
      }
    }
    if (!Refused1 && (!Refused2 || !IsBank2)) {
      const uint32_t Written = strcmp(sName, "OPTSR") == 0      ? 0x1416AAF0
                               : strncmp(sName, "SCAR", 4) == 0 ? 0x800000FF
                                                                : pWord->pRow->Factory;
      LeaveWritten(pOutlook, pWord, Written, WRITTEN);
    }
  }
  if (Refused1 || Refused2) {
    pOutlook->sWhy =
        "A PCROP or secure area leaves only in the change that lifts the level, and the "
        "tool does not ask for it there: it ends with a failure.";
  } else if (pReading->pLayout->Map.NumBanks == 1) {
    pOutlook->sWhy =
        "The tool ends with a failure, as this device has no second bank to read back.";
  }
}

// -- L0, L1 --------------------------------------------------------------------------------------

static void OutlookL0(const READING* pReading, OUTLOOK* pOutlook) {
  SetErase(pReading, pOutlook);
  if (pReading->Level == 0 && ValueOf(pReading, "OPTION_RDP", "WPRMOD") != 0) {
    pOutlook->ErasesFlash = OUTLOOK_YES;
    pOutlook->sWhy = "PCROP is lifted by way of level 1, at the second try, and erases the flash.";
  }
}

// The words up to here are written; those above keep what they hold, or are cleared by the erase
// without their complement.
static bool IsWrittenL1(const WORD_READING* pWord) {
  return pWord->pRow->Stored < 0x1FF80010;
}

static void OutlookL1(const READING* pReading, OUTLOOK* pOutlook) {
  SetErase(pReading, pOutlook);
  const bool IsPcrop = pReading->Level == 0 && ValueOf(pReading, "OPTION_RDP", "SPRMOD") != 0;
  if (IsPcrop) {
    static const char HALF_DONE[] = "PCROP cannot be lifted at level 0; the word is left half done";
    const WORD_READING*   pRdp    = READING_FindWord(pReading, "OPTION_RDP");
    const silicon::FIELD* pLevel  = READING_FindField(pRdp, "RDP");
    AddLeft(pOutlook, pRdp, pLevel, 0, HALF_DONE);
    AddLeft(pOutlook, pRdp, READING_FindField(pRdp, "SPRMOD"), 1, HALF_DONE);
    AddLeft(pOutlook, pRdp, NULL, 0, HALF_DONE);
    pOutlook->sWhy =
        "The run fails and leaves the device at level 1 with PCROP; a second run erases "
        "the flash and lifts both.";
  }
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    if (strcmp(pWord->pRow->sName, "OPTION_USER") == 0) {
      LeaveWritten(pOutlook, pWord, 0xFF870078, "the value for the family is written");
    } else if (!IsWrittenL1(pWord) && pReading->Level == 0) {
      LeaveWord(pReading, pOutlook, pWord, "beyond the first 32 sectors, not written");
      if (pWord->Complement == COMPLEMENT_WRONG) {
        AddLeft(pOutlook, pWord, NULL, 0, "not written");
      }
    } else if (!IsWrittenL1(pWord)) {
      AddLeft(pOutlook, pWord, NULL, 0, "cleared by the erase without its complement, not written");
    }
  }
}

// -- L4 ------------------------------------------------------------------------------------------

// A PCROP area stays unless PCROP_RDP is set: it goes with the level, or not at all.
static void OutlookL4(const READING* pReading, OUTLOOK* pOutlook) {
  pOutlook->ErasesFlash  = OUTLOOK_YES;
  pOutlook->sWhy         = "L4 is always taken through level 1, which erases the flash.";
  const bool StopsEarly  = pReading->pLayout->Map.NumBanks == 1;
  const bool Wipes       = ValueOf(pReading, "PCROP1ER", "PCROP_RDP") != 0;
  const bool aHasArea[2] = {
      ValueOf(pReading, "PCROP1SR", "PCROP1_STRT") <= ValueOf(pReading, "PCROP1ER", "PCROP1_END"),
      ValueOf(pReading, "PCROP2SR", "PCROP2_STRT") <= ValueOf(pReading, "PCROP2ER", "PCROP2_END")};
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord   = &pReading->aWord[i];
    const bool          IsBank2 = strncmp(pWord->pRow->sName, "PCROP2", 6) == 0;
    for (const silicon::FIELD& Field : pWord->pRow->Fields) {
      if (Field.Kind == silicon::PCROP && !Wipes && aHasArea[IsBank2]) {
        LeaveField(pReading, pOutlook, pWord, &Field, "PCROP stays where PCROP_RDP is 0");
      } else if (Field.Kind == silicon::WRP && StopsEarly) {
        LeaveField(pReading, pOutlook, pWord, &Field, "the run stops before it");
      }
    }
  }
  if (StopsEarly) {
    pOutlook->sWhy =
        "Level 1 is lifted, which erases the flash. Then the run ends with a failure, as "
        "bit 20 of FLASH_OPTR reads 1 on devices with one bank.";
  }
}

// ------------------------------------------------------------------------------------------------

namespace {
struct OUTLOOK_ROW {
  uint32_t MenuRow;
  void (*pfFind)(const READING* pReading, OUTLOOK* pOutlook);
};
}  // namespace

static constexpr OUTLOOK_ROW OutlookTable[] = {
    {1, OutlookF0},     {2, OutlookF1F3},   {3, OutlookF2F4F7}, {4, OutlookF1F3},
    {5, OutlookF2F4F7}, {6, OutlookF2F4F7}, {7, OutlookF2F4F7}, {8, OutlookF2F4F7},
    {9, OutlookH7},     {10, OutlookL0},    {11, OutlookL1},    {12, OutlookL4},
};

// Without a row a reset would be called possible, with every field at its factory value after it.
static_assert(silicon::HasRowOfEachFamily(OutlookTable), "each family has a row");

void OUTLOOK_Find(const READING* pReading, OUTLOOK* pOutlook) {
  memset(pOutlook, 0, sizeof(*pOutlook));
  pOutlook->Possible    = OUTLOOK_UNKNOWN;
  pOutlook->ErasesFlash = OUTLOOK_UNKNOWN;
  pOutlook->sWhy        = "The device is not described here.";
  if (pReading->NumCandidates == 0) {
    return;
  }
  if (pReading->IsOtherFamily) {
    pOutlook->sWhy = "The family that was given is not this device's.";
    return;
  }
  if (pReading->Level == 2) {
    pOutlook->Possible    = OUTLOOK_NO;
    pOutlook->ErasesFlash = OUTLOOK_NO;
    pOutlook->sWhy        = "Level 2 cannot be lifted.";
    return;
  }
  pOutlook->Possible = OUTLOOK_YES;
  for (const OUTLOOK_ROW& Row : OutlookTable) {
    if (Row.MenuRow == pReading->pFamily->MenuRow) {
      Row.pfFind(pReading, pOutlook);
    }
  }
}
