// SPDX-License-Identifier: MIT

#include "sys/console.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include "tests/sys/support/pty.h"

// The first call changes standard input for the whole process, so each test runs in a child process
// with its own standard input. The child's exit status is the number of failures.
class SysConsole : public testing::Test {
 protected:
  template <typename FUNCTION>
  void InChild(int hInput, FUNCTION Body) {
    EXPECT_EXIT(
        {
          if (dup2(hInput, STDIN_FILENO) < 0) {
            exit(99);
          }
          exit(Body());
        },
        testing::ExitedWithCode(0), "");
  }
};

// Waits, with a limit, until that many bytes have arrived: a terminal passes them on with a delay.
static int32_t WaitForKeys(int32_t Expected) {
  for (int i = 0; i < 10000 && SYS_CONSOLE_IsKeyPressed() < Expected; i++) {
    usleep(1000);
  }
  return SYS_CONSOLE_IsKeyPressed();
}

TEST_F(SysConsole, AKeyOnATerminalCountsBeforeTheLineEnds) {
  PTY Pty;
  PTY_Open(&Pty);
  ASSERT_GE(Pty.hKeep, 0) << "no pseudo-terminal available";
  InChild(Pty.hKeep, [&] {
    if (SYS_CONSOLE_IsKeyPressed() != 0) {
      return 1;
    }
    struct termios Settings;
    if (tcgetattr(STDIN_FILENO, &Settings) != 0 || (Settings.c_lflag & ICANON) != 0) {
      return 2;
    }
    if (write(Pty.hMaster, "ab", 2) != 2 || WaitForKeys(2) != 2) {
      return 3;
    }
    if (getchar() != 'a' || SYS_CONSOLE_IsKeyPressed() != 1) {
      return 4;  // getchar() must not take what it does not return
    }
    return 0;
  });
  PTY_Close(&Pty);
}

TEST_F(SysConsole, OnlyTheFirstCallChangesTheTerminalAndOnlyItsLineMode) {
  PTY Pty;
  PTY_Open(&Pty);
  ASSERT_GE(Pty.hKeep, 0) << "no pseudo-terminal available";
  InChild(Pty.hKeep, [] {
    struct termios Before;
    struct termios After;
    if (tcgetattr(STDIN_FILENO, &Before) != 0 || (Before.c_lflag & ICANON) == 0) {
      return 1;
    }
    SYS_CONSOLE_IsKeyPressed();
    tcgetattr(STDIN_FILENO, &After);
    if (After.c_lflag != (Before.c_lflag & ~(tcflag_t)ICANON) || After.c_iflag != Before.c_iflag ||
        After.c_oflag != Before.c_oflag || After.c_cflag != Before.c_cflag) {
      return 2;
    }
    tcsetattr(STDIN_FILENO, TCSANOW, &Before);
    SYS_CONSOLE_IsKeyPressed();
    tcgetattr(STDIN_FILENO, &After);
    return After.c_lflag == Before.c_lflag ? 0 : 3;
  });
  PTY_Close(&Pty);
}

TEST_F(SysConsole, APipeIsCountedToo) {
  int ahPipe[2];
  ASSERT_EQ(0, pipe(ahPipe));
  InChild(ahPipe[0], [&] {
    if (SYS_CONSOLE_IsKeyPressed() != 0 || write(ahPipe[1], "xyz", 3) != 3) {
      return 1;
    }
    return SYS_CONSOLE_IsKeyPressed() == 3 ? 0 : 2;
  });
  close(ahPipe[0]);
  close(ahPipe[1]);
}

TEST_F(SysConsole, ADescriptorThatCannotBeAskedCountsAsNoKey) {
  int ahPipe[2];
  ASSERT_EQ(0, pipe(ahPipe));
  InChild(ahPipe[0], [&] {
    close(STDIN_FILENO);
    return SYS_CONSOLE_IsKeyPressed() == 0 ? 0 : 1;
  });
  close(ahPipe[0]);
  close(ahPipe[1]);
}
