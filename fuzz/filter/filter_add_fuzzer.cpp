// Arbitrary text as a filter string: parsed, dumped, encoded and read back,
// and asked about by the evaluating queries.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ordo/usb/filter_language.h"

namespace {

// Formats every line as the library's own sink does, so that a "%" in a
// filter string is put to the test.
void formatLine(uint32_t, const char *format, va_list args) {
  char line[1024];
  std::vsnprintf(line, sizeof line, format, args);
}

// Whether every detail can come back from the blob: no separator inside it,
// and name, ":" and value within the decoder's 255-byte reach.
bool detailsSurviveEncoding(const ordo::usb::FilterList &list) {
  for (const auto &[type, values] : list.filters()) {
    for (const auto &value : values) {
      for (const auto &detail : value.details()) {
        if (detail.name.find_first_of(":,") != std::string::npos) return false;
        if (detail.value.find(',') != std::string::npos) return false;
        if (detail.name.size() + detail.value.size() + 1 > 255) return false;
      }
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace ordo::usb;
  SetFilterLogHook(&formatLine, 0);
  std::string text(reinterpret_cast<const char *>(data), size);

  FilterSettings settings;
  settings.setDefaultPreferences(true);
  settings.addFilterRule(text);
  settings.list().add(toLowerFilterText(text));
  settings.list().dump();
  settings.dumpDefaults();

  for (FilterType type = 0; type <= FilterTypeCount; ++type) settings.getBool(type);
  settings.evaluateId(text);
  settings.evaluateFamily(text);
  settings.evaluatePath(text);
  settings.isSplitExcluded("vid-1234_pid-5678");
  settings.evaluate(text, 0, FilterTypeCount);
  std::vector<FltSplitRule> rules;
  if (const auto *splits = settings.list().valuesOf(FilterTypeSpid)) {
    for (const FltValue &value : *splits) value.findSplitRules("vid-1234_pid-5678", rules);
  }

  std::vector<uint8_t> blob(settings.list().encodedSize());
  if (!blob.empty()) {
    settings.list().encode(blob.data());
    FilterList decoded;
    bool whole = decoded.decodeBounded(blob.data(), blob.size(), true);
    if (!whole && detailsSurviveEncoding(settings.list())) __builtin_trap();
  }

  FilterSettings merged;
  FilterSettings::merge(settings, settings, merged);
  splitFilterText(text, ";");
  splitFilterText(text, ")");
  return 0;
}
