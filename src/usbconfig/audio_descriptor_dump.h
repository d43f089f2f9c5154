// Dump of the audio class-specific descriptors, chosen by the subclass of
// the interface they follow (1 audio control, 2 audio streaming) and their
// subtype; class-specific endpoint descriptors need no subclass.
#pragma once

#include <cstdint>

#include "ordo/usb/descriptor_view.h"

namespace ordo::usb {

inline constexpr uint8_t kAudioControlSubClass = 1;
inline constexpr uint8_t kAudioStreamingSubClass = 2;

void DumpAudioDescriptor(uint8_t interfaceSubClass, const DescriptorView &descriptor);

}  // namespace ordo::usb
