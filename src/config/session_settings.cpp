#include "config/session_settings.h"

#include <cstdlib>

#include "config/legacy_hardware_ids.h"
#include "config/registry_keys.h"
#include "config/settings_reader.h"

namespace pelarix {
namespace {

bool AllFilterStringsAbsent(const SessionSettings &settings) {
  for (const SettingString &setting : settings.filterStrings) {
    if (setting.text != nullptr) {
      return false;
    }
  }
  return true;
}

void ReadFilterStrings(platform::RegistryKey policy, platform::RegistryKey general,
                       SessionSettings *settings) {
  for (size_t i = 0; i < kFilterSettingCount; ++i) {
    SettingString &setting = settings->filterStrings[i];
    setting.text = ReadStringSetting(policy, general, kFilterSettings[i].prefix,
                                     kFilterSettings[i].valueName, &setting.length);
  }
  // The blacklist comes from the general key only, so a policy cannot set it.
  settings->noncdl = ReadBinarySetting(nullptr, general, "noncdl", &settings->noncdlLength);
  if (AllFilterStringsAbsent(*settings) && general != nullptr) {
    SettingString &legacy = settings->filterStrings[kExcludeVidPidSetting];
    legacy.text = ReadLegacyHardwareIds(general, "exid:m:", "ExcludeVidPid", &legacy.length);
  }
}

}  // namespace

void ReadSessionSettings(SessionSettings *settings) {
  *settings = SessionSettings{};
  platform::RegistryKey policy = OpenSettingsKey(kSessionPolicyKeyPath, kKeyRead);
  platform::RegistryKey general = OpenSettingsKey(kGeneralKeyPath, kKeyReadWow64Key);
  settings->expectedItemLength =
      ReadDwordSetting(policy, general, kDefaultExpectedItemLength, kMinExpectedItemLength,
                       kMaxExpectedItemLength, nullptr, "ExpectedItemLength");
  if (policy != nullptr || general != nullptr) {
    ReadFilterStrings(policy, general, settings);
  }
  CloseSettingsKey(policy);
  CloseSettingsKey(general);
}

void FreeSessionSettings(SessionSettings *settings) {
  for (SettingString &setting : settings->filterStrings) {
    std::free(setting.text);
  }
  std::free(settings->noncdl);
  *settings = SessionSettings{};
}

}  // namespace pelarix
