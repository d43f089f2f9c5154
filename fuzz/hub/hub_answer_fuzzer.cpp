// Any bytes as a hub's answer to one request: the library must return an
// error or the answer, and never write past its output buffer.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "platform/platform.h"

namespace {

// A hub that opens every connection and answers its one request with the
// bytes of the current input.
struct RawHub {
  std::string path;
  int listenFd = -1;
  const uint8_t *answer = nullptr;
  size_t answerSize = 0;

  RawHub() {
    char directory[] = "/tmp/pelarix-fuzz-XXXXXX";
    if (mkdtemp(directory) == nullptr) std::abort();
    path = std::string(directory) + "/hub";
    listenFd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    if (bind(listenFd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listenFd, 1) != 0) {
      std::abort();
    }
  }

  void ServeOne() {
    int session = accept(listenFd, nullptr, nullptr);
    uint8_t status[4] = {};
    send(session, status, sizeof status, MSG_NOSIGNAL);
    uint8_t frame[64];
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(2 * sizeof(int))];
    iovec part{frame, sizeof frame};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(session, &message, 0) > 0 && CMSG_FIRSTHDR(&message) != nullptr) {
      int reply;
      std::memcpy(&reply, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof reply);
      send(reply, answer, answerSize, MSG_NOSIGNAL);
      close(reply);
    }
    close(session);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static RawHub hub;
  hub.answer = data;
  hub.answerSize = size;
  std::thread server([] { hub.ServeOne(); });
  std::u16string path(hub.path.begin(), hub.path.end());
  pelarix::platform::HubConnection connection = nullptr;
  if (pelarix::platform::HubOpen(path.c_str(), &connection) == 0) {
    // An exact-size heap buffer, so that a write past it is caught.
    uint32_t capacity = size > 16 ? static_cast<uint32_t>((size - 16) / 2) : 0;
    auto *output = static_cast<uint8_t *>(std::malloc(capacity > 0 ? capacity : 1));
    uint32_t bytes = 0;
    auto result = pelarix::platform::HubControl(connection, 0x2A601D, nullptr, 0, output, capacity,
                                                &bytes, nullptr);
    if (bytes > capacity || (result.error == 1167 && bytes != 0)) std::abort();
    std::free(output);
    pelarix::platform::HubClose(connection);
  }
  server.join();
  return 0;
}
