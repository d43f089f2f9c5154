// The host side: the part that the agent's operating system plays above a
// real hub. It watches the virtual hub; when a device is plugged in, a
// driver of its own enumerates the device through items (descriptors of
// the device, configurations and strings, then select configuration) and
// drives its class traffic: a disk is written, read back and verified, a
// keyboard's reports are read. Every request is a request block in an item
// that the hub raises and the agent's service answers with the client's
// answer; the host side waits for each completion before the next request.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "hub_model.h"

namespace pelarix::demo {

struct HostOptions {
  // How long each disk is written and read back (at least one round).
  std::chrono::milliseconds storageTime{2000};
  // An item not completed within this time is reported unanswered.
  std::chrono::milliseconds itemTimeout{10000};
};

// What the host side saw of one plugged device.
struct HostDeviceReport {
  uint32_t plugNo = 0;
  uint16_t vendorId = 0;
  uint16_t productId = 0;
  bool enumerated = false;
  std::vector<std::string> problems;  // empty: every check passed
  uint64_t items = 0;                 // items this driver raised
  uint32_t pipes = 0;                 // pipes the selected configuration opened
  std::vector<std::string> strings;   // manufacturer, product, serial as read
  // Storage: data bytes written and read back, the items and time they took.
  bool storage = false;
  uint64_t storageBytes = 0;
  uint64_t storageItems = 0;
  double storageSeconds = 0;
  // Keyboard: the text its reports typed.
  bool keyboard = false;
  std::string typed;
};

class HostSide {
 public:
  HostSide(vhub::HubModel &model, HostOptions options);
  ~HostSide();
  HostSide(const HostSide &) = delete;
  HostSide &operator=(const HostSide &) = delete;

  // Starts and stops watching the hub. Stop waits for every driver.
  void Start();
  void Stop();

  // Waits until `count` drivers have finished; false on time-out.
  bool WaitForDrivers(size_t count, std::chrono::milliseconds timeout);
  std::vector<HostDeviceReport> Reports() const;
  // Items raised so far, by all drivers (for the progress line).
  uint64_t ItemsRaised() const;

  // One request to a device: queued on the hub as an item, answered by
  // whoever serves the hub. The answer's bytes, or nothing with *problem
  // set when no answer came or nobody served the item.
  std::optional<std::vector<uint8_t>> Submit(uint32_t plugNo, const std::vector<uint8_t> &request,
                                             std::string *problem);

 private:
  void Plugged(uint32_t plugNo, const std::vector<uint8_t> &record);
  void Completed(const vhub::CompletionRecord &completion);
  void RunDriver(uint32_t plugNo, std::vector<uint8_t> record);

  vhub::HubModel &model_;
  HostOptions options_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<uint32_t, vhub::CompletionRecord> completions_;  // by item id, until taken
  std::vector<std::thread> drivers_;
  std::vector<HostDeviceReport> reports_;
  uint64_t itemsRaised_ = 0;
};

}  // namespace pelarix::demo
