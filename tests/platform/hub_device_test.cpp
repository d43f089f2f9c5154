// The hub device: discovery in the hub directory, the exclusive open with its
// status word, and control requests over the real socket transport, against
// the virtual hub and against hand-made hubs that misbehave. Under Windows
// the cases that do not depend on the transport run against the virtual hub
// as an in-process hub device (win32_hub_device_test.cpp has the rest).
#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "hub/hub_control_codes.h"
#include "hub_directory.h"
#include "platform/platform.h"
#include "virtual_hub.h"
#ifndef _WIN32
#include "platform/posix/hub_open_wait.h"
#include "raw_hub.h"
#endif

namespace pelarix::platform {
namespace {

using vhub::HubAnswer;
using vhub::ScopedHubDirectory;
using vhub::VirtualHub;
using vhub::VirtualHubOptions;

[[maybe_unused]] std::u16string Wide(const std::string &text) {
  return std::u16string(text.begin(), text.end());
}

// The path HubGetInterfacePath gives for the first interface, or the error.
std::u16string FirstInterfacePath(uint32_t *error) {
  HubDeviceSet set = nullptr;
  *error = HubGetDeviceSet(&set);
  std::u16string path;
  if (*error == kErrorSuccess) *error = HubEnumFirstInterface(set);
  if (*error == kErrorSuccess) {
    uint32_t chars = 0;
    EXPECT_EQ(HubGetInterfacePath(set, nullptr, 0, &chars), kErrorInsufficientBuffer);
    std::vector<char16_t> buffer(chars, u'?');
    *error = HubGetInterfacePath(set, buffer.data(), chars, &chars);
    EXPECT_EQ(buffer.back(), u'\0');
    path.assign(buffer.data());
  }
  HubDestroyDeviceSet(set);
  return path;
}

class HubDeviceTest : public ::testing::Test {
 protected:
  std::unique_ptr<VirtualHub> StartHub(const std::string &name = "hub") {
    VirtualHubOptions options;
    options.directory = directory_.Path();
    options.name = name;
    auto hub = std::make_unique<VirtualHub>(options);
    std::string error;
    EXPECT_TRUE(hub->Start(&error)) << error;
    return hub;
  }
  HubConnection Open(uint32_t expected = kErrorSuccess) {
    uint32_t error = 0;
    std::u16string path = FirstInterfacePath(&error);
    EXPECT_EQ(error, kErrorSuccess);
    HubConnection hub = nullptr;
    EXPECT_EQ(HubOpen(path.c_str(), &hub), expected);
    EXPECT_EQ(hub == nullptr, expected != kErrorSuccess);
    return hub;
  }

  ScopedHubDirectory directory_;
};

#ifndef _WIN32
// The hub directory of the socket transport.
TEST_F(HubDeviceTest, MissingDirectoryHasNoInterface) {
  setenv("PELARIX_HUB_DIR", (directory_.Path() + "/absent").c_str(), 1);
  uint32_t error = 0;
  FirstInterfacePath(&error);
  EXPECT_EQ(error, kErrorNoMoreItems);
}

TEST_F(HubDeviceTest, DirectoryWithoutSocketsHasNoInterface) {
  std::string file = directory_.Path() + "/not-a-socket";
  FILE *stream = fopen(file.c_str(), "w");
  ASSERT_NE(stream, nullptr);
  fclose(stream);
  ASSERT_EQ(mkdir((directory_.Path() + "/a-directory").c_str(), 0755), 0);
  uint32_t error = 0;
  FirstInterfacePath(&error);
  EXPECT_EQ(error, kErrorNoMoreItems);
}

TEST_F(HubDeviceTest, PathQueryWithoutBufferGivesTheSizeWithTheNul) {
  auto hub = StartHub("hub");
  HubDeviceSet set = nullptr;
  ASSERT_EQ(HubGetDeviceSet(&set), kErrorSuccess);
  ASSERT_EQ(HubEnumFirstInterface(set), kErrorSuccess);
  uint32_t chars = 0;
  EXPECT_EQ(HubGetInterfacePath(set, nullptr, 0, &chars), kErrorInsufficientBuffer);
  EXPECT_EQ(chars, (directory_.Path() + "/hub").size() + 1);
  std::vector<char16_t> small(chars - 1);
  EXPECT_EQ(HubGetInterfacePath(set, small.data(), chars - 1, &chars), kErrorInsufficientBuffer);
  HubDestroyDeviceSet(set);
  HubDestroyDeviceSet(nullptr);
}

TEST_F(HubDeviceTest, FirstSocketInByteOrderIsTheHub) {
  auto second = StartHub("hub9");
  auto first = StartHub("hub10");
  auto third = StartHub("Zhub");  // capitals sort before small letters
  uint32_t error = 0;
  EXPECT_EQ(FirstInterfacePath(&error), Wide(directory_.Path() + "/Zhub"));
  third->Stop();
  EXPECT_EQ(FirstInterfacePath(&error), Wide(directory_.Path() + "/hub10"));
  EXPECT_EQ(error, kErrorSuccess);
}

TEST_F(HubDeviceTest, NonUtf8SocketNameSurvivesTheWidePath) {
  auto hub = StartHub("h\xff\xc3\xa9ub");
  uint32_t error = 0;
  std::u16string path = FirstInterfacePath(&error);
  EXPECT_EQ(path, Wide(directory_.Path() + "/h") + u"\xdcff\u00e9ub");
  HubConnection connection = nullptr;
  ASSERT_EQ(HubOpen(path.c_str(), &connection), kErrorSuccess);
  HubClose(connection);
}

TEST_F(HubDeviceTest, OpenOfMissingSocketIsFileNotFound) {
  HubConnection hub = nullptr;
  EXPECT_EQ(HubOpen(Wide(directory_.Path() + "/gone").c_str(), &hub), kErrorFileNotFound);
  EXPECT_EQ(hub, nullptr);
}
#endif

TEST_F(HubDeviceTest, OpenIsExclusiveAndFreedByClose) {
  auto hub = StartHub();
  HubConnection first = Open();
  HubConnection second = Open(kErrorSharingViolation);
  EXPECT_EQ(hub->Model().SessionsOpened(), 1u);
  HubClose(first);
  ASSERT_TRUE(hub->Model().WaitForNoSession(5000));
  HubConnection third = Open();
  EXPECT_EQ(hub->Model().SessionsOpened(), 2u);
  HubClose(third);
  HubClose(second);  // null
}

TEST_F(HubDeviceTest, OpenStatusOfTheHubIsTheOpenError) {
  auto hub = StartHub();
  hub->Model().SetNextOpenStatus(0x4D5);
  Open(0x4D5);
}

#ifndef _WIN32
// EACCES needs a caller that permissions apply to; root gets a child that
// drops to nobody first.
TEST_F(HubDeviceTest, OpenWithoutPermissionIsAccessDenied) {
  auto hub = StartHub();
  ASSERT_EQ(chmod(hub->SocketPath().c_str(), 0), 0);
  std::u16string path = Wide(hub->SocketPath());
  if (geteuid() != 0) {
    HubConnection connection = nullptr;
    EXPECT_EQ(HubOpen(path.c_str(), &connection), kErrorAccessDenied);
    return;
  }
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
    HubConnection connection = nullptr;
    _exit(static_cast<int>(HubOpen(path.c_str(), &connection)));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(kErrorAccessDenied));
}
#endif

TEST_F(HubDeviceTest, RequestCarriesItsFrameAndGetsItsAnswer) {
  auto hub = StartHub();
  hub->Model().SetVersion(0x00030007);
  HubConnection connection = Open();
  uint32_t version = 0xAABBCCDD;
  uint32_t bytes = 99;
  HubControlResult result =
      HubControl(connection, IOCTL_HUB_GET_VERSION, &version, 4, &version, 4, &bytes, nullptr);
  EXPECT_EQ(result.error, kErrorSuccess);
  EXPECT_FALSE(result.pending);
  EXPECT_EQ(bytes, 4u);
  EXPECT_EQ(version, 0x00030007u);
  auto requests = hub->Model().Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].code, 0x2A6006u);
  EXPECT_EQ(requests[0].input, (std::vector<uint8_t>{0xDD, 0xCC, 0xBB, 0xAA}));
  EXPECT_EQ(requests[0].outputCapacity, 4u);
  EXPECT_FALSE(requests[0].eventAttached);
  HubClose(connection);
}

TEST_F(HubDeviceTest, FailureAtOnceAndAfterPendingAreToldApart) {
  auto hub = StartHub();
  HubConnection connection = Open();
  hub->Model().FailRequest(IOCTL_HUB_GET_NEXT_PLUG_NUMBER, 0x1F, false);
  hub->Model().FailRequest(IOCTL_HUB_GET_NEXT_PLUG_NUMBER, 0xE0000003, true);
  uint32_t plugNo = 0;
  uint32_t bytes = 0;
  HubControlResult first = HubControl(connection, IOCTL_HUB_GET_NEXT_PLUG_NUMBER, nullptr, 0,
                                      &plugNo, 4, &bytes, nullptr);
  EXPECT_EQ(first.error, 0x1Fu);
  EXPECT_FALSE(first.pending);
  HubControlResult second = HubControl(connection, IOCTL_HUB_GET_NEXT_PLUG_NUMBER, nullptr, 0,
                                       &plugNo, 4, &bytes, nullptr);
  EXPECT_EQ(second.error, 0xE0000003u);
  EXPECT_TRUE(second.pending);
  HubControlResult third = HubControl(connection, IOCTL_HUB_GET_NEXT_PLUG_NUMBER, nullptr, 0,
                                      &plugNo, 4, &bytes, nullptr);
  EXPECT_EQ(third.error, kErrorSuccess);
  EXPECT_EQ(plugNo, 1u);  // the failed requests took no number
  HubClose(connection);
}

TEST_F(HubDeviceTest, NotificationEventTravelsWithItsRequest) {
  auto hub = StartHub();
  HubConnection connection = Open();
  Event event = nullptr;
  ASSERT_EQ(CreateEvent(true, &event), kErrorSuccess);
  uint64_t value = EventHandleValue(event);
  uint32_t bytes = 0;
  HubControlResult result = HubControl(connection, IOCTL_HUB_SET_NOTIFICATION_EVENT, &value, 8,
                                       nullptr, 0, &bytes, event);
  EXPECT_EQ(result.error, kErrorSuccess);
  auto requests = hub->Model().Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_TRUE(requests[0].eventAttached);
  ASSERT_EQ(requests[0].input.size(), 8u);
  uint64_t sent = 0;
  std::memcpy(&sent, requests[0].input.data(), 8);
  EXPECT_EQ(sent, value);
  // The hub's copy of the descriptor raises the library's event.
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
  hub->Model().QueueItem({});
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  HubClose(connection);
  CloseEvent(event);
}

TEST_F(HubDeviceTest, LargeInputGoesWhole) {
  auto hub = StartHub();
  HubConnection connection = Open();
  std::vector<uint8_t> record(300000);
  for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<uint8_t>(i * 7);
  uint32_t bytes = 0;
  HubControl(connection, IOCTL_HUB_COMPLETE_ITEM, record.data(),
             static_cast<uint32_t>(record.size()), nullptr, 0, &bytes, nullptr);
  auto requests = hub->Model().Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].input, record);
  HubClose(connection);
}

TEST_F(HubDeviceTest, MissingBuffersAreRefusedWithoutSending) {
  auto hub = StartHub();
  HubConnection connection = Open();
  uint32_t bytes = 5;
  EXPECT_EQ(
      HubControl(connection, IOCTL_HUB_GET_VERSION, nullptr, 4, nullptr, 0, &bytes, nullptr).error,
      87u);
  EXPECT_EQ(
      HubControl(nullptr, IOCTL_HUB_GET_VERSION, nullptr, 0, nullptr, 0, &bytes, nullptr).error,
      87u);
  EXPECT_EQ(bytes, 0u);
  EXPECT_TRUE(hub->Model().Requests().empty());
  HubClose(connection);
}

TEST_F(HubDeviceTest, HubThatWentAwayIsDeviceNotConnected) {
  auto hub = StartHub();
  HubConnection connection = Open();
  hub->Stop();
  uint32_t version = 0;
  uint32_t bytes = 0;
  HubControlResult result =
      HubControl(connection, IOCTL_HUB_GET_VERSION, &version, 4, &version, 4, &bytes, nullptr);
  EXPECT_EQ(result.error, kErrorDeviceNotConnected);
  EXPECT_FALSE(result.pending);
  HubClose(connection);
}

#ifndef _WIN32
// Hand-made hubs that break the socket protocol.
HubControlResult AskRawHub(const std::string &path, std::vector<uint8_t> answer, uint32_t *bytes,
                           uint8_t *output, uint32_t capacity) {
  vhub::RawHub raw(path);
  EXPECT_TRUE(raw.Listening());
  std::thread server([&] { raw.ServeOne({0, 0, 0, 0}, answer.data(), answer.size()); });
  HubConnection connection = nullptr;
  EXPECT_EQ(HubOpen(Wide(path).c_str(), &connection), kErrorSuccess);
  HubControlResult result =
      HubControl(connection, IOCTL_HUB_GET_ITEM, nullptr, 0, output, capacity, bytes, nullptr);
  HubClose(connection);
  server.join();
  return result;
}

// The frame as it goes on the wire, byte for byte, with its descriptors.
vhub::RawHub::Received SendToRawHub(const std::string &path, uint32_t code,
                                    std::vector<uint8_t> input, uint32_t capacity, Event event) {
  vhub::RawHub raw(path);
  vhub::RawHub::Received received;
  std::thread server([&] { received = raw.ServeOne({0, 0, 0, 0}, nullptr, 0); });
  HubConnection connection = nullptr;
  EXPECT_EQ(HubOpen(Wide(path).c_str(), &connection), kErrorSuccess);
  std::vector<uint8_t> output(capacity);
  uint32_t bytes = 0;
  HubControl(connection, code, input.data(), static_cast<uint32_t>(input.size()), output.data(),
             capacity, &bytes, event);
  HubClose(connection);
  server.join();
  return received;
}

TEST_F(HubDeviceTest, RequestFrameIsHeaderThenInputWithTheReplyEnd) {
  auto received =
      SendToRawHub(directory_.Path() + "/raw", 0x2A6006, {0xAA, 0xBB, 0xCC, 0xDD}, 4, nullptr);
  EXPECT_EQ(received.frame,
            (std::vector<uint8_t>{0x50, 0x48, 0x52, 0x51, 0x06, 0x60, 0x2A, 0x00, 0x04, 0x00,
                                  0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0xAA, 0xBB, 0xCC, 0xDD}));
  EXPECT_EQ(received.descriptors, 1u);
}

TEST_F(HubDeviceTest, NotificationEventFrameCarriesTheEventAsSecondDescriptor) {
  Event event = nullptr;
  ASSERT_EQ(CreateEvent(true, &event), kErrorSuccess);
  std::vector<uint8_t> input(8);
  uint64_t value = EventHandleValue(event);
  std::memcpy(input.data(), &value, 8);
  auto received = SendToRawHub(directory_.Path() + "/raw", 0x2A6009, input, 0, event);
  std::vector<uint8_t> expected = {0x50, 0x48, 0x52, 0x51, 0x09, 0x60, 0x2A, 0x00,
                                   0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  expected.insert(expected.end(), input.begin(), input.end());
  EXPECT_EQ(received.frame, expected);
  EXPECT_EQ(received.descriptors, 2u);
  CloseEvent(event);
}

TEST_F(HubDeviceTest, AnswerWithinCapacityIsTakenAsItStands) {
  uint8_t output[8] = {};
  uint32_t bytes = 0;
  HubControlResult result =
      AskRawHub(directory_.Path() + "/raw",
                {0x50, 0x48, 0x52, 0x50, 1, 0, 0, 0, 0x1F, 0, 0, 0, 3, 0, 0, 0, 7, 8, 9}, &bytes,
                output, sizeof output);
  EXPECT_EQ(result.error, 0x1Fu);
  EXPECT_TRUE(result.pending);
  EXPECT_EQ(bytes, 3u);
  EXPECT_EQ(output[2], 9);
}

TEST_F(HubDeviceTest, AnswerAboveCapacityIsABrokenConnection) {
  uint8_t output[2] = {};
  uint32_t bytes = 0;
  HubControlResult result =
      AskRawHub(directory_.Path() + "/raw",
                {0x50, 0x48, 0x52, 0x50, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 7, 8, 9}, &bytes,
                output, sizeof output);
  EXPECT_EQ(result.error, kErrorDeviceNotConnected);
  EXPECT_FALSE(result.pending);
  EXPECT_EQ(bytes, 0u);
  EXPECT_EQ(output[0], 0);
}

TEST_F(HubDeviceTest, AnswerWithBadMagicIsABrokenConnection) {
  uint32_t bytes = 0;
  HubControlResult result =
      AskRawHub(directory_.Path() + "/raw",
                {0x50, 0x48, 0x52, 0x51, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, &bytes, nullptr, 0);
  EXPECT_EQ(result.error, kErrorDeviceNotConnected);
}

TEST_F(HubDeviceTest, ShortAnswerIsABrokenConnection) {
  uint8_t output[8] = {};
  uint32_t bytes = 0;
  HubControlResult result = AskRawHub(
      directory_.Path() + "/raw", {0x50, 0x48, 0x52, 0x50, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 7},
      &bytes, output, sizeof output);
  EXPECT_EQ(result.error, kErrorDeviceNotConnected);
  EXPECT_EQ(bytes, 0u);
}

TEST_F(HubDeviceTest, HubThatHangsUpBeforeItsStatusFailsTheOpen) {
  std::string path = directory_.Path() + "/raw";
  vhub::RawHub raw(path);
  std::thread server([&] { raw.ServeOne({}, nullptr, 0); });
  HubConnection connection = nullptr;
  EXPECT_EQ(HubOpen(Wide(path).c_str(), &connection), kErrorDeviceNotConnected);
  EXPECT_EQ(connection, nullptr);
  server.join();
}

// A socket that takes connections into its backlog and never answers: a hub
// that is stopped or stuck. Closing it resets the connections waiting in it.
class SilentHub {
 public:
  explicit SilentHub(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd_, 4), 0);
  }
  ~SilentHub() { Close(); }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// Far beyond any wait of the tests; it only ends a test that fails.
constexpr auto kPatience = std::chrono::seconds(10);

TEST_F(HubDeviceTest, SilentHubFailsTheOpenWhenTheWaitEnds) {
  std::string path = directory_.Path() + "/hub";
  SilentHub silent(path);
  setenv("PELARIX_HUB_OPEN_TIMEOUT_MS", "100", 1);
  std::u16string wide = Wide(path);
  HubConnection connection = nullptr;
  auto opened = std::async(std::launch::async, [&] { return HubOpen(wide.c_str(), &connection); });
  if (opened.wait_for(kPatience) != std::future_status::ready) {
    ADD_FAILURE() << "the open still waits for its status";
    silent.Close();  // releases the open
  }
  EXPECT_EQ(opened.get(), kErrorTimeout);
  EXPECT_EQ(kErrorTimeout, 1460u);
  EXPECT_EQ(connection, nullptr);
  unsetenv("PELARIX_HUB_OPEN_TIMEOUT_MS");
}

TEST_F(HubDeviceTest, OpenWaitIsSetInMillisecondsThroughTheEnvironment) {
  unsetenv("PELARIX_HUB_OPEN_TIMEOUT_MS");
  EXPECT_EQ(HubOpenWaitMs(), 5000u);
  const std::vector<std::pair<std::string, uint32_t>> cases = {{"250", 250},
                                                               {"1", 1},
                                                               {"2147483647", 2147483647},
                                                               {"", 5000},
                                                               {"0", 5000},
                                                               {"2147483648", 5000},
                                                               {"99999999999", 5000},
                                                               {"12x", 5000},
                                                               {"-5", 5000},
                                                               {" 250", 5000},
                                                               {"250ms", 5000},
                                                               {"0x10", 5000}};
  for (const auto &[text, expected] : cases) {
    setenv("PELARIX_HUB_OPEN_TIMEOUT_MS", text.c_str(), 1);
    EXPECT_EQ(HubOpenWaitMs(), expected) << '"' << text << '"';
  }
  unsetenv("PELARIX_HUB_OPEN_TIMEOUT_MS");
}

// The bound is on the open status only: a request that the hub holds waits as
// long as the hub takes, and ends with a broken connection when the hub goes.
TEST_F(HubDeviceTest, HeldRequestOutlastsTheOpenWait) {
  setenv("PELARIX_HUB_OPEN_TIMEOUT_MS", "20", 1);
  auto hub = StartHub();
  HubConnection connection = Open();
  hub->Model().HoldAnswer(IOCTL_HUB_GET_VERSION, HubAnswer{true, 0, {1, 0, 2, 0}});
  hub->Model().HoldAnswer(IOCTL_HUB_GET_UNIQUE_ITEM_ID, HubAnswer{true, 0, {}});
  auto ask = [&](uint32_t code) {
    return std::async(std::launch::async, [&, code] {
      uint32_t word = 0;
      uint32_t bytes = 0;
      HubControlResult result = HubControl(connection, code, &word, 4, &word, 4, &bytes, nullptr);
      return std::make_pair(result, word);
    });
  };
  auto version = ask(IOCTL_HUB_GET_VERSION);
  auto itemId = ask(IOCTL_HUB_GET_UNIQUE_ITEM_ID);
  ASSERT_TRUE(hub->Model().WaitForHeld(2, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // five open waits
  EXPECT_EQ(version.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  ASSERT_TRUE(hub->Model().ReleaseHeld(IOCTL_HUB_GET_VERSION));
  auto [versionResult, versionWord] = version.get();
  EXPECT_EQ(versionResult.error, kErrorSuccess);
  EXPECT_TRUE(versionResult.pending);
  EXPECT_EQ(versionWord, 0x00020001u);
  hub->Stop();
  auto [itemResult, itemWord] = itemId.get();
  EXPECT_EQ(itemResult.error, kErrorDeviceNotConnected);
  EXPECT_FALSE(itemResult.pending);
  HubClose(connection);
  unsetenv("PELARIX_HUB_OPEN_TIMEOUT_MS");
}

#endif  // the socket transport

}  // namespace
}  // namespace pelarix::platform
