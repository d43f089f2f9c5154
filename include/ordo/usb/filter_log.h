// The filter log: the one log call of the filter engine, with one process-wide
// hook and threshold.
#pragma once

#include <cstdint>
#include <string>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/log_hook.h"

namespace ordo::usb {

// Replaces hook and threshold for every manager of the process: the last
// caller wins. A null hook silences the log.
void SetFilterLogHook(LogHook hook, uint32_t threshold);
LogHook GetFilterLogHook();
uint32_t GetFilterLogThreshold();

// Severity 0 error, 1 warning, 2 information, 3 and above detail; mapped to
// the engine levels 4, 2, 1 and 0. The line reaches the hook as its format,
// "DevFltr: " + text, with an empty argument list. Every "%" of the text is
// doubled on the way, so that the formatted line reads exactly as the text
// and a formatter never looks for arguments that are not there.
void DevFltrLog(uint32_t level, const std::string &text);
void DevFltrLog(uint32_t level, const char *text);

// Whether a line of this severity would reach a hook now; lets a caller skip
// putting a line together that nobody reads.
bool DevFltrLogWanted(uint32_t level);

}  // namespace ordo::usb
