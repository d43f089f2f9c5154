#include <gtest/gtest.h>

#include "usbip_test_path.h"

namespace pelarix::usbip::testing {
namespace {

// A good host keeps its import of the disk (1-1) while each bad connection
// imports the keyboard (1-2) and breaks the protocol in its own way: the
// bad one is closed with its reason, the good one is answered throughout.
class UsbipMalformed : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(Start(path_, {"flash_generic_1043_8012", "keyboard_holtek_04d9_1603"}, &error))
        << error;
    ASSERT_TRUE(good_.Connect(path_.Port()));
    ASSERT_EQ(good_.Import("1-1"), 0u);
    GoodHostWorks();
  }

  void GoodHostWorks() {
    const auto reply = good_.Control(GetDescriptorSetup(1, 0, 0, 18), 18);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 0);
    EXPECT_EQ(reply->data, path_.Set(0).device);
  }

  // A bad host with the keyboard imported.
  void ImportKeyboard(UsbipClient &bad) {
    ASSERT_TRUE(bad.Connect(path_.Port()));
    ASSERT_EQ(bad.Import("1-2"), 0u);
  }

  // A submit's header for the bad connection, the rest left to the case.
  static UrbCommand BadSubmit(const UsbipClient &bad) {
    UrbCommand command;
    command.command = kCmdSubmit;
    command.seqnum = 1;
    command.devid = bad.devid;
    return command;
  }

  // The bad connection ends with this reason, and the good host goes on.
  void EndsWith(UsbipClient &bad, const std::string &reason) {
    EXPECT_TRUE(bad.WaitClosed());
    EXPECT_TRUE(path_.WaitForLog("import of 1-2 ended: " + reason)) << reason;
    GoodHostWorks();
  }

  UsbipPath path_;
  UsbipClient good_;
};

TEST_F(UsbipMalformed, AnUnknownCommandDropsThatConnection) {
  UsbipClient bad;
  ImportKeyboard(bad);
  UrbCommand command;
  command.command = 7;
  command.seqnum = 1;
  command.devid = bad.devid;
  bad.SendRaw(UrbCommandBytes(command));
  EndsWith(bad, "unknown command 7");
}

TEST_F(UsbipMalformed, AReturnSentByTheClientIsAnUnknownCommand) {
  UsbipClient bad;
  ImportKeyboard(bad);
  bad.SendRaw(RetUnlinkBytes(1, 0));
  EndsWith(bad, "unknown command 4");
}

TEST_F(UsbipMalformed, ADevidOfNoDeviceDropsThatConnection) {
  UsbipClient bad;
  ImportKeyboard(bad);
  bad.devid = 0x10063;
  bad.Submit(0, true, GetDescriptorSetup(1, 0, 0, 18), {}, 18);
  EndsWith(bad, "command for devid 65635, not " + std::to_string(0x10000 | path_.PlugNo(1)));
}

TEST_F(UsbipMalformed, ATransferLengthBeyondTheLimitDropsThatConnection) {
  UsbipClient bad;
  ImportKeyboard(bad);
  bad.Submit(1, true, {}, {}, 0x7FFFFFFF);
  EndsWith(bad, "transfer of 2147483647 bytes");
}

TEST_F(UsbipMalformed, ADirectionOrEndpointOutOfRangeDropsThatConnection) {
  UsbipClient bad;
  ImportKeyboard(bad);
  UrbCommand command = BadSubmit(bad);
  command.direction = 2;
  bad.SendRaw(UrbCommandBytes(command));
  EndsWith(bad, "malformed submit");
}

TEST_F(UsbipMalformed, APacketCountOutsideIsochronousDropsThatConnection) {
  UsbipClient bad;
  ImportKeyboard(bad);
  UrbCommand command = BadSubmit(bad);
  command.direction = kDirectionIn;
  command.packets = 5;
  bad.SendRaw(UrbCommandBytes(command));
  EndsWith(bad, "packet count 5 outside isochronous");
}

TEST_F(UsbipMalformed, AConnectionDroppedMidPacketCostsOnlyItself) {
  UsbipClient bad;
  ImportKeyboard(bad);
  std::vector<uint8_t> half =
      UrbCommandBytes(UrbCommand{kCmdSubmit, 1, bad.devid, kDirectionOut, 0, 0, 64});
  half.resize(30);
  bad.SendRaw(half);
  bad.Close();
  EXPECT_TRUE(path_.WaitForLog("import of 1-2 ended: connection closed"));
  GoodHostWorks();
  // An OUT command whose data never comes whole.
  UsbipClient cut;
  ImportKeyboard(cut);
  cut.SendRaw(UrbCommandBytes(UrbCommand{kCmdSubmit, 1, cut.devid, kDirectionOut, 0, 0, 64}));
  cut.SendRaw(std::vector<uint8_t>(10, 0));
  cut.Close();
  EXPECT_TRUE(path_.WaitForLog("import of 1-2 ended: connection closed in a command"));
  GoodHostWorks();
}

TEST_F(UsbipMalformed, AnUnlinkOfASeqnumNobodySentIsAnsweredZero) {
  UsbipClient other;
  ImportKeyboard(other);
  const uint32_t unlink = other.Unlink(4242);
  const auto reply = other.Read();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->command, kRetUnlink);
  EXPECT_EQ(reply->seqnum, unlink);
  EXPECT_EQ(reply->status, 0);
  GoodHostWorks();
}

TEST_F(UsbipMalformed, OperationRequestsTheServerDoesNotServeEndTheirConnection) {
  UsbipClient version;
  ASSERT_TRUE(version.Connect(path_.Port()));
  version.SendRaw({0x01, 0x06, 0x80, 0x05, 0, 0, 0, 0});
  EXPECT_TRUE(version.WaitClosed());
  EXPECT_TRUE(path_.WaitForLog("closed: protocol version 262"));
  UsbipClient unknown;
  ASSERT_TRUE(unknown.Connect(path_.Port()));
  unknown.SendRaw(OpHeaderBytes(0x8002, 0));
  EXPECT_TRUE(unknown.WaitClosed());
  EXPECT_TRUE(path_.WaitForLog("closed: unknown operation 32770"));
  UsbipClient shortImport;
  ASSERT_TRUE(shortImport.Connect(path_.Port()));
  std::vector<uint8_t> request = OpHeaderBytes(kOpRequestImport, 0);
  request.resize(20, '1');
  shortImport.SendRaw(request);
  shortImport.Close();
  EXPECT_TRUE(path_.WaitForLog("closed: import request cut short"));
  GoodHostWorks();
}

TEST_F(UsbipMalformed, AnImportOfNoDeviceOrOfABusyOneIsRefused) {
  UsbipClient none;
  ASSERT_TRUE(none.Connect(path_.Port()));
  EXPECT_EQ(none.Import("9-9"), kStatusNoDevice);
  EXPECT_TRUE(none.WaitClosed());
  UsbipClient busy;
  ASSERT_TRUE(busy.Connect(path_.Port()));
  EXPECT_EQ(busy.Import("1-1"), kStatusDeviceBusy);
  EXPECT_TRUE(busy.WaitClosed());
  EXPECT_TRUE(path_.WaitForLog("import of 1-1 refused with status 2"));
  GoodHostWorks();
}

TEST_F(UsbipMalformed, AnEndpointTheConfigurationLacksStallsWithoutAnItem) {
  const size_t before = path_.Model().Completions().size();
  good_.Submit(5, true, {}, {}, 64);
  const auto reply = good_.Read();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, kErrPipe);
  EXPECT_EQ(path_.Model().Completions().size(), before);
  GoodHostWorks();
}

}  // namespace
}  // namespace pelarix::usbip::testing
