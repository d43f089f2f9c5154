// pelarix-vhubd: a virtual hub as a process, for running the library against
// without the kernel driver. `pelarix-vhubd --help` tells its options and
// exit statuses; it serves DIR/NAME until SIGINT or SIGTERM and logs what it
// does on stderr.
#include <cstdio>
#include <string>

#include "hub_daemon.h"
#include "vhubd_command_line.h"
#include "virtual_hub.h"

#ifndef PELARIX_VERSION
#error "PELARIX_VERSION must name the project version"
#endif

using pelarix::vhub::VhubdCommand;

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
  return pelarix::vhub::ServeHubDaemon("pelarix-vhubd", std::move(command.options));
}
