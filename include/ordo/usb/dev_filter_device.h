// What the filter engine sees of one USB device: its device descriptor, the
// parsed configurations and its position on the client's bus. A manager
// fills one per question from the raw descriptors and drops it afterwards;
// every question the phases ask about a device goes through here.
//
// Interfaces are addressed by a flat index that runs on through all
// configurations; groups by an ordinal that does the same.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/usb_device_config.h"

namespace ordo::usb {

class DevFilterDevice {
 public:
  // Hands the filter log's hook and threshold on to the descriptor model, so
  // that the parse logs to the same place as the filter.
  DevFilterDevice();
  ~DevFilterDevice();
  DevFilterDevice(const DevFilterDevice &) = delete;
  DevFilterDevice &operator=(const DevFilterDevice &) = delete;

  // Copies bLength bytes of the device descriptor and parses configCount
  // configuration sets that stand back to back at configDescriptors (a
  // negative count means bNumConfigurations). Nothing of the caller's
  // buffers is kept. Always ends with the device's dump in the filter log.
  void Load(const uint8_t *deviceDescriptor, const uint8_t *configDescriptors, int32_t configCount,
            const uint32_t *pathInfo);

  const uint8_t *GetDeviceDescriptor() const { return deviceDescriptor_.get(); }
  uint32_t GetPathInfo() const { return pathInfo_; }
  const UsbDeviceConfig &GetConfig() const { return config_; }

  int32_t GetNumConfigurations() const;
  int32_t GetParsedConfigCount() const { return config_.GetConfigurationCount(); }
  // "vid-vvvv_pid-pppp", or "" without a descriptor.
  std::string GetIdString() const;
  // "bus-<ports>_port-<hh>", or "Error" where no such text can be made.
  std::string GetPathString() const;
  bool IsComposite() const;

  int32_t GetInterfaceCount() const;
  int32_t GetGroupCount() const;

  DevFamily GetInterfaceFamily(uint32_t index) const;
  DevFamily GetFamilyOfInterfaces(const std::vector<int32_t> &indices) const;
  DevFamily GetGroupFamily(uint32_t ordinal) const;
  DevFamily GetDeviceFamily() const;
  std::vector<std::string> GetDeviceFamilyNames() const;

  std::vector<uint8_t> GetInterfaceGroup(uint32_t index) const;
  std::vector<uint8_t> GetGroupMembers(uint32_t ordinal) const;
  std::string GetGroupMembersString(uint32_t ordinal) const;
  std::vector<uint8_t> GetUngroupedInterfaces() const;
  std::string GetUngroupedInterfacesString() const;

 private:
  using Configuration = UsbDeviceConfig::Configuration;

  // The parsed configurations in ordinal order; an ordinal without one is
  // left out.
  std::vector<const Configuration *> Configurations() const;
  // The flat index (or group ordinal) walk: the configuration in which
  // `index` falls, with `index` made relative to it, or null.
  const Configuration *FindByRemainder(uint32_t &index, bool byGroups) const;
  // The configuration in which the running total of counts passes `index`.
  const Configuration *FindByTotal(uint32_t index, bool byGroups) const;
  void LogDevice() const;

  std::unique_ptr<uint8_t[]> deviceDescriptor_;
  uint32_t pathInfo_ = 0;
  UsbDeviceConfig config_;
};

}  // namespace ordo::usb
