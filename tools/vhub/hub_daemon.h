// What the hub daemons share: a virtual hub served until SIGINT or SIGTERM,
// with a dated log on stderr (one line per event: local date and time to the
// millisecond with the UTC offset, the level, the program, the text; a line
// is written whole even when several threads log at once), and the items
// left unanswered reported at the stop. A daemon that serves more than the
// hub (pelarix-usbipd) starts and stops its part through the hooks.
#pragma once

#include <functional>
#include <string>

#include "virtual_hub.h"

namespace pelarix::vhub {

void DaemonLogLine(const char *program, const char *level, const std::string &line);

struct DaemonHooks {
  // After the hub started; false with *error set stops the daemon.
  std::function<bool(VirtualHub &hub, std::string *error)> start;
  // Before the hub stops.
  std::function<void()> stop;
};

// Runs the daemon; its exit status (VhubdExit).
int ServeHubDaemon(const char *program, VirtualHubOptions options, const DaemonHooks &hooks = {});

}  // namespace pelarix::vhub
