// SPDX-License-Identifier: MIT

// The simulated probe library: the 16 operations on one bench, one probe per process. Results are those
// of probeapi/quobearm.h.

#include "probeapi/quobearm.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "sim/bench.h"
#include "sim/catalog.h"
#include "sim/clock.h"
#include "sim/text.h"
#include "sim/trace.h"

#define EXPORT extern "C" __attribute__((visibility("default")))

using namespace sim;

static const int32_t  INTERFACE_SWD    = 1;
static const uint32_t SPEED_AUTO       = 0;
static const uint32_t SPEED_ADAPTIVE   = 0xFFFF;  // there is no such thing with SWD
static const uint32_t AUTO_SPEED_KHZ   = 4000;
static const uint64_t HOST_US          = 250;  // one request to the probe and its answer
static const uint32_t BITS_PER_WORD    = 140;  // address, data and status on the wire
static const uint64_t RESET_US         = 10000;
static const uint64_t FAST_POLLS       = 3;    // repeated reads that see a fast device busy
static const uint32_t PATIENT_POLLS    = 500;  // after this many the CPU is left to others
static const uint64_t PATIENT_SLEEP_US = 1000;
static const uint32_t NOT_POLLED       = 1;  // no address of a word

namespace {

// What belongs to one connection. The next one begins anew, also with interface and speed.
struct CONNECTION {
  PROBE_SETTINGS          Settings;
  std::vector<FAULT>      Faults;
  std::unique_ptr<Device> pDevice;
  LINK                    Link;
  std::string             sSaved;  // what is in the device's file
  bool                    IsOpen         = false;
  bool                    IsLost         = false;
  bool                    IsBroken       = false;  // lost, and nothing more is stored
  bool                    SupplyOffAtEnd = false;
  bool                    IsSwd          = false;
  uint32_t                Speed          = 0;
  int32_t                 ResetDelayMs   = 0;
  uint32_t                DipVoltage     = 0;
  uint64_t                DipUntil       = 0;  // operation number, 0 when there is no dip
  uint32_t                BusyPolls      = 0;
  uint32_t                Polled         = NOT_POLLED;  // what was read last
  int                     Lock           = -1;
};

struct PROBE : CONNECTION {
  Bench       Where;
  uint32_t    SerialNo = 0;  // the chosen probe: by its number, else its address, else the default
  std::string sIP;
  Clock       Time{Clock::REAL, WallUs};
  Trace       Lines;
  std::string sError;  // of opening; its text
  uint32_t    Operation = 0;
};

}  // namespace

// A static, because the operations have no argument that could carry it.
static PROBE Probe;

// -- Around each operation -----------------------------------------------------------------------

// Asked after each change of the device, before the caller hears that it is done. A change that cannot
// be kept never happened: the operation fails and the probe answers no more, so nothing builds on it.
static bool Save(LASTING Lasting = UNTIL_EXIT) {
  std::string sError;
  if (!Probe.IsBroken && Probe.pDevice->IsChanged &&
      !Probe.Where.SaveDevice(Probe.Settings, *Probe.pDevice, Probe.Link, &sError, Lasting,
                              &Probe.sSaved)) {
    Probe.Lines.Event(Probe.Time.NowUs(), "state not saved, the connection is lost: " + sError);
    Probe.sError   = "The state of the device cannot be saved. " + sError;
    Probe.IsLost   = true;
    Probe.IsBroken = true;
  }
  Probe.pDevice->IsChanged = false;
  return !Probe.IsBroken;
}

static bool Hits(FAULT_KIND Kind) {
  return std::any_of(Probe.Faults.begin(), Probe.Faults.end(), [Kind](const FAULT& Fault) {
    return Fault.Kind == Kind && Fault.Operation == Probe.Operation;
  });
}

static uint32_t Voltage() {
  if (Probe.DipUntil != 0) {
    return Probe.DipVoltage;
  }
  return SupplyOf(Probe.Settings, Probe.Link);
}

static void FollowVoltage() {
  Probe.pDevice->SetVoltage(Voltage());
}

// Faults that happen whatever the operation is. Those of a read or a write: see Hits.
static void ApplyFaults() {
  if (Probe.DipUntil != 0 && Probe.Operation >= Probe.DipUntil) {
    Probe.DipUntil = 0;
    FollowVoltage();
  }
  for (const FAULT& Fault : Probe.Faults) {
    if (Fault.Operation != Probe.Operation) {
      continue;
    }
    if (Fault.Kind == LOST && !Probe.IsLost) {
      Probe.IsLost = true;
      Probe.Lines.Event(Probe.Time.NowUs(), "fault: the probe no longer answers");
      Probe.Link               = LINK();  // connection and supply went with the cable
      Probe.pDevice->IsChanged = true;
      FollowVoltage();
    } else if (Fault.Kind == POWER_DIP) {
      Probe.DipVoltage = static_cast<uint32_t>(Fault.First);
      Probe.DipUntil   = Probe.Operation + std::max<uint64_t>(Fault.Second, 1);
      Probe.Lines.Event(Probe.Time.NowUs(),
                        Format("fault: target voltage drops to %u mV", Probe.DipVoltage));
      FollowVoltage();
    } else if (Fault.Kind == BUSY) {
      Probe.Lines.Event(Probe.Time.NowUs(), "fault: the flash controller stays busy");
      Probe.pDevice->Flash().HoldBusy(Fault.First);
    }
  }
}

static void Begin() {
  if (Probe.Operation == 0) {
    Probe.Time = Clock(Clock::REAL, WallUs);
    Probe.Lines.Open(getenv("QUOBE_BENCH_TRACE"));
  }
  Probe.Operation++;
  Probe.Time.Begin();
  if (Probe.pDevice != nullptr && Probe.IsOpen) {
    Probe.pDevice->AdvanceTo(Probe.Time.NowUs());
    ApplyFaults();
    Save();
  }
}

static void End(const std::string& sText) {
  if (Probe.pDevice != nullptr && Probe.IsOpen) {
    Probe.Time.Spend(Probe.pDevice->TakeStalledUs());
  }
  Probe.Lines.Operation(Probe.Time.NowUs(), Probe.Operation, sText);
  Probe.IsLost = Probe.IsLost || (Probe.IsOpen && !Probe.Lines.Error().empty());
  Probe.Time.End();
}

// -- Connection ----------------------------------------------------------------------------------

EXPORT uint32_t QUOBEARM_IsOpen(void) {
  Begin();
  const bool Open = Probe.IsOpen && !Probe.IsLost;
  End(Format("IsOpen = %d", Open));
  return Open;
}

EXPORT uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port) {
  Begin();
  const std::string sIP = sHost != nullptr ? sHost : "";
  PROBE_SETTINGS    Found;
  std::string       sError;
  const bool        IsOnBench = !sIP.empty() && Probe.Where.Find(0, sIP, &Found, &sError);
  if (IsOnBench) {
    Probe.SerialNo = 0;
    Probe.sIP      = sIP;
  }
  End(Format("SelectIP(\"%s\", %d) = %d", sIP.c_str(), Port, !IsOnBench));
  return !IsOnBench;
}

EXPORT int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo) {
  Begin();
  Probe.SerialNo = SerialNo;
  Probe.sIP      = "";
  End(Format("EMU_SelectByUSBSN(%u)", SerialNo));
  return 0;
}

static bool LoadFaults(std::string* psError) {
  Probe.Faults.clear();
  for (const std::string& sFault : Probe.Settings.Faults) {
    FAULT Fault;
    if (!ParseFault(sFault, &Fault, psError)) {
      return false;
    }
    if (Fault.Kind == OPEN_FAILS) {
      *psError = Fault.sText;
      return false;
    }
    if (Fault.Kind == STUCK_BITS) {
      const int Word = Probe.pDevice->Flash().FindWord(Fault.sText);
      if (Word < 0) {
        *psError = Format("fault \"%s\": a %s has no such option word", sFault.c_str(),
                          Probe.pDevice->Name());
        return false;
      }
      Probe.pDevice->Flash().SetStuckBits(Word, static_cast<uint32_t>(Fault.First),
                                          static_cast<uint32_t>(Fault.Second));
    }
    Probe.Faults.push_back(Fault);
  }
  return true;
}

static void Disconnect() {
  Bench::Unlock(Probe.Lock);
  static_cast<CONNECTION&>(Probe) = CONNECTION();
  Probe.Lines.SetSerialNo(0);
}

EXPORT const char* QUOBEARM_Open(void) {
  Begin();
  if (Probe.IsOpen && !Probe.IsLost) {
    End("Open: is open already");
    return nullptr;
  }
  Disconnect();
  Probe.sError.clear();
  if (Probe.Where.Find(Probe.SerialNo, Probe.sIP, &Probe.Settings, &Probe.sError) &&
      OverruleTime(&Probe.Settings, &Probe.sError) && !Probe.Lines.Error().empty()) {
    Probe.sError = "The trace cannot be written. " + Probe.Lines.Error();
  }
  if (Probe.sError.empty()) {
    Probe.Lines.SetSerialNo(Probe.Settings.SerialNo);
    Probe.Lock = Probe.Where.Lock(Probe.Settings, &Probe.sError);
  }
  if (Probe.sError.empty() &&
      Probe.Where.LoadDevice(Probe.Settings, &Probe.pDevice, &Probe.Link, &Probe.sError) &&
      LoadFaults(&Probe.sError)) {
    Probe.Time             = Clock(Probe.Settings.IsFast ? Clock::FAST : Clock::REAL, WallUs);
    Probe.IsOpen           = true;
    Probe.pDevice->OnEvent = [](uint64_t AtUs, const std::string& sText) {
      Probe.Lines.Event(AtUs, sText);
    };
    // What the last program left running has long come to its end.
    Probe.pDevice->FinishRunning();
    Probe.pDevice->AdvanceTo(Probe.Time.NowUs());
    Probe.Link.IsOpen = true;
    FollowVoltage();
    Probe.pDevice->IsChanged = true;
    ApplyFaults();
    Probe.IsOpen = Save();
  }
  if (!Probe.IsOpen) {
    Disconnect();
  }
  End(Probe.IsOpen ? Format("Open: probe %u, %s", Probe.Settings.SerialNo, Probe.pDevice->Name())
                   : "Open: " + Probe.sError);
  return Probe.IsOpen ? nullptr : Probe.sError.c_str();
}

EXPORT void QUOBEARM_Close(void) {
  Begin();
  if (Probe.IsOpen) {
    if (Probe.SupplyOffAtEnd) {
      Probe.Link.SupplyOn = false;
    }
    Probe.DipUntil = 0;
    FollowVoltage();
    Probe.Link.IsOpen        = false;
    Probe.pDevice->IsChanged = true;
    Save(FOR_GOOD);
  }
  End(Probe.IsBroken ? "Close: failed" : "Close");
  Disconnect();
}

// -- Commands ------------------------------------------------------------------------------------

// "" when the command was carried out, else what was wrong with it.
static std::string RunCommand(const std::string& sCommand) {
  const std::vector<std::string> Parts  = Split(sCommand, '=');
  const bool                     HasOne = Parts.size() == 2;
  const std::string&             sName  = Parts[0];
  const std::string              sValue = HasOne ? Parts[1] : "";
  if (!Probe.IsOpen || Probe.IsLost) {
    return "Not connected to a probe";
  }
  if (EqualNoCase(sName, "device") && HasOne) {
    static const char* const aCores[] = {"Cortex-M0", "Cortex-M3", "Cortex-M4", "Cortex-M7"};
    const bool               Known =
        FindDevice(sValue) != nullptr ||
        std::any_of(std::begin(aCores), std::end(aCores),
                    [&sValue](const char* sCore) { return EqualNoCase(sValue, sCore); });
    return Known ? "" : "Unknown device \"" + sValue + "\"";
  }
  if (EqualNoCase(sName, "SupplyPower") && HasOne && (sValue == "0" || sValue == "1")) {
    Probe.Link.SupplyOn      = sValue == "1";
    Probe.pDevice->IsChanged = true;
    FollowVoltage();
    return Save() ? "" : Probe.sError;
  }
  if (EqualNoCase(sName, "DisablePowerSupplyOnClose") && Parts.size() == 1) {
    Probe.SupplyOffAtEnd = true;
    return "";
  }
  return "Unknown command \"" + sCommand + "\"";
}

EXPORT int32_t QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize) {
  Begin();
  const std::string sText  = sCommand != nullptr ? sCommand : "";
  const std::string sError = Hits(WRITE_DROPPED) ? "" : RunCommand(sText);
  if (pError != nullptr && BufferSize > 0) {
    const size_t NumChars = std::min(sError.size(), static_cast<size_t>(BufferSize) - 1);
    memcpy(pError, sError.data(), NumChars);
    pError[NumChars] = '\0';
  }
  Probe.Time.Spend(HOST_US);
  End("ExecCommand(\"" + sText + "\")" + (sError.empty() ? "" : ": " + sError));
  return sError.empty() ? 0 : -1;
}

// -- Target interface ----------------------------------------------------------------------------

EXPORT int32_t QUOBEARM_TIF_Select(int32_t Interface) {
  Begin();
  Probe.IsSwd = Interface == INTERFACE_SWD;
  End(Format("TIF_Select(%d)%s", Interface, Probe.IsSwd ? "  SWD" : ": not supported"));
  return Probe.IsSwd ? 0 : -1;
}

EXPORT void QUOBEARM_SetSpeed(uint32_t SpeedkHz) {
  Begin();
  const uint32_t Wanted =
      SpeedkHz == SPEED_AUTO || SpeedkHz == SPEED_ADAPTIVE ? AUTO_SPEED_KHZ : SpeedkHz;
  Probe.Speed = std::min(Wanted, Probe.Settings.MaxSpeed);
  End(Format("SetSpeed(%u)  %u kHz", SpeedkHz, Probe.Speed));
}

EXPORT uint32_t QUOBEARM_GetSpeed(void) {
  Begin();
  End(Format("GetSpeed = %u", Probe.Speed));
  return Probe.Speed;
}

// Of the record only the voltage is filled in; the rest is the caller's.
EXPORT int32_t QUOBEARM_GetHWStatus(HWSTATUS* pStatus) {
  Begin();
  const bool Good = Probe.IsOpen && !Probe.IsLost && !Hits(READ_FAILS);
  if (Good) {
    pStatus->VTarget = static_cast<uint16_t>(Voltage());
  }
  End(Good ? Format("GetHWStatus  VTarget=%u mV", pStatus->VTarget) : "GetHWStatus: failed");
  return Good ? 0 : -1;
}

// -- Target --------------------------------------------------------------------------------------

EXPORT int32_t QUOBEARM_SetResetType(int32_t Type) {
  Begin();
  End(Format("SetResetType(%d)", Type));
  return 0;
}

EXPORT void QUOBEARM_SetResetDelay(int32_t Delayms) {
  Begin();
  Probe.ResetDelayMs = Delayms;
  End(Format("SetResetDelay(%d)", Delayms));
}

EXPORT int32_t QUOBEARM_Reset(void) {
  Begin();
  // Without the pin the request goes over the debug port, as long as that answers.
  bool Good = Probe.IsOpen && !Probe.IsLost && Probe.pDevice->IsPowered() && !Hits(WRITE_DROPPED) &&
              (Probe.Settings.ResetPin || Probe.pDevice->DebugPortAnswers());
  if (Good) {
    Probe.pDevice->SystemReset(Probe.Settings.ResetHalts, "by the probe");
    Probe.Time.Spend(RESET_US + 1000 * static_cast<uint64_t>(std::max(Probe.ResetDelayMs, 0)));
    Probe.pDevice->AdvanceTo(Probe.Time.NowUs());
    Good = Save();
  }
  End(Good ? "Reset" : "Reset: failed");
  return Good ? 0 : -1;
}

static uint64_t TransferUs(uint32_t NumWords) {
  const uint32_t kHz = Probe.Speed != 0 ? Probe.Speed : AUTO_SPEED_KHZ;
  return HOST_US + static_cast<uint64_t>(NumWords) * BITS_PER_WORD * 1000 / kHz;
}

// A caller that waits reads the same word again. That lets a device in fast time get on: a tenth of a
// second or half a minute, it is ready after a few polls. No other access does: a caller that forgets
// to wait finds the device as busy as in real time.
static bool ReachesTarget(uint32_t PolledAddress) {
  const bool IsPoll = PolledAddress != NOT_POLLED && PolledAddress == Probe.Polled;
  Probe.Polled      = PolledAddress;
  if (!Probe.IsOpen || Probe.IsLost || !Probe.IsSwd) {
    return false;
  }
  const Controller& Flash = Probe.pDevice->Flash();
  if (IsPoll && Probe.Time.IsFast() && Flash.Busy() && Flash.PhaseUs() != FOREVER) {
    Probe.Time.Spend(Flash.PhaseUs() / FAST_POLLS + 1);
    Probe.pDevice->AdvanceTo(Probe.Time.NowUs());
  }
  return Probe.pDevice->DebugPortAnswers();
}

EXPORT int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData,
                                   uint8_t* pStatus) {
  Begin();
  const bool Reaches = ReachesTarget(Address) && !Hits(READ_FAILS);
  Probe.Time.Spend(TransferUs(NumItems));
  bool        Good = Reaches;
  std::string sText;
  for (uint32_t i = 0; i < NumItems && Good; i++) {
    uint32_t Value = 0;
    Good           = Probe.pDevice->Read(Address + 4 * i, 4, &Value);
    if (Good) {
      pData[i] = Value;
    }
    if (pStatus != nullptr) {
      pStatus[i] = !Good;
    }
    if (Probe.Lines.IsOn() && Good) {
      sText +=
          (i == 0 ? "RD  " : "; ") + DescribeAccess(Probe.pDevice.get(), Address + 4 * i, 4, Value);
    }
  }
  Good = Good && Save();  // what ran while it waited has come to its end
  Probe.BusyPolls =
      Probe.pDevice != nullptr && Probe.pDevice->Flash().Busy() && Probe.pDevice->IsPowered()
          ? Probe.BusyPolls + 1
          : (Good ? 0 : Probe.BusyPolls + 1);
  if (Probe.BusyPolls > PATIENT_POLLS) {
    SleepUs(PATIENT_SLEEP_US);
  }
  End(Good ? sText : "RD  " + NameOf(Probe.pDevice.get(), Address) + ": failed");
  return Good ? 0 : -1;
}

static int32_t Write(uint32_t Address, uint32_t Size, uint32_t Data) {
  Begin();
  const bool Dropped = Hits(WRITE_DROPPED);
  const bool Reaches = ReachesTarget(NOT_POLLED) && !Dropped;
  Probe.Time.Spend(TransferUs(1));
  // Named before it is done: a write that resets the device would find other names gone.
  const std::string sAccess =
      Probe.Lines.IsOn() ? DescribeAccess(Probe.pDevice.get(), Address, Size, Data) : "";
  const bool Good = Reaches && Probe.pDevice->Write(Address, Size, Data) && Save();
  End((Size == 4   ? "WR  "
       : Size == 2 ? "WR16 "
                   : "WR8 ") +
      sAccess +
      (Good      ? ""
       : Dropped ? ": dropped"
                 : ": failed"));
  return Good ? 0 : -1;
}

EXPORT int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data) {
  return Write(Address, 4, Data);
}

EXPORT int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data) {
  return Write(Address, 2, Data);
}
