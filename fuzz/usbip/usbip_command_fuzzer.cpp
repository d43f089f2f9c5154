// The USB/IP server's readers of remote input. The first byte picks one:
// 0: the byte stream of a client's URB phase, read by an import of a device
//    with bulk, interrupt and isochronous endpoints (submits, unlinks, any
//    malformation; the hub queues the items, nobody answers them);
// 1: a client's answer to each kind of request block, through the
//    translation into a USB/IP return (and the pipes of a selection).
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "exported_device.h"
#include "hub_model.h"
#include "select_request.h"
#include "urb_translation.h"
#include "usbip_import.h"

namespace {

using namespace pelarix::usbip;

// A device with one endpoint of each kind: bulk in and out, interrupt in,
// isochronous in and out.
const std::vector<uint8_t> kConfig = {
    9, 2, 53,   0, 1,    1,    0,  0x80, 50,  //
    9, 4, 0,    0, 5,    0xFF, 0,  0,    0,   //
    7, 5, 0x81, 2, 0x00, 0x02, 0,             //
    7, 5, 0x02, 2, 0x00, 0x02, 0,             //
    7, 5, 0x83, 3, 8,    0,    10,            //
    7, 5, 0x84, 1, 0x00, 0x01, 1,             //
    7, 5, 0x05, 1, 0x00, 0x01, 1,             //
};

ExportedDevice Device() {
  ExportedDevice device;
  device.plugNo = 1;
  device.busId = "1-1";
  device.device = {18, 1, 0, 2, 0, 0, 0, 64, 0x09, 0x12, 1, 0, 0, 1, 0, 0, 0, 1};
  device.config = kConfig;
  return device;
}

void CommandStream(const uint8_t *data, size_t size) {
  int fds[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
    return;
  }
  // The whole stream is there before the import reads it; the returns go
  // to a peer that reads them until the import ends.
  std::thread drain([fd = fds[1], data, size] {
    size_t sent = 0;
    while (sent < size) {
      const ssize_t done = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
      if (done <= 0) {
        break;
      }
      sent += static_cast<size_t>(done);
    }
    shutdown(fd, SHUT_WR);
    uint8_t sink[4096];
    while (recv(fd, sink, sizeof sink, 0) > 0) {
    }
  });
  pelarix::vhub::HubModel model;
  std::mutex lock;
  std::map<uint32_t, UsbipImport *> routes;
  ImportLimits limits;
  limits.maxOutstanding = 64;
  limits.maxTransferBytes = 1u << 20;
  {
    UsbipImport import(fds[0], Device(), ImportContext{model, lock, routes, limits, {}});
    import.Run();
  }
  drain.join();
  close(fds[0]);
  close(fds[1]);
}

void Answers(const uint8_t *data, size_t size) {
  const std::vector<uint8_t> answer(data, data + size);
  SubmittedRequest request;
  request.length = 512;
  for (int kind = 0; kind < 4; ++kind) {
    request.in = kind % 2 == 0;
    request.type = kind < 2 ? TransferType::kBulk : TransferType::kIsochronous;
    request.iso = kind < 2 ? std::vector<IsoPacket>{}
                           : std::vector<IsoPacket>{{0, 200, 0, 0}, {200, 312, 0, 0}};
    const UrbReturn reply = ReturnOfAnswer(request, 0, answer);
    const std::vector<uint8_t> bytes = RetSubmitBytes(reply);
    if (reply.data.size() > request.length || bytes.size() < kUrbHeaderBytes) {
      __builtin_trap();
    }
  }
  std::string problem;
  (void)pelarix::demo::ReadSelectedPipes(answer, kConfig, &problem);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) {
    return 0;
  }
  if (data[0] % 2 == 0) {
    CommandStream(data + 1, size - 1);
  } else {
    Answers(data + 1, size - 1);
  }
  return 0;
}
