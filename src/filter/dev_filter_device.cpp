#include "ordo/usb/dev_filter_device.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "filter/comma_list.h"
#include "ordo/usb/descriptor_view.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/usb_config_log.h"

namespace ordo::usb {
namespace {

// pathInfo: four bits of depth, then one nibble per hub level.
constexpr uint32_t kPathDepthMask = 0xF;
constexpr uint32_t kPathUnknownWord = 0xF;
constexpr uint32_t kPathMaxDepth = 7;

constexpr size_t kOffsetVendor = 8;
constexpr size_t kOffsetProduct = 10;
constexpr size_t kOffsetNumConfigurations = 17;
constexpr size_t kOffsetTotalLength = 2;

std::string HexWord(uint16_t value) {
  char text[8];
  std::snprintf(text, sizeof text, "%04x", value);
  return text;
}

// The ports level by level, "1/4/11"; the two texts in angle brackets where
// the word holds no path.
std::string NumericPath(uint32_t pathInfo) {
  if (pathInfo == 0 || pathInfo == kPathUnknownWord) {
    return "<invalid>";
  }
  const uint32_t depth = pathInfo & kPathDepthMask;
  if (depth > kPathMaxDepth) {
    return "<malformed pathInfo>";
  }
  std::string path;
  for (uint32_t level = 0; level < depth; ++level) {
    if (level != 0) {
      path += "/";
    }
    path += std::to_string((pathInfo >> (4 * (level + 1))) & 0xF);
  }
  return path;
}

// A decimal number as strtol reads it: leading digits, 0 for none.
uint32_t LeadingDecimal(const std::string &text) {
  uint32_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') {
      break;
    }
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  return value;
}

void OrFamily(DevFamily &into, const DevFamily &one) {
  into.base |= one.base;
  into.sub |= one.sub;
}

}  // namespace

DevFilterDevice::DevFilterDevice() {
  UsbConfigSetLogHook(GetFilterLogHook(), GetFilterLogThreshold());
}

DevFilterDevice::~DevFilterDevice() = default;

void DevFilterDevice::Load(const uint8_t *deviceDescriptor, const uint8_t *configDescriptors,
                           int32_t configCount, const uint32_t *pathInfo) {
  // The model must not keep pointing at a copy that is gone.
  config_.SetDeviceDescriptor(nullptr);
  deviceDescriptor_.reset();
  if (pathInfo != nullptr) {
    std::memcpy(&pathInfo_, pathInfo, sizeof pathInfo_);
  }
  if (deviceDescriptor != nullptr && deviceDescriptor[0] != 0) {
    const uint8_t length = deviceDescriptor[0];
    deviceDescriptor_.reset(new (std::nothrow) uint8_t[length]);
    if (deviceDescriptor_) {
      std::memcpy(deviceDescriptor_.get(), deviceDescriptor, length);
    }
  }
  if (deviceDescriptor_ && configDescriptors != nullptr) {
    config_.SetDeviceDescriptor(deviceDescriptor_.get());
    const int32_t count = configCount < 0 ? GetNumConfigurations() : configCount;
    const uint8_t *cursor = configDescriptors;
    for (int32_t n = 0; n < count; ++n) {
      config_.AddConfigDescriptor(static_cast<uint32_t>(config_.GetConfigurationCount()), cursor,
                                  false);
      // The next set's place is asked only when there is a next set: the
      // buffer carries no length, and a single set may be shorter than the
      // four bytes that hold wTotalLength.
      if (n + 1 < count) {
        cursor += cursor[kOffsetTotalLength] | (cursor[kOffsetTotalLength + 1] << 8);
      }
    }
  }
  LogDevice();
}

int32_t DevFilterDevice::GetNumConfigurations() const {
  if (!deviceDescriptor_) {
    return 0;
  }
  return DescriptorView::OfDeviceDescriptor(deviceDescriptor_.get()).Byte(kOffsetNumConfigurations);
}

std::string DevFilterDevice::GetIdString() const {
  if (!deviceDescriptor_) {
    return "";
  }
  const DescriptorView device = DescriptorView::OfDeviceDescriptor(deviceDescriptor_.get());
  return "vid-" + HexWord(device.Word(kOffsetVendor)) + "_pid-" +
         HexWord(device.Word(kOffsetProduct));
}

std::string DevFilterDevice::GetPathString() const {
  const std::string path = NumericPath(pathInfo_);
  const size_t lastSlash = path.rfind('/');
  if (path.empty() || lastSlash == std::string::npos) {
    return "Error";
  }
  char port[16];
  std::snprintf(port, sizeof port, "%02x", LeadingDecimal(path.substr(lastSlash + 1)));
  return "bus-" + path.substr(0, lastSlash) + "_port-" + port;
}

bool DevFilterDevice::IsComposite() const {
  return GetNumConfigurations() == 1 && GetInterfaceCount() > 1;
}

std::vector<const DevFilterDevice::Configuration *> DevFilterDevice::Configurations() const {
  std::vector<const Configuration *> found;
  for (int32_t ordinal = 0; ordinal < GetParsedConfigCount(); ++ordinal) {
    const Configuration *configuration =
        config_.GetConfigurationByIndex(static_cast<uint32_t>(ordinal));
    if (configuration != nullptr) {
      found.push_back(configuration);
    }
  }
  return found;
}

int32_t DevFilterDevice::GetInterfaceCount() const {
  int32_t count = 0;
  for (const Configuration *configuration : Configurations()) {
    count += configuration->GetNumInterfaces();
  }
  return count;
}

int32_t DevFilterDevice::GetGroupCount() const {
  int32_t count = 0;
  for (const Configuration *configuration : Configurations()) {
    count += configuration->GetGroupCount();
  }
  return count;
}

const DevFilterDevice::Configuration *DevFilterDevice::FindByRemainder(uint32_t &index,
                                                                       bool byGroups) const {
  for (const Configuration *configuration : Configurations()) {
    const auto count = static_cast<uint32_t>(byGroups ? configuration->GetGroupCount()
                                                      : configuration->GetNumInterfaces());
    if (count > index) {
      return configuration;
    }
    index -= count;
  }
  return nullptr;
}

const DevFilterDevice::Configuration *DevFilterDevice::FindByTotal(uint32_t index,
                                                                   bool byGroups) const {
  uint32_t total = 0;
  for (const Configuration *configuration : Configurations()) {
    total += static_cast<uint32_t>(byGroups ? configuration->GetGroupCount()
                                            : configuration->GetNumInterfaces());
    if (total > index) {
      return configuration;
    }
  }
  return nullptr;
}

DevFamily DevFilterDevice::GetInterfaceFamily(uint32_t index) const {
  uint32_t remainder = index;
  const Configuration *configuration = FindByRemainder(remainder, false);
  if (configuration == nullptr) {
    return kUnknownFamily;
  }
  return configuration->GetInterfaceFamily(static_cast<uint8_t>(remainder));
}

// An index is not made relative to its configuration here: in a device of
// several configurations it may count in more than one of them.
DevFamily DevFilterDevice::GetFamilyOfInterfaces(const std::vector<int32_t> &indices) const {
  DevFamily family{0, 0};
  for (const Configuration *configuration : Configurations()) {
    for (const int32_t index : indices) {
      if (index < configuration->GetNumInterfaces()) {
        OrFamily(family, configuration->GetInterfaceFamily(static_cast<uint8_t>(index)));
      }
    }
  }
  if (family.base == 0) {
    family.base = kFamilyUnknown;
  }
  if (family.sub == 0) {
    family.sub = kSubFamilyUnknown;
  }
  return family;
}

DevFamily DevFilterDevice::GetGroupFamily(uint32_t ordinal) const {
  uint32_t remainder = ordinal;
  const Configuration *configuration = FindByRemainder(remainder, true);
  if (configuration == nullptr) {
    return kUnknownFamily;
  }
  return configuration->GetGroupFamily(remainder);
}

// A plain OR of both halves: unlike the OR within one configuration, a sub
// of 1 (unknown) is kept beside the others.
DevFamily DevFilterDevice::GetDeviceFamily() const {
  DevFamily family{0, 0};
  for (const Configuration *configuration : Configurations()) {
    for (int32_t number = 0; number < configuration->GetNumInterfaces(); ++number) {
      OrFamily(family, configuration->GetInterfaceFamily(static_cast<uint8_t>(number)));
    }
  }
  return family.base == 0 ? kUnknownFamily : family;
}

std::vector<std::string> DevFilterDevice::GetDeviceFamilyNames() const {
  return FamilyToNames(GetDeviceFamily(), true);
}

// The index is handed on unchanged, not made relative to the configuration.
std::vector<uint8_t> DevFilterDevice::GetInterfaceGroup(uint32_t index) const {
  const Configuration *configuration = FindByTotal(index, false);
  return configuration == nullptr ? std::vector<uint8_t>{}
                                  : configuration->GetInterfaceGroup(index);
}

std::vector<uint8_t> DevFilterDevice::GetGroupMembers(uint32_t ordinal) const {
  const Configuration *configuration = FindByTotal(ordinal, true);
  return configuration == nullptr ? std::vector<uint8_t>{}
                                  : configuration->GetGroupMembers(static_cast<int32_t>(ordinal));
}

std::string DevFilterDevice::GetGroupMembersString(uint32_t ordinal) const {
  return CommaList(GetGroupMembers(ordinal));
}

std::vector<uint8_t> DevFilterDevice::GetUngroupedInterfaces() const {
  const Configuration *first = config_.GetConfigurationByIndex(0);
  return first == nullptr ? std::vector<uint8_t>{} : first->GetUngroupedInterfaces();
}

std::string DevFilterDevice::GetUngroupedInterfacesString() const {
  return CommaList(GetUngroupedInterfaces());
}

// The interface lines restart at 0 in each configuration while the family
// is asked by flat index, so a second configuration's lines show the first
// interfaces of the device: that is the text the log has always had.
void DevFilterDevice::LogDevice() const {
  if (GetFilterLogHook() == nullptr) {
    return;
  }
  const DescriptorView device = DescriptorView::OfDeviceDescriptor(deviceDescriptor_.get());
  DevFltrLog(2, "Device Filter got device:");
  DevFltrLog(2, "Device id: Vid-" + HexWord(device.Word(kOffsetVendor)) + "_Pid-" +
                    HexWord(device.Word(kOffsetProduct)));
  DevFltrLog(2, "Path: " + GetPathString());
  DevFltrLog(2, "Config count: " + std::to_string(GetParsedConfigCount()));
  for (const Configuration *configuration : Configurations()) {
    DevFltrLog(2, "Config num: " + std::to_string(configuration->GetIndex()));
    DevFltrLog(2, "Interface count: " + std::to_string(configuration->GetNumInterfaces()));
    for (int32_t i = 0; i < configuration->GetNumInterfaces(); ++i) {
      DevFltrLog(2, "Interface [" + std::to_string(i) + "] - Family(s): " +
                        FamilyToString(GetInterfaceFamily(static_cast<uint32_t>(i))));
    }
  }
}

}  // namespace ordo::usb
