// SPDX-License-Identifier: MIT

#define HOST_SPAWN_IMPLEMENTATION
#include <errno.h>
#include <spawn.h>

extern "C" {

// The C library refuses flags that it does not know. So this one is written into the attributes
// afterwards; the library ignores the bit there.
int HOST_posix_spawnattr_setflags(posix_spawnattr_t* pAttr, short Flags) {
  const int Result = posix_spawnattr_setflags(pAttr, (short)(Flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT));
  if (Result == 0) {
    pAttr->__flags = Flags;
  }
  return Result;
}

int HOST_posix_spawn(pid_t* pPid, const char* sPath, const posix_spawn_file_actions_t* pActions,
                     const posix_spawnattr_t* pAttr, char* const* pasArgs, char* const* pasEnv) {
  if (pAttr == nullptr || (pAttr->__flags & POSIX_SPAWN_CLOEXEC_DEFAULT) == 0) {
    return posix_spawn(pPid, sPath, pActions, pAttr, pasArgs, pasEnv);
  }
  if (pActions != nullptr) {
    return ENOTSUP;
  }
  posix_spawnattr_t Attr = *pAttr;
  Attr.__flags           = (short)(Attr.__flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT);
  posix_spawn_file_actions_t CloseAll;
  int                        Result = posix_spawn_file_actions_init(&CloseAll);
  if (Result != 0) {
    return Result;
  }
  Result = posix_spawn_file_actions_addclosefrom_np(&CloseAll, 0);
  if (Result == 0) {
    Result = posix_spawn(pPid, sPath, &CloseAll, &Attr, pasArgs, pasEnv);
  }
  posix_spawn_file_actions_destroy(&CloseAll);
  return Result;
}
}
