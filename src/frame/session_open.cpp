// Opening sessions: the events, the hub, its version and the notification event.
#include "config/filter_feed.h"
#include "config/session_settings.h"
#include "frame/handle.h"
#include "frame/library_state.h"
#include "frame/log.h"
#include "frame/record_pool.h"
#include "frame/session.h"
#include "hub/hub_interface.h"
#include "pelarix.h"
#include "platform/platform.h"

namespace pelarix {
namespace {

// The lowest hub version served: major 2, whatever the minor.
constexpr uint32_t kRequiredHubVersion = 0x00020000;

// Creates the events and opens the hub, in this order. Returns the status;
// what was made stays in the record for DestroySession.
PelarixStatus OpenSessionChannel(PelarixSession *session) {
  if (platform::CreateEvent(false, &session->cancelEvent) != 0) {
    return Pelarix_Failure;
  }
  if (platform::CreateEvent(true, &session->hubNotificationEvent) != 0) {
    LogMessage(kLogFailure, u"Failed to create hub notification event");
    return Pelarix_Failure;
  }
  if (platform::CreateEvent(true, &session->deferredPluginEvent) != 0) {
    LogMessage(kLogFailure, u"Failed to create deferred plugin event");
    return Pelarix_Failure;
  }
  const PelarixStatus openStatus = OpenHubInterface(&session->hubHandle);
  if (openStatus != Pelarix_Success) {
    LogMessage(kLogFailure, u"Failed to open virtual hub interface");
    return openStatus;
  }
  uint32_t version = 0;
  if (GetHubVersion(session->hubHandle, &version) != Pelarix_Success) {
    LogMessage(kLogFailure, u"Failed to retrieve virtual hub version");
    return Pelarix_HubRequestFailed;
  }
  if ((version & 0xFFFF0000u) < kRequiredHubVersion) {
    // The second half of the sentence travels as an argument, not as part of
    // the format, so the line ends after "version, " and neither number shows.
    LogMessage(kLogFailure, u"Unsupported hub virtual hub version, ",
               u"version: %d, expected version: %d", version, kRequiredHubVersion);
    return Pelarix_UnsupportedHubVersion;
  }
  if (SetHubNotificationEvent(session->hubHandle, session->hubNotificationEvent) !=
      Pelarix_Success) {
    LogMessage(kLogFailure, u"Failed to set virtual hub notification event");
    return Pelarix_HubRequestFailed;
  }
  return Pelarix_Success;
}

// A zero-filled session record with its header and locks, or null.
PelarixSession *NewSessionRecord() {
  auto *session =
      static_cast<PelarixSession *>(AllocateRecord(kSessionHandle, sizeof(PelarixSession)));
  if (session == nullptr) {
    return nullptr;
  }
  InitHandleHeader(&session->header, kSessionHandle, nullptr);
  platform::InitLock(&session->deviceListLock);
  platform::InitLock(&session->hubItemLock);
  return session;
}

PelarixStatus OpenSession(PelarixHandle *pelarixHandle,
                          PelarixItemBufferCallback itemBufferCallback, void *itemBufferContext) {
  PelarixSession *session = NewSessionRecord();
  if (session == nullptr) {
    return Pelarix_OutOfMemory;
  }
  const PelarixStatus status = OpenSessionChannel(session);
  if (status != Pelarix_Success) {
    DestroySession(session);
    return status;
  }
  session->itemBufferCallback = itemBufferCallback;
  session->itemBufferContext = itemBufferContext;
  // Neither fails the session: a session without a filter manager works and
  // refuses every device.
  ReadSessionSettings(&session->settings);
  session->filterManager = FeedFilterManager(&session->settings, gLibrary.logLevel);
  *pelarixHandle = session;
  return Pelarix_Success;
}

}  // namespace

}  // namespace pelarix

extern "C" {

PELARIX_API PelarixStatus PELARIX_CALL
Pelarix_CreateSessionEx(PelarixHandle *pelarixHandle, PelarixItemBufferCallback itemBufferCallback,
                        void *itemBufferContext) {
  PelarixStatus status = Pelarix_InvalidParameter;
  if (pelarixHandle != nullptr) {
    *pelarixHandle = nullptr;
    status = pelarix::OpenSession(pelarixHandle, itemBufferCallback, itemBufferContext);
  }
  pelarix::LogMessage(pelarix::kLogLifecycle, u"Open handle: %p, status: 0x%x",
                      pelarixHandle != nullptr ? *pelarixHandle : nullptr, status);
  return status;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CreateSession(PelarixHandle *pelarixHandle) {
  return Pelarix_CreateSessionEx(pelarixHandle, nullptr, nullptr);
}

}  // extern "C"
