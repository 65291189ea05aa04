#include <signal.h>

#include "app/flow.h"

int main(int NumArgs, char** pasArgs) {
  // A reader that goes away must not end the run between an erase and the programming behind it.
  signal(SIGPIPE, SIG_IGN);
  return RunUnlock(NumArgs, pasArgs);
}
