// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace kmv::simulated {

/// Numbers that depend on the seed alone: the standard's distributions may differ between libraries, its
/// engine may not.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  /// A number below `bound`. REQUIRES: bound > 0.
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(engine_() % bound); }

 private:
  std::mt19937_64 engine_;
};

}  // namespace kmv::simulated
