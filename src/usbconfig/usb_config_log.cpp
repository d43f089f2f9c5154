#include "ordo/usb/usb_config_log.h"

#include <cstdarg>

#include "ordo/usb/hex_text.h"
#include "usbconfig/log_hook_slot.h"

namespace ordo::usb {
namespace {

// Process-wide: the filter device record overwrites the pair with the
// filter log's own hook each time it is constructed, which happens on every
// thread that filters a device.
LogHookSlot modelLog;

constexpr uint32_t kHexLogBufferSize = 4096;

}  // namespace

void UsbConfigSetLogHook(LogHook hook, uint32_t threshold) {
  modelLog.Set(hook, threshold);
}

bool UsbConfigLogWanted(uint32_t level) {
  return modelLog.Wanted(level) != nullptr;
}

void UsbConfigLog(uint32_t level, const char *format, ...) {
  const LogHook hook = modelLog.Wanted(level);
  if (hook == nullptr) {
    return;
  }
  va_list args;
  va_start(args, format);
  hook(level, format, args);
  va_end(args);
}

void UsbConfigLogHex(uint32_t level, const uint8_t *bytes, uint32_t length, const char *prefix) {
  const LogHook hook = modelLog.Wanted(level);
  if (hook == nullptr || bytes == nullptr || length == 0) {
    return;
  }
  char text[kHexLogBufferSize];
  HexText(bytes, length, text, sizeof text);
  if (prefix != nullptr) {
    LogHookSlot::Call(hook, level, "%s%s", prefix, text);
  } else {
    LogHookSlot::Call(hook, level, "%s", text);
  }
}

}  // namespace ordo::usb
