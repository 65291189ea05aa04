// quobe-bench: sets up the simulated bench and shows what is on it.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sim/bench.h"
#include "sim/text.h"

using namespace sim;

enum EXIT_STATUS {
  EXIT_DONE        = 0,
  EXIT_NOT_FACTORY = 1,  // show --expect-factory: something differs
  EXIT_USAGE       = 2,
  EXIT_BENCH       = 3  // no such probe, unreadable file, probe in use
};

static const char USAGE[] =
    "usage: quobe-bench COMMAND [--probe SERIAL] ...\n"
    "\n"
    "  list                        the probes and the device on each\n"
    "  devices                     the devices there are\n"
    "  create DEVICE [STATE...]    put a device on the probe; a new probe when there is none\n"
    "  show [--expect-factory]     option bytes with their factory values, flash, protection\n"
    "  reset                       system reset of the device\n"
    "  power-cycle                 power off and on\n"
    "  set KEY=VALUE...            probe: ip, default, vtarget, supply, max_speed, reset_halts,\n"
    "                              time (real or fast), fault (or fault=none)\n"
    "  remove                      take probe and device off the bench\n"
    "\n"
    "STATE, as delivered where nothing is said:\n"
    "  --rdp 0|1|2|0xNN            read protection level, or the byte itself\n"
    "  --wrp all|none|LIST         write-protected sectors, such as 0-3,7\n"
    "  --pcrop all|LIST            execute-only sectors\n"
    "  --pcrop-rdp 0|1             whether unprotecting wipes them\n"
    "  --secure                    a secure area\n"
    "  --user 0xNN                 user options, in their place in the option word\n"
    "  --mismatch rdp|user         a wrong complement\n"
    "  --flash erased|full|FILE    content of the flash\n"
    "  --eeprom full               data EEPROM, and memories on the backup supply, in use\n"
    "  --variant NAME=N            how an open question of the manuals is answered\n"
    "\n"
    "The bench is the directory $QUOBE_BENCH, or .quobe-bench in the home directory. Without\n"
    "--probe the default probe is meant, which is also the one the library opens.\n"
    "Exit status: 0 done, 1 not at factory state (show --expect-factory), 2 wrong use, 3 bench.\n";

static int Fail(int Status, const std::string& sText) {
  fprintf(stderr, "quobe-bench: %s\n", sText.c_str());
  return Status;
}

struct ARGUMENTS {
  std::string              sCommand;
  uint32_t                 SerialNo = 0;  // 0: not given
  std::vector<std::string> Rest;
};

static bool ChooseProbe(const Bench& Where, const ARGUMENTS& Arguments, PROBE_SETTINGS* pProbe,
                        std::string* psError) {
  return Arguments.SerialNo != 0 ? Where.FindBySerial(Arguments.SerialNo, pProbe, psError)
                                 : Where.FindDefault(pProbe, psError);
}

// -- create --------------------------------------------------------------------------------------

static bool ParseSectors(const std::string& sText, bool* pAll, std::vector<uint32_t>* pSectors) {
  *pAll = sText == "all";
  if (*pAll || sText == "none") {
    return true;
  }
  for (const std::string& sPart : Split(sText, ',')) {
    const std::vector<std::string> Ends  = Split(sPart, '-');
    uint32_t                       First = 0;
    uint32_t                       Last  = 0;
    if (Ends.size() > 2 || !ParseU32(Ends.front(), &First) || !ParseU32(Ends.back(), &Last) ||
        First > Last || Last > 4095) {
      return false;
    }
    for (uint32_t Sector = First; Sector <= Last; Sector++) {
      pSectors->push_back(Sector);
    }
  }
  return true;
}

static bool LoadImage(Device* pDevice, const std::string& sPath, std::string* psError) {
  FILE* pFile = fopen(sPath.c_str(), "rb");
  if (pFile == nullptr) {
    *psError = sPath + ": " + strerror(errno);
    return false;
  }
  Memory*  pFlash = pDevice->FindMemory(MAIN_FLASH);
  uint32_t Offset = 0;
  uint8_t  abWord[4];
  size_t   NumBytes = 0;
  bool     Fits     = true;
  while ((NumBytes = fread(abWord, 1, sizeof(abWord), pFile)) > 0) {
    if (Offset >= pFlash->Row().Bytes) {
      Fits = false;
      break;
    }
    uint32_t& Word = pFlash->WordAt(pFlash->Row().Base + Offset);
    for (uint32_t i = 0; i < NumBytes; i++) {
      Word = (Word & ~(0xFFu << (8 * i))) | static_cast<uint32_t>(abWord[i]) << (8 * i);
    }
    Offset += 4;
  }
  const bool WasRead = ferror(pFile) == 0;
  fclose(pFile);
  if (!WasRead) {
    *psError = sPath + ": cannot be read";
    return false;
  }
  if (!Fits) {
    *psError = Format("%s: larger than the flash of %u bytes", sPath.c_str(), pFlash->Row().Bytes);
  }
  return Fits;
}

// One option and its value; false with a text when they are no good.
static bool TakeState(Device* pDevice, CREATE_REQUEST* pRequest, const std::string& sOption,
                      const std::string& sValue, std::string* psError) {
  uint32_t Number = 0;
  bool     Good   = false;
  *psError        = "\"" + sValue + "\" is no value for " + sOption;
  if (sOption == "--rdp") {
    Good = ParseU32(sValue, &Number) && Number <= 0xFF;
    if (sValue == "0" || sValue == "1" || sValue == "2") {
      pRequest->Level = Number;
    } else {
      pRequest->Rdp = Number;
      Good          = Good && sValue.compare(0, 2, "0x") == 0;
    }
  } else if (sOption == "--wrp") {
    Good = ParseSectors(sValue, &pRequest->WrpAll, &pRequest->Wrp);
  } else if (sOption == "--pcrop") {
    Good = ParseSectors(sValue, &pRequest->PcropAll, &pRequest->Pcrop);
  } else if (sOption == "--pcrop-rdp") {
    Good               = ParseU32(sValue, &Number) && Number <= 1;
    pRequest->PcropRdp = Number;
  } else if (sOption == "--user") {
    Good           = ParseU32(sValue, &Number);
    pRequest->User = Number;
  } else if (sOption == "--mismatch") {
    Good                = sValue == "rdp" || sValue == "user";
    pRequest->sMismatch = sValue;
  } else if (sOption == "--flash") {
    Good = true;
    if (sValue == "full") {
      FillFlash(pDevice, UINT32_MAX);
    } else if (sValue != "erased") {
      Good = LoadImage(pDevice, sValue, psError);
    }
  } else if (sOption == "--eeprom") {
    Good = sValue == "full";
    for (Memory& Each : pDevice->Memories()) {
      if (Each.Row().Kind == EEPROM || Each.Row().Kind == BACKUP) {
        Each.Fill(0x12345678);
      }
    }
  } else if (sOption == "--variant") {
    const std::vector<std::string> Parts = Split(sValue, '=');
    Good =
        Parts.size() == 2 && ParseU32(Parts[1], &Number) && pDevice->SetVariant(Parts[0], Number);
  } else {
    *psError = "unknown option " + sOption;
  }
  return Good;
}

static int Create(const Bench& Where, const ARGUMENTS& Arguments) {
  if (Arguments.Rest.empty()) {
    return Fail(EXIT_USAGE, "create: which device? See quobe-bench devices");
  }
  const DEVICE_ROW* pRow = FindDevice(Arguments.Rest[0]);
  if (pRow == nullptr) {
    return Fail(EXIT_USAGE,
                "unknown device \"" + Arguments.Rest[0] + "\"; see quobe-bench devices");
  }
  Device         Target(*pRow);
  CREATE_REQUEST Request;
  std::string    sError;
  for (size_t i = 1; i < Arguments.Rest.size(); i++) {
    const std::string& sOption = Arguments.Rest[i];
    if (sOption == "--secure") {
      Request.Secure = true;
      continue;
    }
    if (i + 1 >= Arguments.Rest.size()) {
      return Fail(EXIT_USAGE, sOption + ": a value is missing");
    }
    if (!TakeState(&Target, &Request, sOption, Arguments.Rest[++i], &sError)) {
      return Fail(EXIT_USAGE, sError);
    }
  }
  if (!Target.Flash().Configure(Request, &sError)) {
    return Fail(EXIT_USAGE, std::string(pRow->sName) + ": " + sError);
  }

  std::vector<PROBE_SETTINGS> Probes;
  PROBE_SETTINGS              Probe;
  if (!Where.List(&Probes, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  const auto IsMeant = [&Arguments](const PROBE_SETTINGS& Each) {
    return Each.SerialNo == Arguments.SerialNo;
  };
  const auto            Named  = std::find_if(Probes.begin(), Probes.end(), IsMeant);
  const PROBE_SETTINGS* pFound = Named != Probes.end() ? &*Named : nullptr;
  if (Arguments.SerialNo == 0) {
    pFound = Bench::DefaultOf(Probes);
  }
  Probe.SerialNo = Arguments.SerialNo != 0 ? Arguments.SerialNo : 1;
  if (pFound != nullptr) {
    Probe = *pFound;
  }
  // The probe last: from then on it is on the bench, and a probe without a device would be none.
  const int Lock = Where.Lock(Probe, &sError);
  if (Lock < 0 || !Where.SaveDevice(Probe, Target, LINK(), &sError) ||
      (pFound == nullptr && !Where.SaveProbe(Probe, &sError))) {
    return Fail(EXIT_BENCH, sError);
  }
  printf("Probe %u: %s\n", Probe.SerialNo, pRow->sName);
  return EXIT_DONE;
}

// -- show ----------------------------------------------------------------------------------------

static int ShowOptionWords(const Device& Target) {
  // What "as delivered" means after loading is asked of a device as delivered.
  const Device Delivered(Target.Row());
  int          NumDifferences = 0;
  const auto&  Words          = Target.Flash().Words();
  for (size_t i = 0; i < Words.size(); i++) {
    const int      Index   = static_cast<int>(i);
    const uint32_t Value   = Target.Flash().Effective(Index);
    const uint32_t Factory = Delivered.Flash().Effective(Index);
    printf("\n%-16s 0x%08X   factory 0x%08X\n", Words[i].sName, Target.Flash().Stored(Index),
           Words[i].Factory);
    for (const FIELD& Field : ParseFields(Words[i].sFields)) {
      const int  Digits = static_cast<int>((Field.Width + 3) / 4);
      const bool Equal  = Field.Get(Value) == Field.Get(Factory);
      NumDifferences += !Equal;
      printf("  %-18s %*s%0*X   factory %0*X%s\n", Field.sName.c_str(), 8 - Digits, "", Digits,
             Field.Get(Value), Digits, Field.Get(Factory), Equal ? "" : "   <-- differs");
    }
  }
  return NumDifferences;
}

static void ShowMemories(Device* pTarget) {
  printf("\n");
  for (const Memory& Each : pTarget->Memories()) {
    if (Each.Row().Kind == SRAM) {
      continue;
    }
    const uint32_t InUse = Each.BytesInUse();
    if (InUse == 0) {
      printf("%-12s erased (%u bytes)\n", Each.Row().sName, Each.Row().Bytes);
    } else {
      printf("%-12s %u of %u bytes in use\n", Each.Row().sName, InUse, Each.Row().Bytes);
    }
  }
}

static int Show(const Bench& Where, const ARGUMENTS& Arguments) {
  const bool ExpectFactory = Arguments.Rest.size() == 1 && Arguments.Rest[0] == "--expect-factory";
  if (!Arguments.Rest.empty() && !ExpectFactory) {
    return Fail(EXIT_USAGE, "show: unknown argument " + Arguments.Rest[0]);
  }
  PROBE_SETTINGS          Probe;
  std::unique_ptr<Device> pTarget;
  LINK                    Link;
  std::string             sError;
  if (!ChooseProbe(Where, Arguments, &Probe, &sError) ||
      !Where.LoadDevice(Probe, &pTarget, &Link, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  // Of a device without power, what counts is what it will load.
  const bool WasPowered = pTarget->IsPowered();
  if (!WasPowered) {
    pTarget->PowerOn();
  }
  const int Level  = pTarget->Flash().Level();
  const int Stored = pTarget->Flash().StoredLevel();
  printf("Probe %u: %s (%s), %s\n", Probe.SerialNo, pTarget->Row().sName, pTarget->Row().sText,
         WasPowered ? "powered" : "not powered yet");
  if (Stored == Level) {
    printf("Read protection: level %d\n", Level);
  } else {
    printf("Read protection: level %d in force, level %d stored\n", Level, Stored);
  }
  const std::string sRemarks = pTarget->Flash().Remarks();
  if (!sRemarks.empty()) {
    printf("Remark: %s\n", sRemarks.c_str());
  }
  if (Link.IsOpen) {
    printf("Remark: a program is connected, or ended without closing the connection\n");
  }
  const int  NumDifferences = ShowOptionWords(*pTarget);
  const bool Erased         = pTarget->IsFlashErased();
  ShowMemories(pTarget.get());
  const bool AtFactory = NumDifferences == 0 && Level == 0 && Stored == 0 && Erased;
  if (AtFactory) {
    printf("\nAt factory state.\n");
  } else {
    printf("\nNot at factory state: %d option field%s, protection level %d%s, flash %s.\n",
           NumDifferences, NumDifferences == 1 ? " differs" : "s differ", Level,
           Stored == Level ? "" : " in force", Erased ? "erased" : "in use");
  }
  return ExpectFactory && !AtFactory ? EXIT_NOT_FACTORY : EXIT_DONE;
}

// -- The others ----------------------------------------------------------------------------------

static int List(const Bench& Where) {
  std::vector<PROBE_SETTINGS> Probes;
  std::string                 sError;
  if (!Where.List(&Probes, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  printf("Bench %s\n", Where.Directory().c_str());
  if (Probes.empty()) {
    printf("No probes.\n");
  }
  int Status = EXIT_DONE;
  for (const PROBE_SETTINGS& Probe : Probes) {
    std::unique_ptr<Device> pTarget;
    LINK                    Link;
    if (!Where.LoadDevice(Probe, &pTarget, &Link, &sError)) {
      Status = Fail(EXIT_BENCH, sError);
      continue;  // the others can be listed
    }
    printf("%10u  %-15s  %-10s  level %d, flash %s%s%s\n", Probe.SerialNo,
           Probe.sIP.empty() ? "-" : Probe.sIP.c_str(), pTarget->Row().sName,
           pTarget->Flash().StoredLevel(), pTarget->IsFlashErased() ? "erased" : "in use",
           Probe.IsDefault ? ", default" : "", Probe.Faults.empty() ? "" : ", with faults");
  }
  return Status;
}

static int Devices() {
  for (const DEVICE_ROW* pRow : AllDevices()) {
    printf("%-10s  %s\n", pRow->sName, pRow->sText);
  }
  return EXIT_DONE;
}

// Chooses the probe and keeps it, as it is then, until the program ends.
static bool TakeProbe(const Bench& Where, const ARGUMENTS& Arguments, PROBE_SETTINGS* pProbe,
                      std::string* psError) {
  return ChooseProbe(Where, Arguments, pProbe, psError) && Where.Lock(*pProbe, psError) >= 0 &&
         Where.FindBySerial(pProbe->SerialNo, pProbe, psError);
}

static int ResetOrPowerCycle(const Bench& Where, const ARGUMENTS& Arguments, bool Power) {
  PROBE_SETTINGS          Probe;
  std::unique_ptr<Device> pTarget;
  LINK                    Link;
  std::string             sError;
  if (!TakeProbe(Where, Arguments, &Probe, &sError) ||
      !Where.LoadDevice(Probe, &pTarget, &Link, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  if (Power) {
    pTarget->PowerOff();
    if (SupplyOf(Probe, Link) >= POWER_ON_MV) {
      pTarget->PowerOn();
    }
  } else {
    pTarget->SystemReset(false, "by quobe-bench");
  }
  if (!Where.SaveDevice(Probe, *pTarget, Link, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  return EXIT_DONE;
}

static int Set(const Bench& Where, const ARGUMENTS& Arguments) {
  PROBE_SETTINGS Probe;
  std::string    sError;
  if (!TakeProbe(Where, Arguments, &Probe, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  for (const std::string& sSetting : Arguments.Rest) {
    const size_t Equal = sSetting.find('=');
    if (Equal == std::string::npos) {
      return Fail(EXIT_USAGE, "set: expected KEY=VALUE, not " + sSetting);
    }
    const std::string sKey   = sSetting.substr(0, Equal);
    const std::string sValue = sSetting.substr(Equal + 1);
    if (sKey == "fault" && sValue == "none") {
      Probe.Faults.clear();
    } else if (sKey == "serial") {
      return Fail(EXIT_USAGE, "set: a probe keeps its serial number");
    } else if (!SetProbeSetting(&Probe, sKey, sValue, &sError)) {
      return Fail(EXIT_USAGE, sError);
    }
  }
  return Where.SaveProbe(Probe, &sError) ? EXIT_DONE : Fail(EXIT_BENCH, sError);
}

static int Remove(const Bench& Where, const ARGUMENTS& Arguments) {
  PROBE_SETTINGS Probe;
  std::string    sError;
  if (!TakeProbe(Where, Arguments, &Probe, &sError) || !Where.Remove(Probe, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  return EXIT_DONE;
}

int main(int NumArgs, char** pasArgs) {
  ARGUMENTS Arguments;
  for (int i = 1; i < NumArgs; i++) {
    const std::string sArgument = pasArgs[i];
    if (sArgument == "--probe") {
      if (++i >= NumArgs || !ParseU32(pasArgs[i], &Arguments.SerialNo) || Arguments.SerialNo == 0) {
        return Fail(EXIT_USAGE, "--probe: expected a serial number");
      }
    } else if (Arguments.sCommand.empty()) {
      Arguments.sCommand = sArgument;
    } else {
      Arguments.Rest.push_back(sArgument);
    }
  }
  const Bench Where;
  if (Arguments.sCommand == "list") {
    return List(Where);
  }
  if (Arguments.sCommand == "devices") {
    return Devices();
  }
  if (Arguments.sCommand == "create") {
    return Create(Where, Arguments);
  }
  if (Arguments.sCommand == "show") {
    return Show(Where, Arguments);
  }
  if (Arguments.sCommand == "reset") {
    return ResetOrPowerCycle(Where, Arguments, false);
  }
  if (Arguments.sCommand == "power-cycle") {
    return ResetOrPowerCycle(Where, Arguments, true);
  }
  if (Arguments.sCommand == "set") {
    return Set(Where, Arguments);
  }
  if (Arguments.sCommand == "remove") {
    return Remove(Where, Arguments);
  }
  if (Arguments.sCommand == "help" || Arguments.sCommand == "--help") {
    fputs(USAGE, stdout);
    return EXIT_DONE;
  }
  fputs(USAGE, stderr);
  return EXIT_USAGE;
}
