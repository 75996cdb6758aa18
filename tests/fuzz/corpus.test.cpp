// SPDX-License-Identifier: MIT
// Every file that a fuzzer ever fell over, and the samples it starts from.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "targets.h"

namespace {

int runAll(const std::string& corpus, void (*target)(std::string_view)) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(std::string(KMV_FUZZ_CORPUS "/") + corpus)) {
    SCOPED_TRACE(entry.path());
    std::ifstream file(entry.path(), std::ios::binary);
    target(std::string(std::istreambuf_iterator<char>(file), {}));
    ++files;
  }
  return files;
}

TEST(FuzzCorpus, MountTables) {
  EXPECT_GT(runAll("mount_info", kmv::fuzz::mountInfo), 0);
}

TEST(FuzzCorpus, DeviceMessages) {
  EXPECT_GT(runAll("device_message", kmv::fuzz::deviceMessage), 0);
}

TEST(FuzzCorpus, DiskStatistics) {
  EXPECT_GT(runAll("disk_statistics", kmv::fuzz::diskStatistics), 0);
}

TEST(FuzzCorpus, CodexDocuments) {
  EXPECT_GT(runAll("codex_document", kmv::fuzz::codexDocument), 0);
}

TEST(FuzzCorpus, ToolOutputs) {
  EXPECT_GT(runAll("tool_output", kmv::fuzz::toolOutput), 0);
}

TEST(FuzzCorpus, ByteCounts) {
  EXPECT_GT(runAll("byte_count", kmv::fuzz::byteCount), 0);
}

}  // namespace
