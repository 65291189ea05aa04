#include "sys/registry.h"

#include <string.h>

#include "sys/memory.h"
#include "sys/registry_store.h"
#include "sys/xml_node.h"
#include "util/arith.h"
#include "util/format.h"
#include "util/scan.h"
#include "util/string.h"

// ---- Keys ---------------------------------------------------------------------------------------

static const uint32_t NAME_SIZE = 512;  // of a component or a value's name, terminator counted

// Moves behind the path's next component and its backslash and stores it, in the form of an
// element's name, in a buffer of NAME_SIZE bytes. 0, or -1 when it is too long.
static int32_t ReadComponent(const char** ps, char* pName) {
  uint32_t    Length = 0;
  const char* s      = *ps;
  for (; *s != 0 && *s != '\\'; s++) {
    if (UTIL_IsWhite((uint8_t)*s)) {
      continue;
    }
    if (Length == NAME_SIZE - 1) {
      return -1;
    }
    pName[Length++] = *s;
  }
  pName[Length] = 0;
  SYS_XML_SanitizeName(pName);
  *ps = *s == 0 ? s : s + 1;
  return 0;
}

// 0 when everything that the path names below pElement can be written and loaded again, else -1.
static int32_t CheckPath(const XmlElement* pElement, const char* sPath) {
  char     acName[NAME_SIZE];
  uint32_t Depth = SYS_XML_GetDepth(pElement);
  while (*sPath != 0) {
    if (ReadComponent(&sPath, acName) != 0) {
      return -1;
    }
    if (acName[0] == 0) {
      return 0;
    }
    Depth++;
    if (Depth > SYS_XML_MAX_DEPTH || !SYS_XML_IsElementName(acName)) {
      return -1;
    }
  }
  return 0;
}

RegistryKeyHandle* SYS_REG_OpenKey(RegistryKeyHandle* hKey, const char* sPath) {
  RegistryKeyHandle Key;
  if (sPath == NULL || SYS_REGSTORE_Resolve(hKey, &Key) != 0 ||
      CheckPath(Key.pElement, sPath) != 0) {
    return NULL;
  }
  RegistryKeyHandle* pHandle = (RegistryKeyHandle*)SYS_MEM_Alloc(sizeof(RegistryKeyHandle));
  if (pHandle == NULL) {
    return NULL;
  }
  while (*sPath != 0) {
    char acName[NAME_SIZE];
    ReadComponent(&sPath, acName);  // was checked above
    if (acName[0] == 0) {
      break;
    }
    Key.pElement = SYS_XML_FindOrAddChild(Key.pDoc, Key.pElement, acName);
    if (Key.pElement == NULL) {
      SYS_MEM_Free(pHandle);
      return NULL;
    }
  }
  *pHandle = Key;
  return pHandle;
}

void SYS_REG_CloseKey(RegistryKeyHandle* hKey) {
  if (!SYS_REGSTORE_IsRoot(hKey)) {
    SYS_MEM_Free(hKey);
  }
}

// ---- Values -------------------------------------------------------------------------------------

// What the names of a value's further attributes are made of.
static const char     TypeSuffix[]   = "_OSTRELRegType";
static const char     StringSuffix[] = "_OSTRELRegMltStr";
static const uint32_t ATTR_NAME_SIZE = NAME_SIZE + 32;  // the longer suffix and an index

static const uint32_t STRINGS_IN_BLOCK = 4096;

namespace {

struct TYPE_ROW {
  uint32_t    Type;
  const char* sName;
};

// A value that an operation is about.
struct VALUE {
  RegistryKeyHandle Key;
  char              acName[NAME_SIZE];
  char              acTypeName[ATTR_NAME_SIZE];  // of the attribute that holds the type
};

// The strings of a list from its second one on. Looking for each by its name would take the square
// of their number; here all attributes are passed once for each block of strings.
struct STRINGS {
  const VALUE*  pValue;
  uint32_t      First;                     // index of apAttr[0], 0 while nothing was looked for
  XmlAttribute* apAttr[STRINGS_IN_BLOCK];  // undefined while nothing was looked for
};

}  // namespace

static const TYPE_ROW aType[] = {
    {SYS_REG_TYPE_SZ, "SYS_REG_TYPE_SZ"},
    {SYS_REG_TYPE_MULTI_SZ, "SYS_REG_TYPE_MULTI_SZ"},
    {SYS_REG_TYPE_EXPAND_SZ, "SYS_REG_TYPE_EXPAND_SZ"},
    {SYS_REG_TYPE_BINARY, "SYS_REG_TYPE_BINARY"},
    {SYS_REG_TYPE_DWORD, "SYS_REG_TYPE_DWORD"},
    {SYS_REG_TYPE_QWORD, "SYS_REG_TYPE_QWORD"},
};

// One token of a value's name, appended to the Length characters in a buffer of NAME_SIZE bytes.
// Returns the new length, 0 or more, or -1 when it does not fit.
static int32_t AppendToken(const char** ps, char* pName, uint32_t Length) {
  const int IsQuoted = **ps == '"';
  if (IsQuoted) {
    (*ps)++;
  }
  for (;;) {
    const char c = **ps;
    if (c == 0 || (IsQuoted ? c == '"' : UTIL_IsWhite((uint8_t)c) != 0)) {
      break;
    }
    if (Length == NAME_SIZE - 1) {
      return -1;
    }
    pName[Length++] = c;
    (*ps)++;
  }
  if (IsQuoted && **ps == '"') {
    (*ps)++;
  }
  pName[Length] = 0;
  return (int32_t)Length;
}

static int32_t ReadName(const char* sName, char* pName) {
  UTIL_SkipWhite(&sName);
  int32_t Length = AppendToken(&sName, pName, 0);
  while (Length >= 0 && *sName == ' ') {
    UTIL_SkipWhite(&sName);
    Length = AppendToken(&sName, pName, (uint32_t)Length);
  }
  return Length;
}

static const int32_t GO_ON = -1;

// What all operations on values begin with. GO_ON, or the operation's result.
static int32_t Begin(const RegistryKeyHandle* hKey, const char* sName, VALUE* pValue) {
  if (sName == NULL || sName[0] == 0 || SYS_REGSTORE_Resolve(hKey, &pValue->Key) != 0) {
    return SYS_REG_FAILED;
  }
  const int32_t Length = ReadName(sName, pValue->acName);
  if (Length <= 0) {
    return Length < 0 ? SYS_REG_FAILED : SYS_REG_OK;
  }
  UTIL_snprintf(pValue->acTypeName, (int32_t)ATTR_NAME_SIZE, "%s%s", pValue->acName, TypeSuffix);
  return GO_ON;
}

// Stores the name of the attribute that holds a list's string Index, 1 or more.
static void FormatStringName(const VALUE* pValue, uint32_t Index, char* pName) {
  UTIL_snprintf(pName, (int32_t)ATTR_NAME_SIZE, "%s%s%d", pValue->acName, StringSuffix, Index);
}

// Non-zero for 1, 2, ... as a list's strings are counted. No document holds so many that ten digits
// are needed, which would wrap around to the index of another string.
static int IsIndex(const char* s) {
  const size_t NumDigits = strspn(s, "0123456789");
  return *s != '0' && NumDigits > 0 && NumDigits < 10 && s[NumDigits] == 0;
}

// What the attribute's name has behind the value's; NULL when it does not begin with that.
static const char* GetSuffix(const VALUE* pValue, const XmlAttribute* pAttr) {
  const size_t NameLen = strlen(pValue->acName);
  return strncmp(pAttr->sName, pValue->acName, NameLen) == 0 ? pAttr->sName + NameLen : NULL;
}

// The index of the string of the value's list that the attribute holds, 0 for any other attribute.
static uint32_t GetStringIndex(const VALUE* pValue, const XmlAttribute* pAttr) {
  const char*  sSuffix   = GetSuffix(pValue, pAttr);
  const size_t SuffixLen = sizeof(StringSuffix) - 1;
  uint32_t     Index     = 0;
  if (sSuffix != NULL && strncmp(sSuffix, StringSuffix, SuffixLen) == 0 &&
      IsIndex(sSuffix + SuffixLen)) {
    UTIL_ParseU32(sSuffix + SuffixLen, &Index);
  }
  return Index;
}

static void StartStrings(STRINGS* pStrings, const VALUE* pValue) {
  pStrings->pValue = pValue;
  pStrings->First  = 0;
}

// Index counts up from 1. NULL when there is no such string.
static XmlAttribute* FindString(STRINGS* pStrings, uint32_t Index) {
  if (pStrings->First == 0 || Index - pStrings->First >= STRINGS_IN_BLOCK) {
    pStrings->First = Index;
    memset(pStrings->apAttr, 0, sizeof(pStrings->apAttr));
    XmlAttribute* pAttr = pStrings->pValue->Key.pElement->pFirstAttr;
    for (; pAttr != NULL; pAttr = pAttr->pNext) {
      const uint32_t Slot = GetStringIndex(pStrings->pValue, pAttr) - Index;
      if (Slot < STRINGS_IN_BLOCK && pStrings->apAttr[Slot] == NULL) {
        pStrings->apAttr[Slot] = pAttr;
      }
    }
  }
  return pStrings->apAttr[Index - pStrings->First];
}

// ---- Setting ------------------------------------------------------------------------------------

static int32_t SetAttr(const VALUE* pValue, const char* sAttrName, const char* sText) {
  return SYS_XML_SetAttr(pValue->Key.pDoc, pValue->Key.pElement, sAttrName, sText);
}

// NULL for a number that names no type.
static const char* GetTypeName(uint32_t Type) {
  for (const TYPE_ROW& Row : aType) {
    if (Row.Type == Type) {
      return Row.sName;
    }
  }
  return NULL;
}

static uint32_t SetText(const VALUE* pValue, const char* sTypeName, const char* sText) {
  if (SetAttr(pValue, pValue->acName, sText) != 0 ||
      SetAttr(pValue, pValue->acTypeName, sTypeName) != 0) {
    return SYS_REG_FAILED;
  }
  return SYS_REG_OK;
}

// The first min(Size, NumBytes) bytes of pData over a zero.
static uint32_t SetNumber(const VALUE* pValue, const char* sTypeName, uint32_t NumBytes,
                          const void* pData, uint32_t Size) {
  char     acText[20];
  uint64_t Number = 0;
  if (Size > 0 && pData == NULL) {
    return SYS_REG_FAILED;
  }
  if (Size > 0) {
    memcpy(&Number, pData, UTIL_MinU32(Size, NumBytes));
  }
  if (NumBytes == sizeof(uint32_t)) {
    UTIL_snprintf(acText, (int32_t)sizeof(acText), "0x%.8X", (uint32_t)Number);
  } else {
    UTIL_snprintf(acText, (int32_t)sizeof(acText), "0x%.8X%.8X", (uint32_t)(Number >> 32),
                  (uint32_t)Number);
  }
  return SetText(pValue, sTypeName, acText);
}

// Non-zero when a list of strings ends exactly at Size. Nothing behind Size is read.
static int IsList(const char* pData, uint32_t Size) {
  uint64_t Pos = (uint64_t)UTIL_StrNLen(pData, Size) + 1;  // the first one counts even when empty
  while (Pos < Size && pData[Pos] != 0) {
    Pos += (uint64_t)UTIL_StrNLen(pData + Pos, (uint32_t)(Size - Pos)) + 1;
  }
  return Pos + 1 == Size;
}

// Non-zero when the attribute is the value's text, its type, or a string of its list.
static int IsEntryOf(const VALUE* pValue, const XmlAttribute* pAttr) {
  const char* sSuffix = GetSuffix(pValue, pAttr);
  return sSuffix != NULL && (sSuffix[0] == 0 || strcmp(sSuffix, TypeSuffix) == 0 ||
                             GetStringIndex(pValue, pAttr) != 0);
}

static uint32_t SetList(const VALUE* pValue, const char* sTypeName, const char* pData,
                        uint32_t Size) {
  char acName[ATTR_NAME_SIZE];
  if (pData == NULL || !IsList(pData, Size)) {
    return SYS_REG_FAILED;
  }
  // A string left over from a longer list would be read as part of the new one.
  XmlElement* pElement = pValue->Key.pElement;
  for (XmlAttribute* pAttr = pElement->pFirstAttr; pAttr != NULL; pAttr = pAttr->pNext) {
    if (IsEntryOf(pValue, pAttr)) {
      SYS_XML_UnlinkAttr(pElement, pAttr);
    }
  }
  XmlAttribute* pLast = pElement->pFirstAttr;
  while (pLast != NULL && pLast->pNext != NULL) {
    pLast = pLast->pNext;
  }
  // None of the names is there any more, so each string is appended without a search for it: a list
  // may have half a million of them.
  UTIL_CopyString(acName, pValue->acName, sizeof(acName));
  uint32_t    Index = 1;
  const char* s     = pData;
  do {
    pLast = SYS_XML_AddAttr(pValue->Key.pDoc, pElement, pLast, acName, UTIL_StrLen(acName), s,
                            UTIL_StrLen(s));
    if (pLast == NULL) {
      return SYS_REG_FAILED;
    }
    FormatStringName(pValue, Index++, acName);
    s += strlen(s) + 1;
  } while (*s != 0);
  return SetText(pValue, sTypeName, pData);
}

uint32_t SYS_REG_SetValue(RegistryKeyHandle* hKey, const char* sName, uint32_t Type,
                          const void* pData, uint32_t Size) {
  VALUE         Value;
  const int32_t Result = Begin(hKey, sName, &Value);
  if (Result != GO_ON) {
    return (uint32_t)Result;
  }
  const char* sTypeName = GetTypeName(Type);
  if (sTypeName == NULL || !SYS_XML_IsAttrName(Value.acName)) {
    return SYS_REG_FAILED;
  }
  switch (Type) {
    case SYS_REG_TYPE_SZ:
      return SetText(&Value, sTypeName, (const char*)pData);
    case SYS_REG_TYPE_DWORD:
      return SetNumber(&Value, sTypeName, sizeof(uint32_t), pData, Size);
    case SYS_REG_TYPE_QWORD:
      return SetNumber(&Value, sTypeName, sizeof(uint64_t), pData, Size);
    case SYS_REG_TYPE_MULTI_SZ:
      return SetList(&Value, sTypeName, (const char*)pData, Size);
    default:
      return SYS_REG_FAILED;  // the other two types can be read only
  }
}

// ---- Querying -----------------------------------------------------------------------------------

static uint32_t QueryType(const VALUE* pValue, uint32_t* pType) {
  const XmlAttribute* pAttr = SYS_XML_FindAttr(pValue->Key.pElement, pValue->acTypeName);
  if (pAttr == NULL) {
    return SYS_REG_NOT_FOUND;
  }
  for (const TYPE_ROW& Row : aType) {
    if (strcmp(pAttr->sValue, Row.sName) == 0) {
      *pType = Row.Type;
      return SYS_REG_OK;
    }
  }
  *pType = (uint32_t)SYS_REG_TYPE_UNKNOWN;
  return SYS_REG_FAILED;
}

static uint32_t QueryText(const XmlAttribute* pAttr, char* pData, uint32_t* pSize) {
  const uint32_t Capacity = *pSize;
  *pSize                  = (uint32_t)SYS_XML_CopyAttrValue(pAttr, pData, Capacity);
  return Capacity < *pSize ? SYS_REG_MORE_DATA : SYS_REG_OK;
}

static uint32_t QueryNumber(const XmlAttribute* pAttr, uint32_t NumBytes, void* pData,
                            uint32_t* pSize) {
  if (*pSize < NumBytes) {
    return SYS_REG_MORE_DATA;
  }
  const char* s      = pAttr->sValue;
  uint64_t    Number = 0;
  UTIL_ParseHex(&s, &Number);        // what is no number leaves the 0
  memcpy(pData, &Number, NumBytes);  // the low bytes come first
  *pSize = NumBytes;
  return SYS_REG_OK;
}

// Two counts run side by side. Remaining is what the reported size is made of: it leaves out the
// terminators, as callers of the format expect. Pos is where bytes really go, so that none of them
// lies behind the buffer. Pos never exceeds the capacity.
static uint32_t QueryList(const VALUE* pValue, const XmlAttribute* pAttr, char* pData,
                          uint32_t* pSize) {
  const uint32_t Capacity  = *pSize;
  uint32_t       Remaining = Capacity;
  uint32_t       Total     = 0;
  uint32_t       Pos       = 0;
  STRINGS        Strings;
  StartStrings(&Strings, pValue);
  for (uint32_t Index = 1; pAttr != NULL; Index++) {
    const uint32_t Room   = UTIL_MinU32(Remaining, Capacity - Pos);
    const uint32_t Length = (uint32_t)SYS_XML_CopyAttrValue(pAttr, pData + Pos, Room);
    Remaining -= UTIL_MinU32(Length, Remaining);
    if (Remaining > 0) {
      Pos += UTIL_MinU32(Length + 1, Room);
    }
    Total += Length;
    pAttr = FindString(&Strings, Index);
  }
  if (Remaining > 0) {
    if (Pos < Capacity) {
      pData[Pos] = 0;
    }
    Total++;
  }
  *pSize = Total;
  return Total > Capacity ? SYS_REG_MORE_DATA : SYS_REG_OK;
}

uint32_t SYS_REG_QueryValue(RegistryKeyHandle* hKey, const char* sName, uint32_t* pType,
                            void* pData, uint32_t* pSize) {
  VALUE    Value;
  uint32_t Type;
  if (pData != NULL && pSize == NULL) {
    return SYS_REG_FAILED;
  }
  const int32_t Result = Begin(hKey, sName, &Value);
  if (Result != GO_ON) {
    return (uint32_t)Result;
  }
  const uint32_t TypeResult = QueryType(&Value, &Type);
  if (TypeResult != SYS_REG_NOT_FOUND && pType != NULL) {
    *pType = Type;
  }
  if (TypeResult != SYS_REG_OK || pData == NULL) {
    return TypeResult;
  }
  const XmlAttribute* pAttr = SYS_XML_FindAttr(Value.Key.pElement, Value.acName);
  if (pAttr == NULL) {
    return SYS_REG_FAILED;
  }
  switch (Type) {
    case SYS_REG_TYPE_SZ:
    case SYS_REG_TYPE_EXPAND_SZ:
      return QueryText(pAttr, (char*)pData, pSize);
    case SYS_REG_TYPE_DWORD:
      return QueryNumber(pAttr, 4, pData, pSize);
    case SYS_REG_TYPE_QWORD:
      return QueryNumber(pAttr, 8, pData, pSize);
    case SYS_REG_TYPE_MULTI_SZ:
      return QueryList(&Value, pAttr, (char*)pData, pSize);
    default:
      return SYS_REG_FAILED;
  }
}

// ---- Deleting -----------------------------------------------------------------------------------

uint32_t SYS_REG_DeleteValue(RegistryKeyHandle* hKey, const char* sName) {
  VALUE         Value;
  uint32_t      Type;
  const int32_t Result = Begin(hKey, sName, &Value);
  if (Result != GO_ON) {
    return (uint32_t)Result;
  }
  if (QueryType(&Value, &Type) != SYS_REG_OK) {
    return SYS_REG_FAILED;
  }
  XmlElement* pElement = Value.Key.pElement;
  if (Type == SYS_REG_TYPE_MULTI_SZ) {
    STRINGS       Strings;
    XmlAttribute* pAttr;
    StartStrings(&Strings, &Value);
    for (uint32_t Index = 1; (pAttr = FindString(&Strings, Index)) != NULL; Index++) {
      SYS_XML_UnlinkAttr(pElement, pAttr);
    }
  }
  SYS_XML_RemoveAttr(pElement, Value.acName);  // may be missing, which does not matter
  SYS_XML_RemoveAttr(pElement, Value.acTypeName);
  return SYS_REG_OK;
}
