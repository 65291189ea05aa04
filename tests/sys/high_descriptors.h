// Descriptors that select() does not know.

#ifndef TESTS_SYS_HIGH_DESCRIPTORS_H
#define TESTS_SYS_HIGH_DESCRIPTORS_H

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

// While it lives, all descriptors below 1024 are in use.
class HIGH_DESCRIPTORS {
 public:
  HIGH_DESCRIPTORS() {
    getrlimit(RLIMIT_NOFILE, &_Limit);
    const struct rlimit Wanted = {2048, _Limit.rlim_max};
    if (_Limit.rlim_max < 2048 || setrlimit(RLIMIT_NOFILE, &Wanted) != 0) {
      return;
    }
    int hFiller = -1;
    do {
      hFiller = dup(0);
      _Fillers.push_back(hFiller);
    } while (hFiller >= 0 && hFiller < 1024);
  }
  ~HIGH_DESCRIPTORS() {
    for (const int hFiller : _Fillers) {
      close(hFiller);
    }
    setrlimit(RLIMIT_NOFILE, &_Limit);
  }
  HIGH_DESCRIPTORS(const HIGH_DESCRIPTORS&)            = delete;
  HIGH_DESCRIPTORS& operator=(const HIGH_DESCRIPTORS&) = delete;

  // An open one of 1024 or more; -1 when this process may not have so many.
  int Get() const { return _Fillers.empty() ? -1 : _Fillers.back(); }

 private:
  struct rlimit    _Limit;
  std::vector<int> _Fillers;
};

#endif
