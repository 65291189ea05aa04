// SPDX-License-Identifier: MIT

// What the built executable exports.

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <set>
#include <string>

static const char* const Names[] = {
#define FORWARD(Name) #Name,
#include "probeapi/names.inc"
#undef FORWARD
};

// The defined dynamic symbols, as nm lists them.
static std::set<std::string> ExportedSymbols() {
#if defined(__APPLE__)  // nm's options differ
  const std::string Command = "nm -gjU '" QUOBE_TOOL_PATH "'";
  const char*       sPrefix = "_";
#else
  const std::string Command = "nm -D --defined-only --format=just-symbols '" QUOBE_TOOL_PATH "'";
  const char*       sPrefix = "";
#endif
  std::set<std::string> Symbols;
  FILE*                 pOutput = popen(Command.c_str(), "r");
  char                  acLine[512];
  while (pOutput != nullptr && fgets(acLine, sizeof(acLine), pOutput) != nullptr) {
    acLine[strcspn(acLine, "\n")] = 0;
    const size_t Skip = strncmp(acLine, sPrefix, strlen(sPrefix)) == 0 ? strlen(sPrefix) : 0;
    Symbols.insert(acLine + Skip);
  }
  if (pOutput != nullptr) {
    pclose(pOutput);
  }
  // The linker's label for the file header. Apple's linker always exports it.
  Symbols.erase("_mh_execute_header");
  return Symbols;
}

TEST(Exports, AreThe631ProbeFunctionsAndNothingElse) {
  const std::set<std::string> Wanted(std::begin(Names), std::end(Names));
  EXPECT_EQ(631u, Wanted.size());
  EXPECT_EQ(Wanted, ExportedSymbols());
}

TEST(Exports, ListHas337And294NamesOf19With64) {
  int NumQuobe = 0, NumArm = 0, Num64 = 0;
  for (const std::string Name : Names) {
    NumQuobe += Name.rfind("QUOBE_", 0) == 0;
    NumArm += Name.rfind("QUOBEARM_", 0) == 0;
    Num64 +=
        Name.rfind("QUOBE_", 0) == 0 && Name.size() > 3 && Name.substr(Name.size() - 3) == "_64";
  }
  EXPECT_EQ(337, NumQuobe);
  EXPECT_EQ(294, NumArm);
  EXPECT_EQ(19, Num64);
}

// Everything else is made from the list, so a misspelt name would agree with itself. This number is
// typed: FNV-1a of the sorted names, a line feed after each.
TEST(Exports, NoNameOfTheListIsMisspelt) {
  uint64_t Hash = 0xCBF29CE484222325;
  for (const std::string& Name : std::set<std::string>(std::begin(Names), std::end(Names))) {
    for (const char c : Name + "\n") {
      Hash = (Hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    }
  }
  EXPECT_EQ(0xC01A24850B139001, Hash);
}
