// Finding and opening the hub's device interface, and the two requests that
// a session sends while it opens: the version and the notification event.
#pragma once

#include <cstdint>

#include "pelarix.h"
#include "platform/platform.h"

namespace pelarix {

// Opens the first hub interface found, exclusively. Pelarix_Success with
// *hubHandle set, or Pelarix_HubOpenFailed / Pelarix_OutOfMemory with
// *hubHandle null. Its failure lines are at level 2; the caller adds its own
// level 0 line.
PelarixStatus OpenHubInterface(platform::HubConnection *hubHandle);

// IOCTL_HUB_GET_VERSION: Pelarix_Success with *version set, or
// Pelarix_HubRequestFailed.
PelarixStatus GetHubVersion(platform::HubConnection hubHandle, uint32_t *version);

// IOCTL_HUB_SET_NOTIFICATION_EVENT: hands the hub the event it raises while
// items wait. Pelarix_Success or Pelarix_HubRequestFailed.
PelarixStatus SetHubNotificationEvent(platform::HubConnection hubHandle,
                                      platform::Event notificationEvent);

}  // namespace pelarix
