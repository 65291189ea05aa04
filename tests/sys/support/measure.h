// SPDX-License-Identifier: MIT

// What tests of system services measure: time, and descriptors left open.

#ifndef TESTS_SYS_SUPPORT_MEASURE_H
#define TESTS_SYS_SUPPORT_MEASURE_H

#include <dirent.h>
#include <stdint.h>
#include <time.h>

inline int64_t GetMs() {
  struct timespec Now;
  clock_gettime(CLOCK_MONOTONIC, &Now);
  return Now.tv_sec * 1000 + Now.tv_nsec / 1000000;
}

// Returns the number of open descriptors plus a constant.
inline int CountDescriptors() {
  int  Count = 0;
  DIR* pDir  = opendir("/proc/self/fd");
  while (readdir(pDir) != nullptr) {
    Count++;
  }
  closedir(pDir);
  return Count;
}

#endif
