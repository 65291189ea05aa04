// wire/target.h
// SPDX-License-Identifier: MIT
//
// The chip behind the debug port, as far as a debug port can see it: power, reset, a bus, and
// whether its core runs. The debug port and the core's own debug registers are swd.h and core.h.
//
// One thread at a time.

#ifndef WIRE_TARGET_H
#define WIRE_TARGET_H

#include <stdint.h>

namespace wire {

// What identifies a chip to a debugger before anything of it has been read.
struct CHIP_IDENTITY {
  uint32_t DpIdr;  // DPIDR of the debug port
  uint32_t ApIdr;  // IDR of the AHB-AP
  uint32_t Cpuid;
  uint32_t DevId;     // DEV_ID, for the chip's own ROM table
  bool     IsArmv6;   // Cortex-M0 and M0+
  uint32_t RomTable;  // address of the first ROM table
};

class Target {
 public:
  Target()                         = default;
  Target(const Target&)            = delete;
  Target& operator=(const Target&) = delete;
  virtual ~Target()                = default;

  virtual const CHIP_IDENTITY& Identity() const = 0;

  // Called before each transfer: what happens by itself (time, power, faults) happens here.
  virtual void Advance() = 0;

  // Whether the debug port answers: the chip has power and its port is not closed.
  virtual bool PortAnswers() const = 0;
  // Whether the bus behind the debug port takes accesses, the core's own block included.
  virtual bool BusAnswers() const = 0;
  // Grows with each loss of power. The debug port and the core's debug registers begin afresh.
  virtual uint32_t PowerLosses() const = 0;
  // Grows with each system reset, also with those that the chip makes by itself.
  virtual uint32_t Resets() const = 0;

  // One access to the system bus. Size is 1, 2 or 4 bytes and the address a multiple of it; data of
  // a narrow access is in the lowest bits. False: the bus answered with a fault.
  virtual bool Read(uint32_t Address, uint32_t Size, uint32_t* pValue) = 0;
  virtual bool Write(uint32_t Address, uint32_t Size, uint32_t Value)  = 0;
  // For how many microseconds the last access keeps the bus waiting before it is over.
  virtual uint64_t StallUs() = 0;

  // A system reset. HaltCore: the core stops at its first instruction.
  virtual void SystemReset(bool HaltCore) = 0;
  // The same by nRESET; while that is low nothing but the core's debug registers answers.
  virtual void HoldReset()                 = 0;
  virtual void ReleaseReset(bool HaltCore) = 0;
  virtual void SetHalted(bool IsHalted)    = 0;
  virtual bool IsHalted() const            = 0;
};

}  // namespace wire

#endif
