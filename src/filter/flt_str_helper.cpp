#include "ordo/usb/flt_str_helper.h"

#include "filter/shared_parsers.h"
#include "ordo/usb/filter_text.h"

namespace ordo::usb {
namespace {

bool contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

void FltStrHelper::parse(const std::string & /*text*/, FltValue & /*value*/) const {}

std::string FltStrHelperDevAbs::padId(const std::string &text) const {
  const std::string pattern = (type_ == FilterTypeExpt || type_ == FilterTypeInpt) ? "00" : "0000";
  if (text.size() >= pattern.size()) {
    return text;
  }
  return pattern.substr(0, pattern.size() - text.size()) + text;
}

void FltStrHelperDevAbs::parseIdPiece(const std::string &piece, FltDetail &detail) const {
  std::vector<std::string> tokens;
  std::string name;
  if (contains(piece, "-")) {
    tokens = splitFilterText(piece, "-");
    if (tokens.size() == 2) {
      name = tokens[0];
    }
  } else if (contains(piece, idName1_) || contains(piece, idName2_)) {
    name = contains(piece, idName1_) ? idName1_ : idName2_;
    tokens = splitFilterText(piece, name);
    // A piece that begins or ends with the name ("vid1234") leaves a single
    // token; without a token 1 it cannot be read.
    if (tokens.size() < 2) {
      name.clear();
    }
  }
  if (name.empty()) {
    detail = FltDetail{piece, "Error"};
    return;
  }
  detail = FltDetail{name, padId(tokens[1])};
}

bool FltStrHelperDevAbs::findIdTokens(const std::vector<std::string> &tokens, size_t &first,
                                      size_t &second) const {
  first = second = tokens.size();
  for (size_t i = tokens.size(); i-- > 0;) {
    if (contains(tokens[i], idName1_)) {
      first = i;
    }
    if (contains(tokens[i], idName2_)) {
      second = i;
    }
  }
  return first < tokens.size() && second < tokens.size();
}

void FltStrHelperDevAbs::addIdDetails(const std::vector<std::string> &tokens, size_t first,
                                      size_t second, FltValue &value) const {
  FltDetail detail;
  parseIdPiece(tokens[first], detail);
  value.addDetail(detail, false);
  parseIdPiece(tokens[second], detail);
  value.addDetail(detail, false);
}

void FltStrHelperDevAbs::markFailed(const std::string &text, FltValue &value) {
  value.setType(FilterTypeNone);
  value.addValue("Error: " + text, false);
}

void FltStrHelperDev::parse(const std::string &text, FltValue &value) const {
  std::vector<std::string> tokens = splitFilterText(text, "_");
  size_t first = 0;
  size_t second = 0;
  if (tokens.size() != 2 || !findIdTokens(tokens, first, second)) {
    markFailed(text, value);
    return;
  }
  addIdDetails(tokens, first, second, value);
}

void FltStrHelperSpltIdInc::parse(const std::string &text, FltValue &value) const {
  std::vector<std::string> halves = splitFilterText(text, "(");
  std::vector<std::string> tokens;
  if (halves.size() == 2) {
    tokens = splitFilterText(halves[0], "_");
  }
  if (tokens.size() != 2) {
    markFailed(text, value);
    return;
  }
  size_t first = 0;
  size_t second = 0;
  // Unlike a plain identifier, a split rule with a name missing is no
  // failure: the value keeps its type and stays empty.
  if (!findIdTokens(tokens, first, second)) {
    return;
  }
  addIdDetails(tokens, first, second, value);
  std::vector<std::string> ruleText = splitFilterText(halves[1], ")");
  if (ruleText.empty()) {
    markFailed(text, value);
    return;
  }
  FltSplitRule rule;
  rule.id = value.idString();
  rule.parse(ruleText[0]);
  value.addSplitRule(rule);
}

void FltStrHelperFam::parse(const std::string &text, FltValue &value) const {
  if (splitFilterText(text, "_").size() != 1) {
    value.setType(FilterTypeNone);
  }
  value.addValue(text, false);
}

void FltStrHelperBool::parse(const std::string &text, FltValue &value) const {
  if (splitFilterText(text, "_").size() != 1 || !isBoolText(text)) {
    value.setType(FilterTypeNone);
  }
  value.addValue(text, false);
}

std::unique_ptr<FltStrHelper> makeFltStrHelper(FilterType type) {
  switch (type) {
    case FilterTypeExpt:
    case FilterTypeInpt:
      return std::make_unique<FltStrHelperDev>("bus", "port", type);
    case FilterTypeExid:
    case FilterTypeInid:
    case FilterTypeSpexid:
      return std::make_unique<FltStrHelperDev>("vid", "pid", type);
    case FilterTypeSpid:
      return std::make_unique<FltStrHelperSpltIdInc>("vid", "pid", type);
    case FilterTypeExfa:
    case FilterTypeInfa:
      return std::make_unique<FltStrHelperFam>("", "", type);
    case FilterTypeExintf:
    case FilterTypeExingp:
      return nullptr;
    default:
      if (isBooleanFilterType(type)) {
        return std::make_unique<FltStrHelperBool>("", "", type);
      }
      return nullptr;
  }
}

const FltStrHelper *sharedFltStrHelper(FilterType type) {
  return madeOncePerType<FltStrHelper, makeFltStrHelper>(type);
}

}  // namespace ordo::usb
