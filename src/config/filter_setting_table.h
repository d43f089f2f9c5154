// The 17 registry values that are filter strings, in the fixed order in which
// a session reads them and feeds them to its filter manager. Each value holds
// what follows the filter key, so the key is put in front of it on reading.
#pragma once

#include <cstddef>

namespace pelarix {

struct FilterSettingEntry {
  const char *valueName;  // registry value
  const char *prefix;     // filter key and ":"
};

inline constexpr size_t kFilterSettingCount = 17;

inline constexpr FilterSettingEntry kFilterSettings[kFilterSettingCount] = {
    {"SplitExcludeVidPid", "spexid:"},
    {"SplitVidPid", "spid:"},
    {"ExcludeVidPid", "exid:"},
    {"IncludeVidPid", "inid:"},
    {"ExcludeFamily", "exfa:"},
    {"IncludeFamily", "infa:"},
    {"ExcludeAllDevices", "exalldev:"},
    {"AllowHID", "usehid:"},
    {"AllowHIDBootable", "usehidboot:"},
    {"AllowKeyboardMouse", "usekeybmouse:"},
    {"AllowSmartcard", "usesc:"},
    {"AllowAudioOut", "useaout:"},
    {"AllowAudioIn", "useain:"},
    {"AllowVideo", "usevideo:"},
    {"AllowNic", "usenic:"},
    {"DisableDeviceSplitting", "blockdsplit:"},
    {"AllowAutoDeviceSplitting", "allowautodsplit:"},
};

// The place of ExcludeVidPid, which the legacy HardwareIDFilters value takes
// when none of the 17 is set.
inline constexpr size_t kExcludeVidPidSetting = 2;

}  // namespace pelarix
