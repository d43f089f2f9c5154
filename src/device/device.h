// Virtual device records: one USB device of a remote client on its way to
// the hub, from creation through plug-in to unplug. The record also carries
// the fields of the deferred plug-in (the delay, and the string fetches of an
// older client), which its own thread reads and writes under the device's
// lock.
#pragma once

#include <cstdint>

#include "frame/handle.h"
#include "pelarix.h"
#include "platform/platform.h"

namespace pelarix {

struct PelarixItem;
struct PelarixDevice;
struct PelarixSession;

enum DeviceState : uint32_t {
  kDeviceCreated = 0,
  kDevicePlugged = 1,
  kDeviceUnplugged = 2,
};

// The two steps of a string fetch that run outside the deferred thread: the
// pump making the fetch's item, and the completion of that item. The
// completion is told whether the item was parked when it was answered.
using FetchGetItem = PelarixStatus (*)(PelarixDevice *device, PelarixItem **item);
using FetchComplete = void (*)(PelarixItem *item, bool wasParked, uint32_t status, uint32_t length,
                               const void *data);

// The language of the serial number and product strings, at plug-in and
// when they are fetched; the device's own language table is not consulted.
inline constexpr uint16_t kEnglishUs = 0x0409;

// Byte offsets of the two string indexes in a device descriptor.
inline constexpr uint32_t kDeviceDescriptorProductIndex = 15;
inline constexpr uint32_t kDeviceDescriptorSerialIndex = 16;

struct PelarixDevice {
  HandleHeader header;  // parent: the session
  PelarixDevice *next;  // link of the session's device list
  uint32_t state;       // DeviceState
  // Guards state, the item list, the string store and the fetch fields.
  platform::RecursiveLock lock;
  PelarixItem *items;  // newest first
  uint32_t plugNo;     // the hub's number of the device
  uint32_t clientVersion;
  uint8_t partial;  // as the caller gave it; the hub sees 0 or 1
  uint32_t deviceFlags;
  uint8_t deviceDescriptor[18];
  uint8_t *configDescriptor;             // owned, configLength bytes
  uint32_t configLength;                 // wTotalLength of the copy
  uint8_t *stringStore;                  // owned; replaced by each addition
  PelarixPluginCallback pluginCallback;  // may be null
  void *pluginContext;
  // Traffic counters for the unplug line. The pump updates them without the
  // device's lock, so they are only touched through atomic_ref.
  uint32_t itemCount;
  uint32_t itemCallCount;
  uint32_t itemMaxLen;
  // Deferred plug-in: the stop mark, and the thread with the event that ends
  // its waits. Both handles are null unless a deferred plug-in was started.
  uint32_t stopDeferred;
  platform::Event deferredEvent;
  platform::Thread deferredThread;
  uint32_t plugParam1;
  uint32_t plugParam2;
  uint32_t plugParam3;
  uint32_t pluginDelayMs;
  // The one string fetch under way.
  uint32_t fetchItemId;
  uint8_t fetchIndex;
  uint16_t fetchLanguage;
  uint32_t fetchStatus;
  FetchGetItem fetchGetItem;    // set while a fetch wants its item made
  FetchComplete fetchComplete;  // set while a fetch item is under way
};

inline PelarixSession *SessionOf(const PelarixDevice *device) {
  return reinterpret_cast<PelarixSession *>(device->header.parent);
}

// Unplugs a plugged device, then frees it unless items remain; frees a
// lingering session whose last device this was. May run more than once.
void DestroyDevice(PelarixDevice *device);

// Marks a plugged device unplugged, gives back its parked items, stops its
// deferred plug-in and tells the hub. A device that is not plugged is left as
// it is, with Pelarix_Success.
PelarixStatus UnplugDevice(PelarixDevice *device);

// Sends the device's plug-in record to the hub and calls the plug-in
// callback with the outcome.
PelarixStatus InternalPluginDevice(PelarixDevice *device);

// The first device of the session with this PlugNo, with a new reference, or
// null. Its state is not looked at.
PelarixDevice *FindDeviceByPlugNo(PelarixSession *session, uint32_t plugNo);

}  // namespace pelarix
