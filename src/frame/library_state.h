// The library-wide state, one instance per process. initCount is the only
// field guarded: the others are written once, by the init call, and read
// without a lock from every thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "pelarix.h"

namespace pelarix {

struct LibraryState {
  std::atomic<int32_t> initCount{0};  // successful init calls, never above 1 once a call returned
  PelarixLogCallback logCallback = nullptr;  // null silences every message
  int32_t logLevel = 1;                      // highest level delivered
  uint32_t lateItemAllocation = 0;  // non-zero: an item's buffer is sized once its device is known
};

extern LibraryState gLibrary;

}  // namespace pelarix
