// The tests' path: the demo's settings and the real devices' descriptors.
#pragma once

#include <string>
#include <vector>

#include "usbip_client.h"
#include "usbip_path.h"

namespace pelarix::usbip::testing {

inline bool Start(UsbipPath &path, const std::vector<std::string> &names, std::string *error,
                  UsbipServerOptions options = {}) {
  return path.Start(PELARIX_DEMO_REGISTRY, std::string(PELARIX_TEST_DATA_DIR) + "/realdesc", names,
                    error, std::move(options));
}

}  // namespace pelarix::usbip::testing
