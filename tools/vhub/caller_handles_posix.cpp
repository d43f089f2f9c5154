// The caller's descriptors on POSIX: the notification event is an eventfd,
// raised by adding to its counter and cleared by reading it; a reply is the
// socket end the answer frame goes to.
#include <fcntl.h>
#include <unistd.h>

#include "caller_handles.h"

namespace pelarix::vhub {

void AdoptNotificationEvent(CallerHandle event) {
  // The hub must never wait on a client's descriptor: a blocking one whose
  // counter a client keeps full (or empty) would stop the hub in write (or
  // read). The library's event is non-blocking already.
  const int fd = static_cast<int>(event);
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void SignalNotificationEvent(CallerHandle event, bool raised) {
  const int fd = static_cast<int>(event);
  if (raised) {
    uint64_t one = 1;
    [[maybe_unused]] ssize_t written = write(fd, &one, sizeof one);
  } else {
    uint64_t count = 0;
    [[maybe_unused]] ssize_t got = read(fd, &count, sizeof count);
  }
}

void CloseNotificationEvent(CallerHandle event) {
  close(static_cast<int>(event));
}

bool SendReply(CallerHandle reply, const HubAnswer &answer) {
  // Held answers are small and go to a fresh reply socket; one that finds no
  // room is dropped, and its caller sees the hang-up.
  size_t sent = 0;
  int error = 0;
  return SendWithoutWaiting(static_cast<int>(reply), EncodeAnswer(answer), &sent, &error) ==
         SendOutcome::kDone;
}

void CloseReply(CallerHandle reply) {
  close(static_cast<int>(reply));
}

}  // namespace pelarix::vhub
