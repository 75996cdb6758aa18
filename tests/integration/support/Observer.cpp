// SPDX-License-Identifier: MIT
#include "integration/support/Observer.h"

#include <mntent.h>

#include "support/Process.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using Clock = std::chrono::steady_clock;

/// How long nothing more may come after the expected announcements.
constexpr std::chrono::milliseconds kQuiet{200};

}  // namespace

Observer::Observer(std::string folder) : folder_(std::move(folder)) {
  listen(kDiskArbiterNewDiskDetectedNotification, "added ");
  listen(kDiskArbiterRemovedDiskDetectedNotification, "removed ");
  listen(kDiskArbiterChangedDiskDetectedNotification, "changed ");
  arbiter().startArbiter();
}

void Observer::listen(std::string_view name, const std::string& word) {
  registrations_.push_back(
      NotificationCenter::defaultCenter().addObserver(name, [this, word](const Notification& notification) {
        const auto contents = notification.object.dictionary();
        const URL* url = contents->url(kDiskURLKey);
        ASSERT_NE(url, nullptr);
        if (const auto below = nameOf(url->path())) lines_.push_back(word + *below);
      }));
}

std::optional<std::string> Observer::nameOf(const std::string& path) const {
  return path.starts_with(folder_ + "/") ? std::optional(path.substr(folder_.size() + 1)) : std::nullopt;
}

void Observer::pump(std::chrono::milliseconds limit) {
  pollfd request{mainQueue().fileDescriptor(), POLLIN, 0};
  if (poll(&request, 1, static_cast<int>(limit.count())) > 0) mainQueue().drain();
}

bool Observer::waitFor(const std::function<bool()>& condition) {
  const auto deadline = Clock::now() + test::kPatience;
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    pump(std::chrono::milliseconds(5));
  }
  return true;
}

void Observer::expect(const Lines& lines) {
  waitFor([&] { return lines_.size() >= expected_ + lines.size(); });
  const auto end = Clock::now() + kQuiet;
  while (Clock::now() < end) pump(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
  EXPECT_EQ(Lines(lines_.begin() + static_cast<std::ptrdiff_t>(expected_), lines_.end()), lines);
  expected_ = lines_.size();
}

Observer::Lines Observer::present() {
  Lines names;
  for (const auto& [url, contents] : arbiter().mountedDictionaries()) {
    if (const auto name = nameOf(url.path())) names.push_back(*name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

DictionarySnapshot Observer::drive(const std::string& name) {
  return arbiter().mountedDictionaries().find(
      URL::fileURLWithPath(folder_ + "/" + name, /*isDirectory=*/true));
}

DictionarySnapshot Observer::findUnmounted(const std::string& bsdName) {
  for (const auto& description : arbiter().unmountedDictionaries()) {
    const std::string* name = description->text("DAMediaBSDName");
    if (name != nullptr && *name == bsdName) return description;
  }
  return nullptr;
}

DictionarySnapshot Observer::unmounted(const std::string& bsdName, bool isWaitedFor) {
  DictionarySnapshot found = findUnmounted(bsdName);
  if (isWaitedFor) waitFor([&] { return (found = findUnmounted(bsdName)) != nullptr; });
  return found;
}

bool Observer::isForgotten(const std::string& bsdName) {
  return waitFor([&] { return findUnmounted(bsdName) == nullptr; });
}

std::string Observer::hidingRule(const std::string& name) {
  for (const HiddenMount& mount : hiddenMounts()) {
    if (mount.path == folder_ + "/" + name) return mount.rule;
  }
  return {};
}

void Observer::expectAlternation() const {
  std::set<std::string> present;
  for (const std::string& line : lines_) {
    const std::size_t blank = line.find(' ');
    const std::string name = line.substr(blank + 1);
    EXPECT_TRUE(line.starts_with("added ") ? present.insert(name).second : present.erase(name) == 1) << line;
  }
}

void Observer::compareWithMountTable() {
  Lines points;
  FILE* const table = setmntent("/proc/self/mounts", "r");
  while (const mntent* mount = getmntent(table)) {
    const auto name = nameOf(mount->mnt_dir);
    if (name && std::string_view(mount->mnt_fsname).starts_with("/dev/")) points.push_back(*name);
  }
  endmntent(table);
  std::sort(points.begin(), points.end());
  EXPECT_TRUE(waitFor([&] { return present() == points; }));
  EXPECT_EQ(present(), points);
}

}  // namespace kmv::integration
