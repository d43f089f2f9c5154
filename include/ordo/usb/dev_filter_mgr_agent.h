// The agent's filter manager: one party's filter settings and the answer of
// the engine's question, what may happen to this device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/dev_filter_mgr.h"
#include "ordo/usb/filter_settings.h"
#include "ordo/usb/log_hook.h"

namespace ordo::usb {

// The agent's one list, with the short table of defaults (only exalldev).
// It is fed once when a session is created, and then only answers.
class DevFilterMgrAgent : public DevFilterMgr {
 public:
  DevFilterMgrAgent();

  // The filter log of the whole process (SetFilterLogHook): lines at or
  // above the engine level `threshold` reach the hook. Engine levels run
  // the other way round from the library's log levels: 0 detail, 1
  // information, 2 warning, 4 error.
  void SetLogHook(LogHook hook, uint32_t threshold);
  // The agent's gate: a string whose first entry does not carry a sequencing
  // letter valid for its key is refused whole.
  void AddFilterRule(const std::string &text);
  void ClearFilterRules();

  bool IsDeviceAllowed(const uint8_t *deviceDesc, const uint8_t *configDesc);
  bool GetDeviceFamily(const uint8_t *deviceDesc, const uint8_t *configDesc, DevFamily &family);

  uint32_t GetFilterBlob(uint8_t *buffer) const;
  bool ReadFilterBlob(const uint8_t *blob);
  bool ReadFilterBlob(const uint8_t *blob, size_t length);
  bool AreRulesSequenced() const;
  void PrintFilterLists() const;

  const FilterSettings &settings() const { return settings_; }

 private:
  FilterSettings settings_;
};

}  // namespace ordo::usb

// The handle type of the flat functions (filter_entry_points.h).
struct HDevFilterMgrAgent : ordo::usb::DevFilterMgrAgent {};
