// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// The kernel's calls that tell of single mounts, statmount and listmount, by ids that are never reused. They
/// are about one mount name space, whatever thread asks. Threads: any.
class KernelMounts {
 public:
  /// For the present name space of the calling thread; none where the kernel lacks the calls (before 6.13
  /// they did not tell all that is asked here) or something refuses them; `error`
  /// is the `errno` then.
  static std::optional<KernelMounts> open(int* error = nullptr);

  struct Answer {
    int error = 0;  ///< ENOENT: there is no such mount, or none that can be reached from our root
    MountEntry mount;
  };
  Answer mount(std::uint64_t id) const;

  struct Ids {
    int error = 0;
    std::vector<std::uint64_t> ids;
  };
  /// The reachable mounts whose ids are above `after`, in ascending order, which is that of the mount table.
  Ids idsAbove(std::uint64_t after) const;

  /// False when this thread cannot ask about the name space: it left it, and has no right to look into it. Then
  /// ENOENT means nothing.
  bool canBeAsked() const;

 private:
  bool isUnlisted(std::uint64_t id) const;

  std::uint64_t nameSpace_ = 0;
};

}  // namespace kmv
