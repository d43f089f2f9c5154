#include "host_driver.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "keyboard_function.h"
#include "select_request.h"
#include "storage_function.h"
#include "urb_block.h"

namespace pelarix::demo {

namespace {

using Clock = std::chrono::steady_clock;

// The plug-in record as the hub received it: a 44-byte header, the device
// descriptor, the first configuration set and the string store.
constexpr size_t kRecordPayload = 44;
constexpr size_t kDeviceBytes = 18;
constexpr size_t kConfigHeaderBytes = 9;
constexpr size_t kMaxStringBytes = 255;
constexpr uint32_t kStoreMagic = 0x74737271;  // "qrst"
constexpr size_t kStoreHeaderBytes = 12;
constexpr size_t kStoreEntryHeaderBytes = 7;

constexpr uint8_t kCommandToHost = 0x80;  // the command wrapper's direction flag

// Disk traffic moves this much per command.
constexpr uint32_t kChunkBlocks = 128;
// Enough reports for the typed text, pressed and released, and some idle.
constexpr size_t kKeyboardReadLimit = 256;

std::vector<uint8_t> Slice(const std::vector<uint8_t> &bytes, size_t at, size_t length) {
  if (at > bytes.size() || length > bytes.size() - at) {
    return {};
  }
  return {bytes.begin() + static_cast<std::ptrdiff_t>(at),
          bytes.begin() + static_cast<std::ptrdiff_t>(at + length)};
}

std::string Ascii(const std::vector<uint8_t> &descriptor) {
  std::string text;
  for (size_t at = 2; at + 1 < descriptor.size(); at += 2) {
    text += descriptor[at + 1] == 0 && descriptor[at] >= 0x20 && descriptor[at] < 0x7F
                ? static_cast<char>(descriptor[at])
                : '?';
  }
  return text;
}

// The descriptor the plug-in record's string store holds for this key, or
// nothing (a store without it, or no store at all).
std::optional<std::vector<uint8_t>> StoredString(const std::vector<uint8_t> &store, uint8_t index,
                                                 uint16_t language) {
  if (store.size() < kStoreHeaderBytes || urb::Read32(store, 0) != kStoreMagic) {
    return std::nullopt;
  }
  const uint32_t count = urb::Read32(store, 8);
  size_t at = kStoreHeaderBytes;
  for (uint32_t entry = 0; entry < count && at + kStoreEntryHeaderBytes <= store.size(); ++entry) {
    const size_t length = urb::Read32(store, at);
    if (length < kStoreEntryHeaderBytes || length > store.size() - at) {
      break;
    }
    if (store[at + 4] == index && urb::Read16(store, at + 5) == language) {
      return Slice(store, at + kStoreEntryHeaderBytes, length - kStoreEntryHeaderBytes);
    }
    at += length;
  }
  return std::nullopt;
}

std::vector<uint8_t> Pattern(uint32_t lba, uint32_t round, size_t bytes) {
  std::vector<uint8_t> data(bytes);
  uint32_t state = lba * 2654435761u ^ (round + 1) * 40503u;
  for (uint8_t &byte : data) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<uint8_t>(state >> 16);
  }
  return data;
}

}  // namespace

HostDriver::HostDriver(HostSide &host, uint32_t plugNo, std::vector<uint8_t> pluginRecord,
                       HostOptions options)
    : host_(host), plugNo_(plugNo), pluginRecord_(std::move(pluginRecord)), options_(options) {
  report_.plugNo = plugNo;
}

HostDeviceReport HostDriver::Run() {
  if (ReadDescriptors() && ReadStrings() && SelectConfiguration()) {
    report_.enumerated = report_.problems.empty();
    GetStatus();
    for (const InterfaceLayout &interface : WalkInterfaces(config_)) {
      if (interface.alternate != 0) {
        continue;
      }
      if (IsBulkOnlyStorage(interface)) {
        DriveStorage(interface);
      } else if (IsBootKeyboard(interface)) {
        DriveKeyboard(interface);
      }
    }
  }
  return report_;
}

void HostDriver::Fail(const std::string &problem) {
  report_.problems.push_back(problem);
}

std::optional<std::vector<uint8_t>> HostDriver::Request(const std::vector<uint8_t> &block) {
  std::string problem;
  ++report_.items;
  auto answer = host_.Submit(plugNo_, block, &problem);
  if (!answer) {
    Fail(problem);
  }
  return answer;
}

std::optional<std::vector<uint8_t>> HostDriver::Read(const std::vector<uint8_t> &block) {
  auto answer = Request(block);
  if (!answer) {
    return std::nullopt;
  }
  auto read = urb::ReadAnswer(*answer);
  if (!read) {
    Fail("malformed answer to function " + std::to_string(urb::Read16(block, urb::kFunction)));
    return std::nullopt;
  }
  if (read->status != urb::kSuccess) {
    return std::nullopt;  // the caller says what it missed
  }
  return std::move(read->data);
}

bool HostDriver::Write(uint32_t pipeHandle, const std::vector<uint8_t> &data) {
  auto answer = Request(urb::BulkWrite(pipeHandle, data));
  if (!answer) {
    return false;
  }
  auto read = urb::ReadAnswer(*answer);
  return read && read->status == urb::kSuccess && read->length == data.size();
}

bool HostDriver::ReadDescriptors() {
  auto device = Read(urb::DescriptorRequest(urb::kDeviceDescriptor, 0, 0, kDeviceBytes));
  if (!device || device->size() != kDeviceBytes) {
    Fail("no device descriptor");
    return false;
  }
  device_ = *device;
  report_.vendorId = urb::Read16(device_, 8);
  report_.productId = urb::Read16(device_, 10);
  if (Slice(pluginRecord_, kRecordPayload, kDeviceBytes) != device_) {
    Fail("device descriptor differs from the plug-in record");
  }
  const uint8_t configurations = device_[17];
  for (uint8_t index = 0; index < std::max<uint8_t>(configurations, 1); ++index) {
    auto header =
        Read(urb::DescriptorRequest(urb::kConfigDescriptor, index, 0, kConfigHeaderBytes));
    if (!header || header->size() != kConfigHeaderBytes) {
      Fail("no configuration descriptor " + std::to_string(index));
      return false;
    }
    const uint16_t total = urb::Read16(*header, 2);
    auto config = Read(urb::DescriptorRequest(urb::kConfigDescriptor, index, 0, total));
    if (!config || config->size() != total) {
      Fail("configuration set " + std::to_string(index) + " not whole");
      return false;
    }
    if (index == 0) {
      config_ = *config;
    }
  }
  if (Slice(pluginRecord_, kRecordPayload + kDeviceBytes, config_.size()) != config_) {
    Fail("configuration set differs from the plug-in record");
  }
  return true;
}

std::optional<std::vector<uint8_t>> HostDriver::ReadString(uint8_t index, uint16_t language) {
  auto string =
      Read(urb::DescriptorRequest(urb::kStringDescriptor, index, language, kMaxStringBytes));
  if (!string || string->size() < 2 || (*string)[1] != urb::kStringDescriptor) {
    Fail("no string " + std::to_string(index));
    return std::nullopt;
  }
  const size_t storeAt = kRecordPayload + kDeviceBytes + config_.size();
  const std::vector<uint8_t> store =
      Slice(pluginRecord_, storeAt, pluginRecord_.size() - std::min(pluginRecord_.size(), storeAt));
  auto stored = StoredString(store, index, language);
  if (stored && *stored != *string) {
    Fail("string " + std::to_string(index) + " differs from the plug-in record");
  }
  return string;
}

bool HostDriver::ReadStrings() {
  if (device_[14] == 0 && device_[15] == 0 && device_[16] == 0) {
    return true;
  }
  auto languages = ReadString(0, 0);
  if (!languages || languages->size() < 4) {
    return false;
  }
  const uint16_t language = urb::Read16(*languages, 2);
  for (size_t field = 14; field <= 16; ++field) {
    if (device_[field] == 0) {
      continue;
    }
    auto string = ReadString(device_[field], language);
    if (!string) {
      return false;
    }
    report_.strings.push_back(Ascii(*string));
  }
  return true;
}

bool HostDriver::SelectConfiguration() {
  auto answer = Request(SelectConfigurationRequest(config_));
  if (!answer) {
    return false;
  }
  std::string problem;
  auto pipes = ReadSelectedPipes(*answer, config_, &problem);
  if (!pipes) {
    Fail(problem);
    return false;
  }
  pipeOfEndpoint_ = std::move(*pipes);
  report_.pipes = static_cast<uint32_t>(pipeOfEndpoint_.size());
  return true;
}

void HostDriver::GetStatus() {
  std::vector<uint8_t> block = urb::Block(urb::kControlBlockBytes, urb::kGetStatusFromDevice);
  urb::Write32(block, urb::kTransferLength, 2);
  urb::Write32(block, urb::kTransferOffset, urb::kControlBlockBytes);
  auto status = Read(block);
  if (!status || status->size() != 2) {
    Fail("no device status");
  }
}

bool HostDriver::ScsiCommand(const std::vector<uint8_t> &command, uint32_t length, bool toHost,
                             std::vector<uint8_t> *data) {
  std::vector<uint8_t> wrapper(kCommandWrapperBytes, 0);
  urb::Write32(wrapper, 0, kCommandSignature);
  urb::Write32(wrapper, 4, ++tag_);
  urb::Write32(wrapper, 8, length);
  wrapper[12] = toHost ? kCommandToHost : 0;
  wrapper[14] = static_cast<uint8_t>(command.size());
  std::copy(command.begin(), command.end(), wrapper.begin() + 15);
  if (!Write(bulkOut_, wrapper)) {
    return false;
  }
  if (length > 0 && toHost) {
    auto read = Read(urb::BulkRead(bulkIn_, length));
    if (!read) {
      return false;
    }
    *data = std::move(*read);
  } else if (length > 0 && !Write(bulkOut_, *data)) {
    return false;
  }
  auto status = Read(urb::BulkRead(bulkIn_, kStatusWrapperBytes));
  return status && status->size() == kStatusWrapperBytes &&
         urb::Read32(*status, 0) == kStatusSignature && urb::Read32(*status, 4) == tag_ &&
         (*status)[12] == 0 && urb::Read32(*status, 8) == 0;
}

void HostDriver::DriveStorage(const InterfaceLayout &interface) {
  const uint8_t in = FindEndpoint(interface, kBulkEndpoint, true);
  const uint8_t out = FindEndpoint(interface, kBulkEndpoint, false);
  if (in == 0 || out == 0) {
    return;
  }
  bulkIn_ = pipeOfEndpoint_[in];
  bulkOut_ = pipeOfEndpoint_[out];
  report_.storage = true;
  std::vector<uint8_t> inquiry;
  if (!ScsiCommand({kScsiInquiry, 0, 0, 0, 36, 0}, 36, true, &inquiry) || inquiry.size() != 36 ||
      !std::equal(kInquiryVendor, kInquiryVendor + 8, inquiry.begin() + 8)) {
    Fail("INQUIRY failed");
    return;
  }
  if (!VerifyDisk()) {
    Fail("disk write and read-back failed");
  }
}

bool HostDriver::VerifyDisk() {
  std::vector<uint8_t> capacity;
  if (!ScsiCommand({kScsiReadCapacity10, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8, true, &capacity) ||
      capacity.size() != 8) {
    return false;
  }
  const uint32_t blocks = (static_cast<uint32_t>(capacity[0]) << 24 | capacity[1] << 16 |
                           capacity[2] << 8 | capacity[3]) +
                          1;
  const uint32_t blockBytes =
      static_cast<uint32_t>(capacity[4]) << 24 | capacity[5] << 16 | capacity[6] << 8 | capacity[7];
  if (blockBytes != kDiskBlockBytes || blocks < kChunkBlocks) {
    return false;
  }
  const uint64_t itemsBefore = report_.items;
  const auto start = Clock::now();
  uint32_t round = 0;
  uint32_t lba = 0;
  do {
    const uint32_t bytes = kChunkBlocks * kDiskBlockBytes;
    std::vector<uint8_t> written = Pattern(lba, round, bytes);
    auto command = [&](uint8_t operation) {
      return std::vector<uint8_t>{operation,
                                  0,
                                  static_cast<uint8_t>(lba >> 24),
                                  static_cast<uint8_t>(lba >> 16),
                                  static_cast<uint8_t>(lba >> 8),
                                  static_cast<uint8_t>(lba),
                                  0,
                                  static_cast<uint8_t>(kChunkBlocks >> 8),
                                  static_cast<uint8_t>(kChunkBlocks),
                                  0};
    };
    std::vector<uint8_t> read;
    if (!ScsiCommand(command(kScsiWrite10), bytes, false, &written) ||
        !ScsiCommand(command(kScsiRead10), bytes, true, &read)) {
      return false;
    }
    if (read != written) {
      Fail("read-back mismatch at block " + std::to_string(lba));
      return false;
    }
    report_.storageBytes += 2ull * bytes;
    lba += kChunkBlocks;
    if (lba + kChunkBlocks > blocks) {
      lba = 0;
      ++round;
    }
  } while (Clock::now() - start < options_.storageTime);
  report_.storageSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  report_.storageItems = report_.items - itemsBefore;
  return true;
}

void HostDriver::DriveKeyboard(const InterfaceLayout &interface) {
  const uint8_t endpoint = FindEndpoint(interface, kInterruptEndpoint, true);
  if (endpoint == 0) {
    return;
  }
  const uint32_t pipe = pipeOfEndpoint_[endpoint];
  report_.keyboard = true;
  uint8_t lastKey = 0;
  for (size_t reads = 0; reads < kKeyboardReadLimit; ++reads) {
    auto report = Read(urb::BulkRead(pipe, kKeyboardReportBytes));
    if (!report || report->size() != kKeyboardReportBytes) {
      Fail("keyboard report missing");
      return;
    }
    const uint8_t key = (*report)[2];
    if (key != 0 && key != lastKey) {
      const char typed = KeyChar(key, ((*report)[0] & kLeftShift) != 0);
      if (typed == '\n') {
        break;
      }
      report_.typed += typed;
    }
    lastKey = key;
  }
  if (report_.typed != kTypedText) {
    Fail("keyboard typed \"" + report_.typed + "\"");
  }
}

}  // namespace pelarix::demo
