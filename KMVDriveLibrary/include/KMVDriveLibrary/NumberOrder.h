// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

namespace kmv {

/// Orders number values by what they are worth, whatever their kinds: true, 1 and 1.0 are one key of a map.
/// What is no number counts as the real that is none (NaN), which comes last. Exact for every integer.
struct KMV_EXPORT NumberOrder {
  bool operator()(const Value& a, const Value& b) const;
};

}  // namespace kmv
