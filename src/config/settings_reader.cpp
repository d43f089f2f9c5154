#include "config/settings_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "frame/log.h"

namespace pelarix {
namespace {

using platform::RegistryKey;

// The lines of one key's role. The number reader reuses the string reader's
// wrong-type lines, "string" and all, as the administrator's tools know them.
struct KeyMessages {
  const char16_t *wrongType;
  const char16_t *readFailed;
};

constexpr KeyMessages kPolicyString{
    u"Failed to read policy configuration setting, value is not a string, name: %S",
    u"Failed to read policy configuration setting, name: %S"};
constexpr KeyMessages kLocalString{
    u"Failed to read configuration setting, value is not a string, name: %S",
    u"Failed to read configuration setting, name: %S"};
constexpr KeyMessages kPolicyBinary{
    u"Failed to read policy configuration setting, value is not binary, name: %S",
    kPolicyString.readFailed};
constexpr KeyMessages kLocalBinary{
    u"Failed to read configuration setting, value is not bibary, name: %S",
    kLocalString.readFailed};

// A number query offers 4 bytes. Whatever a successful query wrote stays in
// them, also for a value of another type; the bytes read as the little-endian
// number they hold. True if the value existed and decided the result.
bool QueryDword(RegistryKey key, const char *name, const char16_t *wrongType, uint8_t (&bytes)[4],
                uint32_t *found) {
  uint32_t type = platform::kRegNone;
  uint32_t size = sizeof bytes;
  if (platform::RegistryQueryValue(key, name, &type, bytes, &size) != platform::kErrorSuccess) {
    return false;
  }
  if (type == platform::kRegDword) {
    if (found != nullptr) {
      *found = 1;
    }
  } else {
    LogMessage(kLogFailure, wrongType, name);
  }
  return true;
}

enum class Presence { kAbsent, kWrongType, kPresent };

// The first look at a value in one key: absent (or no key), present with the
// expected type and its size, or present with another type, which is logged
// with wrongType.
Presence ProbeValue(RegistryKey key, const char *name, uint32_t expectedType,
                    const char16_t *wrongType, uint32_t *size) {
  uint32_t type = platform::kRegNone;
  if (key == nullptr ||
      platform::RegistryQueryValue(key, name, &type, nullptr, size) != platform::kErrorSuccess) {
    return Presence::kAbsent;
  }
  if (type != expectedType) {
    LogMessage(kLogFailure, wrongType, name);
    return Presence::kWrongType;
  }
  return Presence::kPresent;
}

// The string reader's work on one key. True if the value exists there, which
// ends the search whatever came of it.
bool ReadStringFrom(RegistryKey key, const char *prefix, const char *name,
                    const KeyMessages &messages, uint32_t *length, char **text) {
  uint32_t size = 0;
  const Presence presence = ProbeValue(key, name, platform::kRegSz, messages.wrongType, &size);
  if (presence != Presence::kPresent) {
    return presence == Presence::kWrongType;
  }
  *length = size + static_cast<uint32_t>(std::strlen(prefix));
  *text =
      reinterpret_cast<char *>(ReadValueBehindPrefix(key, name, prefix, size, messages.readFailed));
  return true;
}

// The binary reader's work on one key. True if the value exists there with
// at least one byte, or with another type; an empty value leaves the next key
// to be asked.
bool ReadBinaryFrom(RegistryKey key, const char *name, const KeyMessages &messages,
                    uint32_t *length, uint8_t **data) {
  uint32_t size = 0;
  const Presence presence = ProbeValue(key, name, platform::kRegBinary, messages.wrongType, &size);
  if (presence != Presence::kPresent) {
    return presence == Presence::kWrongType;
  }
  if (size == 0) {
    return false;
  }
  *length = size;
  *data = ReadValueBehindPrefix(key, name, "", size, messages.readFailed);
  return true;
}

}  // namespace

uint8_t *ReadValueBehindPrefix(platform::RegistryKey key, const char *name, const char *prefix,
                               uint32_t size, const char16_t *readFailed) {
  const size_t prefixLength = std::strlen(prefix);
  auto *block = static_cast<uint8_t *>(std::calloc(prefixLength + size + 1, 1));
  if (block == nullptr) {
    return nullptr;
  }
  std::copy_n(prefix, prefixLength, block);
  uint32_t type = platform::kRegNone;
  uint32_t read = size;
  if (platform::RegistryQueryValue(key, name, &type, block + prefixLength, &read) !=
      platform::kErrorSuccess) {
    std::free(block);
    LogMessage(kLogFailure, readFailed, name);
    return nullptr;
  }
  return block;
}

uint32_t ReadDwordSetting(RegistryKey policyKey, RegistryKey localKey, uint32_t defaultValue,
                          uint32_t minimum, uint32_t maximum, uint32_t *found, const char *name) {
  uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) {
    bytes[i] = static_cast<uint8_t>(defaultValue >> (8 * i));
  }
  if (found != nullptr) {
    *found = 0;
  }
  const bool decided =
      policyKey != nullptr && QueryDword(policyKey, name, kPolicyString.wrongType, bytes, found);
  if (!decided && localKey != nullptr) {
    QueryDword(localKey, name, kLocalString.wrongType, bytes, found);
  }
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
  }
  if (value < minimum) {
    value = minimum;
  }
  if (value > maximum) {
    value = maximum;
  }
  LogMessage(kLogSettings, u"Effective configuration setting, name: %S, value: %d", name, value);
  return value;
}

char *ReadStringSetting(RegistryKey policyKey, RegistryKey localKey, const char *prefix,
                        const char *name, uint32_t *length) {
  char *text = nullptr;
  *length = 0;
  if (!ReadStringFrom(policyKey, prefix, name, kPolicyString, length, &text)) {
    ReadStringFrom(localKey, prefix, name, kLocalString, length, &text);
  }
  if (text != nullptr) {
    LogMessage(kLogSettings, u"Effectice configuration setting, name: %S, value: %S", name, text);
  }
  return text;
}

uint8_t *ReadBinarySetting(RegistryKey policyKey, RegistryKey localKey, const char *name,
                           uint32_t *length) {
  uint8_t *data = nullptr;
  *length = 0;
  if (!ReadBinaryFrom(policyKey, name, kPolicyBinary, length, &data)) {
    ReadBinaryFrom(localKey, name, kLocalBinary, length, &data);
  }
  return data;
}

}  // namespace pelarix
