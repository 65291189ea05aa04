// sim/device.h
// SPDX-License-Identifier: MIT
//
// One STM32 as a debugger meets it: memories, the registers around the flash controller, reset,
// power, the core and the watchdogs. The flash controller, which differs most between families, is
// in controller.h.
//
// Time is in microseconds of the device's own clock and moves only through AdvanceTo, Read and Write.
// Not thread-safe: one caller at a time.

#ifndef SIM_DEVICE_H
#define SIM_DEVICE_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/controller.h"
#include "sim/keyfile.h"
#include "sim/memory.h"
#include "sim/registers.h"
#include "sim/variants.h"

namespace sim {

// -- Rows of data --------------------------------------------------------------------------------

struct WATCHDOG_ROW {
  uint64_t ResetUs = 0;  // from its start to its reset; 0: this family has none that options start
  uint32_t Freeze  = 0;  // the register and the bit that stop it while the core is halted
  uint32_t Bit     = 0;
};

// The registers outside the flash controller that matter here: DBGMCU and RCC.
struct SYSTEM_BLOCK {
  std::span<const REGISTER> Registers                = {};
  uint32_t                  DebugFirst               = 0;  // DBGMCU: reset by power-on only
  uint32_t                  DebugLast                = 0;
  uint32_t                  Gate                     = 0;  // clock enable of DBGMCU; 0: always on
  uint32_t                  GateBit                  = 0;
  uint32_t                  RccCr                    = 0;  // HSIRDY follows HSION; 0: not modelled
  WATCHDOG_ROW              Watchdogs[NUM_WATCHDOGS] = {};
};

// A device that can be on a bench, see catalog.h.
struct DEVICE_ROW {
  const silicon::DEVICE* pFacts                                         = nullptr;
  const FAMILY*          pFamily                                        = nullptr;
  std::unique_ptr<Controller> (*pfMakeController)(Surroundings& Around) = nullptr;
};

// Whether empty addresses fault, and whether DBGMCU of F0 and L0 needs its clock.
extern const VARIANT_ROW UNASSIGNED_FAULTS, F0_DBGMCU_GATED;

// -- A device ------------------------------------------------------------------------------------

// LOCKED_UP: it runs, but there is no program that it could run: flash erased, or level 1 with a
// debugger attached.
enum CORE_STATE { CORE_RUNNING, CORE_HALTED, CORE_LOCKED_UP };

// What the program in the flash does to a debugger, until a reset that halts the core or until it is
// erased: it takes the pins of the debug port for itself, or it puts the core into Stop mode.
enum PROGRAM { PROGRAM_PLAIN, PROGRAM_TAKES_SWD, PROGRAM_STOPS };

class Device : private Surroundings {
 public:
  explicit Device(const DEVICE_ROW& Row);

  const DEVICE_ROW&      Row() const { return *row_; }
  const silicon::DEVICE& Facts() const { return *row_->pFacts; }
  const char*            Name() const { return row_->pFacts->sName; }
  Controller&            Flash() { return *controller_; }
  const Controller&      Flash() const { return *controller_; }

  // -- Time
  void     AdvanceTo(uint64_t NowUs);
  uint64_t NowUs() const { return nowUs_; }
  // What is running comes to its end, or is cut by a watchdog; the time stays as it is.
  void FinishRunning();

  // -- Power. A device that is given a voltage goes off and on with it: below the voltage at which it
  // resets itself, which can be an option, it is off. PowerOn gives 3.3 V.
  void PowerOn();
  void PowerOff();
  bool IsPowered() const { return powered_; }
  void SetVoltage(uint32_t Millivolts);

  // -- Reset. By a pulse, or held for as long as the caller likes; while it is held neither core nor
  // watchdog runs and the bus answers no access.
  void SystemReset(bool HaltCore, const char* sCause);
  void HoldReset(const char* sCause);
  void ReleaseReset(bool HaltCore);
  bool IsInReset() const { return inReset_; }

  // -- Core
  CORE_STATE Core() const;
  bool       CoreHalted() const { return halted_; }
  void       HaltCore();
  void       RunCore();
  void       SetProgram(PROGRAM Program) { program_ = Program; }
  int        WatchdogResets() const { return watchdogResets_; }

  // -- The debugger's bus. Size is 1, 2 or 4 bytes; an address that is not a multiple fails.
  // False: the transfer failed.
  bool DebugPortAnswers() const;
  // How long the bus makes this access wait at least: 0 when it is done at once, FOREVER when it
  // never is. A wire that can answer "wait" asks this first and lets time pass itself.
  uint64_t StallUs(uint32_t Address, bool IsWrite) const;
  // These wait as long as the bus does; the device's time moves on meanwhile.
  bool Read(uint32_t Address, uint32_t Size, uint32_t* pValue);
  bool Write(uint32_t Address, uint32_t Size, uint32_t Value);
  // Time that the bus has waited since the last call.
  uint64_t TakeStalledUs();

  // -- Memories
  MemorySet&       Memories() override { return memories_; }
  const MemorySet& Memories() const { return memories_; }
  bool             IsFlashErased() const;  // flash and EEPROM

  // Row of the register or option word at the address; nullptr when it is neither.
  const REGISTER* Describe(uint32_t Address) const;
  // The reverse, by the whole name or without its "FLASH_".
  std::optional<uint32_t> AddressOf(const std::string& sName) const;

  // -- State
  // SaveTo writes all that outlives a connection; registers only while the device has power.
  // LoadFrom leaves the device as it was saved, with what was running still to be done.
  void SaveTo(KeyFile* pFile) const;
  bool LoadFrom(const KeyFile& File, std::string* psError);

  const Variants& Switches() const override { return variants_; }
  bool SetVariant(const std::string& sName, uint32_t Value) { return variants_.Set(sName, Value); }

  // Called for everything that happens inside and that a register access alone does not show, with
  // the device's time.
  std::function<void(uint64_t AtUs, const std::string&)> OnEvent;

  // Set when something changed that has to be on disk; the owner of the file clears it.
  bool IsChanged = false;

 private:
  enum PLACE_KIND { NOWHERE, FLASH_REGISTER, OPTIONS, MEMORY, SYSTEM_REGISTER, SIZE_REGISTER };
  struct PLACE {
    PLACE_KIND    Kind    = NOWHERE;
    const Memory* pMemory = nullptr;
  };

  // Surroundings
  bool HsiRuns() const override;
  void Event(const std::string& sText) override;
  void Changed() override { IsChanged = true; }
  void ResetFromWithin(const char* sCause) override { SystemReset(false, sCause); }

  PLACE    PlaceOf(uint32_t Address) const;
  bool     WaitForBus(uint32_t Address, bool IsWrite);
  bool     ReadWord(uint32_t Address, uint32_t Size, uint32_t* pWord);
  bool     ReadMemory(uint32_t Address, uint32_t* pWord);
  bool     WriteRegister(uint32_t Address, uint32_t Size, uint32_t Value);
  bool     WriteMemory(uint32_t Address, uint32_t Size, uint32_t Value);
  bool     WriteSystem(uint32_t Address, uint32_t Size, uint32_t Value);
  void     ResetCircuit(bool HaltCore, const char* sCause);
  bool     IsDebugRegister(uint32_t Address) const;
  bool     IsDebugClocked() const;
  bool     IsFlashBlank() const;
  bool     HasProgram() const { return controller_->Level() == 0 && !IsFlashBlank(); }
  void     StartWatchdogs();
  bool     FeedsWatchdogs() const;
  bool     IsFrozen(const WATCHDOG_ROW& Watchdog) const;
  void     PassOnWatchdogs(uint64_t Us, bool Fed);
  uint64_t UntilWatchdogUs() const;
  uint64_t UntilReadyUs() const;
  void     Pass(uint64_t Us);
  void     CheckBrownOut();
  bool     LoadLine(const std::string& sKey, const std::string& sValue);

  const DEVICE_ROW*           row_;
  RegisterFile                system_;
  MemorySet                   memories_;
  Variants                    variants_;
  std::unique_ptr<Controller> controller_;
  uint64_t                    nowUs_                         = 0;
  uint64_t                    stalledUs_                     = 0;
  uint64_t                    watchdogLeftUs_[NUM_WATCHDOGS] = {};  // 0: not running
  uint32_t                    millivolts_                    = 3300;
  int                         watchdogResets_                = 0;
  PROGRAM                     program_                       = PROGRAM_PLAIN;
  bool                        powered_                       = false;
  bool                        halted_                        = false;
  bool                        inReset_                       = false;
};

}  // namespace sim

#endif
