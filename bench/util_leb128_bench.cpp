// SPDX-License-Identifier: MIT

// Numbers of variable length beside LLVM's and protobuf's. Each run reads or writes 32,768 of them: a
// processor learns the lengths of a shorter list by heart, and then a loop over the bytes costs no
// wrong guesses, as it would with numbers that it has not seen before.

#include <random>
#include <vector>

#include "bench/support/peer_bench.h"
#include "util/bits.h"

#if BENCH_HAS_LLVM
#include <llvm/Support/LEB128.h>
#endif
#if BENCH_HAS_PROTOBUF
#include <google/protobuf/io/coded_stream.h>
#endif

namespace {

const size_t NUM_VALUES = 32768;
const size_t NUM_LEARNT = 1024;

struct VALUES {
  std::vector<uint64_t> a;
  std::vector<uint8_t>  aByte;  // the same, written
};

std::vector<uint64_t> aRead;
std::vector<uint8_t>  aWritten(NUM_VALUES * 10 + 16);
size_t                NumWritten;

// Values of 0 to MaxBits bits, all lengths alike often.
VALUES MakeValues(uint32_t MaxBits, size_t NumValues = NUM_VALUES) {
  std::mt19937_64 Random(1);
  VALUES          Values;
  Values.aByte.resize(NumValues * 10 + 16);
  uint8_t* p = Values.aByte.data();
  for (size_t i = 0; i < NumValues; i++) {
    const uint32_t NumBits = (uint32_t)(Random() % (MaxBits + 1));
    Values.a.push_back(NumBits == 0 ? 0 : Random() >> (64 - NumBits));
    UTIL_WriteLEB128(&p, Values.a.back());
  }
  return Values;
}

std::string ReadText() {
  std::string All;
  for (const uint64_t Value : aRead) {
    All += std::to_string(Value) + ' ';
  }
  return All;
}

std::string WrittenText() {
  return std::string((const char*)aWritten.data(), NumWritten);
}

void AddReads(const char* sRow, double Goal, const VALUES& Values, const char* sNote = "") {
  BENCH_Row(sRow, Goal, sNote);
  BENCH_Add(
      "ours",
      [Values] {
        const uint8_t* p = Values.aByte.data();
        aRead.resize(Values.a.size());
        for (uint64_t& Value : aRead) {
          Value = UTIL_ReadLEB128(&p);
        }
      },
      ReadText);
#if BENCH_HAS_LLVM
  BENCH_Add(
      "LLVM",
      [Values] {
        const uint8_t* p = Values.aByte.data();
        aRead.resize(Values.a.size());
        for (uint64_t& Value : aRead) {
          unsigned NumBytes;
          Value = llvm::decodeULEB128(p, &NumBytes);
          p += NumBytes;
        }
      },
      ReadText);
#endif
#if BENCH_HAS_PROTOBUF
  BENCH_Add(
      "protobuf",
      [Values] {
        google::protobuf::io::CodedInputStream In(Values.aByte.data(), (int)Values.aByte.size());
        aRead.resize(Values.a.size());
        for (uint64_t& Value : aRead) {
          In.ReadVarint64(&Value);
        }
      },
      ReadText);
#endif
}

void AddWrites(const char* sRow, double Goal, const VALUES& Values, const char* sNote = "") {
  BENCH_Row(sRow, Goal, sNote);
  BENCH_Add(
      "ours",
      [Values] {
        uint8_t* p = aWritten.data();
        for (const uint64_t Value : Values.a) {
          UTIL_WriteLEB128(&p, Value);
        }
        NumWritten = (size_t)(p - aWritten.data());
      },
      WrittenText);
#if BENCH_HAS_LLVM
  BENCH_Add(
      "LLVM",
      [Values] {
        uint8_t* p = aWritten.data();
        for (const uint64_t Value : Values.a) {
          p += llvm::encodeULEB128(Value, p);
        }
        NumWritten = (size_t)(p - aWritten.data());
      },
      WrittenText);
#endif
#if BENCH_HAS_PROTOBUF
  BENCH_Add(
      "protobuf",
      [Values] {
        uint8_t* p = aWritten.data();
        for (const uint64_t Value : Values.a) {
          p = google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(Value, p);
        }
        NumWritten = (size_t)(p - aWritten.data());
      },
      WrittenText);
#endif
}

void AddGrowth() {
  static const VALUES Values = MakeValues(64, 1 << 19);
  BENCH_Growth("read, for each number", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size, [Size] {
      const uint8_t* p   = Values.aByte.data();
      uint64_t       Sum = 0;
      for (int64_t i = 0; i < Size; i++) {
        Sum += UTIL_ReadLEB128(&p);
      }
      return Sum;
    });
  }
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  BENCH_Job("leb128", "Numbers of variable length, 32,768 of them");
  AddReads("read, 1 to 10 bytes", 0.65, MakeValues(64));
  AddReads("read, 1 to 5 bytes", 0.65, MakeValues(32));
  AddReads("read, one byte", 1.1, MakeValues(7));
  const char* const sWrites =
      "every number takes the same 26 to 30 instructions and no branch; the peers' loop takes "
      "11 to 20, and mispredicted branches, which weigh less the shorter the numbers are";
  AddWrites("write, 1 to 10 bytes", 0.65, MakeValues(64), sWrites);
  AddWrites("write, 1 to 5 bytes", 0.65, MakeValues(32), sWrites);
  AddWrites("write, one byte", 1.1, MakeValues(7));

  const char* const sLearnt = "1024 numbers, which the processor has learnt by heart";
  AddReads("read, 1 to 5 bytes, learnt", BENCH_NO_GOAL, MakeValues(32, NUM_LEARNT), sLearnt);
  AddWrites("write, 1 to 5 bytes, learnt", BENCH_NO_GOAL, MakeValues(32, NUM_LEARNT), sLearnt);
  AddGrowth();
  return BENCH_Main(NumArgs, pasArgs);
}
