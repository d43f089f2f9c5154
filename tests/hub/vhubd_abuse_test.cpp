// The daemon under abuse: while a well-formed client opens its session again
// and again and sends its requests, other clients send garbage, frames with a
// wrong magic or a huge input length, frames cut short, connect by the
// hundred, connect and never send, or are killed in the middle of a request.
// Every request of the well-formed client must be answered, the daemon's
// memory must stay bounded (its resident size is sampled), and it must stop
// cleanly at the end. The hub is exclusive, so hostile clients reach the
// frame reader only in the gaps between the well-formed client's sessions,
// and are refused with 32 while it holds the hub (a client that takes the
// hub and never sends would keep it for good: the open is exclusive and a
// session has no idle limit).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "hub/hub_control_codes.h"
#include "hub/hub_interface.h"
#include "hub/hub_requests.h"
#include "hub_fixture.h"
#include "raw_client.h"
#include "vhubd_process.h"

namespace pelarix::testing {
namespace {

constexpr int kPatienceMs = 10000;  // far beyond any answer; only ends a test that fails
constexpr auto kAbuseTime = std::chrono::seconds(4);
constexpr int kMinRounds = 10;
constexpr int kRequestsPerSession = 40;
constexpr int kCrowd = 300;
constexpr size_t kSilentClients = 64;
// What the daemon may grow by over the run: its answers and frames are
// small, so anything near this is memory kept per connection.
constexpr long kRssGrowthLimitKb = 32L * 1024;

// The resident size of a process in KiB, or -1.
long ResidentKb(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) {
      return std::stol(line.substr(6));
    }
  }
  return -1;
}

// Reads the daemon's log as it comes, so that a busy daemon never blocks on
// a full pipe, until the daemon closes it.
class LogDrain {
 public:
  explicit LogDrain(int fd) : thread_([this, fd] { Read(fd); }) {}
  ~LogDrain() { Join(); }
  LogDrain(const LogDrain &) = delete;
  LogDrain &operator=(const LogDrain &) = delete;
  const std::string &Join() {
    if (thread_.joinable()) {
      thread_.join();
    }
    return text_;
  }

 private:
  void Read(int fd) {
    char chunk[4096];
    for (ssize_t got; (got = read(fd, chunk, sizeof chunk)) > 0;) {
      text_.append(chunk, static_cast<size_t>(got));
    }
  }
  std::string text_;
  std::thread thread_;
};

size_t Count(const std::string &text, const std::string &what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

// A connection that holds the hub (status 0), retried while another
// session holds it; -1 if none comes within the patience.
int Take(const std::string &path) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (std::chrono::steady_clock::now() < end) {
    const int fd = ConnectRaw(path);
    if (fd >= 0 && OpenStatus(fd, kPatienceMs) == 0) {
      return fd;
    }
    if (fd >= 0) {
      close(fd);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return -1;
}

std::vector<uint8_t> Garbage(size_t length, uint32_t seed) {
  std::vector<uint8_t> bytes(length);
  for (size_t i = 0; i < length; ++i) {
    seed = seed * 1103515245 + 12345;
    bytes[i] = static_cast<uint8_t>(seed >> 16);
  }
  return bytes;
}

class VhubdAbuseTest : public HubChannelTest {
 protected:
  ~VhubdAbuseTest() override {
    for (int fd : silent_) {
      close(fd);
    }
  }

  std::string SocketPath() const { return directory_.Path() + "/hub"; }

  // One well-formed session: opened (retried while a hostile client holds
  // the hub), its requests answered, closed. While it holds the hub,
  // whileHeld runs on a thread of its own. False on any failed request.
  bool WellFormedSession(const std::function<void()> &whileHeld = {}) {
    platform::HubConnection connection = nullptr;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (OpenHubInterface(&connection) != Pelarix_Success) {
      if (std::chrono::steady_clock::now() > end) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::thread beside;
    if (whileHeld) {
      beside = std::thread(whileHeld);
    }
    bool answered = true;
    uint32_t lastId = 0;
    for (int request = 0; request < kRequestsPerSession && answered; ++request) {
      uint32_t version = 0;
      uint32_t id = 0;
      answered = GetHubVersion(connection, &version) == Pelarix_Success && version == 0x00020000u &&
                 HubGetUniqueItemId(connection, connection, &id) == Pelarix_Success && id > lastId;
      lastId = id;
    }
    if (beside.joinable()) {
      beside.join();
    }
    platform::HubClose(connection);
    return answered;
  }

  // The hostile clients that run while the well-formed one holds the hub
  // (a client that never sends would otherwise hold it for good): a crowd
  // connecting at once, garbage sent without waiting for the open status,
  // and clients that connect and never send (kept to the end).
  void RefusedAbuse(uint32_t round) {
    std::vector<int> crowd;
    for (int i = 0; i < kCrowd; ++i) {
      const int fd = ConnectRaw(SocketPath());
      if (fd >= 0) {
        crowd.push_back(fd);
      }
    }
    for (int fd : crowd) {
      close(fd);
    }
    const int blaster = ConnectRaw(SocketPath());
    if (blaster >= 0) {
      const std::vector<uint8_t> garbage = Garbage(4096, round);
      send(blaster, garbage.data(), garbage.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      close(blaster);
    }
    // A silent client is kept only once refused: one the daemon reached
    // after the well-formed session closed would hold the hub for good, as
    // any session that never sends does (the open is exclusive).
    if (silent_.size() < kSilentClients) {
      const int fd = ConnectRaw(SocketPath());
      if (fd >= 0 && OpenStatus(fd, kPatienceMs) == 32) {
        silent_.push_back(fd);
      } else if (fd >= 0) {
        close(fd);
      }
    }
  }

  // A hostile client that holds the hub in the gap between two well-formed
  // sessions: one of five kinds by the round.
  void SessionAbuse(uint32_t round) {
    const int fd = Take(SocketPath());
    ASSERT_GE(fd, 0);
    std::vector<uint8_t> frame;
    switch (round % 5) {
      case 0:
        frame = Garbage(512, round);
        break;
      case 1:
        frame = FrameHeader(0x0BADF00D, IOCTL_HUB_GET_VERSION, 0, 4);
        break;
      case 2:
        frame = FrameHeader(kRequestMagic, IOCTL_HUB_COMPLETE_ITEM, 0xFFFFFFF0u, 0);
        break;
      case 3:
        frame = FrameHeader(kRequestMagic, IOCTL_HUB_PLUGIN_DEVICE, 4096, 0);
        frame.resize(200, 0x5A);  // cut short, then the client goes
        send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        close(fd);
        return;
      default:
        KilledInTheMiddle(fd);
        return;
    }
    send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(HungUp(fd, kPatienceMs)) << "round " << round;
    close(fd);
  }

  // A child process with the connection sends the first part of a request
  // with its reply descriptor and is killed; the kernel closes its ends.
  // Everything is made before the fork: the child of a process with threads
  // only sends and dies.
  static void KilledInTheMiddle(int fd) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    std::vector<uint8_t> frame = FrameHeader(kRequestMagic, IOCTL_HUB_COMPLETE_ITEM, 64, 0);
    frame.resize(40, 0x11);
    const std::vector<int> reply = {pair[1]};
    const pid_t child = fork();
    if (child == 0) {
      SendWithDescriptors(fd, frame, reply);
      raise(SIGKILL);
      _exit(1);
    }
    close(pair[0]);
    close(pair[1]);
    close(fd);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  }

  std::vector<int> silent_;
};

// Under AddressSanitizer every freed block waits in a quarantine of 256 MB
// before its memory is used again, which a busy daemon fills at the pace of
// the machine: the daemon's quarantine is kept small, so that what the test
// measures is what the daemon keeps. Other builds ignore the variable.
void ShrinkSanitizerQuarantine() {
  const char *options = std::getenv("ASAN_OPTIONS");
  std::string shrunk = options != nullptr ? options : "";
  shrunk += std::string(shrunk.empty() ? "" : ":") + "quarantine_size_mb=4";
  setenv("ASAN_OPTIONS", shrunk.c_str(), 1);
}

TEST_F(VhubdAbuseTest, ServesAWellFormedSessionThroughAbuseInBoundedMemory) {
  ShrinkSanitizerQuarantine();
  Daemon daemon = StartDaemon({"--dir", directory_.Path()});
  std::string started;
  ASSERT_TRUE(WaitForLog(daemon, &started, "serving " + SocketPath(), kPatienceMs)) << started;
  LogDrain drain(daemon.log);
  ASSERT_TRUE(WellFormedSession());  // warms the daemon up before the baseline
  const long baselineKb = ResidentKb(daemon.pid);
  long peakKb = baselineKb;
  int rounds = 0;
  int failedSessions = 0;
  const auto end = std::chrono::steady_clock::now() + kAbuseTime;
  while (rounds < kMinRounds || std::chrono::steady_clock::now() < end) {
    if (!WellFormedSession([this, rounds] { RefusedAbuse(static_cast<uint32_t>(rounds)); })) {
      ++failedSessions;
    }
    SessionAbuse(static_cast<uint32_t>(rounds));
    peakKb = std::max(peakKb, ResidentKb(daemon.pid));
    ++rounds;
  }
  EXPECT_TRUE(WellFormedSession());
  EXPECT_EQ(failedSessions, 0);
  std::fprintf(stderr,
               "%d rounds; daemon resident size %ld KiB at the start, %ld KiB at the peak\n",
               rounds, baselineKb, peakKb);
  EXPECT_GT(baselineKb, 0);
  EXPECT_LT(peakKb - baselineKb, kRssGrowthLimitKb);

  for (int fd : silent_) {
    close(fd);
  }
  silent_.clear();
  kill(daemon.pid, SIGTERM);
  const int exitStatus = WaitForExit(daemon, kPatienceMs);
  if (exitStatus == -1) {
    kill(daemon.pid, SIGKILL);
  }
  const std::string &log = drain.Join();
  std::string rest;
  Finish(daemon, &rest);
  EXPECT_EQ(exitStatus, 0) << log;
  EXPECT_GE(Count(log, "session closed: bad frame: wrong magic"), static_cast<size_t>(rounds / 5));
  EXPECT_GE(Count(log, "session closed: bad frame: input length 4294967280 above the limit"),
            static_cast<size_t>(rounds / 5));
  EXPECT_GE(Count(log, "open refused with 0x20"), static_cast<size_t>(rounds));
  EXPECT_NE(log.find("stopping on SIGTERM"), std::string::npos);
}

}  // namespace
}  // namespace pelarix::testing
