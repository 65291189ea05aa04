// SPDX-License-Identifier: MIT

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "options/areas.h"
#include "options/outlook.h"
#include "options/report.h"

const char* REPORT_Meaning(int32_t Level) {
  static const char* const Texts[] = {
      "open: flash and options can be read and changed",
      "protected: a debugger cannot read the flash, and lifting the level erases it",
      "closed for good: no debugger gets in, and nothing lifts it"};
  return Level >= 0 && Level <= 2 ? Texts[Level] : "not known";
}

const char* REPORT_WhyUnknown(const READING* pReading) {
  if (pReading->IsOtherFamily) {
    return "the device is of another family than the one that was given";
  }
  if (pReading->IsKnown) {
    return NULL;
  }
  if (pReading->NumCandidates != 0) {
    return "DBGMCU_IDCODE answers only while its clock is on, which takes a write; fields that not "
           "all of the possible devices have are shown as stored only";
  }
  if (pReading->HasIdCode) {
    return "no described device has this DEV_ID";
  }
  return pReading->pFamily != NULL ? "DBGMCU_IDCODE does not answer"
                                   : "DBGMCU_IDCODE does not answer; give -SetDeviceFamily";
}

// -- Lines ---------------------------------------------------------------------------------------

static void PutLine(const char* sLabel, const char* sFormat, ...)
    __attribute__((format(printf, 2, 3)));

static void PutLine(const char* sLabel, const char* sFormat, ...) {
  printf("%-18s", sLabel);
  va_list Args;
  va_start(Args, sFormat);
  vprintf(sFormat, Args);
  va_end(Args);
  putchar('\n');
}

// "-" stands for a value that could not be read.
static void PutCell(int32_t Has, uint32_t Value, uint32_t NumDigits) {
  char acValue[16] = "-";
  if (Has == 0) {
    snprintf(acValue, sizeof(acValue), "0x%0*X", (int)NumDigits, (unsigned)Value);
  }
  printf("  %-10s", acValue);
}

static void PutConnection(const REPORT* pReport) {
  const UNLOCK_SETTINGS* pSettings = pReport->pSettings;
  if (pSettings->HostIF == HOST_IF_ETHERNET) {
    PutLine("Probe", "%s, %u kHz", pSettings->IPAddr, pReport->SpeedKhz);
  } else if (pSettings->SerialNo != 0) {
    PutLine("Probe", "USB, serial number %u, %u kHz", pSettings->SerialNo, pReport->SpeedKhz);
  } else {
    PutLine("Probe", "USB, %u kHz", pReport->SpeedKhz);
  }
  PutLine("Target voltage", "%u.%03u V", pReport->VoltageMv / 1000, pReport->VoltageMv % 1000);
}

static void PutDevice(const READING* pReading) {
  if (pReading->pFamily != NULL) {
    PutLine("Family", "%u %s", pReading->pFamily->MenuRow, pReading->pFamily->sName);
  }
  if (pReading->NumCandidates == 1) {
    PutLine("Device", "%s (%s)", pReading->apCandidates[0]->sName,
            pReading->apCandidates[0]->sText);
  } else if (pReading->NumCandidates > 1) {
    printf("%-18s%s", "Device", "one of");
    for (uint32_t i = 0; i < pReading->NumCandidates; i++) {
      printf(" %s", pReading->apCandidates[i]->sName);
    }
    putchar('\n');
  } else {
    PutLine("Device", "unknown");
  }
  if (REPORT_WhyUnknown(pReading) != NULL) {
    PutLine("", "%s", REPORT_WhyUnknown(pReading));
  }
  if (pReading->HasIdCode) {
    PutLine("DBGMCU_IDCODE", "0x%08X, DEV_ID 0x%03X, REV_ID 0x%04X", pReading->IdCode,
            pReading->IdCode & 0xFFF, pReading->IdCode >> 16);
  }
  if (pReading->HasFlashKb) {
    PutLine("Flash size", "%u KB", pReading->FlashKb);
  }
  if (pReading->Level != LEVEL_UNKNOWN) {
    PutLine("Protection", "level %d, %s", pReading->Level, REPORT_Meaning(pReading->Level));
  }
  if (pReading->StoredLevel != LEVEL_UNKNOWN && pReading->StoredLevel != pReading->Level) {
    PutLine("", "level %d is stored, not yet in force", pReading->StoredLevel);
  }
}

// -- Words and fields ----------------------------------------------------------------------------

static const char* ComplementRemark(COMPLEMENT_STATE State) {
  return State == COMPLEMENT_WRONG    ? "wrong complement"
         : State == COMPLEMENT_ERASED ? "erased"
                                      : "";
}

// Ends a line; blanks at its end are not printed.
static void PutRemark(const char* sRemark) {
  if (sRemark[0] != 0) {
    printf("  %s", sRemark);
  }
  putchar('\n');
}

static void PutField(const READING* pReading, const WORD_READING* pWord,
                     const silicon::FIELD* pField) {
  const uint32_t NumDigits = (pField->Width() + 3) / 4;
  uint32_t       Value     = 0;
  printf("  %-20s", pField->sName);
  int32_t Has = READING_Loaded(pReading, pWord, pField, &Value);
  PutCell(Has, Value, NumDigits);
  Has = READING_Stored(pWord, pField, &Value);
  PutCell(Has, Value, NumDigits);
  const int32_t IsFactory = READING_IsFactory(pReading, pWord, pField);
  if (IsFactory == 1) {
    char acFactory[16];
    snprintf(acFactory, sizeof(acFactory), "0x%0*X", (int)NumDigits,
             (unsigned)pField->Get(pWord->pRow->Factory));
    printf("  %s\n", acFactory);
    return;
  }
  PutCell(0, pField->Get(pWord->pRow->Factory), NumDigits);
  PutRemark(IsFactory == 0 ? "<-- differs" : "<-- not read");
}

static void PutWords(const READING* pReading) {
  if (pReading->NumWords != 0) {
    printf("\n%-22s  %-10s  %-10s  %s\n", "Option", "in force", "stored", "factory");
  }
  for (uint32_t i = 0; i < pReading->NumWords; i++) {
    const WORD_READING* pWord = &pReading->aWord[i];
    if (pWord->pRow->Fields.begin() == pWord->pRow->Fields.end() &&
        pWord->Complement != COMPLEMENT_WRONG) {
      continue;  // stored and without a meaning
    }
    printf("%-22s", pWord->pRow->sName);
    PutCell(pWord->LoadedMask != 0 ? 0 : -1, pWord->Loaded, 8);
    PutCell(pWord->HasStored ? 0 : -1, pWord->Stored, 8);
    PutCell(0, pWord->pRow->Factory, 8);
    PutRemark(ComplementRemark(pWord->Complement));
    for (const silicon::FIELD& Field : pWord->pRow->Fields) {
      PutField(pReading, pWord, &Field);
    }
  }
}

static void PutRegisters(const READING* pReading) {
  printf("\n%-22s  %-10s  %s\n", "Register", "address", "value");
  for (uint32_t i = 0; i < pReading->NumRegisters; i++) {
    const REGISTER_READING* pRegister = &pReading->aRegister[i];
    printf("%-22s  0x%08X  ", pRegister->pRow->sName, (unsigned)pRegister->pRow->Address);
    if (!pRegister->IsRead) {
      printf("no answer\n");
      continue;
    }
    printf("0x%08X", (unsigned)pRegister->Value);
    for (const silicon::FIELD& Flag : pRegister->pRow->Flags) {
      if (READING_IsSet(pRegister, &Flag)) {
        printf("  %s", Flag.sName);
      }
    }
    putchar('\n');
  }
}

// -- Areas, flash, reset -------------------------------------------------------------------------

static void PutAreas(const READING* pReading, const char* sLabel, AREA_KIND Kind) {
  AREAS Areas;
  AREAS_Find(pReading, Kind, &Areas);
  if (Areas.NumAreas == 0) {
    PutLine(sLabel, "none");
  }
  for (uint32_t i = 0; i < Areas.NumAreas; i++) {
    const AREA* pArea = &Areas.aArea[i];
    PutLine(i == 0 ? sLabel : "", "0x%08X to 0x%08X, %s %u to %u", pArea->Start, pArea->End,
            Areas.sUnit, pArea->First, pArea->Last);
  }
}

static void PutFlash(const READING* pReading) {
  if (pReading->HasFlash) {
    PutLine("Flash", "0x%08X 0x%08X 0x%08X 0x%08X, %s", pReading->aFlash[0], pReading->aFlash[1],
            pReading->aFlash[2], pReading->aFlash[3],
            pReading->IsErased ? "its first words read as erased" : "not erased");
  } else {
    PutLine("Flash", "not read: %s", pReading->sFlashUnread);
  }
}

static void PutReset(const READING* pReading) {
  static const char* const Possible[] = {"cannot be told", "is not possible", "is possible"};
  OUTLOOK                  Outlook;
  OUTLOOK_Find(pReading, &Outlook);
  printf("\n%-18s%s. %s\n", "A reset", Possible[Outlook.Possible + 1], Outlook.sWhy);
  if (Outlook.Possible != OUTLOOK_YES) {
    return;
  }
  PutLine("", "The flash is %s.",
          Outlook.ErasesFlash == OUTLOOK_YES  ? "erased"
          : Outlook.ErasesFlash == OUTLOOK_NO ? "kept"
                                              : "erased or kept, which cannot be told");
  if (Outlook.NeedsPowerCycle) {
    PutLine("", "The device then needs its power off and on.");
  }
  if (Outlook.NumLeft == 0) {
    PutLine("", "Every field ends at its factory value.");
  }
  for (uint32_t i = 0; i < Outlook.NumLeft; i++) {
    const LEFT* pLeft = &Outlook.aLeft[i];
    if (pLeft->pField != NULL) {
      PutLine("", "%s.%s is then 0x%X: %s", pLeft->pWord->pRow->sName, pLeft->pField->sName,
              pLeft->Value, pLeft->sWhy);
    } else {
      PutLine("", "%s is left with a wrong complement: %s", pLeft->pWord->pRow->sName, pLeft->sWhy);
    }
  }
}

static const char* OrDash(const char* sText) {
  return sText[0] != 0 ? sText : "-";
}

static void PutDifferences(const REPORT* pReport) {
  if (pReport->sExpected == NULL) {
    return;
  }
  const DIFFERENCES* pDifferences = pReport->pDifferences;
  if (pDifferences->NumDifferences == 0) {
    printf("\nAs expected: %s\n", pReport->sExpected);
    return;
  }
  printf("\nNot as expected (%s):\n", pReport->sExpected);
  for (uint32_t i = 0; i < pDifferences->NumDifferences; i++) {
    const DIFFERENCE* p = &pDifferences->aDifference[i];
    printf("  %s%s%s%s%s is %s, not %s\n", p->acWord, p->acName[0] != 0 ? "." : "", p->acName,
           p->acWord[0] != 0 ? " " : "", p->sWhat, OrDash(p->acActual), OrDash(p->acExpected));
  }
}

int32_t REPORT_PrintText(const REPORT* pReport) {
  const READING* pReading = pReport->pReading;
  if (pReport->HasConnection) {
    PutConnection(pReport);
  }
  if (pReading != NULL) {
    PutDevice(pReading);
    PutWords(pReading);
    PutRegisters(pReading);
    if (pReading->NumCandidates != 0) {
      putchar('\n');
      PutAreas(pReading, "Write protection", AREAS_WRITE_PROTECTED);
      PutAreas(pReading, "PCROP", AREAS_PCROP);
      PutAreas(pReading, "Secure area", AREAS_SECURE);
      PutFlash(pReading);
      PutReset(pReading);
    }
    PutDifferences(pReport);
  }
  return fflush(stdout) != 0 || ferror(stdout) != 0 ? -1 : 0;
}
