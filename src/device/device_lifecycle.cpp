// The end of a device: unplug (by the caller or by its last reference) and
// destruction, and the lookup by PlugNo that the pump uses.
#include <cstdlib>

#include "device/deferred_plugin.h"
#include "device/device.h"
#include "device/device_state.h"
#include "device/string_store.h"
#include "frame/log.h"
#include "frame/record_pool.h"
#include "frame/session.h"
#include "hub/hub_requests.h"
#include "item/item.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// Gives back the parking reference of each parked item. A release may destroy
// the item and change the list, so the walk starts again from the head after
// each one; the device's lock is not held across a release.
void ReleaseParkedItems(PelarixDevice *device) {
  for (PelarixItem *item = device->items; item != nullptr;) {
    platform::EnterLock(&item->lock);
    if (item->state != kItemParked) {
      platform::LeaveLock(&item->lock);
      item = item->next;
      continue;
    }
    item->state = kItemOpen;
    platform::LeaveLock(&item->lock);
    platform::LeaveLock(&device->lock);
    ReleaseHandle(&item->header);
    platform::EnterLock(&device->lock);
    item = device->items;
  }
}

// Unlinks the device, and tells whether it was the last of a session already
// closed, which the caller then frees. Both are decided under the list lock,
// where the session's own close decides too, so that exactly one of the two
// frees the session when they race.
bool UnlinkDevice(PelarixSession *session, PelarixDevice *device) {
  platform::EnterLock(&session->deviceListLock);
  PelarixDevice **link = &session->devices;
  while (*link != nullptr && *link != device) {
    link = &(*link)->next;
  }
  if (*link == device) {
    *link = device->next;  // a device never linked in is not found
  }
  const bool freeSession = session->devices == nullptr && !session->teardownClaimed &&
                           ReadRefCount(&session->header) == 0;
  session->teardownClaimed = session->teardownClaimed || freeSession;
  platform::LeaveLock(&session->deviceListLock);
  return freeSession;
}

void FreeDevice(PelarixDevice *device) {
  platform::DeleteLock(&device->lock);
  std::free(device->configDescriptor);
  StringStoreDestroy(device->stringStore);
  if (device->deferredEvent != nullptr) {
    platform::CloseEvent(device->deferredEvent);
  }
  if (device->deferredThread != nullptr) {
    platform::CloseThread(device->deferredThread);
  }
  FreeRecord(kDeviceHandle, device, sizeof(PelarixDevice));
}

}  // namespace

PelarixStatus UnplugDevice(PelarixDevice *device) {
  PelarixStatus status = Pelarix_Success;
  platform::EnterLock(&device->lock);
  if (DeviceStateOf(device) != kDevicePlugged) {
    platform::LeaveLock(&device->lock);  // a second unplug at the same time ends here
  } else {
    SetDeviceState(device, kDeviceUnplugged);
    // A parked item released below must not tear the device down while it
    // is being walked.
    AddRefCount(&device->header, 1);
    ReleaseParkedItems(device);
    AddRefCount(&device->header, -1);
    platform::LeaveLock(&device->lock);
    StopDeferredPlugin(device);
    status = HubUnplugDevice(SessionOf(device)->hubHandle, device, device->plugNo);
  }
  LogMessage(kLogLifecycle,
             u"Unplug device, handle: %p, PlugNo: %d, Item Count: %d, Item Call Count: %d, Item "
             u"Max Len: %d, status: 0x%x",
             device, device->plugNo, LoadField(device->itemCount), LoadField(device->itemCallCount),
             LoadField(device->itemMaxLen), status);
  return status;
}

void DestroyDevice(PelarixDevice *device) {
  platform::EnterLock(&device->lock);
  if (DeviceStateOf(device) == kDevicePlugged) {
    UnplugDevice(device);
  }
  if (device->items != nullptr) {
    platform::LeaveLock(&device->lock);
    return;  // the last item to go takes the device with it
  }
  platform::LeaveLock(&device->lock);
  PelarixSession *session = SessionOf(device);
  const bool freeSession = UnlinkDevice(session, device);
  FreeDevice(device);
  if (freeSession) {
    FreeSession(session);
  }
}

PelarixDevice *FindDeviceByPlugNo(PelarixSession *session, uint32_t plugNo) {
  platform::EnterLock(&session->deviceListLock);
  PelarixDevice *device = session->devices;
  while (device != nullptr && device->plugNo != plugNo) {
    device = device->next;
  }
  if (device != nullptr) {
    AddRefCount(&device->header, 1);
  }
  platform::LeaveLock(&session->deviceListLock);
  return device;
}

}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_UnplugDevice(PelarixHandle handle) {
  using namespace pelarix;
  if (!IsValidHandle(handle, kDeviceHandle)) {
    LogMessage(kLogFailure, u"Invalid device handle: %p", handle);
    return Pelarix_InvalidHandle;
  }
  auto *device = static_cast<PelarixDevice *>(handle);
  if (DeviceStateOf(device) != kDevicePlugged) {
    LogMessage(kLogFailure, u"Device not plugged in, handle: %p", handle);
    return Pelarix_InvalidState;
  }
  return UnplugDevice(device);
}

}  // extern "C"
