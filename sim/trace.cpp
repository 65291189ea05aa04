// SPDX-License-Identifier: MIT

#include "sim/trace.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "sim/text.h"

namespace sim {

Trace::~Trace() {
  if (file_ >= 0) {
    close(file_);
  }
}

void Trace::Open(const char* sPath) {
  if (file_ < 0 && sPath != nullptr && *sPath != '\0') {
    sPath_  = sPath;
    file_   = open(sPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    sError_ = file_ < 0 ? sPath_ + ": " + strerror(errno) : "";
  }
}

void Trace::Line(uint64_t NowUs, const std::string& sRest) {
  if (file_ < 0 || !sError_.empty()) {
    return;
  }
  const std::string sSerial = serialNo_ != 0 ? std::to_string(serialNo_) : "-";
  const std::string sLine =
      Format("%5llu.%06llu#%s %s\n", static_cast<unsigned long long>(NowUs / 1000000),
             static_cast<unsigned long long>(NowUs % 1000000), sSerial.c_str(), sRest.c_str());
  const ssize_t Written = write(file_, sLine.data(), sLine.size());
  if (Written != static_cast<ssize_t>(sLine.size())) {
    sError_ = sPath_ + ": " + strerror(Written < 0 ? errno : ENOSPC);
  }
}

void Trace::Operation(uint64_t NowUs, uint32_t Number, const std::string& sText) {
  Line(NowUs, Format("%5u  ", Number) + sText);
}

void Trace::Event(uint64_t NowUs, const std::string& sText) {
  Line(NowUs, "    -    -- " + sText);
}

std::string NameOf(const Device* pDevice, uint32_t Address) {
  const REGISTER* pRow = pDevice != nullptr ? pDevice->Describe(Address) : nullptr;
  return pRow != nullptr ? pRow->sName : Format("[0x%08X]", Address);
}

std::string DescribeAccess(const Device* pDevice, uint32_t Address, uint32_t Size, uint32_t Value) {
  const REGISTER* pRow = pDevice != nullptr ? pDevice->Describe(Address) : nullptr;
  std::string     sText =
      NameOf(pDevice, Address) + Format(" = 0x%0*X", static_cast<int>(Size * 2), Value);
  std::string sDetail;
  if (pRow != nullptr && Size == 4) {
    sDetail = DecodeFields(pRow->Fields, Value);
  }
  if (pDevice != nullptr && pDevice->Flash().NameOfKey(Address, Value) != nullptr) {
    sDetail = pDevice->Flash().NameOfKey(Address, Value);
  }
  return sDetail.empty() ? sText : sText + "  " + sDetail;
}

}  // namespace sim
