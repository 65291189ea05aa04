// SPDX-License-Identifier: MIT

// The operations on keys and values. registry_list.cpp has the attributes that a value consists of,
// registry_store.cpp the files of the roots.

#include "sys/registry.h"

#include <string.h>

#include "sys/memory.h"
#include "sys/registry_list.h"
#include "sys/registry_store.h"
#include "sys/xml_node.h"
#include "util/arith.h"
#include "util/format.h"
#include "util/scan.h"
#include "util/string.h"

// ---- Keys ---------------------------------------------------------------------------------------

static const uint32_t NAME_SIZE = SYS_REG_NAME_SIZE;  // of a component as of a value's name

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
// The whole path is checked before its first key is made.
static int32_t CheckPath(const XmlElement* pElement, const char* sPath) {
  char     acName[NAME_SIZE];
  uint32_t Depth = SYS_XML_GetDepth(pElement);
  while (*sPath != 0) {
    if (ReadComponent(&sPath, acName) != 0) {
      return -1;
    }
    if (acName[0] == 0) {
      return 0;  // an empty component ends the path
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
  // Taken before any key is made: without memory nothing changes.
  RegistryKeyHandle* pHandle = (RegistryKeyHandle*)SYS_MEM_Alloc(sizeof(RegistryKeyHandle));
  if (pHandle == NULL) {
    return NULL;
  }
  // From here on nothing but a lack of memory can fail. Keys that were made stay.
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

namespace {

// A type and the name that stands for it in the file. The length saves measuring a name that is
// compared at each query.
struct TYPE_ROW {
  uint32_t    Type;
  uint32_t    NameLen;
  const char* sName;
};

}  // namespace

static const TYPE_ROW aType[] = {
    {SYS_REG_TYPE_SZ, 15, "SYS_REG_TYPE_SZ"},
    {SYS_REG_TYPE_MULTI_SZ, 21, "SYS_REG_TYPE_MULTI_SZ"},
    {SYS_REG_TYPE_EXPAND_SZ, 22, "SYS_REG_TYPE_EXPAND_SZ"},
    {SYS_REG_TYPE_BINARY, 19, "SYS_REG_TYPE_BINARY"},
    {SYS_REG_TYPE_DWORD, 18, "SYS_REG_TYPE_DWORD"},
    {SYS_REG_TYPE_QWORD, 18, "SYS_REG_TYPE_QWORD"},
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
    if (c == 0 || (IsQuoted ? c == '"' : (uint8_t)c <= ' ' && UTIL_IsWhite((uint8_t)c))) {
      break;
    }
    if (Length == NAME_SIZE - 1) {
      return -1;
    }
    pName[Length++] = c;
    (*ps)++;
  }
  if (IsQuoted && **ps == '"') {  // a missing one counts as being at the end
    (*ps)++;
  }
  pName[Length] = 0;
  return (int32_t)Length;
}

// Stores the value's name without its white space: see the header for the rules. Returns its
// length, which may be 0, or -1 when it is too long.
static int32_t ReadName(const char* sName, char* pName) {
  UTIL_SkipWhite(&sName);
  int32_t Length = AppendToken(&sName, pName, 0);
  while (Length >= 0 && *sName == ' ') {
    UTIL_SkipWhite(&sName);
    Length = AppendToken(&sName, pName, (uint32_t)Length);
  }
  return Length;
}

static const int32_t GO_ON = -1;  // not one of the results, which are 0 or more

// Prepares an operation on a value. Returns GO_ON, or the operation's result.
static int32_t Begin(const RegistryKeyHandle* hKey, const char* sName, REGISTRY_VALUE* pValue) {
  if (sName == NULL || sName[0] == 0 || SYS_REGSTORE_Resolve(hKey, &pValue->Key) != 0) {
    return SYS_REG_FAILED;
  }
  const int32_t Length = ReadName(sName, pValue->acName);
  if (Length <= 0) {
    return Length < 0 ? SYS_REG_FAILED : SYS_REG_OK;  // required: no name is a success
  }
  pValue->NameLen = (uint32_t)Length;
  SYS_REGLIST_SetTypeName(pValue);
  return GO_ON;
}

// ---- Setting ------------------------------------------------------------------------------------

// Type is one of those in the table.
static const char* GetTypeName(uint32_t Type) {
  const TYPE_ROW* pRow = aType;
  while (pRow->Type != Type) {
    pRow++;
  }
  return pRow->sName;
}

// Sets the text first, then its type: a value without a type does not exist for a query.
static int32_t SetText(const REGISTRY_VALUE* pValue, const char* sTypeName, const char* sText) {
  const RegistryKeyHandle* pKey = &pValue->Key;
  const int32_t Result = SYS_XML_SetAttr(pKey->pDoc, pKey->pElement, pValue->acName, sText);
  if (Result != SYS_XML_OK) {
    return Result;
  }
  return SYS_XML_SetAttr(pKey->pDoc, pKey->pElement, pValue->acTypeName, sTypeName);
}

// Sets the first min(Size, NumBytes) bytes of pData over a zero.
static int32_t SetNumber(const REGISTRY_VALUE* pValue, const char* sTypeName, uint32_t NumBytes,
                         const void* pData, uint32_t Size) {
  char     acText[20];
  uint64_t Number = 0;
  if (Size > 0) {
    memcpy(&Number, pData, UTIL_MinU32(Size, NumBytes));
  }
  // Leading zeros come from the precision; 64 bits are two halves, the high one first.
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

// Returns non-zero when pData and Size are good for the type, and the type can be set.
static int IsGoodData(uint32_t Type, const void* pData, uint32_t Size) {
  switch (Type) {
    case SYS_REG_TYPE_SZ:
      return 1;
    case SYS_REG_TYPE_DWORD:
    case SYS_REG_TYPE_QWORD:
      return pData != NULL || Size == 0;
    case SYS_REG_TYPE_MULTI_SZ:
      return pData != NULL && IsList((const char*)pData, Size);
    default:
      return 0;  // two types can be read only
  }
}

// Sets a value whose data was checked. Returns a result of the XML document.
static int32_t SetData(const REGISTRY_VALUE* pValue, uint32_t Type, const void* pData,
                       uint32_t Size) {
  // Asked before the change: every attribute that is added or removed makes it unknown.
  const char* sTypeName = GetTypeName(Type);
  uint32_t    WasTidy   = SYS_REGLIST_IsKnownTidy(pValue);
  int32_t     Result;
  if (Type == SYS_REG_TYPE_SZ) {
    Result = SetText(pValue, sTypeName, (const char*)pData);
  } else if (Type == SYS_REG_TYPE_MULTI_SZ) {
    WasTidy = SYS_REGLIST_Clear(pValue);
    Result  = SYS_REGLIST_Append(pValue, sTypeName, (const char*)pData);
  } else {
    Result = SetNumber(pValue, sTypeName, Type == SYS_REG_TYPE_DWORD ? 4 : 8, pData, Size);
  }
  SYS_REGLIST_KeepTidy(pValue, WasTidy);
  return Result;
}

uint32_t SYS_REG_SetValue(RegistryKeyHandle* hKey, const char* sName, uint32_t Type,
                          const void* pData, uint32_t Size) {
  REGISTRY_VALUE Value;
  const int32_t  Result = Begin(hKey, sName, &Value);
  if (Result != GO_ON) {
    return (uint32_t)Result;
  }
  if (!IsGoodData(Type, pData, Size) || !SYS_XML_IsAttrName(Value.acName)) {
    return SYS_REG_FAILED;
  }
  return SetData(&Value, Type, pData, Size) == SYS_XML_OK ? SYS_REG_OK : SYS_REG_FAILED;
}

// ---- Querying -----------------------------------------------------------------------------------

// Stores the type of a value. NOT_FOUND: the value has no type, so it does not exist. FAILED: the
// file has another text there.
static uint32_t QueryType(const REGISTRY_VALUE* pValue, uint32_t* pType) {
  const XmlAttribute* pAttr = SYS_REGLIST_FindType(pValue);
  if (pAttr == NULL) {
    return SYS_REG_NOT_FOUND;
  }
  for (const TYPE_ROW& Row : aType) {
    if (pAttr->ValueLen == Row.NameLen && memcmp(pAttr->sValue, Row.sName, Row.NameLen) == 0) {
      *pType = Row.Type;
      return SYS_REG_OK;
    }
  }
  *pType = (uint32_t)SYS_REG_TYPE_UNKNOWN;
  return SYS_REG_FAILED;
}

// Copies a text. Required: one that just fits without its terminator is a success, though it loses
// its last character.
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
  UTIL_ParseHex(&s, &Number);        // any other text leaves the 0
  memcpy(pData, &Number, NumBytes);  // the low bytes come first
  *pSize = NumBytes;
  return SYS_REG_OK;
}

// Two counts run side by side. Remaining is what the reported size is made of: it leaves out the
// terminators, as callers of the format expect. Pos is where bytes are really written, so that none
// of them is beyond the buffer. Pos never exceeds the capacity.
static uint32_t QueryList(const REGISTRY_VALUE* pValue, const XmlAttribute* pAttr, char* pData,
                          uint32_t* pSize) {
  const uint32_t   Capacity  = *pSize;
  uint32_t         Remaining = Capacity;
  uint32_t         Total     = 0;
  uint32_t         Pos       = 0;
  REGISTRY_STRINGS Strings;
  SYS_REGLIST_Start(&Strings, pValue);
  for (uint32_t Index = 1; pAttr != NULL; Index++) {
    const uint32_t Room   = UTIL_MinU32(Remaining, Capacity - Pos);
    const uint32_t Length = (uint32_t)SYS_XML_CopyAttrValue(pAttr, pData + Pos, Room);
    Remaining -= UTIL_MinU32(Length, Remaining);
    if (Remaining > 0) {  // the next string goes after this one's terminator; else nothing fits
      Pos += UTIL_MinU32(Length + 1, Room);
    }
    Total += Length;
    pAttr = SYS_REGLIST_Find(&Strings, Index);
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
  REGISTRY_VALUE Value;
  uint32_t       Type;
  if (pData != NULL && pSize == NULL) {
    return SYS_REG_FAILED;
  }
  const int32_t Result = Begin(hKey, sName, &Value);
  if (Result != GO_ON) {
    return (uint32_t)Result;
  }
  // Text before type: an index finds an attribute fastest when it follows the one found last, and
  // that is how they are stored.
  const XmlAttribute* pAttr      = SYS_REGLIST_FindText(&Value);
  const uint32_t      TypeResult = QueryType(&Value, &Type);
  if (TypeResult != SYS_REG_NOT_FOUND && pType != NULL) {
    *pType = Type;
  }
  if (TypeResult != SYS_REG_OK || pData == NULL) {
    return TypeResult;
  }
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
  REGISTRY_VALUE Value;
  uint32_t       Type;
  const int32_t  Result = Begin(hKey, sName, &Value);
  if (Result != GO_ON) {
    return (uint32_t)Result;
  }
  if (QueryType(&Value, &Type) != SYS_REG_OK) {
    return SYS_REG_FAILED;  // no value, or a type that does not say which attributes belong to it
  }
  const uint32_t WasTidy = SYS_REGLIST_IsKnownTidy(&Value);
  SYS_REGLIST_Remove(&Value, Type == SYS_REG_TYPE_MULTI_SZ);
  SYS_REGLIST_KeepTidy(&Value, WasTidy);
  return SYS_REG_OK;
}
