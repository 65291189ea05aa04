// SPDX-License-Identifier: MIT

#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/sysctl.h>
#include <unistd.h>

int sysctlbyname(const char* sName, void* pValue, size_t* pSize, void* pNewValue, size_t) {
  if (pNewValue != nullptr) {
    errno = EPERM;
    return -1;
  }
  if (strcmp(sName, "hw.logicalcpu") != 0) {
    errno = ENOENT;
    return -1;
  }
  const int32_t Count = (int32_t)sysconf(_SC_NPROCESSORS_ONLN);
  if (*pSize < sizeof(Count)) {
    errno = ENOMEM;
    return -1;
  }
  memcpy(pValue, &Count, sizeof(Count));
  *pSize = sizeof(Count);
  return 0;
}
