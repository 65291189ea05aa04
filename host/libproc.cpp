// SPDX-License-Identifier: MIT

#include <errno.h>
#include <libproc.h>
#include <stdio.h>
#include <unistd.h>

int proc_pidpath(int Pid, void* pBuffer, uint32_t BufferSize) {
  if (BufferSize == 0 || BufferSize > 4096) {
    errno = EOVERFLOW;
    return 0;
  }
  char acLink[32];
  snprintf(acLink, sizeof(acLink), "/proc/%d/exe", Pid);
  const ssize_t Length = readlink(acLink, (char*)pBuffer, BufferSize);
  if (Length <= 0) {
    return 0;
  }
  if ((uint32_t)Length >= BufferSize) {
    errno = ENOMEM;  // readlink() would cut the path silently, Darwin does not
    return 0;
  }
  ((char*)pBuffer)[Length] = 0;
  return (int)Length;
}
