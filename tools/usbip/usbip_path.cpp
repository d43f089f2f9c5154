#include "usbip_path.h"

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace pelarix::usbip {

namespace {

constexpr uint32_t kPumps = 2;
constexpr uint32_t kClientVersion = 4;
constexpr std::chrono::seconds kPluginTime{10};

}  // namespace

UsbipPath::UsbipPath() = default;

UsbipPath::~UsbipPath() {
  Stop();
}

bool UsbipPath::Start(const std::string &registry, const std::string &dataDir,
                      const std::vector<std::string> &names, std::string *error,
                      UsbipServerOptions options) {
  char pattern[] = "/tmp/pelarix-usbip-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    *error = "no directory for the hub";
    return false;
  }
  hubDir_ = pattern;
  vhub::VirtualHubOptions hubOptions;
  hubOptions.directory = hubDir_;
  hub_ = std::make_unique<vhub::VirtualHub>(hubOptions);
  if (!hub_->Start(error)) {
    return false;
  }
  options.address = "127.0.0.1";
  options.port = 0;
  options.logger = [this](const std::string &line) {
    std::lock_guard<std::mutex> lock(logLock_);
    log_.push_back(line);
  };
  server_ = std::make_unique<UsbipServer>(hub_->Model(), options);
  if (!server_->Start(error)) {
    return false;
  }
  setenv("PELARIX_HUB_DIR", hubDir_.c_str(), 1);
  setenv("PELARIX_REGISTRY", registry.c_str(), 1);
  if (!service_.Start(0, {}, kPumps, error)) {
    return false;
  }
  demo::Client client({});
  for (const std::string &name : names) {
    std::string file = dataDir;
    file.append("/").append(name).append(".bin");
    auto set = demo::ReadDescriptorFile(file, error);
    if (!set) {
      return false;
    }
    sets_.push_back(*set);
    devices_.push_back(client.Offer(*set, demo::ClientDecision{}, false));
    uint32_t plugNo = 0;
    const PelarixStatus status = service_.Offer(*devices_.back(), kClientVersion, false, &plugNo);
    if (status != Pelarix_Success) {
      *error = name + ": offer ended with status " + std::to_string(status);
      return false;
    }
    plugNos_.push_back(plugNo);
  }
  if (!service_.WaitForPlugins(kPluginTime) ||
      !server_->WaitForDevices(names.size(), kPluginTime)) {
    *error = "the devices were not plugged in";
    return false;
  }
  return true;
}

void UsbipPath::Stop() {
  service_.Stop();
  if (server_) {
    server_->Stop();
  }
  if (hub_) {
    hub_->Stop();
  }
  if (!hubDir_.empty()) {
    std::filesystem::remove_all(hubDir_);
    hubDir_.clear();
  }
}

std::vector<std::string> UsbipPath::LogLines() const {
  std::lock_guard<std::mutex> lock(logLock_);
  return log_;
}

bool UsbipPath::WaitForLog(const std::string &text, int timeoutMs) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < deadline) {
    for (const std::string &line : LogLines()) {
      if (line.find(text) != std::string::npos) {
        return true;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace pelarix::usbip
