#include "ordo/usb/usb_config_log.h"

#include <cstdarg>

#include "ordo/usb/hex_text.h"

namespace ordo::usb {
namespace {

// Process-wide and unguarded: the filter device record overwrites the pair
// with the filter log's own hook each time it is constructed.
LogHook logHook = nullptr;
uint32_t logThreshold = 0;

constexpr uint32_t kHexLogBufferSize = 4096;

void CallHook(uint32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));
void CallHook(uint32_t level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  logHook(level, format, args);
  va_end(args);
}

}  // namespace

void UsbConfigSetLogHook(LogHook hook, uint32_t threshold) {
  logHook = hook;
  logThreshold = threshold;
}

bool UsbConfigLogWanted(uint32_t level) {
  return logHook != nullptr && level >= logThreshold;
}

void UsbConfigLog(uint32_t level, const char *format, ...) {
  if (!UsbConfigLogWanted(level)) return;
  va_list args;
  va_start(args, format);
  logHook(level, format, args);
  va_end(args);
}

void UsbConfigLogHex(uint32_t level, const uint8_t *bytes, uint32_t length, const char *prefix) {
  if (!UsbConfigLogWanted(level) || bytes == nullptr || length == 0) return;
  char text[kHexLogBufferSize];
  HexText(bytes, length, text, sizeof text);
  if (prefix != nullptr) {
    CallHook(level, "%s%s", prefix, text);
  } else {
    CallHook(level, "%s", text);
  }
}

}  // namespace ordo::usb
