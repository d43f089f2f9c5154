#include <gtest/gtest.h>

#include "held_back_function.h"
#include "hub/hub_control_codes.h"
#include "keyboard_function.h"
#include "storage_function.h"
#include "usbip_test_path.h"

namespace pelarix::usbip::testing {
namespace {

using demo::InterfaceLayout;

constexpr uint16_t kEnglish = 0x0409;
constexpr size_t kItemHeaderBytes = 40;

// Imports the path's device `index` on a fresh connection.
void Import(UsbipPath &path, size_t index, UsbipClient &host) {
  ASSERT_TRUE(host.Connect(path.Port()));
  std::vector<uint8_t> record;
  ASSERT_EQ(host.Import(path.BusId(index), &record), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&record[256])), path.BusId(index));
  EXPECT_EQ(host.devid, 0x10000u | path.PlugNo(index));
}

// SET_CONFIGURATION of the device's configuration, and its endpoints.
InterfaceLayout Configure(UsbipPath &path, size_t index, UsbipClient &host) {
  const auto reply = host.Control(SetConfigurationSetup(path.Set(index).configs[0][5]), 0);
  EXPECT_TRUE(reply && reply->status == 0 && reply->actualLength == 0);
  return demo::WalkInterfaces(path.Set(index).configs[0]).front();
}

// The data of a read that must succeed.
std::vector<uint8_t> ReadOk(const std::optional<Reply> &reply) {
  EXPECT_TRUE(reply);
  if (!reply) {
    return {};
  }
  EXPECT_EQ(reply->command, kRetSubmit);
  EXPECT_EQ(reply->status, 0);
  EXPECT_EQ(reply->actualLength, reply->data.size());
  return reply->data;
}

std::vector<uint8_t> Rw10(uint8_t operation, uint32_t lba, uint16_t blocks) {
  return {operation,
          0,
          static_cast<uint8_t>(lba >> 24),
          static_cast<uint8_t>(lba >> 16),
          static_cast<uint8_t>(lba >> 8),
          static_cast<uint8_t>(lba),
          0,
          static_cast<uint8_t>(blocks >> 8),
          static_cast<uint8_t>(blocks),
          0};
}

// The request blocks the hub raised as items, in order, and the number of
// completions of each item id.
std::vector<std::vector<uint8_t>> ItemBlocks(vhub::HubModel &model) {
  std::vector<std::vector<uint8_t>> blocks;
  for (const vhub::RequestRecord &request : model.RequestsOf(IOCTL_HUB_GET_ITEM)) {
    if (request.answer.output.size() > kItemHeaderBytes) {
      blocks.emplace_back(request.answer.output.begin() + kItemHeaderBytes,
                          request.answer.output.end());
    }
  }
  return blocks;
}

TEST(UsbipUrb, AnImportedDeviceIsEnumeratedThroughItems) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"flash_generic_1043_8012"}, &error)) << error;
  UsbipClient host;
  Import(path, 0, host);
  const demo::DescriptorSet &set = path.Set(0);

  const auto device = host.Control(GetDescriptorSetup(1, 0, 0, 18), 18);
  ASSERT_TRUE(device);
  // The return's header, byte by byte: RET_SUBMIT, seqnum 1, devid,
  // direction and ep 0, status 0, 18 bytes, start frame 0, packets as sent.
  EXPECT_EQ(device->header,
            (std::vector<uint8_t>{0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 0,  0, 0, 0, 0,
                                  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 18, 0, 0, 0, 0,
                                  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0}));
  EXPECT_EQ(device->data, set.device);
  // Its item: a raw control transfer of 80 bytes with the setup packet at
  // 72, a read with short reads fine on the default pipe.
  const std::vector<std::vector<uint8_t>> blocks = ItemBlocks(path.Model());
  ASSERT_EQ(blocks.size(), 1u);
  std::vector<uint8_t> expected(80, 0);
  expected[0] = 80;
  expected[2] = 0x08;
  expected[20] = 0x0B;  // read, short OK, default pipe
  expected[24] = 18;
  expected[28] = 80;
  const std::vector<uint8_t> setup{0x80, 6, 0, 1, 0, 0, 18, 0};
  std::copy(setup.begin(), setup.end(), expected.begin() + 72);
  EXPECT_EQ(blocks[0], expected);

  const std::vector<uint8_t> &config = set.configs[0];
  EXPECT_EQ(ReadOk(host.Control(GetDescriptorSetup(2, 0, 0, 9), 9)),
            std::vector<uint8_t>(config.begin(), config.begin() + 9));
  EXPECT_EQ(ReadOk(host.Control(GetDescriptorSetup(2, 0, 0, 255), 255)), config);
  const auto &strings = path.Device(0).Strings();
  EXPECT_EQ(ReadOk(host.Control(GetDescriptorSetup(3, 0, 0, 255), 255)), strings.at({0, 0}));
  for (size_t field = 14; field <= 16; ++field) {
    if (set.device[field] != 0) {
      EXPECT_EQ(ReadOk(host.Control(GetDescriptorSetup(3, set.device[field], kEnglish, 255), 255)),
                strings.at({set.device[field], kEnglish}));
    }
  }
  // A string the device does not have stalls.
  const auto missing = host.Control(GetDescriptorSetup(3, 0xEE, kEnglish, 255), 255);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->status, kErrPipe);
  EXPECT_EQ(missing->actualLength, 0u);

  Configure(path, 0, host);
  EXPECT_EQ(ReadOk(host.Control(GetConfigurationSetup(), 1)), std::vector<uint8_t>{config[5]});
  // SET_CONFIGURATION went as select configuration of the whole set.
  const std::vector<std::vector<uint8_t>> after = ItemBlocks(path.Model());
  ASSERT_GE(after.size(), 2u);
  EXPECT_EQ(after[after.size() - 2][2], 0x00);  // select configuration
  EXPECT_EQ(path.Model().ItemReport(), "");
  EXPECT_EQ(path.Model().Completions().size(), after.size());
}

TEST(UsbipUrb, TheDiskIsWrittenAndReadBackThroughBulkTransfers) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"flash_generic_1043_8012"}, &error)) << error;
  UsbipClient host;
  Import(path, 0, host);
  const InterfaceLayout storage = Configure(path, 0, host);
  const uint8_t in = demo::FindEndpoint(storage, demo::kBulkEndpoint, true);
  const uint8_t out = demo::FindEndpoint(storage, demo::kBulkEndpoint, false);
  ASSERT_NE(in, 0);
  ASSERT_NE(out, 0);
  std::vector<uint8_t> inquiry;
  ASSERT_TRUE(host.Scsi(in, out, 1, {demo::kScsiInquiry, 0, 0, 0, 36, 0}, 36, true, &inquiry));
  EXPECT_EQ(std::string(inquiry.begin() + 8, inquiry.begin() + 16), demo::kInquiryVendor);
  for (uint32_t round = 0; round < 2; ++round) {
    std::vector<uint8_t> written(size_t{64} * 1024);
    for (size_t i = 0; i < written.size(); ++i) {
      written[i] = static_cast<uint8_t>(i * 7 + size_t{round} * 13 + i / 512);
    }
    const uint32_t lba = 128 * round;
    ASSERT_TRUE(host.Scsi(in, out, 2 + 2 * round, Rw10(demo::kScsiWrite10, lba, 128),
                          static_cast<uint32_t>(written.size()), false, &written));
    std::vector<uint8_t> read;
    ASSERT_TRUE(host.Scsi(in, out, 3 + 2 * round, Rw10(demo::kScsiRead10, lba, 128),
                          static_cast<uint32_t>(written.size()), true, &read));
    EXPECT_EQ(read, written);
  }
  // A bulk read names its endpoint by the pipe handle of the selection.
  const std::vector<std::vector<uint8_t>> blocks = ItemBlocks(path.Model());
  const std::vector<uint8_t> &last = blocks.back();
  ASSERT_EQ(last.size(), 72u);
  EXPECT_EQ(last[2], 0x09);
  EXPECT_EQ(last[20], 0x03);  // read, short OK
  EXPECT_EQ(last[24], demo::kStatusWrapperBytes);
  EXPECT_NE(last[16] | last[17] << 8, 0);
  EXPECT_EQ(path.Model().ItemReport(), "");
}

TEST(UsbipUrb, TheKeyboardTypesThroughInterruptTransfers) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error)) << error;
  UsbipClient host;
  Import(path, 0, host);
  const InterfaceLayout keyboard = Configure(path, 0, host);
  const uint8_t in = demo::FindEndpoint(keyboard, demo::kInterruptEndpoint, true);
  ASSERT_NE(in, 0);
  std::string typed;
  uint8_t last = 0;
  for (int reads = 0; reads < 256; ++reads) {
    const std::vector<uint8_t> report = ReadOk(host.In(in & 0x0F, demo::kKeyboardReportBytes));
    ASSERT_EQ(report.size(), demo::kKeyboardReportBytes);
    if (report[2] != 0 && report[2] != last) {
      const char key = demo::KeyChar(report[2], (report[0] & demo::kLeftShift) != 0);
      if (key == '\n') {
        break;
      }
      typed += key;
    }
    last = report[2];
  }
  EXPECT_EQ(typed, demo::kTypedText);
  EXPECT_EQ(path.Model().ItemReport(), "");
}

TEST(UsbipUrb, AnUnlinkCancelsARequestTheClientHoldsBack) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603", "flash_generic_1043_8012"}, &error))
      << error;
  UsbipClient host;
  Import(path, 0, host);
  const InterfaceLayout keyboard = Configure(path, 0, host);
  const uint8_t in = demo::FindEndpoint(keyboard, demo::kInterruptEndpoint, true);
  auto held = std::make_unique<HeldBackFunction>();
  HeldBackFunction *function = held.get();
  path.Device(0).Attach(std::move(held), {in});

  const uint32_t target = host.Submit(in & 0x0F, true, {}, {}, demo::kKeyboardReportBytes);
  ASSERT_TRUE(function->WaitEntered(1));
  const uint32_t unlink = host.Unlink(target);
  const auto cancelled = host.Read();
  ASSERT_TRUE(cancelled);
  EXPECT_EQ(cancelled->command, kRetUnlink);
  EXPECT_EQ(cancelled->seqnum, unlink);
  EXPECT_EQ(cancelled->status, kErrConnReset);
  EXPECT_EQ(cancelled->header,
            (std::vector<uint8_t>{0, 0, 0, 4, 0,    0,    0,    static_cast<uint8_t>(unlink),
                                  0, 0, 0, 0, 0,    0,    0,    0,
                                  0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x98,
                                  0, 0, 0, 0, 0,    0,    0,    0,
                                  0, 0, 0, 0, 0,    0,    0,    0,
                                  0, 0, 0, 0, 0,    0,    0,    0}));
  function->Release();
  // The held request's answer comes, and no return goes for it: the next
  // return is the next command's.
  const auto next = host.Control(GetConfigurationSetup(), 1);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->seqnum, unlink + 1);
  // An unlink too late (its submit answered) or of a seqnum nobody sent:
  // status 0.
  const uint32_t late = host.Unlink(next->seqnum);
  const auto lateReply = host.Read();
  ASSERT_TRUE(lateReply);
  EXPECT_EQ(lateReply->seqnum, late);
  EXPECT_EQ(lateReply->status, 0);
  const uint32_t never = host.Unlink(9999);
  const auto neverReply = host.Read();
  ASSERT_TRUE(neverReply);
  EXPECT_EQ(neverReply->seqnum, never);
  EXPECT_EQ(neverReply->status, 0);
  // The service was told by a notice naming the item, and every item,
  // the notice too, was answered once.
  bool noticed = false;
  for (const vhub::RequestRecord &request : path.Model().RequestsOf(IOCTL_HUB_GET_ITEM)) {
    noticed = noticed ||
              (request.answer.output.size() >= kItemHeaderBytes && request.answer.output[0] == 1);
  }
  EXPECT_TRUE(noticed);
  path.Stop();
  EXPECT_EQ(path.Model().ItemReport(), "");
}

TEST(UsbipUrb, AnUnplugEndsTheImport) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error)) << error;
  UsbipClient host;
  Import(path, 0, host);
  Configure(path, 0, host);
  ASSERT_EQ(path.Service().Unplug(path.Device(0)), Pelarix_Success);
  EXPECT_TRUE(host.WaitClosed());
  EXPECT_TRUE(path.WaitForLog("import of 1-1 ended: connection closed"));
  UsbipClient again;
  ASSERT_TRUE(again.Connect(path.Port()));
  EXPECT_EQ(again.Import("1-1"), kStatusNoDevice);
}

}  // namespace
}  // namespace pelarix::usbip::testing
