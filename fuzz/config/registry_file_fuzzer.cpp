// Any bytes as a registry file: parse them and read back the keys and values
// the settings reader asks for.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/posix/registry_file_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using pelarix::platform::RegistryFile;
  const RegistryFile file =
      RegistryFile::Parse(std::string_view(reinterpret_cast<const char *>(data), size));
  for (std::string_view path :
       {"Software\\Tessarin, Inc.\\Tessarin Halden\\USB",
        "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\Agent\\USB",
        "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB\\", "a", ""}) {
    if (const auto *key = file.FindKey(path)) {
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
