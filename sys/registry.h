// sys/registry.h
// SPDX-License-Identifier: MIT
//
// A registry store: named, typed values under hierarchical keys, in XML files.
//
// There are three root keys. Keys below them are named by paths with backslashes, and each key
// holds values. Each root is one XML file in "Library/Application Support/OSTREL" below HOME;
// docs/registry.md describes the format.
//
// A root's file is read when the root is first used, and made if it is missing. From then on
// everything happens in memory until SYS_REG_Flush writes the changed roots and unloads all. A
// process that ends without a flush loses its changes.
//
// Every operation on a root fails, and nothing is written, when HOME is not set or empty, when the
// directory cannot be made, or when its path together with the file's name has 512 characters or
// more. HOME is read at each operation. Flush before changing it: a loaded root stays loaded, and
// if it was changed, the flush writes it below the new HOME, over any file there. The directory is
// looked for, and made if it is missing, when a root is loaded, when HOME has changed since, and
// when a root is written.
//
// A file that was read but does not contain such XML is replaced by the empty store, as callers
// expect. A file that cannot be read (no permission, no memory, not a regular file) is unchanged,
// and the operation fails. A symbolic link is followed.
//
// An operation takes about the same time however many values a key has. Until the flush the memory
// of values that were deleted or became longer is kept, and used again for others of about that
// size.
//
// One thread at a time; no lock. There is no lock between processes either: the last one to flush a
// changed root wins. Nothing is printed.

#ifndef SYS_REGISTRY_H
#define SYS_REGISTRY_H

#include <stdint.h>

#include "sys/xml.h"

// An open key. SYS_REG_OpenKey allocates it and SYS_REG_CloseKey frees it. Both pointers are into a
// document that SYS_REG_Flush frees.
struct RegistryKeyHandle {
  XmlDocument* pDoc;
  XmlElement*  pElement;
};

// The root keys; each can be given instead of an open key. The values 0x80000003 to 0x80000006 are
// roots too but have no file: every operation on them fails.
#define HKEY_CLASSES_ROOT  ((RegistryKeyHandle*)(uintptr_t)0x80000000u)
#define HKEY_CURRENT_USER  ((RegistryKeyHandle*)(uintptr_t)0x80000001u)
#define HKEY_LOCAL_MACHINE ((RegistryKeyHandle*)(uintptr_t)0x80000002u)

// Types of values. Other numbers are rejected.
enum {
  SYS_REG_TYPE_SZ        = 1,   // text
  SYS_REG_TYPE_EXPAND_SZ = 2,   // text; can be queried, not set
  SYS_REG_TYPE_BINARY    = 3,   // only the type can be queried; cannot be set
  SYS_REG_TYPE_DWORD     = 4,   // 32-bit number
  SYS_REG_TYPE_MULTI_SZ  = 7,   // list of texts
  SYS_REG_TYPE_QWORD     = 11,  // 64-bit number
  SYS_REG_TYPE_UNKNOWN   = -1   // what a query stores for any other name of a type
};

// Results of the operations on values.
enum {
  SYS_REG_OK        = 0,
  SYS_REG_FAILED    = 1,
  SYS_REG_NOT_FOUND = 2,
  SYS_REG_MORE_DATA = 234  // the buffer is too small
};

// Opens the key at sPath below hKey, and makes every missing key on the way.
// hKey is a root or an open key.
//
// Components of sPath are separated by backslashes. An empty component ends the path, so "" and
// "\x" are hKey itself. In a component white space (SPACE, TAB, LF, CR) is dropped; a leading "-"
// and every character other than ASCII letters, digits, "!", "-" and "_" become "_", a double quote
// too.
//
// Returns the key, to be freed with SYS_REG_CloseKey. Returns NULL, and makes no key, for a NULL
// hKey or sPath, for a root that cannot be loaded, and for a key that could not be loaded again: a
// component of 512 characters or more or one that begins with "!--" or "!DOC", or a key more than
// 100 levels below its root. Returns NULL also when there is no memory; keys made so far remain.
RegistryKeyHandle* SYS_REG_OpenKey(RegistryKeyHandle* hKey, const char* sPath);

// Frees an open key.
// Does nothing for NULL and for a root. The key's values are not changed.
void SYS_REG_CloseKey(RegistryKeyHandle* hKey);

// Names of values, in the three functions below: leading white space is skipped; SPACE inside the
// name is dropped together with any white space after it ("My Value" is MyValue); other white space
// ends the name. A token in double quotes, at the beginning or after SPACE, is taken unchanged; a
// missing closing quote is assumed at the end. Case counts.
//
// A NULL or empty name, or one of 512 characters or more, gives SYS_REG_FAILED. A name without any
// character (" ") gives SYS_REG_OK, and nothing is done.

// Sets a value, in memory.
//
//   SYS_REG_TYPE_SZ        pData is zero-terminated, or NULL for the empty text; Size is ignored
//   SYS_REG_TYPE_DWORD     the first min(Size, 4) bytes of pData, in host byte order, over a zero
//   SYS_REG_TYPE_QWORD     the first min(Size, 8) bytes in the same way: 4 bytes are the low half
//   SYS_REG_TYPE_MULTI_SZ  zero-terminated strings, followed by an empty one; Size is the exact
//                          number of bytes with all terminators ("a", "bc": 6). The first string
//                          may be empty. All former entries of the list are removed first, also
//                          those after a gap; an index of ten digits or more is not an entry.
//
// Returns SYS_REG_OK, or SYS_REG_FAILED with nothing changed: NULL hKey, a root that cannot be
// loaded, a name with characters other than ASCII letters, digits, "!", "-" and "_" (it could not
// be loaded again), any other type, a wrong Size of a list, NULL pData where bytes are needed.
// Returns SYS_REG_FAILED also when there is no memory; the value may then be incomplete.
//
// Texts are stored unchanged: a text that contains a double quote makes the file unreadable. A
// number or text that replaces a list leaves the list's other strings in the file. A name ending in
// _OSTRELRegType or _OSTRELRegMltStr<n> is accepted but collides with another value; see
// docs/registry.md.
uint32_t SYS_REG_SetValue(RegistryKeyHandle* hKey, const char* sName, uint32_t Type,
                          const void* pData, uint32_t Size);

// Reads a value, or its type alone.
// *pType, unless pType is NULL, receives the type. pData may be NULL; pSize is then not used.
// Otherwise *pSize is the number of bytes at pData on entry and the size of the data on return. No
// byte beyond those at pData is written.
//
//   SYS_REG_TYPE_SZ, _EXPAND_SZ  at most *pSize - 1 characters and a terminator. The size is the
//                                length without the terminator. SYS_REG_MORE_DATA when *pSize is
//                                below that. If they are equal the result is SYS_REG_OK although
//                                the last character is lost: callers rely on that.
//   SYS_REG_TYPE_DWORD, _QWORD   4 or 8 bytes in host byte order; pData need not be aligned. If
//                                *pSize is smaller, it is unchanged and the result is
//                                SYS_REG_MORE_DATA. A text that is not a hexadecimal number gives
//                                0.
//   SYS_REG_TYPE_MULTI_SZ        the strings, each cut to what is left of *pSize and terminated,
//                                and an empty string if there is room. The size is the sum of the
//                                strings' lengths, plus 1 if *pSize exceeds that sum. It does not
//                                include their terminators; callers rely on that. Twice the size
//                                plus 2 is enough for the whole list. SYS_REG_MORE_DATA when *pSize
//                                is below the size.
//
// Returns SYS_REG_OK or SYS_REG_MORE_DATA as above; SYS_REG_NOT_FOUND when there is no such value;
// SYS_REG_FAILED for a NULL hKey, for pData without pSize, for a root that cannot be loaded, for an
// unknown type (*pType is then SYS_REG_TYPE_UNKNOWN, 0xFFFFFFFF), and, when the data is asked for,
// for SYS_REG_TYPE_BINARY and for data that is missing in the file. *pType is unchanged when no
// type was found, *pSize when no data was.
uint32_t SYS_REG_QueryValue(RegistryKeyHandle* hKey, const char* sName, uint32_t* pType,
                            void* pData, uint32_t* pSize);

// Deletes a value.
// Returns SYS_REG_OK; SYS_REG_FAILED when there is no such value, when its type is unknown, for a
// NULL hKey, and for a root that cannot be loaded.
uint32_t SYS_REG_DeleteValue(RegistryKeyHandle* hKey, const char* sName);

// Writes each loaded root that has changed, and unloads all roots.
// A root has changed when its text differs from the text right after loading. Afterwards every open
// key is invalid and may only be given to SYS_REG_CloseKey.
//
// A text of more than 1 MiB is not written, and the file is unchanged. The file is also unchanged
// when it cannot be opened in four attempts, 5 ms apart. Errors while writing are not reported.
void SYS_REG_Flush(void);

#endif
