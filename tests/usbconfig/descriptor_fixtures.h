// Descriptor sets for the tests: the files of tests/data (sysfs layout) and
// small sets built in place.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "ordo/usb/usb_device_config.h"

namespace ordo::usb::testing {

using Bytes = std::vector<uint8_t>;

// A sysfs `descriptors` file: the device descriptor and each set.
struct DeviceBlob {
  Bytes device;
  std::vector<Bytes> configurations;
};

Bytes ReadFile(const std::string &path);
DeviceBlob ReadDeviceBlob(const std::string &path);
std::string FixturePath(const std::string &name);     // tests/data/descriptors/<name>.bin
std::string RealDevicePath(const std::string &name);  // tests/data/realdesc/<name>.bin
std::vector<std::string> FixtureNames();
std::vector<std::string> RealDeviceNames();

// Adds every set the way the filter device record does: the index is the
// current count, the buffer is copied.
void LoadInto(UsbDeviceConfig &config, const DeviceBlob &blob);

// Builders for sets made in place.
Bytes DeviceDescriptor(uint8_t cls, uint8_t subcls, uint8_t proto, uint16_t vid = 0x1234,
                       uint16_t pid = 0x5678, uint8_t configurations = 1);
Bytes Interface(uint8_t number, uint8_t alternate, uint8_t endpoints, uint8_t cls,
                uint8_t subcls = 0, uint8_t proto = 0);
Bytes Endpoint(uint8_t address, uint8_t attributes = 0x02, uint16_t maxPacket = 64,
               uint8_t interval = 0);
Bytes Association(uint8_t first, uint8_t count, uint8_t cls, uint8_t subcls = 0, uint8_t proto = 0);
Bytes Union(std::initializer_list<uint8_t> numbers);
Bytes AudioEndpoint();
Bytes Cat(std::initializer_list<Bytes> parts);
// A configuration descriptor (value 1) in front of `body`, wTotalLength and
// bNumInterfaces as given or, by default, computed.
Bytes ConfigSet(const Bytes &body, int numInterfaces = -1, int totalLength = -1);

}  // namespace ordo::usb::testing
