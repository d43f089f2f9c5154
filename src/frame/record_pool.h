// Memory of session, device and item records.
//
// A freed record is wiped to zero and kept on a free list of its kind instead
// of going back to the allocator, and only a later record of the same kind
// reuses it. So the memory behind a handle stays a record header for the life
// of the process: a stale handle reads a zero magic (or, once reused, a live
// record of the very kind it named) and never memory the allocator has handed
// to something else. IsValidHandle can look at any handle the library ever
// gave out without reading freed memory, also under AddressSanitizer. The
// cost is that the memory of each kind stays at its peak: a handful of
// sessions, the devices of a hub, the items in flight.
#pragma once

#include <cstddef>

#include "frame/handle.h"

namespace pelarix {

// A zero-filled record of size bytes (at least a HandleHeader), or null when
// memory is out. A record is reused only for a request of its own kind and
// size.
void *AllocateRecord(HandleKind kind, size_t size);

// Wipes the record to zero and keeps it for the next record of its kind.
void FreeRecord(HandleKind kind, void *record, size_t size);

}  // namespace pelarix
