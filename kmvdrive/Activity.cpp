// SPDX-License-Identifier: MIT
#include "kmvdrive/Activity.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDiskBSDBaseWrapper.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>
#include <KMVDriveLibrary/Queue.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <sstream>
#include <utility>

#include "kmvdrive/DriveFacts.h"

namespace kmv::tool {
namespace {

constexpr std::size_t kBarWidth = 12;

/// So many cycles of a monitor announce nothing.
constexpr std::uint64_t kSilentCycles = 5;

std::optional<Flow> flowOf(const KMVDriveIOActivity::Delta& delta) {
  const auto bytes = delta == nullptr ? std::nullopt : bytesMoved(*delta);
  return bytes ? std::optional(Flow{*bytes, delta->elapsedTime()}) : std::nullopt;
}

double rateOf(const std::optional<Flow>& flow) {
  return flow ? flow->rate() : 0;
}

std::shared_ptr<Object> diskOf(const Dictionary& drive) {
  const Value* value = drive.find(kDiskWrapperKey);
  const auto wrapper =
      value == nullptr ? nullptr : std::dynamic_pointer_cast<KMVDiskBSDBaseWrapper>(value->asObject());
  return wrapper == nullptr ? nullptr : wrapper->rootVolumeWrapper();
}

std::string rateText(double rate) {
  return sizeText(static_cast<std::uint64_t>(std::min(rate, 1.8e19))) + "/s";
}

/// A bar of at most `kBarWidth` columns, in eighths of one.
std::string barOf(double share, bool blocks) {
  constexpr std::array<const char*, 8> kEighths{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  const auto eighths = static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * kBarWidth * 8));
  std::string bar;
  for (std::size_t full = eighths / 8; full > 0; --full) bar += blocks ? "█" : "#";
  if (blocks) bar += kEighths[eighths % 8];
  return bar;
}

std::string sparkOf(const std::deque<double>& history, bool blocks) {
  constexpr std::array<const char*, 8> kLevels{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::string_view kPlainLevels = "._-~=+*#";
  const double most = history.empty() ? 0 : *std::max_element(history.begin(), history.end());
  std::string spark;
  for (const double value : history) {
    const std::size_t level = most > 0 ? static_cast<std::size_t>(value / most * 7) : 0;
    if (blocks) {
      spark += kLevels[level];
    } else {
      spark += kPlainLevels[level];
    }
  }
  return spark;
}

/// `most` is the highest rate, for which the bar is full.
std::vector<std::string> cellsOf(const BoardLine& line, double most, bool blocks) {
  if (line.measure == Measure::notAtAll)
    return {line.name, line.kind, "", "", "not measured", "", line.mountPoint};
  std::string bar = barOf(most > 0 ? line.history.back() / most : 0, blocks);
  bar.append(kBarWidth - std::min(kBarWidth, displayWidth(bar)), ' ');
  return {line.name,
          line.kind,
          rateText(rateOf(line.read)),
          rateText(rateOf(line.written)),
          bar,
          sparkOf(line.history, blocks),
          line.mountPoint};
}

JSON jsonOfFlow(const Flow& flow) {
  return {{"bytes", flow.bytes}, {"seconds", flow.seconds}};
}

}  // namespace

void ActivityBoard::update(const MountedDictionaries& drives, const Activities& activities,
                           const std::function<Measure(const URL& standardized)>& measureOf) {
  std::map<std::string, std::deque<double>> histories;
  for (BoardLine& line : lines_) histories[line.url] = std::move(line.history);
  lines_.clear();
  for (const auto& [key, drive] : drives) {
    const URL* url = drive->url(key::kVolumePath);
    if (url == nullptr) continue;
    const URL standardized = url->standardized();
    const DriveSummary summary = summaryOf(*drive);
    BoardLine line{url->absoluteString(), summary.mountPoint, summary.name,
                   summary.kind,          diskOf(*drive),     measureOf(standardized)};
    if (const auto activity = activities.find(standardized); activity != activities.end()) {
      line.read = flowOf(activity->second->readDelta());
      line.written = flowOf(activity->second->writeDelta());
    }
    line.history = std::move(histories[line.url]);
    line.history.push_back(rateOf(line.read) + rateOf(line.written));
    if (line.history.size() > kHistory) line.history.pop_front();
    lines_.push_back(std::move(line));
  }
}

double ActivityBoard::highestRate() const {
  double most = 0;
  for (const BoardLine& line : lines_) {
    for (const double rate : line.history) most = std::max(most, rate);
  }
  return most;
}

double ActivityBoard::total(std::optional<Flow> BoardLine::*side) const {
  std::set<const Object*> counted;
  double sum = 0;
  for (const BoardLine& line : lines_) {
    if (!(line.*side)) continue;
    if (line.disk != nullptr && !counted.insert(line.disk.get()).second) continue;
    sum += rateOf(line.*side);
  }
  return sum;
}

JSON ActivityBoard::asJSON(double secondsSince1970) const {
  JSON document = {{"time", secondsSince1970}, {"drives", JSON::array()}};
  for (const BoardLine& line : lines_) {
    JSON drive = {{"url", line.url}, {"path", line.mountPoint}, {"name", line.name}, {"kind", line.kind}};
    drive["measured"] = line.measure == Measure::byPlatform  ? "platform"
                        : line.measure == Measure::byReports ? "reports"
                                                             : "no";
    if (line.read) drive["read"] = jsonOfFlow(*line.read);
    if (line.written) drive["written"] = jsonOfFlow(*line.written);
    document["drives"].push_back(std::move(drive));
  }
  document["total"] = {{"readBytesPerSecond", totalRead()}, {"writtenBytesPerSecond", totalWritten()}};
  return document;
}

std::vector<std::string> ActivityBoard::asText(const Style& style, std::size_t columns, bool blocks) const {
  Table table({{"DRIVE"},
               {"KIND"},
               {"READ", Table::Align::right},
               {"WRITTEN", Table::Align::right},
               {"BUSY"},
               {"BEFORE"},
               {"MOUNT POINT"}});
  const double most = highestRate();
  for (const BoardLine& line : lines_) table.addRow(cellsOf(line, most, blocks));
  table.addRow({"all disks", "", rateText(totalRead()), rateText(totalWritten()), std::string(kBarWidth, ' '),
                "", ""});
  std::vector<std::string> out;
  std::istringstream text(table.text(Style(false)));
  for (std::string line; std::getline(text, line);) {
    const auto look = out.empty() ? Style::Look::heading : Style::Look::plain;
    out.push_back(style.apply(look, clippedText(line, columns)));
  }
  return out;
}

JSON jsonOfActivities(const ActivityBoard::Activities& activities) {
  JSON drives = JSON::object();
  for (const auto& [url, activity] : activities) {
    JSON sides = JSON::object();
    if (const auto read = flowOf(activity->readDelta())) sides["read"] = jsonOfFlow(*read);
    if (const auto written = flowOf(activity->writeDelta())) sides["written"] = jsonOfFlow(*written);
    if (!sides.empty()) drives[url.absoluteString()] = std::move(sides);
  }
  return drives;
}

ActivityFeed::ActivityFeed(Hear hear) : hear_(std::make_shared<const Hear>(std::move(hear))) {
  registration_ = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterDriveActivityDidUpdateNotification,
      [weak = std::weak_ptr<const Hear>(hear_)](const Notification& notification) {
        mainQueue().async([weak, activities = driveActivities(notification)] {
          if (const auto listener = weak.lock()) (*listener)(activities);
        });
      });
  // As if the silent cycles were over. The first cycle has nothing to compare with; the second covers a whole
  // second.
  KMVDriveActivityMonitor::defaultMonitor().setLoadCycles(kSilentCycles);
}

Measure measureOfDrive(const URL& standardized) {
  const auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  if (monitor.ioServiceTracker()->cachedIOStatistics()->contains(standardized)) return Measure::byPlatform;
  return monitor.appTracker()->cachedIOStatistics()->contains(standardized) ? Measure::byReports
                                                                            : Measure::notAtAll;
}

}  // namespace kmv::tool
