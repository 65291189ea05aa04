// wire/adapter.h
// SPDX-License-Identifier: MIT
//
// A debug adapter that speaks CMSIS-DAP, protocol version 2.1, in reports of 64 bytes: SWD, the
// reset pin, the clock. Commands that it does not have are answered as the protocol says, by 0xFF.
//
// Faults are counted in SWD transfers from the adapter's first one on: what a Transfer or
// TransferBlock command lists. The reads of RDBUFF that the adapter adds are not counted.

#ifndef WIRE_ADAPTER_H
#define WIRE_ADAPTER_H

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "wire/swd.h"

namespace wire {

static const int REPORT_SIZE = 64;

enum FAULT_KIND {
  FAULT_LOST,    // the adapter is unplugged
  FAULT_SILENT,  // it takes commands and answers no more
  FAULT_ACK,     // answered with FAULT
  FAULT_NO_ACK,  // not answered on the wires
  FAULT_WAIT,    // answered with WAIT, Count times
  FAULT_PARITY,  // the data's parity is wrong
  FAULT_LATE     // the answer comes Count ms late
};

struct ADAPTER_FAULT {
  FAULT_KIND Kind     = FAULT_LOST;
  uint64_t   Transfer = 0;
  uint64_t   Count    = 1;
};

// "lost K", "silent K", "fault K", "no-ack K", "wait K COUNT", "parity K", "late K MS".
bool ParseAdapterFault(const std::string& sText, ADAPTER_FAULT* pFault);

struct ADAPTER {
  std::string                sSerial;
  bool                       TakesTime   = false;  // as long as the bits need at the clock set
  bool                       WaitsOnWire = false;  // a bus that stalls: WAIT, else a late answer
  std::vector<ADAPTER_FAULT> Faults;
};

class Adapter {
 public:
  Adapter(ADAPTER Setup, DebugPort& Port) : setup_(std::move(Setup)), port_(Port) {}

  // Carries out one report, and takes its time for that. pAnswer has room for REPORT_SIZE bytes; what
  // the answer leaves of them is set to 0. Returns the answer's length, 0 without an answer, -1 when the
  // adapter is unplugged.
  int Execute(const uint8_t* pRequest, uint8_t* pAnswer);

  // The host is gone: the port is disconnected, nRESET released. The chip stays as it is.
  void Disconnect();

  uint64_t NumTransfers() const { return numTransfers_; }

 private:
  struct READER;
  struct LIST;

  int                  Command(const uint8_t* pRequest, uint8_t* pAnswer);
  int                  Info(uint8_t What, uint8_t* pAnswer);
  bool                 SetClock(uint32_t Hz);
  uint8_t              Connect(uint8_t Wanted);
  int                  Transfer(READER* pReader, uint8_t* pAnswer);
  int                  TransferBlock(READER* pReader, uint8_t* pAnswer);
  int                  Pins(READER* pReader, uint8_t* pAnswer);
  int                  Sequence(READER* pReader, uint8_t* pAnswer);
  uint8_t              One(uint8_t Request, uint32_t* pData);
  uint8_t              Raw(uint8_t Request, uint32_t* pData);
  uint8_t              FetchPosted(LIST* pList);
  uint8_t              ListRead(LIST* pList, uint8_t Request);
  uint8_t              ListWrite(LIST* pList, uint8_t Request, uint32_t Data);
  uint8_t              MatchRead(uint8_t Request, uint32_t Match);
  const ADAPTER_FAULT* Hit() const;

  ADAPTER    setup_;
  DebugPort& port_;
  uint64_t   numTransfers_ = 0;
  uint64_t   waitsLeft_    = 0;
  uint64_t   bits_         = 0;  // on the wires, of the report that is being carried out
  uint32_t   clockHz_      = 1000000;
  bool       connected_    = false;
  bool       unplugged_    = false;
  bool       silent_       = false;
  bool       resetLow_     = false;
  uint16_t   waitRetries_  = 100;
  uint16_t   matchRetries_ = 0;
  uint32_t   matchMask_    = 0;
};

}  // namespace wire

#endif
