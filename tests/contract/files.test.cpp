// SPDX-License-Identifier: MIT
// What every backend's files, walks of trees and attributes do.
#include "contract/Harness.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
using Failure = FileBytes::Failure;

TEST_P(FilesContract, ARegularFileIsReadWholeOrNotAtAll) {
  const std::string bytes("by\0tes", 6), large(10'000, 'x');
  harness().writeFile("file", bytes);
  harness().writeFile("empty", "");
  harness().writeFile("folder/large", large);
  harness().createLink("to file", "file");
  harness().createLink("to folder", "folder");
  Files& files = platform().files();
  EXPECT_EQ(files.readRegularFile(path("file"), 6).bytes, bytes);
  EXPECT_EQ(files.readRegularFile(path("empty"), 6).bytes, "");
  EXPECT_EQ(files.readRegularFile(path("to folder/large"), 20'000).bytes, large);
  struct Refused {
    const char* name;
    std::size_t most;
    Failure failure;
  };
  for (const auto& [name, most, failure] :
       {Refused{"file", 5, Failure::unreadable}, Refused{"missing", 6, Failure::missing},
        Refused{"missing/file", 6, Failure::missing}, Refused{"to file", 6, Failure::unreadable},
        Refused{"folder", 6, Failure::unreadable}}) {
    const FileBytes read = files.readRegularFile(path(name), most);
    EXPECT_EQ(read.bytes, std::nullopt) << name;
    EXPECT_EQ(read.failure, failure) << name;
  }
}

TEST_P(FilesContract, AStreamGivesTheFileInPiecesAndThenNothing) {
  harness().writeFile("folder/file", "abcdefg");
  harness().createLink("link", "folder/file");
  Files& files = platform().files();
  const auto stream = files.openForReading(path("link"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->read(3), "abc");
  EXPECT_EQ(stream->read(100), "defg");
  EXPECT_EQ(stream->read(100), "");
  EXPECT_EQ(files.openForReading(path("folder")), nullptr);
  EXPECT_EQ(files.openForReading(path("missing")), nullptr);
}

TEST_P(FilesContract, ItemsAreToldApartAndDescribed) {
  harness().writeFile("folder/file", "abc");
  harness().createLink("to folder", "folder");
  harness().createLink("dangling", "missing");
  harness().createLink("loop", "loop");
  Files& files = platform().files();
  EXPECT_EQ(files.itemKind(path("folder/file")), ItemKind::file);
  EXPECT_EQ(files.itemKind(path("to folder/file")), ItemKind::file);
  EXPECT_EQ(files.itemKind(path("to folder")), ItemKind::folder);
  for (const char* name : {"dangling", "loop", "missing"}) {
    EXPECT_EQ(files.itemKind(path(name)), ItemKind::none) << name;
    EXPECT_EQ(files.realPath(path(name)), std::nullopt) << name;
  }
  EXPECT_EQ(files.realPath(path("to folder/./../folder/file")), path("folder/file"));
  EXPECT_EQ(files.realPath("relative"), std::nullopt);
  EXPECT_TRUE(files.currentFolder().value_or("").starts_with("/"));

  EXPECT_EQ(files.attributesOfItem(path("missing")), std::nullopt);
  const auto file = files.attributesOfItem(path("folder/file"));
  ASSERT_TRUE(file);
  EXPECT_EQ(file->find("NSFileSize")->integerValue(), 3);
  EXPECT_EQ(*file->text("NSFileType"), "NSFileTypeRegular");
  EXPECT_TRUE(file->contains("NSFileModificationDate"));
  EXPECT_EQ(*files.attributesOfItem(path("folder"))->text("NSFileType"), "NSFileTypeDirectory");
  EXPECT_EQ(files.attributesOfItem(path("to folder/file"))->find("NSFileSize")->integerValue(), 3);
  EXPECT_EQ(files.attributesOfItem(path("dangling"))->find("NSFileSize")->integerValue(), 7) << "of the link";
}

/// What a walk visits: name, size, attribute.
std::vector<std::string> visited(FilesHarness& harness, const std::string& name,
                                 const std::string& attribute = "kmv.estimate", std::size_t most = 1000) {
  std::vector<std::string> lines;
  const std::string folder = harness.path(name);
  harness.platform().treeWalk().visitFiles(folder, attribute, [&](const WalkedFile& file) {
    EXPECT_TRUE(file.path.starts_with(folder + "/")) << file.path;
    lines.push_back(std::string(file.path.substr(folder.size() + 1)) + " " + std::to_string(file.size));
    if (file.attribute) lines.back() += " " + std::string(*file.attribute);
    return lines.size() < most;
  });
  return lines;
}

TEST_P(FilesContract, AWalkVisitsEveryFileAndFollowsLinksToFolders) {
  for (const char* name :
       {"tree/file", "tree/sub/one", "tree/sub/two", "tree/sub/deep/three", "elsewhere/four"})
    harness().writeFile(name, "1234");
  harness().writeFile("tree/._file", "not listed");
  harness().writeFile("tree/.hidden", "1");
  harness().writeFile("tree/empty", "");
  harness().writeFile("tree/plain", "");
  harness().createLink("tree/link", "../elsewhere");
  harness().createLink("tree/to file", "sub/one");
  harness().createLink("tree/dangling", "missing");
  harness().createLink("tree/self", ".");
  harness().createLink("tree/sub/deep/up", "../..");
  if (!platform().extendedAttributes().set(path("tree/empty"), "kmv.estimate", "42"))
    GTEST_SKIP() << "needs a volume with extended attributes";
  platform().extendedAttributes().set(path("tree/file"), "kmv.estimate", "not asked for");
  const auto all = visited(harness(), "tree");
  EXPECT_THAT(all, UnorderedElementsAre("file 4", ".hidden 1", "empty 0 42", "plain 0", "sub/one 4",
                                        "sub/two 4", "sub/deep/three 4", "link/four 4", "to file 7"));
  const auto isInSub = [](const std::string& line) { return line.starts_with("sub/"); };
  const auto first = std::find_if(all.begin(), all.end(), isInSub);
  EXPECT_EQ(std::find_if_not(first, all.end(), isInSub) - first, 3) << "depth first";
  EXPECT_THAT(visited(harness(), "tree", ""), ::testing::Contains("empty 0")) << "no attribute is asked for";
  EXPECT_THAT(visited(harness(), "tree", "kmv.estimate", 3), SizeIs(3)) << "given up";
  EXPECT_THAT(visited(harness(), "tree/link"), ElementsAre("four 4")) << "the root may be a link";
  const auto fail = [](const WalkedFile&) -> bool { throw 1; };
  EXPECT_THROW(platform().treeWalk().visitFiles(path("tree"), "", fail), int) << "nobody is left at work";
  for (const char* name : {"missing", "tree/file", "tree/dangling"})
    EXPECT_THAT(visited(harness(), name), IsEmpty()) << name;
}

TEST_P(FilesContract, AttributesAreBytesUnderAName) {
  harness().writeFile("file", "");
  harness().createLink("link", "file");
  ExtendedAttributes& attributes = platform().extendedAttributes();
  if (!attributes.set(path("file"), "kmv.first", "x"))
    GTEST_SKIP() << "needs a volume with extended attributes";
  const std::string values[] = {std::string("a\0b", 3), "", std::string(2000, 'v'), "short"};
  for (const std::string& value : values) {
    EXPECT_TRUE(attributes.set(path("link"), "kmv.second", value));
    EXPECT_EQ(attributes.get(path("file"), "kmv.second"), value) << value.size();
  }
  EXPECT_EQ(attributes.get(path("link"), "kmv.first"), "x");
  EXPECT_EQ(attributes.get(path("file"), "kmv.third"), std::nullopt);
  EXPECT_EQ(attributes.get(path("missing"), "kmv.first"), std::nullopt);
  EXPECT_FALSE(attributes.set(path("missing"), "kmv.first", "x"));
}

TEST_P(FilesContract, AttributesBelongToTheItemWhereverItIsMovedAndHoweverItIsWritten) {
  harness().writeFile("folder/file", "");
  harness().writeFile("folder/last", "");
  ExtendedAttributes& attributes = platform().extendedAttributes();
  for (const char* name : {"folder/file", "folder"}) {
    if (!attributes.set(path(name), "kmv.mark", name))
      GTEST_SKIP() << "needs a volume with extended attributes";
  }
  harness().writeFile("folder/file", "new bytes");
  harness().moveItem("folder/file", "folder/moved");
  harness().moveItem("folder", "elsewhere");
  EXPECT_EQ(attributes.get(path("elsewhere/moved"), "kmv.mark"), "folder/file");
  EXPECT_TRUE(attributes.set(path("elsewhere/moved"), "ltfs.x", std::string("\0\n", 2)));
  EXPECT_THAT(attributes.names(path("elsewhere/moved")).value(),
              ::testing::IsSupersetOf({"kmv.mark", "ltfs.x"}));
  EXPECT_EQ(attributes.names(path("missing")), std::nullopt);
  EXPECT_EQ(platform().files().readRegularFile(path("elsewhere/moved"), 9).bytes, "new bytes");
  harness().removeItem("elsewhere/moved");
  harness().removeItem("elsewhere/last");
  EXPECT_EQ(attributes.get(path("elsewhere"), "kmv.mark"), "folder") << "which is empty now";
  for (const char* name : {"folder/file", "elsewhere/moved"}) {
    harness().writeFile(name, "another");
    EXPECT_EQ(attributes.get(path(name), "kmv.mark"), std::nullopt) << name;
  }
  EXPECT_EQ(attributes.get(path("folder"), "kmv.mark"), std::nullopt);
}

TEST_P(FilesContract, AFolderThatCannotBeListedIsLeftOutOfAWalk) {
  for (const char* name : {"tree/shut/secret", "tree/file", "tree/shut too/deep/secret"})
    harness().writeFile(name, "1234");
  harness().makeUnlistable("tree/shut");
  harness().makeUnlistable("tree/shut too/deep");
  EXPECT_THAT(visited(harness(), "tree"), ElementsAre("file 4"));
  EXPECT_THAT(visited(harness(), "tree/shut"), IsEmpty());
  EXPECT_EQ(platform().files().itemKind(path("tree/shut")), ItemKind::folder);
}

}  // namespace
}  // namespace kmv::test
