// The hub's device interface on POSIX: each hub interface is a Unix stream
// socket in the hub directory, and each control request travels as one frame
// with the reply end of a fresh socket pair attached (docs/hub-protocol.md).
// The fresh pair plays the part of the fresh event of an overlapped request:
// concurrent requests on one connection never see each other's answers.
#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/hub_open_wait.h"
#include "platform/posix/system_error.h"

namespace pelarix::platform {

struct HubDeviceSetObject {
  std::vector<std::string> socketPaths;  // ascending byte order of the names
};

struct HubConnectionObject {
  int socket;
  std::mutex sendLock;  // a frame goes out whole
};

namespace {

constexpr const char *kDefaultHubDirectory = "/run/pelarix/hub";
constexpr uint32_t kRequestMagic = 0x51524850;
constexpr uint32_t kAnswerMagic = 0x50524850;
constexpr size_t kFrameHeaderBytes = 16;

// Paths are bytes. They reach the caller as UTF-16 and come back to HubOpen,
// so the mapping must be lossless: valid UTF-8 is decoded, and any other byte
// b becomes the lone surrogate 0xDC00 + b, which maps back to b.
void AppendUtf16(std::u16string &out, uint32_t codePoint) {
  if (codePoint < 0x10000) {
    out.push_back(static_cast<char16_t>(codePoint));
    return;
  }
  codePoint -= 0x10000;
  out.push_back(static_cast<char16_t>(0xD800 + (codePoint >> 10)));
  out.push_back(static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF)));
}

// Length of the valid UTF-8 sequence at text[0], or 0.
size_t Utf8SequenceLength(const unsigned char *text, size_t left, uint32_t *codePoint) {
  unsigned char lead = text[0];
  size_t length = lead < 0x80                   ? 1
                  : lead >= 0xC2 && lead < 0xE0 ? 2
                  : lead >= 0xE0 && lead < 0xF0 ? 3
                  : lead >= 0xF0 && lead < 0xF5 ? 4
                                                : 0;
  if (length == 0 || length > left) {
    return 0;
  }
  uint32_t value = length == 1 ? lead : lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) {
      return 0;
    }
    value = (value << 6) | (text[i] & 0x3F);
  }
  static constexpr uint32_t kSmallest[5] = {0, 0, 0x80, 0x800, 0x10000};
  if (value < kSmallest[length] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) {
    return 0;
  }
  *codePoint = value;
  return length;
}

std::u16string PathToUtf16(const std::string &path) {
  std::u16string out;
  const auto *bytes = reinterpret_cast<const unsigned char *>(path.data());
  for (size_t at = 0; at < path.size();) {
    uint32_t codePoint = 0;
    size_t length = Utf8SequenceLength(bytes + at, path.size() - at, &codePoint);
    if (length == 0) {
      out.push_back(static_cast<char16_t>(0xDC00 + bytes[at]));
      length = 1;
    } else {
      AppendUtf16(out, codePoint);
    }
    at += length;
  }
  return out;
}

void AppendUtf8(std::string &out, uint32_t codePoint) {
  if (codePoint < 0x80) {
    out.push_back(static_cast<char>(codePoint));
  } else if (codePoint < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
    out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
  } else if (codePoint < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
    out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
    out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
  }
}

std::string PathFromUtf16(const char16_t *path) {
  std::string out;
  for (const char16_t *at = path; *at != 0; ++at) {
    uint32_t unit = *at;
    bool highSurrogate = unit >= 0xD800 && unit < 0xDC00;
    if (highSurrogate && at[1] >= 0xDC00 && at[1] < 0xE000) {
      AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (at[1] - 0xDC00));
      ++at;
    } else if (unit >= 0xDC80 && unit < 0xDD00) {
      out.push_back(static_cast<char>(unit - 0xDC00));  // a byte that was not UTF-8
    } else {
      AppendUtf8(out, unit);
    }
  }
  return out;
}

std::string HubDirectory() {
  const char *directory = std::getenv("PELARIX_HUB_DIR");
  return directory != nullptr && directory[0] != 0 ? directory : kDefaultHubDirectory;
}

void PutU32(unsigned char *at, uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    at[i] = static_cast<unsigned char>(value >> (8 * i));
  }
}

uint32_t GetU32(const unsigned char *at) {
  return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

// Reads exactly length bytes; false on end of stream or error.
bool ReadAll(int fd, void *buffer, size_t length) {
  auto *at = static_cast<unsigned char *>(buffer);
  while (length > 0) {
    ssize_t got = recv(fd, at, length, 0);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    at += got;
    length -= static_cast<size_t>(got);
  }
  return true;
}

// Reads exactly length bytes within timeoutMs: 0, kErrorTimeout, or 1167 on
// end of stream or error.
uint32_t ReadAllWithin(int fd, unsigned char *at, size_t length, uint32_t timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (length > 0) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd ready{fd, POLLIN, 0};
    int polled = poll(&ready, 1, static_cast<int>(std::max<int64_t>(0, left.count())));
    if (polled < 0 && errno == EINTR) {
      continue;
    }
    if (polled == 0) {
      return kErrorTimeout;
    }
    ssize_t got = polled > 0 ? recv(fd, at, length, MSG_DONTWAIT) : -1;
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
      continue;
    }
    if (got <= 0) {
      return kErrorDeviceNotConnected;
    }
    at += got;
    length -= static_cast<size_t>(got);
  }
  return kErrorSuccess;
}

// Sends the frame whole; the descriptors ride on its first byte.
bool SendFrame(int socket, const unsigned char *header, const void *input, uint32_t inputLength,
               const int *fds, size_t fdCount) {
  iovec parts[2] = {{const_cast<unsigned char *>(header), kFrameHeaderBytes},
                    {const_cast<void *>(input), input != nullptr ? inputLength : 0}};
  alignas(cmsghdr) unsigned char control[CMSG_SPACE(2 * sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = parts[1].iov_len > 0 ? 2 : 1;
  message.msg_control = control;
  message.msg_controllen = CMSG_SPACE(fdCount * sizeof(int));
  cmsghdr *rights = CMSG_FIRSTHDR(&message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(fdCount * sizeof(int));
  std::memcpy(CMSG_DATA(rights), fds, fdCount * sizeof(int));
  while (message.msg_iovlen > 0) {
    ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent < 0) {
      return false;
    }
    message.msg_control = nullptr;  // only the first piece carries descriptors
    message.msg_controllen = 0;
    auto left = static_cast<size_t>(sent);
    while (message.msg_iovlen > 0 && left >= message.msg_iov[0].iov_len) {
      left -= message.msg_iov[0].iov_len;
      ++message.msg_iov;
      --message.msg_iovlen;
    }
    if (message.msg_iovlen > 0) {
      message.msg_iov[0].iov_base =
          static_cast<unsigned char *>(message.msg_iov[0].iov_base) + left;
      message.msg_iov[0].iov_len -= left;
    }
  }
  return true;
}

// Reads the answer frame from the reply end. A hub that hangs up, answers with
// a bad magic or claims more bytes than were asked for is a broken connection.
HubControlResult ReadAnswer(int reply, void *output, uint32_t outputLength,
                            uint32_t *bytesReturned) {
  unsigned char header[kFrameHeaderBytes];
  if (!ReadAll(reply, header, sizeof header) || GetU32(header) != kAnswerMagic) {
    return {kErrorDeviceNotConnected, false};
  }
  bool pending = GetU32(header + 4) != 0;
  uint32_t error = GetU32(header + 8);
  uint32_t bytes = GetU32(header + 12);
  if (bytes > outputLength || (bytes > 0 && !ReadAll(reply, output, bytes))) {
    return {kErrorDeviceNotConnected, false};
  }
  *bytesReturned = bytes;
  return {error, pending};
}

}  // namespace

uint32_t HubOpenWaitMs() {
  const char *text = std::getenv("PELARIX_HUB_OPEN_TIMEOUT_MS");
  if (text == nullptr || *text == 0 || std::strlen(text) > 10) {
    return kDefaultHubOpenWaitMs;
  }
  uint64_t value = 0;
  for (const char *at = text; *at != 0; ++at) {
    if (*at < '0' || *at > '9') {
      return kDefaultHubOpenWaitMs;
    }
    value = value * 10 + static_cast<uint64_t>(*at - '0');
  }
  return value >= 1 && value <= 0x7FFFFFFF ? static_cast<uint32_t>(value) : kDefaultHubOpenWaitMs;
}

uint32_t HubGetDeviceSet(HubDeviceSet *out) {
  *out = nullptr;
  auto *set = new (std::nothrow) HubDeviceSetObject;
  if (set == nullptr) {
    return kErrorNotEnoughMemory;
  }
  std::string directory = HubDirectory();
  // A missing directory is an empty set: the enumeration then finds nothing.
  if (DIR *listing = opendir(directory.c_str())) {
    while (dirent *entry = readdir(listing)) {
      std::string path = directory + "/" + entry->d_name;
      struct stat status {};
      if (stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        set->socketPaths.push_back(path);
      }
    }
    closedir(listing);
  }
  std::sort(set->socketPaths.begin(), set->socketPaths.end());
  *out = set;
  return kErrorSuccess;
}

uint32_t HubEnumFirstInterface(HubDeviceSet set) {
  return set != nullptr && !set->socketPaths.empty() ? kErrorSuccess : kErrorNoMoreItems;
}

uint32_t HubGetInterfacePath(HubDeviceSet set, char16_t *path, uint32_t pathChars,
                             uint32_t *requiredChars) {
  if (HubEnumFirstInterface(set) != kErrorSuccess) {
    return kErrorNoMoreItems;
  }
  std::u16string wide = PathToUtf16(set->socketPaths.front());
  *requiredChars = static_cast<uint32_t>(wide.size() + 1);
  if (path == nullptr || pathChars < *requiredChars) {
    return kErrorInsufficientBuffer;
  }
  std::copy(wide.begin(), wide.end(), path);
  path[wide.size()] = 0;
  return kErrorSuccess;
}

void HubDestroyDeviceSet(HubDeviceSet set) {
  delete set;
}

uint32_t HubOpen(const char16_t *path, HubConnection *out) {
  *out = nullptr;
  std::string narrow = PathFromUtf16(path);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (narrow.empty() || narrow.size() >= sizeof address.sun_path) {
    return kErrorFileNotFound;
  }
  std::memcpy(address.sun_path, narrow.data(), narrow.size());
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    return WindowsErrorFromErrno(errno);
  }
  if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    uint32_t error = errno == EACCES ? kErrorAccessDenied : kErrorFileNotFound;
    close(fd);
    return error;
  }
  unsigned char status[4];
  uint32_t error = ReadAllWithin(fd, status, sizeof status, HubOpenWaitMs());
  if (error == kErrorSuccess) {
    error = GetU32(status);
  }
  auto *hub = error == kErrorSuccess ? new (std::nothrow) HubConnectionObject{fd, {}} : nullptr;
  if (error == kErrorSuccess && hub == nullptr) {
    error = kErrorNotEnoughMemory;
  }
  if (error != kErrorSuccess) {
    close(fd);
    return error;
  }
  *out = hub;
  return kErrorSuccess;
}

void HubClose(HubConnection hub) {
  if (hub == nullptr) {
    return;
  }
  close(hub->socket);
  delete hub;
}

HubControlResult HubControl(HubConnection hub, uint32_t code, const void *input,
                            uint32_t inputLength, void *output, uint32_t outputLength,
                            uint32_t *bytesReturned, Event attachEvent) {
  *bytesReturned = 0;
  bool buffersMissing =
      (input == nullptr && inputLength != 0) || (output == nullptr && outputLength != 0);
  if (hub == nullptr || buffersMissing) {
    return {kErrorInvalidParameter, false};
  }
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
    return {WindowsErrorFromErrno(errno), false};
  }
  unsigned char header[kFrameHeaderBytes];
  PutU32(header, kRequestMagic);
  PutU32(header + 4, code);
  PutU32(header + 8, inputLength);
  PutU32(header + 12, outputLength);
  int fds[2] = {pair[1], static_cast<int>(EventHandleValue(attachEvent))};
  bool sent = false;
  {
    std::lock_guard<std::mutex> lock(hub->sendLock);
    sent = SendFrame(hub->socket, header, input, inputLength, fds, attachEvent != nullptr ? 2 : 1);
  }
  close(pair[1]);  // the hub holds the only other copy now
  HubControlResult result{kErrorDeviceNotConnected, false};
  if (sent) {
    result = ReadAnswer(pair[0], output, outputLength, bytesReturned);
  }
  close(pair[0]);
  return result;
}

}  // namespace pelarix::platform
