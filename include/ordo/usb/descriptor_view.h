// Bounded little-endian reads of one USB descriptor inside the buffer that
// holds it. Descriptors come from remote machines and their bLength is
// trusted for walking, so every field read is checked against the bytes that
// are really there: a field that lies beyond the buffer reads as 0.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ordo/usb/cxx20.h"

namespace ordo::usb {

class DescriptorView {
 public:
  DescriptorView() = default;
  DescriptorView(const uint8_t *bytes, size_t available) : bytes_(bytes), available_(available) {}

  // The device descriptor arrives without a size; its own bLength is the
  // only bound there is (the filter device record copies exactly that much).
  static DescriptorView OfDeviceDescriptor(const uint8_t *descriptor) {
    return descriptor == nullptr ? DescriptorView() : DescriptorView(descriptor, descriptor[0]);
  }

  const uint8_t *Bytes() const { return bytes_; }
  size_t Available() const { return available_; }
  bool IsNull() const { return bytes_ == nullptr; }

  uint8_t Byte(size_t offset) const { return offset < available_ ? bytes_[offset] : 0; }
  uint16_t Word(size_t offset) const {
    return static_cast<uint16_t>(Byte(offset) | (Byte(offset + 1) << 8));
  }
  uint32_t Triple(size_t offset) const {
    return static_cast<uint32_t>(Byte(offset)) | (static_cast<uint32_t>(Byte(offset + 1)) << 8) |
           (static_cast<uint32_t>(Byte(offset + 2)) << 16);
  }

  uint8_t Length() const { return Byte(0); }
  uint8_t Type() const { return Byte(1); }
  uint8_t Subtype() const { return Byte(2); }

  // How many of `count` bytes starting at `offset` lie inside the buffer.
  size_t Clip(size_t offset, size_t count) const {
    if (offset >= available_) {
      return 0;
    }
    const size_t left = available_ - offset;
    return count < left ? count : left;
  }
  // The bytes at `offset`, or null when the offset lies beyond the buffer.
  const uint8_t *PointerAt(size_t offset) const {
    return offset < available_ ? bytes_ + offset : nullptr;
  }
  DescriptorView From(size_t offset) const {
    return offset < available_ ? DescriptorView(bytes_ + offset, available_ - offset)
                               : DescriptorView();
  }

 private:
  const uint8_t *bytes_ = nullptr;
  size_t available_ = 0;
};

// The walk over one configuration descriptor set: the set, the position of
// the descriptor under the cursor and the end, which stands two bytes before
// the set's last byte so that bLength and bDescriptorType at the cursor are
// always inside. Positions are offsets, so a bLength that overruns the set
// moves the cursor past the end without forming a wild pointer.
class DescriptorCursor {
 public:
  DescriptorCursor(const DescriptorView &set, size_t position)
      : set_(set), position_(position), end_(static_cast<int64_t>(set.Available()) - 2) {}

  bool BeforeEnd() const { return static_cast<int64_t>(position_) < end_; }
  // bLength 0 would hold the cursor in place for ever and bLength 1 leaves no
  // room for the type byte: either ends the walk.
  bool AtTerminator() const { return Current().Length() < 2; }
  size_t Position() const { return position_; }
  DescriptorView Current() const { return set_.From(position_); }
  void Advance(size_t count) { position_ += count; }
  void AdvanceOverCurrent() { Advance(Current().Length()); }

 private:
  DescriptorView set_;
  size_t position_;
  int64_t end_;
};

}  // namespace ordo::usb
