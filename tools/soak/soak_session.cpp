#include "soak_session.h"

#include <chrono>

#include "sample_keyboard.h"

namespace pelarix::soak {
namespace {

using namespace std::chrono_literals;

constexpr size_t kMaxPlugged = 3;
constexpr size_t kMaxQueued = 32;
constexpr uint32_t kFailedStatus = 0xC0000001;
constexpr uint32_t kNoCompletionNotice = 2;

constexpr const uint8_t *kDevice = vhub::kSampleKeyboardDevice;
constexpr const uint8_t *kConfig = vhub::kSampleKeyboardConfig;

uint32_t Below(std::mt19937 &random, uint32_t bound) {
  return static_cast<uint32_t>(random() % bound);
}

// An item as the hub raises it: mostly requests with a little data, some
// long ones, notices, and a few that need no completion.
vhub::ItemSpec RandomItem(std::mt19937 &random, uint32_t plugNo) {
  vhub::ItemSpec item;
  item.plugNo = plugNo;
  const uint32_t kind = Below(random, 100);
  item.type = kind < 1 ? kNoCompletionNotice : kind < 8 ? 1 : 0;
  item.params = {Below(random, 256), 0x20, 0x30, 0x40};
  if (item.type == 0) {
    const uint32_t length =
        Below(random, 100) < 5 ? 4096 + Below(random, 16384) : Below(random, 513);
    item.data.assign(length, static_cast<uint8_t>(kind));
  }
  return item;
}

}  // namespace

SoakSession::SoakSession(vhub::HubModel &hub, SoakCounters &counters, uint32_t pumps, uint32_t seed)
    : hub_(hub), counters_(counters), pumpCount_(pumps), seed_(seed) {}

SoakSession::~SoakSession() {
  if (session_ != nullptr) {
    Finish();
  }
}

bool SoakSession::Start() {
  if (Pelarix_CreateSession(&session_) != Pelarix_Success) {
    session_ = nullptr;
    return false;
  }
  handles_.push_back(session_);
  pumpsRunning_ = pumpCount_;
  for (uint32_t i = 0; i < pumpCount_; ++i) {
    pumps_.emplace_back([this, i] { Pump(i); });
  }
  unparker_ = std::thread([this] { Unpark(); });
  devices_ = std::thread([this] { Devices(); });
  raiser_ = std::thread([this] { Raise(); });
  return true;
}

void SoakSession::CancelOnePump() {
  if (Pelarix_CancelGetItem(session_) == Pelarix_Success) {
    ++counters_.cancels;
  }
}

void SoakSession::Finish() {
  stopping_ = true;
  raiser_.join();
  devices_.join();
  // The last devices go while the pumps still run, as the usage notes ask.
  std::vector<PelarixHandle> plugged;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    plugged.swap(plugged_);
    unplugged_.insert(unplugged_.end(), plugged.begin(), plugged.end());
  }
  for (PelarixHandle device : plugged) {
    Pelarix_UnplugDevice(device);
    ++counters_.unplugs;
  }
  unparker_.join();
  // One cancel releases one waiting pump; each pump ends on its first
  // cancel once the session is stopping.
  while (pumpsRunning_ > 0) {
    Pelarix_CancelGetItem(session_);
    std::this_thread::sleep_for(1ms);
  }
  for (std::thread &pump : pumps_) {
    pump.join();
  }
  pumps_.clear();
  // No item is held any more: the devices' handles may go.
  for (PelarixHandle device : unplugged_) {
    Pelarix_CloseHandle(device);
  }
  unplugged_.clear();
  Pelarix_CloseHandle(session_);
  session_ = nullptr;
}

void SoakSession::Pump(uint32_t index) {
  std::mt19937 random(uint64_t{seed_} * 31 + index);
  for (;;) {
    PelarixHandle item = nullptr;
    const PelarixStatus status = Pelarix_GetNextItem(session_, &item);
    if (status == Pelarix_Success) {
      HandleItem(item, random);
      continue;
    }
    if (stopping_) {
      break;
    }
    if (status != Pelarix_Cancelled) {
      ++counters_.failedCalls;
      std::this_thread::sleep_for(1ms);
    }
  }
  --pumpsRunning_;
}

void SoakSession::Note(PelarixHandle item, const PelarixItemInfo &info) {
  std::lock_guard<std::mutex> lock(mutex_);
  // A notice of type 2 needs no completion whatever its flag says.
  received_[info.itemId] = info.noCompletion != 0 || info.type == kNoCompletionNotice;
  handles_.push_back(item);
  ++counters_.received;
}

// Completes it with its own data (most), with a failure status, closes it
// unanswered (the library then answers it), or parks it for the unparker.
void SoakSession::HandleItem(PelarixHandle item, std::mt19937 &random) {
  PelarixItemInfo info{};
  if (Pelarix_GetItemInfo(item, &info) != Pelarix_Success) {
    ++counters_.failedCalls;
    Pelarix_CloseHandle(item);
    return;
  }
  Note(item, info);
  const uint32_t choice = Below(random, 100);
  if (choice < 70 || choice >= 95) {
    const bool failed = choice >= 95;
    if (Pelarix_CompleteItem(item, failed ? kFailedStatus : 0, failed ? 0 : info.dataLength,
                             failed ? nullptr : info.data) == Pelarix_Success) {
      ++counters_.completed;
    } else {
      ++counters_.failedCalls;
    }
  } else if (choice < 80) {
    ++counters_.closedUnanswered;
  } else if (Pelarix_ParkItem(item) == Pelarix_Success) {
    ++counters_.parked;
    std::lock_guard<std::mutex> lock(mutex_);
    parkedIds_.push_back(info.itemId);
  } else {
    ++counters_.failedCalls;
  }
  Pelarix_CloseHandle(item);
}

// Takes parked items back by id; an item whose device was unplugged in the
// meantime is gone (its parking reference went with the unplug).
void SoakSession::Unpark() {
  std::mt19937 random(uint64_t{seed_} * 37);
  for (;;) {
    uint32_t id = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (parkedIds_.empty() && stopping_) {
        return;
      }
      if (!parkedIds_.empty()) {
        id = parkedIds_.front();
        parkedIds_.pop_front();
      }
    }
    PelarixHandle item = nullptr;
    if (id == 0 || Pelarix_UnparkItem(id, session_, &item) != Pelarix_Success) {
      std::this_thread::sleep_for(200us);
      continue;
    }
    ++counters_.unparked;
    if (Below(random, 2) == 0 && Pelarix_CompleteItem(item, 0, 0, nullptr) == Pelarix_Success) {
      ++counters_.completed;
    } else {
      ++counters_.closedUnanswered;
    }
    Pelarix_CloseHandle(item);
  }
}

// Plugs in and unplugs devices at random, a few at a time. An unplugged
// device's handle is closed at the session's end, once no pump holds an
// item of it.
void SoakSession::Devices() {
  std::mt19937 random(uint64_t{seed_} * 41);
  while (!stopping_) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1 + Below(random, 5)));
    size_t plugged = 0;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      plugged = plugged_.size();
    }
    if (plugged == 0 || (plugged < kMaxPlugged && Below(random, 2) == 0)) {
      PelarixHandle device = nullptr;
      if (Pelarix_CreateDeviceEx(session_, 4, 0, 0xFFFFFFFF, 0, 0, kDevice, kConfig, nullptr,
                                 nullptr, &device) != Pelarix_Success) {
        ++counters_.failedCalls;
        continue;
      }
      std::lock_guard<std::mutex> lock(mutex_);
      handles_.push_back(device);
      if (Pelarix_PluginDevice(device) == Pelarix_Success) {
        ++counters_.plugins;
        plugged_.push_back(device);
      } else {
        ++counters_.failedCalls;
        unplugged_.push_back(device);
      }
    } else {
      UnplugOne(random);
    }
  }
}

void SoakSession::UnplugOne(std::mt19937 &random) {
  PelarixHandle device = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const size_t at = Below(random, static_cast<uint32_t>(plugged_.size()));
    device = plugged_[at];
    plugged_.erase(plugged_.begin() + static_cast<std::ptrdiff_t>(at));
    unplugged_.push_back(device);
  }
  if (Pelarix_UnplugDevice(device) == Pelarix_Success) {
    ++counters_.unplugs;
  } else {
    ++counters_.failedCalls;
  }
}

// The hub's side: items for the devices it has plugged in, a bounded number
// waiting at a time.
void SoakSession::Raise() {
  std::mt19937 random(uint64_t{seed_} * 43);
  while (!stopping_) {
    const std::vector<uint32_t> plugNos = hub_.PluggedDevices();
    if (plugNos.empty() || hub_.QueuedItems() >= kMaxQueued) {
      std::this_thread::sleep_for(200us);
      continue;
    }
    const uint32_t plugNo = plugNos[Below(random, static_cast<uint32_t>(plugNos.size()))];
    hub_.QueueItem(RandomItem(random, plugNo));
    ++counters_.raised;
  }
}

}  // namespace pelarix::soak
