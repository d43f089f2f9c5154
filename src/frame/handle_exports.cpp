// The exports that take a handle of any kind.
#include "frame/handle.h"
#include "frame/log.h"
#include "pelarix.h"

using pelarix::HandleHeader;
using pelarix::LogMessage;

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CloseHandle(PelarixHandle handle) {
  PelarixStatus status = Pelarix_Success;
  if (pelarix::IsValidHandle(handle, pelarix::kAnyHandle)) {
    pelarix::ReleaseHandle(static_cast<HandleHeader *>(handle));
  } else {
    LogMessage(pelarix::kLogFailure, u"Invalid handle: %p", handle);
    status = Pelarix_InvalidHandle;
  }
  LogMessage(pelarix::kLogTraffic, u"Close handle: %p, status: 0x%x", handle, status);
  return status;
}

// The same handle value gains a reference; there is no new handle.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_DuplicateHandle(PelarixHandle handle) {
  PelarixStatus status = Pelarix_Success;
  int32_t count = 0;
  if (pelarix::IsValidHandle(handle, pelarix::kAnyHandle)) {
    count = pelarix::AddRefCount(static_cast<HandleHeader *>(handle), 1);
    if (count < 1) {
      status = Pelarix_InvalidState;
    }
  } else {
    LogMessage(pelarix::kLogFailure, u"Invalid handle: %p", handle);
    status = Pelarix_InvalidHandle;
  }
  LogMessage(pelarix::kLogTraffic, u"Duplicate handle: %p, Ref: %d, status: 0x%x", handle, count,
             status);
  return status;
}

}  // extern "C"
