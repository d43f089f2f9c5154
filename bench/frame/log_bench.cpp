// The log path: a message above the configured level, a delivered one with
// the usual lifecycle arguments, a full-length one, and a filter engine line.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <string>

#include "frame/library_state.h"
#include "frame/log.h"

namespace {

void PELARIX_CALL DiscardingSink(uint32_t, const PelarixChar *message) {
  benchmark::DoNotOptimize(message);
}

void UseSink(int32_t level) {
  pelarix::gLibrary.logCallback = &DiscardingSink;
  pelarix::gLibrary.logLevel = level;
}

void FilterLog(uint32_t level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  pelarix::LogFilterMessage(level, format, args);
  va_end(args);
}

void BM_MessageAboveLevel(benchmark::State &state) {
  UseSink(1);
  void *handle = &state;
  for (auto _ : state) {
    pelarix::LogMessage(pelarix::kLogTraffic, u"Close handle: %p, status: 0x%x", handle, 0u);
  }
}
BENCHMARK(BM_MessageAboveLevel);

void BM_LifecycleMessage(benchmark::State &state) {
  UseSink(3);
  void *handle = &state;
  for (auto _ : state) {
    pelarix::LogMessage(pelarix::kLogLifecycle,
                        u"Plugin device, handle: %p, PlugNo: %d, status: 0x%x", handle, 7, 0u);
  }
}
BENCHMARK(BM_LifecycleMessage);

void BM_TruncatedMessage(benchmark::State &state) {
  UseSink(3);
  const std::u16string text(400, u'x');
  for (auto _ : state) {
    pelarix::LogMessage(pelarix::kLogTraffic, u"Device Path: %s", text.c_str());
  }
}
BENCHMARK(BM_TruncatedMessage);

void BM_FilterEngineLine(benchmark::State &state) {
  UseSink(3);
  for (auto _ : state) {
    FilterLog(1, "DevFltr: Interface 0 excluded by rule Vid_046d&Pid_c52b");
  }
}
BENCHMARK(BM_FilterEngineLine);

}  // namespace
