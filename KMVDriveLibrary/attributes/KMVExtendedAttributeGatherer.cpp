// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVExtendedAttributeGatherer.h>

#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "base/CalendarText.h"
#include "base/TextOfBytes.h"
#include "base/UTF8.h"
#include "platform/Platform.h"

namespace {

using kmv::ChildProcess;
using kmv::Platform;

constexpr char kTool[] = "/usr/bin/xattr";
constexpr char kStartBlock[] = "ltfs.startblock";
constexpr char kErrorDomain[] = "extendedattributes";
/// The name under which the platform raises what cannot be handed to the system, a missing tool included.
constexpr char kInvalidArgument[] = "NSInvalidArgumentException";
/// The library's contract reads no more of a position; a longer value counts as 0.
constexpr std::size_t kLongestPosition = 255;

std::string trimmed(std::string_view text) {
  return std::string(kmv::withoutWhiteSpaceAtEnds(text));
}

/// What the tool prints; none when it cannot be started. How it ends does not matter: of an attribute that is
/// not there it prints nothing.
std::optional<std::string> printedByTool(const ChildProcess::Result& result) {
  if (!result.started) return std::nullopt;
  return kmv::isUTF8(result.output) ? std::optional(trimmed(result.output)) : std::nullopt;
}

/// A text as a C string: it ends at its first NUL.
std::string textForSystem(std::string_view text) {
  return std::string(text.substr(0, text.find('\0')));
}

/// A path as the system takes it. An empty one, and one that holds a NUL, name no file.
std::string pathForSystem(std::string_view path) {
  if (path.empty()) throw kmv::Exception(kInvalidArgument, "the path is empty");
  if (path.find('\0') != std::string_view::npos)
    throw kmv::Exception(kInvalidArgument, "the path holds a NUL");
  return std::string(path);
}

/// "2024-01-02T03:04:05." and the milliseconds since midnight, unpadded, not a fraction of the second:
/// intended, the date pattern of the library's contract. None for a year beyond the calendar's.
std::optional<std::string> dateText(kmv::Date date) {
  constexpr double kLargestSecond = 1e14;
  constexpr std::int64_t kMillisecondsPerDay = 86'400'000;
  const double seconds = date.secondsSinceReferenceDate + kmv::Date::kReferenceDate;
  if (!(std::fabs(seconds) < kLargestSecond)) return std::nullopt;
  // The nearest one, as the platform does it: .250 is not .2499999.
  const auto milliseconds = static_cast<std::int64_t>(std::floor(seconds * 1000 + 0.5));
  const std::int64_t ofDay =
      ((milliseconds % kMillisecondsPerDay) + kMillisecondsPerDay) % kMillisecondsPerDay;
  const auto text = kmv::calendarText((milliseconds - ofDay) / 1000 + ofDay / 1000);
  if (!text) return std::nullopt;
  return text->day + "T" + text->time + "." + std::to_string(ofDay) + "Z";
}

kmv::Error errorWith(const char* key, kmv::Value value) {
  return {kErrorDomain, 1, {{key, std::move(value)}}};
}

/// Of the kind that the platform raises where the system cannot be asked at all.
kmv::Error errorOf(const kmv::Exception& exception) {
  return errorWith("exception", kmv::Dictionary{{"name", exception.name()}, {"reason", exception.what()}});
}

void writeDate(const char* name, std::string_view file, std::optional<kmv::Date> date,
               std::optional<kmv::Error>& error) {
  if (!date) return;
  const auto text = dateText(*date);
  if (!text) {
    error = errorOf({kInvalidArgument, "the date is beyond the calendar"});
    return;
  }
  const ChildProcess::Result result = Platform::current().extendedAttributes().runTool(
      {kTool, "-w", name, *text, std::string(file), /*collectsErrors=*/true});
  if (!result.started) {
    error = errorOf({kInvalidArgument, result.problem});
    return;
  }
  // Where the status was lost, a tool that has nothing to say has done its work.
  const bool failed = result.exitStatus ? *result.exitStatus != 0 : !result.output.empty();
  if (!failed) return;
  error = kmv::isUTF8(result.output) ? errorWith("result", result.output)
                                     : errorOf({kInvalidArgument, "what the tool said is no text"});
}

}  // namespace

std::optional<std::string> KMVExtendedAttributeGatherer::ltfsAttributeNameForAttribute(unsigned attribute) {
  constexpr std::array<const char*, 6> kNames{"ltfs.fileUID",      "ltfs.partition",  "ltfs.volumeUUID",
                                              "ltfs.volumeSerial", "ltfs.volumeName", kStartBlock};
  return attribute < kNames.size() ? std::optional<std::string>(kNames[attribute]) : std::nullopt;
}

std::int64_t KMVExtendedAttributeGatherer::findLocationOfLTFSStartBlockAtLocation(std::string_view location) {
  const auto value = Platform::current().extendedAttributes().get(std::string(location), kStartBlock);
  if (!value) return -1;
  return value->size() <= kLongestPosition && kmv::isUTF8(*value) ? kmv::integerOfText(*value) : 0;
}

std::optional<std::string> KMVExtendedAttributeGatherer::findValueOfExtendedAttribute(
    unsigned attribute, std::string_view atLocation) {
  const auto name = ltfsAttributeNameForAttribute(attribute);
  if (!name) return std::nullopt;
  return findValueOfExtendedAttributeWithTitle(*name, atLocation);
}

std::optional<std::string> KMVExtendedAttributeGatherer::findValueOfExtendedAttributeWithTitle(
    std::optional<std::string_view> title, std::string_view forItemAtLocation) {
  if (!Platform::current().childProcess().exists(kTool)) return std::nullopt;
  std::string path(forItemAtLocation);
  if (!title)
    return printedByTool(
        Platform::current().childProcess().run({kTool, {"-l", std::move(path)}, /*collectsErrors=*/false}));
  return printedByTool(Platform::current().extendedAttributes().runTool(
      {kTool, "-p", std::string(*title), std::nullopt, std::move(path), /*collectsErrors=*/false}));
}

bool KMVExtendedAttributeGatherer::setValueForLTFSExtendedAttributeAtLocation(
    std::string_view location, std::string_view withLabel, std::string_view withValue,
    std::optional<kmv::Exception>& exception) {
  std::string path;
  try {
    path = pathForSystem(location);
  } catch (const kmv::Exception& raised) {
    exception = raised;
    return false;
  }
  return Platform::current().extendedAttributes().set(path, textForSystem(withLabel),
                                                      textForSystem(withValue));
}

bool KMVExtendedAttributeGatherer::setValueForLTFSExtendedAttributeAtLocation(std::string_view location,
                                                                              std::string_view withLabel,
                                                                              std::string_view withValue) {
  std::optional<kmv::Exception> dropped;
  return setValueForLTFSExtendedAttributeAtLocation(location, withLabel, withValue, dropped);
}

void KMVExtendedAttributeGatherer::setExtendedModificationDateAttributesForFile(
    std::string_view file, std::optional<kmv::Date> withModificationDate,
    std::optional<kmv::Error>& withError) {
  writeDate("ltfs.modifyTime", file, withModificationDate, withError);
}

void KMVExtendedAttributeGatherer::setExtendedCreationDateAttributesForFile(
    std::string_view file, std::optional<kmv::Date> withCreationDate, std::optional<kmv::Error>& withError) {
  writeDate("ltfs.createTime", file, withCreationDate, withError);
}
