#include "demo_options.h"

#include <cstdlib>

namespace pelarix::demo {

const char *const kDemoUsage =
    "usage: pelarix-demo [options]\n"
    "\n"
    "Runs a whole USB redirection path on this machine: a virtual hub with\n"
    "the host side above it, the agent's service on the pelarix library,\n"
    "and a client whose simulated devices answer the forwarded requests.\n"
    "Every device is enumerated through items; disks are written, read\n"
    "back and verified, keyboards are read. Ends with a table per device.\n"
    "\n"
    "  --duration SECONDS   how long each disk is written and read back\n"
    "                       (default 2; at least one round)\n"
    "  --devices LIST       only devices whose file name contains one of\n"
    "                       these comma-separated fragments\n"
    "  --log-level N        the library's log on stderr, up to level N:\n"
    "                       0 failures, 1 settings, 2 lifecycle, 3 items\n"
    "                       (default: not shown)\n"
    "  --hub-log            the virtual hub's lines on stderr too\n"
    "  --client TEXT        a filter string of the client (repeatable)\n"
    "  --no-client-filter   the client offers every device whole, and the\n"
    "                       agent's filter alone decides\n"
    "  --older-client LIST  devices offered by a client of version 3 (name\n"
    "                       fragments): offered whole, strings fetched by\n"
    "                       the library through items (default hub_,mouse_;\n"
    "                       \"\" for none)\n"
    "  --pumps N            pump threads of the service (default 2)\n"
    "  --data DIR           the descriptor files (*.bin)\n"
    "  --registry FILE      the agent's settings (.reg)\n"
    "  --corrupt-disks      disks flip a bit on read (shows a failed check)\n"
    "  -h, --help           this text\n"
    "\n"
    "Exit status: 0 every check passed, 1 a check failed, 2 bad arguments,\n"
    "3 the path could not be set up.\n";

namespace {

bool ParseNumber(const std::string &text, double *value) {
  char *end = nullptr;
  *value = std::strtod(text.c_str(), &end);
  return !text.empty() && end != nullptr && *end == '\0' && *value >= 0 && *value <= 3600;
}

std::vector<std::string> SplitList(const std::string &text) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t comma = text.find(',', start);
    const std::string part = text.substr(start, comma - start);
    if (!part.empty()) {
      parts.push_back(part);
    }
    if (comma == std::string::npos) {
      break;
    }
    start = comma + 1;
  }
  return parts;
}

bool TakesValue(const std::string &argument) {
  for (const char *option : {"--duration", "--log-level", "--pumps", "--devices", "--client",
                             "--older-client", "--data", "--registry"}) {
    if (argument == option) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<DemoOptions> ParseDemoOptions(const std::vector<std::string> &arguments,
                                            DemoOptions options, std::string *error) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string &argument = arguments[i];
    const bool hasValue = i + 1 < arguments.size();
    double number = 0;
    if (argument == "-h" || argument == "--help") {
      options.help = true;
    } else if (argument == "--hub-log") {
      options.hubLog = true;
    } else if (argument == "--no-client-filter") {
      options.clientFilter = false;
    } else if (argument == "--corrupt-disks") {
      options.corruptDisks = true;
    } else if (!hasValue && TakesValue(argument)) {
      *error = argument + " needs a value";
      return std::nullopt;
    } else if (argument == "--duration") {
      if (!ParseNumber(arguments[++i], &number)) {
        *error = "--duration takes seconds from 0 to 3600";
        return std::nullopt;
      }
      options.durationSeconds = number;
    } else if (argument == "--log-level" || argument == "--pumps") {
      const bool level = argument == "--log-level";
      if (!ParseNumber(arguments[++i], &number) || number != static_cast<uint32_t>(number) ||
          (level && number > 3) || (!level && (number < 1 || number > 16))) {
        *error = level ? "--log-level takes 0 to 3" : "--pumps takes 1 to 16";
        return std::nullopt;
      }
      if (level) {
        options.logLevel = static_cast<uint32_t>(number);
      } else {
        options.pumps = static_cast<uint32_t>(number);
      }
    } else if (argument == "--devices") {
      options.devices = SplitList(arguments[++i]);
    } else if (argument == "--older-client") {
      options.olderClient = SplitList(arguments[++i]);
    } else if (argument == "--client") {
      options.clientStrings.push_back(arguments[++i]);
    } else if (argument == "--data") {
      options.dataDir = arguments[++i];
    } else if (argument == "--registry") {
      options.registry = arguments[++i];
    } else {
      *error = "unknown argument " + argument;
      return std::nullopt;
    }
  }
  return options;
}

}  // namespace pelarix::demo
