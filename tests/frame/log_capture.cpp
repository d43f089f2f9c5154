#include "log_capture.h"

#include <cstdio>

namespace pelarix::testing {

std::mutex LogCapture::mutex_;
std::vector<std::pair<uint32_t, std::u16string>> LogCapture::lines_;

std::string Printable(const std::u16string &text) {
  std::string out;
  for (char16_t unit : text) {
    if (unit >= 0x20 && unit < 0x7F) {
      out += static_cast<char>(unit);
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(unit));
      out += escape;
    }
  }
  return out;
}

void ResetLibraryState() {
  gLibrary.initCount = 0;
  gLibrary.logCallback = nullptr;
  gLibrary.logLevel = 1;
  gLibrary.lateItemAllocation = 0;
}

LogCapture::LogCapture(int32_t logLevel) {
  ResetLibraryState();
  Clear();
  gLibrary.logCallback = &LogCapture::Sink;
  gLibrary.logLevel = logLevel;
}

LogCapture::~LogCapture() {
  ResetLibraryState();
}

void LogCapture::Sink(uint32_t level, const PelarixChar *message) {
  std::lock_guard<std::mutex> guard(mutex_);
  // PelarixChar is wchar_t on Windows; both are UTF-16 units.
  lines_.emplace_back(level, std::u16string(reinterpret_cast<const char16_t *>(message)));
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> guard(mutex_);
  std::vector<LogLine> lines;
  for (const auto &[level, text] : lines_) lines.emplace_back(level, Printable(text));
  return lines;
}

std::vector<std::u16string> LogCapture::RawTexts() const {
  std::lock_guard<std::mutex> guard(mutex_);
  std::vector<std::u16string> texts;
  for (const auto &line : lines_) texts.push_back(line.second);
  return texts;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> guard(mutex_);
  lines_.clear();
}

std::string PointerText(const void *pointer) {
  char text[24];
  std::snprintf(text, sizeof text, "%016llX",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
  return text;
}

}  // namespace pelarix::testing
