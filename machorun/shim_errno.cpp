// SPDX-License-Identifier: MIT

// errno: Darwin's numbers in a variable of its own.
//
// Functions of this system set this system's errno. The program reads its own errno through
// ___error(). That call moves a number that has come in to the program's errno, translated; this
// system's errno is then 0, which means that nothing new has come in.

#include <errno.h>
#include <string.h>

#include "machorun/shim.h"

int ToDarwinErrno(int HostErrno) {
  switch (HostErrno) {
#define NUMBER(Name, Value) \
  case Name:                \
    return Value;
#include "machorun/darwin_errno.inc"
#undef NUMBER
    default:
      if (HostErrno > 34) {
        Unknown("error code %d (%s)", HostErrno, strerror(HostErrno));
      }
      return HostErrno;
  }
}

namespace {

thread_local int DarwinErrno;

int* Error() {
  if (errno != 0) {
    DarwinErrno = ToDarwinErrno(errno);
    errno       = 0;
  }
  return &DarwinErrno;
}

// The text is this system's.
char* Text(int DarwinError) {
  for (int Host = 1; Host <= 34; Host++) {
    if (Host != EAGAIN && Host == DarwinError) {
      return strerror(Host);
    }
  }
  switch (DarwinError) {
#define NUMBER(Name, Value) \
  case Value:               \
    return strerror(Name);
#include "machorun/darwin_errno.inc"
#undef NUMBER
    default:
      Unknown("the text of error code %d", DarwinError);
  }
}

const Shim Table[] = {
    Bound("___error", &Error),
    Bound("_strerror", &Text),
};

}  // namespace

std::span<const Shim> ErrnoShims() {
  return Table;
}
