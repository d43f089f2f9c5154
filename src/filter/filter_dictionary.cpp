#include "ordo/usb/filter_dictionary.h"

#include <array>
#include <iostream>
#include <mutex>

#include "ordo/usb/filter_text.h"

namespace ordo::usb {
namespace {

constexpr std::array<const char *, FilterTypeCount> kKeyNames = {
    "expt",
    "inpt",
    "exid",
    "inid",
    "exfa",
    "infa",
    "exalldev",
    "exintf",
    "exingp",
    "spexid",
    "spid",
    "usehid",
    "usehidboot",
    "usekeybmouse",
    "usesc",
    "useaout",
    "useain",
    "usevideo",
    "usenic",
    "blockdsplit",
    "allowautodsplit",
    "blockbootdfilter",
    "blockremoteconfig",
};

// The instance is created lazily and may be released by any manager while
// another thread still looks something up; shared ownership under one mutex
// keeps both sides safe without changing when the table exists.
std::mutex instanceMutex;
std::shared_ptr<const FilterDictionary> instance;

}  // namespace

FilterDictionary::FilterDictionary() {
  for (const char *key : kKeyNames) {
    names_.emplace_back(key);
  }
  for (FilterType type = 0; type < FilterTypeCount; ++type) {
    nameToType_.emplace(names_[type], type);
  }
  for (FilterType type = 0; type < FilterTypeCount; ++type) {
    typeToName_.emplace(type, names_[type]);
  }
}

std::shared_ptr<const FilterDictionary> FilterDictionary::getInstance() {
  std::lock_guard<std::mutex> lock(instanceMutex);
  if (!instance) {
    instance = std::shared_ptr<const FilterDictionary>(new FilterDictionary());
  }
  return instance;
}

void FilterDictionary::releaseInstance() {
  std::shared_ptr<const FilterDictionary> released;
  {
    std::lock_guard<std::mutex> lock(instanceMutex);
    released.swap(instance);
  }
}

bool FilterDictionary::hasInstance() {
  std::lock_guard<std::mutex> lock(instanceMutex);
  return instance != nullptr;
}

FilterType FilterDictionary::typeOf(const std::string &key) const {
  auto found = nameToType_.find(key);
  return found == nameToType_.end() ? FilterTypeNone : found->second;
}

std::string FilterDictionary::nameOf(FilterType type) const {
  auto found = typeToName_.find(type);
  return found == typeToName_.end() ? "ERROR" : found->second;
}

FilterSeq FilterDictionary::seqOf(const std::string &letter) const {
  if (letter == "m") {
    return FilterSeqMerge;
  }
  if (letter == "o") {
    return FilterSeqOverride;
  }
  if (letter == "d") {
    return FilterSeqDefault;
  }
  return FilterSeqNotSet;
}

std::string FilterDictionary::seqName(FilterSeq seq) const {
  switch (seq) {
    case FilterSeqMerge:
      return "merge";
    case FilterSeqOverride:
      return "override";
    case FilterSeqDefault:
      return "default";
    case FilterSeqNotSet:
      return "notset";
    default:
      return "unknown";
  }
}

void FilterDictionary::dump() const {
  std::cout << "\n ========== FilterDictionary ===========\n";
  for (const std::string &key : names_) {
    std::cout << ' ' << key << ' ' << toLowerFilterText(key) << '\n';
  }
  std::cout << " ========== End of FilterDictionary ====\n";
  std::cout.flush();
}

}  // namespace ordo::usb
