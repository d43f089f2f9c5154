// printf-style formatting with the Windows C runtime's conventions, for the
// library's log on every platform: in a wide format %s is a wide string and %S
// a narrow one, in a narrow format the other way round; %hs and %ls/%ws name
// the width outright. %p prints 16 uppercase hexadecimal digits. Flags
// (- + space # 0), width and precision (also as *), and the length modifiers
// hh h l ll L j z t I I32 I64 w work as there. The text is cut to fit the
// buffer and always ends in a NUL. Nothing here touches the heap.
#pragma once

#include <cstdarg>

namespace pelarix {

// Formats into text, which holds capacity characters with the NUL (capacity
// must be at least 1). Returns the characters written before the NUL.
int FormatLogText(char16_t *text, int capacity, const char16_t *format, va_list args);
int FormatLogText(char *text, int capacity, const char *format, va_list args);

}  // namespace pelarix
