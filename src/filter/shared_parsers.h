// Stateless helper and matcher objects, one per filter type, made once and
// shared: a value is parsed and compared without making and destroying a
// helper or matcher each time.
#pragma once

#include "ordo/usb/filter_types.h"

namespace ordo::usb {

class FltStrHelper;
class FltMatcher;

// The helper that makeFltStrHelper would make for type, or null.
const FltStrHelper *sharedFltStrHelper(FilterType type);
// The matcher that makeFltMatcher would make for type, or null.
const FltMatcher *sharedFltMatcher(FilterType type);

}  // namespace ordo::usb
