// A client of the hub's socket that speaks the protocol by hand, as the
// daemon tests play careless and hostile clients with it.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace pelarix::testing {

inline constexpr uint32_t kRequestMagic = 0x51524850;

inline int ConnectRaw(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// True once fd is readable (or hung up), within timeoutMs.
inline bool Readable(int fd, int timeoutMs) {
  pollfd ready{fd, POLLIN, 0};
  return poll(&ready, 1, timeoutMs) == 1;
}

// The open status the hub sends, or -1 if none comes within timeoutMs.
inline int64_t OpenStatus(int fd, int timeoutMs) {
  uint8_t bytes[4];
  if (!Readable(fd, timeoutMs) || recv(fd, bytes, 4, MSG_WAITALL) != 4) return -1;
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<int64_t>(bytes[3]) << 24;
}

// True once the hub has closed the connection, within timeoutMs.
inline bool HungUp(int fd, int timeoutMs) {
  char byte;
  return Readable(fd, timeoutMs) && recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

inline std::vector<uint8_t> FrameHeader(uint32_t magic, uint32_t code, uint32_t inputLength,
                                        uint32_t capacity) {
  std::vector<uint8_t> frame;
  for (uint32_t word : {magic, code, inputLength, capacity}) {
    for (int shift = 0; shift < 32; shift += 8)
      frame.push_back(static_cast<uint8_t>(word >> shift));
  }
  return frame;
}

// Sends bytes with the descriptors riding on the first byte.
inline bool SendWithDescriptors(int fd, const std::vector<uint8_t> &bytes,
                                const std::vector<int> &fds) {
  iovec part{const_cast<uint8_t *>(bytes.data()), bytes.size()};
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(4 * sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (!fds.empty()) {
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(fds.size() * sizeof(int));
    cmsghdr *rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(fds.size() * sizeof(int));
    std::memcpy(CMSG_DATA(rights), fds.data(), fds.size() * sizeof(int));
  }
  return sendmsg(fd, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

}  // namespace pelarix::testing
