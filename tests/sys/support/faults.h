// SPDX-License-Identifier: MIT

// System calls made to fail.
//
// The linker directs the calls listed in faults.inc here. They do what they always do unless a
// FAULT says otherwise. A FAULT applies to the thread that makes it, while it exists:
//
//   {
//     FAULT Fault("recv", EINTR);   // the next recv() fails
//     Result = SYS_SOCKET_Receive(hSocket, acBuffer, 4);
//   }
//   EXPECT_EQ(SYS_SOCKET_ERR_INTERRUPTED, Result);
//
// Two names are not plain failures: "pthread_cond_timedwait, woken" is a wait that consumes a
// wake-up and then fails, "connect, to itself" is a connect() from the port that it connects to.
//
// Keep the scope of a FAULT short: the test library makes such calls too.

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
  // Lets Skip calls of sName through and makes the next Count calls fail with Error (in errno, or
  // as the result of a call that returns error numbers). A failing call does nothing; with Error 0
  // it returns 0 without having done anything.
  explicit FAULT(const char* sName, int Error, uint32_t Skip = 0, uint32_t Count = 1);
  ~FAULT();
  FAULT(const FAULT&)            = delete;
  FAULT& operator=(const FAULT&) = delete;

  // Returns the number of calls of sName so far, failed or not. Any thread may ask.
  uint32_t GetNumCalls() const { return m_NumCalls; }

  // For the wrappers: returns whether this call fails, and with which error.
  static bool Take(const char* sName, int* pError);

 private:
  const char* m_sName;
  int         m_Error;
  uint32_t    m_Skip;
  uint32_t    m_Count;
  FAULT*      m_pOuter;

  std::atomic<uint32_t> m_NumCalls = 0;
};

// Counts the calls of sName in this thread and lets all of them through.
class CALL_COUNTER : public FAULT {
 public:
  explicit CALL_COUNTER(const char* sName) : FAULT(sName, 0, 0, 0) {}
};

// The calls of setsockopt() with an int in this thread, in order.
struct OPTION_CALL {
  int  Level;
  int  Name;
  int  Value;
  bool operator==(const OPTION_CALL&) const = default;
};
std::vector<OPTION_CALL>& GetOptionCalls();

// The calls of syslog(): priority, format, and the resulting text.
struct LOG_CALL {
  int         Priority;
  std::string Format;
  std::string Text;
};
extern std::vector<LOG_CALL> LogCalls;

// The last calls of the power manager.
struct ASSERTION_CALLS {
  std::string Type;
  uint32_t    Level;
  uint32_t    Id;          // result of IOPMAssertionCreate()
  uint32_t    ReleasedId;  // argument of IOPMAssertionRelease()
};
extern ASSERTION_CALLS LastAssertion;

// The flags of the last open().
extern int LastOpenFlags;

// The arguments of the last tcflush() and tcsetattr().
extern int            LastFlush;
extern int            LastLineWhen;
extern struct termios LastLine;

// The arguments of this thread's last usleep(), nanosleep() and select(): microseconds, the pause,
// the time-out.
extern thread_local uint32_t        LastSleepUs;
extern thread_local struct timespec LastPause;
extern thread_local struct timeval  LastSelectTime;

// The hints of the last getaddrinfo().
extern struct addrinfo LastHints;

// The end of the last pthread_cond_timedwait() that a FAULT refused.
extern struct timespec RefusedWaitEnd;

// Replaces the path of the running program unless it is empty.
extern std::string FakeExecutable;

// The byte that malloc() fills a block with, 0 to 255; -1 for none.
extern int MallocFill;

// The most bytes that one read() returns; 0 for no limit.
extern size_t MaxRead;

// While set, these replace the machine's clocks.
extern bool     IsClockFake;
extern uint64_t FakeTicks;  // mach_absolute_time()
extern uint32_t FakeRatio[2];
extern int64_t  FakeTime;  // time()

// While set, this replaces the machine's time of day. It stands still unless IsTimeMovedByPauses is
// set: each nanosleep() then takes no real time and moves it by the pause.
extern std::atomic<bool> IsTimeOfDayFake;
extern std::atomic<bool> IsTimeMovedByPauses;
extern struct timeval    FakeTimeOfDay;

#endif
