// Settings tests that open sessions: a registry file of their own and a
// virtual hub in a fresh directory for each test.
#pragma once

#include <memory>
#include <string>

#include "hub_directory.h"
#include "registry_fixture.h"
#include "virtual_hub.h"

namespace pelarix::testing {

class HubSessionTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    vhub::VirtualHubOptions options;
    options.directory = directory_.Path();
    hub_ = std::make_unique<vhub::VirtualHub>(options);
    std::string error;
    ASSERT_TRUE(hub_->Start(&error)) << error;
  }
  void TearDown() override {
    hub_.reset();
    RegistryTest::TearDown();
  }

  vhub::ScopedHubDirectory directory_;
  std::unique_ptr<vhub::VirtualHub> hub_;
};

}  // namespace pelarix::testing
