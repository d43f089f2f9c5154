#include "ordo/usb/usb_device_config.h"
#include "usbconfig/descriptor_dump.h"

namespace ordo::usb {

bool UsbDeviceConfig::InterfaceAssociation::Parse(uint32_t /*associationOrdinal*/,
                                                  DescriptorCursor &cursor) {
  const DescriptorView seen = cursor.Current();
  if (seen.Type() != kDescInterfaceAssociation) {
    return false;
  }
  descriptor_ = seen;
  DumpAssociationDescriptor(seen);
  cursor.AdvanceOverCurrent();
  return true;
}

}  // namespace ordo::usb
