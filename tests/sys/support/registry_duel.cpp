// SPDX-License-Identifier: MIT

#include "tests/sys/support/registry_duel.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <filesystem>

#include "tests/sys/support/temp_dir.h"

static const uint32_t NO_TYPE  = 0xAAAAAAAA;  // nothing was stored
static const time_t   OLD_TIME = 1000000;     // long before any test

static std::string Differ(const std::string& sWhat, uint32_t Want, uint32_t Is) {
  return Want == Is ? "" : sWhat + ": " + std::to_string(Is) + ", not " + std::to_string(Want);
}

RegistryDuel::RegistryDuel(const std::string& sHome) : m_sHome(sHome) {
  SetHome(true);
  std::filesystem::create_directories(std::filesystem::path(Path(0)).parent_path());
  for (uint32_t Root = 0; Root < 3; Root++) {
    EditFile(Root, std::nullopt);
  }
}

std::string RegistryDuel::Path(uint32_t Root) const {
  static const char* const Names[] = {"CLASSES_ROOT", "CURRENT_USER", "LOCAL_MACHINE"};
  return m_sHome + "/Library/Application Support/OSTREL/OSTREL_REG_HKEY_" + Names[Root] + ".xml";
}

RegistryDuel::KEY RegistryDuel::Find(uint32_t Key) const {
  if (Key < 0x80000000 && !m_Open.empty()) {
    return m_Open[Key % m_Open.size()];
  }
  const uint32_t Root = Key < 0x80000000 ? 0x80000000 : Key;
  return {reinterpret_cast<RegistryKeyHandle*>(static_cast<uintptr_t>(Root)), {Root, nullptr}};
}

std::string RegistryDuel::OpenKey(uint32_t Key, const std::string& sPath) {
  const KEY                Base  = Find(Key);
  RegistryKeyHandle* const hKey  = SYS_REG_OpenKey(Base.hKey, sPath.c_str());
  MODEL_ELEMENT* const     pWant = m_Model.OpenKey(Base.Key, sPath);
  if (hKey == nullptr || pWant == nullptr) {
    SYS_REG_CloseKey(hKey);
    return Differ("open " + sPath, pWant != nullptr, hKey != nullptr);
  }
  m_Open.push_back({hKey, {0, pWant}});
  const std::string sName = hKey->pElement->sName;
  return sName == pWant->Name ? "" : "open " + sPath + ": " + sName + ", not " + pWant->Name;
}

void RegistryDuel::CloseKey(uint32_t Key) {
  if (!m_Open.empty()) {
    const size_t Index = Key % m_Open.size();
    SYS_REG_CloseKey(m_Open[Index].hKey);
    m_Open.erase(m_Open.begin() + (ptrdiff_t)Index);
  }
}

std::string RegistryDuel::SetValue(uint32_t Key, const std::string& sName, uint32_t Type,
                                   const std::string& sData) {
  const KEY Base = Find(Key);
  return Differ(
      "set " + sName + " type " + std::to_string(Type) + " to " + sData,
      m_Model.SetValue(Base.Key, sName, Type, sData),
      SYS_REG_SetValue(Base.hKey, sName.c_str(), Type, sData.c_str(), (uint32_t)sData.size()));
}

std::string RegistryDuel::QueryValue(uint32_t Key, const std::string& sName,
                                     std::optional<uint32_t> Capacity) {
  const KEY          Base  = Find(Key);
  const uint32_t     Room  = Capacity.value_or(0);
  uint32_t           Type  = NO_TYPE;
  uint32_t           Size  = Room;
  std::string        sInto = std::string(Room + 16, '#');
  const MODEL_ANSWER Want  = m_Model.QueryValue(
       Base.Key, sName,
      Capacity.has_value() ? std::make_optional(std::string(Room, '#')) : std::nullopt);
  const uint32_t Result =
      Capacity.has_value() ? SYS_REG_QueryValue(Base.hKey, sName.c_str(), &Type, &sInto[0], &Size)
                           : SYS_REG_QueryValue(Base.hKey, sName.c_str(), &Type, nullptr, nullptr);
  const std::string sWhat       = "query " + sName + " into " + std::to_string(Room);
  std::string       sDifference = Differ(sWhat + ": result", Want.Result, Result) +
                            Differ(sWhat + ": type", Want.Type.value_or(NO_TYPE), Type) +
                            Differ(sWhat + ": size", Want.Size.value_or(Room), Size);
  if (sInto != Want.Bytes + std::string(16, '#')) {
    sDifference += sWhat + ": bytes: " + sInto + ", not " + Want.Bytes;
  }
  return sDifference;
}

std::string RegistryDuel::DeleteValue(uint32_t Key, const std::string& sName) {
  const KEY Base = Find(Key);
  return Differ("delete " + sName, m_Model.DeleteValue(Base.Key, sName),
                SYS_REG_DeleteValue(Base.hKey, sName.c_str()));
}

void RegistryDuel::Flush() {
  SYS_REG_Flush();
  m_Model.Flush();
  for (const KEY& Key : m_Open) {
    SYS_REG_CloseKey(Key.hKey);
  }
  m_Open.clear();
}

static void SetTimeBack(const std::string& sPath) {
  const struct timeval Times[2] = {{OLD_TIME, 0}, {OLD_TIME, 0}};
  utimes(sPath.c_str(), Times);
}

std::string RegistryDuel::CompareFile(uint32_t Root) {
  const std::string sPath = Path(Root);
  SEEN&             Seen  = m_Seen[Root];
  struct stat       Status;
  bool              IsWritten = false;
  if (stat(sPath.c_str(), &Status) != 0) {
    Seen.Text.reset();
  } else if (Status.st_mtime != OLD_TIME) {
    IsWritten = true;
    Seen.Text = ReadFile(sPath);
    SetTimeBack(sPath);
  }
  const auto&    Want        = m_Model.m_Files[Root];
  const uint32_t NumWrites   = m_Model.m_NumWrites[Root];
  std::string    sDifference = Differ(sPath + ": there", Want.has_value(), Seen.Text.has_value()) +
                            Differ(sPath + ": written", NumWrites != Seen.NumWrites, IsWritten);
  if (Want.value_or("") != Seen.Text.value_or("")) {
    sDifference += sPath + ": " + Seen.Text.value_or("") + ", not " + Want.value_or("");
  }
  Seen.NumWrites = NumWrites;
  return sDifference;
}

std::string RegistryDuel::CompareFiles() {
  return CompareFile(0) + CompareFile(1) + CompareFile(2);
}

void RegistryDuel::EditFile(uint32_t Root, const std::optional<std::string>& sText) {
  m_Model.m_Files[Root] = sText;
  m_Seen[Root].Text     = sText;
  if (sText.has_value()) {
    WriteFile(Path(Root), *sText);
    SetTimeBack(Path(Root));
  } else {
    std::filesystem::remove(Path(Root));
  }
}

void RegistryDuel::SetHome(bool IsSet) {
  m_Model.m_HasHome = IsSet;
  IsSet ? setenv("HOME", m_sHome.c_str(), 1) : unsetenv("HOME");
}
