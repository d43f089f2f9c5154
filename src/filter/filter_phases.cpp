#include "ordo/usb/filter_phases.h"

#include <string>
#include <vector>

#include "filter/comma_list.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

void LogRemote(const std::string &text) {
  DevFltrLog(2, "[Remote] " + text);
}

constexpr const char *kSplitConflictWarning =
    "Warning: Possible conflict(s) between Fitler settings and User defined Split settings";

// The identifier rules: an exclude blocks, an include ends the phase with
// the device allowed. True when one of them spoke.
bool DecideById(const FilterSettings &settings, const DevFilterDevice &device,
                DevFilterResult &result) {
  switch (settings.evaluateId(device.GetIdString())) {
    case FilterEvalExcluded:
      result.BlockDevice();
      LogRemote("Device blocked by 'ExcludeVidPid' rule");
      return true;
    case FilterEvalIncluded:
      LogRemote("Device allowed by 'IncludeVidPid' rule");
      return true;
    default:
      return false;
  }
}

// The family rules over the interfaces still allowed. A family inclusion
// does not go together with a user split rule: such a device is blocked.
// True when one of them spoke.
bool DecideByFamily(const FilterSettings &settings, DevFilterResult &result) {
  std::vector<std::string> names;
  switch (settings.evaluateFamilySet(result.GetAllowedFamily(), &names)) {
    case FilterEvalExcluded:
      result.BlockDevice();
      LogRemote("Device blocked by ExcludeFamily. Family(s): " + CommaList(names));
      if (result.HasSplitSettingDecision()) {
        LogRemote(kSplitConflictWarning);
      }
      return true;
    case FilterEvalIncluded:
      if (result.HasSplitSettingDecision()) {
        result.BlockDevice();
        LogRemote("Device found in IncludeFamily setting but is being blocked. Family(s): " +
                  CommaList(names));
        LogRemote(kSplitConflictWarning);
      } else {
        LogRemote("Device allowed by IncludeFamily setting. Family(s): " + CommaList(names));
      }
      return true;
    default:
      return false;
  }
}

}  // namespace

// The client's combined phases, which run on the merged settings when
// remote is false, belong to the client side; the agent never takes that
// path, and here it ends without a decision.
void RunFilterPhases(const FilterSettings &settings, const DevFilterDevice &device,
                     DevFilterResult &result, bool remote) {
  if (!result.IsDeviceAllowed()) {
    return;
  }
  if (remote) {
    RunRemotePhase(settings, device, result);
  }
}

void RunRemotePhase(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result) {
  if (!result.IsDeviceAllowed()) {
    LogRemote("Device already blocked. Nothing to do");
    return;
  }
  if (DecideById(settings, device, result)) {
    return;
  }
  if (device.GetParsedConfigCount() == 0) {
    LogRemote("Family filters cannot be enforced. Config Desc missing");
  } else if (DecideByFamily(settings, result)) {
    return;
  }
  if (settings.getBool(FilterTypeExalldev)) {
    result.BlockDevice();
    LogRemote("Device filtered out by 'ExcludeAllDevices'");
  }
}

}  // namespace ordo::usb
