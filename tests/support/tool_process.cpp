// SPDX-License-Identifier: MIT

#include "tests/support/tool_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#if __has_include(<sys/clonefile.h>)
#include <sys/clonefile.h>
#endif
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
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

// 64 bits: the machine may have been up for longer than 24 days.
int64_t NowMs() {
  struct timespec Now;
  clock_gettime(CLOCK_MONOTONIC, &Now);
  return static_cast<int64_t>(Now.tv_sec) * 1000 + Now.tv_nsec / 1000000;
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

// A copy, not a hard link: from macOS 12 on the loader names a program that has several paths by
// any of them, and the tool looks for its library beside that one.
void PlaceFile(const std::string& From, const std::string& To) {
#if __has_include(<sys/clonefile.h>)
  if (clonefile(From.c_str(), To.c_str(), 0) == 0) {  // shares the blocks, on APFS
    return;
  }
#endif
  std::filesystem::copy_file(From, To);
}

std::string ValueOr(const char* sName, const char* sDefault) {
  const char* sValue = getenv(sName);
  return sValue != nullptr && sValue[0] != 0 ? sValue : sDefault;
}

// The tool would look there too, open the real library and erase the device on the bench.
// Another test may have put one there for a moment; this waits until it is gone.
void CheckNoRealLibrary() {
  const int64_t Deadline = NowMs() + 5000;
  for (const char* sInstalled : {"/Applications/OSTREL/Quobe/libquobearm.dylib",
                                 "/Applications/OSTREL/Quobe/libquobearm.5.dylib"}) {
    while (access(sInstalled, F_OK) == 0) {
      if (NowMs() >= Deadline) {
        throw std::runtime_error(std::string("will not run the tool where the real library is: ") +
                                 sInstalled);
      }
      usleep(10 * 1000);
    }
  }
}

// A folder of one run, removed with everything in it.
class Stage {
 public:
  explicit Stage(const ToolRun& Run) : Closed(Run.Closed) {
    CheckNoRealLibrary();
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
    for (const int Descriptor : Closed) {
      close(Descriptor);
    }
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
    pResult->ToolPath    = Tool;
    pResult->LibraryFile = ReadFile(Folder + "/kept");
  }

  // The call is logged before it is held.
  void WaitForCall(const std::string& Call, int64_t Deadline) const {
    while (NowMs() < Deadline &&
           ReadFile(Folder + "/log").find(" " + Call + "(") == std::string::npos) {
      usleep(1000);
    }
  }

  // Lets the held call go on.
  void LetGo() const { WriteFile(Folder + "/go", ""); }

  // The runner does not wait; it moves a clock and reports by how much. A run that took too long by
  // that clock counts as killed.
  void SetElapsed(int64_t RealMs, int LimitMs, ToolResult* pResult) const {
    pResult->ElapsedMs = static_cast<int>(RealMs) + atoi(ReadFile(Folder + "/clock").c_str());
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
  std::vector<int>         Closed;
};

// Waits for the child; kills it at the deadline.
void Reap(pid_t Child, int64_t DeadlineMs, ToolResult* pResult) {
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
  // A pipe has room for more than this, so it does not block.
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

// A child with standard input from a pipe, standard output and error to files.
class Redirected {
 public:
  Redirected(const Stage& TheStage, const ToolRun& Run) : S(TheStage) {
    const int Out   = OpenForOutput(S.Folder + "/out");
    const int Error = OpenForOutput(S.Folder + "/error");
    WriteAll(Error, Run.ErrorFileBegin);
    lseek(Error, 0, SEEK_SET);  // so that a read finds it
    WriteAll(In.WriteEnd, Run.Input);
    Child = Start(S, In.ReadEnd, Out, Error);
    close(In.ReadEnd);
    close(Out);
    close(Error);
  }
  Redirected(const Redirected&)            = delete;
  Redirected& operator=(const Redirected&) = delete;

  void Type(const std::string& Key) const { WriteAll(In.WriteEnd, Key); }
  void EndInput() const { close(In.WriteEnd); }
  void Kill() const { kill(Child, SIGKILL); }

  // Waits until Text has been printed and a quarter of a second more. True when it still runs then.
  bool StillRunsAfter(const std::string& Text, int64_t Deadline) const {
    while (NowMs() < Deadline && ReadFile(S.Folder + "/out").find(Text) == std::string::npos) {
      usleep(1000);
    }
    usleep(250 * 1000);
    siginfo_t Info = {};
    Check(waitid(P_PID, static_cast<id_t>(Child), &Info, WEXITED | WNOHANG | WNOWAIT) == 0,
          "waitid");
    return Info.si_pid == 0;
  }

  void Finish(int64_t Deadline, ToolResult* pResult) const {
    Reap(Child, Deadline, pResult);
    pResult->Output = ReadFile(S.Folder + "/out");
    pResult->Error  = ReadFile(S.Folder + "/error");
    S.ReadLog(pResult);
  }

 private:
  const Stage& S;
  Pipe         In;
  pid_t        Child;
};

}  // namespace

ToolResult RunTool(const ToolRun& Run) {
  ToolResult       Result;
  const Stage      S(Run);
  const int64_t    Begin = NowMs();
  const Redirected Tool(S, Run);
  Tool.EndInput();
  Tool.Finish(Begin + Run.TimeLimitMs, &Result);
  S.SetElapsed(NowMs() - Begin, Run.TimeLimitMs, &Result);
  return Result;
}

// Starts the tool in its own session on a new terminal. Stores the other end of the terminal.
static pid_t StartOnTerminal(const Stage& S, int* pMaster) {
  const int Master = posix_openpt(O_RDWR | O_NOCTTY);
  Check(Master >= 0 && grantpt(Master) == 0 && unlockpt(Master) == 0, "posix_openpt");
  const std::string Terminal = ptsname(Master);
  const pid_t       Child    = fork();
  Check(Child >= 0, "fork");
  if (Child == 0) {
    setsid();
    const int Slave = open(Terminal.c_str(), O_RDWR);
#ifdef TIOCSCTTY  // on systems where open() does not make it the controlling terminal
    ioctl(Slave, TIOCSCTTY, 0);
#endif
    const struct winsize Size = {25, 200, 0, 0};
    ioctl(Slave, TIOCSWINSZ, &Size);
    dup2(Slave, 0);
    dup2(Slave, 1);
    dup2(Slave, 2);
    close(Slave);
    close(Master);
    S.Exec();
  }
  *pMaster = Master;
  return Child;
}

ToolResult RunToolOnTerminal(const ToolRun& Run, const std::string& PromptEnd) {
  ToolResult    Result;
  const Stage   S(Run);
  const int64_t Begin    = NowMs();
  const int64_t Deadline = Begin + Run.TimeLimitMs;
  int           Master;
  const pid_t   Child = StartOnTerminal(S, &Master);
  bool          Typed = false;
  for (;;) {
    struct pollfd Poll = {Master, POLLIN, 0};
    const int64_t Left = Deadline - NowMs();
    if (Left <= 0) {
      break;
    }
    if (poll(&Poll, 1, static_cast<int>(std::min<int64_t>(Left, 50))) == 1) {
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

ToolResult RunToolAndCloseTerminal(const ToolRun& Run, const std::string& Call) {
  ToolRun Held = Run;
  Held.Script += "\nhold " + Call + " go\n";
  ToolResult    Result;
  const Stage   S(Held);
  const int64_t Deadline = NowMs() + Run.TimeLimitMs;
  int           Master;
  const pid_t   Child = StartOnTerminal(S, &Master);
  S.WaitForCall(Call, Deadline);
  close(Master);
  S.LetGo();
  Reap(Child, Deadline, &Result);
  S.ReadLog(&Result);
  Result.Transcript.clear();
  return Result;
}

std::string RunToolAndLookAtPipe(const ToolRun& Run, const std::string& Call, ToolResult* pResult,
                                 Event Meanwhile) {
  ToolRun Held = Run;
  Held.Script += "\nhold " + Call + " go\n";  // in the run's folder

  const Stage   S(Held);
  const int64_t Deadline = NowMs() + Run.TimeLimitMs;
  Pipe          In, Out;
  const int     Error = OpenForOutput(S.Folder + "/error");
  WriteAll(In.WriteEnd, Run.Input);
  const pid_t Child = Start(S, In.ReadEnd, Out.WriteEnd, Error);
  close(In.ReadEnd);
  close(In.WriteEnd);
  close(Out.WriteEnd);

  S.WaitForCall(Call, Deadline);
  std::string Seen;
  int         Waiting = 0;
  Check(ioctl(Out.ReadEnd, FIONREAD, &Waiting) == 0, "FIONREAD");
  Seen.resize(static_cast<size_t>(Waiting));
  Check(read(Out.ReadEnd, Seen.data(), Seen.size()) == Waiting, "read");

  switch (Meanwhile) {
    case Event::None:
      break;
    case Event::ReaderLeaves:
      close(Out.ReadEnd);
      break;
    case Event::HangUp:
      kill(Child, SIGHUP);
      break;
    case Event::Interrupt:
      kill(Child, SIGINT);
      break;
    case Event::Terminate:
      kill(Child, SIGTERM);
      break;
  }
  S.LetGo();
  // The pipe holds the rest of the output, so the tool can end before it is read.
  Reap(Child, Deadline, pResult);
  std::string Rest;
  if (Meanwhile != Event::ReaderLeaves) {
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
  const Stage      S(Run);
  const int64_t    Deadline = NowMs() + Run.TimeLimitMs;
  const Redirected Tool(S, Run);
  const bool       Waits = Tool.StillRunsAfter(Text, Deadline);
  if (Waits) {
    Tool.Type(Key);
  }
  Tool.Finish(Deadline, pResult);
  Tool.EndInput();
  return Waits;
}

bool RunsOnAtEndOfInput(const ToolRun& Run, const std::string& Text, ToolResult* pResult) {
  const Stage      S(Run);
  const int64_t    Deadline = NowMs() + Run.TimeLimitMs;
  const Redirected Tool(S, Run);
  Tool.EndInput();
  const bool RunsOn = Tool.StillRunsAfter(Text, Deadline);
  Tool.Kill();
  Tool.Finish(Deadline, pResult);
  return RunsOn;
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
