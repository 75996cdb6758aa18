// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::test {

/// A new folder, by a path without links. Gone with the object.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    namespace fs = std::filesystem;
    std::random_device random;
    // A name that is taken is no error; another one is tried.
    do {
      path_ = fs::canonical(fs::temp_directory_path()) / ("kmv-" + std::to_string(random()));
    } while (!fs::create_directory(path_));
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  /// The folders that lead to the file come with it.
  void write(const std::string& name, const std::string& bytes) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary) << bytes;
  }
  void link(const std::string& name, const std::string& target) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::filesystem::remove(path_ / name);
    std::filesystem::create_symlink(target, path_ / name);
  }

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace kmv::test
