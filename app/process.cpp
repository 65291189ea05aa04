#include "app/process.h"

#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <unistd.h>

void OpenStandardDescriptors(void) {
  // open() returns the lowest number that is free: first those of the closed descriptors, in order.
  int Descriptor;
  do {
    Descriptor = open("/dev/null", O_RDWR);
  } while (Descriptor >= STDIN_FILENO && Descriptor <= STDERR_FILENO);
  if (Descriptor > STDERR_FILENO) {
    close(Descriptor);
  }
}

void UseUtf8(void) {
  // No system has all of these names. The user's own locale is not asked: it may be "C".
  static const char* const Locales[] = {"C.UTF-8", "UTF-8", "en_US.UTF-8"};
  for (const char* sLocale : Locales) {
    if (setlocale(LC_CTYPE, sLocale) != NULL) {
      return;
    }
  }
}

void IgnoreLostTerminal(void) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
}
