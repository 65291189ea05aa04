// sys/registry_list.h
// SPDX-License-Identifier: MIT
//
// The attributes of a value of the registry store, and those of a list of strings; for
// sys/registry.cpp.
//
// A value N has its text in the attribute N and its type in N_OSTRELRegType. A list has its first
// string in N and the others in N_OSTRELRegMltStr1, N_OSTRELRegMltStr2 and so on.

#ifndef SYS_REGISTRY_LIST_H
#define SYS_REGISTRY_LIST_H

#include "sys/registry.h"

enum {
  SYS_REG_NAME_SIZE      = 512,                    // of a name, with its terminator
  SYS_REG_ATTR_NAME_SIZE = SYS_REG_NAME_SIZE + 32  // and the longer ending, and an index
};

// A value that an operation is about.
struct REGISTRY_VALUE {
  RegistryKeyHandle Key;
  uint32_t          NameLen;
  uint32_t          TypeNameLen;
  char              acName[SYS_REG_NAME_SIZE];
  char              acTypeName[SYS_REG_ATTR_NAME_SIZE];  // of the attribute that holds the type
};

// Fills in acTypeName and TypeNameLen from the name.
void SYS_REGLIST_SetTypeName(REGISTRY_VALUE* pValue);

// Returns the value's attribute that holds its text, or its type; NULL when there is none.
XmlAttribute* SYS_REGLIST_FindText(const REGISTRY_VALUE* pValue);
XmlAttribute* SYS_REGLIST_FindType(const REGISTRY_VALUE* pValue);

// The names of the attributes that hold a list's strings: a prefix and an index.
struct REGISTRY_STRINGS {
  const REGISTRY_VALUE* pValue;
  uint32_t              PrefixLen;  // of the part before the index
  char                  acName[SYS_REG_ATTR_NAME_SIZE];
};

// Sets up the names for the list of a value. pValue must stay valid.
void SYS_REGLIST_Start(REGISTRY_STRINGS* pStrings, const REGISTRY_VALUE* pValue);

// Returns the attribute that holds string Index, 1 or more; NULL when there is none.
XmlAttribute* SYS_REGLIST_Find(REGISTRY_STRINGS* pStrings, uint32_t Index);

// Removes the value's text and its type; of a list also the strings up to the first one that is
// missing.
void SYS_REGLIST_Remove(const REGISTRY_VALUE* pValue, int32_t IsList);

// Removes the value's text, its type and all strings of its list, also those after a gap. Returns
// what SYS_REGLIST_KeepTidy is to be given.
uint32_t SYS_REGLIST_Clear(const REGISTRY_VALUE* pValue);

// Adds the strings at pData, up to the first empty one after the first, and the type. The value has
// no attributes yet. Returns SYS_XML_OK or SYS_XML_ERR_MEMORY.
int32_t SYS_REGLIST_Append(const REGISTRY_VALUE* pValue, const char* sTypeName, const char* pData);

// A key is tidy when it has no attribute twice and no string of a list after a gap. Clearing a list
// there need not look at all attributes of the key. Each operation asks whether the key is known to
// be tidy before it changes a value, and says afterwards that it still is.
uint32_t SYS_REGLIST_IsKnownTidy(const REGISTRY_VALUE* pValue);
void     SYS_REGLIST_KeepTidy(const REGISTRY_VALUE* pValue, uint32_t WasTidy);

#endif
