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

static bool ParseFlag(const std::string& sValue, bool* pFlag) {
  if (sValue != "yes" && sValue != "no") {
    return false;
  }
  *pFlag = sValue == "yes";
  return true;
}

bool SetProbeSetting(PROBE_SETTINGS* pProbe, const std::string& sKey, const std::string& sValue,
                     std::string* psError) {
  if (sValue.find_first_of("\r\n") != std::string::npos) {
    *psError = sKey + ": a value is one line";
    return false;
  }
  bool Good = false;
  if (sKey == "serial") {
    Good = ParseU32(sValue, &pProbe->SerialNo) && pProbe->SerialNo != 0;
  } else if (sKey == "ip") {
    pProbe->sIP = sValue;
    Good        = true;
  } else if (sKey == "default") {
    Good = ParseFlag(sValue, &pProbe->IsDefault);
  } else if (sKey == "vtarget") {
    Good = ParseU32(sValue, &pProbe->VTarget) && pProbe->VTarget <= UINT16_MAX;
  } else if (sKey == "supply") {
    Good = ParseU32(sValue, &pProbe->Supply) && pProbe->Supply <= UINT16_MAX;
  } else if (sKey == "max_speed") {
    Good = ParseU32(sValue, &pProbe->MaxSpeed) && pProbe->MaxSpeed != 0;
  } else if (sKey == "reset_halts") {
    Good = ParseFlag(sValue, &pProbe->ResetHalts);
  } else if (sKey == "reset_pin") {
    Good = ParseFlag(sValue, &pProbe->ResetPin);
  } else if (sKey == "time") {
    Good           = sValue == "real" || sValue == "fast";
    pProbe->IsFast = sValue == "fast";
  } else if (sKey == "fault") {
    FAULT Fault;
    if (!ParseFault(sValue, &Fault, psError)) {
      return false;
    }
    pProbe->Faults.push_back(sValue);
    Good = true;
  } else {
    *psError = "a probe has no setting \"" + sKey + "\"";
    return false;
  }
  if (!Good) {
    *psError = "\"" + sValue + "\" is no value for " + sKey;
  }
  return Good;
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
    if (Good && !SetProbeSetting(&Probe, Line.sKey, Line.sValue, &sError)) {
      Good = false;
      sError.insert(0, File.Place(Line));
    }
  }
  if (Good && sPath != Path(Probe.SerialNo, "probe")) {
    Good   = false;
    sError = sPath + ": holds serial number " + std::to_string(Probe.SerialNo);
  }
  if (!Good) {
    Probe        = PROBE_SETTINGS();
    Probe.sError = sError;
    ParseU32(sName.substr(0, sName.find('.')), &Probe.SerialNo);
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

bool Bench::FindDefault(PROBE_SETTINGS* pProbe, std::string* psError) const {
  std::vector<PROBE_SETTINGS> Probes;
  if (!List(&Probes, psError)) {
    return false;
  }
  const PROBE_SETTINGS* pFound = DefaultOf(Probes);
  return pFound == nullptr ? AddDefault(pProbe, psError) : Take(*pFound, pProbe, psError);
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

bool Bench::FindBySerial(uint32_t SerialNo, PROBE_SETTINGS* pProbe, std::string* psError) const {
  std::vector<PROBE_SETTINGS> Probes;
  if (!List(&Probes, psError)) {
    return false;
  }
  for (const PROBE_SETTINGS& Probe : Probes) {
    if (Probe.SerialNo == SerialNo) {
      return Take(Probe, pProbe, psError);
    }
  }
  *psError =
      Format("No probe with serial number %u is on the bench %s.", SerialNo, sDirectory_.c_str());
  return false;
}

bool Bench::FindByIP(const std::string& sIP, PROBE_SETTINGS* pProbe, std::string* psError) const {
  std::vector<PROBE_SETTINGS> Probes;
  if (!List(&Probes, psError)) {
    return false;
  }
  for (const PROBE_SETTINGS& Probe : Probes) {
    if (!sIP.empty() && Probe.sIP == sIP) {
      return Take(Probe, pProbe, psError);
    }
  }
  *psError = "No probe with the address \"" + sIP + "\" is on the bench " + sDirectory_ + ".";
  return false;
}

bool Bench::SaveProbe(const PROBE_SETTINGS& Probe, std::string* psError) const {
  const PROBE_SETTINGS Default;
  KeyFile              File;
  File.Add("serial", std::to_string(Probe.SerialNo));
  if (!Probe.sIP.empty()) {
    File.Add("ip", Probe.sIP);
  }
  if (Probe.IsDefault) {
    File.Add("default", "yes");
  }
  File.Add("vtarget", std::to_string(Probe.VTarget));
  File.Add("supply", std::to_string(Probe.Supply));
  File.Add("max_speed", std::to_string(Probe.MaxSpeed));
  File.Add("reset_halts", Probe.ResetHalts ? "yes" : "no");
  if (!Probe.ResetPin) {
    File.Add("reset_pin", "no");
  }
  File.Add("time", Probe.IsFast ? "fast" : "real");
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

// What a program that was killed while it wrote left behind.
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
