#include "simulated_device.h"

#include <gtest/gtest.h>

#include "client.h"
#include "select_request.h"
#include "urb_block.h"

namespace pelarix::demo {
namespace {

DescriptorSet RealDevice(const std::string &name) {
  std::string error;
  auto set =
      ReadDescriptorFile(std::string(PELARIX_TEST_DATA_DIR) + "/realdesc/" + name + ".bin", &error);
  EXPECT_TRUE(set) << error;
  return set ? *set : DescriptorSet{};
}

// The block of an answer, its status, moved length and data offset.
struct Answered {
  uint32_t status;
  uint32_t length;
  std::vector<uint8_t> data;
};

Answered Ask(SimulatedDevice &device, const std::vector<uint8_t> &request) {
  const std::vector<uint8_t> answer = device.Answer(request);
  auto read = urb::ReadAnswer(answer);
  EXPECT_TRUE(read);
  EXPECT_EQ(urb::Read16(answer, urb::kFunction), urb::Read16(request, urb::kFunction));
  return read ? Answered{read->status, read->length, read->data} : Answered{};
}

class SimulatedDeviceTest : public ::testing::Test {
 protected:
  DescriptorSet set_ = RealDevice("flash_generic_1043_8012");
  SimulatedDevice device_{set_};
};

TEST_F(SimulatedDeviceTest, DescriptorsComeFromTheOfferedSetCutToTheRoom) {
  Answered device = Ask(device_, urb::DescriptorRequest(1, 0, 0, 64));
  EXPECT_EQ(device.status, urb::kSuccess);
  EXPECT_EQ(device.length, 18u);
  EXPECT_EQ(device.data, set_.device);
  Answered header = Ask(device_, urb::DescriptorRequest(2, 0, 0, 9));
  EXPECT_EQ(header.length, 9u);
  EXPECT_EQ(header.data,
            std::vector<uint8_t>(set_.configs[0].begin(), set_.configs[0].begin() + 9));
  EXPECT_EQ(Ask(device_, urb::DescriptorRequest(2, 0, 0, 255)).data, set_.configs[0]);
  Answered missing = Ask(device_, urb::DescriptorRequest(2, 1, 0, 255));
  EXPECT_EQ(missing.status, urb::kStallPid);
  EXPECT_EQ(missing.length, 0u);
}

TEST_F(SimulatedDeviceTest, StringsAreTheLanguageTableAndTheNamedIndices) {
  EXPECT_EQ(Ask(device_, urb::DescriptorRequest(3, 0, 0, 255)).data,
            (std::vector<uint8_t>{4, 3, 0x09, 0x04}));
  // The flash drive names a manufacturer (1) and a product (2), no serial.
  ASSERT_EQ(device_.Strings().size(), 3u);
  EXPECT_EQ(device_.Strings().count({1, kEnglish}), 1u);
  const std::vector<uint8_t> product = device_.Strings().at({set_.device[15], kEnglish});
  EXPECT_EQ(Ask(device_, urb::DescriptorRequest(3, set_.device[15], kEnglish, 255)).data, product);
  EXPECT_EQ(product[0], 2 + 2 * set_.name.size());
  EXPECT_EQ(Ask(device_, urb::DescriptorRequest(3, 9, kEnglish, 255)).status, urb::kStallPid);
  EXPECT_EQ(Ask(device_, urb::DescriptorRequest(3, set_.device[15], 0x0407, 255)).status,
            urb::kStallPid);
}

TEST_F(SimulatedDeviceTest, SelectConfigurationNamesEveryPipeByAHandleTransfersThenUse) {
  std::string problem;
  const std::vector<uint8_t> answer = device_.Answer(SelectConfigurationRequest(set_.configs[0]));
  auto pipes = ReadSelectedPipes(answer, set_.configs[0], &problem);
  ASSERT_TRUE(pipes) << problem;
  ASSERT_EQ(pipes->size(), 2u);  // bulk in and bulk out
  EXPECT_NE(pipes->begin()->second, std::next(pipes->begin())->second);
  // The answer is the block alone: interface record with class and handle.
  EXPECT_EQ(answer.size(), urb::Read16(answer, urb::kLength));
  EXPECT_EQ(answer[urb::kSelectConfigInterfaces + urb::kInterfaceClass], 0x08);
  EXPECT_NE(urb::Read32(answer, urb::kSelectConfigInterfaces + urb::kInterfaceHandle), 0u);
  // A pipe the answer did not name is refused; a named one without a
  // function behind it stalls.
  EXPECT_EQ(Ask(device_, urb::BulkRead(0xDEAD, 13)).status, urb::kInvalidParameter);
  EXPECT_EQ(Ask(device_, urb::BulkRead(pipes->begin()->second, 13)).status, urb::kStallPid);
  std::vector<uint8_t> configuration = urb::Block(urb::kControlBlockBytes, urb::kGetConfiguration);
  urb::Write32(configuration, urb::kTransferLength, 1);
  EXPECT_EQ(Ask(device_, configuration).data, std::vector<uint8_t>{set_.configs[0][5]});
}

TEST_F(SimulatedDeviceTest, ASelectBlockWhosePipesOverrunTheirRecordIsRefused) {
  std::vector<uint8_t> request = SelectConfigurationRequest(set_.configs[0]);
  urb::Write32(request, urb::kSelectConfigInterfaces + urb::kInterfacePipeCount, 0x10000000);
  const std::vector<uint8_t> answer = device_.Answer(request);
  EXPECT_EQ(urb::Read32(answer, urb::kStatus), urb::kInvalidParameter);
  request = SelectConfigurationRequest(set_.configs[0]);
  urb::Write32(request, urb::kSelectConfigDescriptor, 0xFFFFFF00);  // the copy is nowhere
  EXPECT_EQ(urb::Read32(device_.Answer(request), urb::kStatus), urb::kInvalidParameter);
}

TEST_F(SimulatedDeviceTest, ABlockLongerThanItsItemIsAnsweredWithAHeaderAlone) {
  std::vector<uint8_t> request = urb::DescriptorRequest(1, 0, 0, 18);
  request.resize(40);  // Length still says 80
  const std::vector<uint8_t> answer = device_.Answer(request);
  ASSERT_EQ(answer.size(), urb::kHeaderBytes);
  EXPECT_EQ(urb::Read16(answer, urb::kLength), urb::kHeaderBytes);
  EXPECT_EQ(urb::Read16(answer, urb::kFunction), urb::kGetDescriptorFromDevice);
  EXPECT_EQ(urb::Read32(answer, urb::kStatus), urb::kInvalidParameter);
  EXPECT_EQ(urb::Read32(device_.Answer({1, 2}), urb::kStatus), urb::kInvalidParameter);
}

TEST_F(SimulatedDeviceTest, RawControlTransfersAnswerTheStandardRequestsAndStallTheRest) {
  // A raw control transfer: 80 bytes, the setup packet at 72.
  auto control = [](std::vector<uint8_t> setup, uint32_t length) {
    std::vector<uint8_t> block = urb::Block(urb::kControlBlockBytes, urb::kControlTransfer);
    urb::Write32(block, urb::kTransferFlags,
                 ((setup[0] & 0x80) != 0 ? urb::kDirectionIn : 0) | urb::kDefaultPipeTransfer);
    urb::Write32(block, urb::kTransferLength, length);
    urb::Write32(block, urb::kTransferOffset, urb::kControlBlockBytes);
    std::copy(setup.begin(), setup.end(), block.begin() + urb::kSetupPacket);
    return block;
  };
  Answered device = Ask(device_, control({0x80, 6, 0, 1, 0, 0, 18, 0}, 18));
  EXPECT_EQ(device.status, urb::kSuccess);
  EXPECT_EQ(device.data, set_.device);
  EXPECT_EQ(Ask(device_, control({0x80, 6, 0, 2, 0, 0, 9, 0}, 9)).data,
            std::vector<uint8_t>(set_.configs[0].begin(), set_.configs[0].begin() + 9));
  EXPECT_EQ(Ask(device_, control({0x80, 6, 0, 3, 0, 0, 255, 0}, 255)).data,
            (std::vector<uint8_t>{4, 3, 0x09, 0x04}));
  EXPECT_EQ(Ask(device_, control({0x80, 0, 0, 0, 0, 0, 2, 0}, 2)).data.size(), 2u);
  EXPECT_EQ(Ask(device_, control({0x80, 8, 0, 0, 0, 0, 1, 0}, 1)).data,
            std::vector<uint8_t>{0});  // not configured yet
  // A class request (bulk-only's Get Max LUN) and a standard one it does
  // not serve stall, and move nothing.
  const Answered lun = Ask(device_, control({0xA1, 0xFE, 0, 0, 0, 0, 1, 0}, 1));
  EXPECT_EQ(lun.status, urb::kStallPid);
  EXPECT_EQ(lun.length, 0u);
  EXPECT_EQ(Ask(device_, control({0x00, 9, 1, 0, 0, 0, 0, 0}, 0)).status, urb::kStallPid);
  // A block too short for its setup packet is refused.
  std::vector<uint8_t> cut = control({0x80, 6, 0, 1, 0, 0, 18, 0}, 18);
  cut.resize(72);
  urb::Write16(cut, urb::kLength, 72);
  EXPECT_EQ(Ask(device_, cut).status, urb::kInvalidParameter);
}

TEST(KeepInterfaces, ASplitKeepsTheNamedInterfacesAndTheirDescriptors) {
  const DescriptorSet set = RealDevice("keyboard_holtek_04d9_1603");
  const std::vector<uint8_t> kept = KeepInterfaces(set.configs[0], {1});
  const std::vector<InterfaceLayout> interfaces = WalkInterfaces(kept);
  ASSERT_EQ(interfaces.size(), 1u);
  EXPECT_EQ(interfaces[0].number, 1);
  EXPECT_EQ(urb::Read16(kept, 2), kept.size());
  EXPECT_EQ(kept[4], 1);
  // Interface, HID and endpoint descriptors of interface 1: 9 + 9 + 7.
  EXPECT_EQ(kept.size(), 9u + 25u);
}

TEST(ClientDecision, TheAgentsBlobDecidesWithTheClientsStrings) {
  Client client({"exfa:m:storage"});
  EXPECT_TRUE(client.ReadAgentBlob({}));
  EXPECT_EQ(client.Decide(RealDevice("flash_generic_1043_8012")).kind,
            ClientDecision::Kind::kKeptLocal);
  EXPECT_EQ(client.Decide(RealDevice("hub_nec_0409_0058")).kind, ClientDecision::Kind::kWhole);
  Client splitting({"allowautodsplit:o:true"});
  const ClientDecision split = splitting.Decide(RealDevice("keyboard_holtek_04d9_1603"));
  EXPECT_EQ(split.kind, ClientDecision::Kind::kSplit);
  EXPECT_EQ(split.interfaces, std::vector<uint8_t>{1});
}

}  // namespace
}  // namespace pelarix::demo
