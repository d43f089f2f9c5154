// Parsing each descriptor fixture and asking every family and group question
// of it, the way one filtering does; once without a log hook and once with a
// hook that formats every line (the descriptor dump at level 0).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ordo/usb/usb_model.h"

namespace {

using ordo::usb::UsbDeviceConfig;
using Bytes = std::vector<uint8_t>;

struct Fixture {
  std::string name;
  Bytes device;
  std::vector<Bytes> sets;
};

std::vector<Fixture> LoadFixtures() {
  std::vector<Fixture> fixtures;
  for (const auto &entry : std::filesystem::directory_iterator(PELARIX_DESCRIPTOR_DIR)) {
    if (entry.path().extension() != ".bin") continue;
    std::ifstream in(entry.path(), std::ios::binary);
    const Bytes all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Fixture fixture{entry.path().stem().string(), Bytes(all.begin(), all.begin() + 18), {}};
    for (size_t at = 18; at + 4 <= all.size();) {
      const size_t total = all[at + 2] | (all[at + 3] << 8);
      fixture.sets.emplace_back(all.begin() + static_cast<long>(at),
                                all.begin() + static_cast<long>(at + total));
      at += total;
    }
    fixtures.push_back(std::move(fixture));
  }
  std::sort(fixtures.begin(), fixtures.end(),
            [](const Fixture &a, const Fixture &b) { return a.name < b.name; });
  return fixtures;
}

void FormattingHook(uint32_t /*level*/, const char *format, va_list args) {
  char line[8192];
  std::vsnprintf(line, sizeof line, format, args);
  benchmark::DoNotOptimize(line[0]);
}

void AskEverything(const UsbDeviceConfig &config) {
  for (int32_t ordinal = 0; ordinal < config.GetConfigurationCount(); ++ordinal) {
    const auto *c = config.GetConfigurationByIndex(static_cast<uint32_t>(ordinal));
    for (int32_t number = 0; number < c->GetNumInterfaces(); ++number) {
      benchmark::DoNotOptimize(c->GetInterfaceFamily(static_cast<uint8_t>(number)));
      benchmark::DoNotOptimize(c->GetInterfaceGroup(static_cast<uint32_t>(number)));
    }
    for (int32_t group = 0; group < c->GetGroupCount(); ++group) {
      benchmark::DoNotOptimize(c->GetGroupMembers(group));
      benchmark::DoNotOptimize(c->GetGroupFamily(static_cast<uint32_t>(group)));
    }
    benchmark::DoNotOptimize(c->GetUngroupedInterfaces());
  }
  benchmark::DoNotOptimize(config.IsSingleConfigComposite());
}

void ParseAndAsk(benchmark::State &state, const Fixture &fixture, bool withHook) {
  ordo::usb::UsbConfigSetLogHook(withHook ? FormattingHook : nullptr, 0);
  for (auto _ : state) {
    UsbDeviceConfig config;
    config.SetDeviceDescriptor(fixture.device.data());
    for (const Bytes &set : fixture.sets) {
      config.AddConfigDescriptor(static_cast<uint32_t>(config.GetConfigurationCount()), set.data(),
                                 false);
    }
    AskEverything(config);
  }
  ordo::usb::UsbConfigSetLogHook(nullptr, 0);
}

}  // namespace

int main(int argc, char **argv) {
  static const std::vector<Fixture> fixtures = LoadFixtures();
  for (const Fixture &fixture : fixtures) {
    benchmark::RegisterBenchmark(
        ("ParseAndAsk/" + fixture.name).c_str(),
        [&fixture](benchmark::State &s) { ParseAndAsk(s, fixture, false); });
    benchmark::RegisterBenchmark(
        ("ParseAndAskWithDump/" + fixture.name).c_str(),
        [&fixture](benchmark::State &s) { ParseAndAsk(s, fixture, true); });
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
