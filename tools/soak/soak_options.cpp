#include "soak_options.h"

#include <cstdlib>
#include <cstring>

namespace pelarix::soak {
namespace {

// A whole decimal number from low to high.
bool ReadNumber(const char *text, uint32_t low, uint32_t high, uint32_t *value) {
  if (text == nullptr || *text == 0 || std::strlen(text) > 9) {
    return false;
  }
  uint32_t number = 0;
  for (const char *at = text; *at != 0; ++at) {
    if (*at < '0' || *at > '9') {
      return false;
    }
    number = number * 10 + static_cast<uint32_t>(*at - '0');
  }
  if (number < low || number > high) {
    return false;
  }
  *value = number;
  return true;
}

struct NumberOption {
  const char *name;
  uint32_t low;
  uint32_t high;
  uint32_t SoakOptions::*field;
};

constexpr NumberOption kNumberOptions[] = {
    {"--duration", 1, 86400, &SoakOptions::durationSeconds},
    {"--check-every", 1, 3600, &SoakOptions::checkSeconds},
    {"--session-seconds", 1, 3600, &SoakOptions::sessionSeconds},
    {"--pumps", 1, 8, &SoakOptions::pumps},
    {"--seed", 0, 999999999, &SoakOptions::seed},
};

}  // namespace

std::string SoakUsage() {
  return "usage: pelarix-soak [--duration SECONDS] [--check-every SECONDS]\n"
         "                    [--session-seconds SECONDS] [--pumps N] [--seed N]\n"
         "Sessions one after another on an in-process virtual hub, with random plug-ins,\n"
         "unplugs, parks, unparks, cancels, completions and closes across threads.\n"
         "Exit status: 0 every check passed, 1 a check failed, 2 bad arguments,\n"
         "3 the hub could not start.\n";
}

bool ParseSoakOptions(int argc, char **argv, SoakOptions *options, std::string *error) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "-h" || argument == "--help") {
      error->clear();
      return false;
    }
    const NumberOption *option = nullptr;
    for (const NumberOption &known : kNumberOptions) {
      if (argument == known.name) {
        option = &known;
      }
    }
    if (option == nullptr) {
      *error = "unknown option " + argument;
      return false;
    }
    const char *value = i + 1 < argc ? argv[++i] : nullptr;
    if (!ReadNumber(value, option->low, option->high, &(options->*(option->field)))) {
      *error = argument + " takes a whole number from " + std::to_string(option->low) + " to " +
               std::to_string(option->high);
      return false;
    }
  }
  return true;
}

}  // namespace pelarix::soak
