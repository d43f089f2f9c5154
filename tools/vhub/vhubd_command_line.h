// The command line of pelarix-vhubd, in the manner of the field's daemons:
// short and long options (--opt VALUE and --opt=VALUE), -h/--help and
// -V/--version, and a message that names what was wrong.
#pragma once

#include <string>

#include "virtual_hub.h"

namespace pelarix::vhub {

// The daemon's exit statuses, listed in its help text.
enum VhubdExit : int {
  kExitStopped = 0,      // stopped by SIGINT or SIGTERM (or -h, -V)
  kExitStartFailed = 1,  // the hub could not start: directory, socket, group
  kExitUsage = 2,        // bad command line
};

struct VhubdCommand {
  enum class Action { kServe, kHelp, kVersion, kUsageError };
  Action action = Action::kServe;
  VirtualHubOptions options;
  std::string error;  // what was wrong, for kUsageError
};

// The daemon's default socket mode: owner and group may connect.
inline constexpr int kDefaultSocketMode = 0660;

VhubdCommand ParseVhubdCommandLine(int argc, char **argv);
const char *VhubdHelpText();
// The lines of the help text that tell the hub's options.
const char *VhubdHubOptionsHelp();
const char *VhubdUsageLine();

}  // namespace pelarix::vhub
