// The answer that the decision phases build up for one device: whether the
// device as a whole may pass, whether it may be split, and per interface
// (by the device record's flat index) whether it was decided, which way and
// why. A first decision on an interface stands, and the members of a group
// share theirs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"

namespace ordo::usb {

class DevFilterDevice;

struct DevFilterDecision {
  bool allowed = true;
  // The label of the phase that decided, kept for the reader of a dump.
  std::string reason;
};

// The decision code of a user-defined split rule (FilterTypeSpid).
inline constexpr uint32_t kSplitSettingCode = 10;

class DevFilterResult {
 public:
  // Takes the device's interface count and the family of each interface;
  // decisions and allBlocked are left as they are.
  void Init(const DevFilterDevice &device, bool allowed);
  int32_t GetInterfaceCount() const { return interfaceCount_; }

  bool IsDeviceAllowed() const { return deviceAllowed_; }
  // Each answers true only for the call that cleared its flag.
  bool BlockDevice();
  bool DisableSplitting();

  bool BlockInterface(const DevFilterDevice &device, int32_t interface, uint32_t code,
                      std::string reason, bool withGroup);
  bool AllowInterface(const DevFilterDevice &device, int32_t interface, uint32_t code,
                      std::string reason, bool withGroup);
  // Decides every undecided interface of a matching family; true when one
  // was decided.
  bool DecideByFamily(bool allow, uint32_t code, const std::string &reason, DevFamily family);

  bool IsDecided(int32_t interface) const;
  bool IsInterfaceAllowed(int32_t interface) const;
  bool HasSplitSettingDecision() const { return splitSettingUsed_; }
  // Meaningful once IsSplit has run.
  bool IsAllBlocked() const { return allBlocked_; }
  // Whether the device ends up partly forwarded; marks allBlocked when no
  // interface is left.
  bool IsSplit();

  std::vector<int32_t> GetAllowedInterfaces();
  std::string GetAllowedInterfacesString();
  DevFamily GetAllowedFamily() const;
  bool HasAudioOutAllowed() const;
  void Dump() const;

  const std::map<int32_t, DevFilterDecision> &decisions() const { return decisions_; }
  const std::map<int32_t, DevFamily> &families() const { return families_; }

 private:
  bool DecideInterface(const DevFilterDevice &device, int32_t interface, uint32_t code,
                       std::string reason, bool withGroup, bool allow);
  bool DecideAlone(int32_t interface, std::string reason, bool allow);
  bool DecideWithGroup(const DevFilterDevice &device, int32_t interface, const std::string &reason,
                       bool allow);

  int32_t interfaceCount_ = 0;
  std::map<int32_t, DevFilterDecision> decisions_;
  std::map<int32_t, DevFamily> families_;
  bool deviceAllowed_ = true;
  bool splitAllowed_ = true;
  bool allBlocked_ = false;
  bool splitSettingUsed_ = false;
};

}  // namespace ordo::usb
