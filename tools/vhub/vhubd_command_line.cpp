#include "vhubd_command_line.h"

#include <getopt.h>
#include <grp.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace pelarix::vhub {
namespace {

// The hub's options in the help texts of both daemons.
#define PELARIX_VHUBD_HUB_OPTIONS                                             \
  "  -d, --dir DIR             the socket's directory, made if missing\n"     \
  "  -n, --name NAME           the socket's file name (default hub)\n"        \
  "      --hub-version V       the hub version the library is told\n"         \
  "                            (default 0x00020000)\n"                        \
  "  -m, --socket-mode MODE    the socket's permission bits, octal\n"         \
  "                            (default 0660: owner and group may connect)\n" \
  "  -g, --socket-group GROUP  the socket's group, name or number, so that\n" \
  "                            a service of that group reaches a hub\n"       \
  "                            started by another user\n"

enum LongOnly : int { kHubVersion = 0x100 };

constexpr option kOptions[] = {
    {"dir", required_argument, nullptr, 'd'},
    {"name", required_argument, nullptr, 'n'},
    {"hub-version", required_argument, nullptr, kHubVersion},
    {"socket-mode", required_argument, nullptr, 'm'},
    {"socket-group", required_argument, nullptr, 'g'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

bool ParseNumber(const char *text, int base, unsigned long limit, unsigned long *value) {
  if (*text == 0 || *text == '-' || *text == '+') {
    return false;
  }
  char *end = nullptr;
  *value = std::strtoul(text, &end, base);
  return *end == 0 && *value <= limit;
}

// A group by name, or by number where no group has that name.
bool ParseGroup(const char *text, int64_t *group) {
  std::vector<char> buffer(16384);
  struct group entry {};
  struct group *found = nullptr;
  if (getgrnam_r(text, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    *group = found->gr_gid;
    return true;
  }
  unsigned long number = 0;
  if (!ParseNumber(text, 10, 0x7FFFFFFEul, &number)) {
    return false;
  }
  *group = static_cast<int64_t>(number);
  return true;
}

// Applies one option; "" or what was wrong with its value.
std::string ApplyOption(int option, const char *value, VhubdCommand *command) {
  VirtualHubOptions &options = command->options;
  unsigned long number = 0;
  switch (option) {
    case 'd':
      options.directory = value;
      return options.directory.empty() ? "--dir needs a directory" : "";
    case 'n':
      options.name = value;
      if (options.name.empty() || options.name.find('/') != std::string::npos) {
        return "--name needs a file name without '/'";
      }
      return "";
    case kHubVersion:
      if (!ParseNumber(value, 0, 0xFFFFFFFFul, &number)) {
        return std::string("--hub-version takes a 32-bit number such as 0x00020000, not ") + value;
      }
      options.version = static_cast<uint32_t>(number);
      return "";
    case 'm':
      if (!ParseNumber(value, 8, 07777ul, &number)) {
        return std::string("--socket-mode takes octal permission bits such as 0660, not ") + value;
      }
      options.socketMode = static_cast<int>(number);
      return "";
    case 'g':
      if (!ParseGroup(value, &options.socketGroup)) {
        return std::string("--socket-group: no group ") + value;
      }
      return "";
    case 'h':
      command->action = VhubdCommand::Action::kHelp;
      return "";
    case 'V':
      command->action = VhubdCommand::Action::kVersion;
      return "";
    default:
      return "";
  }
}

}  // namespace

VhubdCommand ParseVhubdCommandLine(int argc, char **argv) {
  VhubdCommand command;
  command.options.socketMode = kDefaultSocketMode;
  opterr = 0;  // the messages are ours, the same on every C library
  optind = 0;  // a fresh scan, also for a second call in one process
  for (int option = 0;
       (option = getopt_long(argc, argv, ":d:n:m:g:hV", kOptions, nullptr)) != -1;) {
    std::string wrong;
    if (option == '?') {
      wrong = optopt != 0 ? std::string("unknown option -") + static_cast<char>(optopt)
                          : std::string("unknown option ") + argv[optind - 1];
    } else if (option == ':') {
      wrong = std::string(argv[optind - 1]) + " needs a value";
    } else {
      wrong = ApplyOption(option, optarg, &command);
    }
    if (!wrong.empty()) {
      command.action = VhubdCommand::Action::kUsageError;
      command.error = wrong;
      return command;
    }
  }
  // A stray argument is an error even beside -h or -V: it is what an old
  // `--version 0xMMMMmmmm` (now --hub-version) leaves behind.
  if (optind < argc) {
    command.error = std::string("unexpected argument ") + argv[optind];
  } else if (command.action != VhubdCommand::Action::kServe) {
    return command;
  } else if (command.options.directory.empty()) {
    command.error = "--dir is required";
  }
  if (!command.error.empty()) {
    command.action = VhubdCommand::Action::kUsageError;
  }
  return command;
}

const char *VhubdUsageLine() {
  return "usage: pelarix-vhubd -d DIR [-n NAME] [--hub-version 0xMMMMmmmm] [-m MODE] [-g GROUP]";
}

const char *VhubdHubOptionsHelp() {
  return PELARIX_VHUBD_HUB_OPTIONS;
}

const char *VhubdHelpText() {
  return "usage: pelarix-vhubd -d DIR [-n NAME] [--hub-version 0xMMMMmmmm] [-m MODE] [-g GROUP]\n"
         "\n"
         "A virtual USB hub behind the Unix socket DIR/NAME, for running a service\n"
         "on the pelarix library without the kernel hub driver. Serves until SIGINT\n"
         "or SIGTERM; logs on stderr, one line per event: date and time, level\n"
         "(info, warning, error), text.\n"
         "\n" PELARIX_VHUBD_HUB_OPTIONS
         "  -h, --help                this text\n"
         "  -V, --version             the program's version\n"
         "\n"
         "Exit status: 0 stopped by SIGINT or SIGTERM (or after -h, -V), 1 the hub\n"
         "could not start (directory, socket, group), 2 bad command line.\n";
}

}  // namespace pelarix::vhub
