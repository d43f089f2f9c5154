// The daemon: serves its socket until SIGTERM or SIGINT, logs what it does,
// and refuses a bad command line. Hostile and careless clients are played by
// raw sockets: none of them may freeze the daemon for the others.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "hub/hub_control_codes.h"
#include "hub/hub_interface.h"
#include "hub_fixture.h"
#include "raw_client.h"
#include "vhubd_process.h"

namespace pelarix::testing {
namespace {

// A socket pair whose end [1] has no room left to send: the pair's other end
// is never read. [1] is blocking again, as a reply end normally is.
void FillSocketPair(int pair[2]) {
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  fcntl(pair[1], F_SETFL, O_NONBLOCK);
  std::vector<uint8_t> filler(4096, 0x55);
  while (send(pair[1], filler.data(), filler.size(), MSG_NOSIGNAL) > 0) {
  }
  fcntl(pair[1], F_SETFL, 0);
}

constexpr int kPatienceMs = 10000;  // far beyond any answer; only ends a test that fails

class VhubdTest : public HubChannelTest {
 protected:
  ~VhubdTest() override {
    for (const Daemon &daemon : daemons_) {
      kill(daemon.pid, SIGKILL);
      waitpid(daemon.pid, nullptr, 0);
      close(daemon.log);
      close(daemon.out);
    }
  }
  // A daemon serving DIR/hub, once it says so. The test's end kills
  // it unless Stop was called.
  Daemon &Run() {
    daemons_.push_back(StartDaemon({"--dir", directory_.Path()}));
    std::string started;
    EXPECT_TRUE(WaitForLog(daemons_.back(), &started, "serving " + SocketPath(), kPatienceMs));
    return daemons_.back();
  }
  // SIGTERM and the exit status; what it logged is appended to *log.
  int Stop(std::string *log) {
    Daemon daemon = daemons_.back();
    daemons_.pop_back();
    kill(daemon.pid, SIGTERM);
    return Finish(daemon, log);
  }
  std::string SocketPath() const { return directory_.Path() + "/hub"; }

  std::vector<Daemon> daemons_;
};

TEST_F(VhubdTest, ServesUntilSigtermAndLogsWhatItDoes) {
  std::string socketPath = directory_.Path() + "/hub0";
  Daemon daemon =
      StartDaemon({"--dir", directory_.Path(), "--name", "hub0", "--hub-version", "0x00030005"});
  // The socket is there from its bind, but takes connections only once the
  // daemon says it serves.
  std::string log;
  ASSERT_TRUE(WaitForLog(daemon, &log, "serving ", kPatienceMs));
  ASSERT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
  EXPECT_EQ(version, 0x00030005u);
  platform::HubClose(connection_);
  connection_ = nullptr;
  kill(daemon.pid, SIGTERM);
  EXPECT_EQ(Finish(daemon, &log), 0);
  EXPECT_NE(log.find("serving " + socketPath + ", hub version 0x00030005"), std::string::npos);
  EXPECT_NE(log.find("session 1 opened"), std::string::npos);
  EXPECT_NE(log.find("IOCTL_HUB_GET_VERSION in 4 out 4: ok, 4 bytes"), std::string::npos);
  EXPECT_NE(log.find("stopping on SIGTERM"), std::string::npos);
  struct stat status {};
  EXPECT_NE(stat(socketPath.c_str(), &status), 0);  // removed on the way out
}

TEST_F(VhubdTest, StopsOnSigintWithTheDefaultName) {
  Daemon daemon = StartDaemon({"--dir", directory_.Path()});
  std::string log;
  ASSERT_TRUE(WaitForLog(daemon, &log, "serving ", kPatienceMs));
  kill(daemon.pid, SIGINT);
  EXPECT_EQ(Finish(daemon, &log), 0);
  EXPECT_NE(log.find("hub version 0x00020000"), std::string::npos);
  EXPECT_NE(log.find("stopping on SIGINT"), std::string::npos);
}

// A client hands over a reply end whose buffer it has filled and never reads.
// The daemon answers without waiting on it: another client gets its open
// status at once (32, as the first still holds the hub), the first is dropped
// when its answer finds no room within the reply time-out, and the hub is
// free again.
TEST_F(VhubdTest, ClientThatDoesNotReadItsAnswerFreezesNobody) {
  Daemon &daemon = Run();
  int attacker = ConnectRaw(SocketPath());
  ASSERT_EQ(OpenStatus(attacker, kPatienceMs), 0);
  int pair[2];
  FillSocketPair(pair);
  ASSERT_TRUE(SendWithDescriptors(attacker, FrameHeader(kRequestMagic, IOCTL_HUB_GET_VERSION, 0, 4),
                                  {pair[1]}));
  int other = ConnectRaw(SocketPath());
  EXPECT_EQ(OpenStatus(other, kPatienceMs), 32);
  close(other);
  std::string log;
  EXPECT_TRUE(WaitForLog(daemon, &log,
                         "session closed: reply undeliverable: IOCTL_HUB_GET_VERSION answer, 20 "
                         "of 20 bytes not taken within 2000 ms",
                         kPatienceMs))
      << log;
  EXPECT_TRUE(HungUp(attacker, kPatienceMs));
  // Whatever happened, the attacker lets go before the daemon is stopped.
  close(pair[0]);
  close(pair[1]);
  close(attacker);
  ASSERT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
  EXPECT_EQ(version, 0x00020000u);
  EXPECT_EQ(Stop(&log), 0);
  EXPECT_NE(log.find("open refused with 0x20: another session holds the hub (exclusive open)"),
            std::string::npos)
      << log;
}

// A reply end that is no socket at all takes no answer: the client is dropped
// at once, with the reason.
TEST_F(VhubdTest, ReplyEndThatIsNoSocketDropsTheClient) {
  Daemon &daemon = Run();
  int client = ConnectRaw(SocketPath());
  ASSERT_EQ(OpenStatus(client, kPatienceMs), 0);
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  ASSERT_TRUE(SendWithDescriptors(client, FrameHeader(kRequestMagic, IOCTL_HUB_GET_VERSION, 0, 4),
                                  {pipeFds[1]}));
  EXPECT_TRUE(HungUp(client, kPatienceMs));
  std::string log;
  EXPECT_TRUE(WaitForLog(daemon, &log,
                         "session closed: reply undeliverable: IOCTL_HUB_GET_VERSION answer on a "
                         "descriptor that takes none (Socket operation on non-socket)",
                         kPatienceMs))
      << log;
  close(pipeFds[0]);
  close(pipeFds[1]);
  close(client);
}

// A client that closes with bytes the daemon has not read, and connects again
// at once, finds its old session over.
TEST_F(VhubdTest, ReconnectAfterACloseWithUnreadBytesOpens) {
  Daemon &daemon = Run();
  int refused = 0;
  int client = ConnectRaw(SocketPath());
  ASSERT_EQ(OpenStatus(client, kPatienceMs), 0);
  std::vector<uint8_t> halfFrame = FrameHeader(kRequestMagic, IOCTL_HUB_GET_VERSION, 4, 4);
  halfFrame.resize(8);
  for (int round = 0; round < 200; ++round) {
    ASSERT_TRUE(SendWithDescriptors(client, halfFrame, {}));
    close(client);
    client = ConnectRaw(SocketPath());
    int64_t status = OpenStatus(client, kPatienceMs);
    ASSERT_NE(status, -1) << "round " << round;
    for (int retry = 0; status != 0 && retry < 100; ++retry) {
      ++refused;  // the old session still held the hub
      close(client);
      usleep(10000);
      client = ConnectRaw(SocketPath());
      status = OpenStatus(client, kPatienceMs);
    }
    ASSERT_EQ(status, 0) << "round " << round;
  }
  close(client);
  EXPECT_EQ(refused, 0);
  std::string log;
  EXPECT_TRUE(
      WaitForLog(daemon, &log, "session " + std::to_string(201 + refused) + " opened", kPatienceMs))
      << log;
  EXPECT_NE(log.find("session closed: the client closed the connection"), std::string::npos);
}

// Why a session ended is in its "session closed" line: a bad frame and which
// check it failed, or the client's close; a refused open says why.
TEST_F(VhubdTest, SessionClosedLinesSayWhy) {
  Daemon &daemon = Run();
  struct Case {
    std::vector<uint8_t> bytes;
    std::string reason;
  };
  std::vector<Case> cases = {
      {FrameHeader(0x04030201, IOCTL_HUB_GET_VERSION, 0, 4), "bad frame: wrong magic 0x04030201"},
      {FrameHeader(kRequestMagic, IOCTL_HUB_GET_VERSION, 0x01000001, 4),
       "bad frame: input length 16777217 above the limit of 16777216"},
      {FrameHeader(kRequestMagic, IOCTL_HUB_GET_VERSION, 0, 4),
       "bad frame: IOCTL_HUB_GET_VERSION without its reply descriptor"},
  };
  std::string log;
  for (const Case &next : cases) {
    int client = ConnectRaw(SocketPath());
    ASSERT_EQ(OpenStatus(client, kPatienceMs), 0);
    ASSERT_TRUE(SendWithDescriptors(client, next.bytes, {}));
    EXPECT_TRUE(HungUp(client, kPatienceMs)) << next.reason;
    close(client);
    EXPECT_TRUE(WaitForLog(daemon, &log, "session closed: " + next.reason, kPatienceMs)) << log;
  }
  int event[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, event), 0);
  int client = ConnectRaw(SocketPath());
  ASSERT_EQ(OpenStatus(client, kPatienceMs), 0);
  std::vector<uint8_t> frame = FrameHeader(kRequestMagic, IOCTL_HUB_SET_NOTIFICATION_EVENT, 8, 0);
  frame.resize(frame.size() + 8);
  ASSERT_TRUE(SendWithDescriptors(client, frame, {event[0]}));
  EXPECT_TRUE(HungUp(client, kPatienceMs));
  close(client);
  close(event[0]);
  close(event[1]);
  EXPECT_TRUE(WaitForLog(daemon, &log,
                         "session closed: bad frame: IOCTL_HUB_SET_NOTIFICATION_EVENT without its "
                         "notification event descriptor",
                         kPatienceMs))
      << log;
  client = ConnectRaw(SocketPath());
  ASSERT_EQ(OpenStatus(client, kPatienceMs), 0);
  int second = ConnectRaw(SocketPath());
  EXPECT_EQ(OpenStatus(second, kPatienceMs), 32);
  close(second);
  close(client);
  EXPECT_TRUE(WaitForLog(daemon, &log,
                         "open refused with 0x20: another session holds the hub (exclusive open)",
                         kPatienceMs))
      << log;
  EXPECT_TRUE(
      WaitForLog(daemon, &log, "session closed: the client closed the connection", kPatienceMs))
      << log;
  EXPECT_EQ(Stop(&log), 0);
}

// A second daemon on the directory of a live one refuses to start and leaves
// the live one's socket alone; the live one serves on and removes its socket
// when it stops.
TEST_F(VhubdTest, SecondDaemonOnALiveSocketRefusesToStart) {
  Run();
  Daemon second = StartDaemon({"--dir", directory_.Path()});
  int exitStatus = WaitForExit(second, kPatienceMs);
  if (exitStatus == -1) kill(second.pid, SIGKILL);
  std::string secondLog;
  Finish(second, &secondLog);
  EXPECT_EQ(exitStatus, 1);
  EXPECT_NE(secondLog.find("a live hub answers on " + SocketPath() + ", not taking it over"),
            std::string::npos)
      << secondLog;
  ASSERT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
  platform::HubClose(connection_);
  connection_ = nullptr;
  std::string log;
  EXPECT_EQ(Stop(&log), 0);
  struct stat status {};
  EXPECT_NE(stat(SocketPath().c_str(), &status), 0);
}

// A socket that nobody listens on any more is replaced.
TEST_F(VhubdTest, StaleSocketIsReplaced) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, SocketPath().c_str(), SocketPath().size());
  int stale = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  close(stale);
  Run();
  ASSERT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix::testing
