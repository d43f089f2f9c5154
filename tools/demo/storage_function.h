// A USB flash drive's function: bulk-only transport (command block on the
// bulk-out endpoint, data, status on the bulk-in endpoint) over an
// in-memory disk of 512-byte blocks, with the SCSI commands a host needs to
// use it: TEST UNIT READY, REQUEST SENSE, INQUIRY, READ CAPACITY(10),
// READ(10) and WRITE(10).
#pragma once

#include <cstdint>
#include <vector>

#include "usb_function.h"

namespace pelarix::demo {

inline constexpr uint32_t kDiskBlockBytes = 512;

// Bulk-only transport wrappers.
inline constexpr uint32_t kCommandSignature = 0x43425355;  // "USBC"
inline constexpr uint32_t kStatusSignature = 0x53425355;   // "USBS"
inline constexpr uint32_t kCommandWrapperBytes = 31;
inline constexpr uint32_t kStatusWrapperBytes = 13;

// SCSI operation codes.
inline constexpr uint8_t kScsiTestUnitReady = 0x00;
inline constexpr uint8_t kScsiRequestSense = 0x03;
inline constexpr uint8_t kScsiInquiry = 0x12;
inline constexpr uint8_t kScsiReadCapacity10 = 0x25;
inline constexpr uint8_t kScsiRead10 = 0x28;
inline constexpr uint8_t kScsiWrite10 = 0x2A;

// The vendor and product the disk's INQUIRY data names.
inline constexpr const char *kInquiryVendor = "PELARIX ";
inline constexpr const char *kInquiryProduct = "DEMO DISK       ";

class StorageFunction : public UsbFunction {
 public:
  StorageFunction(uint8_t bulkIn, uint8_t bulkOut, uint32_t blocks);

  uint32_t Transfer(uint8_t endpoint, const std::vector<uint8_t> &out, uint32_t room,
                    std::vector<uint8_t> *in) override;

 private:
  enum class Phase { kCommand, kDataIn, kDataOut, kStatus };

  uint32_t Command(const std::vector<uint8_t> &wrapper);
  // Sets up the data phase of a command; false if the command failed.
  bool Execute(const uint8_t *block);
  bool BlockRange(const uint8_t *block, uint64_t *offset, uint64_t *bytes) const;
  uint32_t DataOut(const std::vector<uint8_t> &out);
  uint32_t DataIn(uint32_t room, std::vector<uint8_t> *in);
  void StatusWrapper(std::vector<uint8_t> *in);

  uint8_t bulkIn_;
  uint8_t bulkOut_;
  std::vector<uint8_t> disk_;
  Phase phase_ = Phase::kCommand;
  uint32_t tag_ = 0;
  uint32_t expected_ = 0;  // the wrapper's data transfer length
  uint32_t moved_ = 0;     // data bytes of this command so far
  uint8_t commandStatus_ = 0;
  std::vector<uint8_t> pendingIn_;
  uint64_t writeAt_ = 0;
  uint64_t writeLeft_ = 0;
  uint8_t senseKey_ = 0;
};

}  // namespace pelarix::demo
