// The log hook shared by the filter engine and the descriptor model: a level,
// a printf-style format and its argument list.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

using LogHook = void (*)(uint32_t level, const char *format, va_list args);

}  // namespace ordo::usb
