// The deferred plug-in's start and stop. The thread itself is not built yet:
// until it is, a start fails as a thread that cannot be created does, so the
// device stays DeviceCreated and nothing reaches the hub.
#include "device/deferred_plugin.h"

#include <atomic>

#include "frame/log.h"

namespace pelarix {

namespace {

// The client version from which the client brings the strings itself.
constexpr uint32_t kClientVersionWithStrings = 4;

}  // namespace

bool NeedsDeferredPlugin(const PelarixDevice *device) {
  const bool hasStrings = device->deviceDescriptor[kDeviceDescriptorSerialIndex] != 0 ||
                          device->deviceDescriptor[kDeviceDescriptorProductIndex] != 0;
  return device->pluginDelayMs != 0 ||
         (device->clientVersion < kClientVersionWithStrings && hasStrings);
}

PelarixStatus StartDeferredPlugin(PelarixDevice *) {
  LogMessage(kLogFailure, u"Failed to create deferred plugin thread");
  return Pelarix_Failure;
}

void StopDeferredPlugin(PelarixDevice *device) {
  LogMessage(kLogLifecycle, u"Destroying deferred plugin context, PlugNo: %d", device->plugNo);
  std::atomic_ref<uint32_t>(device->stopDeferred).store(1);
  // A device that never had a thread has neither handle; there is nothing to
  // end or wait for.
  if (device->deferredEvent != nullptr) platform::SetEvent(device->deferredEvent);
  if (device->deferredThread != nullptr) {
    platform::WaitForThread(device->deferredThread, platform::kInfinite);
  }
  LogMessage(kLogLifecycle, u"Destroyed deferred plugin, PlugNo: %d", device->plugNo);
}

}  // namespace pelarix
