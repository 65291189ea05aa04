// SPDX-License-Identifier: MIT

// Needs a function that exists on both systems and is in no list of the runner. It must not start.

#include <stdio.h>
#include <sys/resource.h>

int main(void) {
  struct rlimit Limit;
  puts("started");
  return getrlimit(RLIMIT_NOFILE, &Limit);
}
