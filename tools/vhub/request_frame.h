// Frames of the POSIX hub protocol as the hub sees them: requests arriving on
// a session's socket and answers going back on a request's reply descriptor
// (docs/hub-protocol.md). Parsing is kept apart from the socket handling so
// that it can be driven by a fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pelarix::vhub {

inline constexpr uint32_t kRequestMagic = 0x51524850;
inline constexpr uint32_t kAnswerMagic = 0x50524850;
inline constexpr size_t kFrameHeaderBytes = 16;
// Far above any request of the protocol (a plug-in record tops out near
// 64 KiB of descriptors plus its string store); a larger claim is garbage.
inline constexpr uint32_t kMaxRequestInput = 16u << 20;

struct RequestFrame {
  uint32_t code = 0;
  uint32_t outputCapacity = 0;
  const uint8_t *input = nullptr;  // points into the parsed bytes
  uint32_t inputLength = 0;
};

enum class FrameParse {
  kIncomplete,  // more bytes are needed
  kComplete,    // *frame is set and *consumed bytes belong to it
  kMalformed,   // not a request frame: the session is beyond repair
};

FrameParse ParseRequestFrame(const uint8_t *data, size_t size, RequestFrame *frame,
                             size_t *consumed);

struct HubAnswer {
  bool pending = false;
  uint32_t error = 0;
  std::vector<uint8_t> output;
};

// The answer frame: header and output bytes.
std::vector<uint8_t> EncodeAnswer(const HubAnswer &answer);
// Sends all bytes on a socket; false if the other end is gone.
bool SendBytes(int fd, const std::vector<uint8_t> &bytes);
// Sends the answer frame on a reply descriptor.
inline bool SendAnswer(int replyFd, const HubAnswer &answer) {
  return SendBytes(replyFd, EncodeAnswer(answer));
}

// Little-endian helpers for the hub's side.
uint32_t ReadU32(const uint8_t *at);
void AppendU32(std::vector<uint8_t> &out, uint32_t value);

}  // namespace pelarix::vhub
