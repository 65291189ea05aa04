// SPDX-License-Identifier: MIT

// Any format into a buffer of any size, against the model of the tests.
#include "fuzz/fuzz_input.h"
#include "tests/util/format_model.h"

static const char* const aText[] = {"", "x", "%s%n", "a text that is longer than most buffers"};

// The arguments that the format asks for; false when it asks for more than can be passed.
static bool ChooseArguments(const std::string& Format, FUZZ_INPUT* pInput,
                            std::vector<ARGUMENT>* pArgs, bool* pIsModelled) {
  for (const FORMAT_PIECE& Piece : SplitFormat(Format)) {
    *pIsModelled &= Piece.Width < MODEL_MAX_FIELD && Piece.Precision < MODEL_MAX_FIELD;
    if (!Piece.TakesArgument()) {
      continue;
    }
    const uint64_t Value = pInput->Take<uint64_t>();
    if (Piece.c == 's') {
      pArgs->push_back({ARGUMENT::TEXT, 0, aText[Value % 4]});
    } else if (Piece.c == 'p') {
      pArgs->push_back({ARGUMENT::POINTER, Value, ""});
    } else if (Piece.c == 'c') {
      pArgs->push_back({ARGUMENT::INT, Value, ""});
    } else {
      pArgs->push_back({Piece.NumL == 0   ? ARGUMENT::INT
                        : Piece.NumL == 1 ? ARGUMENT::LONG
                                          : ARGUMENT::LONGLONG,
                        Value, ""});
    }
  }
  const bool IsPossible = pArgs->size() <= MAX_ARGUMENTS;
  pArgs->resize(MAX_ARGUMENTS, {ARGUMENT::INT, 0, ""});
  return IsPossible;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  FUZZ_INPUT            Input(pData, NumBytes);
  const int32_t         Size         = Input.Take<int8_t>();
  uint8_t               abValues[24] = {};
  std::vector<ARGUMENT> Args;
  bool                  IsModelled = true;
  for (uint8_t& b : abValues) {
    b = Input.Take<uint8_t>();
  }
  FUZZ_INPUT        Values(abValues, sizeof(abValues));
  const std::string Format = Input.Text();
  if (!ChooseArguments(Format, &Values, &Args, &IsModelled)) {
    return 0;
  }
  const size_t      NumUsable = Size > 0 ? (size_t)Size : 1;
  const FUZZ_BLOCK  Buffer(NumUsable);
  const FUZZ_BLOCK  Copy(Format);
  const char*       pEnd = CallWithArguments(Buffer.Get(), Size, Copy.Get(), Args);
  const std::string Out(Buffer.Get(), (size_t)(pEnd - Buffer.Get()));
  FUZZ_EXPECT(Out.size() < NumUsable && *pEnd == 0);
  FUZZ_EXPECT(!IsModelled || Out == ModelOfFormat(Format, Args).substr(0, NumUsable - 1));
  return 0;
}
