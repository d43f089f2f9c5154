// The pump: Pelarix_GetNextItem serves a cancel, a deferred string fetch and
// the hub, in that priority. A hub item's buffer is sized with the caller's
// prefix and suffix room, a long item's data comes by a second request under
// the same hubItemLock, and items the caller will never see (blank, malformed,
// of an unknown or unplugged device) are dealt with here.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "device/device.h"
#include "device/device_state.h"
#include "frame/library_state.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub/hub_records.h"
#include "hub/hub_requests.h"
#include "item/item.h"
#include "item/item_completion.h"
#include "pelarix.h"

namespace pelarix {
namespace {

constexpr uint32_t kNoPlugNo = 0xFFFFFFFF;
// The largest item data the pump takes: beyond any one USB transfer a hub can
// raise, so a data length above it is a broken answer, not an item.
constexpr uint32_t kMaxItemDataLength = 64u << 20;
// The second request's output size counts the 40 header bytes although its
// output starts behind them, so a long item's buffer keeps at least that many
// bytes behind the data whatever suffix the caller asked for.
constexpr uint32_t kLongItemSpareBytes = kHubItemRecordHeaderBytes;

enum PumpEvent : uint32_t { kCancelEvent = 0, kFetchEvent = 1, kHubEvent = 2 };

// The local state of one call, kept across passes.
struct PumpCall {
  PelarixSession *session = nullptr;
  PelarixDevice *device = nullptr;  // holds a reference while set
  PelarixItem *item = nullptr;
  uint8_t *buffer = nullptr;      // prefix room, record, suffix room
  uint8_t *bareRecord = nullptr;  // the first request's record before the device is known
  uint8_t *record = nullptr;
  uint32_t bufferLength = 0;
  uint32_t prefix = 0;
  uint32_t suffix = 0;
  uint32_t received = 0;
  bool hubItemLockHeld = false;
};

enum class Pass { kNext, kDone };

void AskForRoom(PumpCall &call, uint32_t length, uint32_t plugNo) {
  call.prefix = 0;
  call.suffix = 0;
  PelarixSession *session = call.session;
  if (session->itemBufferCallback != nullptr) {
    session->itemBufferCallback(session->itemBufferContext, length, &call.prefix, &call.suffix,
                                plugNo);
  }
}

// A buffer of length bytes with the asked room around it; null when the sum
// passes 32 bits or memory is out.
uint8_t *AllocateWithRoom(PumpCall &call, uint32_t length, uint32_t spare, bool zeroFill) {
  const uint64_t total =
      uint64_t{call.prefix} + length + (call.suffix > spare ? call.suffix : spare);
  if (total > UINT32_MAX) {
    return nullptr;
  }
  call.bufferLength = static_cast<uint32_t>(total);
  void *memory = zeroFill ? std::calloc(1, total) : std::malloc(total);
  return static_cast<uint8_t *>(memory);
}

void FreeAllocations(PumpCall &call) {
  std::free(call.buffer);
  std::free(call.bareRecord);
  call.buffer = nullptr;
  call.bareRecord = nullptr;
  call.record = nullptr;
}

// Moves a reference in the device slot out of it.
void ReleaseDeviceSlot(PumpCall &call) {
  if (call.device == nullptr) {
    return;
  }
  ReleaseHandle(&call.device->header);
  call.device = nullptr;
}

uint32_t ExpectedItemLength(const PelarixSession *session) {
  return session->settings.expectedItemLength;
}

// The buffer of the first request: sized for the caller's room at once, or a
// bare record until the device is known.
PelarixStatus FirstBuffer(PumpCall &call) {
  const uint32_t expected = ExpectedItemLength(call.session);
  if (gLibrary.lateItemAllocation != 0) {
    call.bareRecord = static_cast<uint8_t *>(std::calloc(1, expected));
    call.record = call.bareRecord;
    return call.bareRecord != nullptr ? Pelarix_Success : Pelarix_OutOfMemory;
  }
  AskForRoom(call, expected, kNoPlugNo);
  call.buffer = AllocateWithRoom(call, expected, 0, true);
  if (call.buffer == nullptr) {
    return Pelarix_OutOfMemory;
  }
  call.record = call.buffer + call.prefix;
  return Pelarix_Success;
}

// Late allocation: the device is known now, so the caller is asked with its
// PlugNo and the bare record moves into a buffer with the room.
PelarixStatus LateBuffer(PumpCall &call, uint32_t plugNo) {
  const uint32_t expected = ExpectedItemLength(call.session);
  AskForRoom(call, expected, plugNo);
  call.buffer = AllocateWithRoom(call, expected, 0, true);
  if (call.buffer == nullptr) {
    return Pelarix_OutOfMemory;
  }
  std::memcpy(call.buffer + call.prefix, call.bareRecord, expected);
  std::free(call.bareRecord);
  call.bareRecord = nullptr;
  call.record = call.buffer + call.prefix;
  return Pelarix_Success;
}

void RaiseMaxLength(PelarixDevice *device, uint32_t length) {
  std::atomic_ref<uint32_t> maxLength(device->itemMaxLen);
  uint32_t seen = maxLength.load(std::memory_order_relaxed);
  while (seen < length && !maxLength.compare_exchange_weak(seen, length)) {
  }
}

void CountCall(uint32_t &counter) {
  std::atomic_ref<uint32_t>(counter).fetch_add(1, std::memory_order_relaxed);
}

// A long item: a buffer for the whole of it, the header moved over, and the
// data fetched by the second request.
PelarixStatus FetchLongItem(PumpCall &call, uint32_t dataLength, uint32_t plugNo) {
  uint8_t *oldBuffer = call.buffer;
  const uint8_t *oldRecord = call.record;
  const uint32_t whole = dataLength + kHubItemRecordHeaderBytes;
  AskForRoom(call, whole, gLibrary.lateItemAllocation != 0 ? plugNo : kNoPlugNo);
  // Not zero-filled: what a short second answer leaves is zeroed below.
  call.buffer = AllocateWithRoom(call, whole, kLongItemSpareBytes, false);
  if (call.buffer == nullptr) {
    call.buffer = oldBuffer;
    return Pelarix_OutOfMemory;
  }
  call.record = call.buffer + call.prefix;
  call.received = whole;
  std::memcpy(call.record, oldRecord, kHubItemRecordHeaderBytes);
  std::free(oldBuffer);
  uint8_t *data = call.record + kHubItemRecordHeaderBytes;
  uint32_t got = 0;
  const PelarixStatus status =
      HubGetItemBuffer(call.session->hubHandle, call.session, data, whole, &got);
  if (status == Pelarix_Success) {
    CountCall(call.device->itemCallCount);
    // A hub whose answer falls short leaves zeros, not the buffer's old heap
    // bytes, in the item the caller forwards.
    if (got < dataLength) {
      std::memset(data + got, 0, dataLength - got);
    }
  }
  return status;
}

// The buffer becomes the item's.
void FillItem(PumpCall &call, const HubItemRecord &header) {
  PelarixItem *item = call.item;
  item->bufferLength = call.bufferLength;
  item->prefixLength = call.prefix;
  item->suffixLength = call.suffix;
  item->buffer = call.buffer;
  item->itemId = header.itemId;
  item->dataLength = call.received;
  item->record = call.record;
  call.buffer = nullptr;
  call.record = nullptr;
}

// The item of a device that is known and plugged in.
PelarixStatus MakeItem(PumpCall &call, const HubItemRecord &header) {
  if (gLibrary.lateItemAllocation != 0) {
    const PelarixStatus status = LateBuffer(call, header.plugNo);
    if (status != Pelarix_Success) {
      return status;
    }
  }
  CountCall(call.device->itemCount);
  CountCall(call.device->itemCallCount);
  call.item = NewItemRecord(call.device);
  if (call.item == nullptr) {
    return Pelarix_OutOfMemory;
  }
  if (header.type == kHubItemNoticeNoCompletion) {
    call.item->flags |= kItemNoCompletion;
  } else if (header.type != kHubItemNotice) {
    if (header.noCompletion != 0) {
      call.item->flags |= kItemNoCompletion;
    }
    RaiseMaxLength(call.device, header.dataLength);
    if (uint64_t{header.dataLength} + kHubItemRecordHeaderBytes > call.received) {
      const PelarixStatus status = FetchLongItem(call, header.dataLength, header.plugNo);
      if (status != Pelarix_Success) {
        return status;
      }
    }
  }
  FillItem(call, header);
  return Pelarix_Success;
}

// An answer whose header is not whole, or whose data could be no USB
// transfer, is no item: the hub hears that nobody serves it.
bool IsMalformedAnswer(const PumpCall &call, const HubItemRecord &header) {
  if (call.received < kHubItemRecordHeaderBytes) {
    return true;
  }
  const bool request = header.type != kHubItemNotice && header.type != kHubItemNoticeNoCompletion;
  return request && header.dataLength > kMaxItemDataLength;
}

// One pass of the hub branch: kDone with *status, or kNext to wait again.
Pass HubPass(PumpCall &call, PelarixStatus *status) {
  PelarixSession *session = call.session;
  *status = FirstBuffer(call);
  if (*status != Pelarix_Success) {
    return Pass::kDone;
  }
  platform::EnterLock(&session->hubItemLock);
  call.hubItemLockHeld = true;
  *status = HubGetItem(session->hubHandle, session, call.record, ExpectedItemLength(session),
                       &call.received);
  if (*status != Pelarix_Success) {
    return Pass::kDone;
  }
  const HubItemRecord header = ReadHubItemRecord(call.record);
  if (call.received == 0 || header.itemId == 0) {
    LogMessage(kLogTraffic, u"Blank item returned, handle: %p", session);
    FreeAllocations(call);
    return Pass::kNext;
  }
  if (IsMalformedAnswer(call, header)) {
    LogMessage(kLogFailure, u"Malformed item returned, handle: %p, Item Id: %d, length: %d",
               session, header.itemId, call.received);
    CompleteUnserved(session->hubHandle, header.itemId);
    FreeAllocations(call);
    return Pass::kNext;
  }
  call.device = FindDeviceByPlugNo(session, header.plugNo);
  if (call.device == nullptr) {
    LogMessage(kLogLifecycle, u"Item returned for non-existant device, handle: %p, PlugNo: %d",
               session, header.plugNo);
    CompleteUnserved(session->hubHandle, header.itemId);
    FreeAllocations(call);
    return Pass::kNext;
  }
  platform::EnterLock(&call.device->lock);
  const uint32_t state = DeviceStateOf(call.device);
  platform::LeaveLock(&call.device->lock);
  if (state != kDevicePlugged) {
    // The slot is cleared with the release: a call that ended before the
    // slot is overwritten would otherwise release the device a second time.
    ReleaseDeviceSlot(call);
    LogMessage(kLogLifecycle,
               u"Item returned for a non-plugged in device, handle: %p, state: %d, PlugNo: %d",
               session, state, header.plugNo);
    FreeAllocations(call);
    return Pass::kNext;
  }
  *status = MakeItem(call, header);
  return Pass::kDone;
}

// The deferred fetch branch: the first device with a fetch waiting makes its
// item. Success ends the call; otherwise the event is reset and the call
// waits again.
Pass FetchPass(PumpCall &call, PelarixStatus *status) {
  PelarixSession *session = call.session;
  platform::EnterLock(&session->deviceListLock);
  *status = Pelarix_Failure;
  for (PelarixDevice *device = session->devices; device != nullptr; device = device->next) {
    const FetchGetItem getItem = std::atomic_ref<FetchGetItem>(device->fetchGetItem).load();
    if (getItem == nullptr) {
      continue;
    }
    call.device = FindDeviceByPlugNo(session, device->plugNo);
    LogMessage(kLogLifecycle,
               u"Deferred plugin get item found, handle: %p, PlugNo: %d, Item Id: %d", session,
               device->plugNo, LoadField(device->fetchItemId));
    *status = getItem(call.device, &call.item);
    break;
  }
  if (*status == Pelarix_Success) {
    platform::LeaveLock(&session->deviceListLock);
    return Pass::kDone;
  }
  platform::ResetEvent(session->deferredPluginEvent);
  platform::LeaveLock(&session->deviceListLock);
  // A failed fetch leaves nothing for a later pass: its reference goes now.
  ReleaseDeviceSlot(call);
  return Pass::kNext;
}

PelarixStatus Pump(PumpCall &call) {
  PelarixSession *session = call.session;
  const platform::Event events[] = {session->cancelEvent, session->deferredPluginEvent,
                                    session->hubNotificationEvent};
  for (;;) {
    if (call.hubItemLockHeld) {
      platform::LeaveLock(&session->hubItemLock);
      call.hubItemLockHeld = false;
    }
    const uint32_t signalled = platform::WaitForAnyEvent(events, 3, platform::kInfinite);
    PelarixStatus status = Pelarix_Success;
    Pass pass = Pass::kNext;
    if (signalled == kCancelEvent) {
      LogMessage(kLogLifecycle, u"Get next item cancelled, handle: %p", session);
      return Pelarix_Cancelled;
    }
    if (signalled == kFetchEvent) {
      pass = FetchPass(call, &status);
    } else {
      pass = HubPass(call, &status);  // also a failed wait
    }
    if (pass == Pass::kDone) {
      return status;
    }
  }
}

// Hands the item over, or undoes what the call made.
void FinishCall(PumpCall &call, PelarixStatus status, PelarixHandle *itemHandle) {
  if (call.hubItemLockHeld) {
    platform::LeaveLock(&call.session->hubItemLock);
  }
  if (status == Pelarix_Success) {
    platform::EnterLock(&call.device->lock);
    call.item->next = call.device->items;
    call.device->items = call.item;
    platform::LeaveLock(&call.device->lock);
    *itemHandle = call.item;
  } else {
    FreeAllocations(call);
    // Its id is not filled in yet: the completion of the destroy reaches the
    // hub with item id 0.
    if (call.item != nullptr) {
      DestroyItem(call.item);
    }
  }
  ReleaseDeviceSlot(call);  // the item holds no reference on its device
}

}  // namespace
}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetNextItem(PelarixHandle session,
                                                           PelarixHandle *itemHandle) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_Success;
  PumpCall call{static_cast<PelarixSession *>(session)};
  if (!IsValidHandle(session, kSessionHandle)) {
    LogMessage(kLogFailure, u"Invalid session handle: %p", session);
    status = Pelarix_InvalidHandle;
  } else if (itemHandle == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, itemHandle is null");
    status = Pelarix_InvalidParameter;
  } else {
    *itemHandle = nullptr;
    status = Pump(call);
    FinishCall(call, status, itemHandle);
  }
  LogMessage(kLogTraffic, u"Get next item, handle: %p, item handle: %p, status: 0x%x", session,
             status == Pelarix_Success ? *itemHandle : nullptr, status);
  return status;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CancelGetItem(PelarixHandle session) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_Success;
  if (IsValidHandle(session, kSessionHandle)) {
    platform::SetEvent(static_cast<PelarixSession *>(session)->cancelEvent);
  } else {
    LogMessage(kLogFailure, u"Invalid session handle: %p", session);
    status = Pelarix_InvalidHandle;
  }
  LogMessage(kLogLifecycle, u"Cancel get item, handle: %d, status: 0x%x", DecimalHandle(session),
             status);
  return status;
}

}  // extern "C"
