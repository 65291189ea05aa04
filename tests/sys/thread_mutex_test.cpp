// SPDX-License-Identifier: MIT

// Mutexes and locks.

#include <errno.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "tests/sys/support/faults.h"
#include "tests/sys/support/threads.h"

// The tests unlock a mutex that another thread holds: that must fail and change nothing.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "mutex:SYS_MUTEX_Unlock\nmutex:SYS_LOCK_Unlock";
}

// ---- Mutexes ------------------------------------------------------------------------------------

TEST(SysMutex, The65thIsRefusedAndAFreedSlotIsTheNextToBeUsed) {
  std::vector<SYS_MUTEX*> Mutexes;
  for (int i = 0; i < 64; i++) {
    Mutexes.push_back(SYS_MUTEX_Create("m"));
    ASSERT_NE(nullptr, Mutexes.back());
  }
  EXPECT_EQ(64u, std::set<SYS_MUTEX*>(Mutexes.begin(), Mutexes.end()).size());
  EXPECT_EQ(nullptr, SYS_MUTEX_Create("m"));

  SYS_MUTEX* const pHigh = Mutexes[40];
  SYS_MUTEX* const pLow  = Mutexes[7];
  SYS_MUTEX_Destroy(&Mutexes[40]);
  SYS_MUTEX_Destroy(&Mutexes[7]);
  EXPECT_EQ(nullptr, Mutexes[7]);
  Mutexes[7] = SYS_MUTEX_Create("m");
  EXPECT_EQ(pLow, Mutexes[7]);
  Mutexes[40] = SYS_MUTEX_Create("m");
  EXPECT_EQ(pHigh, Mutexes[40]);
  EXPECT_EQ(nullptr, SYS_MUTEX_Create("m"));
  for (SYS_MUTEX*& pMutex : Mutexes) {
    SYS_MUTEX_Destroy(&pMutex);
    EXPECT_EQ(nullptr, pMutex);
  }
}

TEST(SysMutex, NameIsCutAfter31CharactersAndMayBeMissing) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("0123456789012345678901234567890123456789");
  ASSERT_NE(nullptr, pMutex);
  EXPECT_STREQ("0123456789012345678901234567890", pMutex->acName);
  EXPECT_EQ(0u, pMutex->Counter);
  pMutex->Counter = 5;
  SYS_MUTEX_Destroy(&pMutex);
  pMutex = SYS_MUTEX_Create(nullptr);
  ASSERT_NE(nullptr, pMutex);
  EXPECT_STREQ("", pMutex->acName);
  EXPECT_EQ(0u, pMutex->Counter);
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, HeldByAnotherThreadTimesOutAfter50MsAndStaysTheOwners) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("held");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER));
  InThread([=] {
    const int64_t Start = GetMs();
    EXPECT_EQ(SYS_TIMEOUT, SYS_MUTEX_Lock(pMutex, 50));
    const int64_t Elapsed = GetMs() - Start;
    EXPECT_GE(Elapsed, 49);
    EXPECT_LT(Elapsed, 5000);
    EXPECT_EQ(SYS_TIMEOUT, SYS_MUTEX_Lock(pMutex, 0));
    EXPECT_EQ(1, SYS_MUTEX_Unlock(pMutex)) << "not the owner";
  });
  EXPECT_EQ(0, SYS_MUTEX_Lock(pMutex, 0)) << "recursive, at once";
  EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
  InThread(
      [=] { EXPECT_EQ(SYS_TIMEOUT, SYS_MUTEX_Lock(pMutex, 1)) << "locked twice, unlocked once"; });
  EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
  InThread([=] {
    EXPECT_EQ(0, SYS_MUTEX_Lock(pMutex, 0));
    EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
  });
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, IsHandedOverToAWaiterWithALimitAndToOneWithout) {
  for (const uint32_t Timeout : {20000u, SYS_WAIT_FOREVER}) {
    SYS_MUTEX* pMutex = SYS_MUTEX_Create("handed over");
    ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER));
    std::atomic<bool> IsLocked{false};
    std::thread       Waiter([&] {
      EXPECT_EQ(0, SYS_MUTEX_Lock(pMutex, Timeout));
      IsLocked = true;
      EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
    });
    usleep(20000);
    EXPECT_FALSE(IsLocked);
    EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
    Waiter.join();
    EXPECT_TRUE(IsLocked);
    SYS_MUTEX_Destroy(&pMutex);
  }
}

TEST(SysMutex, BadHandlesAreRefused) {
  EXPECT_EQ(-1, SYS_MUTEX_Lock(nullptr, 0));
  EXPECT_EQ(1, SYS_MUTEX_Unlock(nullptr));
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("stale");
  SYS_MUTEX* pStale = pMutex;
  SYS_MUTEX_Destroy(&pMutex);
  SYS_MUTEX_Destroy(&pMutex);
  EXPECT_EQ(nullptr, pMutex);
  EXPECT_EQ(-1, SYS_MUTEX_Lock(pStale, SYS_WAIT_FOREVER));
  EXPECT_EQ(1, SYS_MUTEX_Unlock(pStale));
  SYS_MUTEX* const pBefore = pStale;
  SYS_MUTEX_Destroy(&pStale);
  EXPECT_EQ(pBefore, pStale) << "a handle not in use is left as it is";
}

TEST(SysMutex, UnlockingWhatIsNotLockedIsAFailure) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("unlocked");
  EXPECT_EQ(1, SYS_MUTEX_Unlock(pMutex));
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, CreationThatFailsTakesNoSlotAndDestroysTheAttribute) {
  SYS_MUTEX* pFirst = SYS_MUTEX_Create("first free");
  SYS_MUTEX* pSlot  = pFirst;
  SYS_MUTEX_Destroy(&pFirst);
  const struct {
    const char* sCall;
    uint32_t    NumDestroyed;
  } Cases[] = {
      {"pthread_mutexattr_init", 0}, {"pthread_mutexattr_settype", 1}, {"pthread_mutex_init", 1}};
  for (const auto& Case : Cases) {
    SYS_MUTEX* pMutex;
    uint32_t   NumDestroyed;
    {
      const FAULT        Fault(Case.sCall, ENOMEM);
      const CALL_COUNTER Destroy("pthread_mutexattr_destroy");
      pMutex       = SYS_MUTEX_Create("none");
      NumDestroyed = Destroy.GetNumCalls();
    }
    EXPECT_EQ(nullptr, pMutex) << Case.sCall;
    EXPECT_EQ(Case.NumDestroyed, NumDestroyed) << Case.sCall;
    pMutex = SYS_MUTEX_Create("again");
    EXPECT_EQ(pSlot, pMutex);
    SYS_MUTEX_Destroy(&pMutex);
  }
}

TEST(SysMutex, ErrorsOfTheSystemAreNotTimeOuts) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("errors");
  int32_t    Result;
  {
    const FAULT Fault("pthread_mutex_lock", EINVAL);
    Result = SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER);
  }
  EXPECT_EQ(-1, Result);
  {
    const FAULT Fault("pthread_mutex_trylock", EINVAL);
    Result = SYS_MUTEX_Lock(pMutex, 1000);
  }
  EXPECT_EQ(-1, Result);
  SYS_MUTEX_Destroy(&pMutex);
}

// A timed lock neither queues nor spins: it tries once a millisecond, or sooner after a signal.
TEST(SysMutex, IsTriedEveryMillisecond) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("polled");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER));
  InThread([=] {
    int32_t  Result;
    uint32_t NumTries;
    uint32_t NumPauses;
    LastPause = {};
    {
      const CALL_COUNTER Tries("pthread_mutex_trylock");
      const FAULT        Pauses("nanosleep", EINTR);
      Result    = SYS_MUTEX_Lock(pMutex, 100);
      NumTries  = Tries.GetNumCalls();
      NumPauses = Pauses.GetNumCalls();
    }
    EXPECT_EQ(SYS_TIMEOUT, Result);
    EXPECT_GE(NumTries, 2u);
    EXPECT_EQ(NumTries, NumPauses);
    EXPECT_EQ(0, LastPause.tv_sec);
    EXPECT_EQ(1000000, LastPause.tv_nsec);
  });
  SYS_MUTEX_Unlock(pMutex);
  SYS_MUTEX_Destroy(&pMutex);
}

// Each pause moves the time by a millisecond. The pause that passes the limit is the last one.
TEST(SysMutex, TheLimitIsInMilliseconds) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("limit");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER));
  FakeTimeOfDay       = {1000, 0};
  IsTimeMovedByPauses = true;
  IsTimeOfDayFake     = true;
  for (const uint32_t Timeout : {0u, 1u, 50u, 999u, 1001u, 12345u}) {
    InThread([=] {
      int32_t  Result;
      uint32_t NumPauses;
      {
        const CALL_COUNTER Pauses("nanosleep");
        Result    = SYS_MUTEX_Lock(pMutex, Timeout);
        NumPauses = Pauses.GetNumCalls();
      }
      EXPECT_EQ(SYS_TIMEOUT, Result);
      EXPECT_EQ(Timeout + 1, NumPauses);
    });
  }
  IsTimeOfDayFake     = false;
  IsTimeMovedByPauses = false;
  SYS_MUTEX_Unlock(pMutex);
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, TheLimitIsOverOnlyWhenTheTimeIsPastIt) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("at the limit");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER));
  FakeTimeOfDay           = {1000, 999000};
  IsTimeOfDayFake         = true;
  std::atomic<int> Result = -7;
  std::thread      Waiter([&] {
    Result = SYS_MUTEX_Lock(pMutex, 0);
    SYS_MUTEX_Unlock(pMutex);
  });
  usleep(50000);
  EXPECT_EQ(-7, Result) << "it is not yet past";
  SYS_MUTEX_Unlock(pMutex);
  Waiter.join();
  IsTimeOfDayFake = false;
  EXPECT_EQ(0, Result);
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, AClockThatCannotBeReadEndsTheWait) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("no clock");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, SYS_WAIT_FOREVER));
  InThread([=] {
    int32_t AfterDeadline;
    int32_t InsideWait;
    {
      const FAULT Fault("gettimeofday", EFAULT, 0, 1);
      AfterDeadline = SYS_MUTEX_Lock(pMutex, 1000000000);
    }
    {
      const FAULT Fault("gettimeofday", EFAULT, 1, 1);
      InsideWait = SYS_MUTEX_Lock(pMutex, 1000000000);
    }
    EXPECT_EQ(SYS_TIMEOUT, AfterDeadline);
    EXPECT_EQ(SYS_TIMEOUT, InsideWait);
  });
  SYS_MUTEX_Unlock(pMutex);
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, DestroyingEndsTheMutexAndItsAttributeOnce) {
  SYS_MUTEX*  pMutex = SYS_MUTEX_Create("ends");
  SYS_MUTEX*  pStale = pMutex;
  const ENDED Ended  = CountEnded([&] {
    SYS_MUTEX_Destroy(&pMutex);
    SYS_MUTEX_Destroy(&pStale);
  });
  EXPECT_TRUE((Ended == ENDED{1, 1, 0}));
}

// ---- Locks --------------------------------------------------------------------------------------

static SYS_LOCK StaticLock;

TEST(SysLock, BehavesAsAMutexInTheCallersRecord) {
  ASSERT_EQ(0, SYS_LOCK_Create(&StaticLock));
  EXPECT_EQ(-1, SYS_LOCK_Create(&StaticLock)) << "created already";
  EXPECT_EQ(0, SYS_LOCK_Lock(&StaticLock, SYS_WAIT_FOREVER));
  EXPECT_EQ(0, SYS_LOCK_Lock(&StaticLock, 0)) << "recursive";
  InThread([] {
    EXPECT_EQ(SYS_TIMEOUT, SYS_LOCK_Lock(&StaticLock, 10));
    EXPECT_EQ(1, SYS_LOCK_Unlock(&StaticLock));
  });
  EXPECT_EQ(0, SYS_LOCK_Unlock(&StaticLock));
  EXPECT_EQ(0, SYS_LOCK_Unlock(&StaticLock));
  EXPECT_EQ(1, SYS_LOCK_Unlock(&StaticLock)) << "once too often";
  SYS_LOCK_Destroy(&StaticLock);
}

TEST(SysLock, ARecordNotCreatedIsRefusedAndMayBeCreatedAgain) {
  EXPECT_EQ(-1, SYS_LOCK_Lock(&StaticLock, SYS_WAIT_FOREVER));
  EXPECT_EQ(1, SYS_LOCK_Unlock(&StaticLock));
  SYS_LOCK_Destroy(&StaticLock);
  EXPECT_EQ(0, SYS_LOCK_Create(&StaticLock));
  SYS_LOCK_Destroy(&StaticLock);
  int32_t Result;
  {
    const FAULT Fault("pthread_mutex_init", ENOMEM);
    Result = SYS_LOCK_Create(&StaticLock);
  }
  EXPECT_EQ(-1, Result);
  EXPECT_EQ(-1, SYS_LOCK_Lock(&StaticLock, 0));
}

TEST(SysLock, NullIsRefused) {
  EXPECT_EQ(-1, SYS_LOCK_Create(nullptr));
  EXPECT_EQ(-1, SYS_LOCK_Lock(nullptr, SYS_WAIT_FOREVER));
  EXPECT_EQ(1, SYS_LOCK_Unlock(nullptr));
  SYS_LOCK_Destroy(nullptr);
}

TEST(SysLock, DestroyingEndsTheMutexOnce) {
  const ENDED Ended = CountEnded([] {
    SYS_LOCK_Create(&StaticLock);
    SYS_LOCK_Destroy(&StaticLock);
    SYS_LOCK_Destroy(&StaticLock);
  });
  EXPECT_TRUE((Ended == ENDED{1, 1, 0}));
}
