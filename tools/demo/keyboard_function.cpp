#include "keyboard_function.h"

#include <algorithm>

#include "urb_block.h"

namespace pelarix::demo {

namespace {

constexpr uint8_t kKeyA = 0x04;
constexpr uint8_t kKey1 = 0x1E;
constexpr uint8_t kKey0 = 0x27;
constexpr uint8_t kSpace = 0x2C;

}  // namespace

uint8_t KeyCode(char c, bool *shift) {
  *shift = c >= 'A' && c <= 'Z';
  if (c >= 'a' && c <= 'z') {
    return static_cast<uint8_t>(kKeyA + (c - 'a'));
  }
  if (c >= 'A' && c <= 'Z') {
    return static_cast<uint8_t>(kKeyA + (c - 'A'));
  }
  if (c >= '1' && c <= '9') {
    return static_cast<uint8_t>(kKey1 + (c - '1'));
  }
  if (c == '0') {
    return kKey0;
  }
  if (c == ' ') {
    return kSpace;
  }
  if (c == '\n') {
    return kEnterKey;
  }
  *shift = false;
  return 0;
}

char KeyChar(uint8_t code, bool shift) {
  if (code >= kKeyA && code < kKeyA + 26) {
    return static_cast<char>((shift ? 'A' : 'a') + (code - kKeyA));
  }
  if (code >= kKey1 && code < kKey0) {
    return static_cast<char>('1' + (code - kKey1));
  }
  if (code == kKey0) {
    return '0';
  }
  if (code == kSpace) {
    return ' ';
  }
  if (code == kEnterKey) {
    return '\n';
  }
  return '?';
}

KeyboardFunction::KeyboardFunction(uint8_t interruptIn, std::string text)
    : interruptIn_(interruptIn) {
  text += '\n';  // the host reads up to Enter
  for (char c : text) {
    bool shift = false;
    const uint8_t code = KeyCode(c, &shift);
    if (code == 0) {
      continue;
    }
    std::vector<uint8_t> press(kKeyboardReportBytes, 0);
    press[0] = shift ? kLeftShift : 0;
    press[2] = code;
    reports_.push_back(std::move(press));
    reports_.emplace_back(kKeyboardReportBytes, 0);
  }
}

uint32_t KeyboardFunction::Transfer(uint8_t endpoint, const std::vector<uint8_t> &, uint32_t room,
                                    std::vector<uint8_t> *in) {
  if (endpoint != interruptIn_) {
    return urb::kStallPid;
  }
  std::vector<uint8_t> report(kKeyboardReportBytes, 0);
  if (next_ < reports_.size()) {
    report = reports_[next_++];
  }
  report.resize(std::min<size_t>(report.size(), room));
  *in = std::move(report);
  return urb::kSuccess;
}

}  // namespace pelarix::demo
