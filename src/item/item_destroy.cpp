// The end of an item: its last reference gone.
#include <cstdlib>

#include "device/device.h"
#include "frame/record_pool.h"
#include "hub/hub_records.h"
#include "item/item.h"
#include "item/item_completion.h"

namespace pelarix {
namespace {

// Takes the item out of its device's list; true if the list is empty now.
bool UnlinkItem(PelarixDevice *device, PelarixItem *item) {
  platform::EnterLock(&device->lock);
  PelarixItem **link = &device->items;
  while (*link != nullptr && *link != item) {
    link = &(*link)->next;
  }
  if (*link == item) {
    *link = item->next;  // an item never linked in is not found
  }
  const bool emptied = device->items == nullptr;
  platform::LeaveLock(&device->lock);
  return emptied;
}

}  // namespace

void DestroyItem(PelarixItem *item) {
  platform::EnterLock(&item->lock);
  const bool open = item->state == kItemOpen || item->state == kItemParked;
  platform::LeaveLock(&item->lock);
  // The hub never waits on an item the caller dropped. The completion takes
  // the item's lock itself: a fetch item's completion takes its device's
  // lock after the item's is left.
  if (open && (item->flags & kItemNoCompletion) == 0) {
    CompleteItemInternal(item, kHubCompleteUnserved, 0, nullptr);
  }
  PelarixDevice *device = DeviceOf(item);
  const bool lastItem = UnlinkItem(device, item);
  std::free(item->buffer);
  platform::DeleteLock(&item->lock);
  FreeRecord(kItemHandle, item, sizeof(PelarixItem));
  // Only the release of the device's last item can free a device whose own
  // references are gone; a release that leaves items behind does not look.
  if (lastItem && ReadRefCount(&device->header) == 0) {
    DestroyDevice(device);
  }
}

}  // namespace pelarix
