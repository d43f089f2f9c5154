// Pelarix_GetFilterBlob: the agent's filter list in its binary form, which the
// redirection service carries to the client.
#include <cstdint>
#include <cstdlib>

#include "frame/handle.h"
#include "frame/log.h"
#include "frame/session.h"
#include "ordo/usb/filter_entry_points.h"
#include "pelarix.h"

namespace pelarix {
namespace {

// The outputs stay empty unless a blob is handed over. The buffer comes from
// the plain allocator and passes to the caller.
PelarixStatus CopyFilterBlob(PelarixSession *session, uint32_t *bufferLength, void **buffer) {
  *bufferLength = 0;
  *buffer = nullptr;
  HDevFilterMgrAgent *manager = session->filterManager;
  if (manager == nullptr) {
    return Pelarix_Success;
  }
  const uint32_t size = ordo::usb::GetFilterManagerBlob(manager, nullptr);
  if (size == 0) {
    return Pelarix_Success;  // the agent has no filter
  }
  auto *blob = static_cast<uint8_t *>(std::malloc(size));
  if (blob == nullptr) {
    return Pelarix_OutOfMemory;
  }
  // The list is not written after the session's creation, so the two calls
  // cannot disagree; the check guards the length the client will trust.
  if (ordo::usb::GetFilterManagerBlob(manager, blob) != size) {
    std::free(blob);
    LogMessage(kLogFailure, u"Filter blob length mismatch");
    return Pelarix_Failure;
  }
  *bufferLength = size;
  *buffer = blob;
  return Pelarix_Success;
}

}  // namespace
}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetFilterBlob(PelarixHandle handle,
                                                             uint32_t *bufferLength,
                                                             void **buffer) {
  using namespace pelarix;
  PelarixStatus status = Pelarix_Success;
  if (!IsValidHandle(handle, kSessionHandle)) {
    LogMessage(kLogFailure, u"Invalid session handle: %p", handle);
    status = Pelarix_InvalidHandle;
  } else if (bufferLength == nullptr || buffer == nullptr) {
    LogMessage(kLogFailure, u"Invalid parameter, bufferLength or buffer");
    status = Pelarix_InvalidParameter;
  } else {
    status = CopyFilterBlob(static_cast<PelarixSession *>(handle), bufferLength, buffer);
  }
  // The handle as a 32-bit number, as the item messages print it.
  LogMessage(kLogTraffic, u"Get filter blob, handle: %d, status: 0x%x",
             static_cast<int32_t>(reinterpret_cast<uintptr_t>(handle)), status);
  return status;
}

}  // extern "C"
