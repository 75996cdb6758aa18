// SPDX-License-Identifier: MIT
#pragma once

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

/// Which columns a table of drives has.
enum class Columns { mounted, mountedVerbose, unmounted, unmountedVerbose };

std::vector<Table::Column> driveColumns(Columns which);
/// One cell a column; they hold any bytes.
std::vector<std::string> driveCells(Columns which, const Dictionary& drive);

/// The best-known facts under names of their own, absent ones left out, and everything under "description".
JSON jsonOfDrive(const Dictionary& drive);

}  // namespace kmv::tool
