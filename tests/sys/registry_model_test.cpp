// Random sequences of commands, given to the store and to the model of it; results, buffers and
// files have to agree after every command.

#include "tests/sys/registry_model.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "sys/registry.h"
#include "tests/sys/registry_home.h"

static const char* const ROOT_NAMES[] = {"CLASSES_ROOT", "CURRENT_USER", "LOCAL_MACHINE"};

class SysRegistryModel : public RegistryHome {
 protected:
  struct OPEN_KEY {
    RegistryKeyHandle* hKey;
    MODEL_KEY          Key;
  };

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

  // A list, or something that is not quite one.
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

  // A file as somebody else may leave it: a store in other clothes, or anything.
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

  OPEN_KEY PickKey() {
    if (!m_OpenKeys.empty() && OneIn(2)) {
      return m_OpenKeys[Pick((uint32_t)m_OpenKeys.size())];
    }
    const uint32_t Root = OneIn(30) ? 0x80000003 + Pick(4) : 0x80000000 + Pick(OneIn(3) ? 3 : 1);
    return {reinterpret_cast<RegistryKeyHandle*>(static_cast<uintptr_t>(Root)), {Root, nullptr}};
  }

  void OpenKey() {
    const OPEN_KEY           Base  = PickKey();
    const std::string        Path  = PickPath();
    RegistryKeyHandle* const hKey  = SYS_REG_OpenKey(Base.hKey, Path.c_str());
    MODEL_ELEMENT* const     pWant = m_Model.OpenKey(Base.Key, Path);
    ASSERT_EQ(pWant != nullptr, hKey != nullptr) << "open " << Path;
    if (hKey != nullptr) {
      ASSERT_EQ(pWant->Name, hKey->pElement->sName);
      m_OpenKeys.push_back({hKey, {0, pWant}});
    }
  }

  void CloseKey() {
    if (!m_OpenKeys.empty()) {
      const size_t Index = Pick((uint32_t)m_OpenKeys.size());
      SYS_REG_CloseKey(m_OpenKeys[Index].hKey);
      m_OpenKeys.erase(m_OpenKeys.begin() + (ptrdiff_t)Index);
    }
  }

  void SetValue() {
    const OPEN_KEY    Key  = PickKey();
    const std::string Name = PickName();
    const uint32_t    Type = OneIn(10) ? Pick(14) : (uint32_t[]){1, 4, 7, 7, 11}[Pick(5)];
    std::string Data = Type == 1 ? PickText() : Type == 7 ? PickList() : PickFrom("a1\xF0", 9);
    ASSERT_EQ(m_Model.SetValue(Key.Key, Name, Type, Data),
              SYS_REG_SetValue(Key.hKey, Name.c_str(), Type, Data.c_str(), (uint32_t)Data.size()))
        << "set " << Name << " " << Type << " " << Data;
  }

  void QueryValue() {
    const OPEN_KEY    Key  = PickKey();
    const std::string Name = PickName();
    uint32_t          Type = 0xAAAAAAAA;
    if (OneIn(5)) {
      const MODEL_ANSWER Want = m_Model.QueryValue(Key.Key, Name, std::nullopt);
      ASSERT_EQ(Want.Result, SYS_REG_QueryValue(Key.hKey, Name.c_str(), &Type, nullptr, nullptr))
          << "query " << Name;
      ASSERT_EQ(Want.Type.value_or(0xAAAAAAAA), Type);
      return;
    }
    const uint32_t     Capacity = Pick(24);
    const MODEL_ANSWER Want     = m_Model.QueryValue(Key.Key, Name, std::string(Capacity, '#'));
    std::string        Buffer(Capacity + 16, '#');
    uint32_t           Size = Capacity;
    ASSERT_EQ(Want.Result, SYS_REG_QueryValue(Key.hKey, Name.c_str(), OneIn(4) ? nullptr : &Type,
                                              &Buffer[0], &Size))
        << "query " << Name << " " << Capacity;
    if (Type != 0xAAAAAAAA) {
      ASSERT_EQ(Want.Type, Type) << "query " << Name;
    }
    ASSERT_EQ(Want.Size.value_or(Capacity), Size) << "query " << Name << " " << Capacity;
    ASSERT_EQ(Want.Bytes + std::string(16, '#'), Buffer) << "query " << Name << " " << Capacity;
  }

  void DeleteValue() {
    const OPEN_KEY    Key  = PickKey();
    const std::string Name = PickName();
    ASSERT_EQ(m_Model.DeleteValue(Key.Key, Name), SYS_REG_DeleteValue(Key.hKey, Name.c_str()))
        << "delete " << Name;
  }

  void Flush() {
    SYS_REG_Flush();
    m_Model.Flush();
    for (const OPEN_KEY& Key : m_OpenKeys) {
      SYS_REG_CloseKey(Key.hKey);
    }
    m_OpenKeys.clear();
  }

  void EditFile() {
    const uint32_t Root = Pick(OneIn(3) ? 3 : 1);
    if (OneIn(5)) {
      std::filesystem::remove(Path(ROOT_NAMES[Root]));
      m_Model.m_Files[Root].reset();
    } else {
      m_Model.m_Files[Root] = PickFile();
      WriteFile(Path(ROOT_NAMES[Root]), *m_Model.m_Files[Root]);
    }
  }

  void ToggleHome() {
    m_Model.m_HasHome = !m_Model.m_HasHome;
    m_Model.m_HasHome ? setenv("HOME", m_Home.Path().c_str(), 1) : unsetenv("HOME");
  }

  void Step() {
    const uint32_t Command = Pick(32);
    if (Command < 6) {
      OpenKey();
    } else if (Command < 8) {
      CloseKey();
    } else if (Command < 16) {
      SetValue();
    } else if (Command < 23) {
      QueryValue();
    } else if (Command < 26) {
      DeleteValue();
    } else if (Command < 29) {
      Flush();
    } else if (Command < 31) {
      EditFile();
    } else if (!m_Model.m_HasHome || OneIn(6)) {
      ToggleHome();
    }
  }

  void CheckFiles() {
    for (int Root = 0; Root < 3; Root++) {
      ASSERT_EQ(m_Model.m_Files[Root].has_value(), HasFile(ROOT_NAMES[Root])) << Root;
      ASSERT_EQ(m_Model.m_Files[Root].value_or(""), File(ROOT_NAMES[Root])) << Root;
    }
  }

  void Run(uint32_t Seed) {
    m_Random.seed(Seed);
    for (uint32_t NumSteps = 4 + Pick(20); NumSteps > 0; NumSteps--) {
      Step();
      if (HasFatalFailure()) {
        return;
      }
    }
    Flush();
    CheckFiles();
    if (!m_Model.m_HasHome) {
      ToggleHome();
    }
  }

  void RunMany(uint32_t FirstSeed) {
    std::filesystem::create_directories(Dir());
    for (uint32_t Seed = FirstSeed; Seed < FirstSeed + NUM_SEQUENCES; Seed++) {
      SCOPED_TRACE("seed " + std::to_string(Seed));
      Run(Seed);
      if (HasFatalFailure()) {
        return;
      }
      if (OneIn(2)) {  // half of the sequences begin with what the one before has left
        for (int Root = 0; Root < 3; Root++) {
          std::filesystem::remove(Path(ROOT_NAMES[Root]));
          m_Model.m_Files[Root].reset();
        }
      }
    }
  }

  std::mt19937          m_Random;
  RegistryModel         m_Model;
  std::vector<OPEN_KEY> m_OpenKeys;
};

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
