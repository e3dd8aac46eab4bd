#pragma once

#include <sys/resource.h>

#include <csignal>

namespace qv::kelvo {

// As long as it lives no file of this process grows beyond `bytes`: a write that crosses the limit
// runs short, one behind it fails with EFBIG.
class FileLimit {
 public:
  explicit FileLimit(rlim_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &earlier);
    const rlimit limited{bytes, earlier.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~FileLimit() {
    setrlimit(RLIMIT_FSIZE, &earlier);
    std::signal(SIGXFSZ, handler);
  }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  void (*handler)(int);
  rlimit earlier{};
};

}  // namespace qv::kelvo
