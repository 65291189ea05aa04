#include "sim/trace.h"

#include "sim/text.h"

namespace sim {

Trace::~Trace() {
  Close();
}

void Trace::Open(const char* sPath) {
  if (pFile_ == nullptr && sPath != nullptr && *sPath != '\0') {
    pFile_ = fopen(sPath, "ae");
  }
}

void Trace::Close() {
  if (pFile_ != nullptr) {
    fclose(pFile_);
    pFile_ = nullptr;
  }
}

static std::string TimeText(uint64_t NowUs) {
  return Format("%5llu.%06llu", static_cast<unsigned long long>(NowUs / 1000000),
                static_cast<unsigned long long>(NowUs % 1000000));
}

// Each line is flushed: a trace is wanted most where a run did not come to its end.
void Trace::Operation(uint64_t NowUs, uint32_t Number, const std::string& sText) {
  if (pFile_ != nullptr) {
    fprintf(pFile_, "%s %5u  %s\n", TimeText(NowUs).c_str(), Number, sText.c_str());
    fflush(pFile_);
  }
}

void Trace::Event(uint64_t NowUs, const std::string& sText) {
  if (pFile_ != nullptr) {
    fprintf(pFile_, "%s     -    -- %s\n", TimeText(NowUs).c_str(), sText.c_str());
    fflush(pFile_);
  }
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
