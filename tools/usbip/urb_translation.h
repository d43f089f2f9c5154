// A USB/IP command as a request block of an item, and the block's answer as
// the USB/IP return (docs/usbip.md): control transfers go as raw control
// transfers with their setup packet, except SET_CONFIGURATION of the
// device's configuration, which goes as select configuration so that the
// answer names the pipe handles; bulk and interrupt transfers name their
// endpoint by its pipe handle; isochronous transfers carry their packet
// layout. Statuses go from USBD values to negative Linux errno values.
#pragma once

#include <cstdint>
#include <vector>

#include "usbip_wire.h"

namespace pelarix::usbip {

// bmAttributes & 3 of an endpoint descriptor.
enum class TransferType : uint8_t { kControl = 0, kIsochronous = 1, kBulk = 2, kInterrupt = 3 };

// What a submitted command leaves to read its answer by.
struct SubmittedRequest {
  uint32_t seqnum = 0;
  bool in = false;
  bool selectConfiguration = false;
  TransferType type = TransferType::kControl;
  uint32_t length = 0;  // transfer_buffer_length
  int32_t packets = 0;  // as the command gave it, echoed back
  std::vector<IsoPacket> iso;
};

// The largest packet count of an isochronous command, as Linux's stub has it.
inline constexpr int32_t kMaxIsoPackets = 1024;

bool IsSetConfiguration(const UrbCommand &command);

// The blocks; `out` is the data of an OUT command (empty for IN).
std::vector<uint8_t> ControlBlock(const UrbCommand &command, const std::vector<uint8_t> &out);
std::vector<uint8_t> BulkOrInterruptBlock(const UrbCommand &command, uint32_t pipeHandle,
                                          const std::vector<uint8_t> &out);
std::vector<uint8_t> IsochronousBlock(const UrbCommand &command, uint32_t pipeHandle,
                                      const std::vector<IsoPacket> &packets,
                                      const std::vector<uint8_t> &out);

// The return of an answered item: itemStatus is the completion's status,
// answer its data. A select configuration's pipes are read by the caller.
UrbReturn ReturnOfAnswer(const SubmittedRequest &request, uint32_t itemStatus,
                         const std::vector<uint8_t> &answer);

int32_t ErrnoOfUsbdStatus(uint32_t status);

}  // namespace pelarix::usbip
