// SPDX-License-Identifier: MIT
// Every file that a fuzzer ever fell over, and the samples it starts from.
#include "support/Testing.h"
#include "targets.h"

namespace {

using Target = void (*)(std::string_view);

class FuzzCorpus : public ::testing::TestWithParam<std::pair<const char*, Target>> {};

TEST_P(FuzzCorpus, EveryFileHolds) {
  int files = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(KMV_FUZZ_CORPUS "/") + GetParam().first)) {
    SCOPED_TRACE(entry.path());
    std::ifstream file(entry.path(), std::ios::binary);
    GetParam().second(std::string(std::istreambuf_iterator<char>(file), {}));
    ++files;
  }
  EXPECT_GT(files, 0);
}

INSTANTIATE_TEST_SUITE_P(, FuzzCorpus,
                         ::testing::Values(std::pair("mount_info", &kmv::fuzz::mountInfo),
                                           std::pair("device_message", &kmv::fuzz::deviceMessage),
                                           std::pair("disk_statistics", &kmv::fuzz::diskStatistics),
                                           std::pair("codex_document", &kmv::fuzz::codexDocument),
                                           std::pair("tool_output", &kmv::fuzz::toolOutput),
                                           std::pair("process_files", &kmv::fuzz::processFiles),
                                           std::pair("byte_count", &kmv::fuzz::byteCount)),
                         [](const auto& target) { return std::string(target.param.first); });

}  // namespace
