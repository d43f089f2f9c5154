#include "storage_function.h"

#include <algorithm>
#include <cstring>

#include "urb_block.h"

namespace pelarix::demo {

namespace {

constexpr uint8_t kDirectionInFlag = 0x80;
constexpr uint8_t kStatusPassed = 0;
constexpr uint8_t kStatusFailed = 1;
constexpr uint8_t kSenseIllegalRequest = 0x05;
constexpr size_t kInquiryBytes = 36;
constexpr size_t kSenseBytes = 18;

uint32_t Be32(const uint8_t *bytes) {
  return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
         static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

void PutBe32(std::vector<uint8_t> &bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) {
    bytes[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  }
}

}  // namespace

StorageFunction::StorageFunction(uint8_t bulkIn, uint8_t bulkOut, uint32_t blocks)
    : bulkIn_(bulkIn), bulkOut_(bulkOut), disk_(uint64_t{blocks} * kDiskBlockBytes, 0) {}

uint32_t StorageFunction::Transfer(uint8_t endpoint, const std::vector<uint8_t> &out, uint32_t room,
                                   std::vector<uint8_t> *in) {
  if (endpoint == bulkOut_) {
    if (phase_ == Phase::kCommand) {
      return Command(out);
    }
    if (phase_ == Phase::kDataOut) {
      return DataOut(out);
    }
    return urb::kStallPid;
  }
  if (endpoint == bulkIn_) {
    if (phase_ == Phase::kDataIn) {
      return DataIn(room, in);
    }
    if (phase_ == Phase::kStatus) {
      StatusWrapper(in);
      return urb::kSuccess;
    }
  }
  return urb::kStallPid;
}

uint32_t StorageFunction::Command(const std::vector<uint8_t> &wrapper) {
  if (wrapper.size() != kCommandWrapperBytes || urb::Read32(wrapper, 0) != kCommandSignature) {
    return urb::kStallPid;  // not a command wrapper: the device stalls
  }
  tag_ = urb::Read32(wrapper, 4);
  expected_ = urb::Read32(wrapper, 8);
  moved_ = 0;
  pendingIn_.clear();
  writeLeft_ = 0;
  const bool toHost = (wrapper[12] & kDirectionInFlag) != 0;
  commandStatus_ = Execute(&wrapper[15]) ? kStatusPassed : kStatusFailed;
  if (commandStatus_ == kStatusPassed) {
    senseKey_ = 0;
  }
  if (expected_ == 0) {
    phase_ = Phase::kStatus;
  } else if (toHost) {
    phase_ = Phase::kDataIn;
  } else {
    phase_ = Phase::kDataOut;
  }
  return urb::kSuccess;
}

bool StorageFunction::BlockRange(const uint8_t *block, uint64_t *offset, uint64_t *bytes) const {
  const uint64_t first = Be32(block + 2);
  const uint64_t count = static_cast<uint64_t>(block[7] << 8 | block[8]);
  *offset = first * kDiskBlockBytes;
  *bytes = count * kDiskBlockBytes;
  return *offset <= disk_.size() && *bytes <= disk_.size() - *offset && *bytes <= expected_;
}

bool StorageFunction::Execute(const uint8_t *block) {
  uint64_t offset = 0;
  uint64_t bytes = 0;
  switch (block[0]) {
    case kScsiTestUnitReady:
      return true;
    case kScsiRequestSense:
      pendingIn_.assign(kSenseBytes, 0);
      pendingIn_[0] = 0x70;
      pendingIn_[2] = senseKey_;
      pendingIn_[7] = kSenseBytes - 8;
      return true;
    case kScsiInquiry:
      pendingIn_.assign(kInquiryBytes, 0);
      pendingIn_[1] = 0x80;  // removable
      pendingIn_[2] = 0x04;  // SPC-2
      pendingIn_[3] = 0x02;
      pendingIn_[4] = kInquiryBytes - 5;
      std::memcpy(&pendingIn_[8], kInquiryVendor, 8);
      std::memcpy(&pendingIn_[16], kInquiryProduct, 16);
      std::memcpy(&pendingIn_[32], "1.00", 4);
      return true;
    case kScsiReadCapacity10:
      pendingIn_.assign(8, 0);
      PutBe32(pendingIn_, 0, static_cast<uint32_t>(disk_.size() / kDiskBlockBytes - 1));
      PutBe32(pendingIn_, 4, kDiskBlockBytes);
      return true;
    case kScsiRead10:
      if (!BlockRange(block, &offset, &bytes)) {
        break;
      }
      pendingIn_.assign(disk_.begin() + static_cast<std::ptrdiff_t>(offset),
                        disk_.begin() + static_cast<std::ptrdiff_t>(offset + bytes));
      return true;
    case kScsiWrite10:
      if (!BlockRange(block, &offset, &bytes)) {
        break;
      }
      writeAt_ = offset;
      writeLeft_ = bytes;
      return true;
    default:
      break;
  }
  senseKey_ = kSenseIllegalRequest;
  return false;
}

uint32_t StorageFunction::DataOut(const std::vector<uint8_t> &out) {
  const uint64_t taken = std::min<uint64_t>(out.size(), writeLeft_);
  std::copy(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(taken),
            disk_.begin() + static_cast<std::ptrdiff_t>(writeAt_));
  writeAt_ += taken;
  writeLeft_ -= taken;
  moved_ += static_cast<uint32_t>(std::min<size_t>(out.size(), expected_ - moved_));
  if (moved_ >= expected_) {
    phase_ = Phase::kStatus;
  }
  return urb::kSuccess;
}

uint32_t StorageFunction::DataIn(uint32_t room, std::vector<uint8_t> *in) {
  const size_t left = pendingIn_.size() > moved_ ? pendingIn_.size() - moved_ : 0;
  const size_t given = std::min<size_t>({left, room, expected_ - moved_});
  const auto from = pendingIn_.begin() + moved_;
  in->assign(from, from + static_cast<std::ptrdiff_t>(given));
  moved_ += static_cast<uint32_t>(given);
  // A short read ends the data phase: the residue tells the host the rest.
  if (moved_ >= expected_ || given < room) {
    phase_ = Phase::kStatus;
  }
  return urb::kSuccess;
}

void StorageFunction::StatusWrapper(std::vector<uint8_t> *in) {
  in->assign(kStatusWrapperBytes, 0);
  urb::Write32(*in, 0, kStatusSignature);
  urb::Write32(*in, 4, tag_);
  urb::Write32(*in, 8, expected_ - moved_);
  (*in)[12] = commandStatus_;
  phase_ = Phase::kCommand;
}

}  // namespace pelarix::demo
