// Arbitrary bytes as one configuration descriptor set, through parsing,
// grouping, every family question and the full descriptor dump.
//
// Input: byte 0 picks the device descriptor (bit 0: a communications device
// 02/00/00, so union descriptors are read; bit 1: the family cache holds the
// device), the rest is the set. Its bDescriptorType is forced to 0x02 and its
// wTotalLength to its own size, so the parser sees exactly the bytes there
// are.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ordo/usb/usb_model.h"

namespace {

using ordo::usb::UsbDeviceConfig;

// Formats every line as a real hook would, so format and arguments meet.
void FormattingHook(uint32_t /*level*/, const char *format, va_list args) {
  char line[8192];
  std::vsnprintf(line, sizeof line, format, args);
}

void AskEverything(const UsbDeviceConfig::Configuration &c) {
  const int32_t count = c.GetGroupCount();
  for (int32_t ordinal = -1; ordinal <= count; ++ordinal) (void)c.GetGroupMembers(ordinal);
  for (uint32_t number = 0; number < 256; ++number) {
    (void)c.GetInterfaceGroup(number);
    (void)ordo::usb::FamilyToString(c.GetInterfaceFamily(static_cast<uint8_t>(number)));
    (void)ordo::usb::FamilyToString(c.GetGroupFamily(number));
  }
  (void)c.GetUngroupedInterfaces();
  (void)c.GetFunctionalGroup().GetGroupedInterfaces();
  for (const auto &interface : c.GetInterfaces()) {
    (void)interface->GetFamily();
    for (int32_t pipe = 0; pipe < interface->GetPipeCount(); ++pipe) {
      (void)interface->GetPipeByOrdinal(static_cast<uint32_t>(pipe))->GetType();
    }
  }
}

// Selects the parsed configuration with one interface record per interface
// number the set declares, each asking for alternate setting 0.
void Select(UsbDeviceConfig &config, const UsbDeviceConfig::Configuration &c) {
  const uint8_t interfaces = static_cast<uint8_t>(c.GetNumInterfaces());
  std::vector<uint8_t> record(36 + 9 + static_cast<size_t>(interfaces) * 44, 0);
  const size_t copyAt = record.size() - 9;
  const uint8_t copy[9] = {9, 0x02, 9, 0, interfaces, c.GetConfigurationValue(), 0, 0x80, 0};
  std::memcpy(record.data() + copyAt, copy, sizeof copy);
  record[20] = static_cast<uint8_t>(copyAt);
  record[21] = static_cast<uint8_t>(copyAt >> 8);
  for (uint8_t i = 0; i < interfaces; ++i) {
    uint8_t *info = record.data() + 36 + 44 * i;
    info[0] = 44;
    info[2] = i;
  }
  config.SelectConfiguration(record.data(), static_cast<uint32_t>(record.size()));
  (void)config.GetPipeMap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 5 || size - 1 > 0xFFFF) return 0;
  const uint8_t selector = data[0];
  std::vector<uint8_t> set(data + 1, data + size);
  set[1] = 0x02;
  set[2] = static_cast<uint8_t>(set.size());
  set[3] = static_cast<uint8_t>(set.size() >> 8);

  uint8_t device[18] = {18,   0x01, 0x00, 0x02, 0,    0, 0, 64, 0x34,
                        0x12, 0x78, 0x56, 0x00, 0x01, 1, 2, 0,  1};
  if (selector & 1) device[4] = 0x02;
  ordo::usb::UsbConfigSetLogHook(FormattingHook, 0);
  if (selector & 2) ordo::usb::DeduceDeviceFamily(device);

  UsbDeviceConfig config;
  config.SetDeviceDescriptor(device);
  if (config.AddConfigDescriptor(0, set.data(), false)) {
    const UsbDeviceConfig::Configuration &c = *config.GetConfigurationByIndex(0);
    AskEverything(c);
    Select(config, c);
  }
  (void)config.IsSingleConfigComposite();
  return 0;
}
