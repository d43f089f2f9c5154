// Configuration selection: select-configuration and select-interface
// records are filled in with handles and pipe data, and the pipe map lists
// the active configuration's pipes by handle.
#include <cstdlib>

#include "ordo/usb/usb_config_log.h"
#include "ordo/usb/usb_device_config.h"
#include "ordo/usb/usb_select_records.h"

namespace ordo::usb {
namespace {

namespace rec = select_record;

void Store16(uint8_t *at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

void Store32(uint8_t *at, uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    at[i] = static_cast<uint8_t>(value >> (8 * i));
  }
}

// Handles are 32 bits wide and go out zero-extended.
void StoreHandle(uint8_t *at, uint32_t handle) {
  Store32(at, handle);
  Store32(at + 4, 0);
}

void LogRecordTooSmall() {
  UsbConfigLog(kUsbLogError, "Select configuration/interface buffer is too small");
}

void LogConfigurationTooSmall() {
  UsbConfigLog(kUsbLogError, "Select configuration buffer is too small.");
}

void FillPipeRecord(uint8_t *at, const UsbDeviceConfig::Pipe &pipe) {
  Store16(at + rec::kPipeMaxPacketSize, pipe.GetMaxPacketSize());
  at[rec::kPipeEndpointAddress] = pipe.GetEndpointAddress();
  at[rec::kPipeInterval] = pipe.GetInterval();
  Store32(at + rec::kPipeType, pipe.GetType());
  StoreHandle(at + rec::kPipeHandle, pipe.GetHandle());
}

}  // namespace

bool UsbDeviceConfig::SelectConfiguration(uint8_t *record, uint32_t length) {
  activeConfiguration_ = nullptr;
  ReleasePipeMap();
  // The record must at least hold the offset of its descriptor copy.
  if (record == nullptr || length < rec::kDescriptorOffset + 4) {
    LogConfigurationTooSmall();
    return false;
  }
  const DescriptorView whole(record, length);
  const uint32_t copyOffset = whole.Word(rec::kDescriptorOffset) |
                              (static_cast<uint32_t>(whole.Word(rec::kDescriptorOffset + 2)) << 16);
  const DescriptorView copy = whole.From(copyOffset);
  if (static_cast<uint64_t>(copyOffset) + copy.Word(2) > length) {
    LogConfigurationTooSmall();
    return false;
  }
  Configuration *chosen = GetConfigurationByValue(copy.Byte(5));
  if (chosen == nullptr) {
    return true;
  }
  bool result =
      chosen->SelectInterfaces(record, rec::kConfigurationInterfaces, copy.Byte(4), length);
  if (result && length < rec::kConfigurationInterfaces) {
    // No room for the configuration handle.
    LogConfigurationTooSmall();
    result = false;
  }
  if (result) {
    StoreHandle(record + rec::kConfigurationHandle, chosen->GetHandle());
  }
  activeConfiguration_ = chosen;
  return result;
}

bool UsbDeviceConfig::SelectInterface(uint8_t *record, uint32_t length) {
  if (activeConfiguration_ == nullptr || record == nullptr) {
    return false;
  }
  return activeConfiguration_->SelectInterfaces(record, rec::kInterfaceInterfaces, 1, length);
}

UsbDeviceConfig::Pipe *UsbDeviceConfig::GetPipeByHandle(uint32_t handle) const {
  return activeConfiguration_ == nullptr ? nullptr : activeConfiguration_->GetPipeByHandle(handle);
}

const uint8_t *UsbDeviceConfig::GetPipeMap() {
  if (activeConfiguration_ != nullptr && pipeMap_ == nullptr) {
    uint32_t entries = 0;
    for (const auto &interface : activeConfiguration_->GetInterfaces()) {
      entries = interface->FillPipeMap(entries, nullptr);
    }
    pipeMap_ = static_cast<uint8_t *>(
        std::calloc(rec::kPipeMapEntrySize * entries + rec::kPipeMapExtra, 1));
    if (pipeMap_ != nullptr) {
      uint32_t filled = 0;
      for (const auto &interface : activeConfiguration_->GetInterfaces()) {
        filled = interface->FillPipeMap(filled, pipeMap_);
      }
    }
  }
  return pipeMap_;
}

uint32_t UsbDeviceConfig::Interface::FillPipeMap(uint32_t start, uint8_t *buffer) const {
  for (const auto &pipe : pipes_) {
    if (buffer != nullptr) {
      uint8_t *entry = buffer + 4 + rec::kPipeMapEntrySize * start;
      Store32(entry, pipe->GetHandle());
      entry[4] = pipe->GetEndpointAddress();
    }
    ++start;
  }
  if (buffer != nullptr) {
    Store32(buffer, start);
  }
  return start;
}

void UsbDeviceConfig::Configuration::DeselectAlternates(uint8_t number) {
  for (const auto &interface : interfaces_) {
    if (interface->GetNumber() == number) {
      interface->SetSelected(false);
    }
  }
}

UsbDeviceConfig::Pipe *UsbDeviceConfig::Configuration::GetPipeByHandle(uint32_t pipeHandle) const {
  for (const auto &interface : interfaces_) {
    if (Pipe *pipe = interface->GetPipeByHandle(pipeHandle)) {
      return pipe;
    }
  }
  return nullptr;
}

bool UsbDeviceConfig::Configuration::SelectInterfaces(uint8_t *buffer, size_t firstRecord,
                                                      uint32_t count, size_t bufferLength) {
  bool result = true;
  size_t at = firstRecord;
  for (uint32_t i = 0; i < count; ++i) {
    if (at + rec::kInfoCheckedSize > bufferLength) {
      LogRecordTooSmall();
      return false;
    }
    uint8_t *record = buffer + at;
    if (!SelectOneInterface(record, bufferLength - at)) {
      result = false;
    }
    // Later records are still worked on after a failed one.
    at += static_cast<size_t>(record[rec::kInfoLength] | (record[rec::kInfoLength + 1] << 8));
  }
  return result;
}

// `room`: bytes of the caller's buffer from the record's start on.
bool UsbDeviceConfig::Configuration::SelectOneInterface(uint8_t *record, size_t room) {
  const uint8_t number = record[rec::kInfoNumber];
  DeselectAlternates(number);
  Interface *interface = GetInterface(number, record[rec::kInfoAlternate]);
  if (interface == nullptr) {
    return true;
  }
  record[rec::kInfoClass] = interface->GetClass();
  record[rec::kInfoSubClass] = interface->GetSubClass();
  record[rec::kInfoProtocol] = interface->GetProtocol();
  StoreHandle(record + rec::kInfoHandle, interface->GetHandle());
  interface->SetSelected(true);
  if (room < rec::kInfoPipes) {
    // The pipe count itself lies beyond the buffer.
    LogRecordTooSmall();
    return false;
  }
  const uint8_t pipeCount = interface->GetNumEndpoints();
  Store32(record + rec::kInfoPipeCount, pipeCount);
  for (uint32_t index = 0; index < pipeCount; ++index) {
    const size_t pipeAt = rec::kInfoPipes + rec::kPipeRecordSize * index;
    if (pipeAt + rec::kPipeRecordSize > room) {
      LogRecordTooSmall();
      return false;
    }
    if (const Pipe *pipe = interface->GetPipeByOrdinal(index)) {
      FillPipeRecord(record + pipeAt, *pipe);
    }
  }
  return true;
}

}  // namespace ordo::usb
