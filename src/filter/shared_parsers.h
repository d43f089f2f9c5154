// Stateless helper and matcher objects, one per filter type, made once and
// shared: a value is parsed and compared without making and destroying a
// helper or matcher each time.
#pragma once

#include <array>
#include <memory>

#include "ordo/usb/filter_types.h"

namespace ordo::usb {

class FltStrHelper;
class FltMatcher;

// The helper that makeFltStrHelper would make for type, or null.
const FltStrHelper *sharedFltStrHelper(FilterType type);
// The matcher that makeFltMatcher would make for type, or null.
const FltMatcher *sharedFltMatcher(FilterType type);

// What make gives for each type, made on first use (thread-safe) and kept for
// the life of the process.
template <typename Made, std::unique_ptr<Made> (*make)(FilterType)>
const Made *madeOncePerType(FilterType type) {
  static const auto made = [] {
    std::array<std::unique_ptr<Made>, FilterTypeCount> all;
    for (FilterType t = 0; t < FilterTypeCount; ++t) {
      all[t] = make(t);
    }
    return all;
  }();
  return type < FilterTypeCount ? made[type].get() : nullptr;
}

}  // namespace ordo::usb
