// tests/sys/support/registry_home.h
// SPDX-License-Identifier: MIT
//
// A home directory for one test of the registry store, and the contents of its files.

#ifndef TESTS_SYS_SUPPORT_REGISTRY_HOME_H
#define TESTS_SYS_SUPPORT_REGISTRY_HOME_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "sys/registry.h"
#include "tests/sys/support/temp_dir.h"

class RegistryHome : public testing::Test {
 protected:
  void SetUp() override { setenv("HOME", m_Home.Path().c_str(), 1); }
  void TearDown() override { SYS_REG_Flush(); }

  std::string Dir() const { return m_Home.Path("Library/Application Support/OSTREL"); }
  // The path of a root's file, by its name without "HKEY_".
  std::string Path(const std::string& sRoot = "CURRENT_USER") const {
    return Dir() + "/OSTREL_REG_HKEY_" + sRoot + ".xml";
  }
  std::string File(const std::string& sRoot = "CURRENT_USER") const {
    return ReadFile(Path(sRoot));
  }
  bool HasFile(const std::string& sRoot = "CURRENT_USER") const {
    return std::filesystem::exists(Path(sRoot));
  }
  // Puts a file in place before its root is loaded.
  void Provide(const std::string& sText, const std::string& sRoot = "CURRENT_USER") const {
    std::filesystem::create_directories(Dir());
    WriteFile(Path(sRoot), sText);
  }
  // Flushes and returns the file's text.
  std::string Flushed(const std::string& sRoot = "CURRENT_USER") const {
    SYS_REG_Flush();
    return File(sRoot);
  }

  TempDir m_Home;
};

#endif
