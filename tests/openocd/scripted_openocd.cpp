// SPDX-License-Identifier: MIT

// A program that talks like OpenOCD on its standard input and output, with a memory for a target, and
// misbehaves as it is told. Started by the library under test in OpenOCD's place.
//
//   SCRIPTED_OPENOCD_RULES  file of rules, one a line: "PART NTH ACTION [ARGUMENT]". The rule is
//                           for the NTH request whose command holds PART ("*": any; NTH 0: each).
//                           The K-th program started takes the file with ".K" at its end, if it exists
//   SCRIPTED_OPENOCD_LOG    file: the process number, then each command on a line of its own
//
// Actions, of which the last four also answer as usual:
//   result TEXT    answers with this Tcl word      error TEXT     the same, as a failed command
//   fail TEXT      the same with an empty text, and TEXT as an error in its log
//   raw TEXT       writes the text as it stands; in it \n and \e (the byte that ends an answer)
//   exit STATUS    ends without an answer          silent         does not answer
//   deaf           does not answer, nor end when its standard input does
//   close FILES    the same after closing some of its standard files, such as "01"
//   cut N          writes N bytes of the answer and nothing more
//   delay MS       answers late                    pieces MS      answers byte by byte
//   before TEXT    writes the text before the answer, as raw
//   flood LINES    writes so many lines to its log  say TEXT      writes a line to its log

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

namespace {

struct Rule {
  std::string sPart;
  int         Nth = 0;
  std::string sAction;
  std::string sArgument;
  int         Seen = 0;
};

std::vector<Rule>            Rules;
std::map<uint32_t, uint32_t> Memory;
FILE*                        pLog = nullptr;

std::string Unescaped(const std::string& sText) {
  std::string sResult;
  for (size_t i = 0; i < sText.size(); i++) {
    if (sText[i] == '\\' && i + 1 < sText.size()) {
      i++;
      sResult += sText[i] == 'n' ? '\n' : sText[i] == 'e' ? '\x1A' : sText[i];
    } else {
      sResult += sText[i];
    }
  }
  return sResult;
}

void LoadRules(int Start) {
  const std::string sPath = getenv("SCRIPTED_OPENOCD_RULES");
  FILE*             pFile = fopen((sPath + "." + std::to_string(Start)).c_str(), "r");
  char              acLine[1024];
  pFile = pFile != nullptr ? pFile : fopen(sPath.c_str(), "r");
  while (pFile != nullptr && fgets(acLine, sizeof(acLine), pFile) != nullptr) {
    char acPart[256];
    char acAction[64];
    int  NumChars = 0;
    Rule New;
    if (sscanf(acLine, "%255s %d %63s %n", acPart, &New.Nth, acAction, &NumChars) < 3) {
      fprintf(stderr, "bad rule: %s", acLine);
      exit(99);
    }
    New.sPart     = acPart;
    New.sAction   = acAction;
    New.sArgument = acLine + NumChars;
    while (!New.sArgument.empty() && New.sArgument.back() == '\n') {
      New.sArgument.pop_back();
    }
    Rules.push_back(New);
  }
}

void Write(const std::string& sText) {
  size_t Done = 0;
  while (Done < sText.size()) {
    const ssize_t Written = write(STDOUT_FILENO, sText.data() + Done, sText.size() - Done);
    if (Written <= 0) {
      exit(0);
    }
    Done += static_cast<size_t>(Written);
  }
}

// The core: stopped, and whether it was reset since the last look.
const uint32_t AIRCR = 0xE000ED0C, DHCSR = 0xE000EDF0;
const uint32_t S_RESET_ST = 1u << 25, STOPPED = 0x00030003;
bool           WasReset = false;

uint32_t ReadWord(uint32_t Address) {
  if (Address != DHCSR) {
    return Memory[Address];
  }
  const uint32_t Status = STOPPED | (WasReset ? S_RESET_ST : 0);
  WasReset              = false;
  return Status;
}

std::string ReadMemory(uint32_t Address, uint32_t Count) {
  std::string sWords;
  for (uint32_t i = 0; i < Count; i++) {
    char acWord[16];
    snprintf(acWord, sizeof(acWord), "%s0x%x", i == 0 ? "" : " ", ReadWord(Address + 4 * i));
    sWords += acWord;
  }
  return Count == 1 ? sWords : "{" + sWords + "}";
}

// The result as a Tcl word, for a session in which all is well.
std::string ResultOf(const std::string& sCommand) {
  unsigned    Address = 0;
  unsigned    Bits    = 0;
  unsigned    Value   = 0;
  const char* sRead   = strstr(sCommand.c_str(), "read_memory ");
  const char* sWrite  = strstr(sCommand.c_str(), "write_memory ");
  if (sRead != nullptr && sscanf(sRead, "read_memory %x %u %u", &Address, &Bits, &Value) == 3) {
    return ReadMemory(Address, Value);
  }
  if (sWrite != nullptr &&
      sscanf(sWrite, "write_memory %x %u {%x}", &Address, &Bits, &Value) == 3) {
    Memory[Address] = Value;
    WasReset        = WasReset || Address == AIRCR;
    return "{}";
  }
  if (sCommand == "adapter deassert srst") {
    WasReset = true;
    return "{}";
  }
  if (sCommand == "version") {
    return "{Open On-Chip Debugger 0.12.0}";
  }
  if (sCommand.find("catch {init}") != std::string::npos) {
    return "{0 {}}";
  }
  if (sCommand == "adapter name") {
    return "cmsis-dap";
  }
  if (sCommand == "command mode") {
    return "exec";
  }
  if (sscanf(sCommand.c_str(), "adapter speed %u", &Value) == 1) {
    return "{adapter speed: " + std::to_string(Value) + " kHz\n}";
  }
  if (sCommand.find("target names") != std::string::npos) {
    return "their.mem";
  }
  if (sCommand.find("cget -dap") != std::string::npos) {
    return "their.dap";
  }
  if (sCommand.find("dpreg 0x0") != std::string::npos) {
    return "{0x2ba01477\n}";
  }
  if (sCommand.find("dpreg 0x4") != std::string::npos) {
    return "{0xf0000000\n}";
  }
  if (sCommand.find("apreg") != std::string::npos) {
    return "{0x24770011\n}";
  }
  return "{}";
}

void Pause(int Ms) {
  usleep(static_cast<unsigned>(Ms) * 1000);
}

Rule* RuleFor(const std::string& sCommand) {
  Rule* pFound = nullptr;
  for (Rule& Each : Rules) {
    if (Each.sPart == "*" || sCommand.find(Each.sPart) != std::string::npos) {
      Each.Seen++;
      if (pFound == nullptr && (Each.Nth == 0 || Each.Nth == Each.Seen)) {
        pFound = &Each;
      }
    }
  }
  return pFound;
}

void Flood(int Lines) {
  for (int i = 0; i < Lines; i++) {
    fprintf(stderr, "Error: line %d of a log that has no end in sight, as of a lost adapter\n", i);
  }
}

void Answer(const std::string& sNumber, const std::string& sCommand) {
  const Rule*       pRule     = RuleFor(sCommand);
  const std::string sAction   = pRule != nullptr ? pRule->sAction : "";
  const std::string sArgument = pRule != nullptr ? pRule->sArgument : "";
  const bool        IsOwn     = sAction == "result" || sAction == "error" || sAction == "fail";
  const std::string sUsual    = IsOwn ? "" : sNumber + " 0 " + ResultOf(sCommand) + "\x1A";
  const int         Number    = atoi(sArgument.c_str());
  if (sAction == "result" || sAction == "error") {
    Write(sNumber + (sAction == "error" ? " 1 " : " 0 ") + Unescaped(sArgument) + "\x1A");
  } else if (sAction == "fail") {
    fprintf(stderr, "Error: %s\n", sArgument.c_str());
    Write(sNumber + " 1 {}\x1A");
  } else if (sAction == "raw") {
    Write(Unescaped(sArgument));
  } else if (sAction == "exit") {
    exit(Number);
  } else if (sAction == "deaf" || sAction == "close") {
    for (const char c : sArgument) {
      close(c - '0');
    }
    for (;;) {
      Pause(1000);
    }
  } else if (sAction == "cut") {
    Write(sUsual.substr(0, static_cast<size_t>(Number)));
  } else if (sAction == "pieces") {
    for (const char c : sUsual) {
      Pause(Number);
      Write(std::string(1, c));
    }
  } else if (sAction != "silent") {
    if (sAction == "delay") {
      Pause(Number);
    } else if (sAction == "before") {
      Write(Unescaped(sArgument));
    } else if (sAction == "flood") {
      Flood(Number);
    } else if (sAction == "say") {
      fprintf(stderr, "%s\n", sArgument.c_str());
    }
    Write(sUsual);
  }
}

// "list qN [catch {COMMAND} e] $e"
void Serve(const std::string& sRequest) {
  const size_t Number = sRequest.find(' ') + 1;
  const size_t Begin  = sRequest.find(" [catch {");
  const size_t End    = sRequest.rfind("} e] $e");
  if (sRequest.compare(0, 6, "list q") != 0 || Begin == std::string::npos ||
      End == std::string::npos) {
    fprintf(stderr, "not a request: %s\n", sRequest.c_str());
    exit(98);
  }
  const std::string sCommand = sRequest.substr(Begin + 9, End - Begin - 9);
  fprintf(pLog, "%s\n", sCommand.c_str());
  fflush(pLog);
  Answer(sRequest.substr(Number, Begin - Number), sCommand);
}

}  // namespace

// Writes the first line of this program to the log. Returns how many programs have been started.
static int LogStart(int NumArgs, char** pasArgs) {
  int  Start = 0;
  char acLine[4096];
  pLog = fopen(getenv("SCRIPTED_OPENOCD_LOG"), "a+");
  fprintf(pLog, "%d:", static_cast<int>(getpid()));
  for (int i = 1; i < NumArgs; i++) {
    fprintf(pLog, " %s", pasArgs[i]);
  }
  fprintf(pLog, "\n");
  rewind(pLog);
  while (fgets(acLine, sizeof(acLine), pLog) != nullptr) {
    Start += strstr(acLine, ": -c noinit") != nullptr;
  }
  return Start;
}

int main(int NumArgs, char** pasArgs) {
  std::string sRequest;
  char        c = 0;
  signal(SIGPIPE, SIG_IGN);
  setvbuf(stderr, nullptr, _IOLBF, 0);
  LoadRules(LogStart(NumArgs, pasArgs));
  Memory[0xE000ED00] = 0x410FC241;
  while (read(STDIN_FILENO, &c, 1) == 1) {
    if (c == '\x1A') {
      if (!sRequest.empty()) {
        Serve(sRequest);
      }
      sRequest.clear();
    } else {
      sRequest += c;
    }
  }
  return 0;
}
