// Completing items: the library's own completion (a dropped item, an item of
// an unknown device) and the caller's.
#pragma once

#include <cstdint>

#include "item/item.h"
#include "pelarix.h"
#include "platform/platform.h"

namespace pelarix {

// Completes an item that is not completed yet: a fetch item through its
// device's fetch completion (taken with neither the item's lock nor the
// device's held by the caller), any other by a HubCompleteRecord of status and
// length bytes of data (zeros where data is null). A failed request leaves
// the item as it was, so that a later close tries again.
PelarixStatus CompleteItemInternal(PelarixItem *item, uint32_t status, uint32_t length,
                                   const void *data);

// Answers an item the library will not hand out with 0xFFFFFFFF and no data.
// The result is not looked at and nothing is logged.
void CompleteUnserved(platform::HubConnection hubHandle, uint32_t itemId);

// The low 32 bits of a handle as a signed number: the per-item closing lines
// print handles so.
inline int32_t DecimalHandle(const void *handle) {
  return static_cast<int32_t>(reinterpret_cast<uintptr_t>(handle));
}

}  // namespace pelarix
