// tests/sys/support/registry_calls.h
// SPDX-License-Identifier: MIT
//
// The operations of the registry store as its tests call them, each test in its own home directory.

#ifndef TESTS_SYS_SUPPORT_REGISTRY_CALLS_H
#define TESTS_SYS_SUPPORT_REGISTRY_CALLS_H

#include <string>

#include "tests/sys/support/registry_home.h"

inline RegistryKeyHandle* Root(uint32_t Value) {
  return reinterpret_cast<RegistryKeyHandle*>(static_cast<uintptr_t>(Value));
}

inline RegistryKeyHandle* const USER = Root(0x80000001);

inline const std::string EMPTY_FILE = "<Registry>\r\n</Registry>";

class SysRegistry : public RegistryHome {
 protected:
  uint32_t SetText(const char* sName, const char* sText, RegistryKeyHandle* hKey = USER) {
    return SYS_REG_SetValue(hKey, sName, 1, sText, 0);
  }
  uint32_t SetDword(const char* sName, uint32_t Value, RegistryKeyHandle* hKey = USER) {
    return SYS_REG_SetValue(hKey, sName, 4, &Value, 4);
  }
  uint32_t SetBytes(const char* sName, uint32_t Type, const std::string& sBytes) {
    return SYS_REG_SetValue(USER, sName, Type, sBytes.data(), (uint32_t)sBytes.size());
  }

  // Queries with that capacity: result, type, size, and the bytes in a buffer that was full of '#'.
  // Nothing may be written beyond the capacity.
  struct Answer {
    uint32_t    Result;
    uint32_t    Type;
    uint32_t    Size;
    std::string Bytes;
  };
  Answer Query(const char* sName, uint32_t Capacity, RegistryKeyHandle* hKey = USER) {
    std::string sBuffer(Capacity + 32, '#');
    Answer      A = {0, 0xAAAAAAAA, Capacity, ""};
    A.Result      = SYS_REG_QueryValue(hKey, sName, &A.Type, sBuffer.data(), &A.Size);
    EXPECT_EQ(std::string(32, '#'), sBuffer.substr(Capacity)) << sName << " " << Capacity;
    A.Bytes = sBuffer.substr(0, Capacity);
    return A;
  }
  // Returns the text of a value; empty if the value does not exist.
  std::string Text(const char* sName, RegistryKeyHandle* hKey = USER) {
    char     acText[600] = "";
    uint32_t Size        = sizeof(acText);
    SYS_REG_QueryValue(hKey, sName, nullptr, acText, &Size);
    return acText;
  }
  uint32_t TypeOnly(const char* sName, uint32_t* pType = nullptr, RegistryKeyHandle* hKey = USER) {
    return SYS_REG_QueryValue(hKey, sName, pType, nullptr, nullptr);
  }
};

#endif
