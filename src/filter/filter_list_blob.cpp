// The binary form of a FilterList, the filter blob: 32-bit little-endian
// numbers and raw bytes, with nothing between fields.
#include <cstring>
#include <limits>

#include "ordo/usb/filter_dictionary.h"
#include "ordo/usb/filter_list.h"
#include "ordo/usb/filter_log.h"

namespace ordo::usb {
namespace {

// How far a detail's ":" and "," are looked for: name, ":" and value of one
// detail fit in 255 bytes.
constexpr size_t kDetailSearchLimit = 256;

size_t ruleSize(const FltSplitRule &rule) {
  size_t size = 4 + rule.id.size() + 4 + 4;
  for (const std::string &family : rule.families) {
    size += 4 + family.size();
  }
  for (const std::string &entry : rule.interfaces) {
    size += 4 + entry.size();
  }
  return size;
}

size_t valueSize(const FltValue &value) {
  size_t size = 4 + 4 + 4;
  for (const FltDetail &detail : value.details()) {
    size += detail.name.size() + detail.value.size() + 2;
  }
  for (const FltSplitRule &rule : value.splitRules()) {
    size += ruleSize(rule);
  }
  return size + 1;  // the ";" behind the record
}

class BlobWriter {
 public:
  explicit BlobWriter(uint8_t *buffer) : out_(buffer) {}
  void number(size_t value) {
    auto v = static_cast<uint32_t>(value);
    for (int i = 0; i < 4; ++i) {
      *out_++ = static_cast<uint8_t>(v >> (8 * i));
    }
  }
  void bytes(const std::string &text) {
    std::memcpy(out_, text.data(), text.size());
    out_ += text.size();
  }
  void byte(char c) { *out_++ = static_cast<uint8_t>(c); }
  void sizedText(const std::string &text) {
    number(text.size());
    bytes(text);
  }

 private:
  uint8_t *out_;
};

void writeValue(BlobWriter &out, const FltValue &value) {
  out.number(value.getType());
  out.number(value.details().size());
  out.number(value.splitRules().size());
  for (const FltDetail &detail : value.details()) {
    out.bytes(detail.name);
    out.byte(':');
    out.bytes(detail.value);
    out.byte(',');
  }
  for (const FltSplitRule &rule : value.splitRules()) {
    out.sizedText(rule.id);
    out.number(rule.families.size());
    out.number(rule.interfaces.size());
    for (const std::string &family : rule.families) {
      out.sizedText(family);
    }
    for (const std::string &entry : rule.interfaces) {
      out.sizedText(entry);
    }
  }
  out.byte(';');
}

// Every read is bounded by what is left of the buffer. A read that does not
// fit fails and leaves the reader failed, so the caller stops at once.
class BlobReader {
 public:
  BlobReader(const uint8_t *data, size_t size) : data_(data), size_(size) {}

  bool ok() const { return ok_; }
  size_t left() const { return pos_ >= size_ ? 0 : size_ - pos_; }

  bool number(uint32_t &value) {
    if (!ok_ || left() < 4) {
      return ok_ = false;
    }
    value = 0;
    for (int i = 0; i < 4; ++i) {
      value |= static_cast<uint32_t>(data_[pos_ + i]) << (8 * i);
    }
    pos_ += 4;
    return true;
  }
  // A string of a given length that ends early at a zero byte; the read
  // position moves by the whole length.
  bool sizedText(std::string &text) {
    uint32_t length = 0;
    if (!number(length)) {
      return false;
    }
    if (left() < length) {
      return ok_ = false;
    }
    const auto *start = reinterpret_cast<const char *>(data_ + pos_);
    text.assign(start, strnlen(start, length));
    pos_ += length;
    return true;
  }
  // Offset from the read position of c within the next `limit` bytes that
  // are there, or npos.
  size_t find(char c, size_t limit) const {
    size_t span = std::min(limit, left());
    const void *hit = span == 0 ? nullptr : std::memchr(data_ + pos_, c, span);
    return hit == nullptr ? std::string::npos
                          : static_cast<size_t>(static_cast<const uint8_t *>(hit) - (data_ + pos_));
  }
  std::string text(size_t offset, size_t length) const {
    return std::string(reinterpret_cast<const char *>(data_ + pos_ + offset), length);
  }
  void skip(size_t count) { pos_ += count; }
  bool fail() { return ok_ = false; }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t pos_ = 0;
  bool ok_ = true;
};

class BlobDecoder {
 public:
  BlobDecoder(BlobReader &in, bool verbose)
      : in_(in), verbose_(verbose), dictionary_(FilterDictionary::getInstance()) {}

  void say(const std::string &text) const {
    if (verbose_) {
      DevFltrLog(2, text);
    }
  }

  bool readDetails(uint32_t count, FltValue &value) {
    for (uint32_t i = 0; i < count; ++i) {
      size_t colon = in_.find(':', kDetailSearchLimit);
      size_t comma = in_.find(',', kDetailSearchLimit);
      bool missing = colon == std::string::npos || comma == std::string::npos;
      // Not found in what is left of a buffer shorter than the search: the
      // record ran out, and a trusting read would go past its end.
      if (missing && in_.left() < kDetailSearchLimit) {
        return in_.fail();
      }
      // A "," before the ":" leaves no value to take; it ends the details as
      // a missing separator does.
      if (missing || comma < colon) {
        break;
      }
      FltDetail detail{in_.text(0, colon), in_.text(colon + 1, comma - colon - 1)};
      in_.skip(comma + 1);
      say("Adding Filter Details [" + std::to_string(i) + "]");
      say("Name: " + detail.name);
      say("Value: " + detail.value);
      value.addDetail(detail, false);
    }
    return in_.ok();
  }

  bool readRule(FltSplitRule &rule) {
    uint32_t familyCount = 0;
    uint32_t interfaceCount = 0;
    if (!in_.sizedText(rule.id) || !in_.number(familyCount) || !in_.number(interfaceCount)) {
      return false;
    }
    std::string entry;
    for (uint32_t i = 0; i < familyCount; ++i) {
      if (!in_.sizedText(entry)) {
        return false;
      }
      rule.families.push_back(entry);
    }
    for (uint32_t i = 0; i < interfaceCount; ++i) {
      if (!in_.sizedText(entry)) {
        return false;
      }
      rule.interfaces.push_back(entry);
    }
    return true;
  }

  bool readValue(FltValue &value) {
    uint32_t type = 0;
    uint32_t detailCount = 0;
    uint32_t ruleCount = 0;
    if (!in_.number(type)) {
      return false;
    }
    value.setType(type);
    say("Filter type: " + dictionary_->nameOf(type));
    if (!in_.number(detailCount) || !in_.number(ruleCount)) {
      return false;
    }
    say("Filter Descriptions found: " + std::to_string(detailCount));
    if (!readDetails(detailCount, value)) {
      return false;
    }
    say("Filter Split rules found: " + std::to_string(ruleCount));
    for (uint32_t i = 0; i < ruleCount; ++i) {
      say("Split rule [" + std::to_string(i) + "]");
      FltSplitRule rule;
      if (!readRule(rule)) {
        return false;
      }
      value.addSplitRule(rule);
      say(rule.text());
    }
    in_.skip(1);  // the ";" behind the record, not looked at
    return true;
  }

  bool readInto(FilterList::ValueMap &filters, FilterList::SequencingMap &sequencing) {
    uint32_t count = 0;
    if (!in_.number(count)) {
      return false;
    }
    say("Filter Sequencing total count: " + std::to_string(count));
    for (uint32_t i = 0; i < count; ++i) {
      uint32_t type = 0;
      uint32_t seq = 0;
      if (!in_.number(type) || !in_.number(seq)) {
        return false;
      }
      sequencing[type] = seq;
      say("Sequencing Info [" + std::to_string(i) + "] : " + dictionary_->nameOf(type) + " = " +
          dictionary_->seqName(seq));
    }
    if (!in_.number(count)) {
      return false;
    }
    say("Filter total count: " + std::to_string(count));
    for (uint32_t i = 0; i < count; ++i) {
      FltValue value;
      if (!readValue(value)) {
        return false;
      }
      // Only a key that the sending side sequenced is taken; exalldev is the
      // one key honoured without.
      FilterType type = value.getType();
      if (sequencing.count(type) != 0 || type == FilterTypeExalldev) {
        filters[type].push_back(std::move(value));
        say("Filter # " + std::to_string(i));
      } else {
        say("IGNORED Filter # " + std::to_string(i));
      }
    }
    return true;
  }

 private:
  BlobReader &in_;
  bool verbose_;
  std::shared_ptr<const FilterDictionary> dictionary_;
};

}  // namespace

uint32_t FilterList::encodedSize() const {
  if (valueCount() == 0) {
    return 0;
  }
  size_t size = 4 + 8 * sequencing_.size() + 4;
  for (const auto &[type, values] : filters_) {
    for (const FltValue &value : values) {
      size += valueSize(value);
    }
  }
  return static_cast<uint32_t>(size);
}

uint32_t FilterList::encode(uint8_t *buffer) const {
  uint32_t size = encodedSize();
  if (buffer == nullptr) {
    return size;
  }
  std::memset(buffer, 0, size);
  BlobWriter out(buffer);
  out.number(sequencing_.size());
  for (const auto &[type, seq] : sequencing_) {
    out.number(type);
    out.number(seq);
  }
  out.number(valueCount());
  for (const auto &[type, values] : filters_) {
    for (const FltValue &value : values) {
      writeValue(out, value);
    }
  }
  return size;
}

void FilterList::decode(const uint8_t *buffer, bool verbose) {
  decodeBounded(buffer, std::numeric_limits<size_t>::max(), verbose);
}

bool FilterList::decodeBounded(const uint8_t *buffer, size_t length, bool verbose) {
  BlobReader in(buffer, buffer == nullptr ? 0 : length);
  BlobDecoder decoder(in, verbose);
  return decoder.readInto(filters_, sequencing_);
}

}  // namespace ordo::usb
