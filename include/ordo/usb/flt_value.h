// One parsed word of the filter language and the split rule it may carry.
#pragma once

#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {

// One named part of a value, such as vid "1234"; a family or boolean word has
// an empty name.
struct FltDetail {
  std::string name;
  std::string value;

  bool operator==(const FltDetail &) const = default;
};

// Position-by-position comparison of two details: names exactly, values
// equal, or one of them the whole-value wildcard "*", or of equal length with
// "*" standing for one character.
bool detailMatches(const FltDetail &a, const FltDetail &b);

// The split instructions of one device.
struct FltSplitRule {
  std::string id;                       // canonical form vid-1234_pid-5678
  std::vector<std::string> families;    // filled only by the blob decoder
  std::vector<std::string> interfaces;  // text behind each exintf

  bool operator==(const FltSplitRule &) const = default;

  // Reads "exintf:01;exintf:02" and appends the interface entries; other keys
  // are passed over, and a token with neither ":" nor "-" ends the reading.
  void parse(const std::string &text);
  // "vid-0001_pid-0002(exfa:a, exfa:b;exintf:01,exintf:02)", or empty when
  // both lists are empty.
  std::string text() const;
  // Whether this rule's id matches the canonical id text, with "*" standing
  // for one character.
  bool matchesId(const std::string &idText) const;
};

class FltValue {
 public:
  FltValue() = default;
  explicit FltValue(FilterType type) : type_(type) {}
  // Parses text with the helper of type; without a helper the value stays
  // empty with its type.
  FltValue(FilterType type, const std::string &text);

  FilterType getType() const { return type_; }
  void setType(FilterType type) { type_ = type; }
  bool isValid() const { return type_ < FilterTypeNone; }

  const std::vector<FltDetail> &details() const { return details_; }
  const std::vector<FltSplitRule> &splitRules() const { return splitRules_; }
  bool isTextCached() const { return textCached_; }

  void addDetail(const FltDetail &detail, bool clearFirst = false);
  void addValue(const std::string &text, bool clearFirst = false);
  void addSplitRule(const FltSplitRule &rule);

  // The text of the dumps. It is built into one shared text (per thread) and
  // the value remembers that it did so: a second call on the same object
  // returns the shared text as it stands, whatever value built it last. Ask a
  // copy, as the list readers do.
  std::string toString();
  // The join of the details, without touching the shared text; "Error" when
  // there are none.
  std::string idString() const;

  // Same type, same number of details, detailMatches at every position.
  bool equals(const FltValue &other) const;
  // The comparison of the matcher made for this value's type.
  bool matches(const FltValue &other) const;
  // Appends a copy of every split rule whose id matches idText.
  void findSplitRules(const std::string &idText, std::vector<FltSplitRule> &out) const;

 private:
  FilterType type_ = FilterTypeNone;
  std::vector<FltDetail> details_;
  bool textCached_ = false;
  std::vector<FltSplitRule> splitRules_;
};

}  // namespace ordo::usb
