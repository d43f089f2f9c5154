#include <gtest/gtest.h>

#include "ordo/usb/usb_device_config.h"

namespace ordo::usb {
namespace {

TEST(HandleCounter, FirstHandleOfTheProcessIs0x81000001AndTheyRiseByOne) {
  EXPECT_EQ(UsbDeviceConfig::NextHandle(), 0x81000001u);
  EXPECT_EQ(UsbDeviceConfig::NextHandle(), 0x81000002u);
}

}  // namespace
}  // namespace ordo::usb
