// The hex viewer text of the descriptor dump: a support engineer reads
// device descriptors from log files in this form, so its layout is fixed.
//
//   0000  09 02 22 00 01 01 00 a0 32 09 04 00 00 01 03 01  ..."....2.......
//
// 16 bytes a line: the offset of the line's first byte, each byte as two
// lowercase digits and a blank, 3 blanks for each byte missing from 16, then
// the bytes 32 to 126 as they are and all others as ".". Lines end in "\n"
// except the last.
#pragma once

#include <cstdint>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

// Renders into `out` (always terminated when outSize isn't 0) and returns the
// number of characters written. A length above outSize is cut to
// outSize - 1; a piece that no longer fits ends the text.
int32_t HexText(const uint8_t *bytes, uint32_t length, char *out, uint32_t outSize);

}  // namespace ordo::usb
