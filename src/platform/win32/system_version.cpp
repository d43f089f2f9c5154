// The running system's version, as the blacklist compares it.
#include <cstring>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

void GetSystemVersion(uint32_t *major, uint32_t *minor) {
  // The 276-byte record, zero-filled but for its size; a failing call leaves
  // both numbers at 0.
  OSVERSIONINFOW info;
  static_assert(sizeof info == 276);
  std::memset(&info, 0, sizeof info);
  info.dwOSVersionInfoSize = sizeof info;
  GetVersionExW(&info);
  *major = info.dwMajorVersion;
  *minor = info.dwMinorVersion;
}

}  // namespace pelarix::platform
