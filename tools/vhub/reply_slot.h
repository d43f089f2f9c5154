// Where a held request waits for its answer when the hub runs in the
// library's process: the request's thread waits on the slot, the hub answers
// it when a test releases the request, or closes it unanswered (the session
// ended), which the request sees as a hub that hung up. Both sides own the
// slot; whichever lets go last frees it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "request_frame.h"

namespace pelarix::vhub {

class ReplySlot {
 public:
  // The hub's side.
  void Answer(const HubAnswer &answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    answer_ = answer;
  }
  void Close() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
      changed_.notify_all();
    }
    LetGo();
  }

  // The request's side: the answer, or none if the hub hung up. Frees the
  // slot's half that the request holds.
  std::optional<HubAnswer> Wait() {
    std::optional<HubAnswer> answer;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      changed_.wait(lock, [this] { return closed_; });
      answer = answer_;
    }
    LetGo();
    return answer;
  }

 private:
  void LetGo() {
    if (owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<HubAnswer> answer_;
  bool closed_ = false;
  std::atomic<int> owners_{2};
};

}  // namespace pelarix::vhub
