#include "ordo/usb/usb_device_config.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "ordo/usb/usb_config_log.h"

namespace ordo::usb {
namespace {

// The one atomic of the model: handles are unique in the process until the
// counter wraps, and 0 is never handed out.
std::atomic<uint32_t> handleCounter{0x81000000};

}  // namespace

uint32_t UsbDeviceConfig::NextHandle() {
  uint32_t handle = ++handleCounter;
  if (handle == 0) {
    handle = ++handleCounter;
  }
  return handle;
}

UsbDeviceConfig::~UsbDeviceConfig() {
  for (auto &configuration : configurations_) {
    configuration.reset();
  }
  configurations_.clear();
  ReleasePipeMap();
}

bool UsbDeviceConfig::AddConfigDescriptor(uint32_t index, const uint8_t *descriptor,
                                          bool keepBuffer) {
  if (descriptor == nullptr || descriptor[1] != kDescConfiguration) {
    UsbConfigLog(kUsbLogError, "Failed to add config descriptor, invalid descriptor type");
    return false;
  }
  std::unique_ptr<Configuration> configuration(new (std::nothrow) Configuration);
  if (!configuration) {
    UsbConfigLog(kUsbLogError, "Out of memory");
    return false;
  }
  if (!configuration->Parse(index, descriptor, deviceDescriptor_, keepBuffer)) {
    return false;
  }
  configurations_.push_back(std::move(configuration));
  return true;
}

void UsbDeviceConfig::Reset() {
  activeConfiguration_ = nullptr;
  ReleasePipeMap();
  for (auto &configuration : configurations_) {
    configuration.reset();
  }
  configurations_.clear();
}

void UsbDeviceConfig::ReleasePipeMap() {
  std::free(pipeMap_);
  pipeMap_ = nullptr;
}

// By the ordinal the caller gave, not by list position.
UsbDeviceConfig::Configuration *UsbDeviceConfig::GetConfigurationByIndex(uint32_t index) const {
  for (const auto &configuration : configurations_) {
    if (static_cast<uint32_t>(configuration->GetIndex()) == index) {
      return configuration.get();
    }
  }
  return nullptr;
}

UsbDeviceConfig::Configuration *UsbDeviceConfig::GetConfigurationByValue(uint8_t value) const {
  for (const auto &configuration : configurations_) {
    if (configuration->GetConfigurationValue() == value) {
      return configuration.get();
    }
  }
  return nullptr;
}

// Counts interface objects, so one interface with two alternate settings
// already makes a composite.
bool UsbDeviceConfig::IsSingleConfigComposite() const {
  const Configuration *first = GetConfigurationByIndex(0);
  return configurations_.size() == 1 && first != nullptr && first->GetInterfaceObjectCount() > 1;
}

}  // namespace ordo::usb
