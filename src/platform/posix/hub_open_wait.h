// How long opening a hub waits for the hub's open status. On Windows the
// open is one CreateFileW that the driver answers at once; a hub process can
// accept a connection and never answer (stopped, stuck, or not a hub), so the
// wait is bounded, and a hub that stays silent fails the open like a hub that
// cannot be opened.
#pragma once

#include <cstdint>

namespace pelarix::platform {

// ERROR_TIMEOUT: the error of an open whose status never came.
inline constexpr uint32_t kErrorTimeout = 1460;
inline constexpr uint32_t kDefaultHubOpenWaitMs = 5000;

// $PELARIX_HUB_OPEN_TIMEOUT_MS when it is a whole number of milliseconds from
// 1 to 2^31 - 1 in decimal digits; kDefaultHubOpenWaitMs otherwise (unset,
// empty, 0, anything else).
uint32_t HubOpenWaitMs();

}  // namespace pelarix::platform
