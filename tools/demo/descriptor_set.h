// A USB device as its descriptors describe it: the device descriptor and
// every configuration set, read from a file in the layout of Linux's sysfs
// `descriptors` attribute, and the interfaces and endpoints of a
// configuration set, walked with every length checked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pelarix::demo {

struct DescriptorSet {
  std::string name;                           // the file's name without its extension
  std::vector<uint8_t> device;                // 18 bytes
  std::vector<std::vector<uint8_t>> configs;  // wTotalLength bytes each

  uint16_t VendorId() const { return static_cast<uint16_t>(device[8] | device[9] << 8); }
  uint16_t ProductId() const { return static_cast<uint16_t>(device[10] | device[11] << 8); }
};

// The set in this file, or nothing with *error set when the file cannot be
// read or holds no whole device descriptor and first configuration.
std::optional<DescriptorSet> ReadDescriptorFile(const std::string &path, std::string *error);

struct EndpointLayout {
  uint8_t address = 0;
  uint8_t attributes = 0;
  uint16_t maxPacketSize = 0;
  uint8_t interval = 0;
};

struct InterfaceLayout {
  uint8_t number = 0;
  uint8_t alternate = 0;
  uint8_t interfaceClass = 0;
  uint8_t subClass = 0;
  uint8_t protocol = 0;
  uint8_t stringIndex = 0;
  std::vector<EndpointLayout> endpoints;
};

inline constexpr uint8_t kBulkEndpoint = 2;
inline constexpr uint8_t kInterruptEndpoint = 3;

// The interfaces the demo's class functions serve: a bulk-only mass-storage
// interface, and a HID boot keyboard.
bool IsBulkOnlyStorage(const InterfaceLayout &interface);
bool IsBootKeyboard(const InterfaceLayout &interface);
// The address of the interface's first endpoint of this transfer type and
// direction, 0 when it has none.
uint8_t FindEndpoint(const InterfaceLayout &interface, uint8_t transferType, bool in);

// Every interface descriptor of the set (alternate settings included) with
// the endpoint descriptors behind it, in order. A descriptor whose length is
// below 2 or runs past the set ends the walk.
std::vector<InterfaceLayout> WalkInterfaces(const std::vector<uint8_t> &config);

// The set cut down to the given interface numbers (all their alternate
// settings and class descriptors): what a client offers when it forwards a
// composite device split. wTotalLength and bNumInterfaces are rewritten.
std::vector<uint8_t> KeepInterfaces(const std::vector<uint8_t> &config,
                                    const std::vector<uint8_t> &numbers);

}  // namespace pelarix::demo
