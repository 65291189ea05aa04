// SPDX-License-Identifier: MIT

// A program that the tests start. It writes to the file named by the environment variable
// QUOBE_REPORT: the number of its arguments, its first argument, and its open descriptors from 0 on,
// one line each.

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>

int main(int NumArgs, char** pasArgs) {
  static int aIsOpen[4096];
  for (int i = 0; i < 4096; i++) {
    aIsOpen[i] = fcntl(i, F_GETFD) >= 0;
  }
  const char* sPath = getenv("QUOBE_REPORT");
  FILE*       pFile = sPath != NULL ? fopen(sPath, "w") : NULL;
  if (pFile == NULL) {
    return 1;
  }
  fprintf(pFile, "%d\n%s\n", NumArgs, pasArgs[0]);
  for (int i = 0; i < 4096; i++) {
    if (aIsOpen[i]) {
      fprintf(pFile, "%d\n", i);
    }
  }
  return fclose(pFile) == 0 ? 0 : 1;
}
