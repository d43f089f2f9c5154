#include "select_request.h"

#include "descriptor_set.h"
#include "urb_block.h"

namespace pelarix::demo {

namespace {

// Drivers of the 32-bit stack state the largest transfer they mean to
// send; the client does not look at it.
constexpr uint32_t kPipeMaxTransfer = 0x10000;

std::vector<InterfaceLayout> FirstSettings(const std::vector<uint8_t> &config) {
  std::vector<InterfaceLayout> chosen;
  for (const InterfaceLayout &interface : WalkInterfaces(config)) {
    if (interface.alternate == 0) {
      chosen.push_back(interface);
    }
  }
  return chosen;
}

size_t RecordLength(const InterfaceLayout &interface) {
  return urb::kInterfaceRecordBytes + urb::kPipeRecordBytes * interface.endpoints.size();
}

}  // namespace

std::vector<uint8_t> SelectConfigurationRequest(const std::vector<uint8_t> &config) {
  const std::vector<InterfaceLayout> chosen = FirstSettings(config);
  size_t length = urb::kSelectConfigInterfaces;
  for (const InterfaceLayout &interface : chosen) {
    length += RecordLength(interface);
  }
  std::vector<uint8_t> block = urb::Block(length, urb::kSelectConfiguration);
  urb::Write32(block, urb::kSelectConfigDescriptor, static_cast<uint32_t>(length));
  size_t at = urb::kSelectConfigInterfaces;
  for (const InterfaceLayout &interface : chosen) {
    urb::Write16(block, at + urb::kInterfaceLength, static_cast<uint16_t>(RecordLength(interface)));
    block[at + urb::kInterfaceNumber] = interface.number;
    urb::Write32(block, at + urb::kInterfacePipeCount,
                 static_cast<uint32_t>(interface.endpoints.size()));
    for (size_t pipe = 0; pipe < interface.endpoints.size(); ++pipe) {
      urb::Write32(block,
                   at + urb::kInterfacePipes + urb::kPipeRecordBytes * pipe + urb::kPipeMaxTransfer,
                   kPipeMaxTransfer);
    }
    at += RecordLength(interface);
  }
  block.insert(block.end(), config.begin(), config.end());
  return block;
}

std::optional<std::map<uint8_t, uint32_t>> ReadSelectedPipes(const std::vector<uint8_t> &answer,
                                                             const std::vector<uint8_t> &config,
                                                             std::string *problem) {
  const std::vector<InterfaceLayout> chosen = FirstSettings(config);
  size_t length = urb::kSelectConfigInterfaces;
  for (const InterfaceLayout &interface : chosen) {
    length += RecordLength(interface);
  }
  if (answer.size() < length || urb::Read32(answer, urb::kStatus) != urb::kSuccess ||
      urb::Read32(answer, urb::kSelectConfigHandle) == 0) {
    *problem = "select configuration refused";
    return std::nullopt;
  }
  std::map<uint8_t, uint32_t> pipes;
  size_t at = urb::kSelectConfigInterfaces;
  for (const InterfaceLayout &interface : chosen) {
    for (size_t pipe = 0; pipe < interface.endpoints.size(); ++pipe) {
      const size_t record = at + urb::kInterfacePipes + urb::kPipeRecordBytes * pipe;
      const uint8_t endpoint = answer[record + urb::kPipeEndpoint];
      const uint32_t handle = urb::Read32(answer, record + urb::kPipeRecordHandle);
      if (endpoint != interface.endpoints[pipe].address || handle == 0) {
        *problem = "select configuration: pipe " + std::to_string(pipe) + " of interface " +
                   std::to_string(interface.number) + " not filled in";
        return std::nullopt;
      }
      pipes[endpoint] = handle;
    }
    at += RecordLength(interface);
  }
  return pipes;
}

}  // namespace pelarix::demo
