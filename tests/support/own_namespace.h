// SPDX-License-Identifier: MIT

// Gives a process its own network or its own mounts.

#ifndef TESTS_SUPPORT_OWN_NAMESPACE_H
#define TESTS_SUPPORT_OWN_NAMESPACE_H

#include <sched.h>
#include <stdio.h>
#include <unistd.h>

// Kinds: CLONE_NEWNET, CLONE_NEWNS. The process is root in the new namespace. False if the system
// does not allow it.
inline bool EnterOwnNamespace(int Kinds) {
  const uid_t Uid = getuid();
  const gid_t Gid = getgid();
  if (unshare(Kinds) == 0) {
    return true;
  }
  if (unshare(CLONE_NEWUSER | Kinds) != 0) {
    return false;
  }
  // Map this user to root.
  char acUidMap[32];
  char acGidMap[32];
  snprintf(acUidMap, sizeof(acUidMap), "0 %u 1", Uid);
  snprintf(acGidMap, sizeof(acGidMap), "0 %u 1", Gid);
  const struct {
    const char* sPath;
    const char* sText;
  } Files[] = {{"/proc/self/setgroups", "deny"},
               {"/proc/self/uid_map", acUidMap},
               {"/proc/self/gid_map", acGidMap}};
  for (const auto& File : Files) {
    FILE* pFile = fopen(File.sPath, "w");
    if (pFile == nullptr || fputs(File.sText, pFile) < 0 || fclose(pFile) != 0) {
      return false;
    }
  }
  return true;
}

#endif
