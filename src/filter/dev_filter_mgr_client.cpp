#include "ordo/usb/dev_filter_mgr_client.h"

#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/filter_list.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_text.h"

namespace ordo::usb {

DevFilterMgrClient::DevFilterMgrClient() {
  local_.setDefaultPreferences(true);
  remote_.setDefaultPreferences(false);
}

void DevFilterMgrClient::SetLogHook(LogHook hook, uint32_t threshold) {
  SetFilterLogHook(hook, threshold);
}

void DevFilterMgrClient::AddFilterRule(const std::string &text, bool isLocal) {
  const std::string lowered = toLowerFilterText(text);
  (isLocal ? localDirty_ : remoteDirty_) = true;
  Side(isLocal).addFilterRule(lowered);
}

void DevFilterMgrClient::ClearFilterRules(bool isLocal) {
  (isLocal ? localDirty_ : remoteDirty_) = true;
  Side(isLocal).clear();
}

uint32_t DevFilterMgrClient::GetFilterBlob(uint8_t *buffer, bool isLocal) const {
  return (isLocal ? local_ : remote_).list().encode(buffer);
}

bool DevFilterMgrClient::ReadFilterBlob(const uint8_t *blob, bool isLocal) {
  if (!isLocal) {
    return ReadRemoteBlob(blob, nullptr);
  }
  localDirty_ = true;
  local_.list().decode(blob, false);
  return true;
}

// A list without values encodes to no bytes at all, so an empty blob is a
// whole one that adds nothing.
bool DevFilterMgrClient::ReadFilterBlob(const uint8_t *blob, size_t length, bool isLocal) {
  if (length == 0) {
    return true;
  }
  if (!isLocal) {
    return ReadRemoteBlob(blob, &length);
  }
  localDirty_ = true;
  return local_.list().decodeBounded(blob, length, false);
}

// A client that refuses remote configuration hears nothing of the agent:
// the blob stays unread and remote keeps what it had.
bool DevFilterMgrClient::ReadRemoteBlob(const uint8_t *blob, const size_t *length) {
  if (!IsRemoteConfigAllowed()) {
    DevFltrLog(2, std::string("Agent") + " filter settings ignored");
    return true;
  }
  DevFltrLog(2, "Start reading Agent filter settings");
  remoteDirty_ = true;
  bool whole = true;
  if (length == nullptr) {
    remote_.list().decode(blob, true);
  } else {
    whole = remote_.list().decodeBounded(blob, *length, true);
  }
  DevFltrLog(2, "Finished reading Agent filter settings");
  return whole;
}

void DevFilterMgrClient::MergeFilterLists() {
  if (!localDirty_ && !remoteDirty_) {
    return;
  }
  merged_.clear();
  FilterSettings::merge(local_, remote_, merged_);
  localDirty_ = false;
  remoteDirty_ = false;
}

bool DevFilterMgrClient::EvaluateDevice(const uint8_t *deviceDesc, const uint8_t *configDesc,
                                        int32_t configCount, const uint32_t *pathInfo,
                                        DevFilterResult &result) {
  MergeFilterLists();
  if (deviceDesc != nullptr && configDesc != nullptr) {
    RunPhases(deviceDesc, configDesc, configCount, pathInfo, result);
    return true;
  }
  if (!allowDevDescFailsafe_) {
    return false;
  }
  if (deviceDesc != nullptr) {
    DevFltrLog(2, "AllowDevDescFailsafe is enabled. Config Descriptor missing");
    RunPhases(deviceDesc, nullptr, 0, pathInfo, result);
  } else {
    DevFltrLog(2, "AllowDevDescFailsafe is enabled. Device & Config Descriptors are missing");
  }
  return true;
}

void DevFilterMgrClient::RunPhases(const uint8_t *deviceDesc, const uint8_t *configDesc,
                                   int32_t configCount, const uint32_t *pathInfo,
                                   DevFilterResult &result) {
  DevFilterDevice device;
  LoadDevice(device, deviceDesc, configDesc, configCount, pathInfo);
  result.Init(device, true);
  RunFilterPhases(merged_, device, result, false);
  DevFltrLog(2, "[Remote:Phase] Starting 3");
  RunFilterPhases(remote_, device, result, true);
  DevFltrLog(2, "[Remote:Phase] Finished 3");
}

bool DevFilterMgrClient::IsSplittingAllowed() {
  MergeFilterLists();
  return !merged_.getBool(FilterTypeBlockdsplit);
}

bool DevFilterMgrClient::IsBootFilterAllowed() const {
  return !local_.getBool(FilterTypeBlockbootdfilter);
}

bool DevFilterMgrClient::IsRemoteConfigAllowed() const {
  return !local_.getBool(FilterTypeBlockremoteconfig);
}

void DevFilterMgrClient::SetAllowDevDescFailsafe(bool value) {
  allowDevDescFailsafe_ = value;
}

void DevFilterMgrClient::SetHint(FilterType type, bool value) {
  local_.addBoolean(type, value);
  merged_.addBoolean(type, value);
}

void DevFilterMgrClient::TestSplitRules(const std::string &deviceId, const std::string &family) {
  DevFltrLog(3, "<< TestSplitRules >>");
  if (IsSplittingAllowed()) {
    DevFilterResult().Dump();
  } else {
    DevFltrLog(3, "Device id: " + deviceId + " family: " + family + " - Splitting disabled");
  }
  DevFltrLog(3, ">> TestSplitRules <<");
}

void DevFilterMgrClient::PrintFilterLists() const {
  const auto print = [](const char *title, const FilterSettings &settings) {
    DevFltrLog(3, title);
    settings.dumpDefaults();
    settings.list().dump();
  };
  print(" >>Local Filter List<<", local_);
  print(" >>Remote Filter List<<", remote_);
  print(" >>Merged Filter List<<", merged_);
}

}  // namespace ordo::usb
