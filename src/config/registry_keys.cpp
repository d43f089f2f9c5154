#include "config/registry_keys.h"

namespace pelarix {

platform::RegistryKey OpenSettingsKey(const char *path, uint32_t access) {
  platform::RegistryKey key = nullptr;
  if (platform::RegistryOpenKey(path, access, &key) != platform::kErrorSuccess) key = nullptr;
  return key;
}

void CloseSettingsKey(platform::RegistryKey key) {
  if (key != nullptr) platform::RegistryCloseKey(key);
}

}  // namespace pelarix
