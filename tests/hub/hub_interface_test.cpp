// Opening the hub interface, its version and its notification event, with
// each failure line and its level; HubRequest's error table.
#include "hub/hub_interface.h"

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstring>

#include "hub/hub_control_codes.h"
#include "hub/hub_request.h"
#include "hub/hub_requests.h"
#include "hub_fixture.h"
#include "test_environment.h"

namespace pelarix::testing {
namespace {

using ::testing::ElementsAre;

std::string OpenLine(platform::HubConnection hub, uint32_t status) {
  return "Open virtual hub interface, handle: " + PointerText(hub) +
         ", status: " + (status == 0 ? "0x0" : "0x" + std::to_string(status));
}

class HubInterfaceTest : public HubChannelTest {};

TEST_F(HubInterfaceTest, OpensTheHubAndLogsItsHandle) {
  auto &hub = StartHub();
  EXPECT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  ASSERT_NE(connection_, nullptr);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2, OpenLine(connection_, 0)}));
  EXPECT_EQ(hub.Model().SessionsOpened(), 1u);
  EXPECT_TRUE(hub.Model().SessionOpen());
}

TEST_F(HubInterfaceTest, NoDirectoryIsAnEnumerationFailure) {
  SetEnvironment("PELARIX_HUB_DIR", (directory_.Path() + "/none").c_str());
  platform::HubConnection hub = reinterpret_cast<platform::HubConnection>(0x1);
  EXPECT_EQ(OpenHubInterface(&hub), Pelarix_HubOpenFailed);
  EXPECT_EQ(hub, nullptr);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2, "SetupDiEnumDeviceInterfaces failed, error: 0x103"},
                                   LogLine{2, OpenLine(nullptr, 8)}));
}

TEST_F(HubInterfaceTest, EmptyDirectoryIsAnEnumerationFailure) {
  platform::HubConnection hub = nullptr;
  EXPECT_EQ(OpenHubInterface(&hub), Pelarix_HubOpenFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2, "SetupDiEnumDeviceInterfaces failed, error: 0x103"},
                                   LogLine{2, OpenLine(nullptr, 8)}));
}

#ifndef _WIN32
TEST_F(HubInterfaceTest, SocketWithoutHubIsFileNotFoundWithItsPath) {
  std::string path = directory_.Path() + "/dead";
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  close(fd);  // the file stays, nobody listens
  platform::HubConnection hub = nullptr;
  EXPECT_EQ(OpenHubInterface(&hub), Pelarix_HubOpenFailed);
  EXPECT_EQ(hub, nullptr);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2,
                                           "Failed to create virtual hub interface, Device "
                                           "Path: " +
                                               path + ", error: 0x2"},
                                   LogLine{2, OpenLine(nullptr, 8)}));
}
#endif

TEST_F(HubInterfaceTest, SecondSessionGetsSharingViolation) {
  auto &hub = StartHub();
  platform::HubConnection first = Connect();
  ASSERT_NE(first, nullptr);
  platform::HubConnection second = nullptr;
  EXPECT_EQ(OpenHubInterface(&second), Pelarix_HubOpenFailed);
  EXPECT_EQ(second, nullptr);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2,
                                           "Failed to create virtual hub interface, Device "
                                           "Path: " +
                                               hub.SocketPath() + ", error: 0x20"},
                                   LogLine{2, OpenLine(nullptr, 8)}));
}

TEST_F(HubInterfaceTest, WithTwoHubsTheFirstInByteOrderIsUsed) {
  auto &later = StartHub("hub-b");
  auto &first = StartHub("hub-a");
  EXPECT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  EXPECT_EQ(first.Model().SessionsOpened(), 1u);
  EXPECT_EQ(later.Model().SessionsOpened(), 0u);
}

#ifndef _WIN32
TEST_F(HubInterfaceTest, HubWithoutPermissionIsAccessDenied) {
  auto &hub = StartHub();
  // The directory may be listed, only the socket is closed to others.
  ASSERT_EQ(chmod(directory_.Path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(hub.SocketPath().c_str(), 0), 0);
  std::vector<LogLine> expected = {{2, "Failed to create virtual hub interface, Device Path: " +
                                           hub.SocketPath() + ", error: 0x5"},
                                   {2, OpenLine(nullptr, 8)}};
  if (geteuid() != 0) {
    EXPECT_EQ(OpenHubInterface(&connection_), Pelarix_HubOpenFailed);
    EXPECT_EQ(Lines(), expected);
    return;
  }
  // Permissions do not hold for root: a child drops to nobody first.
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
    platform::HubConnection hubHandle = nullptr;
    bool good = OpenHubInterface(&hubHandle) == Pelarix_HubOpenFailed && Lines() == expected;
    _exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}
#endif

TEST_F(HubInterfaceTest, GetHubVersionAsksWithFourBytesEachWay) {
  Connect();
  Model().SetVersion(0x00030001);
  uint32_t version = 0x12345678;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
  EXPECT_EQ(version, 0x00030001u);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2, "Get virtual hub version, handle: " +
                                                  PointerText(connection_) + ", status: 0x0"}));
  auto requests = Model().Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].code, IOCTL_HUB_GET_VERSION);
  EXPECT_EQ(requests[0].input, Bytes({0x78, 0x56, 0x34, 0x12}));
  EXPECT_EQ(requests[0].outputCapacity, 4u);
}

TEST_F(HubInterfaceTest, VirtualHubReportsVersionTwoByDefault) {
  Connect();
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
  EXPECT_EQ(version, 0x00020000u);
}

TEST_F(HubInterfaceTest, GetHubVersionFailureLogsBothLines) {
  Connect();
  Model().FailRequest(IOCTL_HUB_GET_VERSION, 0x1F, false);
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_HubRequestFailed);
  std::string handle = PointerText(connection_);
  EXPECT_THAT(
      Lines(),
      ElementsAre(
          LogLine{0, "Failed to get virtual hub version handle: " + handle + ", error: 0x1f"},
          LogLine{2, "Get virtual hub version, handle: " + handle + ", status: 0x9"}));
}

TEST_F(HubInterfaceTest, SetNotificationEventSendsTheHandleValueAndTheDescriptor) {
  Connect();
  platform::Event event = nullptr;
  ASSERT_EQ(platform::CreateEvent(true, &event), 0u);
  EXPECT_EQ(SetHubNotificationEvent(connection_, event), Pelarix_Success);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{2, "Set virtual hub notification event, handle: " +
                                                  PointerText(connection_) + ", status: 0x0"}));
  auto requests = Model().Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].code, IOCTL_HUB_SET_NOTIFICATION_EVENT);
  EXPECT_TRUE(requests[0].eventAttached);
  EXPECT_EQ(requests[0].outputCapacity, 0u);
  uint64_t value = platform::EventHandleValue(event);
  std::vector<uint8_t> expected(8);
  std::memcpy(expected.data(), &value, 8);
  EXPECT_EQ(requests[0].input, expected);
  // The hub raises the event while items wait and clears it when none do.
  EXPECT_EQ(platform::WaitForEvent(event, 0), platform::kWaitTimeout);
  Model().QueueItem({});
  EXPECT_EQ(platform::WaitForEvent(event, 0), platform::kWaitObject0);
  platform::CloseEvent(event);
}

TEST_F(HubInterfaceTest, SetNotificationEventFailureLogsBothLines) {
  Connect();
  Model().FailRequest(IOCTL_HUB_SET_NOTIFICATION_EVENT, 0xE0000001, true);
  platform::Event event = nullptr;
  ASSERT_EQ(platform::CreateEvent(true, &event), 0u);
  EXPECT_EQ(SetHubNotificationEvent(connection_, event), Pelarix_HubRequestFailed);
  std::string handle = PointerText(connection_);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0, "Item notification event has not been set"},
                                   LogLine{0,
                                           "Failed to set virtual hub notification event, "
                                           "handle: " +
                                               handle + ", error: 0xe0000001"},
                                   LogLine{2, "Set virtual hub notification event, handle: " +
                                                  handle + ", status: 0x9"}));
  platform::CloseEvent(event);
}

TEST_F(HubInterfaceTest, BrokenConnectionIsDeviceNotConnected) {
  Connect();
  hubs_.front()->Stop();
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_HubRequestFailed);
  EXPECT_EQ(Lines().front(), (LogLine{0, "Failed to get virtual hub version handle: " +
                                             PointerText(connection_) + ", error: 0x48f"}));
}

// HubRequest's table: only failures after pending, and only its three codes.
struct TableCase {
  uint32_t error;
  bool pending;
  const char *line;  // null: no line
};

void PrintTo(const TableCase &tableCase, std::ostream *out) {
  *out << std::hex << "0x" << tableCase.error << (tableCase.pending ? " pending" : " at once");
}

class HubErrorTableTest : public HubChannelTest, public ::testing::WithParamInterface<TableCase> {};

TEST_P(HubErrorTableTest, PendingFailuresOfTheTableAreLogged) {
  Connect();
  Model().FailRequest(IOCTL_HUB_UNPLUG_DEVICE, GetParam().error, GetParam().pending);
  uint32_t plugNo = 1;
  uint32_t bytes = 0;
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_UNPLUG_DEVICE, &plugNo, 4, nullptr, 0, &bytes),
            GetParam().error);
  std::vector<LogLine> expected;
  if (GetParam().line != nullptr) expected.push_back({0, GetParam().line});
  EXPECT_EQ(Lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HubErrorTableTest,
    ::testing::Values(TableCase{0xE0000001, true, "Item notification event has not been set"},
                      TableCase{0xE0000002, true, "Device descriptor consistency check failed"},
                      TableCase{0xE0000003, true,
                                "Configuration descriptor consistency check failed"},
                      TableCase{0xE0000001, false, nullptr}, TableCase{0xE0000002, false, nullptr},
                      TableCase{0xE0000003, false, nullptr}, TableCase{0xE0000004, true, nullptr},
                      TableCase{0x1F, true, nullptr}, TableCase{0, true, nullptr}));

}  // namespace
}  // namespace pelarix::testing
