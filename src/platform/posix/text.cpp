// ANSI-to-UTF-16 conversion. The system's ANSI code page on POSIX is UTF-8.
//
// As MultiByteToWideChar without MB_ERR_INVALID_CHARS: each maximal ill-formed
// subsequence (a stray continuation byte, a truncated sequence, an overlong
// form, a surrogate or a value above U+10FFFF) becomes one U+FFFD, and a
// conversion never stops on bad input. An output of 0 characters asks for
// the size needed; an output too small fails.
#include <cstdint>

#include "platform/platform.h"

namespace pelarix::platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
  char32_t codePoint;
  int32_t bytes;
};

// The range the second byte of a sequence must fall in, by lead byte; the
// tight ranges rule out overlong forms, surrogates and values past U+10FFFF.
bool SecondByteFits(uint8_t lead, uint8_t second) {
  uint8_t low = 0x80;
  uint8_t high = 0xBF;
  if (lead == 0xE0) {
    low = 0xA0;
  }
  if (lead == 0xED) {
    high = 0x9F;
  }
  if (lead == 0xF0) {
    low = 0x90;
  }
  if (lead == 0xF4) {
    high = 0x8F;
  }
  return second >= low && second <= high;
}

// Decodes one code point from at most available bytes.
Decoded DecodeOne(const uint8_t *bytes, int32_t available) {
  const uint8_t lead = bytes[0];
  if (lead < 0x80) {
    return {lead, 1};
  }
  int32_t length = 0;
  char32_t value = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    value = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    value = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    value = lead & 0x07;
  } else {
    return {kReplacement, 1};
  }
  for (int32_t i = 1; i < length; ++i) {
    const bool fits =
        i < available && (i == 1 ? SecondByteFits(lead, bytes[1]) : (bytes[i] & 0xC0) == 0x80);
    if (!fits) {
      return {kReplacement, i};
    }
    value = (value << 6) | (bytes[i] & 0x3F);
  }
  return {value, length};
}

}  // namespace

int32_t AnsiToUtf16(const char *input, int32_t inputLength, char16_t *output, int32_t outputChars) {
  if (input == nullptr || inputLength == 0 || inputLength < -1 || outputChars < 0) {
    return 0;
  }
  if (outputChars > 0 && output == nullptr) {
    return 0;
  }
  const auto *bytes = reinterpret_cast<const uint8_t *>(input);
  int32_t length = inputLength;
  if (length == -1) {
    length = 0;
    while (bytes[length] != 0) {
      ++length;
    }
    ++length;  // the NUL is converted too
  }
  int32_t written = 0;
  for (int32_t at = 0; at < length;) {
    const Decoded decoded = DecodeOne(bytes + at, length - at);
    at += decoded.bytes;
    const int32_t units = decoded.codePoint > 0xFFFF ? 2 : 1;
    if (outputChars > 0) {
      if (written + units > outputChars) {
        return 0;
      }
      if (units == 2) {
        const char32_t offset = decoded.codePoint - 0x10000;
        output[written] = static_cast<char16_t>(0xD800 + (offset >> 10));
        output[written + 1] = static_cast<char16_t>(0xDC00 + (offset & 0x3FF));
      } else {
        output[written] = static_cast<char16_t>(decoded.codePoint);
      }
    }
    written += units;
  }
  return written;
}

}  // namespace pelarix::platform
