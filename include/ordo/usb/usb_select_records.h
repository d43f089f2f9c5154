// Offsets of the select-configuration and select-interface wire records and
// of the pipe map (little-endian, 4-byte packing).
#pragma once

#include <cstddef>

#include "ordo/usb/cxx20.h"

namespace ordo::usb::select_record {

// Select-configuration record.
inline constexpr size_t kDescriptorOffset = 20;     // u32: where the copy of the descriptor is
inline constexpr size_t kConfigurationHandle = 28;  // u64
inline constexpr size_t kConfigurationInterfaces = 36;
// Select-interface record: its one interface information record.
inline constexpr size_t kInterfaceInterfaces = 28;

// Interface information record.
inline constexpr size_t kInfoLength = 0;  // u16
inline constexpr size_t kInfoNumber = 2;
inline constexpr size_t kInfoAlternate = 3;
inline constexpr size_t kInfoClass = 4;
inline constexpr size_t kInfoSubClass = 5;
inline constexpr size_t kInfoProtocol = 6;
inline constexpr size_t kInfoHandle = 8;      // u64
inline constexpr size_t kInfoPipeCount = 16;  // u32
inline constexpr size_t kInfoPipes = 20;
inline constexpr size_t kInfoCheckedSize = 16;

// Pipe record.
inline constexpr size_t kPipeRecordSize = 24;
inline constexpr size_t kPipeMaxPacketSize = 0;  // u16
inline constexpr size_t kPipeEndpointAddress = 2;
inline constexpr size_t kPipeInterval = 3;
inline constexpr size_t kPipeType = 4;    // u32
inline constexpr size_t kPipeHandle = 8;  // u64

// Pipe map: a u32 count, then 8 bytes per entry (u32 handle, u8 address).
inline constexpr size_t kPipeMapEntrySize = 8;
inline constexpr size_t kPipeMapExtra = 12;

}  // namespace ordo::usb::select_record
