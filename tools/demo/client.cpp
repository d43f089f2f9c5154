#include "client.h"

#include <algorithm>

#include "keyboard_function.h"
#include "ordo/usb/dev_filter_result.h"
#include "storage_function.h"

namespace pelarix::demo {

namespace {

// A disk that flips one bit of every read: for checking that the host
// side's verification catches a mismatch.
class CorruptingStorage : public StorageFunction {
 public:
  using StorageFunction::StorageFunction;
  uint32_t Transfer(uint8_t endpoint, const std::vector<uint8_t> &out, uint32_t room,
                    std::vector<uint8_t> *in) override {
    const uint32_t status = StorageFunction::Transfer(endpoint, out, room, in);
    if (in->size() > kStatusWrapperBytes) {
      (*in)[in->size() / 2] ^= 0x01;
    }
    return status;
  }
};

void AttachFunctions(SimulatedDevice &device, uint32_t diskBlocks, bool corruptDisks) {
  for (const InterfaceLayout &interface : WalkInterfaces(device.Offered().configs[0])) {
    if (interface.alternate != 0) {
      continue;
    }
    const uint8_t bulkIn = FindEndpoint(interface, kBulkEndpoint, true);
    const uint8_t bulkOut = FindEndpoint(interface, kBulkEndpoint, false);
    const uint8_t interruptIn = FindEndpoint(interface, kInterruptEndpoint, true);
    if (IsBulkOnlyStorage(interface) && bulkIn != 0 && bulkOut != 0) {
      std::unique_ptr<StorageFunction> disk =
          corruptDisks ? std::make_unique<CorruptingStorage>(bulkIn, bulkOut, diskBlocks)
                       : std::make_unique<StorageFunction>(bulkIn, bulkOut, diskBlocks);
      device.Attach(std::move(disk), {bulkIn, bulkOut});
    } else if (IsBootKeyboard(interface) && interruptIn != 0) {
      device.Attach(std::make_unique<KeyboardFunction>(interruptIn, kTypedText), {interruptIn});
    }
  }
}

// The filter numbers interfaces in the order they first appear.
std::vector<uint8_t> InterfaceNumbers(const std::vector<int32_t> &flat,
                                      const std::vector<uint8_t> &config) {
  std::vector<uint8_t> order;
  for (const InterfaceLayout &interface : WalkInterfaces(config)) {
    if (std::find(order.begin(), order.end(), interface.number) == order.end()) {
      order.push_back(interface.number);
    }
  }
  std::vector<uint8_t> numbers;
  for (int32_t index : flat) {
    if (index >= 0 && static_cast<size_t>(index) < order.size()) {
      numbers.push_back(order[index]);
    }
  }
  return numbers;
}

}  // namespace

Client::Client(const std::vector<std::string> &localStrings, uint32_t diskBlocks)
    : diskBlocks_(diskBlocks) {
  for (const std::string &text : localStrings) {
    manager_.AddFilterRule(text, true);
  }
}

bool Client::ReadAgentBlob(const std::vector<uint8_t> &blob) {
  const bool whole = manager_.ReadFilterBlob(blob.data(), blob.size(), false);
  manager_.MergeFilterLists();
  return whole;
}

ClientDecision Client::Decide(const DescriptorSet &set) {
  std::vector<uint8_t> configs;
  for (const std::vector<uint8_t> &config : set.configs) {
    configs.insert(configs.end(), config.begin(), config.end());
  }
  ordo::usb::DevFilterResult result;
  ClientDecision decision;
  if (!manager_.EvaluateDevice(set.device.data(), configs.data(),
                               static_cast<int32_t>(set.configs.size()), nullptr, result) ||
      !result.IsDeviceAllowed()) {
    decision.kind = ClientDecision::Kind::kKeptLocal;
  } else if (result.IsSplit()) {
    decision.kind = ClientDecision::Kind::kSplit;
    decision.interfaces = InterfaceNumbers(result.GetAllowedInterfaces(), set.configs[0]);
  }
  return decision;
}

std::unique_ptr<SimulatedDevice> Client::Offer(const DescriptorSet &set,
                                               const ClientDecision &decision,
                                               bool corruptDisks) const {
  DescriptorSet offered = set;
  if (decision.kind == ClientDecision::Kind::kSplit) {
    offered.configs[0] = KeepInterfaces(set.configs[0], decision.interfaces);
  }
  auto device = std::make_unique<SimulatedDevice>(std::move(offered));
  AttachFunctions(*device, diskBlocks_, corruptDisks);
  return device;
}

}  // namespace pelarix::demo
