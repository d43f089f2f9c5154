// The client's end of one forwarded device: it answers the request blocks
// that the host side sends through items, from the descriptors and strings
// it offered, as the real device behind it would. Standard requests are
// answered here; bulk and interrupt transfers go to the class function that
// owns the endpoint (a disk, a keyboard), if any.
//
// Select configuration is filled in by the descriptor model
// (UsbDeviceConfig::SelectConfiguration): the block's interface and pipe
// records are carried over into the model's select-configuration record and
// back, and the model's pipe map then names the endpoint of every pipe
// handle that later transfers give.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "descriptor_set.h"
#include "ordo/usb/usb_device_config.h"
#include "usb_function.h"

namespace pelarix::demo {

class SimulatedDevice {
 public:
  // `offered` is what the client hands the agent: the device descriptor and
  // the configuration sets (the first one possibly cut down by a split).
  explicit SimulatedDevice(DescriptorSet offered);
  SimulatedDevice(const SimulatedDevice &) = delete;
  SimulatedDevice &operator=(const SimulatedDevice &) = delete;

  const DescriptorSet &Offered() const { return offered_; }
  // A string descriptor for every string index the descriptors name, and the
  // language table at index 0: key (index, language), value the descriptor.
  const std::map<std::pair<uint8_t, uint16_t>, std::vector<uint8_t>> &Strings() const {
    return strings_;
  }
  // Gives the endpoints of interfaces of this class to a function.
  void Attach(std::unique_ptr<UsbFunction> function, const std::vector<uint8_t> &endpoints);

  // The answer to one request block (and, for a write, its data): the same
  // block with status and length filled in, and for a read the data behind
  // it. Safe from any thread.
  std::vector<uint8_t> Answer(const std::vector<uint8_t> &request);

 private:
  uint32_t GetDescriptor(const std::vector<uint8_t> &request, std::vector<uint8_t> *in) const;
  uint32_t ControlTransfer(const std::vector<uint8_t> &request, std::vector<uint8_t> *in) const;
  uint32_t SelectConfiguration(const std::vector<uint8_t> &request, std::vector<uint8_t> &block);
  uint32_t Transfer(const std::vector<uint8_t> &request, std::vector<uint8_t> *in);
  void MakeStrings();
  void AddString(uint8_t index, const std::string &text);

  DescriptorSet offered_;
  std::map<std::pair<uint8_t, uint16_t>, std::vector<uint8_t>> strings_;
  std::mutex mutex_;
  ordo::usb::UsbDeviceConfig model_;
  uint8_t configurationValue_ = 0;
  std::map<uint32_t, uint8_t> endpointOfPipe_;
  std::vector<std::unique_ptr<UsbFunction>> functions_;
  std::map<uint8_t, UsbFunction *> functionOfEndpoint_;
};

// The language the simulated devices speak.
inline constexpr uint16_t kEnglish = 0x0409;

}  // namespace pelarix::demo
