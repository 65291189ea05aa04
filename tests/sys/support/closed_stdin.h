// SPDX-License-Identifier: MIT

// A process without standard input, as a service may be started. The next descriptor is 0.

#ifndef TESTS_SYS_SUPPORT_CLOSED_STDIN_H
#define TESTS_SYS_SUPPORT_CLOSED_STDIN_H

#include <unistd.h>

// Standard input is closed while it exists. At its end descriptor 0 is closed, whatever it is.
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
