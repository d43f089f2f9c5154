#include "hub_directory.h"

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace pelarix::vhub {

ScopedHubDirectory::ScopedHubDirectory() {
  const char *temp = std::getenv("TMPDIR");
  std::string pattern =
      std::string(temp != nullptr && temp[0] != 0 ? temp : "/tmp") + "/pelarix-hub-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back(0);
  if (mkdtemp(name.data()) != nullptr) path_ = name.data();
  setenv("PELARIX_HUB_DIR", path_.c_str(), 1);
}

ScopedHubDirectory::~ScopedHubDirectory() {
  unsetenv("PELARIX_HUB_DIR");
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace pelarix::vhub
