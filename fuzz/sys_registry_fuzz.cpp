// SPDX-License-Identifier: MIT

// The whole registry store, compared with its model: a root's file and a sequence of commands.
#include "fuzz/fuzz_input.h"
#include "tests/sys/support/registry_duel.h"
#include "tests/sys/support/temp_dir.h"

// One byte gives the length, at most Limit - 1; the text follows. It may hold zeros.
static std::string TakeBytes(FUZZ_INPUT* pInput, uint32_t Limit) {
  std::string sBytes;
  for (uint32_t NumBytes = pInput->Take<uint8_t>() % Limit; NumBytes > 0; NumBytes--) {
    sBytes += (char)pInput->Take<uint8_t>();
  }
  return sBytes;
}

static std::string TakeText(FUZZ_INPUT* pInput, uint32_t Limit) {
  const std::string sBytes = TakeBytes(pInput, Limit);
  return sBytes.substr(0, sBytes.find('\0'));
}

// 128 and above: a root; below: one of the open keys.
static uint32_t TakeKey(FUZZ_INPUT* pInput) {
  const uint32_t Key = pInput->Take<uint8_t>();
  return Key < 128 ? Key : 0x80000000 + (Key & 3);
}

static void Expect(const std::string& sDifference) {
  if (!sDifference.empty()) {
    fprintf(stderr, "%s\n", sDifference.c_str());
    abort();
  }
}

static void Step(RegistryDuel* pDuel, FUZZ_INPUT* pInput) {
  const uint8_t     Command = pInput->Take<uint8_t>() % 8;
  const uint32_t    Key     = TakeKey(pInput);
  const std::string sName   = Command < 4 ? TakeText(pInput, 32) : "";
  if (Command == 0) {
    Expect(pDuel->OpenKey(Key, sName));
  } else if (Command == 1) {
    const uint32_t Type = pInput->Take<uint8_t>() % 13;
    Expect(pDuel->SetValue(Key, sName, Type, TakeBytes(pInput, 32)));
  } else if (Command == 2) {
    const uint32_t Capacity = pInput->Take<uint8_t>();
    Expect(pDuel->QueryValue(Key, sName, Capacity < 255 ? std::optional(Capacity) : std::nullopt));
  } else if (Command == 3) {
    Expect(pDuel->DeleteValue(Key, sName));
  } else if (Command == 4) {
    pDuel->CloseKey(Key);
  } else if (Command == 5) {
    pDuel->EditFile(Key % 3, TakeBytes(pInput, 256));
  } else {
    pDuel->Flush();
  }
  Expect(pDuel->CompareFiles());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  static const TempDir Home;
  FUZZ_INPUT           Input(pData, NumBytes);
  RegistryDuel         Duel(Home.Path());
  Duel.EditFile(0, TakeBytes(&Input, 256));
  while (Input.Size() > 0) {
    Step(&Duel, &Input);
  }
  Duel.Flush();
  Expect(Duel.CompareFiles());
  return 0;
}
