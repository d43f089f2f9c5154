// The USB descriptor model: one device's raw descriptors as a tree of
// configurations, interfaces (one object per alternate setting), pipes,
// interface associations and union functional descriptors, with the groups
// of interfaces that must travel together when a composite device is split.
//
// Objects point into their configuration's copy of the descriptor set and
// read the little-endian fields in place; a parent owns its children and
// deletes them in list order. Interfaces are numbered three ways that aren't
// interchangeable: bInterfaceNumber, the ordinal of an Interface object
// (which counts alternate settings) and the filter's flat index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/descriptor_view.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/union_functional_descriptor.h"

namespace ordo::usb {

// Descriptor type codes that the walk knows.
inline constexpr uint8_t kDescConfiguration = 0x02;
inline constexpr uint8_t kDescInterface = 0x04;
inline constexpr uint8_t kDescEndpoint = 0x05;
inline constexpr uint8_t kDescInterfaceAssociation = 0x0B;
inline constexpr uint8_t kDescHid = 0x21;
inline constexpr uint8_t kDescCsInterface = 0x24;  // USB_CS_INTERFACE
inline constexpr uint8_t kDescCsEndpoint = 0x25;

class UsbDeviceConfig {
 public:
  class Configuration;
  class Interface;
  class Pipe;
  class InterfaceAssociation;
  class InterfaceFunctionalGroup;

  UsbDeviceConfig() = default;
  virtual ~UsbDeviceConfig();
  UsbDeviceConfig(const UsbDeviceConfig &) = delete;
  UsbDeviceConfig &operator=(const UsbDeviceConfig &) = delete;

  // Handles of configurations, interfaces and pipes: process-wide, never 0.
  static uint32_t NextHandle();

  // The device descriptor isn't copied; its owner outlives this object.
  void SetDeviceDescriptor(const uint8_t *descriptor) { deviceDescriptor_ = descriptor; }
  const uint8_t *GetDeviceDescriptor() const { return deviceDescriptor_; }

  // Parses one configuration descriptor set of wTotalLength bytes. With
  // keepBuffer the set, which must come from malloc, is adopted instead of
  // copied.
  bool AddConfigDescriptor(uint32_t index, const uint8_t *descriptor, bool keepBuffer);
  void Reset();
  int32_t GetConfigurationCount() const { return static_cast<int32_t>(configurations_.size()); }
  Configuration *GetConfigurationByIndex(uint32_t index) const;
  Configuration *GetConfigurationByValue(uint8_t value) const;
  bool IsSingleConfigComposite() const;

  // Configuration selection: records in the select-configuration and
  // select-interface wire formats are filled in with handles and pipe data.
  bool SelectConfiguration(uint8_t *record, uint32_t length);
  bool SelectInterface(uint8_t *record, uint32_t length);
  Configuration *GetActiveConfiguration() const { return activeConfiguration_; }
  Pipe *GetPipeByHandle(uint32_t handle) const;
  // Handle and endpoint address of every pipe of the active configuration;
  // owned by this object.
  const uint8_t *GetPipeMap();

 private:
  void ReleasePipeMap();

  const uint8_t *deviceDescriptor_ = nullptr;
  Configuration *activeConfiguration_ = nullptr;
  std::vector<std::unique_ptr<Configuration>> configurations_;
  uint8_t *pipeMap_ = nullptr;
};

using UnionDescriptorList = std::vector<std::unique_ptr<UnionFunctionalDescriptor>>;

class UsbDeviceConfig::Pipe {
 public:
  Pipe() = default;
  virtual ~Pipe() = default;

  bool Parse(uint32_t pipeOrdinal, DescriptorCursor &cursor);
  uint32_t GetOrdinal() const { return ordinal_; }
  uint32_t GetHandle() const { return handle_; }
  const uint8_t *GetDescriptor() const { return descriptor_.Bytes(); }
  const DescriptorView &GetDescriptorView() const { return descriptor_; }
  uint8_t GetEndpointAddress() const { return descriptor_.Byte(2); }
  bool IsIn() const { return (GetEndpointAddress() & 0x80) != 0; }
  uint32_t GetType() const;
  uint16_t GetMaxPacketSize() const { return descriptor_.Word(4); }
  uint8_t GetInterval() const { return descriptor_.Byte(6); }

 private:
  uint32_t ordinal_ = 0;
  uint32_t handle_ = 0;
  DescriptorView descriptor_;
};

class UsbDeviceConfig::Interface {
 public:
  // Flags of Parse: what the descriptors around this interface say.
  static constexpr uint32_t kCommDevice = 0x01;
  static constexpr uint32_t kVideoFunction = 0x10;
  // Interface::audioStage: the kind of audio descriptor seen last.
  static constexpr uint32_t kAudioControlSeen = 0;
  static constexpr uint32_t kAudioStreamingSeen = 1;
  static constexpr uint32_t kAudioEndpointSeen = 2;
  static constexpr uint32_t kAudioNoneSeen = 5;

  Interface() = default;
  virtual ~Interface();

  // Takes the interface descriptor under the cursor and everything behind it
  // up to the next interface or association descriptor.
  bool Parse(uint32_t interfaceOrdinal, DescriptorCursor &cursor,
             UnionDescriptorList &unionDescriptors, uint32_t flags,
             const uint8_t *deviceDescriptor);

  uint32_t GetOrdinal() const { return ordinal_; }
  uint32_t GetHandle() const { return handle_; }
  const uint8_t *GetDescriptor() const { return descriptor_.Bytes(); }
  const DescriptorView &GetDescriptorView() const { return descriptor_; }
  void SetSelected(bool selected) { selected_ = selected; }
  bool IsSelected() const { return selected_; }

  int32_t GetNumber() const { return descriptor_.IsNull() ? -1 : descriptor_.Byte(2); }
  uint8_t GetAlternateSetting() const { return descriptor_.Byte(3); }
  uint8_t GetNumEndpoints() const { return descriptor_.Byte(4); }
  uint8_t GetClass() const { return descriptor_.Byte(5); }
  uint8_t GetSubClass() const { return descriptor_.Byte(6); }
  uint8_t GetProtocol() const { return descriptor_.Byte(7); }
  uint32_t GetAudioStage() const { return audioStage_; }
  uint32_t GetBaseFamily() const { return family_; }

  int32_t GetPipeCount() const { return static_cast<int32_t>(pipes_.size()); }
  Pipe *GetPipeByOrdinal(uint32_t pipeOrdinal) const;
  Pipe *GetPipeByHandle(uint32_t pipeHandle) const;
  // Writes this interface's entries of the pipe map from entry `start` on
  // (only counts when buffer is null) and returns the running count.
  uint32_t FillPipeMap(uint32_t start, uint8_t *buffer) const;
  DevFamily GetFamily() const;

 private:
  bool TakeDescriptorBehind(DescriptorCursor &cursor, UnionDescriptorList &unionDescriptors,
                            uint32_t flags);
  void WalkAudioDescriptors(uint8_t interfaceClass, uint8_t interfaceSubClass,
                            DescriptorCursor &cursor);
  bool ParseAudioDescriptor(uint8_t interfaceSubClass, const DescriptorView &audio);

  uint32_t ordinal_ = 0;
  uint32_t handle_ = 0;
  DescriptorView descriptor_;
  std::vector<std::unique_ptr<Pipe>> pipes_;
  uint32_t audioStage_ = kAudioNoneSeen;
  uint32_t family_ = kFamilyUnknown;
  bool selected_ = false;
};

class UsbDeviceConfig::InterfaceAssociation {
 public:
  InterfaceAssociation() = default;
  virtual ~InterfaceAssociation() = default;

  bool Parse(uint32_t associationOrdinal, DescriptorCursor &cursor);
  uint32_t GetOrdinal() const { return ordinal_; }
  const uint8_t *GetDescriptor() const { return descriptor_.Bytes(); }
  uint8_t GetFirstInterface() const { return descriptor_.Byte(2); }
  uint8_t GetInterfaceCount() const { return descriptor_.Byte(3); }
  uint8_t GetFunctionClass() const { return descriptor_.Byte(4); }
  uint8_t GetFunctionSubClass() const { return descriptor_.Byte(5); }
  uint8_t GetFunctionProtocol() const { return descriptor_.Byte(6); }

 private:
  uint32_t ordinal_ = 0;  // the number given to Parse isn't kept
  DescriptorView descriptor_;
};

using InterfaceList = std::vector<std::unique_ptr<UsbDeviceConfig::Interface>>;
using AssociationList = std::vector<std::unique_ptr<UsbDeviceConfig::InterfaceAssociation>>;

// Which interfaces of a configuration belong together. The map's key is the
// group key; a group with more than one member object counts as a group, and
// its position among those is the group ordinal.
class UsbDeviceConfig::InterfaceFunctionalGroup {
 public:
  using GroupMap = std::map<int32_t, std::vector<Interface *>>;

  InterfaceFunctionalGroup() = default;
  virtual ~InterfaceFunctionalGroup() = default;

  void GroupByUnion(const UnionDescriptorList &unions, const InterfaceList &interfaces);
  void GroupByAssociation(const AssociationList &associations, const InterfaceList &interfaces);
  void GroupByAdjacency(const InterfaceList &interfaces);

  const GroupMap &GetGroups() const { return groups_; }
  int32_t GetGroupCount() const;
  std::vector<uint8_t> GetGroupMembers(int32_t groupOrdinal) const;
  DevFamily GetGroupFamily(uint32_t groupKey) const;
  int32_t GetGroupOfInterface(uint32_t number) const;
  std::vector<uint8_t> GetGroupedInterfaces() const;

 private:
  struct CountingGroup {
    int32_t key;
    const std::vector<Interface *> *members;
  };
  // The one walk of all group questions: keys 0 to n - 1 of n keys, those
  // with more than one member. Key -1 and keys above a hole aren't seen.
  std::vector<CountingGroup> CountingGroups() const;

  GroupMap groups_;
};

class UsbDeviceConfig::Configuration {
 public:
  Configuration() = default;
  virtual ~Configuration();
  Configuration(const Configuration &) = delete;
  Configuration &operator=(const Configuration &) = delete;

  bool Parse(uint32_t configIndex, const uint8_t *descriptor, const uint8_t *deviceDescriptor,
             bool keepBuffer);

  int32_t GetIndex() const { return static_cast<int32_t>(index_); }
  uint32_t GetHandle() const { return handle_; }
  const uint8_t *GetDescriptor() const { return descriptor_; }
  const DescriptorView &GetDescriptorView() const { return view_; }
  uint16_t GetTotalLength() const { return view_.Word(2); }
  uint8_t GetConfigurationValue() const { return view_.Byte(5); }
  int32_t GetNumInterfaces() const { return descriptor_ == nullptr ? 0 : view_.Byte(4); }

  int32_t GetInterfaceObjectCount() const { return static_cast<int32_t>(interfaces_.size()); }
  const InterfaceList &GetInterfaces() const { return interfaces_; }
  const AssociationList &GetAssociations() const { return associations_; }
  const UnionDescriptorList &GetUnionDescriptors() const { return unionDescriptors_; }
  const InterfaceFunctionalGroup &GetFunctionalGroup() const { return functionalGroup_; }
  Interface *GetInterfaceByOrdinal(uint32_t interfaceOrdinal) const;
  Interface *GetInterface(uint8_t number, uint8_t alternate) const;
  std::vector<Interface *> GetInterfacesByNumber(uint8_t number) const;

  int32_t GetGroupCount() const { return functionalGroup_.GetGroupCount(); }
  std::vector<uint8_t> GetGroupMembers(int32_t groupOrdinal) const {
    return functionalGroup_.GetGroupMembers(groupOrdinal);
  }
  DevFamily GetGroupFamily(uint32_t groupKey) const {
    return functionalGroup_.GetGroupFamily(groupKey);
  }
  std::vector<uint8_t> GetInterfaceGroup(uint32_t number) const;
  std::vector<uint8_t> GetUngroupedInterfaces() const;
  DevFamily GetInterfaceFamily(uint8_t number) const;

  void DeselectAlternates(uint8_t number);
  Pipe *GetPipeByHandle(uint32_t pipeHandle) const;
  // Works on `count` interface information records that start at offset
  // `firstRecord` of a caller's buffer of `bufferLength` bytes.
  bool SelectInterfaces(uint8_t *buffer, size_t firstRecord, uint32_t count, size_t bufferLength);

 private:
  bool TakeBuffer(const uint8_t *descriptor, bool keepBuffer);
  bool WalkDescriptors(const uint8_t *deviceDescriptor);
  void GroupInterfaces(uint32_t associationCount);
  bool SelectOneInterface(uint8_t *record, size_t room);

  uint32_t index_ = 0;
  uint32_t handle_ = 0;
  uint8_t *descriptor_ = nullptr;
  DescriptorView view_;
  InterfaceList interfaces_;
  AssociationList associations_;
  InterfaceFunctionalGroup functionalGroup_;
  UnionDescriptorList unionDescriptors_;
};

}  // namespace ordo::usb
