// Reader of the registry editor's export format. Every read is bounded by the
// line in hand; nothing in the file can make it allocate more than a small
// multiple of the file's own size.
#include "platform/posix/registry_file_parser.h"

#include "platform/platform.h"

namespace pelarix::platform {

namespace {

constexpr std::string_view kHeaderVersion5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeaderVersion4 = "REGEDIT4";

char AsciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string AsciiLowerCopy(std::string_view text) {
  std::string lowered(text);
  for (char &c : lowered) {
    c = AsciiLower(c);
  }
  return lowered;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) {
    return false;
  }
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (AsciiLower(text[i]) != AsciiLower(prefix[i])) {
      return false;
    }
  }
  return true;
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

std::string_view TrimLeft(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) {
    text.remove_prefix(1);
  }
  return text;
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && (IsBlank(text.back()) || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  return text;
}

std::string_view Trim(std::string_view text) {
  return TrimLeft(TrimRight(text));
}

int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  c = AsciiLower(c);
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return -1;
}

// 1 to maxDigits hexadecimal digits and nothing else.
bool ParseHexNumber(std::string_view text, size_t maxDigits, uint32_t *value) {
  if (text.empty() || text.size() > maxDigits) {
    return false;
  }
  uint32_t result = 0;
  for (char c : text) {
    const int digit = HexDigitValue(c);
    if (digit < 0) {
      return false;
    }
    result = (result << 4) | static_cast<uint32_t>(digit);
  }
  *value = result;
  return true;
}

void AppendUtf8(uint32_t codePoint, std::string *out) {
  if (codePoint < 0x80) {
    out->push_back(static_cast<char>(codePoint));
  } else if (codePoint < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
    out->push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
  } else if (codePoint < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
    out->push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
    out->push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
  }
}

// UTF-16LE bytes to UTF-8. A surrogate without its partner becomes U+FFFD,
// as the system's own conversion does; an odd last byte is no character.
std::string Utf16LeToUtf8(const uint8_t *bytes, size_t size) {
  std::string out;
  out.reserve(size / 2);  // one byte per unit for the ASCII that such files hold
  const size_t units = size / 2;
  auto unitAt = [bytes](size_t i) {
    return static_cast<uint32_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  };
  for (size_t i = 0; i < units; ++i) {
    const uint32_t unit = unitAt(i);
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units) {
      const uint32_t next = unitAt(i + 1);
      if (next >= 0xDC00 && next <= 0xDFFF) {
        AppendUtf8(0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), &out);
        ++i;
        continue;
      }
    }
    AppendUtf8((unit >= 0xD800 && unit <= 0xDFFF) ? 0xFFFD : unit, &out);
  }
  return out;
}

bool IsUtf16LeFile(std::string_view bytes) {
  return bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF &&
         static_cast<uint8_t>(bytes[1]) == 0xFE;
}

// The file's UTF-8 text without its byte-order mark, in place.
std::string_view Utf8FileText(std::string_view bytes) {
  if (bytes.size() >= 3 && static_cast<uint8_t>(bytes[0]) == 0xEF &&
      static_cast<uint8_t>(bytes[1]) == 0xBB && static_cast<uint8_t>(bytes[2]) == 0xBF) {
    bytes.remove_prefix(3);
  }
  return bytes;
}

// A physical line without its comment. quoteOpen tells that the line ended
// inside a quoted text, where a final backslash is no continuation.
struct LineBody {
  std::string_view text;
  bool quoteOpen;
};

LineBody StripComment(std::string_view line) {
  bool inQuote = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (inQuote) {
      if (c == '\\' && i + 1 < line.size()) {
        ++i;
      } else if (c == '"') {
        inQuote = false;
      }
    } else if (c == '"') {
      inQuote = true;
    } else if (c == ';') {
      return {line.substr(0, i), false};
    }
  }
  return {line, inQuote};
}

// A quoted text at *pos with the editor's two escapes, \\ and \". Any other
// escape makes the line unreadable rather than guess what was meant.
template <class Text>
bool ReadQuoted(std::string_view line, size_t *pos, Text *out) {
  if (*pos >= line.size() || line[*pos] != '"') {
    return false;
  }
  for (size_t i = *pos + 1; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"') {
      *pos = i + 1;
      return true;
    }
    if (c == '\\') {
      if (i + 1 >= line.size() || (line[i + 1] != '\\' && line[i + 1] != '"')) {
        return false;
      }
      ++i;
      out->push_back(line[i]);
    } else {
      out->push_back(c);
    }
  }
  return false;
}

// "01,02,ff": bytes of one or two hex digits, a trailing comma allowed (the
// editor leaves one before each continuation), nothing at all for no bytes.
bool ParseHexList(std::string_view text, std::vector<uint8_t> *out) {
  text = Trim(text);
  out->reserve(text.size() / 3 + 1);  // "xx," per byte, the last without its comma
  while (!text.empty()) {
    const size_t comma = text.find(',');
    const std::string_view token = Trim(text.substr(0, comma));
    uint32_t byte = 0;
    if (!ParseHexNumber(token, 2, &byte)) {
      return false;
    }
    out->push_back(static_cast<uint8_t>(byte));
    if (comma == std::string_view::npos) {
      break;
    }
    text = TrimLeft(text.substr(comma + 1));
  }
  return true;
}

bool IsTextType(uint32_t type) {
  return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

enum class Hive { kLocalMachine, kOther, kUnknown };

Hive HiveOf(std::string_view name) {
  const std::string lowered = AsciiLowerCopy(name);
  if (lowered == "hkey_local_machine" || lowered == "hklm") {
    return Hive::kLocalMachine;
  }
  for (std::string_view other : {"hkey_current_user", "hkcu", "hkey_classes_root", "hkcr",
                                 "hkey_users", "hku", "hkey_current_config", "hkcc"}) {
    if (lowered == other) {
      return Hive::kOther;
    }
  }
  return Hive::kUnknown;
}

}  // namespace

std::string NormalizeRegistryPath(std::string_view path) {
  while (!path.empty() && path.back() == '\\') {
    path.remove_suffix(1);
  }
  return AsciiLowerCopy(path);
}

// Where the values of the lines being read go. kNone is before the first
// section or after an unreadable one: values there are unreadable too.
struct RegistryFile::Section {
  enum State { kNone, kIgnored, kKey } state = kNone;
  std::string path;
};

RegistryFile RegistryFile::Parse(std::string_view bytes) {
  RegistryFile file;
  file.ParseBytes(std::string(bytes));
  return file;
}

std::optional<RegistryFileKey> RegistryFile::ReadKey(std::string bytes, std::string_view path) {
  RegistryFile file;
  file.only_ = NormalizeRegistryPath(path);
  file.ParseBytes(std::move(bytes));
  const auto it = file.keys_.find(*file.only_);
  if (it != file.keys_.end()) {
    return std::move(it->second);
  }
  if (file.FindKey(*file.only_) != nullptr) {
    return RegistryFileKey();  // a key below it exists
  }
  return std::nullopt;
}

void RegistryFile::ParseBytes(std::string bytes) {
  if (!IsUtf16LeFile(bytes)) {
    ParseText(Utf8FileText(bytes));
    return;
  }
  std::string text =
      Utf16LeToUtf8(reinterpret_cast<const uint8_t *>(bytes.data()) + 2, bytes.size() - 2);
  std::string().swap(bytes);  // the image is not needed once decoded
  ParseText(text);
}

bool RegistryFile::Keeps(const std::string &path) const {
  return !only_ || path == *only_ || IsBelow(path, *only_);
}

bool RegistryFile::KeepsValuesOf(const std::string &path) const {
  return !only_ || path == *only_;
}

void RegistryFile::ParseText(std::string_view text) {
  Section section;
  std::string logical;  // the lines of a value continued with "\\"
  bool continuing = false;
  bool headerSeen = false;
  while (!text.empty() || continuing) {
    const size_t end = text.find('\n');
    const std::string_view physical = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    const LineBody body = StripComment(physical);
    std::string_view piece = TrimRight(body.text);
    if (continuing) {
      piece = TrimLeft(piece);
    }
    if (!piece.empty() && piece.back() == '\\' && !body.quoteOpen) {
      logical.append(piece.substr(0, piece.size() - 1));
      continuing = true;
      continue;
    }
    // A line that stands alone is read where it is, without a copy.
    if (continuing) {
      logical.append(piece);
    }
    const std::string_view line = Trim(continuing ? std::string_view(logical) : piece);
    continuing = false;
    if (!headerSeen) {
      if (!line.empty()) {
        headerSeen = true;
        hasHeader_ = line == kHeaderVersion5 || line == kHeaderVersion4;
        unicodeFile_ = line == kHeaderVersion5;
        if (!hasHeader_) {
          return;
        }
      }
    } else {
      ParseLogicalLine(line, &section);
    }
    std::string().swap(logical);  // a long value's text goes as soon as it is read
  }
}

void RegistryFile::ParseLogicalLine(std::string_view line, Section *section) {
  if (line.empty()) {
    return;
  }
  if (only_ && section->state == Section::kIgnored && line.front() != '[') {
    return;  // a value of a key that is not asked for: not even read
  }
  bool readable = false;
  if (line.front() == '[') {
    readable = OpenSection(line, section);
  } else if ((line.front() == '"' || line.front() == '@') && section->state != Section::kNone) {
    readable = ParseValueLine(line, *section);
  }
  if (!readable) {
    ++malformedLines_;
  }
}

bool RegistryFile::OpenSection(std::string_view line, Section *section) {
  section->state = Section::kNone;
  if (line.size() < 2 || line.back() != ']') {
    return false;
  }
  std::string_view inner = line.substr(1, line.size() - 2);
  const bool deletion = !inner.empty() && inner.front() == '-';
  if (deletion) {
    inner.remove_prefix(1);
  }
  const size_t slash = inner.find('\\');
  const Hive hive = HiveOf(inner.substr(0, slash));
  if (hive == Hive::kUnknown) {
    return false;
  }
  section->state = Section::kIgnored;
  if (hive != Hive::kLocalMachine) {
    return true;
  }
  const std::string path = NormalizeRegistryPath(
      slash == std::string_view::npos ? std::string_view() : inner.substr(slash + 1));
  if (deletion) {
    DeleteKeyTree(path);
    return true;
  }
  if (!Keeps(path)) {
    return true;  // read as an ignored hive: its lines are checked, not kept
  }
  keys_.try_emplace(path);
  section->state = KeepsValuesOf(path) ? Section::kKey : Section::kIgnored;
  section->path = path;
  return true;
}

bool RegistryFile::ParseValueLine(std::string_view line, const Section &section) {
  size_t pos = 0;
  std::string name;
  if (line.front() == '@') {
    pos = 1;
  } else if (!ReadQuoted(line, &pos, &name)) {
    return false;
  }
  std::string_view rest = TrimLeft(line.substr(pos));
  if (rest.empty() || rest.front() != '=') {
    return false;
  }
  rest = TrimLeft(rest.substr(1));

  RegistryFileValue value;
  bool removal = false;
  if (!rest.empty() && rest.front() == '"') {
    size_t end = 0;
    value.data.reserve(rest.size());  // the text and its NUL fit where its quotes stood
    if (!ReadQuoted(rest, &end, &value.data) || !Trim(rest.substr(end)).empty()) {
      return false;
    }
    value.type = kRegSz;
    value.data.push_back(0);
  } else if (rest == "-") {
    removal = true;
  } else if (StartsWithNoCase(rest, "dword:")) {
    uint32_t number = 0;
    if (!ParseHexNumber(rest.substr(6), 8, &number)) {
      return false;
    }
    value.type = kRegDword;
    for (int shift = 0; shift < 32; shift += 8) {
      value.data.push_back(static_cast<uint8_t>(number >> shift));
    }
  } else if (StartsWithNoCase(rest, "hex:")) {
    value.type = kRegBinary;
    if (!ParseHexList(rest.substr(4), &value.data)) {
      return false;
    }
  } else if (StartsWithNoCase(rest, "hex(")) {
    const size_t close = rest.find("):");
    if (close == std::string_view::npos ||
        !ParseHexNumber(rest.substr(4, close - 4), 8, &value.type) ||
        !ParseHexList(rest.substr(close + 2), &value.data)) {
      return false;
    }
    if (unicodeFile_ && IsTextType(value.type)) {
      const std::string text = Utf16LeToUtf8(value.data.data(), value.data.size());
      value.data = std::vector<uint8_t>(text.begin(), text.end());
    }
  } else {
    return false;
  }

  if (section.state != Section::kKey) {
    return true;
  }
  RegistryFileKey &key = keys_[section.path];
  if (removal) {
    key.erase(AsciiLowerCopy(name));
  } else {
    key[AsciiLowerCopy(name)] = std::move(value);
  }
  return true;
}

// The keys below a path stand together in the ordered map, right behind
// path + "\\", so a tree goes in one range.
std::map<std::string, RegistryFileKey>::const_iterator RegistryFile::FirstKeyBelow(
    const std::string &path) const {
  return keys_.lower_bound(path + '\\');
}

bool RegistryFile::IsBelow(const std::string &key, const std::string &path) {
  return key.size() > path.size() && key[path.size()] == '\\' &&
         key.compare(0, path.size(), path) == 0;
}

void RegistryFile::DeleteKeyTree(const std::string &path) {
  keys_.erase(path);
  auto last = FirstKeyBelow(path);
  while (last != keys_.end() && IsBelow(last->first, path)) {
    ++last;
  }
  keys_.erase(FirstKeyBelow(path), last);
}

const RegistryFileValue *FindRegistryValue(const RegistryFileKey &key, std::string_view name) {
  const auto it = key.find(AsciiLowerCopy(name));
  return it == key.end() ? nullptr : &it->second;
}

const RegistryFileKey *RegistryFile::FindKey(std::string_view path) const {
  // Importing a key creates the keys above it: they exist, with no values,
  // as long as a key below them does.
  static const RegistryFileKey kKeyWithoutValues;
  const std::string normalized = NormalizeRegistryPath(path);
  const auto it = keys_.find(normalized);
  if (it != keys_.end()) {
    return &it->second;
  }
  const auto below = FirstKeyBelow(normalized);
  return below != keys_.end() && IsBelow(below->first, normalized) ? &kKeyWithoutValues : nullptr;
}

}  // namespace pelarix::platform
