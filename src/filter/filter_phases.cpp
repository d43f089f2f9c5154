#include "ordo/usb/filter_phases.h"

#include "filter/device_rule_decision.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

const FamilyRuleLines kRemoteFamilyLines{
    "[Remote] Device blocked by ExcludeFamily. Family(s): ",
    "[Remote] Device found in IncludeFamily setting but is being blocked. Family(s): ",
    "[Remote] Device allowed by IncludeFamily setting. Family(s): ",
    "[Remote] Warning: Possible conflict(s) between Fitler settings and User defined Split "
    "settings",
};

}  // namespace

void RunFilterPhases(const FilterSettings &settings, const DevFilterDevice &device,
                     DevFilterResult &result, bool remote) {
  if (!result.IsDeviceAllowed()) {
    return;
  }
  if (remote) {
    RunRemotePhase(settings, device, result);
  } else {
    RunCombinedPhases(settings, device, result);
  }
}

void RunRemotePhase(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result) {
  if (!result.IsDeviceAllowed()) {
    DevFltrLog(2, "[Remote] Device already blocked. Nothing to do");
    return;
  }
  static constexpr RuleLines kIdLines{"[Remote] Device blocked by 'ExcludeVidPid' rule",
                                      "[Remote] Device allowed by 'IncludeVidPid' rule"};
  if (DecideDeviceByOutcome(settings.evaluateId(device.GetIdString()), result, kIdLines, "")) {
    return;
  }
  if (device.GetParsedConfigCount() == 0) {
    DevFltrLog(2, "[Remote] Family filters cannot be enforced. Config Desc missing");
  } else if (DecideDeviceByFamilySet(settings, result, kRemoteFamilyLines)) {
    return;
  }
  if (settings.getBool(FilterTypeExalldev)) {
    result.BlockDevice();
    DevFltrLog(2, "[Remote] Device filtered out by 'ExcludeAllDevices'");
  }
}

}  // namespace ordo::usb
