// tests/sys/support/threads.h
// SPDX-License-Identifier: MIT
//
// What tests of mutexes, events and threads share.

#ifndef TESTS_SYS_SUPPORT_THREADS_H
#define TESTS_SYS_SUPPORT_THREADS_H

#include <stdint.h>
#include <time.h>
#include <unistd.h>

#include <thread>

#include "sys/thread.h"
#include "tests/sys/support/faults.h"

// Uses the clock of the time-outs, so that a wait that looks too short really is.
inline int64_t GetMs() {
  struct timespec Now;
  clock_gettime(CLOCK_REALTIME, &Now);
  return Now.tv_sec * 1000 + Now.tv_nsec / 1000000;
}

// Runs Body in another thread and waits for its end.
template <typename BODY>
inline void InThread(BODY Body) {
  std::thread Thread(Body);
  Thread.join();
}

// Polls for something that another thread is about to do. Returns false after ten seconds.
template <typename CONDITION>
inline bool Soon(CONDITION IsTrue) {
  for (int i = 0; i < 10000; i++) {
    if (IsTrue()) {
      return true;
    }
    usleep(1000);
  }
  return false;
}

// Counts the system's objects that Body destroys.
struct ENDED {
  uint32_t NumMutexes;
  uint32_t NumAttributes;
  uint32_t NumConditions;
  bool     operator==(const ENDED&) const = default;
};
template <typename BODY>
inline ENDED CountEnded(BODY Body) {
  const CALL_COUNTER Mutexes("pthread_mutex_destroy");
  const CALL_COUNTER Attributes("pthread_mutexattr_destroy");
  const CALL_COUNTER Conditions("pthread_cond_destroy");
  Body();
  return {Mutexes.GetNumCalls(), Attributes.GetNumCalls(), Conditions.GetNumCalls()};
}

#endif
