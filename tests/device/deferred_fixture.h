// Deferred plug-ins against the virtual hub: devices whose plug-in waits for
// a delay or for strings fetched through the pump. A pump thread of the
// test's own serves the fetch items, answering each as a plan says, and the
// log is kept per thread, so that the lines of each device's deferred thread
// and of each fetch item can be compared exactly while several devices run
// at once.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "device/device.h"
#include "device_fixture.h"
#include "frame/session.h"
#include "hub/hub_records.h"
#include "item/item.h"
#include "plugin_record.h"

namespace pelarix::testing {

using Clock = std::chrono::steady_clock;

inline std::string Hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

// ---------------------------------------------------------------------------
// The log with the thread of each line.
struct TaggedLine {
  std::thread::id thread;
  uint32_t level;
  std::string text;
};

class ThreadLog {
 public:
  // Chains in front of the fixture's capture, which goes on recording.
  static void Install() {
    Clear();
    gLibrary.logCallback = &ThreadLog::Sink;
  }
  static void Clear() {
    std::lock_guard<std::mutex> guard(mutex());
    lines().clear();
  }
  static void PELARIX_CALL Sink(uint32_t level, const PelarixChar *message) {
    LogCapture::Sink(level, message);
    std::u16string text(reinterpret_cast<const char16_t *>(message));
    std::lock_guard<std::mutex> guard(mutex());
    lines().push_back({std::this_thread::get_id(), level, Printable(text)});
    changed().notify_all();
  }
  static size_t Size() {
    std::lock_guard<std::mutex> guard(mutex());
    return lines().size();
  }
  // The lines at levels 0 to 2 (the lifecycle and failures) of one thread,
  // from position `from` of the whole log on.
  static LogLines Of(std::thread::id thread, size_t from = 0) {
    std::lock_guard<std::mutex> guard(mutex());
    LogLines out;
    for (size_t i = from; i < lines().size(); ++i) {
      const TaggedLine &line = lines()[i];
      if (line.thread == thread && line.level <= 2) out.emplace_back(line.level, line.text);
    }
    return out;
  }
  // The thread that logged this text first, waiting for it (bounded).
  static std::optional<std::thread::id> WaitForThreadOf(const std::string &text,
                                                        int timeoutMs = 20000) {
    std::unique_lock<std::mutex> lock(mutex());
    std::optional<std::thread::id> found;
    changed().wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
      for (const TaggedLine &line : lines()) {
        if (line.text == text) {
          found = line.thread;
          return true;
        }
      }
      return false;
    });
    return found;
  }
  static bool Contains(const std::string &text) {
    std::lock_guard<std::mutex> guard(mutex());
    for (const TaggedLine &line : lines()) {
      if (line.text == text) return true;
    }
    return false;
  }

 private:
  static std::mutex &mutex() {
    static std::mutex instance;
    return instance;
  }
  static std::condition_variable &changed() {
    static std::condition_variable instance;
    return instance;
  }
  static std::vector<TaggedLine> &lines() {
    static std::vector<TaggedLine> instance;
    return instance;
  }
};

// ---------------------------------------------------------------------------
// How the test's pump answers a fetch item.
enum class Answer {
  kString,       // the block and the descriptor, by Pelarix_CompleteItem
  kRaw,          // the same in a record of the caller's, by Pelarix_CompleteItemRaw
  kUnserved,     // status 0xFFFFFFFF, no data
  kShort,        // 60 bytes: the block cut short
  kExactly80,    // the block alone, in a buffer of exactly 80 bytes
  kWrongType,    // a descriptor of type 2
  kOverlong,     // a descriptor whose bLength (40) runs past the answer's end
  kNullData,     // status 0 and a length, but no data
  kBlockStatus,  // the block's status says the request failed
  kClose,        // closed without a completion
  kPark,         // parked, then answered with a good string
  kHold,         // kept open, for the test to answer later
};

// One fetch item as the test's pump saw and answered it.
struct ServedFetch {
  uint32_t plugNo = 0;
  uint8_t index = 0;
  uint16_t language = 0;
  uint32_t itemId = 0;
  std::vector<uint8_t> record;  // the item's 120 bytes
  PelarixItemInfo info{};
  uint32_t prefix = 0xDEAD;
  uint32_t suffix = 0xDEAD;
  uint32_t dataLength = 0;
  PelarixStatus completion = Pelarix_Success;
  LogLines lines;  // the pump thread's lines, from its wait to the item's close
};

// The answer to a fetch item: the request's own block with status 0, and
// the descriptor behind it.
inline std::vector<uint8_t> AnswerBytes(const std::vector<uint8_t> &record,
                                        const std::vector<uint8_t> &descriptor) {
  std::vector<uint8_t> answer(record.begin() + kHubItemRecordHeaderBytes, record.end());
  answer.insert(answer.end(), descriptor.begin(), descriptor.end());
  return answer;
}

class FetchServer {
 public:
  using Key = std::pair<uint32_t, uint8_t>;  // PlugNo, string index

  explicit FetchServer(PelarixHandle session) : session_(session) {}
  ~FetchServer() { Stop(); }

  // Set before Start.
  void Plan(uint32_t plugNo, uint8_t index, Answer answer,
            std::vector<uint8_t> descriptor = StringDescriptor("Pelarix")) {
    plans_[{plugNo, index}] = {answer, std::move(descriptor)};
  }

  void Start() {
    thread_ = std::thread([this] { Serve(); });
  }
  void Stop() {
    if (!thread_.joinable()) return;
    Pelarix_CancelGetItem(session_);
    thread_.join();
  }

  std::vector<ServedFetch> Served() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return served_;
  }
  std::optional<ServedFetch> ServedOf(uint32_t plugNo, uint8_t index) const {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const ServedFetch &fetch : served_) {
      if (fetch.plugNo == plugNo && fetch.index == index) return fetch;
    }
    return std::nullopt;
  }
  // The item kept open for this device and index, waiting for it (bounded).
  PelarixHandle WaitForHeld(uint32_t plugNo, uint8_t index, int timeoutMs = 20000) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
      return held_.count({plugNo, index}) != 0;
    });
    auto found = held_.find({plugNo, index});
    return found != held_.end() ? found->second : nullptr;
  }
  std::vector<uint8_t> Descriptor(uint32_t plugNo, uint8_t index) const {
    auto found = plans_.find({plugNo, index});
    return found != plans_.end() ? found->second.descriptor : StringDescriptor("Pelarix");
  }
  size_t HubItemsServed() const { return hubItems_.load(); }

 private:
  struct Planned {
    Answer answer = Answer::kString;
    std::vector<uint8_t> descriptor;
  };

  void Serve() {
    for (;;) {
      const size_t from = ThreadLog::Size();
      PelarixHandle item = nullptr;
      const PelarixStatus status = Pelarix_GetNextItem(session_, &item);
      if (status == Pelarix_Cancelled) return;
      if (status != Pelarix_Success) {
        ADD_FAILURE() << "the pump failed with " << status;
        return;
      }
      auto *record = static_cast<PelarixItem *>(item);
      if ((record->flags & kItemInternal) == 0) {
        ++hubItems_;
        Pelarix_CompleteItem(item, 0, 0, nullptr);
        Pelarix_CloseHandle(item);
        continue;
      }
      ServedFetch fetch = Describe(item);
      auto plan = plans_.find({fetch.plugNo, fetch.index});
      const Planned planned = plan != plans_.end() ? plan->second : Planned{Answer::kString, {}};
      std::vector<uint8_t> descriptor =
          planned.descriptor.empty() ? StringDescriptor("Pelarix") : planned.descriptor;
      fetch.completion = Respond(item, fetch, planned.answer, descriptor);
      fetch.lines = ThreadLog::Of(std::this_thread::get_id(), from);
      std::lock_guard<std::mutex> guard(mutex_);
      served_.push_back(fetch);
      if (planned.answer == Answer::kHold) held_[{fetch.plugNo, fetch.index}] = item;
      changed_.notify_all();
    }
  }

  static ServedFetch Describe(PelarixHandle item) {
    auto *record = static_cast<PelarixItem *>(item);
    ServedFetch fetch;
    fetch.plugNo = DeviceOf(record)->plugNo;
    fetch.itemId = record->itemId;
    fetch.record.assign(record->record, record->record + record->dataLength);
    if (fetch.record.size() >= kStringRequestRecordBytes) {
      fetch.index = fetch.record[114];
      fetch.language = static_cast<uint16_t>(fetch.record[116] | fetch.record[117] << 8);
    }
    EXPECT_EQ(Pelarix_GetItemInfo(item, &fetch.info), Pelarix_Success);
    void *buffer = nullptr;
    EXPECT_EQ(Pelarix_GetItemRaw(item, &fetch.prefix, &fetch.suffix, &fetch.dataLength, &buffer),
              Pelarix_Success);
    return fetch;
  }

  PelarixStatus Respond(PelarixHandle item, const ServedFetch &fetch, Answer answer,
                        const std::vector<uint8_t> &descriptor) {
    std::vector<uint8_t> bytes = AnswerBytes(fetch.record, descriptor);
    PelarixStatus result = Pelarix_Success;
    switch (answer) {
      case Answer::kString:
        result = Complete(item, 0, bytes);
        break;
      case Answer::kRaw: {
        std::vector<uint8_t> raw;
        PutU32(raw, fetch.itemId);
        PutU32(raw, 0);
        PutU32(raw, static_cast<uint32_t>(bytes.size()));
        raw.insert(raw.end(), bytes.begin(), bytes.end());
        result = Pelarix_CompleteItemRaw(item, static_cast<uint32_t>(raw.size()), raw.data());
        break;
      }
      case Answer::kUnserved:
        result = Pelarix_CompleteItem(item, 0xFFFFFFFF, 0, nullptr);
        break;
      case Answer::kShort:
        bytes.resize(60);
        result = Complete(item, 0, bytes);
        break;
      case Answer::kExactly80:
        // A buffer of exactly 80 bytes: a read of the type byte behind it
        // is out of bounds.
        bytes.resize(kStringRequestBlockBytes);
        bytes.shrink_to_fit();
        result = Complete(item, 0, bytes);
        break;
      case Answer::kWrongType:
        bytes[kStringRequestBlockBytes + 1] = 2;
        result = Complete(item, 0, bytes);
        break;
      case Answer::kOverlong:
        bytes[kStringRequestBlockBytes] = 40;
        bytes.resize(kStringRequestBlockBytes + 10);
        bytes.shrink_to_fit();
        result = Complete(item, 0, bytes);
        break;
      case Answer::kNullData:
        result = Pelarix_CompleteItem(item, 0, 100, nullptr);
        break;
      case Answer::kBlockStatus:
        bytes[4] = 0x04;
        bytes[7] = 0xC0;
        result = Complete(item, 0, bytes);
        break;
      case Answer::kClose:
        break;
      case Answer::kPark:
        EXPECT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
        result = Complete(item, 0, bytes);
        Pelarix_CloseHandle(item);  // the parking reference: completed, it is never unparked
        break;
      case Answer::kHold:
        return result;  // the test answers and closes it
    }
    Pelarix_CloseHandle(item);
    return result;
  }

  static PelarixStatus Complete(PelarixHandle item, uint32_t status,
                                const std::vector<uint8_t> &bytes) {
    return Pelarix_CompleteItem(item, status, static_cast<uint32_t>(bytes.size()), bytes.data());
  }

  PelarixHandle session_;
  std::map<Key, Planned> plans_;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<ServedFetch> served_;
  std::map<Key, PelarixHandle> held_;
  std::atomic<size_t> hubItems_{0};
};

// ---------------------------------------------------------------------------
// What a device's plug-in callback saw.
struct PluginSeen {
  std::mutex mutex;
  std::condition_variable changed;
  int calls = 0;
  std::vector<uint32_t> statuses;
  Clock::time_point at;

  bool WaitForCall(int timeoutMs = 20000) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return calls > 0; });
  }
};

inline void PELARIX_CALL SeePlugin(PelarixHandle, uint32_t status, void *context) {
  auto *seen = static_cast<PluginSeen *>(context);
  std::lock_guard<std::mutex> guard(seen->mutex);
  ++seen->calls;
  seen->statuses.push_back(status);
  seen->at = Clock::now();
  seen->changed.notify_all();
}

inline int64_t MsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count();
}

// The keyboard with its own product id (so that it can have settings of its
// own) and the string indexes given.
inline std::vector<uint8_t> KeyboardWith(uint16_t productId, uint8_t product, uint8_t serial) {
  std::vector<uint8_t> device = kKeyboardDevice;
  device[10] = static_cast<uint8_t>(productId);
  device[11] = static_cast<uint8_t>(productId >> 8);
  device[14] = 0;  // the manufacturer string is never fetched
  device[15] = product;
  device[16] = serial;
  return device;
}

// A registry section that gives the keyboard of this product id a delay (the
// setting counts seconds).
inline std::string DelaySection(uint16_t productId, uint32_t delaySeconds) {
  char text[160];
  std::snprintf(text, sizeof text, "[%s\\Vid_0e0f&Pid_%04x]\r\n\"PluginDelay\"=dword:%08x\r\n\r\n",
                kGeneralKey.c_str(), productId, delaySeconds);
  return text;
}

// The deferred thread's lines for one fetch.
inline LogLines FetchLines(uint8_t index, uint16_t language, uint32_t itemId, uint32_t status) {
  const std::string what = "index: " + std::to_string(index) + ", language: " + Hex(language);
  return {{2, "Get string descriptor, " + what},
          {2, "Get unique item Id, Item Id: " + std::to_string(itemId) + ", status: 0x0"},
          {2, "Get string descriptor, Item Id: " + std::to_string(itemId) + ", " + what +
                  ", status: " + Hex(status)}};
}

// The 120-byte request of a fetch, field by field.
inline std::vector<uint8_t> FetchRecordBytes(uint32_t itemId, uint8_t index, uint16_t language) {
  std::vector<uint8_t> bytes;
  PutU32(bytes, 0);       // type: a request
  PutU32(bytes, itemId);  // the fetch's id
  PutU32(bytes, 0);       // no PlugNo
  PutU32(bytes, 0);
  for (uint32_t param : {3u, 80u, 1u, 255u}) PutU32(bytes, param);
  PutU32(bytes, 0);                             // data length
  PutU32(bytes, 0);                             // no-completion word
  bytes.insert(bytes.end(), {80, 0, 0x0B, 0});  // block length, GET_DESCRIPTOR_FROM_DEVICE
  PutU32(bytes, 0);                             // block status
  bytes.insert(bytes.end(), 16, 0);
  PutU32(bytes, 255);  // transfer buffer length
  PutU32(bytes, 80);   // transfer buffer offset
  bytes.insert(bytes.end(), 42, 0);
  bytes.insert(bytes.end(), {index, 3, static_cast<uint8_t>(language),
                             static_cast<uint8_t>(language >> 8), 0, 0});
  return bytes;
}

// What the test's pump logs for one fetch item, up to its completion's own
// line. failure is the level 0 line of a refused answer, or empty.
inline LogLines ServedLines(PelarixHandle session, const ServedFetch &fetch,
                            const std::string &failure, uint32_t status, bool completeLine = true) {
  const std::string id = std::to_string(fetch.itemId);
  const std::string what =
      "index: " + std::to_string(fetch.index) + ", language: " + Hex(fetch.language);
  LogLines lines = {
      {2, "Deferred plugin get item found, handle: " + Ptr(session) +
              ", PlugNo: " + std::to_string(fetch.plugNo) + ", Item Id: " + id},
      {2, "Get string descriptor item, Item Id: " + id + ", " + what + ", status: 0x0"}};
  if (!failure.empty()) lines.emplace_back(0, failure);
  if (completeLine) {
    lines.emplace_back(2, "Complete get string descriptor item, Item Id: " + id + ", " + what +
                              ", status: " + Hex(status));
  }
  return lines;
}

class DeferredTest : public DeviceTest {
 protected:
  void SetUp() override { ThreadLog::Install(); }

  PelarixHandle Make(uint16_t productId, uint8_t product, uint8_t serial, uint32_t clientVersion,
                     PluginSeen *seen) {
    PelarixHandle device = nullptr;
    EXPECT_EQ(Create(&device, KeyboardWith(productId, product, serial), kKeyboardConfig,
                     clientVersion, SeePlugin, seen),
              Pelarix_Success);
    return device;
  }

  static uint32_t PlugNoOf(PelarixHandle device) {
    return static_cast<PelarixDevice *>(device)->plugNo;
  }

  // The accepted plug-in record of this PlugNo, or empty.
  std::vector<uint8_t> PluginRecordOf(uint32_t plugNo) {
    for (const std::vector<uint8_t> &record : Model().PluginRecords()) {
      if (record.size() >= 4 && record[0] == static_cast<uint8_t>(plugNo)) return record;
    }
    return {};
  }

  // The deferred thread of this device, once it has begun.
  static std::optional<std::thread::id> DeferredThreadOf(uint32_t plugNo) {
    return ThreadLog::WaitForThreadOf("Deferred plugin thread initiated, PlugNo: " +
                                      std::to_string(plugNo));
  }

  static bool WaitUntil(const std::function<bool()> &done, int timeoutMs = 20000) {
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < end) {
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return done();
  }
};

}  // namespace pelarix::testing
