#include "frame/log.h"

#include "frame/library_state.h"
#include "frame/log_formatter.h"
#include "platform/platform.h"

namespace pelarix {
namespace {

// The filter engine counts its levels the other way round: its 1 is the most
// important line it still writes on a quiet log.
uint32_t LibraryLevelOfFilterLevel(uint32_t filterLevel) {
  switch (filterLevel) {
    case 1:
      return kLogLifecycle;
    case 2:
      return kLogSettings;
    case 3:
    case 4:
    case 5:
      return kLogFailure;
    default:
      return kLogTraffic;
  }
}

// Level 0 always passes; any other level, taken as signed, must not exceed
// the configured one.
bool IsLevelDelivered(uint32_t level) {
  return level == kLogFailure || static_cast<int32_t>(level) <= gLibrary.logLevel;
}

// The sink's character type is wchar_t on Windows and char16_t elsewhere; both
// hold UTF-16 units, which is what the message is made of.
static_assert(sizeof(PelarixChar) == sizeof(char16_t));

void Deliver(PelarixLogCallback sink, uint32_t level, const char16_t *text) {
  sink(level, reinterpret_cast<const PelarixChar *>(text));
}

}  // namespace

void LogMessage(uint32_t level, const char16_t *format, ...) {
  const PelarixLogCallback sink = gLibrary.logCallback;
  if (sink == nullptr || !IsLevelDelivered(level)) {
    return;
  }
  char16_t text[kLogMessageChars];
  va_list args;
  va_start(args, format);
  FormatLogText(text, kLogMessageChars, format, args);
  va_end(args);
  Deliver(sink, level, text);
}

void LogFilterMessage(uint32_t level, const char *format, va_list args) {
  const PelarixLogCallback sink = gLibrary.logCallback;
  const uint32_t libraryLevel = LibraryLevelOfFilterLevel(level);
  if (sink == nullptr || !IsLevelDelivered(libraryLevel)) {
    return;
  }
  char narrow[kLogMessageChars];
  const int bytes = FormatLogText(narrow, kLogMessageChars, format, args);
  // At most 251 bytes never need more than 251 UTF-16 units.
  char16_t text[kLogMessageChars];
  const int units =
      bytes == 0 ? 0 : platform::AnsiToUtf16(narrow, bytes, text, kLogMessageChars - 1);
  text[units] = 0;
  Deliver(sink, libraryLevel, text);
}

}  // namespace pelarix
