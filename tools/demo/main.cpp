// pelarix-demo: a whole USB redirection path on one machine, with no root
// and no hardware. See demo_run.h, and docs/host-side.md for the host side.
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "demo_options.h"
#include "demo_run.h"

namespace {

// An installed demo has its descriptors and settings in the data folder
// beside its own; one run from the build reads those of the source tree.
void SetDataPaths(pelarix::demo::DemoOptions *defaults) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  const fs::path installed = self.parent_path() / PELARIX_DEMO_INSTALLED_DATA;
  if (!error && fs::is_directory(installed / "realdesc", error)) {
    defaults->dataDir = (installed / "realdesc").string();
    defaults->registry = (installed / "examples" / "demo.reg").string();
  } else {
    defaults->dataDir = PELARIX_DEMO_DATA_DIR;
    defaults->registry = PELARIX_DEMO_REGISTRY;
  }
}

}  // namespace

int main(int argc, char **argv) {
  using namespace pelarix::demo;
  DemoOptions defaults;
  SetDataPaths(&defaults);
  std::string error;
  const auto options =
      ParseDemoOptions(std::vector<std::string>(argv + 1, argv + argc), defaults, &error);
  if (!options) {
    std::cerr << "pelarix-demo: " << error << "\n" << kDemoUsage;
    return kExitBadArguments;
  }
  if (options->help) {
    std::cout << kDemoUsage;
    return kExitPassed;
  }
  return RunDemo(*options, std::cout, std::cerr);
}
