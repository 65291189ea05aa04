// SPDX-License-Identifier: MIT

// The formatting engine beside the C library's snprintf, fmt, stb_sprintf and Abseil. Each run
// formats 1024 texts of different values.

#include <stdio.h>

#include <random>

#include "bench/support/peer_bench.h"
#include "util/format.h"

#if BENCH_HAS_FMT
#include <fmt/format.h>
#endif
#if BENCH_HAS_STB
#define STB_SPRINTF_IMPLEMENTATION
#define STB_SPRINTF_STATIC
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb/stb_sprintf.h>
#pragma GCC diagnostic pop
#endif
#if BENCH_HAS_ABSL
#include <absl/strings/str_format.h>
#endif

namespace {

// So many that no processor learns the sequence of lengths.
const int NUM_TEXTS = 1024;
const int TEXT_SIZE = 128;

char aacText[NUM_TEXTS][TEXT_SIZE];

const char* const asName[] = {"Cortex-M0", "Cortex-M3",       "Cortex-M4",  "Cortex-M7",
                              "STM32F051", "STM32L476",       "STM32H743",  "a",
                              "Write",     "Verify",          "FLASH_KEYR", "FLASH_OPTCR",
                              "SWD",       "USB to JTAG/SWD", "192.0.2.1",  "on"};

const char* aName[NUM_TEXTS];
uint32_t    aNumber[NUM_TEXTS];  // of every magnitude
uint64_t    aWide[NUM_TEXTS];

void MakeValues() {
  std::mt19937_64 Random(1);
  for (int i = 0; i < NUM_TEXTS; i++) {
    aName[i]   = asName[Random() % 16];
    aNumber[i] = (uint32_t)Random() >> (Random() % 32);
    aWide[i]   = Random() >> (Random() % 64);
  }
}

int32_t Signed(int i) {
  return i % 4 == 3 ? -(int32_t)(aNumber[i] / 2) : (int32_t)(aNumber[i] / 2);
}

std::string AllTexts() {
  std::string All;
  for (const char* sText : aacText) {
    All += sText;
    All += '\n';
  }
  return All;
}

template <typename FORMAT>
void Add(const char* sName, FORMAT Format) {
  BENCH_Add(
      sName,
      [Format] {
        for (int i = 0; i < NUM_TEXTS; i++) {
          Format(aacText[i], i);
        }
      },
      AllTexts);
}

}  // namespace

// One format for all that have printf's, one for fmt; the arguments are in terms of i.
#if BENCH_HAS_FMT
#define ADD_FMT(Size, sFmt, ...)                                             \
  Add("fmt", [](char* p, int i) {                                            \
    (void)i;                                                                 \
    *fmt::format_to_n(p, (Size)-1, sFmt __VA_OPT__(, ) __VA_ARGS__).out = 0; \
  })
#else
#define ADD_FMT(...)
#endif
#if BENCH_HAS_STB
#define ADD_STB(Size, sFormat, ...)                \
  Add("stb_sprintf", [](char* p, int i) {          \
    (void)i;                                       \
    stbsp_snprintf(p, Size, sFormat, __VA_ARGS__); \
  })
#else
#define ADD_STB(...)
#endif
#if BENCH_HAS_ABSL
#define ADD_ABSL(Size, sFormat, ...)               \
  Add("Abseil", [](char* p, int i) {               \
    (void)i;                                       \
    absl::SNPrintF(p, Size, sFormat, __VA_ARGS__); \
  })
#else
#define ADD_ABSL(...)
#endif

#define ADD_ROW(sRow, Size, sFormat, sFmt, ...)   \
  BENCH_Row(sRow, 1.0);                           \
  Add("ours", [](char* p, int i) {                \
    (void)i;                                      \
    UTIL_snprintf(p, Size, sFormat, __VA_ARGS__); \
  });                                             \
  Add("glibc", [](char* p, int i) {               \
    (void)i;                                      \
    snprintf(p, Size, sFormat, __VA_ARGS__);      \
  });                                             \
  ADD_STB(Size, sFormat, __VA_ARGS__);            \
  ADD_FMT(Size, sFmt, __VA_ARGS__);               \
  ADD_ABSL(Size, sFormat, __VA_ARGS__)

#define QUAD(i) \
  aNumber[i] & 0xFF, (aNumber[i] >> 8) & 0xFF, (aNumber[i] >> 16) & 0xFF, aNumber[i] >> 24
#define MAC(i) \
  0x00u, 0x80u, 0xE1u, (aNumber[i] >> 16) & 0xFF, (aNumber[i] >> 8) & 0xFF, aNumber[i] & 0xFF
#define TEN(i)                                                                             \
  aName[i], Signed(i), aNumber[i], aNumber[i], 'a' + i % 26, (unsigned long long)aWide[i], \
      aNumber[i], Signed(i), aName[NUM_TEXTS - 1 - i], 'z' - i % 26
// The row that is cut at 16 bytes means it.
#pragma GCC diagnostic ignored "-Wformat-truncation"

int main(int NumArgs, char** pasArgs) {
  MakeValues();
  BENCH_Job("format", "Formatting, 1024 texts");
  ADD_ROW("text", TEXT_SIZE, "device = %s", "device = {}", aName[i]);
  ADD_ROW("0x%.8X", TEXT_SIZE, "0x%.8X", "0x{:08X}", aNumber[i]);
  ADD_ROW("%d.%.3d", TEXT_SIZE, "%d.%.3d", "{}.{:03}", Signed(i), (int)(aNumber[i] % 1000));
  ADD_ROW("dotted quad", TEXT_SIZE, "%u.%u.%u.%u", "{}.{}.{}.{}", QUAD(i));
  ADD_ROW("%llu", TEXT_SIZE, "%llu", "{}", (unsigned long long)aWide[i]);
  ADD_ROW("ten conversions", TEXT_SIZE, "%s: %d of %u at 0x%.8X, %c %llu %x (%d) %s %c",
          "{}: {} of {} at 0x{:08X}, {:c} {} {:x} ({}) {} {:c}", TEN(i));
  ADD_ROW("MAC", TEXT_SIZE, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X",
          "{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", MAC(i));
  ADD_ROW("cut at 16 bytes", 16, "%s: %d of %u at 0x%.8X, %c %llu %x (%d) %s %c",
          "{}: {} of {} at 0x{:08X}, {:c} {} {:x} ({}) {} {:c}", TEN(i));
  BENCH_Mean("geometric mean", 0.50, NULL,
             "0.49 where it was measured while writing it; %llu holds it up, as fmt too writes two "
             "digits at a time and needs no format text.");
  BENCH_Mean("geometric mean, glibc alone", 0.30, "glibc");

  static std::string       Text;
  static std::vector<char> Long((1 << 19) + 1);
  Text.assign(1 << 19, 'a');
  BENCH_Growth("%s, for each character", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size,
                  [Size] { return UTIL_snprintf(Long.data(), (int32_t)Size, "%s", Text.c_str()); });
  }
  return BENCH_Main(NumArgs, pasArgs);
}
