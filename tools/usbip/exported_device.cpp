#include "exported_device.h"

#include "descriptor_set.h"
#include "usbip_wire.h"

namespace pelarix::usbip {

namespace {

// The plug-in record: a 44-byte header (PlugNo first, the payload length at
// 40), the device descriptor, the configuration set, the string store.
constexpr size_t kRecordHeaderBytes = 44;
constexpr size_t kPayloadLengthAt = 40;
constexpr size_t kDeviceBytes = 18;
constexpr size_t kConfigHeaderBytes = 9;
constexpr uint32_t kLargestDeviceNumber = 0xFFFF;

uint16_t Little16(const std::vector<uint8_t> &bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

uint32_t Little32(const std::vector<uint8_t> &bytes, size_t at) {
  return static_cast<uint32_t>(Little16(bytes, at)) | static_cast<uint32_t>(Little16(bytes, at + 2))
                                                          << 16;
}

// The record carries no speed: bcdUSB stands in for it (a USB 3 device is
// super speed, a USB 2 device high speed, an older one full speed).
uint32_t SpeedOf(const std::vector<uint8_t> &device) {
  const uint16_t usb = Little16(device, 2);
  if (usb >= 0x0300) {
    return kSpeedSuper;
  }
  return usb >= 0x0200 ? kSpeedHigh : kSpeedFull;
}

void PutText(std::vector<uint8_t> &bytes, const std::string &text, size_t width) {
  const size_t start = bytes.size();
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.resize(start + width, 0);  // NUL-terminated and zero-filled
}

std::vector<pelarix::demo::InterfaceLayout> FirstSettings(const std::vector<uint8_t> &config) {
  std::vector<pelarix::demo::InterfaceLayout> first;
  for (const pelarix::demo::InterfaceLayout &layout : pelarix::demo::WalkInterfaces(config)) {
    if (layout.alternate == 0) {
      first.push_back(layout);
    }
  }
  return first;
}

}  // namespace

std::optional<ExportedDevice> ExportDevice(const std::vector<uint8_t> &pluginRecord) {
  if (pluginRecord.size() < kRecordHeaderBytes + kDeviceBytes + kConfigHeaderBytes) {
    return std::nullopt;
  }
  const uint32_t plugNo = Little32(pluginRecord, 0);
  const size_t payload = Little32(pluginRecord, kPayloadLengthAt);
  const size_t configAt = kRecordHeaderBytes + kDeviceBytes;
  const size_t total = Little16(pluginRecord, configAt + 2);
  if (plugNo == 0 || plugNo > kLargestDeviceNumber || payload < kDeviceBytes + total ||
      total < kConfigHeaderBytes || pluginRecord.size() - configAt < total) {
    return std::nullopt;
  }
  ExportedDevice device;
  device.plugNo = plugNo;
  device.busId = std::to_string(kBusNumber) + "-" + std::to_string(plugNo);
  device.device.assign(pluginRecord.begin() + kRecordHeaderBytes,
                       pluginRecord.begin() + static_cast<std::ptrdiff_t>(configAt));
  device.config.assign(pluginRecord.begin() + static_cast<std::ptrdiff_t>(configAt),
                       pluginRecord.begin() + static_cast<std::ptrdiff_t>(configAt + total));
  device.speed = SpeedOf(device.device);
  return device;
}

std::vector<uint8_t> DeviceRecordBytes(const ExportedDevice &device, bool withInterfaces) {
  const std::vector<pelarix::demo::InterfaceLayout> interfaces = FirstSettings(device.config);
  std::vector<uint8_t> bytes;
  bytes.reserve(kDeviceRecordBytes + kInterfaceRecordBytes * interfaces.size());
  PutText(bytes, "/sys/devices/platform/pelarix-vhub/usb1/" + device.busId, kPathBytes);
  PutText(bytes, device.busId, kBusIdBytes);
  PutBe32(bytes, kBusNumber);
  PutBe32(bytes, device.plugNo);
  PutBe32(bytes, device.speed);
  PutBe16(bytes, Little16(device.device, 8));   // idVendor
  PutBe16(bytes, Little16(device.device, 10));  // idProduct
  PutBe16(bytes, Little16(device.device, 12));  // bcdDevice
  bytes.insert(bytes.end(), device.device.begin() + 4, device.device.begin() + 7);
  bytes.push_back(device.config[5]);   // bConfigurationValue
  bytes.push_back(device.device[17]);  // bNumConfigurations
  bytes.push_back(static_cast<uint8_t>(interfaces.size()));
  if (withInterfaces) {
    for (const pelarix::demo::InterfaceLayout &layout : interfaces) {
      bytes.insert(bytes.end(), {layout.interfaceClass, layout.subClass, layout.protocol, 0});
    }
  }
  return bytes;
}

}  // namespace pelarix::usbip
