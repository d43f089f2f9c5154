#include "usbconfig/descriptor_dump.h"

#include "ordo/usb/usb_config_log.h"

namespace ordo::usb {

void LogDescriptorHex(uint32_t level, const DescriptorView &descriptor, const char *prefix) {
  const size_t length = descriptor.Clip(0, descriptor.Length());
  UsbConfigLogHex(level, descriptor.Bytes(), static_cast<uint32_t>(length), prefix);
}

void DumpConfigurationDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  const char *p = kIndent2;
  UsbConfigLog(kUsbLogDetail, "Configuration Descriptor:");
  LogDescriptorHex(kUsbLogDetail, d, nullptr);
  UsbConfigLog(kUsbLogDetail, "%sbLength:             0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kUsbLogDetail, "%sdbDescriptorType:    0x%x", p, d.Byte(1));
  UsbConfigLog(kUsbLogDetail, "%swTotalLength:        0x%x  (%d)", p, d.Word(2), d.Word(2));
  UsbConfigLog(kUsbLogDetail, "%sbNumInterfaces:      0x%x", p, d.Byte(4));
  UsbConfigLog(kUsbLogDetail, "%sbConfigurationValue: 0x%x", p, d.Byte(5));
  UsbConfigLog(kUsbLogDetail, "%siConfiguration:      0x%x", p, d.Byte(6));
  UsbConfigLog(kUsbLogDetail, "%sbmAttributes:        0x%x", p, d.Byte(7));
  UsbConfigLog(kUsbLogDetail, "%sMaxPower:            0x%x", p, d.Byte(8));
}

void DumpInterfaceDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  const char *p = kIndent4;
  UsbConfigLog(kUsbLogDetail, "%sInterface Descriptor:", kIndent2);
  LogDescriptorHex(kUsbLogDetail, d, kIndent2);
  UsbConfigLog(kUsbLogDetail, "%sbLength:              0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kUsbLogDetail, "%sbDescriptorType:      0x%x", p, d.Byte(1));
  UsbConfigLog(kUsbLogDetail, "%sbInterfaceNumber:     0x%x", p, d.Byte(2));
  UsbConfigLog(kUsbLogDetail, "%sbAlternateSetting:    0x%x", p, d.Byte(3));
  UsbConfigLog(kUsbLogDetail, "%sbNumEndpoints:        0x%x", p, d.Byte(4));
  UsbConfigLog(kUsbLogDetail, "%sbInterfaceClass:      0x%x", p, d.Byte(5));
  UsbConfigLog(kUsbLogDetail, "%sbInterfaceSubClass:   0x%x", p, d.Byte(6));
  UsbConfigLog(kUsbLogDetail, "%sbInterfaceProtocol:   0x%x", p, d.Byte(7));
  UsbConfigLog(kUsbLogDetail, "%siInterface:           0x%x", p, d.Byte(8));
}

void DumpAssociationDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  const char *p = kIndent4;
  UsbConfigLog(kUsbLogDetail, "%sInterface Association Descriptor:", kIndent2);
  LogDescriptorHex(kUsbLogDetail, d, kIndent2);
  UsbConfigLog(kUsbLogDetail, "%sbLength:              0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kUsbLogDetail, "%sbDescriptorType:      0x%x", p, d.Byte(1));
  UsbConfigLog(kUsbLogDetail, "%sbFirstInterface:      0x%x", p, d.Byte(2));
  UsbConfigLog(kUsbLogDetail, "%sbInterfaceCount:      0x%x", p, d.Byte(3));
  UsbConfigLog(kUsbLogDetail, "%sbFunctionClass:       0x%x", p, d.Byte(4));
  UsbConfigLog(kUsbLogDetail, "%sbFunctionSubClass:    0x%x", p, d.Byte(5));
  UsbConfigLog(kUsbLogDetail, "%sbFunctionProtocol:    0x%x", p, d.Byte(6));
  UsbConfigLog(kUsbLogDetail, "%siFunction:            0x%x", p, d.Byte(7));
}

void DumpPipeDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  const char *p = kIndent6;
  const uint8_t address = d.Byte(2);
  UsbConfigLog(kUsbLogDetail, "%sPipe Descriptor:", kIndent4);
  LogDescriptorHex(kUsbLogDetail, d, kIndent4);
  UsbConfigLog(kUsbLogDetail, "%sbLength:             0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kUsbLogDetail, "%sbDescriptorType:     0x%x", p, d.Byte(1));
  UsbConfigLog(kUsbLogDetail, "%sbEndpointAddress:    0x%x (%s)", p, address,
               (address & 0x80) != 0 ? "in" : "out");
  UsbConfigLog(kUsbLogDetail, "%sbmAttributes:        0x%x", p, d.Byte(3));
  UsbConfigLog(kUsbLogDetail, "%swMaxPacketSize:      0x%x", p, d.Word(4));
  UsbConfigLog(kUsbLogDetail, "%sbInterval:           0x%x", p, d.Byte(6));
}

void DumpUnionDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  const char *p = kIndent6;
  UsbConfigLog(kUsbLogDetail, "%sUnion Funtion Descriptor:", kIndent4);
  LogDescriptorHex(kUsbLogDetail, d, kIndent4);
  UsbConfigLog(kUsbLogDetail, "%sbFunctionLength:      0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kUsbLogDetail, "%sbDescriptorType:      0x%x", p, d.Byte(1));
  UsbConfigLog(kUsbLogDetail, "%sbDescriptorSubtype:   0x%x", p, d.Byte(2));
}

void DumpHidDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  const char *p = kIndent6;
  UsbConfigLog(kUsbLogDetail, "%sHID Descriptor:", kIndent4);
  LogDescriptorHex(kUsbLogDetail, d, kIndent4);
  UsbConfigLog(kUsbLogDetail, "%sbLength               0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kUsbLogDetail, "%sbDescriptorType       0x%x", p, d.Byte(1));
}

void DumpVideoDescriptor(const DescriptorView &d) {
  if (!UsbConfigLogWanted(kUsbLogDetail)) {
    return;
  }
  UsbConfigLog(kUsbLogDetail, "%sVideo Interface Descriptor:", kIndent2);
  LogDescriptorHex(kUsbLogDetail, d, kIndent2);
}

}  // namespace ordo::usb
