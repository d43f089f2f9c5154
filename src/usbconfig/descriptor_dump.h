// The descriptor dump: every descriptor that the walk recognises goes to the
// model's log in a fixed shape (heading, hex text, one line per field), so a
// support engineer can read a device's descriptors from a log file.
#pragma once

#include <cstdint>

#include "ordo/usb/descriptor_view.h"

namespace ordo::usb {

// Prefixes of headings and field lines, by depth in the tree.
inline constexpr const char *kIndent2 = "  ";
inline constexpr const char *kIndent4 = "    ";
inline constexpr const char *kIndent6 = "      ";

// The descriptor's bLength bytes as hex text, cut at the end of the buffer.
void LogDescriptorHex(uint32_t level, const DescriptorView &descriptor, const char *prefix);

void DumpConfigurationDescriptor(const DescriptorView &descriptor);
void DumpInterfaceDescriptor(const DescriptorView &descriptor);
void DumpAssociationDescriptor(const DescriptorView &descriptor);
void DumpPipeDescriptor(const DescriptorView &descriptor);
void DumpUnionDescriptor(const DescriptorView &descriptor);
void DumpHidDescriptor(const DescriptorView &descriptor);
void DumpVideoDescriptor(const DescriptorView &descriptor);

}  // namespace ordo::usb
