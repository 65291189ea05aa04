// SPDX-License-Identifier: MIT

#include "options/expect.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "options/json_read.h"
#include "util/format.h"
#include "util/string.h"

static const uint32_t MAX_FILE_BYTES = 256 * 1024;

const char* EXPECT_LevelText(int32_t Level) {
  static const char* const Texts[] = {"0", "1", "2"};
  return Level >= 0 && Level <= 2 ? Texts[Level] : "";
}

const char* EXPECT_ComplementText(COMPLEMENT_STATE State) {
  static const char* const Texts[] = {"", "right", "wrong", "erased"};
  return Texts[State];
}

// -- An earlier output ---------------------------------------------------------------------------

namespace {
struct FILE_VISIT {
  EXPECTED*      pExpected;
  EXPECTED_FIELD Item;  // being read
  bool           IsSchema1;
  bool           IsOurs;
  bool           IsRead;     // the device was read for it
  bool           IsTooLong;  // more fields, or a longer name, than any device has
};
}  // namespace

static void Copy(FILE_VISIT* pVisit, char (&acTo)[NAME_SIZE], JSON_KIND Kind, const char* sText) {
  pVisit->IsTooLong = pVisit->IsTooLong || strlen(sText) >= NAME_SIZE;
  const bool IsNull = Kind == JSON_IS_OTHER && strcmp(sText, "null") == 0;
  UTIL_CopyString(acTo, IsNull ? "" : sText, NAME_SIZE);
}

static void VisitTop(FILE_VISIT* pVisit, const char* sName, JSON_KIND Kind, const char* sText) {
  if (strcmp(sName, "schema") == 0) {
    pVisit->IsSchema1 = Kind == JSON_IS_OTHER && strcmp(sText, "1") == 0;
  } else if (strcmp(sName, "program") == 0) {
    pVisit->IsOurs = strcmp(sText, "quobe-options") == 0;
  } else if (strcmp(sName, "error") == 0) {
    pVisit->IsRead = Kind == JSON_IS_OTHER && strcmp(sText, "null") == 0;
  }
}

static void VisitMember(FILE_VISIT* pVisit, const char* sName, JSON_KIND Kind, const char* sText) {
  EXPECTED_FIELD* pItem = &pVisit->Item;
  if (strcmp(sName, "word") == 0 || strcmp(sName, "register") == 0) {
    Copy(pVisit, pItem->acWord, Kind, sText);
  } else if (strcmp(sName, "name") == 0 || strcmp(sName, "flag") == 0) {
    Copy(pVisit, pItem->acName, Kind, sText);
  } else if (strcmp(sName, "loaded") == 0) {
    Copy(pVisit, pItem->acLoaded, Kind, sText);
  } else if (strcmp(sName, "stored") == 0) {
    Copy(pVisit, pItem->acStored, Kind, sText);
  } else if (strcmp(sName, "complement") == 0) {
    Copy(pVisit, pItem->acComplement, Kind, sText);
  }
}

static void AddItem(FILE_VISIT* pVisit, EXPECTED_FIELD* aItem, uint32_t* pNumItems) {
  if (*pNumItems == MAX_FIELDS) {
    pVisit->IsTooLong = true;
    return;
  }
  aItem[(*pNumItems)++] = pVisit->Item;
}

// An element of "words" has its word's name in "name", and no field.
static void EndElement(FILE_VISIT* pVisit, const char* sIn) {
  EXPECTED* pExpected = pVisit->pExpected;
  if (strcmp(sIn, "fields") == 0) {
    AddItem(pVisit, pExpected->aField, &pExpected->NumFields);
  } else if (strcmp(sIn, "errors") == 0) {
    AddItem(pVisit, pExpected->aError, &pExpected->NumErrors);
  } else if (strcmp(sIn, "words") == 0) {
    UTIL_CopyString(pVisit->Item.acWord, pVisit->Item.acName, NAME_SIZE);
    pVisit->Item.acName[0] = 0;
    AddItem(pVisit, pExpected->aField, &pExpected->NumFields);
  }
}

static void VisitFile(void* pContext, uint32_t Depth, const char* sIn, const char* sName,
                      JSON_KIND Kind, const char* sText) {
  FILE_VISIT* pVisit  = (FILE_VISIT*)pContext;
  const bool  IsValue = Kind == JSON_IS_TEXT || Kind == JSON_IS_OTHER;
  if (Depth == 1 && IsValue) {
    VisitTop(pVisit, sName, Kind, sText);
  } else if (Depth == 2 && IsValue && strcmp(sIn, "device") == 0 && strcmp(sName, "name") == 0) {
    Copy(pVisit, pVisit->pExpected->acDevice, Kind, sText);
  } else if (Depth == 2 && IsValue && strcmp(sIn, "protection") == 0 &&
             strcmp(sName, "level") == 0) {
    Copy(pVisit, pVisit->pExpected->acLevel, Kind, sText);
  } else if (Depth == 2 && Kind == JSON_IS_BEGIN) {
    memset(&pVisit->Item, 0, sizeof(pVisit->Item));
  } else if (Depth == 2 && Kind == JSON_IS_END) {
    EndElement(pVisit, sIn);
  } else if (Depth == 3 && IsValue) {
    VisitMember(pVisit, sName, Kind, sText);
  }
}

// Reads the file whole. 0: read. -1: acError says why not.
static int32_t Load(const char* sPath, char (&acText)[MAX_FILE_BYTES],
                    char (&acError)[ERROR_SIZE]) {
  FILE* pFile = fopen(sPath, "rb");
  if (pFile == NULL) {
    UTIL_snprintf(acError, ERROR_SIZE, "--expect: \"%s\" cannot be opened: %s", sPath,
                  strerror(errno));
    return -1;
  }
  const size_t Length = fread(acText, 1, MAX_FILE_BYTES - 1, pFile);
  const bool   IsBad  = ferror(pFile) != 0 || Length == MAX_FILE_BYTES - 1;
  fclose(pFile);
  acText[Length] = 0;
  if (IsBad || memchr(acText, 0, Length) != NULL) {
    UTIL_snprintf(acError, ERROR_SIZE,
                  "--expect: \"%s\" is no output of quobe-options --json; make it anew", sPath);
    return -1;
  }
  return 0;
}

int32_t EXPECT_ReadFile(const char* sPath, EXPECTED* pExpected, char (&acError)[ERROR_SIZE]) {
  static char acText[MAX_FILE_BYTES];
  if (Load(sPath, acText, acError) < 0) {
    return -1;
  }
  memset(pExpected, 0, sizeof(*pExpected));
  FILE_VISIT Visit;
  memset(&Visit, 0, sizeof(Visit));
  Visit.pExpected = pExpected;
  uint32_t Line;
  if (JSON_Read(acText, VisitFile, &Visit, &Line) < 0) {
    UTIL_snprintf(acError, ERROR_SIZE, "--expect: \"%s\", line %u: no JSON; make the file anew",
                  sPath, Line);
    return -1;
  }
  if (!Visit.IsOurs || !Visit.IsSchema1 || Visit.IsTooLong) {
    UTIL_snprintf(
        acError, ERROR_SIZE,
        "--expect: \"%s\" is no output of quobe-options --json with schema 1; make it anew", sPath);
    return -1;
  }
  if (!Visit.IsRead) {
    UTIL_snprintf(acError, ERROR_SIZE,
                  "--expect: \"%s\" was made without a device; make it anew with one", sPath);
    return -1;
  }
  return 0;
}

// -- Comparing -----------------------------------------------------------------------------------

static void Add(DIFFERENCES* pDifferences, const char* sWhat, const char* sWord, const char* sName,
                const char* sExpected, const char* sActual) {
  if (pDifferences->NumDifferences < MAX_DIFFERENCES) {
    DIFFERENCE* p = &pDifferences->aDifference[pDifferences->NumDifferences++];
    p->sWhat      = sWhat;
    UTIL_CopyString(p->acWord, sWord, NAME_SIZE);
    UTIL_CopyString(p->acName, sName, NAME_SIZE);
    UTIL_CopyString(p->acExpected, sExpected, NAME_SIZE);
    UTIL_CopyString(p->acActual, sActual, NAME_SIZE);
  }
}

static void AddIfDifferent(DIFFERENCES* pDifferences, const char* sWhat, const char* sWord,
                           const char* sName, const char* sExpected, const char* sActual) {
  if (strcmp(sExpected, sActual) != 0) {
    Add(pDifferences, sWhat, sWord, sName, sExpected, sActual);
  }
}

static const char* HexText(char (&acText)[NAME_SIZE], int32_t Has, uint32_t Value) {
  UTIL_snprintf(acText, NAME_SIZE, Has == 0 ? "0x%X" : "", Value);
  return acText;
}

static const char* DeviceName(const READING* pReading) {
  return pReading->NumCandidates != 0 ? pReading->apCandidates[0]->sName : "";
}

static void CompareFieldWithFactory(const READING* pReading, const WORD_READING* pWord,
                                    const silicon::FIELD* pField, DIFFERENCES* pDifferences) {
  char           acExpected[NAME_SIZE], acActual[NAME_SIZE];
  uint32_t       Value   = 0;
  const uint32_t Factory = pField->Get(pWord->pRow->Factory);
  HexText(acExpected, 0, Factory);
  if (READING_Loaded(pReading, pWord, pField, &Value) == 0) {
    AddIfDifferent(pDifferences, "loaded", pWord->pRow->sName, pField->sName, acExpected,
                   HexText(acActual, 0, Value));
  }
  if (READING_Stored(pWord, pField, &Value) == 0) {
    AddIfDifferent(pDifferences, "stored", pWord->pRow->sName, pField->sName, acExpected,
                   HexText(acActual, 0, Value));
  }
}

// A field that was not read, or was read in one of its two places only, is not at factory value.
static void AddUnread(const READING* pReading, const WORD_READING* pWord,
                      const silicon::FIELD* pField, DIFFERENCES* pDifferences) {
  char       acExpected[NAME_SIZE];
  const bool IsUnread = READING_IsFactory(pReading, pWord, pField) < 0;
  HexText(acExpected, 0, pField->Get(pWord->pRow->Factory));
  if (IsUnread || (pField->Mask() & pWord->SilentMask) != 0) {
    Add(pDifferences, "loaded", pWord->pRow->sName, pField->sName, acExpected, "");
  }
  if (!IsUnread && pWord->IsSilent && !pWord->HasStored) {
    Add(pDifferences, "stored", pWord->pRow->sName, pField->sName, acExpected, "");
  }
}

static void CompareComplementWithFactory(const WORD_READING* pWord, DIFFERENCES* pDifferences) {
  if (pWord->Complement == COMPLEMENT_WRONG) {
    Add(pDifferences, "complement", pWord->pRow->sName, "", "right", "wrong");
  } else if (pWord->IsSilent && pWord->HasStored) {
    Add(pDifferences, "complement", pWord->pRow->sName, "", "right", "");
  }
}

// A register that did not answer may have any flag set.
static const char* FlagText(const REGISTER_READING* pRegister, const silicon::FIELD* pFlag) {
  return !pRegister->IsRead ? "" : READING_IsSet(pRegister, pFlag) ? "0x1" : "0x0";
}

void EXPECT_CompareWithFactory(const READING* pReading, DIFFERENCES* pDifferences) {
  if (pReading->NumCandidates == 0) {
    Add(pDifferences, "device", "", "", "a device that is described", "");
    return;
  }
  if (pReading->IsOtherFamily) {
    Add(pDifferences, "device", "", "", "the family that was given", DeviceName(pReading));
  }
  AddIfDifferent(pDifferences, "level", "", "", "0", EXPECT_LevelText(pReading->Level));
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    for (const silicon::FIELD& Field : pWord->pRow->Fields) {
      CompareFieldWithFactory(pReading, pWord, &Field, pDifferences);
      AddUnread(pReading, pWord, &Field, pDifferences);
    }
    CompareComplementWithFactory(pWord, pDifferences);
  }
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    const REGISTER_READING* pRegister = &pReading->aRegister[i];
    for (const silicon::FIELD& Flag : pRegister->pRow->Flags) {
      if (Flag.Kind == silicon::UNSURE) {
        AddIfDifferent(pDifferences, "error", pRegister->pRow->sName, Flag.sName, "0x0",
                       FlagText(pRegister, &Flag));
      }
    }
  }
}

static const EXPECTED_FIELD* Find(const EXPECTED_FIELD* aItem, uint32_t NumItems, const char* sWord,
                                  const char* sName) {
  for (uint32_t i = 0; i < NumItems; i++) {
    if (strcmp(aItem[i].acWord, sWord) == 0 && strcmp(aItem[i].acName, sName) == 0) {
      return &aItem[i];
    }
  }
  return NULL;
}

static void CompareWordWithFile(const READING* pReading, const WORD_READING* pWord,
                                const EXPECTED* pExpected, DIFFERENCES* pDifferences) {
  static const EXPECTED_FIELD None   = {};
  const char*                 sWord  = pWord->pRow->sName;
  const EXPECTED_FIELD*       pFound = Find(pExpected->aField, pExpected->NumFields, sWord, "");
  AddIfDifferent(pDifferences, "complement", sWord, "", pFound != NULL ? pFound->acComplement : "",
                 EXPECT_ComplementText(pWord->Complement));
  for (const silicon::FIELD& Field : pWord->pRow->Fields) {
    char     acActual[NAME_SIZE];
    uint32_t Value = 0;
    pFound         = Find(pExpected->aField, pExpected->NumFields, sWord, Field.sName);
    pFound         = pFound != NULL ? pFound : &None;
    int32_t Has    = READING_Loaded(pReading, pWord, &Field, &Value);
    AddIfDifferent(pDifferences, "loaded", sWord, Field.sName, pFound->acLoaded,
                   HexText(acActual, Has, Value));
    // At one level stored words may be readable and at another not: then the level differs.
    Has = READING_Stored(pWord, &Field, &Value);
    if ((Has == 0 && pFound->acStored[0] != 0) ||
        strcmp(pExpected->acLevel, EXPECT_LevelText(pReading->Level)) == 0) {
      AddIfDifferent(pDifferences, "stored", sWord, Field.sName, pFound->acStored,
                     HexText(acActual, Has, Value));
    }
  }
}

static void CompareErrorsWithFile(const READING* pReading, const EXPECTED* pExpected,
                                  DIFFERENCES* pDifferences) {
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    const REGISTER_READING* pRegister = &pReading->aRegister[i];
    for (const silicon::FIELD& Flag : pRegister->pRow->Flags) {
      const bool WasSet =
          Find(pExpected->aError, pExpected->NumErrors, pRegister->pRow->sName, Flag.sName) != NULL;
      AddIfDifferent(pDifferences, "error", pRegister->pRow->sName, Flag.sName,
                     WasSet ? "0x1" : "0x0", FlagText(pRegister, &Flag));
    }
  }
}

void EXPECT_CompareWithFile(const READING* pReading, const EXPECTED* pExpected,
                            DIFFERENCES* pDifferences) {
  AddIfDifferent(pDifferences, "device", "", "", pExpected->acDevice, DeviceName(pReading));
  AddIfDifferent(pDifferences, "level", "", "", pExpected->acLevel,
                 EXPECT_LevelText(pReading->Level));
  // Fields of another device have nothing to be compared with.
  if (strcmp(pExpected->acDevice, DeviceName(pReading)) == 0) {
    for (uint32_t i = 0; i < pReading->NumWords; i++) {
      CompareWordWithFile(pReading, &pReading->aWord[i], pExpected, pDifferences);
    }
    CompareErrorsWithFile(pReading, pExpected, pDifferences);
  }
}
