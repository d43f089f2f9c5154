// The binary blacklist "noncdl": 11-byte records, each excluding one vendor
// and product (some product digits wildcards) on one system version or all.
#pragma once

#include <cstdint>

#include "config/session_settings.h"
#include "ordo/usb/filter_entry_points.h"

namespace pelarix {

inline constexpr uint32_t kBlacklistRecordBytes = 11;

// Feeds one "exid:m:vid-xxxx_pid-xxxx" string per record that applies to the
// running system. The records' numbers are turned from big-endian into host
// order in place, in every record, once per session.
void ApplyBlacklist(SessionSettings *settings, HDevFilterMgrAgent *manager);

}  // namespace pelarix
