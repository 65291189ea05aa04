#include "tests/support/tool_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace {

void Check(bool Ok, const char* sWhat) {
  if (!Ok) {
    throw std::runtime_error(std::string(sWhat) + ": " + strerror(errno));
  }
}

int NowMs() {
  struct timespec Now;
  clock_gettime(CLOCK_MONOTONIC, &Now);
  return static_cast<int>(Now.tv_sec * 1000 + Now.tv_nsec / 1000000);
}

std::string ReadFile(const std::string& Path) {
  std::ifstream     File(Path, std::ios::binary);
  std::stringstream Text;
  Text << File.rdbuf();
  return Text.str();
}

void WriteFile(const std::string& Path, const std::string& Text) {
  std::ofstream File(Path, std::ios::binary);
  File << Text;
  Check(File.good(), Path.c_str());
}

void MakeFolders(const std::string& Path) {
  for (size_t i = 1; i <= Path.size(); i++) {
    if (i == Path.size() || Path[i] == '/') {
      const std::string Part = Path.substr(0, i);
      Check(mkdir(Part.c_str(), 0700) == 0 || errno == EEXIST, Part.c_str());
    }
  }
}

// A link where the file system allows one: the executable is only read.
void PlaceFile(const std::string& From, const std::string& To) {
  if (link(From.c_str(), To.c_str()) == 0) {
    return;
  }
  WriteFile(To, ReadFile(From));
  Check(chmod(To.c_str(), 0700) == 0, To.c_str());
}

std::string ValueOr(const char* sName, const char* sDefault) {
  const char* sValue = getenv(sName);
  return sValue != nullptr && sValue[0] != 0 ? sValue : sDefault;
}

// A folder of one run, removed with everything in it.
class Stage {
 public:
  explicit Stage(const ToolRun& Run) {
    // The tool would go on to look there, find the real library and erase the device on the bench.
    for (const char* sInstalled : {"/Applications/OSTREL/Quobe/libquobearm.dylib",
                                   "/Applications/OSTREL/Quobe/libquobearm.5.dylib"}) {
      if (access(sInstalled, F_OK) == 0) {
        throw std::runtime_error(std::string("will not run the tool where the real library is: ") +
                                 sInstalled);
      }
    }
    std::string Template = ValueOr("TMPDIR", "/tmp") + "/quobe-test-XXXXXX";
    Check(mkdtemp(Template.data()) != nullptr, "mkdtemp");
    Folder                = Template;
    const std::string Bin = Run.ToolFolder == "." ? Folder : Folder + "/" + Run.ToolFolder;
    MakeFolders(Bin);
    Tool = Bin + "/quobe-unlock";
    PlaceFile(ValueOr("QUOBE_TEST_TOOL", QUOBE_TOOL_PATH), Tool);
    if (Run.ProbeKind != Probe::None) {
      const std::string ProbeFolder = Bin + "/" + Run.ProbeFolder;
      MakeFolders(ProbeFolder);
      PlaceFile(Run.ProbeKind == Probe::Scripted ? QUOBE_SCRIPTED_PROBE : QUOBE_LACKING_PROBE,
                ProbeFolder + "/libquobearm.dylib");
    }
    WriteFile(Folder + "/script", Run.Script);
    Env.push_back("TERM=dumb");  // the caller's may be unknown here
    Env.push_back("QUOBE_PROBE_SCRIPT=" + Folder + "/script");
    Env.push_back("QUOBE_PROBE_LOG=" + Folder + "/log");
    Env.push_back("MACHORUN_CLOCK_FILE=" + Folder + "/clock");
    for (const std::string& Entry : Run.Environment) {
      Env.push_back(Entry);
    }
    const std::string Runner = ValueOr("QUOBE_TEST_RUNNER", "");
    Program                  = Runner.empty() ? Tool : Runner;
    if (!Runner.empty()) {
      Argv.push_back(Runner);
      Argv.push_back(Tool);
      if (!Run.ProgramName.empty()) {
        Env.push_back("MACHORUN_DLADDR=" + Run.ProgramName);
      }
    } else {
      Argv.push_back(Run.ProgramName.empty() ? Tool : Run.ProgramName);
    }
    Argv.insert(Argv.end(), Run.Args.begin(), Run.Args.end());
  }
  ~Stage() { RemoveAll(Folder); }
  Stage(const Stage&)            = delete;
  Stage& operator=(const Stage&) = delete;

  // In the child: replaces the process.
  [[noreturn]] void Exec() const {
    for (const std::string& Entry : Env) {
      putenv(const_cast<char*>(Entry.c_str()));
    }
    std::vector<char*> Pointers;
    for (const std::string& Arg : Argv) {
      Pointers.push_back(const_cast<char*>(Arg.c_str()));
    }
    Pointers.push_back(nullptr);
    execv(Program.c_str(), Pointers.data());
    _exit(127);
  }

  void ReadLog(ToolResult* pResult) const {
    std::istringstream Log(ReadFile(Folder + "/log"));
    std::string        Line;
    size_t             Shown = 0;
    while (std::getline(Log, Line)) {
      size_t    At   = 0;
      long long Ms   = 0;
      int       Skip = 0;
      if (sscanf(Line.c_str(), "%zu %lld %n", &At, &Ms, &Skip) != 2) {
        throw std::runtime_error("log: " + Line);
      }
      pResult->CallTimesMs.push_back(Ms);
      pResult->Calls.push_back(Line.substr(static_cast<size_t>(Skip)));
      if (At > Shown && At <= pResult->Output.size()) {
        pResult->Transcript += pResult->Output.substr(Shown, At - Shown);
        Shown = At;
      }
      pResult->Transcript += "<" + pResult->Calls.back() + ">";
    }
    pResult->Transcript += pResult->Output.substr(Shown);
    pResult->ToolPath = Tool;
  }

  // The runner lets time pass without waiting and tells how much. A run that took too long by that
  // clock counts as killed.
  void SetElapsed(int RealMs, int LimitMs, ToolResult* pResult) const {
    pResult->ElapsedMs = RealMs + atoi(ReadFile(Folder + "/clock").c_str());
    if (pResult->ElapsedMs > LimitMs) {
      pResult->TimedOut = true;
      pResult->Status   = -1;
    }
  }

  std::string Folder, Tool, Program;

 private:
  static void RemoveAll(const std::string& Path) {
    const std::string Command = "rm -rf '" + Path + "'";
    if (system(Command.c_str()) != 0) {
      fprintf(stderr, "could not remove %s\n", Path.c_str());
    }
  }
  std::vector<std::string> Argv, Env;
};

// Waits for the child; kills it at the deadline.
void Reap(pid_t Child, int DeadlineMs, ToolResult* pResult) {
  int Status = 0;
  for (;;) {
    const pid_t Done = waitpid(Child, &Status, WNOHANG);
    Check(Done >= 0, "waitpid");
    if (Done == Child) {
      break;
    }
    if (NowMs() >= DeadlineMs) {
      pResult->TimedOut = true;
      kill(Child, SIGKILL);
      waitpid(Child, &Status, 0);
      break;
    }
    usleep(1000);
  }
  if (WIFEXITED(Status)) {
    pResult->Status = WEXITSTATUS(Status);
  } else {
    pResult->Signal = WTERMSIG(Status);
  }
}

int OpenForOutput(const std::string& Path) {
  const int File = open(Path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  Check(File >= 0, Path.c_str());
  return File;
}

struct Pipe {
  int ReadEnd, WriteEnd;
  Pipe() {
    int Ends[2];
    Check(pipe(Ends) == 0, "pipe");
    fcntl(Ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(Ends[1], F_SETFD, FD_CLOEXEC);
    ReadEnd  = Ends[0];
    WriteEnd = Ends[1];
  }
};

void WriteAll(int File, const std::string& Text) {
  // Small enough for the pipe, so this never blocks.
  Check(write(File, Text.data(), Text.size()) == static_cast<ssize_t>(Text.size()), "write");
}

pid_t Start(const Stage& S, int In, int Out, int Error) {
  const pid_t Child = fork();
  Check(Child >= 0, "fork");
  if (Child == 0) {
    dup2(In, 0);
    dup2(Out, 1);
    dup2(Error, 2);
    S.Exec();
  }
  return Child;
}

}  // namespace

ToolResult RunTool(const ToolRun& Run) {
  ToolResult  Result;
  const Stage S(Run);
  const int   Begin = NowMs();
  Pipe        In;
  const int   Out   = OpenForOutput(S.Folder + "/out");
  const int   Error = OpenForOutput(S.Folder + "/error");
  WriteAll(In.WriteEnd, Run.Input);
  const pid_t Child = Start(S, In.ReadEnd, Out, Error);
  close(In.ReadEnd);
  close(In.WriteEnd);
  Reap(Child, Begin + Run.TimeLimitMs, &Result);
  S.SetElapsed(NowMs() - Begin, Run.TimeLimitMs, &Result);
  close(Out);
  close(Error);
  Result.Output = ReadFile(S.Folder + "/out");
  Result.Error  = ReadFile(S.Folder + "/error");
  S.ReadLog(&Result);
  return Result;
}

ToolResult RunToolOnTerminal(const ToolRun& Run, const std::string& PromptEnd) {
  ToolResult  Result;
  const Stage S(Run);
  const int   Begin    = NowMs();
  const int   Deadline = Begin + Run.TimeLimitMs;
  const int   Master   = posix_openpt(O_RDWR | O_NOCTTY);
  Check(Master >= 0 && grantpt(Master) == 0 && unlockpt(Master) == 0, "posix_openpt");
  const std::string Terminal = ptsname(Master);
  const pid_t       Child    = fork();
  Check(Child >= 0, "fork");
  if (Child == 0) {
    setsid();
    const int Slave = open(Terminal.c_str(), O_RDWR);
#ifdef TIOCSCTTY  // where opening alone does not make it the controlling terminal
    ioctl(Slave, TIOCSCTTY, 0);
#endif
    const struct winsize Size = {25, 200, 0, 0};
    ioctl(Slave, TIOCSWINSZ, &Size);
    dup2(Slave, 0);
    dup2(Slave, 1);
    dup2(Slave, 2);
    close(Master);
    S.Exec();
  }
  bool Typed = false;
  for (;;) {
    struct pollfd Poll = {Master, POLLIN, 0};
    const int     Left = Deadline - NowMs();
    if (Left <= 0) {
      break;
    }
    if (poll(&Poll, 1, std::min(Left, 50)) == 1) {
      char          acBytes[4096];
      const ssize_t Length = read(Master, acBytes, sizeof(acBytes));
      if (Length <= 0) {
        break;  // the tool has ended and its terminal with it
      }
      Result.Output.append(acBytes, static_cast<size_t>(Length));
    }
    if (!Typed && Result.Output.find(PromptEnd) != std::string::npos) {
      WriteAll(Master, Run.Input);
      Typed = true;
    }
  }
  Reap(Child, Deadline, &Result);
  close(Master);
  S.SetElapsed(NowMs() - Begin, Run.TimeLimitMs, &Result);
  Result.Output.erase(std::remove(Result.Output.begin(), Result.Output.end(), '\r'),
                      Result.Output.end());
  S.ReadLog(&Result);
  Result.Transcript.clear();
  return Result;
}

std::string RunToolAndLookAtPipe(const ToolRun& Run, const std::string& Call, ToolResult* pResult,
                                 bool ReaderLeaves) {
  ToolRun Held = Run;
  Held.Script += "\nhold " + Call + " go\n";  // in the run's folder

  const Stage       S(Held);
  const std::string Go    = S.Folder + "/go";
  const int         Begin = NowMs();
  Pipe              In, Out;
  const int         Error = OpenForOutput(S.Folder + "/error");
  WriteAll(In.WriteEnd, Run.Input);
  const pid_t Child = Start(S, In.ReadEnd, Out.WriteEnd, Error);
  close(In.ReadEnd);
  close(In.WriteEnd);
  close(Out.WriteEnd);

  // The call is logged before it is held.
  std::string Log;
  while (NowMs() < Begin + Run.TimeLimitMs) {
    Log = ReadFile(S.Folder + "/log");
    if (Log.find(" " + Call + "(") != std::string::npos) {
      break;
    }
    usleep(1000);
  }
  std::string Seen;
  int         Waiting = 0;
  Check(ioctl(Out.ReadEnd, FIONREAD, &Waiting) == 0, "FIONREAD");
  Seen.resize(static_cast<size_t>(Waiting));
  Check(read(Out.ReadEnd, Seen.data(), Seen.size()) == Waiting, "read");

  if (ReaderLeaves) {
    close(Out.ReadEnd);
  }
  WriteFile(Go, "");
  // What is left fits into the pipe, so the tool can end before it is read.
  Reap(Child, Begin + Run.TimeLimitMs, pResult);
  std::string Rest;
  if (!ReaderLeaves) {
    char    acBytes[4096];
    ssize_t Length;
    while ((Length = read(Out.ReadEnd, acBytes, sizeof(acBytes))) > 0) {
      Rest.append(acBytes, static_cast<size_t>(Length));
    }
    close(Out.ReadEnd);
  }
  close(Error);
  pResult->Output = Seen + Rest;
  pResult->Error  = ReadFile(S.Folder + "/error");
  S.ReadLog(pResult);
  pResult->Transcript.clear();
  return Seen;
}

bool RunToolUntilItWaits(const ToolRun& Run, const std::string& Text, const std::string& Key,
                         ToolResult* pResult) {
  const Stage S(Run);
  const int   Begin    = NowMs();
  const int   Deadline = Begin + Run.TimeLimitMs;
  Pipe        In;
  const int   Out   = OpenForOutput(S.Folder + "/out");
  const int   Error = OpenForOutput(S.Folder + "/error");
  WriteAll(In.WriteEnd, Run.Input);
  const pid_t Child = Start(S, In.ReadEnd, Out, Error);
  close(In.ReadEnd);
  while (NowMs() < Deadline && ReadFile(S.Folder + "/out").find(Text) == std::string::npos) {
    usleep(1000);
  }
  usleep(250 * 1000);
  int        Status  = 0;
  const bool Waiting = waitpid(Child, &Status, WNOHANG) == 0;
  if (Waiting) {
    WriteAll(In.WriteEnd, Key);
    Reap(Child, Deadline, pResult);
  }
  close(In.WriteEnd);
  close(Out);
  close(Error);
  pResult->Output = ReadFile(S.Folder + "/out");
  pResult->Error  = ReadFile(S.Folder + "/error");
  S.ReadLog(pResult);
  return Waiting;
}

std::string WithoutBuildTime(const std::string& Text) {
  static const std::regex Pattern(
      "\nCompiled (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] [0-9]{4} "
      "[0-9]{2}:[0-9]{2}:[0-9]{2}\n");
  return std::regex_replace(Text, Pattern, "\nCompiled <built>\n");
}

std::string AfterBanner(const std::string& Text) {
  static const std::string Banner =
      "OSTREL Quobe Unlock tool for STM32 devices\nCompiled <built>\n\n";
  const std::string Rest = WithoutBuildTime(Text);
  return Rest.compare(0, Banner.size(), Banner) == 0 ? Rest.substr(Banner.size())
                                                     : "NO BANNER: " + Rest;
}
