// sys/thread.h
//
// Mutexes, events and threads on POSIX threads.
//
// Time-outs are in milliseconds; SYS_WAIT_FOREVER waits without limit. A wait that runs out returns
// SYS_TIMEOUT. The clock is that of the day: setting it moves the end of a wait.
//
// Mutexes and events live in two fixed tables of 64 slots each, the lowest free slot first, so that
// creating one allocates nothing. The tables have no lock: create and destroy from one thread at a
// time, or under a lock of the caller's; what is created is then used from any thread. Nobody may
// be waiting for, holding or just setting what is destroyed.
//
// A handle is the address of a slot. A destroyed handle is told from a good one only until its slot
// is used again.

#ifndef SYS_THREAD_H
#define SYS_THREAD_H

#include <pthread.h>
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
// Recursive: the owner may lock again, and unlocks as often as it locked.

struct SYS_MUTEX {
  uint32_t        InUse;
  char            acName[SYS_MUTEX_NAME_SIZE];  // for a debugger; nothing looks a mutex up by it
  uint32_t        Counter;                      // 0 at creation; the caller's to use
  pthread_mutex_t Mutex;
  pthread_mutexattr_t Attr;
};

// sName may be NULL; of a longer one the first 31 characters are kept.
// Returns the handle; NULL while all slots are in use or when the system has no mutex left.
SYS_MUTEX* SYS_MUTEX_Create(const char* sName);

// Frees the slot and sets *ppMutex to NULL. Does nothing, and leaves *ppMutex, for a handle that is
// NULL or not in use. ppMutex must not be NULL.
void SYS_MUTEX_Destroy(SYS_MUTEX** ppMutex);

// Returns 0 when locked, SYS_TIMEOUT, or -1 for an error and for a handle that is NULL or not in
// use.
// With a limit the lock is tried once, then every millisecond, and not queued for: who waits
// without limit goes first. A limit of 0 gives up after the first pause.
int32_t SYS_MUTEX_Lock(SYS_MUTEX* pMutex, uint32_t Timeout);

// Returns 0; 1 when the caller does not own the mutex or the handle is NULL or not in use.
int32_t SYS_MUTEX_Unlock(SYS_MUTEX* pMutex);

// ---- Locks --------------------------------------------------------------------------------------
//
// The same mutex in a record of the caller's: any number of them, wherever the record lives. The
// record must be zeroed before its first use (static storage is) and must not be moved or copied
// while it is created. NULL is as a record that is not created, which cannot be created either.

struct SYS_LOCK {
  uint32_t        IsCreated;
  pthread_mutex_t Mutex;
};

// Returns 0, or -1 for NULL, when the record is created already, and when the system has no mutex
// left.
int32_t SYS_LOCK_Create(SYS_LOCK* pLock);

// Nothing for a record that is not created. It may be created again.
void SYS_LOCK_Destroy(SYS_LOCK* pLock);

// As SYS_MUTEX_Lock and SYS_MUTEX_Unlock; a record that is not created is as a handle not in use.
int32_t SYS_LOCK_Lock(SYS_LOCK* pLock, uint32_t Timeout);
int32_t SYS_LOCK_Unlock(SYS_LOCK* pLock);

// ---- Events -------------------------------------------------------------------------------------
//
// An event is signalled or not. A wait consumes the signal (auto-reset): one SYS_EVENT_Set lets one
// wait through, and setting an event twice before a wait is as setting it once.

struct SYS_EVENT {
  uint32_t        InUse;
  uint32_t        Signalled;
  pthread_mutex_t Mutex;  // guards Signalled
  pthread_cond_t  Cond;
};

// The handle that is none: what a failed SYS_EVENT_Create returns.
#define SYS_EVENT_INVALID ((SYS_EVENT*)(intptr_t)-1)

// Reserved must be 0. InitialState: 0 not signalled, else signalled.
// Returns the handle; SYS_EVENT_INVALID (not NULL) while all slots are in use, for a Reserved other
// than 0, and when the system has no mutex or condition left.
SYS_EVENT* SYS_EVENT_Create(uint32_t Reserved, uint32_t InitialState);

// The three below take a handle that is NULL, SYS_EVENT_INVALID or not in use for a bad one.

// Signals the event and wakes one waiter. It stays signalled until a wait consumes it. Nothing for
// a bad handle.
void SYS_EVENT_Set(SYS_EVENT* pEvent);

// Returns 0 when the event was signalled (and no longer is), SYS_TIMEOUT, or -1 for an error and
// for a bad handle.
// The limit starts again whenever the wait is woken for nothing, so a wait may take longer than the
// limit, never shorter.
int32_t SYS_EVENT_Wait(SYS_EVENT* pEvent, uint32_t Timeout);

// Frees the slot. Nothing for a bad handle.
void SYS_EVENT_Destroy(SYS_EVENT* pEvent);

// ---- Threads ------------------------------------------------------------------------------------
//
// All threads are started detached: nobody waits for one, and its id means nothing once it ended.

// Starts a thread that runs pfRoutine(pArg); what that returns is dropped. The id is stored at
// *pId, unless pId is NULL, and returned: 0 when there is no thread to be had. The new thread may
// be running before *pId is stored; it asks SYS_THREAD_GetCurrentId instead.
pthread_t SYS_THREAD_Start(void* (*pfRoutine)(void*), void* pArg, pthread_t* pId);

// The same for a routine without result, which need not be written to the POSIX form. Returns 0
// also when there is no memory to hand the routine over.
pthread_t SYS_THREAD_StartCall(void (*pfRoutine)(void*), void* pArg, pthread_t* pId);

// Asks a running thread to end at its next cancellation point. Returns the result of
// pthread_cancel(): 0, or an error number.
// Of the calls of this library only SYS_EVENT_Wait is made to be cancelled: it gives back what it
// has, and the event stays as it was. Any other that waits or opens something may end half done,
// and what it had is lost until the process ends: the socket of SYS_TCP_ConnectTimeout or an
// accept, the descriptor of SYS_SERIAL_Open, SYS_GetRandom or a file. Mutexes and locks that the
// thread holds stay locked, and memory that it owns stays allocated. Better ask a thread to end by
// an event that it waits for.
int32_t SYS_THREAD_Cancel(pthread_t Id);

// Stores 259 ("still running") and returns 1, always: a detached thread leaves no exit code. pCode
// must not be NULL.
int32_t SYS_THREAD_GetExitCode(pthread_t Id, uint32_t* pCode);

// The id of the calling thread, and of the process.
pthread_t SYS_THREAD_GetCurrentId(void);
int32_t   SYS_PROCESS_GetId(void);

#endif
