// SPDX-License-Identifier: MIT

// Random sequences of commands for the store and for its model. Results, buffers and files must
// agree after every command.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/sys/support/registry_duel.h"
#include "tests/sys/support/temp_dir.h"

class SysRegistryModel : public testing::Test {
 protected:
  uint32_t Pick(uint32_t Limit) { return (uint32_t)(m_Random() % Limit); }
  bool     OneIn(uint32_t Limit) { return Pick(Limit) == 0; }

  std::string PickFrom(const std::string& Characters, uint32_t MaxLength) {
    std::string Text;
    for (uint32_t Length = Pick(MaxLength + 1); Length > 0; Length--) {
      Text += Characters[Pick((uint32_t)Characters.size())];
    }
    return Text;
  }

  std::string PickPath() {
    switch (Pick(12)) {
      case 0:
        return PickFrom("abAB19-_!.\"\\ \t\n\v\xC3", 12);
      case 1:
        return PickFrom("ab\\", 10);
      case 2:
        return std::string(OneIn(2) ? "!DOC" : "!--") + PickFrom("ab\\", 2);
      case 3:
        return OneIn(20) ? std::string(510 + Pick(4), 'k') : "a";
      case 4: {
        std::string Path = "d";
        for (uint32_t i = OneIn(20) ? 97 + Pick(6) : 3; i > 0; i--) {
          Path += "\\d";
        }
        return Path;
      }
      default:
        return std::string(1, (char)('a' + Pick(3)));
    }
  }

  std::string PickName() {
    static const char* const Tricky[] = {"N_OSTRELRegType",
                                         "N_OSTRELRegMltStr1",
                                         "N_OSTRELRegMltStr2",
                                         "N O",
                                         "\"N\"",
                                         " N ",
                                         "\"N O\"",
                                         "N.O",
                                         "N\tO",
                                         "\"",
                                         " ",
                                         "",
                                         "-N",
                                         "!N",
                                         "\xC3\xA4",
                                         "\"N",
                                         "O \"N\""};
    switch (Pick(6)) {
      case 0:
        return Tricky[Pick(sizeof(Tricky) / sizeof(Tricky[0]))];
      case 1:
        return PickFrom("NO \"\t-!._\n", 6);
      case 2:
        return OneIn(20) ? std::string(509 + Pick(5), 'n') : "N";
      default:
        return std::string(1, (char)('N' + Pick(3)));
    }
  }

  std::string PickText() {
    return OneIn(12) ? PickFrom("ab \"=<>/!-\n", 12) : PickFrom("abc<>=/&' \n\t\xFF", 10);
  }

  // A list, or something close to one.
  std::string PickList() {
    std::string Data;
    for (uint32_t i = Pick(5); i > 0; i--) {
      Data += PickFrom("abc ", 4) + '\0';
    }
    Data += '\0';
    if (OneIn(3)) {
      Data += PickFrom(std::string("a\0", 2), 2);
    }
    return Data;
  }

  // A file as another program may leave it: a store in another layout, or anything else.
  std::string PickFile() {
    static const char* const Pieces[] = {
        "<Registry>",
        "</Registry>",
        "<a>",
        "</a>",
        "<b/>",
        "<a N=\"1\"/>",
        " ",
        "\r\n",
        "<!-- c -->",
        "<!DOCTYPE x>",
        "<a N=\"x\" N_OSTRELRegType=\"SYS_REG_TYPE_SZ\">",
        "</a >",
        "<b N=\"0x1F\" N_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>",
        "\x1A",
        "text",
        "<",
        "\"",
        "<Registry N=\"1\" N=\"2\" N_OSTRELRegMltStr2=\"b\" N_OSTRELRegMltStr1=\"a\" "
        "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\">",
        "<Registry O = \"-12\"\nO_OSTRELRegType\t=\"SYS_REG_TYPE_QWORD\" P=\"p\" "
        "P_OSTRELRegType=\"SYS_REG_TYPE_EXPAND_SZ\" N=\"n\" N_OSTRELRegType=\"???\">"};
    const uint32_t NumPieces = sizeof(Pieces) / sizeof(Pieces[0]);
    std::string    Text      = OneIn(4) ? "" : Pieces[OneIn(2) ? 0 : NumPieces - 1 - Pick(2)];
    for (uint32_t i = Pick(5); i > 0; i--) {
      Text += Pieces[Pick(OneIn(3) ? NumPieces : 10)];
    }
    if (OneIn(20) && !Text.empty()) {
      Text.insert(Pick((uint32_t)Text.size()), 1, '\0');
    }
    return Text;
  }

  uint32_t PickKey() {
    if (OneIn(2)) {
      return Pick(100);
    }
    return OneIn(30) ? 0x80000003 + Pick(4) : 0x80000000 + Pick(OneIn(3) ? 3 : 1);
  }

  std::string SetValue() {
    const uint32_t    Type  = OneIn(10) ? Pick(14) : (uint32_t[]){1, 4, 7, 7, 11}[Pick(5)];
    const std::string sName = PickName();
    const std::string sData = Type == 1   ? PickText()
                              : Type == 7 ? PickList()
                                          : PickFrom("a1\xF0", 9);
    return m_Duel.SetValue(PickKey(), sName, Type, sData);
  }

  std::string Step() {
    const uint32_t Command = Pick(32);
    if (Command < 6) {
      return m_Duel.OpenKey(PickKey(), PickPath());
    }
    if (Command < 8) {
      m_Duel.CloseKey(Pick(100));
    } else if (Command < 16) {
      return SetValue();
    } else if (Command < 23) {
      const auto Capacity = OneIn(5) ? std::nullopt : std::make_optional(Pick(24));
      return m_Duel.QueryValue(PickKey(), PickName(), Capacity);
    } else if (Command < 26) {
      return m_Duel.DeleteValue(PickKey(), PickName());
    } else if (Command < 29) {
      m_Duel.Flush();
    } else if (Command < 31) {
      m_Duel.EditFile(Pick(OneIn(3) ? 3 : 1),
                      OneIn(5) ? std::nullopt : std::make_optional(PickFile()));
    } else if (!m_Duel.HasHome() || OneIn(6)) {
      m_Duel.SetHome(!m_Duel.HasHome());
    }
    return "";
  }

  void Run(uint32_t Seed) {
    m_Random.seed(Seed);
    for (uint32_t NumSteps = 4 + Pick(20); NumSteps > 0; NumSteps--) {
      ASSERT_EQ("", Step());
      ASSERT_EQ("", m_Duel.CompareFiles());
    }
    m_Duel.Flush();
    ASSERT_EQ("", m_Duel.CompareFiles());
    m_Duel.SetHome(true);
  }

  void RunMany(uint32_t FirstSeed) {
    for (uint32_t Seed = FirstSeed; Seed < FirstSeed + NUM_SEQUENCES; Seed++) {
      SCOPED_TRACE("seed " + std::to_string(Seed));
      Run(Seed);
      if (HasFatalFailure()) {
        return;
      }
      // Half of the sequences begin with the files of the one before.
      for (uint32_t Root = OneIn(2) ? 0 : 3; Root < 3; Root++) {
        m_Duel.EditFile(Root, std::nullopt);
      }
    }
  }

  TempDir      m_Home;
  std::mt19937 m_Random;
  RegistryDuel m_Duel{m_Home.Path()};
};

// One key with so many attributes that the store finds them by a table, loaded from files with gaps
// in lists and with names that are there twice, and lists of many strings.
class SysRegistryWideModel : public SysRegistryModel {
 protected:
  std::string PickWideName() {
    const std::string sName = "V" + std::to_string(Pick(30));
    return OneIn(25) ? sName + "_OSTRELRegMltStr" + std::to_string(1 + Pick(12)) : sName;
  }

  std::string PickWideList() {
    std::string sList;
    for (uint32_t i = Pick(15); i > 0; i--) {
      sList += std::string(1 + Pick(40), (char)('a' + Pick(26))) + '\0';
    }
    return (sList.empty() ? std::string(1, '\0') : sList) + '\0';
  }

  std::string PickWideFile() {
    std::string sText = "<Registry";
    for (uint32_t i = 5 + Pick(60); i > 0; i--) {
      const std::string sName = "V" + std::to_string(Pick(30));
      const std::string sType = OneIn(2) ? "MULTI_SZ" : "SZ";
      sText += " " + sName + "=\"x\" " + sName + "_OSTRELRegType=\"SYS_REG_TYPE_" + sType + "\"";
      for (uint32_t String = OneIn(4) ? 2 : 1; OneIn(2) || String == 2; String++) {
        sText += " " + sName + "_OSTRELRegMltStr" + std::to_string(String) + "=\"s\"";
      }
    }
    return sText + "/>";
  }

  std::string WideStep() {
    const uint32_t    Command = Pick(40);
    const std::string sName   = PickWideName();
    if (Command < 14) {
      return m_Duel.SetValue(0x80000000, sName, 7, PickWideList());
    }
    if (Command < 20) {
      return m_Duel.SetValue(0x80000000, sName, 1, std::string(Pick(200), 't'));
    }
    if (Command < 30) {
      return m_Duel.QueryValue(0x80000000, sName, OneIn(3) ? Pick(50) : 1000);
    }
    return Command < 39 ? m_Duel.DeleteValue(0x80000000, sName) : "";
  }
};

TEST_F(SysRegistryWideModel, RandomCommandsAgreeWithTheModel) {
  for (uint32_t Seed = 1; Seed <= NUM_SEQUENCES / 150; Seed++) {
    SCOPED_TRACE("seed " + std::to_string(Seed));
    m_Random.seed(Seed);
    m_Duel.EditFile(0, OneIn(4) ? std::nullopt : std::make_optional(PickWideFile()));
    for (int i = 0; i < 400; i++) {
      ASSERT_EQ("", WideStep());
      if (OneIn(40)) {
        m_Duel.Flush();
        ASSERT_EQ("", m_Duel.CompareFiles());
      }
    }
    m_Duel.Flush();
    ASSERT_EQ("", m_Duel.CompareFiles());
  }
}

// Four tests, so that they can run side by side; NUM_SEQUENCES sequences each, see CMakeLists.txt.
TEST_F(SysRegistryModel, RandomCommandsAgreeWithTheModel1) {
  RunMany(10000);
}
TEST_F(SysRegistryModel, RandomCommandsAgreeWithTheModel2) {
  RunMany(20000);
}
TEST_F(SysRegistryModel, RandomCommandsAgreeWithTheModel3) {
  RunMany(30000);
}
TEST_F(SysRegistryModel, RandomCommandsAgreeWithTheModel4) {
  RunMany(40000);
}
