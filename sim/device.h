// sim/device.h
//
// One STM32 as a debugger meets it: memories, the registers around the flash controller, reset,
// power and the watchdog. The flash controller, which differs most between families, is behind
// controller.h.
//
// Time is in microseconds of the device's own clock and moves only through AdvanceTo.

#ifndef SIM_DEVICE_H
#define SIM_DEVICE_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "sim/controller.h"
#include "sim/keyfile.h"
#include "sim/memory.h"
#include "sim/registers.h"

namespace sim {

// The registers outside the flash controller that matter here: DBGMCU and RCC.
struct SYSTEM_BLOCK {
  std::span<const REGISTER> Registers;
  uint32_t                  IdCode;      // address of DBGMCU_IDCODE
  uint32_t                  DebugFirst;  // DBGMCU: reset by power-on only
  uint32_t                  DebugLast;
  uint32_t Freeze;  // register and bit that stop the watchdog while the core is halted
  uint32_t FreezeBit;
  uint32_t Gate;  // clock enable of DBGMCU: 0 when it is always on
  uint32_t GateBit;
  uint32_t RccCr;       // bit 1 (HSIRDY) follows bit 0 (HSION)
  uint64_t WatchdogUs;  // from reset to the independent watchdog's reset
};

struct DEVICE_ROW {
  const char*         sName;
  const char*         sText;
  uint32_t            IdCode;
  const SYSTEM_BLOCK* pSystem;
  MEMORY_ROW          aMemories[6];
  std::unique_ptr<Controller> (*pfMakeController)(Device& Owner, const DEVICE_ROW& Row);
};

// Questions that the manuals leave open, or answer in two ways: each is a switch with a default.
// Devices of all kinds carry all of them; most mean something to one family only.
struct VARIANT_ROW {
  const char* sName;
  uint32_t    Default;
  const char* sText;
};

enum VARIANT {
  TIMING_MAX,
  UNASSIGNED_FAULTS,
  OBL_TRANSFER_FAILS,
  F0_DBGMCU_GATED,
  F1_UNPROTECT_NEEDS_POWER_ON,
  F3_LOAD_ON_RESET,
  F4_LEVEL_AT_ONCE,
  F4_OPTKEY_BUS_ERROR,
  L0_SPARE_WORDS_WRITABLE,
  L0_L1_REFUSE_PCROP_CLEAR,
  L1_ERRATUM_MASS_ERASE,
  H7_PRG_RELOADED_ON_RESET,
  H7_ERROR_CLEARED_ON_RESET,
  H7_DELIVERED_BY_MANUAL,
  NUM_VARIANTS
};

extern const VARIANT_ROW VariantTable[NUM_VARIANTS];

class Device {
 public:
  explicit Device(const DEVICE_ROW& Row);

  const DEVICE_ROW& Row() const { return *row_; }
  Controller&       Flash() { return *controller_; }
  const Controller& Flash() const { return *controller_; }

  // -- Time
  void     AdvanceTo(uint64_t NowUs);
  uint64_t NowUs() const { return nowUs_; }
  // The bus waits until the flash controller is ready. False when that never happens.
  bool StallUntilReady();
  // Time that the bus has waited since the last call.
  uint64_t TakeStalledUs();

  // -- Power and reset
  void PowerOn();
  void PowerOff();
  bool IsPowered() const { return powered_; }
  // Pin reset by the probe, or a reset from within.
  void SystemReset(bool HaltCore, const char* sCause);
  bool CoreHalted() const { return halted_; }
  int  WatchdogResets() const { return watchdogResets_; }

  // -- The debugger's bus. Size is 1, 2 or 4 bytes, the address a multiple of it. False: the
  // transfer failed.
  bool DebugPortAnswers() const;
  bool Read(uint32_t Address, uint32_t Size, uint32_t* pValue);
  bool Write(uint32_t Address, uint32_t Size, uint32_t Value);

  // -- Memories
  std::vector<Memory>& Memories() { return memories_; }
  void                 EraseKind(MEMORY_KIND Kind);
  bool                 IsFlashErased() const;  // flash and EEPROM
  Memory*              FindMemory(MEMORY_KIND Kind);
  // Whether flash or EEPROM is at the address.
  bool HasFlashAt(uint32_t Address) const;

  // -- Names
  // Table row of the register or option word at the address; NULL when it is neither.
  const REGISTER* Describe(uint32_t Address) const;

  // -- State
  // SaveTo writes all that outlives a connection; registers only while the device has power.
  // LoadFrom leaves the device as it was saved; what was running is finished by then.
  void SaveTo(KeyFile* pFile) const;
  bool LoadFrom(const KeyFile& File, std::string* psError);

  uint32_t Variant(VARIANT Which) const { return variants_[Which]; }
  bool     SetVariant(const std::string& sName, uint32_t Value);

  // Told of everything that happens inside and that a register access alone does not show.
  std::function<void(const std::string&)> OnEvent;
  void                                    Event(const std::string& sText) const;

  // Set when something changed that has to be on disk; the owner of the file clears it.
  bool Changed = false;

 private:
  bool     CoreFeedsWatchdog();
  bool     WatchdogFrozen() const;
  bool     DebugBlockClocked() const;
  uint32_t SystemRegister(uint32_t Address) const;
  void     StartWatchdog();
  bool     ReadPart(uint32_t Address, uint32_t Size, uint32_t* pWord);

  const DEVICE_ROW*           row_;
  RegisterFile                system_;
  std::vector<Memory>         memories_;
  std::unique_ptr<Controller> controller_;
  std::vector<uint32_t>       variants_;
  uint64_t                    nowUs_          = 0;
  uint64_t                    stalledUs_      = 0;
  uint64_t                    watchdogLeftUs_ = 0;  // 0: not running
  int                         watchdogResets_ = 0;
  bool                        powered_        = false;
  bool                        halted_         = false;
};

// All devices that can be on a bench; the search ignores case. NULL when there is none.
std::span<const DEVICE_ROW* const> AllDevices();
const DEVICE_ROW*                  FindDevice(const std::string& sName);

}  // namespace sim

#endif
