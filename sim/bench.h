// sim/bench.h
// SPDX-License-Identifier: MIT
//
// The bench: probes with a device on each, kept as small files in one directory.
//
//   SERIAL.probe    how the probe is set up, and the faults it shall show; for people to edit
//   SERIAL.device   the device's state, written by the simulator
//   SERIAL.lock     held while a program is connected to the probe

#ifndef SIM_BENCH_H
#define SIM_BENCH_H

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "sim/device.h"

namespace sim {

enum FAULT_KIND {
  OPEN_FAILS,     // opening fails with the text
  LOST,           // from this operation on the probe does not answer
  READ_FAILS,     // this operation, if it is a read, fails
  WRITE_DROPPED,  // this operation, if it is a write, does nothing
  POWER_DIP,      // the supply drops to First mV for Second operations
  BUSY,           // what the flash controller does now or next takes so much longer
  STUCK_BITS      // bits of a stored option word do not take another value
};

struct FAULT {
  FAULT_KIND  Kind      = OPEN_FAILS;
  uint32_t    Operation = 0;  // counted from 1 over all calls of the probe library
  std::string sText;          // OPEN_FAILS: the text; STUCK_BITS: the option word
  uint64_t    First  = 0;     // POWER_DIP: mV; BUSY: microseconds or FOREVER; STUCK_BITS: mask
  uint64_t    Second = 0;     // POWER_DIP: operations; STUCK_BITS: value of the bits
};

// "open-fails TEXT", "lost K", "read-fails K", "write-dropped K", "power-dip K MV OPERATIONS",
// "busy K MS" or "busy K forever", "stuck WORD MASK VALUE".
bool ParseFault(const std::string& sText, FAULT* pFault, std::string* psError);

struct PROBE_SETTINGS {
  uint32_t                 SerialNo = 0;
  std::string              sIP;                 // "" when it has no network address
  bool                     IsDefault  = false;  // taken when the caller chooses none
  uint32_t                 VTarget    = 3300;  // from the board's own supply, in mV; 0: it has none
  uint32_t                 Supply     = 3300;  // what the probe gives when asked to, in mV
  uint32_t                 MaxSpeed   = 15000;  // kHz
  bool                     ResetHalts = true;   // whether the core is halted after a reset
  bool                     ResetPin   = true;   // whether the device's reset pin is connected
  bool                     IsFast     = false;  // see clock.h
  std::vector<std::string> Faults;
  // Why the file cannot be used, with its name and line; "" when it can. Of such a probe nothing but
  // the serial number is known, and whether it is the default.
  std::string sError;
};

// Sets one key of the probe's file ("ip", "vtarget", ...). False when key or value is invalid; what
// the probe then has there does not count.
bool SetProbeSetting(PROBE_SETTINGS* pProbe, const std::string& sKey, const std::string& sValue,
                     std::string* psError);

// $QUOBE_BENCH_TIME, unless it is empty, overrules the probe's "time". False with *psError when it is
// no value for that.
bool OverruleTime(PROBE_SETTINGS* pProbe, std::string* psError);

// What is left of a connection in the device's file.
struct LINK {
  bool IsOpen   = false;
  bool SupplyOn = false;
};

class Bench {
 public:
  // $QUOBE_BENCH, or .quobe-bench in the home directory.
  Bench();
  explicit Bench(std::string sDirectory) : sDirectory_(std::move(sDirectory)) {}

  const std::string& Directory() const { return sDirectory_; }

  // All probes in the order of their serial numbers, also those with an invalid file; no probe is
  // not an error.
  bool List(std::vector<PROBE_SETTINGS>* pProbes, std::string* psError) const;
  // The default one of these probes (the first if there are several), or else the one with the
  // lowest serial number; NULL when there is no probe.
  static const PROBE_SETTINGS* DefaultOf(const std::vector<PROBE_SETTINGS>& Probes);
  // The probe with the serial number, or where that is 0 with the network address, or where that is
  // "" the default one of all probes. An empty bench gets a default: a probe with an STM32F407 as
  // delivered and a program in its flash.
  bool Find(uint32_t SerialNo, const std::string& sIP, PROBE_SETTINGS* pProbe,
            std::string* psError) const;

  bool SaveProbe(const PROBE_SETTINGS& Probe, std::string* psError) const;
  bool LoadDevice(const PROBE_SETTINGS& Probe, std::unique_ptr<Device>* ppDevice, LINK* pLink,
                  std::string* psError) const;
  // psSaved: what is known to be in the file, and is there afterwards; nothing is written UNTIL_EXIT
  // where that is the same.
  bool SaveDevice(const PROBE_SETTINGS& Probe, const Device& Target, const LINK& Link,
                  std::string* psError, LASTING Lasting = FOR_GOOD,
                  std::string* psSaved = nullptr) const;
  // The files of a probe that this process has locked.
  bool Remove(const PROBE_SETTINGS& Probe, std::string* psError) const;

  // Takes the probe for this process until Unlock or exit. -1 when another has it. A program that
  // writes a probe's files holds its lock.
  int         Lock(const PROBE_SETTINGS& Probe, std::string* psError) const;
  static void Unlock(int LockFile);

 private:
  std::string    Path(uint32_t SerialNo, const char* sEnding) const;
  bool           MakeDirectory(std::string* psError) const;
  void           RemoveLeftovers(uint32_t SerialNo) const;
  bool           AddDefault(PROBE_SETTINGS* pProbe, std::string* psError) const;
  PROBE_SETTINGS LoadProbe(const std::string& sName) const;

  std::string sDirectory_;
};

// The device's supply, from its board or from the probe, in mV.
uint32_t SupplyOf(const PROBE_SETTINGS& Probe, const LINK& Link);

}  // namespace sim

#endif
