// The deferred plug-in: a thread of the device's own that waits out the
// plug-in delay of the settings, fetches the strings of a client below
// version 4 from the device, and then plugs the device in.
#include "device/deferred_plugin.h"

#include "device/device_state.h"
#include "device/string_fetch.h"
#include "frame/log.h"

namespace pelarix {

namespace {

// The client version from which the client brings the strings itself.
constexpr uint32_t kClientVersionWithStrings = 4;
// Before its strings are asked for, an older client's device is left alone
// this long, whether or not a stop is pending.
constexpr uint32_t kStringFetchPauseMs = 2500;
// The language table is string index 0, asked for without a language.
constexpr uint8_t kLanguageTableIndex = 0;
constexpr uint16_t kLanguageTableLanguage = 0;

// The device whose deferred thread runs here, on that thread only. The
// thread's own last release can destroy, and so unplug, the device, and the
// stop must not wait for the very thread it runs on.
thread_local const PelarixDevice *tDeferredDevice = nullptr;

// A serial number or product string, in the one language asked for; a
// failure is logged with the format given (index, language, status).
void FetchIndexedString(PelarixDevice *device, uint8_t index, const char16_t *failureFormat) {
  if (index == 0) {
    return;
  }
  const PelarixStatus status = GetStringDescriptor(device, index, kEnglishUs);
  if (status != Pelarix_Success) {
    LogMessage(kLogLifecycle, failureFormat, index, kEnglishUs, status);
  }
}

// Each failure is logged and forgotten: the device goes to the hub with the
// strings there are. The manufacturer string is not fetched.
void FetchStrings(PelarixDevice *device) {
  platform::Sleep(kStringFetchPauseMs);
  const PelarixStatus status =
      GetStringDescriptor(device, kLanguageTableIndex, kLanguageTableLanguage);
  if (status != Pelarix_Success) {
    LogMessage(kLogLifecycle, u"Ignoring failure to retrieve language string, status: 0x%x",
               status);
  }
  FetchIndexedString(device, device->deviceDescriptor[kDeviceDescriptorSerialIndex],
                     u"Ignoring failure to retrieve serial no. string, index: %d, language: 0x%x, "
                     u"status: 0x%x");
  FetchIndexedString(device, device->deviceDescriptor[kDeviceDescriptorProductIndex],
                     u"Ignoring failure to retrieve product string, index: %d, language: 0x%x, "
                     u"status: 0x%x");
}

bool StopRequested(const PelarixDevice *device) {
  return LoadField(device->stopDeferred) != 0;
}

uint32_t DeferredPluginThread(void *argument) {
  auto *device = static_cast<PelarixDevice *>(argument);
  tDeferredDevice = device;
  LogMessage(kLogLifecycle, u"Deferred plugin thread initiated, PlugNo: %d", device->plugNo);
  if (device->pluginDelayMs != 0) {
    LogMessage(kLogLifecycle, u"Started plugin delay, Plugin Delay (ms), %d, PlugNo: %d",
               device->pluginDelayMs, device->plugNo);
    // Whether the delay ran out or a stop ended it makes no difference here.
    platform::WaitForEvent(device->deferredEvent, device->pluginDelayMs);
  }
  if (device->clientVersion < kClientVersionWithStrings) {
    FetchStrings(device);
  }
  PelarixStatus status = Pelarix_Success;
  if (!StopRequested(device)) {
    status = InternalPluginDevice(device);
    if (status != Pelarix_Success) {
      LogMessage(kLogFailure, u"Deferred plugin failed, PlugNo: %d, status: 0x%x", device->plugNo,
                 status);
    }
  }
  if (StopRequested(device) && device->pluginCallback != nullptr) {
    device->pluginCallback(device, status != Pelarix_Success ? status : Pelarix_Failure,
                           device->pluginContext);
  }
  LogMessage(kLogLifecycle, u"Deferred plugin complete, PlugNo: %d, stopped: %d, status: 0x%x",
             device->plugNo, LoadField(device->stopDeferred), status);
  WithdrawFetch(device);
  // The thread's reference; it may be the device's last.
  ReleaseHandle(&device->header);
  return 0;
}

}  // namespace

bool NeedsDeferredPlugin(const PelarixDevice *device) {
  const bool hasStrings = device->deviceDescriptor[kDeviceDescriptorSerialIndex] != 0 ||
                          device->deviceDescriptor[kDeviceDescriptorProductIndex] != 0;
  return device->pluginDelayMs != 0 ||
         (device->clientVersion < kClientVersionWithStrings && hasStrings);
}

PelarixStatus StartDeferredPlugin(PelarixDevice *device) {
  PelarixStatus status = Pelarix_Success;
  if (platform::CreateEvent(false, &device->deferredEvent) != 0) {
    LogMessage(kLogFailure, u"Failed to create deferred plugin event");
    status = Pelarix_Failure;
  } else if (platform::CreateSuspendedThread(DeferredPluginThread, device,
                                             &device->deferredThread) != 0) {
    LogMessage(kLogFailure, u"Failed to create deferred plugin thread");
    status = Pelarix_Failure;
    // Closed once here, and the field cleared so that DestroyDevice does not
    // close it a second time.
    platform::CloseEvent(device->deferredEvent);
    device->deferredEvent = nullptr;
  } else {
    // The thread's reference exists before the thread can run to its end.
    AddRefCount(&device->header, 1);
    platform::ResumeThread(device->deferredThread);
  }
  LogMessage(kLogLifecycle, u"Started deferred plugin , PlugNo: %d, status: 0x%x", device->plugNo,
             status);
  return status;
}

void StopDeferredPlugin(PelarixDevice *device) {
  LogMessage(kLogLifecycle, u"Destroying deferred plugin context, PlugNo: %d", device->plugNo);
  StoreField(device->stopDeferred, 1);
  // A device that never had a thread has neither handle; there is nothing to
  // end or wait for.
  if (device->deferredEvent != nullptr) {
    platform::SetEvent(device->deferredEvent);
  }
  // On the deferred thread itself (its last release unplugging the device)
  // the thread is already past everything the stop waits for.
  if (device->deferredThread != nullptr && tDeferredDevice != device) {
    platform::WaitForThread(device->deferredThread, platform::kInfinite);
  }
  LogMessage(kLogLifecycle, u"Destroyed deferred plugin, PlugNo: %d", device->plugNo);
}

}  // namespace pelarix
