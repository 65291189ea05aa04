// sim/controller.h
//
// The flash controller of a device: its registers, key locks, running operations, option bytes and
// the protection they give. One class per kind of controller; this is what they share.

#ifndef SIM_CONTROLLER_H
#define SIM_CONTROLLER_H

#include <stdint.h>

#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/keyfile.h"
#include "sim/memory.h"
#include "sim/registers.h"

namespace sim {

class Device;

// What the controller is doing while it is busy: one step after the other.
enum PHASE_KIND {
  MASS_ERASE,      // Argument: what exactly, the controller's own
  PAGE_ERASE,      // Argument: where, the controller's own
  OPTION_ERASE,    // the option area
  OPTION_PROGRAM,  // the option area, from the registers
  WORD_PROGRAM,    // Argument: address, Value: data; main flash, EEPROM or option area
  STAY_BUSY        // nothing; all is done, but the controller does not say so
};

struct PHASE {
  PHASE_KIND Kind;
  uint64_t   DurationUs;
  uint32_t   Argument = 0;
  uint32_t   Value    = 0;
};

static const uint64_t FOREVER = UINT64_MAX;

// An option word as it is stored. Address is where the bus shows it, 0 when it does not.
struct OPTION_WORD {
  const char* sName;
  uint32_t    Address;  // 0: written through a register only
  uint32_t    Factory;
  const char* sFields;
};

// The state that a new device shall be in; what is not given is as delivered.
struct CREATE_REQUEST {
  std::optional<uint32_t> Level;  // 0, 1 or 2
  std::optional<uint32_t> Rdp;    // or the byte itself
  bool                    WrpAll = false;
  std::vector<uint32_t>   Wrp;  // write-protected sectors
  bool                    PcropAll = false;
  std::vector<uint32_t>   Pcrop;     // sectors that can only be executed
  std::optional<uint32_t> PcropRdp;  // whether unprotecting wipes them, where there is a choice
  bool                    Secure = false;
  std::optional<uint32_t> User;       // user option bits, in their place in the option word
  std::string             sMismatch;  // "rdp" or "user": that value's complement is wrong
};

class Controller {
 public:
  Controller(Device& Owner, std::span<const REGISTER> Table, std::vector<OPTION_WORD> Words);
  virtual ~Controller()                    = default;
  Controller(const Controller&)            = delete;
  Controller& operator=(const Controller&) = delete;

  // -- Power and reset. What runs at a reset or a loss of power is cut short.
  virtual void OnPowerOn() = 0;
  void         PowerOff();
  void         SystemReset();

  // -- Bus. The access is known to hit a register or the option area. False: the transfer failed.
  virtual bool ReadRegister(int Index, uint32_t Size, uint32_t* pValue);
  virtual bool WriteRegister(int Index, uint32_t Size, uint32_t Value) = 0;
  // Where nothing else is said the option bytes are seen through the registers only.
  virtual bool InOptionArea(uint32_t Address) const;
  virtual bool ReadOptionArea(uint32_t Address, uint32_t* pWord);
  virtual bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value);
  // A write to main flash or EEPROM.
  virtual bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value);
  // A read of a memory at the level in force. *pValue holds the content and may be changed.
  virtual bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue);
  // Where in a memory an address of the bus is found; all other functions are told that place.
  virtual uint32_t Place(const Memory& Source, uint32_t Address) const;

  // -- Protection in force
  virtual int  Level() const              = 0;
  virtual bool WatchdogByHardware() const = 0;

  // -- Running operations
  bool     Busy() const { return !phases_.empty(); }
  uint64_t TimeLeftUs() const { return phases_.empty() ? FOREVER : leftUs_; }
  uint64_t PhaseUs() const { return phases_.empty() ? 0 : phases_.front().DurationUs; }
  void     Pass(uint64_t Us);
  void     FinishAll();
  // Behind the running operation, or else the next one, the controller stays busy for so much
  // longer (FOREVER: it never ends).
  void HoldBusy(uint64_t Us);
  // What runs is about addresses that exist: not so when a file was edited.
  bool RunsInPlace() const;

  // -- Option bytes as they are stored
  const std::vector<OPTION_WORD>& Words() const { return words_; }
  uint32_t Stored(int Index) const { return stored_[static_cast<size_t>(Index)]; }
  // The word as the loader takes it: complement checked, defaults where it does not match.
  virtual uint32_t Effective(int Index) const { return Stored(Index); }
  // Remarks for people on what is stored or in force, "" when there are none.
  virtual std::string Remarks() const { return ""; }
  virtual int         StoredLevel() const                                            = 0;
  virtual bool        Configure(const CREATE_REQUEST& Request, std::string* psError) = 0;
  // These bits of a stored option word will not take another value.
  void SetStuckBits(int Index, uint32_t Mask, uint32_t Value);

  RegisterFile&       Registers() { return registers_; }
  const RegisterFile& Registers() const { return registers_; }
  const REGISTER*     Describe(uint32_t Address) const;

  void SaveTo(KeyFile* pFile, bool WithRegisters) const;
  bool LoadLine(const std::string& sKey, uint32_t Value);

 protected:
  virtual void OnSystemReset() = 0;
  void         Start(const std::vector<PHASE>& Phases);
  // A key is written to the lock behind this register's bit. False when the sequence is spoilt.
  bool         TakeKey(KeyLock* pLock, uint32_t Key, int Register, uint32_t LockBit);
  virtual void FinishPhase(const PHASE& Phase) = 0;
  virtual void AbortPhase(const PHASE& Phase)  = 0;
  void         Store(int Index, uint32_t Value);
  // The option word that is written at this address; -1 when there is none.
  int IndexOfWord(uint32_t Address) const;
  // Registers further values that are state and no register; the pointer must stay valid.
  void State(const char* sName, uint32_t* pValue) { state_.push_back({sName, pValue}); }

  Device&                  owner_;
  RegisterFile             registers_;
  std::vector<OPTION_WORD> words_;
  std::vector<REGISTER>    wordRows_;  // for Describe

 private:
  struct STATE_ITEM {
    const char* sName;
    uint32_t*   pValue;
  };
  struct STUCK {
    uint32_t Mask, Value;
  };

  void AbortRunning();

  std::vector<uint32_t>   stored_;
  std::vector<STUCK>      stuck_;
  std::vector<STATE_ITEM> state_;
  std::deque<PHASE>       phases_;
  uint64_t                leftUs_ = 0;
  uint64_t                hold_   = 0;  // added to the next operation
};

// True when every sector in the list is below the limit; else *psError says which is not.
bool CheckSectors(const std::vector<uint32_t>& Sectors, uint32_t NumSectors, std::string* psError);
uint32_t SectorMask(const std::vector<uint32_t>& Sectors, bool All, uint32_t NumSectors);

}  // namespace sim

#endif
