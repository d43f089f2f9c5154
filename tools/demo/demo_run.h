// One run of the demo: the hub, the host side, the service and the client
// set up in this process, every device offered, driven and unplugged, and
// the table printed. Returns the exit status.
#pragma once

#include <ostream>

#include "demo_options.h"

namespace pelarix::demo {

int RunDemo(const DemoOptions &options, std::ostream &out, std::ostream &err);

}  // namespace pelarix::demo
