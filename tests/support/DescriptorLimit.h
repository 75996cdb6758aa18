// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::test {

/// This process may open descriptors below `limit` only, until the end of the object's lifetime. Open ones stay.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(std::size_t limit) {
    getrlimit(RLIMIT_NOFILE, &before_);
    set({limit, before_.rlim_max});
  }
  ~DescriptorLimit() { set(before_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  static void set(const rlimit& limit) { setrlimit(RLIMIT_NOFILE, &limit); }

  rlimit before_{};
};

}  // namespace kmv::test
