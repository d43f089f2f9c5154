#include "ordo/usb/dev_family.h"

#include <map>

namespace ordo::usb {
namespace {

struct ClassRule {
  uint8_t interfaceClass;
  int subClass;  // -1: any
  int protocol;  // -1: any
  uint32_t base;
};

// Tried from the top; the first row whose three fields fit decides.
constexpr ClassRule kClassRules[] = {
    {0x01, -1, -1, kFamilyAudio},
    {0x02, -1, -1, kFamilyComm},
    {0x0A, -1, -1, kFamilyComm},
    {0x03, 1, -1, kFamilyHid | kFamilyHidBootable},
    {0x03, -1, -1, kFamilyHid},
    {0x05, -1, -1, kFamilyPhysical},
    {0x06, -1, -1, kFamilyImaging},
    {0x07, -1, -1, kFamilyPrinter},
    {0x08, -1, -1, kFamilyStorage},
    {0x09, -1, -1, kFamilyHub},
    {0x0B, -1, -1, kFamilySmartCard},
    {0x0D, -1, -1, kFamilySecurity},
    {0x0E, -1, -1, kFamilyVideo},
    {0xE0, 1, 1, kFamilyWireless | kFamilyBluetooth},
    {0xE0, 2, -1, kFamilyWireless | kFamilyWusb},
    {0xE0, -1, -1, kFamilyWireless},
    {0xEF, 1, -1, kFamilyPda},
    {0xEF, -1, -1, kFamilyOther},
    {0xFF, -1, -1, kFamilyVendor},
};

bool Fits(int wanted, uint8_t value) {
  return wanted < 0 || wanted == value;
}

const std::map<uint32_t, std::string> &FamilyNames() {
  static const std::map<uint32_t, std::string> names = {
      {0, ""},
      {kFamilyVendor, "vendor"},
      {kFamilyUnknown, "unknown"},
      {kFamilyOther, "other"},
      {kFamilyAudio, "audio"},
      {kFamilyComm, "comm"},
      {kFamilyHid, "hid"},
      {kFamilyHidBootable, "hid-bootable"},
      {kFamilyPhysical, "physical"},
      {kFamilyImaging, "imaging"},
      {kFamilyPrinter, "printer"},
      {kFamilyStorage, "storage"},
      {kFamilyHub, "hub"},
      {kFamilySmartCard, "smart-card"},
      {kFamilySecurity, "security"},
      {kFamilyVideo, "video"},
      {kFamilyWireless, "wireless"},
      {kFamilyBluetooth, "bluetooth"},
      {kFamilyWusb, "wusb"},
      {kFamilyPda, "pda"},
      {kFamilyNic, "nic"},
  };
  return names;
}

const std::map<uint32_t, std::string> &SubFamilyNames() {
  static const std::map<uint32_t, std::string> names = {
      {kSubFamilyUnknown, "unknown"},  {kSubFamilyKeyboard, "keyboard"},
      {kSubFamilyMouse, "mouse"},      {kSubFamilyAudioOut, "audio-out"},
      {kSubFamilyAudioIn, "audio-in"},
  };
  return names;
}

// Every base name with sub-family "unknown", and the four sub-family names
// with the base family they belong to.
const std::map<std::string, DevFamily> &FamiliesByName() {
  static const std::map<std::string, DevFamily> families = [] {
    std::map<std::string, DevFamily> table;
    for (const auto &[bit, name] : FamilyNames()) {
      if (bit != 0) {
        table[name] = DevFamily{bit, kSubFamilyUnknown};
      }
    }
    table["keyboard"] = DevFamily{kFamilyHid, kSubFamilyKeyboard};
    table["mouse"] = DevFamily{kFamilyHid, kSubFamilyMouse};
    table["audio-out"] = DevFamily{kFamilyAudio, kSubFamilyAudioOut};
    table["audio-in"] = DevFamily{kFamilyAudio, kSubFamilyAudioIn};
    return table;
  }();
  return families;
}

std::string NameIn(const std::map<uint32_t, std::string> &table, uint32_t bit) {
  const auto found = table.find(bit);
  return found == table.end() ? std::string() : found->second;
}

// The HID sub-families in name order; true when one was named.
bool AddHidSubFamilies(uint32_t sub, std::vector<std::string> &names) {
  const size_t before = names.size();
  if (sub & kSubFamilyKeyboard) {
    names.emplace_back("keyboard");
  }
  if (sub & kSubFamilyMouse) {
    names.emplace_back("mouse");
  }
  return names.size() != before;
}

void AddAudioNames(DevFamily family, bool withAudioParent, std::vector<std::string> &names) {
  const bool directional = (family.sub & (kSubFamilyAudioIn | kSubFamilyAudioOut)) != 0;
  if (!directional || withAudioParent) {
    names.emplace_back("audio");
  }
  if (family.sub & kSubFamilyAudioIn) {
    names.emplace_back("audio-in");
  }
  if (family.sub & kSubFamilyAudioOut) {
    names.emplace_back("audio-out");
  }
}

// The families that follow the HID ones, each by its own bit, rising.
constexpr uint32_t kPlainFamilies[] = {
    kFamilyPhysical,  kFamilyImaging,  kFamilyPrinter, kFamilyStorage,  kFamilyHub,
    kFamilySmartCard, kFamilySecurity, kFamilyVideo,   kFamilyWireless, kFamilyBluetooth,
    kFamilyWusb,      kFamilyPda,      kFamilyNic,
};

}  // namespace

uint32_t ClassifyInterface(uint8_t interfaceClass, uint8_t interfaceSubClass,
                           uint8_t interfaceProtocol) {
  for (const ClassRule &rule : kClassRules) {
    if (rule.interfaceClass == interfaceClass && Fits(rule.subClass, interfaceSubClass) &&
        Fits(rule.protocol, interfaceProtocol)) {
      return rule.base;
    }
  }
  return kFamilyOther;
}

std::string FamilyNameOf(uint32_t bit) {
  return NameIn(FamilyNames(), bit);
}

std::string SubFamilyNameOf(uint32_t bit) {
  return NameIn(SubFamilyNames(), bit);
}

DevFamily NamesToFamily(const std::vector<std::string> &names) {
  DevFamily family{0, 0};
  for (const std::string &name : names) {
    const auto found = FamiliesByName().find(name);
    if (found == FamiliesByName().end()) {
      continue;
    }
    family.base |= found->second.base;
    family.sub |= found->second.sub;
  }
  if (family.base == 0) {
    family.base = kFamilyUnknown;
  }
  if (family.sub == 0) {
    family.sub = kSubFamilyUnknown;
  }
  return family;
}

std::vector<std::string> FamilyToNames(DevFamily family, bool withAudioParent) {
  std::vector<std::string> names;
  if (family.base & kFamilyVendor) {
    names.emplace_back("vendor");
  }
  if (family.base & kFamilyUnknown) {
    names.emplace_back("unknown");
  }
  if (family.base & kFamilyOther) {
    names.emplace_back("other");
  }
  if (family.base & kFamilyAudio) {
    AddAudioNames(family, withAudioParent, names);
  }
  if (family.base & kFamilyComm) {
    names.emplace_back("comm");
  }
  if (family.base & kFamilyHid) {
    if (!AddHidSubFamilies(family.sub, names)) {
      names.emplace_back("hid");
      if (family.base & kFamilyHidBootable) {
        names.emplace_back("hid-bootable");
      }
    }
  } else if (family.base & kFamilyHidBootable) {
    if (!AddHidSubFamilies(family.sub, names)) {
      names.emplace_back("hid-bootable");
    }
  }
  for (uint32_t bit : kPlainFamilies) {
    if (family.base & bit) {
      names.push_back(FamilyNameOf(bit));
    }
  }
  return names;
}

std::string FamilyToString(DevFamily family) {
  std::string text;
  for (const std::string &name : FamilyToNames(family, true)) {
    if (!text.empty()) {
      text += ',';
    }
    text += name;
  }
  return text;
}

}  // namespace ordo::usb
