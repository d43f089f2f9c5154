// The common base of the filter managers, the agent's (dev_filter_mgr_agent.h)
// and the client's (dev_filter_mgr_client.h).
#pragma once

#include <cstdint>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

class DevFilterDevice;

// Base of the managers. Its end destroys the process-wide FilterDictionary,
// so no manager may keep a pointer to it across a call; the next use builds
// it anew.
class DevFilterMgr {
 public:
  DevFilterMgr() = default;
  DevFilterMgr(const DevFilterMgr &) = delete;
  DevFilterMgr &operator=(const DevFilterMgr &) = delete;
  virtual ~DevFilterMgr();

 protected:
  // DevFilterDevice::Load, except that a device descriptor the record could
  // not copy throws std::bad_alloc: memory ran out, and the device must not
  // be judged as one that came without a descriptor.
  static void LoadDevice(DevFilterDevice &device, const uint8_t *deviceDesc,
                         const uint8_t *configDesc, int32_t configCount, const uint32_t *pathInfo);
};

}  // namespace ordo::usb
