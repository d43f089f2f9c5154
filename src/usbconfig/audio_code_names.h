// Texts of the audio class codes that the descriptor dump prints beside
// their numbers; "UNKNOWN" for any code not in the tables.
#pragma once

#include <cstdint>

namespace ordo::usb {

const char *TerminalTypeName(uint16_t terminalType);
const char *FormatTagName(uint16_t formatTag);
const char *ProcessTypeName(uint16_t processType);

}  // namespace ordo::usb
