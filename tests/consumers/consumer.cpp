// SPDX-License-Identifier: MIT

// A program of another project: UTIL and SYS by their public headers, with the least that is needed.

#include <stdio.h>

#include "sys/files.h"
#include "sys/path.h"
#include "sys/registry.h"
#include "sys/thread.h"
#include "util/format.h"
#include "util/scan.h"

int main(int NumArgs, char** pasArgs) {
  char     acText[64];
  uint32_t Addr = 0;
  if (NumArgs != 2 || UTIL_ParseIPAddr("192.168.0.1", &Addr) < 0 ||
      SYS_PATH_MakeDir(pasArgs[1]) < 0) {
    return 1;
  }
  UTIL_snprintf(acText, sizeof(acText), "0x%X, folder %s", Addr,
                SYS_FILE_Exists(pasArgs[1]) ? "made" : "missing");
  puts(acText);
  return 0;
}
