// The running system's version on POSIX: the major and minor numbers of the
// kernel release (uname). PELARIX_OS_VERSION=major.minor overrides it, so
// that tests can stand in for any Windows version.
#include <sys/utsname.h>

#include <cstdint>
#include <cstdlib>

#include "platform/platform.h"

namespace pelarix::platform {
namespace {

// Reads "major.minor..." from text; a missing or malformed number reads 0.
void ParseVersion(const char *text, uint32_t *major, uint32_t *minor) {
  uint32_t numbers[2] = {0, 0};
  for (uint32_t &number : numbers) {
    while (*text >= '0' && *text <= '9') {
      number = number * 10 + static_cast<uint32_t>(*text - '0');
      if (number > 0xFFFF) {
        number = 0xFFFF;
      }
      ++text;
    }
    if (*text != '.') {
      break;
    }
    ++text;
  }
  *major = numbers[0];
  *minor = numbers[1];
}

}  // namespace

void GetSystemVersion(uint32_t *major, uint32_t *minor) {
  const char *override = std::getenv("PELARIX_OS_VERSION");
  if (override != nullptr) {
    ParseVersion(override, major, minor);
    return;
  }
  utsname name{};
  if (uname(&name) != 0) {
    *major = 0;
    *minor = 0;
    return;
  }
  ParseVersion(name.release, major, minor);
}

}  // namespace pelarix::platform
