// tests/sys/support/registry_duel.h
// SPDX-License-Identifier: MIT
//
// The registry store and its model side by side: each command goes to both, and a difference is
// reported as text.

#ifndef TESTS_SYS_SUPPORT_REGISTRY_DUEL_H
#define TESTS_SYS_SUPPORT_REGISTRY_DUEL_H

#include <optional>
#include <string>
#include <vector>

#include "sys/registry.h"
#include "tests/sys/support/registry_model.h"

// Keys are numbers: 0x80000000 and above is a root, any other number is one of the open keys
// (modulo their number), or the first root if no key is open. Each command returns the difference
// between the two, empty when they agree.
class RegistryDuel {
 public:
  // Sets HOME to sHome, in which the files are.
  explicit RegistryDuel(const std::string& sHome);
  ~RegistryDuel() { Flush(); }
  RegistryDuel(const RegistryDuel&)            = delete;
  RegistryDuel& operator=(const RegistryDuel&) = delete;

  std::string OpenKey(uint32_t Key, const std::string& sPath);
  void        CloseKey(uint32_t Key);
  std::string SetValue(uint32_t Key, const std::string& sName, uint32_t Type,
                       const std::string& sData);
  // Capacity of the caller's buffer; without one only the type is queried.
  std::string QueryValue(uint32_t Key, const std::string& sName, std::optional<uint32_t> Capacity);
  std::string DeleteValue(uint32_t Key, const std::string& sName);
  void        Flush();  // closes all keys

  // Checks that each file holds the expected text and was written since the last check only if it
  // should have been. Fast enough for every command: an unwritten file is not read again.
  std::string CompareFiles();

  // Changes a root's file (0 to 2) as another program would; no text removes it.
  void EditFile(uint32_t Root, const std::optional<std::string>& sText);
  // Sets or unsets HOME.
  void SetHome(bool IsSet);
  bool HasHome() const { return m_Model.m_HasHome; }

 private:
  struct KEY {
    RegistryKeyHandle* hKey;
    MODEL_KEY          Key;
  };
  // The last state of a file. Its time is set back afterwards, so that the next write shows.
  struct SEEN {
    std::optional<std::string> Text;  // none: missing
    uint32_t                   NumWrites = 0;
  };
  KEY         Find(uint32_t Key) const;
  std::string Path(uint32_t Root) const;
  std::string CompareFile(uint32_t Root);

  std::string      m_sHome;
  RegistryModel    m_Model;
  std::vector<KEY> m_Open;
  SEEN             m_Seen[3];
};

#endif
