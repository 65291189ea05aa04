// SPDX-License-Identifier: MIT

// Locking and unlocking a free mutex, beside a recursive pthread mutex and std::recursive_timed_mutex.

#include <pthread.h>

#include <chrono>
#include <mutex>

#include "bench/support/peer_bench.h"
#include "sys/thread.h"

namespace {

const int NUM_LOCKS = 1000;

int NumLocked;  // in the last run

std::string Answer() {
  return std::to_string(NumLocked);
}

// Locks and unlocks a thousand times, and counts.
template <typename LOCK, typename UNLOCK>
auto Repeat(LOCK Lock, UNLOCK Unlock) {
  return [=] {
    NumLocked = 0;
    for (int i = 0; i < NUM_LOCKS; i++) {
      if (Lock()) {
        NumLocked++;
        Unlock();
      }
    }
  };
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  SYS_MUTEX*                        pMutex = SYS_MUTEX_Create("bench");
  static pthread_mutex_t            Mutex;
  static std::recursive_timed_mutex Timed;
  pthread_mutexattr_t               Attr;
  const std::chrono::milliseconds   Limit(50);
  pthread_mutexattr_init(&Attr);
  pthread_mutexattr_settype(&Attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&Mutex, &Attr);

  const auto AddPthread = [] {
    BENCH_Add("pthread",
              Repeat([] { return pthread_mutex_lock(&Mutex) == 0; },
                     [] { pthread_mutex_unlock(&Mutex); }),
              Answer);
  };
  const auto Unlock = [=] { SYS_MUTEX_Unlock(pMutex); };

  BENCH_Job("mutex", "Locking and unlocking a mutex, 1000 times");
  BENCH_Row(
      "no time-out", 1.10,
      "the handle is tested for NULL and for being in use, when locking and when unlocking, as "
      "callers are promised; the calls of pthread are the same");
  BENCH_Add("ours", Repeat([=] { return SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER) == 0; }, Unlock),
            Answer);
  AddPthread();
  BENCH_Row("50 ms", 0.60);
  BENCH_Add("ours", Repeat([=] { return SYS_MUTEX_Lock(pMutex, 50) == 0; }, Unlock), Answer);
  BENCH_Add("std::recursive_timed_mutex",
            Repeat([=] { return Timed.try_lock_for(Limit); }, [] { Timed.unlock(); }), Answer);
  const int Result = BENCH_Main(NumArgs, pasArgs);
  SYS_MUTEX_Destroy(&pMutex);
  return Result;
}
