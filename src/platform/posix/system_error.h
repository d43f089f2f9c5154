// errno values turned into the Windows error codes that the callers of the
// platform layer look at.
#pragma once

#include <cerrno>
#include <cstdint>

#include "platform/platform.h"

namespace pelarix::platform {

inline constexpr uint32_t kErrorTooManyOpenFiles = 4;
inline constexpr uint32_t kErrorInvalidParameter = 87;

inline uint32_t WindowsErrorFromErrno(int error) {
  switch (error) {
    case 0:
      return kErrorSuccess;
    case ENOENT:
    case ECONNREFUSED:
    case ENOTDIR:
      return kErrorFileNotFound;
    case EACCES:
    case EPERM:
      return kErrorAccessDenied;
    case EMFILE:
    case ENFILE:
      return kErrorTooManyOpenFiles;
    case ENOMEM:
    case EAGAIN:
      return kErrorNotEnoughMemory;
    case EPIPE:
    case ECONNRESET:
    case ENOTCONN:
      return kErrorDeviceNotConnected;
    default:
      return kErrorInvalidParameter;
  }
}

}  // namespace pelarix::platform
