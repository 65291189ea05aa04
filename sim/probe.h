// sim/probe.h
//
// The probe: what the 16 operations of the library do, on one bench. One connection at a time.

#ifndef SIM_PROBE_H
#define SIM_PROBE_H

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "sim/bench.h"
#include "sim/clock.h"
#include "sim/trace.h"

namespace sim {

class Probe {
 public:
  Probe()                        = default;
  Probe(const Probe&)            = delete;
  Probe& operator=(const Probe&) = delete;

  // The operations; results as in probeapi/quobearm.h.
  uint32_t    IsOpen();
  uint32_t    SelectIP(const char* sHost, int32_t Port);
  int32_t     SelectByUSBSN(uint32_t SerialNo);
  const char* Open();
  void        Close();
  int32_t     ExecCommand(const char* sCommand, char* pError, int32_t BufferSize);
  int32_t     SelectInterface(int32_t Interface);
  void        SetSpeed(uint32_t SpeedkHz);
  uint32_t    GetSpeed();
  bool        GetVoltage(uint16_t* pMillivolts);
  int32_t     SetResetType(int32_t Type);
  void        SetResetDelay(int32_t Delayms);
  int32_t     Reset();
  int32_t     ReadMemory(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus);
  int32_t     WriteMemory(uint32_t Address, uint32_t Size, uint32_t Data);

 private:
  enum SELECTION { ANY, BY_SERIAL, BY_IP };

  static constexpr uint32_t NOT_POLLED = 1;  // no address of a word

  void        Begin();
  void        End(const std::string& sText);
  bool        Hits(FAULT_KIND Kind) const;
  void        ApplyFaults();
  std::string Find(PROBE_SETTINGS* pProbe);
  bool        LoadFaults(std::string* psError);
  uint32_t    Voltage() const;
  void        FollowVoltage();
  bool        Save(LASTING Lasting = UNTIL_EXIT);
  void        Disconnect();
  bool        ReachesTarget(uint32_t PolledAddress);
  uint64_t    TransferUs(uint32_t NumWords) const;
  std::string RunCommand(const std::string& sCommand);

  Bench                   bench_;
  SELECTION               selection_ = ANY;
  uint32_t                serialNo_  = 0;
  std::string             sIP_;
  PROBE_SETTINGS          probe_;
  std::vector<FAULT>      faults_;
  std::unique_ptr<Device> device_;
  LINK                    link_;
  Clock                   clock_{Clock::REAL, WallUs};
  Trace                   trace_;
  std::string             sOpenError_;
  std::string             sSaved_;  // what is in the device's file
  uint32_t                operation_      = 0;
  bool                    open_           = false;
  bool                    lost_           = false;
  bool                    broken_         = false;  // lost, and nothing more is stored
  bool                    supplyOffAtEnd_ = false;
  bool                    swd_            = false;
  uint32_t                speed_          = 0;
  int32_t                 resetDelayMs_   = 0;
  uint32_t                dipVoltage_     = 0;
  uint32_t                dipUntil_       = 0;  // operation number, 0 when there is no dip
  uint32_t                busyPolls_      = 0;
  uint32_t                polled_         = NOT_POLLED;  // what was read last
  int                     lock_           = -1;
};

}  // namespace sim

#endif
