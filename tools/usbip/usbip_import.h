// The URB phase of one imported device: the connection's thread reads each
// command, queues a submit on the virtual hub as an item (the answer comes
// back through Completed) and decides an unlink; a writer thread of its own
// sends the returns in the order they were decided, so that a slow reader
// never holds up the hub.
//
// Locking: every item of every import is routed through one map guarded by
// one lock that the server owns (ImportContext). A submit holds it while the
// item is queued, so that its completion cannot be read before the route
// exists; the hub's completions reach Completed with it held.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "exported_device.h"
#include "hub_model.h"
#include "urb_translation.h"

namespace pelarix::usbip {

class UsbipImport;

struct ImportLimits {
  size_t maxOutstanding = 1024;           // submits waiting for their item
  uint32_t maxTransferBytes = 16u << 20;  // transfer_buffer_length
};

struct ImportContext {
  vhub::HubModel &model;
  std::mutex &routeLock;
  std::map<uint32_t, UsbipImport *> &routes;  // item id to its import
  ImportLimits limits;
  std::function<void(const std::string &line)> log;
};

class UsbipImport {
 public:
  UsbipImport(int fd, ExportedDevice device, ImportContext context);
  ~UsbipImport();
  UsbipImport(const UsbipImport &) = delete;
  UsbipImport &operator=(const UsbipImport &) = delete;

  // Serves commands until the client hangs up, the connection breaks or a
  // command is malformed; then forgets its items. Returns why it ended.
  std::string Run();
  // The completion of one of its items; the route lock is held.
  void Completed(uint32_t itemId, const vhub::CompletionRecord &completion);

 private:
  struct Waiting {
    SubmittedRequest request;
    bool unlinked = false;
  };

  std::string Submit(const UrbCommand &command);
  std::string Unlink(const UrbCommand &command);
  std::string ReadIsoPackets(const UrbCommand &command, std::vector<IsoPacket> *packets);
  // Queues the item and its route; the route lock is held.
  void QueueItem(const std::vector<uint8_t> &block, SubmittedRequest request);
  bool Send(std::vector<uint8_t> bytes);
  void Write();
  void Forget();

  int fd_;
  ExportedDevice device_;
  ImportContext context_;
  std::map<uint8_t, TransferType> typeOfEndpoint_;
  // Guarded by the route lock.
  std::map<uint32_t, uint32_t> itemOfSeqnum_;  // submits still waiting
  std::map<uint32_t, Waiting> waiting_;        // by item id, unlinked ones too
  std::map<uint8_t, uint32_t> pipeOfEndpoint_;
  // The returns not sent yet.
  std::mutex outboxLock_;
  std::condition_variable outboxChanged_;
  std::deque<std::vector<uint8_t>> outbox_;
  bool closing_ = false;
  std::thread writer_;
};

}  // namespace pelarix::usbip
