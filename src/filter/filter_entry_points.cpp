// The flat functions over the agent's manager. They are the border between
// the C interface and the engine's C++: an allocation failure inside the
// engine ends here as the answer of a null manager, never as an exception.
#include "ordo/usb/filter_entry_points.h"

#include <new>

#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/filter_log.h"

namespace ordo::usb {

HDevFilterMgrAgent *CreateFilterManager() {
  try {
    return new (std::nothrow) HDevFilterMgrAgent();
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

void SetFilterManagerLog(HDevFilterMgrAgent * /*manager*/, LogHook hook, uint32_t threshold) {
  SetFilterLogHook(hook, threshold);
}

void AddFilterString(HDevFilterMgrAgent *manager, const char *text, uint32_t /*length*/) {
  if (manager == nullptr || text == nullptr) {
    return;
  }
  try {
    manager->AddFilterRule(text);
  } catch (const std::bad_alloc &) {
    // The string is lost as a refused one would be.
  }
}

void ClearFilterStrings(HDevFilterMgrAgent *manager) {
  if (manager != nullptr) {
    manager->ClearFilterRules();
  }
}

bool IsDeviceAllowedByFilter(HDevFilterMgrAgent *manager, const uint8_t *deviceDesc,
                             const uint8_t *configDesc) {
  if (manager == nullptr) {
    return false;
  }
  try {
    return manager->IsDeviceAllowed(deviceDesc, configDesc);
  } catch (const std::bad_alloc &) {
    return false;
  }
}

bool GetDeviceFamilyInfo(HDevFilterMgrAgent *manager, const uint8_t *deviceDesc,
                         const uint8_t *configDesc, DevFamily **family) {
  if (manager == nullptr || family == nullptr) {
    return false;
  }
  auto *found = new (std::nothrow) DevFamily();
  if (found == nullptr) {
    return false;
  }
  bool allowed = false;
  try {
    allowed = manager->GetDeviceFamily(deviceDesc, configDesc, *found);
  } catch (const std::bad_alloc &) {
    allowed = false;
  }
  *family = found;
  return allowed;
}

void FreeDeviceFamilyInfo(DevFamily *family) {
  delete family;
}

bool IsAudioFamily(const DevFamily *family, uint32_t direction) {
  if (family == nullptr || (family->base & kFamilyAudio) == 0) {
    return false;
  }
  if (direction == kAudioOut) {
    return (family->sub & kSubFamilyAudioOut) != 0;
  }
  if (direction == kAudioIn) {
    return (family->sub & kSubFamilyAudioIn) != 0;
  }
  return false;
}

uint32_t GetFilterManagerBlob(HDevFilterMgrAgent *manager, uint8_t *buffer) {
  return manager == nullptr ? 0 : manager->GetFilterBlob(buffer);
}

bool ReadFilterManagerBlob(HDevFilterMgrAgent *manager, const uint8_t *blob) {
  if (manager == nullptr) {
    return false;
  }
  try {
    return manager->ReadFilterBlob(blob);
  } catch (const std::bad_alloc &) {
    return false;
  }
}

bool ReadFilterManagerBlob(HDevFilterMgrAgent *manager, const uint8_t *blob, uint32_t length) {
  if (manager == nullptr) {
    return false;
  }
  try {
    return manager->ReadFilterBlob(blob, length);
  } catch (const std::bad_alloc &) {
    return false;
  }
}

void DestroyFilterManager(HDevFilterMgrAgent *manager) {
  delete manager;
}

}  // namespace ordo::usb
