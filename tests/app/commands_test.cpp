// SPDX-License-Identifier: MIT

// docs/commands.tsv, from which man page, completions and README take the tool's options and families.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "app/family.h"
#include "app/options.h"

// The names and values of the tool's rows of a kind, in the order of the file.
static std::vector<std::pair<std::string, std::string>> Rows(const std::string& sKind) {
  std::vector<std::pair<std::string, std::string>> Result;
  std::ifstream                                    File(COMMANDS_TSV);
  for (std::string sLine; std::getline(File, sLine);) {
    std::istringstream Line(sLine);
    std::string        sCommand;
    std::string        sFound;
    std::string        sName;
    std::string        sValue;
    std::getline(Line, sCommand, '\t');
    std::getline(Line, sFound, '\t');
    std::getline(Line, sName, '\t');
    std::getline(Line, sValue, '\t');
    if (sCommand == "quobe-unlock" && sFound == sKind) {
      Result.emplace_back(sName, sValue);
    }
  }
  return Result;
}

TEST(AppCommands, TheDocumentsListTheToolsOptionsInItsOrder) {
  const auto Listed = Rows("option");
  ASSERT_EQ(6u, Listed.size());
  for (size_t i = 0; i < Listed.size(); i++) {
    EXPECT_STREQ(OptionTable[i].Option, Listed[i].first.c_str());
  }
  EXPECT_EQ(nullptr, OptionTable[Listed.size()].Option);
}

TEST(AppCommands, TheDocumentsListTheToolsFamiliesByMenuNumber) {
  const auto Listed = Rows("family");
  ASSERT_EQ(FAMILY_ROWS - 1, Listed.size());
  for (uint32_t i = 1; i < FAMILY_ROWS; i++) {
    EXPECT_EQ(FamilyTable[i].Name, Listed[i - 1].first);
    EXPECT_EQ(std::to_string(i), Listed[i - 1].second);
  }
}
