// The walk of splitFilterText, over any text that can find a character or a
// string from a position and cut a piece out (std::string does), so that a
// test can count how much of the text the walk reads.
//
// The walk asks, again and again, for the first "(" and the first ")" at or
// behind a position that only moves forward. Searching the rest of the text
// anew for each question reads the text once per token when the character is
// rare or absent: quadratic in the text's length. Each search here remembers
// its last answer, which stays right as long as the position has not passed
// it, so every character is read a bounded number of times.
#pragma once

#include <string>
#include <vector>

namespace ordo::usb {

// The first place of one character at or behind a position, remembering the
// last answer.
template <class Text>
class NextCharacter {
 public:
  NextCharacter(const Text &text, char wanted) : text_(text), wanted_(wanted) {}

  size_t at(size_t from) {
    // No wanted character lies in [from_, found_): the answer stands for any
    // position in that range.
    if (!known_ || from < from_ || (found_ != Text::npos && found_ < from)) {
      found_ = text_.find(wanted_, from);
    }
    known_ = true;
    from_ = from;
    return found_;
  }

 private:
  const Text &text_;
  char wanted_;
  bool known_ = false;
  size_t from_ = 0;
  size_t found_ = Text::npos;
};

template <class Text>
class FilterTextWalk {
 public:
  FilterTextWalk(const Text &text, const std::string &separator)
      : text_(text), separator_(separator), open_(text, '('), close_(text, ')') {}

  std::vector<std::string> split() {
    std::vector<std::string> tokens;
    if (separator_.empty()) {
      // An empty separator would match everywhere without progress.
      if (text_.size() > 0) {
        tokens.push_back(text_.substr(0, Text::npos));
      }
      return tokens;
    }
    size_t pos = 0;
    for (;;) {
      size_t hit = text_.find(separator_, pos);
      if (separator_ != "(") {
        hit = skipParenthesised(pos, hit);
      }
      std::string token = text_.substr(pos, hit == Text::npos ? Text::npos : hit - pos);
      if (!token.empty()) {
        tokens.push_back(std::move(token));
      }
      if (hit == Text::npos || hit >= text_.size()) {
        break;
      }
      pos = hit + separator_.size();
    }
    return tokens;
  }

 private:
  // Moves hit past separators that stand inside a parenthesis opened behind
  // scan. Only the first pair of parentheses behind the token's start counts.
  size_t skipParenthesised(size_t scan, size_t hit) {
    while (hit != Text::npos) {
      size_t open = open_.at(scan);
      size_t close = close_.at(scan);
      if (open == Text::npos || open > hit) {
        break;  // separator outside
      }
      if (close != Text::npos && close > open && hit > close) {
        break;  // closed pair before it
      }
      if (close != Text::npos && close <= hit) {
        // A stray ")" before the first "(" (as in ")(;") would leave scan,
        // open and close unchanged forever; stepping past it is the only way
        // forward and changes no text that the plain walk could finish.
        scan = close + 1;
        continue;
      }
      size_t after = close_.at(hit);
      if (after == Text::npos) {
        return text_.size();  // the parenthesis never closes
      }
      scan = after + 1;
      hit = text_.find(separator_, scan);
    }
    return hit;
  }

  const Text &text_;
  const std::string &separator_;
  NextCharacter<Text> open_;
  NextCharacter<Text> close_;
};

}  // namespace ordo::usb
