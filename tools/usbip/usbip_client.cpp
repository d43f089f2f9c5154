#include "usbip_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "socket_io.h"

namespace pelarix::usbip {

namespace {

// Bulk-only transport's wrappers.
constexpr uint32_t kCommandSignature = 0x43425355;  // "USBC"
constexpr uint32_t kStatusSignature = 0x53425355;   // "USBS"
constexpr size_t kCommandWrapperBytes = 31;
constexpr size_t kStatusWrapperBytes = 13;
constexpr size_t kCommandBlockAt = 15;
constexpr uint8_t kCommandToHost = 0x80;
constexpr uint8_t kEndpointNumber = 0x0F;

uint32_t GetLittle32(const std::vector<uint8_t> &bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
         static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

}  // namespace

UsbipClient::~UsbipClient() {
  Close();
}

bool UsbipClient::Connect(uint16_t port) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int yes = 1;
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  return fd_ >= 0 && connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
}

void UsbipClient::Close() {
  if (fd_ >= 0) {
    close(fd_);
    fd_ = -1;
  }
}

bool UsbipClient::SendRaw(const std::vector<uint8_t> &bytes) {
  return SendAll(fd_, bytes.data(), bytes.size());
}

bool UsbipClient::ReadExact(uint8_t *bytes, size_t length, int timeoutMs) {
  size_t done = 0;
  while (done < length) {
    pollfd watched{fd_, POLLIN, 0};
    if (poll(&watched, 1, timeoutMs) <= 0) {
      return false;
    }
    const ssize_t got = recv(fd_, bytes + done, length - done, 0);
    if (got <= 0) {
      return false;
    }
    done += static_cast<size_t>(got);
  }
  return true;
}

bool UsbipClient::WaitClosed(int timeoutMs) {
  uint8_t byte = 0;
  for (;;) {
    pollfd watched{fd_, POLLIN, 0};
    if (poll(&watched, 1, timeoutMs) <= 0) {
      return false;
    }
    const ssize_t got = recv(fd_, &byte, 1, 0);
    if (got <= 0) {
      return true;
    }
  }
}

std::vector<uint8_t> UsbipClient::List() {
  SendRaw(OpHeaderBytes(kOpRequestDevlist, 0));
  std::vector<uint8_t> reply;
  uint8_t chunk[4096] = {};
  for (;;) {
    pollfd watched{fd_, POLLIN, 0};
    if (poll(&watched, 1, 10000) <= 0) {
      break;
    }
    const ssize_t got = recv(fd_, chunk, sizeof chunk, 0);
    if (got <= 0) {
      break;
    }
    reply.insert(reply.end(), chunk, chunk + got);
  }
  return reply;
}

uint32_t UsbipClient::Import(const std::string &busId, std::vector<uint8_t> *record) {
  std::vector<uint8_t> request = OpHeaderBytes(kOpRequestImport, 0);
  request.insert(request.end(), busId.begin(), busId.end());
  request.resize(kOpHeaderBytes + kBusIdBytes, 0);
  SendRaw(request);
  uint8_t header[kOpHeaderBytes] = {};
  if (!ReadExact(header, sizeof header, 10000)) {
    return 0xFFFFFFFF;
  }
  const OpHeader reply = ReadOpHeader(header);
  if (reply.status != 0) {
    return reply.status;
  }
  std::vector<uint8_t> device(kDeviceRecordBytes);
  if (!ReadExact(device.data(), device.size(), 10000)) {
    return 0xFFFFFFFF;
  }
  devid = GetBe32(&device[288]) << 16 | GetBe32(&device[292]);
  if (record != nullptr) {
    *record = device;
  }
  return 0;
}

uint32_t UsbipClient::Submit(uint32_t ep, bool in, const Setup &setup,
                             const std::vector<uint8_t> &out, uint32_t length, uint32_t flags,
                             const std::vector<IsoPacket> &iso) {
  UrbCommand command;
  command.command = kCmdSubmit;
  command.seqnum = nextSeqnum++;
  command.devid = devid;
  command.direction = in ? kDirectionIn : kDirectionOut;
  command.ep = ep;
  command.flags = flags | (in ? 0x200u : 0u);
  command.length = length;
  command.packets = static_cast<int32_t>(iso.size());
  command.setup = setup;
  std::vector<uint8_t> bytes = UrbCommandBytes(command);
  bytes.insert(bytes.end(), out.begin(), out.end());
  for (const IsoPacket &packet : iso) {
    PutIsoPacket(bytes, packet);
  }
  sent_[command.seqnum] = Sent{in, iso.size()};
  SendRaw(bytes);
  return command.seqnum;
}

uint32_t UsbipClient::Unlink(uint32_t target) {
  UrbCommand command;
  command.command = kCmdUnlink;
  command.seqnum = nextSeqnum++;
  command.devid = devid;
  command.unlinkSeqnum = target;
  SendRaw(UrbCommandBytes(command));
  return command.seqnum;
}

std::optional<Reply> UsbipClient::Read(int timeoutMs) {
  Reply reply;
  reply.header.resize(kUrbHeaderBytes);
  if (!ReadExact(reply.header.data(), kUrbHeaderBytes, timeoutMs)) {
    return std::nullopt;
  }
  const uint8_t *header = reply.header.data();
  reply.command = GetBe32(header);
  reply.seqnum = GetBe32(header + 4);
  reply.status = static_cast<int32_t>(GetBe32(header + 20));
  if (reply.command != kRetSubmit) {
    return reply;
  }
  reply.actualLength = GetBe32(header + 24);
  reply.startFrame = static_cast<int32_t>(GetBe32(header + 28));
  reply.packets = static_cast<int32_t>(GetBe32(header + 32));
  reply.errorCount = static_cast<int32_t>(GetBe32(header + 36));
  const Sent sent = sent_.count(reply.seqnum) != 0 ? sent_[reply.seqnum] : Sent{false, 0};
  sent_.erase(reply.seqnum);
  if (sent.in) {
    reply.data.resize(reply.actualLength);
    if (!ReadExact(reply.data.data(), reply.data.size(), timeoutMs)) {
      return std::nullopt;
    }
  }
  std::vector<uint8_t> iso(kIsoDescriptorBytes * sent.packets);
  if (!ReadExact(iso.data(), iso.size(), timeoutMs)) {
    return std::nullopt;
  }
  for (size_t at = 0; at < iso.size(); at += kIsoDescriptorBytes) {
    reply.iso.push_back(ReadIsoPacket(&iso[at]));
  }
  return reply;
}

std::optional<Reply> UsbipClient::Control(const Setup &setup, uint32_t length,
                                          const std::vector<uint8_t> &out) {
  const bool in = (setup[0] & 0x80) != 0;
  Submit(0, in, setup, out, length);
  return Read();
}

std::optional<Reply> UsbipClient::In(uint32_t ep, uint32_t length) {
  Submit(ep, true, {}, {}, length);
  return Read();
}

std::optional<Reply> UsbipClient::Out(uint32_t ep, const std::vector<uint8_t> &data) {
  Submit(ep, false, {}, data, static_cast<uint32_t>(data.size()));
  return Read();
}

bool UsbipClient::Scsi(uint8_t in, uint8_t out, uint32_t tag, const std::vector<uint8_t> &block,
                       uint32_t length, bool toHost, std::vector<uint8_t> *data) {
  std::vector<uint8_t> wrapper(kCommandWrapperBytes, 0);
  for (int i = 0; i < 4; ++i) {
    wrapper[i] = static_cast<uint8_t>(kCommandSignature >> (8 * i));
    wrapper[4 + i] = static_cast<uint8_t>(tag >> (8 * i));
    wrapper[8 + i] = static_cast<uint8_t>(length >> (8 * i));
  }
  wrapper[12] = toHost ? kCommandToHost : 0;
  wrapper[14] = static_cast<uint8_t>(block.size());
  std::copy(block.begin(), block.end(), wrapper.begin() + kCommandBlockAt);
  const auto sent = Out(out, wrapper);
  if (!sent || sent->status != 0 || sent->actualLength != wrapper.size()) {
    return false;
  }
  if (toHost && length > 0) {
    const auto read = In(in & kEndpointNumber, length);
    if (!read || read->status != 0) {
      return false;
    }
    *data = read->data;
  } else if (length > 0) {
    const auto written = Out(out, *data);
    if (!written || written->status != 0 || written->actualLength != length) {
      return false;
    }
  }
  const auto status = In(in & kEndpointNumber, kStatusWrapperBytes);
  return status && status->status == 0 && status->data.size() == kStatusWrapperBytes &&
         GetLittle32(status->data, 0) == kStatusSignature && GetLittle32(status->data, 4) == tag &&
         status->data[12] == 0;
}

Setup GetDescriptorSetup(uint8_t type, uint8_t index, uint16_t language, uint16_t length) {
  return {0x80,
          6,
          index,
          type,
          static_cast<uint8_t>(language),
          static_cast<uint8_t>(language >> 8),
          static_cast<uint8_t>(length),
          static_cast<uint8_t>(length >> 8)};
}

Setup SetConfigurationSetup(uint8_t value) {
  return {0x00, 9, value, 0, 0, 0, 0, 0};
}

Setup GetConfigurationSetup() {
  return {0x80, 8, 0, 0, 0, 0, 1, 0};
}

}  // namespace pelarix::usbip
