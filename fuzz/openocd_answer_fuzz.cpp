// SPDX-License-Identifier: MIT

// Frames of any bytes as the answer of OpenOCD, and texts of any kind as numbers.
#include "fuzz/fuzz_input.h"
#include "openocd/answer.h"

// A text may be cut; what was stored must be the same up to there.
static void ParseIntoAnySize(const char* pFrame, size_t Length, size_t Size) {
  FUZZ_BLOCK Small(Size);
  FUZZ_BLOCK Large(Length + 1);
  int        CodeSmall = 0, CodeLarge = 0;
  const bool Found = ANSWER_Parse(pFrame, Length, 7, &CodeLarge, Large.Get(), Length + 1);
  FUZZ_EXPECT(ANSWER_Parse(pFrame, Length, 7, &CodeSmall, Small.Get(), Size) == Found);
  if (Found) {
    const size_t Stored = strnlen(Small.Get(), Size);
    FUZZ_EXPECT(CodeSmall == CodeLarge && Stored < Size);
    FUZZ_EXPECT(memcmp(Small.Get(), Large.Get(), Stored) == 0);
  }
}

// The answer that a server would give with this text in braces is taken apart again, where braces can
// hold it.
static void RoundTrip(const std::string& Text) {
  if (Text.find_first_of("{}\\") != std::string::npos) {
    return;
  }
  const std::string Frame = "q7 -3 {" + Text + "}";
  FUZZ_BLOCK        Result(Frame.size());
  int               Code = 0;
  FUZZ_EXPECT(ANSWER_Parse(Frame.data(), Frame.size(), 7, &Code, Result.Get(), Frame.size()));
  FUZZ_EXPECT(Code == -3 && Text.compare(0, strlen(Result.Get()), Result.Get()) == 0);
  FUZZ_EXPECT(Text.find_first_not_of(" \t\r\n", strlen(Result.Get())) == std::string::npos);
}

static void ReadNumbers(const std::string& Text) {
  uint32_t aValues[4];
  int      NumGood = 0;
  for (uint32_t Count = 0; Count <= 4; Count++) {
    NumGood += ANSWER_Numbers(Text.c_str(), aValues, Count);
  }
  FUZZ_EXPECT(NumGood <= 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  FUZZ_INPUT   Input(pData, NumBytes);
  const size_t Size = 1 + Input.Take<uint8_t>();
  FUZZ_BLOCK   Frame(Input.Size());
  memcpy(Frame.Get(), Input.Data(), Input.Size());
  ParseIntoAnySize(Frame.Get(), Input.Size(), Size);
  RoundTrip(Input.Text());
  ReadNumbers(Input.Text());
  return 0;
}
