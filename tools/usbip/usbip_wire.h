// The USB/IP wire format as Linux's vhci_hcd and its `usbip` tools speak it:
// the operation phase (list, import) and the URB phase (submit, unlink and
// their returns). Every protocol integer is big-endian; USB's own bytes (the
// setup packet, descriptors, data) travel as USB defines them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace pelarix::usbip {

inline constexpr uint16_t kProtocolVersion = 0x0111;

// Operation phase.
inline constexpr uint16_t kOpRequestDevlist = 0x8005;
inline constexpr uint16_t kOpReplyDevlist = 0x0005;
inline constexpr uint16_t kOpRequestImport = 0x8003;
inline constexpr uint16_t kOpReplyImport = 0x0003;
inline constexpr size_t kOpHeaderBytes = 8;
inline constexpr size_t kBusIdBytes = 32;
inline constexpr size_t kPathBytes = 256;
inline constexpr size_t kDeviceRecordBytes = 312;
inline constexpr size_t kInterfaceRecordBytes = 4;

// Operation reply statuses.
inline constexpr uint32_t kStatusOk = 0;
inline constexpr uint32_t kStatusFailed = 1;
inline constexpr uint32_t kStatusDeviceBusy = 2;
inline constexpr uint32_t kStatusNoDevice = 4;

// URB phase.
inline constexpr uint32_t kCmdSubmit = 1;
inline constexpr uint32_t kCmdUnlink = 2;
inline constexpr uint32_t kRetSubmit = 3;
inline constexpr uint32_t kRetUnlink = 4;
inline constexpr size_t kUrbHeaderBytes = 48;
inline constexpr size_t kIsoDescriptorBytes = 16;
inline constexpr uint32_t kDirectionOut = 0;
inline constexpr uint32_t kDirectionIn = 1;

// transfer_flags bits.
inline constexpr uint32_t kUrbShortNotOk = 0x0001;
inline constexpr uint32_t kUrbIsoAsap = 0x0002;

// Negative Linux errno values as statuses carry them.
inline constexpr int32_t kErrNoEnt = -2;
inline constexpr int32_t kErrNoDev = -19;
inline constexpr int32_t kErrInval = -22;
inline constexpr int32_t kErrPipe = -32;
inline constexpr int32_t kErrTime = -62;
inline constexpr int32_t kErrProto = -71;
inline constexpr int32_t kErrOverflow = -75;
inline constexpr int32_t kErrConnReset = -104;
inline constexpr int32_t kErrRemoteIo = -121;

uint16_t GetBe16(const uint8_t *bytes);
uint32_t GetBe32(const uint8_t *bytes);
void PutBe16(std::vector<uint8_t> &bytes, uint16_t value);
void PutBe32(std::vector<uint8_t> &bytes, uint32_t value);

struct OpHeader {
  uint16_t version = 0;
  uint16_t code = 0;
  uint32_t status = 0;
};
OpHeader ReadOpHeader(const uint8_t *bytes);  // kOpHeaderBytes
std::vector<uint8_t> OpHeaderBytes(uint16_t code, uint32_t status);

// One client command: the 48-byte header of CMD_SUBMIT or CMD_UNLINK.
struct UrbCommand {
  uint32_t command = 0;
  uint32_t seqnum = 0;
  uint32_t devid = 0;
  uint32_t direction = 0;
  uint32_t ep = 0;
  // CMD_SUBMIT
  uint32_t flags = 0;
  uint32_t length = 0;
  int32_t startFrame = 0;
  int32_t packets = 0;
  int32_t interval = 0;
  std::array<uint8_t, 8> setup{};
  // CMD_UNLINK
  uint32_t unlinkSeqnum = 0;
};
UrbCommand ReadUrbCommand(const uint8_t *header);  // kUrbHeaderBytes
std::vector<uint8_t> UrbCommandBytes(const UrbCommand &command);

struct IsoPacket {
  uint32_t offset = 0;
  uint32_t length = 0;
  uint32_t actualLength = 0;
  int32_t status = 0;
};
IsoPacket ReadIsoPacket(const uint8_t *bytes);  // kIsoDescriptorBytes
void PutIsoPacket(std::vector<uint8_t> &bytes, const IsoPacket &packet);

// A server reply to CMD_SUBMIT, with its data (IN only) and its packet
// descriptors (isochronous only).
struct UrbReturn {
  uint32_t seqnum = 0;
  int32_t status = 0;
  uint32_t actualLength = 0;
  int32_t startFrame = 0;
  int32_t packets = 0;
  int32_t errorCount = 0;
  std::vector<uint8_t> data;
  std::vector<IsoPacket> iso;
};
std::vector<uint8_t> RetSubmitBytes(const UrbReturn &reply);
std::vector<uint8_t> RetUnlinkBytes(uint32_t seqnum, int32_t status);

}  // namespace pelarix::usbip
