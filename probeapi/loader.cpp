// SPDX-License-Identifier: MIT

#include "probeapi/loader.h"

#include <dlfcn.h>
#include <libproc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const size_t PATH_SIZE = 512;  // of the path of a directory or a candidate, with terminator
static const size_t EXE_PATH_SIZE = 4096;

// The first two take a directory as KeepDirectory() leaves it, with the separator at its end.
static const char LibraryFile[]     = "libquobearm.dylib";
static const char LibraryBaseName[] = "libquobearm";
static const char BesideFormat[]    = "%s%s";
static const char ThreeUpFormat[]   = "%s../../../%s";
static const char InstalledFormat[] = "/Applications/OSTREL/Quobe/%s";
static const char VersionedFormat[] = "/Applications/OSTREL/Quobe/%s.5.dylib";

void* APILOADER_hLib;

void APILOADER_Anchor(void) {}

// Non-zero when the library is open: by this candidate, or because another thread has opened it
// since the search began. RTLD_LAZY: functions that the library itself lacks matter only when it
// calls them.
static int TryCandidate(const char* sPath) {
  if (APILOADER_hLib == NULL) {
    APILOADER_hLib = dlopen(sPath, RTLD_LAZY);
  }
  return APILOADER_hLib != NULL;
}

// A candidate that does not fit: cut, it would name another file; skipped, the search would go on
// to places that the user did not mean. So the process ends.
static void CheckCandidateFits(int Length) {
  if (Length < 0 || (size_t)Length >= PATH_SIZE) {
    abort();
  }
}

// Ends the path after its last separator. Required: position 0 is not examined, so "/x" stays
// whole, as does a path without a separator.
static void KeepDirectory(char* sPath) {
  for (size_t i = strlen(sPath); i > 1; i--) {
    if (sPath[i - 1] == '/' || sPath[i - 1] == '\\') {
      sPath[i] = 0;
      return;
    }
  }
}

// Tries the two places that follow from the path of a module or an executable. Paths that are NULL,
// empty or too long are skipped. Non-zero when the library is open, as in all functions below.
static int TryAround(const char* sModulePath) {
  char acDirectory[PATH_SIZE];
  char acCandidate[PATH_SIZE];

  if (sModulePath == NULL || sModulePath[0] == 0 || strlen(sModulePath) >= PATH_SIZE) {
    return 0;
  }
  memcpy(acDirectory, sModulePath, strlen(sModulePath) + 1);  // fits: checked above
  KeepDirectory(acDirectory);

  CheckCandidateFits(snprintf(acCandidate, PATH_SIZE, BesideFormat, acDirectory, LibraryFile));
  if (TryCandidate(acCandidate)) {
    return 1;
  }
  // From the executable inside an application's bundle (Contents/MacOS) this is beside the bundle.
  CheckCandidateFits(snprintf(acCandidate, PATH_SIZE, ThreeUpFormat, acDirectory, LibraryFile));
  return TryCandidate(acCandidate);
}

// The module is the executable, or a library that this code is linked into: the system knows which
// file the anchor was loaded from.
static int TryAroundThisModule(void) {
  Dl_info Info;
  memset(&Info, 0, sizeof(Info));
  if (dladdr((const void*)&APILOADER_Anchor, &Info) == 0) {
    return 0;
  }
  return TryAround(Info.dli_fname);
}

static int TryAroundExecutable(void) {
  char acPath[EXE_PATH_SIZE];
  memset(acPath, 0, sizeof(acPath));
  if (proc_pidpath(getpid(), acPath, sizeof(acPath)) <= 0) {
    return 0;
  }
  acPath[EXE_PATH_SIZE - 1] = 0;  // a path that fills the buffer has no terminator
  return TryAround(acPath);
}

static int TryInstalled(void) {
  char acCandidate[PATH_SIZE];  // both paths are constants and fit
  snprintf(acCandidate, PATH_SIZE, InstalledFormat, LibraryFile);
  if (TryCandidate(acCandidate)) {
    return 1;
  }
  snprintf(acCandidate, PATH_SIZE, VersionedFormat, LibraryBaseName);
  return TryCandidate(acCandidate);
}

int32_t APILOADER_Load(int32_t ExitOnFailure) {
  // A library that was found stays open until the process ends; nothing is searched for again.
  if (APILOADER_hLib != NULL || TryAroundThisModule() || TryAroundExecutable() || TryInstalled()) {
    return 0;
  }
  if (ExitOnFailure != 0) {
    puts("Could not open Quobe shared library. Exiting now.");
    exit(1);  // writes out the line, which is buffered when standard output is not a terminal
  }
  puts("Could not open Quobe shared library.");
  return 1;
}

int32_t APILOADER_TryLoad(void) {
  return APILOADER_Load(0) > 0 ? -1 : 0;  // here failure is negative, as elsewhere in the tool
}
