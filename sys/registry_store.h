// sys/registry_store.h
// SPDX-License-Identifier: MIT
//
// The roots of the registry store: their files, their documents, and writing them back. For
// sys/registry.cpp; SYS_REG_Flush is declared in sys/registry.h.

#ifndef SYS_REGISTRY_STORE_H
#define SYS_REGISTRY_STORE_H

#include "sys/registry.h"

// 1 for the value of a root key (0x80000000 to 0x80000006), else 0.
int32_t SYS_REGSTORE_IsRoot(const RegistryKeyHandle* hKey);

// Stores at *pKey the document and the element that hKey stands for. A root is loaded first when it
// is not.
// Returns 0, or -1 for a NULL hKey and for a root that has no file or cannot be loaded; *pKey is
// then undefined.
int32_t SYS_REGSTORE_Resolve(const RegistryKeyHandle* hKey, RegistryKeyHandle* pKey);

#endif
