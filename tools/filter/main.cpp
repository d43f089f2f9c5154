// pelarix-filter: which of these USB devices would be forwarded, split or
// kept local under these filter settings, and why. It runs the client side
// of the filter engine (DevFilterMgrClient) on descriptor files, or on every
// device of the running system, with the client's and the agent's filter
// strings.
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "device_input.h"
#include "device_report.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/dev_filter_mgr_client.h"
#include "ordo/usb/filter_log.h"

namespace {

using pelarix::tools::DeviceInput;
using pelarix::tools::DeviceReport;

constexpr int kExitBadArguments = 2;
constexpr int kExitUnreadable = 3;
constexpr int kExitMalformed = 4;

constexpr const char *kUsage =
    "usage: pelarix-filter [options] [DESCRIPTOR-FILE...]\n"
    "\n"
    "Tells for each USB device whether the filter would forward it whole,\n"
    "forward it split (and which interfaces), or keep it local, and why.\n"
    "A descriptor file holds the device descriptor and then every\n"
    "configuration set, as Linux's sysfs `descriptors` file does. Without a\n"
    "file, every device under /sys/bus/usb/devices is judged.\n"
    "\n"
    "  --local TEXT       a filter string of the client (repeatable)\n"
    "  --agent TEXT       a filter string of the agent (repeatable); it passes\n"
    "                     the agent's check of sequencing letters\n"
    "  --agent-blob FILE  the agent's filter blob, as Pelarix_GetFilterBlob\n"
    "                     writes it\n"
    "  --sysfs DIR        the device tree to walk instead of /sys/bus/usb/devices\n"
    "  --json             one JSON array for programs\n"
    "  --dump             add the descriptor dump of each device\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 0 all devices judged, 2 bad arguments, 3 an input could not\n"
    "be read, 4 a descriptor file is malformed (the others are still judged).\n";

struct Options {
  std::vector<std::string> local;
  std::vector<std::string> agent;
  std::string agentBlob;
  std::string sysfs = "/sys/bus/usb/devices";
  std::vector<std::string> files;
  bool json = false;
  bool dump = false;
  bool help = false;
  bool version = false;
};

// Nothing but an error message and the exit code when the arguments are bad.
bool ParseArguments(int argc, char **argv, Options &options, std::string &error) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const auto value = [&](std::string &into) {
      if (i + 1 >= argc) {
        error = arg + " needs a value";
        return false;
      }
      into = argv[++i];
      return true;
    };
    std::string text;
    if (arg == "--local" || arg == "--agent") {
      if (!value(text)) {
        return false;
      }
      (arg == "--local" ? options.local : options.agent).push_back(text);
    } else if (arg == "--agent-blob") {
      if (!value(options.agentBlob)) {
        return false;
      }
    } else if (arg == "--sysfs") {
      if (!value(options.sysfs)) {
        return false;
      }
    } else if (arg == "--json") {
      options.json = true;
    } else if (arg == "--dump") {
      options.dump = true;
    } else if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (arg == "--version") {
      options.version = true;
    } else if (arg.rfind('-', 0) == 0 && arg != "-") {
      error = "unknown option " + arg;
      return false;
    } else {
      options.files.push_back(arg);
    }
  }
  if (!options.agentBlob.empty() && !options.agent.empty()) {
    error = "--agent and --agent-blob exclude each other";
    return false;
  }
  return true;
}

// The engine's warnings and errors while the policy is read and merged: a
// refused string, an agent filter without sequencing.
std::vector<std::string> *policyNotes = nullptr;

void CatchPolicyNote(uint32_t /*level*/, const char *format, va_list args) {
  char line[4096];
  std::vsnprintf(line, sizeof line, format, args);
  const std::string text = line;
  const std::string prefix = "DevFltr: ";
  if (policyNotes != nullptr) {
    policyNotes->push_back(text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : text);
  }
}

bool ReadBlob(const std::string &file, ordo::usb::DevFilterMgrClient &client) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    return false;
  }
  const std::vector<uint8_t> blob{std::istreambuf_iterator<char>(in), {}};
  return client.ReadFilterBlob(blob.data(), blob.size(), false);
}

void FeedAgentStrings(const std::vector<std::string> &strings,
                      ordo::usb::DevFilterMgrClient &client) {
  ordo::usb::DevFilterMgrAgent agent;
  for (const std::string &text : strings) {
    agent.AddFilterRule(text);
  }
  std::vector<uint8_t> blob(agent.GetFilterBlob(nullptr));
  agent.GetFilterBlob(blob.data());
  client.ReadFilterBlob(blob.data(), blob.size(), false);
}

// Builds the policy; false when the agent's blob can't be read whole.
bool BuildPolicy(const Options &options, ordo::usb::DevFilterMgrClient &client) {
  std::vector<std::string> notes;
  policyNotes = &notes;
  // Engine level 2 and above: warnings and errors only.
  ordo::usb::SetFilterLogHook(CatchPolicyNote, 2);
  for (const std::string &text : options.local) {
    client.AddFilterRule(text, true);
  }
  bool blobRead = true;
  if (!options.agentBlob.empty()) {
    blobRead = ReadBlob(options.agentBlob, client);
  } else {
    FeedAgentStrings(options.agent, client);
  }
  client.MergeFilterLists();
  ordo::usb::SetFilterLogHook(nullptr, 0);
  policyNotes = nullptr;
  for (const std::string &note : notes) {
    std::cerr << "pelarix-filter: policy: " << note << "\n";
  }
  if (!blobRead) {
    std::cerr << "pelarix-filter: " << options.agentBlob << ": cannot read the agent's blob\n";
  }
  return blobRead;
}

std::vector<DeviceInput> ReadDevices(const Options &options) {
  if (options.files.empty()) {
    return pelarix::tools::ReadSysfsDevices(options.sysfs);
  }
  std::vector<DeviceInput> devices;
  for (const std::string &file : options.files) {
    devices.push_back(pelarix::tools::ReadDeviceFile(file));
  }
  return devices;
}

int Run(const Options &options) {
  ordo::usb::DevFilterMgrClient client;
  if (!BuildPolicy(options, client)) {
    return kExitUnreadable;
  }
  int status = 0;
  std::vector<DeviceReport> reports;
  const std::vector<DeviceInput> devices = ReadDevices(options);
  if (devices.empty()) {
    std::cerr << "pelarix-filter: no device under " << options.sysfs << "\n";
  }
  for (const DeviceInput &input : devices) {
    if (!input.error.empty()) {
      std::cerr << "pelarix-filter: " << input.name << ": " << input.error << "\n";
      if (status == 0 || input.unreadable) {
        status = input.unreadable ? kExitUnreadable : kExitMalformed;
      }
    }
    reports.push_back(pelarix::tools::EvaluateInput(client, input, options.dump));
  }
  if (options.json) {
    pelarix::tools::WriteJson(std::cout, reports);
  } else {
    for (size_t i = 0; i < reports.size(); ++i) {
      if (i != 0) {
        std::cout << "\n";
      }
      pelarix::tools::WriteText(std::cout, reports[i]);
    }
  }
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  std::string error;
  if (!ParseArguments(argc, argv, options, error)) {
    std::cerr << "pelarix-filter: " << error << "\n" << kUsage;
    return kExitBadArguments;
  }
  if (options.help) {
    std::cout << kUsage;
    return 0;
  }
  if (options.version) {
    std::cout << "pelarix-filter " << PELARIX_VERSION << "\n";
    return 0;
  }
  try {
    return Run(options);
  } catch (const std::exception &e) {
    std::cerr << "pelarix-filter: " << e.what() << "\n";
    return kExitUnreadable;
  }
}
