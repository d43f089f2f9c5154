// Destroying sessions.
#include "frame/session.h"

#include "frame/record_pool.h"
#include "platform/platform.h"

namespace pelarix {

void DestroySession(PelarixSession *session) {
  platform::EnterLock(&session->deviceListLock);
  // With devices left, the last device to go takes the session with it.
  const bool mine = session->devices == nullptr && !session->teardownClaimed;
  session->teardownClaimed = session->teardownClaimed || mine;
  platform::LeaveLock(&session->deviceListLock);
  if (mine) {
    FreeSession(session);
  }
}

void FreeSession(PelarixSession *session) {
  if (session->cancelEvent != nullptr) {
    platform::CloseEvent(session->cancelEvent);
  }
  if (session->hubHandle != nullptr) {
    platform::HubClose(session->hubHandle);
  }
  if (session->hubNotificationEvent != nullptr) {
    platform::CloseEvent(session->hubNotificationEvent);
  }
  platform::DeleteLock(&session->deviceListLock);
  platform::DeleteLock(&session->hubItemLock);
  if (session->deferredPluginEvent != nullptr) {
    platform::CloseEvent(session->deferredPluginEvent);
  }
  FreeSessionSettings(&session->settings);
  ordo::usb::DestroyFilterManager(session->filterManager);
  FreeRecord(kSessionHandle, session, sizeof(PelarixSession));
}

}  // namespace pelarix
