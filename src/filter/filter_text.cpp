#include "ordo/usb/filter_text.h"

#include <cctype>

namespace ordo::usb {
namespace {

constexpr auto npos = std::string::npos;

// Moves hit past separators that stand inside a parenthesis opened behind
// scan. Only the first pair of parentheses behind the token's start counts.
size_t skipParenthesised(const std::string &text, const std::string &separator, size_t scan,
                         size_t hit) {
  while (hit != npos) {
    size_t open = text.find('(', scan);
    size_t close = text.find(')', scan);
    if (open == npos || open > hit) {
      break;  // separator outside
    }
    if (close != npos && close > open && hit > close) {
      break;  // closed pair before it
    }
    if (close != npos && close <= hit) {
      // A stray ")" before the first "(" (as in ")(;") would leave scan,
      // open and close unchanged forever; stepping past it is the only way
      // forward and changes no text that the plain walk could finish.
      scan = close + 1;
      continue;
    }
    size_t after = text.find(')', hit);
    if (after == npos) {
      return text.size();  // the parenthesis never closes
    }
    scan = after + 1;
    hit = text.find(separator, scan);
  }
  return hit;
}

}  // namespace

std::vector<std::string> splitFilterText(const std::string &text, const std::string &separator) {
  std::vector<std::string> tokens;
  if (separator.empty()) {
    // An empty separator would match everywhere without progress.
    if (!text.empty()) {
      tokens.push_back(text);
    }
    return tokens;
  }
  size_t pos = 0;
  for (;;) {
    size_t hit = text.find(separator, pos);
    if (separator != "(") {
      hit = skipParenthesised(text, separator, pos, hit);
    }
    std::string token = text.substr(pos, hit == npos ? npos : hit - pos);
    if (!token.empty()) {
      tokens.push_back(std::move(token));
    }
    if (hit == npos || hit >= text.size()) {
      break;
    }
    pos = hit + separator.size();
  }
  return tokens;
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
