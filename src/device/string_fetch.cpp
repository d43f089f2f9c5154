#include "device/string_fetch.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "device/device_state.h"
#include "device/string_store.h"
#include "frame/library_state.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub/hub_records.h"
#include "item/item.h"

namespace pelarix {
namespace {

constexpr uint32_t kNoPlugNo = 0xFFFFFFFF;
// A string descriptor's own header: bLength and bDescriptorType.
constexpr uint32_t kDescriptorHeaderBytes = 2;

// The pump reads the two step pointers without the device's lock.
template <typename Step>
void PublishStep(Step &field, Step value) {
  std::atomic_ref<Step>(field).store(value);
}

// Called with the device's lock held.
void ClearFetch(PelarixDevice *device) {
  device->fetchIndex = 0;
  device->fetchLanguage = 0;
  StoreField(device->fetchItemId, 0);
  PublishStep(device->fetchGetItem, FetchGetItem{nullptr});
  PublishStep(device->fetchComplete, FetchComplete{nullptr});
}

// The announcement is made under the session's deviceListLock as well as the
// device's lock. The pump walks the devices and then lowers
// deferredPluginEvent under deviceListLock; under the device's lock alone, a
// fetch announced between that walk and the reset would lose its wake-up and
// wait until some other fetch raised the event. Now it comes either before
// the walk, which sees it, or after the reset, and raises the event again.
void AnnounceFetch(PelarixDevice *device, uint8_t index, uint16_t language, uint32_t itemId) {
  PelarixSession *session = SessionOf(device);
  platform::EnterLock(&session->deviceListLock);
  platform::EnterLock(&device->lock);
  device->fetchStatus = Pelarix_Success;
  device->fetchIndex = index;
  device->fetchLanguage = language;
  StoreField(device->fetchItemId, itemId);
  PublishStep(device->fetchGetItem, &BuildStringDescriptorItem);
  platform::SetEvent(session->deferredPluginEvent);
  platform::LeaveLock(&device->lock);
  platform::LeaveLock(&session->deviceListLock);
}

// The caller's room around a fetch item. It is asked for the usual first
// request's length, not for the 120 bytes the item takes.
void AskForRoom(const PelarixDevice *device, uint32_t *prefix, uint32_t *suffix) {
  const PelarixSession *session = SessionOf(device);
  if (session->itemBufferCallback == nullptr) {
    return;
  }
  // With late allocation the PlugNo would come from a hub record, which a
  // fetch item does not have before it is built: the device's own number is
  // what the other paths of that mode pass.
  const uint32_t plugNo = gLibrary.lateItemAllocation != 0 ? device->plugNo : kNoPlugNo;
  session->itemBufferCallback(session->itemBufferContext, session->settings.expectedItemLength,
                              prefix, suffix, plugNo);
}

// The fetch item with its request, or null when memory is out (or the room
// asked for passes 32 bits).
PelarixItem *NewFetchItem(PelarixDevice *device, uint32_t prefix, uint32_t suffix) {
  const uint64_t total = uint64_t{prefix} + kStringRequestRecordBytes + suffix;
  if (total > UINT32_MAX) {
    return nullptr;
  }
  auto *buffer = static_cast<uint8_t *>(std::calloc(1, total));
  if (buffer == nullptr) {
    return nullptr;
  }
  PelarixItem *item = NewItemRecord(device);
  if (item == nullptr) {
    std::free(buffer);
    return nullptr;
  }
  item->flags = kItemInternal;
  item->prefixLength = prefix;
  item->suffixLength = suffix;
  item->bufferLength = static_cast<uint32_t>(total);
  item->buffer = buffer;
  item->itemId = device->fetchItemId;
  item->dataLength = kStringRequestRecordBytes;
  item->record = buffer + prefix;
  WriteStringDescriptorRequest(item->record, device->fetchItemId, device->fetchIndex,
                               device->fetchLanguage);
  return item;
}

uint32_t ReadU32(const uint8_t *bytes) {
  uint32_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

// The answer is read only within the length its completion gave: an answer
// too short for the block's status, for the descriptor's header or for the
// descriptor's own bLength fails as an answer of the kind it resembles.
PelarixStatus StoreAnswer(PelarixDevice *device, uint32_t status, uint32_t length,
                          const uint8_t *data) {
  const bool blockStatusHeld =
      data != nullptr && length >= kRequestBlockStatusOffset + sizeof(uint32_t);
  if (status == kHubCompleteUnserved || !blockStatusHeld ||
      ReadU32(data + kRequestBlockStatusOffset) != 0) {
    LogMessage(kLogFailure, u"Get string descriptor failed, Item Id: %d, index: %d, language: 0x%x",
               device->fetchItemId, device->fetchIndex, device->fetchLanguage);
    return Pelarix_Failure;
  }
  if (length < kRequestBlockDescriptorOffset + kDescriptorHeaderBytes) {
    LogMessage(kLogFailure, u"Invalid string descriptor offset length");
    return Pelarix_InvalidParameter;
  }
  const uint8_t *descriptor = data + kRequestBlockDescriptorOffset;
  if (descriptor[1] != kUsbStringDescriptorType) {
    LogMessage(kLogFailure, u"Invalid string descriptor type");
    return Pelarix_Failure;
  }
  if (descriptor[0] > length - kRequestBlockDescriptorOffset) {
    LogMessage(kLogFailure, u"Invalid string descriptor offset length");
    return Pelarix_InvalidParameter;
  }
  uint8_t *newStore = nullptr;
  if (StringStoreAdd(device->stringStore, device->fetchIndex, device->fetchLanguage, descriptor,
                     &newStore) != kStoreDone) {
    return Pelarix_Failure;
  }
  device->stringStore = newStore;
  return Pelarix_Success;
}

}  // namespace

PelarixStatus GetStringDescriptor(PelarixDevice *device, uint8_t index, uint16_t language) {
  LogMessage(kLogLifecycle, u"Get string descriptor, index: %d, language: 0x%x", index, language);
  uint32_t itemId = 0;
  PelarixStatus status = Pelarix_GetUniqueItemId(SessionOf(device), &itemId);
  if (status != Pelarix_Success) {
    return status;
  }
  AnnounceFetch(device, index, language, itemId);
  platform::WaitForEvent(device->deferredEvent, platform::kInfinite);
  platform::EnterLock(&device->lock);
  status = LoadField(device->stopDeferred) != 0 ? Pelarix_Failure
                                                : static_cast<PelarixStatus>(device->fetchStatus);
  platform::LeaveLock(&device->lock);
  LogMessage(kLogLifecycle,
             u"Get string descriptor, Item Id: %d, index: %d, language: 0x%x, status: 0x%x", itemId,
             index, language, status);
  return status;
}

PelarixStatus BuildStringDescriptorItem(PelarixDevice *device, PelarixItem **item) {
  *item = nullptr;
  uint32_t prefix = 0;
  uint32_t suffix = 0;
  AskForRoom(device, &prefix, &suffix);
  platform::EnterLock(&device->lock);
  if (device->fetchGetItem == nullptr) {
    // Withdrawn, or ended by an earlier fetch item's completion after a
    // stop, since the pump saw it: there is nothing to make.
    platform::LeaveLock(&device->lock);
    return Pelarix_Failure;
  }
  PelarixItem *made = NewFetchItem(device, prefix, suffix);
  const PelarixStatus status = made != nullptr ? Pelarix_Success : Pelarix_OutOfMemory;
  if (made != nullptr) {
    PublishStep(device->fetchComplete, &CompleteStringDescriptorItem);
  }
  LogMessage(kLogLifecycle,
             u"Get string descriptor item, Item Id: %d, index: %d, language: 0x%x, status: 0x%x",
             device->fetchItemId, device->fetchIndex, device->fetchLanguage, status);
  PublishStep(device->fetchGetItem, FetchGetItem{nullptr});
  device->fetchStatus = status;
  if (made != nullptr) {
    *item = made;
  } else {
    // The thread goes on and sees the failure.
    ClearFetch(device);
    platform::SetEvent(device->deferredEvent);
  }
  platform::LeaveLock(&device->lock);
  return status;
}

void CompleteStringDescriptorItem(PelarixItem *item, bool wasParked, uint32_t status,
                                  uint32_t length, const void *data) {
  PelarixDevice *device = DeviceOf(item);
  // The item's own lock is not held here: the caller marked the item
  // completed under it and left it, so that this device lock comes in the
  // library's order. Holding both, item first, could deadlock with an unplug
  // that walks the device's items under the device's lock.
  platform::EnterLock(&device->lock);
  // With no fetch completion set, the fetch this item was made for has ended
  // already.
  if (device->fetchComplete != nullptr) {
    const PelarixStatus result =
        wasParked ? Pelarix_InvalidState
                  : StoreAnswer(device, status, length, static_cast<const uint8_t *>(data));
    device->fetchStatus = result;
    if (result != Pelarix_InvalidState) {
      LogMessage(kLogLifecycle,
                 u"Complete get string descriptor item, Item Id: %d, index: %d, language: 0x%x, "
                 u"status: 0x%x",
                 device->fetchItemId, device->fetchIndex, device->fetchLanguage, result);
    }
    ClearFetch(device);
    platform::SetEvent(device->deferredEvent);
  }
  platform::LeaveLock(&device->lock);
}

void WithdrawFetch(PelarixDevice *device) {
  PelarixSession *session = SessionOf(device);
  platform::EnterLock(&session->deviceListLock);
  platform::EnterLock(&device->lock);
  ClearFetch(device);
  platform::LeaveLock(&device->lock);
  platform::LeaveLock(&session->deviceListLock);
}

}  // namespace pelarix
