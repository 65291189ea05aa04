// SPDX-License-Identifier: MIT

#include "openocd/file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static const mode_t NEW_FILE_MODE = 0666;  // less the user's mask

static FILE* Open(const char* sPath, int Flags, const char* sMode) {
  struct stat Info = {};
  const int   File = open(sPath, Flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, NEW_FILE_MODE);
  if (File < 0) {
    // ENXIO: a named pipe without a reader.
    errno = errno == ENXIO ? EINVAL : errno;
    return NULL;
  }
  int Error = fstat(File, &Info) != 0 ? errno : 0;
  if (Error == 0 && S_ISDIR(Info.st_mode)) {
    Error = EISDIR;
  } else if (Error == 0 && !S_ISREG(Info.st_mode) && !S_ISCHR(Info.st_mode)) {
    Error = EINVAL;
  }
  // From here on a device may be waited for.
  FILE* pFile = NULL;
  if (Error == 0) {
    fcntl(File, F_SETFL, Flags & O_APPEND);
    pFile = fdopen(File, sMode);
    Error = errno;
  }
  if (pFile == NULL) {
    close(File);
    errno = Error;
  }
  return pFile;
}

FILE* FILE_OpenToRead(const char* sPath) {
  return Open(sPath, O_RDONLY, "r");
}

FILE* FILE_OpenToAppend(const char* sPath) {
  return Open(sPath, O_WRONLY | O_CREAT | O_APPEND, "a");
}
