// The library's log: messages go to the caller's sink at their level.
//
// Formats follow the Windows C runtime's wide printf on every platform, so a
// log reads the same on Windows and Linux: %s takes a UTF-16 string and %S a
// narrow one, %p prints 16 uppercase hexadecimal digits, %d %u %x %X %c with
// flags, width and precision ("%04.4x", "%4.4x") work as there. A message is
// cut at 251 characters plus the NUL. Nothing here touches the heap; a message
// above the configured level costs one comparison.
#pragma once

#include <cstdarg>
#include <cstdint>

namespace pelarix {

// Levels of the library's log.
inline constexpr uint32_t kLogFailure = 0;    // always delivered
inline constexpr uint32_t kLogSettings = 1;   // start-up line, settings read
inline constexpr uint32_t kLogLifecycle = 2;  // sessions, devices, plug-in steps
inline constexpr uint32_t kLogTraffic = 3;    // items, reference counts, handles

// Characters of a formatted message, with its NUL.
inline constexpr int kLogMessageChars = 252;

void LogMessage(uint32_t level, const char16_t *format, ...);

// The sink handed to the filter engine: its narrow messages and its levels,
// translated to the library's.
void LogFilterMessage(uint32_t level, const char *format, va_list args);

}  // namespace pelarix
