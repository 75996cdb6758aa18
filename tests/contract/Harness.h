// SPDX-License-Identifier: MIT
#pragma once

#include "platform/Platform.h"
#include "support/Testing.h"

namespace kmv::test {

/// Folders of this machine that cannot be listed while the object lives. Root may list every folder: from the first on,
/// the test goes on as nobody.
class UnlistableFolders {
 public:
  UnlistableFolders() = default;
  ~UnlistableFolders() {
    become(user_);
    for (const std::string& folder : folders_)
      std::filesystem::permissions(folder, std::filesystem::perms::all);
  }
  UnlistableFolders(const UnlistableFolders&) = delete;
  UnlistableFolders& operator=(const UnlistableFolders&) = delete;

  void add(const std::string& folder) {
    become(user_);
    std::filesystem::permissions(folders_.emplace_back(folder), std::filesystem::perms::none);
    if (user_ == 0) become(65534);
  }

 private:
  static void become(uid_t user) { EXPECT_EQ(::seteuid(user), 0); }

  const uid_t user_ = ::geteuid();
  std::vector<std::string> folders_;
};

/// One backend and a folder for the suite's files. The verbs work on the machine that runs the test; a backend with a
/// machine of its own replaces them.
class FilesHarness {
 public:
  virtual ~FilesHarness() = default;

  /// Makes the machine. Returns why this backend cannot be tested here; empty when it can.
  virtual std::string begin() = 0;
  virtual Platform& platform() = 0;
  /// An absolute path without links.
  virtual std::string folder() = 0;

  std::string path(const std::string& name) { return folder() + "/" + name; }
  /// A regular file; the folders that lead to it come with it.
  virtual void writeFile(const std::string& name, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << bytes;
  }
  virtual void createLink(const std::string& name, const std::string& target) {
    std::filesystem::create_symlink(target, path(name));
  }
  virtual void moveItem(const std::string& name, const std::string& newName) {
    std::filesystem::rename(path(name), path(newName));
  }
  virtual void removeItem(const std::string& name) { std::filesystem::remove(path(name)); }
  /// From now until the end, the folder's contents cannot be listed.
  virtual void makeUnlistable(const std::string& folder) = 0;
};

/// The same, with volumes that come and go. Mount points are names below the folder.
class MachineHarness : public FilesHarness {
 public:
  /// Lets what is under way happen until `condition` holds; false when it does not in time.
  virtual bool runUntil(const std::function<bool()>& condition) = 0;

  /// A volume of this name appears, unmounted. Returns the BSD name of its device.
  virtual std::string plugIn(const std::string& name) = 0;
  virtual void unplug(const std::string& device) = 0;
  virtual void mount(const std::string& device, const std::string& point) = 0;
  /// A volume without a device.
  virtual void mountPathVolume(const std::string& point) = 0;
  /// A mount that is no drive. Returns its kind.
  virtual std::string mountHidden(const std::string& point) = 0;
  virtual void unmount(const std::string& point) = 0;
  virtual void move(const std::string& point, const std::string& newPoint) = 0;
  /// Whether the platform has an event for a moved volume, so that it need not disappear and appear.
  virtual bool hasMoveEvent() { return false; }
  /// Whether a volume can be mounted over another.
  virtual bool canHideMounts() { return true; }

  /// From now until `release`, or for the next command, the volume is in use by the process that is returned.
  virtual std::int64_t hold(const std::string& point) = 0;
  virtual void release() = 0;
  /// A name that the next rename refuses with `dissent::kBadArgument`.
  virtual std::string nameToRefuse() = 0;
};

/// The fixture of a suite over every backend. Instantiated in one file for each backend.
template <typename Harness>
class Contract : public ::testing::TestWithParam<std::unique_ptr<Harness> (*)()> {
 protected:
  void SetUp() override {
    const std::string missing = harness_->begin();
    if (!missing.empty()) GTEST_SKIP() << missing;
  }
  Harness& harness() { return *harness_; }
  Platform& platform() { return harness_->platform(); }
  std::string path(const std::string& name) { return harness_->path(name); }

 private:
  std::unique_ptr<Harness> harness_ = this->GetParam()();
};

using FilesContract = Contract<FilesHarness>;
using MachineContract = Contract<MachineHarness>;

/// Volumes by the names of their mount points.
class VolumesContract : public MachineContract {
 protected:
  URL rootURL(const std::string& point) { return URL::fileURLWithPath(path(point), /*isDirectory=*/true); }
  /// Of the test's own volumes, the points in the order of the list.
  std::vector<std::string> listed() {
    std::vector<std::string> points;
    for (const URL& url : platform().volumes().mountedVolumeURLs()) {
      if (!url.path().starts_with(path(""))) continue;
      points.push_back(url.path().substr(path("").size()));
      EXPECT_EQ(url, rootURL(points.back())) << "a directory URL";
    }
    return points;
  }
  /// The mount point of the volume that holds `name`, below the folder; "none" where there is no such item.
  std::string holderOf(const std::string& name) {
    const auto url = platform().volumes().volumeURL(URL::fileURLWithPath(path(name), /*isDirectory=*/false));
    if (!url) return "none";
    EXPECT_EQ(*url, URL::fileURLWithPath(url->path(), /*isDirectory=*/true));
    return url->path().starts_with(path("")) ? url->path().substr(path("").size()) : "outside";
  }
};

}  // namespace kmv::test
