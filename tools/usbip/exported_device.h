// A device plugged into the virtual hub as a USB/IP host sees it: the ids,
// classes and interfaces of its plug-in record, under a bus id of its own.
// Every device sits on bus 1 with its PlugNo as device number, so the bus id
// is "1-<PlugNo>" and the devid of its commands is 0x10000 | PlugNo.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pelarix::usbip {

inline constexpr uint32_t kBusNumber = 1;
// Linux's enum usb_device_speed.
inline constexpr uint32_t kSpeedFull = 2;
inline constexpr uint32_t kSpeedHigh = 3;
inline constexpr uint32_t kSpeedSuper = 5;

struct ExportedDevice {
  uint32_t plugNo = 0;
  std::string busId;
  uint32_t speed = kSpeedFull;
  std::vector<uint8_t> device;  // the 18-byte device descriptor
  std::vector<uint8_t> config;  // the configuration set of the record

  uint32_t DevId() const { return kBusNumber << 16 | plugNo; }
};

// The device of a plug-in record, or nothing when the record is too short
// for its descriptors or its PlugNo does not fit a 16-bit device number.
std::optional<ExportedDevice> ExportDevice(const std::vector<uint8_t> &pluginRecord);

// The 312-byte device record; with interfaces, one 4-byte record per
// interface of the configuration (first setting) behind it, as a device list
// carries them.
std::vector<uint8_t> DeviceRecordBytes(const ExportedDevice &device, bool withInterfaces);

}  // namespace pelarix::usbip
