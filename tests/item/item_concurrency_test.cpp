// Several pumps on one session, pumps on two sessions, and the invariant
// under load: every item the hub raised is answered exactly once, or left
// where the library deliberately leaves it.
#include <atomic>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "item_fixture.h"

namespace pelarix {
namespace {

using testing::kKeyboardConfig;
using testing::kKeyboardDevice;
using testing::LogCapture;
using testing::Pattern;
using testing::WithoutStrings;

// Data whose bytes tell its length: a long item whose second request
// fetched another item's data would not match.
std::vector<uint8_t> DataOfLength(size_t length) {
  return Pattern(length, static_cast<uint8_t>(length * 13));
}

// Items parked by the pumps, for the completers to find again by id.
class ParkedIds {
 public:
  void Push(uint32_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    ids_.push_back(id);
  }
  bool Pop(uint32_t *id) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (ids_.empty()) return false;
    *id = ids_.front();
    ids_.pop_front();
    return true;
  }

 private:
  std::mutex mutex_;
  std::deque<uint32_t> ids_;
};

// One session on a hub of its own, with its pumps and completers.
class PumpedSession {
 public:
  explicit PumpedSession(int pumps, int completers) : pumps_(pumps), completers_(completers) {
    vhub::VirtualHubOptions options;
    options.directory = directory_.Path();
    hub_ = std::make_unique<vhub::VirtualHub>(options);
    std::string error;
    EXPECT_TRUE(hub_->Start(&error)) << error;
    ::setenv("PELARIX_HUB_DIR", directory_.Path().c_str(), 1);
    EXPECT_EQ(Pelarix_CreateSession(&session_), Pelarix_Success);
  }

  ~PumpedSession() {
    Stop();
    for (PelarixHandle device : devices_) Pelarix_CloseHandle(device);
    Pelarix_CloseHandle(session_);
    hub_->Stop();
  }

  vhub::HubModel &Model() { return hub_->Model(); }

  PelarixHandle Plug() {
    const std::vector<uint8_t> device = WithoutStrings(kKeyboardDevice);
    PelarixHandle handle = nullptr;
    EXPECT_EQ(Pelarix_CreateDevice(session_, 4, 0, device.data(), kKeyboardConfig.data(), nullptr,
                                   nullptr, &handle),
              Pelarix_Success);
    EXPECT_EQ(Pelarix_PluginDevice(handle), Pelarix_Success);
    std::lock_guard<std::mutex> lock(mutex_);
    devices_.push_back(handle);
    return handle;
  }

  void Unplug(PelarixHandle device) {
    uint32_t plugNo = 0;
    Pelarix_GetDeviceId(device, &plugNo);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      unplugged_.insert(plugNo);
    }
    EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  }

  void Run() {
    for (int i = 0; i < pumps_; ++i) threads_.emplace_back([this] { Pump(); });
    for (int i = 0; i < completers_; ++i) threads_.emplace_back([this] { Complete(); });
  }

  void Stop() {
    if (threads_.empty()) return;
    stopCompleters_ = true;
    // One cancel releases one waiting pump; a set that nobody has taken yet
    // is not counted twice, so each pump gets its own.
    while (pumpsEnded_ < pumps_) {
      const int before = pumpsEnded_;
      Pelarix_CancelGetItem(session_);
      for (int wait = 0; wait < 200 && pumpsEnded_ == before; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    for (std::thread &thread : threads_) thread.join();
    threads_.clear();
  }

  // Items still owed an answer, but for those the library leaves on
  // purpose: type 2 notices, and items raised for an unplugged device.
  std::vector<vhub::ItemProblem> Unanswered() {
    std::vector<vhub::ItemProblem> owed;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const vhub::ItemProblem &problem : Model().ItemProblems()) {
      const bool quiet = problem.type == 2 && problem.completions == 0;
      const bool left =
          unplugged_.count(problem.plugNo) != 0 && problem.delivered && problem.completions == 0;
      if (!quiet && !left) owed.push_back(problem);
    }
    return owed;
  }

  // Waits (bounded) until the hub's queue is empty and nothing is owed.
  bool Settle(int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < end) {
      if (Model().QueuedItems() == 0 && Unanswered().empty()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  std::atomic<uint32_t> served{0};

 private:
  void Pump() {
    for (;;) {
      PelarixHandle item = nullptr;
      const PelarixStatus status = Pelarix_GetNextItem(session_, &item);
      if (status == Pelarix_Cancelled) {
        ++pumpsEnded_;
        return;
      }
      ASSERT_EQ(status, Pelarix_Success);
      Serve(item);
      ++served;
    }
  }

  void Serve(PelarixHandle item) {
    uint32_t id = 0;
    ASSERT_EQ(Pelarix_GetItemId(item, &id), Pelarix_Success);
    PelarixItemInfo info{};
    ASSERT_EQ(Pelarix_GetItemInfo(item, &info), Pelarix_Success);
    if (info.type == 0) {
      const auto *data = static_cast<const uint8_t *>(info.data);
      EXPECT_EQ(std::vector<uint8_t>(data, data + info.dataLength), DataOfLength(info.dataLength))
          << "item " << id;
    }
    switch (id % 5) {
      case 0:
        Pelarix_CompleteItem(item, 0, info.dataLength, info.data);
        break;
      case 1:
        break;  // dropped: the close answers it
      case 2:
        ASSERT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
        parked_.Push(id);
        break;
      case 3: {
        uint8_t record[12] = {};
        std::memcpy(record, &id, 4);
        Pelarix_CompleteItemRaw(item, sizeof record, record);
        break;
      }
      default: {
        uint32_t prefix = 0, suffix = 0, length = 0;
        void *buffer = nullptr;
        ASSERT_EQ(Pelarix_GetItemRaw(item, &prefix, &suffix, &length, &buffer), Pelarix_Success);
        Pelarix_CompleteItem(item, 0, 0, nullptr);
      }
    }
    ASSERT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  }

  void Complete() {
    while (!stopCompleters_) {
      uint32_t id = 0;
      if (!parked_.Pop(&id)) {
        std::this_thread::yield();
        continue;
      }
      PelarixHandle item = nullptr;
      // Unplug may have given the parked item back already.
      if (Pelarix_UnparkItem(id, session_, &item) != Pelarix_Success) continue;
      Pelarix_CompleteItem(item, 0, 1, "k");
      EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
    }
  }

  vhub::ScopedHubDirectory directory_;
  std::unique_ptr<vhub::VirtualHub> hub_;
  PelarixHandle session_ = nullptr;
  int pumps_;
  int completers_;
  std::vector<std::thread> threads_;
  std::atomic<bool> stopCompleters_{false};
  std::atomic<int> pumpsEnded_{0};
  ParkedIds parked_;
  std::mutex mutex_;
  std::vector<PelarixHandle> devices_;
  std::set<uint32_t> unplugged_;
};

// Short, long and notice items in turn for one device.
void QueueMixed(vhub::HubModel &model, uint32_t plugNo, int count, int seed) {
  for (int i = 0; i < count; ++i) {
    vhub::ItemSpec raised;
    raised.plugNo = plugNo;
    const int kind = (i + seed) % 7;
    raised.type = kind == 5 ? 1 : kind == 6 ? 2 : 0;
    if (raised.type == 0) raised.data = DataOfLength(kind == 4 ? 3000 + i % 500 : i % 600);
    model.QueueItem(raised);
  }
}

class ItemConcurrencyTest : public ::testing::Test {
 protected:
  ~ItemConcurrencyTest() override { ::unsetenv("PELARIX_HUB_DIR"); }
  LogCapture log_{0};  // failures only
};

TEST_F(ItemConcurrencyTest, SeveralPumpsOnOneSession) {
  PumpedSession session(4, 2);
  PelarixHandle device = session.Plug();
  uint32_t plugNo = 0;
  Pelarix_GetDeviceId(device, &plugNo);
  session.Run();
  QueueMixed(session.Model(), plugNo, 1000, 0);
  EXPECT_TRUE(session.Settle(20000)) << session.Model().ItemReport();
  session.Stop();
  EXPECT_EQ(session.served.load(), 1000u);
  EXPECT_TRUE(session.Unanswered().empty()) << session.Model().ItemReport();
}

TEST_F(ItemConcurrencyTest, PumpsOnTwoSessions) {
  PumpedSession first(2, 1);
  PumpedSession second(2, 1);
  uint32_t plugNo[2] = {};
  Pelarix_GetDeviceId(first.Plug(), &plugNo[0]);
  Pelarix_GetDeviceId(second.Plug(), &plugNo[1]);
  first.Run();
  second.Run();
  std::thread feedFirst([&] { QueueMixed(first.Model(), plugNo[0], 500, 1); });
  QueueMixed(second.Model(), plugNo[1], 500, 2);
  feedFirst.join();
  EXPECT_TRUE(first.Settle(20000)) << first.Model().ItemReport();
  EXPECT_TRUE(second.Settle(20000)) << second.Model().ItemReport();
  first.Stop();
  second.Stop();
  EXPECT_EQ(first.served.load(), 500u);
  EXPECT_EQ(second.served.load(), 500u);
}

// Rounds of: plug in a device, raise items for it and for the devices before
// it, unplug one while the pumps run. PELARIX_STRESS_ROUNDS makes it longer.
void StressSession(PumpedSession &session, int rounds, int seed) {
  std::vector<std::pair<PelarixHandle, uint32_t>> live;
  for (int round = 0; round < rounds; ++round) {
    PelarixHandle device = session.Plug();
    uint32_t plugNo = 0;
    Pelarix_GetDeviceId(device, &plugNo);
    live.emplace_back(device, plugNo);
    for (const auto &[handle, number] : live) QueueMixed(session.Model(), number, 40, round + seed);
    if (live.size() > 2) {
      const size_t victim = static_cast<size_t>(round + seed) % live.size();
      session.Unplug(live[victim].first);
      // Items raised after the unplug are left by the library on purpose.
      QueueMixed(session.Model(), live[victim].second, 5, round);
      live.erase(live.begin() + static_cast<long>(victim));
    }
  }
}

TEST_F(ItemConcurrencyTest, InvariantUnderLoad) {
  const char *rounds = std::getenv("PELARIX_STRESS_ROUNDS");
  const int count = rounds != nullptr ? std::atoi(rounds) : 12;
  PumpedSession first(4, 2);
  PumpedSession second(4, 2);
  first.Run();
  second.Run();
  std::thread other([&] { StressSession(second, count, 3); });
  StressSession(first, count, 0);
  other.join();
  EXPECT_TRUE(first.Settle(30000)) << first.Model().ItemReport();
  EXPECT_TRUE(second.Settle(30000)) << second.Model().ItemReport();
  first.Stop();
  second.Stop();
  EXPECT_TRUE(first.Unanswered().empty()) << first.Model().ItemReport();
  EXPECT_TRUE(second.Unanswered().empty()) << second.Model().ItemReport();
}

}  // namespace
}  // namespace pelarix
