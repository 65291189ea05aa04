// sys/registry.h
//
// A small hierarchical store for named, typed values: three root keys, keys below them by paths
// with backslashes, values under each key. Each root is one XML file in "Library/Application
// Support/OSTREL" below HOME; docs/registry.md shows the format.
//
// A root's file is read when the root is first named and made when it is missing. From then on all
// happens in memory until SYS_REG_Flush writes the changed roots and unloads all. A process that
// ends without it loses its changes.
//
// Every operation on a root fails, and nothing is written anywhere, when HOME is not set or empty,
// when the directory cannot be made, or when its path and the file's name come to 512 characters or
// more. HOME is asked for each time. Flush before changing it: a root that is loaded stays so, and
// a flush writes it, when it was changed, below the HOME of that moment, over the file there.
//
// A file whose text is no XML of the kind the store writes is replaced by the empty store, on
// purpose. A file that cannot be read just now (no permission, no memory, not a regular file) is
// left alone; the operation fails. A link is followed.
//
// One thread at a time; no lock. Between processes there is none either: the last one to flush a
// changed root wins. Nothing is printed.

#ifndef SYS_REGISTRY_H
#define SYS_REGISTRY_H

#include <stdint.h>

#include "sys/xml.h"

// An open key. Allocated by SYS_REG_OpenKey, freed by SYS_REG_CloseKey. Both pointers lead into a
// document that SYS_REG_Flush frees.
struct RegistryKeyHandle {
  XmlDocument* pDoc;
  XmlElement*  pElement;
};

// The root keys, given where an open key can be. 0x80000003 to 0x80000006 are taken as roots too,
// but have no file: every operation on them fails.
#define HKEY_CLASSES_ROOT  ((RegistryKeyHandle*)(uintptr_t)0x80000000u)
#define HKEY_CURRENT_USER  ((RegistryKeyHandle*)(uintptr_t)0x80000001u)
#define HKEY_LOCAL_MACHINE ((RegistryKeyHandle*)(uintptr_t)0x80000002u)

// Types of values. The other numbers up to 10 are known to nobody.
enum {
  SYS_REG_TYPE_SZ        = 1,   // text
  SYS_REG_TYPE_EXPAND_SZ = 2,   // text; can be queried, not set
  SYS_REG_TYPE_BINARY    = 3,   // its type can be queried; neither its data nor setting it works
  SYS_REG_TYPE_DWORD     = 4,   // 32-bit number
  SYS_REG_TYPE_MULTI_SZ  = 7,   // list of texts
  SYS_REG_TYPE_QWORD     = 11,  // 64-bit number
  SYS_REG_TYPE_UNKNOWN   = -1   // what a query tells about any other name of a type
};

// Results of the operations on values.
enum {
  SYS_REG_OK        = 0,
  SYS_REG_FAILED    = 1,
  SYS_REG_NOT_FOUND = 2,
  SYS_REG_MORE_DATA = 234  // the buffer is too small
};

// Opens the key at sPath below hKey, a root or an open key, and makes every key that is missing on
// the way.
//
// Components are separated by backslashes; an empty one ends the path, so "" and "\x" are hKey
// itself. In a component white space (SPACE, TAB, LF, CR) is dropped, a "-" in front and every
// character but ASCII letters, digits, "!", "-" and "_" become "_". A double quote is no exception.
//
// Returns the key; free it with SYS_REG_CloseKey. NULL, and no key made, for a NULL hKey or sPath,
// a root that cannot be loaded, and what could not be loaded again: a component of 512 characters
// or more or one that begins with "!--" or "!DOC", or a key more than 100 levels below its root.
// NULL also without memory; keys made until then stay.
RegistryKeyHandle* SYS_REG_OpenKey(RegistryKeyHandle* hKey, const char* sPath);

// Frees an open key; does nothing for NULL and for a root. The key's values are not touched.
void SYS_REG_CloseKey(RegistryKeyHandle* hKey);

// Names of values, in all three operations on them: white space in front is skipped, SPACE inside
// is dropped together with white space that follows it ("My Value" is MyValue); other white space
// ends the name. What stands in double quotes, at the beginning or behind SPACE, is taken as it is;
// a missing closing quote is at the end. Case counts.
//
// A NULL or empty name, or one of 512 characters or more, gives SYS_REG_FAILED. A name with nothing
// in it (" ") gives SYS_REG_OK, and nothing is done.

// Sets a value. Nothing is written to disk before SYS_REG_Flush.
//
//   SYS_REG_TYPE_SZ        pData is zero-terminated, NULL for the empty text; Size is ignored
//   SYS_REG_TYPE_DWORD     the first min(Size, 4) bytes of pData, in host byte order, over a zero
//   SYS_REG_TYPE_QWORD     the first min(Size, 8) bytes, likewise: 4 bytes are the low half
//   SYS_REG_TYPE_MULTI_SZ  zero-terminated strings and an empty one as the end; Size is the exact
//                          number of bytes, all terminators counted ("a", "bc": 6). The first
//                          string may be empty. All former entries of that name go first, also
//                          behind a gap; an index of ten digits or more is not taken for one.
//
// Returns SYS_REG_OK, or SYS_REG_FAILED, nothing changed: NULL hKey, root that cannot be loaded, a
// name with characters but ASCII letters, digits, "!", "-" and "_" (it could not be loaded again),
// any other type, a wrong Size for a list, NULL pData where bytes are needed. SYS_REG_FAILED also
// without memory; the value may then be incomplete.
//
// Texts are stored as they are: one that holds a double quote makes the file unreadable, on
// purpose. A number or text set over a list leaves the list's further strings in the file. A name
// that ends as those of the file's further attributes do ("N_OSTRELRegType", "N_OSTRELRegMltStr1")
// is not refused, and disturbs the value N; docs/registry.md tells how.
//
// The memory of what is replaced by something longer, or deleted, comes back with the flush.
uint32_t SYS_REG_SetValue(RegistryKeyHandle* hKey, const char* sName, uint32_t Type,
                          const void* pData, uint32_t Size);

// Reads a value. *pType, unless NULL, receives its type. pData may be NULL to ask for the type
// only; pSize is then not used, else it holds the bytes at pData on entry and the size of the data
// on return. No more than the bytes at pData are ever written.
//
//   SYS_REG_TYPE_SZ, _EXPAND_SZ  at most *pSize - 1 characters and a terminator. The size is the
//                                length without it. SYS_REG_MORE_DATA when *pSize is below that;
//                                a *pSize equal to it gives SYS_REG_OK and loses the last
//                                character, on purpose.
//   SYS_REG_TYPE_DWORD, _QWORD   4 or 8 bytes in host byte order, not aligned. A smaller *pSize
//                                gives SYS_REG_MORE_DATA and stays. A text that is no hexadecimal
//                                number gives 0.
//   SYS_REG_TYPE_MULTI_SZ        the strings, each cut at what is left of *pSize and terminated,
//                                and an empty one as the end as far as there is room. The size is
//                                the sum of the strings' lengths, plus 1 when *pSize exceeds that
//                                sum: their terminators are not counted, on purpose. So give twice
//                                the size and 2 to be sure of the whole list.
//                                SYS_REG_MORE_DATA when *pSize is below the size.
//
// Returns SYS_REG_OK or SYS_REG_MORE_DATA as above; SYS_REG_NOT_FOUND when there is no such value;
// SYS_REG_FAILED for a NULL hKey, pData without pSize, a root that cannot be loaded, a type
// SYS_REG_TYPE_UNKNOWN (*pType is 0xFFFFFFFF then: any name but the six, of whatever length) or,
// when asked for the data, SYS_REG_TYPE_BINARY, and data that is missing in the file. *pType stays
// as it was when no type was found, *pSize when no data was.
uint32_t SYS_REG_QueryValue(RegistryKeyHandle* hKey, const char* sName, uint32_t* pType,
                            void* pData, uint32_t* pSize);

// Removes a value. SYS_REG_FAILED when there is none, when its type is not known, for a NULL hKey,
// and when the root cannot be loaded; else SYS_REG_OK.
uint32_t SYS_REG_DeleteValue(RegistryKeyHandle* hKey, const char* sName);

// Writes each loaded root whose text is another than when it was loaded, and unloads all. Every
// open key is invalid from now on, but for SYS_REG_CloseKey.
//
// A text longer than 1 MiB is not written: the file stays as it was. So it does when it cannot be
// opened in four attempts, 5 ms apart. How far the writing got is not checked.
void SYS_REG_Flush(void);

#endif
