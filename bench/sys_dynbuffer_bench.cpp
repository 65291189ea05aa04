// SPDX-License-Identifier: MIT

// Appending to a DYNBUFFER beside fmt's buffer, std::string and GString. Each run begins with an empty
// buffer and ends with freeing it.

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/support/peer_bench.h"
#include "sys/dynbuffer.h"

#if BENCH_HAS_FMT
#include <fmt/format.h>
#endif
#if BENCH_HAS_GLIB
#include <glib.h>
#endif

namespace {

std::string sResult;  // of the last run

std::string Answer() {
  return sResult;
}

// Pieces of MinLength to MaxLength bytes, NumBytes together.
std::vector<std::string_view> MakePieces(size_t NumBytes, size_t MinLength, size_t MaxLength) {
  static std::string            sBytes;
  std::mt19937                  Random(1);
  std::vector<std::string_view> aPiece;
  if (sBytes.empty()) {
    for (int i = 0; i < 4096; i++) {
      sBytes += (char)('a' + i % 23);
    }
  }
  while (NumBytes > 0) {
    const size_t Length = std::min(NumBytes, MinLength + Random() % (MaxLength - MinLength + 1));
    aPiece.push_back(std::string_view(sBytes).substr(Random() % 1024, Length));
    NumBytes -= Length;
  }
  return aPiece;
}

template <typename BUFFER, typename RESULT>
void Keep(BUFFER& Buffer, const RESULT* pData, size_t NumBytes, bool IsAsked) {
  benchmark::DoNotOptimize(Buffer);
  if (IsAsked) {
    sResult.assign((const char*)pData, NumBytes);
  }
}

template <typename RUN>
void Add(const char* sName, RUN Run) {
  BENCH_Add(
      sName, [=] { Run(false); },
      [=] {
        Run(true);
        return Answer();
      });
}

void AddRow(const char* sRow, double Goal, const std::vector<std::string_view>& Pieces,
            const char* sNote = "") {
  BENCH_Row(sRow, Goal, sNote);
  Add("ours", [=](bool IsAsked) {
    DYNBUFFER Buffer;
    DynBufferCreate(&Buffer, NULL, 0x100000, 512, -1);
    for (const std::string_view Piece : Pieces) {
      DynBufferAppend(&Buffer, Piece.data(), (uint32_t)Piece.size());
    }
    Keep(Buffer, Buffer.pData, Buffer.HighestIndex + 1, IsAsked);
    DynBufferFree(&Buffer);
  });
#if BENCH_HAS_FMT
  Add("fmt", [=](bool IsAsked) {
    fmt::memory_buffer Buffer;
    for (const std::string_view Piece : Pieces) {
      Buffer.append(Piece.data(), Piece.data() + Piece.size());
    }
    Keep(Buffer, Buffer.data(), Buffer.size(), IsAsked);
  });
#endif
  Add("std::string", [=](bool IsAsked) {
    std::string Buffer;
    Buffer.reserve(512);
    for (const std::string_view Piece : Pieces) {
      Buffer.append(Piece);
    }
    Keep(Buffer, Buffer.data(), Buffer.size(), IsAsked);
  });
#if BENCH_HAS_GLIB
  Add("GString", [=](bool IsAsked) {
    GString* pBuffer = g_string_sized_new(512);
    for (const std::string_view Piece : Pieces) {
      g_string_append_len(pBuffer, Piece.data(), (gssize)Piece.size());
    }
    Keep(pBuffer, pBuffer->str, pBuffer->len, IsAsked);
    g_string_free(pBuffer, TRUE);
  });
#endif
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  BENCH_Job("dynbuffer", "Appending to a growing buffer");
  const char* const sNote =
      "ours and std::string both copy with memcpy, whose branches on a random length are "
      "mispredicted; the call is already inline. A copy of fixed size would need no branch, but "
      "would write after the bytes in use, where the caller may have stored data";
  AddRow("1 to 24 bytes, to 1 KiB", 0.85, MakePieces(1024, 1, 24), sNote);
  AddRow("1 to 24 bytes, to 900 KiB", 0.80, MakePieces(921600, 1, 24), sNote);
  AddRow("256 bytes, to 900 KiB", 1.2, MakePieces(921600, 256, 256));
  // Of 16,000 bytes the processor learns the lengths by heart, so the sizes begin above that.
  BENCH_Growth("1 to 24 bytes, for each byte", 1.5);
  for (const size_t NumBytes : {65536u, 131072u, 262144u, 524288u}) {
    const std::vector<std::string_view> Pieces = MakePieces(NumBytes, 1, 24);
    BENCH_AddSize((int64_t)NumBytes, (int64_t)NumBytes, [=] {
      DYNBUFFER Buffer;
      DynBufferCreate(&Buffer, NULL, 0x100000, 512, -1);
      for (const std::string_view Piece : Pieces) {
        DynBufferAppend(&Buffer, Piece.data(), (uint32_t)Piece.size());
      }
      benchmark::DoNotOptimize(Buffer);
      DynBufferFree(&Buffer);
    });
  }
  return BENCH_Main(NumArgs, pasArgs);
}
