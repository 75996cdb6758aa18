// SPDX-License-Identifier: MIT
#include "codexvfs/CodexVolume.h"
#include "support/Testing.h"

namespace kmv::simulation {
namespace {

using Wrapper = std::shared_ptr<CodexVirtualFileSystemWrapper>;
using std::chrono::seconds;

constexpr char kNoDocument[] = "CodexVFS-No json found to parse.";
constexpr char kMalformed[] = "The data couldn’t be read because it isn’t in the correct format.";
constexpr char kLater[] = "KMV_CodexVFS-Codex VFS will check status after a dealy!";
constexpr char kNotBuilt[] = "KMV_CodexVFS-Codex VFS now built: 'false'.";
constexpr char kNotSized[] = "KMV_CodexVFS-Codex VFS Size will not be calculated yet since it is not ready.";
constexpr char kDelayed[] = "KMV_CodexVFS-Codex VFS now built after delay!";
constexpr char kAlready[] = "KMV_CodexVFS-Codex VFS already built.";
constexpr char kWillSize[] = "KMV_CodexVFS-Will start calculating ready Codex VFS' Size";
constexpr char kSizing[] = "KMV_CodexVFS-Codex VFS size calculation has started";

class CodexWrapper : public CodexVolume {
 protected:
  Wrapper make() {
    Wrapper wrapper = CodexVirtualFileSystemWrapper::initWithRoot(root);
    machine.runUntilIdle();
    lines();
    return wrapper;
  }
  /// What is logged when the document is read anew, after it was written anew.
  Lines linesAfterReading(const Wrapper& wrapper, const std::string& document = {}) {
    if (!document.empty()) write(document);
    lines();
    wrapper->updateWrapper(/*shouldUpdateSize=*/false);
    machine.runUntilIdle();
    return lines();
  }
  std::optional<Wrapper> supplied(const URL& location, bool requireIsReady = false) {
    std::optional<Wrapper> answer;
    const auto content = registry.drive(root.path());
    KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
        location, content ? *content->snapshot() : Dictionary(), requireIsReady, [&](const Wrapper& wrapper) {
          EXPECT_EQ(machine.currentQueueLabel(), "KMVDriveWrapperManagerQueue");
          EXPECT_FALSE(answer) << "exactly once";
          answer = wrapper;
        });
    EXPECT_FALSE(answer) << "later";
    machine.runUntilIdle();
    return answer;
  }
};

TEST_F(CodexWrapper, TheDocumentIsReadWithEveryComplaint) {
  const Wrapper wrapper = make();
  EXPECT_EQ(linesAfterReading(wrapper),
            (Lines{"The file “.codexvfs” couldn’t be opened because there is no such file.", kNoDocument}));
  const char* const members =
      R"({"status":1,"sw_version":null,"volume_label":true,"vfs_type":[1],"log_file":{"a b":1.5}})";
  const std::pair<const char*, Lines> cases[] = {
      {"{", {kMalformed, kNoDocument}},
      {"1", {kMalformed, kNoDocument}},  // no object and no array
      {"[1]", {kNoDocument}},
      {"{}", {}},
      {R"({"foo":"bar"})", {"debug Key: foo, Value: bar", "CodexVFS-Unrecognized codex flag : {foo:bar}'"}},
      {members,
       {"debug Key: log_file, Value: {\n    \"a b\" = \"1.5\";\n}", "debug Key: status, Value: 1",
        "debug Key: sw_version, Value: <null>", "debug Key: vfs_type, Value: (\n    1\n)",
        "debug Key: volume_label, Value: 1",
        "CodexVFS-Could not cast logfile value to string: '{\n    \"a b\" = \"1.5\";\n}'.",
        "CodexVFS-Could not cast codexStatus to CodexVFSFlags.Status: '1'.",
        "CodexVFS-Could not cast softwareVersion value to string: '<null>'.",
        "CodexVFS-Could not cast codexVFSType to CodexVFSFlags.VFSType: '(\n    1\n)'.",
        "CodexVFS-Could not cast volumeLabel value to string: '1'."}}};
  for (const auto& [document, said] : cases)
    EXPECT_EQ(linesAfterReading(wrapper, document), said) << document;
}

TEST_F(CodexWrapper, AVolumeThatIsBuiltIsSizedAtOnce) {
  write(kBuilt);
  addEmpty("A.ari", "1000");
  std::vector<Object*> announced;
  const auto registration = NotificationCenter::defaultCenter().addObserver(
      virtualFileSystemWrapperHasUpdated, [&](const Notification& notification) {
        EXPECT_EQ(machine.currentQueueLabel(), "codexVFSFileSizeCalculationQueue");
        EXPECT_EQ(notification.userInfo, nullptr);
        announced.push_back(notification.object.object().get());
      });
  const Wrapper wrapper = CodexVirtualFileSystemWrapper::initWithRoot(root);
  EXPECT_EQ(lines(), (Lines{"debug Key: status, Value: built", kAlready, kWillSize}));
  EXPECT_FALSE(wrapper->sizeIsCalculated());
  EXPECT_EQ(wrapper->estimatedVFSSize(), std::nullopt);
  std::vector<std::int64_t> sizes;
  wrapper->setSizeUpdated([&](std::int64_t bytes) { sizes.push_back(bytes); });
  machine.runUntilIdle();
  EXPECT_EQ(lines(),
            (Lines{"debug Key: status, Value: built", kSizing,
                   "KMV_CodexVFS-Finished estimating size 1 KB for codex VFS at: `/Volumes/Codex`"}));
  EXPECT_TRUE(wrapper->sizeIsCalculated());
  EXPECT_EQ(wrapper->estimatedVFSSize(), 1000 + kBuiltBytes);
  EXPECT_EQ(sizes, std::vector<std::int64_t>(2, 1000 + kBuiltBytes)) << "when it came, and since it was set";
  EXPECT_EQ(announced, std::vector<Object*>{wrapper.get()});

  wrapper->updateWrapper(/*shouldUpdateSize=*/true);
  machine.runUntilIdle();
  const Lines after = lines();
  EXPECT_EQ(after.back(), "KMV_CodexVFS-Codex VFS Size already calculated");
  EXPECT_EQ(announced.size(), 1u);
  EXPECT_EQ(wrapper->driveTypeString(), "Codex HDE Virtual FS");
  EXPECT_EQ(static_cast<int>(wrapper->vfsType()), 2);
  EXPECT_EQ(wrapper->vfsRoot(), root);
}

TEST_F(CodexWrapper, EveryCallBeginsAChainOfChecksOfItsOwnUntilTheVolumeIsBuilt) {
  const Lines look{"debug Key: status, Value: initialising", kLater, kNotBuilt};
  write(kInitialising);
  const Wrapper wrapper = CodexVirtualFileSystemWrapper::initWithRoot(root);
  EXPECT_EQ(lines(), (Lines{"debug Key: status, Value: initialising", look[0], look[1], look[2], kNotSized}));
  machine.runUntilIdle();
  lines();
  machine.advance(std::chrono::milliseconds(2999));
  EXPECT_EQ(lines(), Lines());
  machine.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(lines(), (Lines{look[0], look[1], look[2], kDelayed})) << "whatever came of it";
  EXPECT_FALSE(wrapper->vfsIsReady());
  EXPECT_EQ(lines(), look);
  machine.advance(seconds(3));
  EXPECT_EQ(lines().size(), 2 * 4u) << "two chains now";

  write(kBuilt);
  addEmpty("A.ari", "-2500000");
  machine.advance(seconds(3));
  EXPECT_THAT(
      lines(),
      ::testing::UnorderedElementsAre(  // in order for each queue
          "debug Key: status, Value: built", "KMV_CodexVFS-Codex VFS now built: 'true'.", kAlready, kWillSize,
          "KMV_CodexVFS-Codex built, will now estimate volume size.", kDelayed, kAlready, kDelayed, kSizing,
          "KMV_CodexVFS-Finished estimating size 2.5 MB for codex VFS at: `/Volumes/Codex`"));
  machine.advance(seconds(30));
  EXPECT_EQ(lines(), Lines()) << "every chain has ended";

  // What was built and says it is not is watched again, when something has read so.
  write(kInitialising);
  EXPECT_TRUE(wrapper->vfsIsReady());
  linesAfterReading(wrapper);
  EXPECT_FALSE(wrapper->vfsIsReady());
  EXPECT_EQ(lines(), look);
  linesAfterReading(wrapper, R"({"status":"Built"})");  // no status that there is, and so none at all
  EXPECT_FALSE(wrapper->vfsIsReady());
  linesAfterReading(wrapper, kBuilt);
  linesAfterReading(wrapper, "{}");
  EXPECT_TRUE(wrapper->vfsIsReady()) << "what a document does not name stays";
}

TEST_F(CodexWrapper, IsOneForEachVolumeAndForCodexVolumesOnly) {
  EXPECT_EQ(supplied(url("clip")), Wrapper()) << "no document";
  write(kInitialising);
  lines();
  std::vector<Wrapper> early;  // asked for before there is one, as the next one is
  for (int i = 0; i < 8; ++i)
    KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
        root, *registry.drive(root.path())->snapshot(), /*requireIsReady=*/false,
        [&](const Wrapper& made) { early.push_back(made); });
  const auto wrapper = supplied(url("clip"), /*requireIsReady=*/true);
  ASSERT_TRUE(wrapper && *wrapper);
  EXPECT_EQ(early, std::vector<Wrapper>(8, *wrapper));
  EXPECT_EQ(supplied(root), wrapper);
  const Lines said = lines();
  EXPECT_EQ(std::count(said.begin(), said.end(), "debug KMV-Codex new wrapper created."), 1);
  const auto all = KMVDriveWrapperManager::sharedInstance().codexVFSWrappers();
  EXPECT_EQ(all, (decltype(all){{"/Volumes/Codex", *wrapper}}));

  using Codex = CodexVirtualFileSystemWrapper;
  const std::string kind(*kDAVolumeKindKey.value());
  const std::string tape(kDiskLTOArbiterTapeKey);
  const std::pair<Dictionary, bool> drives[] = {{{{kind, "osxfuse"}}, true},
                                                {{{kind, "fuse"}, {tape, "yes"}}, true},  // no Boolean
                                                {{{kind, "fuse"}, {tape, 2}}, true},      // no Boolean
                                                {{{kind, "fuse"}, {tape, true}}, false},
                                                {{{kind, "fuse"}, {tape, 1.0}}, false},
                                                {{{kind, "FUSE"}}, false},
                                                {{{kind, 1}}, false}};
  for (const auto& [contents, expected] : drives)
    EXPECT_EQ(Codex::urlIsInVirtualFileSystem(root, contents), expected) << Value(contents).description();
  machine.unplug(drive);
  machine.runUntilIdle();
  EXPECT_EQ(supplied(url("clip")), Wrapper()) << "on no drive";
  EXPECT_FALSE(Codex::urlIsInVirtualFileSystem(*URL::fromString("http://nowhere"), {{kind, "fuse"}}))
      << "which the registry answers with an exception";
}

TEST_F(CodexWrapper, TheSizeHandlerIsToldWhatIsKnownAndMustNotBeTakenAwayBefore) {
  const Wrapper wrapper = make();
  std::optional<std::int64_t> told;
  wrapper->setSizeUpdated([&](std::int64_t bytes) { told = bytes; });
  machine.runUntilIdle();
  EXPECT_EQ(told, 0);
  write(kBuilt);
  EXPECT_TRUE(wrapper->vfsIsReady()) << "and has the size worked out, since it is the first to see it";
  machine.runUntilIdle();
  EXPECT_EQ(told, kBuiltBytes);
  wrapper->setSizeUpdated(nullptr);
  machine.runUntilIdle();
  wrapper->setSizeUpdated([](std::int64_t) {});
  wrapper->setSizeUpdated(nullptr);
  EXPECT_DEATH(machine.runUntilIdle(), "sizeUpdated was cleared");
}

}  // namespace
}  // namespace kmv::simulation
