// ANSI-to-UTF-16 conversion with the system's ANSI code page.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

int32_t AnsiToUtf16(const char *input, int32_t inputLength, char16_t *output, int32_t outputChars) {
  // The arguments the system would fault or fail on are refused here, the
  // same way on every platform.
  if (input == nullptr || inputLength == 0 || inputLength < -1 || outputChars < 0 ||
      (outputChars > 0 && output == nullptr)) {
    return 0;
  }
  return MultiByteToWideChar(CP_ACP, 0, input, inputLength, reinterpret_cast<wchar_t *>(output),
                             outputChars);
}

}  // namespace pelarix::platform
