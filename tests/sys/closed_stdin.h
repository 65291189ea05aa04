// A process without standard input, as a service may be started: descriptor 0 is the next to be
// had.

#ifndef TESTS_SYS_CLOSED_STDIN_H
#define TESTS_SYS_CLOSED_STDIN_H

#include <unistd.h>

// Standard input is closed while it lives. Whatever is descriptor 0 at its end is closed too.
class CLOSED_STDIN {
 public:
  CLOSED_STDIN() : _hSaved(dup(0)) { close(0); }
  ~CLOSED_STDIN() {
    dup2(_hSaved, 0);
    close(_hSaved);
  }
  CLOSED_STDIN(const CLOSED_STDIN&)            = delete;
  CLOSED_STDIN& operator=(const CLOSED_STDIN&) = delete;

 private:
  int _hSaved;
};

#endif
