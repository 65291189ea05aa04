// A device under test with the debugger's hands on it: no probe, no files, time by hand.

#ifndef TESTS_SIM_PART_H
#define TESTS_SIM_PART_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/text.h"

struct Part {
  sim::Device Device;

  // State as a bench would be told, then power on.
  explicit Part(const char* sName, const sim::CREATE_REQUEST& Request = {},
                bool FillMemories = true)
      : Device(*sim::FindDevice(sName)) {
    std::string sError;
    EXPECT_TRUE(Device.Flash().Configure(Request, &sError)) << sError;
    if (FillMemories) {
      for (sim::Memory& Each : Device.Memories()) {
        Each.Fill(0x12345678);
      }
    }
    Device.PowerOn();
  }

  uint32_t Read(uint32_t Address) {
    uint32_t Value = 0xDEADDEAD;
    EXPECT_TRUE(Device.Read(Address, 4, &Value)) << sim::Format("read of 0x%08X failed", Address);
    return Value;
  }
  bool CanRead(uint32_t Address) {
    uint32_t Value = 0;
    return Device.Read(Address, 4, &Value);
  }
  void Write(uint32_t Address, uint32_t Value) {
    EXPECT_TRUE(Device.Write(Address, 4, Value)) << sim::Format("write of 0x%08X failed", Address);
  }
  bool TryRead(uint32_t Address, uint32_t Size) {
    uint32_t Value = 0;
    return Device.Read(Address, Size, &Value);
  }
  bool TryWrite(uint32_t Address, uint32_t Value, uint32_t Size = 4) {
    return Device.Write(Address, Size, Value);
  }
  void WaitUs(uint64_t Us) { Device.AdvanceTo(Device.NowUs() + Us); }
  void Wait(uint64_t Ms) { Device.AdvanceTo(Device.NowUs() + Ms * 1000); }
  void Finish() {
    uint64_t Guard = 0;
    while (Device.Flash().Busy() && Guard++ < 1000) {
      Wait(100);
    }
    EXPECT_FALSE(Device.Flash().Busy());
  }
  void Reset() { Device.SystemReset(true, "test"); }
  void PowerCycle() {
    Device.PowerOff();
    Device.PowerOn();
  }
  // A stored option word that no program could have left so; in force after the next load.
  void Corrupt(const char* sWord, uint32_t Value) {
    EXPECT_TRUE(Device.Flash().LoadLine(std::string("option.") + sWord, Value));
  }
  // The other device comes to the state of this one, by way of what a bench keeps.
  void CopyTo(Part* pOther) {
    sim::KeyFile File;
    std::string  sError;
    Device.SaveTo(&File);
    EXPECT_TRUE(pOther->Device.LoadFrom(File, &sError)) << sError;
  }
  bool     FlashErased() { return Device.FindMemory(sim::MAIN_FLASH)->IsErased(); }
  bool     Erased(sim::MEMORY_KIND Kind) { return Device.FindMemory(Kind)->IsErased(); }
  int      Level() { return Device.Flash().Level(); }
  uint32_t Stored(int Index) { return Device.Flash().Stored(Index); }
};

// Registers as a manual prints them: value after power-on, and the bits that take a write.
struct PRINTED_REGISTER {
  uint32_t Address, Reset, Writable;
};

inline void ExpectRegisters(Part* pPart, const std::vector<PRINTED_REGISTER>& Registers) {
  for (const PRINTED_REGISTER& Each : Registers) {
    const std::string sWhere = sim::Format("%s 0x%08X", pPart->Device.Row().sName, Each.Address);
    EXPECT_EQ(Each.Reset, pPart->Read(Each.Address)) << sWhere;
    pPart->Write(Each.Address, 0xFFFFFFFF);
    EXPECT_EQ(Each.Reset | Each.Writable, pPart->Read(Each.Address)) << sWhere;
    pPart->Write(Each.Address, 0);
    EXPECT_EQ(Each.Reset & ~Each.Writable, pPart->Read(Each.Address)) << sWhere;
  }
}

// A memory reaches from its first word to its last, and there is nothing on either side.
inline void ExpectMemory(Part* pPart, uint32_t Address, uint32_t Bytes) {
  const std::string sWhere = sim::Format("%s 0x%08X", pPart->Device.Row().sName, Address);
  EXPECT_TRUE(pPart->CanRead(Address)) << sWhere;
  EXPECT_TRUE(pPart->CanRead(Address + Bytes - 4)) << sWhere;
  EXPECT_FALSE(pPart->CanRead(Address - 4)) << sWhere;
  EXPECT_FALSE(pPart->CanRead(Address + Bytes)) << sWhere;
}

// What cannot be had from this device is refused with a reason.
inline void ExpectRefused(const char* sName, const sim::CREATE_REQUEST& Request) {
  sim::Device Device(*sim::FindDevice(sName));
  std::string sError;
  EXPECT_FALSE(Device.Flash().Configure(Request, &sError)) << sName;
  EXPECT_FALSE(sError.empty()) << sName;
}

// A device that nothing was said about is as delivered, word by word.
inline void ExpectFactoryWords(const char* sName) {
  const sim::Device Untouched(*sim::FindDevice(sName));
  Part              Device(sName);
  for (size_t i = 0; i < Device.Device.Flash().Words().size(); i++) {
    EXPECT_EQ(Device.Stored(static_cast<int>(i)), Device.Device.Flash().Words()[i].Factory)
        << sName << " " << i;
    EXPECT_EQ(Device.Stored(static_cast<int>(i)), Untouched.Flash().Stored(static_cast<int>(i)))
        << sName << " " << i;
  }
}

inline sim::CREATE_REQUEST AtLevel(uint32_t Level) {
  sim::CREATE_REQUEST Request;
  Request.Level = Level;
  return Request;
}

#endif
