// The settings read of a session (ReadSessionSettings) from a registry file
// of 60 MiB whose general key holds an ExcludeVidPid value that fills the
// file, with a few small values around it: "utf16" is the registry editor's
// UTF-16LE export (a value of 30 MiB), "utf8" the same text in UTF-8 (a value
// of 60 MiB). "peak_rss_MiB" is the process's peak resident size after the
// runs (getrusage), which the file's generation, written piece by piece, does
// not raise; run one case per process for a figure of its own, as in
//   build-bench/bin/settings_bench --benchmark_filter=utf16
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "config/session_settings.h"

namespace {

constexpr size_t kFileBytes = 60u << 20;

bool gUtf16 = true;

void AppendText(std::string *out, const std::string &ascii) {
  for (char c : ascii) {
    out->push_back(c);
    if (gUtf16) out->push_back(0);
  }
}

// Writes the file in pieces of about 1 MiB and returns its path.
std::string WriteRegistryFile() {
  return [] {
    const char *temp = std::getenv("TMPDIR");
    std::string name = std::string(temp != nullptr ? temp : "/tmp") + "/pelarix-bench-" +
                       std::to_string(getpid()) + ".reg";
    std::FILE *file = std::fopen(name.c_str(), "wb");
    std::string piece = gUtf16 ? "\xFF\xFE" : "";
    AppendText(&piece,
               "Windows Registry Editor Version 5.00\r\n\r\n"
               "[HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin Halden\\USB]\r\n"
               "\"ExpectedItemLength\"=dword:00001000\r\n"
               "\"ExcludeFamily\"=\"storage;audio\"\r\n"
               "\"ExcludeVidPid\"=\"");
    const std::string tail = "\"\r\n\"AllowSplit\"=\"yes\"\r\n\r\n";
    size_t written = 0;
    for (int entry = 0; written + piece.size() + 2 * tail.size() < kFileBytes; ++entry) {
      char text[32];
      std::snprintf(text, sizeof text, "vid-%04x_pid-%04x;", entry & 0xFFFF, (entry >> 4) & 0xFFFF);
      AppendText(&piece, text);
      if (piece.size() >= (1u << 20)) {
        written += std::fwrite(piece.data(), 1, piece.size(), file);
        piece.clear();
      }
    }
    AppendText(&piece, tail);
    std::fwrite(piece.data(), 1, piece.size(), file);
    std::fclose(file);
    return name;
  }();
}

void BM_ReadSessionSettingsOf60MiBFile(benchmark::State &state, bool utf16) {
  gUtf16 = utf16;
  const std::string path = WriteRegistryFile();
  setenv("PELARIX_REGISTRY", path.c_str(), 1);
  size_t valueBytes = 0;
  for (auto _ : state) {
    pelarix::SessionSettings settings{};
    pelarix::ReadSessionSettings(&settings);
    for (const pelarix::SettingString &setting : settings.filterStrings) {
      if (setting.text != nullptr) valueBytes = std::max<size_t>(valueBytes, setting.length);
    }
    pelarix::FreeSessionSettings(&settings);
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
  state.counters["value_MiB"] = static_cast<double>(valueBytes) / (1u << 20);
  std::remove(path.c_str());
}
BENCHMARK_CAPTURE(BM_ReadSessionSettingsOf60MiBFile, utf16, true)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(BM_ReadSessionSettingsOf60MiBFile, utf8, false)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace
