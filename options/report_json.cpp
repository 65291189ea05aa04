// SPDX-License-Identifier: MIT

#include <string.h>

#include "options/areas.h"
#include "options/json_write.h"
#include "options/outlook.h"
#include "options/report.h"
#include "util/format.h"

static const uint32_t WORD_DIGITS = 8;

static void PutHexOrNull(JSON_WRITER* pOut, const char* sName, bool Has, uint32_t Value,
                         uint32_t NumDigits) {
  if (Has) {
    JSON_Hex(pOut, sName, Value, NumDigits);
  } else {
    JSON_Null(pOut, sName);
  }
}

static void PutNumberOrNull(JSON_WRITER* pOut, const char* sName, bool Has, uint32_t Value) {
  if (Has) {
    JSON_Number(pOut, sName, Value);
  } else {
    JSON_Null(pOut, sName);
  }
}

// 1 true, 0 false, -1 null.
static void PutAnswer(JSON_WRITER* pOut, const char* sName, int32_t Answer) {
  if (Answer < 0) {
    JSON_Null(pOut, sName);
  } else {
    JSON_Bool(pOut, sName, Answer != 0);
  }
}

// An empty text is null.
static void PutTextOrNull(JSON_WRITER* pOut, const char* sName, const char* sText) {
  JSON_Text(pOut, sName, sText[0] != 0 ? sText : NULL);
}

static void PutProbe(JSON_WRITER* pOut, const REPORT* pReport) {
  const UNLOCK_SETTINGS* pSettings = pReport->pSettings;
  const bool             IsIp      = pSettings->HostIF == HOST_IF_ETHERNET;
  JSON_OpenObject(pOut, "probe");
  JSON_Text(pOut, "connection", IsIp ? "ip" : "usb");
  PutNumberOrNull(pOut, "serial", !IsIp && pSettings->SerialNo != 0, pSettings->SerialNo);
  JSON_Text(pOut, "host", IsIp ? pSettings->IPAddr : NULL);
  PutNumberOrNull(pOut, "speed_khz", pReport->HasConnection, pReport->SpeedKhz);
  JSON_Close(pOut);
  PutNumberOrNull(pOut, "voltage_mv", pReport->HasConnection, pReport->VoltageMv);
}

static void PutFamily(JSON_WRITER* pOut, const READING* pReading) {
  if (pReading == NULL || pReading->pFamily == NULL) {
    JSON_Null(pOut, "family");
    return;
  }
  JSON_OpenObject(pOut, "family");
  JSON_Number(pOut, "row", pReading->pFamily->MenuRow);
  JSON_Text(pOut, "name", pReading->pFamily->sName);
  JSON_Text(pOut, "found_by", pReading->FoundBy == FOUND_BY_OPTION ? "option" : "device");
  JSON_Close(pOut);
}

static void PutDevice(JSON_WRITER* pOut, const READING* pReading) {
  if (pReading == NULL) {
    JSON_Null(pOut, "device");
    return;
  }
  const bool Has = pReading->NumCandidates != 0;
  JSON_OpenObject(pOut, "device");
  JSON_Bool(pOut, "known", pReading->IsKnown);
  JSON_Text(pOut, "name", Has ? pReading->apCandidates[0]->sName : NULL);
  JSON_Text(pOut, "text", Has ? pReading->apCandidates[0]->sText : NULL);
  JSON_OpenArray(pOut, "alternatives");
  for (uint32_t i = 1; i < pReading->NumCandidates; i++) {
    JSON_Text(pOut, NULL, pReading->apCandidates[i]->sName);
  }
  JSON_Close(pOut);
  PutHexOrNull(pOut, "idcode", pReading->HasIdCode, pReading->IdCode, WORD_DIGITS);
  PutHexOrNull(pOut, "dev_id", pReading->HasIdCode, pReading->IdCode & 0xFFF, 3);
  PutHexOrNull(pOut, "rev_id", pReading->HasIdCode, pReading->IdCode >> 16, 4);
  PutNumberOrNull(pOut, "flash_kb", pReading->HasFlashKb, pReading->FlashKb);
  JSON_Text(pOut, "why", REPORT_WhyUnknown(pReading));
  JSON_Close(pOut);
}

static void PutProtection(JSON_WRITER* pOut, const READING* pReading) {
  if (pReading == NULL) {
    JSON_Null(pOut, "protection");
    return;
  }
  JSON_OpenObject(pOut, "protection");
  PutNumberOrNull(pOut, "level", pReading->Level >= 0, (uint32_t)pReading->Level);
  PutNumberOrNull(pOut, "stored_level", pReading->StoredLevel >= 0,
                  (uint32_t)pReading->StoredLevel);
  JSON_Text(pOut, "meaning", REPORT_Meaning(pReading->Level));
  JSON_Close(pOut);
}

static void PutRegisters(JSON_WRITER* pOut, const READING* pReading) {
  JSON_OpenArray(pOut, "registers");
  for (uint32_t i = 0; pReading != NULL && i < pReading->NumRegisters; i++) {
    const REGISTER_READING* pRegister = &pReading->aRegister[i];
    JSON_OpenObject(pOut, NULL);
    JSON_Text(pOut, "name", pRegister->pRow->sName);
    JSON_Hex(pOut, "address", pRegister->pRow->Address, WORD_DIGITS);
    PutHexOrNull(pOut, "value", pRegister->IsRead, pRegister->Value, WORD_DIGITS);
    JSON_Close(pOut);
  }
  JSON_Close(pOut);
}

static void PutWords(JSON_WRITER* pOut, const READING* pReading) {
  JSON_OpenArray(pOut, "words");
  for (uint32_t i = 0; pReading != NULL && i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    JSON_OpenObject(pOut, NULL);
    JSON_Text(pOut, "name", pWord->pRow->sName);
    PutHexOrNull(pOut, "loaded", pWord->LoadedMask != 0, pWord->Loaded, WORD_DIGITS);
    PutHexOrNull(pOut, "stored", pWord->HasStored, pWord->Stored, WORD_DIGITS);
    JSON_Hex(pOut, "factory", pWord->pRow->Factory, WORD_DIGITS);
    PutTextOrNull(pOut, "complement", EXPECT_ComplementText(pWord->Complement));
    JSON_Close(pOut);
  }
  JSON_Close(pOut);
}

static void PutField(JSON_WRITER* pOut, const READING* pReading, const WORD_READING* pWord,
                     const silicon::FIELD* pField) {
  static const char* const Kinds[] = {"user",   "level", "wrp",  "pcrop",
                                      "secure", "boot",  "data", "status"};
  char                     acBits[16];
  uint32_t                 Value = 0;
  UTIL_snprintf(acBits, sizeof(acBits), "%u:%u", (unsigned)pField->High, (unsigned)pField->Low);
  JSON_OpenObject(pOut, NULL);
  JSON_Text(pOut, "word", pWord->pRow->sName);
  JSON_Text(pOut, "name", pField->sName);
  JSON_Text(pOut, "bits", acBits);
  JSON_Text(pOut, "kind", Kinds[pField->Kind]);
  const bool HasLoaded = READING_Loaded(pReading, pWord, pField, &Value) == 0;
  PutHexOrNull(pOut, "loaded", HasLoaded, Value, 1);
  const bool HasStored = READING_Stored(pWord, pField, &Value) == 0;
  PutHexOrNull(pOut, "stored", HasStored, Value, 1);
  JSON_Hex(pOut, "factory", pField->Get(pWord->pRow->Factory), 1);
  PutAnswer(pOut, "as_factory", READING_IsFactory(pReading, pWord, pField));
  JSON_Close(pOut);
}

static void PutFields(JSON_WRITER* pOut, const READING* pReading) {
  JSON_OpenArray(pOut, "fields");
  for (uint32_t i = 0; pReading != NULL && i < pReading->NumWords; i++) {
    for (const silicon::FIELD& Field : pReading->aWord[i].pRow->Fields) {
      PutField(pOut, pReading, &pReading->aWord[i], &Field);
    }
  }
  JSON_Close(pOut);
}

static void PutErrors(JSON_WRITER* pOut, const READING* pReading) {
  JSON_OpenArray(pOut, "errors");
  for (uint32_t i = 0; pReading != NULL && i < pReading->NumRegisters; i++) {
    const REGISTER_READING* pRegister = &pReading->aRegister[i];
    for (const silicon::FIELD& Flag : pRegister->pRow->Flags) {
      if (READING_IsSet(pRegister, &Flag)) {
        JSON_OpenObject(pOut, NULL);
        JSON_Text(pOut, "register", pRegister->pRow->sName);
        JSON_Text(pOut, "flag", Flag.sName);
        JSON_Close(pOut);
      }
    }
  }
  JSON_Close(pOut);
}

static void PutAreas(JSON_WRITER* pOut, const char* sName, const READING* pReading,
                     AREA_KIND Kind) {
  if (pReading == NULL || pReading->NumCandidates == 0) {
    JSON_Null(pOut, sName);
    return;
  }
  AREAS Areas;
  AREAS_Find(pReading, Kind, &Areas);
  JSON_OpenArray(pOut, sName);
  for (uint32_t i = 0; i < Areas.NumAreas; i++) {
    const AREA* pArea = &Areas.aArea[i];
    JSON_OpenObject(pOut, NULL);
    JSON_Number(pOut, "bank", pArea->Bank);
    JSON_Text(pOut, "unit", Areas.sUnit);
    JSON_Number(pOut, "first", pArea->First);
    JSON_Number(pOut, "last", pArea->Last);
    JSON_Hex(pOut, "start", pArea->Start, WORD_DIGITS);
    JSON_Hex(pOut, "end", pArea->End, WORD_DIGITS);
    JSON_Close(pOut);
  }
  JSON_Close(pOut);
}

static void PutFlash(JSON_WRITER* pOut, const READING* pReading) {
  if (pReading == NULL) {
    JSON_Null(pOut, "flash");
    return;
  }
  JSON_OpenObject(pOut, "flash");
  if (pReading->HasFlash) {
    JSON_OpenArray(pOut, "first_words");
    for (const uint32_t Word : pReading->aFlash) {
      JSON_Hex(pOut, NULL, Word, WORD_DIGITS);
    }
    JSON_Close(pOut);
  } else {
    JSON_Null(pOut, "first_words");
  }
  PutAnswer(pOut, "erased", pReading->HasFlash ? pReading->IsErased : -1);
  JSON_Text(pOut, "why", pReading->sFlashUnread);
  JSON_Close(pOut);
}

static void PutReset(JSON_WRITER* pOut, const READING* pReading) {
  if (pReading == NULL) {
    JSON_Null(pOut, "reset");
    return;
  }
  OUTLOOK Outlook;
  OUTLOOK_Find(pReading, &Outlook);
  JSON_OpenObject(pOut, "reset");
  PutAnswer(pOut, "possible", Outlook.Possible);
  PutAnswer(pOut, "erases_flash", Outlook.ErasesFlash);
  JSON_OpenArray(pOut, "leaves");
  for (uint32_t i = 0; i < Outlook.NumLeft; i++) {
    const LEFT* pLeft = &Outlook.aLeft[i];
    JSON_OpenObject(pOut, NULL);
    JSON_Text(pOut, "word", pLeft->pWord->pRow->sName);
    JSON_Text(pOut, "name", pLeft->pField != NULL ? pLeft->pField->sName : NULL);
    PutHexOrNull(pOut, "value", pLeft->pField != NULL, pLeft->Value, 1);
    JSON_Text(pOut, "why", pLeft->sWhy);
    JSON_Close(pOut);
  }
  JSON_Close(pOut);
  PutAnswer(pOut, "needs_power_cycle",
            Outlook.Possible == OUTLOOK_YES ? (int32_t)Outlook.NeedsPowerCycle : -1);
  JSON_Text(pOut, "why", Outlook.sWhy);
  JSON_Close(pOut);
}

static void PutDifferences(JSON_WRITER* pOut, const REPORT* pReport) {
  JSON_Text(pOut, "expected", pReport->sExpected);
  JSON_OpenArray(pOut, "differences");
  for (uint32_t i = 0; i < pReport->pDifferences->NumDifferences; i++) {
    const DIFFERENCE* p = &pReport->pDifferences->aDifference[i];
    JSON_OpenObject(pOut, NULL);
    PutTextOrNull(pOut, "word", p->acWord);
    PutTextOrNull(pOut, "name", p->acName);
    JSON_Text(pOut, "what", p->sWhat);
    PutTextOrNull(pOut, "expected", p->acExpected);
    PutTextOrNull(pOut, "actual", p->acActual);
    JSON_Close(pOut);
  }
  JSON_Close(pOut);
}

int32_t REPORT_PrintJson(const REPORT* pReport) {
  JSON_WRITER    Out;
  const READING* pReading = pReport->pReading;
  JSON_Begin(&Out, stdout);
  JSON_Number(&Out, "schema", 1);
  JSON_Text(&Out, "program", "quobe-options");
  JSON_Text(&Out, "version", QUOBE_OPTIONS_VERSION);
  JSON_Number(&Out, "status", (uint32_t)pReport->Status);
  JSON_Text(&Out, "error", pReport->sError);
  PutProbe(&Out, pReport);
  PutFamily(&Out, pReading);
  PutDevice(&Out, pReading);
  PutProtection(&Out, pReading);
  PutRegisters(&Out, pReading);
  PutWords(&Out, pReading);
  PutFields(&Out, pReading);
  PutErrors(&Out, pReading);
  PutAreas(&Out, "write_protection", pReading, AREAS_WRITE_PROTECTED);
  PutAreas(&Out, "pcrop", pReading, AREAS_PCROP);
  PutAreas(&Out, "secure", pReading, AREAS_SECURE);
  PutFlash(&Out, pReading);
  PutReset(&Out, pReading);
  PutAnswer(&Out, "as_factory", pReading != NULL ? READING_IsAllFactory(pReading) : -1);
  PutDifferences(&Out, pReport);
  JSON_Finish(&Out);
  return fflush(stdout) != 0 || ferror(stdout) != 0 ? -1 : 0;
}
