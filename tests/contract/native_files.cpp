// SPDX-License-Identifier: MIT
// Files and attributes of the machine that runs the test, in a folder for temporary files.
#include <unistd.h>

#include "contract/Harness.h"
#include "platform/NativePlatform.h"
#include "support/TemporaryFolder.h"

namespace kmv::test {
namespace {

class NativeFiles : public FilesHarness {
 public:
  ~NativeFiles() override {
    become(user_);
    for (const std::string& folder : unlistable_)
      std::filesystem::permissions(folder, std::filesystem::perms::all);
  }
  std::string begin() override { return ""; }
  Platform& platform() override { return *platform_; }
  std::string folder() override { return folder_.path(); }
  /// Root may list every folder: from the first on, the test goes on as nobody.
  void makeUnlistable(const std::string& folder) override {
    become(user_);
    std::filesystem::permissions(unlistable_.emplace_back(path(folder)), std::filesystem::perms::none);
    if (user_ == 0) become(65534);
  }

 private:
  static void become(uid_t user) { EXPECT_EQ(::seteuid(user), 0); }

  const uid_t user_ = ::geteuid();
  std::vector<std::string> unlistable_;
  std::unique_ptr<Platform> platform_ = makeNativePlatform();
  TemporaryFolder folder_;
};

std::unique_ptr<FilesHarness> makeNativeFiles() {
  return std::make_unique<NativeFiles>();
}

INSTANTIATE_TEST_SUITE_P(Native, FilesContract, ::testing::Values(&makeNativeFiles));

}  // namespace
}  // namespace kmv::test
