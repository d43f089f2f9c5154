// pelarix-vhubd as the daemon tests run it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "child_process.h"

namespace pelarix::testing {

using Daemon = Child;

inline Daemon StartDaemon(std::vector<std::string> arguments) {
  return StartChild(PELARIX_VHUBD, std::move(arguments));
}

}  // namespace pelarix::testing
