#include "config/legacy_hardware_ids.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/settings_reader.h"
#include "frame/log.h"

namespace pelarix {
namespace {

constexpr const char *kLegacyValueName = "HardwareIDFilters";
constexpr size_t kLegacyTextBytes = 2048;
// "%.4x" is "%04.4x": with a precision the zero flag has nothing left to pad.

struct HardwareId {
  unsigned int vendor = 0;
  unsigned int product = 0;
};

// An entry must start with the words: anything in front of "vid_" leaves
// both numbers at 0. The entry is lower-cased in place.
HardwareId ScanHardwareId(char *entry) {
  for (char *c = entry; *c != '\0'; ++c) {
    *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
  }
  HardwareId id;
  std::sscanf(entry, "vid_%x&pid_%x", &id.vendor, &id.product);
  return id;
}

char *CopyText(const char *text, uint32_t *length) {
  const size_t bytes = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(std::calloc(bytes, 1));
  if (copy == nullptr) {
    return nullptr;
  }
  std::memcpy(copy, text, bytes);
  *length = static_cast<uint32_t>(bytes);
  return copy;
}

char *RewriteSingleId(char *raw, const char *prefix, const char *name, uint32_t *length) {
  const HardwareId id = ScanHardwareId(raw);
  if (id.vendor == 0 || id.product == 0) {
    return nullptr;
  }
  char text[kLegacyTextBytes];
  if (std::snprintf(text, sizeof text, "%svid-%.4x_pid-%.4x;", prefix, id.vendor, id.product) < 0) {
    LogMessage(kLogFailure, u"Failed to read configuration setting, value write error, name: %S",
               name);
    return nullptr;
  }
  return CopyText(text, length);
}

// Entries that do not scan are dropped, as is one that would not fit whole
// behind the others. No entry at all leaves the bare prefix, which the filter
// later refuses as an invalid value.
char *RewriteIdList(char *raw, uint32_t rawSize, const char *prefix, uint32_t *length) {
  char text[kLegacyTextBytes];
  int used = std::snprintf(text, sizeof text, "%s", prefix);
  if (used < 0 || static_cast<size_t>(used) >= sizeof text) {
    return nullptr;
  }
  const char *end = raw + rawSize;
  for (char *entry = raw; entry < end && *entry != '\0'; entry += std::strlen(entry) + 1) {
    const HardwareId id = ScanHardwareId(entry);
    if (id.vendor == 0 || id.product == 0) {
      continue;
    }
    const size_t room = sizeof text - static_cast<size_t>(used);
    const int added = std::snprintf(text + used, room, "vid-%.4x_pid-%.4x;", id.vendor, id.product);
    if (added < 0 || static_cast<size_t>(added) >= room) {
      text[used] = '\0';
      continue;
    }
    used += added;
  }
  return CopyText(text, length);
}

}  // namespace

char *ReadLegacyHardwareIds(platform::RegistryKey generalKey, const char *prefix, const char *name,
                            uint32_t *length) {
  uint32_t type = platform::kRegNone;
  uint32_t size = 0;
  *length = 0;
  if (platform::RegistryQueryValue(generalKey, kLegacyValueName, &type, nullptr, &size) !=
      platform::kErrorSuccess) {
    return nullptr;
  }
  if (type != platform::kRegSz && type != platform::kRegMultiSz) {
    LogMessage(kLogFailure,
               u"Failed to read configuration setting, value is not a string/multiple string, "
               u"name: %S",
               name);
    return nullptr;
  }
  auto *raw = reinterpret_cast<char *>(
      ReadValueBehindPrefix(generalKey, kLegacyValueName, "", size,
                            u"Failed to read configuration setting, name: HardwareIDFilters"));
  if (raw == nullptr) {
    return nullptr;
  }
  char *text = type == platform::kRegSz ? RewriteSingleId(raw, prefix, name, length)
                                        : RewriteIdList(raw, size, prefix, length);
  if (text != nullptr) {
    LogMessage(kLogSettings, u"Effectice configuration setting (from legacy), name: %S, value: %S",
               name, text);
  }
  std::free(raw);
  return text;
}

}  // namespace pelarix
