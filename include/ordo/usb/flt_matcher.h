// The comparisons of a device's text with the values of a filter list.
#pragma once

#include <memory>
#include <string>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/filter_types.h"
#include "ordo/usb/flt_value.h"

namespace ordo::usb {

class FltMatcher {
 public:
  FltMatcher(const std::string &name1, const std::string &name2);
  // The base and the boolean matcher never match: booleans are read by
  // FilterSettings::getBool.
  virtual bool match(const FltValue &a, const FltValue &b) const;
  virtual ~FltMatcher() = default;

  // The part names and their patterns ("vid*"). No match reads them: the
  // names are compared from the details themselves.
  const std::string &name1() const { return name1_; }
  const std::string &name2() const { return name2_; }
  const std::string &pattern1() const { return pattern1_; }
  const std::string &pattern2() const { return pattern2_; }

 private:
  std::string name1_;
  std::string name2_;
  std::string pattern1_;
  std::string pattern2_;
};

// Two-part identifiers: same type, same details position by position.
class FltMatcherDev : public FltMatcher {
 public:
  using FltMatcher::FltMatcher;
  bool match(const FltValue &a, const FltValue &b) const override;
};

// Family words: both valid and equal.
class FltMatcherString : public FltMatcher {
 public:
  using FltMatcher::FltMatcher;
  bool match(const FltValue &a, const FltValue &b) const override;
};

class FltMatcherBool : public FltMatcher {
 public:
  using FltMatcher::FltMatcher;
};

// A new matcher for the type, or null for exintf, exingp, spid and numbers
// above 22.
std::unique_ptr<FltMatcher> makeFltMatcher(FilterType type);

}  // namespace ordo::usb
