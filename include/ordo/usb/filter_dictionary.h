// The one shared table of the filter language's keys.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {

// Lookup between a key's text and its number, and between a sequencing letter
// and its value. There is one instance per process, built on first use and
// destroyed by releaseInstance (every filter manager's destructor calls it).
//
// getInstance hands out shared ownership: a caller that is in the middle of a
// lookup while another thread releases the instance keeps a valid table, and
// the next getInstance builds a fresh, equal one. Hold the pointer only for
// the lookups at hand, never across calls.
class FilterDictionary {
 public:
  static std::shared_ptr<const FilterDictionary> getInstance();
  static void releaseInstance();
  // Whether an instance exists right now (absent or filled).
  static bool hasInstance();

  FilterType typeOf(const std::string &key) const;
  std::string nameOf(FilterType type) const;
  FilterSeq seqOf(const std::string &letter) const;
  std::string seqName(FilterSeq seq) const;
  // Writes the table to standard output, for whoever debugs it.
  void dump() const;

  const std::vector<std::string> &names() const { return names_; }
  const std::map<std::string, FilterType> &nameToType() const { return nameToType_; }
  const std::map<FilterType, std::string> &typeToName() const { return typeToName_; }

  FilterDictionary(const FilterDictionary &) = delete;
  FilterDictionary &operator=(const FilterDictionary &) = delete;

 private:
  FilterDictionary();

  std::vector<std::string> names_;
  std::map<std::string, FilterType> nameToType_;
  std::map<FilterType, std::string> typeToName_;
};

}  // namespace ordo::usb
