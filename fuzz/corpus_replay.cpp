// The regression run of a fuzz target without libFuzzer: every file named on
// the command line, or found in a directory named there, goes once through
// the target's LLVMFuzzerTestOneInput, in name order so that a failure is
// reproducible. The sanitizers of the build (the asan preset) judge each
// input as a fuzz run would; the program says which file it was on when one
// of them stops it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

namespace fs = std::filesystem;

// The files of each argument: the argument itself, or a directory's regular
// files. False when an argument is neither.
bool CollectInputs(int argc, char **argv, std::vector<fs::path> *inputs) {
  for (int i = 1; i < argc; ++i) {
    const fs::path argument(argv[i]);
    std::error_code error;
    if (fs::is_regular_file(argument, error)) {
      inputs->push_back(argument);
      continue;
    }
    if (!fs::is_directory(argument, error)) {
      std::fprintf(stderr, "corpus replay: %s is neither a file nor a directory\n", argv[i]);
      return false;
    }
    std::vector<fs::path> files;
    for (const auto &entry : fs::directory_iterator(argument, error)) {
      if (entry.is_regular_file(error)) {
        files.push_back(entry.path());
      }
    }
    std::sort(files.begin(), files.end());
    inputs->insert(inputs->end(), files.begin(), files.end());
  }
  return true;
}

bool ReadInput(const fs::path &path, std::vector<uint8_t> *bytes) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return false;
  }
  bytes->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<fs::path> inputs;
  if (argc < 2 || !CollectInputs(argc, argv, &inputs)) {
    std::fprintf(stderr, "usage: %s CORPUS_DIR_OR_FILE...\n", argc > 0 ? argv[0] : "replay");
    return 2;
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "corpus replay: no input found\n");
    return 2;
  }
  for (const fs::path &path : inputs) {
    std::vector<uint8_t> bytes;
    if (!ReadInput(path, &bytes)) {
      std::fprintf(stderr, "corpus replay: cannot read %s\n", path.c_str());
      return 2;
    }
    std::fprintf(stderr, "corpus replay: %s (%zu bytes)\n", path.c_str(), bytes.size());
    // A heap copy of exactly the input's size (never a null pointer, even
    // when empty, as libFuzzer hands it over), so that a read past its end is
    // caught as a fuzz run catches it.
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), bytes.size());
  }
  std::fprintf(stderr, "corpus replay: %zu input(s), all passed\n", inputs.size());
  return 0;
}
