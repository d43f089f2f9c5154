#include "usbip_wire.h"

#include <algorithm>

namespace pelarix::usbip {

namespace {

int32_t GetBeSigned(const uint8_t *bytes) {
  return static_cast<int32_t>(GetBe32(bytes));
}

void PutBeSigned(std::vector<uint8_t> &bytes, int32_t value) {
  PutBe32(bytes, static_cast<uint32_t>(value));
}

// The 20 bytes every URB-phase message begins with.
void PutBasic(std::vector<uint8_t> &bytes, uint32_t command, uint32_t seqnum, uint32_t devid,
              uint32_t direction, uint32_t ep) {
  PutBe32(bytes, command);
  PutBe32(bytes, seqnum);
  PutBe32(bytes, devid);
  PutBe32(bytes, direction);
  PutBe32(bytes, ep);
}

}  // namespace

uint16_t GetBe16(const uint8_t *bytes) {
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

uint32_t GetBe32(const uint8_t *bytes) {
  return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
         static_cast<uint32_t>(bytes[2]) << 8 | static_cast<uint32_t>(bytes[3]);
}

void PutBe16(std::vector<uint8_t> &bytes, uint16_t value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8));
  bytes.push_back(static_cast<uint8_t>(value));
}

void PutBe32(std::vector<uint8_t> &bytes, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<uint8_t>(value >> shift));
  }
}

OpHeader ReadOpHeader(const uint8_t *bytes) {
  return OpHeader{GetBe16(bytes), GetBe16(bytes + 2), GetBe32(bytes + 4)};
}

std::vector<uint8_t> OpHeaderBytes(uint16_t code, uint32_t status) {
  std::vector<uint8_t> bytes;
  PutBe16(bytes, kProtocolVersion);
  PutBe16(bytes, code);
  PutBe32(bytes, status);
  return bytes;
}

UrbCommand ReadUrbCommand(const uint8_t *header) {
  UrbCommand command;
  command.command = GetBe32(header);
  command.seqnum = GetBe32(header + 4);
  command.devid = GetBe32(header + 8);
  command.direction = GetBe32(header + 12);
  command.ep = GetBe32(header + 16);
  command.flags = GetBe32(header + 20);
  command.length = GetBe32(header + 24);
  command.startFrame = GetBeSigned(header + 28);
  command.packets = GetBeSigned(header + 32);
  command.interval = GetBeSigned(header + 36);
  std::copy(header + 40, header + 48, command.setup.begin());
  command.unlinkSeqnum = GetBe32(header + 20);
  return command;
}

std::vector<uint8_t> UrbCommandBytes(const UrbCommand &command) {
  std::vector<uint8_t> bytes;
  PutBasic(bytes, command.command, command.seqnum, command.devid, command.direction, command.ep);
  if (command.command == kCmdUnlink) {
    PutBe32(bytes, command.unlinkSeqnum);
    bytes.resize(kUrbHeaderBytes, 0);
    return bytes;
  }
  PutBe32(bytes, command.flags);
  PutBe32(bytes, command.length);
  PutBeSigned(bytes, command.startFrame);
  PutBeSigned(bytes, command.packets);
  PutBeSigned(bytes, command.interval);
  bytes.insert(bytes.end(), command.setup.begin(), command.setup.end());
  return bytes;
}

IsoPacket ReadIsoPacket(const uint8_t *bytes) {
  return IsoPacket{GetBe32(bytes), GetBe32(bytes + 4), GetBe32(bytes + 8), GetBeSigned(bytes + 12)};
}

void PutIsoPacket(std::vector<uint8_t> &bytes, const IsoPacket &packet) {
  PutBe32(bytes, packet.offset);
  PutBe32(bytes, packet.length);
  PutBe32(bytes, packet.actualLength);
  PutBeSigned(bytes, packet.status);
}

std::vector<uint8_t> RetSubmitBytes(const UrbReturn &reply) {
  std::vector<uint8_t> bytes;
  bytes.reserve(kUrbHeaderBytes + reply.data.size() + kIsoDescriptorBytes * reply.iso.size());
  PutBasic(bytes, kRetSubmit, reply.seqnum, 0, 0, 0);
  PutBeSigned(bytes, reply.status);
  PutBe32(bytes, reply.actualLength);
  PutBeSigned(bytes, reply.startFrame);
  PutBeSigned(bytes, reply.packets);
  PutBeSigned(bytes, reply.errorCount);
  bytes.resize(kUrbHeaderBytes, 0);
  bytes.insert(bytes.end(), reply.data.begin(), reply.data.end());
  for (const IsoPacket &packet : reply.iso) {
    PutIsoPacket(bytes, packet);
  }
  return bytes;
}

std::vector<uint8_t> RetUnlinkBytes(uint32_t seqnum, int32_t status) {
  std::vector<uint8_t> bytes;
  PutBasic(bytes, kRetUnlink, seqnum, 0, 0, 0);
  PutBeSigned(bytes, status);
  bytes.resize(kUrbHeaderBytes, 0);
  return bytes;
}

}  // namespace pelarix::usbip
