#include "device_input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace pelarix::tools {
namespace {

constexpr size_t kDeviceLength = 18;
constexpr size_t kConfigHeaderLength = 9;
constexpr uint32_t kMaxPathDepth = 7;

uint16_t Word(const std::vector<uint8_t> &bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

// The configuration sets back to back behind the device descriptor; an
// error text for the first that doesn't stand whole in the file.
std::string CountSets(DeviceInput &input) {
  size_t at = kDeviceLength;
  while (at < input.bytes.size()) {
    if (input.bytes.size() - at < kConfigHeaderLength) {
      return "configuration " + std::to_string(input.configCount) + " is cut short";
    }
    const size_t total = Word(input.bytes, at + 2);
    if (input.bytes[at + 1] != 2 || total < kConfigHeaderLength) {
      return "configuration " + std::to_string(input.configCount) + " is not a configuration set";
    }
    if (total > input.bytes.size() - at) {
      return "configuration " + std::to_string(input.configCount) +
             " claims more bytes than the file holds";
    }
    at += total;
    ++input.configCount;
  }
  return "";
}

std::string CheckDevice(DeviceInput &input) {
  if (input.bytes.size() < kDeviceLength) {
    return "shorter than a device descriptor";
  }
  if (input.bytes[0] != kDeviceLength || input.bytes[1] != 1) {
    return "does not begin with a device descriptor";
  }
  return CountSets(input);
}

bool ReadWhole(const std::string &file, std::vector<uint8_t> &bytes) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    return false;
  }
  bytes.assign(std::istreambuf_iterator<char>(in), {});
  return !in.bad();
}

std::string ReadLine(const std::filesystem::path &file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

}  // namespace

DeviceInput ReadDeviceFile(const std::string &file) {
  DeviceInput input;
  input.name = file;
  std::error_code error;
  if (std::filesystem::is_directory(file, error) || !ReadWhole(file, input.bytes)) {
    input.unreadable = true;
    input.error = "cannot be read";
    return input;
  }
  input.error = CheckDevice(input);
  return input;
}

std::optional<uint32_t> PathWordOf(uint32_t bus, const std::string &ports) {
  std::vector<uint32_t> levels{bus};
  std::stringstream chain(ports);
  for (std::string port; std::getline(chain, port, '.');) {
    if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos ||
        port.size() > 2) {
      return std::nullopt;
    }
    levels.push_back(static_cast<uint32_t>(std::stoul(port)));
  }
  if (levels.size() > kMaxPathDepth) {
    return std::nullopt;
  }
  uint32_t word = static_cast<uint32_t>(levels.size());
  for (size_t level = 0; level < levels.size(); ++level) {
    if (levels[level] > 0xF) {
      return std::nullopt;
    }
    word |= levels[level] << (4 * (level + 1));
  }
  return word;
}

std::vector<DeviceInput> ReadSysfsDevices(const std::string &root) {
  std::vector<std::filesystem::path> entries;
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator(root, error)) {
    const std::string name = entry.path().filename().string();
    if (name.find(':') == std::string::npos &&
        std::filesystem::exists(entry.path() / "descriptors", error)) {
      entries.push_back(entry.path());
    }
  }
  std::sort(entries.begin(), entries.end());
  std::vector<DeviceInput> devices;
  for (const std::filesystem::path &entry : entries) {
    DeviceInput input = ReadDeviceFile((entry / "descriptors").string());
    const std::string name = entry.filename().string();
    input.name = name;
    const size_t dash = name.find('-');
    const std::string bus = ReadLine(entry / "busnum");
    if (dash != std::string::npos && !bus.empty() &&
        bus.find_first_not_of("0123456789") == std::string::npos && bus.size() < 4) {
      input.path = PathWordOf(static_cast<uint32_t>(std::stoul(bus)), name.substr(dash + 1));
    }
    devices.push_back(std::move(input));
  }
  return devices;
}

}  // namespace pelarix::tools
