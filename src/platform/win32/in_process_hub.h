// A hub device that lives inside the process, for machines without the hub
// driver (a build machine running the tests under Wine). Once one is put in
// place, the device interface enumeration finds it, opening its path reaches
// it instead of CreateFileW, and each control request is handed to it
// instead of DeviceIoControl. Everything above the platform
// layer (the session, the request helper, the records) runs unchanged.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace pelarix::platform {

class InProcessHubDevice {
 public:
  virtual ~InProcessHubDevice() = default;
  // What CreateFileW would answer: 0 opens the device.
  virtual uint32_t Open() = 0;
  // The connection's handle is closed.
  virtual void Close() = 0;
  // One control request, answered as DeviceIoControl and GetOverlappedResult
  // would answer it. The input of IOCTL_HUB_SET_NOTIFICATION_EVENT holds the
  // event's HANDLE, valid in this process. May block until the answer is
  // ready, as an overlapped request waits for its driver.
  virtual HubControlResult Control(uint32_t code, const void *input, uint32_t inputLength,
                                   void *output, uint32_t outputLength,
                                   uint32_t *bytesReturned) = 0;
};

// The device paths of in-process hubs: this prefix and the hub's name.
inline constexpr char16_t kInProcessHubPathPrefix[] = u"\\\\?\\pelarix#in-process-hub#";

// Puts a hub device beside the system's under a name. While any is in
// place, the enumeration finds only these, in ascending order of their
// names (as the system's list has its own order), and the first is the hub.
// The caller keeps the device alive while any connection to it is open.
void AddInProcessHubDevice(const char16_t *name, InProcessHubDevice *device);
// Takes a device away; connections already open keep it.
void RemoveInProcessHubDevice(InProcessHubDevice *device);

}  // namespace pelarix::platform
