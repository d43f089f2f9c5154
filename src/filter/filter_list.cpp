#include "ordo/usb/filter_list.h"

#include "ordo/usb/filter_dictionary.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_text.h"

namespace ordo::usb {
namespace {

bool contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

bool isValidIdItem(const std::string &item) {
  return (contains(item, "vid-") && contains(item, "_pid-")) ||
         (contains(item, "pid-") && contains(item, "_vid-"));
}

void logRefused(const char *why, const std::string &entry) {
  DevFltrLog(0, std::string(why) + "Filter string ignored: " + entry);
}

}  // namespace

FilterEntry FilterList::parseEntry(const std::string &entry) {
  std::vector<std::string> parts = splitFilterText(entry, ":");
  FilterEntry parsed;
  if (!parts.empty()) {
    parsed.type = FilterDictionary::getInstance()->typeOf(parts[0]);
  }
  if (parts.size() > 2) {
    parsed.seq = FilterDictionary::getInstance()->seqOf(parts[1]);
  }
  if (parts.size() == 2) {
    parsed.value = parts[1];
  }
  if (parts.size() > 2) {
    parsed.value = parts[2];
  }
  if (!checkParens(parsed.value)) {
    parsed.value = "error";
  }
  return parsed;
}

void FilterList::add(const std::string &text) {
  for (const std::string &entry : splitFilterText(text, " ")) {
    FilterEntry parsed = parseEntry(entry);
    if (parsed.type == FilterTypeNone || parsed.value == "error") {
      logRefused("Invalid filter. ", entry);
      continue;
    }
    if (!isValidValueText(parsed.type, parsed.value)) {
      logRefused("Invalid value. ", entry);
      continue;
    }
    if (parsed.seq != FilterSeqNotSet) {
      if (!isValidSequencing(parsed.type, parsed.seq)) {
        logRefused("Invalid sequencing info. ", entry);
        continue;
      }
      sequencing_[parsed.type] = parsed.seq;
    }
    addValues(parsed.type, parsed.value);
  }
}

void FilterList::addValues(FilterType type, const std::string &text) {
  for (const std::string &item : splitFilterText(text, ";")) {
    filters_[type].emplace_back(type, item);
  }
}

void FilterList::clear() {
  filters_.clear();
  sequencing_.clear();
}

bool FilterList::hasValues(FilterType type) const {
  return filters_.count(type) != 0;
}

const std::vector<FltValue> *FilterList::valuesOf(FilterType type) const {
  auto found = filters_.find(type);
  return found == filters_.end() ? nullptr : &found->second;
}

FilterSeq FilterList::sequencingOf(FilterType type) const {
  auto found = sequencing_.find(type);
  return found == sequencing_.end() ? FilterSeqNotSet : found->second;
}

std::string FilterList::firstText(FilterType type) const {
  const std::vector<FltValue> *values = valuesOf(type);
  if (values == nullptr || values->empty()) {
    return "";
  }
  FltValue first = values->front();
  return first.toString();
}

size_t FilterList::valueCount() const {
  size_t count = 0;
  for (const auto &[type, values] : filters_) {
    count += values.size();
  }
  return count;
}

bool FilterList::allHaveSequencing() const {
  for (const auto &[type, values] : filters_) {
    if (sequencing_.count(type) == 0) {
      return false;
    }
  }
  return true;
}

void FilterList::copyValues(FilterType type, const FilterList &source) {
  const std::vector<FltValue> *values = source.valuesOf(type);
  if (values == nullptr) {
    return;
  }
  for (const FltValue &value : *values) {
    filters_[value.getType()].push_back(value);
  }
}

void FilterList::merge(const FilterList &local, const FilterList &remote, FilterList &merged) {
  for (FilterType key = 0; key < FilterTypeCount; ++key) {
    switch (remote.sequencingOf(key)) {
      case FilterSeqOverride:
        merged.copyValues(key, remote);
        break;
      case FilterSeqMerge:
      case FilterSeqDefault:
        if (key < FilterTypeUsehid) {
          merged.copyValues(key, remote);
          merged.copyValues(key, local);
        } else {
          merged.copyValues(key, local.hasValues(key) ? local : remote);
        }
        break;
      case FilterSeqNotSet:
        if (!remote.hasValues(key)) {
          merged.copyValues(key, local);
        } else if (key == FilterTypeExalldev) {
          bool localSaysTrue = local.hasValues(key) && local.firstText(key) == "true";
          merged.copyValues(key, localSaysTrue ? local : remote);
        } else {
          DevFltrLog(0, "Filter rule found without MOI setting - ignoring rule for " +
                            FilterDictionary::getInstance()->nameOf(key));
          merged.copyValues(key, local);
        }
        break;
      default:
        break;
    }
  }
}

void FilterList::dump() const {
  if (filters_.empty()) {
    return;
  }
  auto dictionary = FilterDictionary::getInstance();
  DevFltrLog(3, " ========== FilterList ===========");
  for (const auto &[key, values] : filters_) {
    for (FltValue value : values) {
      DevFltrLog(3, " [" + dictionary->nameOf(key) + "->" + dictionary->nameOf(value.getType()) +
                        "] : " + value.toString());
    }
  }
  if (!sequencing_.empty()) {
    DevFltrLog(3, " MOI SETTINGS");
    for (const auto &[key, seq] : sequencing_) {
      DevFltrLog(3, " FilterType: " + dictionary->nameOf(key) + " -> " + dictionary->seqName(seq));
    }
  }
  DevFltrLog(3, " ========== End of FilterList ====");
}

bool FilterList::checkParens(const std::string &value) {
  if (value.empty()) {
    return false;
  }
  bool open = false;
  for (char c : value) {
    if (c == '(') {
      if (open) {
        return false;
      }
      open = true;
    } else if (c == ')') {
      if (!open) {
        return false;
      }
      open = false;
    }
  }
  return !open;
}

bool FilterList::isValidValueText(FilterType type, const std::string &value) {
  switch (type) {
    case FilterTypeExid:
    case FilterTypeInid:
    case FilterTypeSpexid:
      return isValidIdText(value);
    case FilterTypeSpid:
      return isValidSplitText(value);
    default:
      return true;
  }
}

bool FilterList::isValidIdText(const std::string &value) {
  std::vector<std::string> items = splitFilterText(toLowerFilterText(value), ";");
  for (const std::string &item : items) {
    if (!isValidIdItem(item)) {
      return false;
    }
  }
  return !items.empty();
}

bool FilterList::isValidSplitText(const std::string &value) {
  std::vector<std::string> items = splitFilterText(value, ";");
  for (const std::string &item : items) {
    std::vector<std::string> halves = splitFilterText(item, "(");
    if (halves.size() != 2 || !isValidIdText(halves[0])) {
      return false;
    }
  }
  return !items.empty();
}

}  // namespace ordo::usb
