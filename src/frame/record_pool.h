// Memory of session, device and item records.
//
// Records are carved out of slabs that the pool takes from the allocator and
// never gives back, one chain of slabs per kind and record size. A freed
// record is wiped to zero and kept on a free list of its kind and size, and
// only a later record of the same kind and size reuses it. So the memory
// behind a handle stays a record header for the life of the process: a stale
// handle reads a zero magic (or, once reused, a live record of the very kind
// it named) and never memory the allocator has handed to something else.
//
// Because the pool knows its slabs, it can tell whether an address is the
// start of one of its records before anything reads through it: a handle the
// caller made up, one that points into the middle of a record, or one of a
// record of another kind is refused by IsPoolRecord without a read. The cost
// is that the memory of each kind stays at its peak: a handful of sessions,
// the devices of a hub, the items in flight.
#pragma once

#include <cstddef>

#include "frame/handle.h"

namespace pelarix {

// A zero-filled record of size bytes (at least a HandleHeader), or null when
// memory is out. A record is reused only for a request of its own kind and
// size. A kind keeps at most four record sizes apart; a request of a fifth
// size is refused with null.
void *AllocateRecord(HandleKind kind, size_t size);

// Wipes the record to zero and keeps it for the next record of its kind.
// Null is ignored.
void FreeRecord(HandleKind kind, void *record, size_t size);

// True if address is the start of a record slot that the pool carved for
// this kind (kAnyHandle: for any kind), live or free. Reads only the pool's
// own bookkeeping, never the memory at address, and takes no lock.
bool IsPoolRecord(const void *address, uint32_t kind);

}  // namespace pelarix
