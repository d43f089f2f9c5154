#include "ordo/usb/filter_types.h"

namespace ordo::usb {

bool isBooleanFilterType(FilterType type) {
  return type == FilterTypeExalldev ||
         (type >= FilterTypeUsehid && type <= FilterTypeBlockremoteconfig);
}

bool isValidSequencing(FilterType type, FilterSeq seq) {
  switch (type) {
    case FilterTypeExid:
    case FilterTypeInid:
    case FilterTypeExfa:
    case FilterTypeInfa:
    case FilterTypeSpexid:
    case FilterTypeSpid:
      return seq == FilterSeqMerge || seq == FilterSeqOverride;
    case FilterTypeExalldev:
      return seq == FilterSeqNotSet;
    default:
      // blockremoteconfig is boolean but takes no letter: a client reads it
      // from its own side only.
      return type >= FilterTypeUsehid && type <= FilterTypeBlockbootdfilter &&
             (seq == FilterSeqOverride || seq == FilterSeqDefault);
  }
}

}  // namespace ordo::usb
