// A stream of request frames into a fresh virtual hub: frame parsing, and
// each request's record checks (plug-in, completion, unplug) on any bytes.
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "hub/hub_control_codes.h"
#include "hub_model.h"
#include "request_frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  pelarix::vhub::HubModel model;
  model.OpenSession();
  model.QueueItem({0, 1, {1, 2, 3, 4}, {9, 8, 7}, 0});
  model.QueueItem({2, 2, {}, {}, 1});
  size_t used = 0;
  for (;;) {
    pelarix::vhub::RequestFrame frame;
    size_t consumed = 0;
    auto parse = pelarix::vhub::ParseRequestFrame(data + used, size - used, &frame, &consumed);
    if (parse != pelarix::vhub::FrameParse::kComplete) break;
    int eventFd = -1;
    if (frame.code == pelarix::IOCTL_HUB_SET_NOTIFICATION_EVENT) {
      eventFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    model.Handle(frame.code, frame.input, frame.inputLength, frame.outputCapacity, eventFd);
    used += consumed;
  }
  model.ItemReport();
  model.CloseSession("input over");
  return 0;
}
