#include "ordo/usb/usb_device_config.h"
#include "usbconfig/descriptor_dump.h"

namespace ordo::usb {

bool UsbDeviceConfig::Pipe::Parse(uint32_t pipeOrdinal, DescriptorCursor &cursor) {
  ordinal_ = pipeOrdinal;
  handle_ = NextHandle();
  descriptor_ = cursor.Current();
  DumpPipeDescriptor(descriptor_);
  cursor.AdvanceOverCurrent();
  return true;
}

// 0 control, 1 isochronous, 2 bulk, 3 interrupt: the two bits leave no
// other value.
uint32_t UsbDeviceConfig::Pipe::GetType() const {
  return descriptor_.Byte(3) & 3u;
}

}  // namespace ordo::usb
