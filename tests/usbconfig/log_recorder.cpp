#include "log_recorder.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "ordo/usb/usb_config_log.h"

namespace ordo::usb::testing {
namespace {

std::vector<LogLine> recorded;

void RecordingHook(uint32_t level, const char *format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(static_cast<size_t>(length > 0 ? length : 0), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, args);
  recorded.push_back(LogLine{level, text});
}

}  // namespace

LogRecorder::LogRecorder(uint32_t threshold) {
  recorded.clear();
  UsbConfigSetLogHook(RecordingHook, threshold);
}

LogRecorder::~LogRecorder() {
  UsbConfigSetLogHook(nullptr, 0);
  recorded.clear();
}

const std::vector<LogLine> &LogRecorder::Lines() const {
  return recorded;
}

std::vector<std::string> LogRecorder::Texts() const {
  std::vector<std::string> texts;
  for (const LogLine &line : recorded) texts.push_back(line.text);
  return texts;
}

std::vector<std::string> LogRecorder::TextsAt(uint32_t level) const {
  std::vector<std::string> texts;
  for (const LogLine &line : recorded) {
    if (line.level == level) texts.push_back(line.text);
  }
  return texts;
}

bool LogRecorder::Contains(uint32_t level, const std::string &text) const {
  return Count(level, text) != 0;
}

size_t LogRecorder::Count(uint32_t level, const std::string &text) const {
  return static_cast<size_t>(std::count(recorded.begin(), recorded.end(), LogLine{level, text}));
}

std::string LogRecorder::Transcript() const {
  std::string transcript;
  for (const LogLine &line : recorded) {
    transcript += std::to_string(line.level) + "|" + line.text + "\n";
  }
  return transcript;
}

void LogRecorder::Clear() {
  recorded.clear();
}

}  // namespace ordo::usb::testing
