// The class behaviour of a simulated device behind its bulk and interrupt
// endpoints: what answers a transfer once the standard requests are done.
#pragma once

#include <cstdint>
#include <vector>

namespace pelarix::demo {

class UsbFunction {
 public:
  virtual ~UsbFunction() = default;
  // One transfer on an endpoint of this function (bit 7 of the address set:
  // a read of at most `room` bytes into *in). Returns a USBD status.
  virtual uint32_t Transfer(uint8_t endpoint, const std::vector<uint8_t> &out, uint32_t room,
                            std::vector<uint8_t> *in) = 0;
};

}  // namespace pelarix::demo
