// The decision phases: the fixed order in which filter settings are asked
// about a device. The agent runs only the Remote phase (3), its last word on
// the device as a whole. The client runs the combined phases on the merged
// settings first: 1(a) user split rules, 1(b) split preferences, 2 the
// device as a whole; then phase 3 on the agent's settings.
//
// Decision codes handed to the result are FilterType numbers naming the key
// that decided: exfa and infa in 1(b), spid for a user split rule, usesc to
// usenic for the key that AutoFilter named, FilterTypeNone when AutoFilter
// blocked without naming one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_settings.h"
#include "ordo/usb/flt_value.h"

namespace ordo::usb {

// The one way into the phases. A device already blocked gets none; with
// remote the Remote phase runs on `settings`, without it the combined ones.
void RunFilterPhases(const FilterSettings &settings, const DevFilterDevice &device,
                     DevFilterResult &result, bool remote);

// Phase 3: exid, inid, exfa, infa, exalldev in that order of precedence. It
// never decides interfaces; it leaves the result as it is or blocks the
// device.
void RunRemotePhase(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result);

// Phases 1(a), 1(b) where the device may be split, then phase 2.
void RunCombinedPhases(const FilterSettings &settings, const DevFilterDevice &device,
                       DevFilterResult &result);

// Phase 1(a): spexid and the user split rules of spid. True when the device
// is named by either, which leaves out 1(b).
bool RunSplitRulesPhase(const FilterSettings &settings, const DevFilterDevice &device,
                        DevFilterResult &result);

// Blocks each interface that a rule names with exintf, alone and not with
// its group; a number beyond the device's interfaces is dropped unseen.
void ApplySplitRules(const DevFilterDevice &device, const std::vector<FltSplitRule> &rules,
                     DevFilterResult &result, uint32_t code);

// Phase 1(b): per interface exfa, infa, then AutoFilter; the audio
// interfaces of a device follow its first audio decision.
void RunSplitPrefsPhase(const FilterSettings &settings, const DevFilterDevice &device,
                        DevFilterResult &result);

// Decides every audio interface not yet decided.
void ApplyAudioPreference(DevFilterResult &result, bool allow, uint32_t code,
                          const std::string &reason);

// Phase 2: the device as a whole on what splitting left allowed.
void RunDevicePhase(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result);

}  // namespace ordo::usb
