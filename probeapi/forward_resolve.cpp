// SPDX-License-Identifier: MIT

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "probeapi/forward.h"
#include "probeapi/loader.h"

void* FORWARD_Resolve(void** ppSlot, const char* sName) {
  // APILOADER_Load(1) ends the process when it fails. If it did return, the function that was
  // called would return 0.
  if (APILOADER_Load(1) != 0) {
    *ppSlot = NULL;
    return NULL;
  }
  dlerror();  // forgets an earlier failure
  void* pFunction = dlsym(APILOADER_hLib, sName);
  // Not by pFunction: a symbol that exists may have the value NULL.
  const char* sError = dlerror();
  if (sError != NULL) {
    char acError[8192];                                // large: the text contains a path
    snprintf(acError, sizeof(acError), "%s", sError);  // dlclose() may overwrite the original
    dlclose(APILOADER_hLib);
    printf("Function not found: %s (%s). Exiting now.\n", sName, acError);
    exit(1);  // writes out what standard output has buffered, this line included
  }
  *ppSlot = pFunction;
  return pFunction;
}
