// Events on eventfd. A set event is an eventfd whose counter is not zero, so
// it is readable, and any process holding the descriptor can wait on it with
// poll. A manual-reset event is only polled; an auto-reset event is consumed
// by the one waiter whose read empties the counter, which also folds several
// sets without a waiter into one, as on Windows.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <new>

#include "platform/platform.h"
#include "platform/posix/system_error.h"

namespace pelarix::platform {

struct EventObject {
  int fd;
  bool manualReset;
};

namespace {

using Clock = std::chrono::steady_clock;

// What is left of a timeout, in poll's terms (-1 for no limit).
class Deadline {
 public:
  explicit Deadline(uint32_t timeoutMs)
      : infinite_(timeoutMs == kInfinite),
        end_(Clock::now() + std::chrono::milliseconds(infinite_ ? 0 : timeoutMs)) {}

  int RemainingMs() const {
    if (infinite_) {
      return -1;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
  }

 private:
  bool infinite_;
  Clock::time_point end_;
};

// Empties the counter; true when this caller took a set.
bool ConsumeEvent(Event event) {
  uint64_t count = 0;
  return read(event->fd, &count, sizeof count) == static_cast<ssize_t>(sizeof count);
}

// A signalled event as a wait sees it: manual-reset events are just reported,
// auto-reset ones only to the waiter that consumes them.
bool TakeSignalled(Event event) {
  return event->manualReset || ConsumeEvent(event);
}

}  // namespace

uint32_t CreateEvent(bool manualReset, Event *out) {
  *out = nullptr;
  int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd < 0) {
    return WindowsErrorFromErrno(errno);
  }
  auto *event = new (std::nothrow) EventObject{fd, manualReset};
  if (event == nullptr) {
    close(fd);
    return kErrorNotEnoughMemory;
  }
  *out = event;
  return kErrorSuccess;
}

void SetEvent(Event event) {
  if (event == nullptr) {
    return;
  }
  uint64_t one = 1;
  // A counter that is already up stays up; nothing to report.
  [[maybe_unused]] ssize_t written = write(event->fd, &one, sizeof one);
}

void ResetEvent(Event event) {
  if (event == nullptr) {
    return;
  }
  ConsumeEvent(event);
}

void CloseEvent(Event event) {
  if (event == nullptr) {
    return;
  }
  close(event->fd);
  delete event;
}

uint32_t WaitForEvent(Event event, uint32_t timeoutMs) {
  return WaitForAnyEvent(&event, 1, timeoutMs);
}

uint32_t WaitForAnyEvent(const Event *events, uint32_t count, uint32_t timeoutMs) {
  if (count == 0 || count > kMaxWaitEvents) {
    return kWaitFailed;
  }
  pollfd fds[kMaxWaitEvents];
  for (uint32_t i = 0; i < count; ++i) {
    if (events[i] == nullptr) {
      return kWaitFailed;
    }
    fds[i] = pollfd{events[i]->fd, POLLIN, 0};
  }
  Deadline deadline(timeoutMs);
  for (;;) {
    int ready = poll(fds, count, deadline.RemainingMs());
    if (ready < 0 && errno != EINTR) {
      return kWaitFailed;
    }
    for (uint32_t i = 0; ready > 0 && i < count; ++i) {
      if ((fds[i].revents & POLLIN) != 0 && TakeSignalled(events[i])) {
        return kWaitObject0 + i;
      }
    }
    // Another waiter may have consumed the auto-reset event we saw; wait on.
    if (ready == 0 && deadline.RemainingMs() == 0) {
      return kWaitTimeout;
    }
  }
}

uint64_t EventHandleValue(Event event) {
  return event == nullptr ? 0 : static_cast<uint64_t>(event->fd);
}

}  // namespace pelarix::platform
