#include "descriptor_set.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace pelarix::demo {

namespace {

constexpr size_t kDeviceDescriptorBytes = 18;
constexpr size_t kConfigHeaderBytes = 9;
constexpr uint8_t kInterfaceType = 4;
constexpr uint8_t kEndpointType = 5;
constexpr uint8_t kAssociationType = 11;

constexpr uint8_t kMassStorageClass = 0x08;
constexpr uint8_t kBulkOnlyProtocol = 0x50;
constexpr uint8_t kHidClass = 0x03;
constexpr uint8_t kBootSubClass = 0x01;
constexpr uint8_t kKeyboardProtocol = 0x01;
constexpr uint8_t kTransferTypeMask = 0x03;
constexpr uint8_t kEndpointIn = 0x80;

uint16_t Le16(const uint8_t *bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

std::string BaseName(const std::string &path) {
  std::string name = path.substr(path.find_last_of('/') + 1);
  return name.substr(0, name.find_last_of('.'));
}

// Calls visit(offset, length, type) for each descriptor of the set, as far
// as the lengths hold.
template <typename Visit>
void WalkDescriptors(const std::vector<uint8_t> &config, Visit visit) {
  size_t at = 0;
  while (at + 2 <= config.size()) {
    const size_t length = config[at];
    if (length < 2 || at + length > config.size()) {
      return;
    }
    visit(at, length, config[at + 1]);
    at += length;
  }
}

}  // namespace

std::optional<DescriptorSet> ReadDescriptorFile(const std::string &path, std::string *error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    *error = path + ": cannot be read";
    return std::nullopt;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                             std::istreambuf_iterator<char>());
  if (bytes.size() < kDeviceDescriptorBytes + kConfigHeaderBytes) {
    *error = path + ": no device descriptor and configuration";
    return std::nullopt;
  }
  DescriptorSet set;
  set.name = BaseName(path);
  set.device.assign(bytes.begin(), bytes.begin() + kDeviceDescriptorBytes);
  size_t at = kDeviceDescriptorBytes;
  while (at + kConfigHeaderBytes <= bytes.size()) {
    const size_t total = Le16(&bytes[at + 2]);
    if (total < kConfigHeaderBytes || at + total > bytes.size()) {
      break;
    }
    set.configs.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             bytes.begin() + static_cast<std::ptrdiff_t>(at + total));
    at += total;
  }
  if (set.configs.empty()) {
    *error = path + ": the first configuration set is not whole";
    return std::nullopt;
  }
  return set;
}

bool IsBulkOnlyStorage(const InterfaceLayout &interface) {
  return interface.interfaceClass == kMassStorageClass && interface.protocol == kBulkOnlyProtocol;
}

bool IsBootKeyboard(const InterfaceLayout &interface) {
  return interface.interfaceClass == kHidClass && interface.subClass == kBootSubClass &&
         interface.protocol == kKeyboardProtocol;
}

uint8_t FindEndpoint(const InterfaceLayout &interface, uint8_t transferType, bool in) {
  for (const EndpointLayout &endpoint : interface.endpoints) {
    if ((endpoint.attributes & kTransferTypeMask) == transferType &&
        ((endpoint.address & kEndpointIn) != 0) == in) {
      return endpoint.address;
    }
  }
  return 0;
}

std::vector<InterfaceLayout> WalkInterfaces(const std::vector<uint8_t> &config) {
  std::vector<InterfaceLayout> interfaces;
  WalkDescriptors(config, [&](size_t at, size_t length, uint8_t type) {
    if (type == kInterfaceType && length >= 9) {
      InterfaceLayout layout;
      layout.number = config[at + 2];
      layout.alternate = config[at + 3];
      layout.interfaceClass = config[at + 5];
      layout.subClass = config[at + 6];
      layout.protocol = config[at + 7];
      layout.stringIndex = config[at + 8];
      interfaces.push_back(layout);
    } else if (type == kEndpointType && length >= 7 && !interfaces.empty()) {
      interfaces.back().endpoints.push_back(
          {config[at + 2], config[at + 3], Le16(&config[at + 4]), config[at + 6]});
    }
  });
  return interfaces;
}

std::vector<uint8_t> KeepInterfaces(const std::vector<uint8_t> &config,
                                    const std::vector<uint8_t> &numbers) {
  std::vector<uint8_t> kept(config.begin(), config.begin() + kConfigHeaderBytes);
  bool keeping = true;  // what precedes the first interface belongs to the configuration
  WalkDescriptors(config, [&](size_t at, size_t length, uint8_t type) {
    if (at == 0) {
      return;
    }
    // An association goes with the interface it starts from: its first
    // interface's number is its third byte, as an interface's own number is.
    const bool startsInterface =
        (type == kInterfaceType && length >= 9) || (type == kAssociationType && length >= 3);
    if (startsInterface) {
      keeping = std::find(numbers.begin(), numbers.end(), config[at + 2]) != numbers.end();
    }
    if (keeping) {
      kept.insert(kept.end(), config.begin() + static_cast<std::ptrdiff_t>(at),
                  config.begin() + static_cast<std::ptrdiff_t>(at + length));
    }
  });
  kept[2] = static_cast<uint8_t>(kept.size());
  kept[3] = static_cast<uint8_t>(kept.size() >> 8);
  kept[4] = static_cast<uint8_t>(numbers.size());
  return kept;
}

}  // namespace pelarix::demo
