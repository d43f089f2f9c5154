// The process environment and identity as the tests use them, the same on
// POSIX and under Windows.
#pragma once

#include <stdlib.h>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace pelarix::testing {

// True when the variable is set.
inline bool SetEnvironment(const char *name, const char *value) {
#ifdef _WIN32
  return _putenv_s(name, value) == 0;
#else
  return setenv(name, value, 1) == 0;
#endif
}

inline void ClearEnvironment(const char *name) {
#ifdef _WIN32
  _putenv_s(name, "");  // an empty value removes the variable there
#else
  unsetenv(name);
#endif
}

inline long ProcessId() {
#ifdef _WIN32
  return _getpid();
#else
  return static_cast<long>(getpid());
#endif
}

}  // namespace pelarix::testing
