// The common base of the filter managers, the agent's (dev_filter_mgr_agent.h)
// and the client's (dev_filter_mgr_client.h).
#pragma once

namespace ordo::usb {

// Base of the managers. Its end destroys the process-wide FilterDictionary,
// so no manager may keep a pointer to it across a call; the next use builds
// it anew.
class DevFilterMgr {
 public:
  DevFilterMgr() = default;
  DevFilterMgr(const DevFilterMgr &) = delete;
  DevFilterMgr &operator=(const DevFilterMgr &) = delete;
  virtual ~DevFilterMgr();
};

}  // namespace ordo::usb
