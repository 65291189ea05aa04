// SPDX-License-Identifier: MIT

// quobe-wire: serves a device of the simulated bench as a CMSIS-DAP adapter on a loopback socket.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "sim/text.h"
#include "wire/bench_target.h"
#include "wire/server.h"

static const char USAGE[] =
    "usage: quobe-wire [--probe SERIAL] [OPTION...]\n"
    "\n"
    "Serves the device of a probe of the simulated bench ($QUOBE_BENCH) as a CMSIS-DAP adapter, "
    "until a\n"
    "signal ends it. Prints one line, \"SERIAL=PORT\": the adapter's serial number and a port of\n"
    "127.0.0.1, as the stand-in for the HID library takes it from QUOBE_WIRE. At the end it prints "
    "how\n"
    "many SWD transfers the host asked for, and whether it let go of the core.\n"
    "\n"
    "  --probe SERIAL     the probe; the default one without it\n"
    "  --port N           the port; a free one without it\n"
    "  --serial TEXT      the adapter's serial number, at most 61 ASCII characters without blank\n"
    "                     and \"=\"; the probe's without it\n"
    "  --level2 closed    at protection level 2 the debug port does not answer\n"
    "  --level2 fails     at protection level 2 it does, and every access fails\n"
    "  --wait             a bus that stalls is answered with WAIT; without it the answer comes "
    "late\n"
    "  --fault \"KIND K\"   at the K-th SWD transfer of the host. KIND: lost (unplugged), silent,\n"
    "                     fault, no-ack, parity, wait K COUNT, late K MS; may be given more than "
    "once\n"
    "\n"
    "SIGUSR1 switches the probe's supply on, SIGUSR2 off. Exit status: 0 ended by a signal or\n"
    "unplugged, 2 wrong use, 3 the bench.\n";

static const size_t MAX_SERIAL = 61;

enum EXIT_STATUS { EXIT_ENDED = 0, EXIT_USAGE = 2, EXIT_BENCH = 3 };

struct ARGUMENTS {
  uint32_t      SerialNo = 0;
  int           Port     = 0;
  wire::LEVEL2  Level2   = wire::LEVEL2_PORT_CLOSED;
  wire::ADAPTER Adapter;
};

static volatile sig_atomic_t Stop   = 0;
static volatile sig_atomic_t Supply = -1;  // what a signal asked for

static void OnSignal(int Signal) {
  if (Signal == SIGUSR1 || Signal == SIGUSR2) {
    Supply = Signal == SIGUSR1;
  } else {
    Stop = 1;
  }
}

// What fits both the report that carries it and the stand-in for the HID library.
static bool IsSerial(const std::string& sText) {
  return !sText.empty() && sText.size() <= MAX_SERIAL &&
         std::all_of(sText.begin(), sText.end(),
                     [](char c) { return c > ' ' && c < 0x7F && c != '='; });
}

static bool ParseOption(const std::string& sName, const std::string& sValue, ARGUMENTS* pResult) {
  uint32_t            Number = 0;
  wire::ADAPTER_FAULT Fault;
  if (sName == "--probe") {
    return sim::ParseU32(sValue, &pResult->SerialNo) && pResult->SerialNo != 0;
  }
  if (sName == "--port") {
    const bool Good = sim::ParseU32(sValue, &Number) && Number <= UINT16_MAX;
    pResult->Port   = static_cast<int>(Number);
    return Good;
  }
  if (sName == "--serial") {
    pResult->Adapter.sSerial = sValue;
    return IsSerial(sValue);
  }
  if (sName == "--level2") {
    pResult->Level2 = sValue == "fails" ? wire::LEVEL2_ACCESSES_FAIL : wire::LEVEL2_PORT_CLOSED;
    return sValue == "fails" || sValue == "closed";
  }
  if (sName == "--fault" && wire::ParseAdapterFault(sValue, &Fault)) {
    pResult->Adapter.Faults.push_back(Fault);
    return true;
  }
  return false;
}

static bool ParseArguments(int NumArgs, char** pasArgs, ARGUMENTS* pResult) {
  for (int i = 1; i < NumArgs; i++) {
    if (strcmp(pasArgs[i], "--wait") == 0) {
      pResult->Adapter.WaitsOnWire = true;
    } else if (i + 1 == NumArgs || !ParseOption(pasArgs[i], pasArgs[i + 1], pResult)) {
      return false;
    } else {
      i++;
    }
  }
  return true;
}

// No SA_RESTART: a signal has to interrupt the wait for a host.
static void CatchSignals() {
  struct sigaction Action = {};
  Action.sa_handler       = OnSignal;
  for (const int Signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
    sigaction(Signal, &Action, nullptr);
  }
}

int main(int NumArgs, char** pasArgs) {
  ARGUMENTS   Arguments;
  std::string sError;
  if (NumArgs == 2 && strcmp(pasArgs[1], "--help") == 0) {
    fputs(USAGE, stdout);
    return EXIT_ENDED;
  }
  if (!ParseArguments(NumArgs, pasArgs, &Arguments)) {
    fputs(USAGE, stderr);
    return EXIT_USAGE;
  }
  wire::BenchTarget Target(Arguments.Level2);
  if (!Target.Open(Arguments.SerialNo, &sError)) {
    fprintf(stderr, "quobe-wire: %s\n", sError.c_str());
    return EXIT_BENCH;
  }
  if (Arguments.Adapter.sSerial.empty()) {
    Arguments.Adapter.sSerial = std::to_string(Target.Settings().SerialNo);
  }
  Arguments.Adapter.TakesTime = !Target.IsFast();
  const int Listener          = wire::Listen(&Arguments.Port);
  if (Listener < 0) {
    perror("quobe-wire: socket");
    return EXIT_BENCH;
  }
  CatchSignals();
  printf("%s=%d\n", Arguments.Adapter.sSerial.c_str(), Arguments.Port);
  fflush(stdout);
  wire::DebugPort Port(Target, sim::WallUs);
  wire::Adapter   Adapter(Arguments.Adapter, Port);
  wire::Serve(Listener, &Adapter, [&Target] {
    if (Supply >= 0) {
      Target.SwitchSupply(Supply == 1);
      Supply = -1;
    }
    return Stop == 0;
  });
  printf("%llu transfers, the core is %s\n",
         static_cast<unsigned long long>(Adapter.NumTransfers()),
         Port.IsCoreHeld() ? "held" : "free");
  return EXIT_ENDED;
}
