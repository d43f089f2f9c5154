// What the virtual hub does with each request: the driver's part, without
// the transport. It hands out plug numbers and item ids, checks plug-in
// records, keeps the item queue and raises the session's notification event
// while items wait, and records every request, plug-in and completion so that
// tests can read them back. Tests can also queue items and make any request
// fail. All members are safe to call from any thread.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "caller_handles.h"
#include "request_frame.h"

namespace pelarix::vhub {

inline constexpr uint32_t kDefaultHubVersion = 0x00020000;

// Windows error codes the hub answers with.
inline constexpr uint32_t kErrorInvalidFunction = 1;
inline constexpr uint32_t kErrorSharingViolation = 32;
inline constexpr uint32_t kErrorInvalidParameter = 87;
inline constexpr uint32_t kErrorInsufficientBuffer = 122;
inline constexpr uint32_t kErrorAlreadyExists = 183;

// An item as a test queues it; the hub adds the item id.
struct ItemSpec {
  uint32_t type = 0;
  uint32_t plugNo = 0;
  std::array<uint32_t, 4> params{};
  std::vector<uint8_t> data;
  uint32_t noCompletion = 0;
};

struct RequestRecord {
  uint32_t code = 0;
  std::vector<uint8_t> input;
  uint32_t outputCapacity = 0;
  bool eventAttached = false;
  bool injected = false;  // answered by a test's injection, not processed
  HubAnswer answer;
};

struct CompletionRecord {
  uint32_t itemId = 0;
  uint32_t status = 0;
  std::vector<uint8_t> data;
  std::vector<uint8_t> record;  // the whole input, as sent
  bool known = false;           // the id was one of the hub's delivered items
};

// An item that ended a test in a bad state.
struct ItemProblem {
  uint32_t itemId = 0;
  uint32_t plugNo = 0;
  uint32_t type = 0;
  bool delivered = false;    // false: it still waits in the queue
  uint32_t completions = 0;  // 0: never completed; 2 or more: completed again
};

// What a host side (the part the agent's operating system plays above a real
// hub) learns from the hub as it happens. The calls come on the thread that
// sent the request, with the model's lock held: an observer must not call
// back into the model from them, only note what it saw.
struct HubObserver {
  std::function<void(uint32_t plugNo, const std::vector<uint8_t> &record)> plugged;
  std::function<void(uint32_t plugNo)> unplugged;
  std::function<void(const CompletionRecord &completion)> completed;
};

class HubModel {
 public:
  using Logger = std::function<void(const std::string &line)>;
  static constexpr uint32_t kForever = 0;

  // A hub that does not keep records (the daemon, which runs for long) keeps
  // no request, plug-in, unplug or completion lists, and forgets an item once
  // it is completed: the report then names only items still unanswered.
  explicit HubModel(uint32_t version = kDefaultHubVersion, Logger logger = {},
                    bool keepRecords = true);
  ~HubModel();
  HubModel(const HubModel &) = delete;
  HubModel &operator=(const HubModel &) = delete;

  // --- the transport's side -------------------------------------------------
  // The open status for a new connection: 0 opens a session; 32 while another
  // session holds the hub; or the status a test asked for. A refusal is
  // logged with its reason.
  uint32_t OpenSession();
  // Forgets the session: its devices are unplugged, its items dropped and its
  // notification event let go. The reason ends the "session closed" line.
  void CloseSession(const std::string &reason);
  // One request. eventFd is the notification event that came with
  // IOCTL_HUB_SET_NOTIFICATION_EVENT (or kNoCallerHandle); the model owns it
  // from here.
  // *hold is set when a test asked to hold this request: its answer is then
  // sent only by ReleaseHeld, through HoldReply.
  HubAnswer Handle(uint32_t code, const uint8_t *input, uint32_t inputLength,
                   uint32_t outputCapacity, CallerHandle eventFd, bool *hold = nullptr);
  // Keeps the reply of a held request (the model owns it now).
  void HoldReply(uint32_t code, CallerHandle replyFd, HubAnswer answer);

  // --- a test's side --------------------------------------------------------
  void SetVersion(uint32_t version);
  // Replaces the observer (an empty one stops the reports).
  void SetObserver(HubObserver observer);
  // The next connection gets this open status instead (0 changes nothing).
  void SetNextOpenStatus(uint32_t status);
  // Queues an item and returns its id.
  uint32_t QueueItem(const ItemSpec &item);
  // The next `times` requests of this code (kForever: all) get this answer
  // and are not processed.
  void InjectAnswer(uint32_t code, HubAnswer answer, uint32_t times = 1);
  // The same, but each such request stays unanswered (its caller waits)
  // until ReleaseHeld: for requests that are in flight while others run.
  void HoldAnswer(uint32_t code, HubAnswer answer, uint32_t times = 1);
  // Answers the earliest held request of this code; false if none is held.
  bool ReleaseHeld(uint32_t code);
  // Waits until count requests are held; false on time-out.
  bool WaitForHeld(size_t count, uint32_t timeoutMs) const;
  void FailRequest(uint32_t code, uint32_t error, bool afterPending, uint32_t times = 1);
  void ClearInjections();
  // Raises or clears the notification event by hand (the queue's own rule
  // applies again at the next change).
  void RaiseNotification(bool raised);

  std::vector<RequestRecord> Requests() const;
  std::vector<RequestRecord> RequestsOf(uint32_t code) const;
  std::vector<std::vector<uint8_t>> PluginRecords() const;  // accepted ones, whole
  std::vector<uint32_t> PluggedDevices() const;
  std::vector<uint32_t> Unplugs() const;  // PlugNos of unplug requests, in order
  std::vector<CompletionRecord> Completions() const;
  size_t QueuedItems() const;
  bool NotificationRaised() const;
  bool SessionOpen() const;
  uint32_t SessionsOpened() const;
  // Waits until no session is open; false on time-out.
  bool WaitForNoSession(uint32_t timeoutMs) const;

  // Items never completed or completed more than once, and the same as text
  // (empty when there are none). Items the hub dropped (unplug, session
  // close) are not counted.
  std::vector<ItemProblem> ItemProblems() const;
  std::string ItemReport() const;

 private:
  struct QueuedItem {
    uint32_t itemId;
    ItemSpec content;
  };
  struct ItemTrack {
    uint32_t plugNo = 0;
    uint32_t type = 0;
    bool delivered = false;
    bool dropped = false;
    uint32_t completions = 0;
  };
  struct Injection {
    HubAnswer answer;
    uint32_t times = 0;
    bool hold = false;
  };
  struct HeldReply {
    uint32_t code = 0;
    CallerHandle replyFd = kNoCallerHandle;
    HubAnswer answer;
  };

  HubAnswer Process(uint32_t code, const uint8_t *input, uint32_t inputLength,
                    uint32_t outputCapacity, CallerHandle eventFd);
  HubAnswer Word(uint32_t value, uint32_t outputCapacity);
  HubAnswer SetNotificationEvent(uint32_t inputLength, CallerHandle eventFd);
  HubAnswer UnplugDevice(const uint8_t *input, uint32_t inputLength);
  HubAnswer GetItem(uint32_t outputCapacity);
  HubAnswer GetItemBuffer(uint32_t outputCapacity);
  HubAnswer CompleteItem(const uint8_t *input, uint32_t inputLength);
  HubAnswer PluginDevice(const uint8_t *input, uint32_t inputLength);
  uint32_t NextItemId();
  void DropQueuedItems(std::optional<uint32_t> plugNo);
  void UpdateNotification();
  void SetRaised(bool raised);
  void Log(const std::string &line) const;

  mutable std::mutex mutex_;
  mutable std::condition_variable sessionChanged_;
  Logger logger_;
  HubObserver observer_;
  uint32_t version_;
  bool keepRecords_;
  uint32_t nextOpenStatus_ = 0;
  bool sessionOpen_ = false;
  uint32_t sessionsOpened_ = 0;
  uint32_t nextPlugNo_ = 1;
  uint32_t nextItemId_ = 1;
  CallerHandle eventFd_ = kNoCallerHandle;
  bool raised_ = false;
  std::deque<QueuedItem> queue_;
  std::optional<QueuedItem> lastDelivered_;
  std::map<uint32_t, ItemTrack> items_;
  std::set<uint32_t> plugged_;
  std::map<uint32_t, std::deque<Injection>> injections_;
  std::vector<HeldReply> held_;
  mutable std::condition_variable heldChanged_;
  std::vector<RequestRecord> requests_;
  std::vector<std::vector<uint8_t>> pluginRecords_;
  std::vector<uint32_t> unplugs_;
  std::vector<CompletionRecord> completions_;
};

// The request's name, for logs ("IOCTL_HUB_GET_ITEM"), or its code in hex.
std::string HubRequestName(uint32_t code);

}  // namespace pelarix::vhub
