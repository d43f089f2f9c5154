// The descriptor model's log: one process-wide hook and threshold, shared by
// every UsbDeviceConfig. The filter device record installs the filter log's
// hook here, so both end in the same place.
#pragma once

#include <cstdint>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/log_hook.h"

namespace ordo::usb {

// Levels of the descriptor model's log scale.
inline constexpr uint32_t kUsbLogDetail = 0;
inline constexpr uint32_t kUsbLogInformation = 1;
inline constexpr uint32_t kUsbLogError = 4;

void UsbConfigSetLogHook(LogHook hook, uint32_t threshold);

// True when a line at `level` would reach the hook.
bool UsbConfigLogWanted(uint32_t level);

void UsbConfigLog(uint32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Logs `length` bytes as hex viewer text (see HexText), behind `prefix` when
// it isn't null. Nothing is logged for null bytes or a length of 0.
void UsbConfigLogHex(uint32_t level, const uint8_t *bytes, uint32_t length, const char *prefix);

}  // namespace ordo::usb
