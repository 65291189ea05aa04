// SPDX-License-Identifier: MIT

// Runs an x86-64 Mach-O executable on Linux.
//
//   machorun FILE [argument...]   run it and end with its exit status
//   machorun --imports FILE       print what each import is bound to; status 1 if one is refused
//
// Standard streams are the program's own. Status 126 with a message on standard error: the file
// cannot be loaded, an import is refused, or the program asked for something that is not
// translated.
//
// Environment, for tests:
//   MACHORUN_TRACE          file for a line about each observed call: dynamic loader, usleep, open,
//                           terminal settings, IOKit
//   MACHORUN_CLOCK_STEP_US, MACHORUN_CLOCK_FILE  simulated time, see shim_time.cpp
//   MACHORUN_TIMEBASE       length of a tick, see shim_time.cpp
//   MACHORUN_DLADDR         the path that dladdr() returns, see shim_dl.cpp
//   MACHORUN_PIDPATH        the path that proc_pidpath() returns, see shim_process.cpp
//   MACHORUN_TERMINAL_FLAGS the flags that tcgetattr() returns, see shim_terminal.cpp
//   MACHORUN_WITHOUT        name of a function that an older system lacks
//   HOST_CALLOUT_DEVICES    serial ports, see shim_iokit.cpp
//
// docs/macos.md says what a run proves and what it does not.

#include "machorun/runner.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <ucontext.h>
#include <unistd.h>

#include <iterator>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "machorun/shim.h"

namespace {

constexpr int STATUS_REFUSED = 126;

std::string sProgramRealPath;

struct Provider {
  const char* sWhat;
  void*       pAddress;
};

const std::unordered_map<std::string, Provider>& Providers() {
  static const auto* const pTable = [] {
    auto*      p   = new std::unordered_map<std::string, Provider>;
    const auto Add = [p](const char* sWhat, std::span<const Shim> Shims) {
      for (const Shim& Entry : Shims) {
        if (!p->insert({Entry.sName, {sWhat, Entry.pAddress}}).second) {
          throw std::runtime_error(std::string(Entry.sName) + " is provided twice");
        }
      }
    };
    Add("host", HostFunctions());
    Add("dl shim", DlShims());
    Add("errno shim", ErrnoShims());
    Add("file shim", FileShims());
    Add("IOKit shim", IOKitShims());
    Add("name shim", NameShims());
    Add("process shim", ProcessShims());
    Add("socket shim", SocketShims());
    Add("terminal shim", TerminalShims());
    Add("thread shim", ThreadShims());
    Add("time shim", TimeShims());
    return p;
  }();
  return *pTable;
}

int PrintImports(const std::string& sPath) {
  int                   Status = 0;
  std::set<std::string> Seen;
  for (const Import& Wanted : ListImports(sPath)) {
    if (!Seen.insert(Wanted.sName).second) {
      continue;
    }
    const auto Found = Providers().find(Wanted.sName);
    const bool Ok    = Found != Providers().end();
    printf("%-40s %-28s %s\n", Wanted.sName.c_str(),
           Wanted.sLibrary.substr(Wanted.sLibrary.rfind('/') + 1).c_str(),
           Ok ? Found->second.sWhat : "REFUSED");
    Status = Ok ? Status : 1;
  }
  return Status;
}

// Prints where the program crashed, then lets the signal end the process.
void OnCrash(int Signal, siginfo_t* pInfo, void* pContext) {
  const auto* p     = static_cast<const ucontext_t*>(pContext);
  const auto  Where = reinterpret_cast<const void*>(p->uc_mcontext.gregs[REG_RIP]);
  char        acText[256];
  const int   Length = snprintf(acText, sizeof(acText), "machorun: signal %d at %s, address %p\n",
                                Signal, DescribeAddress(Where).c_str(), pInfo->si_addr);
  if (write(STDERR_FILENO, acText, static_cast<size_t>(Length)) < 0) {
    _exit(STATUS_REFUSED);
  }
}

void WatchForCrashes() {
  static char      acStack[64 * 1024];
  stack_t          Stack  = {};
  struct sigaction Action = {};
  Stack.ss_sp             = acStack;
  Stack.ss_size           = sizeof(acStack);
  sigaltstack(&Stack, nullptr);
  Action.sa_sigaction = OnCrash;
  Action.sa_flags     = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_RESETHAND);
  for (const int Signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
    sigaction(Signal, &Action, nullptr);
  }
}

std::string Absolute(const char* sPath) {
  if (sPath[0] == '/') {
    return sPath;
  }
  char* sFolder = getcwd(nullptr, 0);
  if (sFolder == nullptr) {
    throw std::runtime_error("the current folder has no path");
  }
  std::string sWhole = std::string(sFolder) + "/" + sPath;
  free(sFolder);
  return sWhole;
}

int Run(int NumArgs, char** pasArgs) {
  const Image* pProgram = LoadImage(Absolute(pasArgs[0]), &ResolveImport);
  if (pProgram->EntryPoint == 0) {
    throw std::runtime_error("is a library, not a program");
  }
  WatchForCrashes();
  using Entry       = int(int, char**, char**, char**);
  using Initialiser = void(int, char**, char**, char**);
  char  acPath[]    = "executable_path=";
  char* asApple[]   = {acPath, nullptr};
  for (uint8_t* pFunction : pProgram->Initialisers) {
    reinterpret_cast<Initialiser*>(pFunction)(NumArgs, pasArgs, environ, asApple);
  }
  return reinterpret_cast<Entry*>(pProgram->EntryPoint)(NumArgs, pasArgs, environ, asApple);
}

}  // namespace

void* ResolveImport(const Import& Wanted) {
  const char* sAbsent = getenv("MACHORUN_WITHOUT");
  if (sAbsent != nullptr && Wanted.sName == sAbsent) {
    if (!Wanted.MayBeAbsent) {
      throw std::runtime_error("does not start without " + Wanted.sName);
    }
    return nullptr;
  }
  const auto Found = Providers().find(Wanted.sName);
  if (Found == Providers().end()) {
    throw std::runtime_error("import " + Wanted.sName + " (" + Wanted.sLibrary +
                             ") is in no list of machorun/");
  }
  return Found->second.pAddress;
}

void Unknown(const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  fflush(stdout);
  fputs("machorun: not translated: ", stderr);
  vfprintf(stderr, sFormat, Args);
  fputc('\n', stderr);
  va_end(Args);
  _exit(STATUS_REFUSED);
}

void Trace(const char* sFormat, ...) {
  const char* sPath = getenv("MACHORUN_TRACE");
  if (sPath == nullptr) {
    return;
  }
  const int Kept = errno;
  char      acLine[8192];
  va_list   Args;
  va_start(Args, sFormat);
  int Length = vsnprintf(acLine, sizeof(acLine) - 1, sFormat, Args);
  va_end(Args);
  if (Length > static_cast<int>(sizeof(acLine)) - 2) {
    Length = static_cast<int>(sizeof(acLine)) - 2;
  }
  acLine[Length] = '\n';
  // Opened for each line: the program must not see a descriptor that it did not open.
  const int Descriptor = open(sPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (Descriptor < 0 || write(Descriptor, acLine, static_cast<size_t>(Length) + 1) < 0) {
    Unknown("MACHORUN_TRACE: cannot write");
  }
  close(Descriptor);
  errno = Kept;
}

const std::string& ProgramRealPath() {
  return sProgramRealPath;
}

uint64_t FlagsToHost(uint64_t Flags, std::span<const FlagPair> Table, const char* sWhat) {
  uint64_t Result = 0, Known = 0;
  for (const FlagPair& Row : Table) {
    Known |= Row.Darwin;
    if ((Flags & Row.Darwin) != 0) {
      Result |= Row.Host;
    }
  }
  if ((Flags & ~Known) != 0) {
    Unknown("%s 0x%lx", sWhat, static_cast<unsigned long>(Flags & ~Known));
  }
  return Result;
}

uint64_t FlagsToDarwin(uint64_t Flags, std::span<const FlagPair> Table) {
  uint64_t Result = 0;
  for (const FlagPair& Row : Table) {
    if (Row.Host != 0 && (Flags & Row.Host) == Row.Host) {
      Result |= Row.Darwin;
    }
  }
  return Result;
}

int main(int NumArgs, char** pasArgs) {
  const bool OnlyList = NumArgs == 3 && strcmp(pasArgs[1], "--imports") == 0;
  if (NumArgs < 2 || (pasArgs[1][0] == '-' && !OnlyList)) {
    fputs("usage: machorun FILE [argument...] | machorun --imports FILE\n", stderr);
    return STATUS_REFUSED;
  }
  try {
    if (OnlyList) {
      return PrintImports(pasArgs[2]);
    }
    char* sReal = realpath(pasArgs[1], nullptr);
    if (sReal == nullptr) {
      throw std::runtime_error(strerror(errno));
    }
    sProgramRealPath = sReal;
    free(sReal);
    errno = 0;
    exit(Run(NumArgs - 1, pasArgs + 1));
  } catch (const std::runtime_error& Failure) {
    fprintf(stderr, "machorun: %s: %s\n", pasArgs[OnlyList ? 2 : 1], Failure.what());
    return STATUS_REFUSED;
  }
}
