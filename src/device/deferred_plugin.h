// The deferred plug-in of a device: a plug-in delay from the settings, or the
// strings of a client below version 4 fetched from the device, on a thread of
// the device's own.
#pragma once

#include "device/device.h"
#include "pelarix.h"

namespace pelarix {

// True when a plug-in cannot go to the hub at once: a delay is set, or a
// client below version 4 has strings the device itself must give.
bool NeedsDeferredPlugin(const PelarixDevice *device);

// Starts the deferred thread. Called with the device's lock held.
PelarixStatus StartDeferredPlugin(PelarixDevice *device);

// Stops the deferred thread and returns once it has ended; a device without
// one passes through. Called without the device's lock.
void StopDeferredPlugin(PelarixDevice *device);

}  // namespace pelarix
