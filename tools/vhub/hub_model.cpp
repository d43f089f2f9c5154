#include "hub_model.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "hub/hub_control_codes.h"
#include "hub/hub_records.h"

namespace pelarix::vhub {

namespace {

constexpr uint8_t kDeviceDescriptorType = 1;
constexpr uint8_t kConfigDescriptorType = 2;
constexpr uint16_t kConfigDescriptorMinimum = 9;

HubAnswer Failure(uint32_t error, bool pending = false) {
  return HubAnswer{pending, error, {}};
}

std::string Hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

std::string Describe(const HubAnswer &answer) {
  std::string text = answer.pending ? "pending, " : "";
  text += answer.error == 0 ? "ok" : "error " + Hex(answer.error);
  return text + ", " + std::to_string(answer.output.size()) + " bytes";
}

}  // namespace

std::string HubRequestName(uint32_t code) {
  switch (code) {
    case IOCTL_HUB_GET_VERSION:
      return "IOCTL_HUB_GET_VERSION";
    case IOCTL_HUB_SET_NOTIFICATION_EVENT:
      return "IOCTL_HUB_SET_NOTIFICATION_EVENT";
    case IOCTL_HUB_GET_UNIQUE_ITEM_ID:
      return "IOCTL_HUB_GET_UNIQUE_ITEM_ID";
    case IOCTL_HUB_GET_NEXT_PLUG_NUMBER:
      return "IOCTL_HUB_GET_NEXT_PLUG_NUMBER";
    case IOCTL_HUB_UNPLUG_DEVICE:
      return "IOCTL_HUB_UNPLUG_DEVICE";
    case IOCTL_HUB_GET_ITEM:
      return "IOCTL_HUB_GET_ITEM";
    case IOCTL_HUB_GET_ITEM_BUFFER:
      return "IOCTL_HUB_GET_ITEM_BUFFER";
    case IOCTL_HUB_COMPLETE_ITEM:
      return "IOCTL_HUB_COMPLETE_ITEM";
    case IOCTL_HUB_PLUGIN_DEVICE:
      return "IOCTL_HUB_PLUGIN_DEVICE";
    default:
      return "request " + Hex(code);
  }
}

HubModel::HubModel(uint32_t version, Logger logger, bool keepRecords)
    : logger_(std::move(logger)), version_(version), keepRecords_(keepRecords) {}

HubModel::~HubModel() {
  for (const HeldReply &held : held_) {
    CloseReply(held.replyFd);
  }
  if (eventFd_ != kNoCallerHandle) {
    CloseNotificationEvent(eventFd_);
  }
}

// ---------------------------------------------------------------------------
// The transport's side.

uint32_t HubModel::OpenSession() {
  std::lock_guard<std::mutex> lock(mutex_);
  uint32_t status = nextOpenStatus_;
  nextOpenStatus_ = 0;
  const bool asked = status != 0;
  if (status == 0 && sessionOpen_) {
    status = kErrorSharingViolation;
  }
  if (status == 0) {
    sessionOpen_ = true;
    ++sessionsOpened_;
    Log("session " + std::to_string(sessionsOpened_) + " opened");
  } else {
    Log("open refused with " + Hex(status) +
        (asked ? ": the status a test set" : ": another session holds the hub (exclusive open)"));
  }
  sessionChanged_.notify_all();
  return status;
}

void HubModel::CloseSession(const std::string &reason) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (uint32_t plugNo : plugged_) {
    Log("PlugNo " + std::to_string(plugNo) + " unplugged at close");
  }
  plugged_.clear();
  DropQueuedItems(std::nullopt);
  lastDelivered_.reset();
  for (const HeldReply &held : held_) {
    CloseReply(held.replyFd);  // their callers see a hang-up
  }
  held_.clear();
  if (eventFd_ != kNoCallerHandle) {
    CloseNotificationEvent(eventFd_);
  }
  eventFd_ = kNoCallerHandle;
  raised_ = false;
  sessionOpen_ = false;
  Log("session closed: " + reason);
  sessionChanged_.notify_all();
}

HubAnswer HubModel::Handle(uint32_t code, const uint8_t *input, uint32_t inputLength,
                           uint32_t outputCapacity, CallerHandle eventFd, bool *hold) {
  std::lock_guard<std::mutex> lock(mutex_);
  RequestRecord record;
  record.code = code;
  // The input is copied only for a test that reads the requests back: a
  // long completion's bytes are the hub's hottest copy.
  if (keepRecords_) {
    record.input.assign(input, input + inputLength);
  }
  record.outputCapacity = outputCapacity;
  record.eventAttached = eventFd != kNoCallerHandle;
  auto injected = injections_.find(code);
  if (injected != injections_.end() && !injected->second.empty()) {
    Injection &next = injected->second.front();
    record.answer = next.answer;
    record.injected = true;
    if (hold != nullptr) {
      *hold = next.hold;
    }
    if (next.times != kForever && --next.times == 0) {
      injected->second.pop_front();
    }
    if (eventFd != kNoCallerHandle) {
      CloseNotificationEvent(eventFd);
    }
  } else {
    record.answer = Process(code, input, inputLength, outputCapacity, eventFd);
  }
  if (record.answer.output.size() > outputCapacity) {
    record.answer.output.resize(outputCapacity);
  }
  if (logger_) {
    Log(HubRequestName(code) + " in " + std::to_string(inputLength) + " out " +
        std::to_string(outputCapacity) + (record.injected ? " (injected): " : ": ") +
        Describe(record.answer));
  }
  if (!keepRecords_) {
    return std::move(record.answer);
  }
  requests_.push_back(record);
  return record.answer;
}

HubAnswer HubModel::Process(uint32_t code, const uint8_t *input, uint32_t inputLength,
                            uint32_t outputCapacity, CallerHandle eventFd) {
  if (code != IOCTL_HUB_SET_NOTIFICATION_EVENT && eventFd != kNoCallerHandle) {
    CloseNotificationEvent(eventFd);
  }
  switch (code) {
    case IOCTL_HUB_GET_VERSION:
      return Word(version_, outputCapacity);
    case IOCTL_HUB_SET_NOTIFICATION_EVENT:
      return SetNotificationEvent(inputLength, eventFd);
    case IOCTL_HUB_GET_UNIQUE_ITEM_ID:
      return outputCapacity < 4 ? Failure(kErrorInsufficientBuffer)
                                : Word(NextItemId(), outputCapacity);
    case IOCTL_HUB_GET_NEXT_PLUG_NUMBER:
      return outputCapacity < 4 ? Failure(kErrorInsufficientBuffer)
                                : Word(nextPlugNo_++, outputCapacity);
    case IOCTL_HUB_UNPLUG_DEVICE:
      return UnplugDevice(input, inputLength);
    case IOCTL_HUB_GET_ITEM:
      return GetItem(outputCapacity);
    case IOCTL_HUB_GET_ITEM_BUFFER:
      return GetItemBuffer(outputCapacity);
    case IOCTL_HUB_COMPLETE_ITEM:
      return CompleteItem(input, inputLength);
    case IOCTL_HUB_PLUGIN_DEVICE:
      return PluginDevice(input, inputLength);
    default:
      return Failure(kErrorInvalidFunction);
  }
}

HubAnswer HubModel::Word(uint32_t value, uint32_t outputCapacity) {
  if (outputCapacity < 4) {
    return Failure(kErrorInsufficientBuffer);
  }
  HubAnswer answer;
  AppendU32(answer.output, value);
  return answer;
}

HubAnswer HubModel::SetNotificationEvent(uint32_t inputLength, CallerHandle eventFd) {
  if (inputLength != 8 || eventFd == kNoCallerHandle) {
    if (eventFd != kNoCallerHandle) {
      CloseNotificationEvent(eventFd);
    }
    return Failure(kErrorInvalidParameter);
  }
  if (eventFd_ != kNoCallerHandle) {
    CloseNotificationEvent(eventFd_);
  }
  AdoptNotificationEvent(eventFd);
  eventFd_ = eventFd;
  raised_ = false;
  UpdateNotification();
  return {};
}

HubAnswer HubModel::UnplugDevice(const uint8_t *input, uint32_t inputLength) {
  if (inputLength < 4) {
    return Failure(kErrorInvalidParameter);
  }
  uint32_t plugNo = ReadU32(input);
  plugged_.erase(plugNo);
  if (keepRecords_) {
    unplugs_.push_back(plugNo);
  }
  if (observer_.unplugged) {
    observer_.unplugged(plugNo);
  }
  DropQueuedItems(plugNo);
  UpdateNotification();
  return {};
}

HubAnswer HubModel::GetItem(uint32_t outputCapacity) {
  // Asking before the event was handed over is the caller's error, reported
  // when the request ends, as the driver does.
  if (eventFd_ == kNoCallerHandle) {
    return Failure(kHubErrorNotificationEventNotSet, true);
  }
  if (queue_.empty()) {
    UpdateNotification();
    return {};
  }
  if (outputCapacity < kHubItemRecordHeaderBytes) {
    return Failure(kErrorInsufficientBuffer);
  }
  QueuedItem item = std::move(queue_.front());
  queue_.pop_front();
  HubItemRecord header{};
  header.type = item.content.type;
  header.itemId = item.itemId;
  header.plugNo = item.content.plugNo;
  std::copy(item.content.params.begin(), item.content.params.end(), header.params);
  header.dataLength = static_cast<uint32_t>(item.content.data.size());
  header.noCompletion = item.content.noCompletion;
  // Only what the caller has room for is built: the rest waits for
  // IOCTL_HUB_GET_ITEM_BUFFER.
  const size_t dataBytes =
      std::min<size_t>(item.content.data.size(), outputCapacity - kHubItemRecordHeaderBytes);
  HubAnswer answer;
  answer.output.resize(kHubItemRecordHeaderBytes + dataBytes);
  WriteHubItemRecord(answer.output.data(), header);
  std::copy_n(item.content.data.begin(), dataBytes,
              answer.output.begin() + kHubItemRecordHeaderBytes);
  items_[item.itemId].delivered = true;
  lastDelivered_ = std::move(item);
  UpdateNotification();
  return answer;
}

HubAnswer HubModel::GetItemBuffer(uint32_t outputCapacity) {
  if (!lastDelivered_) {
    return Failure(kErrorInvalidFunction);
  }
  const std::vector<uint8_t> &data = lastDelivered_->content.data;
  HubAnswer answer;
  answer.output.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(
                                                        data.size(), outputCapacity)));
  return answer;
}

HubAnswer HubModel::CompleteItem(const uint8_t *input, uint32_t inputLength) {
  if (inputLength < kHubCompleteRecordHeaderBytes) {
    return Failure(kErrorInvalidParameter);
  }
  HubCompleteRecord header = ReadHubCompleteRecord(input);
  if (header.dataLength > inputLength - kHubCompleteRecordHeaderBytes) {
    return Failure(kErrorInvalidParameter);
  }
  CompletionRecord completion;
  completion.itemId = header.itemId;
  completion.status = header.status;
  // The bytes are copied only for whoever reads them back: a test's records
  // or an observer.
  if (keepRecords_ || observer_.completed) {
    const uint8_t *data = input + kHubCompleteRecordHeaderBytes;
    completion.data.assign(data, data + header.dataLength);
    completion.record.assign(input, input + inputLength);
  }
  auto tracked = items_.find(header.itemId);
  if (tracked != items_.end() && tracked->second.delivered) {
    completion.known = true;
    ++tracked->second.completions;
    if (!keepRecords_) {
      items_.erase(tracked);
    }
  }
  if (!completion.known) {
    Log("completion of unknown item " + std::to_string(header.itemId));
  }
  if (observer_.completed) {
    observer_.completed(completion);
  }
  if (keepRecords_) {
    completions_.push_back(std::move(completion));
  }
  return {};
}

HubAnswer HubModel::PluginDevice(const uint8_t *input, uint32_t inputLength) {
  // The driver checks a plug-in after the request has gone pending.
  if (inputLength < kHubPluginRecordOverhead) {
    return Failure(kErrorInvalidParameter, true);
  }
  HubPluginRecord header{};
  std::memcpy(&header, input, sizeof header);
  uint32_t payloadLength = inputLength - kHubPluginRecordOverhead;
  if (header.payloadLength != payloadLength) {
    return Failure(kErrorInvalidParameter, true);
  }
  if (plugged_.count(header.plugNo) != 0) {
    return Failure(kErrorAlreadyExists, true);
  }
  const uint8_t *device = input + sizeof header;
  bool deviceGood = payloadLength >= kUsbDeviceDescriptorBytes &&
                    device[0] == kUsbDeviceDescriptorBytes && device[1] == kDeviceDescriptorType;
  if (!deviceGood) {
    return Failure(kHubErrorDeviceDescriptorCheck, true);
  }
  const uint8_t *config = device + kUsbDeviceDescriptorBytes;
  uint32_t configRoom = payloadLength - kUsbDeviceDescriptorBytes;
  uint32_t totalLength = configRoom >= 4 ? (config[2] | config[3] << 8) : 0;
  bool configGood = configRoom >= kConfigDescriptorMinimum && config[1] == kConfigDescriptorType &&
                    totalLength >= kConfigDescriptorMinimum && totalLength <= configRoom;
  if (!configGood) {
    return Failure(kHubErrorConfigDescriptorCheck, true);
  }
  plugged_.insert(header.plugNo);
  if (keepRecords_) {
    pluginRecords_.emplace_back(input, input + inputLength);
  }
  Log("PlugNo " + std::to_string(header.plugNo) + " plugged in");
  if (observer_.plugged) {
    observer_.plugged(header.plugNo, {input, input + inputLength});
  }
  return HubAnswer{true, 0, {}};
}

uint32_t HubModel::NextItemId() {
  uint32_t id = nextItemId_++;
  if (nextItemId_ == 0) {
    nextItemId_ = 1;  // 0 marks a blank record
  }
  return id;
}

void HubModel::DropQueuedItems(std::optional<uint32_t> plugNo) {
  auto dropped = [&](const QueuedItem &item) {
    bool drop = !plugNo || item.content.plugNo == *plugNo;
    if (drop && keepRecords_) {
      items_[item.itemId].dropped = true;
    }
    if (drop && !keepRecords_) {
      items_.erase(item.itemId);
    }
    return drop;
  };
  queue_.erase(std::remove_if(queue_.begin(), queue_.end(), dropped), queue_.end());
}

void HubModel::UpdateNotification() {
  if (eventFd_ != kNoCallerHandle && raised_ != !queue_.empty()) {
    SetRaised(!queue_.empty());
  }
}

void HubModel::SetRaised(bool raised) {
  if (eventFd_ == kNoCallerHandle) {
    return;
  }
  SignalNotificationEvent(eventFd_, raised);
  raised_ = raised;
}

void HubModel::Log(const std::string &line) const {
  if (logger_) {
    logger_(line);
  }
}

// ---------------------------------------------------------------------------
// A test's side.

void HubModel::SetVersion(uint32_t version) {
  std::lock_guard<std::mutex> lock(mutex_);
  version_ = version;
}

void HubModel::SetObserver(HubObserver observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  observer_ = std::move(observer);
}

void HubModel::SetNextOpenStatus(uint32_t status) {
  std::lock_guard<std::mutex> lock(mutex_);
  nextOpenStatus_ = status;
}

uint32_t HubModel::QueueItem(const ItemSpec &item) {
  std::lock_guard<std::mutex> lock(mutex_);
  uint32_t itemId = NextItemId();
  ItemTrack &track = items_[itemId];
  track.plugNo = item.plugNo;
  track.type = item.type;
  queue_.push_back(QueuedItem{itemId, item});
  UpdateNotification();
  Log("item " + std::to_string(itemId) + " queued for PlugNo " + std::to_string(item.plugNo));
  return itemId;
}

void HubModel::InjectAnswer(uint32_t code, HubAnswer answer, uint32_t times) {
  std::lock_guard<std::mutex> lock(mutex_);
  injections_[code].push_back(Injection{std::move(answer), times, false});
}

void HubModel::HoldAnswer(uint32_t code, HubAnswer answer, uint32_t times) {
  std::lock_guard<std::mutex> lock(mutex_);
  injections_[code].push_back(Injection{std::move(answer), times, true});
}

void HubModel::HoldReply(uint32_t code, CallerHandle replyFd, HubAnswer answer) {
  std::lock_guard<std::mutex> lock(mutex_);
  held_.push_back(HeldReply{code, replyFd, std::move(answer)});
  heldChanged_.notify_all();
}

bool HubModel::ReleaseHeld(uint32_t code) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto held = std::find_if(held_.begin(), held_.end(),
                           [code](const HeldReply &reply) { return reply.code == code; });
  if (held == held_.end()) {
    return false;
  }
  SendReply(held->replyFd, held->answer);
  CloseReply(held->replyFd);
  held_.erase(held);
  Log(HubRequestName(code) + " released");
  return true;
}

bool HubModel::WaitForHeld(size_t count, uint32_t timeoutMs) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return heldChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                               [this, count] { return held_.size() >= count; });
}

void HubModel::FailRequest(uint32_t code, uint32_t error, bool afterPending, uint32_t times) {
  InjectAnswer(code, HubAnswer{afterPending, error, {}}, times);
}

void HubModel::ClearInjections() {
  std::lock_guard<std::mutex> lock(mutex_);
  injections_.clear();
}

void HubModel::RaiseNotification(bool raised) {
  std::lock_guard<std::mutex> lock(mutex_);
  raised_ = !raised;
  SetRaised(raised);
}

std::vector<RequestRecord> HubModel::Requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

std::vector<RequestRecord> HubModel::RequestsOf(uint32_t code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<RequestRecord> matching;
  for (const RequestRecord &record : requests_) {
    if (record.code == code) {
      matching.push_back(record);
    }
  }
  return matching;
}

std::vector<std::vector<uint8_t>> HubModel::PluginRecords() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return pluginRecords_;
}

std::vector<uint32_t> HubModel::PluggedDevices() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return {plugged_.begin(), plugged_.end()};
}

std::vector<uint32_t> HubModel::Unplugs() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return unplugs_;
}

std::vector<CompletionRecord> HubModel::Completions() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return completions_;
}

size_t HubModel::QueuedItems() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return queue_.size();
}

bool HubModel::NotificationRaised() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return raised_;
}

bool HubModel::SessionOpen() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessionOpen_;
}

uint32_t HubModel::SessionsOpened() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessionsOpened_;
}

bool HubModel::WaitForNoSession(uint32_t timeoutMs) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return sessionChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                  [this] { return !sessionOpen_; });
}

std::vector<ItemProblem> HubModel::ItemProblems() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<ItemProblem> problems;
  for (const auto &[itemId, track] : items_) {
    if (track.dropped || track.completions == 1) {
      continue;
    }
    problems.push_back(
        ItemProblem{itemId, track.plugNo, track.type, track.delivered, track.completions});
  }
  return problems;
}

std::string HubModel::ItemReport() const {
  std::ostringstream report;
  for (const ItemProblem &problem : ItemProblems()) {
    report << "item " << problem.itemId << " (PlugNo " << problem.plugNo << ", type "
           << problem.type << "): ";
    if (!problem.delivered) {
      report << "never delivered, never completed\n";
    } else if (problem.completions == 0) {
      report << "delivered, never completed\n";
    } else {
      report << "completed " << problem.completions << " times\n";
    }
  }
  return report.str();
}

}  // namespace pelarix::vhub
