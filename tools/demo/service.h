// The agent's redirection service: the library loaded as a service loads
// it, one session on the virtual hub, pump threads that take each item,
// hand it to the client's device it belongs to and complete it with the
// client's answer, and at the end the unplug and the teardown in the
// documented order.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "pelarix.h"
#include "simulated_device.h"

namespace pelarix::demo {

// What one device's items cost: items completed, and bytes of requests and
// answers that crossed the service.
struct ServedCounts {
  uint64_t items = 0;
  uint64_t bytes = 0;
};

class Service {
 public:
  using LogSink = std::function<void(uint32_t level, const std::string &text)>;

  Service() = default;
  ~Service();
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  // Initialises the library (its log at logLevel into sink), opens the
  // session and starts `pumps` pump threads. On failure *error says why.
  bool Start(uint32_t logLevel, LogSink sink, uint32_t pumps, std::string *error);
  // The agent's filter settings, as the library writes them for a client.
  std::vector<uint8_t> FilterBlob();

  // Creates the device (the agent's filter decides first), adds its strings
  // when the client is of version 4 or above, and plugs it in. The status
  // of the first call that failed, or of the plug-in: Pelarix_Pending when
  // the library plugs the device in later (an older client's strings are
  // fetched first); *plugNo is set once the device was created.
  PelarixStatus Offer(SimulatedDevice &device, uint32_t clientVersion, bool partial,
                      uint32_t *plugNo);
  // Waits until every plug-in has reported its outcome through the plug-in
  // callback; false on time-out. Then the outcome of one device's plug-in.
  bool WaitForPlugins(std::chrono::milliseconds timeout);
  PelarixStatus PluginOutcome(const SimulatedDevice &device) const;
  ServedCounts Counts(const SimulatedDevice &device) const;

  // Unplugs and closes one device before the end; its items are answered
  // as a device's the service does not know.
  PelarixStatus Unplug(const SimulatedDevice &device);
  // Unplugs and closes every device, ends the pumps, closes the session.
  void Stop();

 private:
  struct Served {
    SimulatedDevice *device = nullptr;
    uint32_t plugNo = 0;
    ServedCounts counts;
    PelarixStatus outcome = Pelarix_Pending;  // until the plug-in callback
  };

  void Pump();
  void Serve(PelarixHandle item);
  static void PELARIX_CALL Log(uint32_t level, const PelarixChar *message);
  static void PELARIX_CALL Plugged(PelarixHandle device, uint32_t status, void *context);

  PelarixHandle session_ = nullptr;
  std::vector<std::thread> pumps_;
  std::atomic<size_t> pumpsEnded_{0};
  mutable std::mutex mutex_;
  std::condition_variable pluggedChanged_;
  std::map<PelarixHandle, Served> devices_;
  static LogSink sink_;
};

}  // namespace pelarix::demo
