// Items through the real socket transport: a session with one plugged device
// on a virtual hub, items queued on the hub and pumped through the library.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "device/device.h"
#include "device_fixture.h"
#include "frame/library_state.h"
#include "frame/session.h"
#include "hub/hub_control_codes.h"
#include "hub/hub_records.h"
#include "item/item.h"
#include "plugin_record.h"

namespace pelarix::testing {

// What the item buffer callback was asked, call by call.
struct RoomCall {
  uint32_t length;
  uint32_t plugNo;
  friend bool operator==(const RoomCall &, const RoomCall &) = default;
};

struct RoomAnswers {
  std::vector<std::pair<uint32_t, uint32_t>> answers;  // prefix, suffix per call; the last repeats
  std::vector<RoomCall> calls;
};

inline void PELARIX_CALL AskRoom(void *context, uint32_t length, uint32_t *prefix, uint32_t *suffix,
                                 uint32_t plugNo) {
  auto *room = static_cast<RoomAnswers *>(context);
  EXPECT_EQ(*prefix, 0u);
  EXPECT_EQ(*suffix, 0u);
  const size_t at = std::min(room->calls.size(), room->answers.size() - 1);
  room->calls.push_back({length, plugNo});
  *prefix = room->answers[at].first;
  *suffix = room->answers[at].second;
}

inline std::vector<uint8_t> Pattern(size_t length, uint8_t seed = 1) {
  std::vector<uint8_t> data(length);
  for (size_t i = 0; i < length; ++i) data[i] = static_cast<uint8_t>(seed + i * 7);
  return data;
}

inline std::vector<uint8_t> InfoBytes(const PelarixItemInfo &info) {
  std::vector<uint8_t> bytes(sizeof info);
  std::memcpy(bytes.data(), &info, sizeof info);
  return bytes;
}

class ItemTest : public DeviceTest {
 protected:
  ~ItemTest() override { gLibrary.lateItemAllocation = 0; }

  // A session (with the callback, if any) and one plugged device.
  void Start(PelarixItemBufferCallback callback = nullptr, void *context = nullptr) {
    OpenSession(callback, context);
    device_ = Stringless();
    EXPECT_EQ(Pelarix_PluginDevice(device_), Pelarix_Success);
    plugNo_ = static_cast<PelarixDevice *>(device_)->plugNo;
    ClearLog();
  }

  uint32_t Queue(uint32_t type, std::vector<uint8_t> data = {}, uint32_t noCompletion = 0,
                 std::array<uint32_t, 4> params = {0x10, 0x20, 0x30, 0x40}) {
    vhub::ItemSpec raised;
    raised.type = type;
    raised.plugNo = plugNo_;
    raised.params = params;
    raised.data = std::move(data);
    raised.noCompletion = noCompletion;
    return Model().QueueItem(raised);
  }

  PelarixHandle Next() {
    PelarixHandle item = nullptr;
    EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Success);
    return item;
  }

  static PelarixItem *Record(PelarixHandle item) { return static_cast<PelarixItem *>(item); }
  PelarixDevice *Device() const { return static_cast<PelarixDevice *>(device_); }

  // Waits (bounded) until the log holds a line with this text.
  bool WaitForLine(const std::string &text, int timeoutMs = 5000) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < end) {
      for (const LogLine &line : Lines()) {
        if (line.second == text) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
  }

  PelarixHandle device_ = nullptr;
  uint32_t plugNo_ = 0;
};

inline std::string Decimal(const void *handle) {
  return std::to_string(static_cast<int32_t>(reinterpret_cast<uintptr_t>(handle)));
}

}  // namespace pelarix::testing
