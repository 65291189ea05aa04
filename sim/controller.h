// sim/controller.h
// SPDX-License-Identifier: MIT
//
// The flash controller of a device: its registers, key locks, running operations, option bytes and
// the protection they give. What all kinds share is here; a folder per kind (sim/f1, sim/f4, ...)
// derives from it and adds the rules of that kind.
//
// A controller sees the rest of the device through Surroundings only. It never waits: the bus asks
// MustWait before an access and lets the time pass itself, so a debugger can see the wait.

#ifndef SIM_CONTROLLER_H
#define SIM_CONTROLLER_H

#include <stdint.h>

#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "silicon/device.h"
#include "sim/keyfile.h"
#include "sim/lock.h"
#include "sim/memory.h"
#include "sim/registers.h"
#include "sim/variants.h"

namespace sim {

struct CREATE_REQUEST;
struct CAPABILITIES;

// What a controller needs of the device around it.
class Surroundings {
 public:
  virtual ~Surroundings()                           = default;
  virtual MemorySet&      Memories()                = 0;
  virtual const Variants& Switches() const          = 0;
  virtual bool            HsiRuns() const           = 0;  // the clock that times F1 operations
  virtual void            Event(const std::string&) = 0;  // for the trace
  virtual void            Changed()                 = 0;  // something that has to be on disk
  // A reset from within, such as that of OBL_LAUNCH; the core runs afterwards.
  virtual void ResetFromWithin(const char* sCause) = 0;
};

// -- Operations ----------------------------------------------------------------------------------

struct TIME {
  uint64_t TypicalUs;
  uint64_t LongestUs;
};

// What the controller is doing while it is busy: one step after the other.
enum PHASE_KIND {
  MASS_ERASE,      // Argument: banks or UNPROTECT
  PAGE_ERASE,      // Argument: where, the controller's own
  OPTION_ERASE,    // the option area
  OPTION_PROGRAM,  // the option area, from the registers
  WORD_PROGRAM,    // Argument: address, Value: data; main flash, EEPROM or option area
  STAY_BUSY        // nothing; all is done, but the controller does not say so
};

// What a mass erase takes. UNPROTECT is the one that lifts the read protection: it takes all banks and
// then the memories on the backup supply.
enum { ERASE_BANK1 = 1, ERASE_BANK2 = 2, UNPROTECT = 4 };

struct PHASE {
  PHASE_KIND Kind;
  uint64_t   DurationUs;
  uint32_t   Argument = 0;
  uint32_t   Value    = 0;

  bool Unprotects() const { return Kind == MASS_ERASE && Argument == UNPROTECT; }
};

static const uint64_t FOREVER = UINT64_MAX;

static const uint32_t POWER_ON_MV = 1700;  // below, every device is held in reset

// -- The bus -------------------------------------------------------------------------------------

enum AREA { REGISTERS, OPTION_AREA, MEMORY_AREA };

struct ACCESS {
  AREA          Area;
  bool          IsWrite;
  uint32_t      Address;  // in a memory: the place, see Place
  const Memory* pMemory;  // of MEMORY_AREA only
};

enum WATCHDOG { INDEPENDENT, WINDOW, NUM_WATCHDOGS };

struct SYSTEM_BLOCK;

// What is the same for all devices of a family, whatever their controller.
struct FAMILY {
  const SYSTEM_BLOCK*       pSystem    = nullptr;  // see device.h
  VARIANT_ROWS              Variants   = {};
  uint32_t                  Base       = 0;  // of the flash controller's registers
  std::span<const REGISTER> Registers  = {};
  std::span<const LOCK_ROW> Locks      = {};
  std::span<const uint32_t> BrownOutMv = {};  // by BOR_LEV; the last one for all above it
};

// Whether the write that starts a reload of the options is itself answered.
extern const VARIANT_ROW OBL_TRANSFER_FAILS;
// Common to all devices.
extern const VARIANT_ROW TIMING_MAX;

class Controller {
 public:
  Controller(Surroundings& Around, const silicon::DEVICE& Facts, const FAMILY& Family);
  virtual ~Controller()                    = default;
  Controller(const Controller&)            = delete;
  Controller& operator=(const Controller&) = delete;

  // -- Power and reset. What runs at a reset or a loss of power is cut short.
  void PowerOn() { Reset(true, true); }
  void PowerOff();
  void SystemReset();

  // -- Bus. The access is known to hit a register (by its offset), the option area or a memory, and
  // to be ready. False: the transfer failed.
  virtual bool MustWait(const ACCESS& Access) const;  // while the controller is busy
  virtual bool ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue)   = 0;
  virtual bool WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value)    = 0;
  virtual bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) = 0;
  virtual bool ReadOptionArea(uint32_t Address, uint32_t* pWord);
  virtual bool InOptionArea(uint32_t Address) const { return IndexOfWord(Address) >= 0; }
  // A write to main flash or EEPROM.
  virtual bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) = 0;
  // A read of a memory at the level in force. *pValue holds the content and may be changed.
  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue);
  // Where in a memory an address of the bus is found; all other functions are given that place.
  virtual uint32_t Place(const Memory& /*Source*/, uint32_t Address) const { return Address; }

  // -- Protection in force
  int      Level() const { return LevelOfWord(Loaded(0)); }
  bool     StartsWatchdog(WATCHDOG Which) const;  // by an option
  uint32_t BrownOutMv() const;                    // the device resets below this voltage

  // -- Running operations
  bool         Busy() const { return !phases_.empty(); }
  const PHASE* Running() const { return phases_.empty() ? nullptr : &phases_.front(); }
  std::string  RunningText() const;  // "mass erase"; "" when nothing runs
  uint64_t     TimeLeftUs() const { return phases_.empty() ? FOREVER : leftUs_; }
  uint64_t     PhaseUs() const { return phases_.empty() ? 0 : phases_.front().DurationUs; }
  void         Pass(uint64_t Us);
  void         FinishAll();
  // After the running operation, or else the next one, the controller stays busy for so much longer
  // (FOREVER: it never ends).
  void HoldBusy(uint64_t Us);
  // What runs is about addresses that exist: not so when a file was edited.
  bool RunsInPlace() const;

  // -- Option words (options.cpp). Index is that of the device's row in silicon/.
  int                         NumWords() const { return static_cast<int>(stored_.size()); }
  const silicon::OPTION_WORD& Word(int Index) const { return facts_.Options[AsSize(Index)]; }
  uint32_t                    Stored(int Index) const { return stored_[AsSize(Index)].Value; }
  uint32_t StoredComplement(int Index) const { return stored_[AsSize(Index)].Complement; }
  // Whether value and complement belong together.
  virtual bool Matches(int Index) const;
  // The stored word as the loader takes it: defaults where the complement does not match.
  virtual uint32_t Effective(int Index) const { return Stored(Index); }
  // The word in force, in the places of the stored one; without power the one that would be loaded.
  uint32_t Loaded(int Index) const;
  int      StoredLevel() const;
  // The level that a stored byte, or the first option word, means.
  int LevelOfByte(uint32_t Rdp) const;
  int LevelOfWord(uint32_t Value) const;
  // What the device reports about its options itself, such as "OPTVERR"; "" when all is well.
  virtual std::string LoadError() const { return ""; }
  // Remarks for people on what is stored or in force, "" when there are none.
  virtual std::string Remarks() const { return ""; }
  // These bits of a stored option word will not take another value.
  void SetStuckBits(int Index, uint32_t Mask, uint32_t Value);
  int  FindWord(const std::string& sName) const;  // -1 when there is none

  // -- A new device in a given state (request.cpp). False with *psError when it cannot be so.
  bool Configure(const CREATE_REQUEST& Request, std::string* psError);

  // -- Names
  const silicon::DEVICE& Facts() const { return facts_; }
  RegisterFile&          Registers() { return registers_; }
  const RegisterFile&    Registers() const { return registers_; }
  // Row of the register or option word at the address; nullptr when it is neither.
  const REGISTER* Describe(uint32_t Address) const;
  // What a write of a key register meant; nullptr at other addresses.
  const char* NameOfKey(uint32_t Address, uint32_t Value) const;

  void SaveTo(KeyFile* pFile, bool WithRegisters) const;
  bool LoadLine(const std::string& sKey, uint32_t Value);

 protected:
  // -- What a kind of controller says of itself
  // Whether a system reset loads the options; power-on and OBL_LAUNCH do on every device.
  virtual bool LoadsAtReset() const = 0;
  // After a reset, with registers at their reset values and locks closed. IsNew: the options have just
  // been loaded.
  virtual void OnReset(bool IsNew, bool IsPowerOn) = 0;
  // What a phase does to memories and option words in DonePerMille thousandths of its time: in all of
  // it, or in less when it is cut short.
  virtual void Perform(const PHASE& Phase, uint32_t DonePerMille) = 0;
  // What follows a phase that has come to its end, such as flags.
  virtual void FinishPhase(const PHASE& Phase) = 0;
  // Option bytes are programmed at their addresses in memory, not through registers.
  virtual bool ProgramsOptionWords() const { return false; }
  // FilterRead of main flash.
  virtual bool ReadFlash(const Memory& Source, uint32_t Address, uint32_t* pValue) = 0;
  // What can be asked for when a device is created, and the protection that was asked for; the
  // request has been checked.
  virtual CAPABILITIES Can() const                                                  = 0;
  virtual bool         Protect(const CREATE_REQUEST& Request, std::string* psError) = 0;
  virtual uint32_t     Delivered(int Index) const { return Word(Index).Factory; }

  // -- Shared steps
  bool     Is(const VARIANT_ROW& Row) const { return around_.Switches()[Row]; }
  uint64_t Us(const TIME& Time) const;  // typical, or longest where that is chosen
  void     Start(const std::vector<PHASE>& Phases);

  // The lock whose keys the register takes, -1 when it takes none.
  int LockAt(uint32_t Offset) const;
  // A key is written, the control register follows. False when the sequence is spoilt.
  bool     WriteKey(int Lock, uint32_t Key);
  void     CloseLock(int Lock);
  bool     IsOpen(int Lock) const { return locks_[AsSize(Lock)].IsOpen(); }
  KeyLock& Lock(int Lock) { return locks_[AsSize(Lock)]; }

  // OBL_LAUNCH: a reset that loads the options. Whether it is answered.
  bool LaunchOptions();

  // An option word is stored; its complement, where the hardware keeps one apart, follows.
  void Store(int Index, uint32_t Value) { Store(Index, Value, ~Value); }
  // The same in two parts, as an operation that was cut short leaves it; of IN_NEXT_WORD only.
  void Store(int Index, uint32_t Value, uint32_t Complement);
  // A value gets the complement that this word has.
  uint32_t WithComplement(int Index, uint32_t Value) const;
  // The option word at this address; -1 when there is none.
  int IndexOfWord(uint32_t Address) const;
  // The word is in force from now on.
  void SetLoaded(int Index, uint32_t Value) { stored_[AsSize(Index)].Loaded = Value; }
  // The registers that show this word take the value.
  void ShowLoaded(int Index, uint32_t Value);
  // The words, one bit each, that did not match their complements when they were loaded.
  uint32_t BadWords() const { return badWords_; }

  // Further values that are state and not in a register; the pointer must stay valid.
  void State(const char* sName, uint32_t* pValue) { state_.push_back({sName, pValue}); }

  MemorySet& AllMemories() const { return around_.Memories(); }
  Memory&    MainFlash() const { return *around_.Memories().Find(MAIN_FLASH); }

  Surroundings&          around_;
  const silicon::DEVICE& facts_;
  RegisterFile           registers_;

 private:
  struct STATE_ITEM {
    const char* sName;
    uint32_t*   pValue;
  };
  struct STORED {
    uint32_t Value      = 0;
    uint32_t Complement = 0;  // of IN_NEXT_WORD
    uint32_t StuckMask  = 0;
    uint32_t StuckValue = 0;

    std::optional<uint32_t> Loaded = {};
  };

  static size_t AsSize(int Index) { return static_cast<size_t>(Index); }

  void                    CutRunning();
  void                    Reset(bool Loads, bool IsPowerOn);
  std::optional<uint32_t> InForce(const char* sField) const;
  void                    ShowLock(int Lock);
  bool                    LoadRunning(const std::string& sWhat, uint32_t Value);
  bool LoadOption(const std::string& sPart, const std::string& sName, uint32_t Value);
  bool SpoilComplement(int Index, uint32_t Bit);

  std::span<const uint32_t> brownOutMv_;
  std::vector<KeyLock>      locks_;
  std::vector<STORED>       stored_;
  std::vector<REGISTER>     wordRows_;  // for Describe
  std::vector<STATE_ITEM>   state_;
  std::deque<PHASE>         phases_;
  uint64_t                  leftUs_   = 0;
  uint64_t                  hold_     = 0;  // added to the next operation
  uint32_t                  badWords_ = 0;
  bool                      launched_ = false;  // the next reset loads the options
};

}  // namespace sim

#endif
