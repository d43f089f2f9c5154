#include "request_frame.h"

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#endif

namespace pelarix::vhub {

uint32_t ReadU32(const uint8_t *at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

void AppendU32(std::vector<uint8_t> &out, uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
}

FrameParse ParseRequestFrame(const uint8_t *data, size_t size, RequestFrame *frame,
                             size_t *consumed) {
  *consumed = 0;
  if (size >= 4 && ReadU32(data) != kRequestMagic) {
    return FrameParse::kBadMagic;
  }
  if (size < kFrameHeaderBytes) {
    return FrameParse::kIncomplete;
  }
  uint32_t inputLength = ReadU32(data + 8);
  if (inputLength > kMaxRequestInput) {
    return FrameParse::kInputTooLong;
  }
  if (size - kFrameHeaderBytes < inputLength) {
    return FrameParse::kIncomplete;
  }
  frame->code = ReadU32(data + 4);
  frame->inputLength = inputLength;
  frame->outputCapacity = ReadU32(data + 12);
  frame->input = data + kFrameHeaderBytes;
  *consumed = kFrameHeaderBytes + inputLength;
  return FrameParse::kComplete;
}

namespace {

std::vector<uint8_t> AnswerHeader(const HubAnswer &answer) {
  std::vector<uint8_t> header;
  header.reserve(kFrameHeaderBytes);
  AppendU32(header, kAnswerMagic);
  AppendU32(header, answer.pending ? 1 : 0);
  AppendU32(header, answer.error);
  AppendU32(header, static_cast<uint32_t>(answer.output.size()));
  return header;
}

#ifndef _WIN32
// Sends the bytes of head and then body from *sent on, in one call where the
// socket has room.
SendOutcome SendPartsWithoutWaiting(int fd, const std::vector<uint8_t> &head,
                                    const std::vector<uint8_t> &body, size_t *sent, int *error) {
  *error = 0;
  while (*sent < head.size() + body.size()) {
    iovec parts[2];
    size_t count = 0;
    if (*sent < head.size()) {
      parts[count++] = {const_cast<uint8_t *>(head.data()) + *sent, head.size() - *sent};
    }
    size_t bodyFrom = *sent > head.size() ? *sent - head.size() : 0;
    if (bodyFrom < body.size()) {
      parts[count++] = {const_cast<uint8_t *>(body.data()) + bodyFrom, body.size() - bodyFrom};
    }
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    // MSG_DONTWAIT rather than O_NONBLOCK: the descriptor's flags are shared
    // with every copy of it, the client's included.
    ssize_t done = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (done < 0 && errno == EINTR) {
      continue;
    }
    if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return SendOutcome::kWouldBlock;
    }
    if (done < 0 && (errno == EPIPE || errno == ECONNRESET)) {
      return SendOutcome::kPeerGone;
    }
    if (done <= 0) {
      *error = done < 0 ? errno : EIO;
      return SendOutcome::kFailed;
    }
    *sent += static_cast<size_t>(done);
  }
  return SendOutcome::kDone;
}
#endif

}  // namespace

std::vector<uint8_t> EncodeAnswer(const HubAnswer &answer) {
  std::vector<uint8_t> frame = AnswerHeader(answer);
  frame.reserve(AnswerFrameBytes(answer));
  frame.insert(frame.end(), answer.output.begin(), answer.output.end());
  return frame;
}

#ifndef _WIN32
SendOutcome SendWithoutWaiting(int fd, const std::vector<uint8_t> &bytes, size_t *sent,
                               int *error) {
  return SendPartsWithoutWaiting(fd, bytes, {}, sent, error);
}

SendOutcome SendAnswerWithoutWaiting(int fd, const HubAnswer &answer, size_t *sent, int *error) {
  return SendPartsWithoutWaiting(fd, AnswerHeader(answer), answer.output, sent, error);
}
#endif

}  // namespace pelarix::vhub
