// The daemon's manners: help and version on stdout with exit 0, a bad
// command line named on stderr with exit 2, a start that fails with exit 1,
// the socket's mode and group as asked, and log lines that carry date, time
// and level.
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "hub_fixture.h"
#include "vhubd_process.h"

namespace pelarix::testing {
namespace {

constexpr char kUsage[] =
    "usage: pelarix-vhubd -d DIR [-n NAME] [--hub-version 0xMMMMmmmm] [-m MODE] [-g GROUP]";

struct Outcome {
  int exit = -1;
  std::string out;
  std::string log;
};

Outcome RunToEnd(std::vector<std::string> arguments) {
  Outcome outcome;
  outcome.exit = Finish(StartDaemon(std::move(arguments)), &outcome.log, &outcome.out);
  return outcome;
}

// The start of a log line: local date and time to the millisecond with the
// UTC offset, then the level.
std::regex LogLine(const std::string &level, const std::string &text) {
  return std::regex(R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}\.\d{3}[+-]\d{4} )" + level +
                    " pelarix-vhubd: " + text);
}

using VhubdCommandLineTest = HubChannelTest;

TEST_F(VhubdCommandLineTest, HelpGoesToStdoutWithExitZero) {
  for (const char *option : {"-h", "--help"}) {
    Outcome outcome = RunToEnd({option});
    EXPECT_EQ(outcome.exit, 0) << option;
    EXPECT_EQ(outcome.log, "") << option;
    EXPECT_EQ(outcome.out.rfind(std::string(kUsage) + "\n\n", 0), 0u) << outcome.out;
    for (const char *named :
         {"-d, --dir DIR", "-n, --name NAME", "--hub-version V", "-m, --socket-mode MODE",
          "-g, --socket-group GROUP", "-h, --help", "-V, --version"}) {
      EXPECT_NE(outcome.out.find(named), std::string::npos) << named;
    }
    EXPECT_NE(outcome.out.find("Exit status: 0 stopped by SIGINT or SIGTERM (or after -h, -V), 1 "
                               "the hub\ncould not start (directory, socket, group), 2 bad "
                               "command line.\n"),
              std::string::npos)
        << outcome.out;
  }
}

TEST_F(VhubdCommandLineTest, VersionPrintsTheProgramsVersion) {
  for (const char *option : {"-V", "--version"}) {
    Outcome outcome = RunToEnd({option});
    EXPECT_EQ(outcome.exit, 0) << option;
    EXPECT_EQ(outcome.out, "pelarix-vhubd " PELARIX_VERSION "\n") << option;
    EXPECT_EQ(outcome.log, "") << option;
  }
}

TEST_F(VhubdCommandLineTest, BadCommandLineNamesWhatWasWrong) {
  struct Case {
    std::vector<std::string> arguments;
    std::string error;
  };
  const std::vector<Case> cases = {
      {{}, "--dir is required"},
      {{"--dir"}, "--dir needs a value"},
      {{"-d"}, "-d needs a value"},
      {{"--dir="}, "--dir needs a directory"},
      {{"--name", "x"}, "--dir is required"},
      {{"-d", "/tmp", "--name", "a/b"}, "--name needs a file name without '/'"},
      {{"-d", "/tmp", "--hub-version", "12x"},
       "--hub-version takes a 32-bit number such as 0x00020000, not 12x"},
      {{"-d", "/tmp", "--hub-version=0x100000000"},
       "--hub-version takes a 32-bit number such as 0x00020000, not 0x100000000"},
      {{"-d", "/tmp", "--hub-version", "-1"},
       "--hub-version takes a 32-bit number such as 0x00020000, not -1"},
      {{"-d", "/tmp", "-m", "0968"},
       "--socket-mode takes octal permission bits such as 0660, not 0968"},
      {{"-d", "/tmp", "--socket-mode", "10000"},
       "--socket-mode takes octal permission bits such as 0660, not 10000"},
      {{"-d", "/tmp", "-g", "no-such-group-of-pelarix"},
       "--socket-group: no group no-such-group-of-pelarix"},
      {{"--bogus", "1"}, "unknown option --bogus"},
      {{"-x"}, "unknown option -x"},
      {{"-d", "/tmp", "extra"}, "unexpected argument extra"},
      // The hub version's old option: now the program's version, which
      // takes no value.
      {{"-d", "/tmp", "--version", "0x00030005"}, "unexpected argument 0x00030005"},
  };
  for (const Case &next : cases) {
    Outcome outcome = RunToEnd(next.arguments);
    EXPECT_EQ(outcome.exit, 2) << next.error;
    EXPECT_EQ(outcome.out, "") << next.error;
    EXPECT_EQ(outcome.log, "pelarix-vhubd: " + next.error + "\n" + kUsage +
                               "\nTry 'pelarix-vhubd --help' for more.\n");
  }
}

TEST_F(VhubdCommandLineTest, StartThatFailsLogsAnErrorAndExitsOne) {
  Outcome outcome = RunToEnd({"--dir", "/dev/null/hub"});
  EXPECT_EQ(outcome.exit, 1);
  EXPECT_TRUE(std::regex_match(outcome.log,
                               LogLine("error", "cannot make /dev/null/hub: Not a directory\n")))
      << outcome.log;
}

class VhubdSocketTest : public HubChannelTest {
 protected:
  // Starts a daemon, stops it once its socket is there, and returns the
  // socket's status as it was while it served, and what it logged.
  struct stat ServeOnce(std::vector<std::string> options, std::string *log) {
    std::vector<std::string> arguments{"--dir", directory_.Path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    Daemon daemon = StartDaemon(arguments);
    struct stat status {};
    // Mode and group are set between bind and listen: once the daemon
    // says it serves, they are final.
    EXPECT_TRUE(WaitForLog(daemon, log, "serving ", 10000));
    EXPECT_EQ(stat(SocketPath().c_str(), &status), 0);
    kill(daemon.pid, SIGTERM);
    EXPECT_EQ(Finish(daemon, log), 0);
    return status;
  }
  std::string SocketPath() const { return directory_.Path() + "/hub"; }
};

TEST_F(VhubdSocketTest, OwnerAndGroupMayConnectByDefault) {
  std::string log;
  struct stat status = ServeOnce({}, &log);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
}

TEST_F(VhubdSocketTest, ModeAndGroupByNameAsGiven) {
  const group *own = getgrgid(getegid());
  if (own == nullptr) GTEST_SKIP() << "the test's group has no name";
  std::string log;
  struct stat status = ServeOnce({"-m", "0606", "-g", own->gr_name}, &log);
  EXPECT_EQ(status.st_mode & 07777, 0606u);
  EXPECT_EQ(status.st_gid, getegid());
}

TEST_F(VhubdSocketTest, ModeAndGroupByNumberAsGiven) {
  std::string log;
  struct stat status =
      ServeOnce({"--socket-mode=0666", "--socket-group=" + std::to_string(getegid())}, &log);
  EXPECT_EQ(status.st_mode & 07777, 0666u);
  EXPECT_EQ(status.st_gid, getegid());
}

TEST_F(VhubdSocketTest, LogLinesCarryDateTimeAndLevel) {
  std::string log;
  ServeOnce({}, &log);
  const std::string expected = "serving " + SocketPath() + ", hub version 0x00020000\n" +
                               R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}\.\d{3}[+-]\d{4} )" +
                               "info pelarix-vhubd: stopping on SIGTERM\n";
  EXPECT_TRUE(std::regex_match(log, LogLine("info", expected))) << log;
}

}  // namespace
}  // namespace pelarix::testing
