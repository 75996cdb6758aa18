// SPDX-License-Identifier: MIT
// Files and attributes of the machine that runs the test, in a folder for temporary files.
#include <random>

#include "contract/Harness.h"
#include "platform/NativePlatform.h"

namespace kmv::test {
namespace {

class NativeFiles : public FilesHarness {
 public:
  ~NativeFiles() override { std::filesystem::remove_all(folder_); }
  std::string begin() override {
    std::filesystem::create_directory(folder_);
    folder_ = std::filesystem::canonical(folder_);
    return "";
  }
  Platform& platform() override { return *platform_; }
  std::string folder() override { return folder_; }

 private:
  std::unique_ptr<Platform> platform_ = makeNativePlatform();
  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("kmv-files-" + std::to_string(std::random_device()()));
};

std::unique_ptr<FilesHarness> makeNativeFiles() {
  return std::make_unique<NativeFiles>();
}

INSTANTIATE_TEST_SUITE_P(Native, FilesContract, ::testing::Values(&makeNativeFiles));

}  // namespace
}  // namespace kmv::test
