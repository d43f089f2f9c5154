// Creating devices: the filter's answer first, then the record, its PlugNo,
// the descriptor copies, the string store and the device's settings.
#include <cstdlib>
#include <cstring>

#include "config/device_settings.h"
#include "device/device.h"
#include "device/string_store.h"
#include "frame/log.h"
#include "frame/record_pool.h"
#include "frame/session.h"
#include "hub/hub_requests.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// What the caller hands over for one device.
struct DeviceRequest {
  uint32_t clientVersion;
  uint8_t partial;
  uint32_t plugParams[3];
  const uint8_t *deviceDesc;
  const uint8_t *configDesc;
  PelarixPluginCallback callback;
  void *context;
};

// Bytes of a configuration descriptor up to and with its wTotalLength.
constexpr uint32_t kConfigLengthBytes = 4;

uint16_t TotalLength(const uint8_t *configDesc) {
  return static_cast<uint16_t>(configDesc[2] | configDesc[3] << 8);
}

// A zero-filled record with its header, lock and the caller's values, or null.
PelarixDevice *NewDeviceRecord(PelarixSession *session, const DeviceRequest &request) {
  auto *device = static_cast<PelarixDevice *>(AllocateRecord(kDeviceHandle, sizeof(PelarixDevice)));
  if (device == nullptr) {
    return nullptr;
  }
  InitHandleHeader(&device->header, kDeviceHandle, &session->header);
  device->state = kDeviceCreated;
  platform::InitLock(&device->lock);
  device->pluginCallback = request.callback;
  device->pluginContext = request.context;
  device->clientVersion = request.clientVersion;
  device->partial = request.partial;
  device->plugParam1 = request.plugParams[0];
  device->plugParam2 = request.plugParams[1];
  device->plugParam3 = request.plugParams[2];
  return device;
}

// The PlugNo, the copies, the store and the settings of a new record.
PelarixStatus FillDevice(PelarixSession *session, PelarixDevice *device,
                         const DeviceRequest &request) {
  PelarixStatus status =
      HubGetNextPlugNumber(session->hubHandle, session->hubHandle, &device->plugNo);
  if (status != Pelarix_Success) {
    return status;
  }
  std::memcpy(device->deviceDescriptor, request.deviceDesc, sizeof device->deviceDescriptor);
  device->configLength = TotalLength(request.configDesc);
  // The copy is at least the four bytes that give a set its length, zero
  // beyond what was copied: the family lookup of the device's settings reads
  // them, and a set shorter than that then reads as one of length 0.
  device->configDescriptor = static_cast<uint8_t *>(std::calloc(
      1, device->configLength > kConfigLengthBytes ? device->configLength : kConfigLengthBytes));
  if (device->configDescriptor == nullptr) {
    return Pelarix_OutOfMemory;
  }
  std::memcpy(device->configDescriptor, request.configDesc, device->configLength);
  device->stringStore = StringStoreCreate();
  if (device->stringStore == nullptr) {
    LogMessage(kLogFailure, u"Failed to create deferred plugin context string store");
    return Pelarix_Failure;
  }
  const DeviceSettings settings = ReadDeviceSettings(
      session->filterManager, device->deviceDescriptor, device->configDescriptor, device);
  device->pluginDelayMs = settings.pluginDelayMs;
  device->deviceFlags = settings.deviceFlags;
  return Pelarix_Success;
}

void LinkDevice(PelarixSession *session, PelarixDevice *device) {
  platform::EnterLock(&session->deviceListLock);
  device->next = session->devices;
  session->devices = device;
  platform::LeaveLock(&session->deviceListLock);
}

PelarixStatus CreateDevice(PelarixHandle sessionHandle, const DeviceRequest &request,
                           PelarixHandle *deviceHandle, PelarixDevice **made) {
  if (!IsValidHandle(sessionHandle, kSessionHandle)) {
    LogMessage(kLogFailure, u"Invalid session handle: %p", sessionHandle);
    return Pelarix_InvalidHandle;
  }
  if (request.deviceDesc == nullptr || request.configDesc == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, deviceDesc or configDesc is null");
    return Pelarix_InvalidParameter;
  }
  if (deviceHandle == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, deviceHandle is null");
    return Pelarix_InvalidParameter;
  }
  auto *session = static_cast<PelarixSession *>(sessionHandle);
  // A refused device costs neither a plug number nor memory.
  if (!ordo::usb::IsDeviceAllowedByFilter(session->filterManager, request.deviceDesc,
                                          request.configDesc)) {
    LogMessage(kLogFailure, u"Device blocked");
    return Pelarix_DeviceBlocked;
  }
  *made = NewDeviceRecord(session, request);
  if (*made == nullptr) {
    return Pelarix_OutOfMemory;
  }
  const PelarixStatus status = FillDevice(session, *made, request);
  if (status != Pelarix_Success) {
    return status;
  }
  LinkDevice(session, *made);
  *deviceHandle = *made;
  return Pelarix_Success;
}

PelarixStatus CreateDeviceLogged(PelarixHandle sessionHandle, const DeviceRequest &request,
                                 PelarixHandle *deviceHandle) {
  PelarixDevice *device = nullptr;
  const PelarixStatus status = CreateDevice(sessionHandle, request, deviceHandle, &device);
  LogMessage(kLogLifecycle,
             u"Create device, Handle: %p, Device Handle: %p PlugNo: %d, Partial: %s, Client "
             u"Version: %d, Plugin Delay (ms), %d, status: 0x%x",
             sessionHandle, device, device != nullptr ? device->plugNo : 0,
             request.partial != 0 ? u"true" : u"false", request.clientVersion,
             device != nullptr ? device->pluginDelayMs : 0, status);
  if (status != Pelarix_Success && device != nullptr) {
    DestroyDevice(device);
  }
  return status;
}

}  // namespace
}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CreateDeviceEx(
    PelarixHandle session, uint32_t clientVersion, uint8_t partial, uint32_t plugParam1,
    uint32_t plugParam2, uint32_t plugParam3, const uint8_t *deviceDesc, const uint8_t *configDesc,
    PelarixPluginCallback callback, void *context, PelarixHandle *deviceHandle) {
  const pelarix::DeviceRequest request{
      clientVersion, partial, {plugParam1, plugParam2, plugParam3}, deviceDesc, configDesc,
      callback,      context};
  return pelarix::CreateDeviceLogged(session, request, deviceHandle);
}

// The plug parameters a caller of the short form leaves to the library.
PELARIX_API PelarixStatus PELARIX_CALL
Pelarix_CreateDevice(PelarixHandle session, uint32_t clientVersion, uint8_t partial,
                     const uint8_t *deviceDesc, const uint8_t *configDesc,
                     PelarixPluginCallback callback, void *context, PelarixHandle *deviceHandle) {
  return Pelarix_CreateDeviceEx(session, clientVersion, partial, 0xFFFFFFFF, 0, 0, deviceDesc,
                                configDesc, callback, context, deviceHandle);
}

}  // extern "C"
