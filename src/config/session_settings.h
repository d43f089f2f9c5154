// The settings a session reads once at creation and keeps for its lifetime:
// the filter strings, the expected item length and the blacklist bytes. The
// record stands inside the zero-filled session record, so all-zero is its
// empty state.
#pragma once

#include <cstdint>

#include "config/filter_setting_table.h"

namespace pelarix {

// A filter string as the manager takes it: filter key prefix and value, and
// its length with the terminating NUL. A null text means absent.
struct SettingString {
  char *text;
  uint32_t length;
};

struct SessionSettings {
  SettingString filterStrings[kFilterSettingCount];  // in the order of kFilterSettings
  uint32_t expectedItemLength;                       // bytes (item retrieval)
  uint8_t *noncdl;                                   // blacklist records, or null
  uint32_t noncdlLength;
};

inline constexpr uint32_t kDefaultExpectedItemLength = 552;
inline constexpr uint32_t kMinExpectedItemLength = 40;
inline constexpr uint32_t kMaxExpectedItemLength = 65576;

// Fills all of settings from the session policy and general keys.
void ReadSessionSettings(SessionSettings *settings);

// Frees the strings and the blacklist bytes and leaves settings empty.
void FreeSessionSettings(SessionSettings *settings);

}  // namespace pelarix
