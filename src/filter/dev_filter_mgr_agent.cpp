#include "ordo/usb/dev_filter_mgr_agent.h"

#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_list.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_text.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {

DevFilterMgrAgent::DevFilterMgrAgent() {
  settings_.setDefaultPreferences(false);
}

void DevFilterMgrAgent::SetLogHook(LogHook hook, uint32_t threshold) {
  SetFilterLogHook(hook, threshold);
}

void DevFilterMgrAgent::AddFilterRule(const std::string &text) {
  const std::string lowered = toLowerFilterText(text);
  // The whole string is read as one entry, so only its first filter's key
  // and letter are judged.
  const FilterEntry entry = FilterList::parseEntry(lowered);
  if (isValidSequencing(entry.type, entry.seq)) {
    settings_.addFilterRule(lowered);
  } else {
    DevFltrLog(0, "Filter string ignored as DMO setting is missing: " + text);
  }
}

void DevFilterMgrAgent::ClearFilterRules() {
  settings_.clear();
}

bool DevFilterMgrAgent::IsDeviceAllowed(const uint8_t *deviceDesc, const uint8_t *configDesc) {
  DevFamily family;
  return GetDeviceFamily(deviceDesc, configDesc, family);
}

// The agent's decision is its Remote phase over one configuration and no
// path. No interface is decided on this path, so the device passes whole or
// not at all, and its family is that of all its interfaces.
bool DevFilterMgrAgent::GetDeviceFamily(const uint8_t *deviceDesc, const uint8_t *configDesc,
                                        DevFamily &family) {
  DevFilterResult result;
  DevFilterDevice device;
  LoadDevice(device, deviceDesc, configDesc, 1, nullptr);
  result.Init(device, true);
  RunFilterPhases(settings_, device, result, true);
  family = result.GetAllowedFamily();
  return result.IsDeviceAllowed();
}

uint32_t DevFilterMgrAgent::GetFilterBlob(uint8_t *buffer) const {
  return settings_.list().encode(buffer);
}

bool DevFilterMgrAgent::ReadFilterBlob(const uint8_t *blob) {
  settings_.list().decode(blob, false);
  return true;
}

bool DevFilterMgrAgent::ReadFilterBlob(const uint8_t *blob, size_t length) {
  return settings_.list().decodeBounded(blob, length, false);
}

bool DevFilterMgrAgent::AreRulesSequenced() const {
  return settings_.list().allHaveSequencing();
}

void DevFilterMgrAgent::PrintFilterLists() const {
  settings_.dumpDefaults();
  settings_.list().dump();
}

}  // namespace ordo::usb
