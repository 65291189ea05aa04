// SPDX-License-Identifier: MIT

// Stand-in for what Darwin's <spawn.h> has beyond the system's own: POSIX_SPAWN_CLOEXEC_DEFAULT.
//
// The Darwin contract: the child gets only the descriptors that its file actions make; all others
// are closed in it, also 0, 1 and 2.
// Left out: file actions together with the flag (ENOTSUP here).

#include_next <spawn.h>

#ifndef HOST_SPAWN_H
#define HOST_SPAWN_H

#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

// The stand-in itself calls the real ones.
#ifndef HOST_SPAWN_IMPLEMENTATION

#ifdef __cplusplus
extern "C" {
#endif

int posix_spawnattr_setflags(posix_spawnattr_t* pAttr, short Flags) __THROW
    __asm__("HOST_posix_spawnattr_setflags");
int posix_spawn(pid_t* pPid, const char* sPath, const posix_spawn_file_actions_t* pActions,
                const posix_spawnattr_t* pAttr, char* const* pasArgs,
                char* const* pasEnv) __asm__("HOST_posix_spawn");

#ifdef __cplusplus
}
#endif

#endif

#endif
