#include "hub_directory.h"

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#ifdef _WIN32
#include <process.h>

#include <atomic>
#include <string>
#endif

namespace pelarix::vhub {

#ifdef _WIN32
// Windows finds its hubs in the platform layer, not in a directory: the
// directory is only a scratch place for the tests that want one.
ScopedHubDirectory::ScopedHubDirectory() {
  static std::atomic<unsigned> counter{0};
  std::error_code ignored;
  const std::filesystem::path path =
      std::filesystem::temp_directory_path(ignored) /
      ("pelarix-hub-" + std::to_string(_getpid()) + "-" + std::to_string(counter++));
  if (std::filesystem::create_directories(path, ignored)) path_ = path.generic_string();
}

ScopedHubDirectory::~ScopedHubDirectory() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}
#else
ScopedHubDirectory::ScopedHubDirectory() {
  const char *temp = std::getenv("TMPDIR");
  std::string pattern =
      std::string(temp != nullptr && temp[0] != 0 ? temp : "/tmp") + "/pelarix-hub-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back(0);
  if (mkdtemp(name.data()) != nullptr) {
    path_ = name.data();
  }
  setenv("PELARIX_HUB_DIR", path_.c_str(), 1);
}

ScopedHubDirectory::~ScopedHubDirectory() {
  unsetenv("PELARIX_HUB_DIR");
  std::error_code ignored;
  if (!path_.empty()) {
    std::filesystem::remove_all(path_, ignored);
  }
}
#endif

}  // namespace pelarix::vhub
