// The deferred plug-in against the virtual hub: the delay, the fixed pause,
// the three string fetches through the pump with every kind of answer, the
// plug-in with the strings got, and stops and closes at each stage. The
// pause and the delays are real time, so each case runs several devices at
// once in one session and waits the pause out once; times are checked as
// lower bounds only.
#include <sys/resource.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "deferred_fixture.h"
#include "descriptor_shortage.h"
#include "device/string_store.h"
#include "hub/hub_control_codes.h"

namespace pelarix {
namespace {

using testing::Answer;
using testing::Clock;
using testing::DeferredTest;
using testing::DelaySection;
using testing::DescriptorShortage;
using testing::ExpectedPlugin;
using testing::FetchLines;
using testing::FetchRecordBytes;
using testing::FetchServer;
using testing::KeyboardWith;
using testing::kGeneralKey;
using testing::kKeyboardConfig;
using testing::LogCapture;
using testing::LogLines;
using testing::MsBetween;
using testing::PluginRecordBytes;
using testing::PluginSeen;
using testing::Ptr;
using testing::PutU32;
using testing::ServedFetch;
using testing::ServedLines;
using testing::StoreBytes;
using testing::StoreEntry;
using testing::StringDescriptor;
using testing::ThreadLog;

constexpr uint32_t kPauseMs = 2500;
const std::vector<uint8_t> kLanguages = {4, 3, 0x09, 0x04};

std::string Number(uint32_t value) {
  return std::to_string(value);
}

std::string StartedLine(uint32_t plugNo, uint32_t status) {
  return "Started deferred plugin , PlugNo: " + Number(plugNo) +
         ", status: " + testing::Hex(status);
}

std::string PluginLine(PelarixHandle device, uint32_t plugNo, uint32_t status) {
  return "Plugin device, handle: " + Ptr(device) + ", PlugNo: " + Number(plugNo) +
         ", status: " + testing::Hex(status);
}

std::string InternalLine(PelarixHandle session, uint32_t plugNo, uint32_t status) {
  return "Internal plugin device, handle: " + Ptr(session) +
         ", Device Flags: 0x0, PlugNo: " + Number(plugNo) + ", status: " + testing::Hex(status);
}

std::string InitiatedLine(uint32_t plugNo) {
  return "Deferred plugin thread initiated, PlugNo: " + Number(plugNo);
}

std::string DelayLine(uint32_t delayMs, uint32_t plugNo) {
  return "Started plugin delay, Plugin Delay (ms), " + Number(delayMs) +
         ", PlugNo: " + Number(plugNo);
}

std::string CompleteLine(uint32_t plugNo, uint32_t stopped) {
  return "Deferred plugin complete, PlugNo: " + Number(plugNo) + ", stopped: " + Number(stopped) +
         ", status: 0x0";
}

LogLines UnplugLines(PelarixHandle device, uint32_t plugNo) {
  return {{2, "Destroying deferred plugin context, PlugNo: " + Number(plugNo)},
          {2, "Destroyed deferred plugin, PlugNo: " + Number(plugNo)},
          {2, "Unplug device, handle: " + Ptr(device) + ", PlugNo: " + Number(plugNo) +
                  ", Item Count: 0, Item Call Count: 0, Item Max Len: 0, status: 0x0"}};
}

LogLines Joined(std::initializer_list<LogLines> parts) {
  LogLines all;
  for (const LogLines &part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

const ServedFetch &Fetch(const std::vector<ServedFetch> &served, uint32_t plugNo, uint8_t index) {
  for (const ServedFetch &fetch : served) {
    if (fetch.plugNo == plugNo && fetch.index == index) return fetch;
  }
  static const ServedFetch kNone;
  ADD_FAILURE() << "no fetch of index " << int{index} << " for PlugNo " << plugNo;
  return kNone;
}

// One session, seven devices at once: every kind of answer a fetch can get,
// the delays, and the plug-in of each with the strings it got.
TEST_F(DeferredTest, FetchesDelaysAndPluginsOfSeveralDevicesAtOnce) {
  WriteRegistry(DelaySection(0x0105, 1) + DelaySection(0x0106, 1) + DelaySection(0x0107, 5));
  OpenSession();
  PluginSeen seen[7];
  // All strings answered; each answer refused in a different way (three
  // devices); a product string after a delay, answered raw; a delay and no
  // strings; version 4 with a delay of 5000 ms.
  PelarixHandle good = Make(0x0101, 2, 3, 3, &seen[0]);
  PelarixHandle refused1 = Make(0x0102, 2, 3, 3, &seen[1]);
  PelarixHandle refused2 = Make(0x0103, 2, 3, 3, &seen[2]);
  PelarixHandle refused3 = Make(0x0104, 2, 3, 3, &seen[3]);
  PelarixHandle delayed = Make(0x0105, 2, 0, 3, &seen[4]);
  PelarixHandle stringless = Make(0x0106, 0, 0, 3, &seen[5]);
  PelarixHandle current = Make(0x0107, 0, 0, 4, &seen[6]);
  const std::vector<PelarixHandle> devices = {good,    refused1,   refused2, refused3,
                                              delayed, stringless, current};

  FetchServer server(session_);
  server.Plan(PlugNoOf(good), 0, Answer::kString, kLanguages);
  server.Plan(PlugNoOf(good), 3, Answer::kString, StringDescriptor("S1"));
  server.Plan(PlugNoOf(good), 2, Answer::kString, StringDescriptor("Keyboard"));
  server.Plan(PlugNoOf(refused1), 0, Answer::kUnserved);
  server.Plan(PlugNoOf(refused1), 3, Answer::kShort);
  server.Plan(PlugNoOf(refused1), 2, Answer::kExactly80);
  server.Plan(PlugNoOf(refused2), 0, Answer::kWrongType);
  server.Plan(PlugNoOf(refused2), 3, Answer::kOverlong);
  server.Plan(PlugNoOf(refused2), 2, Answer::kNullData);
  server.Plan(PlugNoOf(refused3), 0, Answer::kClose);
  server.Plan(PlugNoOf(refused3), 3, Answer::kPark);
  server.Plan(PlugNoOf(refused3), 2, Answer::kBlockStatus);
  server.Plan(PlugNoOf(delayed), 0, Answer::kRaw, kLanguages);
  server.Plan(PlugNoOf(delayed), 2, Answer::kRaw, StringDescriptor("Delayed"));
  server.Plan(PlugNoOf(stringless), 0, Answer::kString, kLanguages);
  server.Start();

  const std::thread::id caller = std::this_thread::get_id();
  const size_t before = ThreadLog::Size();
  const Clock::time_point start = Clock::now();
  for (PelarixHandle device : devices) {
    EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Pending);
    EXPECT_EQ(static_cast<PelarixDevice *>(device)->state, kDevicePlugged);
  }
  LogLines callerLines;
  for (PelarixHandle device : devices) {
    callerLines.emplace_back(2, StartedLine(PlugNoOf(device), 0));
    callerLines.emplace_back(2, PluginLine(device, PlugNoOf(device), 1));
  }
  EXPECT_EQ(ThreadLog::Of(caller, before), callerLines);
  for (PluginSeen &one : seen) ASSERT_TRUE(one.WaitForCall());
  // The callback comes inside the plug-in; each thread's last line follows.
  for (PelarixHandle device : devices) {
    ASSERT_TRUE(ThreadLog::WaitForThreadOf(CompleteLine(PlugNoOf(device), 0)).has_value());
  }
  server.Stop();

  // Each device was plugged in once, with success, not before its delay and
  // (below version 4) the pause.
  const uint32_t earliest[] = {kPauseMs,        kPauseMs,        kPauseMs, kPauseMs,
                               1000 + kPauseMs, 1000 + kPauseMs, 5000};
  for (size_t i = 0; i < devices.size(); ++i) {
    EXPECT_EQ(seen[i].statuses, std::vector<uint32_t>{0}) << "device " << i;
    EXPECT_GE(MsBetween(start, seen[i].at), earliest[i]) << "device " << i;
  }

  // The fetch items, as the caller got them.
  const std::vector<ServedFetch> served = server.Served();
  EXPECT_EQ(served.size(), 3u * 4 + 2 + 1);
  const ServedFetch &languageFetch = Fetch(served, PlugNoOf(good), 0);
  EXPECT_EQ(languageFetch.record, FetchRecordBytes(languageFetch.itemId, 0, 0));
  const ServedFetch &serialFetch = Fetch(served, PlugNoOf(good), 3);
  EXPECT_EQ(serialFetch.record, FetchRecordBytes(serialFetch.itemId, 3, 0x0409));
  const ServedFetch &productFetch = Fetch(served, PlugNoOf(good), 2);
  EXPECT_EQ(productFetch.record, FetchRecordBytes(productFetch.itemId, 2, 0x0409));
  for (const ServedFetch &fetch : served) {
    EXPECT_EQ(fetch.info.type, 0u);
    EXPECT_EQ(fetch.info.itemId, fetch.itemId);
    EXPECT_EQ(fetch.info.param0, 3u);
    EXPECT_EQ(fetch.info.param1, 80u);
    EXPECT_EQ(fetch.info.param2, 1u);
    EXPECT_EQ(fetch.info.param3, 255u);
    EXPECT_EQ(fetch.info.dataLength, 80u);
    EXPECT_EQ(fetch.info.noCompletion, 0u);
    EXPECT_EQ(fetch.prefix, 0u);
    EXPECT_EQ(fetch.suffix, 0u);
    EXPECT_EQ(fetch.dataLength, 120u);
    EXPECT_EQ(fetch.completion, Pelarix_Success);
  }

  // What the caller's pump logged for each item: found, made, and the
  // completion's verdict.
  auto failed = [](const ServedFetch &fetch) {
    return "Get string descriptor failed, Item Id: " + Number(fetch.itemId) +
           ", index: " + Number(fetch.index) + ", language: " + testing::Hex(fetch.language);
  };
  const std::string offset = "Invalid string descriptor offset length";
  const std::string type = "Invalid string descriptor type";
  for (uint8_t index : {0, 3, 2}) {
    const ServedFetch &fetch = Fetch(served, PlugNoOf(good), index);
    EXPECT_EQ(fetch.lines, ServedLines(session_, fetch, "", 0));
  }
  const ServedFetch &unserved = Fetch(served, PlugNoOf(refused1), 0);
  EXPECT_EQ(unserved.lines, ServedLines(session_, unserved, failed(unserved), 3));
  const ServedFetch &cut = Fetch(served, PlugNoOf(refused1), 3);
  EXPECT_EQ(cut.lines, ServedLines(session_, cut, offset, 6));
  const ServedFetch &blockOnly = Fetch(served, PlugNoOf(refused1), 2);
  EXPECT_EQ(blockOnly.lines, ServedLines(session_, blockOnly, offset, 6));
  const ServedFetch &wrongType = Fetch(served, PlugNoOf(refused2), 0);
  EXPECT_EQ(wrongType.lines, ServedLines(session_, wrongType, type, 3));
  const ServedFetch &overlong = Fetch(served, PlugNoOf(refused2), 3);
  EXPECT_EQ(overlong.lines, ServedLines(session_, overlong, offset, 6));
  const ServedFetch &noData = Fetch(served, PlugNoOf(refused2), 2);
  EXPECT_EQ(noData.lines, ServedLines(session_, noData, failed(noData), 3));
  const ServedFetch &closed = Fetch(served, PlugNoOf(refused3), 0);
  EXPECT_EQ(closed.lines, ServedLines(session_, closed, failed(closed), 3));
  const ServedFetch &parked = Fetch(served, PlugNoOf(refused3), 3);
  EXPECT_EQ(parked.lines, ServedLines(session_, parked, "", 12, false));
  const ServedFetch &blockFailed = Fetch(served, PlugNoOf(refused3), 2);
  EXPECT_EQ(blockFailed.lines, ServedLines(session_, blockFailed, failed(blockFailed), 3));
  for (uint8_t index : {0, 2}) {
    const ServedFetch &fetch = Fetch(served, PlugNoOf(delayed), index);
    EXPECT_EQ(fetch.lines, ServedLines(session_, fetch, "", 0));
  }

  // Each deferred thread's lines, from its start to its end.
  auto threadLines = [](PelarixHandle device) {
    std::optional<std::thread::id> thread = DeferredThreadOf(PlugNoOf(device));
    return thread ? ThreadLog::Of(*thread) : LogLines{};
  };
  auto fetched = [&](PelarixHandle device, uint8_t index, uint32_t status) {
    const ServedFetch &fetch = Fetch(served, PlugNoOf(device), index);
    return FetchLines(index, fetch.language, fetch.itemId, status);
  };
  auto ignored = [](uint8_t index, uint32_t status) {
    const std::string tail = ", status: " + testing::Hex(status);
    if (index == 0) return LogLines{{2, "Ignoring failure to retrieve language string" + tail}};
    const std::string what = index == 3 ? "serial no." : "product";
    return LogLines{{2, "Ignoring failure to retrieve " + what +
                            " string, index: " + Number(index) + ", language: 0x409" + tail}};
  };
  auto ending = [&](PelarixHandle device) {
    return LogLines{{2, InternalLine(session_, PlugNoOf(device), 0)},
                    {2, CompleteLine(PlugNoOf(device), 0)}};
  };
  auto start_ = [](PelarixHandle device) { return LogLines{{2, InitiatedLine(PlugNoOf(device))}}; };
  EXPECT_EQ(threadLines(good), Joined({start_(good), fetched(good, 0, 0), fetched(good, 3, 0),
                                       fetched(good, 2, 0), ending(good)}));
  EXPECT_EQ(
      threadLines(refused1),
      Joined({start_(refused1), fetched(refused1, 0, 3), ignored(0, 3), fetched(refused1, 3, 6),
              ignored(3, 6), fetched(refused1, 2, 6), ignored(2, 6), ending(refused1)}));
  EXPECT_EQ(
      threadLines(refused2),
      Joined({start_(refused2), fetched(refused2, 0, 3), ignored(0, 3), fetched(refused2, 3, 6),
              ignored(3, 6), fetched(refused2, 2, 3), ignored(2, 3), ending(refused2)}));
  EXPECT_EQ(
      threadLines(refused3),
      Joined({start_(refused3), fetched(refused3, 0, 3), ignored(0, 3), fetched(refused3, 3, 12),
              ignored(3, 12), fetched(refused3, 2, 3), ignored(2, 3), ending(refused3)}));
  EXPECT_EQ(threadLines(delayed), Joined({start_(delayed),
                                          {{2, DelayLine(1000, PlugNoOf(delayed))}},
                                          fetched(delayed, 0, 0),
                                          fetched(delayed, 2, 0),
                                          ending(delayed)}));
  // Only the client's version decides the pause and the language table.
  EXPECT_EQ(threadLines(stringless), Joined({start_(stringless),
                                             {{2, DelayLine(1000, PlugNoOf(stringless))}},
                                             fetched(stringless, 0, 0),
                                             ending(stringless)}));
  EXPECT_EQ(threadLines(current),
            Joined({start_(current), {{2, DelayLine(5000, PlugNoOf(current))}}, ending(current)}));

  // The plug-in records, with the strings each device got.
  auto expected = [&](PelarixHandle device, uint16_t productId, uint8_t product, uint8_t serial,
                      uint32_t version, std::vector<StoreEntry> entries) {
    ExpectedPlugin plugin;
    plugin.plugNo = PlugNoOf(device);
    plugin.clientVersion = version;
    plugin.device = KeyboardWith(productId, product, serial);
    plugin.config = kKeyboardConfig;
    plugin.store = StoreBytes(entries);
    return PluginRecordBytes(plugin);
  };
  EXPECT_EQ(PluginRecordOf(PlugNoOf(good)), expected(good, 0x0101, 2, 3, 3,
                                                     {{0, 0, kLanguages},
                                                      {3, 0x0409, StringDescriptor("S1")},
                                                      {2, 0x0409, StringDescriptor("Keyboard")}}));
  EXPECT_EQ(PluginRecordOf(PlugNoOf(refused1)), expected(refused1, 0x0102, 2, 3, 3, {}));
  EXPECT_EQ(PluginRecordOf(PlugNoOf(refused2)), expected(refused2, 0x0103, 2, 3, 3, {}));
  EXPECT_EQ(PluginRecordOf(PlugNoOf(refused3)), expected(refused3, 0x0104, 2, 3, 3, {}));
  EXPECT_EQ(PluginRecordOf(PlugNoOf(delayed)),
            expected(delayed, 0x0105, 2, 0, 3,
                     {{0, 0, kLanguages}, {2, 0x0409, StringDescriptor("Delayed")}}));
  EXPECT_EQ(PluginRecordOf(PlugNoOf(stringless)),
            expected(stringless, 0x0106, 0, 0, 3, {{0, 0, kLanguages}}));
  EXPECT_EQ(PluginRecordOf(PlugNoOf(current)), expected(current, 0x0107, 0, 0, 4, {}));
  EXPECT_EQ(Model().PluginRecords().size(), devices.size());
  EXPECT_EQ(server.HubItemsServed(), 0u);

  for (PelarixHandle device : devices) {
    EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
    EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  }
  EXPECT_EQ(Model().Unplugs().size(), devices.size());
}

// A plug-in delay of the settings: pending at once, plugged in by the
// thread afterwards.
TEST_F(DeferredTest, DelayedDeviceIsPendingUntilItsThreadPlugsItIn) {
  WriteRegistry("[" + kGeneralKey + "]\r\n\"DefaultPluginDelay\"=dword:00000001\r\n");
  OpenSession();
  PluginSeen seen;
  PelarixHandle device = Make(0x0001, 0, 0, 4, &seen);
  const size_t before = ThreadLog::Size();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Pending);
  EXPECT_EQ(ThreadLog::Of(std::this_thread::get_id(), before),
            (LogLines{{2, StartedLine(1, 0)}, {2, PluginLine(device, 1, 1)}}));
  ASSERT_TRUE(seen.WaitForCall());
  EXPECT_EQ(seen.statuses, std::vector<uint32_t>{0});
  std::optional<std::thread::id> thread = DeferredThreadOf(1);
  ASSERT_TRUE(thread.has_value());
  EXPECT_NE(*thread, std::this_thread::get_id());
  EXPECT_TRUE(WaitUntil([&] { return ThreadLog::Contains(CompleteLine(1, 0)); }));
  EXPECT_EQ(ThreadLog::Of(*thread), (LogLines{{2, InitiatedLine(1)},
                                              {2, DelayLine(1000, 1)},
                                              {2, InternalLine(session_, 1, 0)},
                                              {2, CompleteLine(1, 0)}}));
  EXPECT_EQ(Model().PluginRecords().size(), 1u);
  // A second plug-in is refused as for any plugged device.
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_InvalidState);
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_EQ(Model().Unplugs(), std::vector<uint32_t>{1});
}

// Stops while the pump goes on: during a delay without fetches (ends at
// once), during a delay before fetches (the pause is still served and the
// fetches go through the pump), and during a fetch whose item the caller
// holds (that fetch ends at once, the later ones go through the pump).
TEST_F(DeferredTest, StopsDuringTheDelayAndDuringAFetchEndAsDocumented) {
  WriteRegistry(DelaySection(0x0201, 60) + DelaySection(0x0202, 60));
  OpenSession();
  PluginSeen seen[3];
  PelarixHandle waiting = Make(0x0201, 0, 0, 4, &seen[0]);
  PelarixHandle older = Make(0x0202, 2, 0, 3, &seen[1]);
  PelarixHandle fetching = Make(0x0204, 2, 3, 3, &seen[2]);
  const std::vector<PelarixHandle> devices = {waiting, older, fetching};
  FetchServer server(session_);
  server.Plan(PlugNoOf(fetching), 0, Answer::kHold, kLanguages);
  server.Start();
  for (PelarixHandle device : devices) ASSERT_EQ(Pelarix_PluginDevice(device), Pelarix_Pending);

  struct Unplug {
    std::thread thread;
    std::thread::id id;
    Clock::time_point start;
    Clock::time_point end;
    PelarixStatus status = Pelarix_Failure;
  };
  Unplug unplugs[3];
  auto unplug = [&](size_t i) {
    unplugs[i].start = Clock::now();
    unplugs[i].thread = std::thread([&, i] {
      unplugs[i].id = std::this_thread::get_id();
      unplugs[i].status = Pelarix_UnplugDevice(devices[i]);
      unplugs[i].end = Clock::now();
    });
  };
  ASSERT_TRUE(ThreadLog::WaitForThreadOf(DelayLine(60000, PlugNoOf(waiting))).has_value());
  ASSERT_TRUE(ThreadLog::WaitForThreadOf(DelayLine(60000, PlugNoOf(older))).has_value());
  unplug(0);
  unplug(1);
  PelarixHandle held = server.WaitForHeld(PlugNoOf(fetching), 0);
  ASSERT_NE(held, nullptr);
  unplug(2);
  for (Unplug &one : unplugs) one.thread.join();
  server.Stop();

  for (size_t i = 0; i < 3; ++i) {
    const uint32_t plugNo = PlugNoOf(devices[i]);
    EXPECT_EQ(unplugs[i].status, Pelarix_Success);
    EXPECT_EQ(ThreadLog::Of(unplugs[i].id), UnplugLines(devices[i], plugNo)) << plugNo;
    EXPECT_EQ(seen[i].statuses, std::vector<uint32_t>{3}) << plugNo;
    EXPECT_TRUE(PluginRecordOf(plugNo).empty()) << plugNo;
  }
  // The delay ended at once; with fetches to come, the pause was served.
  EXPECT_LT(MsBetween(unplugs[0].start, unplugs[0].end), 30000);
  EXPECT_GE(MsBetween(unplugs[1].start, unplugs[1].end), kPauseMs);
  EXPECT_LT(MsBetween(unplugs[1].start, unplugs[1].end), 30000);
  EXPECT_EQ(Model().Unplugs().size(), 3u);

  const std::vector<ServedFetch> served = server.Served();
  auto fetched = [&](PelarixHandle device, uint8_t index, uint32_t status) {
    const ServedFetch &fetch = Fetch(served, PlugNoOf(device), index);
    return FetchLines(index, fetch.language, fetch.itemId, status);
  };
  auto lines = [](PelarixHandle device) {
    std::optional<std::thread::id> thread = DeferredThreadOf(PlugNoOf(device));
    return thread ? ThreadLog::Of(*thread) : LogLines{};
  };
  const LogLines language = {{2, "Ignoring failure to retrieve language string, status: 0x3"}};
  const LogLines product = {
      {2, "Ignoring failure to retrieve product string, index: 2, language: 0x409, status: 0x3"}};
  EXPECT_EQ(lines(waiting), (LogLines{{2, InitiatedLine(PlugNoOf(waiting))},
                                      {2, DelayLine(60000, PlugNoOf(waiting))},
                                      {2, CompleteLine(PlugNoOf(waiting), 1)}}));
  // Answered, but stopped: each fetch reports a failure.
  EXPECT_EQ(lines(older),
            Joined({{{2, InitiatedLine(PlugNoOf(older))}, {2, DelayLine(60000, PlugNoOf(older))}},
                    fetched(older, 0, 3),
                    language,
                    fetched(older, 2, 3),
                    product,
                    {{2, CompleteLine(PlugNoOf(older), 1)}}}));
  EXPECT_EQ(lines(fetching),
            Joined({{{2, InitiatedLine(PlugNoOf(fetching))}},
                    fetched(fetching, 0, 3),
                    language,
                    fetched(fetching, 3, 3),
                    {{2,
                      "Ignoring failure to retrieve serial no. string, index: 3, language: 0x409, "
                      "status: 0x3"}},
                    fetched(fetching, 2, 3),
                    product,
                    {{2, CompleteLine(PlugNoOf(fetching), 1)}}}));
  for (const ServedFetch &fetch : served) {
    if (fetch.plugNo == PlugNoOf(fetching) && fetch.index == 0) continue;  // held
    EXPECT_EQ(fetch.lines, ServedLines(session_, fetch, "", 0)) << int{fetch.index};
  }

  // The held item's fetch ended long ago: its answer only completes it.
  const size_t before = ThreadLog::Size();
  const ServedFetch &heldFetch = Fetch(served, PlugNoOf(fetching), 0);
  const std::vector<uint8_t> answer = testing::AnswerBytes(heldFetch.record, kLanguages);
  EXPECT_EQ(Pelarix_CompleteItem(held, 0, static_cast<uint32_t>(answer.size()), answer.data()),
            Pelarix_Success);
  EXPECT_EQ(static_cast<PelarixItem *>(held)->state, kItemCompleted);
  EXPECT_EQ(ThreadLog::Of(std::this_thread::get_id(), before), LogLines{});
  EXPECT_EQ(StringStoreCount(static_cast<PelarixDevice *>(fetching)->stringStore), 2u);
  EXPECT_EQ(Pelarix_CloseHandle(held), Pelarix_Success);
  for (PelarixHandle device : devices) EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// A stop during the pause ends the first fetch at once, before any item was
// made; with nothing else to fetch the thread ends, and no fetch item is
// offered afterwards.
TEST_F(DeferredTest, StopDuringThePauseEndsTheFetchAndLeavesNothingBehind) {
  WriteRegistry(DelaySection(0x0203, 1));
  OpenSession();
  PluginSeen seen;
  PelarixHandle device = Make(0x0203, 0, 0, 3, &seen);
  PelarixHandle other = Stringless();
  ASSERT_EQ(Pelarix_PluginDevice(other), Pelarix_Success);
  // The delay and the pause start after the plug-in call does; the moment the
  // test sees the delay line comes later by however long its polling took.
  const Clock::time_point pluggedIn = Clock::now();
  ASSERT_EQ(Pelarix_PluginDevice(device), Pelarix_Pending);
  const uint32_t plugNo = PlugNoOf(device);
  std::optional<std::thread::id> thread = ThreadLog::WaitForThreadOf(DelayLine(1000, plugNo));
  ASSERT_TRUE(thread.has_value());
  // The delay ends after 1000 ms and the pause after 3500 ms: half a second
  // into the pause.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const size_t before = ThreadLog::Size();
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  EXPECT_GE(MsBetween(pluggedIn, Clock::now()), 1000 + kPauseMs);
  EXPECT_EQ(ThreadLog::Of(std::this_thread::get_id(), before), UnplugLines(device, plugNo));
  const LogLines lines = ThreadLog::Of(*thread);
  ASSERT_EQ(lines.size(), 7u);
  unsigned id = 0;  // no item was made: the id is known from the thread's own line
  EXPECT_EQ(std::sscanf(lines[3].second.c_str(), "Get unique item Id, Item Id: %u", &id), 1);
  EXPECT_EQ(lines, Joined({{{2, InitiatedLine(plugNo)}, {2, DelayLine(1000, plugNo)}},
                           FetchLines(0, 0, id, 3),
                           {{2, "Ignoring failure to retrieve language string, status: 0x3"},
                            {2, CompleteLine(plugNo, 1)}}}));
  EXPECT_EQ(seen.statuses, std::vector<uint32_t>{3});
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->fetchGetItem, nullptr);
  // The pump finds no fetch waiting and serves the hub's item.
  vhub::ItemSpec raised;
  raised.plugNo = PlugNoOf(other);
  raised.data = {1, 2, 3};
  const uint32_t hubItem = Model().QueueItem(raised);
  PelarixHandle item = nullptr;
  ASSERT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Success);
  EXPECT_EQ(static_cast<PelarixItem *>(item)->itemId, hubItem);
  EXPECT_EQ(static_cast<PelarixItem *>(item)->flags & kItemInternal, 0u);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_TRUE(Model().PluginRecords().size() == 1u);  // only the other device's
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(other), Pelarix_Success);
}

// The caller closes its handle while the thread runs: during the delay, the
// thread's own last release unplugs and frees the device on that thread;
// during a fetch, the device ends when the thread and the fetch items are
// done. Neither waits for the thread from the thread itself.
TEST_F(DeferredTest, ClosingTheDeviceDuringTheDelayOrAFetchEndsEverything) {
  WriteRegistry(DelaySection(0x0301, 1));
  OpenSession();
  PluginSeen seen[2];
  PelarixHandle delayed = Make(0x0301, 0, 0, 4, &seen[0]);
  PelarixHandle fetching = Make(0x0302, 2, 0, 3, &seen[1]);
  const uint32_t delayedNo = PlugNoOf(delayed);
  const uint32_t fetchingNo = PlugNoOf(fetching);
  FetchServer server(session_);
  server.Plan(fetchingNo, 0, Answer::kHold, kLanguages);
  server.Plan(fetchingNo, 2, Answer::kString, StringDescriptor("Closed"));
  server.Start();
  ASSERT_EQ(Pelarix_PluginDevice(delayed), Pelarix_Pending);
  ASSERT_EQ(Pelarix_PluginDevice(fetching), Pelarix_Pending);
  EXPECT_EQ(Pelarix_CloseHandle(delayed), Pelarix_Success);  // in its delay
  PelarixHandle held = server.WaitForHeld(fetchingNo, 0);
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(fetching), Pelarix_Success);  // in its first fetch
  const ServedFetch heldFetch = *server.ServedOf(fetchingNo, 0);
  const std::vector<uint8_t> answer = testing::AnswerBytes(heldFetch.record, kLanguages);
  EXPECT_EQ(Pelarix_CompleteItem(held, 0, static_cast<uint32_t>(answer.size()), answer.data()),
            Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(held), Pelarix_Success);

  // Each device's end unplugs it; the records are not looked at again (a
  // handle read while its record is freed would race), LeakSanitizer tells
  // whether they went.
  auto unplugged = [&] {
    return ThreadLog::Contains(UnplugLines(delayed, delayedNo)[2].second) &&
           ThreadLog::Contains(UnplugLines(fetching, fetchingNo)[2].second);
  };
  ASSERT_TRUE(WaitUntil(unplugged));
  server.Stop();
  EXPECT_EQ(Model().Unplugs().size(), 2u);
  // Both were plugged in: a close is no stop.
  for (PluginSeen &one : seen) EXPECT_EQ(one.statuses, std::vector<uint32_t>{0});
  EXPECT_FALSE(PluginRecordOf(delayedNo).empty());
  ExpectedPlugin plugin;
  plugin.plugNo = fetchingNo;
  plugin.clientVersion = 3;
  plugin.device = KeyboardWith(0x0302, 2, 0);
  plugin.config = kKeyboardConfig;
  plugin.store = StoreBytes({{0, 0, kLanguages}, {2, 0x0409, StringDescriptor("Closed")}});
  EXPECT_EQ(PluginRecordOf(fetchingNo), PluginRecordBytes(plugin));
  // The delayed device's thread unplugged it itself, without waiting for
  // itself.
  std::optional<std::thread::id> thread = DeferredThreadOf(delayedNo);
  ASSERT_TRUE(thread.has_value());
  EXPECT_EQ(ThreadLog::Of(*thread), Joined({{{2, InitiatedLine(delayedNo)},
                                             {2, DelayLine(1000, delayedNo)},
                                             {2, InternalLine(session_, delayedNo, 0)},
                                             {2, CompleteLine(delayedNo, 0)}},
                                            UnplugLines(delayed, delayedNo)}));
  EXPECT_TRUE(ThreadLog::Contains("Destroyed deferred plugin, PlugNo: " + Number(fetchingNo)));
}

// A start that failed leaves the device created, with no thread, and the
// callback uncalled; the log tells why.
void ExpectStartFailed(const LogLines &lines, PelarixHandle device, const std::string &reason,
                       const PluginSeen &seen) {
  EXPECT_EQ(
      lines,
      (LogLines{{0, reason},
                {2, StartedLine(1, 3)},
                {0, "Failed to start deferred plugin, handle: " + Ptr(device) + ", PlugNo: 1"},
                {2, PluginLine(device, 1, 3)}}));
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->state, kDeviceCreated);
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->deferredThread, nullptr);
  EXPECT_EQ(seen.calls, 0);
}

TEST_F(DeferredTest, EventThatCannotBeMadeLeavesTheDeviceCreated) {
  WriteRegistry("[" + kGeneralKey + "]\r\n\"DefaultPluginDelay\"=dword:00000001\r\n");
  OpenSession();
  PluginSeen seen;
  PelarixHandle device = Make(0x0001, 0, 0, 4, &seen);
  ClearLog();
  {
    DescriptorShortage shortage(0);
    EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Failure);
  }
  ExpectStartFailed(DeviceLines(), device, "Failed to create deferred plugin event", seen);
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_InvalidState);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_TRUE(Model().PluginRecords().empty());
  EXPECT_TRUE(Model().Unplugs().empty());
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizersMapMemory = true;
#else
constexpr bool kSanitizersMapMemory = false;
#endif

// The process's address space, in bytes, as /proc tells it.
uint64_t AddressSpaceInUse() {
  std::FILE *status = std::fopen("/proc/self/status", "r");
  if (status == nullptr) return 0;
  char line[256];
  uint64_t kilobytes = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "VmSize: %" SCNu64 " kB", &kilobytes) == 1) break;
  }
  std::fclose(status);
  return kilobytes * 1024;
}

// A thread cannot be made while no new stack can be mapped: the threads
// started here take every stack the C library keeps for reuse, and the
// address space is then held where it stands. The sanitizers map memory of
// their own for each thread, so this runs in the plain build only.
TEST_F(DeferredTest, ThreadThatCannotBeMadeLeavesTheDeviceCreatedWithItsEventClosedOnce) {
  if (kSanitizersMapMemory) {
    GTEST_SKIP() << "the sanitizers' own mappings need the address space this case withholds";
  }
  WriteRegistry("[" + kGeneralKey + "]\r\n\"DefaultPluginDelay\"=dword:00000001\r\n");
  OpenSession();
  PluginSeen seen;
  PelarixHandle device = Make(0x0001, 0, 0, 4, &seen);
  // Room for the lines to come, so that logging allocates nothing new.
  const std::u16string room(60, u'x');
  const auto *roomLine = reinterpret_cast<const PelarixChar *>(room.c_str());
  for (int i = 0; i < 64; ++i) LogCapture::Sink(2, roomLine);
  ClearLog();
  ThreadLog::Clear();
  std::mutex mutex;
  std::condition_variable released;
  bool release = false;
  std::vector<std::thread> holders;
  for (int i = 0; i < 16; ++i) {
    holders.emplace_back([&] {
      std::unique_lock<std::mutex> lock(mutex);
      released.wait(lock, [&] { return release; });
    });
  }
  rlimit saved{};
  getrlimit(RLIMIT_AS, &saved);
  rlimit held = saved;
  held.rlim_cur = AddressSpaceInUse() + (1u << 20);
  ASSERT_EQ(setrlimit(RLIMIT_AS, &held), 0);
  const PelarixStatus status = Pelarix_PluginDevice(device);
  setrlimit(RLIMIT_AS, &saved);
  {
    std::lock_guard<std::mutex> lock(mutex);
    release = true;
  }
  released.notify_all();
  for (std::thread &holder : holders) holder.join();

  EXPECT_EQ(status, Pelarix_Failure);
  ExpectStartFailed(DeviceLines(), device, "Failed to create deferred plugin thread", seen);
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->deferredEvent, nullptr);
  // The device's end closes nothing a second time.
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_TRUE(Model().PluginRecords().empty());
}

}  // namespace
}  // namespace pelarix
