#include "hub_daemon.h"

#include <signal.h>
#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <mutex>

#include "vhubd_command_line.h"

namespace pelarix::vhub {

void DaemonLogLine(const char *program, const char *level, const std::string &line) {
  static std::mutex lock;
  const std::lock_guard<std::mutex> guard(lock);
  timeval now{};
  gettimeofday(&now, nullptr);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  char date[32] = {};
  char offset[8] = {};
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(offset, sizeof offset, "%z", &local);
  std::fprintf(stderr, "%s.%03d%s %s %s: %s\n", date, static_cast<int>(now.tv_usec / 1000), offset,
               level, program, line.c_str());
}

int ServeHubDaemon(const char *program, VirtualHubOptions options, const DaemonHooks &hooks) {
  auto info = [program](const std::string &line) { DaemonLogLine(program, "info", line); };
  options.logger = info;
  options.keepRecords = false;  // runs for long: keep only what is unanswered
  // Every thread, the hub's too, leaves the two signals to sigwait below.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  VirtualHub hub(options);
  std::string error;
  if (!hub.Start(&error) || (hooks.start && !hooks.start(hub, &error))) {
    DaemonLogLine(program, "error", error);
    hub.Stop();
    return kExitStartFailed;
  }
  char version[16] = {};
  std::snprintf(version, sizeof version, "0x%08x", options.version);
  info("serving " + hub.SocketPath() + ", hub version " + version);
  int signal = 0;
  sigwait(&stopSignals, &signal);
  info(std::string("stopping on ") + (signal == SIGINT ? "SIGINT" : "SIGTERM"));
  if (hooks.stop) {
    hooks.stop();
  }
  const std::string report = hub.Model().ItemReport();
  if (!report.empty()) {
    DaemonLogLine(program, "warning", "items left unanswered:\n" + report);
  }
  hub.Stop();
  return kExitStopped;
}

}  // namespace pelarix::vhub
