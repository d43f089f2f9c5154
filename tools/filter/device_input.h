// The devices that pelarix-filter judges: descriptor files in the sysfs
// `descriptors` layout (the 18-byte device descriptor, then each
// configuration set), read from files or from /sys/bus/usb/devices.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pelarix::tools {

struct DeviceInput {
  std::string name;              // the file, or the sysfs device name
  std::vector<uint8_t> bytes;    // the whole file
  int32_t configCount = 0;       // the sets found whole in the file
  std::optional<uint32_t> path;  // the engine's path word, where known
  std::string error;             // why the device can't be judged; empty if it can
  bool unreadable = false;       // the file could not be read at all
};

// Reads and checks one file: a device descriptor of 18 bytes and type 1,
// then sets of type 2 whose wTotalLength stays inside the file.
DeviceInput ReadDeviceFile(const std::string &file);

// Every device (not interface, not root hub without descriptors) under a
// sysfs tree such as /sys/bus/usb/devices, with its path word from its bus
// number and port chain.
std::vector<DeviceInput> ReadSysfsDevices(const std::string &root);

// The path word of bus and ports ("1-1.4": bus 1, ports 1 and 4): four bits
// of depth, then one nibble per level starting with the bus. None where a
// number or the depth doesn't fit.
std::optional<uint32_t> PathWordOf(uint32_t bus, const std::string &ports);

}  // namespace pelarix::tools
