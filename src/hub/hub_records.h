// The wire records of the hub channel: the plug-in record the library sends,
// the item record the hub delivers and the completion record the library
// sends back. These layouts are a contract with the hub, byte for byte; every
// field is little-endian. The structs give the fixed leading part of each
// record; records are read and written through memcpy because an item record
// may sit at any offset of its buffer (behind the caller's prefix).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pelarix {

static_assert(std::endian::native == std::endian::little,
              "the hub's records are copied as they lie in memory");

inline constexpr uint32_t kUsbDeviceDescriptorBytes = 18;

// ---------------------------------------------------------------------------
// HubPluginRecord: the input of IOCTL_HUB_PLUGIN_DEVICE. After these 44 bytes
// come the payload (device descriptor, configuration descriptor set, string
// store) and 3 reserved bytes.
struct HubPluginRecord {
  uint32_t plugNo;
  uint32_t clientVersion;
  uint8_t partial;   // 0 or 1
  uint8_t constant;  // always 1
  uint16_t reserved0;
  uint32_t deviceFlags;
  uint32_t reserved1[2];
  uint32_t plugParam1;
  uint32_t plugParam2;
  uint32_t plugParam3;
  uint32_t reserved2;
  uint32_t payloadLength;  // 18 + configuration length + string store length
};
static_assert(sizeof(HubPluginRecord) == 44);
static_assert(offsetof(HubPluginRecord, clientVersion) == 4);
static_assert(offsetof(HubPluginRecord, partial) == 8);
static_assert(offsetof(HubPluginRecord, constant) == 9);
static_assert(offsetof(HubPluginRecord, deviceFlags) == 12);
static_assert(offsetof(HubPluginRecord, reserved1) == 16);
static_assert(offsetof(HubPluginRecord, plugParam1) == 24);
static_assert(offsetof(HubPluginRecord, plugParam2) == 28);
static_assert(offsetof(HubPluginRecord, plugParam3) == 32);
static_assert(offsetof(HubPluginRecord, payloadLength) == 40);

inline constexpr uint32_t kHubPluginRecordTrailerBytes = 3;
inline constexpr uint32_t kHubPluginRecordOverhead =
    sizeof(HubPluginRecord) + kHubPluginRecordTrailerBytes;  // 47

// Payload length and total record size for a configuration set and string
// store of the given lengths; false if the record would not fit in 32 bits.
inline bool HubPluginRecordSizes(uint32_t configLength, uint32_t storeLength,
                                 uint32_t *payloadLength, uint32_t *recordSize) {
  uint64_t payload = uint64_t{kUsbDeviceDescriptorBytes} + configLength + storeLength;
  uint64_t total = payload + kHubPluginRecordOverhead;
  if (total > UINT32_MAX) {
    return false;
  }
  *payloadLength = static_cast<uint32_t>(payload);
  *recordSize = static_cast<uint32_t>(total);
  return true;
}

// Writes a whole record into record, which holds the size that
// HubPluginRecordSizes gave. The record is zero-filled first; the constant
// byte, the partial flag (any non-zero becomes 1) and the payload length are
// set here, the other fields come from fields.
inline void WriteHubPluginRecord(uint8_t *record, const HubPluginRecord &fields,
                                 const uint8_t *deviceDescriptor, const uint8_t *configDescriptor,
                                 uint32_t configLength, const uint8_t *stringStore,
                                 uint32_t storeLength) {
  uint32_t payloadLength = 0;
  uint32_t recordSize = 0;
  HubPluginRecordSizes(configLength, storeLength, &payloadLength, &recordSize);
  std::memset(record, 0, recordSize);
  HubPluginRecord header{};
  header.plugNo = fields.plugNo;
  header.clientVersion = fields.clientVersion;
  header.partial = fields.partial != 0 ? 1 : 0;
  header.constant = 1;
  header.deviceFlags = fields.deviceFlags;
  header.plugParam1 = fields.plugParam1;
  header.plugParam2 = fields.plugParam2;
  header.plugParam3 = fields.plugParam3;
  header.payloadLength = payloadLength;
  std::memcpy(record, &header, sizeof header);
  uint8_t *payload = record + sizeof header;
  std::memcpy(payload, deviceDescriptor, kUsbDeviceDescriptorBytes);
  if (configLength > 0) {
    std::memcpy(payload + kUsbDeviceDescriptorBytes, configDescriptor, configLength);
  }
  if (storeLength > 0) {
    std::memcpy(payload + kUsbDeviceDescriptorBytes + configLength, stringStore, storeLength);
  }
}

// ---------------------------------------------------------------------------
// HubItemRecord: the output of IOCTL_HUB_GET_ITEM. The data follows these 40
// bytes.
inline constexpr uint32_t kHubItemRequest = 0;  // a request with data
inline constexpr uint32_t kHubItemNotice = 1;   // a notice without data
// A notice without data that the library never completes by itself.
inline constexpr uint32_t kHubItemNoticeNoCompletion = 2;

struct HubItemRecord {
  uint32_t type;
  uint32_t itemId;  // 0 marks a blank record
  uint32_t plugNo;
  uint32_t reserved;
  uint32_t params[4];
  uint32_t dataLength;    // bytes of data behind the header
  uint32_t noCompletion;  // non-zero: not completed by the library when dropped
};
static_assert(sizeof(HubItemRecord) == 40);
static_assert(offsetof(HubItemRecord, itemId) == 4);
static_assert(offsetof(HubItemRecord, plugNo) == 8);
static_assert(offsetof(HubItemRecord, params) == 16);
static_assert(offsetof(HubItemRecord, dataLength) == 32);
static_assert(offsetof(HubItemRecord, noCompletion) == 36);

inline constexpr uint32_t kHubItemRecordHeaderBytes = sizeof(HubItemRecord);

inline HubItemRecord ReadHubItemRecord(const uint8_t *record) {
  HubItemRecord header{};
  std::memcpy(&header, record, sizeof header);
  return header;
}

inline void WriteHubItemRecord(uint8_t *record, const HubItemRecord &header) {
  std::memcpy(record, &header, sizeof header);
}

// ---------------------------------------------------------------------------
// The one request the library builds itself: GET_DESCRIPTOR of a string from
// the device, as a HubItemRecord whose data is a USB request block in the
// stack's 32-bit layout (transfer buffer given as an offset). 120 bytes in
// all; the answer carries the same 80-byte block and the descriptor behind it.
inline constexpr uint32_t kStringRequestBlockBytes = 80;
inline constexpr uint32_t kStringRequestRecordBytes =
    kHubItemRecordHeaderBytes + kStringRequestBlockBytes;  // 120
inline constexpr uint32_t kStringRequestAnswerBytes = 255;
inline constexpr uint16_t kUrbGetDescriptorFromDevice = 0x000B;
inline constexpr uint8_t kUsbStringDescriptorType = 3;
// Offsets in the block (the record's data): its status, and in the answer the
// string descriptor behind the block.
inline constexpr uint32_t kRequestBlockStatusOffset = 4;
inline constexpr uint32_t kRequestBlockDescriptorOffset = kStringRequestBlockBytes;

// Writes the whole request into record, which holds kStringRequestRecordBytes.
inline void WriteStringDescriptorRequest(uint8_t *record, uint32_t itemId, uint8_t index,
                                         uint16_t language) {
  std::memset(record, 0, kStringRequestRecordBytes);
  HubItemRecord header{};
  header.type = kHubItemRequest;
  header.itemId = itemId;  // the PlugNo stays 0
  header.params[0] = 3;
  header.params[1] = kStringRequestBlockBytes;
  header.params[2] = 1;
  header.params[3] = kStringRequestAnswerBytes;
  WriteHubItemRecord(record, header);
  uint8_t *block = record + kHubItemRecordHeaderBytes;
  const uint16_t blockLength = kStringRequestBlockBytes;
  std::memcpy(block + 0, &blockLength, 2);
  std::memcpy(block + 2, &kUrbGetDescriptorFromDevice, 2);
  const uint32_t transferLength = kStringRequestAnswerBytes;
  const uint32_t transferOffset = blockLength;  // the data follows the block
  std::memcpy(block + 24, &transferLength, 4);
  std::memcpy(block + 28, &transferOffset, 4);
  block[74] = index;
  block[75] = kUsbStringDescriptorType;
  std::memcpy(block + 76, &language, 2);
}

// ---------------------------------------------------------------------------
// HubCompleteRecord: the input of IOCTL_HUB_COMPLETE_ITEM, these 12 bytes and
// then dataLength bytes of answer.
inline constexpr uint32_t kHubCompleteUnserved = 0xFFFFFFFF;  // status of an item nobody served

struct HubCompleteRecord {
  uint32_t itemId;
  uint32_t status;
  uint32_t dataLength;
};
static_assert(sizeof(HubCompleteRecord) == 12);
static_assert(offsetof(HubCompleteRecord, status) == 4);
static_assert(offsetof(HubCompleteRecord, dataLength) == 8);

inline constexpr uint32_t kHubCompleteRecordHeaderBytes = sizeof(HubCompleteRecord);

// Total size of a completion with length bytes of data; false past 32 bits.
inline bool HubCompleteRecordSize(uint32_t length, uint32_t *recordSize) {
  uint64_t total = uint64_t{kHubCompleteRecordHeaderBytes} + length;
  if (total > UINT32_MAX) {
    return false;
  }
  *recordSize = static_cast<uint32_t>(total);
  return true;
}

// Writes header and data (data may be null: the data bytes stay as they are).
inline void WriteHubCompleteRecord(uint8_t *record, uint32_t itemId, uint32_t status,
                                   const void *data, uint32_t length) {
  HubCompleteRecord header{itemId, status, length};
  std::memcpy(record, &header, sizeof header);
  if (data != nullptr && length > 0) {
    std::memcpy(record + sizeof header, data, length);
  }
}

inline HubCompleteRecord ReadHubCompleteRecord(const uint8_t *record) {
  HubCompleteRecord header{};
  std::memcpy(&header, record, sizeof header);
  return header;
}

}  // namespace pelarix
