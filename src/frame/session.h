// The session record: the library's connection to the virtual hub. It owns
// the hub connection, three events, two locks, the device list, the settings
// and the filter manager. Devices hang off it in a list and keep its memory
// alive by the rule of destruction, not by its count.
#pragma once

#include <cstdint>

#include "config/session_settings.h"
#include "frame/handle.h"
#include "ordo/usb/filter_entry_points.h"
#include "pelarix.h"
#include "platform/platform.h"

namespace pelarix {

struct PelarixDevice;

struct PelarixSession {
  HandleHeader header;
  platform::RecursiveLock deviceListLock;  // guards devices
  PelarixDevice *devices;                  // newest first; the link is in the device
  platform::Event cancelEvent;             // auto-reset: one cancel releases one waiter
  platform::HubConnection hubHandle;       // null until opened
  // Handed to the hub, which keeps it set while items wait. The library only
  // waits on it.
  platform::Event hubNotificationEvent;
  platform::RecursiveLock hubItemLock;  // keeps the two get-item requests of one item together
  platform::Event deferredPluginEvent;  // set when a string fetch has an item to offer
  PelarixItemBufferCallback itemBufferCallback;  // may be null
  void *itemBufferContext;
  SessionSettings settings;
  HDevFilterMgrAgent *filterManager;  // null if it could not be made
  // Set under deviceListLock by the one thread that frees the session: its
  // close and the destruction of its last device may race, and exactly one
  // of them must free it.
  bool teardownClaimed;
};

// Frees what the session holds and the record itself, unless devices remain:
// then the record lingers until the last device is destroyed. Tolerates the
// null fields of a partly opened session.
void DestroySession(PelarixSession *session);

// The freeing itself, for the thread that has claimed the teardown.
void FreeSession(PelarixSession *session);

}  // namespace pelarix
