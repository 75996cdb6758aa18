// SPDX-License-Identifier: MIT
#include "base/PathStandardizing.h"
#include "base/Percent.h"
#include "platform/Forwarding.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using Cases = std::map<std::string, std::string>;

/// Knows a few paths and counts how often it was asked.
class FewPaths : public ForwardingFiles {
 public:
  FewPaths() : ForwardingFiles(Platform::current().files()) {}
  ItemKind itemKind(const std::string& path) override {
    ++questions;
    return std::set<std::string>{"/tmp", "/System", "/x"}.contains(path) ? ItemKind::folder : ItemKind::none;
  }
  std::optional<std::string> realPath(const std::string& path) override {
    ++questions;
    return path == "/link/../B" ? std::optional<std::string>("/elsewhere/B") : std::nullopt;
  }
  const std::vector<std::string>& pathAliasPrefixes() override { return aliases; }

  std::vector<std::string> aliases{"/private/var/automount", "/var/automount", "/private"};
  int questions = 0;
};

TEST(URL, IsTextAndCarriesEveryByteOfAPath) {
  const URL directory = URL::fileURLWithPath("/Volumes/A", true);
  EXPECT_EQ(directory.absoluteString(), "file:///Volumes/A/");
  EXPECT_NE(directory, URL::fileURLWithPath("/Volumes/A", false));
  EXPECT_NE(URL::fromString("file:///%7E"), URL::fromString("file:///~"));
  EXPECT_EQ(directory.path(), "/Volumes/A");
  EXPECT_FALSE(URL::fromString(""));
  EXPECT_FALSE(URL::fromString("Unknown")->isFileURL());
  EXPECT_EQ(URL::fromString("Unknown")->path(), "Unknown");
  EXPECT_EQ(URL::fromString("file:///a%4/%zz")->path(), "/a%4/%zz");
  for (const auto& [path, text] : Cases{{"/", "file:///"},
                                        {"/a///", "file:///a"},
                                        {"/a b%41\xff", "file:///a%20b%2541%FF"},
                                        {"rel", "rel"}})
    EXPECT_EQ(URL::fileURLWithPath(path, false).absoluteString(), text);
  std::string path = "/";
  for (int byte = 1; byte < 256; ++byte) path += static_cast<char>(byte);
  const URL url = URL::fileURLWithPath(path, true);
  EXPECT_EQ(url.path(), path);
  for (const char c : url.absoluteString()) EXPECT_TRUE(c > 0x20 && c < 0x7f);
}

TEST(URL, AppendsAndDeletesComponents) {
  const URL root = URL::fileURLWithPath("/", true);
  for (const bool isDirectory : {false, true}) {
    const URL parent = URL::fileURLWithPath("/a/b", isDirectory).deletingLastPathComponent();
    EXPECT_EQ(parent.absoluteString(), "file:///a/");
  }
  EXPECT_EQ(root.deletingLastPathComponent(), root);
  EXPECT_EQ(root.appendingPathComponent("x y", true).absoluteString(), "file:///x%20y/");
  EXPECT_EQ(URL::fileURLWithPath("/a", false).appendingPathComponent("/c", false).absoluteString(),
            "file:///a/c");
  EXPECT_EQ(root.lastPathComponent(), "/");
}

TEST(URL, TextualStandardizingTouchesDotSegmentsOnly) {
  for (const auto& [text, expected] : Cases{{"file:///a/./b", "file:///a/b"},
                                            {"file:///a/.", "file:///a/"},
                                            {"file:///a/b/..", "file:///a/"},
                                            {"file:///a/../b/", "file:///b/"},
                                            {"file:///../../a", "file:///../../a"},
                                            {"file:///a//b", "file:///a//b"},
                                            {"file:///a/%2E/b", "file:///a/%2E/b"},
                                            {"file:/x/../y", "file:///y"},
                                            {"http://h/a/../b?q/..#f", "http://h/b?q/..#f"},
                                            {"a/../b", "b"},
                                            {"file:///private/tmp/", "file:///private/tmp/"}}) {
    const URL standard = URL::fromString(text)->standardized();
    EXPECT_EQ(standard.absoluteString(), expected) << text;
    EXPECT_EQ(standard.standardized(), standard) << "idempotent: " << text;
  }
}

TEST(PathStandardizing, AsksTheFileSystemOnlyAboutParentsAndAliases) {
  FewPaths files;
  for (const auto& [path, expected] : Cases{{"/Volumes//A/./", "/Volumes/A"},
                                            {"/", "/"},
                                            {"relative/../x", "relative/../x"},
                                            {"/media/...", "/media/..."},
                                            {"/privateer/x", "/privateer/x"},
                                            {"/private", "/private"}})
    EXPECT_EQ(standardizedPath(path, files), expected);
  EXPECT_EQ(files.questions, 0) << "a plain mount path must never reach the file system";
  for (const auto& [path, expected] : Cases{{"/link/../B", "/elsewhere/B"},
                                            {"/Volumes/A/../B", "/Volumes/B"},
                                            {"/../x", "/x"},
                                            {"/private/tmp/", "/tmp"},
                                            {"/private/nope", "/private/nope"},
                                            {"/private/System", "/private/System"},
                                            {"/private/var/automount/x", "/x"}})
    EXPECT_EQ(standardizedPath(path, files), expected);
}

TEST(PathStandardizing, IsSkippedOnlyForCanonicalPaths) {
  for (const char* text : {"/", "/a/b/", "/a%20b/..c/.d", "/%C3%BC", "/..."})
    EXPECT_TRUE(isCanonicalFilePath(text)) << text;
  for (const char* text : {"", "a", "//", "/a//b", "/a/./b", "/.", "/a/..", "/../a", "/%2E%2E/a", "/a%2Fb",
                           "/%c3%bc", "/a%4", "/a%zz", "/a b", "/a?b"})
    EXPECT_FALSE(isCanonicalFilePath(text)) << text;
}

}  // namespace
}  // namespace kmv
