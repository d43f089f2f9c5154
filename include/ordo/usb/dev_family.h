// Device families: what a USB function is, in the words of the filter
// settings ("mouse", "storage", "audio-in" ...), as two bit sets.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

struct DevFamily {
  uint32_t base = 2;  // family bits
  uint32_t sub = 1;   // sub-family bits

  friend bool operator==(const DevFamily &, const DevFamily &) = default;
};

// Base family bits.
inline constexpr uint32_t kFamilyVendor = 0x00001;
inline constexpr uint32_t kFamilyUnknown = 0x00002;
inline constexpr uint32_t kFamilyOther = 0x00004;
inline constexpr uint32_t kFamilyAudio = 0x00008;
inline constexpr uint32_t kFamilyComm = 0x00010;
inline constexpr uint32_t kFamilyHid = 0x00020;
inline constexpr uint32_t kFamilyHidBootable = 0x00040;
inline constexpr uint32_t kFamilyPhysical = 0x00080;
inline constexpr uint32_t kFamilyImaging = 0x00100;
inline constexpr uint32_t kFamilyPrinter = 0x00200;
inline constexpr uint32_t kFamilyStorage = 0x00400;
inline constexpr uint32_t kFamilyHub = 0x00800;
inline constexpr uint32_t kFamilySmartCard = 0x01000;
inline constexpr uint32_t kFamilySecurity = 0x02000;
inline constexpr uint32_t kFamilyVideo = 0x04000;
inline constexpr uint32_t kFamilyWireless = 0x08000;
inline constexpr uint32_t kFamilyBluetooth = 0x10000;
inline constexpr uint32_t kFamilyWusb = 0x20000;
inline constexpr uint32_t kFamilyPda = 0x40000;
inline constexpr uint32_t kFamilyNic = 0x80000;

// Sub-family bits.
inline constexpr uint32_t kSubFamilyUnknown = 1;
inline constexpr uint32_t kSubFamilyKeyboard = 2;
inline constexpr uint32_t kSubFamilyMouse = 4;
inline constexpr uint32_t kSubFamilyAudioOut = 8;
inline constexpr uint32_t kSubFamilyAudioIn = 16;

// The value that says nothing is known.
inline constexpr DevFamily kUnknownFamily{kFamilyUnknown, kSubFamilyUnknown};

// Base family bits of an interface from its class triple alone.
uint32_t ClassifyInterface(uint8_t interfaceClass, uint8_t interfaceSubClass,
                           uint8_t interfaceProtocol);

// Name of one bit; the empty string for 0 and for anything not in the table.
std::string FamilyNameOf(uint32_t bit);
std::string SubFamilyNameOf(uint32_t bit);

DevFamily NamesToFamily(const std::vector<std::string> &names);
std::vector<std::string> FamilyToNames(DevFamily family, bool withAudioParent);
std::string FamilyToString(DevFamily family);

// The family cache, keyed by idVendor << 16 | idProduct: a seam for a
// platform that can tell what a vendor-specific device really is.
void LookupDeducedFamily(const uint8_t *deviceDescriptor, uint32_t &family);
void DeduceDeviceFamily(const uint8_t *deviceDescriptor);
uint32_t IdentifyDeviceFamily(const uint8_t *deviceDescriptor);

}  // namespace ordo::usb
