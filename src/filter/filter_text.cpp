#include "ordo/usb/filter_text.h"

#include <cctype>

#include "filter/filter_text_walk.h"

namespace ordo::usb {

std::vector<std::string> splitFilterText(const std::string &text, const std::string &separator) {
  return FilterTextWalk<std::string>(text, separator).split();
}

bool isBoolText(const std::string &text) {
  return isTrueText(text) || text == "no" || text == "false" || text == "0";
}

bool isTrueText(const std::string &text) {
  return text == "yes" || text == "true" || text == "1";
}

std::string toLowerFilterText(const std::string &text) {
  std::string lower = text;
  for (char &c : lower) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return lower;
}

}  // namespace ordo::usb
