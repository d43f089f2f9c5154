// A hub whose every answer comes from a script of bytes: it stands in for
// the platform layer's hub device (src/platform/posix/hub_device.cpp) in the
// hostile hub fuzzer, so that the library's exports meet any answer a hub
// could send without a socket, a thread or a wait. What the socket transport
// itself makes of broken answer frames is hub_answer_fuzzer's business; here
// every answer is one the transport lets through: an error at once or after
// pending, any bytes up to the output's capacity, or a broken connection
// (1167) from some request on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/platform.h"

namespace pelarix::fuzzing {

// Reads the script front to back; past its end every read is 0 and Done()
// tells so.
class ScriptReader {
 public:
  ScriptReader(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  uint16_t U16() { return static_cast<uint16_t>(Byte() | Byte() << 8); }
  uint32_t U32() { return static_cast<uint32_t>(U16()) | static_cast<uint32_t>(U16()) << 16; }
  bool Done() const { return at_ >= size_; }
  size_t Left() const { return size_ - at_; }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t at_ = 0;
};

// The hub's side of one fuzz input. Begin hands it the script; while it
// runs, each open and control request takes its answer from there, and once
// the script is used up every request fails as a lost connection does, so
// that no wait of the library's can outlast the input.
class HostileHub {
 public:
  static void Begin(ScriptReader *script);
  // Forgets the script; returns the number of connections the library
  // opened and did not close.
  static int End();
  // Raises the session's notification event, as a hub does while items
  // wait (false if no session has handed one over).
  static bool RaiseItemEvent();
};

}  // namespace pelarix::fuzzing
