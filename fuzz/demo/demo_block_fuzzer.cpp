// Request blocks from the host side into a simulated device, and the same
// bytes read as answers by the host side. The input is a series of blocks,
// each behind a 2-byte little-endian length. The device is a real flash
// drive and keyboard pair: after a proper select configuration, the pipe
// handle of a bulk or interrupt block is replaced by one of the real
// handles (chosen by the block's own byte 16), so that transfers reach the
// disk and the keyboard.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "client.h"
#include "select_request.h"
#include "urb_block.h"

namespace {

using namespace pelarix::demo;

const DescriptorSet &Device(const char *name) {
  static std::map<std::string, DescriptorSet> sets;
  auto found = sets.find(name);
  if (found == sets.end()) {
    std::string error;
    auto set = ReadDescriptorFile(std::string(PELARIX_REALDESC_DIR) + "/" + name + ".bin", &error);
    if (!set) __builtin_trap();
    found = sets.emplace(name, std::move(*set)).first;
  }
  return found->second;
}

void Drive(SimulatedDevice &device, const std::vector<uint32_t> &pipes, const uint8_t *data,
           size_t size) {
  size_t at = 0;
  while (at + 2 <= size) {
    const size_t length = static_cast<size_t>(data[at] | data[at + 1] << 8);
    at += 2;
    const size_t taken = length < size - at ? length : size - at;
    std::vector<uint8_t> request(data + at, data + at + taken);
    at += taken;
    if (!pipes.empty() && urb::Read16(request, urb::kFunction) == urb::kBulkOrInterruptTransfer &&
        request.size() >= urb::kPipeHandle + 4) {
      urb::Write32(request, urb::kPipeHandle, pipes[request[urb::kPipeHandle] % pipes.size()]);
    }
    const std::vector<uint8_t> answer = device.Answer(request);
    urb::ReadAnswer(answer);
    urb::ReadAnswer(request);
    std::string problem;
    ReadSelectedPipes(request, device.Offered().configs[0], &problem);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // A small disk: a fresh one per input, zero-filled, must cost little.
  const Client client({}, 256);
  for (const char *name : {"flash_generic_1043_8012", "keyboard_holtek_04d9_1603"}) {
    auto device = client.Offer(Device(name), ClientDecision{}, false);
    const std::vector<uint8_t> &config = device->Offered().configs[0];
    std::string problem;
    auto selected =
        ReadSelectedPipes(device->Answer(SelectConfigurationRequest(config)), config, &problem);
    if (!selected) __builtin_trap();  // the device's own selection must work
    std::vector<uint32_t> pipes;
    for (const auto &[endpoint, handle] : *selected) pipes.push_back(handle);
    Drive(*device, pipes, data, size);
  }
  return 0;
}
