// The decisions on a device as a whole that the combined device phase and
// the Remote phase share: an exclude/include pair of keys asked about one
// text, and the family rules over the interfaces still allowed. The phases
// differ only in their words.
#pragma once

#include <cstdint>
#include <string>

#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_settings.h"

namespace ordo::usb {

// The literal fronts of the lines of one exclude/include pair; the text
// asked about may follow them.
struct RuleLines {
  const char *excluded;
  const char *included;
};

// An exclude blocks, an include ends the phase with the device allowed.
// True when one of them spoke. The line is put together only when written.
bool DecideDeviceByOutcome(int32_t outcome, DevFilterResult &result, const RuleLines &lines,
                           const std::string &tail);

// The literal fronts of the family lines; the names that hit follow them.
struct FamilyRuleLines {
  const char *excluded;
  const char *includedButSplit;
  const char *included;
  const char *warning;
};

// exfa and infa over the families still allowed. A family inclusion does
// not go together with a user split rule: such a device is blocked. True
// when one of them spoke.
bool DecideDeviceByFamilySet(const FilterSettings &settings, DevFilterResult &result,
                             const FamilyRuleLines &lines);

}  // namespace ordo::usb
