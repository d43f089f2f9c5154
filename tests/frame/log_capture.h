// Captures what the library writes to its log sink, for exact comparisons.
// The library state is set directly (not through an init call), so each test
// chooses its level without the start-up line.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "frame/library_state.h"
#include "pelarix.h"

namespace pelarix::testing {

// One delivered line: its level and its text, non-ASCII units as \uXXXX.
using LogLine = std::pair<uint32_t, std::string>;
using LogLines = std::vector<LogLine>;

std::string Printable(const std::u16string &text);

class LogCapture {
 public:
  // Resets the library state and installs the capturing sink at logLevel.
  explicit LogCapture(int32_t logLevel);
  ~LogCapture();

  std::vector<LogLine> Lines() const;
  std::vector<std::u16string> RawTexts() const;
  void Clear();

  // The sink, for init calls that install it themselves.
  static void PELARIX_CALL Sink(uint32_t level, const PelarixChar *message);

 private:
  static std::mutex mutex_;
  static std::vector<std::pair<uint32_t, std::u16string>> lines_;
};

// Resets the library-wide state to what a fresh process has.
void ResetLibraryState();

// "%p" of a pointer as the log prints it.
std::string PointerText(const void *pointer);

}  // namespace pelarix::testing
