// SPDX-License-Identifier: MIT
// Random machines: the registry's lists must be those of a plain model that is told the raw events.
#include "platform/macos/DiskSession.h"
#include "platform/macos/MacLibrary.h"
#include "support/PlainModel.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

/// Writes the raw events down, on a queue and with a session of its own.
class RawEvents {
 public:
  RawEvents() : queue_(MacQueueFactory::makeQueue("raw events", QualityOfService::unspecified)) {
    session_.setQueue(queue_);
    session_.registerCallbacks({&appeared, &disappeared, &changed}, this);
  }

  void tell(simulation::PlainModel& model) {
    for (const Event& event : events_.with([](auto& events) { return std::exchange(events, {}); })) {
      if (event.what == 'a') model.appeared(event.description);
      if (event.what == 'd') model.disappeared(event.description);
      if (event.what == 'c') model.changed(event.description, event.keys);
    }
  }

 private:
  struct Event {
    char what;
    Dictionary description;
    ChangedKeys keys = {};
  };
  static void note(void* self, Event event) {
    static_cast<RawEvents*>(self)->events_.with([&](auto& events) { events.push_back(std::move(event)); });
  }
  static void appeared(Disk* disk, void* self) { note(self, {'a', *disk->copyDescription()}); }
  static void disappeared(Disk* disk, void* self) { note(self, {'d', *disk->copyDescription()}); }
  static void changed(Disk* disk, const ChangedKeys* keys, void* self) {
    note(self, {'c', *disk->copyDescription(), *keys});
  }

  const std::shared_ptr<SerialQueue> queue_;
  Guarded<std::vector<Event>> events_;
  DiskSession session_;
};

/// Does one thing after the other to a few disks.
class Hands {
 public:
  explicit Hands(unsigned seed) : engine_(seed) {}
  void act() {
    const std::string name = "disk" + std::to_string(2 + below(4));
    std::string& point = points_[name];
    switch (attached_[name] ? below(6) : 6) {
      case 0:
      case 1:
        point = somewhere();
        return fake::mountDisk(name, point);
      case 2:
        if (!point.empty()) fake::unmountDisk(name);
        return point.clear();
      case 3:
        if (point.empty()) return;
        point = "/Volumes/" + std::to_string(++names_);
        return fake::renameVolume(name, std::to_string(names_));
      case 4:
        attached_[name] = false;
        point.clear();
        return fake::detach(name);
      case 5:
        return fake::change(name, {{"DAMediaSize", std::int64_t{names_}}});
      default:
        attached_[name] = true;
        point = below(2) == 0 ? std::string() : somewhere();
        fake::attach({.bsdName = name, .mountPoint = point, .description = descriptionOf(name)});
    }
  }
  /// One that comes and goes with its mount.
  void share() {
    if (shared_) {
      fake::unmountDisk("/Volumes/share");
    } else {
      fake::attach({.mountPoint = "/Volumes/share", .kind = "smbfs", .source = "//host/share"});
    }
    shared_ = !shared_;
  }
  /// Everything that is attached.
  void putAway() {
    for (const auto& [name, isAttached] : attached_) {
      if (isAttached) fake::detach(name);
    }
    if (shared_) share();
  }
  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }

 private:
  std::string somewhere() { return "/Volumes/" + std::to_string(++names_); }
  fake::Entries descriptionOf(const std::string& name) {
    fake::Entries entries{{"DAVolumeName", name}, {"DADeviceInternal", below(2) == 0}};
    if (below(3) != 0)
      entries["DAVolumeUUID"] = fake::UUIDText{"00000000-0000-0000-0000-00000000000" + name.substr(4)};
    return entries;
  }

  std::mt19937 engine_;
  std::map<std::string, std::string> points_;
  std::map<std::string, bool> attached_;
  int names_ = 0;
  bool shared_ = false;
};

class MacRandom : public MacLibrary {
 protected:
  void compare(unsigned seed) {
    settle();
    raw_->tell(model_);
    const auto urls = arbiter().volumeURLsCurrentlyMounted()->snapshot();
    std::vector<Dictionary> unmounted;
    for (const auto& description : arbiter().unmountedDictionaries()) unmounted.push_back(*description);
    ASSERT_EQ(simulation::printed(arbiter().mountedDictionaries(), {urls.begin(), urls.end()}, unmounted),
              simulation::printed(model_.present, model_.urls, model_.unmounted))
        << "seed " << seed;
  }

  std::unique_ptr<RawEvents> raw_;

 private:
  simulation::PlainModel model_;
};

TEST_F(MacRandom, TheListsAreThoseOfThePlainModelAfterEveryFewEvents) {
  start();
  raw_ = std::make_unique<RawEvents>();
  for (unsigned seed = 1; seed <= 200; ++seed) {
    Hands hands(seed);
    for (int step = 0; step < 20; ++step) {
      hands.below(8) == 0 ? hands.share() : hands.act();
      if (hands.below(3) == 0) compare(seed);
      if (HasFatalFailure()) return;
    }
    hands.putAway();
    compare(seed);
    if (HasFatalFailure()) return;
  }
  raw_.reset();
}

}  // namespace
}  // namespace kmv::macos
