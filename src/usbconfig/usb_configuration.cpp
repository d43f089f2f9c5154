#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "ordo/usb/usb_config_log.h"
#include "ordo/usb/usb_device_config.h"
#include "usbconfig/descriptor_dump.h"
#include "usbconfig/functional_descriptor.h"

namespace ordo::usb {
namespace {

constexpr uint8_t kCommClass = 0x02;
constexpr uint8_t kVideoClass = 0x0E;
constexpr uint8_t kVideoInterfaceCollection = 0x03;
// The sub-family answered for an interface number that no interface has;
// the filter's outcomes rest on this value.
constexpr uint32_t kNoInterfaceSubFamily = 2;

// A device that declares itself a communications device at device level
// (class 2, subclass 0, protocol 0) is the only one whose union functional
// descriptors are read.
bool IsCommDevice(const uint8_t *deviceDescriptor) {
  const DescriptorView device = DescriptorView::OfDeviceDescriptor(deviceDescriptor);
  return device.Byte(4) == kCommClass && device.Byte(5) == 0 && device.Byte(6) == 0;
}

bool IsVideoFunction(const UsbDeviceConfig::InterfaceAssociation &association) {
  return association.GetFunctionClass() == kVideoClass &&
         association.GetFunctionSubClass() == kVideoInterfaceCollection &&
         association.GetFunctionProtocol() == 0;
}

template <typename T>
std::unique_ptr<T> CreateOrLog() {
  std::unique_ptr<T> object(new (std::nothrow) T);
  if (!object) {
    UsbConfigLog(kUsbLogError, "Out of memory");
  }
  return object;
}

}  // namespace

UsbDeviceConfig::Configuration::~Configuration() {
  for (auto &interface : interfaces_) {
    interface.reset();
  }
  interfaces_.clear();
  for (auto &association : associations_) {
    association.reset();
  }
  associations_.clear();
  for (auto &record : unionDescriptors_) {
    record.reset();
  }
  unionDescriptors_.clear();
  std::free(descriptor_);
}

bool UsbDeviceConfig::Configuration::Parse(uint32_t configIndex, const uint8_t *descriptor,
                                           const uint8_t *deviceDescriptor, bool keepBuffer) {
  index_ = configIndex;
  if (!TakeBuffer(descriptor, keepBuffer)) {
    return false;
  }
  UsbConfigLog(kUsbLogInformation, "Descriptor Dump:");
  UsbConfigLogHex(kUsbLogInformation, descriptor_, static_cast<uint32_t>(view_.Available()),
                  nullptr);
  return WalkDescriptors(deviceDescriptor);
}

// wTotalLength is taken on trust: the caller's set holds that many bytes.
bool UsbDeviceConfig::Configuration::TakeBuffer(const uint8_t *descriptor, bool keepBuffer) {
  const size_t totalLength = static_cast<size_t>(descriptor[2] | (descriptor[3] << 8));
  if (keepBuffer) {
    // The caller hands over a malloc'd buffer, released like a copy.
    descriptor_ = const_cast<uint8_t *>(descriptor);
  } else {
    descriptor_ = static_cast<uint8_t *>(std::malloc(std::max<size_t>(totalLength, 1)));
    if (descriptor_ == nullptr) {
      UsbConfigLog(kUsbLogError, "Out of memory");
      return false;
    }
    std::memcpy(descriptor_, descriptor, totalLength);
  }
  view_ = DescriptorView(descriptor_, totalLength);
  return true;
}

bool UsbDeviceConfig::Configuration::WalkDescriptors(const uint8_t *deviceDescriptor) {
  const bool commDevice = IsCommDevice(deviceDescriptor);
  bool videoFunction = false;
  handle_ = NextHandle();
  DumpConfigurationDescriptor(view_);
  DescriptorCursor cursor(view_, view_.Length());
  uint32_t interfaceOrdinal = 0;
  uint32_t associationCount = 0;
  while (cursor.BeforeEnd() && !cursor.AtTerminator()) {
    const DescriptorView seen = cursor.Current();
    if (seen.Type() == kDescInterface) {
      auto interface = CreateOrLog<Interface>();
      if (!interface) {
        return false;
      }
      const uint32_t flags = (commDevice ? Interface::kCommDevice : 0u) |
                             (videoFunction ? Interface::kVideoFunction : 0u);
      if (!interface->Parse(interfaceOrdinal, cursor, unionDescriptors_, flags, deviceDescriptor)) {
        return false;
      }
      ++interfaceOrdinal;
      interfaces_.push_back(std::move(interface));
    } else if (seen.Type() == kDescInterfaceAssociation) {
      auto association = CreateOrLog<InterfaceAssociation>();
      if (!association || !association->Parse(associationCount, cursor)) {
        return false;
      }
      ++associationCount;
      // Each association decides for everything behind it.
      videoFunction = IsVideoFunction(*association);
      associations_.push_back(std::move(association));
    } else if (seen.Type() == kDescCsInterface && commDevice) {
      if (!TakeFunctionalDescriptor(cursor, unionDescriptors_, WalkPlace::kTopLevel)) {
        return false;
      }
    } else if (seen.Type() == kDescCsInterface && videoFunction) {
      DumpVideoDescriptor(seen);
      cursor.AdvanceOverCurrent();
    } else if (seen.Type() == kDescCsInterface) {
      PassUnknownClassSpecific(cursor, WalkPlace::kTopLevel);
    } else {
      UsbConfigLog(kUsbLogInformation, "Unknown Descriptor (2)");
      cursor.AdvanceOverCurrent();
    }
  }
  GroupInterfaces(associationCount);
  return true;
}

// Exactly one rule: a union silences the associations of the same set.
void UsbDeviceConfig::Configuration::GroupInterfaces(uint32_t associationCount) {
  if (!unionDescriptors_.empty()) {
    functionalGroup_.GroupByUnion(unionDescriptors_, interfaces_);
  } else if (associationCount != 0) {
    functionalGroup_.GroupByAssociation(associations_, interfaces_);
  } else {
    functionalGroup_.GroupByAdjacency(interfaces_);
  }
}

UsbDeviceConfig::Interface *UsbDeviceConfig::Configuration::GetInterfaceByOrdinal(
    uint32_t interfaceOrdinal) const {
  for (const auto &interface : interfaces_) {
    if (interface->GetOrdinal() == interfaceOrdinal) {
      return interface.get();
    }
  }
  return nullptr;
}

UsbDeviceConfig::Interface *UsbDeviceConfig::Configuration::GetInterface(uint8_t number,
                                                                         uint8_t alternate) const {
  for (const auto &interface : interfaces_) {
    if (interface->GetNumber() == number && interface->GetAlternateSetting() == alternate) {
      return interface.get();
    }
  }
  return nullptr;
}

std::vector<UsbDeviceConfig::Interface *> UsbDeviceConfig::Configuration::GetInterfacesByNumber(
    uint8_t number) const {
  std::vector<Interface *> alternates;
  for (const auto &interface : interfaces_) {
    if (interface->GetNumber() == number) {
      alternates.push_back(interface.get());
    }
  }
  return alternates;
}

// Key and group ordinal are different numbers: the key found for the
// interface is used as an ordinal here, which is right only while every key
// below it belongs to a counting group. Filter outcomes rest on this.
std::vector<uint8_t> UsbDeviceConfig::Configuration::GetInterfaceGroup(uint32_t number) const {
  const int32_t key = functionalGroup_.GetGroupOfInterface(number);
  if (key == -1) {
    return {static_cast<uint8_t>(number)};
  }
  return functionalGroup_.GetGroupMembers(key);
}

// Interface numbers are taken to run from 0 without holes.
std::vector<uint8_t> UsbDeviceConfig::Configuration::GetUngroupedInterfaces() const {
  const std::vector<uint8_t> grouped = functionalGroup_.GetGroupedInterfaces();
  std::vector<uint8_t> ungrouped;
  for (int32_t number = 0; number < GetNumInterfaces(); ++number) {
    if (std::find(grouped.begin(), grouped.end(), number) == grouped.end()) {
      ungrouped.push_back(static_cast<uint8_t>(number));
    }
  }
  return ungrouped;
}

// Over all alternate settings of the number. A number that no interface has
// answers base 0, sub 2, unlike the other family operations.
DevFamily UsbDeviceConfig::Configuration::GetInterfaceFamily(uint8_t number) const {
  DevFamily family{0, 0};
  for (const auto &interface : interfaces_) {
    if (interface->GetNumber() != number) {
      continue;
    }
    const DevFamily one = interface->GetFamily();
    family.base |= one.base;
    if (one.sub != kSubFamilyUnknown) {
      family.sub |= one.sub;
    }
  }
  if (family.base == 0) {
    family.sub = kNoInterfaceSubFamily;
  }
  if (family.sub == 0) {
    family.sub = kSubFamilyUnknown;
  }
  return family;
}

}  // namespace ordo::usb
