// Descriptors that select() does not know.

#ifndef TESTS_SYS_HIGH_DESCRIPTORS_H
#define TESTS_SYS_HIGH_DESCRIPTORS_H

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

// While it lives, all descriptors below 1024 are in use: the next one to be had is 1024.
class HIGH_DESCRIPTORS {
 public:
  HIGH_DESCRIPTORS() {
    getrlimit(RLIMIT_NOFILE, &_Limit);
    const struct rlimit Wanted = {2048, _Limit.rlim_max};
    if (_Limit.rlim_max < 2048 || setrlimit(RLIMIT_NOFILE, &Wanted) != 0) {
      return;
    }
    int hFiller = dup(0);
    while (hFiller >= 0 && hFiller < 1024) {
      _Fillers.push_back(hFiller);
      hFiller = dup(0);
    }
    close(hFiller);
  }
  ~HIGH_DESCRIPTORS() {
    for (const int hFiller : _Fillers) {
      close(hFiller);
    }
    setrlimit(RLIMIT_NOFILE, &_Limit);
  }
  HIGH_DESCRIPTORS(const HIGH_DESCRIPTORS&)            = delete;
  HIGH_DESCRIPTORS& operator=(const HIGH_DESCRIPTORS&) = delete;

  // Whether this process may have so many.
  bool AreThere() const { return !_Fillers.empty(); }

 private:
  struct rlimit    _Limit;
  std::vector<int> _Fillers;
};

#endif
