#include "hub/hub_interface.h"

#include <new>

#include "frame/log.h"
#include "hub/hub_control_codes.h"
#include "hub/hub_request.h"

namespace pelarix {

PelarixStatus OpenHubInterface(platform::HubConnection *hubHandle) {
  PelarixStatus status = Pelarix_HubOpenFailed;
  platform::HubDeviceSet deviceSet = nullptr;
  char16_t *devicePath = nullptr;
  uint32_t pathChars = 0;
  uint32_t error = 0;
  *hubHandle = nullptr;

  error = platform::HubGetDeviceSet(&deviceSet);
  if (error != platform::kErrorSuccess) {
    LogMessage(kLogLifecycle, u"SetupDiGetClassDevs failed, error: 0x%x", error);
    goto done;
  }
  error = platform::HubEnumFirstInterface(deviceSet);
  if (error != platform::kErrorSuccess) {
    LogMessage(kLogLifecycle, u"SetupDiEnumDeviceInterfaces failed, error: 0x%x", error);
    goto done;
  }
  // The first call only learns the size; its result is not looked at.
  platform::HubGetInterfacePath(deviceSet, nullptr, 0, &pathChars);
  devicePath = new (std::nothrow) char16_t[pathChars > 0 ? pathChars : 1]();
  if (devicePath == nullptr) {
    status = Pelarix_OutOfMemory;
    goto done;
  }
  error = platform::HubGetInterfacePath(deviceSet, devicePath, pathChars, &pathChars);
  if (error != platform::kErrorSuccess) {
    LogMessage(kLogLifecycle, u"SetupDiGetDeviceInterfaceDetail failed, error: 0x%x", error);
    goto done;
  }
  error = platform::HubOpen(devicePath, hubHandle);
  if (error != platform::kErrorSuccess) {
    LogMessage(kLogLifecycle,
               u"Failed to create virtual hub interface, Device Path: %s, error: 0x%x", devicePath,
               error);
    *hubHandle = nullptr;
    goto done;
  }
  status = Pelarix_Success;

done:
  platform::HubDestroyDeviceSet(deviceSet);
  delete[] devicePath;
  LogMessage(kLogLifecycle, u"Open virtual hub interface, handle: %p, status: 0x%x",
             static_cast<void *>(*hubHandle), status);
  return status;
}

PelarixStatus GetHubVersion(platform::HubConnection hubHandle, uint32_t *version) {
  PelarixStatus status = Pelarix_Success;
  uint32_t bytesReturned = 0;
  // The same variable is input and output; its content on input means nothing.
  uint32_t error = HubRequest(hubHandle, IOCTL_HUB_GET_VERSION, version, sizeof *version, version,
                              sizeof *version, &bytesReturned);
  if (error != platform::kErrorSuccess) {
    LogMessage(kLogFailure, u"Failed to get virtual hub version handle: %p, error: 0x%x",
               static_cast<void *>(hubHandle), error);
    status = Pelarix_HubRequestFailed;
  }
  LogMessage(kLogLifecycle, u"Get virtual hub version, handle: %p, status: 0x%x",
             static_cast<void *>(hubHandle), status);
  return status;
}

PelarixStatus SetHubNotificationEvent(platform::HubConnection hubHandle,
                                      platform::Event notificationEvent) {
  PelarixStatus status = Pelarix_Success;
  uint32_t bytesReturned = 0;
  uint64_t handleValue = platform::EventHandleValue(notificationEvent);
  uint32_t error = HubRequest(hubHandle, IOCTL_HUB_SET_NOTIFICATION_EVENT, &handleValue,
                              sizeof handleValue, nullptr, 0, &bytesReturned, notificationEvent);
  if (error != platform::kErrorSuccess) {
    LogMessage(kLogFailure,
               u"Failed to set virtual hub notification event, handle: %p, error: 0x%x",
               static_cast<void *>(hubHandle), error);
    status = Pelarix_HubRequestFailed;
  }
  LogMessage(kLogLifecycle, u"Set virtual hub notification event, handle: %p, status: 0x%x",
             static_cast<void *>(hubHandle), status);
  return status;
}

}  // namespace pelarix
