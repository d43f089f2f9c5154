#include "usbconfig/functional_descriptor.h"

#include <new>

#include "ordo/usb/usb_config_log.h"
#include "usbconfig/descriptor_dump.h"

namespace ordo::usb {

bool TakeFunctionalDescriptor(DescriptorCursor &cursor, UnionDescriptorList &unions,
                              WalkPlace place) {
  std::unique_ptr<UnionFunctionalDescriptor> record(new (std::nothrow) UnionFunctionalDescriptor);
  if (!record) {
    UsbConfigLog(kUsbLogError, "Out of memory");
    return false;
  }
  const DescriptorView seen = cursor.Current();
  if (record->Parse(static_cast<uint32_t>(unions.size()), cursor)) {
    unions.push_back(std::move(record));
    return true;
  }
  if (place == WalkPlace::kInterface) {
    UsbConfigLog(kUsbLogError, "Functional Interface Descriptor - Parse failed (1)");
  } else {
    UsbConfigLog(kUsbLogError, "Functional Interface Descriptor - Parse failed (2)");
  }
  LogDescriptorHex(kUsbLogError, seen, nullptr);
  return true;
}

void PassUnknownClassSpecific(DescriptorCursor &cursor, WalkPlace place) {
  if (place == WalkPlace::kInterface) {
    UsbConfigLog(kUsbLogInformation, "Unknown descriptor of type USB_CS_INTERFACE (1)");
  } else {
    UsbConfigLog(kUsbLogInformation, "Unknown descriptor of type USB_CS_INTERFACE (2)");
  }
  LogDescriptorHex(kUsbLogInformation, cursor.Current(), nullptr);
  cursor.AdvanceOverCurrent();
}

}  // namespace ordo::usb
