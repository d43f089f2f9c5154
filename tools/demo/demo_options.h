// The demo's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pelarix::demo {

struct DemoOptions {
  std::string dataDir;               // the real devices' descriptor files
  std::string registry;              // the agent's settings (.reg)
  std::optional<uint32_t> logLevel;  // unset: the library's log is not shown
  bool hubLog = false;
  double durationSeconds = 2.0;      // storage traffic per disk
  std::vector<std::string> devices;  // name fragments; empty: every device
  std::vector<std::string> clientStrings;
  // Devices (name fragments) whose client is of version 3: it has no filter
  // of its own, and leaves the strings to the library's fetch. By default
  // the hubs and the mouse come from such a client, so that a run shows
  // both kinds of client.
  std::vector<std::string> olderClient = {"hub_", "mouse_"};
  uint32_t pumps = 2;
  bool clientFilter = true;  // false: the client offers every device whole
  bool corruptDisks = false;
  bool help = false;
};

inline constexpr int kExitPassed = 0;
inline constexpr int kExitCheckFailed = 1;
inline constexpr int kExitBadArguments = 2;
inline constexpr int kExitSetupFailed = 3;

extern const char *const kDemoUsage;

// The options, or nothing with *error set.
std::optional<DemoOptions> ParseDemoOptions(const std::vector<std::string> &arguments,
                                            DemoOptions defaults, std::string *error);

}  // namespace pelarix::demo
