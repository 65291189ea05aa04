// SPDX-License-Identifier: MIT

// A model of the formatting engine: the same promise worked out in another way, on strings of any
// length. And a way to call the engine with arguments that are only known at run time.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <string>
#include <vector>

#include "util/format.h"

// One argument, passed as the type that its kind tells.
struct ARGUMENT {
  enum KIND { INT, LONG, LONGLONG, POINTER, TEXT } Kind;
  uint64_t    Value;
  const char* sText;
};

// A piece of a format: a plain character, or a conversion with what stands in front of it.
struct FORMAT_PIECE {
  bool   IsConversion;
  char   c;
  size_t Width;
  size_t Precision;
  size_t NumL;
  bool   TakesArgument() const {
      return IsConversion && std::string("diuxXpcs").find(c) != std::string::npos;
  }
};

// Larger fields are left to the engine's own limit; the model cannot build such texts.
static const size_t MODEL_MAX_FIELD = 100000;

static inline size_t ModelNumber(const std::string& Digits) {
  size_t Value = 0;
  for (const char c : Digits) {
    Value = std::min(Value * 10 + (size_t)(c - '0'), MODEL_MAX_FIELD);
  }
  return Value;
}

static inline std::vector<FORMAT_PIECE> SplitFormat(const std::string& Format) {
  std::vector<FORMAT_PIECE> Pieces;
  for (size_t i = 0; i < Format.size(); i++) {
    if (Format[i] != '%') {
      Pieces.push_back({false, Format[i], 0, 0, 0});
      continue;
    }
    const size_t WidthEnd = Format.find_first_not_of("0123456789", i + 1);
    if (WidthEnd == i + 1 && Format[WidthEnd] == '%') {
      Pieces.push_back({false, '%', 0, 0, 0});
      i++;
      continue;
    }
    size_t Pos       = WidthEnd;
    size_t Precision = 0;
    if (Pos != std::string::npos && Format[Pos] == '.') {
      const size_t End = Format.find_first_not_of("0123456789", Pos + 1);
      Precision        = ModelNumber(Format.substr(Pos + 1, End - Pos - 1));
      Pos              = End;
    }
    const size_t End = Pos == std::string::npos ? Pos : Format.find_first_not_of('l', Pos);
    if (End == std::string::npos) {
      break;
    }
    const size_t Width = ModelNumber(Format.substr(i + 1, WidthEnd - i - 1));
    Pieces.push_back({true, Format[End], Width, Precision, End - Pos});
    i = End;
  }
  return Pieces;
}

static inline std::string ModelDigits(uint64_t Value, unsigned Base, bool IsUpper,
                                      size_t Precision) {
  const char* sDigits = IsUpper ? "0123456789ABCDEF" : "0123456789abcdef";
  std::string Reversed;
  while (Value > 0) {
    Reversed.push_back(sDigits[Value % Base]);
    Value /= Base;
  }
  while (Reversed.size() < Precision || Reversed.empty()) {
    Reversed.push_back('0');
  }
  return std::string(Reversed.rbegin(), Reversed.rend());
}

static inline std::string RightAligned(const std::string& s, size_t Width) {
  return s.size() < Width ? std::string(Width - s.size(), ' ') + s : s;
}

static inline std::string ModelOfNumber(const FORMAT_PIECE& Piece, uint64_t Argument) {
  const bool  Is64  = Piece.NumL >= 2;
  uint64_t    Value = Is64 ? Argument : Argument & 0xFFFFFFFF;
  std::string Sign;
  if ((Piece.c == 'd' || Piece.c == 'i') && (Value >> (Is64 ? 63 : 31)) != 0) {
    Value = Is64 ? ~Value + 1 : 0x100000000 - Value;
    Sign  = "-";
  }
  const bool IsHex = Piece.c == 'x' || Piece.c == 'X';
  return Sign + RightAligned(ModelDigits(Value, IsHex ? 16 : 10, Piece.c == 'X', Piece.Precision),
                             Piece.Width);
}

static inline std::string ModelOfFormat(const std::string&           Format,
                                        const std::vector<ARGUMENT>& Args) {
  std::string Out;
  size_t      Next = 0;
  for (const FORMAT_PIECE& Piece : SplitFormat(Format)) {
    if (!Piece.IsConversion) {
      Out += Piece.c;
    } else if (Piece.TakesArgument()) {
      const ARGUMENT& Arg = Args.at(Next++);
      if (Piece.c == 's') {
        Out += Arg.sText;
      } else if (Piece.c == 'c') {
        Out += (char)Arg.Value;
      } else if (Piece.c == 'p') {
        Out += RightAligned(ModelDigits(Arg.Value & 0xFFFFFFFF, 16, false, Piece.Precision), 8);
      } else {
        Out += ModelOfNumber(Piece, Arg.Value);
      }
    }
  }
  return Out;
}

static const size_t MAX_ARGUMENTS = 3;

// Passes each argument with the type that its conversion takes, which only the compiler can do: one
// call per sequence of kinds.
template <size_t NUM_LEFT, typename... TYPES>
static char* CallStep(char* pBuffer, int32_t Size, const char* sFormat, const ARGUMENT* pArg,
                      TYPES... Args) {
  if constexpr (NUM_LEFT == 0) {
    return UTIL_snprintf(pBuffer, Size, sFormat, Args...);
  } else {
    constexpr auto pfNext = [](auto... All) { return CallStep<NUM_LEFT - 1>(All...); };
    const uint64_t Value  = pArg->Value;
    switch (pArg->Kind) {
      case ARGUMENT::INT:
        return pfNext(pBuffer, Size, sFormat, pArg + 1, Args..., (int)Value);
      case ARGUMENT::LONG:
        return pfNext(pBuffer, Size, sFormat, pArg + 1, Args..., (long)Value);
      case ARGUMENT::LONGLONG:
        return pfNext(pBuffer, Size, sFormat, pArg + 1, Args..., (long long)Value);
      case ARGUMENT::POINTER:
        return pfNext(pBuffer, Size, sFormat, pArg + 1, Args..., (void*)Value);
      default:
        return pfNext(pBuffer, Size, sFormat, pArg + 1, Args..., pArg->sText);
    }
  }
}

// Args must be MAX_ARGUMENTS long.
static inline char* CallWithArguments(char* pBuffer, int32_t Size, const char* sFormat,
                                      const std::vector<ARGUMENT>& Args) {
  return CallStep<MAX_ARGUMENTS>(pBuffer, Size, sFormat, Args.data());
}
