#include "filter/device_rule_decision.h"

#include <vector>

#include "filter/comma_list.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {

bool DecideDeviceByOutcome(int32_t outcome, DevFilterResult &result, const RuleLines &lines,
                           const std::string &tail) {
  switch (outcome) {
    case FilterEvalExcluded:
      result.BlockDevice();
      DevFltrLog(2, lines.excluded + tail);
      return true;
    case FilterEvalIncluded:
      DevFltrLog(2, lines.included + tail);
      return true;
    default:
      return false;
  }
}

bool DecideDeviceByFamilySet(const FilterSettings &settings, DevFilterResult &result,
                             const FamilyRuleLines &lines) {
  std::vector<std::string> names;
  switch (settings.evaluateFamilySet(result.GetAllowedFamily(), &names)) {
    case FilterEvalExcluded:
      result.BlockDevice();
      DevFltrLog(2, lines.excluded + CommaList(names));
      if (result.HasSplitSettingDecision()) {
        DevFltrLog(2, lines.warning);
      }
      return true;
    case FilterEvalIncluded:
      if (result.HasSplitSettingDecision()) {
        result.BlockDevice();
        DevFltrLog(2, lines.includedButSplit + CommaList(names));
        DevFltrLog(2, lines.warning);
      } else {
        DevFltrLog(2, lines.included + CommaList(names));
      }
      return true;
    default:
      return false;
  }
}

}  // namespace ordo::usb
