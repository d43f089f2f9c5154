// pelarix-usbipd: the virtual hub as a process, as pelarix-vhubd runs it,
// and beside it a USB/IP server on TCP through which a USB/IP host (Linux's
// vhci_hcd with `usbip attach`, or any other USB/IP client) lists and
// imports the devices a service plugs in. `pelarix-usbipd --help` tells its
// options; it takes pelarix-vhubd's and --listen.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "hub_daemon.h"
#include "usbip_server.h"
#include "vhubd_command_line.h"

#ifndef PELARIX_VERSION
#error "PELARIX_VERSION must name the project version"
#endif

namespace {

using pelarix::vhub::VhubdCommand;

constexpr const char *kProgram = "pelarix-usbipd";
constexpr const char *kUsage =
    "usage: pelarix-usbipd -d DIR [-n NAME] [--hub-version 0xMMMMmmmm] [-m MODE] [-g GROUP]\n"
    "                      [--listen ADDR:PORT]";
constexpr const char *kAbout =
    "\n"
    "A virtual USB hub behind the Unix socket DIR/NAME, as pelarix-vhubd runs\n"
    "it, that also serves the devices plugged into it over USB/IP on TCP: a\n"
    "USB/IP host lists them (usbip list -r) and imports one (usbip attach),\n"
    "and every request of the imported device becomes an item of the hub.\n"
    "Serves until SIGINT or SIGTERM; logs on stderr, one line per event.\n"
    "\n";
constexpr const char *kOwnOptions =
    "      --listen ADDR:PORT    where USB/IP is served, an IPv4 address\n"
    "                            (default 127.0.0.1:3240)\n"
    "  -h, --help                this text\n"
    "  -V, --version             the program's version\n"
    "\n"
    "Exit status: 0 stopped by SIGINT or SIGTERM (or after -h, -V), 1 the hub\n"
    "or the listener could not start, 2 bad command line.\n";

int UsageError(const std::string &error) {
  std::fprintf(stderr, "%s: %s\n%s\nTry 'pelarix-usbipd --help' for more.\n", kProgram,
               error.c_str(), kUsage);
  return pelarix::vhub::kExitUsage;
}

}  // namespace

int main(int argc, char **argv) {
  // --listen is this program's own; the rest is pelarix-vhubd's command line.
  pelarix::usbip::UsbipServerOptions server;
  std::vector<char *> hubArguments;
  for (int at = 0; at < argc; ++at) {
    std::string listen;
    const bool joined = std::strncmp(argv[at], "--listen=", 9) == 0;
    if (at > 0 && (joined || std::strcmp(argv[at], "--listen") == 0)) {
      if (!joined && at + 1 == argc) {
        return UsageError("--listen needs a value");
      }
      listen = joined ? std::string(argv[at] + 9) : std::string(argv[++at]);
      if (!pelarix::usbip::ParseListenAddress(listen, &server)) {
        return UsageError("--listen takes ADDR:PORT with an IPv4 address, not " + listen);
      }
      continue;
    }
    hubArguments.push_back(argv[at]);
  }
  hubArguments.push_back(nullptr);
  VhubdCommand command = pelarix::vhub::ParseVhubdCommandLine(
      static_cast<int>(hubArguments.size() - 1), hubArguments.data());
  switch (command.action) {
    case VhubdCommand::Action::kHelp:
      std::printf("%s\n%s%s%s", kUsage, kAbout, pelarix::vhub::VhubdHubOptionsHelp(), kOwnOptions);
      return pelarix::vhub::kExitStopped;
    case VhubdCommand::Action::kVersion:
      std::puts("pelarix-usbipd " PELARIX_VERSION);
      return pelarix::vhub::kExitStopped;
    case VhubdCommand::Action::kUsageError:
      return UsageError(command.error);
    case VhubdCommand::Action::kServe:
      break;
  }
  server.logger = [](const std::string &line) {
    pelarix::vhub::DaemonLogLine(kProgram, "info", "usbip: " + line);
  };
  std::unique_ptr<pelarix::usbip::UsbipServer> usbip;
  pelarix::vhub::DaemonHooks hooks;
  hooks.start = [&](pelarix::vhub::VirtualHub &hub, std::string *error) {
    usbip = std::make_unique<pelarix::usbip::UsbipServer>(hub.Model(), server);
    return usbip->Start(error);
  };
  hooks.stop = [&] { usbip->Stop(); };
  const int status = pelarix::vhub::ServeHubDaemon(kProgram, std::move(command.options), hooks);
  usbip.reset();
  return status;
}
