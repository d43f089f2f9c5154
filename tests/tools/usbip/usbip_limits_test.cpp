#include <gtest/gtest.h>

#include "held_back_function.h"
#include "usbip_test_path.h"

namespace pelarix::usbip::testing {
namespace {

// The keyboard imported and configured, its interrupt endpoint held back
// by the client: the function, to release.
HeldBackFunction *HoldKeyboard(UsbipPath &path, UsbipClient &host, uint8_t *in) {
  EXPECT_TRUE(host.Connect(path.Port()));
  EXPECT_EQ(host.Import("1-1"), 0u);
  const auto configured = host.Control(SetConfigurationSetup(path.Set(0).configs[0][5]), 0);
  EXPECT_TRUE(configured && configured->status == 0);
  *in = demo::FindEndpoint(demo::WalkInterfaces(path.Set(0).configs[0]).front(),
                           demo::kInterruptEndpoint, true);
  auto held = std::make_unique<HeldBackFunction>();
  HeldBackFunction *function = held.get();
  path.Device(0).Attach(std::move(held), {*in});
  return function;
}

TEST(UsbipLimits, AConnectionThatSendsNoRequestIsClosedWhenItsTimeEnds) {
  UsbipPath path;
  std::string error;
  UsbipServerOptions options;
  options.operationTimeout = std::chrono::milliseconds(200);
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error, options)) << error;
  UsbipClient silent;
  ASSERT_TRUE(silent.Connect(path.Port()));
  EXPECT_TRUE(silent.WaitClosed(5000));
  EXPECT_TRUE(path.WaitForLog("closed: no operation request"));
}

TEST(UsbipLimits, ConnectionsBeyondTheLimitAreRefused) {
  UsbipPath path;
  std::string error;
  UsbipServerOptions options;
  options.maxConnections = 1;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error, options)) << error;
  UsbipClient first;
  ASSERT_TRUE(first.Connect(path.Port()));
  ASSERT_EQ(first.Import("1-1"), 0u);
  UsbipClient second;
  ASSERT_TRUE(second.Connect(path.Port()));
  EXPECT_TRUE(second.WaitClosed());
  EXPECT_TRUE(path.WaitForLog("refused: 1 connections already"));
  const auto reply = first.Control(GetConfigurationSetup(), 1);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 0);
}

TEST(UsbipLimits, SubmitsBeyondTheWaitingLimitDropTheConnection) {
  UsbipPath path;
  std::string error;
  UsbipServerOptions options;
  options.limits.maxOutstanding = 2;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error, options)) << error;
  UsbipClient host;
  uint8_t in = 0;
  HeldBackFunction *function = HoldKeyboard(path, host, &in);
  for (int i = 0; i < 3; ++i) {
    host.Submit(in & 0x0F, true, {}, {}, 8);
  }
  EXPECT_TRUE(host.WaitClosed());
  EXPECT_TRUE(path.WaitForLog("import of 1-1 ended: more than 2 submits waiting"));
  function->Release();
  path.Stop();
  EXPECT_EQ(path.Model().ItemReport(), "");
}

TEST(UsbipLimits, ASeqnumSubmittedAgainWhileItWaitsDropsTheConnection) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error)) << error;
  UsbipClient host;
  uint8_t in = 0;
  HeldBackFunction *function = HoldKeyboard(path, host, &in);
  const uint32_t seqnum = host.Submit(in & 0x0F, true, {}, {}, 8);
  ASSERT_TRUE(function->WaitEntered(1));
  host.nextSeqnum = seqnum;
  host.Submit(0, true, GetConfigurationSetup(), {}, 1);
  EXPECT_TRUE(host.WaitClosed());
  EXPECT_TRUE(path.WaitForLog("import of 1-1 ended: seqnum " + std::to_string(seqnum) +
                              " already waiting"));
  function->Release();
  path.Stop();
  EXPECT_EQ(path.Model().ItemReport(), "");
}

// The webcam's streaming endpoints are isochronous (in its alternate
// settings, which the selection does not open).
class UsbipIsochronous : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(Start(path_, {"webcam_logitech_c270_046d_0825"}, &error)) << error;
    ASSERT_TRUE(host_.Connect(path_.Port()));
    ASSERT_EQ(host_.Import("1-1"), 0u);
    for (const demo::InterfaceLayout &layout : demo::WalkInterfaces(path_.Set(0).configs[0])) {
      for (const demo::EndpointLayout &endpoint : layout.endpoints) {
        if ((endpoint.attributes & 3) == 1 && (endpoint.address & 0x80) != 0) {
          iso_ = endpoint.address & 0x0F;
        }
      }
    }
    ASSERT_NE(iso_, 0u);
  }

  UsbipPath path_;
  UsbipClient host_;
  uint32_t iso_ = 0;
};

TEST_F(UsbipIsochronous, AnEndpointNotSelectedStallsWithItsPacketsEchoed) {
  host_.Submit(iso_, true, {}, {}, 200, 0, {{0, 100, 0, 0}, {100, 100, 0, 0}});
  const auto reply = host_.Read();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, kErrPipe);
  EXPECT_EQ(reply->packets, 2);
  EXPECT_EQ(reply->errorCount, 2);
  ASSERT_EQ(reply->iso.size(), 2u);
  EXPECT_EQ(reply->iso[1].offset, 100u);
  EXPECT_EQ(reply->iso[1].length, 100u);
  EXPECT_EQ(reply->iso[1].actualLength, 0u);
  EXPECT_EQ(reply->iso[1].status, kErrPipe);
}

TEST_F(UsbipIsochronous, TooManyPacketsDropTheConnection) {
  UrbCommand command;
  command.command = kCmdSubmit;
  command.seqnum = 1;
  command.devid = host_.devid;
  command.direction = kDirectionIn;
  command.ep = iso_;
  command.packets = 1025;
  host_.SendRaw(UrbCommandBytes(command));
  EXPECT_TRUE(host_.WaitClosed());
  EXPECT_TRUE(path_.WaitForLog("import of 1-1 ended: isochronous packet count 1025"));
}

TEST_F(UsbipIsochronous, APacketOutsideItsBufferDropsTheConnection) {
  host_.Submit(iso_, true, {}, {}, 100, 0, {{0, 60, 0, 0}, {60, 60, 0, 0}});
  EXPECT_TRUE(host_.WaitClosed());
  EXPECT_TRUE(path_.WaitForLog("import of 1-1 ended: isochronous packet outside its buffer"));
}

}  // namespace
}  // namespace pelarix::usbip::testing
