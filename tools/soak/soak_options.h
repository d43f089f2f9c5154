// The soak program's command line.
#pragma once

#include <cstdint>
#include <string>

namespace pelarix::soak {

struct SoakOptions {
  uint32_t durationSeconds = 60;  // the whole run, at most a day
  uint32_t checkSeconds = 10;     // a progress line and the memory sample this often
  uint32_t sessionSeconds = 5;    // each session's life before it is closed
  uint32_t pumps = 2;             // pump threads per session
  uint32_t seed = 1;
};

// Fills options from the arguments; false with a message in *error (empty
// for --help, whose text is Usage()).
bool ParseSoakOptions(int argc, char **argv, SoakOptions *options, std::string *error);
std::string SoakUsage();

}  // namespace pelarix::soak
