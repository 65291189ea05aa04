// sim/trace.h
// SPDX-License-Identifier: MIT
//
// The trace: one line per probe operation with register and bit names, and lines for what happens
// inside the device. Written to the file that QUOBE_BENCH_TRACE names; appended, so that several
// runs can be read in one file. Without that variable nothing is written.
//
//      12.345678#1     17  WR  FLASH_KEYR = 0x45670123  KEY1
//
// Seconds since the connection was made, the probe's serial number (- while none is chosen), the
// number of the operation or - for what happens inside, text. Each line is one write: those of two
// programs are never mixed.

#ifndef SIM_TRACE_H
#define SIM_TRACE_H

#include <stdint.h>

#include <string>

#include "sim/device.h"

namespace sim {

class Trace {
 public:
  Trace() = default;
  ~Trace();
  Trace(const Trace&)            = delete;
  Trace& operator=(const Trace&) = delete;

  // NULL and "" for no trace. A file that cannot be written shows in Error.
  void Open(const char* sPath);
  bool IsOn() const { return file_ >= 0; }
  // "trace.txt: No space left on device"; "" while every line was written.
  const std::string& Error() const { return sError_; }

  void SetSerialNo(uint32_t SerialNo) { serialNo_ = SerialNo; }
  void Operation(uint64_t NowUs, uint32_t Number, const std::string& sText);
  void Event(uint64_t NowUs, const std::string& sText);

 private:
  void Line(uint64_t NowUs, const std::string& sRest);

  int         file_     = -1;
  uint32_t    serialNo_ = 0;
  std::string sPath_;
  std::string sError_;
};

// "FLASH_OPTCR = 0x0FFFAAEE  OPTSTRT RDP=AA ..."; Device may be NULL.
std::string DescribeAccess(const Device* pDevice, uint32_t Address, uint32_t Size, uint32_t Value);

// "FLASH_OPTCR", or the address where nothing has a name.
std::string NameOf(const Device* pDevice, uint32_t Address);

}  // namespace sim

#endif
