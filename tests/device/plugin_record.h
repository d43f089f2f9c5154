// The plug-in record a test expects, written out field by field.
#pragma once

#include <cstdint>
#include <vector>

namespace pelarix::testing {

inline void PutU32(std::vector<uint8_t> &bytes, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
}

struct ExpectedPlugin {
  uint32_t plugNo = 1;
  uint32_t clientVersion = 4;
  uint8_t partial = 0;  // as the hub must see it: 0 or 1
  uint32_t deviceFlags = 0;
  uint32_t plugParams[3] = {0xFFFFFFFF, 0, 0};
  std::vector<uint8_t> device;
  std::vector<uint8_t> config;
  std::vector<uint8_t> store;
};

inline std::vector<uint8_t> PluginRecordBytes(const ExpectedPlugin &expected) {
  std::vector<uint8_t> bytes;
  PutU32(bytes, expected.plugNo);
  PutU32(bytes, expected.clientVersion);
  bytes.push_back(expected.partial);
  bytes.push_back(1);  // the constant byte
  bytes.insert(bytes.end(), 2, 0);
  PutU32(bytes, expected.deviceFlags);
  bytes.insert(bytes.end(), 8, 0);
  for (uint32_t param : expected.plugParams) PutU32(bytes, param);
  bytes.insert(bytes.end(), 4, 0);
  PutU32(bytes, static_cast<uint32_t>(expected.device.size() + expected.config.size() +
                                      expected.store.size()));
  bytes.insert(bytes.end(), expected.device.begin(), expected.device.end());
  bytes.insert(bytes.end(), expected.config.begin(), expected.config.end());
  bytes.insert(bytes.end(), expected.store.begin(), expected.store.end());
  bytes.insert(bytes.end(), 3, 0);
  return bytes;
}

// A store blob of these entries (index, language, descriptor).
struct StoreEntry {
  uint8_t index;
  uint16_t language;
  std::vector<uint8_t> descriptor;
};

inline std::vector<uint8_t> StoreBytes(const std::vector<StoreEntry> &entries) {
  std::vector<uint8_t> body;
  for (const StoreEntry &entry : entries) {
    PutU32(body, static_cast<uint32_t>(7 + entry.descriptor.size()));
    body.push_back(entry.index);
    body.push_back(static_cast<uint8_t>(entry.language));
    body.push_back(static_cast<uint8_t>(entry.language >> 8));
    body.insert(body.end(), entry.descriptor.begin(), entry.descriptor.end());
  }
  std::vector<uint8_t> bytes = {0x71, 0x72, 0x73, 0x74};
  PutU32(bytes, static_cast<uint32_t>(12 + body.size()));
  PutU32(bytes, static_cast<uint32_t>(entries.size()));
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

}  // namespace pelarix::testing
