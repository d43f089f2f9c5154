#include "frame/handle.h"

#include <atomic>

#include "device/device.h"
#include "frame/log.h"
#include "frame/record_pool.h"
#include "frame/session.h"
#include "item/item.h"

namespace pelarix {

void InitHandleHeader(HandleHeader *header, HandleKind kind, HandleHeader *parent) {
  header->magic = kHandleMagic;
  header->kind = kind;
  header->refCount = 1;
  header->parent = parent;
}

int32_t ReadRefCount(HandleHeader *header) {
  int32_t count = 0;
  std::atomic_ref<int32_t>(header->refCount).compare_exchange_strong(count, 0);
  return count;
}

int32_t AddRefCount(HandleHeader *header, int32_t delta) {
  // The count wraps at its ends rather than being undefined; a caller that
  // sees a wrapped count reports a state error.
  const int32_t before = std::atomic_ref<int32_t>(header->refCount).fetch_add(delta);
  return static_cast<int32_t>(static_cast<uint32_t>(before) + static_cast<uint32_t>(delta));
}

bool IsValidHandle(const void *handle, uint32_t kind) {
  // A handle is an address the caller hands back; nothing is read through it
  // until the pool has confirmed that it is the start of one of its records
  // of that kind. A made-up, misaligned or interior address fails here.
  if (handle == nullptr || !IsPoolRecord(handle, kind)) {
    return false;
  }
  auto *header = static_cast<HandleHeader *>(const_cast<void *>(handle));
  if (header->magic != kHandleMagic) {
    return false;
  }
  if (kind != kAnyHandle && header->kind != kind) {
    return false;
  }
  // Any kind is accepted, but a header must name the kind of the memory it
  // stands in: a release destroys the record by the header's kind.
  if (kind == kAnyHandle && !IsPoolRecord(handle, header->kind)) {
    return false;
  }
  return ReadRefCount(header) >= 1;
}

void ReleaseHandle(HandleHeader *record) {
  LogMessage(kLogTraffic, u"Deref inst: %p, refCount: %d", record, ReadRefCount(record));
  if (AddRefCount(record, -1) != 0) {
    return;
  }
  LogMessage(kLogTraffic, u"Destroying inst: %p", record);
  switch (record->kind) {
    case kSessionHandle:
      DestroySession(reinterpret_cast<PelarixSession *>(record));
      break;
    case kDeviceHandle:
      DestroyDevice(reinterpret_cast<PelarixDevice *>(record));
      break;
    case kItemHandle:
      DestroyItem(reinterpret_cast<PelarixItem *>(record));
      break;
    default:
      break;
  }
}

}  // namespace pelarix
