// The filter manager of a new session: made, given the library's log, and
// fed the session's filter strings.
#pragma once

#include <cstdint>

#include "config/session_settings.h"
#include "ordo/usb/filter_entry_points.h"

namespace pelarix {

// The filter engine's threshold for the library's log level: the engine
// counts its levels the other way round, so that a filter line passes when
// the library's level is at least the line's own. Any level outside 0 to 3
// gives 1.
uint32_t FilterLogThreshold(int32_t logLevel);

// A new filter manager whose log (process-wide: the session created last
// owns it) goes to the library's sink at logLevel, fed first the blacklist
// and then the filter strings present, in table order. Null, with a level 0
// line, if it cannot be made; the session then works without a filter and
// refuses every device. The strings stay in settings.
HDevFilterMgrAgent *FeedFilterManager(SessionSettings *settings, int32_t logLevel);

}  // namespace pelarix
