// The family cache: what a platform that can identify vendor-specific
// devices found out about them, by idVendor and idProduct.
#include <map>

#include "ordo/usb/descriptor_view.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/usb_config_log.h"

namespace ordo::usb {
namespace {

// Process-wide and unguarded; it only ever grows.
std::map<uint32_t, uint32_t> familyCache;

uint32_t CacheKey(const uint8_t *deviceDescriptor) {
  const DescriptorView device = DescriptorView::OfDeviceDescriptor(deviceDescriptor);
  return (static_cast<uint32_t>(device.Word(8)) << 16) + device.Word(10);
}

}  // namespace

void LookupDeducedFamily(const uint8_t *deviceDescriptor, uint32_t &family) {
  if (deviceDescriptor == nullptr) {
    UsbConfigLog(kUsbLogError, "LookupDeducedFamily(): Bad arguments");
    return;
  }
  if (family != kFamilyVendor) {
    UsbConfigLog(kUsbLogInformation, "LookupDeducedFamily(): Called for non vendor specific");
    return;
  }
  const auto found = familyCache.find(CacheKey(deviceDescriptor));
  if (found == familyCache.end()) {
    UsbConfigLog(kUsbLogInformation, "LookupDeducedFamily(): Not found in cache");
    return;
  }
  UsbConfigLog(kUsbLogInformation, "LookupDeducedFamily(): found %x", found->second);
  // "unknown" tells nothing beyond "vendor".
  if (found->second != kFamilyUnknown) {
    family = found->second;
  }
}

void DeduceDeviceFamily(const uint8_t *deviceDescriptor) {
  if (deviceDescriptor == nullptr) {
    UsbConfigLog(kUsbLogError, "DeduceDeviceFamily(): Bad arguments");
    return;
  }
  familyCache[CacheKey(deviceDescriptor)] = IdentifyDeviceFamily(deviceDescriptor);
}

uint32_t IdentifyDeviceFamily(const uint8_t * /*deviceDescriptor*/) {
  UsbConfigLog(kUsbLogInformation, "IdentifyDeviceFamily(): Not implemented on Windows");
  return kFamilyUnknown;
}

}  // namespace ordo::usb
