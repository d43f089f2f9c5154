#include "socket_io.h"

#include <sys/socket.h>

#include <cerrno>

namespace pelarix::usbip {

bool ReceiveAll(int fd, uint8_t *bytes, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t got = recv(fd, bytes + done, length - done, 0);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    done += static_cast<size_t>(got);
  }
  return true;
}

bool SendAll(int fd, const uint8_t *bytes, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t sent = send(fd, bytes + done, length - done, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent <= 0) {
      return false;
    }
    done += static_cast<size_t>(sent);
  }
  return true;
}

}  // namespace pelarix::usbip
