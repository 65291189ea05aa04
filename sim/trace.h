// sim/trace.h
//
// The trace: one line per probe operation with register and bit names, and lines for what happens
// inside the device. Written to the file that QUOBE_BENCH_TRACE names; appended, so that several
// runs can be read in one file. Without that variable nothing is written.

#ifndef SIM_TRACE_H
#define SIM_TRACE_H

#include <stdint.h>
#include <stdio.h>

#include <string>

#include "sim/device.h"

namespace sim {

class Trace {
 public:
  Trace() = default;
  ~Trace();
  Trace(const Trace&)            = delete;
  Trace& operator=(const Trace&) = delete;

  // A file that cannot be opened is no trace.
  void Open(const char* sPath);
  void Close();
  bool IsOn() const { return pFile_ != nullptr; }

  void Operation(uint64_t NowUs, uint32_t Number, const std::string& sText);
  void Event(uint64_t NowUs, const std::string& sText);

 private:
  FILE* pFile_ = nullptr;
};

// "FLASH_OPTCR = 0x0FFFAAEE  OPTSTRT RDP=AA ..."; Device may be NULL.
std::string DescribeAccess(const Device* pDevice, uint32_t Address, uint32_t Size, uint32_t Value);

// "FLASH_OPTCR", or the address where nothing has a name.
std::string NameOf(const Device* pDevice, uint32_t Address);

}  // namespace sim

#endif
