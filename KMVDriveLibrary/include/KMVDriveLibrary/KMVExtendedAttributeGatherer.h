// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Error.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Reads and writes extended attributes of files and folders, above all those of LTFS volumes.
/// Some operations use system calls, others run the attribute tool at "/usr/bin/xattr"; which does which is
/// part of the library's contract.
///
/// Paths are bytes.
/// Names are used verbatim; on Linux, where attribute names need a name space, the backend reads and writes
/// "ltfs.x" as "user.ltfs.x" (docs/platforms.md).
/// Threads: every member may be called from any thread and blocks until the answer is there: a tool that
/// hangs on a dead volume blocks its caller and nobody else.
class KMV_EXPORT KMVExtendedAttributeGatherer {
 public:
  KMVExtendedAttributeGatherer() = delete;

  /// The attribute's name: 0 "ltfs.fileUID", 1 "ltfs.partition", 2 "ltfs.volumeUUID", 3 "ltfs.volumeSerial",
  /// 4 "ltfs.volumeName", 5 "ltfs.startblock"; none above.
  /// Selector: +ltfsAttributeNameForAttribute:
  static std::optional<std::string> ltfsAttributeNameForAttribute(unsigned attribute);

  /// The number in "ltfs.startblock"; -1 when the attribute cannot be read, 0 when it is not a number.
  /// Asks the system.
  /// Selector: +findLocationOfLTFSStartBlockAtLocation:
  static std::int64_t findLocationOfLTFSStartBlockAtLocation(std::string_view location);

  /// The value of one of the attributes above, trimmed of white space; empty when the file has no such
  /// attribute, none for an unknown index or when the tool is missing.
  /// Runs the tool.
  /// Selector: +findValueOfExtendedAttribute:atLocation:
  static std::optional<std::string> findValueOfExtendedAttribute(unsigned attribute,
                                                                 std::string_view atLocation);

  /// The same for an attribute of any name, and without a name a list of all attributes with their values, as
  /// the tool prints it.
  /// Runs the tool.
  /// Selector: +findValueOfExtendedAttributeWithTitle:forItemAtLocation:
  static std::optional<std::string> findValueOfExtendedAttributeWithTitle(
      std::optional<std::string_view> title, std::string_view forItemAtLocation);

  /// Writes an attribute, its value without a terminating NUL.
  /// False when the system refuses, without a reason; false with an exception when the path or a text cannot
  /// be handed to the system.
  /// Asks the system.
  /// Selector: +setValueForLTFSExtendedAttributeAtLocation:withLabel:withValue:exception:
  static bool setValueForLTFSExtendedAttributeAtLocation(std::string_view location,
                                                         std::string_view withLabel,
                                                         std::string_view withValue,
                                                         std::optional<kmv::Exception>& exception);
  /// The same; an exception is dropped.
  /// Selector: +setValueForLTFSExtendedAttributeAtLocation:withLabel:withValue:
  static bool setValueForLTFSExtendedAttributeAtLocation(std::string_view location,
                                                         std::string_view withLabel,
                                                         std::string_view withValue);

  /// Writes the date into "ltfs.modifyTime", in UTC; the digits after the point are the milliseconds since
  /// midnight, on purpose ("2024-01-02T03:04:05.11045250Z").
  /// Without a date nothing happens.
  /// Runs the tool.
  /// Failure: `withError` is set (domain "extendedattributes", code 1; user info: "result" has the tool's
  /// output, or "exception" a dictionary with the "name" and the "reason" of the exception that kept the tool
  /// from running).
  /// On success it is unchanged.
  /// Selector: +setExtendedModificationDateAttributesForFile:withModificationDate:withError:
  static void setExtendedModificationDateAttributesForFile(std::string_view file,
                                                           std::optional<kmv::Date> withModificationDate,
                                                           std::optional<kmv::Error>& withError);
  /// The same for "ltfs.createTime".
  /// Selector: +setExtendedCreationDateAttributesForFile:withCreationDate:withError:
  static void setExtendedCreationDateAttributesForFile(std::string_view file,
                                                       std::optional<kmv::Date> withCreationDate,
                                                       std::optional<kmv::Error>& withError);
};
