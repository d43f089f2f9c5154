// A filter list: the parsed values of filter strings, one list per key, with
// the sequencing that says how a key combines with the other side's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/filter_types.h"
#include "ordo/usb/flt_value.h"

namespace ordo::usb {

// What one entry of a filter string ("key:value" or "key:letter:value") says.
struct FilterEntry {
  FilterType type = FilterTypeNone;  // FilterTypeNone for an unknown key
  FilterSeq seq = FilterSeqNotSet;   // FilterSeqNotSet without a known letter
  std::string value;                 // "error" when its parentheses fail
};

class FilterList {
 public:
  using ValueMap = std::map<FilterType, std::vector<FltValue>>;
  using SequencingMap = std::map<FilterType, FilterSeq>;

  // Reads a filter string: entries split on " ", each checked and stored on
  // its own; a refused entry leaves a line at severity 0.
  void add(const std::string &text);
  // Appends one parsed value per ";" item under type, without any check.
  void addValues(FilterType type, const std::string &text);
  void clear();

  bool hasValues(FilterType type) const;
  // The stored values of a key, or null when the key has none.
  const std::vector<FltValue> *valuesOf(FilterType type) const;
  FilterSeq sequencingOf(FilterType type) const;
  // toString of a copy of the first value of the key; empty without one.
  std::string firstText(FilterType type) const;
  size_t valueCount() const;
  bool allHaveSequencing() const;
  // Appends copies of source's values of type, each under its own type.
  void copyValues(FilterType type, const FilterList &source);

  const ValueMap &filters() const { return filters_; }
  const SequencingMap &sequencing() const { return sequencing_; }

  // Combines two lists key by key under remote's sequencing alone.
  static void merge(const FilterList &local, const FilterList &remote, FilterList &merged);

  // Writes the list to the filter log at severity 3; nothing for a list
  // without values.
  void dump() const;

  // The binary form (the filter blob). encodedSize is 0 for a list without
  // values. encode returns encodedSize and, given a buffer, zeroes that many
  // bytes and writes the record; for a list without values it still writes
  // the counts and pairs, so pass a buffer only when the size is above 0.
  uint32_t encodedSize() const;
  uint32_t encode(uint8_t *buffer) const;
  // Appends a well-formed record to this list. It is given no length and
  // trusts the record; use decodeBounded for anything not known to be whole.
  void decode(const uint8_t *buffer, bool verbose);
  // The same reading, never past buffer + length. A record that runs out
  // keeps what was read whole before the end and answers false.
  bool decodeBounded(const uint8_t *buffer, size_t length, bool verbose);

  // The derivation of key, letter and value from one entry, also used by the
  // agent's gate on a whole filter string.
  static FilterEntry parseEntry(const std::string &entry);
  // Balanced parentheses with a depth of one; empty text fails.
  static bool checkParens(const std::string &value);
  static bool isValidValueText(FilterType type, const std::string &value);
  static bool isValidIdText(const std::string &value);
  static bool isValidSplitText(const std::string &value);

 private:
  ValueMap filters_;
  SequencingMap sequencing_;
};

}  // namespace ordo::usb
