// Parking: an item set aside by one thread and found again by id on another.
#include "device/device.h"
#include "frame/log.h"
#include "frame/session.h"
#include "item/item.h"
#include "item/item_completion.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// The parked item of that id among the session's devices, set open again, or
// null. Locks in the library's order: the list, a device, an item.
PelarixItem *TakeParkedItem(PelarixSession *session, uint32_t itemId) {
  PelarixItem *found = nullptr;
  platform::EnterLock(&session->deviceListLock);
  for (PelarixDevice *device = session->devices; device != nullptr && found == nullptr;
       device = device->next) {
    platform::EnterLock(&device->lock);
    for (PelarixItem *item = device->items; item != nullptr && found == nullptr;
         item = item->next) {
      platform::EnterLock(&item->lock);
      if (item->itemId == itemId && item->state == kItemParked) {
        item->state = kItemOpen;
        found = item;
      }
      platform::LeaveLock(&item->lock);
    }
    platform::LeaveLock(&device->lock);
  }
  platform::LeaveLock(&session->deviceListLock);
  return found;
}

}  // namespace
}  // namespace pelarix

extern "C" {

// The parked state holds a reference of its own, so the caller may close its
// handle. Parking twice takes two references for one state.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_ParkItem(PelarixHandle handle) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_InvalidHandle;
  if (IsValidHandle(handle, kItemHandle)) {
    auto *item = static_cast<PelarixItem *>(handle);
    status = Pelarix_DuplicateHandle(item);
    if (status == Pelarix_Success) {
      platform::EnterLock(&item->lock);
      item->state = kItemParked;
      platform::LeaveLock(&item->lock);
    }
  } else {
    LogMessage(kLogFailure, u"Invalid item handle: %p", handle);
  }
  LogMessage(kLogTraffic, u"Park item, handle: %d, status: 0x%x", DecimalHandle(handle), status);
  return status;
}

// The parking reference becomes the caller's. The closing line prints the
// address of the out variable: settled so.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_UnparkItem(uint32_t itemId, PelarixHandle session,
                                                          PelarixHandle *handle) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_Success;
  if (!IsValidHandle(session, kSessionHandle)) {
    LogMessage(kLogFailure, u"Invalid session handle: %p", session);
    status = Pelarix_InvalidHandle;
  } else if (handle == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, handle is null");
    status = Pelarix_InvalidParameter;
  } else {
    *handle = TakeParkedItem(static_cast<PelarixSession *>(session), itemId);
    if (*handle == nullptr) {
      status = Pelarix_InvalidParameter;
    }
  }
  LogMessage(kLogTraffic, u"Unpark item, handle: %d, status: 0x%x", DecimalHandle(handle), status);
  return status;
}

}  // extern "C"
