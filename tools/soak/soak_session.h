// One session of the soak: its threads (pumps, an unparker, a device thread
// that plugs in and unplugs, a hub side that raises items) and the caller's
// bookkeeping of every item it received, so that the run can tell whether
// each was answered exactly once.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "pelarix.h"
#include "virtual_hub.h"

namespace pelarix::soak {

// What the threads did, for the progress lines.
struct SoakCounters {
  std::atomic<uint64_t> raised{0};
  std::atomic<uint64_t> received{0};
  std::atomic<uint64_t> completed{0};
  std::atomic<uint64_t> closedUnanswered{0};
  std::atomic<uint64_t> parked{0};
  std::atomic<uint64_t> unparked{0};
  std::atomic<uint64_t> cancels{0};
  std::atomic<uint64_t> plugins{0};
  std::atomic<uint64_t> unplugs{0};
  std::atomic<uint64_t> failedCalls{0};  // a call that should have worked did not
};

class SoakSession {
 public:
  SoakSession(vhub::HubModel &hub, SoakCounters &counters, uint32_t pumps, uint32_t seed);
  ~SoakSession();
  SoakSession(const SoakSession &) = delete;
  SoakSession &operator=(const SoakSession &) = delete;

  // Opens the session and starts its threads; false if it did not open.
  bool Start();
  // A cancel of one waiting pump, which takes up its pumping again.
  void CancelOnePump();
  // Stops the threads, unplugs and closes the devices, releases every item
  // and closes the session, in the order the library's usage notes give.
  void Finish();

  // After Finish: the ids of the items the caller received, with whether
  // the hub marked them as needing no completion.
  const std::map<uint32_t, bool> &ReceivedItems() const { return received_; }
  // After Finish: every handle the session ever gave out.
  const std::vector<void *> &Handles() const { return handles_; }

 private:
  void Pump(uint32_t index);
  void Unpark();
  void Devices();
  void Raise();
  void HandleItem(PelarixHandle item, std::mt19937 &random);
  void Note(PelarixHandle item, const PelarixItemInfo &info);
  void UnplugOne(std::mt19937 &random);

  vhub::HubModel &hub_;
  SoakCounters &counters_;
  const uint32_t pumpCount_;
  const uint32_t seed_;
  PelarixHandle session_ = nullptr;
  std::atomic<bool> stopping_{false};
  std::atomic<uint32_t> pumpsRunning_{0};
  std::vector<std::thread> pumps_;
  std::thread unparker_;
  std::thread devices_;
  std::thread raiser_;

  std::mutex mutex_;  // guards what follows
  std::vector<PelarixHandle> plugged_;
  std::vector<PelarixHandle> unplugged_;  // closed once no item of theirs is held
  std::deque<uint32_t> parkedIds_;
  std::map<uint32_t, bool> received_;
  std::vector<void *> handles_;
};

}  // namespace pelarix::soak
