// File descriptors held back, so that the next ones cannot be opened: the
// events of the POSIX layer are descriptors, so this is how a test makes an
// event creation fail. POSIX only.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace pelarix::testing {

// Runs out of file descriptors after `available` more: each event is one
// descriptor, so (for a session) the k-th event creation fails.
class DescriptorShortage {
 public:
  explicit DescriptorShortage(int available) {
    getrlimit(RLIMIT_NOFILE, &saved_);
    rlimit lowered = saved_;
    lowered.rlim_cur = 256;
    setrlimit(RLIMIT_NOFILE, &lowered);
    for (;;) {
      const int fd = dup(STDERR_FILENO);
      if (fd < 0) break;
      held_.push_back(fd);
    }
    for (int i = 0; i < available && !held_.empty(); ++i) {
      close(held_.back());
      held_.pop_back();
    }
  }
  ~DescriptorShortage() {
    for (int fd : held_) close(fd);
    setrlimit(RLIMIT_NOFILE, &saved_);
  }
  // How many descriptors can still be opened.
  static int Free() {
    std::vector<int> fds;
    for (;;) {
      const int fd = dup(STDERR_FILENO);
      if (fd < 0) break;
      fds.push_back(fd);
    }
    for (int fd : fds) close(fd);
    return static_cast<int>(fds.size());
  }

 private:
  rlimit saved_{};
  std::vector<int> held_;
};

}  // namespace pelarix::testing
