// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/Platform.h"

namespace kmv {

/// The backend that this build was made for; defined by that backend's folder, in a file of its own so that a
/// test can link another backend's sources beside it.
std::unique_ptr<Platform> makeNativePlatform();

}  // namespace kmv
