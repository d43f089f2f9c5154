// A hand-made hub that speaks the protocol only as far as a test asks: for
// one connection it sends the given open status bytes (none: it hangs up at
// once), reads one request frame, and writes the given answer bytes, as they
// stand, to the frame's reply descriptor. It shows what the library makes of
// answers the protocol rules out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace pelarix::vhub {

class RawHub {
 public:
  explicit RawHub(const std::string &path);  // binds and listens on path
  ~RawHub();
  RawHub(const RawHub &) = delete;
  RawHub &operator=(const RawHub &) = delete;

  bool Listening() const { return listenFd_ >= 0; }
  // What ServeOne read: the first bytes of the request frame (64 at most)
  // and the number of descriptors that came with them.
  struct Received {
    std::vector<uint8_t> frame;
    size_t descriptors = 0;
  };

  // Serves one connection on the calling thread.
  Received ServeOne(const std::vector<uint8_t> &openStatus, const uint8_t *answer,
                    size_t answerSize);

 private:
  std::string path_;
  int listenFd_ = -1;
};

}  // namespace pelarix::vhub
