// Registry reads under HKEY_LOCAL_MACHINE with the ANSI functions, as the
// settings name their keys and values in narrow text. A RegistryKey is the
// HKEY itself.
#include <atomic>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

namespace {

std::atomic<RegistryOpenObserver> observerHook{nullptr};
std::atomic<void *> observerContext{nullptr};

HKEY KeyOf(RegistryKey key) {
  return reinterpret_cast<HKEY>(key);
}

}  // namespace

uint32_t RegistryOpenKey(const char *path, uint32_t access, RegistryKey *out) {
  *out = nullptr;
  HKEY key = nullptr;
  const uint32_t result =
      static_cast<uint32_t>(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, access, &key));
  if (result == kErrorSuccess) *out = reinterpret_cast<RegistryKey>(key);
  if (RegistryOpenObserver observer = observerHook.load()) {
    observer(observerContext.load(), path, access, result);
  }
  return result;
}

uint32_t RegistryQueryValue(RegistryKey key, const char *name, uint32_t *type, uint8_t *data,
                            uint32_t *size) {
  if (key == nullptr) return kErrorInvalidHandle;
  DWORD valueType = kRegNone;
  DWORD bytes = size != nullptr ? *size : 0;
  const auto result = static_cast<uint32_t>(RegQueryValueExA(
      KeyOf(key), name, nullptr, &valueType, data, size != nullptr ? &bytes : nullptr));
  if (type != nullptr) *type = valueType;
  if (size != nullptr) *size = bytes;
  return result;
}

void RegistryCloseKey(RegistryKey key) {
  if (key != nullptr) RegCloseKey(KeyOf(key));
}

void SetRegistryOpenObserver(RegistryOpenObserver observer, void *context) {
  observerContext.store(context);
  observerHook.store(observer);
}

}  // namespace pelarix::platform
