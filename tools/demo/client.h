// The client end of the path, where the devices are plugged in: it decides
// what it offers the agent with the client side of the filter engine
// (DevFilterMgrClient, its own filter strings merged with the agent's blob),
// cuts a composite device down to the interfaces that may go, and makes the
// simulated device that will answer the agent's requests, with a disk behind
// every bulk-only mass-storage interface and a typing keyboard behind every
// boot keyboard.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "descriptor_set.h"
#include "ordo/usb/dev_filter_mgr_client.h"
#include "simulated_device.h"

namespace pelarix::demo {

struct ClientDecision {
  enum class Kind { kWhole, kSplit, kKeptLocal };
  Kind kind = Kind::kWhole;
  std::vector<uint8_t> interfaces;  // bInterfaceNumber of what goes, when split
};

// The in-memory disk of each simulated flash drive.
inline constexpr uint32_t kDiskBlocks = 8192;  // 4 MiB

class Client {
 public:
  // The client's own filter strings, and the size of its disks.
  explicit Client(const std::vector<std::string> &localStrings, uint32_t diskBlocks = kDiskBlocks);

  // Takes the agent's filter settings as the agent's library wrote them;
  // false when the blob is malformed (what was read whole is kept).
  bool ReadAgentBlob(const std::vector<uint8_t> &blob);
  ClientDecision Decide(const DescriptorSet &set);
  // The device as offered under the decision, class functions attached.
  std::unique_ptr<SimulatedDevice> Offer(const DescriptorSet &set, const ClientDecision &decision,
                                         bool corruptDisks) const;

 private:
  ordo::usb::DevFilterMgrClient manager_;
  uint32_t diskBlocks_;
};

}  // namespace pelarix::demo
