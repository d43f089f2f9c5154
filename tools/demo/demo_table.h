// The demo's closing table: one row per device.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace pelarix::demo {

struct DeviceRow {
  std::string name;
  uint16_t vendorId = 0;
  uint16_t productId = 0;
  uint32_t clientVersion = 0;
  std::string decision;  // "whole", "split 1,2", "blocked by agent", "kept by client"
  uint32_t plugNo = 0;   // 0: not plugged in
  uint64_t items = 0;
  uint64_t bytes = 0;
  bool storage = false;
  double megabytesPerSecond = 0;
  double itemsPerSecond = 0;
  std::string check;  // "ok", "-" for a device not plugged, or what failed
};

void PrintTable(const std::vector<DeviceRow> &rows, std::ostream &out);

}  // namespace pelarix::demo
