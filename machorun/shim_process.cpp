// SPDX-License-Identifier: MIT

// Processes: own path, locale, signals, starting programs, system values, the system log.
//
// MACHORUN_PIDPATH replaces the path that proc_pidpath() returns for this process; "!fail" makes
// the call fail. Without it the path is that of the file with links followed, as on Darwin;
// dladdr() returns the path as given.

#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"

namespace {

int PidPath(int Pid, char* pBuffer, uint32_t BufferSize) {
  if (BufferSize == 0 || BufferSize > 4096) {
    errno = EOVERFLOW;
    return 0;
  }
  const char*       sAnswer = getenv("MACHORUN_PIDPATH");
  const std::string sPath   = sAnswer != nullptr ? sAnswer : ProgramRealPath();
  Trace("proc_pidpath(%s, %u)", Pid == getpid() ? "self" : "other", BufferSize);
  if (Pid != getpid() || sPath == "!fail") {
    errno = ESRCH;
    return 0;
  }
  if (sPath.size() >= BufferSize) {
    errno = ENOMEM;
    return 0;
  }
  memcpy(pBuffer, sPath.c_str(), sPath.size() + 1);
  return static_cast<int>(sPath.size());
}

// The character set only. macOS 10.13 has "UTF-8" and no "C.UTF-8"; here it is the other way round.
const char* SetLocale(int Category, const char* sName) {
  if (Category != darwin::CATEGORY_CTYPE || sName == nullptr) {
    Unknown("setlocale(%d, %s)", Category, sName == nullptr ? "null" : sName);
  }
  Trace("setlocale(LC_CTYPE, %s)", sName);
  if (strcmp(sName, "UTF-8") != 0) {
    return nullptr;
  }
  return setlocale(LC_CTYPE, "C.UTF-8") == nullptr ? nullptr : "UTF-8";
}

struct SignalPair {
  int Darwin, Host;
};

// Signals 1 to 15 are the same on both systems, except 7, 10 and 12.
constexpr SignalPair Signals[] = {
    {darwin::SIGNAL_BUS, SIGBUS},   {darwin::SIGNAL_SYS, SIGSYS},   {darwin::SIGNAL_CHLD, SIGCHLD},
    {darwin::SIGNAL_USR1, SIGUSR1}, {darwin::SIGNAL_USR2, SIGUSR2},
};

bool IsSameSignal(int Signal) {
  return Signal > 0 && Signal <= SIGTERM && Signal != 7 && Signal != 10 && Signal != 12;
}

int Translate(int Signal, int SignalPair::*pFrom, int SignalPair::*pTo, const char* sWhat) {
  for (const SignalPair& Row : Signals) {
    if (Row.*pFrom == Signal) {
      return Row.*pTo;
    }
  }
  if (!IsSameSignal(Signal)) {
    Unknown("%s %d", sWhat, Signal);
  }
  return Signal;
}

int SignalToHost(int Signal) {
  return Translate(Signal, &SignalPair::Darwin, &SignalPair::Host, "signal");
}

int SignalToDarwin(int Signal) {
  return Translate(Signal, &SignalPair::Host, &SignalPair::Darwin,
                   "a child that ended by this system's signal");
}

// A handler is called with this system's number, so it can be set only where the numbers agree.
using Handler = void (*)(int);
Handler SetHandler(int Signal, Handler pfHandler) {
  const int HostSignal = SignalToHost(Signal);
  if (HostSignal != Signal && pfHandler != SIG_IGN && pfHandler != SIG_DFL) {
    Unknown("a handler for signal %d", Signal);
  }
  Trace("signal(%d, %s)", Signal,
        pfHandler == SIG_IGN ? "ignore" : (pfHandler == SIG_DFL ? "default" : "handler"));
  return signal(HostSignal, pfHandler);
}

int Kill(int Pid, int Signal) {
  return kill(Pid, SignalToHost(Signal));
}

// The status of a child has the same layout, but with this system's signal numbers.
int WaitFor(int Pid, int* pStatus, int Options) {
  if ((Options & ~WNOHANG) != 0) {
    Unknown("waitpid option 0x%x", static_cast<unsigned>(Options));
  }
  const int Result = waitpid(Pid, pStatus, Options);
  if (Result > 0 && pStatus != nullptr && WIFSIGNALED(*pStatus)) {
    *pStatus = (*pStatus & ~0x7F) | SignalToDarwin(WTERMSIG(*pStatus));
  }
  return Result;
}

// On Darwin the attribute object is a pointer.
struct SpawnAttributes {
  int16_t Flags;
};

int SpawnAttrInit(SpawnAttributes** ppAttributes) {
  *ppAttributes = new SpawnAttributes{};
  return 0;
}

// An attribute object that is not initialised, or was destroyed, is a null pointer.
int SpawnAttrDestroy(SpawnAttributes** ppAttributes) {
  if (*ppAttributes == nullptr) {
    return EINVAL;
  }
  delete *ppAttributes;
  *ppAttributes = nullptr;
  return 0;
}

int SpawnAttrSetFlags(SpawnAttributes** ppAttributes, int16_t Flags) {
  if (*ppAttributes == nullptr) {
    return EINVAL;
  }
  (*ppAttributes)->Flags = Flags;
  return 0;
}

int Spawn(pid_t* pPid, const char* sPath, const void* pActions,
          SpawnAttributes* const* ppAttributes, char* const* pasArgs, char* const* pasEnvironment) {
  if (pActions != nullptr) {
    Unknown("posix_spawn with file actions");
  }
  const bool IsPlain = ppAttributes == nullptr || *ppAttributes == nullptr;
  const int  Flags   = IsPlain ? 0 : static_cast<uint16_t>((*ppAttributes)->Flags);
  if ((Flags & ~darwin::SPAWN_CLOEXEC_DEFAULT) != 0) {
    Unknown("posix_spawn flag 0x%x", static_cast<unsigned>(Flags));
  }
  Trace("posix_spawn(%s, 0x%x)", sPath, static_cast<unsigned>(Flags));
  posix_spawn_file_actions_t Actions;
  posix_spawn_file_actions_init(&Actions);
  if ((Flags & darwin::SPAWN_CLOEXEC_DEFAULT) != 0) {
    // Only descriptors that the actions name are inherited, and no action is supported here: 0, 1
    // and 2 are closed too.
    posix_spawn_file_actions_addclosefrom_np(&Actions, STDIN_FILENO);
  }
  pid_t     Pid    = 0;
  const int Result = posix_spawn(&Pid, sPath, &Actions, nullptr, pasArgs, pasEnvironment);
  posix_spawn_file_actions_destroy(&Actions);
  if (pPid != nullptr) {
    *pPid = Pid;
  }
  return Result == 0 ? 0 : ToDarwinErrno(Result);
}

int SystemValue(const char* sName, void* pValue, size_t* pSize, const void* pNew, size_t NewSize) {
  if (strcmp(sName, "hw.logicalcpu") != 0 || pNew != nullptr || NewSize != 0) {
    Unknown("sysctl %s", sName);
  }
  if (pValue == nullptr || *pSize < sizeof(int32_t)) {
    errno = ENOMEM;
    return -1;
  }
  const auto Count = static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
  memcpy(pValue, &Count, sizeof(Count));
  *pSize = sizeof(Count);
  return 0;
}

// Priorities and facilities have the same numbers; the text is traced as it would be logged.
void Log(int Priority, const char* sFormat, ...) __attribute__((format(printf, 2, 3)));
void Log(int Priority, const char* sFormat, ...) {
  char    acText[4096];
  va_list Args;
  va_start(Args, sFormat);
  vsnprintf(acText, sizeof(acText), sFormat, Args);
  va_end(Args);
  Trace("syslog(%d, [%s])", Priority, acText);
  syslog(Priority, "%s", acText);
}

const Shim Table[] = {
    Bound("_proc_pidpath", &PidPath),
    {"_environ", &environ},
    Bound("_setlocale", &SetLocale),
    Bound("_signal", &SetHandler),
    Bound("_kill", &Kill),
    Bound("_waitpid", &WaitFor),
    Bound("_posix_spawnattr_init", &SpawnAttrInit),
    Bound("_posix_spawnattr_destroy", &SpawnAttrDestroy),
    Bound("_posix_spawnattr_setflags", &SpawnAttrSetFlags),
    Bound("_posix_spawn", &Spawn),
    Bound("_sysctlbyname", &SystemValue),
    Bound("_syslog$DARWIN_EXTSN", &Log),
};

}  // namespace

std::span<const Shim> ProcessShims() {
  return Table;
}
