// The registry editor's export format, read into keys and values.
//
// A Linux agent keeps its registry in one file that the Windows registry
// editor could import, so an administrator configures both platforms with the
// same file. This parser turns the file's bytes into the keys of
// HKEY_LOCAL_MACHINE it describes; it never fails as a whole: a line it cannot
// read is counted and skipped, and everything else in the file still counts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pelarix::platform {

// One value as a query hands it out: text types already narrowed to UTF-8
// with their NULs, every other type as the file's raw bytes.
struct RegistryFileValue {
  uint32_t type = 0;
  std::vector<uint8_t> data;
};

// Values of one key, by lower-cased name; the default value ("@") is "".
using RegistryFileKey = std::map<std::string, RegistryFileValue>;

class RegistryFile {
 public:
  // Reads a whole file image: UTF-8 (with or without a byte-order mark) or
  // UTF-16LE with its byte-order mark. A first line that is not one of the
  // two headers leaves the file without keys, as the registry editor refuses
  // such a file.
  static RegistryFile Parse(std::string_view bytes);

  // The values of the key at path, or nothing when the file has no such key
  // (FindKey's rule). Reads the file image it is given, which it frees as
  // soon as it is decoded, and keeps only the values of that one key, so the
  // memory it takes stays within twice the file's size.
  static std::optional<RegistryFileKey> ReadKey(std::string bytes, std::string_view path);

  // The key at a path below HKEY_LOCAL_MACHINE, compared without regard to
  // ASCII case and to trailing backslashes; null if no section names it or a
  // key below it.
  const RegistryFileKey *FindKey(std::string_view path) const;

  bool HasHeader() const { return hasHeader_; }
  // Lines the parser skipped as unreadable, for tests and diagnostics.
  size_t MalformedLines() const { return malformedLines_; }

 private:
  struct Section;
  void ParseBytes(std::string bytes);
  void ParseText(std::string_view text);
  void ParseLogicalLine(std::string_view line, Section *section);
  bool OpenSection(std::string_view line, Section *section);
  bool ParseValueLine(std::string_view line, const Section &section);
  void DeleteKeyTree(const std::string &path);
  std::map<std::string, RegistryFileKey>::const_iterator FirstKeyBelow(
      const std::string &path) const;
  static bool IsBelow(const std::string &key, const std::string &path);

  // Keys outside the subtree of only_ are not kept, nor values of keys other
  // than only_ itself; unset, every key is kept with its values.
  bool Keeps(const std::string &path) const;
  bool KeepsValuesOf(const std::string &path) const;

  std::map<std::string, RegistryFileKey> keys_;
  std::optional<std::string> only_;
  bool hasHeader_ = false;
  bool unicodeFile_ = false;  // version 5.00: hex(1), hex(2), hex(7) hold UTF-16LE
  size_t malformedLines_ = 0;
};

// A value of a key by its name, compared without regard to ASCII case; null
// if the key has no such value. "" is the default value.
const RegistryFileValue *FindRegistryValue(const RegistryFileKey &key, std::string_view name);

// Path as the key map stores it: ASCII lower case, no trailing backslashes.
std::string NormalizeRegistryPath(std::string_view path);

}  // namespace pelarix::platform
