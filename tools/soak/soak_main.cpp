// pelarix-soak: sessions one after another on an in-process virtual hub, each
// with pumps, an unparker, a device thread and the hub raising items, for a
// bounded time. After each session, and so for the whole run, it checks that
// every item the caller received was answered exactly once (those the hub
// marked as needing no completion at most once), that every item the hub
// delivered and the caller never saw was one the library left by its rules
// (an item of a device no longer plugged in, which the library drops with a
// line), that no item was answered twice, and that every handle the session
// gave out is gone. Every --check-every seconds it prints the counters and
// the process's resident size; at the end the resident size must not have
// grown beyond a small margin over its first sample.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "frame/handle.h"
#include "hub_directory.h"
#include "pelarix.h"
#include "soak_options.h"
#include "soak_session.h"
#include "virtual_hub.h"

namespace {

using namespace pelarix;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr long kRssMarginKb = 8L * 1024;

// The library's lines the run counts: items it dropped because their device
// was no longer plugged in, and failures, the first few of which it shows.
struct LibraryLog {
  std::atomic<uint64_t> droppedItems{0};
  std::atomic<uint64_t> failures{0};
};
LibraryLog gLog;

void PELARIX_CALL CountLine(uint32_t level, const PelarixChar *message) {
  std::string text;
  for (const PelarixChar *at = message; *at != 0; ++at) {
    text.push_back(*at < 0x80 ? static_cast<char>(*at) : '?');
  }
  if (text.rfind("Item returned for a non-plugged in device", 0) == 0) {
    ++gLog.droppedItems;
  }
  if (level == 0 && gLog.failures++ < 10) {
    std::fprintf(stderr, "library: %s\n", text.c_str());
  }
}

long ResidentKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) {
      return std::stol(line.substr(6));
    }
  }
  return -1;
}

// What the hub saw completed, by item id.
class CompletionCount {
 public:
  void Add(uint32_t itemId) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++counts_[itemId];
  }
  // Checks one finished session's items against the completions and
  // forgets them all: the ids of a later session are new. *leftByRule
  // counts the received items that needed no completion and got none.
  uint64_t CheckAndForget(const std::map<uint32_t, bool> &received, uint64_t *leftByRule) {
    std::lock_guard<std::mutex> lock(mutex_);
    uint64_t problems = 0;
    for (const auto &[itemId, noCompletion] : received) {
      const auto found = counts_.find(itemId);
      const uint32_t count = found != counts_.end() ? found->second : 0;
      if (noCompletion && count == 0) {
        ++*leftByRule;
      }
      if (count > 1 || (!noCompletion && count != 1)) {
        if (problems++ < 10) {
          std::fprintf(stderr, "item %u received, completed %u times\n", itemId, count);
        }
      }
    }
    for (const auto &[itemId, count] : counts_) {
      if (count > 1 && received.count(itemId) == 0 && problems++ < 10) {
        std::fprintf(stderr, "item %u completed %u times\n", itemId, count);
      }
    }
    counts_.clear();
    return problems;
  }

 private:
  std::mutex mutex_;
  std::map<uint32_t, uint32_t> counts_;
};

// Delivered items the hub still waits for, less the ones left by the
// library's rules (dropped for a device no longer plugged in) and by the
// caller's (needing no completion): 0 when nothing was lost.
int64_t UnexplainedItems(const vhub::HubModel &hub, uint64_t leftByRule) {
  int64_t waiting = 0;
  for (const vhub::ItemProblem &problem : hub.ItemProblems()) {
    if (problem.delivered && problem.completions == 0) {
      ++waiting;
    }
  }
  return waiting - static_cast<int64_t>(gLog.droppedItems.load() + leftByRule);
}

struct RunTotals {
  uint32_t sessions = 0;
  uint64_t itemProblems = 0;
  uint64_t leakedHandles = 0;
  uint64_t leftByRule = 0;
  long firstRssKb = -1;
  long lastRssKb = -1;
  long peakRssKb = -1;
};

void Progress(const soak::SoakCounters &c, RunTotals &totals, double seconds) {
  const long rss = ResidentKb();
  if (totals.firstRssKb < 0) {
    totals.firstRssKb = rss;
  }
  totals.lastRssKb = rss;
  totals.peakRssKb = std::max(totals.peakRssKb, rss);
  std::printf(
      "%7.1f s  sessions %u  raised %llu  received %llu  completed %llu  closed unanswered %llu  "
      "parked %llu  unparked %llu  cancels %llu  plug-ins %llu  unplugs %llu  failed calls %llu  "
      "dropped by rule %llu  rss %ld KiB\n",
      seconds, totals.sessions, static_cast<unsigned long long>(c.raised.load()),
      static_cast<unsigned long long>(c.received.load()),
      static_cast<unsigned long long>(c.completed.load()),
      static_cast<unsigned long long>(c.closedUnanswered.load()),
      static_cast<unsigned long long>(c.parked.load()),
      static_cast<unsigned long long>(c.unparked.load()),
      static_cast<unsigned long long>(c.cancels.load()),
      static_cast<unsigned long long>(c.plugins.load()),
      static_cast<unsigned long long>(c.unplugs.load()),
      static_cast<unsigned long long>(c.failedCalls.load()),
      static_cast<unsigned long long>(gLog.droppedItems.load()), rss);
  std::fflush(stdout);
}

// One session for its time, with a cancel now and then; then its checks.
bool RunSession(vhub::VirtualHub &hub, const soak::SoakOptions &options,
                soak::SoakCounters &counters, CompletionCount &completions, RunTotals &totals,
                Clock::time_point start, Clock::time_point &nextCheck, Clock::time_point deadline) {
  soak::SoakSession session(hub.Model(), counters, options.pumps, options.seed + totals.sessions);
  if (!session.Start()) {
    std::fprintf(stderr, "session %u did not open\n", totals.sessions + 1);
    return false;
  }
  const Clock::time_point end =
      std::min(deadline, Clock::now() + std::chrono::seconds(options.sessionSeconds));
  while (Clock::now() < end) {
    std::this_thread::sleep_for(50ms);
    session.CancelOnePump();
    if (Clock::now() >= nextCheck) {
      Progress(counters, totals, std::chrono::duration<double>(Clock::now() - start).count());
      nextCheck += std::chrono::seconds(options.checkSeconds);
    }
  }
  session.Finish();
  ++totals.sessions;
  hub.Model().WaitForNoSession(5000);
  totals.itemProblems += completions.CheckAndForget(session.ReceivedItems(), &totals.leftByRule);
  for (void *handle : session.Handles()) {
    if (IsValidHandle(handle, kAnyHandle)) {
      ++totals.leakedHandles;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  soak::SoakOptions options;
  std::string error;
  if (!soak::ParseSoakOptions(argc, argv, &options, &error)) {
    std::fprintf(
        error.empty() ? stdout : stderr, "%s%s", error.empty() ? "" : "pelarix-soak: ",
        error.empty() ? soak::SoakUsage().c_str() : (error + "\n" + soak::SoakUsage()).c_str());
    return error.empty() ? 0 : 2;
  }
  vhub::ScopedHubDirectory directory;
  setenv("PELARIX_REGISTRY", (directory.Path() + "/none.reg").c_str(), 1);
  vhub::VirtualHubOptions hubOptions;
  hubOptions.directory = directory.Path();
  hubOptions.keepRecords = false;  // a long run keeps no request lists
  vhub::VirtualHub hub(hubOptions);
  if (!hub.Start(&error)) {
    std::fprintf(stderr, "pelarix-soak: the hub did not start: %s\n", error.c_str());
    return 3;
  }
  CompletionCount completions;
  vhub::HubObserver observer;
  observer.completed = [&completions](const vhub::CompletionRecord &completion) {
    completions.Add(completion.itemId);
  };
  hub.Model().SetObserver(observer);
  Pelarix_Init(PELARIX_INTERFACE_VERSION, CountLine, 2);

  soak::SoakCounters counters;
  RunTotals totals;
  const Clock::time_point start = Clock::now();
  const Clock::time_point deadline = start + std::chrono::seconds(options.durationSeconds);
  Clock::time_point nextCheck = start + std::chrono::seconds(options.checkSeconds);
  bool opened = true;
  while (opened && Clock::now() < deadline) {
    opened = RunSession(hub, options, counters, completions, totals, start, nextCheck, deadline);
  }
  Progress(counters, totals, std::chrono::duration<double>(Clock::now() - start).count());
  const int64_t unexplained = UnexplainedItems(hub.Model(), totals.leftByRule);
  hub.Stop();
  const long growthKb = totals.lastRssKb - totals.firstRssKb;
  const bool flat = growthKb <= std::max(kRssMarginKb, totals.firstRssKb / 10);
  std::printf(
      "%u sessions; items answered other than once: %llu; delivered items unanswered beyond the "
      "library's drops: %lld; handles left: %llu; rss %ld KiB first, %ld KiB last, %ld KiB peak "
      "(%s)\n",
      totals.sessions, static_cast<unsigned long long>(totals.itemProblems),
      static_cast<long long>(unexplained), static_cast<unsigned long long>(totals.leakedHandles),
      totals.firstRssKb, totals.lastRssKb, totals.peakRssKb, flat ? "flat" : "grew");
  const bool passed =
      opened && totals.itemProblems == 0 && unexplained == 0 && totals.leakedHandles == 0 && flat;
  std::printf("%s\n", passed ? "soak passed" : "soak FAILED");
  return passed ? 0 : 1;
}
