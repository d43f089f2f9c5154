#include "service.h"

#include <chrono>
#include <cstdlib>

namespace pelarix::demo {

namespace {

constexpr uint32_t kLibraryInterfaceVersion = PELARIX_INTERFACE_VERSION;
constexpr uint32_t kStringsAddedFrom = 4;  // older clients leave them to the library's fetch
// A pump whose call fails (the hub gone) pauses before it asks again.
constexpr std::chrono::milliseconds kPumpPause{10};

std::string Utf8(const PelarixChar *text) {
  std::string utf8;
  for (; *text != 0; ++text) {
    const uint32_t unit = static_cast<uint32_t>(*text);
    if (unit < 0x80) {
      utf8 += static_cast<char>(unit);
    } else if (unit < 0x800) {
      utf8 += static_cast<char>(0xC0 | unit >> 6);
      utf8 += static_cast<char>(0x80 | (unit & 0x3F));
    } else {
      // Surrogates are not paired here: the library's lines are ASCII.
      utf8 += static_cast<char>(0xE0 | unit >> 12);
      utf8 += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
      utf8 += static_cast<char>(0x80 | (unit & 0x3F));
    }
  }
  return utf8;
}

}  // namespace

Service::LogSink Service::sink_;

Service::~Service() {
  Stop();
}

void PELARIX_CALL Service::Log(uint32_t level, const PelarixChar *message) {
  if (sink_) {
    sink_(level, Utf8(message));
  }
}

bool Service::Start(uint32_t logLevel, LogSink sink, uint32_t pumps, std::string *error) {
  sink_ = std::move(sink);
  PelarixStatus status = Pelarix_InitEx(kLibraryInterfaceVersion, &Service::Log, logLevel, 0);
  if (status != Pelarix_Success) {
    *error = "Pelarix_InitEx failed with status " + std::to_string(status);
    return false;
  }
  status = Pelarix_CreateSessionEx(&session_, nullptr, nullptr);
  if (status != Pelarix_Success) {
    *error = "Pelarix_CreateSessionEx failed with status " + std::to_string(status);
    session_ = nullptr;
    return false;
  }
  for (uint32_t i = 0; i < pumps; ++i) {
    pumps_.emplace_back(&Service::Pump, this);
  }
  return true;
}

std::vector<uint8_t> Service::FilterBlob() {
  uint32_t length = 0;
  void *buffer = nullptr;
  if (Pelarix_GetFilterBlob(session_, &length, &buffer) != Pelarix_Success) {
    return {};
  }
  const auto *bytes = static_cast<const uint8_t *>(buffer);
  std::vector<uint8_t> blob(bytes, bytes + length);
  std::free(buffer);
  return blob;
}

PelarixStatus Service::Offer(SimulatedDevice &device, uint32_t clientVersion, bool partial,
                             uint32_t *plugNo) {
  const DescriptorSet &offered = device.Offered();
  PelarixHandle handle = nullptr;
  PelarixStatus status = Pelarix_CreateDeviceEx(session_, clientVersion, partial ? 1 : 0, 0, 0, 0,
                                                offered.device.data(), offered.configs[0].data(),
                                                &Service::Plugged, this, &handle);
  if (status != Pelarix_Success) {
    return status;
  }
  Pelarix_GetDeviceId(handle, plugNo);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    devices_[handle] = Served{&device, *plugNo, {}, Pelarix_Pending};
  }
  if (clientVersion >= kStringsAddedFrom) {
    for (const auto &[key, descriptor] : device.Strings()) {
      status = Pelarix_AddDeviceString(handle, key.first, key.second, descriptor.data());
      if (status != Pelarix_Success) {
        break;
      }
    }
  }
  if (status == Pelarix_Success) {
    status = Pelarix_PluginDevice(handle);
  }
  if (status != Pelarix_Pending) {
    // A refusal before the hub was asked reports through no callback.
    std::lock_guard<std::mutex> lock(mutex_);
    devices_[handle].outcome = status;
  }
  return status;
}

void PELARIX_CALL Service::Plugged(PelarixHandle device, uint32_t status, void *context) {
  auto *service = static_cast<Service *>(context);
  std::lock_guard<std::mutex> lock(service->mutex_);
  auto served = service->devices_.find(device);
  if (served == service->devices_.end()) {
    return;
  }
  served->second.outcome = status;
  service->pluggedChanged_.notify_all();
}

bool Service::WaitForPlugins(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return pluggedChanged_.wait_for(lock, timeout, [this] {
    for (const auto &[handle, served] : devices_) {
      if (served.outcome == Pelarix_Pending) {
        return false;
      }
    }
    return true;
  });
}

PelarixStatus Service::PluginOutcome(const SimulatedDevice &device) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto &[handle, served] : devices_) {
    if (served.device == &device) {
      return served.outcome;
    }
  }
  return Pelarix_Failure;
}

ServedCounts Service::Counts(const SimulatedDevice &device) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto &[handle, served] : devices_) {
    if (served.device == &device) {
      return served.counts;
    }
  }
  return {};
}

void Service::Pump() {
  for (;;) {
    PelarixHandle item = nullptr;
    const PelarixStatus status = Pelarix_GetNextItem(session_, &item);
    if (status == Pelarix_Cancelled) {
      ++pumpsEnded_;
      return;
    }
    if (status != Pelarix_Success) {
      std::this_thread::sleep_for(kPumpPause);
      continue;
    }
    Serve(item);
    Pelarix_CloseHandle(item);
  }
}

void Service::Serve(PelarixHandle item) {
  PelarixItemInfo info{};
  PelarixHandle handle = nullptr;
  if (Pelarix_GetItemInfo(item, &info) != Pelarix_Success ||
      Pelarix_GetItemDeviceHandle(item, &handle) != Pelarix_Success) {
    Pelarix_CompleteItem(item, 0xFFFFFFFF, 0, nullptr);
    return;
  }
  Pelarix_CloseHandle(handle);  // the handle is only a key here
  SimulatedDevice *device = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto served = devices_.find(handle);
    if (served != devices_.end()) {
      device = served->second.device;
    }
  }
  if (device == nullptr || info.type != 0) {
    // A notice, or a device the service does not know: nothing to forward.
    Pelarix_CompleteItem(item, 0, 0, nullptr);
    return;
  }
  const auto *data = static_cast<const uint8_t *>(info.data);
  const std::vector<uint8_t> request(data, data + info.dataLength);
  const std::vector<uint8_t> answer = device->Answer(request);
  Pelarix_CompleteItem(item, 0, static_cast<uint32_t>(answer.size()), answer.data());
  std::lock_guard<std::mutex> lock(mutex_);
  ServedCounts &counts = devices_[handle].counts;
  ++counts.items;
  counts.bytes += request.size() + answer.size();
}

PelarixStatus Service::Unplug(const SimulatedDevice &device) {
  PelarixHandle handle = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto served = devices_.begin(); served != devices_.end(); ++served) {
      if (served->second.device == &device) {
        handle = served->first;
        devices_.erase(served);
        break;
      }
    }
  }
  if (handle == nullptr) {
    return Pelarix_InvalidHandle;
  }
  const PelarixStatus status = Pelarix_UnplugDevice(handle);
  Pelarix_CloseHandle(handle);
  return status;
}

void Service::Stop() {
  if (session_ == nullptr) {
    return;
  }
  std::map<PelarixHandle, Served> devices;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    devices = devices_;
  }
  for (const auto &[handle, served] : devices) {
    Pelarix_UnplugDevice(handle);
    Pelarix_CloseHandle(handle);
  }
  // One cancel releases one pump, and a cancel no pump has taken yet is not
  // counted twice: cancel again only once a pump has gone.
  for (size_t ended = 0; ended < pumps_.size(); ++ended) {
    Pelarix_CancelGetItem(session_);
    while (pumpsEnded_.load() <= ended) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  for (std::thread &pump : pumps_) {
    pump.join();
  }
  pumps_.clear();
  Pelarix_CloseHandle(session_);
  session_ = nullptr;
  sink_ = nullptr;  // what it captured may end with the caller
}

}  // namespace pelarix::demo
