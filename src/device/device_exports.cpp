// The device's getters and setter, its session, and the strings a client
// hands over. The four getters and the setter that speak of an item handle
// in their failure line do so by settled wording.
#include "device/device.h"
#include "device/device_state.h"
#include "device/string_store.h"
#include "frame/log.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// The device behind handle, or null after the failure line.
PelarixDevice *DeviceOrLog(PelarixHandle handle, const char16_t *invalidText) {
  if (IsValidHandle(handle, kDeviceHandle)) {
    return static_cast<PelarixDevice *>(handle);
  }
  LogMessage(kLogFailure, invalidText, handle);
  return nullptr;
}

// One u32 field of the device through an out pointer, without a lock.
PelarixStatus GetDeviceWord(PelarixHandle handle, uint32_t *out, const char16_t *nullText,
                            uint32_t PelarixDevice::*field) {
  PelarixDevice *device = DeviceOrLog(handle, u"Invalid item handle: %p");
  if (device == nullptr) {
    return Pelarix_InvalidHandle;
  }
  if (out == nullptr) {
    LogMessage(kLogFailure, nullText);
    return Pelarix_InvalidParameter;
  }
  *out = LoadField(device->*field);
  return Pelarix_Success;
}

PelarixStatus StoreCodeStatus(uint32_t code) {
  switch (code) {
    case kStoreDone:
      return Pelarix_Success;
    case kStoreBadArgument:
      return Pelarix_InvalidParameter;
    case kStoreNoMemory:
      return Pelarix_OutOfMemory;
    default:
      return Pelarix_Failure;
  }
}

PelarixStatus AddDeviceString(PelarixDevice *device, uint8_t index, uint16_t language,
                              const uint8_t *string) {
  if (string == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, string is null");
    return Pelarix_InvalidParameter;
  }
  platform::EnterLock(&device->lock);
  uint8_t *grown = nullptr;
  const uint32_t code = StringStoreAdd(device->stringStore, index, language, string, &grown);
  if (code == kStoreDone) {
    device->stringStore = grown;
  }
  platform::LeaveLock(&device->lock);
  return StoreCodeStatus(code);
}

}  // namespace
}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL
Pelarix_GetDeviceSessionHandle(PelarixHandle handle, PelarixHandle *pelarixHandle) {
  using namespace pelarix;
  PelarixDevice *device = DeviceOrLog(handle, u"Invalid device handle: %p");
  if (device == nullptr) {
    return Pelarix_InvalidHandle;
  }
  if (pelarixHandle == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, pelarixHandle is null");
    return Pelarix_InvalidParameter;
  }
  // The caller gets a reference of its own, which it closes.
  PelarixHandle session = SessionOf(device);
  const PelarixStatus status = Pelarix_DuplicateHandle(session);
  if (status == Pelarix_Success) {
    *pelarixHandle = session;
  }
  return status;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceId(PelarixHandle handle,
                                                           uint32_t *deviceId) {
  return pelarix::GetDeviceWord(handle, deviceId, u"Invalid parameter, deviceId is null",
                                &pelarix::PelarixDevice::plugNo);
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceFlags(PelarixHandle handle,
                                                              uint32_t *deviceFlags) {
  return pelarix::GetDeviceWord(handle, deviceFlags, u"Invalid parameter, deviceFlags is null",
                                &pelarix::PelarixDevice::deviceFlags);
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceClientVersion(PelarixHandle handle,
                                                                      uint32_t *version) {
  return pelarix::GetDeviceWord(handle, version, u"Invalid parameter, version is null",
                                &pelarix::PelarixDevice::clientVersion);
}

// Counts for a plug-in still to come; after it, only the getter sees it.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_SetDeviceFlags(PelarixHandle handle,
                                                              uint32_t deviceFlags) {
  using namespace pelarix;
  PelarixDevice *device = DeviceOrLog(handle, u"Invalid item handle: %p");
  if (device == nullptr) {
    return Pelarix_InvalidHandle;
  }
  StoreField(device->deviceFlags, deviceFlags);
  return Pelarix_Success;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_AddDeviceString(PelarixHandle handle, uint8_t index,
                                                               uint16_t language,
                                                               const uint8_t *string) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_InvalidHandle;
  PelarixDevice *device = DeviceOrLog(handle, u"Invalid device handle: %p");
  if (device != nullptr) {
    status = AddDeviceString(device, index, language, string);
  }
  LogMessage(kLogLifecycle, u"Add device string, Handle: %p, PlugNo: %d, status: 0x%x", handle,
             device != nullptr ? device->plugNo : 0, status);
  return status;
}

}  // extern "C"
