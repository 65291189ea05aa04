// SPDX-License-Identifier: MIT

#include "sys/console.h"

#include <stdio.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

static int32_t IsPrepared;  // Prepare() was called: once for the process

// Makes each key arrive at once: without this a terminal hands on whole lines. It stays so, because
// keys may be asked for again at any time.
static void Prepare(void) {
  struct termios Settings;
  if (tcgetattr(STDIN_FILENO, &Settings) == 0) {  // fails for a pipe or a file, which have no modes
    Settings.c_lflag &= ~(tcflag_t)ICANON;
    tcsetattr(STDIN_FILENO, TCSANOW, &Settings);
  }
  // A buffered getchar() would read all waiting bytes at once, and none would be left to count.
  setvbuf(stdin, NULL, _IONBF, 0);
}

int32_t SYS_CONSOLE_IsKeyPressed(void) {
  if (!IsPrepared) {
    Prepare();
    IsPrepared = 1;
  }
  int NumBytes = 0;
  if (ioctl(STDIN_FILENO, FIONREAD, &NumBytes) != 0) {
    return 0;  // closed, or of a kind that does not count waiting bytes
  }
  return NumBytes;
}
