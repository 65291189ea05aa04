// SPDX-License-Identifier: MIT

// Threads. A pthread object of the program holds a signature and a pointer to this system's object.
// A statically initialised one gets its object at its first use. The signature also shows an object
// that was never initialised, or was destroyed: EINVAL, as on Darwin.
//
// A thread's id is the address of a record, into which the program's own code writes its cleanup
// handlers. Handlers are called when a wait for a condition is cancelled. A thread that is
// cancelled at another call while it has handlers ends the run.

#include <errno.h>
#include <pthread.h>
#include <stdint.h>

#include <mutex>
#include <set>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"

namespace {

constexpr uint64_t SIGNATURE_LIVE = 0x51D1E0B1EC7;

std::mutex CreationLock;

int Result(int HostErrno) {
  return HostErrno == 0 ? 0 : ToDarwinErrno(HostErrno);
}

// Several threads may use a statically initialised object for the first time at once.
template <class T, class Init>
T* Live(darwin::ThreadObject* pObject, Init Initialise) {
  const std::lock_guard<std::mutex> Guard(CreationLock);
  if (pObject->Signature != SIGNATURE_LIVE) {
    auto* pNew = new T;
    if (!Initialise(pObject->Signature, pNew)) {
      delete pNew;
      return nullptr;
    }
    pObject->pHost     = pNew;
    pObject->Signature = SIGNATURE_LIVE;
  }
  return static_cast<T*>(pObject->pHost);
}

template <class T>
T* Live(darwin::ThreadObject* pObject) {
  return Live<T>(pObject, [](uint64_t, T*) { return false; });
}

template <class T>
int Adopt(darwin::ThreadObject* pObject, T* pNew, int HostErrno) {
  if (HostErrno != 0) {
    delete pNew;
    return Result(HostErrno);
  }
  pObject->pHost     = pNew;
  pObject->Signature = SIGNATURE_LIVE;
  return 0;
}

template <class T>
int Destroy(darwin::ThreadObject* pObject, T* pHost, int (*pfDestroy)(T*)) {
  if (pHost == nullptr) {
    return EINVAL;
  }
  const int HostErrno = pfDestroy(pHost);
  if (HostErrno == 0) {
    delete pHost;
    pObject->Signature = 0;
  }
  return Result(HostErrno);
}

// -- Mutexes -------------------------------------------------------------------------------------

pthread_mutex_t* Mutex(darwin::ThreadObject* pObject) {
  return Live<pthread_mutex_t>(pObject, [](uint64_t Signature, pthread_mutex_t* pNew) {
    if (Signature != darwin::SIGNATURE_MUTEX && Signature != darwin::SIGNATURE_MUTEX_RECURSIVE) {
      return false;
    }
    pthread_mutexattr_t Attributes;
    pthread_mutexattr_init(&Attributes);
    pthread_mutexattr_settype(&Attributes, Signature == darwin::SIGNATURE_MUTEX
                                               ? PTHREAD_MUTEX_NORMAL
                                               : PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(pNew, &Attributes);
    pthread_mutexattr_destroy(&Attributes);
    return true;
  });
}

int MutexInit(darwin::ThreadObject* pMutex, darwin::ThreadObject* pAttributes) {
  pthread_mutexattr_t* pHost = nullptr;
  if (pAttributes != nullptr) {
    pHost = Live<pthread_mutexattr_t>(pAttributes);
    if (pHost == nullptr) {
      return EINVAL;
    }
  }
  auto* pNew = new pthread_mutex_t;
  return Adopt(pMutex, pNew, pthread_mutex_init(pNew, pHost));
}

int MutexDestroy(darwin::ThreadObject* pMutex) {
  return Destroy(pMutex, Mutex(pMutex), &pthread_mutex_destroy);
}

template <int (*pfCall)(pthread_mutex_t*)>
int OnMutex(darwin::ThreadObject* pMutex) {
  pthread_mutex_t* pHost = Mutex(pMutex);
  return pHost == nullptr ? EINVAL : Result(pfCall(pHost));
}

int MutexAttrInit(darwin::ThreadObject* pAttributes) {
  auto* pNew = new pthread_mutexattr_t;
  return Adopt(pAttributes, pNew, pthread_mutexattr_init(pNew));
}

int MutexAttrDestroy(darwin::ThreadObject* pAttributes) {
  return Destroy(pAttributes, Live<pthread_mutexattr_t>(pAttributes), &pthread_mutexattr_destroy);
}

int MutexAttrSetType(darwin::ThreadObject* pAttributes, int Type) {
  auto* pHost = Live<pthread_mutexattr_t>(pAttributes);
  if (pHost == nullptr) {
    return EINVAL;
  }
  switch (Type) {
    case darwin::MUTEX_TYPE_NORMAL:
      return Result(pthread_mutexattr_settype(pHost, PTHREAD_MUTEX_NORMAL));
    case darwin::MUTEX_TYPE_ERRORCHECK:
      return Result(pthread_mutexattr_settype(pHost, PTHREAD_MUTEX_ERRORCHECK));
    case darwin::MUTEX_TYPE_RECURSIVE:
      return Result(pthread_mutexattr_settype(pHost, PTHREAD_MUTEX_RECURSIVE));
    default:
      return EINVAL;
  }
}

// -- Identity ------------------------------------------------------------------------------------

struct Thread {
  darwin::Thread Record = {};  // first: this address is the id
  pthread_t      Host   = 0;
};

// All threads that have an id and have not ended. Never freed: threads may end while the process
// does.
std::mutex         RunningLock;
std::set<Thread*>& Running = *new std::set<Thread*>;

// The calling thread's record. A thread that was not started here gets one at its first call.
class Identity {
 public:
  Thread* Get() {
    if (pThread_ == nullptr) {
      Take(new Thread);
      pThread_->Host = pthread_self();
      const std::lock_guard<std::mutex> Guard(RunningLock);
      Running.insert(pThread_);
    }
    return pThread_;
  }

  void Take(Thread* pThread) { pThread_ = pThread; }

  ~Identity() {
    if (pThread_ == nullptr) {
      return;
    }
    if (pThread_->Record.pNewestHandler != nullptr) {
      Unknown("a thread that ended with a cleanup handler not called");
    }
    const std::lock_guard<std::mutex> Guard(RunningLock);
    Running.erase(pThread_);
    delete pThread_;
    pThread_ = nullptr;
  }

 private:
  Thread* pThread_ = nullptr;
};

thread_local Identity Self;

darwin::Thread* GetSelf() {
  return &Self.Get()->Record;
}

void CallCleanupHandlers() {
  darwin::Thread* pSelf = GetSelf();
  while (darwin::CleanupHandler* pHandler = pSelf->pNewestHandler) {
    pSelf->pNewestHandler = pHandler->pNext;
    pHandler->pfRoutine(pHandler->pArgument);
  }
}

// -- Conditions ----------------------------------------------------------------------------------

pthread_cond_t* Cond(darwin::ThreadObject* pObject) {
  return Live<pthread_cond_t>(pObject, [](uint64_t Signature, pthread_cond_t* pNew) {
    return Signature == darwin::SIGNATURE_COND && pthread_cond_init(pNew, nullptr) == 0;
  });
}

int CondInit(darwin::ThreadObject* pCond, const void* pAttributes) {
  if (pAttributes != nullptr) {
    Unknown("pthread_cond_init with attributes");
  }
  auto* pNew = new pthread_cond_t;
  return Adopt(pCond, pNew, pthread_cond_init(pNew, nullptr));
}

int CondDestroy(darwin::ThreadObject* pCond) {
  return Destroy(pCond, Cond(pCond), &pthread_cond_destroy);
}

template <int (*pfCall)(pthread_cond_t*)>
int OnCond(darwin::ThreadObject* pCond) {
  pthread_cond_t* pHost = Cond(pCond);
  return pHost == nullptr ? EINVAL : Result(pfCall(pHost));
}

// The host cancels a thread by unwinding its frames. It cannot unwind those of the macOS program
// and ends the thread when it comes to them. The program's cleanup handlers are in these frames,
// which still exist here, so the handlers are called here.
template <class Wait>
int CancellableWait(Wait DoWait) {
  try {
    return Result(DoWait());
  } catch (...) {  // only cancelling is thrown here
    CallCleanupHandlers();
    throw;
  }
}

int CondWait(darwin::ThreadObject* pCond, darwin::ThreadObject* pMutex) {
  pthread_cond_t*  pHostCond  = Cond(pCond);
  pthread_mutex_t* pHostMutex = Mutex(pMutex);
  if (pHostCond == nullptr || pHostMutex == nullptr) {
    return EINVAL;
  }
  return CancellableWait([=] { return pthread_cond_wait(pHostCond, pHostMutex); });
}

int CondTimedWait(darwin::ThreadObject* pCond, darwin::ThreadObject* pMutex,
                  const struct timespec* pDeadline) {
  pthread_cond_t*  pHostCond  = Cond(pCond);
  pthread_mutex_t* pHostMutex = Mutex(pMutex);
  if (pHostCond == nullptr || pHostMutex == nullptr) {
    return EINVAL;
  }
  return CancellableWait([=] { return pthread_cond_timedwait(pHostCond, pHostMutex, pDeadline); });
}

// -- Threads -------------------------------------------------------------------------------------

int AttrInit(darwin::ThreadObject* pAttributes) {
  auto* pNew = new pthread_attr_t;
  return Adopt(pAttributes, pNew, pthread_attr_init(pNew));
}

int AttrDestroy(darwin::ThreadObject* pAttributes) {
  return Destroy(pAttributes, Live<pthread_attr_t>(pAttributes), &pthread_attr_destroy);
}

int AttrSetDetachState(darwin::ThreadObject* pAttributes, int State) {
  auto* pHost = Live<pthread_attr_t>(pAttributes);
  if (pHost == nullptr || (State != darwin::THREAD_DETACHED && State != darwin::THREAD_JOINABLE)) {
    return EINVAL;
  }
  return Result(pthread_attr_setdetachstate(
      pHost, State == darwin::THREAD_DETACHED ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE));
}

struct Start {
  Thread* pThread;
  void* (*pfRoutine)(void*);
  void* pArgument;
};

void* RunThread(void* pArgument) {
  const Start First = *static_cast<Start*>(pArgument);
  delete static_cast<Start*>(pArgument);
  Self.Take(First.pThread);
  return First.pfRoutine(First.pArgument);
}

int Create(darwin::Thread** ppThread, darwin::ThreadObject* pAttributes, void* (*pfRoutine)(void*),
           void* pArgument) {
  pthread_attr_t* pHost = nullptr;
  int             State = PTHREAD_CREATE_JOINABLE;
  if (pAttributes != nullptr) {
    pHost = Live<pthread_attr_t>(pAttributes);
    if (pHost == nullptr) {
      return EINVAL;
    }
    pthread_attr_getdetachstate(pHost, &State);
  }
  Trace("pthread_create(%s)", State == PTHREAD_CREATE_DETACHED ? "detached" : "joinable");
  auto* pNew   = new Thread;
  auto* pFirst = new Start{pNew, pfRoutine, pArgument};
  *ppThread    = &pNew->Record;
  // Locked until the host's id is known: the new thread may be cancelled or end at any time.
  const std::lock_guard<std::mutex> Guard(RunningLock);
  const int HostErrno = pthread_create(&pNew->Host, pHost, &RunThread, pFirst);
  if (HostErrno != 0) {
    delete pFirst;
    delete pNew;
    return Result(HostErrno);
  }
  Running.insert(pNew);
  return 0;
}

int Cancel(darwin::Thread* pRecord) {
  const std::lock_guard<std::mutex> Guard(RunningLock);
  auto*                             pThread = reinterpret_cast<Thread*>(pRecord);
  return Running.count(pThread) == 0 ? ESRCH : Result(pthread_cancel(pThread->Host));
}

const Shim Table[] = {
    Bound("_pthread_mutex_init", &MutexInit),
    Bound("_pthread_mutex_destroy", &MutexDestroy),
    Bound("_pthread_mutex_lock", &OnMutex<&pthread_mutex_lock>),
    Bound("_pthread_mutex_trylock", &OnMutex<&pthread_mutex_trylock>),
    Bound("_pthread_mutex_unlock", &OnMutex<&pthread_mutex_unlock>),
    Bound("_pthread_mutexattr_init", &MutexAttrInit),
    Bound("_pthread_mutexattr_destroy", &MutexAttrDestroy),
    Bound("_pthread_mutexattr_settype", &MutexAttrSetType),
    Bound("_pthread_cond_init", &CondInit),
    Bound("_pthread_cond_destroy", &CondDestroy),
    Bound("_pthread_cond_signal", &OnCond<&pthread_cond_signal>),
    Bound("_pthread_cond_wait", &CondWait),
    Bound("_pthread_cond_timedwait", &CondTimedWait),
    Bound("_pthread_attr_init", &AttrInit),
    Bound("_pthread_attr_destroy", &AttrDestroy),
    Bound("_pthread_attr_setdetachstate", &AttrSetDetachState),
    Bound("_pthread_create", &Create),
    Bound("_pthread_cancel", &Cancel),
    Bound("_pthread_self", &GetSelf),
};

}  // namespace

std::span<const Shim> ThreadShims() {
  return Table;
}
