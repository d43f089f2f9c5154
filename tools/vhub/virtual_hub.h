// The virtual hub behind its Unix socket: one listening socket in the hub
// directory, one session at a time, each request answered on the reply
// descriptor that came with it (docs/hub-protocol.md). It runs on a thread of
// its own; tests drive it in-process through Model(), the daemon
// pelarix-vhubd runs one until it is told to stop.
//
// On Windows there is no socket: Start puts the hub in the platform layer as
// an in-process hub device named after options.name, and each request is
// answered on the thread that sends it (in_process_virtual_hub.cpp).
#pragma once

#include <chrono>
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
  // The socket's permission bits and group, set before it listens so that a
  // client never finds it with others; -1 leaves what bind and the umask
  // made. A service that does not run as the hub's user needs both.
  int socketMode = -1;
  int64_t socketGroup = -1;
  uint32_t version = kDefaultHubVersion;
  HubModel::Logger logger;  // what the hub does, line by line; may be empty
  bool keepRecords = true;  // see HubModel
  // How long an answer may wait for room on its reply descriptor before the
  // client is dropped as one that does not read its answers.
  uint32_t replyTimeoutMs = 2000;
};

class VirtualHub {
 public:
  explicit VirtualHub(VirtualHubOptions options);
  ~VirtualHub();
  VirtualHub(const VirtualHub &) = delete;
  VirtualHub &operator=(const VirtualHub &) = delete;

  // Binds the socket and starts serving; false with *error set on failure.
  // A socket left behind by a hub that is gone is replaced; one on which a
  // live hub answers is left alone, and the start fails.
  bool Start(std::string *error);
  // Stops serving, drops the session and removes the socket.
  void Stop();

  HubModel &Model() { return model_; }
  // The path the library opens: the socket's, or on Windows the in-process
  // device path (UTF-8).
  const std::string &SocketPath() const { return socketPath_; }

 private:
#ifdef _WIN32
  class Device;  // what the platform layer reaches

  VirtualHubOptions options_;
  std::string socketPath_;
  HubModel model_;
  Device *device_ = nullptr;
#else
  using Clock = std::chrono::steady_clock;
  // An answer that found no room on its reply descriptor at once.
  struct OutgoingReply {
    int fd = -1;
    uint32_t code = 0;
    HubAnswer answer;
    size_t sent = 0;
    Clock::time_point deadline;
  };

  // Each of the following returns why the session is over, or "" while it
  // goes on.
  bool ClaimSocketPath(std::string *error);
  bool GiveSocketAccess(std::string *error) const;
  void Serve();
  int PollTimeout() const;
  void Accept();
  bool SessionHungUp() const;
  std::string ReadSession(short events);
  std::string AnswerFrames();
  std::string Deliver(int replyFd, uint32_t code, HubAnswer answer);
  std::string FlushReplies(const short *events, size_t count);
  void DropSession(const std::string &reason);
  void Log(const std::string &line) const;

  VirtualHubOptions options_;
  std::string socketPath_;
  HubModel model_;
  std::thread thread_;
  int listenFd_ = -1;
  int wakeFds_[2] = {-1, -1};
  int sessionFd_ = -1;
  std::vector<uint8_t> pending_;        // bytes of frames not yet whole
  std::deque<int> passedFds_;           // descriptors received, in order
  std::vector<OutgoingReply> replies_;  // answers of the session still going out
#endif
};

}  // namespace pelarix::vhub
