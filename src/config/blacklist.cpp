#include "config/blacklist.h"

#include <cstdio>
#include <cstring>

#include "frame/log.h"
#include "platform/platform.h"

namespace pelarix {
namespace {

constexpr size_t kOsMajorOffset = 1;
constexpr size_t kOsMinorOffset = 2;
constexpr size_t kVendorOffset = 3;
constexpr size_t kProductOffset = 5;
constexpr size_t kWildcardOffset = 7;
constexpr size_t kEntryBytes = 50;
// Where the product number's four digits stand in "exid:m:vid-xxxx_pid-xxxx".
constexpr size_t kProductDigitsOffset = 20;

// A big-endian field of size bytes turned, in place, into host order.
template <typename T>
T SwapToHostOrder(uint8_t *field) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>((value << 8) | field[i]);
  }
  std::memcpy(field, &value, sizeof(T));
  return value;
}

struct BlacklistRecord {
  uint8_t osMajor;
  uint8_t osMinor;
  uint16_t vendorId;
  uint16_t productId;
  uint32_t wildcardMask;
};

BlacklistRecord SwapRecord(uint8_t *bytes) {
  BlacklistRecord record{};
  record.osMajor = bytes[kOsMajorOffset];
  record.osMinor = bytes[kOsMinorOffset];
  record.vendorId = SwapToHostOrder<uint16_t>(bytes + kVendorOffset);
  record.productId = SwapToHostOrder<uint16_t>(bytes + kProductOffset);
  record.wildcardMask = SwapToHostOrder<uint32_t>(bytes + kWildcardOffset);
  return record;
}

// Both versions 0: every system.
bool AppliesTo(const BlacklistRecord &record, uint32_t major, uint32_t minor) {
  if (record.osMajor == 0 && record.osMinor == 0) {
    return true;
  }
  return record.osMajor == major && record.osMinor == minor;
}

void AddBlacklistEntry(const BlacklistRecord &record, uint32_t index, HDevFilterMgrAgent *manager) {
  char entry[kEntryBytes];
  // "%.4x" prints what "%04.4x" does: with a precision the zero flag has
  // nothing left to pad.
  const int length = std::snprintf(entry, sizeof entry, "%svid-%.4x_pid-%.4x",
                                   "exid:m:", record.vendorId, record.productId);
  if (length < 0) {
    LogMessage(kLogFailure, u"Failed to add blacklist entry, index: %d", index);
    return;
  }
  for (size_t digit = 0; digit < 4; ++digit) {
    if ((record.wildcardMask & (1u << digit)) != 0) {
      entry[kProductDigitsOffset + digit] = '*';
    }
  }
  ordo::usb::AddFilterString(manager, entry, static_cast<uint32_t>(length) + 1);
  LogMessage(kLogSettings, u"Added blacklist entry to exclude vid/pid, value: %S", entry);
}

}  // namespace

void ApplyBlacklist(SessionSettings *settings, HDevFilterMgrAgent *manager) {
  if (settings->noncdl == nullptr) {
    return;
  }
  if (settings->noncdlLength % kBlacklistRecordBytes != 0) {
    LogMessage(kLogFailure, u"Failed to set blacklist, length mismatch");
    return;
  }
  uint32_t major = 0;
  uint32_t minor = 0;
  platform::GetSystemVersion(&major, &minor);
  const uint32_t count = settings->noncdlLength / kBlacklistRecordBytes;
  for (uint32_t index = 0; index < count; ++index) {
    const BlacklistRecord record =
        SwapRecord(settings->noncdl + static_cast<size_t>(index) * kBlacklistRecordBytes);
    if (AppliesTo(record, major, minor)) {
      AddBlacklistEntry(record, index, manager);
    }
  }
}

}  // namespace pelarix
