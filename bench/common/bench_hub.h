// An in-process virtual hub for the benchmarks, in the directory that
// PELARIX_HUB_DIR names, so the library finds it as it would a real one. It
// keeps no record of what it answered, so a long run does not grow.
#pragma once

#include <memory>
#include <string>

#include "hub_directory.h"
#include "virtual_hub.h"

namespace pelarix::bench {

class BenchHub {
 public:
  BenchHub() {
    vhub::VirtualHubOptions options;
    options.directory = directory_.Path();
    options.keepRecords = false;
    hub_ = std::make_unique<vhub::VirtualHub>(options);
    std::string error;
    started_ = hub_->Start(&error);
  }
  ~BenchHub() { hub_->Stop(); }
  BenchHub(const BenchHub &) = delete;
  BenchHub &operator=(const BenchHub &) = delete;

  bool Started() const { return started_; }
  vhub::HubModel &Model() { return hub_->Model(); }
  const std::string &SocketPath() const { return hub_->SocketPath(); }

 private:
  vhub::ScopedHubDirectory directory_;
  std::unique_ptr<vhub::VirtualHub> hub_;
  bool started_ = false;
};

}  // namespace pelarix::bench
