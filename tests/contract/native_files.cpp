// SPDX-License-Identifier: MIT
// Files and attributes of the machine that runs the test, in a folder for temporary files.
#include "contract/Harness.h"
#include "platform/NativePlatform.h"
#include "support/TemporaryFolder.h"

namespace kmv::test {
namespace {

class NativeFiles : public FilesHarness {
 public:
  std::string begin() override { return ""; }
  Platform& platform() override { return *platform_; }
  std::string folder() override { return folder_.path(); }
  void makeUnlistable(const std::string& folder) override { unlistable_.add(path(folder)); }

 private:
  std::unique_ptr<Platform> platform_ = makeNativePlatform();
  TemporaryFolder folder_;
  UnlistableFolders unlistable_;
};

std::unique_ptr<FilesHarness> makeNativeFiles() {
  return std::make_unique<NativeFiles>();
}

INSTANTIATE_TEST_SUITE_P(Native, FilesContract, ::testing::Values(&makeNativeFiles));

}  // namespace
}  // namespace kmv::test
