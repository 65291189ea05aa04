// SPDX-License-Identifier: MIT

#include "options/json_write.h"

#include "util/format.h"

static void PutEscaped(FILE* pFile, const char* sText) {
  const unsigned char* p = (const unsigned char*)sText;
  while (*p != 0) {
    // The length of a character in UTF-8 by its first byte, 0 if none begins like that.
    uint32_t Length = *p < 0x80                 ? 1
                      : *p >= 0xC2 && *p < 0xE0 ? 2
                      : *p >= 0xE0 && *p < 0xF0 ? 3
                      : *p >= 0xF0 && *p < 0xF5 ? 4
                                                : 0;
    for (uint32_t i = 1; i < Length; i++) {
      Length = (p[i] & 0xC0) == 0x80 ? Length : 0;
    }
    // Neither a longer form than needed, nor half of a pair, nor beyond the last character.
    if ((*p == 0xE0 && p[1] < 0xA0) || (*p == 0xED && p[1] > 0x9F) || (*p == 0xF0 && p[1] < 0x90) ||
        (*p == 0xF4 && p[1] > 0x8F)) {
      Length = 0;
    }
    if (Length == 0) {
      fputs("\\uFFFD", pFile);
      p++;
    } else if (*p == '"' || *p == '\\') {
      fputc('\\', pFile);
      fputc(*p++, pFile);
    } else if (*p < 0x20) {
      char acEscape[8];
      UTIL_snprintf(acEscape, sizeof(acEscape), "\\u%.4X", (unsigned)*p++);
      fputs(acEscape, pFile);
    } else {
      fwrite(p, 1, Length, pFile);
      p += Length;
    }
  }
}

static void PutQuoted(FILE* pFile, const char* sText) {
  fputc('"', pFile);
  PutEscaped(pFile, sText);
  fputc('"', pFile);
}

static void Open(JSON_WRITER* pWriter, bool IsArray) {
  fputc(IsArray ? '[' : '{', pWriter->pFile);
  pWriter->IsArray[pWriter->Depth]  = IsArray;
  pWriter->NumItems[pWriter->Depth] = 0;
  pWriter->Depth++;
}

// What begins at this depth has a line of its own.
static bool HasOwnLine(const JSON_WRITER* pWriter) {
  return pWriter->Depth == 1 || (pWriter->Depth == 2 && pWriter->IsArray[1]);
}

static void BeginItem(JSON_WRITER* pWriter, const char* sName) {
  const bool IsFirst = pWriter->NumItems[pWriter->Depth - 1]++ == 0;
  if (HasOwnLine(pWriter)) {
    fputs(IsFirst ? "\n" : ",\n", pWriter->pFile);
    fputs(pWriter->Depth == 1 ? "  " : "    ", pWriter->pFile);
  } else if (!IsFirst) {
    fputs(", ", pWriter->pFile);
  }
  if (sName != NULL) {
    PutQuoted(pWriter->pFile, sName);
    fputs(": ", pWriter->pFile);
  }
}

void JSON_Begin(JSON_WRITER* pWriter, FILE* pFile) {
  pWriter->pFile = pFile;
  pWriter->Depth = 0;
  Open(pWriter, false);
}

void JSON_Close(JSON_WRITER* pWriter) {
  const bool HasItems = pWriter->NumItems[pWriter->Depth - 1] != 0;
  if (HasOwnLine(pWriter) && HasItems) {
    fputs(pWriter->Depth == 1 ? "\n" : "\n  ", pWriter->pFile);
  }
  pWriter->Depth--;
  fputc(pWriter->IsArray[pWriter->Depth] ? ']' : '}', pWriter->pFile);
}

void JSON_Finish(JSON_WRITER* pWriter) {
  JSON_Close(pWriter);
  fputc('\n', pWriter->pFile);
}

void JSON_OpenObject(JSON_WRITER* pWriter, const char* sName) {
  BeginItem(pWriter, sName);
  Open(pWriter, false);
}

void JSON_OpenArray(JSON_WRITER* pWriter, const char* sName) {
  BeginItem(pWriter, sName);
  Open(pWriter, true);
}

void JSON_Text(JSON_WRITER* pWriter, const char* sName, const char* sText) {
  if (sText == NULL) {
    JSON_Null(pWriter, sName);
    return;
  }
  BeginItem(pWriter, sName);
  PutQuoted(pWriter->pFile, sText);
}

void JSON_Number(JSON_WRITER* pWriter, const char* sName, uint32_t Value) {
  char acNumber[16];
  UTIL_snprintf(acNumber, sizeof(acNumber), "%u", Value);
  BeginItem(pWriter, sName);
  fputs(acNumber, pWriter->pFile);
}

void JSON_Bool(JSON_WRITER* pWriter, const char* sName, bool Value) {
  BeginItem(pWriter, sName);
  fputs(Value ? "true" : "false", pWriter->pFile);
}

void JSON_Null(JSON_WRITER* pWriter, const char* sName) {
  BeginItem(pWriter, sName);
  fputs("null", pWriter->pFile);
}

void JSON_Hex(JSON_WRITER* pWriter, const char* sName, uint32_t Value, uint32_t NumDigits) {
  char acFormat[16];  // a precision that is an argument is unknown to this formatter
  char acValue[16];
  UTIL_snprintf(acFormat, sizeof(acFormat), "0x%%.%uX", NumDigits);
  UTIL_snprintf(acValue, sizeof(acValue), acFormat, Value);
  JSON_Text(pWriter, sName, acValue);
}
