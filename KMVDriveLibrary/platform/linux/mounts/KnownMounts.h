// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/linux/mounts/KernelMounts.h"
#include "platform/linux/mounts/MountDelta.h"
#include "platform/linux/mounts/MountPlaces.h"

namespace kmv {

/// The mounts as they were told last, compared with the kernel's mount by mount. What a comparison costs grows
/// with the mounts that it is about: those that an unmount, a move or a mount beneath gave another place come
/// with it, since the kernel does not report them by themselves. Thread: one at a time.
class KnownMounts {
 public:
  explicit KnownMounts(KernelMounts kernel) : kernel_(kernel) {}

  /// Compares the ids of all mounts, and asks for those that are new; with `anew` for each.
  void compareAll(bool anew);
  /// After a report that names nothing: asks for mounts that are new, and compares those that decide which drives
  /// there are: of each volume its first mounts, up to one that can be reached at least, and whatever hides them. When
  /// that explains nothing, all are compared; and in any case once as many mounts came as there are, so that those
  /// that left do not pile up. The cost, amortised, is that of the drives. What is not seen until later: a mount that
  /// is no drive is moved over one, together with a change that explains the report.
  void compareAfterReport();
  /// Compares one mount that came or moved.
  void compare(std::uint64_t id);
  /// Forgets a mount that left.
  void forget(std::uint64_t id);

  /// What was found since the last call.
  MountDelta takeDelta();

  /// True when the kernel did not answer since the last call; what it was asked about stays as it was known.
  bool takeFailure() { return std::exchange(failed_, false); }
  /// True when it refuses for good.
  bool isRefused() const { return refused_; }

  /// Mounts that left before anything was known of them, and reports that nothing explains: a mount came and went, or
  /// was mounted anew with other options.
  std::uint64_t missed() const { return missed_; }

  /// In the order of the table.
  std::vector<MountEntry> all() const;

 private:
  /// A file system's folder, and its mounts in the order of the table.
  using Volumes =
      std::map<std::tuple<DeviceNumber, std::string, std::string>, std::map<std::uint64_t, std::uint64_t>>;
  static Volumes::key_type volumeOf(const MountEntry& mount) {
    return {mount.device, mount.source, mount.root};
  }

  bool askForNewer();
  void compareVolumes();
  bool compareWithWay(std::uint64_t id);
  bool isHidden(std::uint64_t id);
  bool compareOne(std::uint64_t id);
  void compareStandingOn(std::uint64_t id, bool andAllAbove);
  void fail(int error);
  void add(MountEntry mount);
  void remove(std::uint64_t id);

  KernelMounts kernel_;
  bool failed_ = false;
  bool refused_ = false;
  std::uint64_t missed_ = 0;
  std::unordered_map<std::uint64_t, MountEntry> mounts_;
  MountPlaces places_;
  Volumes volumes_;                             // without those that are hidden by their own record
  std::uint64_t lastId_ = 0;                    // those above were never listed
  std::size_t cameSinceAll_ = 0;                // since all were compared
  std::unordered_set<std::uint64_t> compared_;  // in this difference, each once
  MountDelta delta_;
};

}  // namespace kmv
