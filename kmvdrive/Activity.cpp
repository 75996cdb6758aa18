// SPDX-License-Identifier: MIT
#include "kmvdrive/Activity.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/Queue.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
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

/// On one scale for all drives, whose end is `most`.
std::string sparkOf(const std::deque<double>& history, double most, bool blocks) {
  constexpr std::array<const char*, 8> kLevels{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::string_view kPlainLevels = "._-~=+*#";
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

std::string perSecond(std::uint64_t operations, double seconds) {
  return seconds > 0 ? std::to_string(std::lround(static_cast<double>(operations) / seconds)) : std::string();
}

/// "0.5 ms": how long an operation of either kind took on average.
std::string waitText(const DriveLoad& load) {
  const auto operations = static_cast<double>(load.reads + load.writes);
  if (operations == 0) return {};
  const double sum =
      load.readWait * static_cast<double>(load.reads) + load.writeWait * static_cast<double>(load.writes);
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", sum / operations * 1000);
  return text;
}

std::string busyText(const DriveLoad& load, bool blocks) {
  if (!load.utilisation) return {};
  std::string bar = barOf(*load.utilisation, blocks);
  bar.append(kBarWidth - std::min(kBarWidth, displayWidth(bar)), ' ');
  const std::string percent = std::to_string(std::lround(*load.utilisation * 100));
  return bar + std::string(4 - std::min<std::size_t>(3, percent.size()), ' ') + percent + "%";
}

/// The cells of what was measured: operations, wait, utilisation.
std::vector<std::string> cellsOf(const DriveLoad& load, bool blocks) {
  return {perSecond(load.reads, load.seconds), perSecond(load.writes, load.seconds), waitText(load),
          busyText(load, blocks)};
}

/// `most` is the highest rate, the end of the histories' scale.
std::vector<std::string> cellsOf(const BoardLine& line, double most, bool blocks) {
  const bool isMeasured = line.measure != Measure::notAtAll || line.load;
  std::vector<std::string> cells{line.name, line.kind,
                                 isMeasured ? rateText(rateOf(line.read)) : "not measured",
                                 isMeasured ? rateText(rateOf(line.written)) : ""};
  for (std::string& cell : line.load ? cellsOf(*line.load, blocks) : std::vector<std::string>(4))
    cells.push_back(std::move(cell));
  cells.push_back(isMeasured ? sparkOf(line.history, most, blocks) : "");
  cells.push_back(line.mountPoint);
  return cells;
}

JSON jsonOfLoad(const DriveLoad& load) {
  JSON document = {
      {"seconds", load.seconds},    {"bytesRead", load.bytesRead}, {"bytesWritten", load.bytesWritten},
      {"reads", load.reads},        {"writes", load.writes},       {"readWait", load.readWait},
      {"writeWait", load.writeWait}};
  if (load.utilisation) document["utilisation"] = *load.utilisation;
  return document;
}

JSON jsonOfFlow(const Flow& flow) {
  return {{"bytes", flow.bytes}, {"seconds", flow.seconds}};
}

}  // namespace

void ActivityBoard::update(const MountedDictionaries& drives, const Activities& activities,
                           const std::function<Measure(const URL& standardized)>& measureOf,
                           const LoadMeter::Loads& loads) {
  std::map<std::string, std::deque<double>> histories;
  for (BoardLine& line : lines_) histories[line.url] = std::move(line.history);
  lines_.clear();
  allDisks_ = loads.allDisks;
  for (const auto& [key, drive] : drives) {
    const URL* url = drive->url(key::kVolumePath);
    if (url == nullptr) continue;
    const URL standardized = url->standardized();
    const DriveSummary summary = summaryOf(*drive);
    BoardLine line{url->absoluteString(), summary.mountPoint, summary.name, summary.kind,
                   measureOf(standardized)};
    if (const auto load = loads.drives.find(*url); load != loads.drives.end()) line.load = load->second;
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

double ActivityBoard::total(std::optional<Flow> BoardLine::*side, std::uint64_t DriveLoad::*measured) const {
  double sum = allDisks_.seconds > 0 ? static_cast<double>(allDisks_.*measured) / allDisks_.seconds : 0;
  for (const BoardLine& line : lines_) {
    if (line.measure == Measure::byReports) sum += rateOf(line.*side);
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
    if (line.load) drive["load"] = jsonOfLoad(*line.load);
    document["drives"].push_back(std::move(drive));
  }
  document["total"] = {{"readBytesPerSecond", totalRead()},
                       {"writtenBytesPerSecond", totalWritten()},
                       {"load", jsonOfLoad(allDisks_)}};
  return document;
}

std::vector<std::string> ActivityBoard::asText(const Style& style, std::size_t columns, bool blocks) const {
  const double most = highestRate();
  const std::string scale = "LAST " + std::to_string(kHistory) + ", TO " + rateText(most);
  constexpr auto kRight = Table::Align::right;
  Table table({{"DRIVE", Table::Align::left, 90},
               {"KIND", Table::Align::left, 10},
               {"READ", kRight, 80},
               {"WRITTEN", kRight, 85},
               {"READS/S", kRight, 30},
               {"WRITES/S", kRight, 35},
               {"WAIT", kRight, 60},
               {"BUSY", Table::Align::left, 70},
               {scale, Table::Align::left, 20},
               {"MOUNT POINT", Table::Align::left, 95}});
  std::vector<std::string> all{"all disks", "", rateText(totalRead()), rateText(totalWritten())};
  for (std::string& cell : cellsOf(allDisks_, blocks)) all.push_back(std::move(cell));
  all.insert(all.end(), {"", ""});
  table.addRow(std::move(all));
  for (const BoardLine& line : lines_) table.addRow(cellsOf(line, most, blocks));
  std::vector<std::string> out;
  std::istringstream text(table.text(Style(false), columns));
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
