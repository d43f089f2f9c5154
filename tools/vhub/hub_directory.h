// A fresh hub directory for one test: made under the system's temporary
// directory, named in PELARIX_HUB_DIR for the library to find, and removed
// with what is left in it at the end.
#pragma once

#include <string>

namespace pelarix::vhub {

class ScopedHubDirectory {
 public:
  ScopedHubDirectory();
  ~ScopedHubDirectory();
  ScopedHubDirectory(const ScopedHubDirectory &) = delete;
  ScopedHubDirectory &operator=(const ScopedHubDirectory &) = delete;

  const std::string &Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace pelarix::vhub
