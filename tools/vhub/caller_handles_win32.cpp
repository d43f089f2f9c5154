// The caller's handles on Windows, where the hub runs in the library's own
// process: the notification event is a duplicate of the library's event
// HANDLE, and a reply is the answer slot a held request waits on.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "caller_handles.h"
#include "reply_slot.h"

namespace pelarix::vhub {

void AdoptNotificationEvent(CallerHandle /*event*/) {
  // An event is set and reset without waiting, whatever its state.
}

void SignalNotificationEvent(CallerHandle event, bool raised) {
  HANDLE handle = reinterpret_cast<HANDLE>(event);
  if (raised) {
    SetEvent(handle);
  } else {
    ResetEvent(handle);
  }
}

void CloseNotificationEvent(CallerHandle event) {
  CloseHandle(reinterpret_cast<HANDLE>(event));
}

bool SendReply(CallerHandle reply, const HubAnswer &answer) {
  reinterpret_cast<ReplySlot *>(reply)->Answer(answer);
  return true;
}

void CloseReply(CallerHandle reply) {
  reinterpret_cast<ReplySlot *>(reply)->Close();
}

}  // namespace pelarix::vhub
