// Records what the descriptor model logs, as (level, formatted line), for
// tests that assert exact log lines.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ordo::usb::testing {

struct LogLine {
  uint32_t level;
  std::string text;

  friend bool operator==(const LogLine &, const LogLine &) = default;
};

// Installs its hook on construction (threshold as given) and removes it on
// destruction. One at a time: the model's hook is process-wide.
class LogRecorder {
 public:
  explicit LogRecorder(uint32_t threshold = 0);
  ~LogRecorder();
  LogRecorder(const LogRecorder &) = delete;
  LogRecorder &operator=(const LogRecorder &) = delete;

  const std::vector<LogLine> &Lines() const;
  std::vector<std::string> Texts() const;
  std::vector<std::string> TextsAt(uint32_t level) const;
  bool Contains(uint32_t level, const std::string &text) const;
  size_t Count(uint32_t level, const std::string &text) const;
  // Every line as "<level>|<text>\n", the form of the golden dump files.
  std::string Transcript() const;
  void Clear();
};

}  // namespace ordo::usb::testing

// gtest prints recorded lines readably.
#include <ostream>
namespace ordo::usb::testing {
inline std::ostream &operator<<(std::ostream &out, const LogLine &line) {
  return out << line.level << "|" << line.text;
}
}  // namespace ordo::usb::testing
