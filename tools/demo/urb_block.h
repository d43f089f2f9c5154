// USB request blocks as items carry them: the 32-bit layout of the Windows
// USB stack (pointers and handles 4 bytes wide), with the transfer buffer
// given as a byte offset from the block's start and the data behind the
// block. The host side builds them, the client answers them with the same
// block (status and length filled in) and, for a read, the data behind it.
// docs/host-side.md lists the conventions this layout leaves open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace pelarix::demo::urb {

// Header.
inline constexpr size_t kLength = 0;    // u16: the whole block
inline constexpr size_t kFunction = 2;  // u16
inline constexpr size_t kStatus = 4;    // u32: USBD status
inline constexpr size_t kHeaderBytes = 16;

// The middle of the transfer blocks.
inline constexpr size_t kPipeHandle = 16;  // u32
inline constexpr size_t kTransferFlags = 20;
inline constexpr size_t kTransferLength = 24;
inline constexpr size_t kTransferOffset = 28;  // the buffer, as an offset

// Descriptor request (80 bytes).
inline constexpr size_t kDescriptorIndex = 74;
inline constexpr size_t kDescriptorType = 75;
inline constexpr size_t kLanguageId = 76;
// Standard requests with a wIndex at 76 (GET_STATUS, GET_INTERFACE).
inline constexpr size_t kRequestIndex = 76;
inline constexpr size_t kControlBlockBytes = 80;
inline constexpr size_t kBulkBlockBytes = 72;
// Control transfer (80 bytes): the setup packet as sent on the bus.
inline constexpr size_t kSetupPacket = 72;
inline constexpr size_t kSetupPacketBytes = 8;
// Isochronous transfer: 84 bytes and one 12-byte descriptor per packet.
inline constexpr size_t kIsoStartFrame = 72;
inline constexpr size_t kIsoPacketCount = 76;
inline constexpr size_t kIsoErrorCount = 80;
inline constexpr size_t kIsoPackets = 84;
inline constexpr size_t kIsoPacketBytes = 12;
inline constexpr size_t kIsoPacketOffset = 0;
inline constexpr size_t kIsoPacketLength = 4;
inline constexpr size_t kIsoPacketStatus = 8;

// Select configuration: the configuration's place, its handle, then one
// interface record per interface.
inline constexpr size_t kSelectConfigDescriptor = 16;  // u32: offset of the copy
inline constexpr size_t kSelectConfigHandle = 20;
inline constexpr size_t kSelectConfigInterfaces = 24;
// Interface record.
inline constexpr size_t kInterfaceLength = 0;  // u16
inline constexpr size_t kInterfaceNumber = 2;
inline constexpr size_t kInterfaceAlternate = 3;
inline constexpr size_t kInterfaceClass = 4;
inline constexpr size_t kInterfaceHandle = 8;
inline constexpr size_t kInterfacePipeCount = 12;
inline constexpr size_t kInterfacePipes = 16;
inline constexpr size_t kInterfaceRecordBytes = 16;
// Pipe record.
inline constexpr size_t kPipeMaxPacket = 0;  // u16
inline constexpr size_t kPipeEndpoint = 2;
inline constexpr size_t kPipeInterval = 3;
inline constexpr size_t kPipeType = 4;
inline constexpr size_t kPipeRecordHandle = 8;
inline constexpr size_t kPipeMaxTransfer = 12;
inline constexpr size_t kPipeRecordBytes = 20;

// Function codes.
inline constexpr uint16_t kSelectConfiguration = 0x0000;
inline constexpr uint16_t kControlTransfer = 0x0008;
inline constexpr uint16_t kBulkOrInterruptTransfer = 0x0009;
inline constexpr uint16_t kIsochTransfer = 0x000A;
inline constexpr uint16_t kGetDescriptorFromDevice = 0x000B;
inline constexpr uint16_t kGetStatusFromDevice = 0x0013;
inline constexpr uint16_t kGetConfiguration = 0x0026;

// Transfer flags.
inline constexpr uint32_t kDirectionIn = 0x1;
inline constexpr uint32_t kShortTransferOk = 0x2;
inline constexpr uint32_t kStartIsoAsap = 0x4;
inline constexpr uint32_t kDefaultPipeTransfer = 0x8;

// USBD status values.
inline constexpr uint32_t kSuccess = 0x00000000;
inline constexpr uint32_t kStallPid = 0xC0000004;
inline constexpr uint32_t kNotSupported = 0xC0000E00;
inline constexpr uint32_t kInvalidParameter = 0x80000300;
inline constexpr uint32_t kInvalidFunction = 0x80000200;
inline constexpr uint32_t kDevNotResponding = 0xC0000005;
inline constexpr uint32_t kDataOverrun = 0xC0000008;
inline constexpr uint32_t kEndpointHalted = 0xC0000030;
inline constexpr uint32_t kTimeout = 0xC0006000;
inline constexpr uint32_t kDeviceGone = 0xC0007000;
inline constexpr uint32_t kCanceled = 0xC0010000;
inline constexpr uint32_t kIsoNotAccessed = 0xC0020000;
inline constexpr uint32_t kShortTransfer = 0x80000900;

// Descriptor types.
inline constexpr uint8_t kDeviceDescriptor = 1;
inline constexpr uint8_t kConfigDescriptor = 2;
inline constexpr uint8_t kStringDescriptor = 3;

uint16_t Read16(const std::vector<uint8_t> &bytes, size_t at);
uint32_t Read32(const std::vector<uint8_t> &bytes, size_t at);
void Write16(std::vector<uint8_t> &bytes, size_t at, uint16_t value);
void Write32(std::vector<uint8_t> &bytes, size_t at, uint32_t value);

// Whether the block moves data to the host: every standard-request block but
// select configuration, and a control, bulk, interrupt or isochronous
// transfer with the direction flag set.
bool IsRead(const std::vector<uint8_t> &block);

// A block of `length` zero bytes with its length and function set.
std::vector<uint8_t> Block(size_t length, uint16_t function);
// GET_DESCRIPTOR_FROM_DEVICE asking for up to `room` bytes.
std::vector<uint8_t> DescriptorRequest(uint8_t type, uint8_t index, uint16_t language,
                                       uint32_t room);
// A read asks for `room` bytes; a write carries its data behind the block.
std::vector<uint8_t> BulkRead(uint32_t pipeHandle, uint32_t room);
std::vector<uint8_t> BulkWrite(uint32_t pipeHandle, const std::vector<uint8_t> &data);

// An answer as the host side reads it: the block's status and moved length,
// and for a read the data behind the block, as far as the block says. Empty
// when the answer is too short to be a block or its data lies outside it.
struct Answer {
  uint32_t status = 0;
  uint32_t length = 0;
  std::vector<uint8_t> data;
};
std::optional<Answer> ReadAnswer(const std::vector<uint8_t> &answer);

}  // namespace pelarix::demo::urb
