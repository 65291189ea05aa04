// SPDX-License-Identifier: MIT

#include "tests/sys/support/registry_model.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

static const char WHITE[] = " \t\r\n";

static bool IsNameChar(char c) {
  return ((unsigned char)c < 0x80 && isalnum((unsigned char)c) != 0) || c == '_' || c == '!' ||
         c == '-';
}

// ---- Text ---------------------------------------------------------------------------------------

// Reads text from its beginning on.
struct TEXT {
  std::string Rest;

  bool Begins(const std::string& s) const { return Rest.rfind(s, 0) == 0; }
  bool Take(const std::string& s) {
    const bool Is = Begins(s);
    if (Is) {
      Rest.erase(0, s.size());
    }
    return Is;
  }
  void SkipWhite() { Rest.erase(0, std::min(Rest.find_first_not_of(WHITE), Rest.size())); }
  void SkipBehind(const std::string& s) {
    const size_t Pos = Rest.find(s);
    Rest.erase(0, Pos == std::string::npos ? Pos : Pos + s.size());
  }
  std::string TakeName() {
    const auto        End  = std::find_if_not(Rest.begin(), Rest.end(), IsNameChar);
    const std::string Name = std::string(Rest.begin(), End);
    Rest.erase(Rest.begin(), End);
    return Name;
  }
};

static bool ParseAttrs(TEXT* pText, MODEL_ELEMENT* pElement) {
  for (;;) {
    pText->SkipWhite();
    if (pText->Begins("/") || pText->Begins(">")) {
      return true;
    }
    MODEL_ATTR Attr;
    Attr.Name = pText->TakeName();
    pText->SkipWhite();
    if (Attr.Name.empty() || !pText->Take("=")) {
      return false;
    }
    pText->SkipWhite();
    const size_t End = pText->Take("\"") ? pText->Rest.find('"') : std::string::npos;
    if (End == std::string::npos) {
      return false;
    }
    Attr.Value = pText->Rest.substr(0, End);
    pText->Rest.erase(0, End + 1);
    pElement->Attrs.push_back(Attr);
  }
}

MODEL_TREE MODEL_Parse(const std::string& All) {
  TEXT                        Text = {All.substr(0, All.find('\0'))};
  MODEL_TREE                  Root;
  std::vector<MODEL_ELEMENT*> Open;
  for (;;) {
    Text.SkipWhite();
    if (Text.Rest.empty() || (Text.Rest[0] >= 0x0B && Text.Rest[0] <= 0x1F)) {
      return Root;
    }
    if (Text.Take("<!--")) {
      Text.SkipBehind("-->");
    } else if (Text.Take("<!DOC")) {
      Text.SkipBehind(">");
    } else if (Text.Take("</")) {
      const std::string Name = Text.TakeName();
      Text.SkipWhite();
      if (Open.empty() || Name != Open.back()->Name || !Text.Take(">")) {
        return nullptr;
      }
      Open.pop_back();
    } else {
      MODEL_TREE Element = std::make_unique<MODEL_ELEMENT>();
      if (!Text.Take("<")) {
        return nullptr;
      }
      Element->Name  = Text.TakeName();
      Element->Depth = (int)Open.size();
      if (Element->Name.empty() || !ParseAttrs(&Text, Element.get())) {
        return nullptr;
      }
      MODEL_ELEMENT* pElement = Element.get();
      if (Open.empty()) {
        Root = std::move(Element);
      } else {
        Open.back()->Children.push_back(std::move(Element));
      }
      if (Text.Take("/>")) {
        continue;
      }
      Open.push_back(pElement);
      if (!Text.Take(">") || Open.size() > 100) {
        return nullptr;
      }
    }
  }
}

std::string MODEL_Write(const MODEL_ELEMENT& Element, int Depth) {
  const std::string Indent((size_t)Depth * 2, ' ');
  std::string       Text = Indent + "<" + Element.Name;
  for (const MODEL_ATTR& Attr : Element.Attrs) {
    Text += " " + Attr.Name + "=\"" + Attr.Value + "\"";
  }
  if (Element.Children.empty()) {
    return Text + "/>\r\n";
  }
  Text += ">\r\n";
  for (const auto& Child : Element.Children) {
    Text += MODEL_Write(*Child, Depth + 1);
  }
  return Text + Indent + "</" + Element.Name + ">\r\n";
}

// ---- Attributes ---------------------------------------------------------------------------------

static std::string* Find(MODEL_ELEMENT* pElement, const std::string& Name) {
  for (MODEL_ATTR& Attr : pElement->Attrs) {
    if (Attr.Name == Name) {
      return &Attr.Value;
    }
  }
  return nullptr;
}

static void Put(MODEL_ELEMENT* pElement, const std::string& Name, const std::string& Value) {
  std::string* pValue = Find(pElement, Name);
  if (pValue != nullptr) {
    *pValue = Value;
  } else {
    pElement->Attrs.push_back({Name, Value});
  }
}

static bool RemoveFirst(MODEL_ELEMENT* pElement, const std::string& Name) {
  auto& Attrs = pElement->Attrs;
  for (auto It = Attrs.begin(); It != Attrs.end(); ++It) {
    if (It->Name == Name) {
      Attrs.erase(It);
      return true;
    }
  }
  return false;
}

static std::string StringName(const std::string& Name, int Index) {
  return Name + "_OSTRELRegMltStr" + std::to_string(Index);
}

// ---- Names --------------------------------------------------------------------------------------

static std::string ReadName(const std::string& Text) {
  std::string Name;
  size_t      Pos = 0;
  do {
    Pos = Text.find_first_not_of(WHITE, Pos);
    if (Pos == std::string::npos) {
      return Name;
    }
    if (Text[Pos] == '"') {
      const size_t End = std::min(Text.find('"', Pos + 1), Text.size());
      Name += Text.substr(Pos + 1, End - Pos - 1);
      Pos = End + 1;
    } else {
      const size_t End = std::min(Text.find_first_of(WHITE, Pos), Text.size());
      Name += Text.substr(Pos, End - Pos);
      Pos = End;
    }
  } while (Pos < Text.size() && Text[Pos] == ' ');
  return Name;
}

// The components of a path up to its end. No value when one of them cannot be a key.
static std::optional<std::vector<std::string>> ReadPath(const std::string& Path) {
  std::vector<std::string> Names;
  size_t                   Pos = 0;
  while (Pos < Path.size()) {
    const size_t End = std::min(Path.find('\\', Pos), Path.size());
    std::string  Name;
    for (const char c : Path.substr(Pos, End - Pos)) {
      if (std::string(WHITE).find(c) == std::string::npos) {
        Name += c;
      }
    }
    if (Name.size() > 511) {
      return std::nullopt;
    }
    if (Name.empty()) {
      return Names;
    }
    if (Name[0] == '-') {
      Name[0] = '_';
    }
    std::replace_if(
        Name.begin(), Name.end(), [](char c) { return !IsNameChar(c); }, '_');
    if (Name.rfind("!--", 0) == 0 || Name.rfind("!DOC", 0) == 0) {
      return std::nullopt;
    }
    Names.push_back(Name);
    Pos = End + 1;
  }
  return Names;
}

// ---- The store ----------------------------------------------------------------------------------

void RegistryModel::WriteFile(uint32_t Root, const std::string& Text) {
  m_Files[Root] = Text;
  m_NumWrites[Root]++;
}

MODEL_ELEMENT* RegistryModel::Resolve(const MODEL_KEY& Key) {
  if (Key.Root == 0) {
    return Key.pElement;
  }
  if (Key.Root > 0x80000002 || !m_HasHome) {
    return nullptr;
  }
  const uint32_t Root = Key.Root - 0x80000000;
  if (m_Trees[Root] == nullptr) {
    m_Trees[Root] = m_Files[Root].has_value() ? MODEL_Parse(*m_Files[Root]) : nullptr;
    if (m_Trees[Root] == nullptr) {
      WriteFile(Root, "<Registry>\r\n</Registry>");
      m_Trees[Root] = MODEL_Parse("<Registry/>");
    }
    m_Snapshots[Root] = MODEL_Write(*m_Trees[Root]);
  }
  return m_Trees[Root].get();
}

MODEL_ELEMENT* RegistryModel::OpenKey(const MODEL_KEY& Key, const std::string& Path) {
  MODEL_ELEMENT* pElement = Resolve(Key);
  const auto     Names    = ReadPath(Path);
  if (pElement == nullptr || !Names.has_value() || pElement->Depth + (int)Names->size() > 100) {
    return nullptr;
  }
  for (const std::string& Name : *Names) {
    auto&      Children = pElement->Children;
    const auto Found    = std::find_if(Children.begin(), Children.end(),
                                       [&](const auto& Child) { return Child->Name == Name; });
    if (Found != Children.end()) {
      pElement = Found->get();
      continue;
    }
    Children.push_back(std::make_unique<MODEL_ELEMENT>());
    Children.back()->Name  = Name;
    Children.back()->Depth = pElement->Depth + 1;
    pElement               = Children.back().get();
  }
  return pElement;
}

static std::string Hex(const std::string& Data, size_t NumBytes) {
  std::string Digits;
  for (size_t i = NumBytes; i-- > 0;) {
    char acByte[3];
    snprintf(acByte, sizeof(acByte), "%02X", i < Data.size() ? (uint8_t)Data[i] : 0);
    Digits += acByte;
  }
  return "0x" + Digits;
}

// The strings of a list. No value when the data is not exactly one list.
static std::optional<std::vector<std::string>> ReadList(const std::string& Data) {
  std::vector<std::string> Strings;
  size_t                   Pos = 0;
  do {
    const size_t End = Data.find('\0', Pos);
    if (End == std::string::npos) {
      return std::nullopt;
    }
    Strings.push_back(Data.substr(Pos, End - Pos));
    Pos = End + 1;
  } while (Pos < Data.size() && Data[Pos] != 0);
  if (Pos + 1 != Data.size()) {
    return std::nullopt;
  }
  return Strings;
}

uint32_t RegistryModel::SetValue(const MODEL_KEY& Key, const std::string& NameText, uint32_t Type,
                                 const std::optional<std::string>& Data) {
  MODEL_ELEMENT* pElement = NameText.empty() ? nullptr : Resolve(Key);
  if (pElement == nullptr) {
    return 1;
  }
  const std::string Name = ReadName(NameText);
  if (Name.empty()) {
    return 0;
  }
  if (Name.size() > 511 || !std::all_of(Name.begin(), Name.end(), IsNameChar)) {
    return 1;
  }
  const std::string TypeName = Name + "_OSTRELRegType";
  const std::string Bytes    = Data.value_or("");
  if (Type == 1) {
    Put(pElement, Name, Bytes.substr(0, Bytes.find('\0')));
    Put(pElement, TypeName, "SYS_REG_TYPE_SZ");
  } else if (Type == 4) {
    Put(pElement, Name, Hex(Bytes, 4));
    Put(pElement, TypeName, "SYS_REG_TYPE_DWORD");
  } else if (Type == 11) {
    Put(pElement, Name, Hex(Bytes, 8));
    Put(pElement, TypeName, "SYS_REG_TYPE_QWORD");
  } else if (Type == 7) {
    const auto Strings = ReadList(Bytes);
    if (!Strings.has_value()) {
      return 1;
    }
    while (RemoveFirst(pElement, Name)) {
    }
    while (RemoveFirst(pElement, TypeName)) {
    }
    for (int i = 1; i < 30; i++) {  // longer than any list here
      while (RemoveFirst(pElement, StringName(Name, i))) {
      }
    }
    Put(pElement, Name, (*Strings)[0]);
    for (size_t i = 1; i < Strings->size(); i++) {
      Put(pElement, StringName(Name, (int)i), (*Strings)[i]);
    }
    Put(pElement, TypeName, "SYS_REG_TYPE_MULTI_SZ");
  } else {
    return 1;
  }
  return 0;
}

// The bounded copy: replaces bytes and never makes the buffer longer.
static void CopyText(std::string* pBuffer, size_t Pos, const std::string& Text, size_t Limit) {
  if (Limit > 0) {
    const std::string Copied = Text.substr(0, Limit - 1) + '\0';
    pBuffer->replace(Pos, Copied.size(), Copied);
  }
}

static uint64_t ReadHex(const std::string& Text) {
  TEXT Rest = {Text};
  Rest.SkipWhite();
  const bool IsNegative = Rest.Take("-");
  if (Rest.Begins("0x") || Rest.Begins("0X")) {
    Rest.Rest.erase(0, 2);
  }
  uint64_t Value = 0;
  for (const char c : Rest.Rest) {
    if (isxdigit((unsigned char)c) == 0) {
      break;
    }
    Value = Value * 16 + strtoull(std::string(1, c).c_str(), nullptr, 16);
  }
  return IsNegative ? 0 - Value : Value;
}

MODEL_ANSWER RegistryModel::QueryValue(const MODEL_KEY& Key, const std::string& NameText,
                                       const std::optional<std::string>& Buffer) {
  MODEL_ANSWER   Answer   = {1, std::nullopt, std::nullopt, Buffer.value_or("")};
  MODEL_ELEMENT* pElement = NameText.empty() ? nullptr : Resolve(Key);
  if (pElement == nullptr) {
    return Answer;
  }
  const std::string Name = ReadName(NameText);
  if (Name.empty() || Name.size() > 511) {
    Answer.Result = Name.empty() ? 0 : 1;
    return Answer;
  }
  const std::string* pType = Find(pElement, Name + "_OSTRELRegType");
  if (pType == nullptr) {
    Answer.Result = 2;
    return Answer;
  }
  static const std::pair<const char*, uint32_t> Types[] = {
      {"SYS_REG_TYPE_SZ", 1},     {"SYS_REG_TYPE_MULTI_SZ", 7}, {"SYS_REG_TYPE_EXPAND_SZ", 2},
      {"SYS_REG_TYPE_BINARY", 3}, {"SYS_REG_TYPE_DWORD", 4},    {"SYS_REG_TYPE_QWORD", 11}};
  Answer.Type = 0xFFFFFFFF;
  for (const auto& [TypeName, Type] : Types) {
    if (*pType == TypeName) {
      Answer.Type = Type;
    }
  }
  if (Answer.Type == 0xFFFFFFFF) {
    return Answer;
  }
  if (!Buffer.has_value()) {
    Answer.Result = 0;
    return Answer;
  }
  const std::string* pText = Find(pElement, Name);
  const size_t       Cap   = Buffer->size();
  if (pText == nullptr || Answer.Type == 3u) {
    return Answer;
  }
  Answer.Result = 0;
  if (Answer.Type == 4u || Answer.Type == 11u) {
    const size_t NumBytes = Answer.Type == 4u ? 4 : 8;
    if (Cap < NumBytes) {
      Answer.Result = 234;
      return Answer;
    }
    const uint64_t Value = ReadHex(*pText);
    for (size_t i = 0; i < NumBytes; i++) {
      Answer.Bytes[i] = (char)(Value >> (8 * i));
    }
    Answer.Size = (uint32_t)NumBytes;
    return Answer;
  }
  if (Answer.Type != 7u) {
    CopyText(&Answer.Bytes, 0, *pText, Cap);
    Answer.Size = (uint32_t)pText->size();
  } else {
    size_t Remaining = Cap, Total = 0, Pos = 0;
    for (int i = 1; pText != nullptr; i++) {
      const size_t Limit = std::min(Remaining, Cap - Pos);
      CopyText(&Answer.Bytes, Pos, *pText, Limit);
      Remaining -= std::min(pText->size(), Remaining);
      if (Remaining > 0) {
        Pos = std::min(Pos + pText->size() + 1, Cap);
      }
      Total += pText->size();
      pText = Find(pElement, StringName(Name, i));
    }
    if (Remaining > 0) {
      Total++;
      if (Pos < Cap) {
        Answer.Bytes[Pos] = 0;
      }
    }
    Answer.Size = (uint32_t)Total;
  }
  if (*Answer.Size > Cap) {
    Answer.Result = 234;
  }
  return Answer;
}

uint32_t RegistryModel::DeleteValue(const MODEL_KEY& Key, const std::string& NameText) {
  const MODEL_ANSWER Answer = QueryValue(Key, NameText, std::nullopt);
  if (Answer.Result != 0) {
    return 1;
  }
  const std::string Name = ReadName(NameText);
  if (Name.empty()) {
    return 0;
  }
  MODEL_ELEMENT* pElement = Resolve(Key);
  for (int i = 1; Answer.Type == 7u && RemoveFirst(pElement, StringName(Name, i)); i++) {
  }
  RemoveFirst(pElement, Name);
  RemoveFirst(pElement, Name + "_OSTRELRegType");
  return 0;
}

void RegistryModel::Flush() {
  for (uint32_t Root = 0; Root < 3; Root++) {
    if (m_Trees[Root] != nullptr) {
      const std::string Text = MODEL_Write(*m_Trees[Root]);
      if (Text != m_Snapshots[Root] && m_HasHome) {
        WriteFile(Root, Text);
      }
      m_Trees[Root] = nullptr;
    }
  }
}
