// SPDX-License-Identifier: MIT

// quobe-bench: sets up the simulated bench and shows what is on it.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sim/bench.h"
#include "sim/catalog.h"
#include "sim/request.h"
#include "sim/text.h"
#include "sim/verdict.h"

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
    "  reset [--after MS]          system reset of the device; cuts short what runs\n"
    "  power-cycle [--after MS]    power off and on; cuts short what runs\n"
    "  set KEY=VALUE...            probe: ip, default, vtarget, supply, max_speed, reset_halts,\n"
    "                              reset_pin, time (real or fast), fault (or fault=none)\n"
    "  remove                      take probe and device off the bench\n"
    "  --version                   the version of this program\n"
    "\n"
    "STATE, as delivered where nothing is said:\n"
    "  --rdp 0|1|2|0xNN            read protection level, or the byte itself\n"
    "  --wrp all|none|LIST         write-protected sectors, such as 0-3,7\n"
    "  --pcrop all|LIST            execute-only sectors\n"
    "  --pcrop-rdp 0|1             whether unprotecting wipes them\n"
    "  --secure                    a secure area\n"
    "  --user 0xNN                 user options, in their place in the option word\n"
    "  --option FIELD=N            any option field, by the name that show gives it\n"
    "  --mismatch rdp|user|FIELD   a wrong complement\n"
    "  --flash erased|full|FILE    content of the flash\n"
    "  --eeprom full               data EEPROM, and memories on the backup supply, in use\n"
    "  --program takes-swd|stops   the program uses the debug pins, or puts the core into Stop "
    "mode\n"
    "  --variant NAME=N            how an open question of the manuals is answered\n"
    "\n"
    "The bench is the directory $QUOBE_BENCH, or .quobe-bench in the home directory. Without\n"
    "--probe the default probe is meant, which is also the one the library opens.\n"
    "A device's time stands still between programs: what one left running goes on with the next, "
    "or\n"
    "for MS milliseconds with --after.\n"
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

// -- create --------------------------------------------------------------------------------------

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
  if (!ParseRequest(std::span(Arguments.Rest).subspan(1), &Request, &sError)) {
    return Fail(EXIT_USAGE, sError);
  }
  if (!Prepare(&Target, Request, &sError)) {
    return Fail(EXIT_USAGE, std::string(Target.Name()) + ": " + sError);
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
    if (!Probe.sError.empty()) {
      return Fail(EXIT_BENCH, Probe.sError);
    }
  }
  // The probe last: from then on it is on the bench, and a probe without a device would be none.
  const int Lock = Where.Lock(Probe, &sError);
  if (Lock < 0 || !Where.SaveDevice(Probe, Target, LINK(), &sError) ||
      (pFound == nullptr && !Where.SaveProbe(Probe, &sError))) {
    return Fail(EXIT_BENCH, sError);
  }
  printf("Probe %u: %s\n", Probe.SerialNo, Target.Name());
  return EXIT_DONE;
}

// -- show ----------------------------------------------------------------------------------------

static void ShowOptions(const Controller& Flash, const VERDICT& Verdict) {
  int Word = -1;
  for (const FIELD_VERDICT& Field : Verdict.Fields) {
    const silicon::OPTION_WORD& Row    = Flash.Word(Field.Word);
    const int                   Digits = static_cast<int>((Field.pField->Width() + 3) / 4);
    if (Field.Word != Word) {
      Word = Field.Word;
      printf("\n%-16s 0x%08X   factory 0x%08X\n", Row.sName, Flash.Stored(Word), Row.Factory);
    }
    printf("  %-18s %*s%0*X   factory %0*X", Field.pField->sName, 8 - Digits, "", Digits,
           Field.Stored, Digits, Field.Factory);
    if (Field.LoadedDiffers() && Field.Loaded != Field.Stored) {
      printf("   in force %0*X", Digits, Field.Loaded);
    }
    printf(Field.Differs() ? "   <-- differs\n" : "\n");
  }
}

static void ShowMemories(const Device& Target) {
  printf("\n");
  for (const Memory& Each : Target.Memories()) {
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
  if (!Where.Find(Arguments.SerialNo, "", &Probe, &sError) ||
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
  printf("Probe %u: %s (%s), %s\n", Probe.SerialNo, pTarget->Name(), pTarget->Facts().sText,
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
  if (pTarget->Flash().Busy()) {
    printf("Remark: %s is running; a reset cuts it short\n",
           pTarget->Flash().RunningText().c_str());
  }
  const VERDICT Verdict = Judge(*pTarget);
  ShowOptions(pTarget->Flash(), Verdict);
  ShowMemories(*pTarget);
  if (Verdict.AtFactory()) {
    printf("\nAt factory state.\n");
    return EXIT_DONE;
  }
  printf("\nNot at factory state:\n");
  for (const std::string& sDifference : Verdict.Differences) {
    printf("  %s\n", sDifference.c_str());
  }
  return ExpectFactory ? EXIT_NOT_FACTORY : EXIT_DONE;
}

// -- The others ----------------------------------------------------------------------------------

static int List(const Bench& Where, const ARGUMENTS& /*Arguments*/) {
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
    sError = Probe.sError;
    if (!sError.empty() || !Where.LoadDevice(Probe, &pTarget, &Link, &sError)) {
      Status = Fail(EXIT_BENCH, sError);
      continue;  // the others can be listed
    }
    printf("%10u  %-15s  %-10s  level %d, flash %s%s%s\n", Probe.SerialNo,
           Probe.sIP.empty() ? "-" : Probe.sIP.c_str(), pTarget->Name(),
           pTarget->Flash().StoredLevel(), pTarget->IsFlashErased() ? "erased" : "in use",
           Probe.IsDefault ? ", default" : "", Probe.Faults.empty() ? "" : ", with faults");
  }
  return Status;
}

static int Devices(const Bench& /*Where*/, const ARGUMENTS& /*Arguments*/) {
  for (const DEVICE_ROW* pRow : AllDevices()) {
    printf("%-10s  %s\n", pRow->pFacts->sName, pRow->pFacts->sText);
  }
  return EXIT_DONE;
}

// Chooses the probe and keeps it, as it is then, until the program ends.
static bool TakeProbe(const Bench& Where, const ARGUMENTS& Arguments, PROBE_SETTINGS* pProbe,
                      std::string* psError) {
  return Where.Find(Arguments.SerialNo, "", pProbe, psError) && Where.Lock(*pProbe, psError) >= 0 &&
         Where.Find(pProbe->SerialNo, "", pProbe, psError);
}

// "--after MS" or nothing; false when it is something else.
static bool ParseAfter(const ARGUMENTS& Arguments, uint32_t* pMs) {
  *pMs = 0;
  return Arguments.Rest.empty() || (Arguments.Rest.size() == 2 && Arguments.Rest[0] == "--after" &&
                                    ParseU32(Arguments.Rest[1], pMs));
}

static int ResetOrPowerCycle(const Bench& Where, const ARGUMENTS& Arguments) {
  PROBE_SETTINGS          Probe;
  std::unique_ptr<Device> pTarget;
  LINK                    Link;
  std::string             sError;
  uint32_t                AfterMs = 0;
  if (!ParseAfter(Arguments, &AfterMs)) {
    return Fail(EXIT_USAGE, Arguments.sCommand + ": expected nothing more, or --after MS");
  }
  if (!TakeProbe(Where, Arguments, &Probe, &sError) ||
      !Where.LoadDevice(Probe, &pTarget, &Link, &sError)) {
    return Fail(EXIT_BENCH, sError);
  }
  if (pTarget->IsPowered()) {
    pTarget->SetVoltage(SupplyOf(Probe, Link));
  }
  pTarget->AdvanceTo(static_cast<uint64_t>(AfterMs) * 1000);
  if (Arguments.sCommand == "power-cycle") {
    pTarget->PowerOff();
    pTarget->SetVoltage(SupplyOf(Probe, Link));
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
  if (Arguments.Rest.empty()) {
    return Fail(EXIT_USAGE, "set: expected KEY=VALUE");
  }
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

static int Help(const Bench& /*Where*/, const ARGUMENTS& /*Arguments*/) {
  fputs(USAGE, stdout);
  return EXIT_DONE;
}

static int Version(const Bench& /*Where*/, const ARGUMENTS& /*Arguments*/) {
  puts("quobe-bench " QUOBE_VERSION);
  return EXIT_DONE;
}

struct COMMAND {
  const char* sName;
  int (*pfRun)(const Bench& Where, const ARGUMENTS& Arguments);
  bool TakesProbe;
  bool TakesMore;  // its own arguments
};

static const COMMAND aCommands[] = {
    {.sName = "list", .pfRun = List, .TakesProbe = false, .TakesMore = false},
    {.sName = "devices", .pfRun = Devices, .TakesProbe = false, .TakesMore = false},
    {.sName = "create", .pfRun = Create, .TakesProbe = true, .TakesMore = true},
    {.sName = "show", .pfRun = Show, .TakesProbe = true, .TakesMore = true},
    {.sName = "reset", .pfRun = ResetOrPowerCycle, .TakesProbe = true, .TakesMore = true},
    {.sName = "power-cycle", .pfRun = ResetOrPowerCycle, .TakesProbe = true, .TakesMore = true},
    {.sName = "set", .pfRun = Set, .TakesProbe = true, .TakesMore = true},
    {.sName = "remove", .pfRun = Remove, .TakesProbe = true, .TakesMore = false},
    {.sName = "help", .pfRun = Help, .TakesProbe = false, .TakesMore = false},
    {.sName = "--help", .pfRun = Help, .TakesProbe = false, .TakesMore = false},
    {.sName = "--version", .pfRun = Version, .TakesProbe = false, .TakesMore = false},
};

static int Run(const COMMAND& Command, const ARGUMENTS& Arguments) {
  if (!Command.TakesMore && !Arguments.Rest.empty()) {
    return Fail(EXIT_USAGE, Arguments.sCommand + ": unknown argument " + Arguments.Rest[0]);
  }
  if (!Command.TakesProbe && Arguments.SerialNo != 0) {
    return Fail(EXIT_USAGE, Arguments.sCommand + ": takes no --probe");
  }
  const int Status = Command.pfRun(Bench(), Arguments);
  if (fflush(stdout) != 0 || ferror(stdout) != 0) {
    return Fail(EXIT_BENCH, std::string("the output cannot be written: ") + strerror(errno));
  }
  return Status;
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
  for (const COMMAND& Command : aCommands) {
    if (Arguments.sCommand == Command.sName) {
      return Run(Command, Arguments);
    }
  }
  fputs(USAGE, stderr);
  return EXIT_USAGE;
}
