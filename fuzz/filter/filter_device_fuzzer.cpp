// Arbitrary device and configuration bytes through the agent manager's
// whole answer: the device record's load and dump, the result, and the
// Remote phase under a few fixed rule sets.
//
// Input: the device descriptor (its own byte 0 says how long it is), then
// one configuration descriptor set. Neither buffer carries a length in the
// manager's interface, so each is laid out as a caller must hand it over:
// the device descriptor bLength bytes long and the set wTotalLength bytes
// long, zero-filled where the input ends first.
#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/filter_log.h"

namespace {

using ordo::usb::DevFamily;
using ordo::usb::DevFilterMgrAgent;

// Formats every line as a real hook would, so format and arguments meet.
void FormattingHook(uint32_t /*level*/, const char *format, va_list args) {
  char line[8192];
  std::vsnprintf(line, sizeof line, format, args);
}

std::vector<std::unique_ptr<DevFilterMgrAgent>> MakeManagers() {
  const std::vector<std::vector<const char *>> ruleSets = {
      {},
      {"exid:m:vid-046d_pid-0825", "inid:m:vid-1d50_pid-****"},
      {"exfa:m:storage;keyboard;audio-out", "infa:m:hid;video", "exalldev:true"},
      {"infa:m:unknown;vendor", "exfa:m:audio-in;mouse", "exalldev:true"},
  };
  std::vector<std::unique_ptr<DevFilterMgrAgent>> managers;
  for (const auto &rules : ruleSets) {
    auto manager = std::make_unique<DevFilterMgrAgent>();
    for (const char *rule : rules) manager->AddFilterRule(rule);
    managers.push_back(std::move(manager));
  }
  return managers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  static const auto managers = MakeManagers();
  ordo::usb::SetFilterLogHook(FormattingHook, 0);

  const size_t deviceLength = data[0];
  const size_t deviceTaken = std::min(size, deviceLength);
  std::vector<uint8_t> device(std::max<size_t>(deviceLength, 1), 0);
  std::copy(data, data + deviceTaken, device.begin());

  const uint8_t *rest = data + deviceTaken;
  const size_t restSize = size - deviceTaken;
  std::vector<uint8_t> config;
  if (restSize != 0) {
    config.assign(std::max<size_t>(restSize, 4), 0);
    std::copy(rest, rest + restSize, config.begin());
    const size_t totalLength = static_cast<size_t>(config[2] | (config[3] << 8));
    if (totalLength > config.size()) config.resize(totalLength, 0);
  }
  const uint8_t *configBytes = config.empty() ? nullptr : config.data();

  for (const auto &manager : managers) {
    DevFamily family;
    const bool allowed = manager->GetDeviceFamily(device.data(), configBytes, family);
    if (manager->IsDeviceAllowed(device.data(), configBytes) != allowed) __builtin_trap();
  }
  return 0;
}
