#include "ordo/usb/hex_text.h"

#include <cstdio>
#include <cstring>

namespace ordo::usb {
namespace {

constexpr uint32_t kBytesPerLine = 16;

// Appends pieces to a bounded text; the first piece that doesn't fit whole
// (with its terminator) ends the text, which keeps what came before it.
class BoundedText {
 public:
  BoundedText(char *out, uint32_t size) : out_(out), size_(size) {
    if (size_ != 0) {
      out_[0] = '\0';
    }
  }
  bool Append(const char *piece, size_t length) {
    if (full_ || used_ + length >= size_) {
      full_ = true;
      return false;
    }
    std::memcpy(out_ + used_, piece, length);
    used_ += static_cast<uint32_t>(length);
    out_[used_] = '\0';
    return true;
  }
  int32_t Used() const { return static_cast<int32_t>(used_); }

 private:
  char *out_;
  uint32_t size_;
  uint32_t used_ = 0;
  bool full_ = false;
};

char HexDigit(uint8_t nibble) {
  return "0123456789abcdef"[nibble & 0x0F];
}
char Printable(uint8_t byte) {
  return byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
}

bool AppendLine(BoundedText &text, const uint8_t *line, uint32_t offset, uint32_t count,
                bool last) {
  char piece[kBytesPerLine + 3];
  const int offsetLength = std::snprintf(piece, sizeof piece, "%4.4x  ", offset);
  if (!text.Append(piece, static_cast<size_t>(offsetLength))) {
    return false;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const char hex[3] = {HexDigit(line[i] >> 4), HexDigit(line[i]), ' '};
    if (!text.Append(hex, sizeof hex)) {
      return false;
    }
  }
  for (uint32_t i = count; i < kBytesPerLine; ++i) {
    if (!text.Append("   ", 3)) {
      return false;
    }
  }
  // The ASCII column, with the line end unless this is the last line.
  piece[0] = ' ';
  for (uint32_t i = 0; i < count; ++i) {
    piece[1 + i] = Printable(line[i]);
  }
  size_t length = 1 + count;
  if (!last) {
    piece[length++] = '\n';
  }
  return text.Append(piece, length);
}

}  // namespace

int32_t HexText(const uint8_t *bytes, uint32_t length, char *out, uint32_t outSize) {
  if (bytes == nullptr || length == 0 || out == nullptr || outSize == 0) {
    return 0;
  }
  if (length > outSize) {
    length = outSize - 1;
  }
  BoundedText text(out, outSize);
  for (uint32_t offset = 0; offset < length; offset += kBytesPerLine) {
    const uint32_t left = length - offset;
    const uint32_t count = left < kBytesPerLine ? left : kBytesPerLine;
    if (!AppendLine(text, bytes + offset, offset, count, offset + count >= length)) {
      break;
    }
  }
  return text.Used();
}

}  // namespace ordo::usb
