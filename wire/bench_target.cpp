// SPDX-License-Identifier: MIT

#include "wire/bench_target.h"

#include <stdlib.h>
#include <string.h>

#include "sim/text.h"

namespace wire {

static const uint64_t FAST_POLLS = 3;  // repeated reads that see a fast device busy
static const uint32_t NOT_POLLED = 1;  // no address of a word
static const uint32_t DEV_ID     = 0xFFF;

// -- What the chips are --------------------------------------------------------------------------

struct CORE_ROW {
  silicon::CORE Core;
  uint32_t      ApIdr;
  uint32_t      Cpuid;
  bool          IsArmv6;
  uint32_t      RomTable;
};

// The revision is the one that most parts with the core have.
static const CORE_ROW aCores[] = {
    {silicon::CORTEX_M0, 0x04770021, 0x410CC200, true, 0xE00FF000},
    {silicon::CORTEX_M0PLUS, 0x04770031, 0x410CC601, true, 0xF0000000},
    {silicon::CORTEX_M3, 0x24770011, 0x412FC230, false, 0xE00FF000},
    {silicon::CORTEX_M4, 0x24770011, 0x410FC241, false, 0xE00FF000},
    {silicon::CORTEX_M7, 0x74770001, 0x411FC270, false, 0xE00FD000},
};

static CHIP_IDENTITY IdentityOf(const silicon::DEVICE& Device) {
  for (const CORE_ROW& Row : aCores) {
    if (Row.Core == Device.pFamily->Core) {
      return {Device.pFamily->Dpidr,  Row.ApIdr,   Row.Cpuid,
              Device.IdCode & DEV_ID, Row.IsArmv6, Row.RomTable};
    }
  }
  return {};
}

// -- The bench -----------------------------------------------------------------------------------

bool BenchTarget::Open(uint32_t SerialNo, std::string* psError) {
  const bool Found =
      bench_.Find(SerialNo, "", &probe_, psError) && sim::OverruleTime(&probe_, psError);
  lock_ = Found ? bench_.Lock(probe_, psError) : -1;
  if (lock_ < 0 || !bench_.LoadDevice(probe_, &device_, &link_, psError)) {
    return false;
  }
  clock_    = sim::Clock(probe_.IsFast ? sim::Clock::FAST : sim::Clock::REAL, sim::WallUs);
  identity_ = IdentityOf(device_->Facts());
  trace_.Open(getenv("QUOBE_BENCH_TRACE"));
  device_->OnEvent = [this](uint64_t AtUs, const std::string& sText) {
    trace_.Event(AtUs, sText);
    resets_ += sText.starts_with("system reset");
    powerLosses_ += sText == "power off";
  };
  // What the last program left running has long come to its end.
  device_->FinishRunning();
  FollowSupply();
  return true;
}

BenchTarget::~BenchTarget() {
  if (device_ != nullptr) {
    device_->OnEvent = nullptr;
    link_.SupplyOn   = false;
    FollowSupply();
    device_->IsChanged = true;
    EndAccess();
  }
  sim::Bench::Unlock(lock_);
}

void BenchTarget::FollowSupply() {
  device_->SetVoltage(sim::SupplyOf(probe_, link_));
}

void BenchTarget::SwitchSupply(bool On) {
  link_.SupplyOn = On;
  FollowSupply();
}

// -- Accesses ------------------------------------------------------------------------------------

void BenchTarget::Advance() {
  clock_.Begin();
  device_->AdvanceTo(clock_.NowUs());
  clock_.End();
}

bool BenchTarget::PortAnswers() const {
  return device_->IsPowered() && (level2_ == LEVEL2_ACCESSES_FAIL || device_->DebugPortAnswers());
}

bool BenchTarget::BusAnswers() const {
  return device_->DebugPortAnswers();
}

// A caller that waits reads the same word again. Only that lets a device in fast time get on, so that a
// caller that forgets to wait finds it busy.
void BenchTarget::BeginAccess(uint32_t PolledAddress) {
  const bool     IsPoll  = PolledAddress != NOT_POLLED && PolledAddress == polled_;
  const uint64_t PhaseUs = device_->Flash().PhaseUs();
  polled_                = PolledAddress;
  numAccesses_++;
  clock_.Begin();
  if (IsPoll && clock_.IsFast() && device_->Flash().Busy() && PhaseUs != sim::FOREVER) {
    clock_.Spend(PhaseUs / FAST_POLLS + 1);
  }
  device_->AdvanceTo(clock_.NowUs());
}

// What the device has waited is still to be waited on the wires; in fast time it is over.
void BenchTarget::EndAccess() {
  std::string    sError;
  const uint64_t StalledUs = device_->TakeStalledUs();
  stallUs_                 = clock_.IsFast() ? 0 : StalledUs;
  if (clock_.IsFast()) {
    clock_.Spend(StalledUs);
  }
  clock_.End();
  if (device_->IsChanged) {
    device_->IsChanged = false;
    if (!bench_.SaveDevice(probe_, *device_, link_, &sError)) {
      trace_.Event(clock_.NowUs(), "state not saved: " + sError);
    }
  }
}

uint64_t BenchTarget::StallUs() {
  const uint64_t Us = stallUs_;
  stallUs_          = 0;
  return Us;
}

bool BenchTarget::Read(uint32_t Address, uint32_t Size, uint32_t* pValue) {
  BeginAccess(Address);
  const bool Good = device_->Read(Address, Size, pValue);
  trace_.Operation(clock_.NowUs(), numAccesses_,
                   "RD  " + (Good ? sim::DescribeAccess(device_.get(), Address, Size, *pValue)
                                  : sim::NameOf(device_.get(), Address) + ": failed"));
  EndAccess();
  return Good;
}

bool BenchTarget::Write(uint32_t Address, uint32_t Size, uint32_t Value) {
  BeginAccess(NOT_POLLED);
  const std::string sAccess = sim::DescribeAccess(device_.get(), Address, Size, Value);
  const bool        Good    = device_->Write(Address, Size, Value);
  trace_.Operation(clock_.NowUs(), numAccesses_,
                   (Size == 4   ? "WR  "
                    : Size == 2 ? "WR16 "
                                : "WR8 ") +
                       sAccess + (Good ? "" : ": failed"));
  EndAccess();
  return Good;
}

// -- Reset and core ------------------------------------------------------------------------------

void BenchTarget::SystemReset(bool HaltCore) {
  device_->SystemReset(HaltCore, "by the debugger");
  EndAccess();
}

void BenchTarget::HoldReset() {
  device_->HoldReset("by the pin");
  EndAccess();
}

void BenchTarget::ReleaseReset(bool HaltCore) {
  device_->ReleaseReset(HaltCore);
  EndAccess();
}

void BenchTarget::SetHalted(bool IsHalted) {
  if (IsHalted) {
    device_->HaltCore();
  } else {
    device_->RunCore();
  }
}

bool BenchTarget::IsHalted() const {
  return device_->CoreHalted();
}

}  // namespace wire
