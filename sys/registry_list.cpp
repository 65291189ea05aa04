// SPDX-License-Identifier: MIT

#include "sys/registry_list.h"

#include <string.h>

#include "sys/xml_index.h"
#include "sys/xml_node.h"
#include "util/scan.h"
#include "util/string.h"

// These endings, and an index without leading zeros after the second one, are the file's format.
static const char     TypeSuffix[]      = "_OSTRELRegType";
static const char     StringSuffix[]    = "_OSTRELRegMltStr";
static const uint32_t TYPE_SUFFIX_LEN   = sizeof(TypeSuffix) - 1;
static const uint32_t STRING_SUFFIX_LEN = sizeof(StringSuffix) - 1;

// No document holds so many strings that ten digits are needed. As a 32-bit number they would wrap
// around to the index of another string.
static const uint32_t MAX_INDEX_DIGITS = 9;

// ---- Single attributes --------------------------------------------------------------------------

void SYS_REGLIST_SetTypeName(REGISTRY_VALUE* pValue) {
  memcpy(pValue->acTypeName, pValue->acName, pValue->NameLen);
  memcpy(pValue->acTypeName + pValue->NameLen, TypeSuffix, sizeof(TypeSuffix));
  pValue->TypeNameLen = pValue->NameLen + TYPE_SUFFIX_LEN;
}

XmlAttribute* SYS_REGLIST_FindText(const REGISTRY_VALUE* pValue) {
  return SYS_XML_LookUpAttr(pValue->Key.pDoc, pValue->Key.pElement, pValue->acName,
                            pValue->NameLen);
}

XmlAttribute* SYS_REGLIST_FindType(const REGISTRY_VALUE* pValue) {
  return SYS_XML_LookUpAttr(pValue->Key.pDoc, pValue->Key.pElement, pValue->acTypeName,
                            pValue->TypeNameLen);
}

// ---- Strings of a list --------------------------------------------------------------------------

void SYS_REGLIST_Start(REGISTRY_STRINGS* pStrings, const REGISTRY_VALUE* pValue) {
  pStrings->pValue    = pValue;
  pStrings->PrefixLen = pValue->NameLen + STRING_SUFFIX_LEN;
  memcpy(pStrings->acName, pValue->acName, pValue->NameLen);
  memcpy(pStrings->acName + pValue->NameLen, StringSuffix, STRING_SUFFIX_LEN);
}

// Puts the index after the prefix. Returns the length of the whole name.
//
// Not by the formatting engine: a list may have half a million strings, and each needs its name.
static uint32_t SetIndex(REGISTRY_STRINGS* pStrings, uint32_t Index) {
  char     acDigit[10];  // the last digit first
  uint32_t NumDigits = 0;
  for (; Index > 0; Index /= 10) {
    acDigit[NumDigits++] = (char)('0' + Index % 10);
  }
  char* p = pStrings->acName + pStrings->PrefixLen;
  for (uint32_t i = NumDigits; i > 0; i--) {
    *p++ = acDigit[i - 1];
  }
  return pStrings->PrefixLen + NumDigits;
}

XmlAttribute* SYS_REGLIST_Find(REGISTRY_STRINGS* pStrings, uint32_t Index) {
  const RegistryKeyHandle* pKey    = &pStrings->pValue->Key;
  const uint32_t           NameLen = SetIndex(pStrings, Index);
  return SYS_XML_LookUpAttr(pKey->pDoc, pKey->pElement, pStrings->acName, NameLen);
}

int32_t SYS_REGLIST_Append(const REGISTRY_VALUE* pValue, const char* sTypeName, const char* pData) {
  XmlDocument*     pDoc     = pValue->Key.pDoc;
  XmlElement*      pElement = pValue->Key.pElement;
  REGISTRY_STRINGS Strings;
  uint32_t         Length = UTIL_StrLen(pData);
  XmlAttribute*    pAttr =
      SYS_XML_AddAttr(pDoc, pElement, pValue->acName, pValue->NameLen, pData, Length);
  SYS_REGLIST_Start(&Strings, pValue);
  // None of the names exists, so nothing is searched for: a list may have half a million strings.
  const char* s = pData + Length + 1;
  for (uint32_t Index = 1; pAttr != NULL && *s != 0; Index++) {
    const uint32_t NameLen = SetIndex(&Strings, Index);
    Length                 = UTIL_StrLen(s);
    pAttr                  = SYS_XML_AddAttr(pDoc, pElement, Strings.acName, NameLen, s, Length);
    s += Length + 1;
  }
  if (pAttr == NULL || SYS_XML_AddAttr(pDoc, pElement, pValue->acTypeName, pValue->TypeNameLen,
                                       sTypeName, UTIL_StrLen(sTypeName)) == NULL) {
    return SYS_XML_ERR_MEMORY;
  }
  return SYS_XML_OK;
}

// ---- Tidy keys ----------------------------------------------------------------------------------

static int IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Returns the length of the name without StringSuffix and the index at its end, and stores the
// index: 1, 2, ... without leading zeros. Returns 0 for any other name.
static uint32_t SplitStringName(const char* pName, uint32_t NameLen, uint32_t* pIndex) {
  uint32_t NumDigits = 0;
  while (NumDigits < NameLen && IsDigit(pName[NameLen - 1 - NumDigits])) {
    NumDigits++;
  }
  const uint32_t PrefixLen = NameLen - NumDigits;
  // The prefix must be longer than the ending: a name that is nothing else belongs to no value.
  if (NumDigits == 0 || NumDigits > MAX_INDEX_DIGITS || pName[PrefixLen] == '0' ||
      PrefixLen <= STRING_SUFFIX_LEN ||
      memcmp(pName + PrefixLen - STRING_SUFFIX_LEN, StringSuffix, STRING_SUFFIX_LEN) != 0) {
    return 0;
  }
  UTIL_ParseU32(pName + PrefixLen, pIndex);  // the name ends after the digits
  return PrefixLen - STRING_SUFFIX_LEN;
}

// Returns non-zero when the attribute is no string of a list, or the string before it exists.
static int FollowsString(const RegistryKeyHandle* pKey, const XmlAttribute* pAttr) {
  uint32_t       Index;
  const uint32_t NameLen = SplitStringName(pAttr->sName, pAttr->NameLen, &Index);
  if (NameLen == 0 || NameLen >= SYS_REG_NAME_SIZE || Index == 1) {
    return 1;  // the names of values are shorter
  }
  // The value whose list this would be, as far as a search for its strings needs it.
  REGISTRY_VALUE   Value;
  REGISTRY_STRINGS Strings;
  Value.Key     = *pKey;
  Value.NameLen = NameLen;
  memcpy(Value.acName, pAttr->sName, NameLen);
  SYS_REGLIST_Start(&Strings, &Value);
  return SYS_REGLIST_Find(&Strings, Index - 1) != NULL;
}

// Finds out whether the value's key is tidy, if that is not known. Returns 0 also for a key with so
// few attributes that it does not matter.
static uint32_t IsTidy(const REGISTRY_VALUE* pValue) {
  SYS_REGLIST_FindText(pValue);  // a search makes the index of a key with many attributes
  XmlIndex* pIndex = pValue->Key.pElement->pIndex;
  if (pIndex == NULL || !pIndex->Attrs.IsBuilt) {
    return 0;
  }
  // One walk over all attributes, whose result is remembered until an attribute comes or goes. When
  // each string has the one before it, no list has a gap.
  if (!pIndex->IsTidy && !pIndex->Attrs.HasTwice) {
    const XmlAttribute* pAttr = pValue->Key.pElement->pFirstAttr;
    while (pAttr != NULL && FollowsString(&pValue->Key, pAttr)) {
      pAttr = pAttr->pNext;
    }
    pIndex->IsTidy = pAttr == NULL;
  }
  return pIndex->IsTidy;
}

uint32_t SYS_REGLIST_IsKnownTidy(const REGISTRY_VALUE* pValue) {
  const XmlIndex* pIndex = pValue->Key.pElement->pIndex;
  return pIndex != NULL && pIndex->IsTidy;
}

void SYS_REGLIST_KeepTidy(const REGISTRY_VALUE* pValue, uint32_t WasTidy) {
  uint32_t  Index;
  XmlIndex* pIndex = pValue->Key.pElement->pIndex;
  // A value that is named like a string of another one's list may have made or closed a gap there.
  if (WasTidy && SplitStringName(pValue->acName, pValue->NameLen, &Index) == 0) {
    pIndex->IsTidy = 1;
  }
}

// ---- Removing -----------------------------------------------------------------------------------

// Returns non-zero when the attribute is the value's text, its type, or a string of its list.
static int IsEntryOf(const REGISTRY_VALUE* pValue, const XmlAttribute* pAttr) {
  uint32_t Index;
  if (pAttr->NameLen < pValue->NameLen ||
      memcmp(pAttr->sName, pValue->acName, pValue->NameLen) != 0) {
    return 0;
  }
  return pAttr->NameLen == pValue->NameLen ||
         strcmp(pAttr->sName + pValue->NameLen, TypeSuffix) == 0 ||
         SplitStringName(pAttr->sName, pAttr->NameLen, &Index) == pValue->NameLen;
}

// Looks at all attributes of the key.
static void ClearAnywhere(const REGISTRY_VALUE* pValue) {
  XmlElement*   pElement = pValue->Key.pElement;
  XmlAttribute* pNext;
  for (XmlAttribute* pAttr = pElement->pFirstAttr; pAttr != NULL; pAttr = pNext) {
    pNext = pAttr->pNext;  // read first: dropping ends the attribute
    if (IsEntryOf(pValue, pAttr)) {
      SYS_XML_DropAttr(pValue->Key.pDoc, pElement, pAttr);
    }
  }
}

// Drops an attribute, which may be NULL. Returns 0 when there is nothing to drop.
static int Drop(const REGISTRY_VALUE* pValue, XmlAttribute* pAttr) {
  if (pAttr == NULL) {
    return 0;
  }
  SYS_XML_DropAttr(pValue->Key.pDoc, pValue->Key.pElement, pAttr);
  return 1;
}

void SYS_REGLIST_Remove(const REGISTRY_VALUE* pValue, int32_t IsList) {
  // In the order in which a list is stored, so that each search finds its attribute next to the
  // last.
  Drop(pValue, SYS_REGLIST_FindText(pValue));
  if (IsList) {
    REGISTRY_STRINGS Strings;
    uint32_t         Index = 1;
    SYS_REGLIST_Start(&Strings, pValue);
    while (Drop(pValue, SYS_REGLIST_Find(&Strings, Index))) {
      Index++;
    }
  }
  Drop(pValue, SYS_REGLIST_FindType(pValue));
}

uint32_t SYS_REGLIST_Clear(const REGISTRY_VALUE* pValue) {
  // A string that was left over from a longer list would be read as part of the new one.
  if (!IsTidy(pValue)) {
    ClearAnywhere(pValue);
    return 0;
  }
  SYS_REGLIST_Remove(pValue, 1);
  return 1;
}
