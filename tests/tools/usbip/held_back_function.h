// A class function whose client holds every transfer back until the test
// releases it: what a device does with a read that waits for an event.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "keyboard_function.h"
#include "usb_function.h"

namespace pelarix::usbip::testing {

class HeldBackFunction : public demo::UsbFunction {
 public:
  uint32_t Transfer(uint8_t /*endpoint*/, const std::vector<uint8_t> & /*out*/, uint32_t /*room*/,
                    std::vector<uint8_t> *in) override {
    std::unique_lock<std::mutex> lock(mutex_);
    ++entered_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return released_; });
    *in = std::vector<uint8_t>(demo::kKeyboardReportBytes, 0);
    return 0;
  }
  // Waits until `count` transfers have reached the client.
  bool WaitEntered(int count) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return entered_ >= count; });
  }
  void Release() {
    std::lock_guard<std::mutex> lock(mutex_);
    released_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int entered_ = 0;
  bool released_ = false;
};

}  // namespace pelarix::usbip::testing
