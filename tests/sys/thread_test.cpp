// SPDX-License-Identifier: MIT

// Threads, and threads, mutexes and events all at once.

#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/sys/support/faults.h"
#include "tests/sys/support/threads.h"

// ---- Threads ------------------------------------------------------------------------------------

static std::atomic<int> NumEnded;

// Counts every way for a thread to end: the destructor of a thread-specific value runs in each.
static void CountEnd() {
  static pthread_key_t Key;
  static const int     IsMade = pthread_key_create(&Key, [](void*) { NumEnded++; });
  EXPECT_EQ(0, IsMade);
  pthread_setspecific(Key, &NumEnded);
}

struct SEEN {
  std::atomic<bool> IsDone{false};
  pthread_t         Id = 0;
  int               DetachState;
};

static void* StoreSelf(void* pArg) {
  SEEN*          p = (SEEN*)pArg;
  pthread_attr_t Attr;
  p->Id = SYS_THREAD_GetCurrentId();
  pthread_getattr_np(pthread_self(), &Attr);
  pthread_attr_getdetachstate(&Attr, &p->DetachState);
  pthread_attr_destroy(&Attr);
  p->IsDone = true;
  return nullptr;
}

TEST(SysThread, RunsDetachedWithItsArgumentAndReturnsItsId) {
  SEEN            Seen;
  pthread_t       Id       = 0;
  const pthread_t Returned = SYS_THREAD_Start(StoreSelf, &Seen, &Id);
  ASSERT_TRUE(Soon([&] { return Seen.IsDone.load(); }));
  EXPECT_TRUE(Returned != 0);
  EXPECT_TRUE(pthread_equal(Returned, Id));
  EXPECT_TRUE(pthread_equal(Returned, Seen.Id));
  EXPECT_EQ(PTHREAD_CREATE_DETACHED, Seen.DetachState);
  EXPECT_FALSE(pthread_equal(Returned, SYS_THREAD_GetCurrentId()));
}

TEST(SysThread, IdIsStoredOnlyWhenAskedFor) {
  SEEN Seen;
  EXPECT_TRUE(SYS_THREAD_Start(StoreSelf, &Seen, nullptr) != 0);
  ASSERT_TRUE(Soon([&] { return Seen.IsDone.load(); }));
}

TEST(SysThread, StartCallRunsARoutineWithoutResult) {
  for (const bool IsIdWanted : {true, false}) {
    std::atomic<int> Number{0};
    pthread_t        Id       = 0;
    const pthread_t  Returned = SYS_THREAD_StartCall(
        [](void* pArg) { *(std::atomic<int>*)pArg = 7; }, &Number, IsIdWanted ? &Id : nullptr);
    EXPECT_TRUE(Returned != 0);
    EXPECT_TRUE(!IsIdWanted || pthread_equal(Returned, Id));
    EXPECT_TRUE(Soon([&] { return Number == 7; }));
  }
}

TEST(SysThread, ThreadsThatCannotBeStartedGiveId0) {
  void* (*const pfRoutine)(void*) = [](void*) -> void* { return nullptr; };
  void (*const pfCall)(void*)     = [](void*) {};
  for (const char* sCall : {"pthread_attr_init", "pthread_attr_setdetachstate", "pthread_create"}) {
    pthread_t Id     = SYS_THREAD_GetCurrentId();
    pthread_t CallId = Id;
    pthread_t Returned;
    pthread_t CallReturned;
    {
      const FAULT Fault(sCall, EAGAIN, 0, 2);
      Returned     = SYS_THREAD_Start(pfRoutine, nullptr, &Id);
      CallReturned = SYS_THREAD_StartCall(pfCall, nullptr, &CallId);
    }
    EXPECT_TRUE(Returned == 0 && Id == 0) << sCall;
    EXPECT_TRUE(CallReturned == 0 && CallId == 0) << sCall;
  }
  for (const bool IsIdWanted : {true, false}) {
    pthread_t Id = SYS_THREAD_GetCurrentId();
    pthread_t Returned;
    {
      const FAULT Fault("malloc", ENOMEM);
      Returned = SYS_THREAD_StartCall(pfCall, nullptr, IsIdWanted ? &Id : nullptr);
    }
    EXPECT_TRUE(Returned == 0);
    EXPECT_EQ(IsIdWanted, Id == 0);
  }
}

static SYS_EVENT* pNeverSet;

TEST(SysThread, CancellingEndsAWaitForAnEventAndLeavesTheEventUsable) {
  pNeverSet = SYS_EVENT_Create(0, 0);
  NumEnded  = 0;
  std::atomic<bool> IsRunning{false};
  const pthread_t   Id = SYS_THREAD_StartCall(
      [](void* pArg) {
        CountEnd();
        *(std::atomic<bool>*)pArg = true;
        SYS_EVENT_Wait(pNeverSet, SYS_WAIT_FOREVER);
      },
      &IsRunning, nullptr);
  ASSERT_TRUE(Soon([&] { return IsRunning.load(); }));
  usleep(20000);
  EXPECT_EQ(0, NumEnded);
  EXPECT_EQ(0, SYS_THREAD_Cancel(Id));
  EXPECT_TRUE(Soon([&] { return NumEnded == 1; }));
  EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(pNeverSet, 0));
  SYS_EVENT_Set(pNeverSet);
  EXPECT_EQ(0, SYS_EVENT_Wait(pNeverSet, 0));
  SYS_EVENT_Destroy(pNeverSet);
}

TEST(SysThread, CancellingReturnsTheSystemsError) {
  int32_t Result;
  {
    const FAULT Fault("pthread_cancel", ESRCH);
    Result = SYS_THREAD_Cancel(SYS_THREAD_GetCurrentId());
  }
  EXPECT_EQ(ESRCH, Result);
}

TEST(SysThread, ExitCodeIsAlwaysStillRunning) {
  uint32_t Code = 0;
  EXPECT_EQ(1, SYS_THREAD_GetExitCode(SYS_THREAD_GetCurrentId(), &Code));
  EXPECT_EQ(259u, Code);
}

TEST(SysThread, CurrentIdsAreTheSystems) {
  EXPECT_TRUE(pthread_equal(pthread_self(), SYS_THREAD_GetCurrentId()));
  EXPECT_EQ(getpid(), SYS_PROCESS_GetId());
}

// ---- All at once --------------------------------------------------------------------------------

// All slots are in use. Each counter is guarded by its mutex alone.
TEST(SysThreadStress, SixtyFourMutexesGuardTheirCountersAgainstEightThreads) {
  SYS_MUTEX* apMutexes[64];
  for (SYS_MUTEX*& pMutex : apMutexes) {
    pMutex = SYS_MUTEX_Create("stress");
    ASSERT_NE(nullptr, pMutex);
  }
  std::atomic<uint32_t>    NumLocked{0};
  std::vector<std::thread> Threads;
  for (uint32_t Seed = 1; Seed <= 8; Seed++) {
    Threads.emplace_back([&, Seed] {
      uint32_t Random = Seed * 2654435761u;
      for (int i = 0; i < 2000; i++) {
        Random                   = Random * 1664525 + 1013904223;
        SYS_MUTEX* const pMutex  = apMutexes[(Random >> 16) % 64];
        const uint32_t   Timeout = (Random >> 24) % 4 == 0 ? SYS_WAIT_FOREVER : (Random >> 26) % 3;
        const int32_t    Result  = SYS_MUTEX_Lock(pMutex, Timeout);
        if (Result == SYS_TIMEOUT && Timeout != SYS_WAIT_FOREVER) {
          continue;
        }
        ASSERT_EQ(0, Result);
        pMutex->Counter++;
        NumLocked++;
        if (i % 16 == 0) {
          usleep(100);  // so that other threads find it locked
        }
        ASSERT_EQ(0, SYS_MUTEX_Unlock(pMutex));
      }
    });
  }
  for (std::thread& Thread : Threads) {
    Thread.join();
  }
  uint32_t NumCounted = 0;
  for (SYS_MUTEX*& pMutex : apMutexes) {
    NumCounted += pMutex->Counter;
    SYS_MUTEX_Destroy(&pMutex);
  }
  EXPECT_EQ(NumLocked.load(), NumCounted);
  EXPECT_GT(NumCounted, 8000u);
}

// Time-outs race with signals. Each event is set again only when its last signal was consumed, so a
// signal that a wait loses as it times out leaves its thread waiting until the test gives up.
TEST(SysThreadStress, SixtyFourEventsLoseNoSignalToTimeOuts) {
  struct PAIR {
    SYS_EVENT*            pEvent;
    std::atomic<uint32_t> NumConsumed{0};
    std::atomic<uint32_t> NumTimeouts{0};
  };
  static const uint32_t NumSignals = 100;
  PAIR                  aPairs[64];
  for (PAIR& Pair : aPairs) {
    Pair.pEvent = SYS_EVENT_Create(0, 0);
    ASSERT_NE(SYS_EVENT_INVALID, Pair.pEvent);
  }
  std::atomic<bool>        IsGivenUp{false};
  std::vector<std::thread> Waiters;
  for (PAIR& Pair : aPairs) {
    Waiters.emplace_back([&] {
      while (Pair.NumConsumed < NumSignals && !IsGivenUp) {
        const int32_t Result = SYS_EVENT_Wait(Pair.pEvent, Pair.NumConsumed % 3);
        ASSERT_TRUE(Result == 0 || Result == SYS_TIMEOUT) << Result;
        (Result == 0 ? Pair.NumConsumed : Pair.NumTimeouts)++;
      }
    });
  }
  uint32_t aNumSet[64] = {};
  bool     IsDone      = false;
  for (const int64_t Start = GetMs(); !IsDone && GetMs() - Start < 60000;) {
    IsDone = true;
    for (int i = 0; i < 64; i++) {
      if (aNumSet[i] == aPairs[i].NumConsumed && aNumSet[i] < NumSignals) {
        aNumSet[i]++;
        SYS_EVENT_Set(aPairs[i].pEvent);
      }
      IsDone = IsDone && aPairs[i].NumConsumed == NumSignals;
    }
    usleep(200);
  }
  IsGivenUp = true;
  for (std::thread& Waiter : Waiters) {
    Waiter.join();
  }
  uint32_t NumTimeouts = 0;
  for (PAIR& Pair : aPairs) {
    EXPECT_EQ(NumSignals, Pair.NumConsumed);
    EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(Pair.pEvent, 0)) << "no signal too many";
    NumTimeouts += Pair.NumTimeouts;
    SYS_EVENT_Destroy(Pair.pEvent);
  }
  EXPECT_GT(NumTimeouts, 0u) << "there was no race";
}

// Both tables are full, and all threads share every object. Each wait that succeeds consumes one
// signal, so there are never more of them than signals.
TEST(SysThreadStress, AllMutexesAndAllEventsAreInUseTogether) {
  SYS_MUTEX* apMutexes[64];
  SYS_EVENT* apEvents[64];
  for (int i = 0; i < 64; i++) {
    apMutexes[i] = SYS_MUTEX_Create("all");
    apEvents[i]  = SYS_EVENT_Create(0, 0);
  }
  EXPECT_EQ(nullptr, SYS_MUTEX_Create("65th"));
  EXPECT_EQ(SYS_EVENT_INVALID, SYS_EVENT_Create(0, 0));

  std::atomic<uint32_t>    NumSet{0};
  std::atomic<uint32_t>    NumConsumed{0};
  std::vector<std::thread> Threads;
  for (uint32_t Seed = 1; Seed <= 8; Seed++) {
    Threads.emplace_back([&, Seed] {
      uint32_t Random = Seed * 2654435761u;
      for (int i = 0; i < 500; i++) {
        Random           = Random * 1664525 + 1013904223;
        const uint32_t k = (Random >> 16) % 64;
        ASSERT_EQ(0, SYS_MUTEX_Lock(apMutexes[k], SYS_WAIT_FOREVER));
        apMutexes[k]->Counter++;
        if ((Random >> 24) % 2 == 0) {
          NumSet++;
          SYS_EVENT_Set(apEvents[k]);
        }
        ASSERT_EQ(0, SYS_MUTEX_Unlock(apMutexes[k]));
        const int32_t Result = SYS_EVENT_Wait(apEvents[(Random >> 10) % 64], (Random >> 25) % 2);
        ASSERT_TRUE(Result == 0 || Result == SYS_TIMEOUT) << Result;
        NumConsumed += Result == 0;
      }
    });
  }
  for (std::thread& Thread : Threads) {
    Thread.join();
  }
  uint32_t NumCounted = 0;
  for (int i = 0; i < 64; i++) {
    NumConsumed += SYS_EVENT_Wait(apEvents[i], 0) == 0;
    NumCounted += apMutexes[i]->Counter;
    SYS_EVENT_Destroy(apEvents[i]);
    SYS_MUTEX_Destroy(&apMutexes[i]);
  }
  EXPECT_EQ(8u * 500u, NumCounted);
  EXPECT_LE(NumConsumed, NumSet);
  EXPECT_GT(NumConsumed, 64u);
}
