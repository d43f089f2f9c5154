#include "ordo/usb/usb_config_log.h"

#include <atomic>
#include <cstdarg>

#include "ordo/usb/hex_text.h"

namespace ordo::usb {
namespace {

// Process-wide: the filter device record overwrites the pair with the
// filter log's own hook each time it is constructed, which happens on every
// thread that filters a device. Atomics keep those writes from tearing a
// read, and each line calls the hook it found wanted, never a later null.
std::atomic<LogHook> logHook{nullptr};
std::atomic<uint32_t> logThreshold{0};

constexpr uint32_t kHexLogBufferSize = 4096;

// The hook if a line at `level` would reach it, else null.
LogHook WantedHook(uint32_t level) {
  const LogHook hook = logHook.load();
  return hook != nullptr && level >= logThreshold.load() ? hook : nullptr;
}

void CallHook(LogHook hook, uint32_t level, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
void CallHook(LogHook hook, uint32_t level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  hook(level, format, args);
  va_end(args);
}

}  // namespace

void UsbConfigSetLogHook(LogHook hook, uint32_t threshold) {
  logHook.store(hook);
  logThreshold.store(threshold);
}

bool UsbConfigLogWanted(uint32_t level) {
  return WantedHook(level) != nullptr;
}

void UsbConfigLog(uint32_t level, const char *format, ...) {
  const LogHook hook = WantedHook(level);
  if (hook == nullptr) return;
  va_list args;
  va_start(args, format);
  hook(level, format, args);
  va_end(args);
}

void UsbConfigLogHex(uint32_t level, const uint8_t *bytes, uint32_t length, const char *prefix) {
  const LogHook hook = WantedHook(level);
  if (hook == nullptr || bytes == nullptr || length == 0) return;
  char text[kHexLogBufferSize];
  HexText(bytes, length, text, sizeof text);
  if (prefix != nullptr) {
    CallHook(hook, level, "%s%s", prefix, text);
  } else {
    CallHook(hook, level, "%s", text);
  }
}

}  // namespace ordo::usb
