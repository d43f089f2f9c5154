// pelarix-vhubd: a virtual hub as a process, for running the library against
// without the kernel driver.
//   pelarix-vhubd --dir DIR [--name NAME] [--version 0xMMMMmmmm]
// It serves DIR/NAME until SIGINT or SIGTERM and logs what it does on stderr.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "virtual_hub.h"

namespace {

void Usage() {
  std::fprintf(stderr, "usage: pelarix-vhubd --dir DIR [--name NAME] [--version 0xMMMMmmmm]\n");
}

void LogLine(const std::string &line) {
  static std::mutex lock;
  std::lock_guard<std::mutex> guard(lock);
  std::time_t now = std::time(nullptr);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%H:%M:%S", std::localtime(&now));
  std::fprintf(stderr, "%s pelarix-vhubd: %s\n", stamp, line.c_str());
}

bool ParseVersion(const char *text, uint32_t *version) {
  char *end = nullptr;
  unsigned long value = std::strtoul(text, &end, 0);
  if (end == text || *end != 0 || value > 0xFFFFFFFFul) return false;
  *version = static_cast<uint32_t>(value);
  return true;
}

// Fills options from the command line; false on a bad one.
bool ParseArguments(int argc, char **argv, pelarix::vhub::VirtualHubOptions *options) {
  // Every option takes a value: arguments come in pairs.
  for (int i = 1; i < argc; i += 2) {
    std::string argument = argv[i];
    const char *value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (value == nullptr) return false;
    if (argument == "--dir") {
      options->directory = value;
    } else if (argument == "--name") {
      options->name = value;
    } else if (argument == "--version") {
      if (!ParseVersion(value, &options->version)) return false;
    } else {
      return false;
    }
  }
  return !options->directory.empty() && !options->name.empty();
}

}  // namespace

int main(int argc, char **argv) {
  pelarix::vhub::VirtualHubOptions options;
  if (!ParseArguments(argc, argv, &options)) {
    Usage();
    return 2;
  }
  options.logger = LogLine;
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
    LogLine(error);
    return 1;
  }
  char version[16];
  std::snprintf(version, sizeof version, "0x%08x", options.version);
  LogLine("serving " + hub.SocketPath() + ", hub version " + version);
  int signal = 0;
  sigwait(&stopSignals, &signal);
  LogLine(std::string("stopping on ") + (signal == SIGINT ? "SIGINT" : "SIGTERM"));
  std::string report = hub.Model().ItemReport();
  if (!report.empty()) LogLine("items left unanswered:\n" + report);
  hub.Stop();
  return 0;
}
