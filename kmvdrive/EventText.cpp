// SPDX-License-Identifier: MIT
#include "kmvdrive/EventText.h"

#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "kmvdrive/DisplayText.h"
#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/DriveSummary.h"
#include "kmvdrive/RefusalText.h"

namespace kmv::tool {
namespace {

struct EventLook {
  const char* name;
  Style::Look look;
};

EventLook lookOf(DriveEvent event) {
  switch (event) {
    case DriveEvent::present:
      return {"present", Style::Look::plain};
    case DriveEvent::added:
      return {"added", Style::Look::good};
    case DriveEvent::removed:
      return {"removed", Style::Look::bad};
    case DriveEvent::changed:
      return {"changed", Style::Look::notice};
    case DriveEvent::ejectionRejected:
      return {"ejectionRejected", Style::Look::bad};
    case DriveEvent::renameSucceeded:
      return {"renameSucceeded", Style::Look::good};
    case DriveEvent::renameFailed:
      return {"renameFailed", Style::Look::bad};
  }
  return {"", Style::Look::plain};
}

std::string localTimeText(EventTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  char text[32];
  if (localtime_r(&seconds, &parts) == nullptr) return "--:--:--";
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &parts));
}

/// "ext4, 1.5 GB, removable,network": what is known of it.
std::string detailsOf(const DriveSummary& summary) {
  std::string details;
  for (const std::string* detail : {&summary.kind, &summary.size, &summary.device, &summary.flags}) {
    if (detail->empty()) continue;
    if (!details.empty()) details += ", ";
    details += *detail;
  }
  return details;
}

bool isAnswer(DriveEvent event) {
  return event == DriveEvent::ejectionRejected || event == DriveEvent::renameSucceeded ||
         event == DriveEvent::renameFailed;
}

}  // namespace

std::string eventAsJSON(DriveEvent event, EventTime time, const Dictionary& drive) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  JSON line = {{"event", lookOf(event).name}, {"time", sinceEpoch.count()}};
  if (!isAnswer(event)) {
    line["drive"] = jsonOfDrive(drive);
    return jsonLine(line);
  }
  if (const URL* url = drive.url(kDiskURLKey)) {
    line["url"] = url->absoluteString();
    line["path"] = url->path();
  }
  for (const char* number : {"status", "pid"}) {
    if (const Value* value = drive.find(number)) line[number] = jsonOf(*value);
  }
  return jsonLine(line);
}

std::string activityAsJSON(EventTime time, const ActivityBoard::Activities& activities) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  JSON drives = jsonOfActivities(activities);
  if (drives.empty()) return {};
  return jsonLine({{"event", "activity"}, {"time", sinceEpoch.count()}, {"drives", std::move(drives)}});
}

std::string codexAsJSON(EventTime time, const CodexStatus& status) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  JSON line = {{"event", "codex"}, {"time", sinceEpoch.count()}, {"path", status.path}};
  line.update(jsonOfCodexVolume(status));
  return jsonLine(line);
}

std::string codexAsText(EventTime time, const CodexStatus& status, const Style& style) {
  return localTimeText(time) + "  " + style.apply(Style::Look::notice, "codex") + "    " +
         visibleText(status.path) + "  " + codexText(status) + "\n";
}

std::string eventAsText(DriveEvent event, EventTime time, const Dictionary& drive, const Style& style) {
  constexpr std::size_t kLongestEvent = sizeof "present" - 1;
  const auto [name, look] = lookOf(event);
  const DriveSummary summary = summaryOf(drive);
  std::string line = localTimeText(time) + "  " + style.apply(look, name);
  line.append(std::max(kLongestEvent, std::strlen(name)) - std::strlen(name) + 2, ' ');
  line += visibleText(summary.mountPoint);
  const URL* oldURL = drive.url(kDiskOldURLKey);
  if (event == DriveEvent::changed && oldURL != nullptr) line += " (was " + visibleText(oldURL->path()) + ")";
  if (!summary.name.empty()) line += "  \"" + visibleText(summary.name) + "\"";
  std::string details = detailsOf(summary);
  if (event == DriveEvent::ejectionRejected) details = refusalText(drive);
  if (!details.empty()) line += "  " + visibleText(details);
  return line + "\n";
}

}  // namespace kmv::tool
