// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>

#include "integration/support/FuseServer.h"
#include "integration/support/Story.h"
#include "support/Testing.h"

namespace kmv::integration {

using nlohmann::json;

/// `kmvdrive` with these arguments.
inline Process::Words kmvdrive(Process::Words arguments) {
  arguments.insert(arguments.begin(), KMVDRIVE_PROGRAM);
  return arguments;
}

/// `kmvdrive watch --json` and its lines about drives below one folder.
class Watch {
 public:
  explicit Watch(std::string folder, Process::Words words = kmvdrive({"watch", "--json"}),
                 const Process::Words& environment = {})
      : folder_(std::move(folder)), process_(std::move(words), environment) {}

  /// The next event about the folder; null when none comes.
  json next() {
    while (const auto line = process_.readLine()) {
      json event = json::parse(*line);
      if (event.at("event") == "activity") continue;  // what others do to their drives
      if (!event.at("drive").contains("path")) {      // a disk that is not mounted
        disks_.insert(event.at("event").get<std::string>() + " " + event.at("drive").value("bsdName", ""));
        continue;
      }
      if (event.at("drive").at("path").get<std::string>().starts_with(folder_ + "/")) return event;
    }
    return nullptr;
  }
  /// "added first", or why not.
  std::string nextInShort() {
    const json event = next();
    if (event.is_null()) return "nothing";
    EXPECT_GE(event.at("time"), lastTime_);
    lastTime_ = event.at("time");
    return event.at("event").get<std::string>() + " " +
           event.at("drive").at("path").get<std::string>().substr(folder_.size() + 1);
  }
  void expect(const std::vector<std::string>& events) {
    for (const std::string& event : events) EXPECT_EQ(nextInShort(), event);
  }
  /// What each drive moved when that was last told, by its URL; reads one more line first.
  const json& readActivity() {
    const auto line = process_.readLine();
    const json event = line ? json::parse(*line) : json{{"event", "none"}};
    if (event.at("event") == "activity") activity_.update(event.at("drives"));
    return activity_;
  }
  /// "diskAdded loop0", of what was read so far; others' too.
  const std::set<std::string>& disks() const { return disks_; }
  Process& process() { return process_; }
  /// Asks it to end, and reads what it still says.
  void stop() {
    process_.signal(SIGTERM);
    process_.readAll();
    EXPECT_EQ(process_.exitCode(), 0);
  }

 private:
  std::string folder_;
  Process process_;
  json activity_ = json::object();
  std::set<std::string> disks_;
  double lastTime_ = 1e9;
};

/// A story of the program with a card, and with what it says.
class ToolStory : public FuseStory {
 protected:
  void SetUp() override {
    FuseStory::SetUp();
    if (IsSkipped()) return;
    card_.emplace(newVolume("ext4", "Card"));
    point = space().folder("card");
  }
  const LoopDevice& card() const { return *card_; }
  void mountCard() { mountVolume(card().node(), point, "ext4"); }

  /// "0 ", what it printed and what it complained of.
  static std::string said(Process::Words arguments) {
    const Ran ran = run(kmvdrive(std::move(arguments)), {}, Process::Errors::kept);
    return std::to_string(ran.exitCode.value_or(-1)) + " " + ran.output + ran.errors;
  }

  std::string point;

 private:
  std::optional<LoopDevice> card_;
};

}  // namespace kmv::integration
