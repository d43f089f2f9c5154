// What pelarix-filter says of one device: its identity and families, the
// engine's decision with the interfaces a split forwards, and the decision
// lines the engine logged on the way, as text or as JSON.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "device_input.h"
#include "ordo/usb/dev_filter_mgr_client.h"

namespace pelarix::tools {

struct InterfaceReport {
  int32_t index = 0;
  std::string families;
  std::vector<uint8_t> group;
};

struct DeviceReport {
  std::string name;
  std::string error;  // the device could not be judged; nothing else is set
  std::string id;
  std::string path;
  int32_t configurations = 0;
  bool composite = false;
  std::string families;
  std::vector<InterfaceReport> interfaces;
  std::string decision;  // "forward whole", "forward split", "keep local"
  std::vector<int32_t> forwarded;
  std::vector<std::string> reasons;
  std::vector<std::string> dump;
};

// Runs the client's whole decision on one device. The engine's log is
// caught for the call and sorted into reasons and, with withDump, the
// descriptor dump.
DeviceReport EvaluateInput(ordo::usb::DevFilterMgrClient &client, const DeviceInput &input,
                           bool withDump);

void WriteText(std::ostream &out, const DeviceReport &report);
void WriteJson(std::ostream &out, const std::vector<DeviceReport> &reports);

}  // namespace pelarix::tools
