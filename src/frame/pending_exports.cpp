// Exports whose subsystems are not built yet, and the destroy functions of
// their records. Each export fails as a whole, so the library's interface is
// complete from the start; the lifecycle that owns one moves it out of here.
#include "item/item.h"
#include "pelarix.h"

namespace pelarix {

// No item record can exist yet, so nothing reaches this.
void DestroyItem(PelarixItem *) {}

}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetNextItem(PelarixHandle, PelarixHandle *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CancelGetItem(PelarixHandle) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_ParkItem(PelarixHandle) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_UnparkItem(uint32_t, PelarixHandle,
                                                          PelarixHandle *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemDeviceHandle(PelarixHandle, PelarixHandle *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemId(PelarixHandle, uint32_t *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemInfo(PelarixHandle, PelarixItemInfo *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemRaw(PelarixHandle, uint32_t *, uint32_t *,
                                                          uint32_t *, void **) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CompleteItem(PelarixHandle, uint32_t, uint32_t,
                                                            const void *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CompleteItemRaw(PelarixHandle, uint32_t,
                                                               const void *) {
  return Pelarix_Failure;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetUniqueItemId(PelarixHandle, uint32_t *) {
  return Pelarix_Failure;
}

}  // extern "C"
