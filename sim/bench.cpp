// SPDX-License-Identifier: MIT

#include "sim/bench.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "sim/catalog.h"
#include "sim/request.h"
#include "sim/text.h"

namespace sim {

static const uint32_t    DEFAULT_SERIAL_NO = 1;
static const char* const DEFAULT_DEVICE    = "STM32F407";

// -- Faults --------------------------------------------------------------------------------------

struct FAULT_ROW {
  const char* sName;
  FAULT_KIND  Kind;
  size_t      NumWords;
  const char* sUsage;
};

static const FAULT_ROW aFaultRows[] = {
    {"open-fails", OPEN_FAILS, 2, "open-fails TEXT"},
    {"lost", LOST, 2, "lost OPERATION"},
    {"read-fails", READ_FAILS, 2, "read-fails OPERATION"},
    {"write-dropped", WRITE_DROPPED, 2, "write-dropped OPERATION"},
    {"power-dip", POWER_DIP, 4, "power-dip OPERATION MV OPERATIONS"},
    {"busy", BUSY, 3, "busy OPERATION MS|forever"},
    {"stuck", STUCK_BITS, 4, "stuck WORD MASK VALUE"},
};

bool ParseFault(const std::string& sText, FAULT* pFault, std::string* psError) {
  const std::vector<std::string> Words = SplitWords(sText);
  for (const FAULT_ROW& Row : aFaultRows) {
    if (Words.empty() || Words[0] != Row.sName) {
      continue;
    }
    *psError = std::string("expected: ") + Row.sUsage;
    if (Words.size() != Row.NumWords) {
      return false;
    }
    pFault->Kind = Row.Kind;
    if (Row.Kind == OPEN_FAILS || Row.Kind == STUCK_BITS) {
      pFault->sText = Words[1];
    } else if (!ParseU32(Words[1], &pFault->Operation) || pFault->Operation == 0) {
      return false;
    }
    if (Row.Kind == BUSY && Words[2] == "forever") {
      pFault->First = FOREVER;
      return true;
    }
    if (Row.NumWords > 2 &&
        (!ParseNumber(Words[2], &pFault->First) || pFault->First > UINT32_MAX)) {
      return false;
    }
    if (Row.NumWords > 3 &&
        (!ParseNumber(Words[3], &pFault->Second) || pFault->Second > UINT32_MAX)) {
      return false;
    }
    if (Row.Kind == BUSY) {
      pFault->First *= 1000;
    }
    return true;
  }
  *psError = "unknown fault \"" + sText + "\"";
  return false;
}

// -- Probes --------------------------------------------------------------------------------------

// Every setting but the network address and the faults.
struct NUMBER_ROW {
  const char* sKey;
  uint32_t PROBE_SETTINGS::*pNumber;
  uint32_t                  Min, Max;
};
struct SWITCH_ROW {
  const char* sKey;
  bool PROBE_SETTINGS::*pSwitch;
  const char*           sOn;
  const char*           sOff;
};

static const NUMBER_ROW aNumberRows[] = {
    {.sKey = "serial", .pNumber = &PROBE_SETTINGS::SerialNo, .Min = 1, .Max = UINT32_MAX},
    {.sKey = "vtarget", .pNumber = &PROBE_SETTINGS::VTarget, .Min = 0, .Max = UINT16_MAX},
    {.sKey = "supply", .pNumber = &PROBE_SETTINGS::Supply, .Min = 0, .Max = UINT16_MAX},
    {.sKey = "max_speed", .pNumber = &PROBE_SETTINGS::MaxSpeed, .Min = 1, .Max = UINT32_MAX},
};
static const SWITCH_ROW aSwitchRows[] = {
    {.sKey = "default", .pSwitch = &PROBE_SETTINGS::IsDefault, .sOn = "yes", .sOff = "no"},
    {.sKey = "reset_halts", .pSwitch = &PROBE_SETTINGS::ResetHalts, .sOn = "yes", .sOff = "no"},
    {.sKey = "reset_pin", .pSwitch = &PROBE_SETTINGS::ResetPin, .sOn = "yes", .sOff = "no"},
    {.sKey = "time", .pSwitch = &PROBE_SETTINGS::IsFast, .sOn = "fast", .sOff = "real"},
};

bool SetProbeSetting(PROBE_SETTINGS* pProbe, const std::string& sKey, const std::string& sValue,
                     std::string* psError) {
  if (sValue.find_first_of("\r\n") != std::string::npos) {
    *psError = sKey + ": a value is one line";
    return false;
  }
  *psError = "\"" + sValue + "\" is no value for " + sKey;
  for (const NUMBER_ROW& Row : aNumberRows) {
    if (sKey == Row.sKey) {
      uint32_t& Number = pProbe->*Row.pNumber;
      return ParseU32(sValue, &Number) && Number >= Row.Min && Number <= Row.Max;
    }
  }
  for (const SWITCH_ROW& Row : aSwitchRows) {
    if (sKey == Row.sKey) {
      pProbe->*Row.pSwitch = sValue == Row.sOn;
      return sValue == Row.sOn || sValue == Row.sOff;
    }
  }
  if (sKey == "ip") {
    pProbe->sIP = sValue;
    return true;
  }
  if (sKey == "fault") {
    FAULT Fault;
    pProbe->Faults.push_back(sValue);
    return ParseFault(sValue, &Fault, psError);
  }
  *psError = "a probe has no setting \"" + sKey + "\"";
  return false;
}

bool OverruleTime(PROBE_SETTINGS* pProbe, std::string* psError) {
  const char* sTime = getenv("QUOBE_BENCH_TIME");
  std::string sError;
  if (sTime == nullptr || *sTime == '\0' || SetProbeSetting(pProbe, "time", sTime, &sError)) {
    return true;
  }
  *psError = "QUOBE_BENCH_TIME: " + sError;
  return false;
}

// -- Bench ---------------------------------------------------------------------------------------

Bench::Bench() {
  const char* sBench = getenv("QUOBE_BENCH");
  const char* sHome  = getenv("HOME");
  if (sBench != nullptr && *sBench != '\0') {
    sDirectory_ = sBench;
  } else {
    sDirectory_ = std::string(sHome != nullptr ? sHome : ".") + "/.quobe-bench";
  }
}

std::string Bench::Path(uint32_t SerialNo, const char* sEnding) const {
  return Format("%s/%u.%s", sDirectory_.c_str(), SerialNo, sEnding);
}

bool Bench::MakeDirectory(std::string* psError) const {
  if (mkdir(sDirectory_.c_str(), 0755) != 0 && errno != EEXIST) {
    *psError = sDirectory_ + ": " + strerror(errno);
    return false;
  }
  return true;
}

static bool EndsWith(const std::string& sText, const std::string& sEnding) {
  return sText.size() > sEnding.size() &&
         sText.compare(sText.size() - sEnding.size(), sEnding.size(), sEnding) == 0;
}

// The names in a directory; false, with errno, when it cannot be read.
static bool NamesIn(const std::string& sDirectory, std::vector<std::string>* pNames) {
  DIR* pDir = opendir(sDirectory.c_str());
  if (pDir == nullptr) {
    return false;
  }
  while (const struct dirent* pEntry = readdir(pDir)) {
    pNames->push_back(pEntry->d_name);
  }
  closedir(pDir);
  return true;
}

// Of SERIAL.probe, whatever is in it.
PROBE_SETTINGS Bench::LoadProbe(const std::string& sName) const {
  PROBE_SETTINGS    Probe;
  KeyFile           File;
  std::string       sError;
  const std::string sPath = sDirectory_ + "/" + sName;
  bool              Good  = File.Load(sPath, &sError);
  for (const KEY_LINE& Line : File.Lines()) {
    std::string sWrong;
    if (!SetProbeSetting(&Probe, Line.sKey, Line.sValue, &sWrong) && Good) {
      Good   = false;
      sError = File.Place(Line) + sWrong;
    }
  }
  if (Good && sPath != Path(Probe.SerialNo, "probe")) {
    Good   = false;
    sError = sPath + ": holds serial number " + std::to_string(Probe.SerialNo);
  }
  if (!Good) {
    const bool IsDefault = Probe.IsDefault;
    Probe                = PROBE_SETTINGS();
    Probe.sError         = sError;
    ParseU32(sName.substr(0, sName.find('.')), &Probe.SerialNo);
    // A copy such as 7.old.probe spoils no probe 7.
    Probe.SerialNo = sPath == Path(Probe.SerialNo, "probe") ? Probe.SerialNo : 0;
    // Otherwise a caller that chooses no probe would get another device.
    Probe.IsDefault = IsDefault && Probe.SerialNo != 0;
  }
  return Probe;
}

bool Bench::List(std::vector<PROBE_SETTINGS>* pProbes, std::string* psError) const {
  pProbes->clear();
  std::vector<std::string> Names;
  if (!NamesIn(sDirectory_, &Names) && errno != ENOENT) {
    *psError = sDirectory_ + ": " + strerror(errno);
    return false;
  }
  for (const std::string& sName : Names) {
    if (EndsWith(sName, ".probe")) {
      pProbes->push_back(LoadProbe(sName));
    }
  }
  std::sort(pProbes->begin(), pProbes->end(), [](const PROBE_SETTINGS& A, const PROBE_SETTINGS& B) {
    return A.SerialNo < B.SerialNo;
  });
  return true;
}

const PROBE_SETTINGS* Bench::DefaultOf(const std::vector<PROBE_SETTINGS>& Probes) {
  for (const PROBE_SETTINGS& Probe : Probes) {
    if (Probe.IsDefault) {
      return &Probe;
    }
  }
  const auto Lowest = std::find_if(Probes.begin(), Probes.end(), [](const PROBE_SETTINGS& Each) {
    return Each.SerialNo != 0;  // else a damaged file whose name is no number
  });
  return Lowest != Probes.end() ? &*Lowest : nullptr;
}

// One that was found and can be used.
static bool Take(const PROBE_SETTINGS& Found, PROBE_SETTINGS* pProbe, std::string* psError) {
  *pProbe  = Found;
  *psError = Found.sError;
  return psError->empty();
}

bool Bench::AddDefault(PROBE_SETTINGS* pProbe, std::string* psError) const {
  PROBE_SETTINGS Probe;
  Probe.SerialNo = DEFAULT_SERIAL_NO;
  const int File = Lock(Probe, psError);
  if (File < 0) {
    return false;
  }
  // Somebody may have been faster; what that one put there is not to be replaced.
  std::vector<PROBE_SETTINGS> Probes;
  bool                        Good = List(&Probes, psError);
  if (Good && DefaultOf(Probes) == nullptr) {
    Device Target(*FindDevice(DEFAULT_DEVICE));
    FillFlash(&Target, 64 * 1024);
    Probes.push_back(Probe);
    Good = SaveDevice(Probe, Target, LINK(), psError) && SaveProbe(Probe, psError);
  }
  Unlock(File);
  return Good && Take(*DefaultOf(Probes), pProbe, psError);
}

bool Bench::Find(uint32_t SerialNo, const std::string& sIP, PROBE_SETTINGS* pProbe,
                 std::string* psError) const {
  std::vector<PROBE_SETTINGS> Probes;
  if (!List(&Probes, psError)) {
    return false;
  }
  if (SerialNo == 0 && sIP.empty()) {
    const PROBE_SETTINGS* pFound = DefaultOf(Probes);
    return pFound == nullptr ? AddDefault(pProbe, psError) : Take(*pFound, pProbe, psError);
  }
  for (const PROBE_SETTINGS& Probe : Probes) {
    if (SerialNo != 0 ? Probe.SerialNo == SerialNo : Probe.sIP == sIP) {
      return Take(Probe, pProbe, psError);
    }
  }
  *psError = (SerialNo != 0 ? Format("No probe with serial number %u", SerialNo)
                            : "No probe with the address \"" + sIP + "\"") +
             " is on the bench " + sDirectory_ + ".";
  return false;
}

bool Bench::SaveProbe(const PROBE_SETTINGS& Probe, std::string* psError) const {
  KeyFile File;
  for (const NUMBER_ROW& Row : aNumberRows) {
    File.Add(Row.sKey, std::to_string(Probe.*Row.pNumber));
  }
  for (const SWITCH_ROW& Row : aSwitchRows) {
    File.Add(Row.sKey, Probe.*Row.pSwitch ? Row.sOn : Row.sOff);
  }
  if (!Probe.sIP.empty()) {
    File.Add("ip", Probe.sIP);
  }
  for (const std::string& sFault : Probe.Faults) {
    File.Add("fault", sFault);
  }
  return MakeDirectory(psError) &&
         ReplaceFile(Path(Probe.SerialNo, "probe"),
                     File.Text("A simulated probe; see docs/simulator.md"), FOR_GOOD, psError);
}

bool Bench::LoadDevice(const PROBE_SETTINGS& Probe, std::unique_ptr<Device>* ppDevice, LINK* pLink,
                       std::string* psError) const {
  const std::string sPath = Path(Probe.SerialNo, "device");
  KeyFile           File;
  if (!File.Load(sPath, psError)) {
    return false;
  }
  const DEVICE_ROW* pRow = FindDevice(File.Get("device"));
  if (pRow == nullptr) {
    *psError = sPath + ": unknown device \"" + File.Get("device") + "\"";
    return false;
  }
  auto pDevice = std::make_unique<Device>(*pRow);
  if (!pDevice->LoadFrom(File, psError)) {
    return false;
  }
  pLink->IsOpen   = File.Get("probe.open") == "1";
  pLink->SupplyOn = File.Get("probe.supply_on") == "1";
  *ppDevice       = std::move(pDevice);
  return true;
}

bool Bench::SaveDevice(const PROBE_SETTINGS& Probe, const Device& Target, const LINK& Link,
                       std::string* psError, LASTING Lasting, std::string* psSaved) const {
  KeyFile File;
  Target.SaveTo(&File);
  if (Link.IsOpen) {
    File.Add("probe.open", "1");
  }
  if (Link.SupplyOn) {
    File.Add("probe.supply_on", "1");
  }
  std::string sText = File.Text("A simulated device; see docs/simulator.md");
  if (psSaved != nullptr && *psSaved == sText && Lasting == UNTIL_EXIT) {
    return true;
  }
  if (!MakeDirectory(psError) ||
      !ReplaceFile(Path(Probe.SerialNo, "device"), sText, Lasting, psError)) {
    return false;
  }
  if (psSaved != nullptr) {
    *psSaved = std::move(sText);
  }
  return true;
}

bool Bench::Remove(const PROBE_SETTINGS& Probe, std::string* psError) const {
  for (const char* sEnding : {"probe", "device", "lock"}) {
    const std::string sPath = Path(Probe.SerialNo, sEnding);
    if (unlink(sPath.c_str()) != 0 && errno != ENOENT) {
      *psError = sPath + ": " + strerror(errno);
      return false;
    }
  }
  return true;
}

int Bench::Lock(const PROBE_SETTINGS& Probe, std::string* psError) const {
  if (!MakeDirectory(psError)) {
    return -1;
  }
  const std::string sPath = Path(Probe.SerialNo, "lock");
  const int         File  = open(sPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (File < 0) {
    *psError = sPath + ": " + strerror(errno);
    return -1;
  }
  struct flock Whole = {};
  Whole.l_type       = F_WRLCK;
  Whole.l_whence     = SEEK_SET;
  if (fcntl(File, F_SETLK, &Whole) != 0) {
    *psError = Format("Probe %u is in use by another program.", Probe.SerialNo);
    close(File);
    return -1;
  }
  RemoveLeftovers(Probe.SerialNo);
  return File;
}

// Removes the temporary files of a program that was killed while it wrote.
void Bench::RemoveLeftovers(uint32_t SerialNo) const {
  std::vector<std::string> Names;
  NamesIn(sDirectory_, &Names);
  for (const std::string& sName : Names) {
    if (sName.rfind(std::to_string(SerialNo) + ".", 0) == 0 && EndsWith(sName, ".tmp")) {
      unlink((sDirectory_ + "/" + sName).c_str());
    }
  }
}

void Bench::Unlock(int LockFile) {
  if (LockFile >= 0) {
    close(LockFile);
  }
}

uint32_t SupplyOf(const PROBE_SETTINGS& Probe, const LINK& Link) {
  return std::max(Probe.VTarget, Link.SupplyOn ? Probe.Supply : 0);
}

}  // namespace sim
