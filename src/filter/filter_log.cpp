#include "ordo/usb/filter_log.h"

#include <atomic>
#include <cstdarg>

namespace ordo::usb {
namespace {

// Atomic so that a session created on one thread while another filters
// neither tears the pair nor races; the last SetFilterLogHook still wins.
std::atomic<LogHook> filterLogHook{nullptr};
std::atomic<uint32_t> filterLogThreshold{0};

uint32_t engineLevelOf(uint32_t level) {
  switch (level) {
    case 0:
      return 4;
    case 1:
      return 2;
    case 2:
      return 1;
    default:
      return 0;
  }
}

// A "%" of the text would make the hook's formatter look for arguments that
// were never passed; doubled, it prints as itself.
std::string asFormat(const std::string &text) {
  std::string format = "DevFltr: ";
  format.reserve(format.size() + text.size());
  for (char c : text) {
    format += c;
    if (c == '%') {
      format += '%';
    }
  }
  return format;
}

// Gives the hook an empty argument list.
void callHook(LogHook hook, uint32_t level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  hook(level, format, args);
  va_end(args);
}

}  // namespace

void SetFilterLogHook(LogHook hook, uint32_t threshold) {
  filterLogHook.store(hook);
  filterLogThreshold.store(threshold);
}

LogHook GetFilterLogHook() {
  return filterLogHook.load();
}

uint32_t GetFilterLogThreshold() {
  return filterLogThreshold.load();
}

void DevFltrLog(uint32_t level, const std::string &text) {
  LogHook hook = filterLogHook.load();
  uint32_t engineLevel = engineLevelOf(level);
  if (hook == nullptr || engineLevel < filterLogThreshold.load()) {
    return;
  }
  callHook(hook, engineLevel, asFormat(text).c_str());
}

}  // namespace ordo::usb
