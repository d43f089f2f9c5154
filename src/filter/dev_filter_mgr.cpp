#include "ordo/usb/dev_filter_mgr.h"

#include <new>

#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/filter_dictionary.h"

namespace ordo::usb {

DevFilterMgr::~DevFilterMgr() {
  FilterDictionary::releaseInstance();
}

void DevFilterMgr::LoadDevice(DevFilterDevice &device, const uint8_t *deviceDesc,
                              const uint8_t *configDesc, int32_t configCount,
                              const uint32_t *pathInfo) {
  device.Load(deviceDesc, configDesc, configCount, pathInfo);
  if (deviceDesc != nullptr && deviceDesc[0] != 0 && device.GetDeviceDescriptor() == nullptr) {
    throw std::bad_alloc();
  }
}

}  // namespace ordo::usb
