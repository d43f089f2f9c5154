// evaluateId and evaluateFamily against lists of 1, 10 and 100 rules, with
// the device text matching the last rule of the include list (the longest
// walk that still hits) or nothing at all. The "documented route" cases
// evaluate the plain way for comparison: parse per type, copy the list and
// make a matcher per comparison.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "ordo/usb/filter_language.h"

namespace {

using namespace ordo::usb;

std::string hex4(int n) {
  static const char digits[] = "0123456789abcdef";
  std::string text(4, '0');
  for (int i = 3; i >= 0; --i, n >>= 4) text[static_cast<size_t>(i)] = digits[n & 15];
  return text;
}

// count rules split between exclude and include, so that both lists are
// walked; the device matches the include list's last rule.
FilterSettings idSettings(int count) {
  FilterSettings settings;
  settings.setDefaultPreferences(false);
  int excluded = count / 2;
  std::string exid = "exid:m:";
  std::string inid = "inid:m:";
  for (int i = 0; i < count; ++i) {
    std::string rule = "vid-" + hex4(0x1000 + i) + "_pid-" + hex4(i) + ";";
    (i < excluded ? exid : inid) += rule;
  }
  if (excluded > 0) settings.list().add(exid);
  settings.list().add(inid);
  return settings;
}

FilterSettings familySettings(int count) {
  static const char *const words[] = {"storage",    "hid", "audio",    "video", "printer",
                                      "smart-card", "nic", "keyboard", "mouse", "vendor"};
  FilterSettings settings;
  settings.setDefaultPreferences(false);
  int excluded = count / 2;
  std::string exfa = "exfa:m:";
  std::string infa = "infa:m:";
  for (int i = 0; i < count; ++i) {
    std::string word = std::string(words[i % 10]) + std::to_string(i) + ";";
    (i < excluded ? exfa : infa) += word;
  }
  if (excluded > 0) settings.list().add(exfa);
  settings.list().add(infa);
  return settings;
}

std::string lastIncludedId(int count) {
  return "vid-" + hex4(0x1000 + count - 1) + "_pid-" + hex4(count - 1);
}

std::string lastIncludedFamily(int count) {
  static const char *const words[] = {"storage",    "hid", "audio",    "video", "printer",
                                      "smart-card", "nic", "keyboard", "mouse", "vendor"};
  return std::string(words[(count - 1) % 10]) + std::to_string(count - 1);
}

int32_t documentedRoute(const FilterSettings &settings, const std::string &text, FilterType first,
                        FilterType last) {
  for (FilterType type = first; type <= last; ++type) {
    const std::vector<FltValue> *stored = settings.list().valuesOf(type);
    if (stored == nullptr) continue;
    FltValue device(type, text);
    std::vector<FltValue> copy = *stored;
    for (const FltValue &rule : copy) {
      if (device.getType() != rule.getType() || device.getType() >= FilterTypeNone) continue;
      std::unique_ptr<FltMatcher> matcher = makeFltMatcher(type);
      if (matcher && matcher->match(device, rule)) return type == first ? 1 : 0;
    }
  }
  return 2;
}

void BM_EvaluateId(benchmark::State &state, bool hit) {
  int count = static_cast<int>(state.range(0));
  FilterSettings settings = idSettings(count);
  std::string text = hit ? lastIncludedId(count) : "vid-ffff_pid-ffff";
  if (settings.evaluateId(text) != (hit ? FilterEvalIncluded : FilterEvalNoHit)) {
    state.SkipWithError("unexpected answer");
  }
  for (auto _ : state) benchmark::DoNotOptimize(settings.evaluateId(text));
}

void BM_EvaluateFamily(benchmark::State &state, bool hit) {
  int count = static_cast<int>(state.range(0));
  FilterSettings settings = familySettings(count);
  std::string text = hit ? lastIncludedFamily(count) : "unknown";
  if (settings.evaluateFamily(text) != (hit ? FilterEvalIncluded : FilterEvalNoHit)) {
    state.SkipWithError("unexpected answer");
  }
  for (auto _ : state) benchmark::DoNotOptimize(settings.evaluateFamily(text));
}

void BM_EvaluateIdDocumentedRoute(benchmark::State &state) {
  int count = static_cast<int>(state.range(0));
  FilterSettings settings = idSettings(count);
  std::string text = lastIncludedId(count);
  if (documentedRoute(settings, text, FilterTypeExid, FilterTypeInid) !=
      settings.evaluateId(text)) {
    state.SkipWithError("routes disagree");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(documentedRoute(settings, text, FilterTypeExid, FilterTypeInid));
  }
}

void BM_EvaluateFamilyDocumentedRoute(benchmark::State &state) {
  int count = static_cast<int>(state.range(0));
  FilterSettings settings = familySettings(count);
  std::string text = lastIncludedFamily(count);
  if (documentedRoute(settings, text, FilterTypeExfa, FilterTypeInfa) !=
      settings.evaluateFamily(text)) {
    state.SkipWithError("routes disagree");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(documentedRoute(settings, text, FilterTypeExfa, FilterTypeInfa));
  }
}

BENCHMARK_CAPTURE(BM_EvaluateId, hit, true)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_CAPTURE(BM_EvaluateId, miss, false)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_CAPTURE(BM_EvaluateFamily, hit, true)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_CAPTURE(BM_EvaluateFamily, miss, false)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(BM_EvaluateIdDocumentedRoute)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(BM_EvaluateFamilyDocumentedRoute)->Arg(1)->Arg(10)->Arg(100);

}  // namespace
