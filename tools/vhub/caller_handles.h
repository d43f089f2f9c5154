// What the hub holds of its caller: the session's notification event and,
// for each request whose answer a test holds back, the way to that request's
// caller. On POSIX both are descriptors that came with the request frames
// (an eventfd and the reply end of a socket pair); on Windows, where the hub
// runs in the library's own process (in_process_virtual_hub.cpp), the event
// is a duplicate of the library's event HANDLE and a reply is the waiting
// request's answer slot. The hub owns each one from the moment it gets it.
#pragma once

#include <cstdint>

#include "request_frame.h"

namespace pelarix::vhub {

using CallerHandle = intptr_t;
inline constexpr CallerHandle kNoCallerHandle = -1;

// Takes the notification event over from the transport.
void AdoptNotificationEvent(CallerHandle event);
// Sets (raised) or clears the notification event.
void SignalNotificationEvent(CallerHandle event, bool raised);
void CloseNotificationEvent(CallerHandle event);

// Gives a held request its answer; false if its caller went away.
bool SendReply(CallerHandle reply, const HubAnswer &answer);
// Lets a reply go; a request never answered sees its hub hang up.
void CloseReply(CallerHandle reply);

}  // namespace pelarix::vhub
