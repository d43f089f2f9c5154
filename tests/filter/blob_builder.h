// Builds filter blobs byte by byte for the tests of the binary form.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ordo/usb/flt_value.h"

namespace ordo::usb::testing {

class BlobBuilder {
 public:
  BlobBuilder &number(uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return *this;
  }
  BlobBuilder &pair(uint32_t type, uint32_t seq) { return number(type).number(seq); }
  BlobBuilder &text(const std::string &text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  BlobBuilder &sized(const std::string &value) { return number(value.size()).text(value); }
  // A value record without rules, with its ";" behind it.
  BlobBuilder &value(uint32_t type, const std::vector<FltDetail> &details) {
    number(type).number(details.size()).number(0);
    for (const FltDetail &detail : details) text(detail.name + ":" + detail.value + ",");
    return text(";");
  }

  const uint8_t *data() const { return bytes_.data(); }
  size_t size() const { return bytes_.size(); }
  const std::vector<uint8_t> &bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace ordo::usb::testing
