// AutoFilter: the engine's own judgement of device families, for an
// administrator who has written no rule. Keyboards, mice, smart-card
// readers, loudspeakers and network adapters stay on the client; other HID
// devices, microphones and cameras go over. The boolean keys usehid to
// usenic (FilterTypeUsehid to FilterTypeUsenic) turn each family on or off.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/filter_settings.h"

namespace ordo::usb {

// 0 for a family without the audio bit; else 3 with both directions, 2 with
// one, 1 with none. The phases read it only as "is audio".
uint32_t CountAudioFamily(DevFamily family);

// The rule table for one family: true when a rule blocks it. keys gets the
// FilterType of each rule that fired, in firing order; names (if not null)
// gets their family names, all at once at the end and only on a hit.
bool AutoFilterFamily(const FilterSettings &settings, DevFamily family,
                      std::vector<std::string> *names, std::vector<uint32_t> &keys);

// The table's answer under the audio rules: the audio of one device is not
// to be parted, so for an audio interface that the table blocks the
// directions present in deviceFamily decide. names and keys accumulate over
// calls and never take an entry twice.
bool AutoFilter(const FilterSettings &settings, DevFamily family, DevFamily deviceFamily,
                std::vector<std::string> &names, std::vector<uint32_t> &keys);

}  // namespace ordo::usb
