#include "simulated_device.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "ordo/usb/usb_select_records.h"
#include "urb_block.h"

namespace pelarix::demo {

namespace rec = ordo::usb::select_record;

namespace {

constexpr size_t kDeviceStringManufacturer = 14;
constexpr size_t kDeviceStringProduct = 15;
constexpr size_t kDeviceStringSerial = 16;
constexpr size_t kConfigStringIndex = 6;
constexpr size_t kConfigValue = 5;
constexpr size_t kConfigAttributes = 7;
constexpr uint8_t kSelfPowered = 0x40;
constexpr size_t kConfigHeaderBytes = 9;
// Standard requests a raw control transfer may carry.
constexpr uint8_t kStandardDeviceIn = 0x80;
constexpr uint8_t kStandardInterfaceIn = 0x81;
constexpr uint8_t kRequestGetStatus = 0;
constexpr uint8_t kRequestGetDescriptor = 6;
constexpr uint8_t kRequestGetConfiguration = 8;

// Where the model's select-configuration record puts each interface
// information record, and how long it is, for pipe counts taken from the
// request block.
struct RecordPlan {
  std::vector<size_t> blockRecords;  // offsets in the request block
  std::vector<size_t> modelRecords;  // offsets in the model's record
  std::vector<uint32_t> pipeCounts;
  size_t modelLength = rec::kConfigurationInterfaces;
};

// Reads the interface records of a select-configuration block; false when
// one does not lie whole inside the block or is too short for its pipes.
bool PlanRecords(const std::vector<uint8_t> &block, size_t blockLength, RecordPlan *plan) {
  size_t at = urb::kSelectConfigInterfaces;
  while (at < blockLength) {
    if (at + urb::kInterfaceRecordBytes > blockLength) {
      return false;
    }
    const size_t length = urb::Read16(block, at + urb::kInterfaceLength);
    const uint32_t pipes = urb::Read32(block, at + urb::kInterfacePipeCount);
    if (length < urb::kInterfaceRecordBytes || at + length > blockLength) {
      return false;
    }
    if (pipes > (length - urb::kInterfaceRecordBytes) / urb::kPipeRecordBytes) {
      return false;
    }
    plan->blockRecords.push_back(at);
    plan->modelRecords.push_back(plan->modelLength);
    plan->pipeCounts.push_back(pipes);
    plan->modelLength += rec::kInfoPipes + rec::kPipeRecordSize * pipes;
    at += length;
  }
  return true;
}

void CopyPipeBack(const std::vector<uint8_t> &model, size_t from, std::vector<uint8_t> &block,
                  size_t to) {
  urb::Write16(block, to + urb::kPipeMaxPacket, urb::Read16(model, from + rec::kPipeMaxPacketSize));
  block[to + urb::kPipeEndpoint] = model[from + rec::kPipeEndpointAddress];
  block[to + urb::kPipeInterval] = model[from + rec::kPipeInterval];
  urb::Write32(block, to + urb::kPipeType, urb::Read32(model, from + rec::kPipeType));
  urb::Write32(block, to + urb::kPipeRecordHandle, urb::Read32(model, from + rec::kPipeHandle));
}

void CopyInterfaceBack(const std::vector<uint8_t> &model, size_t from, uint32_t pipes,
                       std::vector<uint8_t> &block, size_t to) {
  std::memcpy(&block[to + urb::kInterfaceClass], &model[from + rec::kInfoClass], 3);
  urb::Write32(block, to + urb::kInterfaceHandle, urb::Read32(model, from + rec::kInfoHandle));
  const uint32_t filled = std::min(pipes, urb::Read32(model, from + rec::kInfoPipeCount));
  urb::Write32(block, to + urb::kInterfacePipeCount, filled);
  for (uint32_t pipe = 0; pipe < filled; ++pipe) {
    CopyPipeBack(model, from + rec::kInfoPipes + rec::kPipeRecordSize * pipe, block,
                 to + urb::kInterfacePipes + urb::kPipeRecordBytes * pipe);
  }
}

}  // namespace

SimulatedDevice::SimulatedDevice(DescriptorSet offered) : offered_(std::move(offered)) {
  model_.SetDeviceDescriptor(offered_.device.data());
  for (size_t index = 0; index < offered_.configs.size(); ++index) {
    model_.AddConfigDescriptor(static_cast<uint32_t>(index), offered_.configs[index].data(), false);
  }
  MakeStrings();
}

void SimulatedDevice::AddString(uint8_t index, const std::string &text) {
  if (index == 0 || strings_.count({index, kEnglish}) != 0) {
    return;
  }
  std::vector<uint8_t> descriptor{0, urb::kStringDescriptor};
  for (char c : text.substr(0, 126)) {
    descriptor.push_back(static_cast<uint8_t>(c));
    descriptor.push_back(0);
  }
  descriptor[0] = static_cast<uint8_t>(descriptor.size());
  strings_[{index, kEnglish}] = std::move(descriptor);
}

void SimulatedDevice::MakeStrings() {
  strings_[{0, 0}] = {4, urb::kStringDescriptor, kEnglish & 0xFF, kEnglish >> 8};
  char serial[32];
  std::snprintf(serial, sizeof serial, "PLX%04X%04X", offered_.VendorId(), offered_.ProductId());
  AddString(offered_.device[kDeviceStringManufacturer], "Pelarix demo client");
  AddString(offered_.device[kDeviceStringProduct], offered_.name);
  AddString(offered_.device[kDeviceStringSerial], serial);
  for (const std::vector<uint8_t> &config : offered_.configs) {
    AddString(config[kConfigStringIndex], "Configuration " + std::to_string(config[kConfigValue]));
    for (const InterfaceLayout &layout : WalkInterfaces(config)) {
      AddString(layout.stringIndex, "Interface " + std::to_string(layout.number));
    }
  }
}

void SimulatedDevice::Attach(std::unique_ptr<UsbFunction> function,
                             const std::vector<uint8_t> &endpoints) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (uint8_t endpoint : endpoints) {
    functionOfEndpoint_[endpoint] = function.get();
  }
  functions_.push_back(std::move(function));
}

std::vector<uint8_t> SimulatedDevice::Answer(const std::vector<uint8_t> &request) {
  std::lock_guard<std::mutex> lock(mutex_);
  const size_t blockLength = urb::Read16(request, urb::kLength);
  if (request.size() < urb::kHeaderBytes || blockLength < urb::kHeaderBytes ||
      blockLength > request.size()) {
    std::vector<uint8_t> refused(urb::kHeaderBytes, 0);
    urb::Write16(refused, urb::kLength, urb::kHeaderBytes);
    urb::Write16(refused, urb::kFunction, urb::Read16(request, urb::kFunction));
    urb::Write32(refused, urb::kStatus, urb::kInvalidParameter);
    return refused;
  }
  std::vector<uint8_t> block(request.begin(),
                             request.begin() + static_cast<std::ptrdiff_t>(blockLength));
  std::vector<uint8_t> in;
  uint32_t status = urb::kInvalidFunction;
  const bool hasTransfer = blockLength >= urb::kTransferOffset + 4;
  switch (urb::Read16(block, urb::kFunction)) {
    case urb::kGetDescriptorFromDevice:
      status = hasTransfer ? GetDescriptor(request, &in) : urb::kInvalidParameter;
      break;
    case urb::kSelectConfiguration:
      status = SelectConfiguration(request, block);
      break;
    case urb::kGetStatusFromDevice: {
      const uint8_t attributes = offered_.configs[0][kConfigAttributes];
      in = {static_cast<uint8_t>((attributes & kSelfPowered) != 0 ? 1 : 0), 0};
      status = hasTransfer ? urb::kSuccess : urb::kInvalidParameter;
      break;
    }
    case urb::kGetConfiguration:
      in = {configurationValue_};
      status = hasTransfer ? urb::kSuccess : urb::kInvalidParameter;
      break;
    case urb::kBulkOrInterruptTransfer:
      status = hasTransfer ? Transfer(request, &in) : urb::kInvalidParameter;
      break;
    case urb::kControlTransfer:
      status = blockLength >= urb::kControlBlockBytes ? ControlTransfer(request, &in)
                                                      : urb::kInvalidParameter;
      break;
    default:
      break;
  }
  urb::Write32(block, urb::kStatus, status);
  if (hasTransfer && urb::Read16(block, urb::kFunction) != urb::kSelectConfiguration) {
    const uint32_t room = urb::Read32(block, urb::kTransferLength);
    const bool read = urb::IsRead(block);
    if (read && in.size() > room) {
      in.resize(room);
    }
    // A write moved what it carried; a read moved what follows the block.
    if (read || status != urb::kSuccess) {
      urb::Write32(block, urb::kTransferLength, static_cast<uint32_t>(in.size()));
    }
    urb::Write32(block, urb::kTransferOffset, static_cast<uint32_t>(blockLength));
    if (read) {
      block.insert(block.end(), in.begin(), in.end());
    }
  }
  return block;
}

uint32_t SimulatedDevice::GetDescriptor(const std::vector<uint8_t> &request,
                                        std::vector<uint8_t> *in) const {
  const uint8_t type = request[urb::kDescriptorType];
  const uint8_t index = request[urb::kDescriptorIndex];
  if (type == urb::kDeviceDescriptor) {
    *in = offered_.device;
  } else if (type == urb::kConfigDescriptor && index < offered_.configs.size()) {
    *in = offered_.configs[index];
  } else if (type == urb::kStringDescriptor) {
    const uint16_t language = index == 0 ? 0 : urb::Read16(request, urb::kLanguageId);
    auto found = strings_.find({index, language});
    if (found == strings_.end()) {
      return urb::kStallPid;
    }
    *in = found->second;
  } else {
    return urb::kStallPid;
  }
  return urb::kSuccess;
}

uint32_t SimulatedDevice::ControlTransfer(const std::vector<uint8_t> &request,
                                          std::vector<uint8_t> *in) const {
  // The setup packet lies where the standard-request blocks keep their
  // fields (wValue's index and type at 74 and 75, wIndex at 76), so a
  // standard request given raw is answered as its own block would be. Any
  // other request stalls, as a device stalls what it does not know.
  const uint8_t requestType = request[urb::kSetupPacket];
  const uint8_t code = request[urb::kSetupPacket + 1];
  const bool standardIn = requestType == kStandardDeviceIn || requestType == kStandardInterfaceIn;
  if (standardIn && code == kRequestGetDescriptor) {
    return GetDescriptor(request, in);
  }
  if (requestType == kStandardDeviceIn && code == kRequestGetStatus) {
    const uint8_t attributes = offered_.configs[0][kConfigAttributes];
    *in = {static_cast<uint8_t>((attributes & kSelfPowered) != 0 ? 1 : 0), 0};
    return urb::kSuccess;
  }
  if (requestType == kStandardDeviceIn && code == kRequestGetConfiguration) {
    *in = {configurationValue_};
    return urb::kSuccess;
  }
  return urb::kStallPid;
}

uint32_t SimulatedDevice::SelectConfiguration(const std::vector<uint8_t> &request,
                                              std::vector<uint8_t> &block) {
  const size_t blockLength = block.size();
  RecordPlan plan;
  if (blockLength < urb::kSelectConfigInterfaces || !PlanRecords(block, blockLength, &plan)) {
    return urb::kInvalidParameter;
  }
  // The configuration descriptor travels behind the block; the block holds
  // its offset.
  const size_t copyAt = urb::Read32(block, urb::kSelectConfigDescriptor);
  if (copyAt < blockLength || copyAt > request.size() ||
      request.size() - copyAt < kConfigHeaderBytes) {
    return urb::kInvalidParameter;
  }
  const size_t copyLength = urb::Read16(request, copyAt + 2);
  if (copyLength < kConfigHeaderBytes || copyLength > request.size() - copyAt) {
    return urb::kInvalidParameter;
  }
  const std::vector<uint8_t> config(
      request.begin() + static_cast<std::ptrdiff_t>(copyAt),
      request.begin() + static_cast<std::ptrdiff_t>(copyAt + copyLength));
  std::vector<uint8_t> record(plan.modelLength, 0);
  urb::Write32(record, rec::kDescriptorOffset, static_cast<uint32_t>(plan.modelLength));
  for (size_t i = 0; i < plan.blockRecords.size(); ++i) {
    const size_t at = plan.modelRecords[i];
    const size_t from = plan.blockRecords[i];
    urb::Write16(
        record, at + rec::kInfoLength,
        static_cast<uint16_t>(rec::kInfoPipes + rec::kPipeRecordSize * plan.pipeCounts[i]));
    record[at + rec::kInfoNumber] = block[from + urb::kInterfaceNumber];
    record[at + rec::kInfoAlternate] = block[from + urb::kInterfaceAlternate];
  }
  record.insert(record.end(), config.begin(), config.end());
  // Selection always names the configuration the descriptor copy carries.
  record[plan.modelLength + 4] = static_cast<uint8_t>(plan.blockRecords.size());
  if (!model_.SelectConfiguration(record.data(), static_cast<uint32_t>(record.size())) ||
      model_.GetActiveConfiguration() == nullptr) {
    return urb::kInvalidParameter;
  }
  urb::Write32(block, urb::kSelectConfigHandle, urb::Read32(record, rec::kConfigurationHandle));
  for (size_t i = 0; i < plan.blockRecords.size(); ++i) {
    CopyInterfaceBack(record, plan.modelRecords[i], plan.pipeCounts[i], block,
                      plan.blockRecords[i]);
  }
  endpointOfPipe_.clear();
  const uint8_t *map = model_.GetPipeMap();
  if (map == nullptr) {
    return urb::kNotSupported;
  }
  uint32_t entries = 0;
  std::memcpy(&entries, map, 4);
  for (uint32_t i = 0; i < entries; ++i) {
    uint32_t handle = 0;
    std::memcpy(&handle, map + 4 + rec::kPipeMapEntrySize * i, 4);
    endpointOfPipe_[handle] = map[8 + rec::kPipeMapEntrySize * i];
  }
  configurationValue_ = config[kConfigValue];
  return urb::kSuccess;
}

uint32_t SimulatedDevice::Transfer(const std::vector<uint8_t> &request, std::vector<uint8_t> *in) {
  auto pipe = endpointOfPipe_.find(urb::Read32(request, urb::kPipeHandle));
  if (pipe == endpointOfPipe_.end()) {
    return urb::kInvalidParameter;
  }
  auto function = functionOfEndpoint_.find(pipe->second);
  if (function == functionOfEndpoint_.end()) {
    return urb::kStallPid;
  }
  const uint32_t length = urb::Read32(request, urb::kTransferLength);
  const bool read = (urb::Read32(request, urb::kTransferFlags) & urb::kDirectionIn) != 0;
  std::vector<uint8_t> out;
  if (!read) {
    const size_t offset = urb::Read32(request, urb::kTransferOffset);
    if (offset > request.size() || length > request.size() - offset) {
      return urb::kInvalidParameter;
    }
    out.assign(request.begin() + static_cast<std::ptrdiff_t>(offset),
               request.begin() + static_cast<std::ptrdiff_t>(offset + length));
  }
  return function->second->Transfer(pipe->second, out, read ? length : 0, in);
}

}  // namespace pelarix::demo
