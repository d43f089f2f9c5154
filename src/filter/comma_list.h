// The lists that the filter's log lines and answers show: items joined with
// "," and no blank, numbers in decimal.
#pragma once

#include <string>

namespace ordo::usb {

inline std::string CommaListItem(const std::string &text) {
  return text;
}

template <typename Number>
std::string CommaListItem(Number number) {
  return std::to_string(number);
}

template <typename Items>
std::string CommaList(const Items &items) {
  std::string text;
  bool first = true;
  for (const auto &item : items) {
    if (!first) {
      text += ",";
    }
    first = false;
    text += CommaListItem(item);
  }
  return text;
}

}  // namespace ordo::usb
