#include "virtual_hub.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "hub/hub_control_codes.h"

#ifndef POLLRDHUP
#define POLLRDHUP 0  // without it a hang-up is seen when the unread bytes are read
#endif

namespace pelarix::vhub {

namespace {

// A sender that piles descriptors up without frames is not a library.
constexpr size_t kMaxPassedFds = 64;
// Answers waiting for room at once, beyond which a session is not reading.
constexpr size_t kMaxOutgoingReplies = 64;
constexpr size_t kReadChunk = size_t{64} * 1024;
constexpr short kHangUp = POLLHUP | POLLERR | POLLRDHUP;

bool MakeDirectories(const std::string &path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    std::string prefix = path.substr(0, slash);
    if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
      return false;
    }
    if (slash == std::string::npos) {
      return true;
    }
  }
}

std::string Errno(const std::string &what) {
  return what + ": " + std::strerror(errno);
}

std::string Hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

bool FillAddress(const std::string &path, sockaddr_un *address) {
  *address = sockaddr_un{};
  address->sun_family = AF_UNIX;
  if (path.size() >= sizeof address->sun_path) {
    return false;
  }
  std::memcpy(address->sun_path, path.data(), path.size());
  return true;
}

// True if something listens on the socket: a connection is taken (or the
// backlog is full, which only a listener has). A refused connection is a
// socket left behind by a hub that is gone.
bool LiveHubAnswers(const sockaddr_un &address) {
  int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (probe < 0) {
    return false;
  }
  bool live = connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ||
              errno == EAGAIN || errno == EINPROGRESS;
  close(probe);
  return live;
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
  if (!MakeDirectories(options_.directory)) {
    *error = Errno("cannot make " + options_.directory);
    return false;
  }
  // Two hubs starting at once on one directory take turns here, so neither
  // removes the socket the other has just bound.
  int directoryFd = open(options_.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directoryFd >= 0) {
    flock(directoryFd, LOCK_EX);
  }
  bool claimed = ClaimSocketPath(error);
  if (directoryFd >= 0) {
    close(directoryFd);  // and with it the lock
  }
  if (!claimed) {
    Stop();
    return false;
  }
  thread_ = std::thread([this] { Serve(); });
  return true;
}

bool VirtualHub::ClaimSocketPath(std::string *error) {
  sockaddr_un address{};
  if (!FillAddress(socketPath_, &address)) {
    *error = "socket path too long: " + socketPath_;
    return false;
  }
  struct stat status {};
  if (lstat(socketPath_.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    if (LiveHubAnswers(address)) {
      *error = "a live hub answers on " + socketPath_ + ", not taking it over";
      return false;
    }
    unlink(socketPath_.c_str());  // left behind by a hub that died
  }
  listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0 ||
      bind(listenFd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    *error = Errno("cannot listen on " + socketPath_);
    if (listenFd_ >= 0) {
      close(listenFd_);
    }
    listenFd_ = -1;  // the path is not ours: Stop must not remove it
    return false;
  }
  if (!GiveSocketAccess(error)) {
    return false;
  }
  if (listen(listenFd_, 16) != 0 || pipe2(wakeFds_, O_CLOEXEC) != 0) {
    *error = Errno("cannot listen on " + socketPath_);
    return false;
  }
  return true;
}

// Before listen, a connect is refused: nobody reaches the socket while its
// mode and group are still the ones bind left.
bool VirtualHub::GiveSocketAccess(std::string *error) const {
  if (options_.socketGroup >= 0 && chown(socketPath_.c_str(), static_cast<uid_t>(-1),
                                         static_cast<gid_t>(options_.socketGroup)) != 0) {
    *error =
        Errno("cannot give " + socketPath_ + " to group " + std::to_string(options_.socketGroup));
    return false;
  }
  if (options_.socketMode >= 0 &&
      chmod(socketPath_.c_str(), static_cast<mode_t>(options_.socketMode)) != 0) {
    *error = Errno("cannot set the mode of " + socketPath_);
    return false;
  }
  return true;
}

void VirtualHub::Stop() {
  if (thread_.joinable()) {
    char wake = 0;
    [[maybe_unused]] ssize_t written = write(wakeFds_[1], &wake, 1);
    thread_.join();
  }
  DropSession("the hub stops");
  if (listenFd_ >= 0) {
    close(listenFd_);
    unlink(socketPath_.c_str());
  }
  listenFd_ = -1;
  for (int &fd : wakeFds_) {
    if (fd >= 0) {
      close(fd);
    }
    fd = -1;
  }
}

void VirtualHub::Serve() {
  for (;;) {
    // The session comes before new connections: a hang-up that came first
    // is seen before the next open, so a closed session never blocks it.
    std::vector<pollfd> fds = {
        {wakeFds_[0], POLLIN, 0}, {sessionFd_, POLLIN | POLLRDHUP, 0}, {listenFd_, POLLIN, 0}};
    for (const OutgoingReply &reply : replies_) {
      fds.push_back({reply.fd, POLLOUT, 0});
    }
    if (poll(fds.data(), fds.size(), PollTimeout()) < 0) {
      if (errno == EINTR) {
        continue;
      }
      return;
    }
    if (fds[0].revents != 0) {
      return;
    }
    std::vector<short> replyEvents;
    for (size_t i = 3; i < fds.size(); ++i) {
      replyEvents.push_back(fds[i].revents);
    }
    std::string ended;
    if (fds[1].revents != 0) {
      ended = ReadSession(fds[1].revents);
    }
    if (ended.empty()) {
      ended = FlushReplies(replyEvents.data(), replyEvents.size());
    }
    if (!ended.empty()) {
      DropSession(ended);
    }
    if (fds[2].revents != 0) {
      Accept();
    }
  }
}

// Until the earliest deadline of an answer still going out; no limit without.
int VirtualHub::PollTimeout() const {
  if (replies_.empty()) {
    return -1;
  }
  Clock::time_point earliest = replies_.front().deadline;
  for (const OutgoingReply &reply : replies_) {
    earliest = std::min(earliest, reply.deadline);
  }
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(earliest - Clock::now());
  return static_cast<int>(std::max<int64_t>(0, left.count() + 1));
}

void VirtualHub::Accept() {
  int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) {
    return;
  }
  // A client that closed its session and connects again at once finds its
  // old session over, also when poll saw the new connection first.
  if (sessionFd_ >= 0 && SessionHungUp()) {
    DropSession("the client closed the connection");
  }
  uint32_t status = model_.OpenSession();
  std::vector<uint8_t> statusBytes;
  AppendU32(statusBytes, status);
  size_t sent = 0;
  int error = 0;
  // A fresh connection always has room for 4 bytes; one that has none is
  // not worth waiting for.
  bool delivered = SendWithoutWaiting(fd, statusBytes, &sent, &error) == SendOutcome::kDone;
  if (status == 0 && delivered) {
    sessionFd_ = fd;
    return;
  }
  if (status == 0) {
    model_.CloseSession("the open status could not be delivered");
  }
  close(fd);
}

bool VirtualHub::SessionHungUp() const {
  pollfd session{sessionFd_, POLLRDHUP, 0};
  return poll(&session, 1, 0) == 1 && (session.revents & kHangUp) != 0;
}

std::string VirtualHub::ReadSession(short events) {
  // A session is over when its connection is closed, whatever it left
  // unread: the frames behind a hang-up have nobody to answer to.
  if ((events & kHangUp) != 0) {
    int unread = 0;
    ioctl(sessionFd_, FIONREAD, &unread);
    return "the client closed the connection" +
           (unread > 0 ? ", " + std::to_string(unread) + " bytes unread" : std::string());
  }
  uint8_t chunk[kReadChunk];
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(16 * sizeof(int))];
  iovec part{chunk, sizeof chunk};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ssize_t got = recvmsg(sessionFd_, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
    return "";
  }
  if (got < 0) {
    return Errno("read error");
  }
  for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr;
       header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) {
      continue;
    }
    size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof fd);
      passedFds_.push_back(fd);
    }
  }
  if (got == 0) {
    return "the client closed the connection";
  }
  if ((message.msg_flags & MSG_CTRUNC) != 0) {
    return "bad frame: more than 16 descriptors on one message";
  }
  if (passedFds_.size() > kMaxPassedFds) {
    return "bad frame: more than " + std::to_string(kMaxPassedFds) +
           " descriptors without their frames";
  }
  pending_.insert(pending_.end(), chunk, chunk + got);
  return AnswerFrames();
}

std::string VirtualHub::AnswerFrames() {
  size_t used = 0;
  std::string ended;
  while (ended.empty()) {
    RequestFrame frame;
    size_t consumed = 0;
    FrameParse parse =
        ParseRequestFrame(pending_.data() + used, pending_.size() - used, &frame, &consumed);
    if (parse == FrameParse::kIncomplete) {
      break;
    }
    if (parse == FrameParse::kBadMagic) {
      return "bad frame: wrong magic " + Hex(ReadU32(&pending_[used]));
    }
    if (parse == FrameParse::kInputTooLong) {
      return "bad frame: input length " + std::to_string(ReadU32(&pending_[used + 8])) +
             " above the limit of " + std::to_string(kMaxRequestInput);
    }
    size_t needed = frame.code == IOCTL_HUB_SET_NOTIFICATION_EVENT ? 2 : 1;
    if (passedFds_.size() < needed) {
      return "bad frame: " + HubRequestName(frame.code) + " without its " +
             (passedFds_.empty() ? "reply descriptor" : "notification event descriptor");
    }
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
      ended = Deliver(reply, frame.code, std::move(answer));
    }
    used += consumed;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<ptrdiff_t>(used));
  return ended;
}

// Sends what fits at once; the rest waits in replies_ for room, until its
// deadline.
std::string VirtualHub::Deliver(int replyFd, uint32_t code, HubAnswer answer) {
  OutgoingReply reply{replyFd, code, std::move(answer), 0,
                      Clock::now() + std::chrono::milliseconds(options_.replyTimeoutMs)};
  int error = 0;
  switch (SendAnswerWithoutWaiting(reply.fd, reply.answer, &reply.sent, &error)) {
    case SendOutcome::kDone:
      close(reply.fd);
      return "";
    case SendOutcome::kPeerGone:
      // The caller went away before its answer: nothing is lost for anyone.
      Log("answer to " + HubRequestName(code) + " dropped: the caller closed its reply end");
      close(reply.fd);
      return "";
    case SendOutcome::kFailed:
      close(reply.fd);
      return "reply undeliverable: " + HubRequestName(code) + " answer on a descriptor that " +
             "takes none (" + std::strerror(error) + ")";
    case SendOutcome::kWouldBlock:
      break;
  }
  replies_.push_back(std::move(reply));
  if (replies_.size() > kMaxOutgoingReplies) {
    return "reply undeliverable: " + std::to_string(replies_.size()) + " answers wait to be read";
  }
  return "";
}

// Goes on with the answers whose descriptors poll reported; events[i]
// belongs to replies_[i].
std::string VirtualHub::FlushReplies(const short *events, size_t count) {
  std::string ended;
  std::vector<OutgoingReply> waiting;
  for (size_t i = 0; i < replies_.size(); ++i) {
    OutgoingReply &reply = replies_[i];
    SendOutcome outcome = SendOutcome::kWouldBlock;
    int error = 0;
    if (i < count && events[i] != 0) {
      outcome = SendAnswerWithoutWaiting(reply.fd, reply.answer, &reply.sent, &error);
    }
    if (outcome == SendOutcome::kWouldBlock && Clock::now() >= reply.deadline && ended.empty()) {
      ended = "reply undeliverable: " + HubRequestName(reply.code) + " answer, " +
              std::to_string(AnswerFrameBytes(reply.answer) - reply.sent) + " of " +
              std::to_string(AnswerFrameBytes(reply.answer)) + " bytes not taken within " +
              std::to_string(options_.replyTimeoutMs) + " ms";
    }
    if (outcome == SendOutcome::kFailed && ended.empty()) {
      ended = "reply undeliverable: " + HubRequestName(reply.code) + " answer (" +
              std::strerror(error) + ")";
    }
    if (outcome == SendOutcome::kWouldBlock) {
      waiting.push_back(std::move(reply));
    } else {
      close(reply.fd);
    }
  }
  replies_ = std::move(waiting);
  return ended;
}

void VirtualHub::DropSession(const std::string &reason) {
  for (const OutgoingReply &reply : replies_) {
    close(reply.fd);  // their callers see a hang-up
  }
  replies_.clear();
  if (sessionFd_ < 0) {
    return;
  }
  close(sessionFd_);
  sessionFd_ = -1;
  for (int fd : passedFds_) {
    close(fd);
  }
  passedFds_.clear();
  pending_.clear();
  model_.CloseSession(reason);
}

void VirtualHub::Log(const std::string &line) const {
  if (options_.logger) {
    options_.logger(line);
  }
}

}  // namespace pelarix::vhub
