// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::integration {

/// Why this process cannot do what its test needs; empty when it can.
std::string missingForNamespaces();
std::string missingForUserNamespaces();
std::string missingForLoopDevices();
std::string missingForFuse();

/// The mount namespace of this process: whatever is mounted here is seen nowhere else and ends with the
/// process at the latest. Entered once per process, before the library is used.
class Namespace {
 public:
  enum class As { root, plainUser };

  /// Failure: throws std::system_error. `plainUser` gives up root's rights for good and takes an own user
  /// namespace.
  explicit Namespace(As who = As::root);
  /// Unmounts everything below the scratch folder, and that, however busy.
  ~Namespace();
  Namespace(const Namespace&) = delete;
  Namespace& operator=(const Namespace&) = delete;

  /// A tmpfs of our own, on a folder that every machine has.
  const std::string& scratch() const { return scratch_; }
  /// `name`, which may hold any byte, below the scratch folder.
  std::string path(const std::string& name) const { return scratch_ + "/" + name; }
  /// A new folder of that name.
  std::string folder(const std::string& name) const;

 private:
  std::string scratch_;
};

/// Some machines keep FUSE for root; in this mount namespace everybody has it from now on.
void openFuseToEveryone();

// mount(2) and umount2(2). Failure: throw std::system_error that names the paths.
void mountVolume(const std::string& source, const std::string& point, const std::string& kind,
                 const std::string& options = "", unsigned long flags = 0);
void bindMount(const std::string& source, const std::string& point);
void moveMount(const std::string& point, const std::string& newPoint);
void remountReadOnly(const std::string& point);
void unmount(const std::string& point, int flags = 0);

}  // namespace kmv::integration
