#include "hub/hub_requests.h"

#include "frame/log.h"
#include "hub/hub_control_codes.h"
#include "hub/hub_request.h"

namespace pelarix {

namespace {

// A request whose only output is one u32.
uint32_t RequestWord(platform::HubConnection hubHandle, uint32_t code, uint32_t *word) {
  uint32_t bytesReturned = 0;
  return HubRequest(hubHandle, code, nullptr, 0, word, sizeof *word, &bytesReturned);
}

}  // namespace

PelarixStatus HubGetUniqueItemId(platform::HubConnection hubHandle, const void *logHandle,
                                 uint32_t *itemId) {
  uint32_t error = RequestWord(hubHandle, IOCTL_HUB_GET_UNIQUE_ITEM_ID, itemId);
  if (error == platform::kErrorSuccess) {
    return Pelarix_Success;
  }
  LogMessage(kLogFailure,
             u"Failed to retrieve unique item Id from virtual hub handle: %p, error: 0x%x",
             logHandle, error);
  return Pelarix_HubRequestFailed;
}

PelarixStatus HubGetNextPlugNumber(platform::HubConnection hubHandle, const void *logHandle,
                                   uint32_t *plugNo) {
  uint32_t error = RequestWord(hubHandle, IOCTL_HUB_GET_NEXT_PLUG_NUMBER, plugNo);
  if (error == platform::kErrorSuccess) {
    return Pelarix_Success;
  }
  LogMessage(kLogFailure,
             u"Failed to retrieve next plug number fromvirtual hub handle: %p, error: 0x%x",
             logHandle, error);
  return Pelarix_HubRequestFailed;
}

PelarixStatus HubUnplugDevice(platform::HubConnection hubHandle, const void *logHandle,
                              uint32_t plugNo) {
  uint32_t bytesReturned = 0;
  uint32_t error = HubRequest(hubHandle, IOCTL_HUB_UNPLUG_DEVICE, &plugNo, sizeof plugNo, nullptr,
                              0, &bytesReturned);
  if (error == platform::kErrorSuccess) {
    return Pelarix_Success;
  }
  LogMessage(kLogFailure, u"Failed to unplug device, handle: %p, PlugNo: %d, error: 0x%x",
             logHandle, plugNo, error);
  return Pelarix_HubRequestFailed;
}

PelarixStatus HubGetItem(platform::HubConnection hubHandle, const void *logHandle, void *record,
                         uint32_t length, uint32_t *received) {
  uint32_t error = HubRequest(hubHandle, IOCTL_HUB_GET_ITEM, nullptr, 0, record, length, received);
  if (error == platform::kErrorSuccess) {
    return Pelarix_Success;
  }
  LogMessage(kLogFailure, u"Failed to get item length from virtual hub handle: %p, error: 0x%x",
             logHandle, error);
  return Pelarix_HubRequestFailed;
}

PelarixStatus HubGetItemBuffer(platform::HubConnection hubHandle, const void *logHandle,
                               void *output, uint32_t length, uint32_t *received) {
  uint32_t bytesReturned = 0;
  uint32_t error =
      HubRequest(hubHandle, IOCTL_HUB_GET_ITEM_BUFFER, nullptr, 0, output, length, &bytesReturned);
  if (error == platform::kErrorSuccess) {
    if (received != nullptr) {
      *received = bytesReturned;
    }
    return Pelarix_Success;
  }
  LogMessage(kLogFailure, u"Failed to get item buffer from virtual hub, handle: %p, error: 0x%x",
             logHandle, error);
  return Pelarix_HubRequestFailed;
}

PelarixStatus HubCompleteItem(platform::HubConnection hubHandle, const void *logHandle,
                              const void *record, uint32_t length) {
  uint32_t bytesReturned = 0;
  uint32_t error =
      HubRequest(hubHandle, IOCTL_HUB_COMPLETE_ITEM, record, length, nullptr, 0, &bytesReturned);
  if (error == platform::kErrorSuccess) {
    return Pelarix_Success;
  }
  LogMessage(kLogTraffic, u"Failed to complete virtual hub item handle: %p, error: 0x%x", logHandle,
             error);
  return Pelarix_HubRequestFailed;
}

PelarixStatus HubPluginDevice(platform::HubConnection hubHandle, const void *logHandle,
                              const void *record, uint32_t length) {
  uint32_t bytesReturned = 0;
  uint32_t error =
      HubRequest(hubHandle, IOCTL_HUB_PLUGIN_DEVICE, record, length, nullptr, 0, &bytesReturned);
  if (error == platform::kErrorSuccess) {
    return Pelarix_Success;
  }
  if (error == platform::kErrorAlreadyExists) {
    LogMessage(kLogFailure, u"Failed to plugin virtual device, device already exists, handle: %p",
               logHandle);
    return Pelarix_DeviceExists;
  }
  LogMessage(kLogFailure, u"Failed to plugin virtual device handle: %p, error: 0x%x", logHandle,
             error);
  return Pelarix_HubRequestFailed;
}

}  // namespace pelarix
