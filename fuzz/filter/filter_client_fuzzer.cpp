// The client manager's whole decision on arbitrary input: the client's own
// filter strings, the agent's blob, and the device's descriptors, through
// the merge, phases 1(a) to 3 and the result's readers.
//
// Input: a 6-byte header, then the three parts back to back.
//   byte 0      flags: bit 0 failsafe, bit 1 a path word, bit 2 no device
//               descriptor, bit 3 no configuration buffer, bits 4-5 the
//               configuration count (3 means "as the device declares")
//   bytes 1-2   length of the client's strings (one per line)
//   bytes 3-4   length of the agent's blob
//   byte 5      the path word's low byte (its depth and bus)
// then the strings, the blob, and the device descriptor (its own byte 0
// says how long it is) followed by the configuration sets. The manager's
// interface carries no lengths for the descriptors, so they are laid out as
// a caller must hand them over: the device descriptor bLength bytes long and
// each set wTotalLength bytes long, zero-filled where the input ends first.
#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ordo/usb/dev_filter_mgr_client.h"
#include "ordo/usb/filter_log.h"

namespace {

using ordo::usb::DevFilterMgrClient;
using ordo::usb::DevFilterResult;

constexpr size_t kHeader = 6;
constexpr int32_t kMaxSets = 3;

// Formats every line as a real hook would, so format and arguments meet.
void FormattingHook(uint32_t /*level*/, const char *format, va_list args) {
  char line[8192];
  std::vsnprintf(line, sizeof line, format, args);
}

class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  std::vector<uint8_t> Take(size_t length) {
    const size_t taken = std::min(length, size_ - at_);
    std::vector<uint8_t> bytes(data_ + at_, data_ + at_ + taken);
    at_ += taken;
    return bytes;
  }
  // `length` bytes, zero-filled past the end of the input.
  std::vector<uint8_t> TakePadded(size_t length) {
    std::vector<uint8_t> bytes = Take(length);
    bytes.resize(length, 0);
    return bytes;
  }
  uint8_t Peek() const { return at_ < size_ ? data_[at_] : 0; }
  bool Done() const { return at_ >= size_; }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t at_ = 0;
};

void AddStrings(DevFilterMgrClient &client, const std::vector<uint8_t> &text) {
  std::string line;
  for (const uint8_t c : text) {
    if (c == '\n') {
      client.AddFilterRule(line, true);
      line.clear();
    } else {
      line += static_cast<char>(c);
    }
  }
  client.AddFilterRule(line, true);
}

// The sets where Load's walk will look for them: each at the place that
// the wTotalLength fields before it give, with at least the 4 bytes that
// hold its own wTotalLength and as many as that says.
std::vector<uint8_t> LayOutSets(Input &in, int32_t count) {
  std::vector<uint8_t> sets;
  const auto growTo = [&](size_t length) {
    if (sets.size() < length) {
      const std::vector<uint8_t> more = in.TakePadded(length - sets.size());
      sets.insert(sets.end(), more.begin(), more.end());
    }
  };
  size_t at = 0;
  for (int32_t n = 0; n < count; ++n) {
    growTo(at + 4);
    const size_t total = sets[at + 2] | (sets[at + 3] << 8);
    growTo(at + std::max<size_t>(total, 4));
    at += total;
  }
  return sets;
}

void CheckResult(DevFilterResult &result) {
  const std::vector<int32_t> allowed = result.GetAllowedInterfaces();
  if (result.IsSplit() &&
      (allowed.empty() || static_cast<int32_t>(allowed.size()) >= result.GetInterfaceCount())) {
    __builtin_trap();
  }
  result.GetAllowedInterfacesString();
  result.GetAllowedFamily();
  result.HasAudioOutAllowed();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < kHeader) return 0;
  ordo::usb::SetFilterLogHook(FormattingHook, 0);
  const uint8_t flags = data[0];
  const size_t stringsLength = data[1] | (data[2] << 8);
  const size_t blobLength = data[3] | (data[4] << 8);
  const uint32_t pathWord = data[5] | 0x4300u;
  Input in(data + kHeader, size - kHeader);

  DevFilterMgrClient client;
  client.SetAllowDevDescFailsafe((flags & 1) != 0);
  AddStrings(client, in.Take(stringsLength));
  const std::vector<uint8_t> blob = in.Take(blobLength);
  client.ReadFilterBlob(blob.data(), blob.size(), false);

  std::vector<uint8_t> device;
  if ((flags & 4) == 0 && !in.Done()) {
    device = in.TakePadded(std::max<size_t>(in.Peek(), 1));
  }
  int32_t count = (flags >> 4) & 3;
  if (count == 3) {
    // As many as the device declares, which Load reads from its copy.
    count = device.size() >= 18 ? std::min<int32_t>(device[17], kMaxSets) : 0;
  }
  const std::vector<uint8_t> sets =
      (flags & 8) == 0 ? LayOutSets(in, count) : std::vector<uint8_t>{};
  const int32_t passedCount =
      ((flags >> 4) & 3) == 3 && device.size() >= 18 && device[17] <= kMaxSets ? -1 : count;

  const uint32_t *path = (flags & 2) != 0 ? &pathWord : nullptr;
  for (int round = 0; round < 2; ++round) {
    DevFilterResult result;
    client.EvaluateDevice(device.empty() ? nullptr : device.data(),
                          sets.empty() ? nullptr : sets.data(), passedCount, path, result);
    CheckResult(result);
  }
  client.SetHint(ordo::usb::FilterTypeAllowautodsplit, true);
  DevFilterResult hinted;
  client.EvaluateDevice(device.empty() ? nullptr : device.data(),
                        sets.empty() ? nullptr : sets.data(), passedCount, path, hinted);
  CheckResult(hinted);
  client.TestSplitRules("vid-1234_pid-5678", "hid");
  client.PrintFilterLists();
  return 0;
}
