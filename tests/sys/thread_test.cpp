#include "sys/thread.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "tests/sys/faults.h"

// Unlocking what another thread holds is tried on purpose: it must fail, and harm nothing.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "mutex:UnlockMutex";
}

static const uint32_t FOREVER = 0xFFFFFFFF;

// The clock the time-outs run on, so that a wait seen too short really is.
static int64_t GetMs() {
  struct timespec Now;
  clock_gettime(CLOCK_REALTIME, &Now);
  return Now.tv_sec * 1000 + Now.tv_nsec / 1000000;
}

// Runs pfBody in a thread of its own and waits for its end.
template <typename BODY>
static void InThread(BODY Body) {
  std::thread Thread(Body);
  Thread.join();
}

// Polls for what another thread is about to do. False after ten seconds.
template <typename CONDITION>
static bool Soon(CONDITION IsTrue) {
  for (int i = 0; i < 10000; i++) {
    if (IsTrue()) {
      return true;
    }
    usleep(1000);
  }
  return false;
}

// What Body ends of the system's objects.
struct ENDED {
  uint32_t NumMutexes;
  uint32_t NumAttributes;
  uint32_t NumConditions;
  bool     operator==(const ENDED&) const = default;
};
template <typename BODY>
static ENDED CountEnded(BODY Body) {
  const CALL_COUNTER Mutexes("pthread_mutex_destroy");
  const CALL_COUNTER Attributes("pthread_mutexattr_destroy");
  const CALL_COUNTER Conditions("pthread_cond_destroy");
  Body();
  return {Mutexes.GetNumCalls(), Attributes.GetNumCalls(), Conditions.GetNumCalls()};
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
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, FOREVER));
  InThread([=] {
    const int64_t Start = GetMs();
    EXPECT_EQ(258, SYS_MUTEX_Lock(pMutex, 50));
    const int64_t Elapsed = GetMs() - Start;
    EXPECT_GE(Elapsed, 49);
    EXPECT_LT(Elapsed, 5000);
    EXPECT_EQ(258, SYS_MUTEX_Lock(pMutex, 0));
    EXPECT_EQ(1, SYS_MUTEX_Unlock(pMutex)) << "not the owner";
  });
  EXPECT_EQ(0, SYS_MUTEX_Lock(pMutex, 0)) << "recursive, at once";
  EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
  InThread([=] { EXPECT_EQ(258, SYS_MUTEX_Lock(pMutex, 1)) << "locked twice, unlocked once"; });
  EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
  InThread([=] {
    EXPECT_EQ(0, SYS_MUTEX_Lock(pMutex, 0));
    EXPECT_EQ(0, SYS_MUTEX_Unlock(pMutex));
  });
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, IsHandedOverToAWaiterWithALimitAndToOneWithout) {
  for (const uint32_t Timeout : {20000u, FOREVER}) {
    SYS_MUTEX* pMutex = SYS_MUTEX_Create("handed over");
    ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, FOREVER));
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
  EXPECT_EQ(-1, SYS_MUTEX_Lock(pStale, FOREVER));
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

TEST(SysMutex, ErrorsOfTheSystemAreNoTimeOuts) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("errors");
  int32_t    Result;
  {
    const FAULT Fault("pthread_mutex_lock", EINVAL);
    Result = SYS_MUTEX_Lock(pMutex, FOREVER);
  }
  EXPECT_EQ(-1, Result);
  {
    const FAULT Fault("pthread_mutex_trylock", EINVAL);
    Result = SYS_MUTEX_Lock(pMutex, 1000);
  }
  EXPECT_EQ(-1, Result);
  SYS_MUTEX_Destroy(&pMutex);
}

// Neither queued for nor spun for: each try is a millisecond after the last, a signal apart.
TEST(SysMutex, IsTriedEveryMillisecond) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("polled");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, FOREVER));
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
    EXPECT_EQ(258, Result);
    EXPECT_GE(NumTries, 2u);
    EXPECT_EQ(NumTries, NumPauses);
    EXPECT_EQ(0, LastPause.tv_sec);
    EXPECT_EQ(1000000, LastPause.tv_nsec);
  });
  SYS_MUTEX_Unlock(pMutex);
  SYS_MUTEX_Destroy(&pMutex);
}

TEST(SysMutex, TheLimitIsOverOnlyWhenTheTimeIsPastIt) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("at the limit");
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, FOREVER));
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
  ASSERT_EQ(0, SYS_MUTEX_Lock(pMutex, FOREVER));
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
    EXPECT_EQ(258, AfterDeadline);
    EXPECT_EQ(258, InsideWait);
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
  EXPECT_EQ(0, SYS_LOCK_Lock(&StaticLock, FOREVER));
  EXPECT_EQ(0, SYS_LOCK_Lock(&StaticLock, 0)) << "recursive";
  InThread([] {
    EXPECT_EQ(258, SYS_LOCK_Lock(&StaticLock, 10));
    EXPECT_EQ(1, SYS_LOCK_Unlock(&StaticLock));
  });
  EXPECT_EQ(0, SYS_LOCK_Unlock(&StaticLock));
  EXPECT_EQ(0, SYS_LOCK_Unlock(&StaticLock));
  EXPECT_EQ(1, SYS_LOCK_Unlock(&StaticLock)) << "once too often";
  SYS_LOCK_Destroy(&StaticLock);
}

TEST(SysLock, ARecordNotCreatedIsRefusedAndMayBeCreatedAgain) {
  EXPECT_EQ(-1, SYS_LOCK_Lock(&StaticLock, FOREVER));
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
  EXPECT_EQ(-1, SYS_LOCK_Lock(nullptr, FOREVER));
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

// ---- Events -------------------------------------------------------------------------------------

static SYS_EVENT* NoEvent() {
  return (SYS_EVENT*)(intptr_t)-1;
}

TEST(SysEvent, The65thIsRefusedAndAFreedSlotIsTheNextToBeUsed) {
  std::vector<SYS_EVENT*> Events;
  for (int i = 0; i < 64; i++) {
    Events.push_back(SYS_EVENT_Create(0, 0));
    ASSERT_NE(NoEvent(), Events.back());
  }
  EXPECT_EQ(64u, std::set<SYS_EVENT*>(Events.begin(), Events.end()).size());
  EXPECT_EQ(NoEvent(), SYS_EVENT_Create(0, 0));
  SYS_EVENT_Destroy(Events[50]);
  SYS_EVENT_Destroy(Events[3]);
  EXPECT_EQ(Events[3], SYS_EVENT_Create(0, 0));
  EXPECT_EQ(Events[50], SYS_EVENT_Create(0, 0));
  EXPECT_EQ(NoEvent(), SYS_EVENT_Create(0, 0));
  for (SYS_EVENT* pEvent : Events) {
    SYS_EVENT_Destroy(pEvent);
  }
}

TEST(SysEvent, CreatedSignalledLetsOneWaitThrough) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, FOREVER));
  EXPECT_EQ(258, SYS_EVENT_Wait(pEvent, 0));
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, SetTwiceBeforeAWaitLetsOneWaitThrough) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  SYS_EVENT_Set(pEvent);
  SYS_EVENT_Set(pEvent);
  EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, 1000));
  EXPECT_EQ(258, SYS_EVENT_Wait(pEvent, 10));
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, ReservedArgumentOtherThanZeroIsRefused) {
  EXPECT_EQ(NoEvent(), SYS_EVENT_Create(1, 0));
  EXPECT_EQ(NoEvent(), SYS_EVENT_Create(0x80000000, 1));
}

TEST(SysEvent, AWaitTimesOutNotBeforeItsTime) {
  SYS_EVENT*    pEvent = SYS_EVENT_Create(0, 0);
  const int64_t Start  = GetMs();
  EXPECT_EQ(258, SYS_EVENT_Wait(pEvent, 1050));  // carries from the microseconds now and then
  const int64_t Elapsed = GetMs() - Start;
  EXPECT_GE(Elapsed, 1049);
  EXPECT_LT(Elapsed, 10000);
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, LongLimitsAreWholeToTheMillisecond) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  for (const uint32_t Timeout : {999u, 4000999u, 0xFFFFFFFEu}) {
    const int64_t Before = GetMs();
    int32_t       Result;
    {
      const FAULT Fault("pthread_cond_timedwait", ETIMEDOUT);
      Result = SYS_EVENT_Wait(pEvent, Timeout);
    }
    const int64_t After = GetMs();
    const int64_t End   = RefusedWaitEnd.tv_sec * 1000 + RefusedWaitEnd.tv_nsec / 1000000;
    EXPECT_EQ(258, Result);
    EXPECT_GE(End, Before + Timeout);
    EXPECT_LE(End, After + Timeout);
    EXPECT_LT(RefusedWaitEnd.tv_nsec, 1000000000);
  }
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, TheEndOfAWaitCarriesIntoTheSeconds) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  const struct {
    suseconds_t     Microseconds;
    uint32_t        Timeout;
    struct timespec End;
  } Cases[] = {{0, 0, {1000, 0}},
               {999, 999, {1000, 999999000}},
               {1000, 999, {1001, 0}},
               {1001, 999, {1001, 1000}},
               {999999, 1999, {1002, 998999000}}};
  for (const auto& Case : Cases) {
    FakeTimeOfDay   = {1000, Case.Microseconds};
    IsTimeOfDayFake = true;
    {
      const FAULT Fault("pthread_cond_timedwait", ETIMEDOUT);
      SYS_EVENT_Wait(pEvent, Case.Timeout);
    }
    IsTimeOfDayFake = false;
    EXPECT_EQ(Case.End.tv_sec, RefusedWaitEnd.tv_sec) << Case.Microseconds;
    EXPECT_EQ(Case.End.tv_nsec, RefusedWaitEnd.tv_nsec) << Case.Microseconds;
  }
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, SettingWakesAWaiterWithALimitAndOneWithout) {
  for (const uint32_t Timeout : {20000u, FOREVER}) {
    SYS_EVENT*        pEvent = SYS_EVENT_Create(0, 0);
    std::atomic<bool> IsWoken{false};
    std::thread       Waiter([&] {
      EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, Timeout));
      IsWoken = true;
    });
    usleep(20000);
    EXPECT_FALSE(IsWoken);
    SYS_EVENT_Set(pEvent);
    Waiter.join();
    EXPECT_EQ(258, SYS_EVENT_Wait(pEvent, 0)) << "the waiter consumed the signal";
    SYS_EVENT_Destroy(pEvent);
  }
}

TEST(SysEvent, OneSetWakesOneOfTwoWaiters) {
  SYS_EVENT*       pEvent = SYS_EVENT_Create(0, 0);
  std::atomic<int> NumWoken{0};
  auto             Wait = [&] {
    EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, FOREVER));
    NumWoken++;
  };
  std::thread First(Wait);
  std::thread Second(Wait);
  usleep(20000);
  SYS_EVENT_Set(pEvent);
  EXPECT_TRUE(Soon([&] { return NumWoken == 1; }));
  usleep(50000);
  EXPECT_EQ(1, NumWoken);
  SYS_EVENT_Set(pEvent);
  First.join();
  Second.join();
  EXPECT_EQ(2, NumWoken);
  SYS_EVENT_Destroy(pEvent);
}

// POSIX lets a wait that runs out take a wake-up with it, which is then nobody else's.
TEST(SysEvent, AWaitThatRunsOutWithTheWakeUpLeavesItToTheNextWaiter) {
  SYS_EVENT*           pEvent = SYS_EVENT_Create(0, 0);
  std::atomic<int32_t> Late{-7};
  std::atomic<int32_t> Other{-7};
  std::thread          LateWaiter([&] {
    const FAULT RunsOut("pthread_cond_timedwait, woken", ETIMEDOUT);
    Late = SYS_EVENT_Wait(pEvent, 60000);
  });
  usleep(50000);  // who waits first is woken first
  std::thread OtherWaiter([&] { Other = SYS_EVENT_Wait(pEvent, FOREVER); });
  usleep(50000);
  SYS_EVENT_Set(pEvent);
  EXPECT_TRUE(Soon([&] { return Late == 258 || Other == 0; }));
  if (Late != 258) {
    SYS_EVENT_Set(pEvent);  // a busy machine: the other one was first
  }
  EXPECT_TRUE(Soon([&] { return Late == 258 && Other == 0; }));
  SYS_EVENT_Set(pEvent);  // so that the test ends in any case
  LateWaiter.join();
  OtherWaiter.join();
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, BadHandlesAreRefused) {
  SYS_EVENT* pStale = SYS_EVENT_Create(0, 1);
  SYS_EVENT_Destroy(pStale);
  for (SYS_EVENT* pEvent : {(SYS_EVENT*)nullptr, NoEvent(), pStale}) {
    EXPECT_EQ(-1, SYS_EVENT_Wait(pEvent, FOREVER));
    SYS_EVENT_Set(pEvent);
    SYS_EVENT_Destroy(pEvent);
  }
  EXPECT_EQ(0u, pStale->Signalled);
}

TEST(SysEvent, CreationThatFailsTakesNoSlotAndDestroysTheMutex) {
  SYS_EVENT* pSlot = SYS_EVENT_Create(0, 0);
  SYS_EVENT_Destroy(pSlot);
  const struct {
    const char* sCall;
    uint32_t    NumDestroyed;
  } Cases[] = {{"pthread_mutex_init", 0}, {"pthread_cond_init", 1}};
  for (const auto& Case : Cases) {
    SYS_EVENT* pEvent;
    uint32_t   NumDestroyed;
    {
      const FAULT        Fault(Case.sCall, ENOMEM);
      const CALL_COUNTER Mutexes("pthread_mutex_destroy");
      pEvent       = SYS_EVENT_Create(0, 0);
      NumDestroyed = Mutexes.GetNumCalls();
    }
    EXPECT_EQ(NoEvent(), pEvent) << Case.sCall;
    EXPECT_EQ(Case.NumDestroyed, NumDestroyed) << Case.sCall;
    pEvent = SYS_EVENT_Create(0, 0);
    EXPECT_EQ(pSlot, pEvent);
    SYS_EVENT_Destroy(pEvent);
  }
}

TEST(SysEvent, DestroyingEndsTheMutexAndTheConditionOnce) {
  SYS_EVENT*  pEvent = SYS_EVENT_Create(0, 0);
  const ENDED Ended  = CountEnded([=] {
    SYS_EVENT_Destroy(pEvent);
    SYS_EVENT_Destroy(pEvent);
  });
  EXPECT_TRUE((Ended == ENDED{1, 0, 1}));
}

TEST(SysEvent, SettingWakesOneWaiterByOneCall) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  uint32_t   NumSet;
  uint32_t   NumRefused;
  {
    const CALL_COUNTER Signal("pthread_cond_signal");
    SYS_EVENT_Set(pEvent);
    NumSet = Signal.GetNumCalls();
  }
  {
    const CALL_COUNTER Signal("pthread_cond_signal");
    const FAULT        Lock("pthread_mutex_lock", EINVAL);
    SYS_EVENT_Set(pEvent);
    SYS_EVENT_Set(NoEvent());
    NumRefused = Signal.GetNumCalls();
  }
  EXPECT_EQ(1u, NumSet);
  EXPECT_EQ(0u, NumRefused);
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, ErrorsOfTheSystemAreNoTimeOuts) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  const struct {
    const char* sCall;
    uint32_t    Timeout;
  } Cases[] = {{"pthread_mutex_lock", FOREVER},
               {"pthread_cond_wait", FOREVER},
               {"pthread_cond_timedwait", 1000}};
  for (const auto& Case : Cases) {
    int32_t Result;
    {
      const FAULT Fault(Case.sCall, EINVAL);
      Result = SYS_EVENT_Wait(pEvent, Case.Timeout);
    }
    EXPECT_EQ(-1, Result) << Case.sCall;
  }
  {
    const FAULT Fault("pthread_mutex_lock", EINVAL);
    SYS_EVENT_Set(pEvent);
  }
  EXPECT_EQ(258, SYS_EVENT_Wait(pEvent, 0)) << "the mutex is free and the event is not signalled";
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, AFailedUnlockIsTold) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  int32_t    Result;
  {
    const FAULT Fault("pthread_mutex_unlock", EPERM);
    Result = SYS_EVENT_Wait(pEvent, 0);
  }
  EXPECT_EQ(-1, Result);
  EXPECT_EQ(0, pthread_mutex_unlock(&pEvent->Mutex));
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, EachWakeUpForNothingStartsTheLimitAfresh) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  int32_t    Result;
  uint32_t   NumWaits;
  uint32_t   NumClockReadings;
  {
    const FAULT        Spurious("pthread_cond_timedwait", 0, 0, 3);
    const CALL_COUNTER Clock("gettimeofday");
    Result           = SYS_EVENT_Wait(pEvent, 10);
    NumWaits         = Spurious.GetNumCalls();
    NumClockReadings = Clock.GetNumCalls();
  }
  EXPECT_EQ(258, Result);
  EXPECT_EQ(4u, NumWaits);
  EXPECT_EQ(4u, NumClockReadings);
  {
    const FAULT Spurious("pthread_cond_wait", 0, 0, 3);
    std::thread Setter([=] {
      usleep(20000);
      SYS_EVENT_Set(pEvent);
    });
    Result   = SYS_EVENT_Wait(pEvent, FOREVER);
    NumWaits = Spurious.GetNumCalls();
    Setter.join();
  }
  EXPECT_EQ(0, Result);
  EXPECT_EQ(4u, NumWaits);
  SYS_EVENT_Destroy(pEvent);
}

// ---- Threads ------------------------------------------------------------------------------------

static std::atomic<int> NumEnded;

// Counts an end by whatever way: the destructor of a value that belongs to the thread.
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

TEST(SysThread, RunsDetachedWithItsArgumentAndTellsItsId) {
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

TEST(SysThread, ThreadsThatCannotBeHadGiveId0) {
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
        SYS_EVENT_Wait(pNeverSet, FOREVER);
      },
      &IsRunning, nullptr);
  ASSERT_TRUE(Soon([&] { return IsRunning.load(); }));
  usleep(20000);
  EXPECT_EQ(0, NumEnded);
  EXPECT_EQ(0, SYS_THREAD_Cancel(Id));
  EXPECT_TRUE(Soon([&] { return NumEnded == 1; }));
  EXPECT_EQ(258, SYS_EVENT_Wait(pNeverSet, 0));
  SYS_EVENT_Set(pNeverSet);
  EXPECT_EQ(0, SYS_EVENT_Wait(pNeverSet, 0));
  SYS_EVENT_Destroy(pNeverSet);
}

TEST(SysThread, CancellingTellsTheSystemsError) {
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

// Every slot in use, and what each mutex guards is counted without anything else to guard it.
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
        const uint32_t   Timeout = (Random >> 24) % 4 == 0 ? FOREVER : (Random >> 26) % 3;
        const int32_t    Result  = SYS_MUTEX_Lock(pMutex, Timeout);
        if (Result == 258 && Timeout != FOREVER) {
          continue;
        }
        ASSERT_EQ(0, Result);
        pMutex->Counter++;
        NumLocked++;
        if (i % 16 == 0) {
          usleep(100);  // so that others meet a lock that is held
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

// Time-outs race with signals: each event is set again only when its last signal was consumed, so
// a signal that a wait loses on its way out leaves its thread waiting until the test gives up.
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
    ASSERT_NE(NoEvent(), Pair.pEvent);
  }
  std::atomic<bool>        IsGivenUp{false};
  std::vector<std::thread> Waiters;
  for (PAIR& Pair : aPairs) {
    Waiters.emplace_back([&] {
      while (Pair.NumConsumed < NumSignals && !IsGivenUp) {
        const int32_t Result = SYS_EVENT_Wait(Pair.pEvent, Pair.NumConsumed % 3);
        ASSERT_TRUE(Result == 0 || Result == 258) << Result;
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
    EXPECT_EQ(258, SYS_EVENT_Wait(Pair.pEvent, 0)) << "no signal too many";
    NumTimeouts += Pair.NumTimeouts;
    SYS_EVENT_Destroy(Pair.pEvent);
  }
  EXPECT_GT(NumTimeouts, 0u) << "there was no race";
}

// Both tables full, every object shared by all threads. Each wait that is let through consumes one
// signal, so there are never more of them than signals were set.
TEST(SysThreadStress, AllMutexesAndAllEventsAreInUseTogether) {
  SYS_MUTEX* apMutexes[64];
  SYS_EVENT* apEvents[64];
  for (int i = 0; i < 64; i++) {
    apMutexes[i] = SYS_MUTEX_Create("all");
    apEvents[i]  = SYS_EVENT_Create(0, 0);
  }
  EXPECT_EQ(nullptr, SYS_MUTEX_Create("65th"));
  EXPECT_EQ(NoEvent(), SYS_EVENT_Create(0, 0));

  std::atomic<uint32_t>    NumSet{0};
  std::atomic<uint32_t>    NumConsumed{0};
  std::vector<std::thread> Threads;
  for (uint32_t Seed = 1; Seed <= 8; Seed++) {
    Threads.emplace_back([&, Seed] {
      uint32_t Random = Seed * 2654435761u;
      for (int i = 0; i < 500; i++) {
        Random           = Random * 1664525 + 1013904223;
        const uint32_t k = (Random >> 16) % 64;
        ASSERT_EQ(0, SYS_MUTEX_Lock(apMutexes[k], FOREVER));
        apMutexes[k]->Counter++;
        if ((Random >> 24) % 2 == 0) {
          NumSet++;
          SYS_EVENT_Set(apEvents[k]);
        }
        ASSERT_EQ(0, SYS_MUTEX_Unlock(apMutexes[k]));
        const int32_t Result = SYS_EVENT_Wait(apEvents[(Random >> 10) % 64], (Random >> 25) % 2);
        ASSERT_TRUE(Result == 0 || Result == 258) << Result;
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
