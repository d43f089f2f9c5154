// The numbers of the filter language: the 23 keys (FilterType), the
// sequencing values (FilterSeq) and the tri-state answer of an evaluation.
// The key numbers travel in the filter blob and are compared as numbers
// throughout the engine, so their order never changes.
#pragma once

#include <cstdint>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

using FilterType = uint32_t;

inline constexpr FilterType FilterTypeExpt = 0;
inline constexpr FilterType FilterTypeInpt = 1;
inline constexpr FilterType FilterTypeExid = 2;
inline constexpr FilterType FilterTypeInid = 3;
inline constexpr FilterType FilterTypeExfa = 4;
inline constexpr FilterType FilterTypeInfa = 5;
inline constexpr FilterType FilterTypeExalldev = 6;
inline constexpr FilterType FilterTypeExintf = 7;
inline constexpr FilterType FilterTypeExingp = 8;
inline constexpr FilterType FilterTypeSpexid = 9;
inline constexpr FilterType FilterTypeSpid = 10;
inline constexpr FilterType FilterTypeUsehid = 11;
inline constexpr FilterType FilterTypeUsehidboot = 12;
inline constexpr FilterType FilterTypeUsekeybmouse = 13;
inline constexpr FilterType FilterTypeUsesc = 14;
inline constexpr FilterType FilterTypeUseaout = 15;
inline constexpr FilterType FilterTypeUseain = 16;
inline constexpr FilterType FilterTypeUsevideo = 17;
inline constexpr FilterType FilterTypeUsenic = 18;
inline constexpr FilterType FilterTypeBlockdsplit = 19;
inline constexpr FilterType FilterTypeAllowautodsplit = 20;
inline constexpr FilterType FilterTypeBlockbootdfilter = 21;
inline constexpr FilterType FilterTypeBlockremoteconfig = 22;
// The answer for an unknown key and the mark of a value that failed to parse.
inline constexpr FilterType FilterTypeNone = 23;
inline constexpr FilterType FilterTypeCount = 23;

using FilterSeq = uint32_t;

inline constexpr FilterSeq FilterSeqMerge = 0;
inline constexpr FilterSeq FilterSeqOverride = 1;
inline constexpr FilterSeq FilterSeqDefault = 2;
inline constexpr FilterSeq FilterSeqNotSet = 3;

// Answers of FilterSettings::evaluate and its relatives: a hit on the first
// (exclude) key of the range, a hit on a later (include) key, or no hit.
inline constexpr int32_t FilterEvalExcluded = 1;
inline constexpr int32_t FilterEvalIncluded = 0;
inline constexpr int32_t FilterEvalNoHit = 2;

// True for type 6 (exalldev) and 11 to 22: the keys read by getBool.
bool isBooleanFilterType(FilterType type);

// True exactly for the sequencing values that a key accepts in a filter
// string; keys without any (expt, inpt, exintf, exingp, blockremoteconfig)
// accept none, exalldev accepts only FilterSeqNotSet.
bool isValidSequencing(FilterType type, FilterSeq seq);

}  // namespace ordo::usb
