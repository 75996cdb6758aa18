// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Degradation.h>

#include <string_view>

namespace kmv {

inline constexpr std::string_view kMountTableUnreadable = "mount table unreadable";
inline constexpr std::string_view kDevicesUnreadable = "devices unreadable";
inline constexpr std::string_view kDrivesNotFollowed = "drives not followed";

/// Says whether `what` holds; idempotent. Logs a change, so no lock may be held: the sink is foreign code.
void setDegraded(std::string_view what, bool holds);

}  // namespace kmv
