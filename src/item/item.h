// Item records: one request (or notice) of the hub for one device, from the
// pump that fetched it to the close of its last reference. The buffer holds
// the caller's prefix room, the hub's item record and the suffix room.
#pragma once

#include <cstdint>

#include "frame/handle.h"
#include "platform/platform.h"

namespace pelarix {

struct PelarixDevice;

enum ItemState : uint32_t {
  kItemOpen = 0,
  kItemParked = 1,
  kItemCompleted = 2,
};

enum ItemFlags : uint32_t {
  kItemInternal = 1,      // a string fetch item, completed inside the library
  kItemNoCompletion = 2,  // not completed by the library when it is dropped
};

struct PelarixItem {
  HandleHeader header;           // parent: the device
  PelarixItem *next;             // link of the device's item list
  platform::RecursiveLock lock;  // guards state and completion
  uint32_t state;                // ItemState
  uint32_t flags;                // ItemFlags
  uint32_t itemId;
  uint32_t bufferLength;  // bytes allocated
  uint32_t prefixLength;  // room in front of the record
  uint32_t suffixLength;  // room asked for behind the data
  uint8_t *buffer;        // owned
  uint32_t dataLength;    // bytes of the hub's record held, header included
  uint8_t *record;        // at buffer + prefixLength
};

inline PelarixDevice *DeviceOf(const PelarixItem *item) {
  return reinterpret_cast<PelarixDevice *>(item->header.parent);
}

// A new open item record of the device, zero-filled, with one reference and
// its lock; null when memory is out. Nothing else is filled in.
PelarixItem *NewItemRecord(PelarixDevice *device);

// Completes an item nobody completed (status 0xFFFFFFFF), unlinks and frees
// it, and frees a lingering device whose last item this was.
void DestroyItem(PelarixItem *item);

}  // namespace pelarix
