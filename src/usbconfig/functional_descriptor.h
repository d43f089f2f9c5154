// Class-specific interface descriptors of a communications device: only the
// union functional descriptor is kept; Header, Call Management, Abstract
// Control Management and the rest are logged as failures and passed over.
#pragma once

#include "ordo/usb/usb_device_config.h"

namespace ordo::usb {

// Where the walk met the descriptor: behind an interface (1) or at the top
// level of the set (2); the log line names it.
enum class WalkPlace { kInterface = 1, kTopLevel = 2 };

// False only when memory ran out; the cursor has moved on in every case.
bool TakeFunctionalDescriptor(DescriptorCursor &cursor, UnionDescriptorList &unions,
                              WalkPlace place);

// A class-specific interface descriptor that no rule claims.
void PassUnknownClassSpecific(DescriptorCursor &cursor, WalkPlace place);

}  // namespace ordo::usb
