// Phases 1(a) and 1(b): the decisions on single interfaces that split a
// composite device, some of its interfaces forwarded and the others kept.
#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include "filter/comma_list.h"
#include "ordo/usb/auto_filter.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

constexpr const char *kExcludeFamilyReason = "SplitPref: ExcludeFamily";
constexpr const char *kIncludeFamilyReason = "SplitPref: IncludeFamily";
constexpr const char *kAutoFilterReason = "SplitPref: AutoFilter";

// An interface number as strtol reads it: "01" is 1, a text without digits
// 0. A number beyond the range of an interface index is held at its edge,
// where it names no interface, instead of wrapping round to one.
int32_t InterfaceNumberOf(const std::string &text) {
  const long value = std::strtol(text.c_str(), nullptr, 10);
  if (value > INT32_MAX) {
    return INT32_MAX;
  }
  if (value < INT32_MIN) {
    return INT32_MIN;
  }
  return static_cast<int32_t>(value);
}

std::string InterfaceLine(const char *front, int32_t interface,
                          const std::vector<std::string> &names) {
  return std::string(front) + std::to_string(interface) + ". Family(s): " + CommaList(names);
}

// What 1(b) remembers of the first audio interface decided: every audio
// interface of the device then goes the same way.
struct AudioPreference {
  bool excluded = false;
  bool included = false;
  bool automatic = false;
  uint32_t code = FilterTypeNone;
  std::string reason;

  void Remember(bool &flag, uint32_t decidingCode, const char *decidingReason) {
    flag = true;
    code = decidingCode;
    reason = decidingReason;
  }
};

// Pass one: exfa before infa on each interface, each with its group.
void DecideByFamilySettings(const FilterSettings &settings, const DevFilterDevice &device,
                            DevFilterResult &result, AudioPreference &audio) {
  const int32_t count = device.GetInterfaceCount();
  for (int32_t i = 0; i < count; ++i) {
    const DevFamily family = device.GetInterfaceFamily(static_cast<uint32_t>(i));
    const bool isAudio = CountAudioFamily(family) != 0;
    std::vector<std::string> names;
    const int32_t outcome = settings.evaluateFamilySet(family, &names);
    if (outcome == FilterEvalExcluded &&
        result.BlockInterface(device, i, FilterTypeExfa, kExcludeFamilyReason, true)) {
      DevFltrLog(2, InterfaceLine("[Combined] Blocked by ExcludeFamily setting. Interface num: ", i,
                                  names));
      if (!audio.excluded && isAudio) {
        audio.Remember(audio.excluded, FilterTypeExfa, kExcludeFamilyReason);
      }
    } else if (outcome == FilterEvalIncluded &&
               result.AllowInterface(device, i, FilterTypeInfa, kIncludeFamilyReason, true)) {
      DevFltrLog(2, InterfaceLine("[Combined] Allowed by IncludeFamily setting. Interface num: ", i,
                                  names));
      if (!audio.included && isAudio) {
        audio.Remember(audio.included, FilterTypeInfa, kIncludeFamilyReason);
      }
    }
  }
}

// Pass two: AutoFilter on every interface, also those pass one decided; a
// conflicting attempt leaves the first decision standing.
void DecideByAutoFilter(const FilterSettings &settings, const DevFilterDevice &device,
                        DevFilterResult &result, AudioPreference &audio) {
  const DevFamily deviceFamily = device.GetDeviceFamily();
  const int32_t count = device.GetInterfaceCount();
  for (int32_t i = 0; i < count; ++i) {
    const DevFamily family = device.GetInterfaceFamily(static_cast<uint32_t>(i));
    std::vector<std::string> names;
    std::vector<uint32_t> keys;
    if (!AutoFilter(settings, family, deviceFamily, names, keys)) {
      continue;
    }
    const uint32_t keyCode = keys.empty() ? FilterTypeNone : keys.front();
    if (result.BlockInterface(device, i, keyCode, kAutoFilterReason, true)) {
      DevFltrLog(2, InterfaceLine("[Combined] Blocked by AutoFilter. Interface num: ", i, names));
      if (!audio.automatic && CountAudioFamily(family) != 0) {
        audio.Remember(audio.automatic, keyCode, kAutoFilterReason);
      }
    }
  }
}

}  // namespace

bool RunSplitRulesPhase(const FilterSettings &settings, const DevFilterDevice &device,
                        DevFilterResult &result) {
  const std::string id = device.GetIdString();
  if (settings.isSplitExcluded(id)) {
    if (result.DisableSplitting()) {
      DevFltrLog(2, "[Combined] Device splitting blocked by 'SplitExcludeVidPid'");
    }
    return true;
  }
  const std::vector<FltValue> *values = settings.list().valuesOf(FilterTypeSpid);
  if (values == nullptr) {
    return false;
  }
  std::vector<FltSplitRule> rules;
  for (const FltValue &value : *values) {
    if (value.isValid()) {
      value.findSplitRules(id, rules);
    }
  }
  if (rules.empty()) {
    return false;
  }
  ApplySplitRules(device, rules, result, FilterTypeSpid);
  return true;
}

void ApplySplitRules(const DevFilterDevice &device, const std::vector<FltSplitRule> &rules,
                     DevFilterResult &result, uint32_t code) {
  const std::string setting =
      code == FilterTypeSpid ? "SplitSetting: SplitVidPid" : "SplitSetting: Unknown";
  for (const FltSplitRule &rule : rules) {
    for (const std::string &text : rule.interfaces) {
      const int32_t n = InterfaceNumberOf(text);
      if (result.BlockInterface(device, n, code, setting + "(ExIntf)", false)) {
        DevFltrLog(2, "[Combined] Blocked by " + setting + "(" + "exintf" +
                          ") setting. Interface num: " + std::to_string(n));
      }
    }
  }
}

// The audio interfaces of one device are not meant to part: the first audio
// decision settles the audio interfaces still undecided, an exclusion
// outweighing an inclusion. After AutoFilter the leftovers are recorded as
// allowed, though the decision that raised the preference was a block:
// undecided counts as allowed all the same.
void RunSplitPrefsPhase(const FilterSettings &settings, const DevFilterDevice &device,
                        DevFilterResult &result) {
  AudioPreference audio;
  DecideByFamilySettings(settings, device, result, audio);
  if (audio.excluded || audio.included) {
    ApplyAudioPreference(result, !audio.excluded, audio.code, audio.reason);
  }
  DecideByAutoFilter(settings, device, result, audio);
  if (audio.automatic) {
    ApplyAudioPreference(result, true, audio.code, audio.reason);
  }
}

void ApplyAudioPreference(DevFilterResult &result, bool allow, uint32_t code,
                          const std::string &reason) {
  result.DecideByFamily(allow, code, reason, DevFamily{kFamilyAudio, 0});
}

}  // namespace ordo::usb
