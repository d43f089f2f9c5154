// One control request through the socket transport to an in-process virtual
// hub: a fresh reply socket pair, the frame with its descriptor, the answer.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench_hub.h"
#include "hub/hub_control_codes.h"
#include "hub/hub_interface.h"
#include "hub/hub_request.h"
#include "platform/platform.h"

namespace {

using namespace pelarix;

// The benchmark hub with the library's own connection to it.
class HubUnderTest {
 public:
  HubUnderTest() {
    if (hub_.Started()) OpenHubInterface(&connection_);
  }
  ~HubUnderTest() { platform::HubClose(connection_); }
  HubUnderTest(const HubUnderTest &) = delete;
  HubUnderTest &operator=(const HubUnderTest &) = delete;

  platform::HubConnection Connection() const { return connection_; }

 private:
  bench::BenchHub hub_;
  platform::HubConnection connection_ = nullptr;
};

void BM_GetVersion(benchmark::State &state) {
  HubUnderTest hub;
  if (hub.Connection() == nullptr) {
    state.SkipWithError("no hub");
    return;
  }
  for (auto _ : state) {
    uint32_t version = 0;
    uint32_t returned = 0;
    uint32_t error = HubRequest(hub.Connection(), IOCTL_HUB_GET_VERSION, &version, sizeof version,
                                &version, sizeof version, &returned);
    benchmark::DoNotOptimize(error);
  }
}
BENCHMARK(BM_GetVersion)->UseRealTime();

// A completion record of the given total size (12-byte header and data).
void BM_CompleteItem(benchmark::State &state) {
  HubUnderTest hub;
  if (hub.Connection() == nullptr) {
    state.SkipWithError("no hub");
    return;
  }
  std::vector<uint8_t> record(static_cast<size_t>(state.range(0)), 0);
  uint32_t dataLength = static_cast<uint32_t>(record.size() - 12);
  record[8] = static_cast<uint8_t>(dataLength);
  record[9] = static_cast<uint8_t>(dataLength >> 8);
  record[10] = static_cast<uint8_t>(dataLength >> 16);
  for (auto _ : state) {
    uint32_t returned = 0;
    uint32_t error = HubRequest(hub.Connection(), IOCTL_HUB_COMPLETE_ITEM, record.data(),
                                static_cast<uint32_t>(record.size()), nullptr, 0, &returned);
    benchmark::DoNotOptimize(error);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_CompleteItem)->Arg(552)->Arg(65576)->UseRealTime();

}  // namespace
