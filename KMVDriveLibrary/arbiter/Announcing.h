// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Queue.h>

#include <string>
#include <string_view>
#include <utility>

namespace kmv {

/// Posts later, on the main queue, in the order of the calls. Never blocks.
inline void announceOnMainQueue(std::string_view name, NotificationObject object) {
  mainQueue().async([notification = Notification{std::string(name), std::move(object), nullptr}] {
    NotificationCenter::defaultCenter().post(notification);
  });
}

}  // namespace kmv
