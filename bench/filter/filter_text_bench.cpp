// splitFilterText on a filter string of n entries, as a long ExcludeVidPid
// value reaches it: "plain" entries without parentheses ("vid-0001_pid-0001;"),
// and "parenthesised" ones where each entry carries a pair
// ("vid-0001_pid-0001(a;b);"). The splitter's walk must stay linear in the
// length of the string either way.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "ordo/usb/filter_text.h"

namespace {

std::string EntryList(int count, bool parenthesised) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    char entry[40];
    std::snprintf(entry, sizeof entry, "vid-%04x_pid-%04x%s;", i & 0xFFFF, (i >> 3) & 0xFFFF,
                  parenthesised ? "(a;b)" : "");
    text += entry;
  }
  return text;
}

void BM_SplitFilterText(benchmark::State &state, bool parenthesised) {
  const std::string text = EntryList(static_cast<int>(state.range(0)), parenthesised);
  size_t tokens = 0;
  for (auto _ : state) {
    tokens = ordo::usb::splitFilterText(text, ";").size();
    benchmark::DoNotOptimize(tokens);
  }
  state.counters["tokens"] = static_cast<double>(tokens);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK_CAPTURE(BM_SplitFilterText, plain, false)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SplitFilterText, parenthesised, true)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
