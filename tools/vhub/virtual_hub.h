// The virtual hub behind its Unix socket: one listening socket in the hub
// directory, one session at a time, each request answered on the reply
// descriptor that came with it (docs/hub-protocol.md). It runs on a thread of
// its own; tests drive it in-process through Model(), the daemon
// pelarix-vhubd runs one until it is told to stop.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "hub_model.h"

namespace pelarix::vhub {

struct VirtualHubOptions {
  std::string directory;     // made if missing
  std::string name = "hub";  // the socket's file name in it
  uint32_t version = kDefaultHubVersion;
  HubModel::Logger logger;  // what the hub does, line by line; may be empty
  bool keepRecords = true;  // see HubModel
};

class VirtualHub {
 public:
  explicit VirtualHub(VirtualHubOptions options);
  ~VirtualHub();
  VirtualHub(const VirtualHub &) = delete;
  VirtualHub &operator=(const VirtualHub &) = delete;

  // Binds the socket and starts serving; false with *error set on failure.
  bool Start(std::string *error);
  // Stops serving, drops the session and removes the socket.
  void Stop();

  HubModel &Model() { return model_; }
  const std::string &SocketPath() const { return socketPath_; }

 private:
  void Serve();
  void Accept();
  // False when the session is over (hang-up, error or a broken frame).
  bool ReadSession();
  bool AnswerFrames();
  void DropSession();

  VirtualHubOptions options_;
  std::string socketPath_;
  HubModel model_;
  std::thread thread_;
  int listenFd_ = -1;
  int wakeFds_[2] = {-1, -1};
  int sessionFd_ = -1;
  std::vector<uint8_t> pending_;  // bytes of frames not yet whole
  std::deque<int> passedFds_;     // descriptors received, in order
};

}  // namespace pelarix::vhub
