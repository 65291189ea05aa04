// SPDX-License-Identifier: MIT

// The dynamic loader: libraries of this system, and Mach-O libraries through image.h.
//
// MACHORUN_DLADDR replaces the path that dladdr() returns for an address of the program. It may be
// empty. "!fail" makes the call fail, "!null" leaves the path null.

#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "machorun/darwin_abi.h"
#include "machorun/image.h"
#include "machorun/runner.h"
#include "machorun/shim.h"

namespace {

struct Library {
  void*        pHost  = nullptr;  // one of the two is set
  const Image* pImage = nullptr;
};

thread_local std::string sErrorText;
thread_local bool        ErrorPending = false;

void SetError(const std::string& sText) {
  sErrorText   = sText;
  ErrorPending = true;
}

bool IsMachO(const char* sPath) {
  std::ifstream File(sPath, std::ios::binary);
  uint32_t      Magic = 0;
  File.read(reinterpret_cast<char*>(&Magic), sizeof(Magic));
  return Magic == 0xFEEDFACF || Magic == 0xBEBAFECA;
}

int ModeToHost(int Mode) {
  int Result = 0;
  switch (Mode & (darwin::DL_LAZY | darwin::DL_NOW)) {
    case darwin::DL_LAZY:
      Result = RTLD_LAZY;
      break;
    case darwin::DL_NOW:
      Result = RTLD_NOW;
      break;
    default:
      Unknown("dlopen mode 0x%x", static_cast<unsigned>(Mode));
  }
  // Darwin makes the library's names global unless the caller says otherwise.
  return (Mode & darwin::DL_LOCAL) != 0 ? Result : Result | RTLD_GLOBAL;
}

Library* Open(const char* sPath, int Mode) {
  Library Found;
  if ((Mode & ~(darwin::DL_LAZY | darwin::DL_NOW | darwin::DL_LOCAL | darwin::DL_GLOBAL)) != 0) {
    Unknown("dlopen mode 0x%x", static_cast<unsigned>(Mode));
  }
  if (sPath == nullptr) {
    Unknown("dlopen of the program itself");
  }
  const int HostMode = ModeToHost(Mode);
  if (IsMachO(sPath)) {
    try {
      Found.pImage = LoadImage(sPath, &ResolveImport);
    } catch (const std::runtime_error& Failure) {
      SetError("dlopen(" + std::string(sPath) + "): " + Failure.what());
    }
  } else {
    Found.pHost = dlopen(sPath, HostMode);
    if (Found.pHost == nullptr) {
      SetError("dlopen(" + std::string(sPath) + "): " + dlerror());
    }
  }
  const bool Ok = Found.pHost != nullptr || Found.pImage != nullptr;
  Trace("dlopen(%s, 0x%x) = %s", sPath, static_cast<unsigned>(Mode), Ok ? "open" : "null");
  return Ok ? new Library(Found) : nullptr;
}

void* FindSymbol(Library* pLibrary, const char* sName) {
  Trace("dlsym(%s)", sName);
  // The special handles are small negative numbers.
  if (reinterpret_cast<intptr_t>(pLibrary) < 0 || pLibrary == nullptr) {
    Unknown("dlsym with the special handle %ld", reinterpret_cast<long>(pLibrary));
  }
  void* pFound = nullptr;
  bool  Ok     = false;
  if (pLibrary->pImage != nullptr) {
    std::string sSymbol("_");
    const auto  Entry = pLibrary->pImage->Exports.find(sSymbol.append(sName));
    Ok                = Entry != pLibrary->pImage->Exports.end();
    pFound            = Ok ? Entry->second : nullptr;
  } else {
    dlerror();
    pFound = dlsym(pLibrary->pHost, sName);
    Ok     = dlerror() == nullptr;
  }
  if (!Ok) {
    char acHandle[32];
    snprintf(acHandle, sizeof(acHandle), "%p", static_cast<void*>(pLibrary));
    SetError("dlsym(" + std::string(acHandle) + ", " + sName + "): symbol not found");
  }
  return pFound;
}

const char* TakeError() {
  Trace("dlerror() = %s", ErrorPending ? "text" : "null");
  if (!ErrorPending) {
    return nullptr;
  }
  ErrorPending = false;
  return sErrorText.c_str();
}

int Close(Library* pLibrary) {
  Trace("dlclose()");
  if (pLibrary->pHost != nullptr) {
    dlclose(pLibrary->pHost);
  }
  delete pLibrary;
  sErrorText.assign(sErrorText.size(), '#');  // a text is valid up to the next call only
  return 0;
}

int DescribeModule(const void* pAddress, Dl_info* pInfo) {
  const Image* pImage = FindImage(pAddress);
  if (pImage == nullptr) {
    return dladdr(pAddress, pInfo);
  }
  memset(pInfo, 0, sizeof(*pInfo));
  pInfo->dli_fbase = pImage->pStart;
  pInfo->dli_fname = pImage->sPath.c_str();

  const char* sAnswer = getenv("MACHORUN_DLADDR");
  if (sAnswer != nullptr && strcmp(sAnswer, "!fail") == 0) {
    return 0;
  }
  if (sAnswer != nullptr) {
    pInfo->dli_fname = strcmp(sAnswer, "!null") == 0 ? nullptr : sAnswer;
  }
  return 1;
}

const Shim Table[] = {
    Bound("_dlopen", &Open),   Bound("_dlsym", &FindSymbol),      Bound("_dlerror", &TakeError),
    Bound("_dlclose", &Close), Bound("_dladdr", &DescribeModule),
};

}  // namespace

std::span<const Shim> DlShims() {
  return Table;
}
