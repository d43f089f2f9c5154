// Arbitrary bytes as a filter blob for the length-checked decoder; what it
// accepts is dumped, encoded again and read back.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "ordo/usb/filter_language.h"

namespace {

void formatLine(uint32_t, const char *format, va_list args) {
  char line[1024];
  std::vsnprintf(line, sizeof line, format, args);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace ordo::usb;
  SetFilterLogHook(&formatLine, 0);
  FilterSettings settings;
  settings.setDefaultPreferences(false);
  settings.list().decodeBounded(data, size, true);
  settings.list().dump();
  settings.getBool(FilterTypeExalldev);
  settings.evaluateId("vid-1234_pid-5678");
  settings.evaluateFamily("storage");

  std::vector<uint8_t> blob(settings.list().encodedSize());
  if (!blob.empty()) {
    settings.list().encode(blob.data());
    FilterList again;
    if (!again.decodeBounded(blob.data(), blob.size(), false)) __builtin_trap();
  }
  return 0;
}
