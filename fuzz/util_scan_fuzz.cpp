// SPDX-License-Identifier: MIT

// Every scanner over any text, with buffers of any size.
#include <algorithm>

#include "fuzz/fuzz_input.h"
#include "util/scan.h"

static const int64_t UNTOUCHED = 0x5A5A5A5A5A5A5A5A;

// A text in a block of its own, and a cursor into it.
class CURSOR {
 public:
  explicit CURSOR(const std::string& Text) : Block(Text), s(Block.Get()), Len(Text.size()) {}
  const char** Get() { return &s; }
  const char*  Begin() const { return Block.Get(); }
  // How far the cursor has moved; it never leaves the text.
  size_t Moved() const {
    FUZZ_EXPECT(s >= Block.Get() && s <= Block.Get() + Len);
    return (size_t)(s - Block.Get());
  }

 private:
  FUZZ_BLOCK  Block;
  const char* s;
  size_t      Len;
};

static void ScanCharacters(const std::string& Text, char c) {
  CURSOR White(Text), Eaten(Text);
  UTIL_SkipWhite(White.Get());
  const size_t NumWhite = std::min(Text.find_first_not_of(" \t\n\r"), Text.size());
  FUZZ_EXPECT(White.Moved() == NumWhite && !UTIL_IsWhite((uint8_t)White.Begin()[NumWhite]));
  const bool IsThere = *Eaten.Begin() == c;
  FUZZ_EXPECT(UTIL_EatChar(Eaten.Get(), c) == (IsThere ? 0 : -1));
  FUZZ_EXPECT(*Eaten.Get() == Eaten.Begin() + (IsThere ? 1 : 0));
}

static void ScanNumbers(const std::string& Text) {
  for (int32_t AlwaysHex = 0; AlwaysHex < 2; AlwaysHex++) {
    CURSOR        Cursor(Text);
    int64_t       Value  = UNTOUCHED;
    const int32_t Result = UTIL_ParseInt(Cursor.Get(), &Value, AlwaysHex);
    FUZZ_EXPECT(Result == 0 ? Cursor.Moved() > 0 : Cursor.Moved() == 0 && Value == UNTOUCHED);
  }
  CURSOR  Cursor32(Text);
  int32_t Value32 = 77;
  UTIL_ParseInt32(Cursor32.Get(), &Value32);
  FUZZ_EXPECT(Cursor32.Moved() > 0 || Value32 == 0);

  CURSOR        CursorHex(Text), CursorHex32(Text);
  uint64_t      Hex         = UNTOUCHED;
  uint32_t      Hex32       = 77;
  const int32_t ResultHex   = UTIL_ParseHex(CursorHex.Get(), &Hex);
  const int32_t ResultHex32 = UTIL_ParseHex32(CursorHex32.Get(), &Hex32);
  FUZZ_EXPECT(ResultHex == ResultHex32 && CursorHex.Moved() == CursorHex32.Moved());
  FUZZ_EXPECT(Hex32 == (ResultHex == 0 ? (uint32_t)Hex : 0));

  CURSOR   CursorU32(Text);
  uint32_t U32 = 77;
  FUZZ_EXPECT(UTIL_ParseU32(CursorU32.Begin(), &U32) == 0 || U32 == 77);
}

static void ScanVersionsAndAddresses(const std::string& Text) {
  CURSOR   CursorA(Text), CursorB(Text), CursorC(Text);
  uint32_t Major, Minor, Revision;
  UTIL_ParseVersion(CursorA.Get(), &Major, &Minor, &Revision);
  UTIL_ParseVersion(CursorB.Get(), NULL, NULL, NULL);
  FUZZ_EXPECT(CursorA.Moved() == CursorB.Moved());
  UTIL_CheckDottedNumbers(CursorC.Get());
  CursorC.Moved();
  uint32_t      Addr   = 77;
  const int32_t Result = UTIL_ParseIPAddr(CursorC.Begin(), &Addr);
  FUZZ_EXPECT(Result == UTIL_ParseIPAddr(CursorC.Begin(), NULL) && (Result == 0 || Addr == 77));
}

static void ScanTexts(const std::string& Text, uint32_t Size, char Delimiter) {
  const FUZZ_BLOCK Buffer(Size);
  CURSOR           Token(Text), Until(Text), Quoted(Text), Value(Text);
  const char*      sError = UTIL_ParseToken(Token.Get(), Buffer.Get(), Size, Delimiter);
  FUZZ_EXPECT(sError != NULL || strlen(Buffer.Get()) <= Token.Moved());
  UTIL_ParseUntil(Until.Get(), Buffer.Get(), Size, Delimiter);
  FUZZ_EXPECT(Size == 0 || strlen(Buffer.Get()) <= Until.Moved());
  UTIL_ParseQuotedString(Quoted.Get(), Buffer.Get(), Size);
  FUZZ_EXPECT(Size == 0 || strlen(Buffer.Get()) <= Quoted.Moved());
  const uint32_t Result = UTIL_ParseValue(Value.Get(), Buffer.Get(), Size);
  FUZZ_EXPECT(Result == 0 ? strlen(Buffer.Get()) <= Value.Moved() : Value.Moved() == 0);
}

static void ChangeTexts(const std::string& Text, uint32_t NumSpare, char c) {
  for (int32_t Ends = 0; Ends < 4; Ends++) {
    const FUZZ_BLOCK Copy(Text);
    UTIL_Trim(Copy.Get(), Ends & 1, Ends & 2);
    FUZZ_EXPECT(strlen(Copy.Get()) <= Text.size());
  }
  const FUZZ_BLOCK Path(Text.size() + 1 + NumSpare);
  memcpy(Path.Get(), Text.c_str(), Text.size() + 1);
  UTIL_AddTrailingSlash(Path.Get(), (uint32_t)Text.size() + 1 + NumSpare);
  UTIL_ConvertBackslashes(Path.Get());
  FUZZ_EXPECT(UTIL_FindChar(Path.Get(), '\\') == -1);
  const FUZZ_BLOCK Copy(Text);
  const size_t     At = c == 0 ? std::string::npos : Text.find(c);
  FUZZ_EXPECT(UTIL_FindChar(Copy.Get(), c) == (At == std::string::npos ? -1 : (int32_t)At));
  FUZZ_EXPECT(UTIL_IsPlainNonEmptyString(Copy.Get()) ==
              (UTIL_IsPlainString(Copy.Get()) && !Text.empty()));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  FUZZ_INPUT        Input(pData, NumBytes);
  const uint32_t    Size      = Input.Take<uint8_t>() % 32;
  const char        Delimiter = Input.Take<char>();
  const std::string Text      = Input.Text();
  ScanCharacters(Text, Delimiter);
  ScanNumbers(Text);
  ScanVersionsAndAddresses(Text);
  ScanTexts(Text, Size, Delimiter);
  ChangeTexts(Text, Size % 3, Delimiter);
  VERSION_INFO Info;
  UTIL_DecodeVersion(&Info, Input.Take<uint32_t>());
  FUZZ_EXPECT(memchr(Info.Revision, 0, sizeof(Info.Revision)) != NULL);
  return 0;
}
