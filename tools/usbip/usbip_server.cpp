#include "usbip_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "socket_io.h"
#include "usbip_wire.h"

namespace pelarix::usbip {

namespace {

constexpr int kBacklog = 16;

void SetReceiveTimeout(int fd, std::chrono::milliseconds timeout) {
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(timeout.count() / 1000);
  limit.tv_usec = static_cast<suseconds_t>(timeout.count() % 1000 * 1000);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

std::string PeerName(int fd) {
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &length) != 0) {
    return "?";
  }
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(peer.sin_port));
}

}  // namespace

bool ParseListenAddress(const std::string &text, UsbipServerOptions *options) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) {
    return false;
  }
  const std::string address = text.substr(0, colon);
  in_addr parsed{};
  if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
    return false;
  }
  unsigned long port = 0;
  for (size_t at = colon + 1; at < text.size(); ++at) {
    if (text[at] < '0' || text[at] > '9' || port > 0xFFFF) {
      return false;
    }
    port = port * 10 + static_cast<unsigned long>(text[at] - '0');
  }
  if (port > 0xFFFF) {
    return false;
  }
  options->address = address;
  options->port = static_cast<uint16_t>(port);
  return true;
}

UsbipServer::UsbipServer(vhub::HubModel &model, UsbipServerOptions options)
    : model_(model), options_(std::move(options)) {}

UsbipServer::~UsbipServer() {
  Stop();
}

bool UsbipServer::Start(std::string *error) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(options_.port);
  if (inet_pton(AF_INET, options_.address.c_str(), &address.sin_addr) != 1) {
    *error = "not an IPv4 address: " + options_.address;
    return false;
  }
  listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  if (listenFd_ >= 0) {
    setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  }
  socklen_t length = sizeof address;
  if (listenFd_ < 0 || bind(listenFd_, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
      listen(listenFd_, kBacklog) != 0 ||
      getsockname(listenFd_, reinterpret_cast<sockaddr *>(&address), &length) != 0 ||
      pipe2(wakeFds_, O_CLOEXEC) != 0) {
    *error = "cannot listen on " + options_.address + ":" + std::to_string(options_.port) + ": " +
             std::strerror(errno);
    Stop();
    return false;
  }
  port_ = ntohs(address.sin_port);
  vhub::HubObserver observer;
  observer.plugged = [this](uint32_t plugNo, const std::vector<uint8_t> &record) {
    Plugged(plugNo, record);
  };
  observer.unplugged = [this](uint32_t plugNo) { Unplugged(plugNo); };
  observer.completed = [this](const vhub::CompletionRecord &completion) { Completed(completion); };
  model_.SetObserver(std::move(observer));
  dispatcher_ = std::thread(&UsbipServer::Dispatch, this);
  acceptor_ = std::thread(&UsbipServer::Accept, this);
  Log("listening on " + options_.address + ":" + std::to_string(port_));
  return true;
}

void UsbipServer::Stop() {
  if (acceptor_.joinable()) {
    model_.SetObserver({});
    {
      std::lock_guard<std::mutex> lock(connectionsLock_);
      stopping_ = true;
    }
    const char wake = 0;
    (void)!write(wakeFds_[1], &wake, 1);
    acceptor_.join();
    ReapConnections(true);
    {
      std::lock_guard<std::mutex> lock(completionsLock_);
      dispatcherStop_ = true;
    }
    completionsChanged_.notify_all();
    dispatcher_.join();
  }
  for (int *fd : {&listenFd_, &wakeFds_[0], &wakeFds_[1]}) {
    if (*fd >= 0) {
      close(*fd);
      *fd = -1;
    }
  }
}

std::vector<ExportedDevice> UsbipServer::Devices() const {
  std::lock_guard<std::mutex> lock(devicesLock_);
  std::vector<ExportedDevice> devices;
  for (const auto &[plugNo, device] : devices_) {
    devices.push_back(device);
  }
  return devices;
}

bool UsbipServer::WaitForDevices(size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(devicesLock_);
  return devicesChanged_.wait_for(lock, timeout, [&] { return devices_.size() >= count; });
}

void UsbipServer::Accept() {
  pollfd watched[2] = {{listenFd_, POLLIN, 0}, {wakeFds_[0], POLLIN, 0}};
  for (;;) {
    if (poll(watched, 2, -1) < 0 && errno != EINTR) {
      return;
    }
    if ((watched[1].revents & POLLIN) != 0) {
      return;
    }
    if ((watched[0].revents & POLLIN) == 0) {
      continue;
    }
    const int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      continue;
    }
    ReapConnections(false);
    std::lock_guard<std::mutex> lock(connectionsLock_);
    if (connections_.size() >= options_.maxConnections) {
      Log("connection from " + PeerName(fd) +
          " refused: " + std::to_string(options_.maxConnections) + " connections already");
      close(fd);
      continue;
    }
    auto connection = std::make_unique<Connection>();
    connection->fd = fd;
    Connection *served = connection.get();
    connections_.push_back(std::move(connection));
    served->thread = std::thread(&UsbipServer::Serve, this, served);
  }
}

void UsbipServer::ReapConnections(bool all) {
  std::list<std::unique_ptr<Connection>> ended;
  {
    std::lock_guard<std::mutex> lock(connectionsLock_);
    for (auto at = connections_.begin(); at != connections_.end();) {
      if (all && (*at)->fd >= 0) {
        shutdown((*at)->fd, SHUT_RDWR);  // its thread sees the end
      }
      if (all || (*at)->done) {
        ended.push_back(std::move(*at));
        at = connections_.erase(at);
      } else {
        ++at;
      }
    }
  }
  for (const std::unique_ptr<Connection> &connection : ended) {
    connection->thread.join();
  }
}

void UsbipServer::Serve(Connection *connection) {
  const int fd = connection->fd;
  const int yes = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  SetReceiveTimeout(fd, options_.operationTimeout);
  const std::string peer = PeerName(fd);
  Log("connection from " + peer);
  const std::string end = ServeOperation(fd);
  Log("connection from " + peer + " closed: " + end);
  std::lock_guard<std::mutex> lock(connectionsLock_);
  close(fd);
  connection->fd = -1;
  connection->done = true;
}

std::string UsbipServer::ServeOperation(int fd) {
  uint8_t header[kOpHeaderBytes] = {};
  if (!ReceiveAll(fd, header, sizeof header)) {
    return "no operation request";
  }
  const OpHeader request = ReadOpHeader(header);
  if (request.version != kProtocolVersion) {
    return "protocol version " + std::to_string(request.version);
  }
  if (request.code == kOpRequestDevlist) {
    return ServeList(fd);
  }
  if (request.code == kOpRequestImport) {
    return ServeImport(fd);
  }
  return "unknown operation " + std::to_string(request.code);
}

std::string UsbipServer::ServeList(int fd) {
  std::vector<uint8_t> reply = OpHeaderBytes(kOpReplyDevlist, kStatusOk);
  const std::vector<ExportedDevice> devices = Devices();
  PutBe32(reply, static_cast<uint32_t>(devices.size()));
  for (const ExportedDevice &device : devices) {
    const std::vector<uint8_t> record = DeviceRecordBytes(device, true);
    reply.insert(reply.end(), record.begin(), record.end());
  }
  SendAll(fd, reply.data(), reply.size());
  return "listed " + std::to_string(devices.size()) + " devices";
}

std::string UsbipServer::ServeImport(int fd) {
  uint8_t busId[kBusIdBytes + 1] = {};
  if (!ReceiveAll(fd, busId, kBusIdBytes)) {
    return "import request cut short";
  }
  const std::string wanted(reinterpret_cast<const char *>(busId));
  uint32_t status = kStatusNoDevice;
  ExportedDevice device;
  {
    std::lock_guard<std::mutex> lock(devicesLock_);
    for (const auto &[plugNo, listed] : devices_) {
      if (listed.busId != wanted) {
        continue;
      }
      status = importFd_.count(plugNo) != 0 ? kStatusDeviceBusy : kStatusOk;
      device = listed;
    }
    if (status == kStatusOk) {
      importFd_[device.plugNo] = fd;
    }
  }
  std::vector<uint8_t> reply = OpHeaderBytes(kOpReplyImport, status);
  if (status != kStatusOk) {
    SendAll(fd, reply.data(), reply.size());
    return "import of " + wanted + " refused with status " + std::to_string(status);
  }
  const std::vector<uint8_t> record = DeviceRecordBytes(device, false);
  reply.insert(reply.end(), record.begin(), record.end());
  std::string end;
  if (SendAll(fd, reply.data(), reply.size())) {
    SetReceiveTimeout(fd, std::chrono::milliseconds(0));  // commands come when they come
    Log("import of " + wanted + " (PlugNo " + std::to_string(device.plugNo) + ")");
    UsbipImport import(fd, device,
                       ImportContext{model_, routeLock_, routes_, options_.limits,
                                     [this](const std::string &line) { Log(line); }});
    end = "import of " + wanted + " ended: " + import.Run();
  } else {
    end = "import reply not sent";
  }
  std::lock_guard<std::mutex> lock(devicesLock_);
  importFd_.erase(device.plugNo);
  return end;
}

void UsbipServer::Plugged(uint32_t plugNo, const std::vector<uint8_t> &record) {
  auto device = ExportDevice(record);
  if (!device) {
    Log("PlugNo " + std::to_string(plugNo) + " not listed: no USB/IP device number for it");
    return;
  }
  std::lock_guard<std::mutex> lock(devicesLock_);
  devices_[plugNo] = std::move(*device);
  devicesChanged_.notify_all();
}

void UsbipServer::Unplugged(uint32_t plugNo) {
  std::lock_guard<std::mutex> lock(devicesLock_);
  devices_.erase(plugNo);
  auto imported = importFd_.find(plugNo);
  if (imported != importFd_.end()) {
    shutdown(imported->second, SHUT_RDWR);  // the import ends as a vanished device's
  }
  devicesChanged_.notify_all();
}

void UsbipServer::Completed(const vhub::CompletionRecord &completion) {
  {
    std::lock_guard<std::mutex> lock(completionsLock_);
    completions_.push_back(completion);
  }
  completionsChanged_.notify_one();
}

void UsbipServer::Dispatch() {
  std::unique_lock<std::mutex> lock(completionsLock_);
  for (;;) {
    completionsChanged_.wait(lock, [this] { return dispatcherStop_ || !completions_.empty(); });
    if (completions_.empty()) {
      return;
    }
    const vhub::CompletionRecord completion = std::move(completions_.front());
    completions_.pop_front();
    lock.unlock();
    {
      std::lock_guard<std::mutex> routes(routeLock_);
      auto route = routes_.find(completion.itemId);
      if (route != routes_.end()) {
        UsbipImport *import = route->second;
        routes_.erase(route);
        import->Completed(completion.itemId, completion);
      }
    }
    lock.lock();
  }
}

void UsbipServer::Log(const std::string &line) const {
  if (options_.logger) {
    options_.logger(line);
  }
}

}  // namespace pelarix::usbip
