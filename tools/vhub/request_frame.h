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

// The last two are not request frames: the session is beyond repair, as the
// next frame cannot be found any more.
enum class FrameParse {
  kIncomplete,    // more bytes are needed
  kComplete,      // *frame is set and *consumed bytes belong to it
  kBadMagic,      // the first 4 bytes are not the request magic
  kInputTooLong,  // the input length is above kMaxRequestInput
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
#ifndef _WIN32
// Descriptors come from clients, and a client can hand over a socket whose
// buffer it has filled: the hub never waits on one.
enum class SendOutcome {
  kDone,        // every byte went out
  kWouldBlock,  // the socket has no room now; *sent tells how far it got
  kPeerGone,    // the other end is closed: nobody reads what is left
  kFailed,      // not a socket, or another error (*error holds errno)
};
// Sends bytes from *sent on without waiting, advancing *sent.
SendOutcome SendWithoutWaiting(int fd, const std::vector<uint8_t> &bytes, size_t *sent, int *error);
// The same for an answer frame, sent from the answer itself: a long item's
// bytes are not copied into a frame first.
SendOutcome SendAnswerWithoutWaiting(int fd, const HubAnswer &answer, size_t *sent, int *error);
#endif
// Bytes of the answer frame: header and output.
inline size_t AnswerFrameBytes(const HubAnswer &answer) {
  return kFrameHeaderBytes + answer.output.size();
}

// Little-endian helpers for the hub's side.
uint32_t ReadU32(const uint8_t *at);
void AppendU32(std::vector<uint8_t> &out, uint32_t value);

}  // namespace pelarix::vhub
