// The client's whole decision (DevFilterMgrClient::EvaluateDevice: parse,
// families, phases 1(a) to 3) per real device under policies of 1, 10 and
// 100 rules, and the policy match alone against usbredir's
// usbredirfilter_check on an equivalent rule set, where the library is
// there (Debian package libusbredirparser-dev).
//
// A policy of n rules: n - 1 rules that match no device (half exid, half
// exfa with made-up family words) and, last, the rule that the device meets
// if any: an exid of a made-up id, so every rule is walked. usbredir gets
// the same count: n - 1 vendor/product (or class) deny rules that miss, and
// an allow-all last. Both answer "forward" for every device.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ordo/usb/filter_language.h"

#ifdef PELARIX_HAVE_USBREDIR
#include <usbredirfilter.h>
#endif

namespace {

using namespace ordo::usb;

const char *const kDevices[] = {
    "audio_btdongle_ugreen_0a12_4007",
    "bt_broadcom_bcm2045b_0a5c_2110",
    "bt_csr_0a12_0001",
    "camera_canon_ptp_04a9_31c0",
    "ccid_yubikey4_1050_0407",
    "cdcacm_arduino_uno_2341_0043",
    "dac_realtek_wd19dock_0bda_402e",
    "ethernet_rtl8153_2cfg_0bda_8153",
    "fido_yubico_1050_0120",
    "fingerprint_st_0483_2016",
    "flash_generic_1043_8012",
    "flash_sandisk_0781_5583",
    "headset_razer_krakenx_1532_0526",
    "hub_genesys_mtt_05e3_0614",
    "hub_kinesis_05f3_0081",
    "hub_lenovo_mtt_17ef_1005",
    "hub_nec_0409_0058",
    "hub_realtek_0bda_5411",
    "kbdtouchpad_0513_0318",
    "keyboard_framework16_32ac_0012",
    "keyboard_holtek_04d9_1603",
    "mouse_logitech_046d_c03e",
    "phone_cdc_nokia_n78_0421_007b",
    "phone_lg_1004_61fe",
    "phone_pixel3a_fastboot_18d1_4ee0",
    "phone_sony_xperia_mtp_0fce_0166",
    "serial_ftdi_ft2232h_0403_6010",
    "trackball_kensington_047d_2048",
    "webcam_logitech_c270_046d_0825",
    "webcam_logitech_scribe_046d_08e2",
    "webcam_sunplus_integrated_5986_0706",
    "webcam_trust_0c45_6340",
};
constexpr int kTypical = 4;  // the YubiKey 4: three interfaces, three families

std::vector<uint8_t> ReadDevice(const char *name) {
  std::ifstream in(std::string(PELARIX_REALDESC_DIR) + "/" + name + ".bin", std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string Hex4(int n) {
  static const char digits[] = "0123456789abcdef";
  std::string text(4, '0');
  for (int i = 3; i >= 0; --i, n >>= 4) text[static_cast<size_t>(i)] = digits[n & 15];
  return text;
}

// The client's strings of a policy of `count` rules.
std::vector<std::string> PolicyStrings(int count) {
  std::string exid = "exid:m:";
  std::string exfa = "exfa:m:";
  for (int i = 0; i < count - 1; ++i) {
    if (i % 2 == 0) {
      exid += "vid-f" + Hex4(i).substr(1) + "_pid-" + Hex4(i) + ";";
    } else {
      exfa += "family" + std::to_string(i) + ";";
    }
  }
  exid += "vid-ffff_pid-ffff";
  std::vector<std::string> strings{exid};
  if (count > 2) strings.push_back(exfa);
  return strings;
}

void Feed(DevFilterMgrClient &client, int count) {
  for (const std::string &text : PolicyStrings(count)) client.AddFilterRule(text, true);
  client.MergeFilterLists();
}

void BM_EvaluateDevice(benchmark::State &state) {
  SetFilterLogHook(nullptr, 0);
  const std::vector<uint8_t> bytes = ReadDevice(kDevices[state.range(0)]);
  DevFilterMgrClient client;
  Feed(client, static_cast<int>(state.range(1)));
  for (auto _ : state) {
    DevFilterResult result;
    client.EvaluateDevice(bytes.data(), bytes.data() + 18, -1, nullptr, result);
    benchmark::DoNotOptimize(result.IsDeviceAllowed());
  }
  state.SetLabel(kDevices[state.range(0)]);
}

void EveryDeviceAt100(benchmark::internal::Benchmark *b) {
  for (int device = 0; device < static_cast<int>(std::size(kDevices)); ++device) {
    b->Args({device, 100});
  }
  b->Args({kTypical, 1})->Args({kTypical, 10});
}
BENCHMARK(BM_EvaluateDevice)->Apply(EveryDeviceAt100);

// The policy match alone, descriptors already parsed: the device's id and
// the family set of its interfaces against the merged rules.
void BM_PolicyMatch(benchmark::State &state) {
  SetFilterLogHook(nullptr, 0);
  const std::vector<uint8_t> bytes = ReadDevice(kDevices[kTypical]);
  DevFilterMgrClient client;
  Feed(client, static_cast<int>(state.range(0)));
  DevFilterDevice device;
  device.Load(bytes.data(), bytes.data() + 18, -1, nullptr);
  const std::string id = device.GetIdString();
  const DevFamily family = device.GetDeviceFamily();
  for (auto _ : state) {
    std::vector<std::string> names;
    benchmark::DoNotOptimize(client.merged().evaluateId(id));
    benchmark::DoNotOptimize(client.merged().evaluateFamilySet(family, &names));
  }
}
BENCHMARK(BM_PolicyMatch)->Arg(1)->Arg(10)->Arg(100);

#ifdef PELARIX_HAVE_USBREDIR
// The same count of rules for usbredir: deny rules that miss, by
// vendor/product or by a class the device doesn't have, then allow-all.
std::vector<usbredirfilter_rule> PeerRules(int count) {
  std::vector<usbredirfilter_rule> rules;
  for (int i = 0; i < count - 1; ++i) {
    if (i % 2 == 0) {
      rules.push_back({-1, 0xf000 + i, i, -1, 0});
    } else {
      rules.push_back({0xdc, -1, -1, -1, 0});
    }
  }
  rules.push_back({-1, -1, -1, -1, 1});
  return rules;
}

void BM_PeerCheck(benchmark::State &state) {
  const std::vector<uint8_t> bytes = ReadDevice(kDevices[kTypical]);
  DevFilterDevice device;
  device.Load(bytes.data(), bytes.data() + 18, -1, nullptr);
  std::vector<uint8_t> classes;
  std::vector<uint8_t> subclasses;
  std::vector<uint8_t> protocols;
  const auto *configuration = device.GetConfig().GetConfigurationByIndex(0);
  for (const auto &interface : configuration->GetInterfaces()) {
    classes.push_back(interface->GetClass());
    subclasses.push_back(interface->GetSubClass());
    protocols.push_back(interface->GetProtocol());
  }
  const std::vector<usbredirfilter_rule> rules = PeerRules(static_cast<int>(state.range(0)));
  const auto word = [&](size_t at) {
    return static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8));
  };
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        usbredirfilter_check(rules.data(), static_cast<int>(rules.size()), bytes[4], bytes[5],
                             bytes[6], classes.data(), subclasses.data(), protocols.data(),
                             static_cast<int>(classes.size()), word(8), word(10), word(12), 0));
  }
}
BENCHMARK(BM_PeerCheck)->Arg(1)->Arg(10)->Arg(100);
#else
void BM_PeerCheck(benchmark::State &state) {
  state.SkipWithError("built without libusbredirparser-dev: no peer to compare with");
}
BENCHMARK(BM_PeerCheck);
#endif

}  // namespace
