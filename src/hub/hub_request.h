// The one helper through which every control request to the hub goes.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace pelarix {

// Sends one control request and waits, with no time limit, for its end. The
// result is the system's error code, 0 on success: a failure reported at once
// stands as it is; a failure after the request went pending is also logged at
// level 0 when the hub error table knows it. attachEvent is only for
// IOCTL_HUB_SET_NOTIFICATION_EVENT, whose input holds the event's handle value.
// Any number of threads may send on one hub handle at once.
uint32_t HubRequest(platform::HubConnection hubHandle, uint32_t code, const void *input,
                    uint32_t inputLength, void *output, uint32_t outputLength,
                    uint32_t *bytesReturned, platform::Event attachEvent = nullptr);

}  // namespace pelarix
