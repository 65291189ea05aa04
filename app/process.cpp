// SPDX-License-Identifier: MIT

#include "app/process.h"

#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <unistd.h>

void OpenStandardDescriptors(void) {
  // Opened for both directions: descriptor 0 is read, 1 and 2 are written.
  // open() returns the lowest free number, so the closed descriptors come first and in order. The
  // one beyond them is not needed.
  int Descriptor;
  do {
    Descriptor = open("/dev/null", O_RDWR);
  } while (Descriptor >= STDIN_FILENO && Descriptor <= STDERR_FILENO);
  if (Descriptor > STDERR_FILENO) {
    close(Descriptor);
  }
}

void UseUtf8(void) {
  // Linux has the first name, macOS 10.13 the others. The user's locale is not used: it may be "C".
  static const char* const Locales[] = {"C.UTF-8", "UTF-8", "en_US.UTF-8"};
  // If none exists, the character set stays ASCII, and the line editor drops all other bytes.
  for (const char* sLocale : Locales) {
    if (setlocale(LC_CTYPE, sLocale) != NULL) {
      return;
    }
  }
}

void IgnoreLostTerminal(void) {
  // Printing then fails with EPIPE or EIO. The results of printing are not looked at, so the run
  // goes on without its output.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
}
