// The virtual hub on Windows: an in-process hub device of the platform layer
// (platform/win32/in_process_hub.h) over the same model as the socket hub.
// A request runs the model on the library's own thread; a request a test
// holds waits on a reply slot until the test releases it. The model sees
// what the socket hub gives it: the session's open and close, and the
// notification event, as a duplicate of the library's HANDLE that it owns.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstring>
#include <shared_mutex>

#include "hub/hub_control_codes.h"
#include "platform/win32/in_process_hub.h"
#include "reply_slot.h"
#include "virtual_hub.h"

namespace pelarix::vhub {

namespace {

constexpr uint32_t kErrorFileNotFound = 2;
constexpr uint32_t kErrorDeviceNotConnected = 1167;

std::u16string Utf16OfAscii(const std::string &text) {
  return std::u16string(text.begin(), text.end());
}

std::string AsciiOfUtf16(const std::u16string &text) {
  return std::string(text.begin(), text.end());
}

// The library's event, as a handle of the hub's own.
CallerHandle DuplicateEvent(const void *input, uint32_t inputLength) {
  uint64_t value = 0;
  if (inputLength != sizeof value) return kNoCallerHandle;
  std::memcpy(&value, input, sizeof value);
  HANDLE copy = nullptr;
  if (!DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(value), GetCurrentProcess(),
                       &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return kNoCallerHandle;
  }
  return reinterpret_cast<CallerHandle>(copy);
}

}  // namespace

// The device outlives the hub while a connection to it is open: the hub
// detaches it at Stop, later requests find no hub, and the last close of a
// detached device frees it.
class VirtualHub::Device : public platform::InProcessHubDevice {
 public:
  explicit Device(HubModel *model) : model_(model) {}

  uint32_t Open() override {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    if (model_ == nullptr) return kErrorFileNotFound;
    const uint32_t status = model_->OpenSession();
    if (status == 0) ++connections_;
    return status;
  }

  void Close() override {
    bool last;
    {
      std::unique_lock<std::shared_mutex> lock(mutex_);
      if (model_ != nullptr) model_->CloseSession("the client closed the connection");
      last = --connections_ == 0 && model_ == nullptr;
    }
    if (last) delete this;
  }

  platform::HubControlResult Control(uint32_t code, const void *input, uint32_t inputLength,
                                     void *output, uint32_t outputLength,
                                     uint32_t *bytesReturned) override {
    *bytesReturned = 0;
    std::shared_lock<std::shared_mutex> lock(mutex_);
    if (model_ == nullptr) return {kErrorDeviceNotConnected, false};
    const CallerHandle event = code == IOCTL_HUB_SET_NOTIFICATION_EVENT
                                   ? DuplicateEvent(input, inputLength)
                                   : kNoCallerHandle;
    bool hold = false;
    HubAnswer answer = model_->Handle(code, static_cast<const uint8_t *>(input), inputLength,
                                      outputLength, event, &hold);
    if (hold) {
      auto *slot = new ReplySlot;
      model_->HoldReply(code, reinterpret_cast<CallerHandle>(slot), std::move(answer));
      lock.unlock();  // the hub goes on serving while this request waits
      std::optional<HubAnswer> released = slot->Wait();
      if (!released) return {kErrorDeviceNotConnected, false};
      answer = std::move(*released);
    }
    const size_t bytes = std::min<size_t>(answer.output.size(), outputLength);
    if (bytes > 0) std::memcpy(output, answer.output.data(), bytes);
    *bytesReturned = static_cast<uint32_t>(bytes);
    return {answer.error, answer.pending};
  }

  // The hub stops: its session ends; true if the device is free to go now.
  bool Detach() {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    if (connections_ > 0) model_->CloseSession("the hub stops");
    model_ = nullptr;
    return connections_ == 0;
  }

 private:
  std::shared_mutex mutex_;
  HubModel *model_;
  uint32_t connections_ = 0;
};

VirtualHub::VirtualHub(VirtualHubOptions options)
    : options_(std::move(options)),
      socketPath_(AsciiOfUtf16(platform::kInProcessHubPathPrefix) + options_.name),
      model_(options_.version, options_.logger, options_.keepRecords) {}

VirtualHub::~VirtualHub() {
  Stop();
}

bool VirtualHub::Start(std::string * /*error*/) {
  device_ = new Device(&model_);
  platform::AddInProcessHubDevice(Utf16OfAscii(options_.name).c_str(), device_);
  return true;
}

void VirtualHub::Stop() {
  if (device_ == nullptr) return;
  platform::RemoveInProcessHubDevice(device_);
  if (device_->Detach()) delete device_;
  device_ = nullptr;
}

}  // namespace pelarix::vhub
