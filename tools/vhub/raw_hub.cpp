#include "raw_hub.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace pelarix::vhub {

RawHub::RawHub(const std::string &path) : path_(path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    return;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size());
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
      listen(fd, 1) == 0) {
    listenFd_ = fd;
  } else if (fd >= 0) {
    close(fd);
  }
}

RawHub::~RawHub() {
  if (listenFd_ < 0) {
    return;
  }
  close(listenFd_);
  unlink(path_.c_str());
}

RawHub::Received RawHub::ServeOne(const std::vector<uint8_t> &openStatus, const uint8_t *answer,
                                  size_t answerSize) {
  Received received;
  int session = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
  if (session < 0) {
    return received;
  }
  bool sent = !openStatus.empty() && send(session, openStatus.data(), openStatus.size(),
                                          MSG_NOSIGNAL) == static_cast<ssize_t>(openStatus.size());
  uint8_t frame[64];
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(2 * sizeof(int))];
  iovec part{frame, sizeof frame};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ssize_t got = sent ? recvmsg(session, &message, MSG_CMSG_CLOEXEC) : 0;
  if (got > 0) {
    received.frame.assign(frame, frame + got);
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
      size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
      received.descriptors += count;
      for (size_t i = 0; i < count; ++i) {
        int fd = -1;
        std::memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof fd);
        // The first descriptor is the reply end; any other is let go.
        if (header == CMSG_FIRSTHDR(&message) && i == 0 && answerSize > 0) {
          [[maybe_unused]] ssize_t written = send(fd, answer, answerSize, MSG_NOSIGNAL);
        }
        close(fd);
      }
    }
  }
  close(session);
  return received;
}

}  // namespace pelarix::vhub
