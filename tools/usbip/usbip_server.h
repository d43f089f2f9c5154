// The virtual hub as a USB/IP server: a TCP listener beside the hub that
// lists the devices plugged in (OP_REQ_DEVLIST) and lets a USB/IP host
// import one (OP_REQ_IMPORT); each import's URB phase then runs as items on
// the hub (UsbipImport). It learns of plug-ins, unplugs and completions as
// the hub's observer, so it is the only observer of its hub. An unplug ends
// the device's import by closing its connection, as a vanished device does
// on a Linux server. One thread accepts, one per connection serves, one
// hands the hub's completions to their imports.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "exported_device.h"
#include "hub_model.h"
#include "usbip_import.h"

namespace pelarix::usbip {

inline constexpr uint16_t kDefaultPort = 3240;

struct UsbipServerOptions {
  std::string address = "127.0.0.1";  // IPv4, numeric
  uint16_t port = kDefaultPort;       // 0: any free port (Port() tells)
  std::function<void(const std::string &line)> logger;
  size_t maxConnections = 64;
  // How long a connection may take to send its operation request.
  std::chrono::milliseconds operationTimeout{10000};
  ImportLimits limits;
};

// "ADDR:PORT" (IPv4, numeric) into the options; false if malformed.
bool ParseListenAddress(const std::string &text, UsbipServerOptions *options);

class UsbipServer {
 public:
  UsbipServer(vhub::HubModel &model, UsbipServerOptions options);
  ~UsbipServer();
  UsbipServer(const UsbipServer &) = delete;
  UsbipServer &operator=(const UsbipServer &) = delete;

  // Binds, listens and becomes the hub's observer; false with *error set.
  bool Start(std::string *error);
  // Stops listening, ends every connection and waits for their threads.
  void Stop();
  uint16_t Port() const { return port_; }
  // The devices a list would show now, by PlugNo.
  std::vector<ExportedDevice> Devices() const;
  // Waits until `count` devices are listed; false on time-out.
  bool WaitForDevices(size_t count, std::chrono::milliseconds timeout) const;

 private:
  struct Connection {
    std::thread thread;
    int fd = -1;
    bool done = false;
  };

  void Accept();
  void ReapConnections(bool all);
  void Serve(Connection *connection);
  std::string ServeOperation(int fd);
  std::string ServeList(int fd);
  std::string ServeImport(int fd);
  void Plugged(uint32_t plugNo, const std::vector<uint8_t> &record);
  void Unplugged(uint32_t plugNo);
  void Completed(const vhub::CompletionRecord &completion);
  void Dispatch();
  void Log(const std::string &line) const;

  vhub::HubModel &model_;
  UsbipServerOptions options_;
  int listenFd_ = -1;
  int wakeFds_[2] = {-1, -1};
  uint16_t port_ = 0;
  std::thread acceptor_;
  std::thread dispatcher_;
  // The devices listed, and the connection of each imported one.
  mutable std::mutex devicesLock_;
  mutable std::condition_variable devicesChanged_;
  std::map<uint32_t, ExportedDevice> devices_;
  std::map<uint32_t, int> importFd_;
  // Connections and their threads.
  std::mutex connectionsLock_;
  std::list<std::unique_ptr<Connection>> connections_;
  bool stopping_ = false;
  // The hub's completions, on their way to the dispatcher.
  std::mutex completionsLock_;
  std::condition_variable completionsChanged_;
  std::deque<vhub::CompletionRecord> completions_;
  bool dispatcherStop_ = false;
  // Item routes of every import (see UsbipImport).
  std::mutex routeLock_;
  std::map<uint32_t, UsbipImport *> routes_;
};

}  // namespace pelarix::usbip
