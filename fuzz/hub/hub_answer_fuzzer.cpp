// Any bytes as a hub's answer to one request: the library must return an
// error or the answer, and never write past its output buffer.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "raw_hub.h"

namespace {

std::string HubPath() {
  char directory[] = "/tmp/pelarix-fuzz-XXXXXX";
  if (mkdtemp(directory) == nullptr) std::abort();
  return std::string(directory) + "/hub";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::string path = HubPath();
  static pelarix::vhub::RawHub hub(path);
  if (!hub.Listening()) std::abort();
  std::thread server([data, size] { hub.ServeOne({0, 0, 0, 0}, data, size); });
  std::u16string widePath(path.begin(), path.end());
  pelarix::platform::HubConnection connection = nullptr;
  if (pelarix::platform::HubOpen(widePath.c_str(), &connection) == 0) {
    // An exact-size heap buffer, so that a write past it is caught.
    uint32_t capacity = size > 16 ? static_cast<uint32_t>((size - 16) / 2) : 0;
    auto *output = static_cast<uint8_t *>(std::malloc(capacity > 0 ? capacity : 1));
    uint32_t bytes = 0;
    auto result = pelarix::platform::HubControl(connection, 0x2A601D, nullptr, 0, output, capacity,
                                                &bytes, nullptr);
    if (bytes > capacity || (result.error == 1167 && bytes != 0)) std::abort();
    std::free(output);
    pelarix::platform::HubClose(connection);
  }
  server.join();
  return 0;
}
