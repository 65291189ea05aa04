// machorun/image.h
// SPDX-License-Identifier: MIT
//
// Loads a Mach-O file for x86-64 into this process, as the system's loader would: segments at a
// random place, pointers moved with them, imports bound.
//
// Loads executables and dynamic libraries, thin or universal, with the fixup format of systems up
// to macOS 12. A file that needs more (thread-local variables, chained fixups, initialisers by
// offset) is refused with a message.

#ifndef MACHORUN_IMAGE_H
#define MACHORUN_IMAGE_H

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

struct Import {
  std::string sLibrary;             // install name of the library that must have it
  std::string sName;                // as in the file: C names with an underscore in front
  bool        MayBeAbsent = false;  // the program starts without it too
};

struct Image {
  std::string                     sPath;
  uint8_t*                        pStart     = nullptr;  // the file header in memory
  uint64_t                        Size       = 0;
  int64_t                         Slide      = 0;  // address in memory minus address in the file
  uint64_t                        EntryPoint = 0;  // 0 for a library
  std::map<std::string, uint8_t*> Exports;
  std::map<uint8_t*, std::string> Symbols;  // all that have an address
  std::vector<uint8_t*>           Initialisers;
};

// The imports of a file in the order in which it binds them. Throws std::runtime_error for a file
// that cannot be loaded here.
std::vector<Import> ListImports(const std::string& sPath);

// Maps the file, moves its pointers and binds its imports. pfResolve looks up each import; it
// throws for a name that it does not provide and returns null for one that is to be absent. Throws
// std::runtime_error for a file that cannot be loaded; none of its code has run then. An image
// stays loaded to the end of the process.
Image* LoadImage(const std::string& sPath, void* (*pfResolve)(const Import& Wanted));

// The image that the address lies in, or null.
const Image* FindImage(const void* pAddress);

// "_Name + 12" for an address in an image, "0x..." for one that has no symbol.
std::string DescribeAddress(const void* pAddress);

#endif
