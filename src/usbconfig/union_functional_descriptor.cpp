#include "ordo/usb/union_functional_descriptor.h"

#include "usbconfig/descriptor_dump.h"

namespace ordo::usb {
namespace {
constexpr uint8_t kUnionSubtype = 6;
constexpr size_t kFirstInterfaceNumber = 3;  // bControlInterface
}  // namespace

bool UnionFunctionalDescriptor::Parse(uint32_t unionOrdinal, DescriptorCursor &cursor) {
  const DescriptorView seen = cursor.Current();
  const bool isUnion = seen.Subtype() == kUnionSubtype;
  if (isUnion) {
    ordinal = unionOrdinal;
    for (size_t i = kFirstInterfaceNumber; i < seen.Length(); ++i) {
      interfaceNumbers.push_back(seen.Byte(i));
    }
    descriptor = seen;
    DumpUnionDescriptor(seen);
  }
  cursor.AdvanceOverCurrent();
  return isUnion;
}

}  // namespace ordo::usb
