#include "ordo/usb/flt_matcher.h"

#include "filter/shared_parsers.h"

namespace ordo::usb {
namespace {

// Equal length assumed: "*" on either side stands for exactly one character.
bool matchesPerCharacter(const std::string &x, const std::string &y) {
  for (size_t i = 0; i < x.size(); ++i) {
    if (x[i] != y[i] && x[i] != '*' && y[i] != '*') {
      return false;
    }
  }
  return true;
}

std::string patternOf(const std::string &name) {
  return name.empty() ? "" : name + "*";
}

}  // namespace

bool detailMatches(const FltDetail &a, const FltDetail &b) {
  if (a.name != b.name) {
    return false;
  }
  const std::string &x = a.value;
  const std::string &y = b.value;
  if (x == y || x == "*" || y == "*") {
    return true;
  }
  if (x.empty() || x.size() != y.size()) {
    return false;
  }
  return matchesPerCharacter(x, y);
}

bool FltSplitRule::matchesId(const std::string &idText) const {
  if (id.empty() || id.size() != idText.size()) {
    return false;
  }
  return matchesPerCharacter(id, idText);
}

bool FltValue::equals(const FltValue &other) const {
  if (type_ != other.type_ || details_.size() != other.details_.size()) {
    return false;
  }
  for (size_t i = 0; i < details_.size(); ++i) {
    if (!detailMatches(details_[i], other.details_[i])) {
      return false;
    }
  }
  return true;
}

bool FltValue::matches(const FltValue &other) const {
  if (type_ != other.type_ || type_ >= FilterTypeNone) {
    return false;
  }
  const FltMatcher *matcher = sharedFltMatcher(type_);
  return matcher != nullptr && matcher->match(*this, other);
}

void FltValue::findSplitRules(const std::string &idText, std::vector<FltSplitRule> &out) const {
  for (const FltSplitRule &rule : splitRules_) {
    if (rule.matchesId(idText)) {
      out.push_back(rule);
    }
  }
}

FltMatcher::FltMatcher(const std::string &name1, const std::string &name2)
    : name1_(name1), name2_(name2), pattern1_(patternOf(name1)), pattern2_(patternOf(name2)) {}

bool FltMatcher::match(const FltValue & /*a*/, const FltValue & /*b*/) const {
  return false;
}

// The identifier comparison is exactly equals: type, count, then each detail.
bool FltMatcherDev::match(const FltValue &a, const FltValue &b) const {
  return a.equals(b);
}

bool FltMatcherString::match(const FltValue &a, const FltValue &b) const {
  return a.isValid() && b.isValid() && a.equals(b);
}

std::unique_ptr<FltMatcher> makeFltMatcher(FilterType type) {
  switch (type) {
    case FilterTypeExpt:
    case FilterTypeInpt:
      return std::make_unique<FltMatcherDev>("bus", "port");
    case FilterTypeExid:
    case FilterTypeInid:
    case FilterTypeSpexid:
      return std::make_unique<FltMatcherDev>("vid", "pid");
    case FilterTypeExfa:
    case FilterTypeInfa:
      return std::make_unique<FltMatcherString>("", "");
    default:
      if (isBooleanFilterType(type)) {
        return std::make_unique<FltMatcherBool>("", "");
      }
      return nullptr;  // exintf, exingp, spid (split rules use findSplitRules)
  }
}

const FltMatcher *sharedFltMatcher(FilterType type) {
  return madeOncePerType<FltMatcher, makeFltMatcher>(type);
}

}  // namespace ordo::usb
