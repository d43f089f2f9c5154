// Handles: every record the caller can hold (session, device, item) starts
// with a HandleHeader, and a PelarixHandle is the record's address. The magic
// and the wipe before release are what let a stale handle be told apart from
// a live one.
#pragma once

#include <cstdint>

namespace pelarix {

// "plrx" read as a little-endian u32.
inline constexpr uint32_t kHandleMagic = 0x78726C70;

enum HandleKind : uint32_t {
  kAnyHandle = 0,  // accepted by IsValidHandle as "whatever kind"
  kSessionHandle = 1,
  kDeviceHandle = 2,
  kItemHandle = 3,
};

// The leading fields of every record, in this order. refCount is a plain
// integer so that records stay trivially zero-fillable; it is only touched
// through the atomic helpers below.
struct HandleHeader {
  uint32_t magic;
  uint32_t kind;
  int32_t refCount;
  HandleHeader *parent;  // null for a session; the session of a device; the device of an item
};

// Sets magic, kind, a count of 1 and the parent of a freshly allocated record.
void InitHandleHeader(HandleHeader *header, HandleKind kind, HandleHeader *parent);

// The count as it stands, read by a compare-exchange of 0 with 0.
int32_t ReadRefCount(HandleHeader *header);
// Atomically adds delta and returns the new count.
int32_t AddRefCount(HandleHeader *header, int32_t delta);

// True if handle is a live record of the given kind (kAnyHandle: any kind):
// the start of a record that the record pool made for that kind, carrying the
// magic, that kind and a count of 1 or more.
bool IsValidHandle(const void *handle, uint32_t kind);

// Drops one reference; the last one destroys the record by its kind.
void ReleaseHandle(HandleHeader *record);

}  // namespace pelarix
