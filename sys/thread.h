// sys/thread.h
// SPDX-License-Identifier: MIT
//
// Threads: mutexes, locks and events with time-outs, and detached threads, on POSIX threads.
//
// Time-outs are in milliseconds; SYS_WAIT_FOREVER waits without limit. A wait whose time is over
// returns SYS_TIMEOUT. Time-outs use the time of day: setting the clock moves the end of a wait.
//
// Mutexes and events are in two fixed tables of 64 slots each, so creating one allocates nothing.
// The lowest free slot is used first. The tables have no lock: create and destroy from one thread
// at a time, or under a lock of your own. Once created, an object can be used from any thread.
// Destroy it only when no thread is waiting for it, holding it or just setting it.
//
// A handle is the address of a slot. A destroyed handle is recognised as bad only until its slot is
// used again.

#ifndef SYS_THREAD_H
#define SYS_THREAD_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

enum {
  SYS_MUTEX_SLOTS     = 64,
  SYS_MUTEX_NAME_SIZE = 32,  // terminator included
  SYS_EVENT_SLOTS     = 64
};

static constexpr uint32_t SYS_WAIT_FOREVER = 0xFFFFFFFF;
static constexpr int32_t  SYS_TIMEOUT      = 258;

// ---- Mutexes ------------------------------------------------------------------------------------
//
// Recursive: the owner may lock a mutex again, and must unlock it as often as it locked it.

struct SYS_MUTEX {
  uint32_t            InUse;
  char                acName[SYS_MUTEX_NAME_SIZE];  // for a debugger; not used otherwise
  uint32_t            Counter;                      // 0 at creation; for the caller to use
  pthread_mutex_t     Mutex;
  pthread_mutexattr_t Attr;
};

// Parts of SYS_MUTEX_Lock and SYS_LOCK_Lock; call those instead.
// SYS_MUTEX_Poll goes on after a first try that ended with Error.
int32_t        SYS_MUTEX_Poll(pthread_mutex_t* pMutex, uint32_t Timeout, int Error);
inline int32_t SYS_MUTEX_LockPosix(pthread_mutex_t* pMutex, uint32_t Timeout) {
  const int Error =
      Timeout == SYS_WAIT_FOREVER ? pthread_mutex_lock(pMutex) : pthread_mutex_trylock(pMutex);
  return Error == 0 ? 0 : SYS_MUTEX_Poll(pMutex, Timeout, Error);
}

// Creates a mutex.
// sName may be NULL; of a longer name the first 31 characters are kept. Returns the handle; NULL
// when all slots are in use or the system cannot create another mutex.
SYS_MUTEX* SYS_MUTEX_Create(const char* sName);

// Destroys the mutex, frees its slot and sets *ppMutex to NULL.
// Does nothing, and leaves *ppMutex unchanged, for a handle that is NULL or not in use. ppMutex
// must not be NULL.
void SYS_MUTEX_Destroy(SYS_MUTEX** ppMutex);

// Locks the mutex.
// Returns 0 when it is locked, SYS_TIMEOUT, or -1 for an error and for a handle that is NULL or not
// in use.
// A lock with a time-out polls: it tries once, then every millisecond, so a thread that waits
// without limit gets the mutex first. A Timeout of 0 gives up after the first pause.
inline int32_t SYS_MUTEX_Lock(SYS_MUTEX* pMutex, uint32_t Timeout) {
  return pMutex != NULL && pMutex->InUse != 0 ? SYS_MUTEX_LockPosix(&pMutex->Mutex, Timeout) : -1;
}

// Unlocks the mutex.
// Returns 0; 1 when the caller does not own the mutex, or the handle is NULL or not in use.
inline int32_t SYS_MUTEX_Unlock(SYS_MUTEX* pMutex) {
  return pMutex != NULL && pMutex->InUse != 0 && pthread_mutex_unlock(&pMutex->Mutex) == 0 ? 0 : 1;
}

// ---- Locks --------------------------------------------------------------------------------------
//
// The same mutex in a record of the caller's, in any number and in any place. Zero the record
// before its first use (static storage is zero), and do not move or copy it while it is created.
// NULL is treated as a record that is not created, and cannot be created either.

struct SYS_LOCK {
  uint32_t        IsCreated;
  pthread_mutex_t Mutex;
};

// Creates the lock.
// Returns 0, or -1 for NULL, for a record that is created already, and when the system cannot
// create another mutex.
int32_t SYS_LOCK_Create(SYS_LOCK* pLock);

// Destroys the lock; it may be created again.
// Does nothing for a record that is not created.
void SYS_LOCK_Destroy(SYS_LOCK* pLock);

// Lock and unlock as SYS_MUTEX_Lock and SYS_MUTEX_Unlock do.
// A record that is not created is treated as a handle that is not in use.
inline int32_t SYS_LOCK_Lock(SYS_LOCK* pLock, uint32_t Timeout) {
  return pLock != NULL && pLock->IsCreated != 0 ? SYS_MUTEX_LockPosix(&pLock->Mutex, Timeout) : -1;
}
inline int32_t SYS_LOCK_Unlock(SYS_LOCK* pLock) {
  return pLock != NULL && pLock->IsCreated != 0 && pthread_mutex_unlock(&pLock->Mutex) == 0 ? 0 : 1;
}

// ---- Events -------------------------------------------------------------------------------------
//
// An event is signalled or not. A wait that succeeds clears the signal (auto-reset): one
// SYS_EVENT_Set lets one wait through, and setting an event twice before a wait is the same as
// setting it once.
//
// A bad handle is one that is NULL, SYS_EVENT_INVALID, or not in use.

struct SYS_EVENT {
  uint32_t        InUse;
  uint32_t        Signalled;
  pthread_mutex_t Mutex;  // guards Signalled
  pthread_cond_t  Cond;
};

// What SYS_EVENT_Create returns when it fails.
#define SYS_EVENT_INVALID ((SYS_EVENT*)(intptr_t)-1)

// Creates an event.
// Reserved must be 0. The event is signalled unless InitialState is 0. Returns the handle;
// SYS_EVENT_INVALID (not NULL) when all slots are in use, when Reserved is not 0, and when the
// system cannot create another mutex or condition.
SYS_EVENT* SYS_EVENT_Create(uint32_t Reserved, uint32_t InitialState);

// Signals the event and wakes one waiter.
// It stays signalled until a wait clears it. Does nothing for a bad handle.
void SYS_EVENT_Set(SYS_EVENT* pEvent);

// Waits until the event is signalled, and clears the signal.
// Returns 0, SYS_TIMEOUT, or -1 for an error and for a bad handle. The time-out starts again
// whenever the system wakes the wait without a signal, so a wait may last longer than Timeout, but
// never shorter.
int32_t SYS_EVENT_Wait(SYS_EVENT* pEvent, uint32_t Timeout);

// Destroys the event and frees its slot.
// Does nothing for a bad handle.
void SYS_EVENT_Destroy(SYS_EVENT* pEvent);

// ---- Threads ------------------------------------------------------------------------------------
//
// All threads are started detached: no thread can wait for the end of another, and an id means
// nothing once its thread has ended. A started thread has the system's default stack, which is 512
// KiB on macOS.

// Starts a thread that runs pfRoutine(pArg).
// What the routine returns is ignored. The id is returned, and also stored at *pId unless pId is
// NULL. It is 0 when the thread cannot be started. The new thread may run before *pId is stored, so
// it should call SYS_THREAD_GetCurrentId instead of reading it.
pthread_t SYS_THREAD_Start(void* (*pfRoutine)(void*), void* pArg, pthread_t* pId);

// Starts a thread, as SYS_THREAD_Start does, for a routine that returns nothing.
// The id is 0 also when there is no memory for handing the routine over.
pthread_t SYS_THREAD_StartCall(void (*pfRoutine)(void*), void* pArg, pthread_t* pId);

// Asks a running thread to end at its next cancellation point.
// Returns the result of pthread_cancel(): 0, or an error number.
// Of the functions of this library only SYS_EVENT_Wait supports being cancelled: it unlocks what it
// locked, and the event keeps its state. A thread cancelled in any other function that waits or
// opens something loses what it has until the process ends: the socket of SYS_TCP_ConnectTimeout or
// of an accept, the descriptor of SYS_SERIAL_Open, SYS_GetRandom or a file. Mutexes and locks that
// the thread holds stay locked, and memory that it owns stays allocated. It is better to ask a
// thread to end by an event that it waits for.
int32_t SYS_THREAD_Cancel(pthread_t Id);

// Stores 259 ("still running") at *pCode and returns 1, always.
// A detached thread leaves no exit code. pCode must not be NULL.
int32_t SYS_THREAD_GetExitCode(pthread_t Id, uint32_t* pCode);

// Returns the id of the calling thread.
pthread_t SYS_THREAD_GetCurrentId(void);

// Returns the id of this process.
int32_t SYS_PROCESS_GetId(void);

#endif
