#include "config/device_settings.h"

#include "config/registry_keys.h"
#include "config/settings_reader.h"
#include "frame/log.h"

namespace pelarix {
namespace {

using platform::RegistryKey;

constexpr uint32_t kNoBound = 0xFFFFFFFF;

// The four keys a device's settings come from; a key that will not open is
// null and not asked.
struct DeviceKeys {
  RegistryKey devicePolicy;
  RegistryKey device;
  RegistryKey defaultPolicy;
  RegistryKey general;
};

DeviceKeys OpenDeviceKeys(const uint8_t *deviceDesc) {
  const auto vendorId = static_cast<uint16_t>(deviceDesc[8] | (deviceDesc[9] << 8));
  const auto productId = static_cast<uint16_t>(deviceDesc[10] | (deviceDesc[11] << 8));
  char devicePolicyPath[kDeviceKeyPathBytes];
  char devicePath[kDeviceKeyPathBytes];
  FormatDevicePolicyKeyPath(devicePolicyPath, vendorId, productId);
  FormatDeviceKeyPath(devicePath, vendorId, productId);
  DeviceKeys keys{};
  keys.devicePolicy = OpenSettingsKey(devicePolicyPath, kKeyRead);
  keys.device = OpenSettingsKey(devicePath, kKeyReadWow64Key);
  keys.defaultPolicy = OpenSettingsKey(kDefaultPolicyKeyPath, kKeyReadWow64Key);
  keys.general = OpenSettingsKey(kGeneralKeyPath, kKeyReadWow64Key);
  return keys;
}

void CloseDeviceKeys(const DeviceKeys &keys) {
  CloseSettingsKey(keys.devicePolicy);
  CloseSettingsKey(keys.device);
  CloseSettingsKey(keys.defaultPolicy);
  CloseSettingsKey(keys.general);
}

// A device's own delay of 0 counts as unset: a device cannot turn a default
// delay off.
uint32_t ReadPluginDelayMs(const DeviceKeys &keys) {
  uint32_t seconds =
      ReadDwordSetting(keys.devicePolicy, keys.device, 0, 0, kNoBound, nullptr, "PluginDelay");
  if (seconds == 0) {
    seconds = ReadDwordSetting(keys.defaultPolicy, keys.general, 0, 0, kNoBound, nullptr,
                               "DefaultPluginDelay");
  }
  return seconds * 1000u;
}

// The device's own value (0 included), else the audio-out default for a
// device with audio-out among the interfaces the filter left allowed, else
// the general default.
uint32_t ReadDeviceFlags(const DeviceKeys &keys, HDevFilterMgrAgent *filterManager,
                         const uint8_t *deviceDesc, const uint8_t *configDesc, const void *device) {
  uint32_t found = 0;
  uint32_t flags =
      ReadDwordSetting(keys.devicePolicy, keys.device, 0, 0, kNoBound, &found, "DeviceFlags");
  if (found != 0) {
    return flags;
  }
  ordo::usb::DevFamily *family = nullptr;
  if (!ordo::usb::GetDeviceFamilyInfo(filterManager, deviceDesc, configDesc, &family)) {
    LogMessage(kLogFailure, u"Failed to get family info, device: %p", device);
  } else if (ordo::usb::IsAudioFamily(family, ordo::usb::kAudioOut)) {
    flags = ReadDwordSetting(keys.defaultPolicy, keys.general, 0, 0, kNoBound, &found,
                             "AudioOutDeviceFlags");
    if (found != 0) {
      LogMessage(kLogLifecycle, u"Using AudioOutDeviceFlags for device: %p", device);
    }
  }
  if (found == 0) {
    flags = ReadDwordSetting(keys.defaultPolicy, keys.general, 0, 0, kNoBound, nullptr,
                             "DefaultDeviceFlags");
  }
  ordo::usb::FreeDeviceFamilyInfo(family);
  return flags;
}

}  // namespace

DeviceSettings ReadDeviceSettings(HDevFilterMgrAgent *filterManager, const uint8_t *deviceDesc,
                                  const uint8_t *configDesc, const void *device) {
  const DeviceKeys keys = OpenDeviceKeys(deviceDesc);
  DeviceSettings settings{};
  settings.pluginDelayMs = ReadPluginDelayMs(keys);
  settings.deviceFlags = ReadDeviceFlags(keys, filterManager, deviceDesc, configDesc, device);
  CloseDeviceKeys(keys);
  return settings;
}

}  // namespace pelarix
