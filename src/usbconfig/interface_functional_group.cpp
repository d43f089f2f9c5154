#include <map>

#include "ordo/usb/usb_device_config.h"

namespace ordo::usb {
namespace {

constexpr uint8_t kAudioClass = 0x01;
constexpr int32_t kNoKey = -1;

using Association = UsbDeviceConfig::InterfaceAssociation;

// Interface number -> association that covers it. The counter runs from
// bFirstInterface while it is below bInterfaceCount: the count field itself
// is the bound, not first + count, and a later association wins.
std::map<uint8_t, const Association *> CoveredInterfaces(const AssociationList &associations) {
  std::map<uint8_t, const Association *> covered;
  for (const auto &association : associations) {
    for (uint8_t counter = association->GetFirstInterface();
         counter < association->GetInterfaceCount(); ++counter) {
      covered[counter] = association.get();
    }
  }
  return covered;
}

}  // namespace

void UsbDeviceConfig::InterfaceFunctionalGroup::GroupByUnion(const UnionDescriptorList &unions,
                                                             const InterfaceList &interfaces) {
  for (const auto &record : unions) {
    for (uint8_t number : record->GetInterfaceNumbers()) {
      for (const auto &interface : interfaces) {
        if (interface->GetNumber() == number && interface->GetAlternateSetting() == 0) {
          groups_[static_cast<int32_t>(record->GetOrdinal())].push_back(interface.get());
          break;
        }
      }
    }
  }
}

void UsbDeviceConfig::InterfaceFunctionalGroup::GroupByAssociation(
    const AssociationList &associations, const InterfaceList &interfaces) {
  const auto covered = CoveredInterfaces(associations);
  std::map<const Association *, int32_t> keyOfAssociation;
  int32_t currentKey = kNoKey;
  int32_t lastKey = kNoKey;
  bool audioRun = false;
  for (const auto &interface : interfaces) {
    // Alternate settings join whatever group came last.
    if (interface->GetAlternateSetting() != 0) {
      groups_[currentKey].push_back(interface.get());
      continue;
    }
    const auto found = covered.find(static_cast<uint8_t>(interface->GetNumber()));
    if (found != covered.end()) {
      audioRun = false;
      const auto known = keyOfAssociation.find(found->second);
      if (known != keyOfAssociation.end()) {
        currentKey = known->second;
      } else {
        currentKey = ++lastKey;
        keyOfAssociation[found->second] = currentKey;
      }
    } else if (interface->GetClass() == kAudioClass) {
      // Consecutive audio interfaces without an association share a group.
      if (!audioRun) {
        audioRun = true;
        currentKey = ++lastKey;
      }
    } else {
      audioRun = false;
      currentKey = ++lastKey;
    }
    groups_[currentKey].push_back(interface.get());
  }
}

void UsbDeviceConfig::InterfaceFunctionalGroup::GroupByAdjacency(const InterfaceList &interfaces) {
  int32_t key = 0;
  uint8_t previousClass = 0;
  for (size_t i = 0; i < interfaces.size(); ++i) {
    Interface *interface = interfaces[i].get();
    if (interface->GetAlternateSetting() != 0) {
      groups_[key].push_back(interface);  // stays with the setting before it
      continue;
    }
    // Adjacent audio interfaces make one function; any other class starts one.
    const uint8_t interfaceClass = interface->GetClass();
    const bool continuesAudio = interfaceClass == kAudioClass && previousClass == kAudioClass;
    if (i > 0 && !continuesAudio) {
      ++key;
    }
    previousClass = interfaceClass;
    groups_[key].push_back(interface);
  }
}

std::vector<UsbDeviceConfig::InterfaceFunctionalGroup::CountingGroup>
UsbDeviceConfig::InterfaceFunctionalGroup::CountingGroups() const {
  std::vector<CountingGroup> counting;
  const int32_t keyCount = static_cast<int32_t>(groups_.size());
  for (int32_t key = 0; key < keyCount; ++key) {
    const auto found = groups_.find(key);
    if (found != groups_.end() && found->second.size() > 1) {
      counting.push_back(CountingGroup{key, &found->second});
    }
  }
  return counting;
}

int32_t UsbDeviceConfig::InterfaceFunctionalGroup::GetGroupCount() const {
  return static_cast<int32_t>(CountingGroups().size());
}

std::vector<uint8_t> UsbDeviceConfig::InterfaceFunctionalGroup::GetGroupMembers(
    int32_t groupOrdinal) const {
  const auto counting = CountingGroups();
  std::vector<uint8_t> numbers;
  if (groupOrdinal < 0 || groupOrdinal >= static_cast<int32_t>(counting.size())) {
    return numbers;
  }
  for (const Interface *member : *counting[static_cast<size_t>(groupOrdinal)].members) {
    if (member->GetAlternateSetting() == 0) {
      numbers.push_back(static_cast<uint8_t>(member->GetNumber()));
    }
  }
  return numbers;
}

std::vector<uint8_t> UsbDeviceConfig::InterfaceFunctionalGroup::GetGroupedInterfaces() const {
  std::vector<uint8_t> numbers;
  for (const CountingGroup &group : CountingGroups()) {
    for (const Interface *member : *group.members) {
      numbers.push_back(static_cast<uint8_t>(member->GetNumber()));
    }
  }
  return numbers;
}

int32_t UsbDeviceConfig::InterfaceFunctionalGroup::GetGroupOfInterface(uint32_t number) const {
  for (const CountingGroup &group : CountingGroups()) {
    for (const Interface *member : *group.members) {
      if (static_cast<int64_t>(member->GetNumber()) == static_cast<int64_t>(number)) {
        return group.key;
      }
    }
  }
  return kNoKey;
}

// By key, whatever the number of members.
DevFamily UsbDeviceConfig::InterfaceFunctionalGroup::GetGroupFamily(uint32_t groupKey) const {
  const auto found = groups_.find(static_cast<int32_t>(groupKey));
  if (found == groups_.end()) {
    return kUnknownFamily;
  }
  DevFamily family{0, 0};
  for (const Interface *member : found->second) {
    const DevFamily one = member->GetFamily();
    family.base |= one.base;
    if (one.sub != kSubFamilyUnknown) {
      family.sub |= one.sub;
    }
  }
  if (family.sub == 0) {
    family.sub = kSubFamilyUnknown;
  }
  if (family.base == 0) {
    family.base = kFamilyUnknown;
  }
  return family;
}

}  // namespace ordo::usb
