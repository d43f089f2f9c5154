#include "urb_translation.h"

#include <algorithm>

#include "urb_block.h"

namespace pelarix::usbip {

namespace urb = pelarix::demo::urb;

namespace {

constexpr uint8_t kSetConfigurationType = 0x00;
constexpr uint8_t kSetConfigurationRequest = 9;
// The hub's completion status of an item nobody served.
constexpr uint32_t kItemNotServed = 0xFFFFFFFF;
constexpr int32_t kErrXDev = -18;
// The two top bits of a USBD status: 0 success, 1 pending, 2 and 3 errors.
constexpr uint32_t kUsbdStateShift = 30;

uint32_t Flags(const UrbCommand &command) {
  uint32_t flags = command.direction == kDirectionIn ? urb::kDirectionIn : 0;
  if ((command.flags & kUrbShortNotOk) == 0) {
    flags |= urb::kShortTransferOk;
  }
  return flags;
}

// A transfer block of this length and function, the data behind it.
std::vector<uint8_t> TransferBlock(size_t length, uint16_t function, uint32_t flags,
                                   const UrbCommand &command, const std::vector<uint8_t> &out) {
  std::vector<uint8_t> block = urb::Block(length, function);
  urb::Write32(block, urb::kTransferFlags, flags);
  urb::Write32(block, urb::kTransferLength, command.length);
  urb::Write32(block, urb::kTransferOffset, static_cast<uint32_t>(length));
  // Grown and then copied into: an insert behind the fixed-size block
  // trips GCC 12's bounds warning at -O3.
  block.resize(length + out.size());
  std::copy(out.begin(), out.end(), block.begin() + static_cast<std::ptrdiff_t>(length));
  return block;
}

// The IN data of an isochronous answer, packet by packet, back to back as
// USB/IP sends it; each packet's actual length and status filled in.
void ReadIsoAnswer(const SubmittedRequest &request, const std::vector<uint8_t> &answer,
                   UrbReturn *reply) {
  const size_t dataAt = urb::Read32(answer, urb::kTransferOffset);
  for (size_t i = 0; i < request.iso.size(); ++i) {
    IsoPacket packet = request.iso[i];
    const size_t at = urb::kIsoPackets + urb::kIsoPacketBytes * i;
    packet.status = ErrnoOfUsbdStatus(urb::Read32(answer, at + urb::kIsoPacketStatus));
    packet.actualLength = 0;
    if (request.in) {
      const uint32_t moved =
          std::min(urb::Read32(answer, at + urb::kIsoPacketLength), packet.length);
      const size_t from = dataAt + packet.offset;
      // A packet whose bytes the answer does not hold moved nothing.
      if (from >= dataAt && from <= answer.size() && moved <= answer.size() - from) {
        packet.actualLength = moved;
        reply->data.insert(reply->data.end(), answer.begin() + static_cast<std::ptrdiff_t>(from),
                           answer.begin() + static_cast<std::ptrdiff_t>(from + moved));
      }
    } else if (packet.status == 0) {
      packet.actualLength = packet.length;
    }
    reply->actualLength += packet.actualLength;
    reply->iso.push_back(packet);
  }
  reply->startFrame = static_cast<int32_t>(urb::Read32(answer, urb::kIsoStartFrame));
  reply->errorCount = static_cast<int32_t>(urb::Read32(answer, urb::kIsoErrorCount));
  if (!request.in) {
    reply->actualLength = std::min(urb::Read32(answer, urb::kTransferLength), request.length);
  }
}

}  // namespace

bool IsSetConfiguration(const UrbCommand &command) {
  return command.ep == 0 && command.setup[0] == kSetConfigurationType &&
         command.setup[1] == kSetConfigurationRequest;
}

std::vector<uint8_t> ControlBlock(const UrbCommand &command, const std::vector<uint8_t> &out) {
  std::vector<uint8_t> block =
      TransferBlock(urb::kControlBlockBytes, urb::kControlTransfer,
                    Flags(command) | urb::kDefaultPipeTransfer, command, out);
  std::copy(command.setup.begin(), command.setup.end(), block.begin() + urb::kSetupPacket);
  return block;
}

std::vector<uint8_t> BulkOrInterruptBlock(const UrbCommand &command, uint32_t pipeHandle,
                                          const std::vector<uint8_t> &out) {
  std::vector<uint8_t> block = TransferBlock(urb::kBulkBlockBytes, urb::kBulkOrInterruptTransfer,
                                             Flags(command), command, out);
  urb::Write32(block, urb::kPipeHandle, pipeHandle);
  return block;
}

std::vector<uint8_t> IsochronousBlock(const UrbCommand &command, uint32_t pipeHandle,
                                      const std::vector<IsoPacket> &packets,
                                      const std::vector<uint8_t> &out) {
  const size_t length = urb::kIsoPackets + urb::kIsoPacketBytes * packets.size();
  uint32_t flags = command.direction == kDirectionIn ? urb::kDirectionIn : 0;
  if ((command.flags & kUrbIsoAsap) != 0) {
    flags |= urb::kStartIsoAsap;
  }
  std::vector<uint8_t> block = TransferBlock(length, urb::kIsochTransfer, flags, command, out);
  urb::Write32(block, urb::kPipeHandle, pipeHandle);
  urb::Write32(block, urb::kIsoStartFrame, static_cast<uint32_t>(command.startFrame));
  urb::Write32(block, urb::kIsoPacketCount, static_cast<uint32_t>(packets.size()));
  // A packet's size is the gap to the next offset in this layout; the
  // length words are the answer's to fill in.
  for (size_t i = 0; i < packets.size(); ++i) {
    urb::Write32(block, urb::kIsoPackets + urb::kIsoPacketBytes * i + urb::kIsoPacketOffset,
                 packets[i].offset);
  }
  return block;
}

UrbReturn ReturnOfAnswer(const SubmittedRequest &request, uint32_t itemStatus,
                         const std::vector<uint8_t> &answer) {
  UrbReturn reply;
  reply.seqnum = request.seqnum;
  reply.packets = request.packets;
  if (itemStatus != 0) {
    reply.status = itemStatus == kItemNotServed ? kErrNoDev : kErrProto;
    return reply;
  }
  if (request.selectConfiguration) {
    // A selection has no transfer part: its status, and the pipes the
    // caller reads.
    reply.status = answer.size() < urb::kHeaderBytes
                       ? kErrProto
                       : ErrnoOfUsbdStatus(urb::Read32(answer, urb::kStatus));
    return reply;
  }
  const auto read = urb::ReadAnswer(answer);
  const size_t isoLength = urb::kIsoPackets + urb::kIsoPacketBytes * request.iso.size();
  if (!read || (request.type == TransferType::kIsochronous &&
                urb::Read16(answer, urb::kLength) < isoLength)) {
    reply.status = kErrProto;  // no block to read
    return reply;
  }
  reply.status = ErrnoOfUsbdStatus(read->status);
  if (request.type == TransferType::kIsochronous) {
    ReadIsoAnswer(request, answer, &reply);
    return reply;
  }
  if (request.in) {
    reply.data.assign(read->data.begin(),
                      read->data.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(
                                               read->data.size(), request.length)));
    reply.actualLength = static_cast<uint32_t>(reply.data.size());
  } else {
    reply.actualLength = std::min(read->length, request.length);
  }
  return reply;
}

int32_t ErrnoOfUsbdStatus(uint32_t status) {
  switch (status) {
    case urb::kSuccess:
      return 0;
    case urb::kStallPid:
    case urb::kEndpointHalted:
    case urb::kInvalidFunction:
    case urb::kNotSupported:
      return kErrPipe;  // refused, as a device refuses by a stall
    case urb::kInvalidParameter:
      return kErrInval;
    case urb::kTimeout:
      return kErrTime;
    case urb::kCanceled:
      return kErrConnReset;
    case urb::kDeviceGone:
      return kErrNoDev;
    case urb::kShortTransfer:
      return kErrRemoteIo;
    case urb::kDataOverrun:
      return kErrOverflow;
    case urb::kIsoNotAccessed:
      return kErrXDev;
    default:
      // Any other success code is a success; pending and errors are
      // transaction errors.
      return status >> kUsbdStateShift == 0 ? 0 : kErrProto;
  }
}

}  // namespace pelarix::usbip
