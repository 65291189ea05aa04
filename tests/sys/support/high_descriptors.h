// SPDX-License-Identifier: MIT

// Descriptors that select() does not support.

#ifndef TESTS_SYS_SUPPORT_HIGH_DESCRIPTORS_H
#define TESTS_SYS_SUPPORT_HIGH_DESCRIPTORS_H

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

// While it exists, all descriptors below 1024 are in use: the next one is 1024.
class HIGH_DESCRIPTORS {
 public:
  HIGH_DESCRIPTORS() {
    getrlimit(RLIMIT_NOFILE, &m_Limit);
    const struct rlimit Wanted = {2048, m_Limit.rlim_max};
    if (m_Limit.rlim_max < 2048 || setrlimit(RLIMIT_NOFILE, &Wanted) != 0) {
      return;
    }
    int hFiller = dup(0);
    while (hFiller >= 0 && hFiller < 1024) {
      m_Fillers.push_back(hFiller);
      hFiller = dup(0);
    }
    close(hFiller);
  }
  ~HIGH_DESCRIPTORS() {
    for (const int hFiller : m_Fillers) {
      close(hFiller);
    }
    setrlimit(RLIMIT_NOFILE, &m_Limit);
  }
  HIGH_DESCRIPTORS(const HIGH_DESCRIPTORS&)            = delete;
  HIGH_DESCRIPTORS& operator=(const HIGH_DESCRIPTORS&) = delete;

  // Returns whether this process may have that many.
  bool AreThere() const { return !m_Fillers.empty(); }

 private:
  struct rlimit    m_Limit;
  std::vector<int> m_Fillers;
};

#endif
