// A process-wide log hook with its threshold, as the filter log and the
// descriptor model's log each keep one.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "ordo/usb/log_hook.h"

namespace ordo::usb {

// The pair is written when a session (or a filter device record) installs its
// hook, possibly while another thread logs. Atomics keep those writes from
// tearing a read, and a caller calls the hook it found wanted, never a later
// null; the last Set still wins.
class LogHookSlot {
 public:
  void Set(LogHook hook, uint32_t threshold) {
    hook_.store(hook);
    threshold_.store(threshold);
  }
  LogHook Hook() const { return hook_.load(); }
  uint32_t Threshold() const { return threshold_.load(); }

  // The hook if a line at `level` would reach it, else null.
  LogHook Wanted(uint32_t level) const {
    const LogHook hook = hook_.load();
    return hook != nullptr && level >= threshold_.load() ? hook : nullptr;
  }

  // Hands a format and its arguments to a hook found wanted. The filter log
  // passes a text as the format (its "%" doubled) with no arguments, so the
  // format is not checked as a literal here.
  static void Call(LogHook hook, uint32_t level, const char *format, ...) {
    va_list args;
    va_start(args, format);
    hook(level, format, args);
    va_end(args);
  }

 private:
  // MinGW's function pointer types carry the ABI as an attribute, which a
  // template argument drops (harmlessly: there is one ABI in the process).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"
  std::atomic<LogHook> hook_{nullptr};
#pragma GCC diagnostic pop
  std::atomic<uint32_t> threshold_{0};
};

}  // namespace ordo::usb
