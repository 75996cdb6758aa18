// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Space.h>
#include <KMVDriveLibrary/Value.h>

#include <string>
#include <vector>

#include "kmvdrive/DisplayText.h"
#include "kmvdrive/ValueJSON.h"

namespace kmv::tool {

// What the program shows of a drive, or of the description of a disk that is not mounted. Which facts there
// are, and how each is shown, stands in one table in DriveFacts.cpp.

/// The facts of one-line texts; empty where not known. They hold any bytes: escape them with `visibleText`.
struct DriveSummary {
  std::string name;
  std::string kind;
  std::string size;
  std::string mountPoint;
  std::string device;
  std::string flags;  ///< "removable,network"
};
DriveSummary summaryOf(const Dictionary& drive);

/// What a table of drives shows.
struct DriveTable {
  bool isOfMounted = true;
  bool isVerbose = false;
  bool showsExactBytes = false;
  std::vector<std::string> columns;  ///< of `columnNames`, in this order; empty: the usual ones
};
Table tableOf(const DriveTable& what, const std::vector<Dictionary>& drives);

/// The names of all columns: "device", "name", ...
std::vector<std::string> columnNames();

// What the program adds to a drive before it shows it; see `jsonOfDrive` and the columns.
inline constexpr char kSpaceKey[] = "space";  ///< a dictionary, by `setSpace`
inline constexpr char kCodexKey[] = "codex";  ///< text
void setSpace(Dictionary& drive, const Space& space);

/// The best-known facts under names of their own, absent ones left out, and everything under "description".
JSON jsonOfDrive(const Dictionary& drive);

}  // namespace kmv::tool
