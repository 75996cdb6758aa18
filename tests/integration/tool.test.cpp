// SPDX-License-Identifier: MIT
// kmvdrive beside real volumes: what it tells of them and does to them.
#include "integration/support/ToolStory.h"
#include "kmvdrive/CommandLine.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(ToolStory, WatchTellsTheLifeOfAVolumeAndEndsWhenAsked) {
  const LoopDevice early = newVolume("ext4", "Early");
  mountVolume(early.node(), space().folder("early"), "ext4");
  Watch watch(space().scratch());
  const json present = watch.next();
  EXPECT_EQ(present.value("event", ""), "present");
  EXPECT_EQ(present.at("drive").at("name"), "Early");
  EXPECT_EQ(present.at("drive").at("bsdName"), early.name());
  EXPECT_EQ(present.at("drive").at("mountedBeforeStart"), true);

  const std::string second = space().folder("second");
  mountCard();
  watch.expect({"added card"});
  moveMount(point, second);
  watch.expect({"removed card", "added second"});
  unmount(second);
  watch.expect({"removed second"});
  unmount(space().path("early"));
  watch.expect({"removed early"});
  EXPECT_TRUE(watch.disks().contains("diskRemoved " + card().name())) << "mounted";
  EXPECT_TRUE(watch.disks().contains("diskAdded " + card().name())) << "unmounted";
  watch.stop();
}

TEST_F(ToolStory, WatchTellsWhatADriveMoves) {
  mountCard();
  Watch watch(space().scratch());
  watch.expect({"present card"});
  const std::string url = URL::fileURLWithPath(point, /*isDirectory=*/true).absoluteString();
  EXPECT_TRUE(eventually([&] {
    std::ofstream(point + "/clip") << std::string(100'000, 'x');
    sync();
    return watch.readActivity().contains(url);
  }));
  const json written = watch.readActivity().value(url, json::object()).value("written", json::object());
  EXPECT_GT(written.value("bytes", 0), 0);
  EXPECT_GT(written.value("seconds", 0.0), 0);
  watch.stop();
}

/// The disk of this name in `kmvdrive tree --json`; null when it is not there.
json diskInTree(const std::string& name) {
  const json document = json::parse(run(kmvdrive({"tree", "--json"})).output);
  for (const json& disk : document.at("disks")) {
    if (disk.at("name") == name) return disk;
  }
  return nullptr;
}

TEST_F(ToolStory, TheTreeShowsADiskWithItsPartitionsUntilItIsDetached) {
  constexpr long long kMegabyte = 1 << 20;
  const std::string image = space().path("disk.img");
  std::ofstream(image).close();
  std::filesystem::resize_file(image, 80 * kMegabyte);
  LoopDevice disk(image);
  for (const char* number : {"1", "2"}) {
    const int place = *number - '0';
    const std::string node = disk.node() + "p" + number;
    if (!disk.addPartition(place, (32 * place - 31) * kMegabyte, 32 * kMegabyte))
      GTEST_SKIP() << "needs partitions on loop devices";
    ASSERT_TRUE(eventually([&] { return access(node.c_str(), R_OK) == 0; }));
    ASSERT_EQ(run({"mkfs.ext4", "-q", "-L", std::string("Part") + number, node}).exitCode, 0);
  }
  mountVolume(disk.node() + "p1", point, "ext4");
  const json tree = diskInTree(disk.name());
  ASSERT_FALSE(tree.is_null());
  EXPECT_EQ(tree["size"], 80 * kMegabyte);
  EXPECT_EQ(tree["partitions"][0]["mountPoints"], json::array({point}));
  EXPECT_THAT(said({"tree"}), HasSubstr("├─ " + disk.name() + "p1  34 MB  ext4  \"Part1\"  " + point +
                                        "\n└─ " + disk.name() + "p2  34 MB  ext4  \"Part2\"  not mounted\n"));
  unmount(point);
  disk.detach();
  EXPECT_TRUE(diskInTree(disk.name()).is_null());
}

TEST_F(ToolStory, AnUnmountAndARenameEndWithACodeThatTellsScriptsHow) {
  mountCard();
  EXPECT_EQ(said({"rename", point, "Reel"}), "0 renamed \"" + point + "\" to \"Reel\"\n");
  EXPECT_EQ(blkidValue(card().node(), "LABEL"), "Reel");
  EXPECT_THAT(said({"rename", point, "a name far too long"}), StartsWith("4 kmvdrive: cannot rename"));
  EXPECT_THAT(said({"unmount", point + "/lost+found"}), StartsWith("3 kmvdrive: no drive is mounted at"));
  {
    Process holder({"sh", "-c", "cd \"$1\" && echo in && exec sleep 100", "sh", point});
    ASSERT_EQ(holder.readLine(), "in");
    EXPECT_EQ(said({"unmount", point}), "4 kmvdrive: cannot unmount \"" + point +
                                            "\": something on it is in use (status 0xF8DA0002, process " +
                                            std::to_string(holder.id()) + ")\n");
  }
  EXPECT_EQ(said({"unmount", point + "/"}), "0 unmounted \"" + point + "\"\n");
  EXPECT_THAT(said({"unmount", point}), StartsWith("3 "));
}

/// What this process prints while it runs `kmvdrive`, line by line as it comes.
class OwnOutput {
 public:
  OwnOutput() : before_(dup(STDOUT_FILENO)) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    lines_ = fdopen(ends[0], "r");
  }
  ~OwnOutput() {
    dup2(before_, STDOUT_FILENO);
    close(before_);
    fclose(lines_);
  }
  json next() {
    char line[8192];
    while (std::fgets(line, sizeof line, lines_) != nullptr) {
      json event = json::parse(line);
      const bool isOthers =
          event.at("event") == "activity" || event.at("event").get<std::string>().starts_with("disk");
      if (!isOthers) return event;
    }
    return {};
  }

 private:
  int before_;
  FILE* lines_ = nullptr;
};

TEST_F(ToolStory, AWatchShowsTheAnswersToCommandsOfItsProcess) {
  mountCard();
  const URL root = URL::fileURLWithPath(point, true);
  std::vector<json> answers;
  std::thread host([&, output = std::make_unique<OwnOutput>()] {
    sigset_t all;  // the tool's own thread takes the signal, as in its process
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    while (output->next()["drive"]["path"] != point) {
    }
    KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
    const int held = open(point.c_str(), O_RDONLY | O_CLOEXEC);
    arbiter.unmountVolumeAtRootURL(root);
    answers.push_back(output->next());
    close(held);
    for (const char* name : {"Reel", "a name far too long"}) {
      arbiter.renameDriveWithRootURL(root, name);
      answers.push_back(output->next());
    }
    kill(getpid(), SIGTERM);
  });
  const char* const words[] = {"kmvdrive", "watch", "--json"};
  EXPECT_EQ(tool::runCommandLine(3, words), tool::ExitCode::ok);
  host.join();
  for (json& answer : answers) EXPECT_TRUE(answer["time"].is_number() && answer.erase("time"));
  const auto answer = [&](json facts) {
    facts.update({{"path", point}, {"url", root.absoluteString()}, {"schema", 1}});
    return facts;
  };
  const json busy = {{"event", "ejectionRejected"}, {"status", dissent::kBusy}, {"pid", getpid()}};
  EXPECT_EQ(json(answers), json::array({answer(busy), answer({{"event", "renameSucceeded"}}),
                                        answer({{"event", "renameFailed"}})}));
}

}  // namespace
}  // namespace kmv::integration
