// One party's filter settings: default preferences and a filter list, with
// the queries that the decision phases ask.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/filter_list.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {

class FilterSettings {
 public:
  using DefaultsMap = std::map<FilterType, std::string>;

  // The full table has every boolean key; the short one only exalldev.
  void setDefaultPreferences(bool full);
  const DefaultsMap &defaults() const { return defaults_; }

  FilterList &list() { return list_; }
  const FilterList &list() const { return list_; }

  // The first valid value of a boolean key, else its default; a key absent
  // from both reads true.
  bool getBool(FilterType type) const;
  void dumpDefaults() const;
  void addFilterRule(const std::string &text);
  void addBoolean(FilterType type, bool on);
  // Empties the list; the defaults stay.
  void clear();
  // merged takes local's defaults and the lists merged under remote's
  // sequencing.
  static void merge(const FilterSettings &local, const FilterSettings &remote,
                    FilterSettings &merged);

  // FilterEvalExcluded for a hit on firstType, FilterEvalIncluded for a hit
  // on a later type of the range, FilterEvalNoHit otherwise.
  int32_t evaluate(const std::string &text, FilterType firstType, FilterType lastType) const;
  int32_t evaluateId(const std::string &text) const;
  int32_t evaluateFamily(const std::string &text) const;
  // Every name of the family asked with evaluateFamily: one excluded name
  // outweighs any number of included ones. On a hit, names (if not null)
  // gets the names that hit the deciding key.
  int32_t evaluateFamilySet(DevFamily family, std::vector<std::string> *names) const;
  int32_t evaluatePath(const std::string &text) const;
  bool isSplitExcluded(const std::string &text) const;

 private:
  DefaultsMap defaults_;
  FilterList list_;
};

}  // namespace ordo::usb
