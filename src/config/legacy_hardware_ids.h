// The older form of the exclusion list: "HardwareIDFilters", hardware
// identifiers such as "vid_1234&pid_5678" in a REG_SZ or REG_MULTI_SZ,
// rewritten as one modern filter string.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace pelarix {

// Reads HardwareIDFilters from the general key and gives prefix followed by
// "vid-xxxx_pid-xxxx;" for each entry that names both numbers, allocated with
// std::calloc, with *length counting its NUL. name is the modern setting the
// result stands for, used in the log lines. Null when the value is absent,
// unreadable, or (as a REG_SZ) names no device.
char *ReadLegacyHardwareIds(platform::RegistryKey generalKey, const char *prefix, const char *name,
                            uint32_t *length);

}  // namespace pelarix
