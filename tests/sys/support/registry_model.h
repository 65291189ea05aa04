// tests/sys/support/registry_model.h
// SPDX-License-Identifier: MIT
//
// A model of the registry store: strings, vectors, and the documented rules. It shares no code with
// the product and keeps the files in memory.

#ifndef TESTS_SYS_SUPPORT_REGISTRY_MODEL_H
#define TESTS_SYS_SUPPORT_REGISTRY_MODEL_H

#include <stdint.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct MODEL_ATTR {
  std::string Name;
  std::string Value;
};

struct MODEL_ELEMENT {
  std::string                                 Name;
  std::vector<MODEL_ATTR>                     Attrs;
  std::vector<std::unique_ptr<MODEL_ELEMENT>> Children;
  int                                         Depth = 0;
};

using MODEL_TREE = std::unique_ptr<MODEL_ELEMENT>;

// Null when the text cannot be loaded.
MODEL_TREE  MODEL_Parse(const std::string& Text);
std::string MODEL_Write(const MODEL_ELEMENT& Element, int Depth = 0);

// A key of the model: an element, or one of the numbers of the roots.
struct MODEL_KEY {
  uint32_t       Root     = 0;  // 0x80000000 and above, or 0 for pElement
  MODEL_ELEMENT* pElement = nullptr;
};

struct MODEL_ANSWER {
  uint32_t                Result;
  std::optional<uint32_t> Type;  // what is stored there, if anything
  std::optional<uint32_t> Size;
  std::string             Bytes;  // of the buffer, over what was in it
};

class RegistryModel {
 public:
  bool                       m_HasHome = true;
  std::optional<std::string> m_Files[3];           // none: missing
  uint32_t                   m_NumWrites[3] = {};  // how often the store has written each

  MODEL_ELEMENT* OpenKey(const MODEL_KEY& Key, const std::string& Path);
  uint32_t       SetValue(const MODEL_KEY& Key, const std::string& Name, uint32_t Type,
                          const std::optional<std::string>& Data);
  // Buffer is what the caller's buffer holds; no value means no buffer.
  MODEL_ANSWER QueryValue(const MODEL_KEY& Key, const std::string& Name,
                          const std::optional<std::string>& Buffer);
  uint32_t     DeleteValue(const MODEL_KEY& Key, const std::string& Name);
  void         Flush();

 private:
  MODEL_ELEMENT* Resolve(const MODEL_KEY& Key);
  void           WriteFile(uint32_t Root, const std::string& Text);

  MODEL_TREE  m_Trees[3];
  std::string m_Snapshots[3];
};

#endif
