// Plain text helpers of the filter language: its one tokeniser and the
// boolean words.
#pragma once

#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

// Splits text on separator into non-empty tokens. A separator inside a
// parenthesis does not count (unless the separator is "(" itself); only the
// first pair of parentheses behind a token's start is looked at, and nesting
// is not understood. "a;b(c;d);e" on ";" gives "a", "b(c;d)", "e".
std::vector<std::string> splitFilterText(const std::string &text, const std::string &separator);

// Exactly "yes", "true", "1", "no", "false" or "0", with case.
bool isBoolText(const std::string &text);
// Exactly "yes", "true" or "1".
bool isTrueText(const std::string &text);

// tolower of every character, as the managers apply to filter strings.
std::string toLowerFilterText(const std::string &text);

}  // namespace ordo::usb
