// A whole USB/IP path in this process, for the tests and the benchmark: the
// virtual hub with the USB/IP server beside it, the demo's service (the
// library, two pumps, its settings from a registry file) and the demo's
// client devices, read from descriptor files and offered whole. The
// server's log lines are kept. The library is initialised once per process,
// so one path per process.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client.h"
#include "descriptor_set.h"
#include "service.h"
#include "usbip_server.h"
#include "virtual_hub.h"

namespace pelarix::usbip {

class UsbipPath {
 public:
  UsbipPath();
  ~UsbipPath();
  UsbipPath(const UsbipPath &) = delete;
  UsbipPath &operator=(const UsbipPath &) = delete;

  // Starts the hub, the server (on a free port of 127.0.0.1) and the
  // service with the settings in `registry`, and plugs in the device of
  // each descriptor file (DIR/NAME.bin); false with *error set.
  bool Start(const std::string &registry, const std::string &dataDir,
             const std::vector<std::string> &names, std::string *error,
             UsbipServerOptions options = {});
  void Stop();

  uint16_t Port() const { return server_->Port(); }
  vhub::HubModel &Model() { return hub_->Model(); }
  demo::Service &Service() { return service_; }
  demo::SimulatedDevice &Device(size_t index) { return *devices_[index]; }
  const demo::DescriptorSet &Set(size_t index) const { return sets_[index]; }
  uint32_t PlugNo(size_t index) const { return plugNos_[index]; }
  std::string BusId(size_t index) const { return "1-" + std::to_string(plugNos_[index]); }
  std::vector<std::string> LogLines() const;
  // Waits until a log line has this text.
  bool WaitForLog(const std::string &text, int timeoutMs = 10000) const;

 private:
  std::string hubDir_;
  std::unique_ptr<vhub::VirtualHub> hub_;
  std::unique_ptr<UsbipServer> server_;
  demo::Service service_;
  std::vector<demo::DescriptorSet> sets_;
  std::vector<std::unique_ptr<demo::SimulatedDevice>> devices_;
  std::vector<uint32_t> plugNos_;
  mutable std::mutex logLock_;
  std::vector<std::string> log_;
};

}  // namespace pelarix::usbip
