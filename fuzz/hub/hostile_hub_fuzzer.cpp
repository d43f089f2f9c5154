// The library's exports against a hub whose every answer comes from the
// fuzzer (hostile_hub.h): a session opens, devices are created, plugged in,
// unplugged and closed, the pump takes items and the caller reads,
// completes, parks, unparks and closes them, in an order the input chooses,
// while each request of the library gets whatever status, byte count,
// record and data the input holds, pending or not, or a broken connection.
// Every call must return (the hub's answers run out with the input, and then
// every request fails as a lost connection does), read and write only its
// buffers, and at the end, once the caller has closed what it holds, no
// handle of the input may still be valid and no connection open.
//
// Input: the first byte sets the item buffer mode and the room the caller
// asks for; then actions and the hub's answers are read from the same
// stream, each where the library or the caller needs the next one.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "frame/handle.h"
#include "frame/library_state.h"
#include "hostile_hub.h"
#include "pelarix.h"
#include "sample_keyboard.h"

namespace {

using pelarix::fuzzing::HostileHub;
using pelarix::fuzzing::ScriptReader;

constexpr size_t kMaxDevices = 4;
constexpr size_t kMaxItems = 8;
constexpr int kMaxActions = 64;
constexpr uint32_t kMaxCompletionBytes = 600;

constexpr const uint8_t *kDevice = pelarix::vhub::kSampleKeyboardDevice;
constexpr const uint8_t *kConfig = pelarix::vhub::kSampleKeyboardConfig;

// Walks every message to its end, so that a line formatted from the hub's
// values is read whole.
void PELARIX_CALL ReadLine(uint32_t /*level*/, const PelarixChar *message) {
  volatile size_t length = 0;
  while (message[length] != 0) {
    length = length + 1;
  }
}

struct Room {
  uint32_t prefix;
  uint32_t suffix;
};

void PELARIX_CALL AskRoom(void *context, uint32_t /*length*/, uint32_t *prefix, uint32_t *suffix,
                          uint32_t /*plugNo*/) {
  const auto *room = static_cast<const Room *>(context);
  *prefix = room->prefix;
  *suffix = room->suffix;
}

void PELARIX_CALL PluginOutcome(PelarixHandle /*device*/, uint32_t /*status*/, void *context) {
  ++*static_cast<int *>(context);
}

// An item the caller holds, with the references it owns: its handle, and
// one per park that succeeded (the library gives those back on unpark).
struct HeldItem {
  PelarixHandle handle;
  int references;
};

// A heap block of exactly length bytes from the script (never null).
std::unique_ptr<uint8_t[]> ScriptBytes(ScriptReader &script, uint32_t length) {
  std::unique_ptr<uint8_t[]> bytes(new uint8_t[length > 0 ? length : 1]);
  for (uint32_t i = 0; i < length; ++i) {
    bytes[i] = script.Byte();
  }
  return bytes;
}

class Caller {
 public:
  Caller(ScriptReader &script, PelarixHandle session) : script_(script), session_(session) {}

  void Act() {
    switch (script_.Byte() % 12) {
      case 0:
        CreateDevice();
        break;
      case 1:
        Pick(devices_, [](PelarixHandle d) { Pelarix_PluginDevice(d); });
        break;
      case 2:
        Pick(devices_, [](PelarixHandle d) { Pelarix_UnplugDevice(d); });
        break;
      case 3:
        CloseDevice();
        break;
      case 4:
        NextItem(false);
        break;
      case 5:
        NextItem(true);
        break;
      case 6:
        ReadItem();
        break;
      case 7:
        CompleteItem();
        break;
      case 8:
        CompleteItemRaw();
        break;
      case 9:
        CloseItem();
        break;
      case 10:
        ParkAndUnpark();
        break;
      default:
        UniqueIdAndBlob();
        break;
    }
  }

  // The caller's part of the end: items closed, devices unplugged and
  // closed, the session closed.
  void CloseAll() {
    for (HeldItem &item : items_) {
      for (; item.references > 0; --item.references) {
        Pelarix_CloseHandle(item.handle);
      }
    }
    for (PelarixHandle device : devices_) {
      Pelarix_UnplugDevice(device);
      Pelarix_CloseHandle(device);
    }
    Pelarix_CloseHandle(session_);
  }

  // Every handle the input ever held, for the check that none outlived it.
  const std::vector<void *> &Seen() const { return seen_; }

 private:
  template <typename Action>
  void Pick(std::vector<PelarixHandle> &from, Action action) {
    if (!from.empty()) {
      action(from[script_.Byte() % from.size()]);
    }
  }

  void CreateDevice() {
    if (devices_.size() >= kMaxDevices) {
      return;
    }
    const uint32_t clientVersion = 4 + script_.Byte() % 3;
    PelarixHandle device = nullptr;
    if (Pelarix_CreateDeviceEx(session_, clientVersion, 0, script_.U32(), 0, 0, kDevice, kConfig,
                               PluginOutcome, &pluginOutcomes_, &device) == Pelarix_Success) {
      devices_.push_back(device);
      seen_.push_back(device);
    }
  }

  void CloseDevice() {
    if (devices_.empty()) {
      return;
    }
    const size_t at = script_.Byte() % devices_.size();
    Pelarix_CloseHandle(devices_[at]);
    devices_.erase(devices_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  // With cancel, a cancel comes first and the pump must return at once.
  void NextItem(bool cancel) {
    if (items_.size() >= kMaxItems) {
      return;
    }
    if (cancel) {
      Pelarix_CancelGetItem(session_);
    } else if (!HostileHub::RaiseItemEvent()) {
      return;
    }
    PelarixHandle item = nullptr;
    const PelarixStatus status = Pelarix_GetNextItem(session_, &item);
    if (cancel && status != Pelarix_Cancelled) {
      __builtin_trap();
    }
    if (status == Pelarix_Success) {
      items_.push_back({item, 1});
      seen_.push_back(item);
    }
  }

  HeldItem *PickItem() {
    return items_.empty() ? nullptr : &items_[script_.Byte() % items_.size()];
  }

  // Every byte the item says it has, read through each getter.
  void ReadItem() {
    HeldItem *item = PickItem();
    if (item == nullptr) {
      return;
    }
    PelarixItemInfo info{};
    if (Pelarix_GetItemInfo(item->handle, &info) == Pelarix_Success && info.data != nullptr) {
      Touch(static_cast<const uint8_t *>(info.data), info.dataLength);
    }
    uint32_t prefix = 0;
    uint32_t suffix = 0;
    uint32_t length = 0;
    void *buffer = nullptr;
    if (Pelarix_GetItemRaw(item->handle, &prefix, &suffix, &length, &buffer) == Pelarix_Success &&
        buffer != nullptr) {
      Touch(static_cast<const uint8_t *>(buffer), uint64_t{prefix} + length + suffix);
    }
    PelarixHandle device = nullptr;
    if (Pelarix_GetItemDeviceHandle(item->handle, &device) == Pelarix_Success) {
      Pelarix_CloseHandle(device);  // the getter's reference is the caller's
    }
    uint32_t id = 0;
    Pelarix_GetItemId(item->handle, &id);
  }

  // Reads the first and last pages of a block (a long item may hold 64
  // MiB): a block that ends before its claimed length is caught at either
  // end, without a walk over all of it per input.
  static void Touch(const uint8_t *bytes, uint64_t length) {
    constexpr uint64_t kEnds = 4096;
    volatile uint8_t sum = 0;
    for (uint64_t i = 0; i < length;
         i = (i + 1 == kEnds && length > 2 * kEnds) ? length - kEnds : i + 1) {
      sum = static_cast<uint8_t>(sum + bytes[i]);
    }
  }

  void CompleteItem() {
    HeldItem *item = PickItem();
    if (item == nullptr) {
      return;
    }
    const uint32_t status = script_.U32();
    const uint32_t length = script_.U16() % (kMaxCompletionBytes + 1);
    const bool withData = (script_.Byte() & 1) != 0;
    auto data = ScriptBytes(script_, withData ? length : 0);
    Pelarix_CompleteItem(item->handle, status, length, withData ? data.get() : nullptr);
  }

  void CompleteItemRaw() {
    HeldItem *item = PickItem();
    if (item == nullptr) {
      return;
    }
    const uint32_t length = script_.U16() % (kMaxCompletionBytes + 1);
    auto record = ScriptBytes(script_, length);
    Pelarix_CompleteItemRaw(item->handle, length, record.get());
  }

  void CloseItem() {
    if (items_.empty()) {
      return;
    }
    const size_t at = script_.Byte() % items_.size();
    if (items_[at].references > 1) {
      Pelarix_CloseHandle(items_[at].handle);
      --items_[at].references;
      return;
    }
    Pelarix_CloseHandle(items_[at].handle);
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  // Parks an item, and unparks it by its id or by one from the script.
  void ParkAndUnpark() {
    HeldItem *item = PickItem();
    if (item == nullptr) {
      return;
    }
    if (Pelarix_ParkItem(item->handle) == Pelarix_Success) {
      ++item->references;
    }
    uint32_t id = 0;
    Pelarix_GetItemId(item->handle, &id);
    const uint8_t how = script_.Byte();
    if ((how & 1) != 0) {
      PelarixHandle found = nullptr;
      Pelarix_UnparkItem((how & 2) != 0 ? script_.U32() : id, session_, &found);
    }
  }

  void UniqueIdAndBlob() {
    uint32_t id = 0;
    Pelarix_GetUniqueItemId(session_, &id);
    uint32_t length = 0;
    void *blob = nullptr;
    if (Pelarix_GetFilterBlob(session_, &length, &blob) == Pelarix_Success && blob != nullptr) {
      Touch(static_cast<const uint8_t *>(blob), length);
    }
    std::free(blob);
  }

  ScriptReader &script_;
  PelarixHandle session_;
  std::vector<PelarixHandle> devices_;
  std::vector<HeldItem> items_;
  std::vector<void *> seen_;
  int pluginOutcomes_ = 0;
};

bool Initialise() {
  // No settings file: the library's defaults, no plug-in delay.
  setenv("PELARIX_REGISTRY", "/nonexistent/pelarix-hostile-hub.reg", 1);
  return Pelarix_Init(PELARIX_INTERFACE_VERSION, ReadLine, 3) == Pelarix_Success;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool initialised = Initialise();
  if (!initialised) {
    std::abort();
  }
  ScriptReader script(data, size);
  const uint8_t mode = script.Byte();
  pelarix::gLibrary.lateItemAllocation = mode & 1;
  Room room{(mode >> 1) & 7u, (mode >> 4) & 7u};
  HostileHub::Begin(&script);
  PelarixHandle session = nullptr;
  std::vector<void *> seen;
  // The session's filter keeps the log level of its open: 0 keeps the
  // descriptor dumps of each device out (the filter's fuzzers have them),
  // while the library's own lines about the hub's answers stay at 3.
  pelarix::gLibrary.logLevel = 0;
  const PelarixStatus opened =
      Pelarix_CreateSessionEx(&session, (mode & 0x80) != 0 ? AskRoom : nullptr, &room);
  pelarix::gLibrary.logLevel = 3;
  if (opened == Pelarix_Success) {
    Caller caller(script, session);
    for (int action = 0; action < kMaxActions && !script.Done(); ++action) {
      caller.Act();
    }
    caller.CloseAll();
    seen = caller.Seen();
    seen.push_back(session);
  }
  if (HostileHub::End() != 0) {
    __builtin_trap();  // a connection left open
  }
  for (void *handle : seen) {
    if (pelarix::IsValidHandle(handle, pelarix::kAnyHandle)) {
      __builtin_trap();  // a record that outlived everything its caller held
    }
  }
  return 0;
}
