// SPDX-License-Identifier: MIT
#pragma once

#include "platform/Platform.h"
#include "support/Guarded.h"
#include "support/Testing.h"

namespace kmv::test {

/// Listens to a session as the library does, and writes a line for each event: "appeared CARD at card", "changed CARD
/// (DAVolumePath)", "answered 0 CARD". Thread: its lines may be read on any.
class SessionRecorder {
 public:
  using Lines = std::vector<std::string>;
  /// How a path is written; none for a disk that is not the test's.
  using NameOf = std::function<std::optional<std::string>(const Dictionary&)>;

  SessionRecorder(Platform& platform, NameOf nameOf)
      : queue_(platform.queues().makeSerialQueue("session")),
        session_(platform.makeDiskArbitrationSession()),
        nameOf_(std::move(nameOf)) {
    session_->setQueue(queue_);
  }
  /// An event that was queued before the session ended may still be on its way to this recorder.
  ~SessionRecorder() {
    close();
    queue_->sync([] {});
  }
  SessionRecorder(const SessionRecorder&) = delete;
  SessionRecorder& operator=(const SessionRecorder&) = delete;

  void start() { session_->registerCallbacks({&appeared, &disappeared, &changed, &presentDisksTold}, this); }
  void close() { session_.reset(); }
  DiskArbitrationSession& session() { return *session_; }
  SerialQueue& queue() { return *queue_; }

  Lines lines() const {
    return heard_.with([](auto& heard) { return heard.lines; });
  }
  /// The lines since the last call.
  Lines take() {
    return heard_.with([](auto& heard) { return std::exchange(heard.lines, {}); });
  }
  Dictionary last() const {
    return heard_.with([](auto& heard) { return heard.last; });
  }
  /// How many lines there were when the session said that the present disks are told; one entry for each time.
  std::vector<std::size_t> linesOfTheStart() const {
    return heard_.with([](auto& heard) { return heard.linesOfTheStart; });
  }
  bool wasAlwaysOnItsQueue() const {
    return heard_.with([](auto& heard) { return heard.onItsQueue; });
  }

  /// To be given to a command, with the recorder as its context.
  static void answered(Disk* disk, const Dictionary* dissenter, void* self) {
    std::string line = "answered 0";
    if (dissenter != nullptr) {
      line = "answered " + std::to_string(dissenter->find(key::kDissenterStatus)->integerValue());
      if (const Value* id = dissenter->find(key::kDissenterProcessID))
        line += " by " + std::to_string(id->integerValue());
    }
    static_cast<SessionRecorder*>(self)->note(line, *disk);
  }

 private:
  struct Heard {
    Lines lines;
    Dictionary last;
    bool onItsQueue = true;
    std::vector<std::size_t> linesOfTheStart;
  };

  static void appeared(Disk* disk, void* self) {
    static_cast<SessionRecorder*>(self)->note("appeared", *disk);
  }
  static void presentDisksTold(void* self) {
    static_cast<SessionRecorder*>(self)->heard_.with(
        [](Heard& heard) { heard.linesOfTheStart.push_back(heard.lines.size()); });
  }
  static void disappeared(Disk* disk, void* self) {
    static_cast<SessionRecorder*>(self)->note("disappeared", *disk);
  }
  static void changed(Disk* disk, const ChangedKeys* keys, void* self) {
    std::string list;
    for (const std::string& key : *keys) list += (list.empty() ? " (" : " ") + key;
    static_cast<SessionRecorder*>(self)->note("changed", *disk, list + ")");
  }

  void note(const std::string& word, const Disk& disk, const std::string& end = "") {
    const auto description = disk.copyDescription();
    const auto name = description ? nameOf_(*description) : "without description";
    if (!name) return;
    heard_.with([&](Heard& heard) {
      heard.lines.push_back(word + " " + *name + end);
      heard.last = description.value_or(Dictionary());
      heard.onItsQueue = heard.onItsQueue && queue_->isCurrent();
    });
  }

  std::shared_ptr<SerialQueue> queue_;
  std::unique_ptr<DiskArbitrationSession> session_;
  NameOf nameOf_;
  Guarded<Heard> heard_;
};

}  // namespace kmv::test
