#include "app/flow.h"
#include "app/process.h"

int main(int NumArgs, char** pasArgs) {
  OpenStandardDescriptors();
  return RunUnlock(NumArgs, pasArgs);
}
