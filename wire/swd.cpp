// SPDX-License-Identifier: MIT

#include "wire/swd.h"

#include <utility>

namespace wire {

static const uint32_t DP_DPIDR_ABORT = 0x0, DP_CTRL_STAT = 0x4, DP_RESEND_SELECT = 0x8,
                      DP_RDBUFF      = 0xC;
static const uint32_t ABORT_DAPABORT = 1u << 0, ABORT_STKERRCLR = 1u << 2;
static const uint32_t STICKYERR  = 1u << 5;
static const uint32_t CDBGRSTREQ = 1u << 26, CDBGPWRUPREQ = 1u << 28, CSYSPWRUPREQ = 1u << 30;
static const uint32_t REQUESTS        = CDBGRSTREQ | CDBGPWRUPREQ | CSYSPWRUPREQ;
static const uint32_t CTRL_WRITABLE   = 0x50000FCD | REQUESTS;  // what a write keeps
static const uint32_t SELECT_DPBANK   = 0xF;
static const uint32_t SELECT_APBANK   = 0xF0;
static const uint32_t SELECT_AP_SHIFT = 24;

static const uint32_t AP_CSW = 0x00, AP_TAR = 0x04, AP_DRW = 0x0C, AP_BD0 = 0x10, AP_BD3 = 0x1C,
                      AP_BASE = 0xF8, AP_IDR = 0xFC;
static const uint32_t CSW_RESET    = 0x03000040;
static const uint32_t CSW_SIZE     = 0x7;
static const uint32_t CSW_ADDRINC  = 3u << 4;
static const uint32_t CSW_SINGLE   = 1u << 4;
static const uint32_t CSW_PACKED   = 2u << 4;
static const uint32_t CSW_DEVICEEN = 1u << 6;
static const uint32_t CSW_READONLY = 0x00800F80;  // SPIDEN, Mode, TrInProg
static const uint32_t BASE_PRESENT = 3;
static const uint32_t TAR_BLOCK    = 0xFFF;  // the increment wraps in a block of 4 KB

DebugPort::DebugPort(Target& Chip, std::function<uint64_t()> NowUs)
    : chip_(Chip), core_(Chip), nowUs_(std::move(NowUs)), csw_(CSW_RESET) {}

// A loss of power is the one thing that resets the debug port.
void DebugPort::Follow() {
  chip_.Advance();
  if (powerLosses_ != chip_.PowerLosses()) {
    powerLosses_ = chip_.PowerLosses();
    busyUntil_   = 0;
    control_ = select_ = posted_ = tar_ = 0;
    stickyError_                        = false;
    csw_                                = CSW_RESET;
  }
  core_.Follow();
}

void DebugPort::LineReset() {
  select_ &= ~SELECT_DPBANK;
}

bool DebugPort::IsBusy() {
  if (busyUntil_ != 0 && nowUs_() >= busyUntil_) {
    busyUntil_ = 0;
  }
  return busyUntil_ != 0;
}

ACK DebugPort::Transfer(bool IsAp, bool IsRead, uint32_t Register, uint32_t* pData) {
  Follow();
  if (!chip_.PortAnswers()) {
    return ACK_NONE;
  }
  // DPIDR, CTRL/STAT and ABORT are answered whatever is under way or has failed.
  const bool Always = !IsAp && (Register == DP_DPIDR_ABORT || (IsRead && Register == DP_CTRL_STAT &&
                                                               (select_ & SELECT_DPBANK) == 0));
  if (!Always && IsBusy()) {
    return ACK_WAIT;
  }
  if (!Always && stickyError_) {
    return ACK_FAULT;
  }
  if (!IsAp) {
    return IsRead ? DpRead(Register, pData) : DpWrite(Register, *pData);
  }
  const uint32_t Address = (select_ & SELECT_APBANK) | Register;
  const bool     Exists  = select_ >> SELECT_AP_SHIFT == 0;
  if (!IsRead) {
    if (Exists) {
      ApWrite(Address, *pData);
    }
    return ACK_OK;
  }
  *pData  = posted_;
  posted_ = Exists ? ApRead(Address) : 0;
  return ACK_OK;
}

uint32_t DebugPort::ControlStatus() const {
  // Each request bit is acknowledged at once, by the bit above it.
  return control_ | (control_ & REQUESTS) << 1 | (stickyError_ ? STICKYERR : 0);
}

ACK DebugPort::DpRead(uint32_t Register, uint32_t* pData) {
  switch (Register) {
    case DP_DPIDR_ABORT:
      *pData = chip_.Identity().DpIdr;
      break;
    case DP_CTRL_STAT:
      *pData = (select_ & SELECT_DPBANK) == 0 ? ControlStatus() : 0;
      break;
    default:  // RESEND, RDBUFF
      *pData = posted_;
      break;
  }
  return ACK_OK;
}

ACK DebugPort::DpWrite(uint32_t Register, uint32_t Data) {
  switch (Register) {
    case DP_DPIDR_ABORT:
      if ((Data & ABORT_DAPABORT) != 0) {
        busyUntil_ = 0;
      }
      if ((Data & ABORT_STKERRCLR) != 0) {
        stickyError_ = false;
      }
      break;
    case DP_CTRL_STAT:
      if ((select_ & SELECT_DPBANK) == 0) {
        control_ = Data & CTRL_WRITABLE;
      }
      break;
    case DP_RESEND_SELECT:
      select_ = Data;
      break;
    default:  // TARGETSEL, which has no meaning on a single drop
      break;
  }
  return ACK_OK;
}

// -- AHB-AP --------------------------------------------------------------------------------------

uint32_t DebugPort::ApRead(uint32_t Register) {
  switch (Register) {
    case AP_CSW:
      return csw_;
    case AP_TAR:
      return tar_;
    case AP_DRW: {
      const uint32_t Size  = 1u << (csw_ & CSW_SIZE);
      const uint32_t Value = BusRead(tar_, Size);
      Increment(Size);
      return Value;
    }
    case AP_BASE:
      return chip_.Identity().RomTable | BASE_PRESENT;
    case AP_IDR:
      return chip_.Identity().ApIdr;
    default:
      return Register >= AP_BD0 && Register <= AP_BD3
                 ? BusRead((tar_ & ~0xFu) | (Register & 0xF), 4)
                 : 0;
  }
}

void DebugPort::ApWrite(uint32_t Register, uint32_t Data) {
  switch (Register) {
    case AP_CSW:
      csw_ = (Data & ~CSW_READONLY) | CSW_DEVICEEN;
      // Packed transfers are not there: the field reads back as "no increment".
      if ((csw_ & CSW_ADDRINC) == CSW_PACKED) {
        csw_ &= ~CSW_ADDRINC;
      }
      break;
    case AP_TAR:
      tar_ = Data;
      break;
    case AP_DRW: {
      const uint32_t Size = 1u << (csw_ & CSW_SIZE);
      BusWrite(tar_, Size, Data);
      Increment(Size);
      break;
    }
    default:
      if (Register >= AP_BD0 && Register <= AP_BD3) {
        BusWrite((tar_ & ~0xFu) | (Register & 0xF), 4, Data);
      }
      break;
  }
}

// A debugger reads TAR to name the access that failed, so it moves after good ones only.
void DebugPort::Increment(uint32_t Size) {
  if ((csw_ & CSW_ADDRINC) == CSW_SINGLE && !stickyError_) {
    tar_ = (tar_ & ~TAR_BLOCK) | ((tar_ + Size) & TAR_BLOCK);
  }
}

bool DebugPort::BusTakes(uint32_t Address, uint32_t Size) {
  return Size <= 4 && Address % Size == 0 && chip_.BusAnswers();
}

uint32_t DebugPort::BusRead(uint32_t Address, uint32_t Size) {
  const uint32_t Lane  = 8 * (Address & 3);
  uint32_t       Value = 0;
  if (!BusTakes(Address, Size)) {
    stickyError_ = true;
    return 0;
  }
  if (Core::Owns(Address)) {
    return core_.Read(Address & ~3u);
  }
  stickyError_           = !chip_.Read(Address, Size, &Value);
  const uint64_t StallUs = chip_.StallUs();
  busyUntil_             = StallUs != 0 ? nowUs_() + StallUs : 0;
  core_.Follow();
  return stickyError_ ? 0 : Value << Lane;
}

void DebugPort::BusWrite(uint32_t Address, uint32_t Size, uint32_t Lanes) {
  if (!BusTakes(Address, Size)) {
    stickyError_ = true;
    return;
  }
  const uint32_t Mask  = Size == 4 ? ~0u : (1u << 8 * Size) - 1;
  const uint32_t Value = Lanes >> 8 * (Address & 3) & Mask;
  if (Core::Owns(Address)) {
    core_.Write(Address & ~3u, Value);
    return;
  }
  stickyError_           = !chip_.Write(Address, Size, Value);
  const uint64_t StallUs = chip_.StallUs();
  busyUntil_             = StallUs != 0 ? nowUs_() + StallUs : 0;
  core_.Follow();
}

}  // namespace wire
