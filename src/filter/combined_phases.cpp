// The combined phases on the merged settings of client and agent: whether
// a composite device may be split (phases 1(a), 1(b)), then whether the
// device, or what splitting left of it, may pass at all (phase 2).
#include <string>
#include <vector>

#include "filter/comma_list.h"
#include "filter/device_rule_decision.h"
#include "ordo/usb/auto_filter.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

const FamilyRuleLines kCombinedFamilyLines{
    "[Combined] Device blocked by 'ExcludeFamily'. Family(s): ",
    "[Combined] Device found in 'IncludeFamily' setting but is being blocked. Family(s): ",
    "[Combined] Device allowed by 'IncludeFamily'. Family(s): ",
    "[Combined] Warning: Possible conflict(s) between Fitler settings and User defined Split "
    "settings",
};

void LogPhase(const char *text) {
  if (DevFltrLogWanted(2)) {
    DevFltrLog(2, std::string("[Combined:Phase] ") + text);
  }
}

// 1(a) always; 1(b) only where no user rule named the device and automatic
// splitting is allowed.
void RunSplitPhases(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result) {
  LogPhase("Starting 1(a)");
  const bool userRule = RunSplitRulesPhase(settings, device, result);
  LogPhase("Finished 1(a)");
  if (userRule) {
    LogPhase("SplitRule(User) found. Skipping 1(b)");
  } else if (settings.getBool(FilterTypeAllowautodsplit)) {
    LogPhase("Starting 1(b)");
    RunSplitPrefsPhase(settings, device, result);
    LogPhase("Finished 1(b)");
  } else {
    LogPhase("AutoDeviceSplitting blocked. Skipping 1(b)");
  }
}

// AutoFilter on the interfaces left: any hit blocks the whole device. Every
// interface is asked, so the names of all hits reach the line.
void BlockByAutoFilterOnWhatIsLeft(const FilterSettings &settings, const DevFilterDevice &device,
                                   DevFilterResult &result) {
  const std::vector<int32_t> interfaces = result.GetAllowedInterfaces();
  const DevFamily allowedFamily = device.GetFamilyOfInterfaces(interfaces);
  std::vector<std::string> names;
  std::vector<uint32_t> keys;
  bool blocked = false;
  for (const int32_t index : interfaces) {
    const DevFamily family = device.GetInterfaceFamily(static_cast<uint32_t>(index));
    blocked = AutoFilter(settings, family, allowedFamily, names, keys) || blocked;
  }
  if (!blocked) {
    return;
  }
  result.BlockDevice();
  DevFltrLog(2, "[Combined] Device blocked by AutoFilters. Family(s): " + CommaList(names));
  if (result.HasSplitSettingDecision()) {
    DevFltrLog(2,
               "[Combined] Warning: Possible conflict(s) between Fitler settings and User "
               "defined Split Settings");
  }
}

}  // namespace

void RunCombinedPhases(const FilterSettings &settings, const DevFilterDevice &device,
                       DevFilterResult &result) {
  const bool splitAllowed = !settings.getBool(FilterTypeBlockdsplit);
  const bool composite = device.IsComposite();
  const bool configMissing = device.GetParsedConfigCount() == 0;
  if (splitAllowed && composite && !configMissing) {
    RunSplitPhases(settings, device, result);
  } else {
    if (!splitAllowed) {
      DevFltrLog(2, "[Combined] Device splitting blocked by setting: DisableDeviceSplitting");
      result.DisableSplitting();
    }
    if (!composite) {
      DevFltrLog(2, "[Combined] Device splitting not done. Not a composite device");
    }
    if (configMissing) {
      DevFltrLog(2, "[Combined] Device splitting not done. Missing Config descriptor");
    }
  }
  LogPhase("Starting 2");
  RunDevicePhase(settings, device, result);
  LogPhase("Finished 2");
}

// The order of the tests is the priority of the rules, strongest first; the
// first that speaks ends the phase.
void RunDevicePhase(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result) {
  const std::string path = device.GetPathString();
  static constexpr RuleLines kPathLines{"[Combined] Device blocked by 'ExcludePath'. Path: ",
                                        "[Combined] Device allowed by 'IncludePath'. Path: "};
  if (DecideDeviceByOutcome(settings.evaluatePath(path), result, kPathLines, path)) {
    return;
  }
  const std::string id = device.GetIdString();
  static constexpr RuleLines kIdLines{"[Combined] Device blocked by 'ExcludeVidPid'. Id: ",
                                      "[Combined] Device allowed by 'IncludeVidPid'. Id: "};
  if (DecideDeviceByOutcome(settings.evaluateId(id), result, kIdLines, id)) {
    return;
  }
  if (device.GetParsedConfigCount() == 0) {
    result.BlockDevice();
    DevFltrLog(2,
               "[Combined] Config Desc missing. Device blocked. Device not filtered in and rest "
               "of the settings cannot be processed");
    return;
  }
  if (result.GetAllowedFamily() == kUnknownFamily) {
    result.BlockDevice();
    DevFltrLog(2, "[Combined] Device blocked. All interfaces are blocked from forwarding");
    return;
  }
  if (DecideDeviceByFamilySet(settings, result, kCombinedFamilyLines)) {
    return;
  }
  if (settings.getBool(FilterTypeExalldev)) {
    result.BlockDevice();
    DevFltrLog(2, "[Remote] Device blocked by ExcludeAllDevices setting");
    return;
  }
  BlockByAutoFilterOnWhatIsLeft(settings, device, result);
}

}  // namespace ordo::usb
