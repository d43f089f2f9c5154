// Reading items: their id, device, info and raw buffer; and the hub's unique
// item ids. The getters take no lock: nothing they read changes once the pump
// has handed the item out.
#include <cstring>

#include "device/device.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub/hub_records.h"
#include "hub/hub_requests.h"
#include "item/item.h"
#include "item/item_completion.h"
#include "pelarix.h"

namespace pelarix {
namespace {

PelarixItem *ItemOrLog(PelarixHandle handle) {
  if (IsValidHandle(handle, kItemHandle)) {
    return static_cast<PelarixItem *>(handle);
  }
  LogMessage(kLogFailure, u"Invalid item handle: %p", handle);
  return nullptr;
}

// The status of a getter that checks its item and one out pointer.
PelarixStatus CheckItemAndOut(PelarixItem *item, const void *out, const char16_t *nullText) {
  if (item == nullptr) {
    return Pelarix_InvalidHandle;
  }
  if (out != nullptr) {
    return Pelarix_Success;
  }
  LogMessage(kLogFailure, nullText);
  return Pelarix_InvalidParameter;
}

void FillItemInfo(const PelarixItem *item, PelarixItemInfo *info) {
  std::memset(info, 0, sizeof *info);
  const HubItemRecord header = ReadHubItemRecord(item->record);
  info->type = header.type;
  info->itemId = item->itemId;
  if (header.type == kHubItemNotice || header.type == kHubItemNoticeNoCompletion) {
    info->param0 = header.params[0];
  } else if (header.type == kHubItemRequest) {
    info->param0 = header.params[0];
    info->param1 = header.params[1];
    info->param2 = header.params[2];
    info->param3 = header.params[3];
    info->dataLength = item->dataLength - kHubItemRecordHeaderBytes;
    info->data = item->record + kHubItemRecordHeaderBytes;
    info->noCompletion = item->record[offsetof(HubItemRecord, noCompletion)];
  }
}

}  // namespace
}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemDeviceHandle(PelarixHandle handle,
                                                                   PelarixHandle *deviceHandle) {
  using namespace pelarix;
  PelarixItem *item = ItemOrLog(handle);
  PelarixStatus status =
      CheckItemAndOut(item, deviceHandle, u"Invalid parameter, deviceHandle is null");
  if (status == Pelarix_Success) {
    // A new reference, which the caller closes.
    status = Pelarix_DuplicateHandle(DeviceOf(item));
    if (status == Pelarix_Success) {
      *deviceHandle = DeviceOf(item);
    }
  }
  LogMessage(kLogTraffic, u"Get item device handle, handle: %d, status: 0x%x",
             DecimalHandle(handle), status);
  return status;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemId(PelarixHandle handle, uint32_t *itemId) {
  using namespace pelarix;
  PelarixItem *item = ItemOrLog(handle);
  const PelarixStatus status = CheckItemAndOut(item, itemId, u"Invalid parameter, itemId is null");
  if (status == Pelarix_Success) {
    *itemId = item->itemId;
  }
  LogMessage(kLogTraffic, u"Get item ID, handle: %d, status: 0x%x", DecimalHandle(handle), status);
  return status;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemInfo(PelarixHandle handle,
                                                           PelarixItemInfo *itemInfo) {
  using namespace pelarix;
  PelarixItem *item = ItemOrLog(handle);
  const PelarixStatus status =
      CheckItemAndOut(item, itemInfo, u"Invalid parameter, itemInfo is null");
  if (status == Pelarix_Success) {
    FillItemInfo(item, itemInfo);
  }
  LogMessage(kLogTraffic, u"Get item info, handle: %d, status: 0x%x", DecimalHandle(handle),
             status);
  return status;
}

// The allocation itself: the record starts prefixLength bytes in, and the
// suffix room follows its dataLength bytes.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemRaw(PelarixHandle handle,
                                                          uint32_t *prefixLength,
                                                          uint32_t *suffixLength,
                                                          uint32_t *dataLength, void **buffer) {
  using namespace pelarix;
  PelarixItem *item = ItemOrLog(handle);
  const bool allGiven = prefixLength != nullptr && suffixLength != nullptr &&
                        dataLength != nullptr && buffer != nullptr;
  const PelarixStatus status =
      CheckItemAndOut(item, allGiven ? buffer : nullptr, u"Invalid parameter, null param");
  if (status == Pelarix_Success) {
    *prefixLength = item->prefixLength;
    *suffixLength = item->suffixLength;
    *dataLength = item->dataLength;
    *buffer = item->buffer;
  }
  LogMessage(kLogTraffic, u"Get item info (raw), handle: %d, status: 0x%x", DecimalHandle(handle),
             status);
  return status;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetUniqueItemId(PelarixHandle handle,
                                                               uint32_t *itemId) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_Success;
  if (!IsValidHandle(handle, kSessionHandle)) {
    LogMessage(kLogFailure, u"Invalid session handle: %p", handle);
    status = Pelarix_InvalidHandle;
  } else if (itemId == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, itemId is null");
    status = Pelarix_InvalidParameter;
  } else {
    *itemId = 0;
    platform::HubConnection hub = static_cast<PelarixSession *>(handle)->hubHandle;
    status = HubGetUniqueItemId(hub, hub, itemId);
  }
  LogMessage(kLogLifecycle, u"Get unique item Id, Item Id: %d, status: 0x%x",
             itemId != nullptr ? *itemId : 0, status);
  return status;
}

}  // extern "C"
