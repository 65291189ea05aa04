// SPDX-License-Identifier: MIT

// Nothing but main(): the tests link all the rest of the tool with their own main().

#include "app/flow.h"
#include "app/process.h"

int main(int NumArgs, char** pasArgs) {
  OpenStandardDescriptors();  // first: nothing has opened a file yet
  return RunUnlock(NumArgs, pasArgs);
}
