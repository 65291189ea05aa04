// Passes a flag that the runner does not translate.

#include <fcntl.h>
#include <stdio.h>

int main(void) {
  puts("started");
  return open("/dev/null", O_RDONLY | O_SYMLINK) < 0 ? 1 : 0;
}
