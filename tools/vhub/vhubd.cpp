// pelarix-vhubd: a virtual hub as a process, for running the library against
// without the kernel driver. `pelarix-vhubd --help` tells its options and
// exit statuses; it serves DIR/NAME until SIGINT or SIGTERM and logs what it
// does on stderr.
#include <signal.h>
#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "vhubd_command_line.h"
#include "virtual_hub.h"

#ifndef PELARIX_VERSION
#error "PELARIX_VERSION must name the project version"
#endif

namespace {

using pelarix::vhub::VhubdCommand;

// One line per event: local date and time to the millisecond with the UTC
// offset, the level, the text; a line is written whole even when the hub's
// thread and the main thread log at once.
void LogLine(const char *level, const std::string &line) {
  static std::mutex lock;
  std::lock_guard<std::mutex> guard(lock);
  timeval now{};
  gettimeofday(&now, nullptr);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  char date[32];
  char offset[8];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(offset, sizeof offset, "%z", &local);
  std::fprintf(stderr, "%s.%03d%s %s pelarix-vhubd: %s\n", date,
               static_cast<int>(now.tv_usec / 1000), offset, level, line.c_str());
}

void LogInfo(const std::string &line) {
  LogLine("info", line);
}

int Serve(pelarix::vhub::VirtualHubOptions options) {
  options.logger = LogInfo;
  options.keepRecords = false;  // runs for long: keep only what is unanswered
  // Every thread, the hub's too, leaves the two signals to sigwait below.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  pelarix::vhub::VirtualHub hub(options);
  std::string error;
  if (!hub.Start(&error)) {
    LogLine("error", error);
    return pelarix::vhub::kExitStartFailed;
  }
  char version[16];
  std::snprintf(version, sizeof version, "0x%08x", options.version);
  LogInfo("serving " + hub.SocketPath() + ", hub version " + version);
  int signal = 0;
  sigwait(&stopSignals, &signal);
  LogInfo(std::string("stopping on ") + (signal == SIGINT ? "SIGINT" : "SIGTERM"));
  std::string report = hub.Model().ItemReport();
  if (!report.empty()) LogLine("warning", "items left unanswered:\n" + report);
  hub.Stop();
  return pelarix::vhub::kExitStopped;
}

}  // namespace

int main(int argc, char **argv) {
  VhubdCommand command = pelarix::vhub::ParseVhubdCommandLine(argc, argv);
  switch (command.action) {
    case VhubdCommand::Action::kHelp:
      std::fputs(pelarix::vhub::VhubdHelpText(), stdout);
      return pelarix::vhub::kExitStopped;
    case VhubdCommand::Action::kVersion:
      std::puts("pelarix-vhubd " PELARIX_VERSION);
      return pelarix::vhub::kExitStopped;
    case VhubdCommand::Action::kUsageError:
      std::fprintf(stderr, "pelarix-vhubd: %s\n%s\nTry 'pelarix-vhubd --help' for more.\n",
                   command.error.c_str(), pelarix::vhub::VhubdUsageLine());
      return pelarix::vhub::kExitUsage;
    case VhubdCommand::Action::kServe:
      break;
  }
  return Serve(std::move(command.options));
}
