// Opening and closing sessions against the virtual hub, through the real
// socket transport.
#include "frame/session.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "frame/handle.h"
#include "hub/hub_control_codes.h"
#include "hub_directory.h"
#include "log_capture.h"
#include "pelarix.h"
#include "platform/platform.h"
#include "test_environment.h"
#ifndef _WIN32
#include "descriptor_shortage.h"
#endif
#include "virtual_hub.h"

namespace pelarix {
namespace {

using testing::LogCapture;
using testing::LogLine;
using testing::LogLines;
using testing::PointerText;

constexpr uint32_t kWaitMs = 5000;
const std::string kNull = "0000000000000000";

// Any pointer but the null one reads "<ptr>": for the hub connection of a
// session that is gone by the time the lines are compared.
LogLines MaskPointers(const LogLines &lines) {
  static const std::regex pointer("[0-9A-F]{16}");
  LogLines masked;
  for (const auto &[level, text] : lines) {
    std::string out;
    auto begin = std::sregex_iterator(text.begin(), text.end(), pointer);
    size_t last = 0;
    for (auto match = begin; match != std::sregex_iterator(); ++match) {
      out += text.substr(last, match->position() - last);
      out += match->str() == kNull ? kNull : "<ptr>";
      last = match->position() + match->length();
    }
    out += text.substr(last);
    masked.emplace_back(level, out);
  }
  return masked;
}

class SessionTest : public ::testing::Test {
 protected:
  // No registry: every setting keeps its default.
  void SetUp() override {
    testing::SetEnvironment("PELARIX_REGISTRY", (directory_.Path() + "/absent.reg").c_str());
  }
  void TearDown() override { testing::ClearEnvironment("PELARIX_REGISTRY"); }

  void StartHub(uint32_t version = vhub::kDefaultHubVersion) {
    vhub::VirtualHubOptions options;
    options.directory = directory_.Path();
    options.version = version;
    hub_ = std::make_unique<vhub::VirtualHub>(options);
    std::string error;
    ASSERT_TRUE(hub_->Start(&error)) << error;
  }

  vhub::HubModel &Model() { return hub_->Model(); }

  static PelarixSession *AsSession(PelarixHandle handle) {
    return static_cast<PelarixSession *>(handle);
  }

  // The lines of a session that opened: hub, version, event, the settings
  // (none in the registry: the item length's default), handle.
  static LogLines OpenedLines(PelarixHandle handle) {
    const std::string hub = PointerText(AsSession(handle)->hubHandle);
    return {{2, "Open virtual hub interface, handle: " + hub + ", status: 0x0"},
            {2, "Get virtual hub version, handle: " + hub + ", status: 0x0"},
            {2, "Set virtual hub notification event, handle: " + hub + ", status: 0x0"},
            {1, "Effective configuration setting, name: ExpectedItemLength, value: 552"},
            {2, "Open handle: " + PointerText(handle) + ", status: 0x0"}};
  }

  vhub::ScopedHubDirectory directory_;
  LogCapture capture_{3};
  std::unique_ptr<vhub::VirtualHub> hub_;
};

void PELARIX_CALL ItemBufferCallback(void *, uint32_t, uint32_t *, uint32_t *, uint32_t) {}

TEST_F(SessionTest, NullOutPointerIsInvalidParameter) {
  StartHub();
  EXPECT_EQ(Pelarix_CreateSessionEx(nullptr, nullptr, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_CreateSession(nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(capture_.Lines(), (LogLines{{2, "Open handle: " + kNull + ", status: 0x6"},
                                        {2, "Open handle: " + kNull + ", status: 0x6"}}));
  EXPECT_EQ(Model().SessionsOpened(), 0u);
}

TEST_F(SessionTest, NoHubPresentIsHubOpenFailed) {
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubOpenFailed);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(capture_.Lines(),
            (LogLines{{2, "SetupDiEnumDeviceInterfaces failed, error: 0x103"},
                      {2, "Open virtual hub interface, handle: " + kNull + ", status: 0x8"},
                      {0, "Failed to open virtual hub interface"},
                      {2, "Open handle: " + kNull + ", status: 0x8"}}));
}

TEST_F(SessionTest, MissingHubDirectoryIsHubOpenFailed) {
  testing::SetEnvironment("PELARIX_HUB_DIR", (directory_.Path() + "/absent").c_str());
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubOpenFailed);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(capture_.Lines()[0], (LogLine{2, "SetupDiEnumDeviceInterfaces failed, error: 0x103"}));
  EXPECT_EQ(capture_.Lines()[2], (LogLine{0, "Failed to open virtual hub interface"}));
}

TEST_F(SessionTest, HubHeldByAnotherSessionIsHubOpenFailed) {
  StartHub();
  PelarixHandle first = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&first), Pelarix_Success);
  capture_.Clear();
  PelarixHandle second = &second;
  EXPECT_EQ(Pelarix_CreateSession(&second), Pelarix_HubOpenFailed);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(capture_.Lines(),
            (LogLines{{2, "Failed to create virtual hub interface, Device Path: " +
                              hub_->SocketPath() + ", error: 0x20"},
                      {2, "Open virtual hub interface, handle: " + kNull + ", status: 0x8"},
                      {0, "Failed to open virtual hub interface"},
                      {2, "Open handle: " + kNull + ", status: 0x8"}}));
  EXPECT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
}

#ifndef _WIN32  // the socket transport's wait for the open status
// A hub that takes the connection and never sends its open status fails the
// open as any hub that cannot be opened, once the wait for the status ends
// (ERROR_TIMEOUT, 0x5b4).
TEST_F(SessionTest, SilentHubIsHubOpenFailedWhenTheWaitEnds) {
  const std::string path = directory_.Path() + "/hub";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ASSERT_EQ(listen(silent, 4), 0);
  setenv("PELARIX_HUB_OPEN_TIMEOUT_MS", "100", 1);
  PelarixHandle handle = &handle;
  auto created = std::async(std::launch::async, [&] { return Pelarix_CreateSession(&handle); });
  if (created.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    ADD_FAILURE() << "the session open still waits for the hub";
    close(silent);  // releases the open
    silent = -1;
  }
  EXPECT_EQ(created.get(), Pelarix_HubOpenFailed);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(capture_.Lines(),
            (LogLines{{2, "Failed to create virtual hub interface, Device Path: " + path +
                              ", error: 0x5b4"},
                      {2, "Open virtual hub interface, handle: " + kNull + ", status: 0x8"},
                      {0, "Failed to open virtual hub interface"},
                      {2, "Open handle: " + kNull + ", status: 0x8"}}));
  unsetenv("PELARIX_HUB_OPEN_TIMEOUT_MS");
  if (silent >= 0) close(silent);
}
#endif

void ExpectVersionRefused(SessionTest *, vhub::HubModel &model, LogCapture &capture) {
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_UnsupportedHubVersion);
  EXPECT_EQ(handle, nullptr);
  // The refusal line ends after "version, ": its second half is an argument.
  EXPECT_EQ(MaskPointers(capture.Lines()),
            (LogLines{{2, "Open virtual hub interface, handle: <ptr>, status: 0x0"},
                      {2, "Get virtual hub version, handle: <ptr>, status: 0x0"},
                      {0, "Unsupported hub virtual hub version, "},
                      {2, "Open handle: " + kNull + ", status: 0x7"}}));
  EXPECT_TRUE(model.RequestsOf(IOCTL_HUB_SET_NOTIFICATION_EVENT).empty());
  EXPECT_TRUE(model.WaitForNoSession(kWaitMs));
}

TEST_F(SessionTest, MajorVersionOneIsRefused) {
  StartHub(0x00010000);
  ExpectVersionRefused(this, Model(), capture_);
}

TEST_F(SessionTest, MajorVersionOneIsRefusedWhateverItsMinor) {
  StartHub(0x0001FFFF);
  ExpectVersionRefused(this, Model(), capture_);
}

TEST_F(SessionTest, VersionZeroIsRefused) {
  StartHub(0x00000005);
  ExpectVersionRefused(this, Model(), capture_);
}

class AcceptedVersionTest : public SessionTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(AcceptedVersionTest, HubIsAccepted) {
  StartHub(GetParam());
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  EXPECT_TRUE(IsValidHandle(handle, kSessionHandle));
  EXPECT_EQ(capture_.Lines(), OpenedLines(handle));
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

INSTANTIATE_TEST_SUITE_P(Versions, AcceptedVersionTest,
                         ::testing::Values(0x00020000u, 0x0002FFFFu, 0x00030000u, 0xFFFF0000u));

TEST_F(SessionTest, SessionRecordAfterOpening) {
  StartHub();
  PelarixHandle handle = nullptr;
  int context = 0;
  ASSERT_EQ(Pelarix_CreateSessionEx(&handle, &ItemBufferCallback, &context), Pelarix_Success);
  const PelarixSession *session = AsSession(handle);
  EXPECT_EQ(session->header.magic, kHandleMagic);
  EXPECT_EQ(session->header.kind, kSessionHandle);
  EXPECT_EQ(session->header.refCount, 1);
  EXPECT_EQ(session->header.parent, nullptr);
  EXPECT_EQ(session->devices, nullptr);
  EXPECT_NE(session->cancelEvent, nullptr);
  EXPECT_NE(session->hubHandle, nullptr);
  EXPECT_NE(session->hubNotificationEvent, nullptr);
  EXPECT_NE(session->deferredPluginEvent, nullptr);
  EXPECT_EQ(session->itemBufferCallback, &ItemBufferCallback);
  EXPECT_EQ(session->itemBufferContext, &context);
  EXPECT_NE(session->filterManager, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

TEST_F(SessionTest, CreateSessionHasNoItemBufferCallback) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  EXPECT_EQ(AsSession(handle)->itemBufferCallback, nullptr);
  EXPECT_EQ(AsSession(handle)->itemBufferContext, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

TEST_F(SessionTest, EventsStartUnsignalled) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  const PelarixSession *session = AsSession(handle);
  EXPECT_EQ(platform::WaitForEvent(session->cancelEvent, 0), platform::kWaitTimeout);
  EXPECT_EQ(platform::WaitForEvent(session->hubNotificationEvent, 0), platform::kWaitTimeout);
  EXPECT_EQ(platform::WaitForEvent(session->deferredPluginEvent, 0), platform::kWaitTimeout);
  // The cancel event is auto-reset: one set, one waiter.
  platform::SetEvent(session->cancelEvent);
  EXPECT_EQ(platform::WaitForEvent(session->cancelEvent, 0), platform::kWaitObject0);
  EXPECT_EQ(platform::WaitForEvent(session->cancelEvent, 0), platform::kWaitTimeout);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

TEST_F(SessionTest, NotificationEventIsHandedToTheHub) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  const PelarixSession *session = AsSession(handle);
  const auto requests = Model().RequestsOf(IOCTL_HUB_SET_NOTIFICATION_EVENT);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_TRUE(requests[0].eventAttached);
  const uint64_t value = platform::EventHandleValue(session->hubNotificationEvent);
  std::vector<uint8_t> expected(8);
  for (int i = 0; i < 8; ++i) expected[i] = static_cast<uint8_t>(value >> (8 * i));
  EXPECT_EQ(requests[0].input, expected);
  // The hub raises and clears it; the library only waits on it.
  Model().RaiseNotification(true);
  EXPECT_EQ(platform::WaitForEvent(session->hubNotificationEvent, kWaitMs), platform::kWaitObject0);
  EXPECT_EQ(platform::WaitForEvent(session->hubNotificationEvent, 0), platform::kWaitObject0);
  Model().RaiseNotification(false);
  EXPECT_EQ(platform::WaitForEvent(session->hubNotificationEvent, 0), platform::kWaitTimeout);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

TEST_F(SessionTest, RequestsOfOpeningInOrder) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  const auto requests = Model().Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].code, IOCTL_HUB_GET_VERSION);
  EXPECT_EQ(requests[0].input.size(), 4u);
  EXPECT_EQ(requests[0].outputCapacity, 4u);
  EXPECT_EQ(requests[1].code, IOCTL_HUB_SET_NOTIFICATION_EVENT);
  EXPECT_EQ(requests[1].outputCapacity, 0u);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

TEST_F(SessionTest, FailedVersionRequestIsHubRequestFailed) {
  StartHub();
  Model().FailRequest(IOCTL_HUB_GET_VERSION, 31, false);
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubRequestFailed);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(MaskPointers(capture_.Lines()),
            (LogLines{{2, "Open virtual hub interface, handle: <ptr>, status: 0x0"},
                      {0, "Failed to get virtual hub version handle: <ptr>, error: 0x1f"},
                      {2, "Get virtual hub version, handle: <ptr>, status: 0x9"},
                      {0, "Failed to retrieve virtual hub version"},
                      {2, "Open handle: " + kNull + ", status: 0x9"}}));
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
}

TEST_F(SessionTest, FailedNotificationRequestIsHubRequestFailed) {
  StartHub();
  Model().FailRequest(IOCTL_HUB_SET_NOTIFICATION_EVENT, 87, false);
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubRequestFailed);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(
      MaskPointers(capture_.Lines()),
      (LogLines{{2, "Open virtual hub interface, handle: <ptr>, status: 0x0"},
                {2, "Get virtual hub version, handle: <ptr>, status: 0x0"},
                {0, "Failed to set virtual hub notification event, handle: <ptr>, error: 0x57"},
                {2, "Set virtual hub notification event, handle: <ptr>, status: 0x9"},
                {0, "Failed to set virtual hub notification event"},
                {2, "Open handle: " + kNull + ", status: 0x9"}}));
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
}

TEST_F(SessionTest, PendingFailureOfTheNotificationRequestNamesTheHubError) {
  StartHub();
  Model().FailRequest(IOCTL_HUB_SET_NOTIFICATION_EVENT, 0xE0000001, true);
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubRequestFailed);
  EXPECT_EQ(MaskPointers(capture_.Lines()),
            (LogLines{{2, "Open virtual hub interface, handle: <ptr>, status: 0x0"},
                      {2, "Get virtual hub version, handle: <ptr>, status: 0x0"},
                      {0, "Item notification event has not been set"},
                      {0,
                       "Failed to set virtual hub notification event, handle: <ptr>, "
                       "error: 0xe0000001"},
                      {2, "Set virtual hub notification event, handle: <ptr>, status: 0x9"},
                      {0, "Failed to set virtual hub notification event"},
                      {2, "Open handle: " + kNull + ", status: 0x9"}}));
}

TEST_F(SessionTest, FailureLinesAloneAtLevelZero) {
  capture_.Clear();
  gLibrary.logLevel = 0;
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubOpenFailed);
  EXPECT_EQ(capture_.Lines(), (LogLines{{0, "Failed to open virtual hub interface"}}));
}

TEST_F(SessionTest, SessionWorksWithoutInit) {
  StartHub();
  testing::ResetLibraryState();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  EXPECT_TRUE(capture_.Lines().empty());
}

TEST_F(SessionTest, CloseDestroysTheSessionAndClosesTheHub) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  capture_.Clear();
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  const std::string text = PointerText(handle);
  EXPECT_EQ(capture_.Lines(), (LogLines{{3, "Deref inst: " + text + ", refCount: 1"},
                                        {3, "Destroying inst: " + text},
                                        {3, "Close handle: " + text + ", status: 0x0"}}));
  EXPECT_FALSE(IsValidHandle(handle, kAnyHandle));
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
}

TEST_F(SessionTest, SecondCloseIsInvalidHandle) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  ASSERT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  capture_.Clear();
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_DuplicateHandle(handle), Pelarix_InvalidHandle);
  const std::string text = PointerText(handle);
  EXPECT_EQ(capture_.Lines(),
            (LogLines{{0, "Invalid handle: " + text},
                      {3, "Close handle: " + text + ", status: 0x5"},
                      {0, "Invalid handle: " + text},
                      {3, "Duplicate handle: " + text + ", Ref: 0, status: 0x5"}}));
}

TEST_F(SessionTest, DuplicateThenCloseLeavesTheSessionAlive) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  capture_.Clear();
  EXPECT_EQ(Pelarix_DuplicateHandle(handle), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  const std::string text = PointerText(handle);
  EXPECT_EQ(capture_.Lines(), (LogLines{{3, "Duplicate handle: " + text + ", Ref: 2, status: 0x0"},
                                        {3, "Deref inst: " + text + ", refCount: 2"},
                                        {3, "Close handle: " + text + ", status: 0x0"}}));
  EXPECT_TRUE(IsValidHandle(handle, kSessionHandle));
  EXPECT_TRUE(Model().SessionOpen());
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  EXPECT_FALSE(IsValidHandle(handle, kAnyHandle));
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
}

// The rule itself, with a stand-in at the head of the list: a session
// lingers while it has devices. Real devices are in the device suite
// (UnplugTest.DeviceHandleWorksAfterItsSessionIsClosed).
TEST_F(SessionTest, SessionWithDevicesLingersUntilTheLastIsGone) {
  StartHub();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  PelarixSession *session = AsSession(handle);
  alignas(16) unsigned char standIn[64] = {};
  session->devices = reinterpret_cast<PelarixDevice *>(standIn);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  // Lingering: the record and the hub connection stay, the handle is invalid.
  EXPECT_EQ(session->header.magic, kHandleMagic);
  EXPECT_EQ(session->header.refCount, 0);
  EXPECT_FALSE(IsValidHandle(handle, kSessionHandle));
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_DuplicateHandle(handle), Pelarix_InvalidHandle);
  EXPECT_TRUE(Model().SessionOpen());
  // A second destroy with the device still there changes nothing either.
  DestroySession(session);
  EXPECT_EQ(session->header.magic, kHandleMagic);
  // The last device leaves the list and destroys the session.
  platform::EnterLock(&session->deviceListLock);
  session->devices = nullptr;
  platform::LeaveLock(&session->deviceListLock);
  DestroySession(session);
  EXPECT_EQ(session->header.magic, 0u);
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
}

TEST_F(SessionTest, ANewSessionAfterCloseOpensTheHubAgain) {
  StartHub();
  PelarixHandle first = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&first), Pelarix_Success);
  ASSERT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
  ASSERT_TRUE(Model().WaitForNoSession(kWaitMs));
  PelarixHandle second = nullptr;
  EXPECT_EQ(Pelarix_CreateSession(&second), Pelarix_Success);
  EXPECT_EQ(Model().SessionsOpened(), 2u);
  EXPECT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
}

#ifndef _WIN32
using testing::DescriptorShortage;

TEST_F(SessionTest, CancelEventFailureIsFailureWithoutMessage) {
  DescriptorShortage shortage(0);
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_Failure);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(DescriptorShortage::Free(), 0);
  EXPECT_EQ(capture_.Lines(), (LogLines{{2, "Open handle: " + kNull + ", status: 0x3"}}));
}

TEST_F(SessionTest, NotificationEventFailure) {
  DescriptorShortage shortage(1);
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_Failure);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(DescriptorShortage::Free(), 1);  // the cancel event was closed again
  EXPECT_EQ(capture_.Lines(), (LogLines{{0, "Failed to create hub notification event"},
                                        {2, "Open handle: " + kNull + ", status: 0x3"}}));
}

TEST_F(SessionTest, DeferredPluginEventFailure) {
  DescriptorShortage shortage(2);
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_Failure);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(DescriptorShortage::Free(), 2);
  EXPECT_EQ(capture_.Lines(), (LogLines{{0, "Failed to create deferred plugin event"},
                                        {2, "Open handle: " + kNull + ", status: 0x3"}}));
}

int OpenDescriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

TEST_F(SessionTest, FailedOpeningLeavesNoDescriptorBehind) {
  StartHub(0x00010000);
  const int before = OpenDescriptors();
  PelarixHandle handle = nullptr;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_UnsupportedHubVersion);
  ASSERT_TRUE(Model().WaitForNoSession(kWaitMs));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(SessionTest, ClosedSessionLeavesNoDescriptorBehind) {
  StartHub();
  const int before = OpenDescriptors();
  PelarixHandle handle = nullptr;
  ASSERT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
  EXPECT_GT(OpenDescriptors(), before);
  ASSERT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  ASSERT_TRUE(Model().WaitForNoSession(kWaitMs));
  EXPECT_EQ(OpenDescriptors(), before);
}
#endif  // descriptors are POSIX's

}  // namespace
}  // namespace pelarix
