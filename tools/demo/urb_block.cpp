#include "urb_block.h"

#include <algorithm>

namespace pelarix::demo::urb {

uint16_t Read16(const std::vector<uint8_t> &bytes, size_t at) {
  if (at + 2 > bytes.size()) {
    return 0;
  }
  return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

uint32_t Read32(const std::vector<uint8_t> &bytes, size_t at) {
  if (at + 4 > bytes.size()) {
    return 0;
  }
  return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
         static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

void Write16(std::vector<uint8_t> &bytes, size_t at, uint16_t value) {
  if (at + 2 > bytes.size()) {
    return;
  }
  bytes[at] = static_cast<uint8_t>(value);
  bytes[at + 1] = static_cast<uint8_t>(value >> 8);
}

void Write32(std::vector<uint8_t> &bytes, size_t at, uint32_t value) {
  if (at + 4 > bytes.size()) {
    return;
  }
  for (size_t i = 0; i < 4; ++i) {
    bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
  }
}

bool IsRead(const std::vector<uint8_t> &block) {
  const uint16_t function = Read16(block, kFunction);
  // The blocks that carry their direction in the transfer flags.
  if (function == kBulkOrInterruptTransfer || function == kControlTransfer ||
      function == kIsochTransfer) {
    return (Read32(block, kTransferFlags) & kDirectionIn) != 0;
  }
  return function != kSelectConfiguration;
}

std::vector<uint8_t> Block(size_t length, uint16_t function) {
  std::vector<uint8_t> block(length, 0);
  Write16(block, kLength, static_cast<uint16_t>(length));
  Write16(block, kFunction, function);
  return block;
}

std::vector<uint8_t> DescriptorRequest(uint8_t type, uint8_t index, uint16_t language,
                                       uint32_t room) {
  std::vector<uint8_t> block = Block(kControlBlockBytes, kGetDescriptorFromDevice);
  Write32(block, kTransferLength, room);
  Write32(block, kTransferOffset, kControlBlockBytes);
  block[kDescriptorIndex] = index;
  block[kDescriptorType] = type;
  Write16(block, kLanguageId, language);
  return block;
}

std::vector<uint8_t> BulkRead(uint32_t pipeHandle, uint32_t room) {
  std::vector<uint8_t> block = Block(kBulkBlockBytes, kBulkOrInterruptTransfer);
  Write32(block, kPipeHandle, pipeHandle);
  Write32(block, kTransferFlags, kDirectionIn | kShortTransferOk);
  Write32(block, kTransferLength, room);
  Write32(block, kTransferOffset, kBulkBlockBytes);
  return block;
}

std::vector<uint8_t> BulkWrite(uint32_t pipeHandle, const std::vector<uint8_t> &data) {
  std::vector<uint8_t> block = Block(kBulkBlockBytes, kBulkOrInterruptTransfer);
  Write32(block, kPipeHandle, pipeHandle);
  Write32(block, kTransferLength, static_cast<uint32_t>(data.size()));
  Write32(block, kTransferOffset, kBulkBlockBytes);
  // Grown and then copied into: an insert behind the fixed-size block
  // trips GCC 12's bounds warning at -O3.
  block.resize(kBulkBlockBytes + data.size());
  std::copy(data.begin(), data.end(), block.begin() + kBulkBlockBytes);
  return block;
}

std::optional<Answer> ReadAnswer(const std::vector<uint8_t> &answer) {
  if (answer.size() < kHeaderBytes) {
    return std::nullopt;
  }
  Answer read;
  read.status = Read32(answer, kStatus);
  const size_t blockLength = Read16(answer, kLength);
  if (blockLength < kHeaderBytes || blockLength > answer.size()) {
    return std::nullopt;
  }
  if (blockLength <= kTransferOffset) {
    return read;  // a block without a transfer part
  }
  read.length = Read32(answer, kTransferLength);
  const size_t offset = Read32(answer, kTransferOffset);
  // The data behind the block: as much as the answer carries, never more
  // than the block says was moved.
  if (offset < blockLength || offset > answer.size()) {
    return std::nullopt;
  }
  const size_t carried = std::min<size_t>(answer.size() - offset, read.length);
  read.data.assign(answer.begin() + static_cast<std::ptrdiff_t>(offset),
                   answer.begin() + static_cast<std::ptrdiff_t>(offset + carried));
  return read;
}

}  // namespace pelarix::demo::urb
