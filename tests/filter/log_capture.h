// Records the filter log as formatted lines with their engine levels, so that
// tests can assert exact log output.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ordo/usb/filter_log.h"

namespace ordo::usb::testing {

using LogLine = std::pair<uint32_t, std::string>;

class LogCapture {
 public:
  // Installs the recording hook at the given threshold (0: everything).
  explicit LogCapture(uint32_t threshold = 0) {
    lines().clear();
    SetFilterLogHook(&LogCapture::record, threshold);
  }
  ~LogCapture() { SetFilterLogHook(nullptr, 0); }
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  const std::vector<LogLine> &all() const { return lines(); }
  void clear() { lines().clear(); }
  // The lines without their levels.
  std::vector<std::string> texts() const {
    std::vector<std::string> result;
    for (const LogLine &line : lines()) result.push_back(line.second);
    return result;
  }

 private:
  static std::vector<LogLine> &lines() {
    static std::vector<LogLine> recorded;
    return recorded;
  }
  static void record(uint32_t level, const char *format, va_list args) {
    char buffer[4096];
    std::vsnprintf(buffer, sizeof buffer, format, args);
    lines().emplace_back(level, buffer);
  }
};

}  // namespace ordo::usb::testing
