// SPDX-License-Identifier: MIT

#include "wire/adapter.h"

#include <string.h>
#include <time.h>

#include <algorithm>
#include <sstream>

namespace wire {

enum COMMAND : uint8_t {
  DAP_INFO               = 0x00,
  DAP_HOST_STATUS        = 0x01,
  DAP_CONNECT            = 0x02,
  DAP_DISCONNECT         = 0x03,
  DAP_TRANSFER_CONFIGURE = 0x04,
  DAP_TRANSFER           = 0x05,
  DAP_TRANSFER_BLOCK     = 0x06,
  DAP_TRANSFER_ABORT     = 0x07,
  DAP_WRITE_ABORT        = 0x08,
  DAP_DELAY              = 0x09,
  DAP_RESET_TARGET       = 0x0A,
  DAP_SWJ_PINS           = 0x10,
  DAP_SWJ_CLOCK          = 0x11,
  DAP_SWJ_SEQUENCE       = 0x12,
  DAP_SWD_CONFIGURE      = 0x13,
  DAP_INVALID            = 0xFF
};

enum INFO : uint8_t {
  INFO_SERIAL       = 0x03,
  INFO_PROTOCOL     = 0x04,
  INFO_CAPABILITIES = 0xF0,
  INFO_PACKET_COUNT = 0xFE,
  INFO_PACKET_SIZE  = 0xFF
};

static const uint8_t STATUS_OK = 0x00, STATUS_ERROR = 0xFF;
static const uint8_t PORT_SWD        = 1;
static const uint8_t CAPABILITY_SWD  = 1;
static const uint8_t REQUEST_AP      = 1u << 0;
static const uint8_t REQUEST_READ    = 1u << 1;
static const uint8_t REQUEST_ADDRESS = 3u << 2;
static const uint8_t REQUEST_MATCH   = 1u << 4;
static const uint8_t REQUEST_MASK    = 1u << 5;
static const uint8_t REQUEST_RDBUFF  = REQUEST_READ | 0xC;
static const uint8_t ACK_PROTOCOL    = 1u << 3;
static const uint8_t ACK_MISMATCH    = 1u << 4;
static const uint8_t PIN_SWCLK = 1u << 0, PIN_SWDIO = 1u << 1, PIN_TDO = 1u << 3,
                     PIN_NRESET         = 1u << 7;
static const uint32_t LINE_RESET_BITS   = 50;
static const uint64_t BITS_PER_TRANSFER = 46;  // request, acknowledge, data, parity and turns
static const uint64_t LATE_STEP_US      = 100;

bool ParseAdapterFault(const std::string& sText, ADAPTER_FAULT* pFault) {
  static const struct {
    const char* sName;
    FAULT_KIND  Kind;
    bool        HasCount;
  } aKinds[] = {
      {"lost", FAULT_LOST, false}, {"silent", FAULT_SILENT, false},
      {"fault", FAULT_ACK, false}, {"no-ack", FAULT_NO_ACK, false},
      {"wait", FAULT_WAIT, true},  {"parity", FAULT_PARITY, false},
      {"late", FAULT_LATE, true},
  };
  std::istringstream Text(sText);
  std::string        sName;
  // A stream takes "-1" for a large number.
  if (sText.find('-', sText.find(' ')) != std::string::npos) {
    return false;
  }
  Text >> sName >> pFault->Transfer;
  for (const auto& Each : aKinds) {
    if (sName != Each.sName || Text.fail() || pFault->Transfer == 0) {
      continue;
    }
    pFault->Kind = Each.Kind;
    if (Each.HasCount) {
      Text >> pFault->Count;
    }
    std::string sRest;
    return !Text.fail() && !(Text >> sRest);
  }
  return false;
}

// What is left of a report. A report that ends too early reads as zeros.
struct Adapter::READER {
  const uint8_t* pNext;
  const uint8_t* pEnd;

  uint8_t U8() { return pNext < pEnd ? *pNext++ : 0; }

  uint16_t U16() {
    const uint8_t Low = U8();
    return static_cast<uint16_t>(Low | U8() << 8);
  }

  uint32_t U32() {
    const uint16_t Low = U16();
    return Low | static_cast<uint32_t>(U16()) << 16;
  }
};

static void StoreU16(uint8_t* p, uint32_t Value) {
  p[0] = static_cast<uint8_t>(Value);
  p[1] = static_cast<uint8_t>(Value >> 8);
}

static void StoreU32(uint8_t* p, uint32_t Value) {
  StoreU16(p, Value);
  StoreU16(p + 2, Value >> 16);
}

static void SleepUs(uint64_t Us) {
  const timespec Time = {static_cast<time_t>(Us / 1000000), static_cast<long>(Us % 1000000) * 1000};
  nanosleep(&Time, nullptr);
}

// -- Commands ------------------------------------------------------------------------------------

int Adapter::Info(uint8_t What, uint8_t* pAnswer) {
  const auto Text = [pAnswer](const std::string& s) {
    pAnswer[1] = static_cast<uint8_t>(std::min<size_t>(s.size() + 1, REPORT_SIZE - 2));
    memcpy(pAnswer + 2, s.c_str(), pAnswer[1]);
    return 2 + pAnswer[1];
  };
  switch (What) {
    case INFO_SERIAL:
      return Text(setup_.sSerial);
    case INFO_PROTOCOL:
      return Text("2.1.0");
    case INFO_CAPABILITIES:
      pAnswer[1] = 1;
      pAnswer[2] = CAPABILITY_SWD;
      return 3;
    case INFO_PACKET_COUNT:
      pAnswer[1] = 1;
      pAnswer[2] = 1;
      return 3;
    case INFO_PACKET_SIZE:
      pAnswer[1] = 2;
      StoreU16(pAnswer + 2, REPORT_SIZE);
      return 4;
    default:
      pAnswer[1] = 0;
      return 2;
  }
}

int Adapter::Pins(READER* pReader, uint8_t* pAnswer) {
  const uint8_t Output = pReader->U8();
  const uint8_t Select = pReader->U8();
  if ((Select & PIN_NRESET) != 0) {
    resetLow_ = (Output & PIN_NRESET) == 0;
    port_.SetResetPin(resetLow_);
  }
  pAnswer[1] = static_cast<uint8_t>(PIN_SWCLK | PIN_SWDIO | PIN_TDO | (resetLow_ ? 0 : PIN_NRESET));
  return 2;
}

// Switching and dormant sequences are all taken: what counts is the line reset in them.
int Adapter::Sequence(READER* pReader, uint8_t* pAnswer) {
  const uint8_t  Count   = pReader->U8();
  const uint32_t NumBits = Count == 0 ? 256 : Count;
  uint32_t       Ones    = 0;
  uint8_t        Byte    = 0;
  for (uint32_t i = 0; i < NumBits; i++) {
    Byte = i % 8 == 0 ? pReader->U8() : static_cast<uint8_t>(Byte >> 1);
    Ones = (Byte & 1) != 0 ? Ones + 1 : 0;
    if (Ones == LINE_RESET_BITS) {
      port_.LineReset();
    }
  }
  pAnswer[1] = STATUS_OK;
  return 2;
}

bool Adapter::SetClock(uint32_t Hz) {
  clockHz_ = Hz != 0 ? Hz : clockHz_;
  return Hz != 0;
}

uint8_t Adapter::Connect(uint8_t Wanted) {
  connected_ = Wanted == 0 || Wanted == PORT_SWD;
  return connected_ ? PORT_SWD : 0;
}

void Adapter::Disconnect() {
  connected_ = false;
  resetLow_  = false;
  port_.SetResetPin(false);
}

int Adapter::Execute(const uint8_t* pRequest, uint8_t* pAnswer) {
  bits_            = 0;
  const int Length = Command(pRequest, pAnswer);
  if (setup_.TakesTime && bits_ != 0) {
    SleepUs(bits_ * 1000000 / clockHz_);
  }
  return unplugged_ ? -1 : silent_ ? 0 : Length;
}

int Adapter::Command(const uint8_t* pRequest, uint8_t* pAnswer) {
  READER Reader = {pRequest + 1, pRequest + REPORT_SIZE};
  memset(pAnswer, 0, REPORT_SIZE);
  pAnswer[0] = pRequest[0];
  pAnswer[1] = STATUS_OK;
  int Length = 2;
  switch (pRequest[0]) {
    case DAP_INFO:
      Length = Info(Reader.U8(), pAnswer);
      break;
    case DAP_HOST_STATUS:
    case DAP_SWD_CONFIGURE:
    case DAP_DELAY:
      break;
    case DAP_CONNECT:
      pAnswer[1] = Connect(Reader.U8());
      break;
    case DAP_DISCONNECT:
      Disconnect();
      break;
    case DAP_TRANSFER_CONFIGURE:
      Reader.U8();
      waitRetries_  = Reader.U16();
      matchRetries_ = Reader.U16();
      break;
    case DAP_TRANSFER:
      Length = Transfer(&Reader, pAnswer);
      break;
    case DAP_TRANSFER_BLOCK:
      Length = TransferBlock(&Reader, pAnswer);
      break;
    case DAP_TRANSFER_ABORT:
      Length = 0;
      break;
    case DAP_WRITE_ABORT: {
      Reader.U8();
      uint32_t Data = Reader.U32();
      pAnswer[1]    = One(0, &Data) == ACK_OK ? STATUS_OK : STATUS_ERROR;
      break;
    }
    case DAP_RESET_TARGET:
      pAnswer[2] = 0;
      Length     = 3;
      break;
    case DAP_SWJ_PINS:
      Length = Pins(&Reader, pAnswer);
      break;
    case DAP_SWJ_CLOCK:
      pAnswer[1] = SetClock(Reader.U32()) ? STATUS_OK : STATUS_ERROR;
      break;
    case DAP_SWJ_SEQUENCE:
      Length = Sequence(&Reader, pAnswer);
      break;
    default:
      pAnswer[0] = DAP_INVALID;
      Length     = 1;
      break;
  }
  return Length;
}

// -- Transfers -----------------------------------------------------------------------------------

const ADAPTER_FAULT* Adapter::Hit() const {
  for (const ADAPTER_FAULT& Fault : setup_.Faults) {
    if (Fault.Transfer == numTransfers_) {
      return &Fault;
    }
  }
  return nullptr;
}

// One transfer on the wires, repeated while the answer is WAIT and the retries last.
uint8_t Adapter::Raw(uint8_t Request, uint32_t* pData) {
  const bool     IsAp     = (Request & REQUEST_AP) != 0;
  const bool     IsRead   = (Request & REQUEST_READ) != 0;
  const uint32_t Register = Request & REQUEST_ADDRESS;
  const bool     Always   = !IsAp && (Register == 0 || (IsRead && Register == 4));
  uint32_t       Attempts = waitRetries_ + 1u;
  for (;;) {
    uint8_t Ack = ACK_WAIT;
    bits_ += BITS_PER_TRANSFER;
    if (waitsLeft_ != 0 && !Always) {
      waitsLeft_--;
    } else {
      Ack = port_.Transfer(IsAp, IsRead, Register, pData);
      if (Ack == ACK_WAIT && !setup_.WaitsOnWire) {
        SleepUs(LATE_STEP_US);
        continue;
      }
    }
    if (Ack != ACK_WAIT || --Attempts == 0) {
      return Ack;
    }
  }
}

// A transfer of the host's list, with the fault that was ordered for it.
uint8_t Adapter::One(uint8_t Request, uint32_t* pData) {
  numTransfers_++;
  const ADAPTER_FAULT* pFault = Hit();
  if (pFault == nullptr) {
    return Raw(Request, pData);
  }
  switch (pFault->Kind) {
    case FAULT_LOST:
      unplugged_ = true;
      return ACK_NONE;
    case FAULT_SILENT:
      silent_ = true;
      return ACK_NONE;
    case FAULT_ACK:
      return ACK_FAULT;
    case FAULT_NO_ACK:
      return ACK_NONE;
    case FAULT_PARITY:
      Raw(Request, pData);
      return ACK_OK | ACK_PROTOCOL;
    case FAULT_WAIT:
      waitsLeft_ = pFault->Count;
      return Raw(Request, pData);
    case FAULT_LATE:
      SleepUs(pFault->Count * 1000);
      return Raw(Request, pData);
  }
  return ACK_NONE;
}

uint8_t Adapter::MatchRead(uint8_t Request, uint32_t Match) {
  uint32_t Data = 0;
  uint8_t  Ack  = One(Request, &Data);
  if (Ack == ACK_OK && (Request & REQUEST_AP) != 0) {
    Ack = Raw(Request, &Data);
  }
  for (uint32_t i = 0; Ack == ACK_OK && (Data & matchMask_) != Match; i++) {
    if (i == matchRetries_) {
      return ACK_OK | ACK_MISMATCH;
    }
    Ack = Raw(Request, &Data);
  }
  return Ack;
}

// AP reads are posted: each gives the value of the one before. The host sees nothing of that, each
// read of its list gets its own value.
struct Adapter::LIST {
  uint8_t* pData;       // where the next word read goes
  bool     IsPosted;    // an AP read's value has not been fetched
  bool     CheckWrite;  // the last transfer was a write, whose outcome is not known yet

  void Store(uint32_t Data) {
    StoreU32(pData, Data);
    pData += 4;
  }
};

uint8_t Adapter::FetchPosted(LIST* pList) {
  uint32_t      Data = 0;
  const uint8_t Ack  = Raw(REQUEST_RDBUFF, &Data);
  if (Ack == ACK_OK && pList->IsPosted) {
    pList->Store(Data);
  }
  pList->IsPosted   = false;
  pList->CheckWrite = false;
  return Ack;
}

uint8_t Adapter::ListRead(LIST* pList, uint8_t Request) {
  uint32_t      Data   = 0;
  const bool    IsAp   = (Request & REQUEST_AP) != 0;
  const bool    Posted = pList->IsPosted;
  const uint8_t Ack    = One(Request, &Data);
  if (Ack == ACK_OK && (!IsAp || Posted)) {
    pList->Store(Data);
  }
  pList->IsPosted   = IsAp;
  pList->CheckWrite = false;
  return Ack;
}

uint8_t Adapter::ListWrite(LIST* pList, uint8_t Request, uint32_t Data) {
  if ((Request & REQUEST_MASK) != 0) {
    matchMask_ = Data;
    return ACK_OK;
  }
  pList->CheckWrite = true;
  return One(Request, &Data);
}

int Adapter::Transfer(READER* pReader, uint8_t* pAnswer) {
  pReader->U8();  // index of the device, for JTAG
  const uint8_t NumWanted = pReader->U8();
  uint8_t       NumDone   = 0;
  uint8_t       Ack       = connected_ && NumWanted != 0 ? ACK_OK : 0;
  LIST          List      = {pAnswer + 3, false, false};
  for (uint8_t i = 0; i < NumWanted && Ack == ACK_OK; i++) {
    const uint8_t Request  = pReader->U8();
    const bool    IsRead   = (Request & REQUEST_READ) != 0;
    const bool    IsMatch  = IsRead && (Request & REQUEST_MATCH) != 0;
    const bool    IsApRead = IsRead && !IsMatch && (Request & REQUEST_AP) != 0;
    if (List.IsPosted && !IsApRead) {
      Ack = FetchPosted(&List);
    }
    if (Ack == ACK_OK) {
      Ack     = IsMatch  ? MatchRead(Request, pReader->U32())
                : IsRead ? ListRead(&List, Request)
                         : ListWrite(&List, Request, pReader->U32());
      NumDone = static_cast<uint8_t>(NumDone + (Ack == ACK_OK));
    }
    // Twelve writes fill a report, fifteen words an answer.
    if (List.pData + 8 > pAnswer + REPORT_SIZE) {
      break;
    }
  }
  if (Ack == ACK_OK && (List.IsPosted || List.CheckWrite)) {
    Ack = FetchPosted(&List);
  }
  pAnswer[1] = NumDone;
  pAnswer[2] = Ack;
  return static_cast<int>(List.pData - pAnswer);
}

int Adapter::TransferBlock(READER* pReader, uint8_t* pAnswer) {
  pReader->U8();
  const uint16_t NumWanted = pReader->U16();
  const uint8_t  Request   = pReader->U8();
  uint16_t       NumDone   = 0;
  uint8_t        Ack       = connected_ && NumWanted != 0 ? ACK_OK : 0;
  LIST           List      = {pAnswer + 4, false, false};
  while (NumDone < NumWanted && Ack == ACK_OK && List.pData + 8 <= pAnswer + REPORT_SIZE) {
    Ack     = (Request & REQUEST_READ) != 0 ? ListRead(&List, Request)
                                            : ListWrite(&List, Request, pReader->U32());
    NumDone = static_cast<uint16_t>(NumDone + (Ack == ACK_OK));
  }
  if (Ack == ACK_OK && (List.IsPosted || List.CheckWrite)) {
    Ack = FetchPosted(&List);
  }
  StoreU16(pAnswer + 1, NumDone);
  pAnswer[3] = Ack;
  return static_cast<int>(List.pData - pAnswer);
}

}  // namespace wire
