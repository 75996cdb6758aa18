// SPDX-License-Identifier: MIT
#include "codexvfs/CodexVolume.h"
#include "support/Testing.h"

namespace kmv::simulation {
namespace {

constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();

class CodexSizes : public CodexVolume {
 protected:
  CodexSizes() {
    write(kBuilt);
    wrapper = CodexVirtualFileSystemWrapper::initWithRoot(root);
    machine.runUntilIdle();
    machine.createItem(path("clips/first"));
    lines();
  }
  std::int64_t sizeOf(const std::string& name) { return wrapper->getFileSizeOfItem(url(name)); }
  std::int64_t sum() { return *wrapper->estimatedVFSSize() - kBuiltBytes; }
  std::string defaulting(const std::string& name) const {
    return "error KMV_CodexVFS-Could not get extended attributes estimatedSize for file at path: '" +
           path(name) + "' defaulting to 0....";
  }
  CrossAppFileManager& helpers = CrossAppFileManager::defaultManager();
  std::shared_ptr<CodexVirtualFileSystemWrapper> wrapper;
};

TEST_F(CodexSizes, AFileCountsByItsOwnSizeOrItsAttributeOrWhatWasKnownOfIt) {
  addEmpty("clips/first", "-1000");
  addEmpty("clips/negative", " -30\n");
  machine.createItem(path("clips/bare"));
  machine.createItem(path("clips/deep/also bare"));
  machine.writeFile(path("clips/.hidden"), "seven b");
  machine.writeFile(path("clips/._AppleDouble"), "not listed");
  machine.createLink(path("clips/loop"), "..");
  machine.createLink(path("clips/nowhere"), "missing");
  EXPECT_EQ(sizeOf("clips"), 1000 + 30 + 7 + kBuiltBytes) << "the loop leads to the document, and no further";
  EXPECT_EQ(lines(), (Lines{defaulting("clips/bare"), defaulting("clips/deep/also bare")}));
  const std::int64_t before = sum();
  EXPECT_EQ(sizeOf("clips"), 1000 + 30 + 7 + kBuiltBytes);
  EXPECT_EQ(sum(), before) << "the size before is taken off first";

  addEmpty("clips/first", "no number");
  addEmpty("clips/negative", "-1");
  lines();
  EXPECT_EQ(sizeOf("clips"), 1000 + 1 + 7 + kBuiltBytes) << "the last known size";
  addEmpty("clips/negative", "none");
  EXPECT_EQ(sizeOf("clips"), 1000 + 7 + kBuiltBytes) << "-1 is as good as none";
  EXPECT_EQ(lines().size(), 2 + 3u);
  EXPECT_EQ(sizeOf("clips/.hidden"), 7);
  EXPECT_EQ(sizeOf("clips/bare"), 0);
  EXPECT_EQ(sizeOf("nothing"), 0);
}

TEST_F(CodexSizes, AreAskedOfTheHostsHelpersWhereItHasItsOwn) {
  machine.writeFile(path("clips/first"), "12345");
  helpers.setAggregateFileSize([](const URL&, const auto& shouldContinue, unsigned options) -> std::uint64_t {
    EXPECT_FALSE(shouldContinue);
    EXPECT_EQ(options, 4u);
    throw std::runtime_error("no");
  });
  EXPECT_EQ(sizeOf("clips"), 5) << "what the file system reports, since the sum failed";
  EXPECT_EQ(sizeOf("clips/first"), 0) << "the rule alone";
  std::size_t question = 0;
  const auto answerInTurn = [&](std::vector<std::optional<std::uint64_t>> answers) {
    question = 0;
    helpers.setSizeOfFileAtPath([&question, answers](std::string_view) { return answers.at(question++); });
  };
  answerInTurn({9, 9, 9, std::nullopt});
  EXPECT_EQ(sizeOf("clips"), 5) << "read to its end";
  helpers.setSizeOfFileAtPath([](std::string_view) { return 9; });
  machine.createItem(path("clips/second"));
  EXPECT_EQ(sizeOf("clips"), 18);
  lines();
  machine.removeItem(path("clips/first"));
  answerInTurn({9, 9, 9, 0});
  EXPECT_EQ(sizeOf("clips"), 0);
  EXPECT_EQ(lines(),
            (Lines{"KMV_CodexVFS-actualFileSize(of:'file:///Volumes/Codex/clips/second') error: Error "
                   "Domain=StreamFileReader Code=1",
                   "KMV_CodexVFS-File size of 0 found for 'second' while parsing Codex stack."}));
  helpers.setSizeOfFileAtPath(nullptr);
  helpers.setAggregateFileSize(nullptr);
  helpers.setGetExtendedAttributeAsInt([](const URL&, std::string_view name) -> std::int64_t {
    EXPECT_EQ(name, "codex.estimatedHDESize");
    return 77;
  });
  EXPECT_EQ(sizeOf("clips"), 77);
}

TEST_F(CodexSizes, OfHelpersThatThrowAreUnknownAndTheWalkGoesOn) {
  machine.writeFile(path("clips/second"), "12345");
  addEmpty("clips/first", "30");
  helpers.setSizeOfFileAtPath([](std::string_view file) -> std::optional<std::uint64_t> {
    if (file.ends_with("second")) return 5;
    throw 1;  // no std::exception
  });
  EXPECT_EQ(sizeOf("clips"), 35) << "its attribute stands in";
  helpers.setSizeOfFileAtPath(nullptr);
  helpers.setAggregateFileSize([](const auto&...) -> std::uint64_t { throw 1; });
  EXPECT_EQ(sizeOf("clips"), 35) << "what the file system reports";
  helpers.setAggregateFileSize(nullptr);
  helpers.setGetExtendedAttributeAsInt([](const auto&...) -> std::int64_t { throw 1; });
  EXPECT_EQ(sizeOf("clips"), 35) << "what was known";
  helpers.setGetExtendedAttributeAsInt(nullptr);
}

/// Keeps what it is handed, as a reader on threads of its own does.
class StoringReader : public StreamFileReader {
 public:
  explicit StoringReader(int& alive) : alive_(++alive) {}
  ~StoringReader() override { --alive_; }
  void openForReading(OpenHandler completion) override { (opened_ = std::move(completion))(true); }
  void beginByteSupplyCycle(UpdateBlock update, CompletionBlock completion) override {
    update_ = std::move(update);
    completed_ = std::move(completion);
    bool stop = false;
    update_(std::make_unique<std::byte[]>(3), 3, stop);
    completed_(std::nullopt);
  }
  void closeIOWithCompletionHandler(std::function<void()> completion) override {
    (closed_ = std::move(completion))();
  }

 private:
  int& alive_;
  OpenHandler opened_;
  UpdateBlock update_;
  CompletionBlock completed_;
  std::function<void()> closed_;
};

TEST_F(CodexSizes, AreReadByReadersThatAreReleasedWhateverTheyStore) {
  int alive = 0, made = 0;
  StreamFileReader::setFactory(
      [&](const URL&) { return ++made == 1 ? std::make_shared<StoringReader>(alive) : nullptr; });
  // The file system says 5, the helper 9 at first and then nothing.
  machine.writeFile(path("clips/first"), "12345");
  helpers.setAggregateFileSize([](const auto&...) -> std::uint64_t { throw std::runtime_error("no"); });
  int question = 0;
  helpers.setSizeOfFileAtPath([&](std::string_view) -> std::uint64_t { return ++question < 3 ? 9 : 0; });
  EXPECT_EQ(sizeOf("clips"), 3);
  EXPECT_EQ(made, 1);
  EXPECT_EQ(alive, 0);
  question = 0;
  EXPECT_EQ(sizeOf("clips"), 0) << "no reader reads nothing";
  StreamFileReader::setFactory({});
}

TEST_F(CodexSizes, ThatDoNotFitStopTheProcess) {
  machine.setReportedSize(path("clips/first"), kLargest - kBuiltBytes);  // the document is remembered already
  EXPECT_EQ(sizeOf("clips"), kLargest - kBuiltBytes);
  addEmpty("clips/second", "1");
  EXPECT_DEATH(sizeOf("clips"), "add up to more");
  machine.setReportedSize(path("clips/first"), std::uint64_t{kLargest} + 1);
  EXPECT_DEATH(sizeOf("clips/first"), "beyond a signed number");
  machine.setReportedSize(path("clips/first"), 0);
  addEmpty("clips/first", "-9223372036854775808");
  EXPECT_EQ(sizeOf("clips/first"), std::numeric_limits<std::int64_t>::min());
  EXPECT_DEATH(sizeOf("clips"), "no absolute value");
}

TEST_F(CodexSizes, OfAriFilesAreInTwoAttributes) {
  addEmpty("A.ari", "1000");
  addEmpty("A.ARI", "1000");
  addEmpty(".ari", "1000");
  using Attribute = CodexExtendedAttributes;
  const std::map<Attribute, std::int64_t> one{{Attribute::extimatedHDESize, 1000}};
  EXPECT_EQ(codexExtendedAttributes(url("A.ari")), one);
  machine.setAttribute(path("A.ari"), "codex.decodedSize", std::string("+2000\n\0", 7));
  EXPECT_EQ(codexExtendedAttributes(url("A.ari")).at(Attribute::decodedSize), 2000);
  EXPECT_THROW(codexExtendedAttributes(url("A.ARI")), ExtendedAttributesError);
  EXPECT_THROW(codexExtendedAttributes(url(".ari")), ExtendedAttributesError);
  EXPECT_EQ(codexDecodedSize(url("missing")), std::nullopt);
}

TEST_F(CodexSizes, OfATreeLeaveHiddenNamesOutOnRequest) {
  for (const char* name : {"clips/.hidden", "clips/.folder/inside"}) machine.writeFile(path(name), "1");
  machine.writeFile(path("clips/first"), "12345");
  constexpr unsigned kSkips = CrossAppFileManager::kSkipsHiddenFiles;
  EXPECT_EQ(helpers.aggregateFileSize(url("clips"), nullptr, 0), 7u);
  EXPECT_EQ(helpers.aggregateFileSize(url("clips"), nullptr, kSkips), 5u);
  EXPECT_EQ(helpers.aggregateFileSize(url("clips/.hidden"), nullptr, kSkips), 1u);
  const auto stop = [] { return false; };
  EXPECT_EQ(helpers.aggregateFileSize(url("clips"), stop, 0), 0u);
  const auto fail = []() -> bool { throw std::logic_error("no"); };
  EXPECT_THROW(helpers.aggregateFileSize(url("clips"), fail, 0), std::logic_error);
  EXPECT_THROW(helpers.aggregateFileSize(url("missing"), nullptr, 0), std::runtime_error);
}

}  // namespace
}  // namespace kmv::simulation
