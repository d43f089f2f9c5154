// The daemon: serves its socket until SIGTERM or SIGINT, logs what it does,
// and refuses a bad command line.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "hub/hub_interface.h"
#include "hub_fixture.h"

namespace pelarix::testing {
namespace {

struct Daemon {
  pid_t pid = -1;
  int log = -1;  // the daemon's stderr
};

Daemon StartDaemon(std::vector<std::string> arguments) {
  int pipeFds[2];
  EXPECT_EQ(pipe(pipeFds), 0);
  Daemon daemon;
  daemon.pid = fork();
  if (daemon.pid == 0) {
    dup2(pipeFds[1], 2);
    close(pipeFds[0]);
    std::vector<char *> argv{const_cast<char *>(PELARIX_VHUBD)};
    for (auto &argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    execv(PELARIX_VHUBD, argv.data());
    _exit(127);
  }
  close(pipeFds[1]);
  daemon.log = pipeFds[0];
  return daemon;
}

// Waits for the daemon's end; its exit status and what it logged.
int Finish(const Daemon &daemon, std::string *log) {
  int status = 0;
  waitpid(daemon.pid, &status, 0);
  char chunk[512];
  for (ssize_t got; (got = read(daemon.log, chunk, sizeof chunk)) > 0;) log->append(chunk, got);
  close(daemon.log);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool WaitForSocket(const std::string &path) {
  struct stat status {};
  for (int i = 0; i < 500; ++i) {
    if (stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) return true;
    usleep(10000);
  }
  return false;
}

class VhubdTest : public HubChannelTest {};

TEST_F(VhubdTest, ServesUntilSigtermAndLogsWhatItDoes) {
  std::string socketPath = directory_.Path() + "/hub0";
  Daemon daemon =
      StartDaemon({"--dir", directory_.Path(), "--name", "hub0", "--version", "0x00030005"});
  ASSERT_TRUE(WaitForSocket(socketPath));
  ASSERT_EQ(OpenHubInterface(&connection_), Pelarix_Success);
  uint32_t version = 0;
  EXPECT_EQ(GetHubVersion(connection_, &version), Pelarix_Success);
  EXPECT_EQ(version, 0x00030005u);
  platform::HubClose(connection_);
  connection_ = nullptr;
  kill(daemon.pid, SIGTERM);
  std::string log;
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
  ASSERT_TRUE(WaitForSocket(directory_.Path() + "/hub"));
  kill(daemon.pid, SIGINT);
  std::string log;
  EXPECT_EQ(Finish(daemon, &log), 0);
  EXPECT_NE(log.find("hub version 0x00020000"), std::string::npos);
  EXPECT_NE(log.find("stopping on SIGINT"), std::string::npos);
}

TEST_F(VhubdTest, BadCommandLineGivesUsage) {
  for (auto arguments : std::vector<std::vector<std::string>>{{},
                                                              {"--dir"},
                                                              {"--name", "x"},
                                                              {"--dir", "/tmp", "--version", "12x"},
                                                              {"--bogus", "1"}}) {
    std::string log;
    EXPECT_EQ(Finish(StartDaemon(arguments), &log), 2);
    EXPECT_EQ(log, "usage: pelarix-vhubd --dir DIR [--name NAME] [--version 0xMMMMmmmm]\n");
  }
}

}  // namespace
}  // namespace pelarix::testing
