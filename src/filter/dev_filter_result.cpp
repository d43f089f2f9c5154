#include "ordo/usb/dev_filter_result.h"

#include <utility>

#include "filter/comma_list.h"
#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/filter_log.h"

namespace ordo::usb {
namespace {

// The conflict lines have always been put together by dropping the first n
// characters of their literals, n being the interface number, instead of
// writing the number: the texts below are that behaviour, kept as it is. A
// negative n drops nothing that lies before the literal: its piece is empty.
std::string From(int32_t n, const std::string &literal) {
  if (n < 0 || static_cast<size_t>(n) >= literal.size()) {
    return "";
  }
  return literal.substr(static_cast<size_t>(n));
}

std::string ConflictText(int32_t interface) {
  return From(interface, "Interface[") + "allowed " + "allowed";
}

std::string AlreadySetText(int32_t interface) {
  return From(interface, "Interface[") + "allowed";
}

std::string GroupConflictText(int32_t member) {
  return From(member, "Interface[") + "allowed. " +
         From(member, "It belongs to a group off which Inteface [") + "allowed";
}

}  // namespace

void DevFilterResult::Init(const DevFilterDevice &device, bool allowed) {
  interfaceCount_ = device.GetInterfaceCount();
  deviceAllowed_ = allowed;
  splitAllowed_ = allowed;
  splitSettingUsed_ = false;
  for (int32_t i = 0; i < interfaceCount_; ++i) {
    families_[i] = device.GetInterfaceFamily(static_cast<uint32_t>(i));
  }
}

bool DevFilterResult::BlockDevice() {
  if (!deviceAllowed_) {
    return false;
  }
  deviceAllowed_ = false;
  return true;
}

bool DevFilterResult::DisableSplitting() {
  if (!splitAllowed_) {
    return false;
  }
  splitAllowed_ = false;
  return true;
}

bool DevFilterResult::BlockInterface(const DevFilterDevice &device, int32_t interface,
                                     uint32_t code, std::string reason, bool withGroup) {
  return DecideInterface(device, interface, code, std::move(reason), withGroup, false);
}

bool DevFilterResult::AllowInterface(const DevFilterDevice &device, int32_t interface,
                                     uint32_t code, std::string reason, bool withGroup) {
  return DecideInterface(device, interface, code, std::move(reason), withGroup, true);
}

// The flag of a user split rule goes up before any conflict is looked for,
// so a refused decision with that code raises it too.
bool DevFilterResult::DecideInterface(const DevFilterDevice &device, int32_t interface,
                                      uint32_t code, std::string reason, bool withGroup,
                                      bool allow) {
  if (interface >= interfaceCount_) {
    return false;
  }
  if (!splitSettingUsed_) {
    splitSettingUsed_ = code == kSplitSettingCode;
  }
  return withGroup ? DecideWithGroup(device, interface, reason, allow)
                   : DecideAlone(interface, std::move(reason), allow);
}

bool DevFilterResult::DecideAlone(int32_t interface, std::string reason, bool allow) {
  const auto found = decisions_.find(interface);
  if (found == decisions_.end()) {
    decisions_[interface] = DevFilterDecision{allow, std::move(reason)};
    return true;
  }
  if (found->second.allowed != allow) {
    DevFltrLog(0, ConflictText(interface));
    return false;
  }
  DevFltrLog(0, AlreadySetText(interface));
  return true;
}

// A group is decided whole only while none of it is decided. Once a member
// is, the group's members that are still undecided stay so: agreement with
// the decided ones is answered true without recording anything.
bool DevFilterResult::DecideWithGroup(const DevFilterDevice &device, int32_t interface,
                                      const std::string &reason, bool allow) {
  const std::vector<uint8_t> members = device.GetInterfaceGroup(static_cast<uint32_t>(interface));
  bool anyDecided = false;
  for (const uint8_t member : members) {
    const auto found = decisions_.find(member);
    if (found == decisions_.end()) {
      continue;
    }
    anyDecided = true;
    if (found->second.allowed != allow) {
      DevFltrLog(0, GroupConflictText(member));
      return false;
    }
  }
  if (!anyDecided) {
    for (const uint8_t member : members) {
      decisions_[member] = DevFilterDecision{allow, reason};
    }
  }
  return true;
}

// No conflict rule and no group rule: what is decided stays, and every
// audio interface matches an audio family whatever the sub-families say.
bool DevFilterResult::DecideByFamily(bool allow, uint32_t /*code*/, const std::string &reason,
                                     DevFamily family) {
  const bool wantAudio = (family.base & kFamilyAudio) != 0;
  bool decided = false;
  for (const auto &[interface, one] : families_) {
    const bool isAudio = (one.base & kFamilyAudio) != 0;
    const bool matches =
        (wantAudio && isAudio) || ((family.base & one.base) != 0 && (family.sub & one.sub) != 0);
    if (matches && decisions_.find(interface) == decisions_.end()) {
      decisions_[interface] = DevFilterDecision{allow, reason};
      decided = true;
    }
  }
  return decided;
}

bool DevFilterResult::IsDecided(int32_t interface) const {
  return interface < interfaceCount_ && decisions_.find(interface) != decisions_.end();
}

bool DevFilterResult::IsInterfaceAllowed(int32_t interface) const {
  const auto found = decisions_.find(interface);
  return found == decisions_.end() || found->second.allowed;
}

bool DevFilterResult::IsSplit() {
  if (!deviceAllowed_ || !splitAllowed_ || interfaceCount_ < 2 || decisions_.empty()) {
    return false;
  }
  int32_t allowedCount = 0;
  for (int32_t i = 0; i < interfaceCount_; ++i) {
    if (IsInterfaceAllowed(i)) {
      ++allowedCount;
    }
  }
  if (allowedCount == 0) {
    allBlocked_ = true;
  }
  return allowedCount != 0 && allowedCount != interfaceCount_;
}

// A result that is not split reports every interface, also when all are
// blocked: whether the device passes at all is IsDeviceAllowed's to say.
std::vector<int32_t> DevFilterResult::GetAllowedInterfaces() {
  const bool split = IsSplit();
  std::vector<int32_t> allowed;
  for (int32_t i = 0; i < interfaceCount_; ++i) {
    if (!split || IsInterfaceAllowed(i)) {
      allowed.push_back(i);
    }
  }
  return allowed;
}

std::string DevFilterResult::GetAllowedInterfacesString() {
  if (!IsSplit()) {
    return "None Available";
  }
  return CommaList(GetAllowedInterfaces());
}

// base 2 with sub 1 is what the phases read as "every interface blocked".
DevFamily DevFilterResult::GetAllowedFamily() const {
  DevFamily family{0, 0};
  for (const auto &[interface, one] : families_) {
    if (!IsInterfaceAllowed(interface)) {
      continue;
    }
    family.base |= one.base;
    if (one.sub != kSubFamilyUnknown) {
      family.sub |= one.sub;
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

bool DevFilterResult::HasAudioOutAllowed() const {
  const DevFamily family = GetAllowedFamily();
  return (family.base & kFamilyAudio) != 0 && (family.sub & kSubFamilyAudioOut) != 0;
}

void DevFilterResult::Dump() const {
  DevFltrLog(3, "   << DevFilterResult >>");
  DevFltrLog(3, "   >> DevFilterResult <<");
}

}  // namespace ordo::usb
