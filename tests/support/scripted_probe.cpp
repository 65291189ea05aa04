// SPDX-License-Identifier: MIT

// A probe library for tests: it answers from a script and logs every call.
//
//   QUOBE_PROBE_SCRIPT  the script, one directive per line (see Directives below); unset: defaults
//   QUOBE_PROBE_LOG     the log: per call one line "<bytes of standard output so far> <ms> <call>"
//
// The count works only if standard output is a regular file. It shows which text was printed before
// a call was made.
//
// A read at an address that the script does not list is logged as UNEXPECTED and ends the process
// with status 97, so that a wrong address cannot look like a device that is ready.
//
// Directives. Numbers are decimal or 0x...; N*COUNT stands for COUNT times N.
//
//   read ADDRESS V...         successive one-word reads answer V..., the last one for ever
//   block ADDRESS V...        one read of as many words; the next read of the block takes the next
//                             such line, the last one for ever
//   read-fails ADDRESS RESULT V...     the next read fails with RESULT and delivers V...; without V
//                             it writes nothing into the caller's buffer
//   fail-later ADDRESS N RESULT V...   the same for the read after N good ones
//   open-error TEXT           QUOBEARM_Open returns TEXT
//   select-ip N               what QUOBEARM_SelectIP returns
//   is-open-extra N           bits added to what QUOBEARM_IsOpen returns
//   speed N                   what QUOBEARM_GetSpeed returns
//   voltage N                 millivolts; without it 3300
//   status-bytes N            how many bytes QUOBEARM_GetHWStatus fills after the voltage
//   read-nothing ADDRESS      the next read reports success and writes nothing
//   no-status                 QUOBEARM_GetHWStatus writes nothing
//   keep-file 1               QUOBEARM_Open opens the file "kept" beside the script; QUOBEARM_Close
//                             writes "end\n" to it and "noise\n" to standard error
//   hold CALL NAME            the first CALL waits until a file NAME is beside the script

#include <ctype.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <deque>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#define PROBE_CALL extern "C" __attribute__((visibility("default")))

namespace {

struct Failure {
  int32_t               Result;
  std::vector<uint32_t> Delivered;
};

struct Script {
  std::map<uint32_t, std::deque<uint32_t>>              Reads;
  std::map<uint32_t, std::deque<std::vector<uint32_t>>> Blocks;
  std::map<uint32_t, std::deque<Failure>>               ReadFailures;
  std::map<uint32_t, uint32_t>                          GoodReadsBefore;  // the failures start
  std::map<std::string, std::string>                    Holds;
  std::string                                           OpenError;
  uint32_t                                              SelectIpResult = 0;
  uint32_t                                              IsOpenExtra    = 0;
  uint32_t                                              Speed          = 1000;
  uint32_t                                              Voltage        = 3300;
  uint32_t                                              StatusBytes    = 0;
  bool                                                  NoStatus       = false;
  bool                                                  KeepFile       = false;
};

bool   IsOpen;
Script TheScript;
bool   Loaded;
int    KeptFile = -1;

void AddNumbers(std::istringstream& Line, std::vector<uint32_t>& Out) {
  std::string Word;
  while (Line >> Word) {
    const size_t        Star  = Word.find('*');
    const unsigned long Value = strtoul(Word.substr(0, Star).c_str(), nullptr, 0);
    const unsigned long Count =
        Star == std::string::npos ? 1 : strtoul(Word.c_str() + Star + 1, nullptr, 0);
    Out.insert(Out.end(), Count, static_cast<uint32_t>(Value));
  }
}

Script& GetScript() {
  if (Loaded) {
    return TheScript;
  }
  Loaded            = true;
  const char* sPath = getenv("QUOBE_PROBE_SCRIPT");
  if (sPath == nullptr) {
    return TheScript;
  }
  std::ifstream File(sPath);
  std::string   Text;
  while (std::getline(File, Text)) {
    std::istringstream Line(Text);
    std::string        Directive;
    if (!(Line >> Directive) || Directive[0] == '#') {
      continue;
    }
    if (Directive == "open-error") {
      std::getline(Line >> std::ws, TheScript.OpenError);
      continue;
    }
    if (Directive == "no-status") {
      TheScript.NoStatus = true;
      continue;
    }
    if (Directive == "hold") {
      std::string Call;
      Line >> Call;
      std::getline(Line >> std::ws, TheScript.Holds[Call]);
      continue;
    }
    std::vector<uint32_t> Numbers;
    AddNumbers(Line, Numbers);
    if (Numbers.empty()) {
      fprintf(stderr, "script: '%s' needs a number\n", Directive.c_str());
      _exit(96);
    }
    const std::vector<uint32_t> Rest(Numbers.begin() + 1, Numbers.end());
    if (Directive == "read") {
      auto& Queue = TheScript.Reads[Numbers[0]];
      Queue.insert(Queue.end(), Rest.begin(), Rest.end());
    } else if (Directive == "block") {
      TheScript.Blocks[Numbers[0]].push_back(Rest);
    } else if (Directive == "read-fails") {
      TheScript.ReadFailures[Numbers[0]].push_back(
          {static_cast<int32_t>(Rest.at(0)), {Rest.begin() + 1, Rest.end()}});
    } else if (Directive == "fail-later") {
      TheScript.GoodReadsBefore[Numbers[0]] = Rest.at(0);
      TheScript.ReadFailures[Numbers[0]].push_back(
          {static_cast<int32_t>(Rest.at(1)), {Rest.begin() + 2, Rest.end()}});
    } else if (Directive == "read-nothing") {
      TheScript.ReadFailures[Numbers[0]].push_back({0, {}});
    } else if (Directive == "select-ip") {
      TheScript.SelectIpResult = Numbers[0];
    } else if (Directive == "is-open-extra") {
      TheScript.IsOpenExtra = Numbers[0];
    } else if (Directive == "speed") {
      TheScript.Speed = Numbers[0];
    } else if (Directive == "voltage") {
      TheScript.Voltage = Numbers[0];
    } else if (Directive == "keep-file") {
      TheScript.KeepFile = Numbers[0] != 0;
    } else if (Directive == "status-bytes") {
      TheScript.StatusBytes = Numbers[0];
    } else {
      fprintf(stderr, "script: unknown directive '%s'\n", Directive.c_str());
      _exit(96);
    }
  }
  return TheScript;
}

// A file beside the script.
std::string PathBeside(const std::string& Name) {
  const std::string Script = getenv("QUOBE_PROBE_SCRIPT");
  return Script.substr(0, Script.rfind('/') + 1) + Name;
}

void Log(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

void Log(const char* sFormat, ...) {
  Script&     S     = GetScript();
  const char* sPath = getenv("QUOBE_PROBE_LOG");
  char        acCall[1024];
  va_list     Args;
  va_start(Args, sFormat);
  vsnprintf(acCall, sizeof(acCall), sFormat, Args);
  va_end(Args);
  if (sPath != nullptr) {
    struct stat Status;
    const off_t Written =
        fstat(STDOUT_FILENO, &Status) == 0 && S_ISREG(Status.st_mode) ? Status.st_size : 0;
    struct timespec Now;
    clock_gettime(CLOCK_MONOTONIC, &Now);
    const long long   Ms = Now.tv_sec * 1000LL + Now.tv_nsec / 1000000;
    const std::string Line =
        std::to_string(Written) + " " + std::to_string(Ms) + " " + acCall + "\n";
    const int File = open(sPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (File < 0 || write(File, Line.data(), Line.size()) != static_cast<ssize_t>(Line.size())) {
      _exit(96);
    }
    close(File);
  }
  const auto Hold = S.Holds.find(std::string(acCall, strcspn(acCall, "(")));
  if (Hold != S.Holds.end()) {
    const std::string Go = PathBeside(Hold->second);
    while (access(Go.c_str(), F_OK) != 0) {
      usleep(1000);
    }
    S.Holds.erase(Hold);
  }
}

template <class T>
T Next(std::deque<T>& Queue) {
  T Value = Queue.front();
  if (Queue.size() > 1) {
    Queue.pop_front();
  }
  return Value;
}

}  // namespace

PROBE_CALL uint32_t QUOBEARM_IsOpen(void) {
  Log("IsOpen()");
  return (IsOpen ? 1u : 0u) | GetScript().IsOpenExtra;
}

PROBE_CALL uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port) {
  Log("SelectIP(%s, %d)", sHost, Port);
  return GetScript().SelectIpResult;
}

PROBE_CALL int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo) {
  Log("EMU_SelectByUSBSN(%u)", SerialNo);
  return -1;  // must be ignored
}

PROBE_CALL const char* QUOBEARM_Open(void) {
  Log("Open()");
  if (!GetScript().OpenError.empty()) {
    return GetScript().OpenError.c_str();
  }
  IsOpen = true;
  if (GetScript().KeepFile) {
    KeptFile = open(PathBeside("kept").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (KeptFile <= STDERR_FILENO) {
      Log("UNEXPECTED: the library's file has descriptor %d", KeptFile);
    }
  }
  return nullptr;
}

PROBE_CALL void QUOBEARM_Close(void) {
  Log("Close()");
  IsOpen = false;
  if (KeptFile >= 0 &&
      (write(STDERR_FILENO, "noise\n", 6) != 6 || write(KeptFile, "end\n", 4) != 4)) {
    Log("UNEXPECTED: cannot write");
  }
}

PROBE_CALL int32_t QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize) {
  // The tool has one buffer: for the first command, then for the error texts of the others.
  static const char* const pFirstCommand = sCommand;
  Log("ExecCommand(%s, %s, %d)", sCommand,
      pError == nullptr ? "null" : (pError == pFirstCommand ? "buffer" : "OTHER BUFFER"),
      BufferSize);
  if (pError != nullptr) {
    memset(pError, '!', static_cast<size_t>(BufferSize));  // the library may write all of it
    pError[BufferSize - 1] = 0;
  }
  return -1;
}

#ifndef SCRIPTED_PROBE_LACKS_TIF_SELECT
PROBE_CALL int32_t QUOBEARM_TIF_Select(int32_t Interface) {
  Log("TIF_Select(%d)", Interface);
  return -1;
}
#endif

PROBE_CALL void QUOBEARM_SetSpeed(uint32_t SpeedkHz) {
  Log("SetSpeed(%u)", SpeedkHz);
}

// Leaves rubbish on the stack, where the caller's next record will be.
__attribute__((noinline)) static void DirtyStack(void) {
  volatile uint8_t abRubbish[8192];
  for (volatile uint8_t& Byte : abRubbish) {
    Byte = 0xA5;
  }
}

PROBE_CALL uint32_t QUOBEARM_GetSpeed(void) {
  DirtyStack();
  Log("GetSpeed()");
  return GetScript().Speed;
}

PROBE_CALL int32_t QUOBEARM_GetHWStatus(uint8_t* pStatus) {
  for (int i = 0; i < 256; i++) {
    if (pStatus[i] != 0) {
      Log("UNEXPECTED: the status record is not zeroed");
      _exit(97);
    }
  }
  Log("GetHWStatus()");
  if (GetScript().NoStatus) {
    return -1;
  }
  const uint16_t Voltage = static_cast<uint16_t>(GetScript().Voltage);
  memcpy(pStatus, &Voltage, sizeof(Voltage));
  memset(pStatus + sizeof(Voltage), 0xFF, GetScript().StatusBytes);
  return 0;
}

PROBE_CALL int32_t QUOBEARM_SetResetType(int32_t Type) {
  Log("SetResetType(%d)", Type);
  return -1;
}

PROBE_CALL void QUOBEARM_SetResetDelay(int32_t Delayms) {
  Log("SetResetDelay(%d)", Delayms);
}

PROBE_CALL int32_t QUOBEARM_Reset(void) {
  Log("Reset()");
  return -1;
}

PROBE_CALL int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData,
                                       uint8_t* pStatus) {
  Script& S = GetScript();
  Log("Read(0x%08X, %u%s)", Address, NumItems, pStatus == nullptr ? "" : ", status");
  std::deque<Failure>& Failures  = S.ReadFailures[Address];
  uint32_t&            GoodReads = S.GoodReadsBefore[Address];
  if (GoodReads > 0) {
    GoodReads--;
  } else if (!Failures.empty()) {
    const Failure Now = Failures.front();
    Failures.pop_front();
    for (uint32_t i = 0; i < NumItems && i < Now.Delivered.size(); i++) {
      pData[i] = Now.Delivered[i];
    }
    return Now.Result;
  }
  if (NumItems == 1 && S.Reads.count(Address) != 0) {
    pData[0] = Next(S.Reads[Address]);
    return 0;
  }
  if (S.Blocks.count(Address) != 0 && S.Blocks[Address].front().size() == NumItems) {
    const std::vector<uint32_t> Words = Next(S.Blocks[Address]);
    memcpy(pData, Words.data(), NumItems * sizeof(*pData));
    return static_cast<int32_t>(NumItems);  // 0 or more: read
  }
  Log("UNEXPECTED read");
  _exit(97);
}

PROBE_CALL int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data) {
  Log("WriteU32(0x%08X, 0x%08X)", Address, Data);
  return -1;
}

PROBE_CALL int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data) {
  Log("WriteU16(0x%08X, 0x%04X)", Address, Data);
  return -1;
}
