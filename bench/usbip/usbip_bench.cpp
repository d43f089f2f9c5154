// MB/s of bulk reads through the USB/IP path, all in this process: a
// USB/IP client (the tests' host) reads the demo's flash drive with
// READ(10) over bulk-only transport (the command, the data and the status:
// three CMD_SUBMITs, each an item of the virtual hub that the demo's
// service pumps to its simulated device and completes), through the
// USB/IP server on loopback TCP.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "descriptor_set.h"
#include "usbip_client.h"
#include "usbip_path.h"

namespace {

using namespace pelarix;

constexpr uint32_t kBlockBytes = 512;
constexpr uint8_t kRead10 = 0x28;

// The path is made once (the library is initialised once per process) and
// ended at the process's exit.
struct Disk {
  usbip::UsbipPath path;
  usbip::UsbipClient client;
  uint8_t in = 0;
  uint8_t out = 0;
  uint32_t tag = 0;
  std::string error;
};

Disk *ImportedDisk() {
  static const std::unique_ptr<Disk> disk = [] {
    auto made = std::make_unique<Disk>();
    if (!made->path.Start(PELARIX_DEMO_REGISTRY, PELARIX_REALDESC_DIR, {"flash_generic_1043_8012"},
                          &made->error)) {
      return made;
    }
    const std::vector<uint8_t> &config = made->path.Set(0).configs[0];
    if (!made->client.Connect(made->path.Port()) || made->client.Import("1-1") != 0) {
      made->error = "import failed";
      return made;
    }
    const auto configured = made->client.Control(usbip::SetConfigurationSetup(config[5]), 0);
    const demo::InterfaceLayout storage = demo::WalkInterfaces(config).front();
    made->in = demo::FindEndpoint(storage, demo::kBulkEndpoint, true);
    made->out = demo::FindEndpoint(storage, demo::kBulkEndpoint, false);
    if (!configured || configured->status != 0 || made->in == 0 || made->out == 0) {
      made->error = "configuration failed";
    }
    return made;
  }();
  return disk.get();
}

void BM_UsbipBulkRead(benchmark::State &state) {
  Disk *disk = ImportedDisk();
  if (!disk->error.empty()) {
    state.SkipWithError(disk->error.c_str());
    return;
  }
  const auto blocks = static_cast<uint16_t>(state.range(0) / kBlockBytes);
  const std::vector<uint8_t> read10{
      kRead10, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(blocks >> 8), static_cast<uint8_t>(blocks),
      0};
  std::vector<uint8_t> data;
  for (auto _ : state) {
    if (!disk->client.Scsi(disk->in, disk->out, ++disk->tag, read10,
                           static_cast<uint32_t>(state.range(0)), true, &data) ||
        data.size() != static_cast<size_t>(state.range(0))) {
      state.SkipWithError("READ(10) failed");
      return;
    }
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.counters["items/s"] =
      benchmark::Counter(static_cast<double>(state.iterations() * 3), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_UsbipBulkRead)
    ->Arg(16 * 1024)
    ->Arg(64 * 1024)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
