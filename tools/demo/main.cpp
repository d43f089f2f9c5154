// pelarix-demo: a whole USB redirection path on one machine, with no root
// and no hardware. See demo_run.h, and docs/host-side.md for the host side.
#include <iostream>
#include <string>
#include <vector>

#include "demo_options.h"
#include "demo_run.h"

int main(int argc, char **argv) {
  using namespace pelarix::demo;
  DemoOptions defaults;
  defaults.dataDir = PELARIX_DEMO_DATA_DIR;
  defaults.registry = PELARIX_DEMO_REGISTRY;
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
