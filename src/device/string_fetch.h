// The string fetches of a deferred plug-in: a client below version 4 sends
// no strings, so the deferred thread asks the device itself through items
// the library builds. The pump hands such an item to the caller like any
// hub item, and its completion comes back here instead of going to the hub.
#pragma once

#include <cstdint>

#include "device/device.h"
#include "pelarix.h"

namespace pelarix {

// On the deferred thread: announces a fetch of one string descriptor to the
// pump and waits until its item is answered, or until a stop (or a pending
// set of deferredEvent) ends the wait. Pelarix_Failure after a stop,
// otherwise the fetch's outcome.
PelarixStatus GetStringDescriptor(PelarixDevice *device, uint8_t index, uint16_t language);

// The value of fetchGetItem: makes the announced fetch's item. Runs on a
// pump, with the session's deviceListLock held.
PelarixStatus BuildStringDescriptorItem(PelarixDevice *device, PelarixItem **item);

// The value of fetchComplete: takes the answer of a fetch item in, stores
// its string and lets the deferred thread go on. Runs on the completing
// thread after the item has been marked completed under its own lock, and
// without that lock: it takes the device's lock, and the library's order is
// device before item.
void CompleteStringDescriptorItem(PelarixItem *item, bool wasParked, uint32_t status,
                                  uint32_t length, const void *data);

// Forgets whatever fetch is still announced or under way. The deferred
// thread calls it as it ends, so that no item is made or answered for a
// fetch nobody waits for.
void WithdrawFetch(PelarixDevice *device);

}  // namespace pelarix
