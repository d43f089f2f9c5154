#include "host_side.h"

#include "host_driver.h"
#include "urb_block.h"

namespace pelarix::demo {

namespace {

// The hub's status for an item nobody served: the agent's library gives it
// to an item whose device it does not hold as plugged yet.
constexpr uint32_t kItemNotServed = 0xFFFFFFFF;
// The first request of an enumeration can meet the library before its
// plug-in call has returned; such an item is asked again, a bounded number
// of times.
constexpr int kServeAttempts = 100;
constexpr std::chrono::milliseconds kServeRetryPause{5};
// Item params of a request block, as the library's own string fetch fills
// them: 3, the block's length, 1 for a read, the transfer length.
constexpr uint32_t kRequestBlockParam = 3;

}  // namespace

HostSide::HostSide(vhub::HubModel &model, HostOptions options) : model_(model), options_(options) {}

HostSide::~HostSide() {
  Stop();
}

void HostSide::Start() {
  vhub::HubObserver observer;
  observer.plugged = [this](uint32_t plugNo, const std::vector<uint8_t> &record) {
    Plugged(plugNo, record);
  };
  observer.completed = [this](const vhub::CompletionRecord &completion) { Completed(completion); };
  model_.SetObserver(std::move(observer));
}

void HostSide::Stop() {
  model_.SetObserver({});
  std::vector<std::thread> drivers;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    drivers.swap(drivers_);
  }
  for (std::thread &driver : drivers) {
    driver.join();
  }
}

void HostSide::Plugged(uint32_t plugNo, const std::vector<uint8_t> &record) {
  std::lock_guard<std::mutex> lock(mutex_);
  drivers_.emplace_back(&HostSide::RunDriver, this, plugNo, record);
}

void HostSide::Completed(const vhub::CompletionRecord &completion) {
  std::lock_guard<std::mutex> lock(mutex_);
  completions_[completion.itemId] = completion;
  changed_.notify_all();
}

void HostSide::RunDriver(uint32_t plugNo, std::vector<uint8_t> record) {
  HostDriver driver(*this, plugNo, std::move(record), options_);
  HostDeviceReport report = driver.Run();
  std::lock_guard<std::mutex> lock(mutex_);
  reports_.push_back(std::move(report));
  changed_.notify_all();
}

bool HostSide::WaitForDrivers(size_t count, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return reports_.size() >= count; });
}

std::vector<HostDeviceReport> HostSide::Reports() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return reports_;
}

uint64_t HostSide::ItemsRaised() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return itemsRaised_;
}

std::optional<std::vector<uint8_t>> HostSide::Submit(uint32_t plugNo,
                                                     const std::vector<uint8_t> &request,
                                                     std::string *problem) {
  vhub::ItemSpec item;
  item.type = 0;
  item.plugNo = plugNo;
  item.params = {kRequestBlockParam, urb::Read16(request, urb::kLength),
                 urb::IsRead(request) ? 1u : 0u, urb::Read32(request, urb::kTransferLength)};
  item.data = request;
  for (int attempt = 0; attempt < kServeAttempts; ++attempt) {
    const uint32_t itemId = model_.QueueItem(item);
    std::unique_lock<std::mutex> lock(mutex_);
    ++itemsRaised_;
    if (!changed_.wait_for(lock, options_.itemTimeout,
                           [&] { return completions_.count(itemId) != 0; })) {
      *problem = "item " + std::to_string(itemId) + " unanswered";
      return std::nullopt;
    }
    vhub::CompletionRecord completion = std::move(completions_[itemId]);
    completions_.erase(itemId);
    lock.unlock();
    if (completion.status == kItemNotServed) {
      std::this_thread::sleep_for(kServeRetryPause);
      continue;
    }
    if (completion.status != 0) {
      *problem = "item " + std::to_string(itemId) + " failed with status " +
                 std::to_string(completion.status);
      return std::nullopt;
    }
    return std::move(completion.data);
  }
  *problem = "no item served in " + std::to_string(kServeAttempts) + " tries";
  return std::nullopt;
}

}  // namespace pelarix::demo
