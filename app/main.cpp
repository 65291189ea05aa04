#include "app/flow.h"
#include "app/process.h"

int main(int NumArgs, char** pasArgs) {
  OpenStandardDescriptors();  // first: nothing has opened a file yet
  return RunUnlock(NumArgs, pasArgs);
}
