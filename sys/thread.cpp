// SPDX-License-Identifier: MIT

// Darwin has neither timed locks of mutexes nor unnamed semaphores. So a lock with a time-out
// polls, and an event is a mutex, a condition and a flag.

#include "sys/thread.h"

#include <errno.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "sys/memory.h"
#include "util/string.h"

static const uint32_t STILL_RUNNING = 259;
static const long     POLL_NS       = 1000000;  // between two tries of a timed lock

namespace {

// What SYS_THREAD_StartCall passes to the new thread. The new thread frees it.
struct CALL {
  void (*pfRoutine)(void*);
  void* pArg;
};

}  // namespace

// Fixed tables: creating a mutex or an event must not allocate.
static SYS_MUTEX aMutexes[SYS_MUTEX_SLOTS];
static SYS_EVENT aEvents[SYS_EVENT_SLOTS];

// Returns the time of day Timeout milliseconds from now. The time of day, because Darwin's
// pthread_cond_timedwait() knows no other clock. If it cannot be read, the result is a time long
// past, so that a wait ends at once rather than never.
static struct timeval GetDeadline(uint32_t Timeout) {
  struct timeval Time = {};
  gettimeofday(&Time, NULL);
  Time.tv_sec += Timeout / 1000;
  Time.tv_usec += (suseconds_t)(Timeout % 1000 * 1000);
  if (Time.tv_usec >= 1000000) {
    Time.tv_usec -= 1000000;
    Time.tv_sec++;
  }
  return Time;
}

// Returns 1 once the time is past the deadline, and also when the clock cannot be read.
static int IsPast(const struct timeval* pDeadline) {
  struct timeval Now;
  return gettimeofday(&Now, NULL) != 0 || timercmp(&Now, pDeadline, >);
}

// Makes a recursive mutex. Returns 0, or -1 with nothing allocated. The caller destroys both.
static int32_t InitRecursive(pthread_mutex_t* pMutex, pthread_mutexattr_t* pAttr) {
  if (pthread_mutexattr_init(pAttr) != 0) {
    return -1;
  }
  if (pthread_mutexattr_settype(pAttr, PTHREAD_MUTEX_RECURSIVE) != 0 ||
      pthread_mutex_init(pMutex, pAttr) != 0) {
    pthread_mutexattr_destroy(pAttr);
    return -1;
  }
  return 0;
}

// A timed lock polls because Darwin has no pthread_mutex_timedlock(). The clock is read only now
// that the mutex was found locked.
int32_t SYS_MUTEX_Poll(pthread_mutex_t* pMutex, uint32_t Timeout, int Error) {
  const struct timeval  Deadline = GetDeadline(Timeout);
  const struct timespec Pause    = {0, POLL_NS};
  // Only EBUSY means that another thread holds the mutex, and only a try ends with it. Any other
  // error will not go away.
  while (Error == EBUSY) {
    nanosleep(&Pause, NULL);
    if (IsPast(&Deadline)) {
      return SYS_TIMEOUT;
    }
    Error = pthread_mutex_trylock(pMutex);
  }
  return Error == 0 ? 0 : -1;
}

static int IsMutex(const SYS_MUTEX* pMutex) {
  return pMutex != NULL && pMutex->InUse != 0;
}

// The lowest free slot is used first: part of the contract. The slot is marked as used last, so
// that a failed initialisation leaves it free.
SYS_MUTEX* SYS_MUTEX_Create(const char* sName) {
  for (uint32_t i = 0; i < SYS_MUTEX_SLOTS; i++) {
    SYS_MUTEX* pMutex = &aMutexes[i];
    if (pMutex->InUse != 0) {
      continue;
    }
    if (InitRecursive(&pMutex->Mutex, &pMutex->Attr) != 0) {
      return NULL;
    }
    UTIL_CopyString(pMutex->acName, sName != NULL ? sName : "", sizeof(pMutex->acName));
    pMutex->Counter = 0;
    pMutex->InUse   = 1;
    return pMutex;
  }
  return NULL;
}

void SYS_MUTEX_Destroy(SYS_MUTEX** ppMutex) {
  SYS_MUTEX* pMutex = *ppMutex;
  if (IsMutex(pMutex)) {
    pMutex->InUse = 0;  // first: a call that comes too late finds a bad handle
    pthread_mutex_destroy(&pMutex->Mutex);
    pthread_mutexattr_destroy(&pMutex->Attr);
    *ppMutex = NULL;
  }
}

static int IsLock(const SYS_LOCK* pLock) {
  return pLock != NULL && pLock->IsCreated != 0;
}

int32_t SYS_LOCK_Create(SYS_LOCK* pLock) {
  pthread_mutexattr_t Attr;
  if (pLock == NULL || IsLock(pLock) || InitRecursive(&pLock->Mutex, &Attr) != 0) {
    return -1;
  }
  pthread_mutexattr_destroy(&Attr);  // the mutex keeps its own copy
  pLock->IsCreated = 1;
  return 0;
}

void SYS_LOCK_Destroy(SYS_LOCK* pLock) {
  if (IsLock(pLock)) {
    pLock->IsCreated = 0;
    pthread_mutex_destroy(&pLock->Mutex);
  }
}

// A failed create returns -1, so -1 is refused like NULL.
static int IsEvent(const SYS_EVENT* pEvent) {
  return pEvent != NULL && pEvent != SYS_EVENT_INVALID && pEvent->InUse != 0;
}

// As with mutexes, the lowest free slot is used, and it is marked as used last.
SYS_EVENT* SYS_EVENT_Create(uint32_t Reserved, uint32_t InitialState) {
  if (Reserved != 0) {
    return SYS_EVENT_INVALID;
  }
  for (uint32_t i = 0; i < SYS_EVENT_SLOTS; i++) {
    SYS_EVENT* pEvent = &aEvents[i];
    if (pEvent->InUse != 0) {
      continue;
    }
    if (pthread_mutex_init(&pEvent->Mutex, NULL) != 0) {
      return SYS_EVENT_INVALID;
    }
    if (pthread_cond_init(&pEvent->Cond, NULL) != 0) {
      pthread_mutex_destroy(&pEvent->Mutex);
      return SYS_EVENT_INVALID;
    }
    pEvent->Signalled = InitialState;
    pEvent->InUse     = 1;
    return pEvent;
  }
  return SYS_EVENT_INVALID;
}

void SYS_EVENT_Set(SYS_EVENT* pEvent) {
  if (!IsEvent(pEvent) || pthread_mutex_lock(&pEvent->Mutex) != 0) {
    return;
  }
  pEvent->Signalled = 1;
  pthread_mutex_unlock(&pEvent->Mutex);
  // After the unlock, so that the woken thread does not have to wait for the mutex.
  pthread_cond_signal(&pEvent->Cond);
}

// Waits until the event is signalled. The caller holds the event's mutex. Returns 0, or the error
// number that ended the wait.
static int WaitSignalled(SYS_EVENT* pEvent, uint32_t Timeout) {
  int Result = 0;
  while (Result == 0 && pEvent->Signalled == 0) {
    if (Timeout == SYS_WAIT_FOREVER) {
      Result = pthread_cond_wait(&pEvent->Cond, &pEvent->Mutex);
    } else {
      // Taken again at each pass: a wake-up without a signal lengthens the wait, and callers rely
      // on a wait never being shorter than its time-out.
      const struct timeval  Deadline = GetDeadline(Timeout);
      const struct timespec Until    = {Deadline.tv_sec, Deadline.tv_usec * 1000};  // in ns
      Result = pthread_cond_timedwait(&pEvent->Cond, &pEvent->Mutex, &Until);
    }
  }
  return Result;
}

// Runs when a thread is cancelled during its wait. The system has locked the mutex again by then;
// without the unlock the event could not be used any more.
static void UnlockCancelled(void* pMutex) {
  pthread_mutex_unlock((pthread_mutex_t*)pMutex);
}

int32_t SYS_EVENT_Wait(SYS_EVENT* pEvent, uint32_t Timeout) {
  if (!IsEvent(pEvent) || pthread_mutex_lock(&pEvent->Mutex) != 0) {
    return -1;
  }
  // The two macros may open and close a block, so Result is declared before them.
  int Result;
  pthread_cleanup_push(UnlockCancelled, &pEvent->Mutex);
  Result = WaitSignalled(pEvent, Timeout);
  pthread_cleanup_pop(0);
  if (Result == 0) {
    pEvent->Signalled = 0;
  } else if (pEvent->Signalled != 0) {
    // The wait timed out while the event was being set. POSIX allows it to have consumed the
    // wake-up, so another waiter is woken instead.
    pthread_cond_signal(&pEvent->Cond);
  }
  const int UnlockResult = pthread_mutex_unlock(&pEvent->Mutex);
  if (Result == ETIMEDOUT) {
    return SYS_TIMEOUT;
  }
  return Result == 0 && UnlockResult == 0 ? 0 : -1;
}

void SYS_EVENT_Destroy(SYS_EVENT* pEvent) {
  if (IsEvent(pEvent)) {
    pthread_mutex_destroy(&pEvent->Mutex);
    pthread_cond_destroy(&pEvent->Cond);
    pEvent->InUse     = 0;
    pEvent->Signalled = 0;
  }
}

pthread_t SYS_THREAD_Start(void* (*pfRoutine)(void*), void* pArg, pthread_t* pId) {
  pthread_t      Id = 0;  // no thread
  pthread_attr_t Attr;
  if (pthread_attr_init(&Attr) == 0) {
    pthread_t NewId;
    if (pthread_attr_setdetachstate(&Attr, PTHREAD_CREATE_DETACHED) == 0 &&
        pthread_create(&NewId, &Attr, pfRoutine, pArg) == 0) {
      Id = NewId;
    }
    pthread_attr_destroy(&Attr);
  }
  if (pId != NULL) {
    *pId = Id;
  }
  return Id;
}

// Frees the record before it calls the routine, because the routine may not return: its thread may
// exit or be cancelled.
static void* RunCall(void* pArg) {
  const CALL Call = *(const CALL*)pArg;
  SYS_MEM_Free(pArg);
  Call.pfRoutine(Call.pArg);
  return NULL;
}

pthread_t SYS_THREAD_StartCall(void (*pfRoutine)(void*), void* pArg, pthread_t* pId) {
  if (pId != NULL) {
    *pId = 0;
  }
  CALL* pCall = (CALL*)SYS_MEM_Alloc(sizeof(CALL));
  if (pCall == NULL) {
    return 0;
  }
  pCall->pfRoutine   = pfRoutine;
  pCall->pArg        = pArg;
  const pthread_t Id = SYS_THREAD_Start(RunCall, pCall, pId);
  if (Id == 0) {  // no thread that would free it
    SYS_MEM_Free(pCall);
  }
  return Id;
}

int32_t SYS_THREAD_Cancel(pthread_t Id) {
  return pthread_cancel(Id);
}

// Threads are detached, so their results are gone. Callers expect "still running".
int32_t SYS_THREAD_GetExitCode(pthread_t, uint32_t* pCode) {
  *pCode = STILL_RUNNING;
  return 1;  // here 1 is success
}

pthread_t SYS_THREAD_GetCurrentId(void) {
  return pthread_self();
}

int32_t SYS_PROCESS_GetId(void) {
  return getpid();
}
