#include "descriptor_fixtures.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace ordo::usb::testing {
namespace {

std::vector<std::string> BinNames(const std::string &directory) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".bin") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void AppendWord(Bytes &bytes, uint16_t value) {
  bytes.push_back(static_cast<uint8_t>(value));
  bytes.push_back(static_cast<uint8_t>(value >> 8));
}

}  // namespace

Bytes ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

DeviceBlob ReadDeviceBlob(const std::string &path) {
  const Bytes all = ReadFile(path);
  DeviceBlob blob;
  if (all.size() < 18) return blob;
  blob.device.assign(all.begin(), all.begin() + 18);
  size_t at = 18;
  while (at + 4 <= all.size()) {
    const size_t total = all[at + 2] | (all[at + 3] << 8);
    if (total < 4 || at + total > all.size()) break;
    blob.configurations.emplace_back(all.begin() + static_cast<long>(at),
                                     all.begin() + static_cast<long>(at + total));
    at += total;
  }
  return blob;
}

std::string FixturePath(const std::string &name) {
  return std::string(PELARIX_TEST_DATA_DIR) + "/descriptors/" + name + ".bin";
}

std::string RealDevicePath(const std::string &name) {
  return std::string(PELARIX_TEST_DATA_DIR) + "/realdesc/" + name + ".bin";
}

std::vector<std::string> FixtureNames() {
  return BinNames(std::string(PELARIX_TEST_DATA_DIR) + "/descriptors");
}

std::vector<std::string> RealDeviceNames() {
  return BinNames(std::string(PELARIX_TEST_DATA_DIR) + "/realdesc");
}

void LoadInto(UsbDeviceConfig &config, const DeviceBlob &blob) {
  config.SetDeviceDescriptor(blob.device.data());
  for (const Bytes &set : blob.configurations) {
    config.AddConfigDescriptor(static_cast<uint32_t>(config.GetConfigurationCount()), set.data(),
                               false);
  }
}

Bytes DeviceDescriptor(uint8_t cls, uint8_t subcls, uint8_t proto, uint16_t vid, uint16_t pid,
                       uint8_t configurations) {
  Bytes d = {18, 0x01, 0x00, 0x02, cls, subcls, proto, 64};
  AppendWord(d, vid);
  AppendWord(d, pid);
  d.insert(d.end(), {0x00, 0x01, 1, 2, 0, configurations});
  return d;
}

Bytes Interface(uint8_t number, uint8_t alternate, uint8_t endpoints, uint8_t cls, uint8_t subcls,
                uint8_t proto) {
  return {9, 0x04, number, alternate, endpoints, cls, subcls, proto, 0};
}

Bytes Endpoint(uint8_t address, uint8_t attributes, uint16_t maxPacket, uint8_t interval) {
  Bytes d = {7, 0x05, address, attributes};
  AppendWord(d, maxPacket);
  d.push_back(interval);
  return d;
}

Bytes Association(uint8_t first, uint8_t count, uint8_t cls, uint8_t subcls, uint8_t proto) {
  return {8, 0x0B, first, count, cls, subcls, proto, 0};
}

Bytes Union(std::initializer_list<uint8_t> numbers) {
  Bytes d = {static_cast<uint8_t>(3 + numbers.size()), 0x24, 0x06};
  d.insert(d.end(), numbers);
  return d;
}

Bytes AudioEndpoint() {
  return {7, 0x25, 0x01, 0x01, 0x00, 0x00, 0x00};
}

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes &part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes ConfigSet(const Bytes &body, int numInterfaces, int totalLength) {
  if (numInterfaces < 0) {
    std::set<uint8_t> numbers;
    for (size_t at = 0; at + 2 < body.size() && body[at] != 0; at += body[at]) {
      if (body[at + 1] == 0x04) numbers.insert(body[at + 2]);
    }
    numInterfaces = static_cast<int>(numbers.size());
  }
  const uint16_t total = static_cast<uint16_t>(totalLength < 0 ? 9 + body.size() : totalLength);
  Bytes set = {9, 0x02};
  AppendWord(set, total);
  set.insert(set.end(), {static_cast<uint8_t>(numInterfaces), 1, 0, 0x80, 50});
  set.insert(set.end(), body.begin(), body.end());
  return set;
}

}  // namespace ordo::usb::testing
