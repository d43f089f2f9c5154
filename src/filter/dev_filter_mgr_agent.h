// The agent's filter manager: one party's filter settings and the answer of
// the engine's question, what may happen to this device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ordo/usb/dev_family.h"
#include "ordo/usb/filter_settings.h"
#include "ordo/usb/log_hook.h"

namespace ordo::usb {

// Base of the managers. Its end destroys the process-wide FilterDictionary,
// so no manager may keep a pointer to it across a call; the next use builds
// it anew.
class DevFilterMgr {
 public:
  DevFilterMgr() = default;
  DevFilterMgr(const DevFilterMgr &) = delete;
  DevFilterMgr &operator=(const DevFilterMgr &) = delete;
  virtual ~DevFilterMgr();
};

// The agent's one list, with the short table of defaults (only exalldev).
// It is fed once when a session is created, and then only answers.
class DevFilterMgrAgent : public DevFilterMgr {
 public:
  DevFilterMgrAgent();

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
