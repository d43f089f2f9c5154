// Descriptor files of the test data (18-byte device descriptor, then every
// configuration set) and the filter log's own lines as a test compares them.
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "log_capture.h"
#include "ordo/usb/filter_settings.h"

namespace ordo::usb::testing {

inline std::vector<uint8_t> ReadDescriptorFile(const std::string &relativePath) {
  std::ifstream in(std::string(PELARIX_TEST_DATA_DIR) + "/" + relativePath, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// One device's bytes, split where the configuration sets begin.
struct DescriptorFile {
  explicit DescriptorFile(const std::string &relativePath)
      : bytes(ReadDescriptorFile(relativePath)) {}
  const uint8_t *device() const { return bytes.data(); }
  const uint8_t *config() const { return bytes.data() + 18; }
  std::vector<uint8_t> bytes;
};

// The lines that came through the filter log ("DevFltr: ..."), without the
// descriptor model's own.
inline std::vector<LogLine> FilterLines(const LogCapture &capture) {
  std::vector<LogLine> lines;
  for (const LogLine &line : capture.all()) {
    if (line.second.rfind("DevFltr: ", 0) == 0) {
      lines.push_back(line);
    }
  }
  return lines;
}

// One party's settings: the client's full table of defaults (as merged gets
// it) or the agent's short one, then the rules.
inline FilterSettings SettingsWith(const std::vector<std::string> &rules, bool fullDefaults) {
  FilterSettings settings;
  settings.setDefaultPreferences(fullDefaults);
  for (const std::string &rule : rules) settings.addFilterRule(rule);
  return settings;
}

// A filter log line at its engine level: severity 0 is 4, 1 is 2, 2 is 1,
// 3 and above 0.
inline LogLine Line(uint32_t severity, const std::string &text) {
  const uint32_t level = severity == 0 ? 4 : severity == 1 ? 2 : severity == 2 ? 1 : 0;
  return {level, "DevFltr: " + text};
}

}  // namespace ordo::usb::testing
