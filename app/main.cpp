#include "app/flow.h"

int main(int NumArgs, char** pasArgs) {
  return RunUnlock(NumArgs, pasArgs);
}
