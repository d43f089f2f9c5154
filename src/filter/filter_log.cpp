#include "ordo/usb/filter_log.h"

#include "usbconfig/log_hook_slot.h"

namespace ordo::usb {
namespace {

LogHookSlot filterLog;

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

}  // namespace

void SetFilterLogHook(LogHook hook, uint32_t threshold) {
  filterLog.Set(hook, threshold);
}

LogHook GetFilterLogHook() {
  return filterLog.Hook();
}

uint32_t GetFilterLogThreshold() {
  return filterLog.Threshold();
}

bool DevFltrLogWanted(uint32_t level) {
  return filterLog.Wanted(engineLevelOf(level)) != nullptr;
}

// A literal is made into a text only when its line is wanted: the phases
// write a dozen fixed lines per device, mostly with no hook to read them.
void DevFltrLog(uint32_t level, const char *text) {
  if (DevFltrLogWanted(level)) {
    DevFltrLog(level, std::string(text));
  }
}

void DevFltrLog(uint32_t level, const std::string &text) {
  const uint32_t engineLevel = engineLevelOf(level);
  const LogHook hook = filterLog.Wanted(engineLevel);
  if (hook == nullptr) {
    return;
  }
  // The text is the format, with an empty argument list.
  LogHookSlot::Call(hook, engineLevel, asFormat(text).c_str());
}

}  // namespace ordo::usb
