// A process without standard input, as a service may be started: descriptor 0 is the next to be
// had.

#ifndef TESTS_SYS_SUPPORT_CLOSED_STDIN_H
#define TESTS_SYS_SUPPORT_CLOSED_STDIN_H

#include <unistd.h>

// Standard input is closed while it lives. Whatever is descriptor 0 at its end is closed too.
class CLOSED_STDIN {
 public:
  CLOSED_STDIN() : m_hSaved(dup(0)) { close(0); }
  ~CLOSED_STDIN() {
    dup2(m_hSaved, 0);
    close(m_hSaved);
  }
  CLOSED_STDIN(const CLOSED_STDIN&)            = delete;
  CLOSED_STDIN& operator=(const CLOSED_STDIN&) = delete;

 private:
  int m_hSaved;
};

#endif
