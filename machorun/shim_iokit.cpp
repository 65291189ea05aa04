// SPDX-License-Identifier: MIT

// The parts of CoreFoundation and IOKit that the product uses: serial ports and the idle-sleep
// assertion.
//
// HOST_CALLOUT_DEVICES lists the serial ports, as for the stand-in of host/: call-out paths with
// ':' between them; an empty one is a service without that property. Unset: no serial port.
//
// Every object counts its references. Using one after its last release ends the run. Those still
// held at the end of the process are traced.

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"

namespace {

// The record that the compiler makes for a constant string.
struct ConstantString {
  const void* pClass;
  uint64_t    Flags;
  const char* sText;
  int64_t     Length;
};

uint8_t ConstantStringClass[64];

struct Object {
  enum class Kind { String, Dictionary } What;
  std::string                        sText;
  std::map<std::string, std::string> Entries;
};

std::map<const void*, Object> Objects;

struct Service {
  std::string sPath;
};

// Iterators and services share one range of names, as mach ports do.
std::map<uint32_t, std::vector<Service>> Iterators;
std::map<uint32_t, Service>              Services;
uint32_t                                 NextPort = 0x1003;
std::map<uint32_t, std::string>          Assertions;
uint32_t                                 NextAssertion = 0x8001;

void TraceWhatIsHeld() {
  Trace("held at exit: %zu objects, %zu iterators, %zu services, %zu assertions", Objects.size(),
        Iterators.size(), Services.size(), Assertions.size());
}

void WatchForLeaks() {
  static const int Registered = atexit(&TraceWhatIsHeld);
  if (Registered != 0) {
    Unknown("atexit failed");
  }
}

const void* Create(Object::Kind What, const std::string& sText) {
  WatchForLeaks();
  const void* p = malloc(1);
  Objects[p]    = {What, sText, {}};
  return p;
}

Object& Find(const void* p, Object::Kind What) {
  const auto Found = Objects.find(p);
  if (Found == Objects.end() || Found->second.What != What) {
    Unknown("an object of CoreFoundation that is none, or was released");
  }
  return Found->second;
}

std::string TextOf(const void* p) {
  const auto* pConstant = static_cast<const ConstantString*>(p);
  if (Objects.count(p) == 0 && pConstant->pClass == ConstantStringClass) {
    return std::string(pConstant->sText, static_cast<size_t>(pConstant->Length));
  }
  return Find(p, Object::Kind::String).sText;
}

void Release(const void* p) {
  if (Objects.erase(p) == 0) {
    Unknown("CFRelease of an object that is none, or was released");
  }
  free(const_cast<void*>(p));
}

uint8_t StringToC(const void* pString, char* pBuffer, int64_t BufferSize, uint32_t Encoding) {
  if (Encoding != 0x08000100) {
    Unknown("string encoding 0x%x", Encoding);
  }
  const std::string sText = TextOf(pString);
  if (static_cast<int64_t>(sText.size()) >= BufferSize) {
    return 0;
  }
  memcpy(pBuffer, sText.c_str(), sText.size() + 1);
  return 1;
}

void DictionarySet(const void* pDictionary, const void* pKey, const void* pValue) {
  Find(pDictionary, Object::Kind::Dictionary).Entries[TextOf(pKey)] = TextOf(pValue);
}

const void* ServiceMatching(const char* sClass) {
  const void* p = Create(Object::Kind::Dictionary, "");
  Find(p, Object::Kind::Dictionary).Entries["IOProviderClass"] = sClass;
  return p;
}

int GetMatchingServices(uint32_t MasterPort, const void* pMatching, uint32_t* pIterator) {
  const auto Wanted = Find(pMatching, Object::Kind::Dictionary).Entries;
  Release(pMatching);  // the call consumes the reference
  for (const auto& Entry : Wanted) {
    Trace("IOServiceGetMatchingServices: %s = %s", Entry.first.c_str(), Entry.second.c_str());
  }
  if (MasterPort != 0) {
    Unknown("IOKit master port %u", MasterPort);
  }
  const std::map<std::string, std::string> Serial = {{"IOProviderClass", "IOSerialBSDClient"},
                                                     {"IOSerialBSDClientType", "IOSerialStream"}};
  std::vector<Service>                     Found;
  const char*                              sPorts = getenv("HOST_CALLOUT_DEVICES");
  if (sPorts != nullptr && Wanted == Serial) {
    std::istringstream Ports(sPorts);
    for (std::string sPort; std::getline(Ports, sPort, ':');) {
      Found.insert(Found.begin(), Service{sPort});  // handed out from the back
    }
  }
  // On Darwin, no match is not an error: the iterator is empty or null.
  *pIterator = Found.empty() ? 0 : NextPort++;
  if (*pIterator != 0) {
    Iterators[*pIterator] = Found;
  }
  return 0;
}

uint32_t IteratorNext(uint32_t Iterator) {
  const auto Found = Iterators.find(Iterator);
  if (Found == Iterators.end()) {
    Unknown("IOIteratorNext of port %u, which is no iterator", Iterator);
  }
  if (Found->second.empty()) {
    return 0;
  }
  const uint32_t Port = NextPort++;
  Services[Port]      = Found->second.back();
  Found->second.pop_back();
  return Port;
}

int ObjectRelease(uint32_t Port) {
  if (Iterators.erase(Port) + Services.erase(Port) == 0) {
    Unknown("IOObjectRelease of port %u, which is none or was released", Port);
  }
  return 0;
}

const void* CreateProperty(uint32_t Entry, const void* pKey, const void* pAllocator,
                           uint32_t Options) {
  const auto Found = Services.find(Entry);
  if (Found == Services.end() || pAllocator != nullptr || Options != 0) {
    Unknown("IORegistryEntryCreateCFProperty of port %u", Entry);
  }
  if (TextOf(pKey) != "IOCalloutDevice" || Found->second.sPath.empty()) {
    return nullptr;
  }
  return Create(Object::Kind::String, Found->second.sPath);
}

int AssertionCreate(const void* pType, uint32_t Level, uint32_t* pId) {
  WatchForLeaks();
  *pId             = NextAssertion++;
  Assertions[*pId] = TextOf(pType);
  Trace("IOPMAssertionCreate(%s, %u) = %u", Assertions[*pId].c_str(), Level, *pId);
  return 0;
}

int AssertionRelease(uint32_t Id) {
  Trace("IOPMAssertionRelease(%u)", Id);
  return Assertions.erase(Id) != 0 ? 0 : static_cast<int>(0xE00002C2);  // bad argument
}

const void* const DefaultAllocator  = nullptr;
const uint32_t    DefaultMasterPort = 0;

const Shim Table[] = {
    {"___CFConstantStringClassReference", ConstantStringClass},
    {"_kCFAllocatorDefault", const_cast<void*>(static_cast<const void*>(&DefaultAllocator))},
    {"_kIOMasterPortDefault", const_cast<uint32_t*>(&DefaultMasterPort)},
    Bound("_CFRelease", &Release),
    Bound("_CFStringGetCString", &StringToC),
    Bound("_CFDictionarySetValue", &DictionarySet),
    Bound("_IOServiceMatching", &ServiceMatching),
    Bound("_IOServiceGetMatchingServices", &GetMatchingServices),
    Bound("_IOIteratorNext", &IteratorNext),
    Bound("_IOObjectRelease", &ObjectRelease),
    Bound("_IORegistryEntryCreateCFProperty", &CreateProperty),
    Bound("_IOPMAssertionCreate", &AssertionCreate),
    Bound("_IOPMAssertionRelease", &AssertionRelease),
};

}  // namespace

std::span<const Shim> IOKitShims() {
  return Table;
}
