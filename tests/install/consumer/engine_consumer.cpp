// The filter engine from an installed tree: a client policy that excludes
// one device by its id, asked about that device and another.
#include <ordo/usb/filter.h>

#include <cstdint>
#include <cstdio>

namespace {

// A device descriptor and one configuration with a vendor-specific
// interface; idVendor and idProduct are set per question.
bool Allowed(ordo::usb::DevFilterMgrClient &client, uint16_t vendor, uint16_t product) {
  const uint8_t device[18] = {18,
                              1,
                              0x00,
                              0x02,
                              0,
                              0,
                              0,
                              64,
                              static_cast<uint8_t>(vendor),
                              static_cast<uint8_t>(vendor >> 8),
                              static_cast<uint8_t>(product),
                              static_cast<uint8_t>(product >> 8),
                              0x00,
                              0x01,
                              0,
                              0,
                              0,
                              1};
  const uint8_t config[18] = {9, 2, 18, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, 0, 0xFF, 0, 0, 0};
  ordo::usb::DevFilterResult result;
  client.EvaluateDevice(device, config, 1, nullptr, result);
  return result.IsDeviceAllowed();
}

}  // namespace

int main() {
  ordo::usb::DevFilterMgrClient client;
  client.AddFilterRule("exid:m:vid-1234_pid-5678", true);
  client.MergeFilterLists();
  const bool excluded = Allowed(client, 0x1234, 0x5678);
  const bool other = Allowed(client, 0x1234, 0x0001);
  std::printf("vid-1234_pid-5678 %s, vid-1234_pid-0001 %s\n", excluded ? "allowed" : "blocked",
              other ? "allowed" : "blocked");
  return !excluded && other ? 0 : 1;
}
