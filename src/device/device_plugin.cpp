// Plugging devices in: at once, with the plug-in record sent from the
// caller's thread, or through the deferred plug-in.
#include <cstdlib>

#include "device/deferred_plugin.h"
#include "device/device.h"
#include "device/device_state.h"
#include "device/string_store.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub/hub_records.h"
#include "hub/hub_requests.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// A device whose strings are missing still goes to the hub; the gaps are
// only reported.
void WarnOfMissingStrings(const PelarixDevice *device) {
  const uint8_t serial = device->deviceDescriptor[kDeviceDescriptorSerialIndex];
  const uint8_t product = device->deviceDescriptor[kDeviceDescriptorProductIndex];
  if (serial == 0 && product == 0) {
    return;
  }
  if (StringStoreLanguageCount(device->stringStore) == 0) {
    LogMessage(kLogLifecycle,
               u"Ignoring language ID missing from string store, handle: %p, PlugNo: %d", device,
               device->plugNo);
  }
  if (serial != 0 && StringStoreFind(device->stringStore, serial, kEnglishUs) == nullptr) {
    LogMessage(kLogLifecycle,
               u"Ignoring serial number missing from string store, language: 0x%x, index: %d, "
               u"handle: %p, PlugNo: %d",
               kEnglishUs, serial, device, device->plugNo);
  }
  if (product != 0 && StringStoreFind(device->stringStore, product, kEnglishUs) == nullptr) {
    LogMessage(kLogLifecycle,
               u"Ignoring product missing from string store, language: 0x%x, index: %d, handle: "
               u"%p, PlugNo: %d",
               kEnglishUs, product, device, device->plugNo);
  }
}

// Builds the plug-in record in *record (the caller frees it) and sends it.
PelarixStatus SendPluginRecord(PelarixDevice *device, uint8_t **record) {
  uint32_t storeLength = 0;
  const uint8_t *store = StringStoreBlob(device->stringStore, &storeLength);
  if (store == nullptr) {
    LogMessage(kLogFailure, u"Failed to get string store blob");
    return Pelarix_Failure;
  }
  uint32_t payloadLength = 0;
  uint32_t recordSize = 0;
  if (!HubPluginRecordSizes(device->configLength, storeLength, &payloadLength, &recordSize)) {
    return Pelarix_OutOfMemory;
  }
  *record = static_cast<uint8_t *>(std::calloc(1, recordSize));
  if (*record == nullptr) {
    return Pelarix_OutOfMemory;
  }
  HubPluginRecord fields{};
  fields.plugNo = device->plugNo;
  fields.clientVersion = device->clientVersion;
  fields.partial = device->partial;
  fields.deviceFlags = LoadField(device->deviceFlags);
  fields.plugParam1 = device->plugParam1;
  fields.plugParam2 = device->plugParam2;
  fields.plugParam3 = device->plugParam3;
  WriteHubPluginRecord(*record, fields, device->deviceDescriptor, device->configDescriptor,
                       device->configLength, store, storeLength);
  return HubPluginDevice(SessionOf(device)->hubHandle, device, *record, recordSize);
}

}  // namespace

PelarixStatus InternalPluginDevice(PelarixDevice *device) {
  platform::EnterLock(&device->lock);
  uint8_t *record = nullptr;
  const PelarixStatus status = SendPluginRecord(device, &record);
  const uint32_t flags = LoadField(device->deviceFlags);
  platform::LeaveLock(&device->lock);
  if (device->pluginCallback != nullptr) {
    device->pluginCallback(device, status, device->pluginContext);
  }
  std::free(record);
  LogMessage(kLogLifecycle,
             u"Internal plugin device, handle: %p, Device Flags: 0x%x, PlugNo: %d, status: 0x%x",
             SessionOf(device), flags, device->plugNo, status);
  return status;
}

namespace {

PelarixStatus PluginDevice(PelarixDevice *device) {
  if (DeviceStateOf(device) != kDeviceCreated) {
    LogMessage(kLogFailure, u"Device already plugged in, handle: %p", device);
    return Pelarix_InvalidState;
  }
  if (NeedsDeferredPlugin(device)) {
    const PelarixStatus status = StartDeferredPlugin(device);
    if (status != Pelarix_Success) {
      LogMessage(kLogFailure, u"Failed to start deferred plugin, handle: %p, PlugNo: %d", device,
                 device->plugNo);
      return status;
    }
    SetDeviceState(device, kDevicePlugged);
    return Pelarix_Pending;
  }
  WarnOfMissingStrings(device);
  const PelarixStatus status = InternalPluginDevice(device);
  // Plugged whatever the hub answered: the unplug goes to the hub all the
  // same.
  SetDeviceState(device, kDevicePlugged);
  return status;
}

}  // namespace
}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_PluginDevice(PelarixHandle handle) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_InvalidHandle;
  uint32_t plugNo = 0;
  if (IsValidHandle(handle, kDeviceHandle)) {
    auto *device = static_cast<PelarixDevice *>(handle);
    platform::EnterLock(&device->lock);
    status = PluginDevice(device);
    platform::LeaveLock(&device->lock);
    plugNo = device->plugNo;
  } else {
    LogMessage(kLogFailure, u"Invalid device handle: %p", handle);
  }
  LogMessage(kLogLifecycle, u"Plugin device, handle: %p, PlugNo: %d, status: 0x%x", handle, plugNo,
             status);
  return status;
}

}  // extern "C"
