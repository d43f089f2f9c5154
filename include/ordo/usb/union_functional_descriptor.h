// The CDC union functional descriptor: a control interface and the
// subordinate interfaces that belong to it.
#pragma once

#include <cstdint>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/descriptor_view.h"

namespace ordo::usb {

struct UnionFunctionalDescriptor {
  uint32_t ordinal = 0;
  DescriptorView descriptor;
  std::vector<uint8_t> interfaceNumbers;  // bControlInterface, then each subordinate

  // Takes the descriptor under the cursor when it is a union (subtype 6) and
  // refuses any other functional descriptor; moves the cursor over it in
  // both cases.
  bool Parse(uint32_t unionOrdinal, DescriptorCursor &cursor);
  uint32_t GetOrdinal() const { return ordinal; }
  std::vector<uint8_t> GetInterfaceNumbers() const { return interfaceNumbers; }
  bool IsEmpty() const { return interfaceNumbers.empty(); }
};

}  // namespace ordo::usb
