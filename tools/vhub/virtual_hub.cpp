#include "virtual_hub.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hub/hub_control_codes.h"

namespace pelarix::vhub {

namespace {

// A sender that piles descriptors up without frames is not a library.
constexpr size_t kMaxPassedFds = 64;
constexpr size_t kReadChunk = 64 * 1024;

bool MakeDirectories(const std::string &path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    std::string prefix = path.substr(0, slash);
    if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

std::string Errno(const std::string &what) {
  return what + ": " + std::strerror(errno);
}

}  // namespace

VirtualHub::VirtualHub(VirtualHubOptions options)
    : options_(std::move(options)),
      socketPath_(options_.directory + "/" + options_.name),
      model_(options_.version, options_.logger, options_.keepRecords) {}

VirtualHub::~VirtualHub() {
  Stop();
}

bool VirtualHub::Start(std::string *error) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socketPath_.size() >= sizeof address.sun_path) {
    *error = "socket path too long: " + socketPath_;
    return false;
  }
  std::memcpy(address.sun_path, socketPath_.data(), socketPath_.size());
  if (!MakeDirectories(options_.directory)) {
    *error = Errno("cannot make " + options_.directory);
    return false;
  }
  struct stat status {};
  if (lstat(socketPath_.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    unlink(socketPath_.c_str());  // left behind by a hub that died
  }
  listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0 ||
      bind(listenFd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
      listen(listenFd_, 16) != 0 || pipe2(wakeFds_, O_CLOEXEC) != 0) {
    *error = Errno("cannot listen on " + socketPath_);
    Stop();
    return false;
  }
  thread_ = std::thread([this] { Serve(); });
  return true;
}

void VirtualHub::Stop() {
  if (thread_.joinable()) {
    char wake = 0;
    [[maybe_unused]] ssize_t written = write(wakeFds_[1], &wake, 1);
    thread_.join();
  }
  DropSession();
  if (listenFd_ >= 0) {
    close(listenFd_);
    unlink(socketPath_.c_str());
  }
  listenFd_ = -1;
  for (int &fd : wakeFds_) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
}

void VirtualHub::Serve() {
  for (;;) {
    // The session comes before new connections: a hang-up that came first
    // is seen before the next open, so a closed session never blocks it.
    pollfd fds[3] = {{wakeFds_[0], POLLIN, 0}, {sessionFd_, POLLIN, 0}, {listenFd_, POLLIN, 0}};
    if (poll(fds, 3, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents != 0) return;
    if (fds[1].revents != 0 && !ReadSession()) DropSession();
    if (fds[2].revents != 0) Accept();
  }
}

void VirtualHub::Accept() {
  int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) return;
  uint32_t status = model_.OpenSession();
  std::vector<uint8_t> statusBytes;
  AppendU32(statusBytes, status);
  bool sent = SendBytes(fd, statusBytes);
  if (status == 0 && sent) {
    sessionFd_ = fd;
    return;
  }
  if (status == 0) model_.CloseSession();
  close(fd);
}

bool VirtualHub::ReadSession() {
  uint8_t chunk[kReadChunk];
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(16 * sizeof(int))];
  iovec part{chunk, sizeof chunk};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ssize_t got = recvmsg(sessionFd_, &message, MSG_CMSG_CLOEXEC);
  if (got < 0 && errno == EINTR) return true;
  for (cmsghdr *header = CMSG_FIRSTHDR(&message); got >= 0 && header != nullptr;
       header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int fd;
      std::memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof fd);
      passedFds_.push_back(fd);
    }
  }
  if (got <= 0 || (message.msg_flags & MSG_CTRUNC) != 0 || passedFds_.size() > kMaxPassedFds) {
    return false;
  }
  pending_.insert(pending_.end(), chunk, chunk + got);
  return AnswerFrames();
}

bool VirtualHub::AnswerFrames() {
  size_t used = 0;
  for (;;) {
    RequestFrame frame;
    size_t consumed = 0;
    FrameParse parse =
        ParseRequestFrame(pending_.data() + used, pending_.size() - used, &frame, &consumed);
    if (parse == FrameParse::kMalformed) return false;
    if (parse == FrameParse::kIncomplete) break;
    size_t needed = frame.code == IOCTL_HUB_SET_NOTIFICATION_EVENT ? 2 : 1;
    if (passedFds_.size() < needed) return false;  // a frame without its reply end
    int reply = passedFds_.front();
    passedFds_.pop_front();
    int eventFd = -1;
    if (needed == 2) {
      eventFd = passedFds_.front();
      passedFds_.pop_front();
    }
    bool hold = false;
    HubAnswer answer = model_.Handle(frame.code, frame.input, frame.inputLength,
                                     frame.outputCapacity, eventFd, &hold);
    if (hold) {
      model_.HoldReply(frame.code, reply, std::move(answer));
    } else {
      SendAnswer(reply, answer);  // a caller that went away misses nothing
      close(reply);
    }
    used += consumed;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<ptrdiff_t>(used));
  return true;
}

void VirtualHub::DropSession() {
  if (sessionFd_ < 0) return;
  close(sessionFd_);
  sessionFd_ = -1;
  for (int fd : passedFds_) close(fd);
  passedFds_.clear();
  pending_.clear();
  model_.CloseSession();
}

}  // namespace pelarix::vhub
