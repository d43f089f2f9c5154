// Select configuration as the host side asks it: one interface record per
// interface at its first setting, each with room for the setting's pipes,
// and the configuration descriptor behind the block (its offset at 16).
// The answer names, per pipe, the endpoint and the handle that later
// transfer blocks give.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace pelarix::demo {

std::vector<uint8_t> SelectConfigurationRequest(const std::vector<uint8_t> &config);

// The pipe handle of each endpoint, when the answer selected the
// configuration and filled in every pipe with the endpoint the descriptor
// lists at its place; otherwise nothing, with *problem set.
std::optional<std::map<uint8_t, uint32_t>> ReadSelectedPipes(const std::vector<uint8_t> &answer,
                                                             const std::vector<uint8_t> &config,
                                                             std::string *problem);

}  // namespace pelarix::demo
