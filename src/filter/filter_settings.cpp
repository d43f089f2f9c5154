#include "ordo/usb/filter_settings.h"

#include "ordo/usb/filter_dictionary.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_text.h"

namespace ordo::usb {
namespace {

// Which parse a type's text goes through; types of one kind parse a text to
// the same details and differ only in the value's type.
int parseKindOf(FilterType type) {
  switch (type) {
    case FilterTypeExpt:
    case FilterTypeInpt:
      return 1;
    case FilterTypeExid:
    case FilterTypeInid:
    case FilterTypeSpexid:
      return 2;
    case FilterTypeExfa:
    case FilterTypeInfa:
      return 3;
    default:
      return isBooleanFilterType(type) ? 4 : 0;
  }
}

// The text of a device parsed under one type after another. A parse is
// reused for the next type of the same kind instead of being made again.
class DeviceTextProbe {
 public:
  explicit DeviceTextProbe(const std::string &text) : text_(text) {}

  const FltValue &under(FilterType type) {
    int kind = parseKindOf(type);
    if (!parsed_ || kind == 0 || kind != kind_) {
      value_ = FltValue(type, text_);
      kind_ = kind;
      parsed_ = true;
    } else if (value_.isValid()) {
      value_.setType(type);
    }
    return value_;
  }

 private:
  const std::string &text_;
  FltValue value_;
  int kind_ = 0;
  bool parsed_ = false;
};

}  // namespace

void FilterSettings::setDefaultPreferences(bool full) {
  if (!full) {
    defaults_ = {{FilterTypeExalldev, "false"}};
    return;
  }
  defaults_ = {
      {FilterTypeExalldev, "false"},
      {FilterTypeUsehid, "true"},
      {FilterTypeUsehidboot, "true"},
      {FilterTypeUsekeybmouse, "false"},
      {FilterTypeUsesc, "false"},
      {FilterTypeUseaout, "false"},
      {FilterTypeUseain, "true"},
      {FilterTypeUsevideo, "true"},
      {FilterTypeUsenic, "false"},
      {FilterTypeBlockdsplit, "false"},
      {FilterTypeAllowautodsplit, "false"},
      {FilterTypeBlockbootdfilter, "false"},
      {FilterTypeBlockremoteconfig, "false"},
  };
}

bool FilterSettings::getBool(FilterType type) const {
  bool isBoolean = isBooleanFilterType(type);
  if (const std::vector<FltValue> *values = list_.valuesOf(type)) {
    if (!isBoolean) {
      return false;
    }
    for (FltValue value : *values) {
      if (value.isValid()) {
        return isTrueText(value.toString());
      }
    }
  }
  auto found = defaults_.find(type);
  // Callers rely on a key absent from both list and defaults reading true.
  if (found == defaults_.end()) {
    return true;
  }
  return isBoolean && isTrueText(found->second);
}

void FilterSettings::dumpDefaults() const {
  if (defaults_.empty()) {
    return;
  }
  auto dictionary = FilterDictionary::getInstance();
  DevFltrLog(3, " ========== Default Preferences ===========");
  for (const auto &[type, text] : defaults_) {
    DevFltrLog(3, " [" + dictionary->nameOf(type) + "] : " + text);
  }
  DevFltrLog(3, " ========== End of Default Preferences ====");
}

void FilterSettings::addFilterRule(const std::string &text) {
  if (text.empty()) {
    return;
  }
  DevFltrLog(2, "Adding FilterRule: " + text);
  list_.add(text);
}

void FilterSettings::addBoolean(FilterType type, bool on) {
  std::string text = FilterDictionary::getInstance()->nameOf(type) + ":" + (on ? "true" : "false");
  DevFltrLog(2, (type == FilterTypeExalldev ? "Adding Filter: " : "Adding Hint: ") + text);
  list_.add(text);
}

void FilterSettings::clear() {
  list_.clear();
}

void FilterSettings::merge(const FilterSettings &local, const FilterSettings &remote,
                           FilterSettings &merged) {
  merged.defaults_ = local.defaults_;
  FilterList::merge(local.list_, remote.list_, merged.list_);
}

int32_t FilterSettings::evaluate(const std::string &text, FilterType firstType,
                                 FilterType lastType) const {
  if (firstType > lastType) {
    return FilterEvalNoHit;
  }
  // Walking the keys that hold values visits the same types in the same
  // rising order as walking every number of the range, and skips the rest.
  const FilterList::ValueMap &filters = list_.filters();
  DeviceTextProbe probe(text);
  for (auto it = filters.lower_bound(firstType); it != filters.end() && it->first <= lastType;
       ++it) {
    const FltValue &device = probe.under(it->first);
    for (const FltValue &rule : it->second) {
      if (device.matches(rule)) {
        return it->first == firstType ? FilterEvalExcluded : FilterEvalIncluded;
      }
    }
  }
  return FilterEvalNoHit;
}

int32_t FilterSettings::evaluateId(const std::string &text) const {
  return evaluate(text, FilterTypeExid, FilterTypeInid);
}

int32_t FilterSettings::evaluateFamily(const std::string &text) const {
  return evaluate(text, FilterTypeExfa, FilterTypeInfa);
}

int32_t FilterSettings::evaluateFamilySet(DevFamily family, std::vector<std::string> *names) const {
  int32_t outcome = FilterEvalNoHit;
  std::vector<std::string> excluded;
  std::vector<std::string> included;
  for (const std::string &name : FamilyToNames(family, true)) {
    const int32_t one = evaluateFamily(name);
    if (one == FilterEvalExcluded) {
      excluded.push_back(name);
      outcome = FilterEvalExcluded;
    } else if (one == FilterEvalIncluded) {
      included.push_back(name);
      if (outcome == FilterEvalNoHit) {
        outcome = FilterEvalIncluded;
      }
    }
  }
  if (names != nullptr && outcome != FilterEvalNoHit) {
    *names = outcome == FilterEvalExcluded ? excluded : included;
  }
  return outcome;
}

int32_t FilterSettings::evaluatePath(const std::string &text) const {
  return evaluate(text, FilterTypeExpt, FilterTypeInpt);
}

bool FilterSettings::isSplitExcluded(const std::string &text) const {
  return evaluate(text, FilterTypeSpexid, FilterTypeSpexid) != FilterEvalNoHit;
}

}  // namespace ordo::usb
