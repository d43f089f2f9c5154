// Whole reads and writes on a connected socket: a partial transfer goes on
// until every byte moved, an interruption is retried, and the end of the
// connection or an error is a failure. Writes never raise SIGPIPE.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pelarix::usbip {

bool ReceiveAll(int fd, uint8_t *bytes, size_t length);
bool SendAll(int fd, const uint8_t *bytes, size_t length);

}  // namespace pelarix::usbip
