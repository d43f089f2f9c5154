#include "ordo/usb/flt_value.h"

#include "filter/shared_parsers.h"
#include "ordo/usb/filter_dictionary.h"
#include "ordo/usb/filter_text.h"
#include "ordo/usb/flt_str_helper.h"

namespace ordo::usb {
namespace {

// The text that toString builds and that a value with textCached set gives
// back. One per thread: a single thread sees the shared text exactly as
// before, and two sessions filtering at once no longer write the same string.
std::string &sharedText() {
  thread_local std::string text = "Error";
  return text;
}

std::string joinDetails(const std::vector<FltDetail> &details) {
  std::string text;
  for (size_t i = 0; i < details.size(); ++i) {
    if (i > 0) {
      text += '_';
    }
    const FltDetail &detail = details[i];
    if (!detail.name.empty() && !detail.value.empty()) {
      text += detail.name + "-" + detail.value;
    } else {
      text += detail.name + detail.value;
    }
  }
  return text;
}

std::string joinEntries(const std::vector<std::string> &entries, const std::string &prefix,
                        const std::string &between) {
  std::string text;
  for (size_t i = 0; i < entries.size(); ++i) {
    if (i > 0) {
      text += between;
    }
    text += prefix + entries[i];
  }
  return text;
}

}  // namespace

FltValue::FltValue(FilterType type, const std::string &text) : type_(type) {
  if (const FltStrHelper *helper = sharedFltStrHelper(type)) {
    helper->parse(text, *this);
  }
}

void FltValue::addDetail(const FltDetail &detail, bool clearFirst) {
  textCached_ = false;
  if (clearFirst) {
    details_.clear();
  }
  details_.push_back(detail);
}

void FltValue::addValue(const std::string &text, bool clearFirst) {
  addDetail(FltDetail{"", text}, clearFirst);
}

void FltValue::addSplitRule(const FltSplitRule &rule) {
  splitRules_.push_back(rule);
}

std::string FltValue::toString() {
  std::string &text = sharedText();
  if (textCached_) {
    return text;
  }
  if (type_ == FilterTypeSpid) {
    text.clear();
    for (const FltSplitRule &rule : splitRules_) {
      text += rule.text();
    }
  } else {
    text = joinDetails(details_);
  }
  textCached_ = true;
  return text;
}

std::string FltValue::idString() const {
  return details_.empty() ? std::string("Error") : joinDetails(details_);
}

void FltSplitRule::parse(const std::string &text) {
  for (const std::string &token : splitFilterText(text, ";")) {
    std::string inner;
    if (token.find(':') != std::string::npos) {
      inner = ":";
    } else if (token.find('-') != std::string::npos) {
      inner = "-";
    } else {
      return;  // this token and all behind it are dropped
    }
    std::vector<std::string> pieces = splitFilterText(token, inner);
    if (pieces.size() < 2) {
      continue;
    }
    std::string entry = pieces[1];
    for (size_t i = 2; i < pieces.size(); ++i) {
      entry += inner + pieces[i];
    }
    // Only interface entries belong in a rule read from text; family and
    // other keys are passed over on purpose.
    if (FilterDictionary::getInstance()->typeOf(pieces[0]) == FilterTypeExintf) {
      interfaces.push_back(entry);
    }
  }
}

std::string FltSplitRule::text() const {
  if (families.empty() && interfaces.empty()) {
    return "";
  }
  std::string result = id + "(" + joinEntries(families, "exfa:", ", ");
  if (!families.empty() && !interfaces.empty()) {
    result += ";";
  }
  return result + joinEntries(interfaces, "exintf:", ",") + ")";
}

}  // namespace ordo::usb
