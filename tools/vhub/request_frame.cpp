#include "request_frame.h"

#include <sys/socket.h>

#include <cerrno>

namespace pelarix::vhub {

uint32_t ReadU32(const uint8_t *at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

void AppendU32(std::vector<uint8_t> &out, uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

FrameParse ParseRequestFrame(const uint8_t *data, size_t size, RequestFrame *frame,
                             size_t *consumed) {
  *consumed = 0;
  if (size >= 4 && ReadU32(data) != kRequestMagic) return FrameParse::kMalformed;
  if (size < kFrameHeaderBytes) return FrameParse::kIncomplete;
  uint32_t inputLength = ReadU32(data + 8);
  if (inputLength > kMaxRequestInput) return FrameParse::kMalformed;
  if (size - kFrameHeaderBytes < inputLength) return FrameParse::kIncomplete;
  frame->code = ReadU32(data + 4);
  frame->inputLength = inputLength;
  frame->outputCapacity = ReadU32(data + 12);
  frame->input = data + kFrameHeaderBytes;
  *consumed = kFrameHeaderBytes + inputLength;
  return FrameParse::kComplete;
}

std::vector<uint8_t> EncodeAnswer(const HubAnswer &answer) {
  std::vector<uint8_t> frame;
  frame.reserve(kFrameHeaderBytes + answer.output.size());
  AppendU32(frame, kAnswerMagic);
  AppendU32(frame, answer.pending ? 1 : 0);
  AppendU32(frame, answer.error);
  AppendU32(frame, static_cast<uint32_t>(answer.output.size()));
  frame.insert(frame.end(), answer.output.begin(), answer.output.end());
  return frame;
}

bool SendBytes(int fd, const std::vector<uint8_t> &bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t sent = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    done += static_cast<size_t>(sent);
  }
  return true;
}

}  // namespace pelarix::vhub
