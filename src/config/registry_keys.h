// Where the settings live under HKEY_LOCAL_MACHINE, and how each key is
// opened. The masks differ on purpose: the general, device and default policy
// keys are read from the 64-bit view, the session and device policy keys with
// a plain read.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/platform.h"

namespace pelarix {

inline constexpr uint32_t kKeyRead = 0x20019;          // KEY_READ
inline constexpr uint32_t kKeyReadWow64Key = 0x20119;  // KEY_READ | KEY_WOW64_64KEY

// Session policy: under "Agent", a branch of its own that an administrator
// sets apart from the device and default policies.
inline constexpr const char *kSessionPolicyKeyPath =
    "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\Agent\\USB";
// Local values of the session and the device defaults.
inline constexpr const char *kGeneralKeyPath = "Software\\Tessarin, Inc.\\Tessarin Halden\\USB";
inline constexpr const char *kDefaultPolicyKeyPath =
    "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB\\";

// The paths of a device's own keys, "...\\USB\\Vid_%04.4x&Pid_%04.4x" under the
// policies and under the general key, with idVendor and idProduct in lower-
// case hexadecimal.
inline constexpr size_t kDeviceKeyPathBytes = 260;
void FormatDevicePolicyKeyPath(char (&path)[kDeviceKeyPathBytes], uint16_t vendorId,
                               uint16_t productId);
void FormatDeviceKeyPath(char (&path)[kDeviceKeyPathBytes], uint16_t vendorId, uint16_t productId);

// The key, or null if it will not open: a missing key is simply not asked.
platform::RegistryKey OpenSettingsKey(const char *path, uint32_t access);
// Tolerates null.
void CloseSettingsKey(platform::RegistryKey key);

}  // namespace pelarix
