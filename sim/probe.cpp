#include "sim/probe.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "sim/catalog.h"
#include "sim/text.h"

namespace sim {

static const int32_t  INTERFACE_SWD  = 1;
static const uint32_t SPEED_AUTO     = 0;
static const uint32_t SPEED_ADAPTIVE = 0xFFFF;  // there is no such thing with SWD
static const uint32_t AUTO_SPEED_KHZ = 4000;
static const uint64_t HOST_US        = 250;  // one request to the probe and its answer
static const uint32_t BITS_PER_WORD  = 140;  // address, data and status on the wire
static const uint64_t RESET_US       = 10000;
static const uint64_t FAST_POLLS     = 3;    // repeated reads that see a fast device busy
static const uint32_t PATIENT_POLLS  = 500;  // after so many polls in vain, leave the CPU to others
static const uint64_t PATIENT_SLEEP_US = 1000;

// -- Around each operation -----------------------------------------------------------------------

void Probe::Begin() {
  if (operation_ == 0) {
    trace_.Open(getenv("QUOBE_BENCH_TRACE"));
  }
  operation_++;
  clock_.Begin();
  if (device_ != nullptr && open_) {
    device_->AdvanceTo(clock_.NowUs());
    ApplyFaults();
    Save();
  }
}

void Probe::End(const std::string& sText) {
  if (device_ != nullptr && open_) {
    clock_.Spend(device_->TakeStalledUs());
  }
  trace_.Operation(clock_.NowUs(), operation_, sText);
  lost_ = lost_ || (open_ && !trace_.Error().empty());
  clock_.End();
}

// Whoever changes the device asks this before saying that it is done. What cannot be kept never
// happened: the operation fails, and the probe answers no more, so nothing is built on it.
bool Probe::Save(LASTING Lasting) {
  std::string sError;
  if (!broken_ && device_->IsChanged &&
      !bench_.SaveDevice(probe_, *device_, link_, &sError, Lasting, &sSaved_)) {
    trace_.Event(clock_.NowUs(), "state not saved, the connection is lost: " + sError);
    sOpenError_ = "The state of the device cannot be saved. " + sError;
    lost_       = true;
    broken_     = true;
  }
  device_->IsChanged = false;
  return !broken_;
}

bool Probe::Hits(FAULT_KIND Kind) const {
  return std::any_of(faults_.begin(), faults_.end(), [this, Kind](const FAULT& Fault) {
    return Fault.Kind == Kind && Fault.Operation == operation_;
  });
}

// The faults that come by themselves; those of a read or a write are looked at there.
void Probe::ApplyFaults() {
  if (dipUntil_ != 0 && operation_ >= dipUntil_) {
    dipUntil_ = 0;
    FollowVoltage();
  }
  for (const FAULT& Fault : faults_) {
    if (Fault.Operation != operation_) {
      continue;
    }
    if (Fault.Kind == LOST && !lost_) {
      lost_ = true;
      trace_.Event(clock_.NowUs(), "fault: the probe no longer answers");
      link_              = LINK();  // connection and supply went with the cable
      device_->IsChanged = true;
      FollowVoltage();
    } else if (Fault.Kind == POWER_DIP) {
      dipVoltage_ = static_cast<uint32_t>(Fault.First);
      dipUntil_   = operation_ + static_cast<uint32_t>(std::max<uint64_t>(Fault.Second, 1));
      trace_.Event(clock_.NowUs(), Format("fault: target voltage drops to %u mV", dipVoltage_));
      FollowVoltage();
    } else if (Fault.Kind == BUSY) {
      trace_.Event(clock_.NowUs(), "fault: the flash controller stays busy");
      device_->Flash().HoldBusy(Fault.First);
    }
  }
}

uint32_t Probe::Voltage() const {
  if (dipUntil_ != 0) {
    return dipVoltage_;
  }
  return SupplyOf(probe_, link_);
}

void Probe::FollowVoltage() {
  device_->SetVoltage(Voltage());
}

// -- Connection ----------------------------------------------------------------------------------

uint32_t Probe::IsOpen() {
  Begin();
  const bool Open = open_ && !lost_;
  End(Format("IsOpen = %d", Open));
  return Open;
}

uint32_t Probe::SelectIP(const char* sHost, int32_t Port) {
  Begin();
  PROBE_SETTINGS Found;
  std::string    sError;
  sIP_                 = sHost != nullptr ? sHost : "";
  const bool IsOnBench = bench_.FindByIP(sIP_, &Found, &sError);
  if (IsOnBench) {
    selection_ = BY_IP;
  }
  End(Format("SelectIP(\"%s\", %d) = %d", sIP_.c_str(), Port, !IsOnBench));
  return !IsOnBench;
}

int32_t Probe::SelectByUSBSN(uint32_t SerialNo) {
  Begin();
  selection_ = BY_SERIAL;
  serialNo_  = SerialNo;
  End(Format("EMU_SelectByUSBSN(%u)", SerialNo));
  return 0;
}

// "" when the chosen probe was found.
std::string Probe::Find(PROBE_SETTINGS* pProbe) {
  std::string sError;
  const bool  Found = selection_ == BY_SERIAL ? bench_.FindBySerial(serialNo_, pProbe, &sError)
                      : selection_ == BY_IP   ? bench_.FindByIP(sIP_, pProbe, &sError)
                                              : bench_.FindDefault(pProbe, &sError);
  return Found ? "" : sError;
}

bool Probe::LoadFaults(std::string* psError) {
  faults_.clear();
  for (const std::string& sFault : probe_.Faults) {
    FAULT Fault;
    if (!ParseFault(sFault, &Fault, psError)) {
      return false;
    }
    if (Fault.Kind == OPEN_FAILS) {
      *psError = Fault.sText;
      return false;
    }
    if (Fault.Kind == STUCK_BITS) {
      const int Word = device_->Flash().FindWord(Fault.sText);
      if (Word < 0) {
        *psError =
            Format("fault \"%s\": a %s has no such option word", sFault.c_str(), device_->Name());
        return false;
      }
      device_->Flash().SetStuckBits(Word, static_cast<uint32_t>(Fault.First),
                                    static_cast<uint32_t>(Fault.Second));
    }
    faults_.push_back(Fault);
  }
  return true;
}

const char* Probe::Open() {
  Begin();
  if (open_ && !lost_) {
    End("Open: is open already");
    return nullptr;
  }
  Disconnect();
  sOpenError_ = Find(&probe_);
  if (sOpenError_.empty() && !trace_.Error().empty()) {
    sOpenError_ = "The trace cannot be written. " + trace_.Error();
  }
  if (sOpenError_.empty()) {
    trace_.SetSerialNo(probe_.SerialNo);
    lock_ = bench_.Lock(probe_, &sOpenError_);
  }
  if (sOpenError_.empty() && bench_.LoadDevice(probe_, &device_, &link_, &sOpenError_) &&
      LoadFaults(&sOpenError_)) {
    const char* sTime = getenv("QUOBE_BENCH_TIME");
    const bool  Fast  = sTime != nullptr ? strcmp(sTime, "fast") == 0 : probe_.IsFast;
    clock_            = Clock(Fast ? Clock::FAST : Clock::REAL, WallUs);
    open_             = true;
    device_->OnEvent  = [this](uint64_t AtUs, const std::string& sText) {
      trace_.Event(AtUs, sText);
    };
    // What the last program left running has long come to its end.
    device_->Flash().FinishAll();
    device_->AdvanceTo(clock_.NowUs());
    link_.IsOpen = true;
    FollowVoltage();
    device_->IsChanged = true;
    ApplyFaults();
    open_ = Save();
  }
  if (!open_) {
    Disconnect();
  }
  End(open_ ? Format("Open: probe %u, %s", probe_.SerialNo, device_->Name())
            : "Open: " + sOpenError_);
  return open_ ? nullptr : sOpenError_.c_str();
}

void Probe::Close() {
  Begin();
  if (open_) {
    if (supplyOffAtEnd_) {
      link_.SupplyOn = false;
    }
    dipUntil_ = 0;
    FollowVoltage();
    link_.IsOpen       = false;
    device_->IsChanged = true;
    Save(FOR_GOOD);
  }
  End(broken_ ? "Close: failed" : "Close");
  Disconnect();
}

// Nothing of a connection is left for the next one: interface and speed are chosen anew.
void Probe::Disconnect() {
  open_           = false;
  lost_           = false;
  broken_         = false;
  supplyOffAtEnd_ = false;
  swd_            = false;
  speed_          = 0;
  resetDelayMs_   = 0;
  dipUntil_       = 0;
  busyPolls_      = 0;
  sSaved_.clear();
  trace_.SetSerialNo(0);
  device_.reset();
  Bench::Unlock(lock_);
  lock_ = -1;
}

// -- Commands ------------------------------------------------------------------------------------

// "" when the command was carried out, else what was wrong with it.
std::string Probe::RunCommand(const std::string& sCommand) {
  const std::vector<std::string> Parts  = Split(sCommand, '=');
  const bool                     HasOne = Parts.size() == 2;
  const std::string&             sName  = Parts[0];
  const std::string              sValue = HasOne ? Parts[1] : "";
  if (!open_ || lost_) {
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
    link_.SupplyOn     = sValue == "1";
    device_->IsChanged = true;
    FollowVoltage();
    return Save() ? "" : sOpenError_;
  }
  if (EqualNoCase(sName, "DisablePowerSupplyOnClose") && Parts.size() == 1) {
    supplyOffAtEnd_ = true;
    return "";
  }
  return "Unknown command \"" + sCommand + "\"";
}

int32_t Probe::ExecCommand(const char* sCommand, char* pError, int32_t BufferSize) {
  Begin();
  const std::string sText  = sCommand != nullptr ? sCommand : "";
  const std::string sError = Hits(WRITE_DROPPED) ? "" : RunCommand(sText);
  if (pError != nullptr && BufferSize > 0) {
    const size_t NumChars = std::min(sError.size(), static_cast<size_t>(BufferSize) - 1);
    memcpy(pError, sError.data(), NumChars);
    pError[NumChars] = '\0';
  }
  clock_.Spend(HOST_US);
  End("ExecCommand(\"" + sText + "\")" + (sError.empty() ? "" : ": " + sError));
  return sError.empty() ? 0 : -1;
}

// -- Target interface ----------------------------------------------------------------------------

int32_t Probe::SelectInterface(int32_t Interface) {
  Begin();
  swd_ = Interface == INTERFACE_SWD;
  End(Format("TIF_Select(%d)%s", Interface, swd_ ? "  SWD" : ": not supported"));
  return swd_ ? 0 : -1;
}

void Probe::SetSpeed(uint32_t SpeedkHz) {
  Begin();
  const uint32_t Wanted =
      SpeedkHz == SPEED_AUTO || SpeedkHz == SPEED_ADAPTIVE ? AUTO_SPEED_KHZ : SpeedkHz;
  speed_ = std::min(Wanted, probe_.MaxSpeed);
  End(Format("SetSpeed(%u)  %u kHz", SpeedkHz, speed_));
}

uint32_t Probe::GetSpeed() {
  Begin();
  End(Format("GetSpeed = %u", speed_));
  return speed_;
}

bool Probe::GetVoltage(uint16_t* pMillivolts) {
  Begin();
  const bool Good = open_ && !lost_ && !Hits(READ_FAILS);
  if (Good) {
    *pMillivolts = static_cast<uint16_t>(Voltage());
  }
  End(Good ? Format("GetHWStatus  VTarget=%u mV", *pMillivolts) : "GetHWStatus: failed");
  return Good;
}

// -- Target --------------------------------------------------------------------------------------

int32_t Probe::SetResetType(int32_t Type) {
  Begin();
  End(Format("SetResetType(%d)", Type));
  return 0;
}

void Probe::SetResetDelay(int32_t Delayms) {
  Begin();
  resetDelayMs_ = Delayms;
  End(Format("SetResetDelay(%d)", Delayms));
}

int32_t Probe::Reset() {
  Begin();
  // Without the pin the request goes over the debug port, as long as that answers.
  bool Good = open_ && !lost_ && device_->IsPowered() && !Hits(WRITE_DROPPED) &&
              (probe_.ResetPin || device_->DebugPortAnswers());
  if (Good) {
    device_->SystemReset(probe_.ResetHalts, "by the probe");
    clock_.Spend(RESET_US + 1000 * static_cast<uint64_t>(std::max(resetDelayMs_, 0)));
    device_->AdvanceTo(clock_.NowUs());
    Good = Save();
  }
  End(Good ? "Reset" : "Reset: failed");
  return Good ? 0 : -1;
}

uint64_t Probe::TransferUs(uint32_t NumWords) const {
  const uint32_t kHz = speed_ != 0 ? speed_ : AUTO_SPEED_KHZ;
  return HOST_US + static_cast<uint64_t>(NumWords) * BITS_PER_WORD * 1000 / kHz;
}

// A caller that waits reads the same word again. That lets a device in fast time get on: a tenth of a
// second or half a minute, it is ready after a few polls. No other access does: a caller that forgets
// to wait finds the device as busy as in real time.
bool Probe::ReachesTarget(uint32_t PolledAddress) {
  const bool IsPoll = PolledAddress != NOT_POLLED && PolledAddress == polled_;
  polled_           = PolledAddress;
  if (!open_ || lost_ || !swd_) {
    return false;
  }
  const Controller& Flash = device_->Flash();
  if (IsPoll && clock_.IsFast() && Flash.Busy() && Flash.PhaseUs() != FOREVER) {
    clock_.Spend(Flash.PhaseUs() / FAST_POLLS + 1);
    device_->AdvanceTo(clock_.NowUs());
  }
  return device_->DebugPortAnswers();
}

int32_t Probe::ReadMemory(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus) {
  Begin();
  const bool Reaches = ReachesTarget(Address) && !Hits(READ_FAILS);
  clock_.Spend(TransferUs(NumItems));
  bool        Good = Reaches;
  std::string sText;
  for (uint32_t i = 0; i < NumItems && Good; i++) {
    uint32_t Value = 0;
    Good           = device_->Read(Address + 4 * i, 4, &Value);
    if (Good) {
      pData[i] = Value;
    }
    if (pStatus != nullptr) {
      pStatus[i] = !Good;
    }
    if (trace_.IsOn() && Good) {
      sText += (i == 0 ? "RD  " : "; ") + DescribeAccess(device_.get(), Address + 4 * i, 4, Value);
    }
  }
  Good       = Good && Save();  // what ran while it waited has come to its end
  busyPolls_ = device_ != nullptr && device_->Flash().Busy() && device_->IsPowered()
                   ? busyPolls_ + 1
                   : (Good ? 0 : busyPolls_ + 1);
  if (busyPolls_ > PATIENT_POLLS) {
    SleepUs(PATIENT_SLEEP_US);
  }
  End(Good ? sText : "RD  " + NameOf(device_.get(), Address) + ": failed");
  return Good ? 0 : -1;
}

int32_t Probe::WriteMemory(uint32_t Address, uint32_t Size, uint32_t Data) {
  Begin();
  const bool Dropped = Hits(WRITE_DROPPED);
  const bool Reaches = ReachesTarget(NOT_POLLED) && !Dropped;
  clock_.Spend(TransferUs(1));
  // Named before it is done: a write that resets the device would find other names gone.
  const std::string sAccess =
      trace_.IsOn() ? DescribeAccess(device_.get(), Address, Size, Data) : "";
  const bool Good = Reaches && device_->Write(Address, Size, Data) && Save();
  End((Size == 4   ? "WR  "
       : Size == 2 ? "WR16 "
                   : "WR8 ") +
      sAccess +
      (Good      ? ""
       : Dropped ? ": dropped"
                 : ": failed"));
  return Good ? 0 : -1;
}

}  // namespace sim
