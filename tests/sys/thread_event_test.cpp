// SPDX-License-Identifier: MIT

// Events.

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

TEST(SysEvent, The65thIsRefusedAndAFreedSlotIsTheNextToBeUsed) {
  std::vector<SYS_EVENT*> Events;
  for (int i = 0; i < 64; i++) {
    Events.push_back(SYS_EVENT_Create(0, 0));
    ASSERT_NE(SYS_EVENT_INVALID, Events.back());
  }
  EXPECT_EQ(64u, std::set<SYS_EVENT*>(Events.begin(), Events.end()).size());
  EXPECT_EQ(SYS_EVENT_INVALID, SYS_EVENT_Create(0, 0));
  SYS_EVENT_Destroy(Events[50]);
  SYS_EVENT_Destroy(Events[3]);
  EXPECT_EQ(Events[3], SYS_EVENT_Create(0, 0));
  EXPECT_EQ(Events[50], SYS_EVENT_Create(0, 0));
  EXPECT_EQ(SYS_EVENT_INVALID, SYS_EVENT_Create(0, 0));
  for (SYS_EVENT* pEvent : Events) {
    SYS_EVENT_Destroy(pEvent);
  }
}

TEST(SysEvent, CreatedSignalledLetsOneWaitThrough) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER));
  EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(pEvent, 0));
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, SetTwiceBeforeAWaitLetsOneWaitThrough) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  SYS_EVENT_Set(pEvent);
  SYS_EVENT_Set(pEvent);
  EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, 1000));
  EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(pEvent, 10));
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, ReservedArgumentOtherThanZeroIsRefused) {
  EXPECT_EQ(SYS_EVENT_INVALID, SYS_EVENT_Create(1, 0));
  EXPECT_EQ(SYS_EVENT_INVALID, SYS_EVENT_Create(0x80000000, 1));
}

TEST(SysEvent, AWaitTimesOutNotBeforeItsTime) {
  SYS_EVENT*    pEvent = SYS_EVENT_Create(0, 0);
  const int64_t Start  = GetMs();
  EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(pEvent, 1050));  // sometimes carries into the seconds
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
    EXPECT_EQ(SYS_TIMEOUT, Result);
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
  for (const uint32_t Timeout : {20000u, SYS_WAIT_FOREVER}) {
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
    EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(pEvent, 0)) << "the waiter consumed the signal";
    SYS_EVENT_Destroy(pEvent);
  }
}

TEST(SysEvent, OneSetWakesOneOfTwoWaiters) {
  SYS_EVENT*       pEvent = SYS_EVENT_Create(0, 0);
  std::atomic<int> NumWoken{0};
  auto             Wait = [&] {
    EXPECT_EQ(0, SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER));
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

// POSIX allows a wait that times out to consume the wake-up, which no other waiter then gets.
TEST(SysEvent, AWaitThatRunsOutWithTheWakeUpLeavesItToTheNextWaiter) {
  SYS_EVENT*           pEvent = SYS_EVENT_Create(0, 0);
  std::atomic<int32_t> Late{-7};
  std::atomic<int32_t> Other{-7};
  std::thread          LateWaiter([&] {
    const FAULT RunsOut("pthread_cond_timedwait, woken", ETIMEDOUT);
    Late = SYS_EVENT_Wait(pEvent, 60000);
  });
  usleep(50000);  // the first waiter is woken first
  std::thread OtherWaiter([&] { Other = SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER); });
  usleep(50000);
  SYS_EVENT_Set(pEvent);
  EXPECT_TRUE(Soon([&] { return Late == SYS_TIMEOUT || Other == 0; }));
  if (Late != SYS_TIMEOUT) {
    SYS_EVENT_Set(pEvent);  // on a busy machine the other one was first
  }
  EXPECT_TRUE(Soon([&] { return Late == SYS_TIMEOUT && Other == 0; }));
  SYS_EVENT_Set(pEvent);  // so that the test ends even after a failure
  LateWaiter.join();
  OtherWaiter.join();
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, BadHandlesAreRefused) {
  SYS_EVENT* pStale = SYS_EVENT_Create(0, 1);
  SYS_EVENT_Destroy(pStale);
  for (SYS_EVENT* pEvent : {(SYS_EVENT*)nullptr, SYS_EVENT_INVALID, pStale}) {
    EXPECT_EQ(-1, SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER));
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
    EXPECT_EQ(SYS_EVENT_INVALID, pEvent) << Case.sCall;
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
    SYS_EVENT_Set(SYS_EVENT_INVALID);
    NumRefused = Signal.GetNumCalls();
  }
  EXPECT_EQ(1u, NumSet);
  EXPECT_EQ(0u, NumRefused);
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, ErrorsOfTheSystemAreNotTimeOuts) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  const struct {
    const char* sCall;
    uint32_t    Timeout;
  } Cases[] = {{"pthread_mutex_lock", SYS_WAIT_FOREVER},
               {"pthread_cond_wait", SYS_WAIT_FOREVER},
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
  EXPECT_EQ(SYS_TIMEOUT, SYS_EVENT_Wait(pEvent, 0))
      << "the mutex is free and the event is not signalled";
  SYS_EVENT_Destroy(pEvent);
}

TEST(SysEvent, AFailedUnlockIsReported) {
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

TEST(SysEvent, EachWakeUpForNothingStartsTheLimitAgain) {
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
  EXPECT_EQ(SYS_TIMEOUT, Result);
  EXPECT_EQ(4u, NumWaits);
  EXPECT_EQ(4u, NumClockReadings);
  {
    const FAULT Spurious("pthread_cond_wait", 0, 0, 3);
    // The event can be set only once the fourth wait has given the event's mutex back.
    std::thread Setter([&] {
      EXPECT_TRUE(Soon([&] { return Spurious.GetNumCalls() == 4; }));
      SYS_EVENT_Set(pEvent);
    });
    Result   = SYS_EVENT_Wait(pEvent, SYS_WAIT_FOREVER);
    NumWaits = Spurious.GetNumCalls();
    Setter.join();
  }
  EXPECT_EQ(0, Result);
  EXPECT_EQ(4u, NumWaits);
  SYS_EVENT_Destroy(pEvent);
}
