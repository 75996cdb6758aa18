// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

namespace kmv {

/// A strict weak order of values by number, whatever their kinds: true, 1 and 1.0 are one key of a map.
/// NaN is unordered, so it comes last here; a value that is not a number counts as NaN.
/// Exact for every 64-bit integer, signed or unsigned: nothing is rounded to a double.
struct KMV_EXPORT NumberOrder {
  bool operator()(const Value& a, const Value& b) const;
};

}  // namespace kmv
