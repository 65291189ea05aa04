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
  bool TryWrite(uint32_t Address, uint32_t Value, uint32_t Size = 4) {
    return Device.Write(Address, Size, Value);
  }
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
  bool     FlashErased() { return Device.FindMemory(sim::MAIN_FLASH)->IsErased(); }
  bool     Erased(sim::MEMORY_KIND Kind) { return Device.FindMemory(Kind)->IsErased(); }
  int      Level() { return Device.Flash().Level(); }
  uint32_t Stored(int Index) { return Device.Flash().Stored(Index); }
};

inline sim::CREATE_REQUEST AtLevel(uint32_t Level) {
  sim::CREATE_REQUEST Request;
  Request.Level = Level;
  return Request;
}

#endif
