#include "item/item_completion.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "device/device.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub/hub_control_codes.h"
#include "hub/hub_records.h"
#include "hub/hub_request.h"
#include "hub/hub_requests.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// Completions up to this much data are built on the stack: the pump's hot
// path then allocates nothing per completion.
constexpr uint32_t kStackCompletionBytes = 1024;

PelarixStatus SendCompletion(PelarixItem *item, uint32_t status, uint32_t length,
                             const void *data) {
  uint32_t recordSize = 0;
  if (!HubCompleteRecordSize(length, &recordSize)) {
    return Pelarix_OutOfMemory;
  }
  uint8_t onStack[kStackCompletionBytes];
  uint8_t *record = onStack;
  if (recordSize > sizeof onStack) {
    record = static_cast<uint8_t *>(std::malloc(recordSize));
    if (record == nullptr) {
      return Pelarix_OutOfMemory;
    }
  }
  WriteHubCompleteRecord(record, item->itemId, status, nullptr, length);
  uint8_t *answer = record + kHubCompleteRecordHeaderBytes;
  if (data != nullptr) {
    std::memcpy(answer, data, length);
  } else {
    std::memset(answer, 0, length);
  }
  PelarixSession *session = SessionOf(DeviceOf(item));
  const PelarixStatus result = HubCompleteItem(session->hubHandle, item, record, recordSize);
  if (record != onStack) {
    std::free(record);
  }
  return result;
}

// A fetch item is marked completed under its own lock, and tells whether it
// was parked then; its answer goes to the fetch afterwards, outside that lock.
bool ClaimFetchItem(PelarixItem *item) {
  const bool wasParked = item->state == kItemParked;
  item->state = kItemCompleted;
  return wasParked;
}

// With no fetch completion set, the fetch this item was made for has ended
// already (after a stop, an earlier fetch item's completion can end a later
// fetch): the item being marked completed is all there is to it.
void CompleteFetchItem(PelarixItem *item, bool wasParked, uint32_t status, uint32_t length,
                       const void *data) {
  const FetchComplete complete =
      std::atomic_ref<FetchComplete>(DeviceOf(item)->fetchComplete).load();
  if (complete != nullptr) {
    complete(item, wasParked, status, length, data);
  }
}

// A raw completion record of a fetch item: its status, data length and data.
// A record too short for its header carries no status to read, so the fetch
// counts as unanswered; the data length is the record's, but never more than
// the record holds.
void CompleteFetchRaw(PelarixItem *item, bool wasParked, uint32_t length, const uint8_t *record) {
  if (length < kHubCompleteRecordHeaderBytes) {
    CompleteFetchItem(item, wasParked, kHubCompleteUnserved, 0, nullptr);
    return;
  }
  const HubCompleteRecord header = ReadHubCompleteRecord(record);
  const uint32_t held = length - kHubCompleteRecordHeaderBytes;
  CompleteFetchItem(item, wasParked, header.status,
                    header.dataLength < held ? header.dataLength : held,
                    record + kHubCompleteRecordHeaderBytes);
}

}  // namespace

PelarixStatus CompleteItemInternal(PelarixItem *item, uint32_t status, uint32_t length,
                                   const void *data) {
  PelarixStatus result = Pelarix_Success;
  bool fetch = false;
  bool wasParked = false;
  platform::EnterLock(&item->lock);
  if (item->state == kItemCompleted) {
    // A second completion is harmless.
  } else if ((item->flags & kItemInternal) != 0) {
    // What becomes of a fetch is the deferred thread's business.
    fetch = true;
    wasParked = ClaimFetchItem(item);
  } else {
    result = SendCompletion(item, status, length, data);
    if (result == Pelarix_Success) {
      item->state = kItemCompleted;
    }
  }
  platform::LeaveLock(&item->lock);
  if (fetch) {
    CompleteFetchItem(item, wasParked, status, length, data);
  }
  LogMessage(kLogTraffic, u"Complete item, handle: %p, PlugNo: %d, Item Id: %d, status: 0x%x", item,
             DeviceOf(item)->plugNo, item->itemId, result);
  return result;
}

void CompleteUnserved(platform::HubConnection hubHandle, uint32_t itemId) {
  uint8_t record[kHubCompleteRecordHeaderBytes];
  WriteHubCompleteRecord(record, itemId, kHubCompleteUnserved, nullptr, 0);
  uint32_t bytesReturned = 0;
  HubRequest(hubHandle, IOCTL_HUB_COMPLETE_ITEM, record, sizeof record, nullptr, 0, &bytesReturned);
}

}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CompleteItem(PelarixHandle handle, uint32_t status,
                                                            uint32_t length, const void *data) {
  using namespace pelarix;
  PelarixStatus result = Pelarix_InvalidHandle;
  if (IsValidHandle(handle, kItemHandle)) {
    result = CompleteItemInternal(static_cast<PelarixItem *>(handle), status, length, data);
  } else {
    LogMessage(kLogFailure, u"Invalid item handle: %p", handle);
  }
  LogMessage(kLogTraffic, u"Complete item, handle: %d, status: 0x%x", DecimalHandle(handle),
             result);
  return result;
}

// The caller's own HubCompleteRecord goes to the hub as it stands: neither
// its id nor its length is checked, so a caller that builds it in place
// spares the copy.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CompleteItemRaw(PelarixHandle handle,
                                                               uint32_t length,
                                                               const void *record) {
  using namespace pelarix;
  PelarixStatus result = Pelarix_Success;
  if (!IsValidHandle(handle, kItemHandle)) {
    LogMessage(kLogFailure, u"Invalid item handle: %p", handle);
    result = Pelarix_InvalidHandle;
  } else {
    auto *item = static_cast<PelarixItem *>(handle);
    bool fetch = false;
    bool wasParked = false;
    platform::EnterLock(&item->lock);
    if (item->state == kItemCompleted) {
      // nothing more to send
    } else if (record == nullptr && length != 0) {
      // There is no record to send or to read a status from.
      result = Pelarix_InvalidParameter;
    } else if ((item->flags & kItemInternal) != 0) {
      fetch = true;
      wasParked = ClaimFetchItem(item);
    } else {
      result = HubCompleteItem(SessionOf(DeviceOf(item))->hubHandle, item, record, length);
      if (result == Pelarix_Success) {
        item->state = kItemCompleted;
      }
    }
    platform::LeaveLock(&item->lock);
    if (fetch) {
      CompleteFetchRaw(item, wasParked, length, static_cast<const uint8_t *>(record));
    }
  }
  LogMessage(kLogTraffic, u"Complete item (raw), handle: %d, status: 0x%x", DecimalHandle(handle),
             result);
  return result;
}

}  // extern "C"
