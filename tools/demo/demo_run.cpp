#include "demo_run.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "client.h"
#include "demo_table.h"
#include "host_side.h"
#include "service.h"
#include "virtual_hub.h"

namespace pelarix::demo {

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kClientVersion = 4;
constexpr uint32_t kOlderClientVersion = 3;
constexpr uint32_t kDeviceBlocked = 13;
// Enumeration and keyboard traffic of every device take well under this;
// disks take the duration on top.
constexpr std::chrono::seconds kDriverAllowance{30};
constexpr std::chrono::milliseconds kProgressInterval{500};

bool Matches(const std::string &name, const std::vector<std::string> &fragments) {
  return std::any_of(fragments.begin(), fragments.end(), [&](const std::string &fragment) {
    return name.find(fragment) != std::string::npos;
  });
}

std::vector<DescriptorSet> LoadDevices(const DemoOptions &options, std::string *error) {
  std::vector<std::string> paths;
  std::error_code failure;
  for (const auto &entry : fs::directory_iterator(options.dataDir, failure)) {
    const std::string name = entry.path().filename().string();
    if (entry.path().extension() != ".bin") {
      continue;
    }
    const bool wanted =
        options.devices.empty() ||
        std::any_of(options.devices.begin(), options.devices.end(),
                    [&](const std::string &part) { return name.find(part) != std::string::npos; });
    if (wanted) {
      paths.push_back(entry.path().string());
    }
  }
  if (failure) {
    *error = options.dataDir + ": " + failure.message();
    return {};
  }
  std::sort(paths.begin(), paths.end());
  std::vector<DescriptorSet> sets;
  for (const std::string &path : paths) {
    auto set = ReadDescriptorFile(path, error);
    if (!set) {
      return {};
    }
    sets.push_back(std::move(*set));
  }
  if (sets.empty()) {
    *error = "no device file in " + options.dataDir + " matches";
  }
  return sets;
}

std::string DecisionText(const ClientDecision &decision) {
  if (decision.kind == ClientDecision::Kind::kKeptLocal) {
    return "kept by client";
  }
  if (decision.kind == ClientDecision::Kind::kWhole) {
    return "whole";
  }
  std::string text = "split ";
  for (size_t i = 0; i < decision.interfaces.size(); ++i) {
    // Appended piece by piece: a temporary sum here trips GCC 12's
    // overlap warning at -O3.
    if (i != 0) {
      text += ',';
    }
    text += std::to_string(decision.interfaces[i]);
  }
  return text;
}

// A line on stderr twice a second while the path runs: rewritten in place
// on a terminal, one line per second elsewhere.
class Progress {
 public:
  Progress(std::ostream &err, std::mutex &errMutex, const HostSide &host, size_t devices)
      : err_(err),
        errMutex_(errMutex),
        host_(host),
        devices_(devices),
        terminal_(isatty(STDERR_FILENO) != 0),
        thread_(&Progress::Run, this) {}
  ~Progress() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
    if (terminal_ && printed_) {
      err_ << '\n';
    }
  }
  void Offered() { ++offered_; }

 private:
  void Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (int tick = 1; !wake_.wait_for(lock, kProgressInterval, [this] { return stop_; }); ++tick) {
      if (!terminal_ && tick % 2 != 0) {
        continue;
      }
      std::lock_guard<std::mutex> errLock(errMutex_);
      err_ << (terminal_ ? "\r" : "") << "pelarix-demo: " << offered_.load() << "/" << devices_
           << " devices offered, " << host_.Reports().size() << " driven, " << host_.ItemsRaised()
           << " items" << (terminal_ ? "" : "\n") << std::flush;
      printed_ = true;
    }
  }

  std::ostream &err_;
  std::mutex &errMutex_;
  const HostSide &host_;
  size_t devices_;
  bool terminal_;
  std::atomic<size_t> offered_{0};
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  bool printed_ = false;
  std::thread thread_;
};

struct Offered {
  DeviceRow row;
  std::unique_ptr<SimulatedDevice> device;
  std::string problem;
};

// The client decides and offers one device; the service creates it and
// plugs it in. A device the agent refuses is reported, not plugged.
Offered OfferDevice(const DescriptorSet &set, const DemoOptions &options, Client &client,
                    Service &service) {
  Offered entry;
  entry.row.name = set.name;
  entry.row.vendorId = set.VendorId();
  entry.row.productId = set.ProductId();
  const bool older = Matches(set.name, options.olderClient);
  entry.row.clientVersion = older ? kOlderClientVersion : kClientVersion;
  const ClientDecision decision =
      options.clientFilter && !older ? client.Decide(set) : ClientDecision{};
  entry.row.decision = DecisionText(decision);
  if (decision.kind == ClientDecision::Kind::kKeptLocal) {
    return entry;
  }
  entry.device = client.Offer(set, decision, options.corruptDisks);
  uint32_t plugNo = 0;
  const PelarixStatus status =
      service.Offer(*entry.device, entry.row.clientVersion,
                    decision.kind == ClientDecision::Kind::kSplit, &plugNo);
  if (status == kDeviceBlocked) {
    entry.row.decision = "blocked by agent";
  } else if (status != Pelarix_Success && status != Pelarix_Pending) {
    entry.problem = "FAILED: offer ended with status " + std::to_string(status);
  } else {
    entry.row.plugNo = plugNo;
  }
  return entry;
}

void FillRow(Offered &offered, const Service &service,
             const std::map<uint32_t, HostDeviceReport> &reports) {
  DeviceRow &row = offered.row;
  if (!offered.problem.empty()) {
    row.check = offered.problem;
    return;
  }
  if (row.plugNo == 0) {
    row.check = "-";
    return;
  }
  const ServedCounts counts = service.Counts(*offered.device);
  row.items = counts.items;
  row.bytes = counts.bytes;
  auto report = reports.find(row.plugNo);
  if (report == reports.end()) {
    row.check = "not driven by the host side";
    return;
  }
  const HostDeviceReport &host = report->second;
  row.storage = host.storage;
  if (host.storage && host.storageSeconds > 0) {
    row.megabytesPerSecond = static_cast<double>(host.storageBytes) / host.storageSeconds / 1e6;
    row.itemsPerSecond = static_cast<double>(host.storageItems) / host.storageSeconds;
  }
  row.check = "ok";
  if (host.keyboard) {
    row.check = "typed \"" + host.typed + "\"";
  }
  if (host.storage && host.problems.empty()) {
    row.check = "disk verified";
  }
  if (!host.problems.empty()) {
    row.check = "FAILED: " + host.problems.front();
  }
}

}  // namespace

int RunDemo(const DemoOptions &options, std::ostream &out, std::ostream &err) {
  std::string error;
  const std::vector<DescriptorSet> sets = LoadDevices(options, &error);
  if (sets.empty()) {
    err << "pelarix-demo: " << error << '\n';
    return kExitBadArguments;
  }
  std::mutex errMutex;
  auto line = [&](const std::string &text) {
    std::lock_guard<std::mutex> lock(errMutex);
    err << text << '\n';
  };

  char pattern[] = "/tmp/pelarix-demo-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    err << "pelarix-demo: cannot make a directory for the hub\n";
    return kExitSetupFailed;
  }
  const std::string hubDir = pattern;
  vhub::VirtualHubOptions hubOptions;
  hubOptions.directory = hubDir;
  hubOptions.keepRecords = false;
  if (options.hubLog) {
    hubOptions.logger = [&](const std::string &text) { line("vhub: " + text); };
  }
  vhub::VirtualHub hub(hubOptions);
  if (!hub.Start(&error)) {
    err << "pelarix-demo: the virtual hub did not start: " << error << '\n';
    fs::remove_all(hubDir);
    return kExitSetupFailed;
  }
  // The library finds its hub and its settings as a service's would.
  setenv("PELARIX_HUB_DIR", hubDir.c_str(), 1);
  setenv("PELARIX_REGISTRY", options.registry.c_str(), 1);

  HostOptions hostOptions;
  hostOptions.storageTime =
      std::chrono::milliseconds(static_cast<int64_t>(options.durationSeconds * 1000));
  HostSide host(hub.Model(), hostOptions);
  host.Start();
  Service service;
  Service::LogSink sink;
  if (options.logLevel) {
    sink = [&](uint32_t level, const std::string &text) {
      line("pelarix[" + std::to_string(level) + "]: " + text);
    };
  }
  if (!service.Start(options.logLevel.value_or(0), sink, options.pumps, &error)) {
    err << "pelarix-demo: " << error << '\n';
    host.Stop();
    hub.Stop();
    fs::remove_all(hubDir);
    return kExitSetupFailed;
  }

  Client client(options.clientStrings);
  if (!client.ReadAgentBlob(service.FilterBlob())) {
    line("pelarix-demo: the agent's blob is cut short");
  }
  std::vector<Offered> offered;
  size_t plugged = 0;
  {
    Progress progress(err, errMutex, host, sets.size());
    for (const DescriptorSet &set : sets) {
      offered.push_back(OfferDevice(set, options, client, service));
      progress.Offered();
    }
    // An older client's devices are plugged in by the library once their
    // strings are fetched: wait for every outcome before counting.
    if (!service.WaitForPlugins(kDriverAllowance)) {
      line("pelarix-demo: a plug-in never ended");
    }
    for (Offered &entry : offered) {
      if (entry.row.plugNo == 0) {
        continue;
      }
      const PelarixStatus outcome = service.PluginOutcome(*entry.device);
      if (outcome == Pelarix_Success) {
        ++plugged;
      } else {
        entry.problem = "FAILED: plug-in ended with status " + std::to_string(outcome);
      }
    }
    const auto allowance =
        kDriverAllowance +
        std::chrono::milliseconds(static_cast<int64_t>(
            options.durationSeconds * 1000 * static_cast<double>(std::max<size_t>(plugged, 1))));
    if (!host.WaitForDrivers(plugged,
                             std::chrono::duration_cast<std::chrono::milliseconds>(allowance))) {
      line("pelarix-demo: the host side did not finish in time");
    }
  }
  service.Stop();
  host.Stop();
  const std::string unanswered = hub.Model().ItemReport();
  hub.Stop();
  fs::remove_all(hubDir);

  std::map<uint32_t, HostDeviceReport> reports;
  for (HostDeviceReport &report : host.Reports()) {
    reports[report.plugNo] = std::move(report);
  }
  std::vector<DeviceRow> rows;
  bool failed = !unanswered.empty();
  for (Offered &entry : offered) {
    FillRow(entry, service, reports);
    failed = failed || entry.row.check.rfind("FAILED", 0) == 0 ||
             entry.row.check == "not driven by the host side";
    rows.push_back(entry.row);
  }
  PrintTable(rows, out);
  if (!unanswered.empty()) {
    out << "Items left unanswered:\n" << unanswered;
  }
  out << rows.size() << " devices, " << plugged << " plugged in; "
      << (failed ? "a check failed" : "every check passed") << '\n';
  return failed ? kExitCheckFailed : kExitPassed;
}

}  // namespace pelarix::demo
