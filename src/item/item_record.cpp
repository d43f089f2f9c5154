// The birth of an item record: the pump's items and the deferred plug-in's
// fetch items start alike.
#include "device/device.h"
#include "frame/handle.h"
#include "frame/record_pool.h"
#include "item/item.h"

namespace pelarix {

PelarixItem *NewItemRecord(PelarixDevice *device) {
  auto *item = static_cast<PelarixItem *>(AllocateRecord(kItemHandle, sizeof(PelarixItem)));
  if (item == nullptr) {
    return nullptr;
  }
  InitHandleHeader(&item->header, kItemHandle, &device->header);
  platform::InitLock(&item->lock);
  item->state = kItemOpen;
  return item;
}

}  // namespace pelarix
