// System calls made to fail.
//
// The linker sends the calls listed in faults.inc through this; they do what they always do until a
// FAULT says otherwise. A FAULT counts for the thread that makes it, while it lives:
//
//   {
//     FAULT Fault("recv", EINTR);   // the next recv() fails
//     Result = SYS_SOCKET_Receive(hSocket, acBuffer, 4);
//   }
//   EXPECT_EQ(-5, Result);
//
// Two names stand for what is no plain failure: "pthread_cond_timedwait, woken" for a wait that
// takes a wake-up and fails then, "connect, to itself" for one from the very port it goes to.
//
// Keep its life short: the test library makes such calls too.

#ifndef TESTS_SYS_SUPPORT_FAULTS_H
#define TESTS_SYS_SUPPORT_FAULTS_H

#include <netdb.h>
#include <stdint.h>
#include <sys/time.h>
#include <termios.h>
#include <time.h>

#include <atomic>
#include <string>
#include <vector>

class FAULT {
 public:
  // Lets Skip calls of sName through and makes the next Count fail with Error (in errno, or as the
  // result where the call returns error numbers). Not called at all then; with Error 0 the call
  // returns 0 without having done anything.
  explicit FAULT(const char* sName, int Error, uint32_t Skip = 0, uint32_t Count = 1);
  ~FAULT();
  FAULT(const FAULT&)            = delete;
  FAULT& operator=(const FAULT&) = delete;

  // Calls of sName so far, failed or not.
  uint32_t GetNumCalls() const { return m_NumCalls; }

  // For the wrappers: whether this call fails, and with what.
  static bool Take(const char* sName, int* pError);

 private:
  const char* m_sName;
  int         m_Error;
  uint32_t    m_Skip;
  uint32_t    m_Count;
  uint32_t    m_NumCalls = 0;
  FAULT*      m_pOuter;
};

// Counts the calls of sName in this thread, all of which are let through.
class CALL_COUNTER : public FAULT {
 public:
  explicit CALL_COUNTER(const char* sName) : FAULT(sName, 0, 0, 0) {}
};

// What setsockopt() with an int was asked for in this thread, in order.
struct OPTION_CALL {
  int  Level;
  int  Name;
  int  Value;
  bool operator==(const OPTION_CALL&) const = default;
};
std::vector<OPTION_CALL>& GetOptionCalls();

// What syslog() was asked for: priority, format, and the text this gives.
struct LOG_CALL {
  int         Priority;
  std::string Format;
  std::string Text;
};
extern std::vector<LOG_CALL> LogCalls;

// What the power manager was last asked for.
struct ASSERTION_CALLS {
  std::string Type;
  uint32_t    Level;
  uint32_t    Id;          // what IOPMAssertionCreate() gave
  uint32_t    ReleasedId;  // what IOPMAssertionRelease() was given
};
extern ASSERTION_CALLS LastAssertion;

// What open() was last given beside the path.
extern int LastOpenFlags;

// What tcflush() was last asked to drop, and tcsetattr() to set.
extern int            LastFlush;
extern int            LastLineWhen;
extern struct termios LastLine;

// What this thread last asked usleep(), nanosleep() and select() for: microseconds, the pause, the
// time-out.
extern thread_local uint32_t        LastSleepUs;
extern thread_local struct timespec LastPause;
extern thread_local struct timeval  LastSelectTime;

// What getaddrinfo() was last asked for.
extern struct addrinfo LastHints;

// The end of the last pthread_cond_timedwait() that a FAULT refused.
extern struct timespec RefusedWaitEnd;

// The path of the running program, in place of its own unless empty.
extern std::string FakeExecutable;

// What malloc() fills a block with, 0 to 255; -1 leaves it as it comes.
extern int MallocFill;

// The most that one read() gives, in bytes; 0 for no limit.
extern size_t MaxRead;

// The clocks, in place of the machine's while set.
extern bool     IsClockFake;
extern uint64_t FakeTicks;  // mach_absolute_time()
extern uint32_t FakeRatio[2];
extern int64_t  FakeTime;  // time()

// The time of day, in place of the machine's while set. It stands still, unless pauses move it: each
// nanosleep() then takes no real time and moves it by the pause.
extern std::atomic<bool> IsTimeOfDayFake;
extern std::atomic<bool> IsTimeMovedByPauses;
extern struct timeval    FakeTimeOfDay;

#endif
