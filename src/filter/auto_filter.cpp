#include "ordo/usb/auto_filter.h"

#include <algorithm>

#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

bool Has(uint32_t bits, uint32_t bit) {
  return (bits & bit) != 0;
}

bool IsAudio(DevFamily family) {
  return Has(family.base, kFamilyAudio);
}

template <typename Item>
void AppendNew(std::vector<Item> &into, const std::vector<Item> &items) {
  for (const Item &item : items) {
    if (std::find(into.begin(), into.end(), item) == into.end()) {
      into.push_back(item);
    }
  }
}

// One step of the table that fires when its key reads false.
class RuleFiring {
 public:
  explicit RuleFiring(const FilterSettings &settings, std::vector<uint32_t> &keys)
      : settings_(settings), keys_(keys) {}

  bool Fire(FilterType key, std::initializer_list<const char *> names) {
    if (settings_.getBool(key)) {
      return false;
    }
    for (const char *name : names) {
      if (name != nullptr) {
        names_.emplace_back(name);
      }
    }
    keys_.push_back(key);
    fired_ = true;
    return true;
  }

  bool fired() const { return fired_; }
  const std::vector<std::string> &names() const { return names_; }

 private:
  const FilterSettings &settings_;
  std::vector<uint32_t> &keys_;
  std::vector<std::string> names_;
  bool fired_ = false;
};

// Keyboard or mouse, then hid-bootable, then hid: a HID function fires at
// most one of them, the most specific one that its settings refuse.
void RunHidLadder(RuleFiring &rules, DevFamily family) {
  const bool hid = Has(family.base, kFamilyHid);
  const bool keyboard = hid && Has(family.sub, kSubFamilyKeyboard);
  const bool mouse = hid && Has(family.sub, kSubFamilyMouse);
  if ((keyboard || mouse) && rules.Fire(FilterTypeUsekeybmouse, {keyboard ? "keyboard" : nullptr,
                                                                 mouse ? "mouse" : nullptr})) {
    return;
  }
  if (Has(family.base, kFamilyHidBootable) && rules.Fire(FilterTypeUsehidboot, {"hid-bootable"})) {
    return;
  }
  if (hid) {
    rules.Fire(FilterTypeUsehid, {"hid"});
  }
}

}  // namespace

uint32_t CountAudioFamily(DevFamily family) {
  if (!IsAudio(family)) {
    return 0;
  }
  const bool out = Has(family.sub, kSubFamilyAudioOut);
  const bool in = Has(family.sub, kSubFamilyAudioIn);
  if (out && in) {
    return 3;
  }
  return out || in ? 2 : 1;
}

bool AutoFilterFamily(const FilterSettings &settings, DevFamily family,
                      std::vector<std::string> *names, std::vector<uint32_t> &keys) {
  RuleFiring rules(settings, keys);
  if (Has(family.base, kFamilySmartCard)) {
    rules.Fire(FilterTypeUsesc, {"smart-card"});
  }
  RunHidLadder(rules, family);
  if (IsAudio(family) && Has(family.sub, kSubFamilyAudioOut)) {
    rules.Fire(FilterTypeUseaout, {"audio-out"});
  }
  if (IsAudio(family) && Has(family.sub, kSubFamilyAudioIn)) {
    rules.Fire(FilterTypeUseain, {"audio-in"});
  }
  if (Has(family.base, kFamilyVideo)) {
    rules.Fire(FilterTypeUsevideo, {"video"});
  }
  if (Has(family.base, kFamilyNic)) {
    rules.Fire(FilterTypeUsenic, {"nic"});
  }
  if (rules.fired() && names != nullptr) {
    names->insert(names->end(), rules.names().begin(), rules.names().end());
  }
  return rules.fired();
}

// An audio interface that the table blocks, in a device with audio both
// ways, is judged by the two directions together: parted they may not be,
// so one allowed direction carries the other. With audio one way only the
// block stands, but without a name or key to show for it.
bool AutoFilter(const FilterSettings &settings, DevFamily family, DevFamily deviceFamily,
                std::vector<std::string> &names, std::vector<uint32_t> &keys) {
  std::vector<std::string> localNames;
  std::vector<uint32_t> localKeys;
  const bool blocked = AutoFilterFamily(settings, family, &localNames, localKeys);
  if (!blocked) {
    return false;
  }
  if (IsAudio(family)) {
    const bool outPresent = Has(deviceFamily.sub, kSubFamilyAudioOut);
    const bool inPresent = Has(deviceFamily.sub, kSubFamilyAudioIn);
    if (!outPresent || !inPresent) {
      return true;
    }
    const bool outBlocked = !settings.getBool(FilterTypeUseaout);
    const bool inBlocked = !settings.getBool(FilterTypeUseain);
    if (outBlocked != inBlocked) {
      // The first word names audio-out whichever direction is blocked: the
      // line has always read so.
      DevFltrLog(2, std::string("audio-out") +
                        " is blocked using AutoFilter setting. The setting is ignored as there "
                        "are multiple audio interfaces which shouldnt be split");
      return false;
    }
    if (!outBlocked) {
      DevFltrLog(2, "All audio interfaces are allowed by AutoFilters");
      return false;
    }
    DevFltrLog(2, "All audio interfaces are blocked by AutoFilters");
  }
  AppendNew(names, localNames);
  AppendNew(keys, localKeys);
  return true;
}

}  // namespace ordo::usb
