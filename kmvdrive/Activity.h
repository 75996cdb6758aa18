// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDriveActivityMonitor.h>
#include <KMVDriveLibrary/LoadMeter.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/PresentDriveTable.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kmvdrive/DisplayText.h"
#include "kmvdrive/ValueJSON.h"

namespace kmv::tool {

/// One side of one drive in one cycle. A step back of the counters is left out everywhere.
struct Flow {
  std::uint64_t bytes = 0;
  double seconds = 0;
  double rate() const { return seconds > 0 ? static_cast<double>(bytes) / seconds : 0; }
};

/// How a drive's figures come about.
enum class Measure { byPlatform, byReports, notAtAll };

/// One drive, as a line of the board.
struct BoardLine {
  std::string url;
  std::string mountPoint;
  std::string name;
  std::string kind;
  Measure measure = Measure::notAtAll;
  std::optional<Flow> read = {};
  std::optional<Flow> written = {};
  std::deque<double> history = {};  ///< bytes a second, both sides, oldest first
  std::optional<DriveLoad> load =
      {};  ///< of the same time, nearly; none for what the platform does not measure
};

/// How busy the drives are: the latest figures of each, and those of a short while before.
class ActivityBoard {
 public:
  using Activities = std::map<URL, std::shared_ptr<KMVDriveIOActivity>>;

  /// How many figures a history has.
  static constexpr std::size_t kHistory = 16;

  /// A cycle is over: these drives are there, and these moved something. `measureOf` tells how a drive's
  /// figures come about.
  void update(const MountedDictionaries& drives, const Activities& activities,
              const std::function<Measure(const URL& standardized)>& measureOf,
              const LoadMeter::Loads& loads);

  /// In ascending order of the URLs.
  const std::vector<BoardLine>& lines() const { return lines_; }

  /// Bytes a second: of the physical disks, each once, and of what only hosts report.
  double totalRead() const { return total(&BoardLine::read, &DriveLoad::bytesRead); }
  double totalWritten() const { return total(&BoardLine::written, &DriveLoad::bytesWritten); }

  /// One object of JSON lines.
  JSON asJSON(double secondsSince1970) const;
  /// A table for people, in lines of at most `columns`; `blocks` says whether the terminal shows block
  /// characters.
  std::vector<std::string> asText(const Style& style, std::size_t columns, bool blocks) const;

 private:
  double highestRate() const;
  double total(std::optional<Flow> BoardLine::*side, std::uint64_t DriveLoad::*measured) const;

  std::vector<BoardLine> lines_;
  DriveLoad allDisks_;
};

/// What moved, as `{"URL": {"read": {"bytes": N, "seconds": S}, "written": {...}}}`; sides that did not move,
/// and steps back of a counter, are left out.
JSON jsonOfActivities(const ActivityBoard::Activities& activities);

/// Starts the activity monitor and brings what it announces to the main queue, for as long as this lives.
///
/// The first figures come after a second, not after the silent cycles of a monitor.
class ActivityFeed {
 public:
  using Hear = std::function<void(const ActivityBoard::Activities& activities)>;

  explicit ActivityFeed(Hear hear);

 private:
  std::shared_ptr<const Hear> hear_;
  NotificationCenter::Registration registration_;
};

/// How the monitor comes to figures of the drive of this URL.
Measure measureOfDrive(const URL& standardized);

}  // namespace kmv::tool
