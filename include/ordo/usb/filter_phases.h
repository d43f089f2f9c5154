// The decision phases: the fixed order in which one party's filter settings
// are asked about a device. The agent runs only the Remote phase, its last
// word on the device as a whole.
#pragma once

#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_settings.h"

namespace ordo::usb {

// The one way into the phases. A device already blocked gets none; with
// remote the Remote phase runs on `settings`.
void RunFilterPhases(const FilterSettings &settings, const DevFilterDevice &device,
                     DevFilterResult &result, bool remote);

// Phase 3: exid, inid, exfa, infa, exalldev in that order of precedence. It
// never decides interfaces; it leaves the result as it is or blocks the
// device.
void RunRemotePhase(const FilterSettings &settings, const DevFilterDevice &device,
                    DevFilterResult &result);

}  // namespace ordo::usb
