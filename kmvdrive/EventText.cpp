// SPDX-License-Identifier: MIT
#include "kmvdrive/EventText.h"

#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "kmvdrive/DisplayText.h"
#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/DriveSummary.h"

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

}  // namespace

std::string eventAsJSON(DriveEvent event, EventTime time, const Dictionary& drive) {
  const std::chrono::duration<double> sinceEpoch = time.time_since_epoch();
  return jsonLine(
      {{"event", lookOf(event).name}, {"time", sinceEpoch.count()}, {"drive", jsonOfDrive(drive)}});
}

std::string eventAsText(DriveEvent event, EventTime time, const Dictionary& drive, const Style& style) {
  constexpr std::size_t kLongestEvent = sizeof "present" - 1;
  const auto [name, look] = lookOf(event);
  const DriveSummary summary = summaryOf(drive);
  std::string line = localTimeText(time) + "  " + style.apply(look, name);
  line.append(kLongestEvent - std::string_view(name).size() + 2, ' ');
  line += visibleText(summary.mountPoint);
  const URL* oldURL = drive.url(kDiskOldURLKey);
  if (event == DriveEvent::changed && oldURL != nullptr) line += " (was " + visibleText(oldURL->path()) + ")";
  if (!summary.name.empty()) line += "  \"" + visibleText(summary.name) + "\"";
  const std::string details = detailsOf(summary);
  if (!details.empty()) line += "  " + visibleText(details);
  return line + "\n";
}

std::optional<double> parseSeconds(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789.eE+-") != std::string_view::npos)
    return std::nullopt;
  const std::string terminated(text);
  char* end = nullptr;
  const double seconds = std::strtod(terminated.c_str(), &end);
  const bool isNumber = end == terminated.c_str() + terminated.size();
  if (!isNumber || !std::isfinite(seconds) || std::signbit(seconds)) return std::nullopt;
  return seconds;
}

}  // namespace kmv::tool
