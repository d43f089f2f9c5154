#include "config/registry_keys.h"

#include <cstdio>

namespace pelarix {

// "%.4x" prints what "%04.4x" does: with a precision the zero flag has
// nothing left to pad.
void FormatDevicePolicyKeyPath(char (&path)[kDeviceKeyPathBytes], uint16_t vendorId,
                               uint16_t productId) {
  std::snprintf(path, sizeof path,
                "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB\\Vid_%.4x&Pid_%.4x",
                vendorId, productId);
}

void FormatDeviceKeyPath(char (&path)[kDeviceKeyPathBytes], uint16_t vendorId, uint16_t productId) {
  std::snprintf(path, sizeof path,
                "Software\\Tessarin, Inc.\\Tessarin Halden\\USB\\Vid_%.4x&Pid_%.4x", vendorId,
                productId);
}

platform::RegistryKey OpenSettingsKey(const char *path, uint32_t access) {
  platform::RegistryKey key = nullptr;
  if (platform::RegistryOpenKey(path, access, &key) != platform::kErrorSuccess) {
    key = nullptr;
  }
  return key;
}

void CloseSettingsKey(platform::RegistryKey key) {
  if (key != nullptr) {
    platform::RegistryCloseKey(key);
  }
}

}  // namespace pelarix
