// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/URL.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "base/PathStandardizing.h"
#include "base/Percent.h"
#include "platform/Forwarding.h"

namespace kmv {
namespace {

std::string standardized(std::string_view text) {
  return URL::fromString(text)->standardized().absoluteString();
}

/// Knows a few paths and counts how often it was asked.
class FewPaths : public ForwardingFiles {
 public:
  FewPaths() : ForwardingFiles(Platform::current().files()) {}
  ItemKind itemKind(const std::string& path) override {
    ++questions;
    return existing.contains(path) ? ItemKind::folder : ItemKind::none;
  }
  std::optional<std::string> realPath(const std::string& path) override {
    ++questions;
    const auto it = real.find(path);
    return it == real.end() ? std::nullopt : std::optional<std::string>(it->second);
  }
  const std::vector<std::string>& pathAliasPrefixes() override { return aliases; }

  std::set<std::string> existing;
  std::map<std::string, std::string> real;
  std::vector<std::string> aliases{"/private/var/automount", "/var/automount", "/private"};
  int questions = 0;
};

TEST(URL, IsTextAndNothingElse) {
  const URL directory = URL::fileURLWithPath("/Volumes/A", true);
  EXPECT_EQ(directory.absoluteString(), "file:///Volumes/A/");
  EXPECT_NE(directory, URL::fileURLWithPath("/Volumes/A", false));
  EXPECT_NE(URL::fromString("file:///%7E"), URL::fromString("file:///~"));
  EXPECT_EQ(directory.path(), "/Volumes/A");
  EXPECT_EQ(URL::fileURLWithPath("/", false).absoluteString(), "file:///");
  EXPECT_EQ(URL::fileURLWithPath("/a///", false).absoluteString(), "file:///a");
  EXPECT_FALSE(URL::fromString(""));
  const URL unknown = *URL::fromString("Unknown");
  EXPECT_FALSE(unknown.isFileURL());
  EXPECT_EQ(unknown.path(), "Unknown");
}

TEST(URL, CarriesEveryByteOfAPath) {
  std::string path = "/";
  for (int byte = 1; byte < 256; ++byte) path += static_cast<char>(byte);
  const URL url = URL::fileURLWithPath(path, true);
  EXPECT_EQ(url.path(), path);
  for (const char c : url.absoluteString()) EXPECT_TRUE(c > 0x20 && c < 0x7f);
  EXPECT_EQ(URL::fileURLWithPath("/a b%41\xff", false).absoluteString(), "file:///a%20b%2541%FF");
  EXPECT_EQ(URL::fromString("file:///a%4/%zz")->path(), "/a%4/%zz");
}

TEST(URL, JoinsAndClimbs) {
  const URL root = URL::fileURLWithPath("/", true);
  const URL deep = URL::fileURLWithPath("/a/b", false);
  EXPECT_EQ(deep.deletingLastPathComponent().absoluteString(), "file:///a/");
  EXPECT_EQ(URL::fileURLWithPath("/a/b", true).deletingLastPathComponent().absoluteString(), "file:///a/");
  EXPECT_EQ(root.deletingLastPathComponent(), root);
  EXPECT_EQ(root.appendingPathComponent("x y", true).absoluteString(), "file:///x%20y/");
  EXPECT_EQ(deep.appendingPathComponent("c", false).lastPathComponent(), "c");
  EXPECT_EQ(root.lastPathComponent(), "/");
}

TEST(URL, TextualStandardizingTouchesDotSegmentsOnly) {
  const std::map<std::string, std::string> cases{{"file:///a/./b", "file:///a/b"},
                                                 {"file:///a/.", "file:///a/"},
                                                 {"file:///a/b/..", "file:///a/"},
                                                 {"file:///a/../b/", "file:///b/"},
                                                 {"file:///../../a", "file:///../../a"},
                                                 {"file:///a//b", "file:///a//b"},
                                                 {"file:///a/%2E/b", "file:///a/%2E/b"},
                                                 {"file:/x/../y", "file:///y"},
                                                 {"http://h/a/../b?q/..#f", "http://h/b?q/..#f"},
                                                 {"a/../b", "b"},
                                                 {"file:///private/tmp/", "file:///private/tmp/"},
                                                 {"file:///", "file:///"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(standardized(text), expected) << text;
    EXPECT_EQ(standardized(standardized(text)), expected) << text;
  }
}

TEST(PathStandardizing, WorksOnTheTextWhileNothingElseIsNeeded) {
  FewPaths files;
  EXPECT_EQ(standardizedPath("/Volumes//A/./", files), "/Volumes/A");
  EXPECT_EQ(standardizedPath("/", files), "/");
  EXPECT_EQ(standardizedPath("relative/../x", files), "relative/../x");
  EXPECT_EQ(standardizedPath("/media/...", files), "/media/...");
  EXPECT_EQ(standardizedPath("/privateer/x", files), "/privateer/x");
  EXPECT_EQ(files.questions, 0) << "a plain mount path must never reach the file system";
}

TEST(PathStandardizing, IsSparedOnlyWhereItWouldChangeNothing) {
  for (const char* text : {"/", "/a/b/", "/a%20b/..c/.d", "/%C3%BC", "/..."})
    EXPECT_TRUE(isCanonicalFilePath(text)) << text;
  for (const char* text : {"", "a", "//", "/a//b", "/a/./b", "/.", "/a/..", "/../a", "/%2E%2E/a", "/a%2Fb",
                           "/%c3%bc", "/a%4", "/a%zz", "/a b", "/a?b"})
    EXPECT_FALSE(isCanonicalFilePath(text)) << text;
}

TEST(PathStandardizing, ResolvesParentsThroughTheFileSystemWhereItCan) {
  FewPaths files;
  files.real["/link/../B"] = "/elsewhere/B";
  EXPECT_EQ(standardizedPath("/link/../B", files), "/elsewhere/B");
  EXPECT_EQ(standardizedPath("/Volumes/A/../B", files), "/Volumes/B");
  EXPECT_EQ(standardizedPath("/../x", files), "/x");
}

TEST(PathStandardizing, StripsAnAliasOnlyWhenTheRestIsAPlaceOfItsOwn) {
  FewPaths files;
  files.existing = {"/tmp", "/System", "/x"};
  EXPECT_EQ(standardizedPath("/private/tmp/", files), "/tmp");
  EXPECT_EQ(standardizedPath("/private/nope", files), "/private/nope");
  EXPECT_EQ(standardizedPath("/private/System", files), "/private/System");
  EXPECT_EQ(standardizedPath("/private/var/automount/x", files), "/x");
  EXPECT_EQ(standardizedPath("/private", files), "/private");
}

}  // namespace
}  // namespace kmv
