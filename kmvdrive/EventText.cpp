// SPDX-License-Identifier: MIT
#include "kmvdrive/EventText.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DissentStatus.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <system_error>
#include <utility>

#include "kmvdrive/DriveFacts.h"

namespace kmv::tool {
namespace {

// What the registry adds to the record of a refused unmount.
constexpr char kStatus[] = "status";
constexpr char kProcessID[] = "pid";

struct EventLook {
  std::string_view name;
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
    case DriveEvent::diskAdded:
      return {"diskAdded", Style::Look::good};
    case DriveEvent::diskRemoved:
      return {"diskRemoved", Style::Look::bad};
    case DriveEvent::ejectionRejected:
      return {"ejectionRejected", Style::Look::bad};
    case DriveEvent::renameSucceeded:
      return {"renameSucceeded", Style::Look::good};
    case DriveEvent::renameFailed:
      return {"renameFailed", Style::Look::bad};
  }
  return {"", Style::Look::plain};
}

/// The last three of `DriveEvent`.
bool isAnswer(DriveEvent event) {
  return event >= DriveEvent::ejectionRejected;
}

JSON lineOf(std::string_view event, EventTime time) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  return {{"event", event}, {"time", sinceEpoch.count()}};
}

std::string localTimeText(EventTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  char text[32];
  if (localtime_r(&seconds, &parts) == nullptr) return "--:--:--";
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &parts));
}

/// "17:05:00  added    ".
std::string beginningOf(const EventLook& event, EventTime time, const Style& style) {
  constexpr std::size_t kColumn = sizeof "present" - 1;
  const std::size_t padding = std::max(kColumn, event.name.size()) - event.name.size() + 2;
  return localTimeText(time) + "  " + style.apply(event.look, event.name) + std::string(padding, ' ');
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

/// macOS hands on what a file system says in this wrapping.
constexpr std::int64_t kWrappedErrno = 0xC000;
constexpr std::int64_t kMostErrno = 0xFF;

std::string reasonOf(std::int64_t status) {
  constexpr std::pair<std::int64_t, const char*> kReasons[] = {
      {dissent::kBusy, "something on it is in use"},
      {dissent::kBadArgument, "it cannot have that name"},
      {dissent::kExclusiveAccess, "another program has the device for itself"},
      {dissent::kNoResources, "the system has no resources left for it"},
      {dissent::kNotFound, "its device is gone"},
      {dissent::kNotMounted, "it is not mounted any more"},
      {dissent::kNotPermitted, "the system does not permit it"},
      {dissent::kNotPrivileged, "this takes more rights than you have"},
      {dissent::kNotReady, "the device is not ready"},
      {dissent::kNotWritable, "it is read-only"},
      {dissent::kUnsupported, "a volume of this kind cannot do that"},
      {kWrappedErrno + EBUSY, "something on it is in use"},
      {kWrappedErrno + EROFS, "it is read-only"},
  };
  for (const auto& [known, reason] : kReasons) {
    if (known == status) return reason;
  }
  const std::int64_t error = status - kWrappedErrno;
  if (error > 0 && error <= kMostErrno)
    return "its file system says: " + std::generic_category().message(static_cast<int>(error));
  return "the system refused without a reason that is known here";
}

/// The platform's own statuses are known by their hexadecimal form, others by their decimal one.
std::string statusText(std::int64_t status) {
  const bool isPlatforms = status < 0 && status >= INT32_MIN;
  if (!isPlatforms) return std::to_string(status);
  char hexadecimal[16];
  std::snprintf(hexadecimal, sizeof hexadecimal, "0x%08" PRIX32, static_cast<std::uint32_t>(status));
  return hexadecimal;
}

}  // namespace

std::string eventAsJSON(DriveEvent event, EventTime time, const Dictionary& drive) {
  JSON line = lineOf(lookOf(event).name, time);
  if (!isAnswer(event)) {
    line["drive"] = jsonOfDrive(drive);
    return jsonLine(line);
  }
  if (const URL* url = drive.url(key::kVolumePath)) {
    line["url"] = url->absoluteString();
    line["path"] = url->path();
  }
  for (const char* number : {kStatus, kProcessID}) {
    if (const Value* value = drive.find(number)) line[number] = jsonOf(*value);
  }
  return jsonLine(line);
}

std::string eventAsText(DriveEvent event, EventTime time, const Dictionary& drive, const Style& style) {
  const DriveSummary summary = summaryOf(drive);
  const bool isUnmounted = event == DriveEvent::diskAdded || event == DriveEvent::diskRemoved;
  std::string line = beginningOf(lookOf(event), time, style) +
                     visibleText(isUnmounted ? summary.device : summary.mountPoint);
  const URL* oldURL = drive.url(kDiskOldURLKey);
  if (event == DriveEvent::changed && oldURL != nullptr) line += " (was " + visibleText(oldURL->path()) + ")";
  if (!summary.name.empty()) line += "  \"" + visibleText(summary.name) + "\"";
  const std::string details = event == DriveEvent::ejectionRejected ? refusalText(drive) : detailsOf(summary);
  if (!details.empty()) line += "  " + visibleText(details);
  return line + "\n";
}

std::string activityAsJSON(EventTime time, const ActivityBoard::Activities& activities) {
  JSON drives = jsonOfActivities(activities);
  if (drives.empty()) return {};
  JSON line = lineOf("activity", time);
  line["drives"] = std::move(drives);
  return jsonLine(line);
}

std::string codexAsJSON(EventTime time, const CodexStatus& status) {
  JSON line = lineOf("codex", time);
  line["path"] = status.path;
  line.update(jsonOfCodexVolume(status));
  return jsonLine(line);
}

std::string codexAsText(EventTime time, const CodexStatus& status, const Style& style) {
  return beginningOf({"codex", Style::Look::notice}, time, style) + visibleText(status.path) + "  " +
         codexText(status) + "\n";
}

std::string missedAsJSON(EventTime time, std::uint64_t mounts) {
  JSON line = lineOf("missed", time);
  line["mounts"] = mounts;
  return jsonLine(line);
}

std::string missedAsText(EventTime time, std::uint64_t mounts, const Style& style) {
  return beginningOf({"missed", Style::Look::notice}, time, style) + std::to_string(mounts) +
         (mounts == 1 ? " mount" : " mounts") + " may have come and gone unseen\n";
}

std::string refusalText(const Dictionary& rejection) {
  const auto numberUnder = [&](const char* key) {
    const Value* number = rejection.find(key);
    return number == nullptr ? 0 : number->integerValue();
  };
  const std::int64_t status = numberUnder(kStatus), processID = numberUnder(kProcessID);
  std::string text = reasonOf(status) + " (status " + statusText(status);
  if (processID != 0) text += ", process " + std::to_string(processID);
  return text + ")";
}

}  // namespace kmv::tool
