#include "usbip_import.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "descriptor_set.h"
#include "select_request.h"
#include "socket_io.h"
#include "urb_block.h"

namespace pelarix::usbip {

namespace {

constexpr uint8_t kEndpointIn = 0x80;
constexpr uint8_t kTransferTypeMask = 0x03;
constexpr uint32_t kLargestEndpoint = 15;
// Item params of a request block, as the host side's: 3, the block's
// length, 1 for a read, the transfer length.
constexpr uint32_t kRequestBlockParam = 3;
// The notice that tells the service a request it holds was unlinked.
constexpr uint32_t kNoticeType = 1;
// Returns waiting for a client that does not read: past this the
// connection goes.
constexpr size_t kOutboxFactor = 2;
constexpr int32_t kNoPacketsAlternative = -1;
constexpr size_t kReadChunk = size_t{64} * 1024;

}  // namespace

UsbipImport::UsbipImport(int fd, ExportedDevice device, ImportContext context)
    : fd_(fd), device_(std::move(device)), context_(std::move(context)) {
  for (const pelarix::demo::InterfaceLayout &layout :
       pelarix::demo::WalkInterfaces(device_.config)) {
    for (const pelarix::demo::EndpointLayout &endpoint : layout.endpoints) {
      typeOfEndpoint_[endpoint.address] =
          static_cast<TransferType>(endpoint.attributes & kTransferTypeMask);
    }
  }
  writer_ = std::thread(&UsbipImport::Write, this);
}

UsbipImport::~UsbipImport() {
  {
    std::lock_guard<std::mutex> lock(outboxLock_);
    closing_ = true;
  }
  outboxChanged_.notify_all();
  writer_.join();
}

std::string UsbipImport::Run() {
  std::string reason;
  while (reason.empty()) {
    uint8_t header[kUrbHeaderBytes] = {};
    if (!ReceiveAll(fd_, header, sizeof header)) {
      reason = "connection closed";
      break;
    }
    const UrbCommand command = ReadUrbCommand(header);
    if (command.command != kCmdSubmit && command.command != kCmdUnlink) {
      reason = "unknown command " + std::to_string(command.command);
    } else if (command.devid != device_.DevId()) {
      reason = "command for devid " + std::to_string(command.devid) + ", not " +
               std::to_string(device_.DevId());
    } else {
      reason = command.command == kCmdSubmit ? Submit(command) : Unlink(command);
    }
  }
  shutdown(fd_, SHUT_RDWR);
  Forget();
  return reason;
}

std::string UsbipImport::ReadIsoPackets(const UrbCommand &command,
                                        std::vector<IsoPacket> *packets) {
  if (command.packets < 0 || command.packets > kMaxIsoPackets) {
    return "isochronous packet count " + std::to_string(command.packets);
  }
  std::vector<uint8_t> bytes(kIsoDescriptorBytes * static_cast<size_t>(command.packets));
  if (!ReceiveAll(fd_, bytes.data(), bytes.size())) {
    return "connection closed in a command";
  }
  for (size_t at = 0; at < bytes.size(); at += kIsoDescriptorBytes) {
    const IsoPacket packet = ReadIsoPacket(&bytes[at]);
    if (packet.offset > command.length || packet.length > command.length - packet.offset) {
      return "isochronous packet outside its buffer";
    }
    packets->push_back(packet);
  }
  return "";
}

std::string UsbipImport::Submit(const UrbCommand &command) {
  if (command.direction > kDirectionIn || command.ep > kLargestEndpoint) {
    return "malformed submit";
  }
  if (command.length > context_.limits.maxTransferBytes) {
    return "transfer of " + std::to_string(command.length) + " bytes";
  }
  SubmittedRequest request;
  request.seqnum = command.seqnum;
  request.in = command.direction == kDirectionIn;
  request.length = command.length;
  request.packets = command.packets;
  const uint8_t address =
      static_cast<uint8_t>(command.ep | (request.in && command.ep != 0 ? kEndpointIn : 0));
  auto known = typeOfEndpoint_.find(address);
  const bool endpointKnown = command.ep == 0 || known != typeOfEndpoint_.end();
  request.type = command.ep == 0 || !endpointKnown ? TransferType::kControl : known->second;
  // The data grows as it arrives: a length the client never sends costs
  // no memory.
  std::vector<uint8_t> out;
  while (!request.in && out.size() < command.length) {
    const size_t at = out.size();
    out.resize(at + std::min<size_t>(command.length - at, kReadChunk));
    if (!ReceiveAll(fd_, &out[at], out.size() - at)) {
      return "connection closed in a command";
    }
  }
  if (request.type == TransferType::kIsochronous) {
    std::string wrong = ReadIsoPackets(command, &request.iso);
    if (!wrong.empty()) {
      return wrong;
    }
  } else if (command.packets != 0 && command.packets != kNoPacketsAlternative) {
    return "packet count " + std::to_string(command.packets) + " outside isochronous";
  }
  std::lock_guard<std::mutex> lock(context_.routeLock);
  if (itemOfSeqnum_.count(command.seqnum) != 0) {
    return "seqnum " + std::to_string(command.seqnum) + " already waiting";
  }
  if (itemOfSeqnum_.size() >= context_.limits.maxOutstanding) {
    return "more than " + std::to_string(context_.limits.maxOutstanding) + " submits waiting";
  }
  if (command.ep == 0) {
    request.selectConfiguration =
        IsSetConfiguration(command) && command.setup[2] == device_.config[5];
    QueueItem(request.selectConfiguration
                  ? pelarix::demo::SelectConfigurationRequest(device_.config)
                  : ControlBlock(command, out),
              std::move(request));
    return "";
  }
  auto pipe = pipeOfEndpoint_.find(address);
  if (!endpointKnown || pipe == pipeOfEndpoint_.end()) {
    // No such endpoint in the selected configuration: refused as a device
    // refuses, by a stall, with no item.
    UrbReturn reply;
    reply.seqnum = command.seqnum;
    reply.status = kErrPipe;
    reply.packets = command.packets;
    // An isochronous return carries a descriptor per packet: each failed.
    for (IsoPacket packet : request.iso) {
      packet.actualLength = 0;
      packet.status = kErrPipe;
      reply.iso.push_back(packet);
    }
    reply.errorCount = static_cast<int32_t>(reply.iso.size());
    return Send(RetSubmitBytes(reply)) ? "" : "returns not read";
  }
  QueueItem(request.type == TransferType::kIsochronous
                ? IsochronousBlock(command, pipe->second, request.iso, out)
                : BulkOrInterruptBlock(command, pipe->second, out),
            std::move(request));
  return "";
}

void UsbipImport::QueueItem(const std::vector<uint8_t> &block, SubmittedRequest request) {
  namespace urb = pelarix::demo::urb;
  vhub::ItemSpec item;
  item.plugNo = device_.plugNo;
  item.params = {kRequestBlockParam, urb::Read16(block, urb::kLength), urb::IsRead(block) ? 1u : 0u,
                 urb::Read32(block, urb::kTransferLength)};
  item.data = block;
  const uint32_t seqnum = request.seqnum;
  const uint32_t itemId = context_.model.QueueItem(item);
  context_.routes[itemId] = this;
  itemOfSeqnum_[seqnum] = itemId;
  waiting_[itemId] = Waiting{std::move(request), false};
}

std::string UsbipImport::Unlink(const UrbCommand &command) {
  std::lock_guard<std::mutex> lock(context_.routeLock);
  auto target = itemOfSeqnum_.find(command.unlinkSeqnum);
  if (target == itemOfSeqnum_.end()) {
    // Answered already (its return went first) or never sent: too late.
    return Send(RetUnlinkBytes(command.seqnum, 0)) ? "" : "returns not read";
  }
  const uint32_t itemId = target->second;
  waiting_[itemId].unlinked = true;  // its answer, when it comes, is dropped
  itemOfSeqnum_.erase(target);
  vhub::ItemSpec notice;
  notice.type = kNoticeType;
  notice.plugNo = device_.plugNo;
  notice.params = {itemId, 0, 0, 0};
  context_.model.QueueItem(notice);
  return Send(RetUnlinkBytes(command.seqnum, kErrConnReset)) ? "" : "returns not read";
}

void UsbipImport::Completed(uint32_t itemId, const vhub::CompletionRecord &completion) {
  auto waiting = waiting_.find(itemId);
  if (waiting == waiting_.end()) {
    return;
  }
  const Waiting entry = std::move(waiting->second);
  waiting_.erase(waiting);
  if (entry.unlinked) {
    return;
  }
  itemOfSeqnum_.erase(entry.request.seqnum);
  UrbReturn reply = ReturnOfAnswer(entry.request, completion.status, completion.data);
  if (entry.request.selectConfiguration && reply.status == 0) {
    std::string problem;
    auto pipes = pelarix::demo::ReadSelectedPipes(completion.data, device_.config, &problem);
    if (pipes) {
      pipeOfEndpoint_ = std::move(*pipes);
    } else {
      reply.status = kErrProto;
      context_.log("import of " + device_.busId + ": " + problem);
    }
  }
  if (!Send(RetSubmitBytes(reply))) {
    shutdown(fd_, SHUT_RDWR);
  }
}

bool UsbipImport::Send(std::vector<uint8_t> bytes) {
  {
    std::lock_guard<std::mutex> lock(outboxLock_);
    if (closing_ || outbox_.size() >= kOutboxFactor * context_.limits.maxOutstanding) {
      return false;
    }
    outbox_.push_back(std::move(bytes));
  }
  outboxChanged_.notify_one();
  return true;
}

void UsbipImport::Write() {
  std::unique_lock<std::mutex> lock(outboxLock_);
  for (;;) {
    outboxChanged_.wait(lock, [this] { return closing_ || !outbox_.empty(); });
    if (closing_) {
      return;
    }
    const std::vector<uint8_t> bytes = std::move(outbox_.front());
    outbox_.pop_front();
    lock.unlock();
    const bool sent = SendAll(fd_, bytes.data(), bytes.size());
    lock.lock();
    if (!sent) {
      // The client is gone: its reader ends on the shut-down socket.
      closing_ = true;
      shutdown(fd_, SHUT_RDWR);
      return;
    }
  }
}

void UsbipImport::Forget() {
  std::lock_guard<std::mutex> lock(context_.routeLock);
  for (const auto &[itemId, entry] : waiting_) {
    context_.routes.erase(itemId);
  }
  waiting_.clear();
  itemOfSeqnum_.clear();
}

}  // namespace pelarix::usbip
