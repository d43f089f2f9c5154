#include <new>

#include "ordo/usb/usb_config_log.h"
#include "ordo/usb/usb_device_config.h"
#include "usbconfig/audio_descriptor_dump.h"
#include "usbconfig/descriptor_dump.h"
#include "usbconfig/functional_descriptor.h"

namespace ordo::usb {
namespace {
constexpr uint8_t kAudioClass = 0x01;
constexpr uint8_t kBootKeyboardProtocol = 1;
constexpr uint8_t kBootMouseProtocol = 2;
}  // namespace

UsbDeviceConfig::Interface::~Interface() {
  for (auto &pipe : pipes_) {
    pipe.reset();
  }
  pipes_.clear();
}

bool UsbDeviceConfig::Interface::Parse(uint32_t interfaceOrdinal, DescriptorCursor &cursor,
                                       UnionDescriptorList &unionDescriptors, uint32_t flags,
                                       const uint8_t *deviceDescriptor) {
  ordinal_ = interfaceOrdinal;
  handle_ = NextHandle();
  descriptor_ = cursor.Current();
  DumpInterfaceDescriptor(descriptor_);
  family_ = ClassifyInterface(GetClass(), GetSubClass(), GetProtocol());
  LookupDeducedFamily(deviceDescriptor, family_);
  cursor.AdvanceOverCurrent();
  uint32_t pipeOrdinal = 0;
  // Everything up to the next interface or association belongs to this one.
  while (cursor.BeforeEnd() && !cursor.AtTerminator()) {
    const size_t loopStart = cursor.Position();
    const uint8_t type = cursor.Current().Type();
    if (type == kDescInterface || type == kDescInterfaceAssociation) {
      return true;
    }
    if (type == kDescEndpoint) {
      std::unique_ptr<Pipe> pipe(new (std::nothrow) Pipe);
      if (!pipe) {
        UsbConfigLog(kUsbLogError, "Out of memory");
        return false;
      }
      pipe->Parse(pipeOrdinal++, cursor);
      pipes_.push_back(std::move(pipe));
    } else if (!TakeDescriptorBehind(cursor, unionDescriptors, flags)) {
      return false;
    }
    // The one catch-all of the walk: nothing above took the descriptor.
    if (cursor.Position() == loopStart) {
      UsbConfigLog(kUsbLogInformation, "Unknown descriptor (1)");
      LogDescriptorHex(kUsbLogInformation, cursor.Current(), nullptr);
      cursor.AdvanceOverCurrent();
    }
  }
  return true;
}

// A descriptor behind the interface that is neither an endpoint nor the
// start of the next interface. False only when memory ran out.
bool UsbDeviceConfig::Interface::TakeDescriptorBehind(DescriptorCursor &cursor,
                                                      UnionDescriptorList &unionDescriptors,
                                                      uint32_t flags) {
  const DescriptorView seen = cursor.Current();
  if (GetClass() == kAudioClass) {
    WalkAudioDescriptors(GetClass(), GetSubClass(), cursor);
  } else if (seen.Type() != kDescCsInterface) {
    if (seen.Type() == kDescHid) {
      DumpHidDescriptor(seen);
      cursor.AdvanceOverCurrent();
    }
  } else if (flags & kCommDevice) {
    return TakeFunctionalDescriptor(cursor, unionDescriptors, WalkPlace::kInterface);
  } else if (flags & kVideoFunction) {
    DumpVideoDescriptor(seen);
    cursor.AdvanceOverCurrent();
  } else {
    PassUnknownClassSpecific(cursor, WalkPlace::kInterface);
  }
  return true;
}

void UsbDeviceConfig::Interface::WalkAudioDescriptors(uint8_t interfaceClass,
                                                      uint8_t interfaceSubClass,
                                                      DescriptorCursor &cursor) {
  if (interfaceClass != kAudioClass) {
    return;
  }
  while (cursor.BeforeEnd() && !cursor.AtTerminator()) {
    const DescriptorView audio = cursor.Current();
    if (!ParseAudioDescriptor(interfaceSubClass, audio)) {
      return;
    }
    cursor.Advance(audio.Length());
  }
}

bool UsbDeviceConfig::Interface::ParseAudioDescriptor(uint8_t interfaceSubClass,
                                                      const DescriptorView &audio) {
  if (audio.Type() == kDescCsInterface) {
    if (interfaceSubClass == kAudioControlSubClass) {
      audioStage_ = kAudioControlSeen;
    } else if (interfaceSubClass == kAudioStreamingSubClass) {
      audioStage_ = kAudioStreamingSeen;
    } else {
      return false;
    }
  } else if (audio.Type() == kDescCsEndpoint) {
    audioStage_ = kAudioEndpointSeen;
  } else {
    return false;
  }
  DumpAudioDescriptor(interfaceSubClass, audio);
  return true;
}

UsbDeviceConfig::Pipe *UsbDeviceConfig::Interface::GetPipeByOrdinal(uint32_t pipeOrdinal) const {
  for (const auto &pipe : pipes_) {
    if (pipe->GetOrdinal() == pipeOrdinal) {
      return pipe.get();
    }
  }
  return nullptr;
}

UsbDeviceConfig::Pipe *UsbDeviceConfig::Interface::GetPipeByHandle(uint32_t pipeHandle) const {
  for (const auto &pipe : pipes_) {
    if (pipe->GetHandle() == pipeHandle) {
      return pipe.get();
    }
  }
  return nullptr;
}

DevFamily UsbDeviceConfig::Interface::GetFamily() const {
  DevFamily family{family_, kSubFamilyUnknown};
  if (family_ == kFamilyAudio && audioStage_ == kAudioEndpointSeen) {
    // The direction of the streaming endpoints says what the audio is.
    uint32_t directions = 0;
    for (const auto &pipe : pipes_) {
      directions |= pipe->IsIn() ? kSubFamilyAudioIn : kSubFamilyAudioOut;
    }
    if (directions != 0) {
      family.sub = directions;
    }
  } else if (family_ & kFamilyHid) {
    if (GetProtocol() == kBootKeyboardProtocol) {
      family.sub = kSubFamilyKeyboard;
    }
    if (GetProtocol() == kBootMouseProtocol) {
      family.sub = kSubFamilyMouse;
    }
  }
  return family;
}

}  // namespace ordo::usb
