// Any bytes as a registry file: parse them and read back the keys and values
// the settings reader asks for. Reading one key alone (what an open does)
// must give that key exactly as the whole file's parse does.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/posix/registry_file_parser.h"

namespace {

bool SameKey(const pelarix::platform::RegistryFileKey &one,
             const pelarix::platform::RegistryFileKey &other) {
  if (one.size() != other.size()) return false;
  for (auto a = one.begin(), b = other.begin(); a != one.end(); ++a, ++b) {
    if (a->first != b->first || a->second.type != b->second.type ||
        a->second.data != b->second.data) {
      return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using pelarix::platform::RegistryFile;
  const std::string_view bytes(reinterpret_cast<const char *>(data), size);
  const RegistryFile file = RegistryFile::Parse(bytes);
  for (std::string_view path :
       {"Software\\Tessarin, Inc.\\Tessarin Halden\\USB",
        "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\Agent\\USB",
        "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB\\", "a", ""}) {
    const auto alone = RegistryFile::ReadKey(std::string(bytes), path);
    const auto *whole = file.FindKey(path);
    if (alone.has_value() != (whole != nullptr) || (whole != nullptr && !SameKey(*whole, *alone))) {
      __builtin_trap();
    }
    if (const auto *key = whole) {
      for (std::string_view name : {"ExpectedItemLength", "noncdl", "ExcludeVidPid", "a", ""}) {
        if (const auto *value = pelarix::platform::FindRegistryValue(*key, name)) {
          volatile size_t sink = value->data.size() + value->type;
          (void)sink;
        }
      }
    }
  }
  return 0;
}
